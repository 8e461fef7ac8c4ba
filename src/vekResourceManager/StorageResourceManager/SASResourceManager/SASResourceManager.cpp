#include "SASResourceManager.h"

#include "IELEvent.h"
#include "IvekStorageControllerFactory.h"
#include "vekConfig.h"
#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeInventoryJson.h"
#include "vekPhysLocFactory.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <exception>
#include <numeric>
#include <stdexcept>
#include <thread>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "SAS_RM";
const long kPollIntervalSeconds = 10;
const int kIdlenessChecks = 3;
const long kIdlenessCheckPauseSeconds = 5;
const int kLMPlatform = 2;

// Seconds of the service's clock: VEK_TIME_SCALE makes them pass faster.
int64_t serviceNow()
{
    const auto real = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(real).count() * timeUtils::timeScale() / 1000;
}

// The references of a controller list go with the list.
class vekControllerList {
public:
    vekControllerList() = default;
    ~vekControllerList()
    {
        for (IvekStorageController* controller : list) {
            controller->releaseReference();
        }
    }
    vekControllerList(const vekControllerList&) = delete;
    vekControllerList& operator=(const vekControllerList&) = delete;
    std::vector<IvekStorageController*> list;
};

class vekPthreadLock {
public:
    explicit vekPthreadLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~vekPthreadLock() { pthread_mutex_unlock(&mutex_); }
    vekPthreadLock(const vekPthreadLock&) = delete;
    vekPthreadLock& operator=(const vekPthreadLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

} // namespace

std::atomic<vekPlatformServices*> SASResourceManager::services_{nullptr};
bool SASResourceManager::refreshCache = true;
bool SASResourceManager::sendInventoryToRMC = false;
bool SASResourceManager::stopSAS = false;
bool SASResourceManager::condSignal = false;
std::atomic<bool> SASResourceManager::inited{false};
int64_t SASResourceManager::lastPollTime = 0;
int64_t SASResourceManager::lastRefreshTime = 0;
std::atomic<bool> SASResourceManager::_cacheBuildInProgress{false};
pthread_mutex_t SASResourceManager::rm_cmutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t SASResourceManager::rm_cond = PTHREAD_COND_INITIALIZER;
pthread_mutex_t SASResourceManager::rmstop_cmutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t SASResourceManager::rmstop_cond = PTHREAD_COND_INITIALIZER;
pthread_mutex_t SASResourceManager::cache_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t SASResourceManager::prevInventoryLock = PTHREAD_MUTEX_INITIALIZER;

SASResourceManager& SASResourceManager::getInstance()
{
    // Never destroyed: its thread may still be running at process exit.
    static SASResourceManager* const instance = new SASResourceManager();
    return *instance;
}

SASResourceManager::SASResourceManager() : shutdownNotifier_("SASResourceManager") {}

vekPlatformServices* SASResourceManager::services()
{
    vekPlatformServices* services = services_;
    return services != nullptr ? services : vekPlatformServices::getCurrent();
}

// ---------------------------------------------------------------- start and loop

void SASResourceManager::init()
{
    osInterface_ = vekSystemInterfaceFactory::getSystemInterface();
    if (inited.exchange(true)) {
        VEK_LOG_DEBUG(TAG, "SAS resource manager already started.");
        return;
    }
    for (IvekStorageControllerFactory* factory : FactoryRegister::getRegistry()) {
        try {
            if (!factory->initialize(osInterface_, &shutdownNotifier_)) {
                VEK_LOG_ERROR(TAG, "Factory [%p] failed initialization process.", static_cast<void*>(factory));
            }
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Factory [%p] failed initialization process.", static_cast<void*>(factory));
        }
    }
    startInventory();
}

void SASResourceManager::init(vekPlatformServices& services)
{
    services_ = &services;
    init();
}

void SASResourceManager::startInventory()
{
    long refreshInterval = vekConfig::getInstance().getrefreshInterval(vekResourceIds::nameOf(vekResourceIds::STORAGE));
    if (refreshInterval <= 0) {
        refreshInterval = 30;
    }
    VEK_LOG_DEBUG(TAG, "SAS refresh interval: %ld", refreshInterval);
    VEK_LOG_DEBUG(TAG, "SAS poll interval: %ld", kPollIntervalSeconds);
    // One wait serves both periods.
    const long wait = std::gcd(refreshInterval, kPollIntervalSeconds);
    pthread_mutex_lock(&rm_cmutex);
    while (true) {
        if (stopSAS) {
            refreshCache = false;
            pthread_mutex_unlock(&rm_cmutex);
            processResourceManagerStop();
            return;
        }
        if (refreshCache) {
            refreshCache = false;
            pthread_mutex_unlock(&rm_cmutex);
            cacheBuild();
            pthread_mutex_lock(&rm_cmutex);
            continue;
        }
        timespec deadline {};
        if (clock_gettime(CLOCK_REALTIME, &deadline) != 0) {
            VEK_LOG_ERROR(TAG, "Failed to get current time! (errno: %d)", errno);
            pthread_mutex_unlock(&rm_cmutex);
            processResourceManagerStop();
            return;
        }
        const long long waitNs = static_cast<long long>(timeUtils::scaledSeconds(wait).count()) * 1000000LL;
        const long long endNs = static_cast<long long>(deadline.tv_nsec) + waitNs;
        deadline.tv_sec += static_cast<time_t>(endNs / 1000000000LL);
        deadline.tv_nsec = static_cast<long>(endNs % 1000000000LL);
        const int waited = pthread_cond_timedwait(&rm_cond, &rm_cmutex, &deadline);
        const int64_t now = serviceNow();
        bool refresh = refreshCache;
        bool poll = false;
        if (waited == ETIMEDOUT) {
            refresh = refresh || now - lastRefreshTime >= refreshInterval;
            poll = now - lastPollTime > kPollIntervalSeconds - 1;
        }
        const bool stop = stopSAS;
        refreshCache = false;
        pthread_mutex_unlock(&rm_cmutex);
        if (stop) {
            processResourceManagerStop();
            return;
        }
        if (refresh) {
            cacheBuild();
        }
        if (poll) {
            pollDevices();
        }
        pthread_mutex_lock(&rm_cmutex);
    }
}

// ---------------------------------------------------------------- build

void SASResourceManager::cacheBuild()
{
    {
        vekPthreadLock lock(cache_lock);
        _cacheBuildInProgress = true;
        backupInventory();
        controllers_.clear();
        disks_.clear();
        logicalDisks_.clear();
        enclosures_.clear();
        try {
            getInventory();
            createJsonStringUsingJsonCpp();
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Storage inventory build failed: %s", e.what());
        }
        _cacheBuildInProgress = false;
        lastRefreshTime = serviceNow();
    }
    inventoryReady = true;
    vekPthreadLock lock(rm_cmutex);
    if (sendInventoryOnFirstBuild || sendInventoryToRMC) {
        VEK_LOG_DEBUG(TAG, "Requesting inventory push after cache build.");
        vekJsonAggregator::getInstance().sendInventory();
        sendInventoryOnFirstBuild = false;
        sendInventoryToRMC = false;
    }
}

void SASResourceManager::backupInventory()
{
    vekPthreadLock lock(prevInventoryLock);
    prevControllerJson_ = controllerJson_;
    prevDiskJson_ = diskJson_;
    prevLogicalDiskJson_ = logicalDiskJson_;
    prevEnclosureJson_ = enclosureJson_;
}

void SASResourceManager::getInventory()
{
    const bool statistics = vekConfig::getInstance().isRMStatisticsLoggingEnabled();
    for (IvekStorageControllerFactory* factory : FactoryRegister::getRegistry()) {
        vekControllerList controllers;
        int found = -1;
        try {
            found = factory->discoverControllers(controllers.list);
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Factory [%p] failed to discover controllers: %s", static_cast<void*>(factory),
                          e.what());
        }
        if (found < 0) {
            VEK_LOG_DEBUG(TAG, "discoverControllers() completed with %d.", found);
            continue;
        }
        if (shutdownNotifier_.isSubjectShutdownInitiated()) {
            VEK_LOG_DEBUG(TAG, "Subject shutdown detected during inventory refresh.");
            return;
        }
        for (IvekStorageController* controller : controllers.list) {
            timespec start {}, end {}, took {};
            clock_gettime(CLOCK_MONOTONIC, &start);
            vekStorageControllerInfo info;
            try {
                if (controller->discoverInventory(info) < 0) {
                    continue;
                }
                controllers_.push_back(info);
                std::vector<vekDiskInfo> disks;
                if (controller->discoverPhysicalDiskInventory(disks) < 0) {
                    continue;
                }
                disks_.insert(disks_.end(), disks.begin(), disks.end());
                std::vector<vekLogicalDiskInfo> volumes;
                if (controller->discoverLogicalDiskInventory(volumes) < 0) {
                    continue;
                }
                logicalDisks_.insert(logicalDisks_.end(), volumes.begin(), volumes.end());
                std::vector<vekStorageEnclosureInfo> enclosures;
                if (controller->discoverStorageEnclosureInventory(enclosures) < 0) {
                    continue;
                }
                enclosures_.insert(enclosures_.end(), enclosures.begin(), enclosures.end());
                controller->enableEvents();
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "Controller @ %s: inventory incomplete: %s", controller->getPciLocation().c_str(),
                              e.what());
                continue;
            }
            if (statistics) {
                clock_gettime(CLOCK_MONOTONIC, &end);
                timeUtils::computeTimeDiff(end, start, took);
                VEK_LOG_INFO(TAG, "Time taken to gather complete inventory from [%s, SN %s] @ [%s]: [%ld.%.2ld] seconds",
                             info.getModel().c_str(), info.getSerialNumber().c_str(),
                             controller->getPciLocation().c_str(), static_cast<long>(took.tv_sec),
                             static_cast<long>(took.tv_nsec / 10000000));
            }
        }
    }
    collateAndFinalizeStorageEnclosures();
}

