#pragma once

// The messages of the test event server's named pipes. A message is a
// 17-byte header and a payload; integers are little-endian whatever the host:
//
//   offset  size  field
//   0       3     (not read; zeros when written)
//   3       2     header.messageCode
//   5       4     payload length in bytes
//   9       4     header.clientPID
//   13      4     (not read; zeros when written)
//   17      n     payload
//
// What comes through a pipe is hostile: a payload longer than
// VEK_MESSAGE_MAX_PAYLOAD is refused, and every wait for the other end is
// bounded, so that a client that stops half-way never holds the reader.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

const size_t VEK_MESSAGE_HEADER_SIZE = 17;
const uint32_t VEK_MESSAGE_MAX_PAYLOAD = 1024 * 1024;

struct _VEK_MESSAGE_HEADER {
    uint16_t messageCode = 0;
    uint32_t payloadLength = 0;  // as read; the writer sends payload.size()
    uint32_t clientPID = 0;
};

struct _VEK_MESSAGE_PACKET {
    _VEK_MESSAGE_HEADER header;
    std::string payload;  // raw bytes
};

// mkfifo with mode 0666, its folders made first. A FIFO already there is
// taken as it is (a client or an earlier run made it); anything else fails.
bool vekCreatePipe(const char* path);

// Reads one whole message from the pipe (opened read-only and non-blocking).
// False when it cannot, the message then being dropped: open or read failure,
// the other end falling silent before the message is whole ("EOF
// encountered"), or a payload above the limit (what follows it is drained).
bool vekReadPipe(const char* path, _VEK_MESSAGE_PACKET* packet);
// The same on a descriptor the caller holds open (non-blocking).
bool vekReadPipe(int fd, _VEK_MESSAGE_PACKET* packet);

// Writes one whole message. The pipe is opened write-only and non-blocking:
// when no reader has it open yet, the open is retried for a bounded time,
// then given up. A reader that goes away makes the write fail (never a
// SIGPIPE).
bool vekWritePipe(const char* path, _VEK_MESSAGE_PACKET* packet);

