#include "vekSmartRAIDControllerFactory.h"

#include "vekConfig.h"
#include "vekLog.h"
#include "vekSmartRAIDController.h"

#include <algorithm>

namespace {

const char TAG[] = "SR_FACTORY";
const uint16_t kMicrochip = 0x9005;
const uint16_t kSmartPQI = 0x028F;

const vekSmartRAIDModel kModels[] = {
    {kMicrochip, kSmartPQI, kMicrochip, 0x1A20, "SmartRAID 3254-16i", "R7A12-16001", "R7A12-60001", "R7A12-B21"},
    {kMicrochip, kSmartPQI, kMicrochip, 0x1A21, "SmartRAID 3254-8i", "R7A12-08001", "R7A12-60002", "R7A12-B22"},
    {kMicrochip, kSmartPQI, kMicrochip, 0x1A22, "SmartRAID 3258-16e", "R7A12-16E01", "R7A12-60003", "R7A12-B23"},
};

// Enrols the factory before the manager's first build.
const FactoryRegister registration(&vekSmartRAIDControllerFactory::getInstance());

} // namespace

const vekSmartRAIDModel* findSmartRAIDModel(uint16_t vendor, uint16_t device, uint16_t subVendor, uint16_t subDevice)
{
    for (const vekSmartRAIDModel& row : kModels) {
        if (row.vendor == vendor && row.device == device && row.subVendor == subVendor && row.subDevice == subDevice) {
            return &row;
        }
    }
    return nullptr;
}

vekSmartRAIDControllerFactory& vekSmartRAIDControllerFactory::getInstance()
{
    // Never destroyed: the library's event thread may still ask for it at exit.
    static vekSmartRAIDControllerFactory* const instance = new vekSmartRAIDControllerFactory();
    return *instance;
}

vekSmartRAIDControllerFactory::vekSmartRAIDControllerFactory() = default;

vekSmartRAIDControllerFactory::~vekSmartRAIDControllerFactory() = default;

bool vekSmartRAIDControllerFactory::initialize(vekOSInterface* osInterface, ISubject* shutdownSubject)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    init_.initialize(TAG, this, "vekSmartRAIDControllerFactory", osInterface, shutdownSubject);
    return true;
}

void vekSmartRAIDControllerFactory::resetControllerDetection()
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (vekSmartRAIDController* controller : controllers_) {
        controller->setDeviceDetected(false);
    }
}

int vekSmartRAIDControllerFactory::discoverControllers(std::vector<IvekStorageController*>& controllers)
{
    VEK_LOG_DEBUG(TAG, "Discovering SmartRAID controller instances list");
    resetControllerDetection();
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    if (!sci.Initialize()) {
        VEK_LOG_ERROR(TAG, "Failed to initialize SmartRAID library.");
        return -1;
    }
    sci.cacheBuild();
    bool stopped = false;
    for (const SCI_CONTROLLER_METADATA_PTR& metadata : sci.getControllerCollection()) {
        std::string location;
        if (!vekSmartRAIDController::formatPciLocation(metadata->pciLocation, location)) {
            continue;
        }
        if (init_.shutdownDetected()) {
            VEK_LOG_INFO(TAG, "Subject shutdown detected during controller discovery.");
            stopped = true;
            break;
        }
        vekSmartRAIDController* existing = nullptr;
        for (vekSmartRAIDController* controller : controllers_) {
            if (controller->isMatchingController(0, 0, location, false)) {
                existing = controller;
            }
        }
        if (existing != nullptr) {
            VEK_LOG_DEBUG(TAG, "Controller instance exists in inventory. [%s]", location.c_str());
            existing->setControllerMetadata(metadata);
            existing->setDeviceDetected(true);
            continue;
        }
        auto* created = new vekSmartRAIDController(metadata, firstPass_, init_.osInterface());
        created->setDeviceDetected(true);
        VEK_LOG_INFO(TAG, "SmartRAID controller @ [%s] managed by device object: [%p]", location.c_str(),
                     static_cast<void*>(created));
        controllers_.push_back(created);
    }
    // A pass cut short by the service's stop has not seen every controller:
    // the ones it missed are not gone, and the factory's shutdown takes them
    // out with their events off.
    for (auto it = controllers_.begin(); !stopped && it != controllers_.end();) {
        vekSmartRAIDController* controller = *it;
        if (controller->getDeviceDetected()) {
            ++it;
            continue;
        }
        // Offline first, while its events are still on, then the queue stops.
        controller->processDeviceRemoval();
        controller->disableEvents();
        it = controllers_.erase(it);
        controller->releaseReference();
    }
    VEK_LOG_DEBUG(TAG, "size of _controllerList is %zu", controllers_.size());
    firstPass_ = firstPass_ && stopped;
    getControllers(VEK_STORAGE_FAMILY_ALL, controllers);
    return static_cast<int>(controllers_.size());
}

void vekSmartRAIDControllerFactory::getControllers(unsigned char familyMask,
                                                   std::vector<IvekStorageController*>& controllers)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (vekSmartRAIDController* controller : controllers_) {
        if ((controller->getFamilyFlags() & familyMask) != 0) {
            controller->acquireReference();
            controllers.push_back(controller);
        }
    }
}

vekSmartRAIDController* vekSmartRAIDControllerFactory::findControllerByCDA(PCDA cda)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (vekSmartRAIDController* controller : controllers_) {
        SCI_CONTROLLER_METADATA_PTR metadata = controller->getControllerMetadata();
        if (metadata && metadata->cda == cda) {
            controller->acquireReference();
            return controller;
        }
    }
    return nullptr;
}

void vekSmartRAIDControllerFactory::deleteControllers(unsigned char familyMask)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (auto it = controllers_.begin(); it != controllers_.end();) {
        vekSmartRAIDController* controller = *it;
        if ((controller->getFamilyFlags() & familyMask) == 0) {
            ++it;
            continue;
        }
        controller->disableEvents();
        controller->processDeviceRemoval();
        it = controllers_.erase(it);
        controller->releaseReference();
    }
}

void vekSmartRAIDControllerFactory::shutdownFactory()
{
    VEK_LOG_INFO(TAG, "Initiating shutdown sequence");
    deleteControllers(VEK_STORAGE_FAMILY_ALL);
}

std::vector<std::tuple<uint32_t, uint32_t>> vekSmartRAIDControllerFactory::getSupportedControllerModels()
{
    static const std::vector<std::tuple<uint32_t, uint32_t>> models = [] {
        std::vector<std::tuple<uint32_t, uint32_t>> rows;
        for (const vekSmartRAIDModel& row : kModels) {
            rows.emplace_back(vekStorageChipsetID(row.subVendor, row.subDevice),
                              vekStorageChipsetID(row.vendor, row.device));
        }
        return rows;
    }();
    return models;
}

const vekConfig& vekSmartRAIDControllerFactory::config() const
{
    return config_ ? *config_ : vekConfig::getInstance();
}

void vekSmartRAIDControllerFactory::setConfig(std::shared_ptr<const vekConfig> config) { config_ = std::move(config); }
