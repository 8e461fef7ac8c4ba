// The port state machine on its own: which status changes become events, in
// which order, and which are swallowed.

#include "NICResourceManager/vekIODevicePortContext.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Writes down what the states ask of their event manager. Each status maps
// to an event id of its own (100 + status), so the order can be read back.
class RecordingEventManager : public vekNetworkEventManager {
public:
    void generateNetworkEvent(const std::string& device, const IELEVENT::IELEventId& id, const bool&) override
    {
        if (failSending) {
            throw std::runtime_error("event could not be built");
        }
        calls.push_back(device + ":" + vekNetworkEventName(static_cast<int>(id) - 100));
    }
    void postProcessingEventNotification(const std::string& device) override { calls.push_back(device + ":post"); }
    std::string getEventInfoDescription(const IELEVENT::IELEventId&) override { return ""; }
    void setEventPayloadAttributes(const NetworkEvents& event, const std::string&, IELEVENT::IELEventId& id,
                                   bool& serviceEvent) override
    {
        id = static_cast<IELEVENT::IELEventId>(100 + event);
        serviceEvent = event != Port_Link_Up && event != Port_NIC_OK;
    }

    std::vector<std::string> calls;
    bool failSending = false;
};

using Calls = std::vector<std::string>;

struct Step {
    NetworkEvents from;
    NetworkEvents event;
    NetworkEvents to;
    Calls calls;
};

// The whole transition table, one row per cell.
TEST(PortStateMachine, EveryCellOfTheTransitionTable)
{
    const Calls none;
    const Calls post{"vmnic0:post"};
    const std::vector<Step> table{
        {Port_Link_Up, Port_Link_Up, Port_Link_Up, none},
        {Port_Link_Up, Port_Link_Down, Port_Link_Down, {"vmnic0:Port_Link_Down", "vmnic0:post"}},
        {Port_Link_Up, Port_Link_Initializing, Port_Link_Up, none},
        {Port_Link_Up, Port_Link_Disabled, Port_Link_Disabled, post},
        {Port_Link_Up, Port_Error, Port_Error, {"vmnic0:Port_Error", "vmnic0:post"}},

        {Port_Link_Down, Port_Link_Up, Port_Link_Up, {"vmnic0:Port_Link_Up", "vmnic0:post"}},
        {Port_Link_Down, Port_Link_Down, Port_Link_Down, none},
        {Port_Link_Down, Port_Link_Initializing, Port_Link_Initializing, post},
        {Port_Link_Down, Port_Link_Disabled, Port_Link_Down, none},
        {Port_Link_Down, Port_Error, Port_Error, {"vmnic0:Port_Error", "vmnic0:post"}},

        {Port_Link_Initializing, Port_Link_Up, Port_Link_Up, {"vmnic0:Port_Link_Up", "vmnic0:post"}},
        {Port_Link_Initializing, Port_Link_Down, Port_Link_Down, {"vmnic0:Port_Link_Down", "vmnic0:post"}},
        {Port_Link_Initializing, Port_Link_Initializing, Port_Link_Initializing, none},
        {Port_Link_Initializing, Port_Link_Disabled, Port_Link_Disabled, post},
        {Port_Link_Initializing, Port_Error, Port_Error, {"vmnic0:Port_Error", "vmnic0:post"}},

        {Port_Link_Disabled, Port_Link_Up, Port_Link_Up, {"vmnic0:Port_Link_Up", "vmnic0:post"}},
        {Port_Link_Disabled, Port_Link_Down, Port_Link_Disabled, none},
        {Port_Link_Disabled, Port_Link_Initializing, Port_Link_Initializing, post},
        {Port_Link_Disabled, Port_Link_Disabled, Port_Link_Disabled, none},
        {Port_Link_Disabled, Port_Error, Port_Error, {"vmnic0:Port_Error", "vmnic0:post"}},

        {Port_Error, Port_Link_Up, Port_Link_Up, {"vmnic0:Port_NIC_OK", "vmnic0:Port_Link_Up", "vmnic0:post"}},
        {Port_Error, Port_Link_Down, Port_Link_Down, {"vmnic0:Port_Link_Down", "vmnic0:post"}},
        {Port_Error, Port_Link_Initializing, Port_Link_Initializing, post},
        {Port_Error, Port_Link_Disabled, Port_Link_Disabled, post},
        {Port_Error, Port_Error, Port_Error, none},
    };
    for (const Step& step : table) {
        SCOPED_TRACE(std::string(vekNetworkEventName(step.from)) + " + " + vekNetworkEventName(step.event));
        RecordingEventManager manager;
        vekIODevicePortContext port(step.from, "vmnic0", &manager);
        port.handlePortStateChange(step.event);
        EXPECT_EQ(port.getCurrentStateID(), step.to);
        EXPECT_EQ(manager.calls, step.calls);
    }
}

