#include "vekNVMeDiskInfo.h"

Json::Value vekNVMeOemInfo::getOemJson(_VEK_DEVICE_FORM_FACTOR formFactor) const
{
    Json::Value oemJson(Json::objectValue);
    if (formFactor == VEK_FORM_FACTOR_PCIE_CEM) {
        oemJson["CapacityBytesDetected"] = Json::Value::UInt64(capacityBytesDetected);
    }
    oemJson["Slot"] = slot;
    oemJson["PhysicalLocation"] = physicalLocation;
    oemJson["DecodedPhysicalLocation"] = decodedPhysicalLocation;
    return oemJson;
}

Json::Value vekNVMeDiskInfo::getInventoryData() const
{
    Json::Value drive(Json::objectValue);
    drive["SerialNumber"] = serialNumber;
    drive["PartNumber"] = partNumber;
    drive["SparePartNumber"] = sparePartNumber;
    drive["SKU"] = sku;
    drive["Model"] = model;
    // A drive in a bay is as big as its namespaces; a card reports what it
    // is sold as, and what its namespaces add up to under "Oem".
    drive["CapacityBytes"] = formFactor == VEK_FORM_FACTOR_SSD_HDD
                                 ? Json::Value::Int64(oem.getCapacityBytesDetected())
                                 : Json::Value::Int64(capacityBytes);
    drive["Protocol"] = protocol;
    drive["MediaType"] = mediaType;
    drive["Revision"] = revision;
    drive["Manufacturer"] = manufacturer;
    drive["Status"] = status.getInventoryData();
    drive["Oem"] = oem.getOemJson(formFactor);
    return drive;
}

Json::Value vekNVMeDiskInfo::getVariableData() const
{
    Json::Value record(Json::objectValue);
    record["Type"] = "Drive";
    record["Data"] = getInventoryData();
    record["EventInfo"] = eventInfoString;
    return record;
}
