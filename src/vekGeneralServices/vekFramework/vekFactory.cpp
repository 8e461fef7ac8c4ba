#include "vekFactory.h"

#include "FCResourceManager/FCResourceManager.h"
#include "GPUResourceManager/GPUResourceManager.h"
#include "HostResourceManager/HostResourceManager.h"
#include "NICResourceManager/NICResourceManager.h"
#include "NVMeResourceManager/NVMeResourceManager.h"
#include "SASResourceManager.h"
#include "vekResourceIds.h"

vekResourceManager* vekFactory::createInstance(int id)
{
    // One case per manager (ids of vekResourceIds), each returning its
    // getInstance(). This switch is the one place that knows which ids have
    // a manager.
    switch (id) {
    case vekResourceIds::FIBRE_CHANNEL:
        return &FCResourceManager::getInstance();
    case vekResourceIds::HOST:
        return &HostResourceManager::getInstance();
    case vekResourceIds::STORAGE:
        return &SASResourceManager::getInstance();
    case vekResourceIds::ETHERNET:
        return &NICResourceManager::getInstance();
    case vekResourceIds::GPU:
        return &GPUResourceManager::getInstance();
    case vekResourceIds::NVME:
        return &NVMeResourceManager::getInstance();
    default:
        return nullptr;
    }
}
