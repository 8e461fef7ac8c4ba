#include "vekPlatformServices.h"

#include "IELEvent.h"
#include "vekSmbiosInterface.h"

#include <atomic>
#include <exception>
#include <utility>

namespace {
std::atomic<vekPlatformServices*> currentServices{nullptr};
std::atomic<int> cachedPlatform{-1};
} // namespace

vekPlatformServices::~vekPlatformServices()
{
    vekPlatformServices* self = this;
    currentServices.compare_exchange_strong(self, nullptr);
    delete smbios_;
    delete eventResolver_;
}

std::vector<int> vekPlatformServices::getResourceManagerIds() const
{
    return resourceManagerIds_;
}

int vekPlatformServices::getPlatform() const
{
    return smbios_ != nullptr ? smbios_->platform() : -1;
}

std::string vekPlatformServices::getPlatformAsString() const
{
    return std::to_string(getPlatform());
}

void vekPlatformServices::SetCommunicationService(vekInBandComManager& manager)
{
    comManager_ = &manager;
}

void vekPlatformServices::SetSmbiosServiceInterface(vekSmbiosInterface* smbios)
{
    if (smbios != smbios_) {
        delete smbios_;
        smbios_ = smbios;
    }
}

void vekPlatformServices::SetIELEventResolver(IELEventResolver* resolver)
{
    if (resolver != eventResolver_) {
        delete eventResolver_;
        eventResolver_ = resolver;
    }
}

void vekPlatformServices::SetIPMISDRRepositoryCache(vekIPMI::SDRRepositoryCacheInterface& cache)
{
    sdrCache_ = &cache;
}

void vekPlatformServices::SetResourceManagerIds(std::vector<int> ids)
{
    resourceManagerIds_ = std::move(ids);
}

vekPlatformServices* vekPlatformServices::getCurrent()
{
    return currentServices.load();
}

void vekPlatformServices::setCurrent(vekPlatformServices* services)
{
    currentServices.store(services);
}

int vekPlatformServices::getCachedPlatform()
{
    int platform = cachedPlatform.load();
    if (platform != -1) {
        return platform;
    }
    vekPlatformServices* services = currentServices.load();
    if (services == nullptr) {
        return -1;
    }
    try {
        platform = services->getPlatform();
    } catch (const std::exception&) {
        // No identifier in the table: the platform is unknown.
        platform = -1;
    }
    if (platform != -1) {
        cachedPlatform.store(platform);
    }
    return platform;
}
