#include "vekMegaRAIDControllerFactory.h"

#include "vekLog.h"
#include "vekMegaRAIDController.h"
#include "vekMegaRAIDUBMSupport.h"
#include "vekPlatformServices.h"
#include "vekStoreLibInterface.h"

namespace {

const char TAG[] = "LSI_FACTORY";

// The platforms that carry UBM backplanes.
const int kPlatformLM = 2;
const int kPlatformTRB = 4;

// Enrols the factory before the manager's first build.
const FactoryRegister registration(&vekMegaRAIDControllerFactory::getInstance());

} // namespace

vekMegaRAIDControllerFactory& vekMegaRAIDControllerFactory::getInstance()
{
    // Never destroyed: the library's event thread may still ask for controllers at exit.
    static vekMegaRAIDControllerFactory* const instance = new vekMegaRAIDControllerFactory();
    return *instance;
}

vekMegaRAIDControllerFactory::vekMegaRAIDControllerFactory() = default;
vekMegaRAIDControllerFactory::~vekMegaRAIDControllerFactory() = default;

bool vekMegaRAIDControllerFactory::initialize(vekOSInterface* osInterface, ISubject* shutdownSubject)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    init_.initialize(TAG, this, "vekMegaRAIDControllerFactory", osInterface, shutdownSubject);
    // The UBM support of the first pass registers with the same subject.
    if (shutdownSubject_ == nullptr) {
        shutdownSubject_ = shutdownSubject;
    }
    return true;
}

void vekMegaRAIDControllerFactory::initializeUBMSupport()
{
    const int platform = vekPlatformServices::getCachedPlatform();
    if (platform != kPlatformLM && platform != kPlatformTRB) {
        VEK_LOG_INFO(TAG, "Scrutiny library will not be used on a pre-KMR-2 platform");
        return;
    }
    vekMegaRAIDUBMSupport::initialize(shutdownSubject_);
    isScrutinyInitialized = vekMegaRAIDUBMSupport::isInitialized();
    if (!isScrutinyInitialized) {
        VEK_LOG_ERROR(TAG, "Failed to initialize Scrutiny interface");
        return;
    }
    VEK_LOG_INFO(TAG, "Scrutiny interface successfully initialized");
    // Drives are placed by the connector and bay the controller knows them
    // by; the first connector is the one the drive is cabled through.
    vekMegaRAIDController::setDriveBoxLocator([](const CTRL_INFO& ctrl, const PD_INFO& pd) {
        if (pd.connectorNames.empty()) {
            throw vekBroadcom::StorageBackplaneNumberForDriveNotFoundException("No connector known for the drive!");
        }
        if (pd.slot < 0 || pd.slot > 255) {
            throw vekBroadcom::StorageBackplaneNumberForDriveNotFoundException("No bay known for the drive!");
        }
        int box = -1;
        vekMegaRAIDUBMSupport::findBackplaneNumberForDriveLocation(ctrl.pciLocation, pd.connectorNames.front(),
                                                                   static_cast<uint8_t>(pd.slot), box);
        return box;
    });
}

void vekMegaRAIDControllerFactory::resetControllerDetection()
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (vekMegaRAIDController* controller : controllers_) {
        controller->setDeviceDetected(false);
    }
}

