#include "vekGlobalDef.h"

#include "vekConfig.h"
#include "vekLog.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <regex.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

const char TAG[] = "VMWARE_OS_UTILS";

// A compiled POSIX expression that frees itself.
class PosixRegex {
public:
    PosixRegex(const std::string& pattern, int flags) : status_(regcomp(&regex_, pattern.c_str(), flags)) {}
    ~PosixRegex()
    {
        if (status_ == 0) {
            regfree(&regex_);
        }
    }
    PosixRegex(const PosixRegex&) = delete;
    PosixRegex& operator=(const PosixRegex&) = delete;

    int status() const { return status_; }
    std::string error() const
    {
        char text[256];
        regerror(status_, &regex_, text, sizeof(text));
        return text;
    }
    const regex_t* get() const { return &regex_; }

private:
    regex_t regex_;
    int status_;
};

// The text after the first ':' of the first line, trimmed: the answer of a
// "localcli ... | grep Key:" pipeline.
std::string valueOfFirstLine(const std::vector<std::string>& lines)
{
    if (lines.empty()) {
        return "";
    }
    const std::string& line = lines.front();
    const size_t colon = line.find(':');
    if (colon == std::string::npos) {
        return "";
    }
    return vekGlobalDef::stringUtils::trim(line.substr(colon + 1));
}

bool hostUname(struct utsname& info)
{
    if (uname(&info) != 0) {
        VEK_LOG_ERROR(TAG, "uname failed with error = %d", errno);
        return false;
    }
    return true;
}

[[noreturn]] void throwStartStopFileError()
{
    throw std::runtime_error("Error opening the vek startup file");
}

std::string keyValueBlock(const std::vector<std::pair<std::string, long>>& entries)
{
    std::string text;
    for (const auto& entry : entries) {
        text += entry.first + " " + std::to_string(entry.second) + "\n";
    }
    return text;
}

// The start-stop file is never written in place: the new text goes to the
// scratch file, which then replaces it, so a stop in the middle leaves the
// old file whole.
bool replaceStartStopFile(const std::string& text)
{
    const std::string path = vekGlobalDef::VMwareOSUtils::StartStopFilePath();
    const std::string scratch = vekGlobalDef::VMwareOSUtils::StartStopScratchFilePath();
    {
        std::ofstream out(scratch, std::ios::trunc);
        if (!out) {
            return false;
        }
        out << text;
        out.close();
        if (!out) {
            return false;
        }
    }
    std::remove(path.c_str());
    return std::rename(scratch.c_str(), path.c_str()) == 0;
}

// Copies the start-stop file with the line of one key replaced. False when
// the file cannot be read or written.
bool updateStartStopLine(const std::string& key, long value)
{
    std::ifstream in(vekGlobalDef::VMwareOSUtils::StartStopFilePath());
    if (!in) {
        return false;
    }
    std::string text;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first == key) {
            text += key + " " + std::to_string(value) + "\n";
        } else {
            text += line + "\n";
        }
    }
    in.close();
    return replaceStartStopFile(text);
}

} // namespace

