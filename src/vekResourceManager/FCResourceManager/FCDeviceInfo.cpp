#include "FCDeviceInfo.h"

#include <utility>

void FCDeviceInfo::setBasicProperties(std::string serial, std::string firmware, std::string romVersion,
                                      std::string manufacturerName, std::string wwnn, std::string wwpn,
                                      std::string deviceName, uint32_t hbaHandle, int32_t adapterNumber,
                                      int32_t numberOfPorts)
{
    serialNumber = std::move(serial);
    firmwareVersion = std::move(firmware);
    RomVersion = std::move(romVersion);
    manufacturer = std::move(manufacturerName);
    WWNN = std::move(wwnn);
    WWPN = std::move(wwpn);
    DeviceName = std::move(deviceName);
    HbaHandle = hbaHandle;
    AdapterNumber = adapterNumber;
    NumberOfPorts = numberOfPorts;
}

Json::Value FCDeviceInfo::getFCDeviceInfoJson() const
{
    Json::Value adapter(Json::objectValue);
    writeBaseInventoryData(adapter);
    adapter["RomVersion"] = RomVersion;
    adapter["WWPN"] = WWPN;
    adapter["WWNN"] = WWNN;
    return adapter;
}