void SASResourceManager::collateAndFinalizeStorageEnclosures()
{
    vekPlatformServices* platform = services();
    if (platform == nullptr || platform->getPlatform() != kLMPlatform) {
        return;
    }
    // Controllers that share a backplane each report it: make it one record.
    std::vector<vekStorageEnclosureInfo> collated;
    for (vekStorageEnclosureInfo enclosure : enclosures_) {
        if (enclosure.getBox() < 1) {
            const std::string model = enclosure.getModel();
            if (model.find("8 SFF") != std::string::npos) {
                VEK_LOG_DEBUG(TAG, "Found Box #1 based on model string");
                enclosure.setBox(1);
            } else if (model.find("2 SFF") != std::string::npos) {
                VEK_LOG_DEBUG(TAG, "Found Box #2 based on model string");
                enclosure.setBox(2);
            } else if (enclosure.getBayCount() == 8 || enclosure.getBayCount() == 2) {
                enclosure.setBox(enclosure.getBayCount() == 8 ? 1 : 2);
            } else {
                VEK_LOG_WARNING(TAG, "Unable to determine box number. (Model: [%s], Bay count: [%d])", model.c_str(),
                                enclosure.getBayCount());
                continue;
            }
        }
        vekStorageEnclosureInfo* match = findMatchingStorageEnclosure(collated, enclosure);
        const bool internal = enclosure.getEnclosureType() == VEK_STORAGE_ENCLOSURE_TYPE_BACKPLANE;
        if (match != nullptr) {
            match->setBayCount(match->getBayCount() + enclosure.getBayCount());
            match->setSegmentCount(match->getSegmentCount() + enclosure.getSegmentCount());
            VEK_LOG_DEBUG(TAG, "Appended collated storage enclosure with SN [%s], PN [%s]: (%d, %d)",
                          match->getSerialNumber().c_str(), match->getPartNumber().c_str(), match->getBayCount(),
                          match->getSegmentCount());
            continue;
        }
        VEK_LOG_DEBUG(TAG, "Detected new collated storage enclosure with SN [%s], PN [%s]: (%d, %d)",
                      enclosure.getSerialNumber().c_str(), enclosure.getPartNumber().c_str(), enclosure.getBayCount(),
                      enclosure.getSegmentCount());
        if (internal) {
            enclosure.setPhysicalLocation(vekPhysLocFactory::getPhysLocInterface()->getPhysLocForChassisStorageBackplane(
                enclosure.getControllerPCILocation(), enclosure.getBox()));
            VEK_LOG_DEBUG(TAG,
                          "Storage backplane PL for chassis-internal enclosure with SN [%s], PN [%s], Box [%d]: (%d, "
                          "%d): %s",
                          enclosure.getSerialNumber().c_str(), enclosure.getPartNumber().c_str(), enclosure.getBox(),
                          enclosure.getBayCount(), enclosure.getSegmentCount(),
                          enclosure.getPhysicalLocation().c_str());
        }
        collated.push_back(enclosure);
    }
    enclosures_ = collated;
}

