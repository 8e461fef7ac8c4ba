#include "FCResourceManager.h"

#include "ISubject.h"
#include "vekConfig.h"
#include "vekEvent.h"
#include "vekFCEventNotifier.h"
#include "vekFCInterface.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeEventWatch.h"
#include "vekPCIeInventoryJson.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"

#include <exception>
#include <stdexcept>
#include <thread>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "FC_RM";
const int kIdlenessChecks = 3;
const long kIdlenessCheckPauseSeconds = 3;

} // namespace

// ---- the collector ----

void vekFCDeviceDataCollector::discoverFCCards(std::vector<std::string>& names)
{
    system_->getFCInterface()->populateFCInstances(names);
    VEK_LOG_DEBUG(TAG, "The number of Fibre Channel cards is [%zu]", names.size());
}

bool vekFCDeviceDataCollector::discoverFCCardsInventory(std::vector<FCDeviceInfo>& out,
                                                        const std::vector<std::string>& names)
{
    vekFCInterface* fc = system_->getFCInterface();
    return walk(out, names, TAG,
                "FC RM shutdown notification received while fetching inventory information for FC cards",
                [this, fc](const std::string& name, FCDeviceInfo& info) {
                    VEK_LOG_DEBUG(TAG, "Fetching FC device inventory details for [%s]", name.c_str());
                    fc->discoverFCProperties(name, info);
                    // The matrix sees the PCI ids, never the status.
                    matrix_.supplementAdditionalFCProperties(info);
                    fc->discoverFCStatusInfo(name, info);
                });
}

// ---- the inventory store ----

vekFCInventoryManager& vekFCInventoryManager::getInstance()
{
    static vekFCInventoryManager instance;
    return instance;
}

vekFCInventoryManager::vekFCInventoryManager()
    : vekPCIeInventoryStore({TAG, "FibreChannelDevices", "FC"},
                            [](const FCDeviceInfo& record) { return record.getDeviceName(); })
{
}

// ---- the manager ----

FCResourceManager& FCResourceManager::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static FCResourceManager* const instance = new FCResourceManager(vekConfig::getInstance());
    return *instance;
}

FCResourceManager::FCResourceManager(const vekConfig& config)
    : inventoryManager_(vekFCInventoryManager::getInstance()),
      lifecycle_(
          TAG, vekResourceIds::nameOf(vekResourceIds::FIBRE_CHANNEL), "FCInventory",
          [] {
              VEK_LOG_DEBUG(TAG, "FCRM requesting cache push");
              vekJsonAggregator::getInstance().sendInventory();
          },
          config)
{
}

void FCResourceManager::init()
{
    VEK_LOG_DEBUG(TAG, "Initializing FCRM");
    if (started_.exchange(true)) {
        return;
    }
    vekPlatformServices* services = vekPlatformServices::getCurrent();
    services_ = services;
    system_ = vekSystemInterfaceFactory::getSystemInterface();
    if (services == nullptr || system_ == nullptr) {
        VEK_LOG_ERROR(TAG, "No OS interface on this host: Fibre Channel adapters are not collected");
        return;
    }
    collector_.reset(new vekFCDeviceDataCollector());
    collector_->setSystemInterface(system_);
    startInventory();
}

void FCResourceManager::startInventory()
{
    lifecycle_.runRefreshLoop(
        [this] {
            VEK_LOG_DEBUG(TAG, "Refreshing FC cache");
            try {
                cacheBuild();
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "FC cache build failed: %s", e.what());
            }
            try {
                initializeAndUpdateEventMonitorThread();
            } catch (vekObservableStatus status) {
                VEK_LOG_ERROR(TAG, "FC event monitoring not started (status %d)", status);
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "FC event monitoring not started: %s", e.what());
            }
        },
        [this] {
            collector_->notifyFCRMStop();
            unInitializeEventMonitorThread();
        });
}

int FCResourceManager::getInventory(std::vector<FCDeviceInfo>& records)
{
    std::vector<std::string> names;
    collector_->discoverFCCards(names);
    adaptersFound_ = static_cast<int>(names.size());
    if (names.empty()) {
        if (!noAdaptersReported) {
            VEK_LOG_INFO(TAG, "discoverFibreChannelDevices() completed, zero FC cards identified");
            noAdaptersReported = true;
        }
        return -1;
    }
    if (!collector_->discoverFCCardsInventory(records, names)) {
        return -1;
    }
    inventoryManager_.saveInventory(records);
    inventoryManager_.getInventory(records);
    return 0;
}

void FCResourceManager::cacheBuild()
{
    VEK_LOG_DEBUG(TAG, "Building FC Cache");
    bool good = false;
    lifecycle_.cacheBuild(
        [this, &good] {
            // While the build runs, the lifecycle hands out the last build.
            vekResourceManagerLifecycle::Inventory previous;
            lifecycle_.getInventory(previous);
            {
                std::lock_guard<std::mutex> lock(recordsMutex_);
                backupInventory_ = inventory_;
                inventory_.clear();
            }
            std::vector<FCDeviceInfo> records;
            if (getInventory(records) != 0) {
                // No adapters, or a walk cut short: the JSON of the last build stays.
                return previous;
            }
            good = true;
            {
                std::lock_guard<std::mutex> lock(recordsMutex_);
                inventory_ = records;
            }
            return createJsonStringUsingJsonCpp(records);
        },
        false);
    if (good) {
        lifecycle_.pushIfPending();
    }
    VEK_LOG_DEBUG(TAG, "Exiting CacheBuild");
}

