#include "vekInBandComManager.h"

#include "vekGlobalDef.h"
#include "vekIPMIService.h"
#include "vekInbandComInterface.h"
#include "vekLog.h"
#include "vekPriorityDispatcherQueue.h"
#include "vekSmbiosInterface.h"

#include <exception>
#include <stdexcept>
#include <utility>

namespace {
const char TAG[] = "VEK_COM_MANAGER";
const char kQueueName[] = "VEK - IPMI Dispatch Queue";

// The platform code as text for the log line; the manager works whatever it is.
std::string platformText(vekSmbiosInterface& smbios)
{
    try {
        return std::to_string(smbios.platform());
    } catch (const std::exception& e) {
        VEK_LOG_WARNING(TAG, "Platform not known: %s", e.what());
        return "unknown";
    }
}
} // namespace

vekInBandComManager& vekInBandComManager::getInstance(vekSmbiosInterface& smbios)
{
    static vekInBandComManager instance(smbios);
    return instance;
}

vekInBandComManager::vekInBandComManager(vekSmbiosInterface& smbios) : smbios_(smbios)
{
    VEK_LOG_INFO(TAG, "Creating vekInBandComManager: platformId [%s]", platformText(smbios_).c_str());
    try {
        comm protocol = VEK_COMM_IPMI;
        initalize(protocol);
        ready_ = true;
    } catch (const std::runtime_error& e) {
        VEK_LOG_ERROR(TAG, "FAILURE in Initializing the Communication Channel [%s]", e.what());
        throw;
    } catch (...) {
        VEK_LOG_ERROR(TAG, "FAILURE in Initializing the Communication Channel & Dispatcher Queue");
        throw;
    }
}

vekInBandComManager::vekInBandComManager(vekInbandComInterface* transport, vekSmbiosInterface& smbios)
    : transport_(transport), smbios_(smbios), queue_(new vekPriorityDispatcherQueue(kQueueName, 1)), ready_(true)
{
}

vekInBandComManager::~vekInBandComManager()
{
    // What is queued but not started is lost with the queue.
    std::lock_guard<std::mutex> lock(queueMutex_);
    queue_.reset();
}

void vekInBandComManager::initalize(comm& protocol)
{
    VEK_LOG_INFO(TAG, "Initialize vekInBandComManager: protocol [%d]", static_cast<int>(protocol));
    if (protocol != VEK_COMM_IPMI) {
        VEK_LOG_ERROR(TAG, "NO Supporting Protocol - existing");
        throw std::runtime_error("NOT Initialized - Protocol Not supported");
    }
    transport_ = vekIPMIService::getInbandComInterface();
    queue_.reset(new vekPriorityDispatcherQueue(kQueueName, 1));
}

bool vekInBandComManager::shouldLaunchFwSweep()
{
    return transport_->readDoorBell(3) == 1;
}

bool vekInBandComManager::isTelemetryEnabledOnRMC()
{
    return transport_->readDoorBell(2) == 1;
}

void vekInBandComManager::sendInventory(const std::string& json)
{
    VEK_LOG_DEBUG(TAG, "Submit the Inventory to Dispatcher");
    vekInbandComInterface* transport = transport_;
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (queue_) {
        // A failing channel is not caught here: it ends the worker and with it
        // the process, which is how a dead IPMI channel is treated.
        queue_->dispatch([transport, json] { transport->sendData("WriteInventory", json); },
                         vekPriorityDispatcherQueue::VEK_PRIORITY_INVENTORY);
    }
}

void vekInBandComManager::sendEvent(const vekEvent& event)
{
    try {
        Json::Value payload(Json::objectValue);
        populateEventPayload(event, payload);
        std::string json = transformJson(payload);
        VEK_LOG_INFO(TAG, "Sending event through selected protocol - EventId [%d]\n%s", event.getEventID(),
                     json.c_str());
        sendEvent(json);
        VEK_LOG_INFO(TAG, "Sent - Successful");
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Failed to send the Event to RMC = [%d]", event.getEventID());
        throw std::runtime_error("Event NOT Delivered to RMC");
    }
}

