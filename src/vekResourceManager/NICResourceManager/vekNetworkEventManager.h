#pragma once

#include "IELEvent.h"

#include <string>

// The statuses a port reports. Values 0 to 4 are also the states of the port
// state machine; Port_NIC_OK only ever travels as an event.
enum NetworkEvents : int {
    Port_Link_Up = 0,
    Port_Link_Down = 1,
    Port_Link_Initializing = 2,
    Port_Link_Disabled = 3,
    Port_Error = 4,
    Port_NIC_OK = 5,
    Admin_Up_Link_Down = 6, // never sent
    Not_Found = 7,          // not a port status; never fed to a state machine
};

// The name of a status for log lines; "Not_Found" for a value outside the list.
const char* vekNetworkEventName(int event);

// Where the port states send what they decide: an event to build and send,
// and the inventory update after every real change.
class vekNetworkEventManager {
public:
    virtual ~vekNetworkEventManager() = default;
    // Throws when the event cannot be built, which ends the transition that
    // asked for it; a failed hand-over to the RMC is only logged.
    virtual void generateNetworkEvent(const std::string& device, const IELEVENT::IELEventId& id,
                                      const bool& serviceEvent) = 0;
    virtual void postProcessingEventNotification(const std::string& device) = 0;
    virtual std::string getEventInfoDescription(const IELEVENT::IELEventId& id) = 0;
    // The internal event id and severity of a status change of the device.
    virtual void setEventPayloadAttributes(const NetworkEvents& event, const std::string& device,
                                           IELEVENT::IELEventId& id, bool& serviceEvent) = 0;
};
