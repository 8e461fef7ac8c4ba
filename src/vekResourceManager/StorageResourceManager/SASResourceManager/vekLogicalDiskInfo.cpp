#include "vekLogicalDiskInfo.h"

#include <utility>

const std::map<int, std::string> BASIC_RAID_TYPES = {
    {0, "RAID0"}, {1, "RAID1"}, {3, "RAID3"}, {5, "RAID5"}, {6, "RAID6"}, {17, "PRL11"}, {15, "SingleDisk"},
};

const std::map<int, std::string> SPANNED_RAID_TYPES = {
    {0, "RAID00"}, {1, "RAID10"}, {5, "RAID50"}, {6, "RAID60"}, {17, "PRL11 with Spanning"},
};

namespace {

Json::Value volumeRecord(Json::Value data, const std::string& eventInfo)
{
    Json::Value record(Json::objectValue);
    record["Type"] = "Volume";
    record["Data"] = std::move(data);
    record["EventInfo"] = eventInfo;
    return record;
}

std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase>
cloneOf(const std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase>& state)
{
    return state ? state->clone() : nullptr;
}

} // namespace

Json::Value vekLogicalDiskOEMInfo::getOemData() const
{
    Json::Value oem(Json::objectValue);
    oem["DeviceName"] = getDeviceName();
    oem["HostControllerPhysicalLocation"] = getHostControllerPhysicalLocation();
    return oem;
}

vekLogicalDiskInfo::vekLogicalDiskInfo(const vekLogicalDiskInfo& other)
    : vekInventoryBase(other),
      vekStatusInfo(other),
      vekLogicalDiskOEMInfo(other),
      DurableName(other.DurableName),
      RAIDLevel(other.RAIDLevel),
      CapacityBytes(other.CapacityBytes),
      PhysicalDisks(other.PhysicalDisks),
      Description(other.Description),
      LogicalDiskID(other.LogicalDiskID),
      EventInfoString(other.EventInfoString),
      DeviceMissing(other.DeviceMissing),
      DeletedEventReceived(other.DeletedEventReceived),
      CurrentCCState(cloneOf(other.CurrentCCState)),
      PreviousCCState(cloneOf(other.PreviousCCState))
{
}

vekLogicalDiskInfo& vekLogicalDiskInfo::operator=(const vekLogicalDiskInfo& other)
{
    if (this == &other) {
        return *this;
    }
    vekStatusInfo::operator=(other);
    vekLogicalDiskOEMInfo::operator=(other);
    DurableName = other.DurableName;
    RAIDLevel = other.RAIDLevel;
    CapacityBytes = other.CapacityBytes;
    PhysicalDisks = other.PhysicalDisks;
    Description = other.Description;
    LogicalDiskID = other.LogicalDiskID;
    EventInfoString = other.EventInfoString;
    DeviceMissing = other.DeviceMissing;
    DeletedEventReceived = other.DeletedEventReceived;
    cleanExistingObjReferences();
    CurrentCCState = cloneOf(other.CurrentCCState);
    PreviousCCState = cloneOf(other.PreviousCCState);
    return *this;
}

vekLogicalDiskInfo::~vekLogicalDiskInfo()
{
    cleanExistingObjReferences();
}

void vekLogicalDiskInfo::cleanExistingObjReferences()
{
    CurrentCCState.reset();
    PreviousCCState.reset();
}

void vekLogicalDiskInfo::setPhysicalDisk(size_t index, const std::string& id)
{
    if (index < PhysicalDisks.size()) {
        PhysicalDisks[index] = id;
    }
}

void vekLogicalDiskInfo::deletePhysicalDisk(size_t index)
{
    if (index < PhysicalDisks.size()) {
        PhysicalDisks.erase(PhysicalDisks.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

void vekLogicalDiskInfo::setCurrentCCState(std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> state)
{
    CurrentCCState = std::move(state);
}

void vekLogicalDiskInfo::setPreviousCCState(std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> state)
{
    PreviousCCState = std::move(state);
}

Json::Value vekLogicalDiskInfo::getVariableData() const
{
    Json::Value data(Json::objectValue);
    data["DurableName"] = getDurableName();
    data["VolumeType"] = getRAIDLevel();
    data["CapacityBytes"] = Json::UInt64(getCapacityBytes());
    for (const std::string& id : getPhysicalDiskVector()) {
        data["Drives"].append(id);
    }
    data["Oem"] = getOemData();
    return volumeRecord(std::move(data), getEventInfoString());
}

Json::Value vekLogicalDiskInfo::getInventoryData() const
{
    return Json::Value();
}

Json::Value vekLogicalDiskExtInfo::getVariableData() const
{
    Json::Value data(Json::objectValue);
    data["DurableName"] = getDurableName();
    data["VolumeType"] = getRAIDLevel();
    data["CapacityBytes"] = Json::UInt64(getCapacityBytes());
    for (const vekDiskInfo& disk : getPhysicalDiskVector()) {
        data["Drives"].append(disk.getPDVarData());
    }
    data["Oem"] = getOemData();
    return volumeRecord(std::move(data), getEventInfoString());
}

Json::Value vekLogicalDiskExtInfo::getInventoryData() const
{
    return Json::Value();
}
