#pragma once

#include <vector>

// What depends on the platform, put together once at service start and handed
// by reference to the job manager and every Resource Manager. Read-only once
// the managers run, so readers take no lock. Each field has a getter and a
// setter; owned fields are replaced and deleted by their setter, hence no
// copies of the object.
class vekPlatformServices {
public:
    vekPlatformServices() = default;
    vekPlatformServices(const vekPlatformServices&) = delete;
    vekPlatformServices& operator=(const vekPlatformServices&) = delete;

    // The Resource Manager ids of this platform, in start order.
    std::vector<int> getResourceManagerIds() const;
    void SetResourceManagerIds(std::vector<int> ids);

private:
    std::vector<int> resourceManagerIds_;
};
