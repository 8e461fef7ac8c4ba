#pragma once

// The ATA side of a simulated SATA disk: what the drive itself returns to
// the ATA commands a SCSI/ATA translation layer passes through (ACS-3
// layouts: IDENTIFY DEVICE, the general purpose logs, SMART READ LOG).

#include "storage_model.h"

#include <cstdint>
#include <string>
#include <vector>

namespace diskemu {
namespace ata {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kIdentifyDevice = 0xEC;
constexpr uint8_t kReadLogExt = 0x2F;
constexpr uint8_t kSmart = 0xB0;

// The ATA registers of one command, as ATA PASS-THROUGH carries them.
struct Command {
    uint8_t command = 0;
    uint16_t features = 0;
    uint16_t count = 0;
    uint64_t lba = 0; // 48 bits
};

struct Result {
    enum Outcome {
        kOk,
        kAborted,     // ERR with ABRT: unsupported command, log or page
        kDeviceFault, // DF: the drive can't produce the data
        kNotReady,    // the medium isn't spinning
    };
    Outcome outcome = kOk;
    Bytes data; // data-in, in 512-byte blocks
};

Result execute(const simstorage::Device& device, const Command& command);

// 512 bytes of IDENTIFY DEVICE data, checksum included.
Bytes identify(const simstorage::Device& device);

// The texts the translation layer shows on its SCSI side.
std::string modelText(const simstorage::Device& device);    // 40 characters
std::string serialText(const simstorage::Device& device);   // 20 characters
std::string firmwareText(const simstorage::Device& device); // 8 characters

} // namespace ata
} // namespace diskemu
