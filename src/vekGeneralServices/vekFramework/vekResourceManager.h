#pragma once

#include <json/json.h>

#include <vector>

class vekPlatformServices;

// The abstract Resource Manager. Every manager is a singleton that the job
// manager runs on a thread of its own through init(vekPlatformServices&);
// the aggregator reads the inventory through the getters. The order of the
// virtual operations is fixed.
class vekResourceManager {
public:
    // Signals the manager's thread to stop and waits for it to finish or
    // time out.
    virtual void stopResourceManagerJob() = 0;
    virtual void init() = 0;
    // The thread body; the base simply runs init().
    virtual void init(vekPlatformServices& services);
    // True when the vector got the backup copy because a build is running.
    virtual bool getInventoryJsonObject(std::vector<Json::Value>& inventory) = 0;
    // Typed parts of a manager with several record kinds; nothing by default.
    virtual bool getInventoryJsonObject2(int type, std::vector<Json::Value>& inventory);
    virtual bool getTelemetryJsonObject(Json::Value& telemetry);
    virtual bool getUtilizationJsonObject(Json::Value& utilization);
    virtual bool getFileServiceJsonObject(std::vector<Json::Value>& fileServices);
    virtual bool isRunning() = 0;
    virtual bool isInventoryReady(int iteration) = 0;

protected:
    vekResourceManager() = default;
    // The managers are singletons that live until process exit; nobody
    // deletes one through this base.
    ~vekResourceManager() = default;
};
