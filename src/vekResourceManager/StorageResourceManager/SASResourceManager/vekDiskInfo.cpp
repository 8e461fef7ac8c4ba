#include "vekDiskInfo.h"

Json::Value vekDiskStatusInfo::getInventoryData() const
{
    return Json::Value();
}

Json::Value vekDiskInfo::getPDVarData() const
{
    Json::Value data(Json::objectValue);
    data["SerialNumber"] = getSerialNumber();
    data["PartNumber"] = getPartNumber();
    data["SparePartNumber"] = getSparePartNumber();
    data["SKU"] = getSkuPartNumber();
    data["Model"] = getModel();
    data["CapacityBytes"] = Json::UInt64(getCapacityBytes());
    data["Protocol"] = getProtocol();
    data["MediaType"] = getMediaType();
    data["Revision"] = getRevision();
    data["Manufacturer"] = getManufacturer();
    Json::Value& oem = data["Oem"];
    oem["Slot"] = getSlot();
    oem["PhysicalLocation"] = getPhysicalLocation();
    oem["DecodedPhysicalLocation"] = getDecodedPhysicalLocation();
    return data;
}

Json::Value vekDiskInfo::getVariableData() const
{
    Json::Value record(Json::objectValue);
    record["Type"] = "Drive";
    record["Data"] = getPDVarData();
    record["EventInfo"] = getEventInfoString();
    return record;
}

Json::Value vekDiskInfo::getInventoryData() const
{
    return Json::Value();
}
