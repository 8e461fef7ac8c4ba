#pragma once

#include "vekInventoryBase.h"
#include "vekStatusInfo.h"

#include <json/json.h>

#include <cstdint>
#include <string>

// What kind of enclosure holds a controller's disks.
enum VEK_STORAGE_ENCLOSURE_TYPE : int32_t {
    VEK_STORAGE_ENCLOSURE_TYPE_UNKNOWN = 0,
    VEK_STORAGE_ENCLOSURE_TYPE_BACKPLANE = 1,
    VEK_STORAGE_ENCLOSURE_TYPE_UBM_BACKPLANE = 2,
    VEK_STORAGE_ENCLOSURE_TYPE_EXPANDER = 3,
    VEK_STORAGE_ENCLOSURE_TYPE_JBOD = 4,
};

// What an enclosure reports under "Oem". Bay and segment counts are for the
// developers only: they go out while the debug log level is on.
class vekStorageEnclosureOEMInfo : public virtual vekInventoryBase {
public:
    virtual int getBayCount() const { return BayCount; }
    virtual void setBayCount(int value) { BayCount = value; }
    virtual int getBox() const { return Box; }
    virtual void setBox(int value) { Box = value; }
    virtual std::string getPhysicalLocation() const { return PhysicalLocation; }
    virtual void setPhysicalLocation(const std::string& value) { PhysicalLocation = value; }
    // PCI address of the controller the enclosure is attached to.
    virtual std::string getControllerPCILocation() const { return ControllerPCILocation; }
    virtual void setControllerPCILocation(const std::string& value) { ControllerPCILocation = value; }
    virtual VEK_STORAGE_ENCLOSURE_TYPE getEnclosureType() const { return EnclosureType; }
    virtual void setEnclosureType(VEK_STORAGE_ENCLOSURE_TYPE value) { EnclosureType = value; }
    virtual int getSegmentCount() const { return SegmentCount; }
    virtual void setSegmentCount(int value) { SegmentCount = value; }

    // The "Oem" object, in both forms.
    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;

private:
    int BayCount = 0;
    int Box = -1;
    std::string PhysicalLocation;
    std::string ControllerPCILocation;
    VEK_STORAGE_ENCLOSURE_TYPE EnclosureType = VEK_STORAGE_ENCLOSURE_TYPE_UNKNOWN;
    int SegmentCount = 0;
};

// One storage enclosure (backplane) behind a controller. It carries no event
// text of its own.
class vekStorageEnclosureInfo : public virtual vekInventoryBase,
                                public vekStatusInfo,
                                public vekStorageEnclosureOEMInfo {
public:
    virtual std::string getFirmwareVersion() const { return FirmwareVersion; }
    virtual void setFirmwareVersion(const std::string& value) { FirmwareVersion = value; }
    virtual std::string getModel() const { return Model; }
    virtual void setModel(const std::string& value) { Model = value; }
    virtual std::string getType() const { return Type; }
    virtual void setType(const std::string& value) { Type = value; }
    virtual std::string getPartNumber() const { return PartNumber; }
    virtual void setPartNumber(const std::string& value) { PartNumber = value; }
    virtual std::string getSerialNumber() const { return SerialNumber; }
    virtual void setSerialNumber(const std::string& value) { SerialNumber = value; }

    // {"Type": "StorageEnclosure", "Data": {...}, "EventInfo": ""}.
    Json::Value getVariableData() const override;
    // The identification with "Status" {"State", "Health"} and "Oem".
    Json::Value getInventoryData() const override;

private:
    void writeIdentification(Json::Value& object) const;

    std::string FirmwareVersion;
    std::string Model;
    std::string Type;
    std::string PartNumber;
    std::string SerialNumber;
};
