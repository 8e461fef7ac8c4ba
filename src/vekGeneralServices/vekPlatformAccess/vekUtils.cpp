#include "vekUtils.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <arpa/inet.h>
#include <dirent.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <regex>

namespace {

const char TAG[] = "VEK_UTILS";

using vekGlobalDef::VMwareOSUtils;

std::mutex gPrimaryAddressMutex;
std::string gPrimaryAddress;
std::atomic<long> gCacheRefreshInterval(0);

struct DirCloser {
    void operator()(DIR* dir) const
    {
        if (dir != nullptr) {
            closedir(dir);
        }
    }
};

std::vector<std::string> dirListMatching(const std::string& path, const std::regex* pattern)
{
    std::vector<std::string> names;
    std::unique_ptr<DIR, DirCloser> dir(opendir(path.c_str()));
    if (!dir) {
        return names;
    }
    while (const struct dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (pattern == nullptr || std::regex_match(name, *pattern)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Time stamps of the lines of /var/log/vmksummary.log that hold a phrase,
// the last 'count' of them, oldest first. The scratch file of the pipeline is
// removed before (a stopped run may have left one) and after.
bool vmksummaryTimes(const std::string& phrase, int count, std::vector<long>& times)
{
    const std::string root = vekConfig::getEnv();
    const std::string scratch = root + "/tmp/vekboot.log";
    std::remove(scratch.c_str());
    const std::string command = VMwareOSUtils::composeCommand(
        "grep {} {} | tail -n {} | awk '{print $1}' >> {}",
        {phrase, root + "/var/log/vmksummary.log", std::to_string(count), scratch});
    const int status = VMwareOSUtils::runHostCommand(command).status;
    {
        std::ifstream in(scratch);
        std::string line;
        while (status == 0 && std::getline(in, line)) {
            line = vekGlobalDef::stringUtils::trim(line);
            if (!line.empty()) {
                times.push_back(vekUtils::toEpoc(line));
            }
        }
    }
    std::remove(scratch.c_str());
    return status == 0 && !times.empty();
}

} // namespace

std::string vekUtils::readHostName()
{
    return VMwareOSUtils::readHostName();
}

std::string vekUtils::readHostOSVersion()
{
    return VMwareOSUtils::readHostOSVersion();
}

std::string vekUtils::readHostOSName()
{
    return VMwareOSUtils::fetchHostOSName();
}

std::string vekUtils::readHostOSDescription()
{
    return VMwareOSUtils::readHostOSDescription();
}

std::string vekUtils::getDateTime()
{
    return VMwareOSUtils::getDateTime();
}

std::string vekUtils::getTime()
{
    return vekGlobalDef::timeUtils::getTime();
}

std::string vekUtils::getUTCTime()
{
    return vekGlobalDef::timeUtils::getUTCTime();
}

int vekUtils::synchronizePersistentStorage()
{
    return VMwareOSUtils::synchronizePersistentStorage();
}

std::vector<std::string> vekUtils::executeCliCommandAndFetchOutput(const std::string& command)
{
    return VMwareOSUtils::executeCliCommandAndFetchOutput(command);
}

std::vector<std::string> vekUtils::getIPAddresses()
{
    return VMwareOSUtils::getIPAddress();
}

long vekUtils::toEpoc(const std::string& timeStamp)
{
    // Year at 0, month at 5, day at 8, hour at 11, minute at 14, second at 17.
    static const size_t kDigits[] = {0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18};
    bool shaped = timeStamp.size() >= 19 && timeStamp[4] == '-' && timeStamp[7] == '-' &&
                  (timeStamp[10] == 'T' || timeStamp[10] == ' ') && timeStamp[13] == ':' && timeStamp[16] == ':';
    for (size_t i = 0; shaped && i < sizeof(kDigits) / sizeof(kDigits[0]); ++i) {
        shaped = std::isdigit(static_cast<unsigned char>(timeStamp[kDigits[i]])) != 0;
    }
    if (!shaped) {
        VEK_LOG_WARNING(TAG, "Invalid time stamp format.");
        return 0;
    }
    struct tm parts = {};
    parts.tm_year = std::stoi(timeStamp.substr(0, 4)) - 1900;
    parts.tm_mon = std::stoi(timeStamp.substr(5, 2)) - 1;
    parts.tm_mday = std::stoi(timeStamp.substr(8, 2));
    parts.tm_hour = std::stoi(timeStamp.substr(11, 2));
    parts.tm_min = std::stoi(timeStamp.substr(14, 2));
    parts.tm_sec = std::stoi(timeStamp.substr(17, 2));
    return static_cast<long>(timegm(&parts));
}

std::string vekUtils::getPCIString(const std::string& adapterName)
{
    const std::vector<std::string> lines = executeCliCommandAndFetchOutput(
        VMwareOSUtils::composeCommand("localcli storage core adapter list | grep -i -e {}", {adapterName}));
    for (const std::string& line : lines) {
        const std::string address = getSubStr(line, "(", ")");
        if (!address.empty()) {
            return address;
        }
    }
    return "";
}

bool vekUtils::is_ipv4_address(const std::string& text)
{
    struct in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

void vekUtils::setPrimaryIPAddress(const std::string& address)
{
    std::lock_guard<std::mutex> lock(gPrimaryAddressMutex);
    gPrimaryAddress = address;
}

std::string vekUtils::getPrimaryIPAddress()
{
    {
        std::lock_guard<std::mutex> lock(gPrimaryAddressMutex);
        if (!gPrimaryAddress.empty()) {
            return gPrimaryAddress;
        }
    }
    const std::vector<std::string> addresses = updateAndFetchIPAddresses();
    return addresses.empty() ? "" : addresses.front();
}

std::vector<std::string> vekUtils::updateAndFetchIPAddresses()
{
    const std::vector<std::string> addresses = getIPAddresses();
    setPrimaryIPAddress(addresses.empty() ? "" : addresses.front());
    return addresses;
}

void vekUtils::setCacheRefreshTimeInterval(long seconds)
{
    gCacheRefreshInterval = seconds;
}

long vekUtils::getCacheRefreshTimeInterval()
{
    return gCacheRefreshInterval;
}

std::string vekUtils::getTimeZone()
{
    const time_t now = time(nullptr);
    struct tm parts;
    if (localtime_r(&now, &parts) == nullptr || parts.tm_zone == nullptr) {
        return "";
    }
    return parts.tm_zone;
}

std::string vekUtils::getSubStr(const std::string& text, const std::string& begin, const std::string& end)
{
    const size_t from = text.find(begin);
    if (from == std::string::npos) {
        return "";
    }
    const size_t start = from + begin.size();
    const size_t to = text.find(end, start);
    if (to == std::string::npos) {
        return "";
    }
    return text.substr(start, to - start);
}

std::string vekUtils::getLineFromFile(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    if (!std::getline(in, line)) {
        return "";
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

std::vector<std::string> vekUtils::dirList(const std::string& path)
{
    return dirListMatching(path, nullptr);
}

std::vector<std::string> vekUtils::dirPciList(const std::string& path)
{
    static const std::regex pciAddress("[0-9a-fA-F]{4,5}:[0-9a-fA-F]{2}:[0-9a-fA-F]{2}\\.[0-7]");
    return dirListMatching(path, &pciAddress);
}

std::vector<std::string> vekUtils::dirListNvmeNameSpaces(const std::string& path)
{
    static const std::regex nameSpace("nvme[0-9]+n[0-9]+");
    return dirListMatching(path, &nameSpace);
}

bool vekUtils::fetchSystemBootTime(long& lastBootTime, long& previousBootTime)
{
    lastBootTime = 0;
    previousBootTime = 0;
    std::vector<long> times;
    if (!vmksummaryTimes("Host has booted", 2, times)) {
        VEK_LOG_ERROR(TAG, "Error occurred in gathering system boot time information.");
        return false;
    }
    lastBootTime = times.back();
    previousBootTime = times.size() > 1 ? times[times.size() - 2] : 0;
    return true;
}

bool vekUtils::fetchSystemShutdownTime(long& shutdownTime)
{
    shutdownTime = 0;
    std::vector<long> times;
    if (!vmksummaryTimes("Host is rebooting", 1, times)) {
        VEK_LOG_ERROR(TAG, "Error occurred in gathering system last shutdown time information.");
        return false;
    }
    shutdownTime = times.back();
    return true;
}
