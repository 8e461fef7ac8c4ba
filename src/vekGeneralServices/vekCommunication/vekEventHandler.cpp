#include "vekEventHandler.h"

#include "IPMIUtils.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <thread>
#include <vector>

using vekGlobalDef::VMwareOSUtils;

namespace {

const char TAG[] = "EVT_HANDLER";

// The RMC can relate these to nothing but the host itself, so they need no
// inventory first.
const int kEventsBeforeInventory[] = {356, 359, 360, 434, 435, 1337, 1338, 1750, 1751, 1752};

} // namespace

bool vekEventHandler::passesBeforeFirstInventory(int eventId)
{
    return std::find(std::begin(kEventsBeforeInventory), std::end(kEventsBeforeInventory), eventId) !=
           std::end(kEventsBeforeInventory);
}

void vekEventHandler::generateEvent(vekEvent event)
{
    if (!vekJsonAggregator::getInstance().isInventorySent() && !passesBeforeFirstInventory(event.getEventID())) {
        // Dropped quietly: the RMC has nothing to relate it to yet.
        return;
    }
    try {
        std::thread worker(startEventGeneration, &event);
        worker.join();
    } catch (const std::exception&) {
        VEK_LOG_ERROR(TAG, "Unable to spawn a thread to handle event.");
    }
}

Json::Value vekEventHandler::buildEnvelope(const vekEvent& event)
{
    Json::Value payload(Json::objectValue);
    payload["HostName"] = VMwareOSUtils::readHostName();
    payload["OSVersion"] = VMwareOSUtils::readHostOSVersion();
    payload["OSType"] = VMwareOSUtils::getOSType();
    const std::vector<std::string> addresses = VMwareOSUtils::getIPAddress();
    if (!addresses.empty() && !addresses.front().empty()) {
        Json::Value address(Json::objectValue);
        address["Address"] = addresses.front();
        payload["IPv4Addresses"].append(address);
    }
    payload["ID"] = event.getEventID();
    payload["Source"] = event.getSource();
    payload["EventTime"] = event.getEventTime();
    if (event.hasPhysicalLocation()) {
        payload["PhysicalLocation"] = event.getPhyLoc();
    }
    if (!event.getVariableData().isNull()) {
        payload["VariableData"] = event.getVariableData();
    }
    return payload;
}

void* startEventGeneration(void* arg)
{
    const vekEvent& event = *static_cast<const vekEvent*>(arg);
    try {
        Json::Value payload = vekEventHandler::buildEnvelope(event);
        const std::string json = vekInBandComManager::transformJson(payload);
        VEK_LOG_INFO(TAG, "%s", json.c_str());
        vekEventHandler::sendEventToRMC(json);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Event [%d] not sent: %s", event.getEventID(), e.what());
    }
    return nullptr;
}

int vekEventHandler::sendEventToRMC(std::string json)
{
    int result = 1;
    try {
        ipmi::IPMIUtils utils;
        result = utils.RMC_CLI_Cmd_Execution("MPEventGen", json);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "No channel to the RMC: %s", e.what());
    }
    if (result == 1) {
        VEK_LOG_ERROR(TAG, "FAILURE in logging event to RMC");
    } else {
        VEK_LOG_DEBUG(TAG, "SUCCESS in delivering event to RMC");
    }
    return result;
}
