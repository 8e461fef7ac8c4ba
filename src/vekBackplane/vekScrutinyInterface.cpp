// Loading and unloading the Scrutiny library.

#include "vekScrutinyInterface.h"

#include "vekLog.h"
#include "vekSubjectShutdownNotifier.h"

#include <dlfcn.h>

namespace {

const char TAG[] = "DSI";
const char kLibraryName[] = "libscrutiny.so";
const unsigned long kMaximumInitializeAttempts = 3;

template <typename T> bool fetch(void* handle, const char* name, T& function)
{
    dlerror();
    function = reinterpret_cast<T>(dlsym(handle, name));
    if (function == nullptr) {
        const char* error = dlerror();
        VEK_LOG_ERROR(TAG, "Failed to find address of symbol [%s]: (%s)", name, error != nullptr ? error : "");
        return false;
    }
    return true;
}

} // namespace

std::mutex vekScrutinyInterface::instanceLock;

void vekScrutinyInterface::Library::Closer::operator()(void* handle) const
{
    dlclose(handle);
}

vekScrutinyInterface& vekScrutinyInterface::getInstance()
{
    // Made once and never destroyed, so that no thread finds it gone at exit.
    static vekScrutinyInterface* const instance = new vekScrutinyInterface();
    return *instance;
}

void vekScrutinyInterface::initialize(ISubject* subject)
{
    std::lock_guard<std::mutex> instance(instanceLock);
    if (library_) {
        return;
    }
    if (initializeAttempts_ >= kMaximumInitializeAttempts) {
        VEK_LOG_ERROR(TAG, "VEK Scrutiny interface initialization attempts failure threshold reached. (%lu, %d)",
                      initializeAttempts_, static_cast<int>(kMaximumInitializeAttempts));
        return;
    }
    auto* notifier = dynamic_cast<vekSubjectShutdownNotifier*>(subject);
    if (notifier != nullptr && notifier->isSubjectShutdownInitiated()) {
        VEK_LOG_INFO(TAG, "Subject shutdown has already started. Hence, initialization will be skipped.");
        return;
    }

    auto library = std::make_unique<Library>();
    library->handle.reset(dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL));
    if (!library->handle) {
        const char* error = dlerror();
        VEK_LOG_ERROR(TAG, "Failed to load scrutiny library. (%s)", error != nullptr ? error : "");
        ++initializeAttempts_;
        return;
    }
    void* handle = library->handle.get();
    const bool found = fetch(handle, "ScrutinyInitialize", library->initialize) &&
                       fetch(handle, "ScrutinyExit", library->exit) &&
                       fetch(handle, "ScrutinyGetLibraryVersion", library->getLibraryVersion) &&
                       fetch(handle, "ScrutinyInitializeLogging", library->initializeLogging) &&
                       fetch(handle, "ScrutinyDiscoverDevices", library->discoverDevices) &&
                       fetch(handle, "ScrutinyGetDeviceCount", library->getDeviceCount) &&
                       fetch(handle, "ScrutinyGetDeviceInfo", library->getDeviceInfo) &&
                       fetch(handle, "ScrutinyControllerDcmdPassthrough", library->dcmdPassthrough) &&
                       fetch(handle, "ScrutinyControllerToolboxIstwiReadWrite", library->istwiReadWrite);
    if (!found) {
        VEK_LOG_ERROR(TAG, "Initialization of Scrutiny Library interface failed. (%d)", VEK_DSI_STATUS_FAILURE);
        ++initializeAttempts_;
        return; // the handle closes with the library object
    }
    const _SCRUTINY_STATUS status = library->initialize();
    if (status != SCRUTINY_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Initialization of Scrutiny Library interface failed. (0x%08x)", status);
        ++initializeAttempts_;
        return;
    }
    unsigned version = 0;
    library->getLibraryVersion(&version);
    VEK_LOG_INFO(TAG, "Successfully initialized Scrutiny. (Version: %x)", version);
    library_ = std::move(library);

    if (subject == nullptr) {
        VEK_LOG_WARNING(TAG, "No shutdown subject specified during initialization");
        return;
    }
    observer_ = std::make_unique<vekSubjectShutdownObserver>("VEK Scrutiny Interface");
    const vekObservableStatus attached = subject->attach(observer_.get(), VEK_OBSERVABLE_ASPECT_SHUTDOWN);
    if (attached == VEK_OBSERVABLE_STATUS_SUCCESS) {
        VEK_LOG_DEBUG(TAG, "Successfully registered to receive subject shutdown notification");
    } else {
        VEK_LOG_WARNING(TAG, "Registration with shutdown subject failed (status: %d).", attached);
    }
}

bool vekScrutinyInterface::isInitialized()
{
    std::lock_guard<std::mutex> instance(instanceLock);
    return library_ != nullptr;
}

void vekScrutinyInterface::shutdown()
{
    std::lock_guard<std::mutex> instance(instanceLock);
    VEK_LOG_DEBUG(TAG, "shutdown: called");
    if (!library_) {
        VEK_LOG_DEBUG(TAG, "shutdown: Exiting since interface is not initialized");
        return;
    }
    const _SCRUTINY_STATUS status = library_->exit();
    if (status != SCRUTINY_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Scrutiny exit processing failed. (libStatus=[0x%08X])", status);
    }
    VEK_LOG_DEBUG(TAG, "Unloading Scrutiny from memory.");
    library_.reset();
    observer_.reset();
}

void vekScrutinyInterface::resetInitializeAttempts()
{
    std::lock_guard<std::mutex> instance(instanceLock);
    VEK_LOG_INFO(TAG, "Resetting VEK Scrutiny interface initialization attempt counter. (%lu)", initializeAttempts_);
    initializeAttempts_ = 0;
}

bool vekScrutinyInterface::shutdownDetected() const
{
    return observer_ && observer_->isSubjectShutdownInitiated();
}
