#pragma once

#include "NICDeviceInfo.h"
#include "vekIOMatrixInterface.h"
#include "vekPCIeDeviceCollector.h"
#include "vekPCIeInventoryStore.h"
#include "vekNICEventManager.h"
#include "vekResourceManager.h"
#include "vekResourceManagerLifecycle.h"
#include "vekResourceStatus.h"

#include <json/json.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class vekConfig;
class vekOSInterface;
class vekPlatformServices;
class vekSmbiosInterface;

// Walks the host's Ethernet ports and reads each one whole.
class IvekNICDeviceDataCollector {
public:
    virtual ~IvekNICDeviceDataCollector() = default;
    virtual void discoverEthernetCards(std::vector<std::string>& names) = 0;
    // True when every port was read; false when a stop cut the walk short.
    virtual bool discoverEthernetCardsInventory(std::vector<NICDeviceInfo>& out,
                                                const std::vector<std::string>& names) = 0;
};

class vekNICDeviceDataCollector : public IvekNICDeviceDataCollector, public vekPCIeDeviceCollector<NICDeviceInfo> {
public:
    void setSystemInterface(vekOSInterface* system) { system_ = system; }
    void discoverEthernetCards(std::vector<std::string>& names) override;
    bool discoverEthernetCardsInventory(std::vector<NICDeviceInfo>& out,
                                        const std::vector<std::string>& names) override;
    // A walk in progress ends after the port in hand.
    void notifyNICRMStop() { stopWalk(); }
    // The status of each port at the last walk.
    std::map<std::string, vekDeviceStatus> getNICDeviceStatusInfoMap() { return statusesOfLastWalk(); }

private:
    vekOSInterface* system_ = nullptr;
    vekNICIOMatrixInterface matrix_;
};

// The records of the last build, where the event path writes a port's new
// status between two builds.
class vekNICInventoryManager : public vekPCIeInventoryStore<NICDeviceInfo> {
public:
    static vekNICInventoryManager& getInstance();

    void queryNICInstanceInventoryInfo(const std::string& name, NICDeviceInfo& info) { queryInstance(name, info); }

private:
    vekNICInventoryManager();
};

// The Ethernet adapters (id 3, "EthernetDevices"): one record per port,
// rebuilt every refresh interval, and the watch of the ports' links between
// two builds.
class NICResourceManager : public vekResourceManager {
public:
    static NICResourceManager& getInstance();

    NICResourceManager(const NICResourceManager&) = delete;
    NICResourceManager& operator=(const NICResourceManager&) = delete;

    void stopResourceManagerJob() override;
    void init() override {}
    void init(vekPlatformServices& services) override;
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override;
    // True when the last build is done, holds adapters and their links are
    // watched.
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    void generateTestEvent(int id, std::string text);

    // The thread body: builds at once, then every refresh interval.
    void startInventory();
    void cacheBuild();
    // The event manager, once the first build with adapters made it.
    vekNICEventManager* getEventManager() { return eventManagerReady_.load(); }

protected:
    explicit NICResourceManager(const vekConfig& config);
    ~NICResourceManager() = default;

private:
    // 0 when every port was read, -1 otherwise.
    int getInventory(std::vector<NICDeviceInfo>& records);
    std::vector<Json::Value> createJsonStringUsingJsonCpp(const std::vector<NICDeviceInfo>& records);
    void initializeAndUpdateEventMonitorThread();
    void unInitializeEventMonitorThread();
    void registerEventObserver(IvekNICEventNotifier* notifier, const std::vector<std::string>& names);
    void unRegisterEventObserver();
    IvekNICEventNotifier* eventNotifier();

    std::unique_ptr<vekNICDeviceDataCollector> collector_;
    vekNICInventoryManager& inventoryManager_;
    std::unique_ptr<vekNICEventManager> eventManager_;
    // The same, for other threads: set once the manager is attached.
    std::atomic<vekNICEventManager*> eventManagerReady_{nullptr};
    std::mutex recordsMutex_;
    std::vector<NICDeviceInfo> inventory_;
    std::vector<NICDeviceInfo> backupInventory_;
    std::atomic<bool> monitoringStarted{false};
    std::atomic<bool> started_{false};
    std::atomic<vekPlatformServices*> services_{nullptr};
    vekSmbiosInterface* smbios_ = nullptr;
    vekOSInterface* system_ = nullptr;
    vekResourceManagerLifecycle lifecycle_;
};
