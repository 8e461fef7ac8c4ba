#pragma once

// The RMC's own protocol on IPMI net function 0x3A, shared by both clients of
// the RMC (vekIPMIService and ipmi::IPMIUtils): the chunks of an RMC CLI
// command (command 0x80), the texts of its transfer statuses, and the
// meaning of the doorbells (commands 0x81 to 0x83).
//
// A command has a name of up to 20 bytes and a text payload, sent with its
// terminating NUL in chunks of exactly 60 data bytes:
//
//   first chunk      0-1 index 0 | 2 0x14 | 3-22 name, NUL-padded
//                    23-26 payload length with the NUL, little-endian
//                    27-59 the first 33 payload bytes
//   following chunk  0-1 the index the RMC returned last | 2 zero
//                    3-59 the next 57 payload bytes, zero-padded
//   reply            transfer status, next index (little-endian), exit status
//
// A chunk the RMC answers with a completion code other than 0 (busy, say)
// carries no status and no next index: the transfer ends there, the payload
// is lost, and the next command starts afresh. That is an answer, not a
// failure of the channel.
//
// The last piece (57 bytes or fewer) always goes to offset 3, also when it is
// the first chunk, where it overlays the name: a payload shorter than 57
// bytes is thus refused by the RMC (status 5). Every real payload is JSON of
// far more than that, and the RMC expects exactly this layout.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace vekIPMI {
namespace rmcCli {

const uint8_t kNetFn = 0x3A;
const uint8_t kCmdChunk = 0x80;
// Doorbell n is command kCmdDoorbellBase + n, n from 1 to 3.
const uint8_t kCmdDoorbellBase = 0x80;
const int kLowestDoorbell = 1;
const int kHighestDoorbell = 3;
// What a doorbell answer is read into: at most 253 bytes and a NUL.
const size_t kDoorbellBufferSize = 254;

const size_t kChunkSize = 60;
const uint8_t kNameFieldLength = 0x14;
const size_t kNameOffset = 3;
const size_t kLengthOffset = 23;
const size_t kFirstPayloadOffset = 27;
const size_t kFirstPayloadBytes = 33;
const size_t kNextPayloadOffset = 3;
const size_t kNextPayloadBytes = 57;
const size_t kReplySize = 4;

// Transfer statuses of the RMC.
enum TransferStatus {
    kStatusOk = 0,
    kStatusInputIncomplete = 1,
    kStatusExecutionFailed = 2,
    kStatusIndexError = 3,
    kStatusEntriesFull = 4,
    kStatusNotSupported = 5,
    kStatusNoMemory = 6,
    kStatusLengthExceeded = 8,
};
// Above this a status ends the command.
const int kHighestGoingOnStatus = 2;

// Failures on the sender's side, not from the RMC.
enum CallerFailure {
    kRequestFailure = 7,
    kResponseFailure = 8,
    kNullOutput = 170,
    kTimeout = 221,
    kOutputTooSmall = 238,
};

// What a sender does with a status above 2 in the middle of a command.
enum class StopRule {
    SendAll,     // keeps it for the end and sends the rest
    StopAtOnce,  // ends the transfer with it
};

struct Reply {
    // Other than 0: the RMC answered the chunk with this completion code and
    // nothing else, so there is no status and no next index.
    uint8_t completionCode = 0;
    // Data bytes after the completion code; fewer than kReplySize carry no status.
    size_t length = kReplySize;
    uint8_t status = 0;
    uint16_t nextIndex = 0;
    uint8_t exitStatus = 0;

    bool hasStatus() const { return completionCode == 0 && length >= kReplySize; }
};

// Reads the answer to a chunk: its completion code and the data after it.
Reply readReply(uint8_t completionCode, const uint8_t* data, size_t length);

// Sends one 60-byte chunk and fills the reply. False when the exchange
// failed, which ends the transfer; it may also throw, which goes through.
using ChunkExchange = std::function<bool(const uint8_t* chunk, Reply& reply)>;

struct Outcome {
    bool exchangeFailed = false;
    // A chunk was answered without a status (see Reply): the transfer ended
    // there, since no next index came to go on with. The payload is lost.
    bool noStatus = false;
    Reply answer;            // that answer
    int status = kStatusOk;  // the first status above 2 if one came, else the last one
    int exitStatus = 0;
    size_t exchanges = 0;    // chunks answered
};

// Sends the command: `length` bytes at `payload`, its terminating NUL
// counted. The name must be 1 to 20 bytes.
Outcome transfer(const std::string& command, const uint8_t* payload, size_t length, StopRule rule,
                 const ChunkExchange& exchange);

// The number of chunks transfer() sends for a payload of this length
// (without its NUL).
size_t chunksFor(size_t payloadLength);

// The status's own text ("Transfer Status is 0x5[Provided command not
// supported] and ..."), empty for 0, 2 and statuses without one.
std::string transferStatusText(int status, int exitStatus);
// "RMC Cli Command Execution failed! (0x.., 0x..)"
std::string executionFailedText(int status, int exitStatus);
// The text of a sender-side failure code.
std::string callerFailureText(int code, int status, int exitStatus);

// Logs a status as the RMC returned it; payloadSize, when given, follows the
// text of status 8.
void logTransferStatus(const char* tag, int status, int exitStatus, const size_t* payloadSize);
// Logs a failure on the sender's side.
void logCallerFailure(const char* tag, int code, int status, int exitStatus);
// The standard name of an IPMI completion code ("Node busy"), or "OEM or
// command-specific" for the codes without one.
const char* completionCodeName(uint8_t completionCode);
// Logs a transfer that a chunk's answer without a status ended: what the RMC
// answered, then the failure line with the completion code as its status.
void logNoStatus(const char* tag, const std::string& command, const Outcome& outcome);
// Logs a doorbell answered with a completion code other than 0, which asks
// for nothing.
void logDoorbellCompletionCode(const char* tag, int level, uint8_t completionCode);

// What a doorbell's answer (NUL-terminated) means: level 1 whether to send
// the inventory now (1/0), level 2 whether telemetry is enabled (1) or not
// (2), level 3 whether to launch an I/O firmware sweep (the first byte).
// Other levels: 0.
int doorbellAnswer(const char* tag, int level, const unsigned char* buffer);
bool shouldSendInventoryNow(const unsigned char* buffer);
int EnableTelemetryCollection(const char* tag, const unsigned char* buffer);
int shouldVEKLaunchFwSweep(const char* tag, const unsigned char* buffer);

} // namespace rmcCli
} // namespace vekIPMI
