#pragma once

#include <json/json.h>

// The base of every inventory record: a record turns itself into the JSON of
// an event's variable data and into the JSON of the inventory.
class vekInventoryBase {
public:
    virtual Json::Value getVariableData() const = 0;
    virtual Json::Value getInventoryData() const = 0;
    virtual ~vekInventoryBase() = default;
};
