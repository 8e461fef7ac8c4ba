#include "HostResourceManager.h"

#include "vekConfig.h"
#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"

#include <exception>
#include <stdexcept>
#include <utility>

using vekGlobalDef::timeUtils;
using vekGlobalDef::VMwareOSUtils;

namespace {
const char TAG[] = "HOST_RM";
} // namespace

const char HostResourceManager::kVekSwVersion[] = "4.4.6.1";

HostResourceManager& HostResourceManager::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static HostResourceManager* const instance = new HostResourceManager(vekConfig::getInstance());
    return *instance;
}

HostResourceManager::HostResourceManager(const vekConfig& config)
    : config_(config),
      lifecycle_(
          TAG, vekResourceIds::nameOf(vekResourceIds::HOST), "HostInventory",
          [] {
              VEK_LOG_DEBUG(TAG, "HOST RM Inventory");
              vekJsonAggregator::getInstance().sendInventory();
          },
          config)
{
}

void HostResourceManager::addHostService(std::shared_ptr<vekHostService> service)
{
    hostServices_.push_back(std::move(service));
}

void HostResourceManager::init(vekPlatformServices& services)
{
    VEK_LOG_DEBUG(TAG, "Entry init()");
    platformServices_ = &services;
    if (lifecycle_.isBuildInProgress() || started_.exchange(true)) {
        VEK_LOG_DEBUG(TAG, "VEK thread for host already active. Cannot spawn another one.");
        return;
    }
    for (const auto& service : hostServices_) {
        bool activated = false;
        try {
            activated = service->activate(services);
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Host Service [%d] failed to activate: %s", service->getServiceId(), e.what());
        }
        VEK_LOG_DEBUG(TAG, "Host Service [%d] Activation Status= [%d]", service->getServiceId(), activated ? 1 : 0);
    }
    startInventory();
}

void HostResourceManager::startInventory()
{
    lifecycle_.runRefreshLoop(
        [this] {
            VEK_LOG_DEBUG(TAG, "Refresh Host RM data [%d]", ++refreshCount_);
            try {
                cacheBuild();
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "Host cache build failed: %s", e.what());
            }
            // A push the aggregator left to this manager goes out now.
            lifecycle_.pushIfPending();
        },
        [this] {
            VEK_LOG_DEBUG(TAG, "HOST RM stopped !!!");
            doShutdownActivites();
        });
}

void HostResourceManager::cacheBuild()
{
    VEK_LOG_DEBUG(TAG, "Starting Host resource manager cache build");
    lifecycle_.cacheBuild(
        [this] {
            vekHostOSInfo hostInfo = populateHostInfo(VMwareOSUtils());
            vekCollectionInfo collectionInfo = populateCollectionInfo();
            return vekResourceManagerLifecycle::Inventory{serializeHostInfo(hostInfo, collectionInfo)};
        },
        false);
    VEK_LOG_DEBUG(TAG, "Exiting CacheBuild");
}

void HostResourceManager::logPopulating(bool completed) const
{
    if (completed) {
        VEK_LOG_DEBUG(TAG, " Populating host information : Completed.");
    } else {
        VEK_LOG_DEBUG(TAG, " Populating host information.");
    }
}

vekCollectionInfo HostResourceManager::populateCollectionInfo()
{
    vekCollectionInfo info;
    info.setCollectionType("RemoteSupport");
    info.setCollectionFrequencyMin(config_.getInventoryPushIntervalSettings());
    info.setLastCollection(timeUtils::getUTCTime());
    return info;
}

