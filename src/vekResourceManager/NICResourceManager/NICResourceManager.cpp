#include "NICResourceManager.h"

#include "ISubject.h"
#include "vekConfig.h"
#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekIOMatrixInterface.h"
#include "vekInBandComManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekNICInterface.h"
#include "vekOSInterface.h"
#include "vekPCIeEventWatch.h"
#include "vekPCIeInventoryJson.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"

#include <exception>
#include <thread>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "NIC_RM";
const int kIdlenessChecks = 3;
const long kIdlenessCheckPauseSeconds = 5;

} // namespace

// ---- the collector ----

void vekNICDeviceDataCollector::discoverEthernetCards(std::vector<std::string>& names)
{
    system_->getNICInterface()->populateNICInstances(names);
    VEK_LOG_DEBUG(TAG, "The number of Ethernet cards is %zu", names.size());
}

bool vekNICDeviceDataCollector::discoverEthernetCardsInventory(std::vector<NICDeviceInfo>& out,
                                                               const std::vector<std::string>& names)
{
    vekNICInterface* nic = system_->getNICInterface();
    return walk(out, names, TAG,
                "NIC RM shutdown notification received while fetching inventory information for NIC cards",
                [this, nic](const std::string& name, NICDeviceInfo& info) {
                    VEK_LOG_DEBUG(TAG, "Fetching NIC device inventory details for %s", name.c_str());
                    nic->discoverNICProperties(name, info);
                    // The matrix sees the PCI ids, never the status.
                    matrix_.supplementAdditionalNICProperties(info);
                    nic->discoverNICStatusInfo(name, info);
                });
}

// ---- the inventory store ----

vekNICInventoryManager& vekNICInventoryManager::getInstance()
{
    static vekNICInventoryManager instance;
    return instance;
}

vekNICInventoryManager::vekNICInventoryManager()
    : vekPCIeInventoryStore({TAG, "EthernetDevices", "NIC"},
                            [](const NICDeviceInfo& record) { return record.getInterfaceName(); })
{
}

// ---- the manager ----

NICResourceManager& NICResourceManager::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static NICResourceManager* const instance = new NICResourceManager(vekConfig::getInstance());
    return *instance;
}

NICResourceManager::NICResourceManager(const vekConfig& config)
    : collector_(new vekNICDeviceDataCollector()),
      inventoryManager_(vekNICInventoryManager::getInstance()),
      lifecycle_(
          TAG, vekResourceIds::nameOf(vekResourceIds::ETHERNET), "NICInventory",
          [] {
              VEK_LOG_DEBUG(TAG, "NICRM requesting cache push");
              vekJsonAggregator::getInstance().sendInventory();
          },
          config)
{
}

void NICResourceManager::init(vekPlatformServices& services)
{
    services_ = &services;
    smbios_ = services.getvekSmbiosInterface();
    system_ = vekSystemInterfaceFactory::getSystemInterface();
    collector_->setSystemInterface(system_);
    VEK_LOG_DEBUG(TAG, "Initializing NICRM");
    if (system_ == nullptr) {
        VEK_LOG_ERROR(TAG, "No OS interface on this host: Ethernet adapters are not collected");
        return;
    }
    if (lifecycle_.inventorySize() == 0 && !started_.exchange(true)) {
        startInventory();
    }
}

void NICResourceManager::startInventory()
{
    lifecycle_.runRefreshLoop(
        [this] {
            VEK_LOG_DEBUG(TAG, "Refreshing Ethernet cache");
            try {
                cacheBuild();
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "Ethernet cache build failed: %s", e.what());
            }
            try {
                initializeAndUpdateEventMonitorThread();
            } catch (vekObservableStatus status) {
                VEK_LOG_ERROR(TAG, "Ethernet event monitoring not started (status %d)", status);
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "Ethernet event monitoring not started: %s", e.what());
            }
        },
        [this] {
            collector_->notifyNICRMStop();
            unInitializeEventMonitorThread();
        });
}

int NICResourceManager::getInventory(std::vector<NICDeviceInfo>& records)
{
    std::vector<std::string> names;
    collector_->discoverEthernetCards(names);
    if (!collector_->discoverEthernetCardsInventory(records, names)) {
        return -1;
    }
    inventoryManager_.saveInventory(records);
    inventoryManager_.getInventory(records);
    return 0;
}

void NICResourceManager::cacheBuild()
{
    VEK_LOG_DEBUG(TAG, "Building NIC Cache");
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
            std::vector<NICDeviceInfo> records;
            if (getInventory(records) != 0) {
                // A walk cut short keeps the JSON of the last good build.
                return previous;
            }
            good = true;
            {
                std::lock_guard<std::mutex> lock(recordsMutex_);
                inventory_ = records;
            }
            return records.empty() ? previous : createJsonStringUsingJsonCpp(records);
        },
        false);
    if (good) {
        lifecycle_.pushIfPending();
    }
    VEK_LOG_DEBUG(TAG, "Exiting CacheBuild");
}

