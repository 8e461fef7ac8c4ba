#pragma once

// SMBIOS type 9 (System Slots), decoded. The segment, bus and device-function
// numbers came with SMBIOS 2.6; a record in the older short form (13 bytes)
// doesn't carry them and leaves those fields as the caller set them.

#include <cstdint>
#include <vector>

const int DMI_SYSTEM_SLOT_TYPE = 9;
const int DMI_SYSTEM_SLOT_SHORT_LENGTH = 13;
const int DMI_DESIGNATION_SIZE = 128;

struct DmiSystemSlot {
    uint8_t type;
    uint8_t length;
    uint16_t handle;
    char designation[DMI_DESIGNATION_SIZE];
    uint8_t slotType;
    uint8_t slotDataBusWidth;
    uint8_t currentUsage;
    uint8_t slotLength;
    uint16_t slotId;
    uint8_t slotCharacteristics1;
    uint8_t slotCharacteristics2;
    uint16_t segmentGroupNum;
    uint8_t busNum;
    uint8_t devFuncNum;
};

// Decodes the raw record (one whole structure: formatted area and strings)
// into array[index]. The designation is resolved through the record's string
// set and cut to fit. Fields the record's length doesn't cover are left
// alone. -1 for a null argument or a negative index, else 0.
int DmiSystemSlot_Decode(DmiSystemSlot* array, const unsigned char* rawRecord, int index);

// Logs the fields of one decoded record at debug level.
void DmiSystemSlot_Print(const DmiSystemSlot& slot);

// Decodes a block of type 9 records as getSmbiosRecordsByType hands it out.
// A record that doesn't carry segment, bus and device-function (the short
// form) has them as 0xffff, 0xff, 0xff: "not applicable" in SMBIOS terms.
std::vector<DmiSystemSlot> DmiSystemSlot_DecodeAll(const unsigned char* records, int count);
