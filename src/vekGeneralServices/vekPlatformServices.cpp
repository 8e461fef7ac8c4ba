#include "vekPlatformServices.h"

#include <utility>

std::vector<int> vekPlatformServices::getResourceManagerIds() const
{
    return resourceManagerIds_;
}

void vekPlatformServices::SetResourceManagerIds(std::vector<int> ids)
{
    resourceManagerIds_ = std::move(ids);
}
