#pragma once

#include "vekInventoryBase.h"
#include "vekStatusInfo.h"
#include "vekTristateBool.h"

#include <json/json.h>

#include <cstdint>
#include <string>

// Where a physical disk sits: its bay, the enclosure box that holds it, its
// PL code and the GeoID-style reading of that code.
class vekDiskPhyLoc {
public:
    virtual ~vekDiskPhyLoc() = default;

    virtual std::string getSlot() const { return Slot; }
    virtual void setSlot(const std::string& value) { Slot = value; }
    virtual int getEnclosureBox() const { return EnclosureBox; }
    virtual void setEnclosureBox(int value) { EnclosureBox = value; }
    // "FFFFFFFFFFFFFFFF" once the disk could not be placed.
    virtual std::string getPhysicalLocation() const { return PhysicalLocation; }
    virtual void setPhysicalLocation(const std::string& value) { PhysicalLocation = value; }
    virtual std::string getDecodedPhysicalLocation() const { return DecodedPhysicalLocation; }
    virtual void setDecodedPhysicalLocation(const std::string& value) { DecodedPhysicalLocation = value; }
    // N of the host's ataN device, -1 when the disk is not on an ATA port.
    virtual int getATADeviceNumber() const { return ATADeviceNumber; }
    virtual void setATADeviceNumber(int value) { ATADeviceNumber = value; }

private:
    std::string Slot;
    int EnclosureBox = -1;
    std::string PhysicalLocation;
    std::string DecodedPhysicalLocation;
    int ATADeviceNumber = -1;
};

// A disk's state and health. A disk goes to the inventory only inside its
// controller's and logical disks' records, so it has no inventory form.
class vekDiskStatusInfo : public vekStatusInfo {
public:
    Json::Value getInventoryData() const override;
};

// One physical disk behind a storage controller.
class vekDiskInfo : public virtual vekInventoryBase, public vekDiskStatusInfo, public vekDiskPhyLoc {
public:
    // With the location, the key that matches a disk across collections.
    virtual std::string getSerialNumber() const { return SerialNumber; }
    virtual void setSerialNumber(const std::string& value) { SerialNumber = value; }
    virtual std::string getPartNumber() const { return PartNumber; }
    virtual void setPartNumber(const std::string& value) { PartNumber = value; }
    virtual std::string getSparePartNumber() const { return SparePartNumber; }
    virtual void setSparePartNumber(const std::string& value) { SparePartNumber = value; }
    virtual std::string getSkuPartNumber() const { return SkuPartNumber; }
    virtual void setSkuPartNumber(const std::string& value) { SkuPartNumber = value; }
    virtual std::string getModel() const { return Model; }
    virtual void setModel(const std::string& value) { Model = value; }
    virtual uint64_t getCapacityBytes() const { return CapacityBytes; }
    virtual void setCapacityBytes(uint64_t value) { CapacityBytes = value; }
    virtual std::string getProtocol() const { return Protocol; }
    virtual void setProtocol(const std::string& value) { Protocol = value; }
    virtual std::string getManufacturer() const { return Manufacturer; }
    virtual void setManufacturer(const std::string& value) { Manufacturer = value; }
    virtual std::string getMediaType() const { return MediaType; }
    virtual void setMediaType(const std::string& value) { MediaType = value; }
    virtual std::string getRevision() const { return Revision; }
    virtual void setRevision(const std::string& value) { Revision = value; }
    virtual std::string getOSDeviceName() const { return OSDeviceName; }
    virtual void setOSDeviceName(const std::string& value) { OSDeviceName = value; }
    virtual std::string getOSSCSILink() const { return OSSCSILink; }
    virtual void setOSSCSILink(const std::string& value) { OSSCSILink = value; }
    virtual int getOSSGHandle() const { return OSSGHandle; }
    virtual void setOSSGHandle(int value) { OSSGHandle = value; }
    virtual int getATAMajorRevision() const { return ATAMajorRevision; }
    virtual void setATAMajorRevision(int value) { ATAMajorRevision = value; }
    virtual std::string getEventInfoString() const { return EventInfoString; }
    virtual void setEventInfoString(const std::string& value) { EventInfoString = value; }
    // Cleared once a read shows that the disk does not answer the page, so
    // that it is not asked again.
    virtual bool getIfTempPageSupported() const { return IfTempPageSupported; }
    virtual void setIfTempPageSupported(bool value) { IfTempPageSupported = value; }
    virtual bool getIfSSDWearPageSupported() const { return IfSSDWearPageSupported; }
    virtual void setIfSSDWearPageSupported(bool value) { IfSSDWearPageSupported = value; }
    // A placeholder kept for a disk that the latest discovery did not find.
    virtual bool getDeviceMissing() const { return DeviceMissing; }
    virtual void setDeviceMissing(bool value) { DeviceMissing = value; }
    virtual TRISTATE_BOOL getPreferSCModelNumber() const { return PreferSCModelNumber; }
    virtual void setPreferSCModelNumber(TRISTATE_BOOL value) { PreferSCModelNumber = value; }

    // {"Type": "Drive", "Data": getPDVarData(), "EventInfo": event text}.
    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;
    // The disk's own object, as a logical disk lists its members.
    virtual Json::Value getPDVarData() const;

private:
    std::string SerialNumber;
    std::string PartNumber;
    std::string SparePartNumber;
    std::string SkuPartNumber;
    std::string Model;
    uint64_t CapacityBytes = 0;
    std::string Protocol;
    std::string Manufacturer;
    std::string MediaType;
    std::string Revision;
    std::string OSDeviceName;
    std::string OSSCSILink;
    int OSSGHandle = -1;
    int ATAMajorRevision = 0;
    std::string EventInfoString;
    bool IfTempPageSupported = true;
    bool IfSSDWearPageSupported = true;
    bool DeviceMissing = false;
    TRISTATE_BOOL PreferSCModelNumber = VEK_TRISTATE_UNDECIDED;
};