std::vector<Json::Value> NICResourceManager::createJsonStringUsingJsonCpp(const std::vector<NICDeviceInfo>& records)
{
    return vekPCIeInventoryJson::recordsToJson(
        TAG, "Ethernet", records, [](const NICDeviceInfo& record) { return record.getNICDeviceInfoJson(); });
}

IvekNICEventNotifier* NICResourceManager::eventNotifier()
{
    return system_->getNICInterface()->getNICEventNotifierInterface();
}

void NICResourceManager::initializeAndUpdateEventMonitorThread()
{
    IvekNICEventNotifier* notifier = eventNotifier();
    bool haveAdapters = false;
    {
        std::lock_guard<std::mutex> lock(recordsMutex_);
        haveAdapters = !inventory_.empty();
    }
    if (!eventManager_ && haveAdapters) {
        std::vector<std::string> names;
        collector_->discoverEthernetCards(names);
        eventManager_.reset(new vekNICEventManager(services_, system_));
        registerEventObserver(notifier, names);
        eventManager_->initNICDevicesPortContextMap(names);
        eventManagerReady_ = eventManager_.get();
    }
    notifier->updateNICDevicesStatusMap(collector_->getNICDeviceStatusInfoMap());
}

void NICResourceManager::registerEventObserver(IvekNICEventNotifier* notifier, const std::vector<std::string>& names)
{
    if (notifier == nullptr) {
        return;
    }
    vekPCIeEventWatch::attachObserver(TAG, notifier, eventManager_.get(), VEK_OBSERVABLE_ASPECT_NIC);
    vekPCIeEventWatch::noteMonitoringStart(TAG, "NIC", notifier->startMonitoring(names), monitoringStarted);
}

void NICResourceManager::unInitializeEventMonitorThread()
{
    if (!eventManager_) {
        VEK_LOG_DEBUG(TAG, "Event Manager was not initialized before, so skipping the un-Initialization");
        return;
    }
    unRegisterEventObserver();
}

void NICResourceManager::unRegisterEventObserver()
{
    IvekNICEventNotifier* notifier = eventNotifier();
    vekPCIeEventWatch::detachObserver(TAG, "NIC", notifier, eventManager_.get(), monitoringStarted);
}

bool NICResourceManager::getInventoryJsonObject(std::vector<Json::Value>& inventory)
{
    const bool previous = lifecycle_.getInventory(inventory);
    if (previous) {
        VEK_LOG_DEBUG(TAG, "Cache build is in progress. Returning previous copy of inventory.");
    }
    return previous;
}

bool NICResourceManager::isRunning()
{
    for (int retryCount = 0; retryCount < kIdlenessChecks; ++retryCount) {
        const bool building = lifecycle_.isBuildInProgress();
        const size_t size = lifecycle_.inventorySize();
        if (!building && size != 0 && eventManagerReady_.load() != nullptr && monitoringStarted) {
            return true;
        }
        VEK_LOG_WARNING(TAG, "_cacheBuildInProgress = %d,NICInventory.size() =%zu, retryCount = %d", building ? 1 : 0,
                        size, retryCount);
        std::this_thread::sleep_for(timeUtils::scaledSeconds(kIdlenessCheckPauseSeconds));
    }
    return false;
}

bool NICResourceManager::isInventoryReady(int iteration)
{
    VEK_LOG_INFO(TAG, "NIC resource status %d", lifecycle_.isReady() ? 1 : 0);
    return lifecycle_.isInventoryReady(iteration);
}

void NICResourceManager::stopResourceManagerJob()
{
    // A walk in progress ends after the port in hand.
    collector_->notifyNICRMStop();
    lifecycle_.stopResourceManagerJob();
}

void NICResourceManager::generateTestEvent(int id, std::string)
{
    vekPlatformServices* services = services_;
    if (services == nullptr || services->getInbandComInterface() == nullptr) {
        VEK_LOG_ERROR(TAG, "Test event [%d] not sent: the manager has not started", id);
        return;
    }
    NICDeviceInfo sample;
    sample.model = "Ethernet 10G 2P X710 Adapter";
    sample.partNumber = "X710-DA2";
    sample.sparePartNumber = "X710-DA2-SP";
    sample.sku = "X710DA2";
    sample.pciAddress = "0000:c3:00.0";
    sample.setBasicProperties("", "3.2d 0x80000b5c 0.0.0", "Intel Corporation", "08:00:69:17:A1:64",
                              "/sys/class/net/eth0", "eth0", 10000);
    sample.description = vekPlatformServices::getCachedPlatform() == 1 ? "PCI 0000:c3:00.0 r001i01s00"
                                                                       : "PCI 0000:c3:00.0 r001u01p0i00";
    Json::Value data(Json::objectValue);
    data["Data"] = sample.getNICDeviceInfoJson();
    data["Type"] = "EthernetDevice";
    data["EventInfo"] = "Injected Event";
    try {
        services->getInbandComInterface()->sendEvent(
            vekEvent(id, "NICEVENT", true, timeUtils::getUTCTime(), data, "VEK-CLI"));
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Event [%d]: Failed to send event for device.", id);
    }
}
