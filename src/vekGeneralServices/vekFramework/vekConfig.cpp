#include "vekConfig.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace {

// The configuration exists before the logger does, so its own trouble goes
// straight to syslog.
void configSyslog(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void configSyslog(const char* fmt, ...)
{
    char buffer[4096];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof(buffer), fmt, args);
    va_end(args);
    openlog("vek", 0, LOG_USER);
    syslog(LOG_WARNING, "%s", buffer);
    closelog();
}

// A member of the wrong JSON type counts as missing.
template <typename Check, typename Get, typename T>
T typedMember(const Json::Value& root, const char* key, Check isType, Get get, T fallback)
{
    try {
        if (!root.isObject() || !root.isMember(key)) {
            return fallback;
        }
        const Json::Value& v = root[key];
        return (v.*isType)() ? (v.*get)() : fallback;
    } catch (...) {
        return fallback;
    }
}

bool boolMember(const Json::Value& root, const char* key, bool fallback)
{
    return typedMember(root, key, &Json::Value::isBool, &Json::Value::asBool, fallback);
}

int intMember(const Json::Value& root, const char* key, int fallback)
{
    return typedMember(root, key, &Json::Value::isInt, &Json::Value::asInt, fallback);
}

std::string stringMember(const Json::Value& root, const char* key, const std::string& fallback)
{
    return typedMember(root, key, &Json::Value::isString, &Json::Value::asString, fallback);
}

Json::Value objectMember(const Json::Value& root, const char* key)
{
    try {
        if (root.isObject() && root.isMember(key) && root[key].isObject()) {
            return root[key];
        }
    } catch (...) {
    }
    return Json::Value(Json::objectValue);
}

const char* const kDefaultLocation = "syslog";

// The parser's report spans lines; a problem is told on one.
std::string oneLine(const std::string& text)
{
    std::string line;
    bool blank = false;
    for (const char c : text) {
        if (c == '\n' || c == '\r' || c == '\t' || c == ' ') {
            blank = !line.empty();
            continue;
        }
        if (blank) {
            line += ' ';
            blank = false;
        }
        line += c;
    }
    return line;
}

// The keys the getters read, with the JSON type each must have.
struct KeyType {
    const char* parent; // null at the top level
    const char* key;
    Json::ValueType type;
};

const KeyType kKeyTypes[] = {
    {nullptr, "EnableDebugLog", Json::booleanValue},
    {nullptr, "CliMode", Json::stringValue},
    {nullptr, "CacheRefreshInSeconds", Json::objectValue},
    {nullptr, "PushInventoryFrequencyInMinutes", Json::intValue},
    {nullptr, "EnableResources", Json::arrayValue},
    {nullptr, "LoggingLevel", Json::stringValue},
    {nullptr, "IPMIDBSleepInterval", Json::intValue},
    {nullptr, "CaptureUnhandledExceptionStack", Json::booleanValue},
    {nullptr, "SimulateUnhandledException", Json::intValue},
    {nullptr, "ForwardAllMegaRAIDCriticalOrHigherEvents", Json::booleanValue},
    {nullptr, "ForwardAllSmartRAIDDegradedOrHigherEvents", Json::booleanValue},
    {nullptr, "InventoryQueryIntervalInSeconds", Json::intValue},
    {nullptr, "LogResourceManagerStatistics", Json::booleanValue},
    {nullptr, "MicrochipEventQueueIndex", Json::intValue},
    {nullptr, "HealthMonitorFlags", Json::intValue},
    {nullptr, "HostOsServices", Json::objectValue},
    {"HostOsServices", "EnablePCIeRegistersDataCollection", Json::booleanValue},
    {"HostOsServices", "EnablePCIeLinkStatusMonitoring", Json::booleanValue},
    {"HostOsServices", "TPMMonitoring", Json::booleanValue},
    {"HostOsServices", "SyslogFileLocation", Json::stringValue},
    {nullptr, "DebugLogLocation", Json::stringValue},
    {nullptr, "VEKLogLocation", Json::stringValue},
};

const char* typeName(Json::ValueType type)
{
    switch (type) {
    case Json::nullValue: return "null";
    case Json::intValue:
    case Json::uintValue: return "an integer";
    case Json::realValue: return "a number";
    case Json::stringValue: return "a string";
    case Json::booleanValue: return "true or false";
    case Json::arrayValue: return "an array";
    case Json::objectValue: return "an object";
    }
    return "a value";
}

bool hasType(const Json::Value& value, Json::ValueType type)
{
    return type == Json::intValue ? value.isInt() : value.type() == type;
}

std::string rootedLocation(const std::string& configured)
{
    if (configured.empty()) {
        return kDefaultLocation;
    }
    if (configured[0] == '/') {
        return vekConfig::getEnv() + configured;
    }
    return configured;
}

} // namespace

