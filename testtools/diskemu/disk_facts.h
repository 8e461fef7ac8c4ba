#pragma once

// Facts about a described device that its SCSI and ATA faces share.

#include "storage_model.h"

#include <cstdint>
#include <functional>
#include <string>

namespace diskemu {

inline bool isSata(const simstorage::Device& device) { return device.transport == "SATA"; }
inline bool isSolidState(const simstorage::Device& device) { return device.rotationRate == 1; }
inline bool isEnclosure(const simstorage::Device& device) { return device.deviceType == 13; }

// The world wide name of the description; one derived from the id when the
// description has none that reads as 16 hexadecimal digits, so that every
// disk still has a name of its own (NAA 5).
inline uint64_t worldWideName(const simstorage::Device& device)
{
    if (device.wwn.size() == 16 && device.wwn.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        return std::stoull(device.wwn, nullptr, 16);
    }
    return (uint64_t{5} << 60) | (std::hash<std::string>{}(device.id) & 0x0fffffffffffffffULL);
}

// Nominal form factor as both SBC and ACS code it: 2 for 3.5", 3 for 2.5".
inline int formFactorCode(const simstorage::Device& device)
{
    return (isSolidState(device) || device.rotationRate >= 10000) ? 3 : 2;
}

// Errors the drive has logged (SMART error logs): a predicted failure shows
// at least one.
inline int loggedErrors(const simstorage::Device& device)
{
    const int errors = device.smartErrors < 0 ? 0 : device.smartErrors;
    return device.health == "predictive" && errors < 1 ? 1 : errors;
}

} // namespace diskemu
