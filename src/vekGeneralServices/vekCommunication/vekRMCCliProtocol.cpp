#include "vekRMCCliProtocol.h"

#include "vekLog.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace vekIPMI {
namespace rmcCli {

namespace {

const char kInventoryRequest[] = "WriteInventory";

void putLe16(uint8_t* at, uint16_t value)
{
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

void putLe32(uint8_t* at, uint32_t value)
{
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

} // namespace

Outcome transfer(const std::string& command, const uint8_t* payload, size_t length, StopRule rule,
                 const ChunkExchange& exchange)
{
    if (command.empty() || command.size() > kNameFieldLength || payload == nullptr || length == 0 ||
        length > UINT32_MAX) {
        throw std::invalid_argument("RMC CLI command [" + command + "] cannot be sent");
    }

    uint8_t request[kChunkSize] = {0};
    request[2] = kNameFieldLength;
    std::memcpy(request + kNameOffset, command.data(), command.size());
    putLe32(request + kLengthOffset, static_cast<uint32_t>(length));

    Outcome outcome;
    bool kept = false;
    uint16_t index = 0;
    size_t at = 0;
    while (at < length) {
        putLe16(request, index);
        if (index != 0) {
            request[2] = 0;
        }
        const size_t remaining = length - at;
        if (remaining > kNextPayloadBytes) {
            const bool first = (at == 0);
            const size_t piece = first ? kFirstPayloadBytes : kNextPayloadBytes;
            std::memcpy(request + (first ? kFirstPayloadOffset : kNextPayloadOffset), payload + at, piece);
            at += piece;
        } else {
            // The last piece, also when it is the first chunk.
            std::memcpy(request + kNextPayloadOffset, payload + at, remaining);
            at = length;
        }

        Reply reply;
        if (!exchange(request, reply)) {
            outcome.exchangeFailed = true;
            return outcome;
        }
        ++outcome.exchanges;
        if (!reply.hasStatus()) {
            outcome.noStatus = true;
            outcome.answer = reply;
            return outcome;
        }
        index = reply.nextIndex;
        if (reply.status > kHighestGoingOnStatus) {
            // The first refusal is the cause; what follows it is its echo.
            if (!kept) {
                kept = true;
                outcome.status = reply.status;
                outcome.exitStatus = reply.exitStatus;
            }
            if (rule == StopRule::StopAtOnce) {
                return outcome;
            }
        } else if (!kept) {
            outcome.status = reply.status;
            outcome.exitStatus = reply.exitStatus;
        }
        std::memset(request, 0, sizeof(request));
    }
    return outcome;
}

Reply readReply(uint8_t completionCode, const uint8_t* data, size_t length)
{
    Reply reply;
    reply.completionCode = completionCode;
    reply.length = length;
    if (reply.hasStatus()) {
        reply.status = data[0];
        reply.nextIndex = static_cast<uint16_t>(data[1] | data[2] << 8);
        reply.exitStatus = data[3];
    }
    return reply;
}

size_t chunksFor(size_t payloadLength)
{
    const size_t length = payloadLength + 1;
    if (length <= kNextPayloadBytes) {
        return 1;
    }
    // The first chunk takes 33 bytes; every later one 57, the last one less.
    return 1 + (length - kFirstPayloadBytes + kNextPayloadBytes - 1) / kNextPayloadBytes;
}

std::string transferStatusText(int status, int exitStatus)
{
    switch (status) {
    case kStatusInputIncomplete:
        return vekLog::format("Transfer Status is 0x%x[Input data is not complete] and Cmd Exit Status is 0x%x",
                              status, exitStatus);
    case kStatusIndexError:
        return vekLog::format("Transfer Status is 0x%x[Error in index] and Cmd Exit Status is 0x%x", status,
                              exitStatus);
    case kStatusEntriesFull:
        return vekLog::format("Transfer Status is 0x%x[Cli entries full] and Cmd Exit Status is 0x%x", status,
                              exitStatus);
    case kStatusNotSupported:
        return vekLog::format("Transfer Status is 0x%x[Provided command not supported] and Cmd Exit Status is 0x%x",
                              status, exitStatus);
    case kStatusNoMemory:
        return vekLog::format("Transfer Status is 0x%x[Memory could not be allocated] and Cmd Exit Status is 0x%x",
                              status, exitStatus);
    case kStatusLengthExceeded:
        return vekLog::format("Transfer Status is 0x%x[Request command length exceeded] and Cmd Exit Status is 0x%x.",
                              status, exitStatus);
    default:
        return "";
    }
}

std::string executionFailedText(int status, int exitStatus)
{
    return vekLog::format("RMC Cli Command Execution failed! (0x%x, 0x%x)", status, exitStatus);
}

std::string callerFailureText(int code, int status, int exitStatus)
{
    switch (code) {
    case kRequestFailure:
        return "Request ioctl failure";
    case kResponseFailure:
        return "Response ioctl failure";
    case kNullOutput:
        return "The pointer to the stdout or stderr is NULL.";
    case kTimeout:
        return "Command time out";
    case kOutputTooSmall:
        return "The size of stdout or stderr is not enough";
    default:
        return vekLog::format("Error occurred while executing RMC_CLI_Exec status=%d, cmd_exit_status=%d", status,
                              exitStatus);
    }
}

void logTransferStatus(const char* tag, int status, int exitStatus, const size_t* payloadSize)
{
    if (status == kStatusOk) {
        return;
    }
    std::string text = transferStatusText(status, exitStatus);
    if (!text.empty()) {
        if (status == kStatusLengthExceeded && payloadSize != nullptr) {
            text += vekLog::format(" Payload size:%zu", *payloadSize);
        }
        VEK_LOG_ERROR(tag, "%s", text.c_str());
    }
    VEK_LOG_ERROR(tag, "%s", executionFailedText(status, exitStatus).c_str());
}

void logCallerFailure(const char* tag, int code, int status, int exitStatus)
{
    VEK_LOG_ERROR(tag, "%s", callerFailureText(code, status, exitStatus).c_str());
}

const char* completionCodeName(uint8_t completionCode)
{
    switch (completionCode) {
    case 0xC0: return "Node busy";
    case 0xC1: return "Invalid command";
    case 0xC2: return "Command invalid for given LUN";
    case 0xC3: return "Timeout while processing command";
    case 0xC4: return "Out of space";
    case 0xC5: return "Reservation cancelled or invalid";
    case 0xC6: return "Request data truncated";
    case 0xC7: return "Request data length invalid";
    case 0xC8: return "Request data field length limit exceeded";
    case 0xC9: return "Parameter out of range";
    case 0xCA: return "Cannot return number of requested data bytes";
    case 0xCB: return "Requested sensor, data, or record not present";
    case 0xCC: return "Invalid data field in request";
    case 0xCE: return "Command response could not be provided";
    case 0xD5: return "Command not supported in present state";
    case 0xFF: return "Unspecified error";
    default: return "OEM or command-specific";
    }
}

void logNoStatus(const char* tag, const std::string& command, const Outcome& outcome)
{
    const Reply& answer = outcome.answer;
    if (answer.completionCode != 0) {
        VEK_LOG_ERROR(tag,
                      "RMC CLI command %s: chunk %zu answered with completion code 0x%02x (%s); "
                      "the rest of the payload is not sent",
                      command.c_str(), outcome.exchanges, answer.completionCode,
                      completionCodeName(answer.completionCode));
    } else {
        VEK_LOG_ERROR(tag,
                      "RMC CLI command %s: chunk %zu answered with %zu data bytes instead of %zu; "
                      "the rest of the payload is not sent",
                      command.c_str(), outcome.exchanges, answer.length, kReplySize);
    }
    VEK_LOG_ERROR(tag, "%s", executionFailedText(answer.completionCode, 0).c_str());
}

void logDoorbellCompletionCode(const char* tag, int level, uint8_t completionCode)
{
    VEK_LOG_WARNING(tag, "Doorbell %d answered with completion code 0x%02x (%s): nothing is asked", level,
                    completionCode, completionCodeName(completionCode));
}

bool shouldSendInventoryNow(const unsigned char* buffer)
{
    return std::strstr(reinterpret_cast<const char*>(buffer), kInventoryRequest) != nullptr;
}

int EnableTelemetryCollection(const char* tag, const unsigned char* buffer)
{
    const char* text = reinterpret_cast<const char*>(buffer);
    const int command = buffer[0];
    const int level = buffer[1];
    VEK_LOG_INFO(tag, "Received Telemetry doorbell string (%s) cmd (%d), cmd_level(%d)", text, command, level);
    switch (command) {
    case 1:
        return 1;
    case 0:
        return 2;
    default:
        VEK_LOG_WARNING(tag, "Received Unsupported telemetry doorbell string (%s) cmd (%d), cmd_level(%d)", text,
                        command, level);
        return 2;
    }
}

int shouldVEKLaunchFwSweep(const char* tag, const unsigned char* buffer)
{
    VEK_LOG_INFO(tag, "IOFWU doorbell string (%d) (%d) ", buffer[0], buffer[1]);
    return buffer[0];
}

int doorbellAnswer(const char* tag, int level, const unsigned char* buffer)
{
    switch (level) {
    case 1:
        return shouldSendInventoryNow(buffer) ? 1 : 0;
    case 2:
        return EnableTelemetryCollection(tag, buffer);
    case 3:
        return shouldVEKLaunchFwSweep(tag, buffer);
    default:
        VEK_LOG_ERROR(tag, "Invalid Doorbell request [%d]", level);
        return 0;
    }
}

} // namespace rmcCli
} // namespace vekIPMI
