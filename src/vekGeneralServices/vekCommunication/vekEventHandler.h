#pragma once

#include "vekEvent.h"

#include <json/json.h>

#include <string>

// The service's own way to raise an event: the envelope is built afresh from
// the host and sent straight to the RMC as "MPEventGen", past the priority
// queue of the communication manager. Until the first inventory has gone out
// only the events the RMC can take without one are let through.
class vekEventHandler {
public:
    // Synchronous: returns when the event was sent (or dropped, or failed;
    // a failure is logged and the event is lost).
    static void generateEvent(vekEvent event);
    // Sends the text as "MPEventGen"; the status of the RMC CLI command, 1
    // when the event did not get through.
    static int sendEventToRMC(std::string json);

    // True for the event numbers that go out before the first inventory.
    static bool passesBeforeFirstInventory(int eventId);
    // The JSON envelope of an event, with the host's name, OS version and
    // type and first IPv4 address read afresh.
    static Json::Value buildEnvelope(const vekEvent& event);
};

// Thread body of one event: arg points at the vekEvent; builds the envelope,
// logs it and sends it. Returns null.
void* startEventGeneration(void* arg);
