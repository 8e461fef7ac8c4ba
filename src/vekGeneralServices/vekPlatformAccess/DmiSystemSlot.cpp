#include "DmiSystemSlot.h"

#include "vekLog.h"
#include "vekSmbiosTable.h"

#include <cstring>
#include <string>

namespace {

const char TAG[] = "SMBIOS_SLOT";

// Offsets of the formatted area.
const unsigned kDesignation = 0x04;
const unsigned kSlotType = 0x05;
const unsigned kDataBusWidth = 0x06;
const unsigned kCurrentUsage = 0x07;
const unsigned kSlotLength = 0x08;
const unsigned kSlotId = 0x09;
const unsigned kCharacteristics1 = 0x0B;
const unsigned kCharacteristics2 = 0x0C;
const unsigned kSegmentGroup = 0x0D;
const unsigned kBus = 0x0F;
const unsigned kDeviceFunction = 0x10;

} // namespace

int DmiSystemSlot_Decode(DmiSystemSlot* array, const unsigned char* rawRecord, int index)
{
    if (array == nullptr || rawRecord == nullptr || index < 0) {
        return -1;
    }
    DmiSystemSlot& slot = array[index];
    const unsigned length = rawRecord[vekSmbios::kLengthOffset];
    // A field is read only when the formatted area holds it whole.
    auto holds = [length](unsigned offset, unsigned size) { return offset + size <= length; };

    slot.type = rawRecord[vekSmbios::kTypeOffset];
    slot.length = static_cast<uint8_t>(length);
    slot.handle = static_cast<uint16_t>(vekSmbios::readWord(rawRecord + vekSmbios::kHandleOffset));
    if (holds(kDesignation, 1)) {
        const std::string designation = vekSmbios::structureString(rawRecord, rawRecord[kDesignation]);
        const size_t kept = designation.copy(slot.designation, sizeof(slot.designation) - 1);
        slot.designation[kept] = '\0';
    }
    if (holds(kSlotLength, 1)) {
        slot.slotType = rawRecord[kSlotType];
        slot.slotDataBusWidth = rawRecord[kDataBusWidth];
        slot.currentUsage = rawRecord[kCurrentUsage];
        slot.slotLength = rawRecord[kSlotLength];
    }
    if (holds(kSlotId, 2)) {
        slot.slotId = static_cast<uint16_t>(vekSmbios::readWord(rawRecord + kSlotId));
    }
    if (holds(kCharacteristics1, 1)) {
        slot.slotCharacteristics1 = rawRecord[kCharacteristics1];
    }
    if (holds(kCharacteristics2, 1)) {
        slot.slotCharacteristics2 = rawRecord[kCharacteristics2];
    }
    if (holds(kSegmentGroup, 2)) {
        slot.segmentGroupNum = static_cast<uint16_t>(vekSmbios::readWord(rawRecord + kSegmentGroup));
    }
    if (holds(kBus, 1)) {
        slot.busNum = rawRecord[kBus];
    }
    if (holds(kDeviceFunction, 1)) {
        slot.devFuncNum = rawRecord[kDeviceFunction];
    }
    return 0;
}

void DmiSystemSlot_Print(const DmiSystemSlot& slot)
{
    VEK_LOG_DEBUG(TAG,
                  "System slot: type [%u], length [%u], handle [0x%04x], designation [%s], slot type [0x%02x], "
                  "data bus width [0x%02x], current usage [0x%02x], slot length [0x%02x], slot id [0x%04x], "
                  "characteristics 1 [0x%02x], characteristics 2 [0x%02x], segment group [0x%04x], bus [0x%02x], "
                  "device/function [0x%02x]",
                  slot.type, slot.length, slot.handle, slot.designation, slot.slotType, slot.slotDataBusWidth,
                  slot.currentUsage, slot.slotLength, slot.slotId, slot.slotCharacteristics1,
                  slot.slotCharacteristics2, slot.segmentGroupNum, slot.busNum, slot.devFuncNum);
}

std::vector<DmiSystemSlot> DmiSystemSlot_DecodeAll(const unsigned char* records, int count)
{
    std::vector<DmiSystemSlot> slots;
    if (records == nullptr || count <= 0) {
        return slots;
    }
    slots.assign(static_cast<size_t>(count), DmiSystemSlot{});
    const unsigned char* record = records;
    for (int i = 0; i < count; ++i) {
        slots[i].segmentGroupNum = 0xffff;
        slots[i].busNum = 0xff;
        slots[i].devFuncNum = 0xff;
        DmiSystemSlot_Decode(slots.data(), record, i);
        record = vekSmbios::nextStructure(record);
    }
    return slots;
}
