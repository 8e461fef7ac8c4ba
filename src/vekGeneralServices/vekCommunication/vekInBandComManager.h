#pragma once

#include "vekEvent.h"

#include <json/json.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

class vekInbandComInterface;
class vekPriorityDispatcherQueue;
class vekSmbiosInterface;

// The two questions the RMC answers through its doorbells.
class vekDoorBellInterface {
public:
    virtual ~vekDoorBellInterface() = default;
    virtual bool shouldLaunchFwSweep() = 0;
    virtual bool isTelemetryEnabledOnRMC() = 0;
};

// The one gateway of everything that goes to the RMC: inventory, events,
// utilization and application telemetry share one priority queue with a
// single worker ("VEK - IPMI Dispatch Queue"), so that the slow channel serves
// events first, then inventory, utilization and application telemetry.
// Producers never wait for the channel.
class vekInBandComManager : public vekDoorBellInterface {
public:
    // The protocols; only IPMI exists.
    enum comm { VEK_COMM_IPMI = 0 };

    // The singleton. The SMBIOS interface counts only at the first call. A
    // channel that cannot be opened is rethrown: nothing is half-made.
    static vekInBandComManager& getInstance(vekSmbiosInterface& smbios);

    bool shouldLaunchFwSweep() override;
    bool isTelemetryEnabledOnRMC() override;
    virtual void sendInventory(const std::string& json);
    virtual void sendEvent(const vekEvent& event);
    virtual void sendAppTelemetry(const std::string& json, std::function<void(int)> callback);
    virtual void sendUtilization(const std::string& json, std::function<void(int)> callback);
    virtual void initMessageHeader(const msgHeader& header);
    virtual void cleanUpDispatchQ();

    // Queues an event already rendered to JSON text.
    void sendEvent(std::string& json);

    // Compact JSON text (no indentation, no trailing newline).
    static std::string transformJson(Json::Value& value);

    // The envelope of one event, as the RMC receives it.
    void populateEventPayload(const vekEvent& event, Json::Value& payload);

    ~vekInBandComManager() override;
    vekInBandComManager(const vekInBandComManager&) = delete;
    vekInBandComManager& operator=(const vekInBandComManager&) = delete;

protected:
    // For tests: a manager of its own on the given channel (not owned), with
    // its own queue, outside the singleton.
    vekInBandComManager(vekInbandComInterface* transport, vekSmbiosInterface& smbios);

private:
    explicit vekInBandComManager(vekSmbiosInterface& smbios);
    void initalize(comm& protocol);
    void setMessageHeader(Json::Value& payload);
    void setBasicDetails(const vekEvent& event, Json::Value& payload);
    void setPhyloc(const vekEvent& event, Json::Value& payload);
    void setVariableData(const vekEvent& event, Json::Value& payload);

    vekInbandComInterface* transport_ = nullptr;
    vekSmbiosInterface& smbios_;
    msgHeader header_;
    std::unique_ptr<vekPriorityDispatcherQueue> queue_;
    std::mutex queueMutex_;
    bool ready_ = false;
};