vekConfig& vekConfig::getInstance()
{
    static vekConfig instance;
    return instance;
}

vekConfig::vekConfig()
{
    configSyslog("VEK_CONFIG_INITIALIZING %d", 10);
    initConfigSettings();
}

std::string vekConfig::getEnv()
{
    const char* root = std::getenv("VEK_ROOT");
    return root ? std::string(root) : std::string();
}

std::string vekConfig::configFilePath()
{
    return getEnv() + "/opt/zolvek" + "/vital/vek.conf";
}

void vekConfig::initConfigSettings()
{
    const std::string path = configFilePath();
    try {
        std::ifstream file(path);
        if (!file.is_open()) {
            problems_.push_back("cannot read " + path + ": " + strerror(errno));
            configSyslog("Config %s Couldnt open", path.c_str());
            throw std::runtime_error("Config Uninitlized : will use the default configurations");
        }
        Json::CharReaderBuilder builder;
        Json::Value parsed;
        std::string errors;
        errno = 0;
        const bool ok = Json::parseFromStream(builder, file, &parsed, &errors);
        if (ok && parsed.isObject() && parsed.size() > 1) {
            root_ = parsed;
            configSyslog("Parse Successful %d", 0);
            file.close();
            checkKeyTypes();
        } else {
            lastError_ = !errors.empty() ? errors : std::string(strerror(errno));
            problems_.push_back(ok ? path + " holds fewer than two keys, so none is used"
                                   : "cannot parse " + path + ": " + oneLine(lastError_));
            configSyslog("Parse Failed %s", lastError_.c_str());
            throw std::runtime_error("Config Uninitlized : will use the default configurations");
        }
    } catch (...) {
        if (lastError_.empty()) {
            lastError_ = "Config Uninitlized : will use the default configurations";
        }
        configSyslog("Config %s Uninitlized : will use the default configurations", path.c_str());
        root_ = Json::Value();
    }
}

bool vekConfig::getDebugLogSettings() const
{
    bool isBool = false;
    bool value = false;
    int type = 0;
    try {
        if (root_.isObject() && root_.isMember("EnableDebugLog")) {
            const Json::Value& v = root_["EnableDebugLog"];
            type = static_cast<int>(v.type());
            isBool = v.isBool();
            value = isBool && v.asBool();
        }
    } catch (...) {
        value = false;
    }
    configSyslog("VEK_DEBUG_LOG_ENABLE %d-%d-%d", type, isBool ? 1 : 0, value ? 1 : 0);
    return value;
}

std::string vekConfig::getTestEventSettings() const
{
    return stringMember(root_, "CliMode", "test");
}

int vekConfig::getrefreshInterval(const std::string& resource) const
{
    try {
        const Json::Value intervals = objectMember(root_, "CacheRefreshInSeconds");
        if (intervals.isMember(resource) && !intervals[resource].empty()) {
            return intervals[resource].asInt();
        }
        if (intervals.isMember("Global") && !intervals["Global"].empty()) {
            return intervals["Global"].asInt();
        }
    } catch (...) {
    }
    return 30;
}

int vekConfig::getInventoryPushIntervalSettings() const
{
    return intMember(root_, "PushInventoryFrequencyInMinutes", 1440);
}

bool vekConfig::isResourceEnabled(int id) const
{
    switch (id) {
    case 0: return checkForResourceString("FibreChannelDevices");
    case 1: return checkForResourceString("HostOSInfo");
    case 2: return checkForResourceString("StorageControllers") ||
                   checkForResourceString("StorageControllers (SASRM)");
    case 3: return checkForResourceString("EthernetDevices");
    case 4: return checkForResourceString("NVMeControllers");
    case 5: return checkForResourceString("GPUDevices");
    case 8: return checkForResourceString("StorageControllers") ||
                   checkForResourceString("StorageControllers (RSRM)");
    case 99: return checkForResourceString("Utilization");
    default: return false;
    }
}

bool vekConfig::isResourceEnabled(const std::string& resource) const
{
    return checkForResourceString(resource);
}

bool vekConfig::checkForResourceString(const std::string& resource) const
{
    try {
        if (!root_.isObject() || !root_.isMember("EnableResources") || !root_["EnableResources"].isArray()) {
            return false;
        }
        for (const Json::Value& entry : root_["EnableResources"]) {
            if (!entry.isString()) {
                continue;
            }
            const std::string word = entry.asString();
            if (word == resource || word == "All") {
                return true;
            }
        }
    } catch (...) {
    }
    return false;
}

std::string vekConfig::getVEKLoggingLevel() const
{
    return stringMember(root_, "LoggingLevel", "Warning");
}

int vekConfig::getDoorBellSleepInterval() const
{
    return intMember(root_, "IPMIDBSleepInterval", 10);
}

