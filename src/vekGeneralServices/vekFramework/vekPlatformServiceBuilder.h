#pragma once

#include "vekPlatformServices.h"

#include <memory>

// Puts the platform services together once, at service start: SMBIOS first
// (the communication manager and the event map depend on it), then the
// communication manager, the event map of the platform, the Resource Manager
// list of the host OS and the SDR cache.
class Builder {
public:
    virtual ~Builder() = default;
    virtual void BuildComInterface() const = 0;
    virtual void BuildSmbios() const = 0;
    virtual void BuildGeoIdHelper() const = 0;
    virtual void BuildEventMap() const = 0;
    virtual void BuildResourceManagerList() const = 0;
    virtual void BuildIPMISDRRepositoryCache() const = 0;
};

class vekPlatformServiceBuilderV1 : public Builder {
public:
    vekPlatformServiceBuilderV1();
    // Deletes what was built and not taken.
    ~vekPlatformServiceBuilderV1() override;

    vekPlatformServiceBuilderV1(const vekPlatformServiceBuilderV1&) = delete;
    vekPlatformServiceBuilderV1& operator=(const vekPlatformServiceBuilderV1&) = delete;

    // Starts a fresh, empty product.
    void Reset();
    // Hands the product over; the builder starts a fresh one.
    std::unique_ptr<vekPlatformServices> GetProduct();

    void BuildComInterface() const override;
    void BuildSmbios() const override;
    void BuildGeoIdHelper() const override;
    void BuildEventMap() const override;
    void BuildResourceManagerList() const override;
    void BuildIPMISDRRepositoryCache() const override;

private:
    vekPlatformServices* services_ = nullptr;
};

class Director {
public:
    void set_builder(Builder* builder) { builder_ = builder; }
    // The one build for every platform: the platforms differ in the event map.
    void BuildPreTRBServices();

private:
    Builder* builder_ = nullptr;
};

class vekPlatformServiceManager {
public:
    // The services of this host. The argument selects nothing. A channel to
    // the RMC that cannot be opened fails the whole build: nothing partial
    // is handed out.
    static std::unique_ptr<vekPlatformServices> getPlatformServices(int);
};

// The Resource Manager ids for a host OS description: Host first; on Linux the
// ids without a manager go ahead of the list (they must stay disabled).
std::vector<int> vekResourceManagerIdsFor(const std::string& osDescription);
