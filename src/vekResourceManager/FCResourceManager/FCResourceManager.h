#pragma once

#include "FCDeviceInfo.h"
#include "vekFCEventManager.h"
#include "vekIOMatrixInterface.h"
#include "vekPCIeDeviceCollector.h"
#include "vekPCIeInventoryStore.h"
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

class IvekFCEventNotifier;
class vekConfig;
class vekOSInterface;
class vekPlatformServices;

// Walks the host's Fibre Channel adapters and reads each one whole.
class IvekFCDeviceDataCollector {
public:
    virtual ~IvekFCDeviceDataCollector() = default;
    virtual void discoverFCCards(std::vector<std::string>& names) = 0;
    // True when every adapter was read; false when a stop cut the walk short.
    virtual bool discoverFCCardsInventory(std::vector<FCDeviceInfo>& out, const std::vector<std::string>& names) = 0;
};

class vekFCDeviceDataCollector : public IvekFCDeviceDataCollector, public vekPCIeDeviceCollector<FCDeviceInfo> {
public:
    void setSystemInterface(vekOSInterface* system) { system_ = system; }
    void discoverFCCards(std::vector<std::string>& names) override;
    bool discoverFCCardsInventory(std::vector<FCDeviceInfo>& out, const std::vector<std::string>& names) override;
    // A walk in progress ends after the adapter in hand.
    void notifyFCRMStop() { stopWalk(); }
    // The status of each adapter at the last walk.
    std::map<std::string, vekDeviceStatus> getFCDeviceStatusInfoMap() { return statusesOfLastWalk(); }

private:
    vekOSInterface* system_ = nullptr;
    vekFCIOMatrixInterface matrix_;
};

// The records of the last build, where the event path writes an adapter's new
// status between two builds.
class vekFCInventoryManager : public vekPCIeInventoryStore<FCDeviceInfo> {
public:
    static vekFCInventoryManager& getInstance();

    void queryFCInstanceInventoryInfo(const std::string& name, FCDeviceInfo& info) { queryInstance(name, info); }

private:
    vekFCInventoryManager();
};

// The Fibre Channel adapters (id 0, "FibreChannelDevices"): one record per
// adapter the HBA library and the OS both know, rebuilt every refresh
// interval, and the watch of their first ports between two builds.
class FCResourceManager : public vekResourceManager {
public:
    static FCResourceManager& getInstance();

    FCResourceManager(const FCResourceManager&) = delete;
    FCResourceManager& operator=(const FCResourceManager&) = delete;

    void stopResourceManagerJob() override;
    // The thread body: takes the process's platform services and builds at
    // once, then every refresh interval; a second call does nothing.
    void init() override;
    // The base's: it runs init().
    using vekResourceManager::init;
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override;
    // True when the last build is done and holds adapters, or when the last
    // discovery found none.
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    // Throws std::runtime_error when the manager has no way to the RMC yet.
    void generateTestEvent(int id, std::string text);

    void startInventory();
    void cacheBuild();
    // The event manager, once a build with adapters made it.
    vekFCEventManager* getEventManager() { return eventManagerReady_.load(); }

protected:
    explicit FCResourceManager(const vekConfig& config);
    ~FCResourceManager() = default;

private:
    // 0 when every adapter was read, -1 otherwise (also with none found).
    int getInventory(std::vector<FCDeviceInfo>& records);
    std::vector<Json::Value> createJsonStringUsingJsonCpp(const std::vector<FCDeviceInfo>& records);
    void initializeAndUpdateEventMonitorThread();
    void unInitializeEventMonitorThread();
    void registerEventObserver(IvekFCEventNotifier* notifier);
    void unRegisterEventObserver();
    IvekFCEventNotifier* eventNotifier();

    std::unique_ptr<vekFCDeviceDataCollector> collector_;
    vekFCInventoryManager& inventoryManager_;
    std::unique_ptr<vekFCEventManager> eventManager_;
    std::atomic<vekFCEventManager*> eventManagerReady_{nullptr};
    std::mutex recordsMutex_;
    std::vector<FCDeviceInfo> inventory_;
    std::vector<FCDeviceInfo> backupInventory_;
    std::atomic<bool> monitoringStarted{false};
    std::atomic<bool> started_{false};
    // "Zero FC cards" is told once over all refreshes.
    bool noAdaptersReported = false;
    std::atomic<int> adaptersFound_{0};
    std::atomic<vekPlatformServices*> services_{nullptr};
    vekOSInterface* system_ = nullptr;
    vekResourceManagerLifecycle lifecycle_;
};