bool vekConfig::isUnhandledExceptionStackCaptureEnabled() const
{
    return boolMember(root_, "CaptureUnhandledExceptionStack", false);
}

long vekConfig::getUnhandledExceptionToSimulate() const
{
    return intMember(root_, "SimulateUnhandledException", 0);
}

bool vekConfig::isForwardAllMegaRAIDCriticalOrHigherEventsEnabled() const
{
    return boolMember(root_, "ForwardAllMegaRAIDCriticalOrHigherEvents", false);
}

bool vekConfig::isForwardAllSmartRAIDDegradedOrHigherEventsEnabled() const
{
    return boolMember(root_, "ForwardAllSmartRAIDDegradedOrHigherEvents", false);
}

int vekConfig::getInventoryQueryInterval() const
{
    return intMember(root_, "InventoryQueryIntervalInSeconds", 10);
}

int vekConfig::getHostCommandTimeout() const
{
    const int kDefault = 300;
    const int seconds = intMember(root_, "HostCommandTimeoutInSeconds", kDefault);
    return seconds > 0 ? seconds : kDefault;
}

bool vekConfig::isRMStatisticsLoggingEnabled() const
{
    return boolMember(root_, "LogResourceManagerStatistics", false);
}

int vekConfig::getMicrochipEventQueueIndex() const
{
    return intMember(root_, "MicrochipEventQueueIndex", 0);
}

int vekConfig::getHealthMonitorFlags() const
{
    return intMember(root_, "HealthMonitorFlags", 0);
}

bool vekConfig::isPCIeRegistersFeatureEnabled() const
{
    return boolMember(objectMember(root_, "HostOsServices"), "EnablePCIeRegistersDataCollection", false);
}

bool vekConfig::isPCIeLinkStatusMonitorFeatureEnabled() const
{
    return boolMember(objectMember(root_, "HostOsServices"), "EnablePCIeLinkStatusMonitoring", false);
}

bool vekConfig::isTPMStatusMonitorFeatureEnabled() const
{
    return boolMember(objectMember(root_, "HostOsServices"), "TPMMonitoring", true);
}

std::string vekConfig::getSyslogFileLocation() const
{
    return stringMember(objectMember(root_, "HostOsServices"), "SyslogFileLocation", kDefaultLocation);
}

Json::Value vekConfig::getTelemetrySettings() const
{
    try {
        if (root_.isObject() && root_.isMember("Telemetry")) {
            return root_["Telemetry"];
        }
    } catch (...) {
    }
    return Json::Value();
}

// A configured location is a host path under the path root; the words
// "syslog" and "terminal" name channels, not files, and stay as they are.
std::string vekConfig::getVEKDebugLogFileLocation() const
{
    return rootedLocation(stringMember(root_, "DebugLogLocation", ""));
}

std::string vekConfig::getVEKLogFileLocation() const
{
    return rootedLocation(stringMember(root_, "VEKLogLocation", ""));
}

bool vekConfig::getSendTestEventSettings(const std::string&) const
{
    return false;
}

void vekConfig::checkKeyTypes()
{
    const std::string path = configFilePath();
    // Read through a const view: a look-up must not add the key it misses.
    const Json::Value& root = root_;
    for (const KeyType& expected : kKeyTypes) {
        const Json::Value& parent = expected.parent ? root[expected.parent] : root;
        if (!parent.isObject() || !parent.isMember(expected.key)) {
            continue;
        }
        const Json::Value& value = parent[expected.key];
        const std::string name = expected.parent ? std::string(expected.parent) + "." + expected.key : expected.key;
        if (!hasType(value, expected.type)) {
            problems_.push_back(path + ": \"" + name + "\" must be " + typeName(expected.type) + ", not " +
                                typeName(value.type()) + "; its default is used");
        }
    }
    const Json::Value& resources = root["EnableResources"];
    if (resources.isArray()) {
        for (const Json::Value& entry : resources) {
            if (!entry.isString()) {
                problems_.push_back(path + ": \"EnableResources\" must hold strings only; " +
                                    oneLine(entry.toStyledString()) + " is ignored");
            }
        }
    }
    const Json::Value& intervals = root["CacheRefreshInSeconds"];
    if (intervals.isObject()) {
        for (const std::string& member : intervals.getMemberNames()) {
            if (!intervals[member].isInt() && !intervals[member].isNull()) {
                problems_.push_back(path + ": \"CacheRefreshInSeconds." + member + "\" must be an integer, not " +
                                    typeName(intervals[member].type()));
            }
        }
    }
}

std::vector<std::string> vekConfig::problems() const
{
    return problems_;
}

std::pair<std::string, bool> vekConfig::isDefaultSettingsApplied() const
{
    if (root_.isNull()) {
        return {lastError_, true};
    }
    return {"no-error", false};
}
