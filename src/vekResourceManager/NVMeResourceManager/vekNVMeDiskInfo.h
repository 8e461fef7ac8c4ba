#pragma once

#include "vekInventoryBase.h"
#include "vekSCMServerChassisManager.h"
#include "vekStatusInfo.h"

#include <json/json.h>

#include <cstdint>
#include <string>

// Where an NVMe drive sits, and what its namespaces add up to.
class vekNVMeOemInfo : public virtual vekInventoryBase {
public:
    std::string getSlot() const { return slot; }
    void setSlot(const std::string& value) { slot = value; }
    std::string getPhysicalLocation() const { return physicalLocation; }
    void setPhysicalLocation(const std::string& value) { physicalLocation = value; }
    std::string getDecodedPhysicalLocation() const { return decodedPhysicalLocation; }
    void setDecodedPhysicalLocation(const std::string& value) { decodedPhysicalLocation = value; }
    std::string getDescription() const { return description; }
    void setDescription(const std::string& value) { description = value; }
    uint64_t getCapacityBytesDetected() const { return capacityBytesDetected; }
    void setCapacityBytesDetected(uint64_t value) { capacityBytesDetected = value; }

    // The drive object's "Oem"; CapacityBytesDetected only for a card.
    Json::Value getOemJson(_VEK_DEVICE_FORM_FACTOR formFactor) const;
    Json::Value getVariableData() const override { return getOemJson(VEK_FORM_FACTOR_UNKNOWN); }
    Json::Value getInventoryData() const override { return getOemJson(VEK_FORM_FACTOR_UNKNOWN); }

private:
    std::string slot;
    std::string physicalLocation;
    std::string decodedPhysicalLocation;
    std::string description;
    uint64_t capacityBytesDetected = 0;
};

// The drive record of one NVMe device.
class vekNVMeDiskInfo : public virtual vekInventoryBase {
public:
    std::string getDeviceName() const { return deviceName; }
    void setDeviceName(const std::string& value) { deviceName = value; }
    std::string getSerialNumber() const { return serialNumber; }
    void setSerialNumber(const std::string& value) { serialNumber = value; }
    std::string getPartNumber() const { return partNumber; }
    void setPartNumber(const std::string& value) { partNumber = value; }
    std::string getSparePartNumber() const { return sparePartNumber; }
    void setSparePartNumber(const std::string& value) { sparePartNumber = value; }
    std::string getSku() const { return sku; }
    void setSku(const std::string& value) { sku = value; }
    std::string getModel() const { return model; }
    void setModel(const std::string& value) { model = value; }
    std::string getProtocol() const { return protocol; }
    void setProtocol(const std::string& value) { protocol = value; }
    std::string getManufacturer() const { return manufacturer; }
    void setManufacturer(const std::string& value) { manufacturer = value; }
    std::string getMediaType() const { return mediaType; }
    void setMediaType(const std::string& value) { mediaType = value; }
    std::string getRevision() const { return revision; }
    void setRevision(const std::string& value) { revision = value; }
    std::string getEventInfoString() const { return eventInfoString; }
    void setEventInfoString(const std::string& value) { eventInfoString = value; }
    int64_t getCapacityBytes() const { return capacityBytes; }
    void setCapacityBytes(int64_t value) { capacityBytes = value; }
    _VEK_DEVICE_FORM_FACTOR getFormFactor() const { return formFactor; }
    void setFormFactor(_VEK_DEVICE_FORM_FACTOR value) { formFactor = value; }
    vekNVMeOemInfo& getOem() { return oem; }
    const vekNVMeOemInfo& getOem() const { return oem; }
    void setOem(const vekNVMeOemInfo& value) { oem = value; }
    vekStatusInfo& getStatus() { return status; }
    const vekStatusInfo& getStatus() const { return status; }
    void setStatus(const vekStatusInfo& value) { status = value; }

    // {"Type": "Drive", "Data": the drive object, "EventInfo": event text}.
    Json::Value getVariableData() const override;
    // The drive object of the inventory.
    Json::Value getInventoryData() const override;

private:
    std::string deviceName;
    std::string serialNumber;
    std::string partNumber;
    std::string sparePartNumber;
    std::string sku;
    std::string model;
    std::string protocol;
    std::string manufacturer;
    std::string mediaType;
    std::string revision;
    std::string eventInfoString;
    int64_t capacityBytes = 0;
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
    vekNVMeOemInfo oem;
    vekStatusInfo status;
};