void vekInBandComManager::sendEvent(std::string& json)
{
    VEK_LOG_DEBUG(TAG, "Submit the Event to Dispatch");
    vekInbandComInterface* transport = transport_;
    std::string text = json;
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (queue_) {
        queue_->dispatch([transport, text] { transport->sendData("MPEventGen", text); },
                         vekPriorityDispatcherQueue::VEK_PRIORITY_EVENT);
    }
}

void vekInBandComManager::sendAppTelemetry(const std::string& json, std::function<void(int)> callback)
{
    VEK_LOG_DEBUG(TAG, "Submit the Application Telemetry to Dispatch");
    vekInbandComInterface* transport = transport_;
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (queue_) {
        queue_->dispatch(
            [transport, json, callback] { transport->sendData("WriteAppTelemetry", json, callback); },
            vekPriorityDispatcherQueue::VEK_PRIORITY_APP_TELEMETRY);
    }
}

void vekInBandComManager::sendUtilization(const std::string& json, std::function<void(int)> callback)
{
    VEK_LOG_DEBUG(TAG, "Submit the Utilization Payload to the Dispatcher");
    vekInbandComInterface* transport = transport_;
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (queue_) {
        queue_->dispatch([transport, json, callback] { transport->sendData("WriteTelemetry", json, callback); },
                         vekPriorityDispatcherQueue::VEK_PRIORITY_UTILIZATION);
    }
}

void vekInBandComManager::initMessageHeader(const msgHeader& header)
{
    header_ = header;
    VEK_LOG_INFO(TAG, "vekInBandComManager: initialize Msg header [HostName = %s], [OSVersion = %s], [OSType = %d]",
                 header_.HostName.c_str(), header_.OSVersion.c_str(), header_.OSType);
}

void vekInBandComManager::cleanUpDispatchQ()
{
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (queue_) {
        queue_->cleanup();
    }
}

std::string vekInBandComManager::transformJson(Json::Value& value)
{
    VEK_LOG_DEBUG(TAG, "Transform Event obj to String");
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    std::string text = Json::writeString(writer, value);
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

void vekInBandComManager::populateEventPayload(const vekEvent& event, Json::Value& payload)
{
    const vekEvent copy = event;
    VEK_LOG_DEBUG(TAG, "Populate Event Payload - Start");
    setMessageHeader(payload);
    setBasicDetails(copy, payload);
    setPhyloc(copy, payload);
    setVariableData(copy, payload);
    VEK_LOG_DEBUG(TAG, "Populate Event Payload - Finished");
}

void vekInBandComManager::setMessageHeader(Json::Value& payload)
{
    VEK_LOG_DEBUG(TAG, "vekInBandComManager: initialize Msg header [IP Address = %s]", header_.IPAddress.c_str());
    payload["HostName"] = header_.HostName;
    payload["OSVersion"] = header_.OSVersion;
    payload["OSType"] = header_.OSType;
    if (!header_.IPAddress.empty()) {
        Json::Value address(Json::objectValue);
        address["Address"] = header_.IPAddress;
        payload["IPv4Addresses"].append(address);
    }
}

void vekInBandComManager::setBasicDetails(const vekEvent& event, Json::Value& payload)
{
    payload["ID"] = event.getEventID();
    payload["Source"] = event.getSource();
    payload["EventTime"] = event.getEventTime();
}

void vekInBandComManager::setPhyloc(const vekEvent& event, Json::Value& payload)
{
    VEK_LOG_DEBUG(TAG, "vekInBandComManager: initialize Msg [phyloc = %s]", event.getPhyLoc().c_str());
    if (event.hasPhysicalLocation()) {
        payload["PhysicalLocation"] = event.getPhyLoc();
    }
}

void vekInBandComManager::setVariableData(const vekEvent& event, Json::Value& payload)
{
    VEK_LOG_DEBUG(TAG, "vekInBandComManager: Set variable data");
    if (!event.getVariableData().isNull()) {
        payload["VariableData"] = event.getVariableData();
    }
}
