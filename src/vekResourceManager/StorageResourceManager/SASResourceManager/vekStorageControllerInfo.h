#pragma once

#include "vekInventoryBase.h"
#include "vekSCMServerChassisManager.h"
#include "vekStatusInfo.h"

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Where a storage controller sits: its PL code and its description.
class vekIOControllerPhyLoc {
public:
    virtual ~vekIOControllerPhyLoc() = default;

    virtual std::string getPhysicalLocation() const { return PhysicalLocation; }
    virtual void setPhysicalLocation(const std::string& value) { PhysicalLocation = value; }
    virtual std::string getDescription() const { return Description; }
    virtual void setDescription(const std::string& value) { Description = value; }

private:
    std::string PhysicalLocation;
    std::string Description;
};

// One port of a controller as the OS knows it. Its status is tracked, but a
// port is never sent on its own: both JSON forms are null.
class vekStorageControllerPortInfo : public virtual vekInventoryBase, public vekStatusInfo {
public:
    virtual std::string getOSInstanceName() const { return OSInstanceName; }
    virtual void setOSInstanceName(const std::string& value) { OSInstanceName = value; }
    virtual std::string getDriverName() const { return DriverName; }
    virtual void setDriverName(const std::string& value) { DriverName = value; }
    // Seconds since the epoch.
    virtual int64_t getLastRecoveryTimestamp() const { return LastRecoveryTimestamp; }
    virtual void setLastRecoveryTimestamp(int64_t value) { LastRecoveryTimestamp = value; }
    virtual int getATADeviceNumber() const { return ATADeviceNumber; }
    virtual void setATADeviceNumber(int value) { ATADeviceNumber = value; }

    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;

private:
    std::string OSInstanceName;
    std::string DriverName;
    int64_t LastRecoveryTimestamp = 0;
    int ATADeviceNumber = -1;
};

// One storage controller with its ports.
class vekStorageControllerInfo : public virtual vekInventoryBase, public vekStatusInfo, public vekIOControllerPhyLoc {
public:
    virtual std::string getDeviceName() const { return DeviceName; }
    virtual void setDeviceName(const std::string& value) { DeviceName = value; }
    virtual std::string getModel() const { return Model; }
    virtual void setModel(const std::string& value) { Model = value; }
    virtual std::string getSerialNumber() const { return SerialNumber; }
    virtual void setSerialNumber(const std::string& value) { SerialNumber = value; }
    virtual std::string getPartNumber() const { return PartNumber; }
    virtual void setPartNumber(const std::string& value) { PartNumber = value; }
    virtual std::string getSparePartNumber() const { return SparePartNumber; }
    virtual void setSparePartNumber(const std::string& value) { SparePartNumber = value; }
    virtual std::string getSkuPartNumber() const { return SkuPartNumber; }
    virtual void setSkuPartNumber(const std::string& value) { SkuPartNumber = value; }
    virtual std::string getFirmwareVersion() const { return FirmwareVersion; }
    virtual void setFirmwareVersion(const std::string& value) { FirmwareVersion = value; }
    virtual std::string getManufacturer() const { return Manufacturer; }
    virtual void setManufacturer(const std::string& value) { Manufacturer = value; }
    virtual std::string getProtocol() const { return Protocol; }
    virtual void setProtocol(const std::string& value) { Protocol = value; }
    // PCI vendor and device ids, as the controller factories receive them.
    virtual uint32_t getChipsetID() const { return ChipsetID; }
    virtual void setChipsetID(uint32_t value) { ChipsetID = value; }
    // PCI subsystem vendor and device ids.
    virtual uint32_t getBoardID() const { return BoardID; }
    virtual void setBoardID(uint32_t value) { BoardID = value; }

    virtual const std::vector<vekStorageControllerPortInfo>& getControllerPortVector() const { return Ports; }
    virtual void setControllerPortVector(const std::vector<vekStorageControllerPortInfo>& ports) { Ports = ports; }
    // An index past the end is the caller's fault.
    virtual vekStorageControllerPortInfo getControllerPort(size_t index) const { return Ports[index]; }
    // An index past the end changes nothing.
    virtual void setControllerPort(size_t index, const vekStorageControllerPortInfo& port);
    virtual void addControllerPort(const vekStorageControllerPortInfo& port) { Ports.push_back(port); }
    virtual void clearControllerPortList() { Ports.clear(); }
    virtual size_t getControllerPortListSize() const { return Ports.size(); }
    // An index past the end changes nothing.
    virtual void deleteControllerPort(size_t index);

    virtual std::string getEventInfoString() const { return EventInfoString; }
    virtual void setEventInfoString(const std::string& value) { EventInfoString = value; }
    virtual _VEK_DEVICE_FORM_FACTOR getFormFactor() const { return FormFactor; }
    virtual void setFormFactor(_VEK_DEVICE_FORM_FACTOR value) { FormFactor = value; }

    // {"Type": "Controller", "Data": {...}, "EventInfo": event text}.
    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;

private:
    std::string DeviceName;
    std::string Model;
    std::string SerialNumber;
    std::string PartNumber;
    std::string SparePartNumber;
    std::string SkuPartNumber;
    std::string FirmwareVersion;
    std::string Manufacturer;
    std::string Protocol;
    uint32_t ChipsetID = 0;
    uint32_t BoardID = 0;
    std::vector<vekStorageControllerPortInfo> Ports;
    std::string EventInfoString;
    _VEK_DEVICE_FORM_FACTOR FormFactor = VEK_FORM_FACTOR_UNKNOWN;
};
