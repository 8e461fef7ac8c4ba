#include "DmiOnboardDevice.h"

#include "vekLog.h"
#include "vekSmbiosTable.h"

#include <string>

namespace {

const char TAG[] = "SMBIOS_ONBOARD";

// Offsets of the formatted area.
const unsigned kDesignation = 0x04;
const unsigned kDeviceType = 0x05;
const unsigned kDeviceTypeInstance = 0x06;
const unsigned kSegmentGroup = 0x07;
const unsigned kBus = 0x09;
const unsigned kDeviceFunction = 0x0A;

const uint8_t kEnabledBit = 0x80;

} // namespace

int DmiOnboardDevice_Decode(DmiOnboardDevice* array, const unsigned char* rawRecord, int index)
{
    if (array == nullptr || rawRecord == nullptr || index < 0) {
        return -1;
    }
    DmiOnboardDevice& device = array[index];
    const unsigned length = rawRecord[vekSmbios::kLengthOffset];
    auto holds = [length](unsigned offset, unsigned size) { return offset + size <= length; };

    device.type = rawRecord[vekSmbios::kTypeOffset];
    device.length = static_cast<uint8_t>(length);
    device.handle = static_cast<uint16_t>(vekSmbios::readWord(rawRecord + vekSmbios::kHandleOffset));
    if (holds(kDesignation, 1)) {
        const std::string designation = vekSmbios::structureString(rawRecord, rawRecord[kDesignation]);
        const size_t kept = designation.copy(device.designation, sizeof(device.designation) - 1);
        device.designation[kept] = '\0';
    }
    if (holds(kDeviceType, 1)) {
        device.deviceType = static_cast<uint8_t>(rawRecord[kDeviceType] & ~kEnabledBit);
        device.enabled = (rawRecord[kDeviceType] & kEnabledBit) != 0;
    }
    if (holds(kDeviceTypeInstance, 1)) {
        device.deviceTypeInstance = rawRecord[kDeviceTypeInstance];
    }
    if (holds(kSegmentGroup, 2)) {
        device.segmentGroupNum = static_cast<uint16_t>(vekSmbios::readWord(rawRecord + kSegmentGroup));
    }
    if (holds(kBus, 1)) {
        device.busNum = rawRecord[kBus];
    }
    if (holds(kDeviceFunction, 1)) {
        device.devFuncNum = rawRecord[kDeviceFunction];
    }
    return 0;
}

void DmiOnboardDevice_Print(const DmiOnboardDevice& device)
{
    VEK_LOG_DEBUG(TAG,
                  "Onboard device: type [%u], length [%u], handle [0x%04x], designation [%s], device type [0x%02x] "
                  "(%s), instance [%u], segment group [0x%04x], bus [0x%02x], device [0x%02x], function [0x%x]",
                  device.type, device.length, device.handle, device.designation, device.deviceType,
                  device.enabled ? "enabled" : "disabled", device.deviceTypeInstance, device.segmentGroupNum,
                  device.busNum, device.deviceNum(), device.functionNum());
}

std::vector<DmiOnboardDevice> DmiOnboardDevice_DecodeAll(const unsigned char* records, int count)
{
    std::vector<DmiOnboardDevice> devices;
    if (records == nullptr || count <= 0) {
        return devices;
    }
    devices.assign(static_cast<size_t>(count), DmiOnboardDevice{});
    const unsigned char* record = records;
    for (int i = 0; i < count; ++i) {
        devices[i].segmentGroupNum = 0xffff;
        devices[i].busNum = 0xff;
        devices[i].devFuncNum = 0xff;
        DmiOnboardDevice_Decode(devices.data(), record, i);
        record = vekSmbios::nextStructure(record);
    }
    return devices;
}
