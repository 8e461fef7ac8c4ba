#pragma once

#include "vekDiskInfo.h"
#include "vekLogicalDiskInfo.h"
#include "vekResourceManager.h"
#include "vekStorageControllerInfo.h"
#include "vekStorageEnclosureInfo.h"
#include "vekSubjectShutdownNotifier.h"

#include <json/json.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

class vekInventoryBase;
class vekOSInterface;
class vekPlatformServices;

// The storage manager (id 2, "StorageControllers"): the controllers of every
// registered factory, their disks, volumes and enclosures, rebuilt on the
// refresh interval or on request, polled in between, and the one way of all
// storage code to raise an event or ask for a refresh.
class SASResourceManager : public vekResourceManager {
public:
    // Typed parts of the inventory, for getInventoryJsonObject2.
    enum InventoryType { CONTROLLERS = 1, DRIVES = 2, VOLUMES = 3, ENCLOSURES = 4 };

    static SASResourceManager& getInstance();

    SASResourceManager(const SASResourceManager&) = delete;
    SASResourceManager& operator=(const SASResourceManager&) = delete;

    void stopResourceManagerJob() override;
    void init() override;
    void init(vekPlatformServices& services) override;
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override;
    bool getInventoryJsonObject2(int type, std::vector<Json::Value>& inventory) override;
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    // Asks for a build at once.
    static void invalidateInventoryCache();
    // The next build that ends pushes the whole inventory.
    static void sendInventorytToRMCOnCacheBuild();
    // True when some factory serves that model itself.
    static bool isControllerModelSupported(uint32_t chipsetID, uint32_t boardID);

    // The RMC's number of an internal event kind on this platform; -1 (with a
    // log line) when the platform has none.
    static int resolveEventNumber(int kind);
    static void generateEvent(int id, std::string location, bool asserted, const vekInventoryBase& info);
    static void generateEvent(int id, bool asserted, const vekInventoryBase& info);
    // An event of a storage number made from sample records, for the test
    // event server; false for a number that is no storage event.
    bool generateTestEvent(int id, std::string location, bool asserted);

    // The thread body.
    void startInventory();
    void cacheBuild();
    void pollDevices();

protected:
    SASResourceManager();
    ~SASResourceManager() = default;

private:
    static vekPlatformServices* services();
    void backupInventory();
    void fetchPrevInventoryOfType(int type, std::vector<Json::Value>& inventory);
    void getInventory();
    void collateAndFinalizeStorageEnclosures();
    // The record of the collated list that stands for the same backplane:
    // same serial number, else same controller, else, for a chassis-internal
    // backplane, same part number; null when none.
    static vekStorageEnclosureInfo* findMatchingStorageEnclosure(std::vector<vekStorageEnclosureInfo>& collated,
                                                                 const vekStorageEnclosureInfo& enclosure);
    void createJsonStringUsingJsonCpp();
    void processResourceManagerStop();

    std::atomic<bool> inventoryReady{false};
    std::atomic<bool> sendInventoryOnFirstBuild{false};
    std::vector<vekStorageControllerInfo> controllers_;
    std::vector<vekDiskInfo> disks_;
    std::vector<vekLogicalDiskInfo> logicalDisks_;
    std::vector<vekStorageEnclosureInfo> enclosures_;
    std::vector<Json::Value> controllerJson_, diskJson_, logicalDiskJson_, enclosureJson_;
    std::vector<Json::Value> prevControllerJson_, prevDiskJson_, prevLogicalDiskJson_, prevEnclosureJson_;
    vekSubjectShutdownNotifier shutdownNotifier_;
    vekOSInterface* osInterface_ = nullptr;

    static std::atomic<vekPlatformServices*> services_;
    static bool refreshCache;
    static bool sendInventoryToRMC;
    static bool stopSAS;
    static bool condSignal;
    static std::atomic<bool> inited;
    // In seconds of the service's clock (scaled by VEK_TIME_SCALE).
    static int64_t lastPollTime;
    static int64_t lastRefreshTime;
    static std::atomic<bool> _cacheBuildInProgress;
    static pthread_mutex_t rm_cmutex;
    static pthread_cond_t rm_cond;
    static pthread_mutex_t rmstop_cmutex;
    static pthread_cond_t rmstop_cond;
    static pthread_mutex_t cache_lock;
    static pthread_mutex_t prevInventoryLock;
};
