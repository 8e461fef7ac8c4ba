#pragma once

// What a simulated disk answers to one SCSI command: a pure function of the
// device's description and the request, so it is tested without sockets.
//
// SAS disks answer as SPC-4/SBC-3 targets; SATA disks answer as a SCSI/ATA
// translation layer of a SAS adapter does (SAT-3): inquiry vendor "ATA",
// their own pages translated from the ATA data, and ATA PASS-THROUGH(16).
// Enclosure services devices answer the commands that need no medium.

#include "storage_model.h"

#include <cstdint>
#include <vector>

namespace diskemu {

using Bytes = std::vector<uint8_t>;

// The sg_io_hdr directions of the wire format.
enum Direction : int32_t { kNone = -1, kToDevice = -2, kFromDevice = -3 };

struct Request {
    int32_t direction = kFromDevice;
    Bytes cdb;
    uint32_t dxferLen = 0;
    uint32_t timeoutMs = 0;
    Bytes dataOut; // the bytes sent to the device (direction kToDevice)
};

struct Response {
    bool answered = true;    // false: the connection closes without an answer
    uint32_t status = 0;     // SCSI status byte
    uint32_t hostStatus = 0; // Linux DID_* code
    uint32_t driverStatus = 0;
    Bytes sense;
    Bytes data;              // never longer than the request's dxferLen
};

constexpr uint32_t kStatusGood = 0x00;
constexpr uint32_t kStatusCheckCondition = 0x02;
constexpr uint32_t kDidNoConnect = 0x01;

Response answer(const simstorage::Device& device, const Request& request);

// The pages as the device holds them (whole, before any allocation length
// cuts them), for whoever shows them elsewhere (sysfs "inquiry",
// "vpd_pg80", "vpd_pg83"). An empty result: the device has no such page.
Bytes standardInquiry(const simstorage::Device& device);
Bytes vpdPage(const simstorage::Device& device, uint8_t page);

} // namespace diskemu
