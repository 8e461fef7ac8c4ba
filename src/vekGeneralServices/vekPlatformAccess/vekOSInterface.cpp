#include "vekOSInterface.h"

#include "vekPlatformServices.h"
#include "vekSmbiosInterface.h"
#include "vekVmwareOSInterface.h"

#include <atomic>
#include <mutex>

namespace {
// The interface whose Initialize() ran, so that stopping never makes one.
std::atomic<vekOSInterface*> gInitialized{nullptr};
} // namespace

// What an OS does not offer: a host OS overrides the operations it has.

bool vekOSInterface::isExecuteCommandSuccessful(int status)
{
    return false;
}

int vekOSInterface::executeCommandAndFetchOutput(const std::string& command, std::vector<std::string>& output)
{
    throw std::runtime_error("Not Implemented!!");
}

vekNICInterface* vekOSInterface::getNICInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekGeoIDOSInterface* vekOSInterface::getGeoIDInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekSubModulesInterface* vekOSInterface::getNvdimmInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekSmbiosInterface& vekOSInterface::getSmbiosInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekFCInterface* vekOSInterface::getFCInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekSubModulesInterface* vekOSInterface::getIBInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekSubModulesInterface* vekOSInterface::getPerformanceTMInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekPCIeManufacturerResolver* vekOSInterface::getPCIeManufacturerResolverInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekSubModulesInterface* vekOSInterface::getTPMInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekSubModulesInterface* vekOSInterface::getStorageInterface()
{
    throw osi_exceptions::osi_not_implemeted();
}

vekOSInterface* vekSystemInterfaceFactory::getSystemInterface()
{
    vekPlatformServices* services = vekPlatformServices::getCurrent();
    if (services == nullptr || services->getvekSmbiosInterface() == nullptr) {
        return nullptr;
    }
    static std::once_flag initialized;
    vekOSInterface& os = vekVmwareOSInterface::getInstance(*services->getvekSmbiosInterface());
    // The PCI list the per-resource interfaces read, written once for all.
    std::call_once(initialized, [&os] {
        os.Initialize();
        gInitialized = &os;
    });
    return &os;
}

void vekSystemInterfaceFactory::unInitializeSystemInterface()
{
    if (vekOSInterface* os = gInitialized.load()) {
        os->UnInitialize();
    }
}