namespace vekGlobalDef {

// ---------------------------------------------------------------- paths

std::string VMwareOSUtils::DirectoryPath()
{
    return vekConfig::getEnv() + "/opt/zolvek";
}

std::string VMwareOSUtils::StartupFilePath()
{
    return DirectoryPath() + "/vital/zol";
}

std::string VMwareOSUtils::NICListsFilePath()
{
    return DirectoryPath() + "/tmp/vek_niclist.txt";
}

std::string VMwareOSUtils::NICInstanceDetailsFilePath()
{
    return DirectoryPath() + "/tmp/vek_nicAddDetails.txt";
}

std::string VMwareOSUtils::HardwareListFilePath()
{
    return DirectoryPath() + "/tmp/vek_hwlist.txt";
}

std::string VMwareOSUtils::StartStopFilePath()
{
    return StartupFilePath() + "VEKStartStop.txt";
}

std::string VMwareOSUtils::StartStopScratchFilePath()
{
    return StartupFilePath() + "VEKStartStoptmp.txt";
}

// ---------------------------------------------------------------- host identity

std::string VMwareOSUtils::readHostName()
{
    struct utsname info;
    if (!hostUname(info)) {
        return " ";
    }
    return info.nodename;
}

std::string VMwareOSUtils::getDateTime()
{
    const time_t now = time(nullptr);
    char buffer[64] = {0};
    if (ctime_r(&now, buffer) == nullptr) {
        return "";
    }
    return stringUtils::trim(buffer);
}

int VMwareOSUtils::getOSType()
{
    return 104;
}

int VMwareOSUtils::getFCEventsPollInterval()
{
    return 30;
}

std::string VMwareOSUtils::readHostOSDescription()
{
    struct utsname info;
    if (!hostUname(info)) {
        return " ";
    }
    return std::string(info.sysname) + " " + info.nodename + " " + info.release + " " + info.version + " " +
           info.machine;
}

std::string VMwareOSUtils::fetchHostOSName()
{
    return valueOfFirstLine(executeCliCommandAndFetchOutput("localcli system version get | grep -i Product:"));
}

std::string VMwareOSUtils::readHostOSVersion()
{
    return valueOfFirstLine(executeCliCommandAndFetchOutput("localcli system version get | grep -i Version:"));
}

std::vector<std::string> VMwareOSUtils::getIPAddress()
{
    std::vector<std::string> addresses;
    struct ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        const int error = errno;
        VEK_LOG_WARNING(TAG, "Unable to list the network interfaces: [%d] - [%s]", error,
                        execErrnoToDescription(error).c_str());
        return addresses;
    }
    std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs*)> guard(list, freeifaddrs);
    for (const struct ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        char text[INET_ADDRSTRLEN] = {0};
        const auto* address = reinterpret_cast<const struct sockaddr_in*>(entry->ifa_addr);
        if (inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text)) == nullptr) {
            continue;
        }
        VEK_LOG_DEBUG(TAG, "I/F Name: [%s] - IP Address: [%s]", entry->ifa_name, text);
        if (std::strcmp(entry->ifa_name, "lo") != 0) {
            addresses.emplace_back(text);
        }
    }
    return addresses;
}

std::pair<double, double> VMwareOSUtils::getTotalPhysicalMemory()
{
    const std::string memoryFile = DirectoryPath() + "/tmp/vek-mem.txt";
    const std::string command =
        composeCommand("esxtop -c {} -b -n 1 >> {}", {DirectoryPath() + "/data/esxtopconf", memoryFile});
    // The command appends; what a stopped run left behind must not be read.
    std::remove(memoryFile.c_str());
    const HostCommandResult run = runHostCommand(command);
    if (run.status != 0) {
        const std::string reason = run.status == -1 ? execErrnoToDescription(run.error)
                                                    : "exit status " + std::to_string(WEXITSTATUS(run.status));
        VEK_LOG_ERROR(TAG, "Error occurred in fetching physical memory information : %s", reason.c_str());
        std::remove(memoryFile.c_str());
    }

    // Batch mode writes two CSV lines: the counter names, then their values.
    bool found = false;
    long machineMBytes = 0;
    long freeMBytes = 0;
    {
        std::ifstream in(memoryFile);
        long machineField = -1;
        long freeField = -1;
        bool namesRead = false;
        std::string line;
        while (in && std::getline(in, line)) {
            if (stringUtils::trim(line).empty()) {
                continue;
            }
            const std::vector<std::string> fields = stringUtils::splitStringstream(line, ',');
            if (!namesRead) {
                namesRead = true;
                for (size_t i = 0; i < fields.size(); ++i) {
                    if (machineField < 0 && fields[i].find("Machine MBytes") != std::string::npos) {
                        machineField = static_cast<long>(i);
                    }
                    if (freeField < 0 && fields[i].find("\\Memory\\Free MBytes") != std::string::npos) {
                        freeField = static_cast<long>(i);
                    }
                }
                continue;
            }
            if (machineField >= 0 && freeField >= 0 && static_cast<size_t>(machineField) < fields.size() &&
                static_cast<size_t>(freeField) < fields.size()) {
                found = std::sscanf(fields[machineField].c_str(), "\"%ld", &machineMBytes) == 1 &&
                        std::sscanf(fields[freeField].c_str(), "\"%ld", &freeMBytes) == 1;
            }
            break;
        }
    }
    std::remove(memoryFile.c_str());

    if (!found) {
        VEK_LOG_WARNING(TAG, "Unable to fetch physical memory information.");
        return {0.0, 0.0};
    }
    // Whole GiB only: the fraction is dropped on purpose.
    return {static_cast<double>(machineMBytes / 1024), static_cast<double>(freeMBytes / 1024)};
}

