// The port state machine on its own: which status changes become events, in
// which order, and which are swallowed.

#include "NICResourceManager/vekIODevicePortContext.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Writes down what the states ask of their event manager, one word a call:
// the status of the event, or "post". The event id is 100 + the status, so
// the status can be read back from what reached the sender.
class RecordingEventManager : public vekNetworkEventManager {
public:
    void generateNetworkEvent(const std::string& device, const IELEVENT::IELEventId& id, const bool& service) override
    {
        const NetworkEvents event = static_cast<NetworkEvents>(static_cast<int>(id) - 100);
        if (event == failOn) {
            throw std::runtime_error("event could not be built");
        }
        record(device, vekNetworkEventName(event) + std::string(service ? "!" : ""));
    }
    void postProcessingEventNotification(const std::string& device) override { record(device, "post"); }
    std::string getEventInfoDescription(const IELEVENT::IELEventId&) override { return ""; }
    void setEventPayloadAttributes(const NetworkEvents& event, const std::string&, IELEVENT::IELEventId& id,
                                   bool& service) override
    {
        id = static_cast<IELEVENT::IELEventId>(100 + event);
        service = event != Port_Link_Up && event != Port_NIC_OK;
    }

    void record(const std::string& device, const std::string& word)
    {
        EXPECT_EQ(device, "vmnic0");
        calls += (calls.empty() ? "" : " ") + word;
    }

    std::string calls;
    NetworkEvents failOn = Not_Found;
};

// "!" marks a service event.
const char* const kDown = "Port_Link_Down! post";
const char* const kError = "Port_Error! post";
const char* const kUp = "Port_Link_Up post";

// The whole transition table, one row per cell.
TEST(PortStateMachine, EveryCellOfTheTransitionTable)
{
    const NetworkEvents U = Port_Link_Up, D = Port_Link_Down, I = Port_Link_Initializing, X = Port_Link_Disabled,
                        E = Port_Error;
    const struct {
        NetworkEvents from, event, to;
        const char* calls;
    } table[] = {
        {U, U, U, ""},    {U, D, D, kDown}, {U, I, U, ""},     {U, X, X, "post"}, {U, E, E, kError},
        {D, U, U, kUp},   {D, D, D, ""},    {D, I, I, "post"}, {D, X, D, ""},     {D, E, E, kError},
        {I, U, U, kUp},   {I, D, D, kDown}, {I, I, I, ""},     {I, X, X, "post"}, {I, E, E, kError},
        {X, U, U, kUp},   {X, D, X, ""},    {X, I, I, "post"}, {X, X, X, ""},     {X, E, E, kError},
        {E, U, U, "Port_NIC_OK Port_Link_Up post"},
        {E, D, D, kDown}, {E, I, I, "post"}, {E, X, X, "post"}, {E, E, E, ""},
    };
    for (const auto& cell : table) {
        SCOPED_TRACE(std::string(vekNetworkEventName(cell.from)) + " + " + vekNetworkEventName(cell.event));
        RecordingEventManager manager;
        vekIODevicePortContext port(cell.from, "vmnic0", &manager);
        port.handlePortStateChange(cell.event);
        EXPECT_EQ(port.getCurrentStateID(), cell.to);
        EXPECT_EQ(manager.calls, cell.calls);
    }
}

TEST(PortStateMachine, StatusOutsideTheStatesIsRefusedAndTheStateStays)
{
    vekLogTail log(vekTestMainLogPath());
    RecordingEventManager manager;
    vekIODevicePortContext port(Port_Link_Down, "vmnic0", &manager);
    EXPECT_EQ(port.getState(Port_NIC_OK), nullptr);
    EXPECT_THROW(port.transitionPortState(nullptr), std::runtime_error);

    port.handlePortStateChange(Port_NIC_OK);
    EXPECT_EQ(port.getCurrentStateID(), Port_Link_Down);
    EXPECT_EQ(manager.calls, "");
    EXPECT_TRUE(log.contains("Exception caught! {Undefined IO Device Port State!!!}"));
}

// An event that cannot be built ends its transition: neither a later event
// of the same change nor the inventory update follows, but the new state
// holds and judges the next change.
TEST(PortStateMachine, EventThatCannotBeBuiltEndsTheTransition)
{
    const struct {
        NetworkEvents failOn;
        const char* calls;
    } cases[] = {{Port_NIC_OK, ""}, {Port_Link_Up, "Port_NIC_OK"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(vekNetworkEventName(c.failOn));
        vekLogTail log(vekTestMainLogPath());
        RecordingEventManager manager;
        vekIODevicePortContext port(Port_Error, "vmnic0", &manager);
        manager.failOn = c.failOn;
        port.handlePortStateChange(Port_Link_Up);
        EXPECT_EQ(port.getCurrentStateID(), Port_Link_Up);
        EXPECT_EQ(manager.calls, c.calls);
        EXPECT_TRUE(
            log.contains("Issue occurred in transitioning from one state to another state: event could not be built"));

        manager.calls.clear();
        port.handlePortStateChange(Port_Link_Down);
        EXPECT_EQ(manager.calls, kDown);
    }
}

} // namespace
