#include "vekPhysLocFactory.h"

#include "vekGQNWPhysLocInterface.h"
#include "vekLMPhysLocInterface.h"
#include "vekLog.h"
#include "vekMockPhysLocInterface.h"
#include "vekPlatformServices.h"
#include "vekTRBPhysLocInterface.h"

#include <atomic>
#include <mutex>

namespace {
const char TAG[] = "PL_FACTORY";
std::atomic<vekPhysLocInterface*> chosen{nullptr};
std::mutex factoryLock;
} // namespace

vekPhysLocInterface* vekPhysLocFactory::initializePhysLocInterface(GetInstanceFunction getInstance,
                                                                   const std::string& libraryPath, const char* name)
{
    try {
        vekPhysLocInterface* made = getInstance(libraryPath);
        VEK_LOG_INFO(TAG, "Successfully created %s PL interface object.", name);
        return made;
    } catch (const vekPhysLoc::vekPhysLocInterfaceException& e) {
        VEK_LOG_ERROR(TAG, "Failed to create %s PL interface object: %s! (%s)", name, libraryPath.c_str(), e.what());
        VEK_LOG_ERROR(TAG, "Physical location will be reported by VEK as FFFFFFFFFFFFFFFF for all FRUs.");
        return vekMockPhysLocInterface::getInstance();
    }
}

vekPhysLocInterface* vekPhysLocFactory::getPhysLocInterface()
{
    if (vekPhysLocInterface* known = chosen.load()) {
        return known;
    }
    std::lock_guard<std::mutex> lock(factoryLock);
    if (vekPhysLocInterface* known = chosen.load()) {
        return known;
    }
    const int platform = vekPlatformServices::getCachedPlatform();
    vekPhysLocInterface* made = nullptr;
    switch (platform) {
    case 4:
        made = initializePhysLocInterface(__vekTRBPhysLocInterface__getInstance, "libvekloc3.so", "TRB");
        break;
    case 2:
        made = initializePhysLocInterface(__vekLMPhysLocInterface__getInstance, "libvekloc1.so", "LM");
        break;
    case 0:
    case 1:
        made = initializePhysLocInterface(__vekGQNWPhysLocInterface__getInstance, "libvekloc2.so", "GQ/NW");
        break;
    default:
        VEK_LOG_WARNING(TAG,
                        "Unable to determine platform type [%d]. Physical location will be reported by VEK as "
                        "FFFFFFFFFFFFFFFF for all FRUs.",
                        platform);
        made = initializePhysLocInterface(__vekMockPhysLocInterface__getInstance, "Mock PL Library", "Mock");
        break;
    }
    chosen.store(made);
    return made;
}
