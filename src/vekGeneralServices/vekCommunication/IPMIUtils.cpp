#include "IPMIUtils.h"

#include "vekIPMIExceptions.h"
#include "vekLog.h"
#include "vekRMCCliProtocol.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace {
const char TAG[] = "IPMI";

const int kOpenTries = 2;
const uint8_t kNetFnApp = 0x06;
const uint8_t kCmdGetDeviceID = 0x01;
const uint8_t kCmdGetCapabilities = 0x36;
const uint8_t kNetFnPartition = 0x34;
const uint8_t kCmdGetPartitionId = 0x08;

// Fills a structure from a command's answer with a temporary channel.
int askInto(uint8_t netfn, uint8_t cmd, void* out, size_t size, const char* what)
{
    try {
        ipmi::IPMIUtils utils;
        uint8_t response[vekIPMI::kMaxResponseSize];
        size_t length = sizeof(response);
        uint8_t completionCode = 0xFF;
        if (!utils.request(netfn, cmd, nullptr, 0, response, length, completionCode)) {
            VEK_LOG_ERROR(TAG, "%s: no answer from the RMC", what);
            return -1;
        }
        if (completionCode != 0) {
            VEK_LOG_ERROR(TAG, "%s finished with CC: [0x%02x]", what, completionCode);
            return -1;
        }
        if (length < size) {
            VEK_LOG_ERROR(TAG, "Insufficient %s response data size [%hu]. Expected [%zu].", what,
                          static_cast<unsigned short>(length), size);
            return -1;
        }
        std::memcpy(out, response, size);
        return 0;
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "%s: %s", what, e.what());
        return -1;
    }
}

} // namespace

namespace ipmi {

std::mutex IPMIUtils::mutex_;

IPMIUtils::IPMIUtils()
{
    for (int attempt = 1; attempt <= kOpenTries; ++attempt) {
        transport_ = vekIPMI::createTransport();
        if (transport_->open()) {
            return;
        }
        VEK_LOG_WARNING(TAG, "Unable to open IPMI channel %s (try %d of %d)", transport_->describe().c_str(),
                        attempt, kOpenTries);
    }
    throw ipmi_exceptions::invalid_handle("Unable to open IPMI channel " + transport_->describe());
}

IPMIUtils::~IPMIUtils() = default;

bool IPMIUtils::execute(uint8_t netfn, uint8_t cmd, const uint8_t* data, size_t dataLen, uint8_t* response,
                        size_t& responseLen, uint8_t& completionCode)
{
    uint8_t answer[vekIPMI::kMaxResponseSize];
    size_t answerLen = sizeof(answer);
    try {
        transport_->exchange(netfn, cmd, 0, data, dataLen, answer, answerLen);
    } catch (const vekIPMI::TransportException& e) {
        if (e.failure() == vekIPMI::TransportFailure::NotOpen || e.failure() == vekIPMI::TransportFailure::Send) {
            lastFailure_ = vekIPMI::rmcCli::kRequestFailure;
            VEK_LOG_ERROR(TAG, "Request ioctl failure with error code : %d", e.errorCode());
        } else {
            lastFailure_ = vekIPMI::rmcCli::kResponseFailure;
            VEK_LOG_ERROR(TAG, "Response ioctl failure");
        }
        VEK_LOG_DEBUG(TAG, "%s", e.what());
        return false;
    }
    if (answerLen == 0) {
        lastFailure_ = vekIPMI::rmcCli::kResponseFailure;
        VEK_LOG_ERROR(TAG, "Response ioctl failure");
        return false;
    }
    completionCode = answer[0];
    const size_t stored = std::min(answerLen - 1, responseLen);
    if (stored > 0) {
        std::memcpy(response, answer + 1, stored);
    }
    responseLen = stored;
    lastFailure_ = 0;
    return true;
}

bool IPMIUtils::request(uint8_t netfn, uint8_t cmd, const uint8_t* data, size_t dataLen, uint8_t* response,
                        size_t& responseLen, uint8_t& completionCode)
{
    std::lock_guard<std::mutex> lock(mutex_);
    return execute(netfn, cmd, data, dataLen, response, responseLen, completionCode);
}

int IPMIUtils::RMC_CLI_Exec(const std::string& command, const std::string& data, int& status, int& exitStatus)
{
    using namespace vekIPMI::rmcCli;
    status = 0;
    exitStatus = 0;
    refusal_ = Outcome();
    std::unique_ptr<uint8_t, void (*)(void*)> buffer(static_cast<uint8_t*>(calloc(data.size() + 1, 1)), free);
    if (!buffer) {
        throw ipmi_exceptions::memory_error();
    }
    std::memcpy(buffer.get(), data.data(), data.size());

    int failure = 0;
    const Outcome outcome =
        transfer(command, buffer.get(), data.size() + 1, StopRule::StopAtOnce, [&](const uint8_t* chunk, Reply& reply) {
            uint8_t answer[kReplySize] = {0};
            size_t answerLen = sizeof(answer);
            uint8_t completionCode = 0xFF;
            if (!execute(kNetFn, kCmdChunk, chunk, kChunkSize, answer, answerLen, completionCode)) {
                failure = lastFailure_;
                return false;
            }
            reply = readReply(completionCode, answer, answerLen);
            return true;
        });
    status = outcome.status;
    exitStatus = outcome.exitStatus;
    if (outcome.noStatus) {
        refusal_ = outcome;
    }
    return outcome.exchangeFailed ? failure : 0;
}

int IPMIUtils::RMC_CLI_Cmd_Execution(std::string command, std::string data)
{
    using namespace vekIPMI::rmcCli;
    VEK_LOG_DEBUG(TAG, "Command to be executed on RMC : %s %s", command.c_str(), data.c_str());
    if (command.empty() || command.size() > kNameFieldLength || data.empty()) {
        VEK_LOG_ERROR(TAG, "Provided command / arguments is not valid");
        return 1;
    }
    int status = 0;
    int exitStatus = 0;
    int failure = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        try {
            failure = RMC_CLI_Exec(command, data, status, exitStatus);
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "%s", e.what());
            failure = -1;
        }
    }
    if (failure != 0) {
        logCallerFailure(TAG, failure, status, exitStatus);
        return 1;
    }
    if (refusal_.noStatus) {
        logNoStatus(TAG, command, refusal_);
        return 1;
    }
    if (status != kStatusOk) {
        const size_t payloadSize = data.size();
        logTransferStatus(TAG, status, exitStatus, &payloadSize);
        return 1;
    }
    return 0;
}

