#pragma once

#include "PCIeDevice.h"

#include <json/json.h>

#include <cstdint>
#include <string>

// One Fibre Channel adapter as the HBA library and the OS name it (vmhbaN),
// with what the I/O card matrix adds. Copied by value.
class FCDeviceInfo : public PCIeDevice {
public:
    std::string getDeviceClass() const override { return ""; }
    virtual void setBasicProperties(std::string serial, std::string firmware, std::string romVersion,
                                    std::string manufacturer, std::string wwnn, std::string wwpn,
                                    std::string deviceName, uint32_t hbaHandle, int32_t adapterNumber,
                                    int32_t numberOfPorts);
    // The adapter's inventory object, without "Status" (the manager adds it).
    virtual Json::Value getFCDeviceInfoJson() const;

    std::string getDeviceName() const { return DeviceName; }
    std::string getRomVersion() const { return RomVersion; }
    std::string getWWNN() const { return WWNN; }
    std::string getWWPN() const { return WWPN; }
    int32_t getAdapterNumber() const { return AdapterNumber; }
    uint32_t getHbaHandle() const { return HbaHandle; }
    int32_t getNumberOfPorts() const { return NumberOfPorts; }

    std::string DeviceName;
    int32_t AdapterNumber = 0;
    // Open at discovery, closed again since: kept for reference only.
    uint32_t HbaHandle = 0;
    int32_t NumberOfPorts = 0;
    std::string RomVersion;
    std::string WWNN;
    std::string WWPN;
};
