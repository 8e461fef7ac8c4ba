#include "vekStorageEnclosureInfo.h"

#include "vekLog.h"

#include <string>

Json::Value vekStorageEnclosureOEMInfo::getVariableData() const
{
    Json::Value oem(Json::objectValue);
    oem["Box"] = getBox();
    oem["PhysicalLocation"] = getPhysicalLocation();
    // Only for the developers' eyes; the inventory's hash moves with the level.
    if (vekLog::debugEnabled(CPlusPlusLogging::Logger::getInstance())) {
        oem["BayCount"] = std::to_string(getBayCount());
        oem["SegmentCount"] = std::to_string(getSegmentCount());
    }
    return oem;
}

Json::Value vekStorageEnclosureOEMInfo::getInventoryData() const
{
    return vekStorageEnclosureOEMInfo::getVariableData();
}

void vekStorageEnclosureInfo::writeIdentification(Json::Value& object) const
{
    object["FirmwareVersion"] = getFirmwareVersion();
    object["Model"] = getModel();
    object["Type"] = getType();
    object["PartNumber"] = getPartNumber();
    object["SerialNumber"] = getSerialNumber();
}

Json::Value vekStorageEnclosureInfo::getVariableData() const
{
    Json::Value data(Json::objectValue);
    writeIdentification(data);
    data["Oem"] = vekStorageEnclosureOEMInfo::getVariableData();

    Json::Value record(Json::objectValue);
    record["Type"] = "StorageEnclosure";
    record["Data"] = data;
    record["EventInfo"] = "";
    return record;
}

Json::Value vekStorageEnclosureInfo::getInventoryData() const
{
    Json::Value inventory(Json::objectValue);
    writeIdentification(inventory);
    inventory["Status"] = vekStatusInfo::getInventoryData();
    inventory["Oem"] = vekStorageEnclosureOEMInfo::getInventoryData();
    return inventory;
}
