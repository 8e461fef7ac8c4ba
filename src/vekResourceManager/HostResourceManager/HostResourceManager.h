#pragma once

#include "vekCollectionInfo.h"
#include "vekHostOSInfo.h"
#include "vekResourceManager.h"
#include "vekResourceManagerLifecycle.h"

#include <json/json.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class vekConfig;
class vekPlatformServices;

// A service that runs beside the host manager for the life of its thread.
class vekHostService {
public:
    virtual ~vekHostService() = default;
    // True when the service could start.
    virtual bool activate(vekPlatformServices& services) = 0;
    virtual int getServiceId() const = 0;
    virtual void shutdown() = 0;
};

// The host itself (id 1, "HostOSInfo"): what the operating system says about
// the host, rebuilt every refresh interval and kept as one JSON object for
// the aggregator, where it goes under "Oem".
class HostResourceManager : public vekResourceManager {
public:
    // The service's own version, sent with the host's inventory.
    static const char kVekSwVersion[];

    static HostResourceManager& getInstance();

    HostResourceManager(const HostResourceManager&) = delete;
    HostResourceManager& operator=(const HostResourceManager&) = delete;

    void stopResourceManagerJob() override;
    // Nothing to do: the thread starts through init(vekPlatformServices&).
    void init() override {}
    void init(vekPlatformServices& services) override;
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override;
    // True while the manager has neither a build running nor any inventory.
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    // Sends a test event with this id through the communication manager of
    // the platform services.
    void generateTestEvent(int id);

    void signalRMStop();
    bool waitUntilShutdownComplete();
    // Shuts the host services down and marks the manager's shutdown complete.
    void doShutdownActivites();
    // One build of the inventory.
    void cacheBuild();
    // The thread body: builds at once, then every refresh interval until stopped.
    void startInventory();

    vekCollectionInfo populateCollectionInfo();
    Json::Value serializeHostInfo(vekHostOSInfo& hostInfo, vekCollectionInfo& collectionInfo);
    // The record, from the OS operations of the given policy (VMwareOSUtils
    // or a stand-in with the same static operations).
    template <class OSUtils>
    vekHostOSInfo populateHostInfo(OSUtils utils);

protected:
    // A manager of its own, outside the singleton, under this configuration.
    explicit HostResourceManager(const vekConfig& config);
    ~HostResourceManager() = default;

    // Adds a host service, activated by init() and shut down at the end.
    void addHostService(std::shared_ptr<vekHostService> service);

private:
    void logPopulating(bool completed) const;

    const vekConfig& config_;
    std::vector<std::shared_ptr<vekHostService>> hostServices_;
    // Set by the manager's thread, read by the test server's.
    std::atomic<vekPlatformServices*> platformServices_{nullptr};
    std::atomic<bool> started_{false};
    int refreshCount_ = 0;
    vekResourceManagerLifecycle lifecycle_;
};

template <class OSUtils>
vekHostOSInfo HostResourceManager::populateHostInfo(OSUtils utils)
{
    (void)utils;
    logPopulating(false);
    vekHostOSInfo info;
    info.setHostName(OSUtils::readHostName());
    info.setOSName(OSUtils::fetchHostOSName());
    info.setOSVersion(OSUtils::readHostOSVersion());
    info.setOSDescription(OSUtils::readHostOSDescription());
    info.setVekSwVersion(kVekSwVersion);
    info.setOSType(OSUtils::getOSType());

    vekHostIPv4Addresses addresses;
    addresses.setAddresses(OSUtils::getIPAddress());
    info.setIPv4Addresses(addresses);

    const std::pair<double, double> memory = OSUtils::getTotalPhysicalMemory();
    vekHostMemorySummary summary;
    summary.setTotalSystemMemGiB(memory.first);
    summary.setTotalFreeSystemMemGiB(memory.second);
    info.setOSMemorySummary(summary);
    logPopulating(true);
    return info;
}