// ---------------------------------------------------------------- commands and their output

std::string VMwareOSUtils::getValueByRegexFromLocalcli(const std::string& text, const std::string& regex)
{
    const PosixRegex compiled(regex, REG_EXTENDED);
    if (compiled.status() != 0) {
        VEK_LOG_WARNING(TAG, "Error Compiling Regex, Return Value: %d, Error Info: %s", compiled.status(),
                        compiled.error().c_str());
        return "";
    }
    regmatch_t match[1];
    if (regexec(compiled.get(), text.c_str(), 1, match, 0) != 0) {
        VEK_LOG_DEBUG(TAG, "Error detecting valueType : %s", regex.c_str());
        return "";
    }
    const std::string matched = text.substr(match[0].rm_so, match[0].rm_eo - match[0].rm_so);
    const size_t colon = matched.find(':');
    if (matched.empty() || colon == std::string::npos || colon + 2 > matched.size()) {
        VEK_LOG_WARNING(TAG, "Issue in identifying details from localcli output : %s", regex.c_str());
        return "";
    }
    return matched.substr(colon + 2);
}

std::string VMwareOSUtils::parseEsxiCommandOutputAsCsv(const std::vector<std::string>& lines)
{
    std::string joined;
    for (const std::string& raw : lines) {
        const std::string line = stringUtils::trim(raw);
        if (line.empty()) {
            continue;
        }
        const size_t colon = line.find(':');
        const std::string entry = colon == std::string::npos
                                      ? line
                                      : stringUtils::trim(line.substr(0, colon)) + ": " +
                                            stringUtils::trim(line.substr(colon + 1));
        if (!joined.empty()) {
            joined += " ";
        }
        joined += "," + entry;
    }
    return joined;
}

std::string VMwareOSUtils::parseEsxiCommandOutputAsCsv(const std::string& command)
{
    return parseEsxiCommandOutputAsCsv(executeCliCommandAndFetchOutput(command));
}

namespace {

// The ids of one PCI address from the hardware list file: the address's block
// runs from its line to the next empty one.
std::pair<std::string, std::string> pciIdPair(const std::string& pciAddress, const std::string& grepKeys,
                                              const std::string& firstRegex, const std::string& secondRegex)
{
    // The address becomes an awk pattern: only the address form may go there.
    if (!VMwareOSUtils::isPciAddress(pciAddress)) {
        return {"", ""};
    }
    const std::string command = VMwareOSUtils::composeCommand(
        "cat {} | awk {} | grep -w {}", {VMwareOSUtils::HardwareListFilePath(), "/" + pciAddress + "/,/^$/", grepKeys});
    const std::string csv =
        VMwareOSUtils::parseEsxiCommandOutputAsCsv(VMwareOSUtils::executeCliCommandAndFetchOutput(command));
    return {VMwareOSUtils::getValueByRegexFromLocalcli(csv, firstRegex),
            VMwareOSUtils::getValueByRegexFromLocalcli(csv, secondRegex)};
}

} // namespace

std::pair<std::string, std::string> VMwareOSUtils::get_vendor_device(const std::string& pciAddress)
{
    const auto ids = pciIdPair(pciAddress, "Vendor ID:\\|Device ID:", ",Vendor ID: 0x[A-Za-z0-9]{4}",
                               ",Device ID: 0x[A-Za-z0-9]{4}");
    if (ids.first.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch vendorId for %s", pciAddress.c_str());
    }
    if (ids.second.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch deviceId for %s", pciAddress.c_str());
    }
    if (!ids.first.empty() && !ids.second.empty()) {
        VEK_LOG_DEBUG(TAG, "vendorId = %s, deviceId = %s", ids.first.c_str(), ids.second.c_str());
    }
    return ids;
}

