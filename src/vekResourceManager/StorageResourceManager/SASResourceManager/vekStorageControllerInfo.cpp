#include "vekStorageControllerInfo.h"

Json::Value vekStorageControllerPortInfo::getVariableData() const
{
    return Json::Value();
}

Json::Value vekStorageControllerPortInfo::getInventoryData() const
{
    return Json::Value();
}

void vekStorageControllerInfo::setControllerPort(size_t index, const vekStorageControllerPortInfo& port)
{
    if (index < Ports.size()) {
        Ports[index] = port;
    }
}

void vekStorageControllerInfo::deleteControllerPort(size_t index)
{
    if (index < Ports.size()) {
        Ports.erase(Ports.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

Json::Value vekStorageControllerInfo::getVariableData() const
{
    Json::Value data(Json::objectValue);
    data["Model"] = getModel();
    data["SerialNumber"] = getSerialNumber();
    data["PartNumber"] = getPartNumber();
    data["SparePartNumber"] = getSparePartNumber();
    data["SKU"] = getSkuPartNumber();
    data["FirmwareVersion"] = getFirmwareVersion();
    data["Protocol"] = getProtocol();
    data["Manufacturer"] = getManufacturer();
    Json::Value& oem = data["Oem"];
    oem["PhysicalLocation"] = getPhysicalLocation();
    oem["Description"] = getDescription();

    Json::Value record(Json::objectValue);
    record["Type"] = "Controller";
    record["Data"] = data;
    record["EventInfo"] = getEventInfoString();
    return record;
}

Json::Value vekStorageControllerInfo::getInventoryData() const
{
    return Json::Value();
}
