#pragma once

#include "PCIeDevice.h"

#include <json/json.h>

#include <cstdint>
#include <string>

// One Ethernet adapter port as the OS lists it (vmnicN), with what the I/O
// card matrix adds. Copied by value.
class NICDeviceInfo : public PCIeDevice {
public:
    std::string getDeviceClass() const override { return ""; }
    virtual void setBasicProperties(std::string serial, std::string firmware, std::string manufacturer,
                                    std::string macAddress, std::string deviceName, std::string interfaceName,
                                    int64_t speedMbps);
    virtual std::string getDeviceName() const { return DeviceName; }
    virtual std::string getInterfaceName() const { return InterfaceName; }
    virtual std::string getMACAddress() const { return MACAddress; }
    virtual int64_t getSpeedMbps() const { return SpeedMbps; }
    // The adapter's inventory object, without "Status" (the manager adds it).
    virtual Json::Value getNICDeviceInfoJson() const;

    std::string DeviceName;
    std::string InterfaceName;
    std::string MACAddress;
    int64_t SpeedMbps = 0;
};