std::pair<std::string, std::string> VMwareOSUtils::get_subvendor_subdevice(const std::string& pciAddress)
{
    const auto ids = pciIdPair(pciAddress, "SubVendor ID:\\|SubDevice ID:", ",SubVendor ID: 0x[A-Za-z0-9]{4}",
                               ",SubDevice ID: 0x[A-Za-z0-9]{4}");
    if (ids.first.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch subVendorId for %s", pciAddress.c_str());
    }
    if (ids.second.empty()) {
        VEK_LOG_WARNING(TAG, "Cound not fetch subDeviceId for %s", pciAddress.c_str());
    }
    if (!ids.first.empty() && !ids.second.empty()) {
        VEK_LOG_DEBUG(TAG, "subVendorId = %s, subDeviceId = %s", ids.first.c_str(), ids.second.c_str());
    }
    return ids;
}

// ---------------------------------------------------------------- boot and start times

time_t VMwareOSUtils::getSystemCurrentBootTime()
{
    // A simulated host reboots by changing this variable; production has no
    // path root and never reads it.
    if (!vekConfig::getEnv().empty()) {
        const char* simulated = std::getenv("VEK_SIM_BOOT_TIME");
        if (simulated != nullptr && *simulated != '\0') {
            char* end = nullptr;
            const long value = std::strtol(simulated, &end, 10);
            if (end != simulated && *end == '\0') {
                return static_cast<time_t>(value);
            }
        }
    }
    struct sysinfo info;
    if (sysinfo(&info) != 0) {
        const int error = errno;
        VEK_LOG_ERROR(TAG, "Unable to fetch system Up Time using sysinfo API - %d, %d : %s", -1, error,
                      execErrnoToDescription(error).c_str());
        return getVEKStartTime() - 1;
    }
    return getVEKStartTime() - info.uptime;
}

time_t VMwareOSUtils::getVEKStartTime()
{
    static const time_t startTime = time(nullptr);
    return startTime;
}

int VMwareOSUtils::synchronizePersistentStorage()
{
    const HostCommandResult run =
        runHostCommand(composeCommand("{} hostsvc/firmware/sync_config", {vekConfig::getEnv() + "/bin/vim-cmd"}));
    const int status = run.status;
    if (status < 0) {
        VEK_LOG_WARNING(TAG, "Failed to synchronize persistent storage: [%d] - [%s]", run.error,
                        execErrnoToDescription(run.error).c_str());
    } else if (status != 0) {
        VEK_LOG_WARNING(TAG, "Failed to synchronize persistent storage. (0x%X)", static_cast<unsigned>(status));
    }
    return status;
}

// ---------------------------------------------------------------- the start-stop file

long VMwareOSUtils::readStartupValue(const std::string& key)
{
    std::ifstream in(StartStopFilePath());
    std::string token;
    while (in >> token) {
        if (token != key) {
            continue;
        }
        std::string value;
        if (!(in >> value)) {
            return 0;
        }
        char* end = nullptr;
        const long number = std::strtol(value.c_str(), &end, 10);
        return (end != value.c_str() && *end == '\0') ? number : 0;
    }
    return 0;
}

void VMwareOSUtils::vekStartStopFileOperations(VEKOperation op)
{
    const long startTime = static_cast<long>(getVEKStartTime());
    const std::string path = StartStopFilePath();

    if (op == VEK_OPERATION_INIT) {
        if (access(path.c_str(), F_OK) == 0) {
            if (!updateStartStopLine("current_start", startTime)) {
                throwStartStopFileError();
            }
        } else {
            std::ofstream out(path, std::ios::trunc);
            if (!out) {
                throwStartStopFileError();
            }
            out << keyValueBlock({{"current_start", startTime}, {"last_start", 0}, {"last_stop", 0}});
            out.close();
            if (!out) {
                throwStartStopFileError();
            }
            VEK_LOG_INFO(TAG, "Successful in creating the file");
        }
        VEK_LOG_DEBUG(TAG, "During VEK service init, last_start : %ld, last_stop : %ld, current_start : %ld",
                      readStartupValue("last_start"), readStartupValue("last_stop"),
                      readStartupValue("current_start"));
        return;
    }

    const long stopTime = static_cast<long>(time(nullptr));
    const std::string text =
        keyValueBlock({{"last_start", startTime}, {"last_stop", stopTime}, {"current_start", 0}});
    if (!replaceStartStopFile(text)) {
        throwStartStopFileError();
    }
    VEK_LOG_DEBUG(TAG, "During VEK service shutdown, last_start : %ld, last_stop : %ld, current_start : %ld",
                  readStartupValue("last_start"), readStartupValue("last_stop"), readStartupValue("current_start"));
}

