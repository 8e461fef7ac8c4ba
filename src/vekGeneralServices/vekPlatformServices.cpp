#include "vekPlatformServices.h"

#include "IELEvent.h"
#include "vekSmbiosInterface.h"

#include <utility>

vekPlatformServices::~vekPlatformServices()
{
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
