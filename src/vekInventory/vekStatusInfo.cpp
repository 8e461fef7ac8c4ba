#include "vekStatusInfo.h"

VEK_RESOURCE_STATE vekStatusInfo::getState() const
{
    return state;
}

void vekStatusInfo::setState(VEK_RESOURCE_STATE value)
{
    state = value;
}

VEK_RESOURCE_HEALTH vekStatusInfo::getHealth() const
{
    return health;
}

void vekStatusInfo::setHealth(VEK_RESOURCE_HEALTH value)
{
    health = value;
}

VEK_RESOURCE_STATE vekStatusInfo::getEventState() const
{
    return eventState;
}

void vekStatusInfo::setEventState(VEK_RESOURCE_STATE value)
{
    eventState = value;
}

VEK_RESOURCE_HEALTH vekStatusInfo::getEventHealth() const
{
    return eventHealth;
}

void vekStatusInfo::setEventHealth(VEK_RESOURCE_HEALTH value)
{
    eventHealth = value;
}

Json::Value vekStatusInfo::getVariableData() const
{
    return statusJson();
}

Json::Value vekStatusInfo::getInventoryData() const
{
    return statusJson();
}

Json::Value vekStatusInfo::statusJson() const
{
    Json::Value status(Json::objectValue);
    status["State"] = vekResourceStateMap[getState()];
    status["Health"] = vekResourceHealthMap[getHealth()];
    return status;
}