void VMwareOSUtils::updateVEKLastStartValue()
{
    VEK_LOG_DEBUG(TAG, "After sending OS boots events, we can set current_start to last_start otherwise  it will "
                       "happen during VEK shutdown. And in case of crash it won't happen.");
    const long currentStart = readStartupValue("current_start");
    if (!updateStartStopLine("last_start", currentStart)) {
        VEK_LOG_WARNING(TAG, "Could not update the 'last_start' value in %s", StartStopFilePath().c_str());
    }
}

void VMwareOSUtils::getLastOSShutdownStatus(bool& ungraceful, bool& graceful)
{
    // Right after a boot the host is still settling; give it time before its
    // boot time is taken.
    std::this_thread::sleep_for(timeUtils::scaledSeconds(20));
    const long bootTime = static_cast<long>(getSystemCurrentBootTime());
    VEK_LOG_INFO(TAG, "The current system boot time is %ld", bootTime);

    const long lastStart = readStartupValue("last_start");
    const long lastStop = readStartupValue("last_stop");
    if (lastStart == lastStop) {
        return;
    }
    if (lastStart > lastStop) {
        // The service never stopped after its last start.
        if (bootTime > lastStart) {
            VEK_LOG_INFO(TAG, "In gen OS boot logic.Last shutdown was not-graceful.");
            ungraceful = true;
        } else {
            VEK_LOG_INFO(TAG, "VEK crashed in current boot so do nothing in point 3");
        }
        return;
    }
    if (bootTime > lastStop) {
        VEK_LOG_INFO(TAG, "In gen OS boot logic.Last shutdown was graceful.");
        graceful = true;
    } else {
        VEK_LOG_INFO(TAG, "VEK crashed in current boot so do nothing in point 2");
    }
}

std::string VMwareOSUtils::getErrorDescription(int error)
{
    char buffer[256] = {0};
    return strerror_r(error, buffer, sizeof(buffer));
}

std::string VMwareOSUtils::execErrnoToDescription(int error)
{
    return getErrorDescription(error);
}

// ---------------------------------------------------------------- stringUtils

const char* const stringUtils::kBlanks = " \t\f\v\n\r";

std::string stringUtils::trim(const std::string& text, const std::string& blanks)
{
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return "";
    }
    const size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

std::string stringUtils::stripHexRepresentedString(const std::string& text)
{
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        return text.substr(2);
    }
    return text;
}

bool stringUtils::validateHexadecimalString(const std::string& text)
{
    const std::string digits = stripHexRepresentedString(text);
    return !digits.empty() &&
           std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string stringUtils::limitPrecision(double& value, int precision)
{
    char buffer[100] = {0};
    std::snprintf(buffer, sizeof(buffer), "%*.*lf", 0, precision, value);
    value = std::strtod(buffer, nullptr);
    return buffer;
}

std::string stringUtils::extractFilename(const std::string& path)
{
    const size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

bool stringUtils::findString(const std::string& text, const std::string& search, bool ignoreCase)
{
    if (!ignoreCase) {
        return text.find(search) != std::string::npos;
    }
    const auto found = std::search(text.begin(), text.end(), search.begin(), search.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
    return found != text.end() || search.empty();
}

long stringUtils::hexStringToInt(const std::string& text)
{
    const std::string trimmed = trim(text);
    if (!validateHexadecimalString(trimmed)) {
        return 0;
    }
    return std::strtol(stripHexRepresentedString(trimmed).c_str(), nullptr, 16);
}

std::string stringUtils::removeNonAscii(const std::string& text)
{
    std::string ascii;
    ascii.reserve(text.size());
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x80) {
            ascii += c;
        }
    }
    return ascii;
}

std::string stringUtils::stringifyByteArray(const unsigned char* bytes, size_t length)
{
    if (bytes == nullptr) {
        return "";
    }
    std::string text;
    for (size_t i = 0; i < length && bytes[i] != 0; ++i) {
        text += static_cast<char>(bytes[i]);
    }
    return trim(text);
}

std::string stringUtils::getMatchingLineFromFile(const std::string& path, const std::string& search)
{
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.find(search) != std::string::npos) {
            return line;
        }
    }
    return "";
}

