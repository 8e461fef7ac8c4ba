#include "NICDeviceInfo.h"

#include <utility>

void NICDeviceInfo::setBasicProperties(std::string serial, std::string firmware, std::string manufacturerName,
                                       std::string macAddress, std::string deviceName, std::string interfaceName,
                                       int64_t speedMbps)
{
    serialNumber = std::move(serial);
    firmwareVersion = std::move(firmware);
    manufacturer = std::move(manufacturerName);
    MACAddress = std::move(macAddress);
    DeviceName = std::move(deviceName);
    InterfaceName = std::move(interfaceName);
    SpeedMbps = speedMbps;
}

Json::Value NICDeviceInfo::getNICDeviceInfoJson() const
{
    Json::Value adapter(Json::objectValue);
    writeBaseInventoryData(adapter);
    adapter["MACAddress"] = MACAddress;
    adapter["SpeedMbps"] = static_cast<Json::Int64>(SpeedMbps);
    adapter["Oem"]["DeviceName"] = DeviceName;
    return adapter;
}
