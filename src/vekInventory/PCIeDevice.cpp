#include "PCIeDevice.h"

void PCIeDevice::writeBaseInventoryData(Json::Value& object) const
{
    object["SerialNumber"] = serialNumber;
    object["FirmwareVersion"] = firmwareVersion;
    object["Manufacturer"] = manufacturer;
    object["Model"] = model;
    object["PartNumber"] = partNumber;
    object["SparePartNumber"] = sparePartNumber;
    object["SKU"] = sku;
    object["Oem"]["Description"] = description;
    object["Oem"]["PhysicalLocation"] = physicalLocation;
}

Json::Value PCIeDevice::getStatusJson() const
{
    Json::Value status(Json::objectValue);
    status["State"] = vekResourceStateMap[deviceStatus.state];
    status["Health"] = vekResourceHealthMap[deviceStatus.health];
    return status;
}
