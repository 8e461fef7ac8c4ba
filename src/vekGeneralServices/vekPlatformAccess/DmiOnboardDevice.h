#pragma once

// SMBIOS type 41 (Onboard Devices Extended Information), decoded: where an
// on-board device sits (reference designation, segment, bus, device and
// function), what it is and which instance of its kind.

#include "DmiSystemSlot.h"

#include <cstdint>
#include <vector>

const int DMI_ONBOARD_DEVICE_TYPE = 41;

struct DmiOnboardDevice {
    uint8_t type;
    uint8_t length;
    uint16_t handle;
    char designation[DMI_DESIGNATION_SIZE];
    uint8_t deviceType;     // bits 6:0 of the device type byte
    bool enabled;           // bit 7 of the device type byte
    uint8_t deviceTypeInstance;
    uint16_t segmentGroupNum;
    uint8_t busNum;
    uint8_t devFuncNum;

    uint8_t deviceNum() const { return static_cast<uint8_t>(devFuncNum >> 3); }
    uint8_t functionNum() const { return static_cast<uint8_t>(devFuncNum & 0x07); }
};

// Decodes the raw record (one whole structure) into array[index], in the
// manner of DmiSystemSlot_Decode: fields the record's length doesn't cover
// are left alone. -1 for a null argument or a negative index, else 0.
int DmiOnboardDevice_Decode(DmiOnboardDevice* array, const unsigned char* rawRecord, int index);

// Logs the fields of one decoded record at debug level.
void DmiOnboardDevice_Print(const DmiOnboardDevice& device);

// Decodes a block of type 41 records as getSmbiosRecordsByType hands it out;
// fields a record doesn't carry are 0xffff, 0xff, 0xff as for the slots.
std::vector<DmiOnboardDevice> DmiOnboardDevice_DecodeAll(const unsigned char* records, int count);
