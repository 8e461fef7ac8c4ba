#include "vekServer.h"

#include "FCResourceManager/FCResourceManager.h"
#include "HostResourceManager/HostResourceManager.h"
#include "IELEvent.h"
#include "NICResourceManager/NICResourceManager.h"
#include "NVMeResourceManager/NVMeResourceManager.h"
#include "SASResourceManager.h"
#include "vekConfig.h"
#include "vekEvent.h"
#include "vekGlobalDef.h"
#include "vekInBandComManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekPlatformServices.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

using vekGlobalDef::stringUtils;
using vekGlobalDef::VMwareOSUtils;
using vekIPMI::UniqueFd;

namespace {

const char TAG[] = "VEK_SERVER";

const std::chrono::milliseconds kPollTimeout(5000);
// However fast time runs, the idle loop need not spin.
const std::chrono::milliseconds kPollTimeoutFloor(100);

const uint16_t kTestEvent = 256;
const uint16_t kTestEventAlias = 257;
const uint16_t kJsonEvent = 258;
const uint16_t kSaveInventory = 259;
const uint16_t kResponse = 0;

const char kSource[] = "VEK-CLI";
const char kModule[] = "TESTEVENT";

// Event kinds by family. Only the machine's own events (1 the service's,
// 2 the host's) stand for the whole machine; every other event names its
// device through its physical location alone, so a JSON event of a device
// family without one would reach the RMC unplaced. Kinds whose device is not
// named in this code base count as other devices (7): they must be placed.
using namespace IELEVENT;
const std::vector<std::pair<int, std::vector<IELEventId>>> kEventFamilies = {
    {1, {IEL_EVENT_2, IEL_EVENT_3, IEL_EVENT_4, IEL_EVENT_5, IEL_EVENT_6}},
    {2, {IEL_EVENT_44, IEL_EVENT_45, IEL_EVENT_46, IEL_EVENT_47, IEL_EVENT_48}},
    {3, {IEL_NIC_PORT_OK, IEL_NIC_PORT_ERROR, IEL_NIC_PORT_LINK_DOWN, IEL_NIC_PORT_LINK_UP}},
    {4, {IEL_EVENT_15, IEL_FC_PORT_ONLINE, IEL_FC_PORT_OFFLINE, IEL_FC_PORT_LINK_DOWN, IEL_FC_PORT_FAILED, IEL_EVENT_20,
         IEL_FC_PORT_LINK_UP}},
    {5, {IEL_STORAGE_CONTROLLER_OK, IEL_STORAGE_CONTROLLER_FAULT, IEL_DRIVE_OK, IEL_DRIVE_FAILED,
         IEL_DRIVE_PREDICTIVE_FAILURE, IEL_LOGICAL_DISK_DEGRADED, IEL_LOGICAL_DISK_OPTIMAL, IEL_CONSISTENCY_CHECK_FAILED,
         IEL_CONSISTENCY_CHECK_WARNING, IEL_CONSISTENCY_CHECK_PASSED, IEL_EVENT_39, IEL_EVENT_40, IEL_EVENT_41,
         IEL_EVENT_42, IEL_EVENT_43}},
    {6, {IEL_NVME_CONTROLLER_OK, IEL_NVME_CONTROLLER_CRITICAL, IEL_NVME_CONTROLLER_WARNING}},
    {7, {IEL_EVENT_31, IEL_EVENT_32, IEL_EVENT_33, IEL_EVENT_34, IEL_EVENT_35, IEL_EVENT_36, IEL_EVENT_37, IEL_EVENT_38,
         IEL_EVENT_49, IEL_EVENT_50}},
};

const char* const kRequiredMembers[] = {"EventTime", "HostName", "ID", "IPv4Addresses", "OSType", "OSVersion", "Source"};

// Opens one of the server's own pipes for reading. Open for writing too, so
// that the pipe never reads as hung up between two clients.
UniqueFd openServerPipe(const std::string& path, const char* failure)
{
    UniqueFd fd;
    struct stat info;
    if (vekCreatePipe(path.c_str())) {
        fd.reset(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
    if (!fd.valid() || ::fstat(fd.get(), &info) != 0 || !S_ISFIFO(info.st_mode)) {
        VEK_LOG_ERROR(TAG, "VEK Server: Open of pipe %s failed.", path.c_str());
        ::unlink(path.c_str());
        throw std::runtime_error(failure);
    }
    return fd;
}

vekInBandComManager& communicationOf(vekPlatformServices* services)
{
    vekInBandComManager* manager = services != nullptr ? services->getInbandComInterface() : nullptr;
    if (manager == nullptr) {
        throw std::runtime_error("VEK Server: no communication manager to send the event through.");
    }
    return *manager;
}

} // namespace

vekServer& vekServer::getInstance()
{
    static vekServer instance;
    return instance;
}

vekServer::~vekServer()
{
    // Reached only at process exit, when nobody stopped the server.
    if (thread_.joinable()) {
        signalStop();
        thread_.join();
    }
}

std::string vekServer::serverPipePath()
{
    return vekConfig::getEnv() + "/var/run/zolvek";
}

std::string vekServer::clientPipePath()
{
    return vekConfig::getEnv() + "/var/run/zolvekcli";
}

void vekServer::initializeVEKServer(vekPlatformServices* services)
{
    if (thread_.joinable()) {
        VEK_LOG_WARNING(TAG, "VEK Server: Server is already running.");
        return;
    }
    services_ = services;
    stop_ = false;
    try {
        thread_ = std::thread(&vekServer::startVekTestEventServer, this);
    } catch (const std::system_error& e) {
        VEK_LOG_ERROR(TAG, "VEK Server: Error: [%s]", e.what());
    }
}

bool vekServer::signalStop()
{
    stop_ = true;
    // Before its pipes are open the thread looks at the flag before it polls;
    // once they are, the byte wakes the poll.
    std::lock_guard<std::mutex> lock(pipesMutex_);
    const char wake = 1;
    return !shutdownWriteFd_.valid() || ::write(shutdownWriteFd_.get(), &wake, 1) == 1;
}

void vekServer::stopVEKServer()
{
    VEK_LOG_INFO(TAG, "Stopping VEK Server.");
    if (!thread_.joinable()) {
        VEK_LOG_WARNING(TAG, "VEK Server: Server can't be stopped as it hasn't been spawn yet.");
        return;
    }
    if (!signalStop()) {
        VEK_LOG_ERROR(TAG, "Failed to write to vekServerShutdownPipe.");
    }
    try {
        thread_.join();
    } catch (const std::system_error&) {
        VEK_LOG_ERROR(TAG, "VEK Server: Unable to join server thread.");
    }
}

void vekServer::startVekTestEventServer()
{
    VEK_LOG_INFO(TAG, "VEK Server Thread started.");
    try {
        initializeServerPipes();
        runVEKServerOperations();
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "VEK Server: Error: [%s]", e.what());
    }
    closeServerPipes();
}

void vekServer::initializeServerPipes()
{
    std::lock_guard<std::mutex> lock(pipesMutex_);
    serverFd_ = openServerPipe(serverPipePath(), "Initialization of VEK Server pipe failed.");
    int ends[2];
    if (::pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) {
        VEK_LOG_ERROR(TAG, "VEK Server: Open of pipe %s failed.", "(anonymous shutdown pipe)");
        throw std::runtime_error("Initialization of VEK Server Shutdown pipe failed.");
    }
    shutdownFd_.reset(ends[0]);
    shutdownWriteFd_.reset(ends[1]);
}

void vekServer::closeServerPipes()
{
    std::lock_guard<std::mutex> lock(pipesMutex_);
    // Gone rather than left unread: a client then finds no server instead of
    // waiting on a pipe nobody reads.
    if (serverFd_.valid()) {
        ::unlink(serverPipePath().c_str());
    }
    serverFd_.reset();
    shutdownFd_.reset();
    shutdownWriteFd_.reset();
}

void vekServer::runVEKServerOperations()
{
    while (!stop_) {
        pollfd fds[2] = {{serverFd_.get(), POLLIN, 0}, {shutdownFd_.get(), POLLIN, 0}};
        if (pollPipeFds(fds) <= 0 || stop_) {
            continue;
        }
        if ((fds[0].revents | fds[1].revents) & (POLLERR | POLLNVAL)) {
            throw std::runtime_error("VEK Server: a server pipe failed.");
        }
        if (fds[1].revents & POLLIN) {
            char wake[64];
            while (::read(shutdownFd_.get(), wake, sizeof(wake)) > 0) {
            }
        }
        if (fds[0].revents & POLLIN) {
            interactWithClient();
        }
    }
    VEK_LOG_INFO(TAG, "VEK Server signalled for stop. Closing server pipe");
}

int vekServer::pollPipeFds(pollfd (&fds)[2])
{
    const int timeout = static_cast<int>(vekGlobalDef::timeUtils::scaledAtLeast(kPollTimeout, kPollTimeoutFloor).count());
    const int ready = ::poll(fds, 2, timeout);
    const int error = errno;
    if (ready > 0) {
        VEK_LOG_DEBUG(TAG, "VEK Server: Number of pipes ready = %d", ready);
    } else if (ready == 0) {
        VEK_LOG_DEBUG(TAG, "VEK Server: Polling timed out");
    } else if (error != EINTR) {
        VEK_LOG_ERROR(TAG, "VEK Server: Error polling named pipe");
        throw std::runtime_error(VMwareOSUtils::getErrorDescription(error));
    }
    return ready;
}

void vekServer::interactWithClient()
{
    std::unique_ptr<_VEK_MESSAGE_PACKET> messageFromClient(new (std::nothrow) _VEK_MESSAGE_PACKET);
    if (!messageFromClient) {
        VEK_LOG_ERROR(TAG,
                      "VEK Server: Failed to initialize messageFromClient pointer. Error: [Memory allocation error].");
        return;
    }
    if (!receiveClientMessage(*messageFromClient)) {
        return;
    }
    const uint16_t code = messageFromClient->header.messageCode;
    int64_t result = -1;
    try {
        // A C client sends its text with the terminating NUL.
        const std::string& payload = messageFromClient->payload;
        const std::string text = payload.substr(0, payload.find('\0'));
        if (code == kTestEvent || code == kTestEventAlias) {
            result = sendTestEvent(text);
        } else if (code == kJsonEvent) {
            result = sendJsonPayload(text);
        } else if (code == kSaveInventory) {
            result = saveInventory(text);
        } else {
            VEK_LOG_ERROR(TAG, "Unhandled message code: %u", static_cast<unsigned>(code));
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Encountered exception: %s", e.what());
    }
    sendClientResponse(messageFromClient->header.clientPID, result);
}

bool vekServer::receiveClientMessage(_VEK_MESSAGE_PACKET& message)
{
    // The server's own descriptor: reading it cannot meet a pipe replaced
    // under the path.
    return vekReadPipe(serverFd_.get(), &message);
}

void vekServer::sendClientResponse(uint32_t clientPID, int64_t result)
{
    const std::string path = clientPipePath();
    VEK_LOG_DEBUG(TAG, "VEK Server: Writing to the response named pipe. pipe= %s", path.c_str());
    _VEK_MESSAGE_PACKET response;
    response.header.messageCode = kResponse;
    response.header.clientPID = clientPID;
    const uint64_t bits = static_cast<uint64_t>(result);
    for (int i = 0; i < 8; ++i) {
        response.payload.push_back(static_cast<char>(bits >> (8 * i)));
    }
    if (vekCreatePipe(path.c_str())) {
        vekWritePipe(path.c_str(), &response);
    }
}

int vekServer::sendTestEvent(const std::string& text)
{
    int eventId = 0;
    int resource = 0;
    std::string details;
    getEventInfo(text, eventId, resource, details);
    return generateTestEvent(eventId, resource, details) ? 0 : -1;
}

void vekServer::getEventInfo(const std::string& text, int& eventId, int& resource, std::string& details) const
{
    const std::string line = stringUtils::trim(text);
    const size_t blank = line.find(' ');
    eventId = std::stoi(line.substr(0, blank));
    const std::string rest = blank == std::string::npos ? "" : stringUtils::trim(line.substr(blank + 1));
    const size_t next = rest.find(' ');
    resource = std::stoi(rest.substr(0, next));
    details = next == std::string::npos ? "" : stringUtils::trim(rest.substr(next + 1));
}

bool vekServer::generateTestEvent(int eventId, int resource, const std::string& details)
{
    bool generated = false;
    try {
        switch (resource) {
        case 1:
            generateServerTestEvent(eventId);
            generated = true;
            break;
        case 2:
            HostResourceManager::getInstance().generateTestEvent(eventId);
            generated = true;
            break;
        case 3:
            NICResourceManager::getInstance().generateTestEvent(eventId, details);
            generated = true;
            break;
        case 4:
            FCResourceManager::getInstance().generateTestEvent(eventId, details);
            generated = true;
            break;
        case 5:
            generated = SASResourceManager::getInstance().generateTestEvent(eventId, details, false);
            break;
        case 6:
            generated = NVMeResourceManager::getInstance().generateTestEvent(eventId, details, false);
            break;
        case 7:
            return true;
        default:
            VEK_LOG_ERROR(TAG, "VEK Server: Invalid eventId.");
            return false;
        }
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "Test event [%d] for resource %d failed: %s", eventId, resource, e.what());
    }
    if (!generated) {
        VEK_LOG_ERROR(TAG, "Error generating event, check the logs of respective resource manager for further details.");
    }
    return generated;
}

void vekServer::generateServerTestEvent(int eventId)
{
    Json::Value variableData(Json::objectValue);
    variableData["EventInfo"] = "VEK Test Event";
    variableData["Type"] = "Test Event";
    communicationOf(services_).sendEvent(
        vekEvent(eventId, kModule, false, VMwareOSUtils::getDateTime(), variableData, kSource));
}

int vekServer::sendJsonPayload(const std::string& text)
{
    Json::CharReaderBuilder builder;
    Json::Value payload;
    std::string errors;
    std::istringstream in(text);
    if (!Json::parseFromStream(builder, in, &payload, &errors)) {
        VEK_LOG_ERROR(TAG, "Error: %s", errors.c_str());
        return -1;
    }
    if (!payload.isObject()) {
        VEK_LOG_ERROR(TAG, "Not a valid JSON payload. %s", "The payload is not a JSON object.");
        return -1;
    }
    payload["Source"] = kSource;
    if (!validateJsonPayload(payload)) {
        return -1;
    }
    const Json::Value& location = payload["PhysicalLocation"];
    const Json::Value& time = payload["EventTime"];
    communicationOf(services_).sendEvent(vekEvent(payload["ID"].asInt(), kModule, "", false,
                                                  time.isString() ? time.asString() : VMwareOSUtils::getDateTime(),
                                                  location.isString() ? location.asString() : "NA",
                                                  payload.get("VariableData", Json::Value()), kSource));
    return 0;
}

bool vekServer::validateJsonPayload(const Json::Value& payload) const
{
    for (const char* member : kRequiredMembers) {
        if (!payload.isMember(member)) {
            const std::string reason = "Member \"" + std::string(member) + "\" is missing.";
            VEK_LOG_ERROR(TAG, "Not a valid JSON payload. %s", reason.c_str());
            return false;
        }
    }
    if (!payload["ID"].isInt()) {
        VEK_LOG_ERROR(TAG, "Not a valid JSON payload. %s", "The event id is not a number.");
        return false;
    }
    const int eventId = payload["ID"].asInt();
    const int type = getEventType(eventId);
    if (type == 1 || type == 2) {
        return true;
    }
    if (type >= 3 && type <= 7) {
        const Json::Value& location = payload["PhysicalLocation"];
        if (location.isString() && !location.asString().empty()) {
            return true;
        }
        VEK_LOG_ERROR(TAG, "Not a valid JSON payload. %s",
                      ("Event " + std::to_string(eventId) + " needs a \"PhysicalLocation\".").c_str());
        return false;
    }
    VEK_LOG_ERROR(TAG, "Not a valid JSON payload. %s", ("Event " + std::to_string(eventId) + " is not known.").c_str());
    return false;
}

int vekServer::getEventType(int eventId) const
{
    // The platform's own numbers; without platform services, those of every
    // platform.
    IELEventMap::IELEventTRB trb;
    IELEventMap::IELEventPreTRB preTrb;
    std::vector<IELEventResolver*> resolvers{&trb, &preTrb};
    if (services_ != nullptr && services_->getIELEventResolver() != nullptr) {
        resolvers = {services_->getIELEventResolver()};
    }
    for (const auto& family : kEventFamilies) {
        for (const IELEventId kind : family.second) {
            for (IELEventResolver* resolver : resolvers) {
                try {
                    if ((*resolver)(kind) == eventId) {
                        return family.first;
                    }
                } catch (const std::runtime_error&) {
                    // not a kind of this platform
                }
            }
        }
    }
    return 0;
}

int vekServer::saveInventory(const std::string& path)
{
    return vekJsonAggregator::getInstance().saveJsonInventoryAsFile(stringUtils::trim(path));
}