vekStorageEnclosureInfo* SASResourceManager::findMatchingStorageEnclosure(std::vector<vekStorageEnclosureInfo>& collated,
                                                                          const vekStorageEnclosureInfo& enclosure)
{
    for (auto& candidate : collated) {
        if (candidate.getSerialNumber() == enclosure.getSerialNumber()) {
            return &candidate;
        }
    }
    for (auto& candidate : collated) {
        if (candidate.getControllerPCILocation() == enclosure.getControllerPCILocation()) {
            return &candidate;
        }
    }
    if (enclosure.getEnclosureType() != VEK_STORAGE_ENCLOSURE_TYPE_BACKPLANE) {
        return nullptr;
    }
    for (auto& candidate : collated) {
        if (candidate.getPartNumber() == enclosure.getPartNumber()) {
            return &candidate;
        }
    }
    return nullptr;
}

void SASResourceManager::createJsonStringUsingJsonCpp()
{
    controllerJson_.clear();
    diskJson_.clear();
    logicalDiskJson_.clear();
    enclosureJson_.clear();
    for (const auto& record : controllers_) {
        controllerJson_.push_back(record.getVariableData());
    }
    for (const auto& record : disks_) {
        diskJson_.push_back(record.getVariableData());
    }
    for (const auto& record : logicalDisks_) {
        logicalDiskJson_.push_back(record.getVariableData());
    }
    for (const auto& record : enclosures_) {
        enclosureJson_.push_back(record.getVariableData());
    }
    const struct {
        const char* format;
        const std::vector<Json::Value>* json;
    } printed[] = {{"Printing controller instance %zu:    %s", &controllerJson_},
                   {"Printing disk instance %zu:    %s", &diskJson_},
                   {"Printing logical disk instance %zu:    %s", &logicalDiskJson_},
                   {"Printing storage enclosure instance %zu:    %s", &enclosureJson_}};
    for (const auto& kind : printed) {
        for (size_t i = 0; i < kind.json->size(); ++i) {
            VEK_LOG_DEBUG(TAG, kind.format, i, vekPCIeInventoryJson::writeCompact((*kind.json)[i]).c_str());
        }
    }
}