std::vector<Json::Value> FCResourceManager::createJsonStringUsingJsonCpp(const std::vector<FCDeviceInfo>& records)
{
    return vekPCIeInventoryJson::recordsToJson(TAG, "FC", records,
                                               [](const FCDeviceInfo& record) { return record.getFCDeviceInfoJson(); });
}

IvekFCEventNotifier* FCResourceManager::eventNotifier()
{
    return system_->getFCInterface()->getFCEventNotifierInterface();
}

void FCResourceManager::initializeAndUpdateEventMonitorThread()
{
    IvekFCEventNotifier* notifier = eventNotifier();
    // The statuses of this build first: the poller compares with them from
    // its first pass on.
    notifier->updateFCDevicesStatusMap(collector_->getFCDeviceStatusInfoMap());
    bool haveAdapters = false;
    {
        std::lock_guard<std::mutex> lock(recordsMutex_);
        haveAdapters = !inventory_.empty();
    }
    if (!eventManager_ && haveAdapters) {
        eventManager_.reset(new vekFCEventManager(services_));
        registerEventObserver(notifier);
        eventManagerReady_ = eventManager_.get();
    }
}

void FCResourceManager::registerEventObserver(IvekFCEventNotifier* notifier)
{
    if (notifier == nullptr) {
        return;
    }
    vekPCIeEventWatch::attachObserver(TAG, notifier, eventManager_.get(), VEK_OBSERVABLE_ASPECT_FC);
    vekPCIeEventWatch::noteMonitoringStart(TAG, "FC", notifier->startMonitoring(), monitoringStarted);
}

void FCResourceManager::unInitializeEventMonitorThread()
{
    if (!eventManager_) {
        VEK_LOG_DEBUG(TAG, "Event Manager was not initialized before, so skipping the un-Initialization");
        return;
    }
    unRegisterEventObserver();
}

void FCResourceManager::unRegisterEventObserver()
{
    IvekFCEventNotifier* notifier = eventNotifier();
    vekPCIeEventWatch::detachObserver(TAG, "FC", notifier, eventManager_.get(), monitoringStarted);
}

bool FCResourceManager::getInventoryJsonObject(std::vector<Json::Value>& inventory)
{
    const bool previous = lifecycle_.getInventory(inventory);
    if (previous) {
        VEK_LOG_DEBUG(TAG, "Cache build is in progress. Returning previous copy of inventory.");
    }
    return previous;
}

bool FCResourceManager::isRunning()
{
    for (int retryCount = 0; retryCount < kIdlenessChecks; ++retryCount) {
        const bool building = lifecycle_.isBuildInProgress();
        const size_t size = lifecycle_.inventorySize();
        // A host without FC cards counts as running.
        if ((!building && size != 0) || adaptersFound_ < 1) {
            return true;
        }
        VEK_LOG_WARNING(TAG, "_cacheBuildInProgress = %d,FCInventory.size() =%zu,retryCount = %d", building ? 1 : 0,
                        size, retryCount);
        std::this_thread::sleep_for(timeUtils::scaledSeconds(kIdlenessCheckPauseSeconds));
    }
    return false;
}

bool FCResourceManager::isInventoryReady(int iteration)
{
    VEK_LOG_INFO(TAG, "FC cache status %d", lifecycle_.isReady() ? 1 : 0);
    return lifecycle_.isInventoryReady(iteration);
}

void FCResourceManager::stopResourceManagerJob()
{
    if (collector_) {
        collector_->notifyFCRMStop();
    }
    lifecycle_.stopResourceManagerJob();
}

void FCResourceManager::generateTestEvent(int id, std::string)
{
    vekPlatformServices* services = services_;
    if (services == nullptr) {
        services = vekPlatformServices::getCurrent();
    }
    if (services == nullptr || services->getInbandComInterface() == nullptr) {
        // The test event server tells its client that no event was made.
        VEK_LOG_ERROR(TAG, "Test event [%d] not sent: the manager has not started", id);
        throw std::runtime_error("the FC Resource Manager has not started");
    }
    FCDeviceInfo sample;
    sample.model = "QLE2772 Dual Port 32Gb Fibre Channel to PCIe Adapter";
    sample.partNumber = "QLE2772-SR";
    sample.sparePartNumber = "QLE2772-SR-SP";
    sample.sku = "QLE2772";
    sample.pciAddress = "0000:c3:00.0";
    sample.setBasicProperties("RFD2233K41234", "9.08.02", "3.65", "QLogic Corp", "20:00:f4:c7:aa:1c:35:e0",
                              "21:00:f4:c7:aa:1c:35:e0", "vmhba2", 0, 0, 2);
    sample.description = vekPlatformServices::getCachedPlatform() == 1 ? "PCI 0000:c3:00.0 r001i01s00"
                                                                       : "PCI 0000:c3:00.0 r001u01p0i00";
    try {
        services->getInbandComInterface()->sendEvent(
            vekEvent(id, "FCHBA", true, "NOT AVAILABLE", vekFCEventManager::getVariableData(sample, 0), "VEK-CLI"));
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Event [%d]: Failed to send event for device.", id);
    }
}