TEST(PortStateMachine, SequencesOfChanges)
{
    {
        // Down, Error, Up: the recovery comes before the link.
        RecordingEventManager manager;
        vekIODevicePortContext port(Port_Link_Up, "vmnic1", &manager);
        for (NetworkEvents e : {Port_Link_Down, Port_Error, Port_Link_Up}) {
            port.handlePortStateChange(e);
        }
        EXPECT_EQ(manager.calls, (Calls{"vmnic1:Port_Link_Down", "vmnic1:post", "vmnic1:Port_Error", "vmnic1:post",
                                        "vmnic1:Port_NIC_OK", "vmnic1:Port_Link_Up", "vmnic1:post"}));
    }
    {
        // Up, Disabled, Up: silent at the first step, an up event at the second.
        RecordingEventManager manager;
        vekIODevicePortContext port(Port_Link_Up, "vmnic2", &manager);
        port.handlePortStateChange(Port_Link_Disabled);
        port.handlePortStateChange(Port_Link_Up);
        EXPECT_EQ(manager.calls, (Calls{"vmnic2:post", "vmnic2:Port_Link_Up", "vmnic2:post"}));
    }
    {
        // A port that starts down and stays down says nothing at all.
        RecordingEventManager manager;
        vekIODevicePortContext port(Port_Link_Down, "vmnic3", &manager);
        port.handlePortStateChange(Port_Link_Down);
        port.handlePortStateChange(Port_Link_Down);
        EXPECT_TRUE(manager.calls.empty());
    }
}

TEST(PortStateMachine, StatusOutsideTheStatesIsRefusedAndTheStateStays)
{
    vekLogTail log(vekTestMainLogPath());
    RecordingEventManager manager;
    vekIODevicePortContext port(Port_Link_Down, "vmnic4", &manager);
    EXPECT_EQ(port.getState(Port_NIC_OK), nullptr);
    EXPECT_THROW(port.transitionPortState(nullptr), std::runtime_error);

    port.handlePortStateChange(Port_NIC_OK);
    EXPECT_EQ(port.getCurrentStateID(), Port_Link_Down);
    EXPECT_TRUE(manager.calls.empty());
    EXPECT_TRUE(log.contains("Exception caught! {Undefined IO Device Port State!!!}"));
}

TEST(PortStateMachine, EventThatCannotBeBuiltIsLostButTheNewStateHolds)
{
    vekLogTail log(vekTestMainLogPath());
    RecordingEventManager manager;
    vekIODevicePortContext port(Port_Link_Up, "vmnic5", &manager);
    manager.failSending = true;
    port.handlePortStateChange(Port_Link_Down);
    EXPECT_EQ(port.getCurrentStateID(), Port_Link_Down);
    EXPECT_TRUE(log.contains("Issue occurred in transitioning from one state to another state: event could not be built"));

    // The next change is judged from the new state.
    manager.failSending = false;
    port.handlePortStateChange(Port_Link_Up);
    EXPECT_EQ(manager.calls, (Calls{"vmnic5:Port_Link_Up", "vmnic5:post"}));
}

} // namespace