Json::Value HostResourceManager::serializeHostInfo(vekHostOSInfo& hostInfo, vekCollectionInfo& collectionInfo)
{
    Json::Value collection(Json::objectValue);
    collection["CollectionType"] = collectionInfo.getCollectionType();
    collection["CollectionFrequencyMin"] = collectionInfo.getCollectionFrequencyMin();
    collection["LastCollection"] = collectionInfo.getLastCollection();

    Json::Value os(Json::objectValue);
    os["HostName"] = hostInfo.getHostName();
    os["OSName"] = hostInfo.getOSName();
    os["OSVersion"] = hostInfo.getOSVersion();
    os["OSDescription"] = hostInfo.getOSDescription();
    os["OSType"] = hostInfo.getOSType();

    if (hostInfo.hasOSConfiguration()) {
        Json::Value configuration(Json::objectValue);
        configuration["KernelCmdLine"] = hostInfo.getKernelCmdLine();
        configuration["CrashKernelCmd"] = hostInfo.getCrashKernelCmd();
        configuration["CrashKernelMemBytes"] = static_cast<Json::Int64>(hostInfo.getCrashKernelMemBytes());
        configuration["CrashkernelLoaded"] = hostInfo.getCrashkernelLoaded();
        configuration["KDumpSvcsEnabled"] = hostInfo.getKDumpSvcsEnabled();
        configuration["KDumpSvcsStatus"] = hostInfo.getKDumpSvcsStatus();
        os["OSConfigurationSummary"] = configuration;
    }

    Json::Value software(Json::objectValue);
    software["VekSwVersion"] = hostInfo.getVekSwVersion();
    if (hostInfo.hasListOfSoftwaresInstalled()) {
        software["SoftwaresInstalled"] = hostInfo.getListOfSoftwaresInstalled();
    }
    os["OSSoftwareSummary"] = software;

    Json::Value memory(Json::objectValue);
    memory["TotalSystemMemoryGiB"] = hostInfo.getOSMemorySummary().getTotalSystemMemGiB();
    memory["TotalFreeSystemMemoryGiB"] = hostInfo.getOSMemorySummary().getTotalFreeSystemMemGiB();
    os["OSMemorySummary"] = memory;

    Json::Value addresses(Json::arrayValue);
    for (const std::string& address : hostInfo.getIPv4Addresses().getAddresses()) {
        Json::Value entry(Json::objectValue);
        entry["Address"] = address;
        addresses.append(entry);
    }
    os["IPv4Addresses"] = addresses;

    Json::Value inventory(Json::objectValue);
    inventory["CollectionInfo"] = collection;
    inventory["HostOSInfo"] = os;
    return inventory;
}

bool HostResourceManager::getInventoryJsonObject(std::vector<Json::Value>& inventory)
{
    const bool previous = lifecycle_.getInventory(inventory);
    if (previous) {
        VEK_LOG_DEBUG(TAG, "Cache build is in progress. Returning previous copy of inventory.");
    }
    return previous;
}

bool HostResourceManager::isInventoryReady(int iteration)
{
    VEK_LOG_INFO(TAG, "Host cache ready %d", lifecycle_.isReady() ? 1 : 0);
    return lifecycle_.isInventoryReady(iteration);
}

bool HostResourceManager::isRunning()
{
    return lifecycle_.isRunning();
}

void HostResourceManager::stopResourceManagerJob()
{
    lifecycle_.stopResourceManagerJob();
}

void HostResourceManager::signalRMStop()
{
    lifecycle_.signalRMStop();
}

bool HostResourceManager::waitUntilShutdownComplete()
{
    return lifecycle_.waitUntilShutdownComplete();
}

void HostResourceManager::doShutdownActivites()
{
    for (const auto& service : hostServices_) {
        try {
            service->shutdown();
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Host Service [%d] failed to shut down: %s", service->getServiceId(), e.what());
        }
    }
    lifecycle_.markShutdownComplete();
}

void HostResourceManager::generateTestEvent(int id)
{
    vekPlatformServices* services = platformServices_;
    vekInBandComManager* comManager = services != nullptr ? services->getInbandComInterface() : nullptr;
    if (comManager == nullptr) {
        VEK_LOG_ERROR(TAG, "Test event [%d] not sent: no communication manager.", id);
        return;
    }
    const vekEvent event(id, "Host", "NotApplicable", false, VMwareOSUtils::getDateTime(), "Not-Available",
                         "VEK-CLI");
    comManager->sendEvent(event);
}
