#pragma once

#include "vekInventoryBase.h"
#include "vekResourceStatus.h"

// State and health of a resource: the values of the current collection and
// the values last reported in an event, so that an event is raised only when
// the current value has moved away from the reported one. Its JSON, for the
// inventory and for events alike, is {"State": word, "Health": word}, written
// through the virtual getters so that a subclass decides what is printed.
class vekStatusInfo : public virtual vekInventoryBase {
public:
    vekStatusInfo() = default;

    virtual VEK_RESOURCE_STATE getState() const;
    virtual void setState(VEK_RESOURCE_STATE value);
    virtual VEK_RESOURCE_HEALTH getHealth() const;
    virtual void setHealth(VEK_RESOURCE_HEALTH value);
    virtual VEK_RESOURCE_STATE getEventState() const;
    virtual void setEventState(VEK_RESOURCE_STATE value);
    virtual VEK_RESOURCE_HEALTH getEventHealth() const;
    virtual void setEventHealth(VEK_RESOURCE_HEALTH value);

    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;

private:
    Json::Value statusJson() const;

    VEK_RESOURCE_STATE state = VEK_STATE_UNKNOWN;
    VEK_RESOURCE_HEALTH health = VEK_HEALTH_UNKNOWN;
    VEK_RESOURCE_STATE eventState = VEK_STATE_UNKNOWN;
    VEK_RESOURCE_HEALTH eventHealth = VEK_HEALTH_UNKNOWN;
};
