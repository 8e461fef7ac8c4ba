#pragma once

#include "vekNetworkEventManager.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class vekIODevicePortContext;

// One state of a port. Events come only out of real changes: a state asked
// to go where it is, or somewhere its table does not lead, stays silent.
class vekIODevicePortState {
public:
    explicit vekIODevicePortState(std::string name) : name_(std::move(name)) {}

    // Stores where the port came from; exec() decides the events by it.
    virtual void entry(const vekIODevicePortState& from) = 0;
    virtual void exit() = 0;
    // The actions of entering this state; 0 when done.
    virtual int exec() = 0;
    virtual void handleEvent(NetworkEvents event);
    virtual int32_t getStateID() const = 0;
    virtual std::string getStateName() { return name_; }
    virtual void setContext(vekIODevicePortContext* context);
    virtual std::shared_ptr<vekIODevicePortState> getNextState(const NetworkEvents& event) = 0;
    virtual ~vekIODevicePortState() = default;

protected:
    // Fires the event of a status through the port's event manager.
    void send(NetworkEvents event);
    // The state of the table's "stay": this very state, said in the log.
    std::shared_ptr<vekIODevicePortState> stay(const char* line);

    vekIODevicePortContext* context_ = nullptr;
    int32_t previousStateId = 0;
    std::string name_;
};

class portLinkupState : public vekIODevicePortState {
public:
    portLinkupState() : vekIODevicePortState("portLinkUpState") {}
    void entry(const vekIODevicePortState& from) override;
    void exit() override;
    int exec() override;
    int32_t getStateID() const override { return Port_Link_Up; }
    std::shared_ptr<vekIODevicePortState> getNextState(const NetworkEvents& event) override;
};

class portLinkdownState : public vekIODevicePortState {
public:
    portLinkdownState() : vekIODevicePortState("portLinkDownState") {}
    void entry(const vekIODevicePortState& from) override;
    void exit() override;
    int exec() override;
    int32_t getStateID() const override { return Port_Link_Down; }
    std::shared_ptr<vekIODevicePortState> getNextState(const NetworkEvents& event) override;
};

class portLinkInitializingState : public vekIODevicePortState {
public:
    portLinkInitializingState() : vekIODevicePortState("portLinkInitializingState") {}
    void entry(const vekIODevicePortState& from) override;
    void exit() override;
    int exec() override;
    int32_t getStateID() const override { return Port_Link_Initializing; }
    std::shared_ptr<vekIODevicePortState> getNextState(const NetworkEvents& event) override;
};

class portLinkDisabledState : public vekIODevicePortState {
public:
    portLinkDisabledState() : vekIODevicePortState("portLinkDisabledState") {}
    void entry(const vekIODevicePortState& from) override;
    void exit() override;
    int exec() override;
    int32_t getStateID() const override { return Port_Link_Disabled; }
    std::shared_ptr<vekIODevicePortState> getNextState(const NetworkEvents& event) override;
};

class portErrorState : public vekIODevicePortState {
public:
    portErrorState() : vekIODevicePortState("portErrorState") {}
    void entry(const vekIODevicePortState& from) override;
    void exit() override;
    int exec() override;
    int32_t getStateID() const override { return Port_Error; }
    std::shared_ptr<vekIODevicePortState> getNextState(const NetworkEvents& event) override;
};

// The state machine of one port. The state it starts in fires nothing, so a
// service start never floods the RMC with the ports as they are.
class vekIODevicePortContext {
public:
    vekIODevicePortContext(NetworkEvents initial, std::string device, vekNetworkEventManager* manager);
    virtual ~vekIODevicePortContext() = default;

    vekIODevicePortContext(const vekIODevicePortContext&) = delete;
    vekIODevicePortContext& operator=(const vekIODevicePortContext&) = delete;

    virtual void initializeIODevicePortStateMap();
    // The state of a status; empty for a value outside 0 to 4.
    virtual std::shared_ptr<vekIODevicePortState> getState(const NetworkEvents& event);

    // Feeds a status the poller computed; whatever goes wrong is logged and
    // the state stays.
    void handlePortStateChange(NetworkEvents event);
    void transitionPortState(std::shared_ptr<vekIODevicePortState> next);
    std::string getAssociatedDeviceName() const { return device_; }
    vekNetworkEventManager* getEventManager() const { return manager_; }
    // The id of the state the port is in now.
    int32_t getCurrentStateID() const { return current_->getStateID(); }

private:
    vekNetworkEventManager* manager_;
    std::string device_;
    std::shared_ptr<vekIODevicePortState> current_;
    std::map<NetworkEvents, std::shared_ptr<vekIODevicePortState>> states_;
};
