#pragma once

#include <string>
#include <vector>

class IELEventResolver;
class vekInBandComManager;
class vekSmbiosInterface;
namespace vekIPMI {
class SDRRepositoryCacheInterface;
}

// What depends on the platform, put together once at service start and handed
// by reference to the job manager and every Resource Manager. Read-only once
// the managers run, so readers take no lock. Owned fields (the SMBIOS
// interface, the event resolver) are replaced and deleted by their setter,
// hence no copies of the object; the others are singletons.
class vekPlatformServices {
public:
    vekPlatformServices() = default;
    ~vekPlatformServices();
    vekPlatformServices(const vekPlatformServices&) = delete;
    vekPlatformServices& operator=(const vekPlatformServices&) = delete;

    vekInBandComManager* getInbandComInterface() const { return comManager_; }
    vekSmbiosInterface* getvekSmbiosInterface() const { return smbios_; }
    IELEventResolver* getIELEventResolver() const { return eventResolver_; }
    // The Resource Manager ids of this platform, in start order.
    std::vector<int> getResourceManagerIds() const;
    vekIPMI::SDRRepositoryCacheInterface* getIPMISDRRepositoryCache() const { return sdrCache_; }
    // The platform code of the SMBIOS interface (-1 unknown); -1 without one.
    int getPlatform() const;
    std::string getPlatformAsString() const;

    void SetCommunicationService(vekInBandComManager& manager);
    void SetSmbiosServiceInterface(vekSmbiosInterface* smbios);
    void SetIELEventResolver(IELEventResolver* resolver);
    void SetIPMISDRRepositoryCache(vekIPMI::SDRRepositoryCacheInterface& cache);
    void SetResourceManagerIds(std::vector<int> ids);

    // The services of this process, for what is built on first use far from
    // the start path (the location singletons). The manager sets it when it
    // builds them; a test that puts its own together sets it itself. Null
    // before, and again once that object is gone.
    static vekPlatformServices* getCurrent();
    static void setCurrent(vekPlatformServices* services);
    // The platform type of the current services, asked once and kept. -1
    // (unknown, or no services yet) is not kept: the next call asks again.
    static int getCachedPlatform();

private:
    vekSmbiosInterface* smbios_ = nullptr;
    vekInBandComManager* comManager_ = nullptr;
    IELEventResolver* eventResolver_ = nullptr;
    std::vector<int> resourceManagerIds_;
    vekIPMI::SDRRepositoryCacheInterface* sdrCache_ = nullptr;
};