int vekMegaRAIDControllerFactory::discoverControllers(std::vector<IvekStorageController*>& controllers)
{
    VEK_LOG_DEBUG(TAG, "Discovering LSI MR controllers instances list");
    resetControllerDetection();
    std::vector<vekMegaRAIDController*> gone;
    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        vekStoreLibInterface& lib = vekStoreLibInterface::getInstance();
        if (!vekMegaRAIDController::isLSILibLoaded) {
            if (!lib.vekStoreInit()) {
                VEK_LOG_ERROR(TAG, "Issue occurred in discovering LSI MR inventory.");
                return -1;
            }
            vekMegaRAIDController::isLSILibLoaded = true;
        }
        lib.cacheBuild("All");
        VEK_LOG_DEBUG(TAG, "Refreshing scrutiny interface cache.");
        if (firstPass_) {
            initializeUBMSupport();
            VEK_LOG_DEBUG(TAG, "First inventory build");
            firstPass_ = false;
        }
        if (isScrutinyInitialized) {
            vekMegaRAIDUBMSupport::cacheBuild();
        }
        for (const CTRL_INFO& ctrl : lib.getControllerCollection()) {
            VEK_LOG_DEBUG(TAG, "discoverControllers ID = %d SN = %s", static_cast<int>(ctrl.ctrlId),
                          ctrl.serialNumber.c_str());
            bool found = false;
            for (vekMegaRAIDController* controller : controllers_) {
                if (controller->getDeviceName() == ctrl.serialNumber) {
                    VEK_LOG_DEBUG(TAG, "Controller instance exists in inventory.");
                    controller->setControllerId(ctrl.ctrlId);
                    controller->setDeviceDetected(true);
                    found = true;
                    break;
                }
            }
            if (!found) {
                auto* controller = new vekMegaRAIDController(init_.osInterface());
                controller->setControllerId(ctrl.ctrlId);
                controller->setDeviceName(ctrl.serialNumber);
                controller->setDeviceDetected(true);
                controllers_.push_back(controller);
            }
        }
        for (auto it = controllers_.begin(); it != controllers_.end();) {
            if ((*it)->getDeviceDetected()) {
                ++it;
                continue;
            }
            gone.push_back(*it);
            it = controllers_.erase(it);
        }
        VEK_LOG_DEBUG(TAG, "size of _controllerList is %zu", controllers_.size());
        for (vekMegaRAIDController* controller : controllers_) {
            controller->acquireReference();
            controllers.push_back(controller);
        }
    }
    // Outside the factory's lock: the last removal ends the event
    // registration, which waits for the library's event thread, and that
    // thread may be asking this factory for its controllers.
    for (vekMegaRAIDController* controller : gone) {
        controller->processDeviceRemoval();
        controller->releaseReference();
    }
    return 0;
}

void vekMegaRAIDControllerFactory::getControllers(unsigned char familyMask,
                                                  std::vector<IvekStorageController*>& controllers)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (vekMegaRAIDController* controller : controllers_) {
        if ((controller->getFamilyFlags() & familyMask) != 0) {
            controller->acquireReference();
            controllers.push_back(controller);
        }
    }
}

void vekMegaRAIDControllerFactory::getControllers(std::vector<IvekStorageController*>& controllers)
{
    getControllers(VEK_STORAGE_FAMILY_ALL, controllers);
}

void vekMegaRAIDControllerFactory::deleteControllers(unsigned char familyMask)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (auto it = controllers_.begin(); it != controllers_.end();) {
        if (((*it)->getFamilyFlags() & familyMask) == 0) {
            ++it;
            continue;
        }
        vekMegaRAIDController* controller = *it;
        it = controllers_.erase(it);
        controller->markRemoved();
        controller->releaseReference();
    }
}

void vekMegaRAIDControllerFactory::shutdownFactory()
{
    VEK_LOG_DEBUG(TAG, "Initiating shutdown sequence");
    std::vector<vekMegaRAIDController*> all;
    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        all.swap(controllers_);
    }
    for (vekMegaRAIDController* controller : all) {
        controller->disableEvents();
        controller->processDeviceRemoval();
        controller->releaseReference();
    }
    if (isScrutinyInitialized) {
        VEK_LOG_DEBUG(TAG, "Shutting down scrutiny interface");
        vekMegaRAIDController::setDriveBoxLocator(nullptr);
        vekMegaRAIDUBMSupport::shutdown();
        isScrutinyInitialized = false;
    }
}

IvekStorageController* vekMegaRAIDControllerFactory::FindExistingController(uint32_t chipsetID, uint32_t boardID,
                                                                            const std::string& pciLocation,
                                                                            bool ignored)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (vekMegaRAIDController* controller : controllers_) {
        if (controller->isMatchingController(chipsetID, boardID, pciLocation, ignored)) {
            return controller;
        }
    }
    return nullptr;
}

std::vector<std::tuple<uint32_t, uint32_t>> vekMegaRAIDControllerFactory::getSupportedControllerModels()
{
    // (board id, chipset id); board 0 stands for any board of the chipset.
    static const std::vector<std::tuple<uint32_t, uint32_t>> models = {
        std::make_tuple(0u, vekStorageChipsetID(0x1000, 0x10E2)),
        std::make_tuple(0u, vekStorageChipsetID(0x1000, 0x005D)),
    };
    return models;
}
