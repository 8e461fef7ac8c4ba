#include "vekStorageCoreInterface.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekTimedLock.h"

#include <dlfcn.h>

#include <chrono>
#include <cstring>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "SMARTRAID_INTF";
const int kCacheLockTries = 3;
const std::chrono::milliseconds kCacheLockWait(2000);
// The holder waits on the library, which a faster clock does not make faster.
const std::chrono::milliseconds kCacheLockFloor(250);

unsigned long handleOf(const void* pointer) { return static_cast<unsigned long>(reinterpret_cast<uintptr_t>(pointer)); }

} // namespace

// ---------------------------------------------------------------- metadata

SCI_CONTROLLER_METADATA::SCI_CONTROLLER_METADATA(vekStorageCoreInterface& owner, SC_DEVICE_DESCRIPTOR descriptorIn,
                                                 PCDA cdaIn)
    : descriptor(descriptorIn), cda(cdaIn), owner_(owner)
{
}

SCI_CONTROLLER_METADATA::~SCI_CONTROLLER_METADATA()
{
    // After UnInitialize the library's code is gone, and its memory with it.
    if (!owner_.isInitialized()) {
        return;
    }
    if (cda != nullptr) {
        owner_.SA_UnInitializeCDA(cda);
        owner_._SA_free(cda, __FILE__, __LINE__);
    }
    if (descriptor != nullptr) {
        owner_._SA_free(descriptor, __FILE__, __LINE__);
    }
}

// ---------------------------------------------------------------- binding

void vekStorageCoreInterface::LibraryCloser::operator()(void* handle) const
{
    if (handle != nullptr) {
        dlclose(handle);
    }
}

vekStorageCoreInterface& vekStorageCoreInterface::getInstance()
{
    // Never destroyed: the library's event thread may call in at process exit.
    static vekStorageCoreInterface* const instance = new vekStorageCoreInterface();
    return *instance;
}

vekStorageCoreInterface::vekStorageCoreInterface(std::string hostLibrary, std::string coreLibrary)
    : hostLibrary_(std::move(hostLibrary)), coreLibrary_(std::move(coreLibrary))
{
}

vekStorageCoreInterface::~vekStorageCoreInterface() { UnInitialize(); }

bool vekStorageCoreInterface::fetchSymbolAddress(void* handle, const char* name, void** pointer)
{
    dlerror();
    *pointer = dlsym(handle, name);
    if (*pointer == nullptr) {
        const char* error = dlerror();
        VEK_LOG_ERROR(TAG, "Failed to find symbol [%s] in the SmartRAID management libraries: (%s)", name,
                      error != nullptr ? error : "null address");
        return false;
    }
    return true;
}

