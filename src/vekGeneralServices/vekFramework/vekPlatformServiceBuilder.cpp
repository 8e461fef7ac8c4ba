#include "vekPlatformServiceBuilder.h"

#include "IELEvent.h"
#include "SDRRepositoryCache.h"
#include "SMBIOSVMware.h"
#include "vekGlobalDef.h"
#include "vekIPMIService.h"
#include "vekInBandComManager.h"
#include "vekLog.h"

namespace {
const char TAG[] = "VEK_PLATFORM_SERVICE_BUILDER";
const int kPlatformTRB = 4;
} // namespace

std::vector<int> vekResourceManagerIdsFor(const std::string& osDescription)
{
    std::vector<int> ids{1, 0, 2, 3, 4, 5};
    if (osDescription.find("Linux") != std::string::npos) {
        ids.insert(ids.begin(), {6, 99, 8});
    }
    return ids;
}

vekPlatformServiceBuilderV1::vekPlatformServiceBuilderV1()
{
    Reset();
}

vekPlatformServiceBuilderV1::~vekPlatformServiceBuilderV1()
{
    delete services_;
}

void vekPlatformServiceBuilderV1::Reset()
{
    delete services_;
    services_ = new vekPlatformServices();
}

std::unique_ptr<vekPlatformServices> vekPlatformServiceBuilderV1::GetProduct()
{
    std::unique_ptr<vekPlatformServices> product(services_);
    services_ = nullptr;
    Reset();
    return product;
}

void vekPlatformServiceBuilderV1::BuildComInterface() const
{
    services_->SetCommunicationService(vekInBandComManager::getInstance(*services_->getvekSmbiosInterface()));
}

void vekPlatformServiceBuilderV1::BuildSmbios() const
{
    services_->SetSmbiosServiceInterface(new SMBIOSVMware());
}

void vekPlatformServiceBuilderV1::BuildGeoIdHelper() const
{
    // The GeoID helper is asked on demand by the managers; nothing to keep here.
}

void vekPlatformServiceBuilderV1::BuildEventMap() const
{
    int platform = -1;
    try {
        platform = services_->getPlatform();
    } catch (const std::exception& e) {
        VEK_LOG_WARNING(TAG, "Platform not known, the older event map applies: %s", e.what());
    }
    if (platform == kPlatformTRB) {
        services_->SetIELEventResolver(new IELEventMap::IELEventTRB());
    } else {
        services_->SetIELEventResolver(new IELEventMap::IELEventPreTRB());
    }
}

void vekPlatformServiceBuilderV1::BuildResourceManagerList() const
{
    VEK_LOG_DEBUG(TAG, "Building the Resource Manager List applicable to the Environment");
    const std::string os = vekGlobalDef::VMwareOSUtils::readHostOSDescription();
    VEK_LOG_DEBUG(TAG, "Target OS [%s]", os.c_str());
    services_->SetResourceManagerIds(vekResourceManagerIdsFor(os));
}

void vekPlatformServiceBuilderV1::BuildIPMISDRRepositoryCache() const
{
    services_->SetIPMISDRRepositoryCache(
        vekIPMI::SDRRepositoryCache::getInstance(vekIPMIService::getIPMIServiceInterface()));
}

void Director::BuildPreTRBServices()
{
    builder_->BuildSmbios();
    builder_->BuildComInterface();
    builder_->BuildGeoIdHelper();
    builder_->BuildEventMap();
    builder_->BuildResourceManagerList();
    builder_->BuildIPMISDRRepositoryCache();
}

std::unique_ptr<vekPlatformServices> vekPlatformServiceManager::getPlatformServices(int)
{
    Director director;
    std::unique_ptr<vekPlatformServiceBuilderV1> builder(new vekPlatformServiceBuilderV1());
    director.set_builder(builder.get());
    director.BuildPreTRBServices();
    std::unique_ptr<vekPlatformServices> services = builder->GetProduct();
    vekPlatformServices::setCurrent(services.get());
    return services;
}