// ---------------------------------------------------------------- readers

bool SASResourceManager::getInventoryJsonObject(std::vector<Json::Value>& inventory)
{
    return getInventoryJsonObject2(CONTROLLERS, inventory);
}

bool SASResourceManager::getInventoryJsonObject2(int type, std::vector<Json::Value>& inventory)
{
    if (type < 0 || type > ENCLOSURES) {
        VEK_LOG_WARNING(TAG, "Unsupported inventory type");
        return false;
    }
    // A reader never waits for a slow build.
    if (_cacheBuildInProgress || pthread_mutex_trylock(&cache_lock) != 0) {
        VEK_LOG_DEBUG(TAG, "Cache build is in progress. Returning previously saved inventory");
        fetchPrevInventoryOfType(type, inventory);
        return true;
    }
    const std::vector<Json::Value>* current[] = {&controllerJson_, &controllerJson_, &diskJson_, &logicalDiskJson_,
                                                 &enclosureJson_};
    inventory.insert(inventory.end(), current[type]->begin(), current[type]->end());
    pthread_mutex_unlock(&cache_lock);
    return false;
}

void SASResourceManager::fetchPrevInventoryOfType(int type, std::vector<Json::Value>& inventory)
{
    vekPthreadLock lock(prevInventoryLock);
    const std::vector<Json::Value>* previous[] = {&prevControllerJson_, &prevControllerJson_, &prevDiskJson_,
                                                  &prevLogicalDiskJson_, &prevEnclosureJson_};
    inventory.insert(inventory.end(), previous[type]->begin(), previous[type]->end());
}