bool vekStorageCoreInterface::bindSymbols()
{
#define VEK_SC_FETCH(handle, name)                                                                                 \
    if (!fetchSymbolAddress(handle, #name, reinterpret_cast<void**>(&name))) {                                     \
        return false;                                                                                               \
    }
#define VEK_SC_FETCH_HOST(name, type) VEK_SC_FETCH(hostHandle.get(), name)
#define VEK_SC_FETCH_CORE(name, type) VEK_SC_FETCH(coreHandle.get(), name)
    VEK_HOSTCORE_SYMBOLS(VEK_SC_FETCH_HOST)
    VEK_STORAGECORE_SYMBOLS(VEK_SC_FETCH_CORE)
#undef VEK_SC_FETCH_CORE
#undef VEK_SC_FETCH_HOST
#undef VEK_SC_FETCH
    return true;
}

void vekStorageCoreInterface::closeLibraries()
{
#define VEK_SC_CLEAR(name, type) name = nullptr;
    VEK_HOSTCORE_SYMBOLS(VEK_SC_CLEAR)
    VEK_STORAGECORE_SYMBOLS(VEK_SC_CLEAR)
#undef VEK_SC_CLEAR
    coreHandle.reset();
    hostHandle.reset();
}

bool vekStorageCoreInterface::Initialize()
{
    std::lock_guard<std::mutex> lock(initMutex_);
    if (initialized != 0) {
        return true;
    }
    hostHandle.reset(dlopen(hostLibrary_.c_str(), RTLD_NOW | RTLD_GLOBAL));
    if (!hostHandle) {
        VEK_LOG_ERROR(TAG, "Failed to load syscore host library to monitor SmartRAID devices: (%s)", dlerror());
        return false;
    }
    coreHandle.reset(dlopen(coreLibrary_.c_str(), RTLD_NOW | RTLD_GLOBAL));
    if (!coreHandle) {
        VEK_LOG_ERROR(TAG, "Failed to load storage core library to monitor SmartRAID devices: (%s)", dlerror());
        closeLibraries();
        return false;
    }
    if (!bindSymbols()) {
        closeLibraries();
        return false;
    }
    const SA_BYTE sysCore = InitializeSysCore(kStorageCoreAccessString);
    if (sysCore != kSysCoreOK) {
        VEK_LOG_ERROR(TAG, "Failed to initialize syscore host library. (ret: 0x%02x)", sysCore);
        closeLibraries();
        return false;
    }
    const SA_BYTE storageCore = InitializeStorageCore(kStorageCoreAccessString);
    if (storageCore != kStorageCoreOK) {
        VEK_LOG_ERROR(TAG, "Failed to initialize storage core library. (ret: 0x%02x)", storageCore);
        UnInitializeSysCore();
        closeLibraries();
        return false;
    }
    VEK_LOG_INFO(TAG, "Successfully initialized management libraries for SmartRAID devices.");
    initialized = 1;
    return true;
}

void vekStorageCoreInterface::UnInitialize()
{
    std::lock_guard<std::mutex> lock(initMutex_);
    if (initialized == 0) {
        return;
    }
    {
        std::lock_guard<std::mutex> cache(cacheMutex);
        controllers.clear();
    }
    UnInitializeStorageCore();
    UnInitializeSysCore();
    initialized = 0;
    closeLibraries();
}

// ---------------------------------------------------------------- controller list

void vekStorageCoreInterface::cacheBuild()
{
    if (initialized == 0) {
        return;
    }
    std::lock_guard<std::mutex> lock(cacheMutex);
    std::vector<SCI_CONTROLLER_METADATA_PTR> found;
    SC_DEVICE_LIST list = SC_CreateControllerDescriptorList();
    if (list == nullptr) {
        VEK_LOG_WARNING(TAG, "No controller descriptor list from the syscore host library.");
        controllers.clear();
        return;
    }
    SC_DEVICE_LIST_ITERATOR iterator = SC_CreateDeviceListIterator(list);
    for (; iterator != nullptr && !SC_IsDeviceListIteratorEnd(iterator); SC_MoveDeviceListIteratorNext(iterator)) {
        SC_DEVICE_DESCRIPTOR item = SC_GetDeviceListItemAt(iterator);
        SC_DEVICE_DESCRIPTOR copy = SC_CopyDeviceDescriptor(item);
        const SA_DWORD size = SA_GetCDASize();
        PCDA cda = _SA_malloc(size, __FILE__, __LINE__);
        const SA_WORD ret = cda != nullptr ? SA_InitializeCDA(cda, copy) : static_cast<SA_WORD>(kInitializeCDAFailed);
        if (ret != kInitializeCDASuccess) {
            VEK_LOG_ERROR(TAG, "Failed to initialize CDA for handle 0x%lX. (ret: 0x%hx)", handleOf(item), ret);
            if (cda != nullptr) {
                _SA_free(cda, __FILE__, __LINE__);
            }
            if (copy != nullptr) {
                _SA_free(copy, __FILE__, __LINE__);
            }
            continue;
        }
        auto metadata = std::make_shared<SCI_CONTROLLER_METADATA>(*this, copy, cda);
        char location[64] = {0};
        if (SA_GetControllerPCILocation(cda, location, sizeof location) != kSAOK) {
            VEK_LOG_ERROR(TAG, "Failed to get controller PCI location for handle 0x%lX. (%s)", handleOf(item),
                          metadata->pciLocation.c_str());
        } else {
            metadata->pciLocation = location;
        }
        SA_MANUFACTURING_DATA manufacturing;
        memset(&manufacturing, 0, sizeof manufacturing);
        if (SA_GetControllerManufacturingData(cda, &manufacturing) != kSAOK) {
            VEK_LOG_WARNING(TAG, "Failed to get manufacturing data for controller @ [%s], handle 0x%lX.",
                            metadata->pciLocation.c_str(), handleOf(item));
        }
        // A controller already known keeps its CDA: its events are registered on it.
        SCI_CONTROLLER_METADATA_PTR kept;
        for (const auto& known : controllers) {
            if (metadata->pciLocation != "UNKNOWN" && known->pciLocation == metadata->pciLocation) {
                kept = known;
            }
        }
        found.push_back(kept ? kept : metadata);
    }
    if (iterator != nullptr) {
        SC_DestroyDeviceListIterator(iterator);
    }
    SC_DestroyDeviceDescriptorList(list);
    controllers = found;
}

bool vekStorageCoreInterface::try_cache_lock()
{
    for (int attempt = 0; attempt < kCacheLockTries; ++attempt) {
        std::unique_lock<std::mutex> lock =
            vekLockWithin(cacheMutex, timeUtils::scaledAtLeast(kCacheLockWait, kCacheLockFloor));
        if (lock.owns_lock()) {
            lock.release();
            return true;
        }
        VEK_LOG_WARNING(TAG, "Failed to acquire lock.");
    }
    return false;
}

std::vector<SCI_CONTROLLER_METADATA_PTR> vekStorageCoreInterface::getControllerCollection()
{
    if (!try_cache_lock()) {
        return {};
    }
    std::vector<SCI_CONTROLLER_METADATA_PTR> copy = controllers;
    cache_unlock();
    return copy;
}

SCI_CONTROLLER_METADATA_PTR vekStorageCoreInterface::getControllerAt(const char* location)
{
    if (location == nullptr) {
        return nullptr;
    }
    for (const auto& metadata : getControllerCollection()) {
        if (metadata->pciLocation == location) {
            return metadata;
        }
    }
    return nullptr;
}
