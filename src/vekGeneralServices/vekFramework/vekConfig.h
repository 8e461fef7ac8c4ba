#pragma once

#include <json/json.h>

#include <string>
#include <utility>
#include <vector>

// The service's one configuration file, /opt/zolvek/vital/vek.conf, read once.
// Every getter has a default and never throws. The constructor is the first
// thing in the process, before the logger, so it reports its trouble to syslog.
class vekConfig {
public:
    static vekConfig& getInstance();

    // Reads the file under the current path root. Public so that a test can
    // read a configuration of its own beside the process-wide one.
    vekConfig();

    vekConfig(const vekConfig&) = delete;
    vekConfig& operator=(const vekConfig&) = delete;

    // Path root of every host path: $VEK_ROOT, empty in production.
    static std::string getEnv();

    bool getDebugLogSettings() const;
    std::string getTestEventSettings() const;
    int getrefreshInterval(const std::string& resource) const;
    int getInventoryPushIntervalSettings() const;
    bool isResourceEnabled(int id) const;
    bool isResourceEnabled(const std::string& resource) const;
    bool checkForResourceString(const std::string& resource) const;
    std::string getVEKLoggingLevel() const;
    int getDoorBellSleepInterval() const;
    bool isUnhandledExceptionStackCaptureEnabled() const;
    long getUnhandledExceptionToSimulate() const;
    bool isForwardAllMegaRAIDCriticalOrHigherEventsEnabled() const;
    bool isForwardAllSmartRAIDDegradedOrHigherEventsEnabled() const;
    int getInventoryQueryInterval() const;
    // "HostCommandTimeoutInSeconds": how long a host command may run before
    // it is killed; 300 when absent or not a positive whole number.
    int getHostCommandTimeout() const;
    bool isRMStatisticsLoggingEnabled() const;
    int getMicrochipEventQueueIndex() const;
    int getHealthMonitorFlags() const;
    bool isPCIeRegistersFeatureEnabled() const;
    bool isPCIeLinkStatusMonitorFeatureEnabled() const;
    bool isTPMStatusMonitorFeatureEnabled() const;
    std::string getSyslogFileLocation() const;
    Json::Value getTelemetrySettings() const;
    std::string getVEKDebugLogFileLocation() const;
    std::string getVEKLogFileLocation() const;
    bool getSendTestEventSettings(const std::string& event) const;

    std::pair<std::string, bool> isDefaultSettingsApplied() const;

    // What is wrong with the file, one line each: unreadable, unparsable, or
    // a known key of the wrong type (which then takes its default). Empty
    // when the file is sound. The service executable repeats these on its
    // standard error, since syslog may not exist where it runs.
    std::vector<std::string> problems() const;

    // Where the file is read from: getEnv() + "/opt/zolvek" + "/vital/vek.conf".
    static std::string configFilePath();

private:
    void initConfigSettings();

    void checkKeyTypes();

    Json::Value root_;
    std::string lastError_;
    std::vector<std::string> problems_;
};