bool SASResourceManager::isInventoryReady(int iteration)
{
    VEK_LOG_INFO(TAG, "SAS RM cache status %d", inventoryReady ? 1 : 0);
    if (!inventoryReady && iteration >= 8) {
        vekPthreadLock lock(rm_cmutex);
        sendInventoryOnFirstBuild = true;
    }
    return inventoryReady;
}

bool SASResourceManager::isRunning()
{
    bool idle = false;
    for (int retryCount = 0; retryCount < kIdlenessChecks && !idle; ++retryCount) {
        size_t controllerJson = 0;
        bool building = true;
        if (pthread_mutex_trylock(&cache_lock) == 0) {
            building = _cacheBuildInProgress;
            controllerJson = controllerJson_.size();
            idle = !building && (controllerJson != 0 || controllers_.empty());
            pthread_mutex_unlock(&cache_lock);
        }
        if (!idle) {
            VEK_LOG_WARNING(TAG, "_cacheBuildInProgress = %d,ControllerInventory.size() = %zu,retryCount = %d",
                            building ? 1 : 0, controllerJson, retryCount);
            std::this_thread::sleep_for(timeUtils::scaledSeconds(kIdlenessCheckPauseSeconds));
        }
    }
    if (!idle) {
        return false;
    }
    for (IvekStorageControllerFactory* factory : FactoryRegister::getRegistry()) {
        vekControllerList controllers;
        factory->getControllers(VEK_STORAGE_FAMILY_ALL, controllers.list);
        for (IvekStorageController* controller : controllers.list) {
            if (!controller->isEventsEnabled()) {
                VEK_LOG_WARNING(TAG, "LSI Events are disabled.Hence Storage Controllers is                                       partially functional.");
                return false;
            }
        }
    }
    return true;
}

// ---------------------------------------------------------------- polling and requests

void SASResourceManager::pollDevices()
{
    VEK_LOG_DEBUG(TAG, "Polling devices.");
    for (IvekStorageControllerFactory* factory : FactoryRegister::getRegistry()) {
        try {
            factory->poll();
            vekControllerList controllers;
            factory->getControllers(VEK_STORAGE_FAMILY_ALL, controllers.list);
            for (IvekStorageController* controller : controllers.list) {
                controller->poll();
            }
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Factory [%p] poll failed: %s", static_cast<void*>(factory), e.what());
        }
        lastPollTime = serviceNow();
    }
    lastPollTime = serviceNow();
}

void SASResourceManager::invalidateInventoryCache()
{
    vekPthreadLock lock(rm_cmutex);
    refreshCache = true;
    pthread_cond_signal(&rm_cond);
}

void SASResourceManager::sendInventorytToRMCOnCacheBuild()
{
    vekPthreadLock lock(rm_cmutex);
    sendInventoryToRMC = true;
}

bool SASResourceManager::isControllerModelSupported(uint32_t chipsetID, uint32_t boardID)
{
    for (IvekStorageControllerFactory* factory : FactoryRegister::getRegistry()) {
        for (const auto& model : factory->getSupportedControllerModels()) {
            const uint32_t board = std::get<0>(model);
            if (std::get<1>(model) == chipsetID && (board == 0 || board == boardID)) {
                return true;
            }
        }
    }
    return false;
}

// ---------------------------------------------------------------- events

int SASResourceManager::resolveEventNumber(int kind)
{
    vekPlatformServices* platform = services();
    IELEventResolver* resolver = platform != nullptr ? platform->getIELEventResolver() : nullptr;
    try {
        if (resolver == nullptr) {
            throw std::runtime_error("no event resolver");
        }
        return (*resolver)(static_cast<IELEVENT::IELEventId>(kind));
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "Event kind [%d] has no number on this platform: %s", kind, e.what());
        return -1;
    }
}

void SASResourceManager::generateEvent(int id, std::string location, bool asserted, const vekInventoryBase& info)
{
    const std::string place = location.empty() ? "NotAvailable" : location;
    try {
        vekPlatformServices* platform = services();
        vekInBandComManager* com = platform != nullptr ? platform->getInbandComInterface() : nullptr;
        if (com == nullptr) {
            throw std::runtime_error("no communication manager");
        }
        com->sendEvent(vekEvent(id, "SASHBA", "", asserted, timeUtils::getTime(), place, info.getVariableData(), "VEK"));
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "Event [%d]: Failed to send event for device at PL[%s]", id, place.c_str());
    }
}