std::vector<std::string> stringUtils::splitStringstream(const std::string& text, char delimiter)
{
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    std::string piece;
    while (std::getline(stream, piece, delimiter)) {
        pieces.push_back(piece);
    }
    return pieces;
}

std::map<std::string, std::string> stringUtils::convertStringStreamToKeyVal(const std::string& text, char delimiter)
{
    std::map<std::string, std::string> pairs;
    for (const std::string& line : splitStringstream(text, '\n')) {
        const size_t at = line.find(delimiter);
        if (at == std::string::npos) {
            continue;
        }
        const std::string key = trim(line.substr(0, at));
        if (key.empty()) {
            continue;
        }
        pairs[key] = trim(line.substr(at + 1));
    }
    return pairs;
}

std::vector<std::string> stringUtils::execRegexAndExtractAllMatches(const std::string& text, const std::regex& regex)
{
    std::vector<std::string> matches;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), regex); it != std::sregex_iterator(); ++it) {
        matches.push_back(it->str());
    }
    return matches;
}

std::vector<std::string> stringUtils::execRegexAndExtractCaptureGroups(const std::string& text,
                                                                       const std::regex& regex)
{
    std::vector<std::string> groups;
    std::smatch match;
    if (!std::regex_search(text, match, regex)) {
        return groups;
    }
    for (size_t i = 1; i < match.size(); ++i) {
        groups.push_back(match[i].matched ? match[i].str() : "");
    }
    return groups;
}

bool stringUtils::compileRegEx(const std::string& pattern, std::regex& compiled,
                               std::regex_constants::syntax_option_type flags)
{
    try {
        compiled = std::regex(pattern, flags);
        return true;
    } catch (const std::regex_error& error) {
        VEK_LOG_WARNING(TAG, "Regular expression [%s] does not compile: %s", pattern.c_str(), error.what());
        return false;
    }
}

// ---------------------------------------------------------------- timeUtils

long timeUtils::timeScale()
{
    const char* text = std::getenv("VEK_TIME_SCALE");
    if (text == nullptr || *text == '\0') {
        return 1;
    }
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1) {
        return 1;
    }
    return value;
}

std::chrono::milliseconds timeUtils::scaled(std::chrono::milliseconds wait)
{
    if (wait.count() <= 0) {
        return std::chrono::milliseconds(0);
    }
    const long long result = wait.count() / timeScale();
    return std::chrono::milliseconds(result > 0 ? result : 1);
}

std::chrono::milliseconds timeUtils::scaledAtLeast(std::chrono::milliseconds wait, std::chrono::milliseconds floor)
{
    return std::max(scaled(wait), std::min(wait, floor));
}

std::chrono::milliseconds timeUtils::scaledSeconds(long seconds)
{
    return scaled(std::chrono::milliseconds(static_cast<long long>(seconds) * 1000));
}

std::string timeUtils::getUTCTime()
{
    const time_t now = time(nullptr);
    struct tm parts;
    char buffer[64] = {0};
    if (gmtime_r(&now, &parts) == nullptr) {
        return "";
    }
    std::strftime(buffer, sizeof(buffer), "%FT%TZ", &parts);
    return buffer;
}

std::string timeUtils::getTimeAsString(long seconds)
{
    const time_t when = static_cast<time_t>(seconds);
    struct tm parts;
    char buffer[64] = {0};
    if (localtime_r(&when, &parts) == nullptr) {
        return "";
    }
    std::strftime(buffer, sizeof(buffer), "%F %T", &parts);
    return buffer;
}

std::string timeUtils::getTime()
{
    return getTimeAsString(static_cast<long>(time(nullptr)));
}

void timeUtils::computeTimeDiff(timespec& later, timespec& earlier, timespec& result)
{
    if (later.tv_nsec < earlier.tv_nsec) {
        result.tv_sec = later.tv_sec - earlier.tv_sec - 1;
        result.tv_nsec = later.tv_nsec - earlier.tv_nsec + 1000000000;
    } else {
        result.tv_sec = later.tv_sec - earlier.tv_sec;
        result.tv_nsec = later.tv_nsec - earlier.tv_nsec;
    }
}

// ---------------------------------------------------------------- descriptors

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept
{
    if (this != &other) {
        reset(other.release());
    }
    return *this;
}

int UniqueFd::release()
{
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void UniqueFd::reset(int fd)
{
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = fd;
}

} // namespace vekGlobalDef