bool IPMIUtils::readDoorbell(int level, unsigned char* buffer)
{
    using namespace vekIPMI::rmcCli;
    size_t length = kDoorbellBufferSize - 1;
    uint8_t completionCode = 0xFF;
    std::lock_guard<std::mutex> lock(mutex_);
    if (!execute(kNetFn, static_cast<uint8_t>(kCmdDoorbellBase + level), nullptr, 0, buffer, length,
                 completionCode)) {
        VEK_LOG_ERROR(TAG, "An error occurred in checking RMC request via IPMI");
        return false;
    }
    if (completionCode != 0) {
        logDoorbellCompletionCode(TAG, level, completionCode);
        return false;
    }
    buffer[length] = '\0';
    VEK_LOG_DEBUG(TAG, "Return buffer from door bell: %s", reinterpret_cast<const char*>(buffer));
    return true;
}

bool IPMIUtils::checkIPMIDBRequest()
{
    unsigned char buffer[vekIPMI::rmcCli::kDoorbellBufferSize] = {0};
    return readDoorbell(1, buffer) && vekIPMI::rmcCli::shouldSendInventoryNow(buffer);
}

int IPMIUtils::checkIPMIDBGenericRequest(int level)
{
    using namespace vekIPMI::rmcCli;
    unsigned char buffer[kDoorbellBufferSize] = {0};
    if (level >= kLowestDoorbell && level <= kHighestDoorbell && !readDoorbell(level, buffer)) {
        return 0;
    }
    return checkIPMIBuffer(level, buffer);
}

int IPMIUtils::checkIPMIBuffer(int level, unsigned char* buffer)
{
    return vekIPMI::rmcCli::doorbellAnswer(TAG, level, buffer);
}

} // namespace ipmi

int GetDeviceIdInfo(ipmi::_GET_DEVICE_ID& deviceId)
{
    return askInto(kNetFnApp, kCmdGetDeviceID, &deviceId, sizeof(deviceId), "Get Device ID");
}

int GetCapabilities(ipmi::_GET_BMC_CAPABILITIES& capabilities)
{
    return askInto(kNetFnApp, kCmdGetCapabilities, &capabilities, sizeof(capabilities), "Get Capabilities");
}

int GetPartitionId(unsigned int tries)
{
    const unsigned int attempts = tries > 0 ? tries : 1;
    for (unsigned int attempt = 1; attempt <= attempts; ++attempt) {
        ipmi::_GET_PARTITION_ID answer;
        if (askInto(kNetFnPartition, kCmdGetPartitionId, &answer, sizeof(answer), "Get Partition Id") == 0) {
            const uint32_t id = static_cast<uint32_t>(answer.partition_id[0]) |
                                static_cast<uint32_t>(answer.partition_id[1]) << 8 |
                                static_cast<uint32_t>(answer.partition_id[2]) << 16 |
                                static_cast<uint32_t>(answer.partition_id[3]) << 24;
            if (id > 0x7FFFFFFFu) {
                VEK_LOG_ERROR(TAG, "Partition id 0x%08x out of range", id);
                return -1;
            }
            VEK_LOG_DEBUG(TAG, "Partition id %u", id);
            return static_cast<int>(id);
        }
    }
    return -1;
}
