#pragma once

#include "vekDiskInfo.h"
#include "vekInventoryBase.h"
#include "vekLogicalDiskConsistencyCheckStateBase.h"
#include "vekStatusInfo.h"

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

// RAID level labels by the vendor library's level number, for plain and for
// spanned volumes.
extern const std::map<int, std::string> BASIC_RAID_TYPES;
extern const std::map<int, std::string> SPANNED_RAID_TYPES;

// What a logical disk reports under "Oem": its OS device name and the PL
// code of the controller that hosts it.
class vekLogicalDiskOEMInfo {
public:
    virtual ~vekLogicalDiskOEMInfo() = default;

    virtual std::string getDeviceName() const { return DeviceName; }
    virtual void setDeviceName(const std::string& value) { DeviceName = value; }
    virtual std::string getHostControllerPhysicalLocation() const { return HostControllerPhysicalLocation; }
    virtual void setHostControllerPhysicalLocation(const std::string& value) { HostControllerPhysicalLocation = value; }

protected:
    Json::Value getOemData() const;

private:
    std::string DeviceName;
    std::string HostControllerPhysicalLocation;
};

// One logical disk (volume) of a controller, its members named by their ids.
// It owns its consistency check states; a copy gets clones of them.
class vekLogicalDiskInfo : public virtual vekInventoryBase, public vekStatusInfo, public vekLogicalDiskOEMInfo {
public:
    vekLogicalDiskInfo() = default;
    vekLogicalDiskInfo(const vekLogicalDiskInfo& other);
    vekLogicalDiskInfo& operator=(const vekLogicalDiskInfo& other);
    ~vekLogicalDiskInfo() override;

    // The key across collections; an empty name never matches.
    virtual std::string getDurableName() const { return DurableName; }
    virtual void setDurableName(const std::string& value) { DurableName = value; }
    virtual std::string getRAIDLevel() const { return RAIDLevel; }
    virtual void setRAIDLevel(const std::string& value) { RAIDLevel = value; }
    virtual uint64_t getCapacityBytes() const { return CapacityBytes; }
    virtual void setCapacityBytes(uint64_t value) { CapacityBytes = value; }

    virtual const std::vector<std::string>& getPhysicalDiskVector() const { return PhysicalDisks; }
    virtual void setPhysicalDiskVector(const std::vector<std::string>& ids) { PhysicalDisks = ids; }
    // An index past the end is the caller's fault.
    virtual std::string getPhysicalDisk(size_t index) const { return PhysicalDisks[index]; }
    // An index past the end changes nothing.
    virtual void setPhysicalDisk(size_t index, const std::string& id);
    virtual void addPhysicalDisk(const std::string& id) { PhysicalDisks.push_back(id); }
    virtual void clearPhysicalDiskList() { PhysicalDisks.clear(); }
    virtual size_t getPhysicalDiskListSize() const { return PhysicalDisks.size(); }
    // An index past the end changes nothing.
    virtual void deletePhysicalDisk(size_t index);

    virtual std::string getDescription() const { return Description; }
    virtual void setDescription(const std::string& value) { Description = value; }
    // The controller's own target id, as text.
    virtual std::string getLogicalDiskID() const { return LogicalDiskID; }
    virtual void setLogicalDiskID(const std::string& value) { LogicalDiskID = value; }
    virtual std::string getEventInfoString() const { return EventInfoString; }
    virtual void setEventInfoString(const std::string& value) { EventInfoString = value; }
    // A placeholder kept after the disk left the discovery.
    virtual bool getDeviceMissing() const { return DeviceMissing; }
    virtual void setDeviceMissing(bool value) { DeviceMissing = value; }
    virtual bool getDeletedEventReceived() const { return DeletedEventReceived; }
    virtual void setDeletedEventReceived(bool value) { DeletedEventReceived = value; }

    // The record keeps ownership; null when no check was seen.
    virtual vekLogicalDiskConsistencyCheckStateBase* getCurrentCCState() const { return CurrentCCState.get(); }
    virtual void setCurrentCCState(std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> state);
    virtual vekLogicalDiskConsistencyCheckStateBase* getPreviousCCState() const { return PreviousCCState.get(); }
    virtual void setPreviousCCState(std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> state);

    // {"Type": "Volume", "Data": {...}, "EventInfo": event text}; "Drives"
    // only when the volume has members.
    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;

private:
    void cleanExistingObjReferences();

    std::string DurableName;
    std::string RAIDLevel;
    uint64_t CapacityBytes = 0;
    std::vector<std::string> PhysicalDisks;
    std::string Description;
    std::string LogicalDiskID;
    std::string EventInfoString;
    bool DeviceMissing = false;
    bool DeletedEventReceived = false;
    std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> CurrentCCState;
    std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> PreviousCCState;
};

// A logical disk as it goes out with its members as whole disk records.
class vekLogicalDiskExtInfo : public virtual vekInventoryBase, public vekLogicalDiskOEMInfo {
public:
    virtual std::string getDurableName() const { return DurableName; }
    virtual void setDurableName(const std::string& value) { DurableName = value; }
    virtual std::string getRAIDLevel() const { return RAIDLevel; }
    virtual void setRAIDLevel(const std::string& value) { RAIDLevel = value; }
    virtual uint64_t getCapacityBytes() const { return CapacityBytes; }
    virtual void setCapacityBytes(uint64_t value) { CapacityBytes = value; }
    virtual const std::vector<vekDiskInfo>& getPhysicalDiskVector() const { return PhysicalDisks; }
    virtual void setPhysicalDiskVector(const std::vector<vekDiskInfo>& disks) { PhysicalDisks = disks; }
    virtual void addPhysicalDisk(const vekDiskInfo& disk) { PhysicalDisks.push_back(disk); }
    virtual std::string getEventInfoString() const { return EventInfoString; }
    virtual void setEventInfoString(const std::string& value) { EventInfoString = value; }
    // Figures the controllers gather while they build the record.
    virtual const std::map<std::string, uint64_t>& getCounterMap() const { return Counters; }
    virtual void setCounterMap(const std::map<std::string, uint64_t>& counters) { Counters = counters; }
    virtual void setCounter(const std::string& name, uint64_t value) { Counters[name] = value; }

    // As the logical disk's, with each member's getPDVarData() object.
    Json::Value getVariableData() const override;
    Json::Value getInventoryData() const override;

private:
    std::string DurableName;
    std::string RAIDLevel;
    uint64_t CapacityBytes = 0;
    std::vector<vekDiskInfo> PhysicalDisks;
    std::string EventInfoString;
    std::map<std::string, uint64_t> Counters;
};