void SASResourceManager::generateEvent(int id, bool asserted, const vekInventoryBase& info)
{
    try {
        vekPlatformServices* platform = services();
        vekInBandComManager* com = platform != nullptr ? platform->getInbandComInterface() : nullptr;
        if (com == nullptr) {
            throw std::runtime_error("no communication manager");
        }
        com->sendEvent(vekEvent(id, "SASHBA", asserted, timeUtils::getTime(), info.getVariableData(), "VEK"));
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "Event [%d]: Failed to send event for device.", id);
    }
}

bool SASResourceManager::generateTestEvent(int id, std::string location, bool asserted)
{
    const std::string injected = "Injected Event";
    switch (id) {
    case 397:
    case 398: {
        vekStorageControllerInfo controller;
        controller.setModel("HBA 9500-16i SAS38xx");
        controller.setSerialNumber("SP01234567");
        controller.setPartNumber("05-50077-00");
        controller.setFirmwareVersion("24.00.00.00");
        controller.setProtocol("SAS/SATA");
        controller.setManufacturer("Broadcom / LSI");
        controller.setPhysicalLocation(location);
        controller.setDescription("PCI 0000:5e:00.0");
        controller.setEventInfoString(injected);
        generateEvent(id, location, asserted, controller);
        return true;
    }
    case 538:
    case 539:
    case 540: {
        vekDiskInfo disk;
        disk.setSerialNumber("WBN0ABCD0000");
        disk.setModel("ST2400MM0129");
        disk.setCapacityBytes(2400476553216ULL);
        disk.setProtocol("SAS");
        disk.setMediaType("HDD");
        disk.setRevision("C003");
        disk.setManufacturer("SEAGATE");
        disk.setSlot("1");
        disk.setPhysicalLocation(location);
        disk.setEventInfoString(injected);
        generateEvent(id, location, asserted, disk);
        return true;
    }
    case 681:
    case 683:
    case 1385:
    case 1387:
    case 1388: {
        vekLogicalDiskInfo volume;
        volume.setDurableName("600605B00D8B6E6028A5F4A40C1D8E21");
        volume.setRAIDLevel("RAID1");
        volume.setCapacityBytes(1199638052864ULL);
        volume.addPhysicalDisk("WBN0ABCD0000");
        volume.addPhysicalDisk("WBN0ABCD0001");
        volume.setDeviceName("VD0");
        volume.setEventInfoString(injected);
        generateEvent(id, location, asserted, volume);
        return true;
    }
    default:
        VEK_LOG_ERROR(TAG, "Test event [%d] is not a storage event.", id);
        return false;
    }
}

// ---------------------------------------------------------------- stop

void SASResourceManager::stopResourceManagerJob()
{
    VEK_LOG_INFO(TAG, "Resource manager stop called");
    if (!inited) {
        return;
    }
    // Discovery loops give up early.
    shutdownNotifier_.signalSubjectShutdown();
    {
        vekPthreadLock lock(rm_cmutex);
        stopSAS = true;
        pthread_cond_signal(&rm_cond);
    }
    int waited = 0;
    {
        vekPthreadLock lock(rmstop_cmutex);
        while (!condSignal && waited == 0) {
            waited = pthread_cond_wait(&rmstop_cond, &rmstop_cmutex);
        }
    }
    VEK_LOG_DEBUG(TAG, "Wait for resource manager stop completed with %d.", waited);
    VEK_LOG_INFO(TAG, "Resource manager stopped");
}

void SASResourceManager::processResourceManagerStop()
{
    VEK_LOG_INFO(TAG, "Resource manager stop in progress.");
    for (IvekStorageControllerFactory* factory : FactoryRegister::getRegistry()) {
        try {
            factory->shutdownFactory();
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Factory [%p] shutdown failed: %s", static_cast<void*>(factory), e.what());
        }
    }
    vekPthreadLock lock(rmstop_cmutex);
    condSignal = true;
    pthread_cond_broadcast(&rmstop_cond);
}
