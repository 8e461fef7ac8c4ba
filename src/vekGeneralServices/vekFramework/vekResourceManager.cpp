#include "vekResourceManager.h"

void vekResourceManager::init(vekPlatformServices&)
{
    init();
}

bool vekResourceManager::getInventoryJsonObject2(int, std::vector<Json::Value>&)
{
    return false;
}

bool vekResourceManager::getTelemetryJsonObject(Json::Value&)
{
    return false;
}

bool vekResourceManager::getUtilizationJsonObject(Json::Value&)
{
    return false;
}

bool vekResourceManager::getFileServiceJsonObject(std::vector<Json::Value>&)
{
    return false;
}
