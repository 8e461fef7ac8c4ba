#pragma once

// The disk emulator's wire format: one request and one response per
// connection, integers little-endian (see README.md).
//
//   request:  "SGIO", int32 direction, uint32 CDB length, uint32 dxfer_len,
//             uint32 timeout (ms), the CDB, for kToDevice dxfer_len bytes
//   response: "SGIO", uint32 status, host_status, driver_status, sense
//             length, data length; the sense; the data

#include "scsi_disk.h"

#include <cstddef>
#include <stdexcept>

namespace diskemu {
namespace wire {

class WireError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

constexpr size_t kRequestHeaderSize = 20;
// Bounds of what a request may ask for, so a hostile one can't make the
// emulator read or hold without end.
constexpr uint32_t kMaxCdbLength = 260;
constexpr uint32_t kMaxTransfer = 16u << 20;
constexpr uint32_t kMaxDataOut = 1u << 20; // held in memory until the request is whole

// How many bytes the request that starts 'received' still lacks (0: it is
// whole). Throws WireError as soon as the header shows it malformed.
size_t missingBytes(const Bytes& received);

// The request in 'received', which must be whole.
Request decodeRequest(const Bytes& received);

Bytes encodeResponse(const Response& response);

} // namespace wire
} // namespace diskemu
