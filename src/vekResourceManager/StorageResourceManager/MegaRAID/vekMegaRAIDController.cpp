#include "vekMegaRAIDController.h"

#include "IELEvent.h"
#include "IvekStorageControllerFactory.h"
#include "SASResourceManager.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekMegaRAIDConsistencyCheckEventHandler.h"
#include "vekMegaRAIDUBMSupport.h"
#include "vekMegaRAIDLogicalDiskConsistencyCheckState.h"
#include "vekPCIVendorsMap.h"
#include "vekPhysLocFactory.h"
#include "vekTimedLock.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "STOR_MR";
const char kInvalidPL[] = "FFFFFFFFFFFFFFFF";

bool isPLValid(const std::string& pl) { return !pl.empty() && pl != kInvalidPL; }
const std::string& stateWord(VEK_RESOURCE_STATE state) { return vekResourceStateMap[state]; }
const std::string& healthWord(VEK_RESOURCE_HEALTH health) { return vekResourceHealthMap[health]; }

// How the drives of a model are placed.
enum DriveLocationMethod { DRIVES_THROUGH_UBM, DRIVES_WITHOUT_LOCATION };

struct DriveLocationRow {
    uint32_t chipsetID;
    uint32_t boardID;
    DriveLocationMethod method;
};

const DriveLocationRow kDriveLocation[] = {
    {vekStorageChipsetID(0x1000, 0x10E2), 0x40001000, DRIVES_THROUGH_UBM},
    {vekStorageChipsetID(0x1000, 0x10E2), 0x40101000, DRIVES_THROUGH_UBM},
    {vekStorageChipsetID(0x1000, 0x005D), 0x93611000, DRIVES_WITHOUT_LOCATION},
};

// The maker's part numbers of the adapters and drives it ships.
struct PartNumbers {
    const char* partNumber;
    const char* sparePartNumber;
    const char* skuPartNumber;
};
struct HBAPartNumberRow {
    uint32_t chipsetID;
    uint32_t boardID;
    PartNumbers numbers;
};
const HBAPartNumberRow kHBAPartNumbers[] = {
    {vekStorageChipsetID(0x1000, 0x10E2), 0x40001000, {"ZV4-RAID-9560-16I", "ZV4-RAID-9560-16I-SP", "ZR4-OPT-R9560"}},
    {vekStorageChipsetID(0x1000, 0x10E2), 0x40101000, {"ZV4-RAID-9560-8I", "ZV4-RAID-9560-8I-SP", "ZR4-OPT-R9560-8"}},
    {vekStorageChipsetID(0x1000, 0x005D), 0x93611000, {"ZV4-RAID-9361-8I", "ZV4-RAID-9361-8I-SP", "ZR4-OPT-R9361"}},
};
struct DiskPartNumberRow {
    const char* model;
    PartNumbers numbers;
};
// By the model of the inquiry data: an ATA drive's is cut to 16 characters.
const DiskPartNumberRow kDiskPartNumbers[] = {
    {"ST1200MM0009", {"ZV4-HDD-1T2", "ZV4-HDD-1T2-SP", "ZR4-OPT-HDD12"}},
    {"ST2400MM0129", {"ZV4-HDD-2T4", "ZV4-HDD-2T4-SP", "ZR4-OPT-HDD24"}},
    {"SAMSUNG MZ7LH960", {"ZV4-SSD-960", "ZV4-SSD-960-SP", "ZR4-OPT-SSD96"}},
    {"SAMSUNG MZ7LH1T9", {"ZV4-SSD-1T9", "ZV4-SSD-1T9-SP", "ZR4-OPT-SSD19"}},
};

const PartNumbers* hbaPartNumbers(uint32_t chipsetID, uint32_t boardID)
{
    for (const HBAPartNumberRow& row : kHBAPartNumbers) {
        if (row.chipsetID == chipsetID && row.boardID == boardID) {
            return &row.numbers;
        }
    }
    return nullptr;
}

const PartNumbers* diskPartNumbers(const std::string& model)
{
    for (const DiskPartNumberRow& row : kDiskPartNumbers) {
        if (model == row.model) {
            return &row.numbers;
        }
    }
    return nullptr;
}

// Firmware codes of a drive's predictive failure (SMART trip and its kin).
const std::set<uint32_t> kPredictiveFailureCodes = {97, 359};

vekMegaRAIDController::DriveBoxLocator& driveBoxLocator()
{
    static vekMegaRAIDController::DriveBoxLocator locator;
    return locator;
}

} // namespace

bool vekMegaRAIDController::isLSILibLoaded = false;
bool vekMegaRAIDController::isAENRegistered = false;
unsigned vekMegaRAIDController::totalLSICtrls = 0;

void vekMegaRAIDController::setDriveBoxLocator(DriveBoxLocator locator) { driveBoxLocator() = std::move(locator); }

vekMegaRAIDController::vekMegaRAIDController(vekOSInterface* osInterface)
    : vekStorageController(0, 0, "", VEK_STORAGE_FAMILY_MEGARAID, true, osInterface),
      forwardAllCritical_(vekConfig::getInstance().isForwardAllMegaRAIDCriticalOrHigherEventsEnabled())
{
}

VEK_RESOURCE_HEALTH vekMegaRAIDController::getHealthEnum(int health)
{
    switch (health) {
    case 1:
        return VEK_HEALTH_OK;
    case 2:
        return VEK_HEALTH_WARNING;
    case 4:
        return VEK_HEALTH_CRITICAL;
    default:
        return VEK_HEALTH_UNKNOWN;
    }
}

bool vekMegaRAIDController::getHBAPartNumber(uint32_t chipsetID, uint32_t boardID, std::string& partNumber,
                                             std::string& sparePartNumber)
{
    const PartNumbers* numbers = hbaPartNumbers(chipsetID, boardID);
    if (numbers == nullptr) {
        return false;
    }
    partNumber = numbers->partNumber;
    sparePartNumber = numbers->sparePartNumber;
    return true;
}

bool vekMegaRAIDController::getHBASkuPartNumber(uint32_t chipsetID, uint32_t boardID, std::string& skuPartNumber)
{
    const PartNumbers* numbers = hbaPartNumbers(chipsetID, boardID);
    if (numbers == nullptr) {
        return false;
    }
    skuPartNumber = numbers->skuPartNumber;
    return true;
}

bool vekMegaRAIDController::getDiskPartNumber(const std::string& model, std::string& partNumber,
                                              std::string& sparePartNumber)
{
    const PartNumbers* numbers = diskPartNumbers(model);
    if (numbers == nullptr) {
        return false;
    }
    partNumber = numbers->partNumber;
    sparePartNumber = numbers->sparePartNumber;
    return true;
}

bool vekMegaRAIDController::getDiskSkuPartNumber(const std::string& model, std::string& skuPartNumber)
{
    const PartNumbers* numbers = diskPartNumbers(model);
    if (numbers == nullptr) {
        return false;
    }
    skuPartNumber = numbers->skuPartNumber;
    return true;
}

VEK_RESOURCE_STATE vekMegaRAIDController::getStateEnum(const std::string& word)
{
    for (int value = 0; value < VEK_RESOURCE_STATE_COUNT; ++value) {
        if (strcasecmp(vekResourceStateMap[value].c_str(), word.c_str()) == 0) {
            return static_cast<VEK_RESOURCE_STATE>(value);
        }
    }
    return VEK_STATE_UNKNOWN;
}

// ---------------------------------------------------------------- discovery

int vekMegaRAIDController::discoverInventory(vekStorageControllerInfo& info)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    vekStoreLibInterface& lib = vekStoreLibInterface::getInstance();
    if (isLSILibLoaded) {
        VEK_LOG_DEBUG(TAG, "Refreshing LSI cache during claim processing");
        lib.cacheBuild("All");
    } else if (!lib.vekStoreInit()) {
        VEK_LOG_ERROR(TAG, "Issue occurred in discovering LSI MR inventory.");
        return -1;
    } else {
        lib.cacheBuild("All");
        isLSILibLoaded = true;
    }
    CTRL_INFO ctrl;
    if (!lib.getControllerInventory(controllerId_, ctrl)) {
        VEK_LOG_ERROR(TAG, "MegaRAID [%s]: Controller (ID: [%u]) not in the library's list.", deviceName_.c_str(),
                      controllerId_);
        return -1;
    }
    totalLSICtrls = static_cast<unsigned>(lib.getControllerCollection().size());
    previousInfo_ = currentInfo_;

    ChipsetID = ctrl.chipsetId;
    BoardID = ctrl.boardId;
    PciLocation = ctrl.pciLocation;
    currentInfo_.setSerialNumber(ctrl.serialNumber);
    currentInfo_.setFirmwareVersion(ctrl.firmwareVersion);
    currentInfo_.setProtocol(ctrl.protocol);
    currentInfo_.setChipsetID(ChipsetID);
    currentInfo_.setBoardID(BoardID);
    currentInfo_.setDeviceName(ctrl.serialNumber);
    unsigned char flags = 0;
    const char* model = getStorageControllerModel(ChipsetID, BoardID, VEK_STORAGE_FAMILY_ALL, flags);
    currentInfo_.setModel(model != nullptr ? model : ctrl.model);
    std::string partNumber, sparePartNumber, skuPartNumber;
    if (getHBAPartNumber(ChipsetID, BoardID, partNumber, sparePartNumber)) {
        currentInfo_.setPartNumber(partNumber);
        currentInfo_.setSparePartNumber(sparePartNumber);
    }
    if (getHBASkuPartNumber(ChipsetID, BoardID, skuPartNumber)) {
        currentInfo_.setSkuPartNumber(skuPartNumber);
    }

    const std::string geoID = vekIOGeoIDHelper::getInstance().getGeoIDStr(PciLocation);
    currentInfo_.setDescription("PCI " + PciLocation + " " + geoID);
    currentInfo_.setPhysicalLocation(vekPhysLocFactory::getPhysLocInterface()->getPhysLocForPCIDevice(PciLocation));
    std::string manufacturer;
    if (discoverManufacturer(manufacturer) != 0 || manufacturer.empty()) {
        // The library read the subsystem vendor where the OS lists no device.
        char vendor[8];
        snprintf(vendor, sizeof vendor, "%04x", getControllerVendorID());
        const auto found = vekPCIVendorsMap.find(vendor);
        manufacturer = found != vekPCIVendorsMap.end() ? found->second : std::string();
    }
    currentInfo_.setManufacturer(manufacturer);
    if (currentInfo_.getState() == VEK_STATE_UNKNOWN && currentInfo_.getHealth() == VEK_HEALTH_UNKNOWN) {
        currentInfo_.setState(VEK_STATE_RUNNING);
        currentInfo_.setHealth(VEK_HEALTH_OK);
        currentInfo_.setEventState(VEK_STATE_RUNNING);
        currentInfo_.setEventHealth(VEK_HEALTH_OK);
    }
    VEK_LOG_INFO(TAG, "pciloc=[%s] phyloc=[%s] Description=[%s]", PciLocation.c_str(),
                 currentInfo_.getPhysicalLocation().c_str(), currentInfo_.getDescription().c_str());
    info = currentInfo_;
    if (NewDevice) {
        NewDevice = false;
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
    return 0;
}

void vekMegaRAIDController::discoverPhysicalDiskAttributes(vekDiskInfo& disk, const PD_INFO& pd)
{
    disk.setProtocol(pd.protocol);
    disk.setMediaType(pd.mediaType);
    disk.setHealth(getHealthEnum(pd.health));
    disk.setState(getStateEnum(vekStoreLibInterface::getFWStateString(pd.fwState)));
    char slot[32];
    snprintf(slot, sizeof slot, "%d:%d", pd.enclosure, pd.slot);
    disk.setSlot(slot);
    disk.setModel(pd.model);
    disk.setSerialNumber(pd.serialNumber);
    disk.setCapacityBytes(pd.capacityBytes);
    disk.setRevision(pd.revision);
    std::string manufacturer = pd.vendor;
    if (manufacturer.empty() || manufacturer == "ATA") {
        // Behind the translation layer the maker is only in the model text.
        const size_t blank = pd.model.find(' ');
        manufacturer = blank == std::string::npos ? std::string() : pd.model.substr(0, blank);
    }
    disk.setManufacturer(manufacturer);

    disk.setPhysicalLocation(kInvalidPL);
    const DriveLocationRow* row = nullptr;
    for (const DriveLocationRow& candidate : kDriveLocation) {
        if (candidate.chipsetID == ChipsetID && candidate.boardID == BoardID) {
            row = &candidate;
        }
    }
    if (row == nullptr) {
        VEK_LOG_WARNING(TAG, "Unrecognized or unsupported MegaRAID controller model [%08X, %08X] @ [%s].", ChipsetID,
                        BoardID, PciLocation.c_str());
    } else if (row->method == DRIVES_THROUGH_UBM && driveBoxLocator()) {
        CTRL_INFO ctrl;
        vekStoreLibInterface::getInstance().getControllerInventory(controllerId_, ctrl);
        const std::string connector = pd.connectorNames.empty() ? std::string() : pd.connectorNames.front();
        int box = -1;
        bool located = false;
        try {
            box = driveBoxLocator()(ctrl, pd);
            located = true;
            VEK_LOG_DEBUG(TAG,
                          "Broadcom controller [0x%04X, 0x%04X] @ [%s]: PD @ bay #[%d] on connector [%s] maps to LM "
                          "enclosure box # [%d].",
                          ChipsetID, BoardID, PciLocation.c_str(), pd.slot, connector.c_str(), box);
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG,
                          "Unable to determine LM enclosure box # [%d] for PD on Broadcom controller [0x%04X, 0x%04X] "
                          "@ [%s]. PL for PD [%s, %s] @ slot [%s] will be reported as FFFFFFFFFFFFFFFF. (%zu, %s, "
                          "[%s])",
                          box, ChipsetID, BoardID, PciLocation.c_str(), pd.model.c_str(), pd.serialNumber.c_str(),
                          slot, pd.connectorNames.size(), connector.c_str(), e.what());
        }
        if (!located) {
            // The drive keeps the all-F PL.
        } else if (box < 0) {
            VEK_LOG_ERROR(TAG, "Internal error detected: Invalid box #[%d]!", box);
        } else {
            disk.setEnclosureBox(box);
            disk.setPhysicalLocation(
                vekPhysLocFactory::getPhysLocInterface()->getPhysLocForChassisDriveSlot(PciLocation, box, pd.slot));
        }
    }
    if (isPLValid(disk.getPhysicalLocation())) {
        try {
            disk.setDecodedPhysicalLocation(
                vekPhysLocFactory::getPhysLocInterface()->getDecodedPhysLocLongFormat(disk.getPhysicalLocation()));
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Unable to decode PL [%s]: (%s)", disk.getPhysicalLocation().c_str(), e.what());
        }
    }
    VEK_LOG_DEBUG(TAG, "Disk on MegaRAID HBA @ pciloc=[%s] at slot=[%s]: phyloc=[%s], Decoded PL=[%s]",
                  PciLocation.c_str(), disk.getSlot().c_str(), disk.getPhysicalLocation().c_str(),
                  disk.getDecodedPhysicalLocation().c_str());
    std::string partNumber, sparePartNumber, skuPartNumber;
    if (getDiskPartNumber(pd.model, partNumber, sparePartNumber)) {
        disk.setPartNumber(partNumber);
        disk.setSparePartNumber(sparePartNumber);
    }
    if (getDiskSkuPartNumber(pd.model, skuPartNumber)) {
        disk.setSkuPartNumber(skuPartNumber);
    }
}

int vekMegaRAIDController::discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    previousDisks_ = disks_;
    disks_.clear();
    disks.clear();
    for (const PD_INFO& pd : vekStoreLibInterface::getInstance().getPDInventoryForCtrl(controllerId_)) {
        VEK_LOG_DEBUG(TAG, "discoverPhysicalDiskInventory SN:%s", pd.serialNumber.c_str());
        vekDiskInfo disk;
        discoverPhysicalDiskAttributes(disk, pd);
        disk.setEventState(disk.getState());
        disk.setEventHealth(disk.getHealth());
        for (const vekDiskInfo& old : previousDisks_) {
            if (old.getSerialNumber() == disk.getSerialNumber() && old.getSlot() == disk.getSlot()) {
                disk.setEventState(old.getEventState());
                disk.setEventHealth(old.getEventHealth());
                break;
            }
        }
        disks_.push_back(disk);
    }
    synchronizePhysicalDrivesInventory();
    for (const vekDiskInfo& disk : disks_) {
        if (!disk.getDeviceMissing()) {
            disks.push_back(disk);
        }
    }
    return 0;
}

int vekMegaRAIDController::discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    VEK_LOG_DEBUG(TAG, "Gathering volume inventory for MegaRAID controller @ %s [0x%X, 0x%X].", PciLocation.c_str(),
                  ChipsetID, BoardID);
    previousLogicalDisks_ = logicalDisks_;
    logicalDisks_.clear();
    disks.clear();
    for (const LD_INFO& ld : vekStoreLibInterface::getInstance().getLDInventoryForCtrl(controllerId_)) {
        VEK_LOG_DEBUG(TAG, "discoverLogicalDiskInventory %d", ld.targetId);
        vekLogicalDiskInfo disk;
        disk.setDurableName(ld.durableName);
        disk.setDeviceName(ld.name);
        disk.setRAIDLevel(ld.raidLevel);
        disk.setCapacityBytes(ld.capacityBytes);
        disk.setLogicalDiskID(std::to_string(ld.targetId));
        disk.setState(getStateEnum(vekStoreLibInterface::getLDStateString(ld.state)));
        disk.setHealth(getHealthEnum(vekStoreLibInterface::getLDHealth(ld.state)));
        disk.setEventState(disk.getState());
        disk.setEventHealth(disk.getHealth());
        bool found = false;
        for (const vekLogicalDiskInfo& old : previousLogicalDisks_) {
            if (!ld.durableName.empty() && old.getDurableName() == ld.durableName) {
                disk.setEventState(old.getEventState());
                disk.setEventHealth(old.getEventHealth());
                cloneConsistencyCheckState(disk, old);
                found = true;
                break;
            }
        }
        if (!found || disk.getCurrentCCState() == nullptr) {
            initializeConsistencyCheckState<vekMegaRAIDLogicalDiskConsistencyCheckState>(disk);
        }
        disk.setPhysicalDiskVector(ld.members);
        disk.setHostControllerPhysicalLocation(currentInfo_.getPhysicalLocation());
        logicalDisks_.push_back(disk);
    }
    synchronizeLogicalDiskInventory();
    for (const vekLogicalDiskInfo& disk : logicalDisks_) {
        if (!disk.getDeviceMissing()) {
            disks.push_back(disk);
        }
    }
    return 0;
}

int vekMegaRAIDController::discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    enclosures.clear();
    VEK_LOG_DEBUG(TAG, "Gathering storage enclosure inventory for MegaRAID controller @ %s [0x%X, 0x%X] [%d].",
                  PciLocation.c_str(), ChipsetID, BoardID, static_cast<int>(isRemoved()));
    if (isRemoved()) {
        VEK_LOG_DEBUG(TAG, "%s: Return last known SE inventory for removed MegaRAID controller.", PciLocation.c_str());
        enclosures = enclosures_;
        return 0;
    }
    previousEnclosures_ = enclosures_;
    enclosures_.clear();
    // The enclosure segments come from the UBM support of backplane
    // platforms. Without it there is nothing to find, which is no failure:
    // the manager's collection goes on to enable the controller's events.
    if (!driveBoxLocator()) {
        return 0;
    }
    if (vekMegaRAIDUBMSupport::populateEnclosureSegment(enclosures_, PciLocation) < 0) {
        VEK_LOG_DEBUG(TAG, "Returning -1 as no enclosure segments found.");
        return -1;
    }
    enclosures = enclosures_;
    return 0;
}

// ---------------------------------------------------------------- events on and off

int vekMegaRAIDController::enableEvents()
{
    {
        std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
        eventControlFlags |= VEK_STORAGE_EVENTS_NO_PORT_POLL | VEK_STORAGE_EVENTS_NO_DISK_POLL |
                             VEK_STORAGE_EVENTS_ENABLED;
    }
    // Outside the controller's lock: the registration waits for the
    // library's event thread, which may be waiting for this lock.
    if (!isAENRegistered && isLSILibLoaded) {
        isAENRegistered = vekSASLSIEvent::getInstance().RegisterForAEN(vekSASLSIEvent::handleEvent);
    }
    return 1;
}

bool vekMegaRAIDController::isEventsEnabled() { return isAENRegistered; }

int vekMegaRAIDController::disableEvents() { return 1; }

int vekMegaRAIDController::poll() { return 0; }

void vekMegaRAIDController::processDeviceAddition(IvekStorageController*) {}

int vekMegaRAIDController::discoverPhysicalDiskStatus(vekDiskInfo&) { return 0; }

void vekMegaRAIDController::processDeviceRemoval()
{
    const unsigned before = totalLSICtrls;
    if (totalLSICtrls > 0) {
        --totalLSICtrls;
    }
    if (before <= 1 && isAENRegistered) {
        VEK_LOG_INFO(TAG, "Unregistering AEN for all LSI MegaRAID controllers");
        vekSASLSIEvent::getInstance().UnregisterForAEN();
        isAENRegistered = false;
        VEK_LOG_INFO(TAG, "No more LSI MegaRAID controllers remaining.");
    }
    vekStorageController::processDeviceRemoval();
}

// ---------------------------------------------------------------- status change events

void vekMegaRAIDController::raiseEvent(int kind, const std::string& location, bool asserted,
                                       const vekInventoryBase& record)
{
    const int number = SASResourceManager::resolveEventNumber(kind);
    if (number >= 0) {
        SASResourceManager::generateEvent(number, location, asserted, record);
    }
}

bool vekMegaRAIDController::generateEventOnStatusChange(vekDiskInfo* current, vekDiskInfo* previous)
{
    if (current == nullptr || previous == nullptr || current->getState() == previous->getState()) {
        return false;
    }
    if (!isPLValid(current->getPhysicalLocation())) {
        current->setPhysicalLocation(previous->getPhysicalLocation());
    }
    const std::string& now = stateWord(current->getState());
    const std::string& before = stateWord(previous->getState());
    VEK_LOG_DEBUG(TAG,
                  "Controller [%s] @ [%s]: Physical Drive @ [%s, %s]: Detected disk status change. [CurrState=%s, "
                  "PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                  deviceName_.c_str(), PciLocation.c_str(), current->getSlot().c_str(),
                  current->getSerialNumber().c_str(), now.c_str(), before.c_str(),
                  healthWord(current->getHealth()).c_str(), healthWord(previous->getHealth()).c_str());
    auto down = [](VEK_RESOURCE_STATE s) { return s == VEK_STATE_FAILED || s == VEK_STATE_OFFLINE; };
    auto up = [](VEK_RESOURCE_STATE s) {
        return s == VEK_STATE_REBUILD || s == VEK_STATE_UNCONFIGURED_BAD || s == VEK_STATE_ONLINE;
    };
    if (down(previous->getState()) && up(current->getState())) {
        raiseEvent(IELEVENT::IEL_DRIVE_OK, current->getPhysicalLocation(), false, *current);
        return true;
    }
    if (up(previous->getState()) && down(current->getState())) {
        raiseEvent(IELEVENT::IEL_DRIVE_FAILED, current->getPhysicalLocation(), true, *current);
        return true;
    }
    VEK_LOG_DEBUG(TAG, "Controller [%s] @ [%s]: Physical Drive @ [%s, %s]: Event not generated for status change.",
                  deviceName_.c_str(), PciLocation.c_str(), current->getSlot().c_str(),
                  current->getSerialNumber().c_str());
    return false;
}

bool vekMegaRAIDController::generateEventOnStatusChange(vekLogicalDiskInfo* current, vekLogicalDiskInfo* previous)
{
    if (current == nullptr || previous == nullptr || current->getHealth() == previous->getHealth()) {
        return false;
    }
    VEK_LOG_INFO(TAG,
                 "Controller [%s] @ [%s]: Logical Disk [%s]: Detected status change. [CurrState=%s, PrevState=%s, "
                 "CurrHealth=%s, PrevHealth=%s]",
                 deviceName_.c_str(), PciLocation.c_str(), current->getDurableName().c_str(),
                 stateWord(current->getState()).c_str(), stateWord(previous->getState()).c_str(),
                 healthWord(current->getHealth()).c_str(), healthWord(previous->getHealth()).c_str());
    if (current->getHealth() == VEK_HEALTH_OK) {
        raiseEvent(IELEVENT::IEL_LOGICAL_DISK_OPTIMAL, current->getHostControllerPhysicalLocation(), false, *current);
        return true;
    }
    if (current->getHealth() == VEK_HEALTH_CRITICAL) {
        raiseEvent(IELEVENT::IEL_LOGICAL_DISK_DEGRADED, current->getHostControllerPhysicalLocation(), true, *current);
        return true;
    }
    VEK_LOG_INFO(TAG, "Controller [%s] @ [%s]: Logical Disk [%s]: Event not generated for status change.",
                 deviceName_.c_str(), PciLocation.c_str(), current->getDurableName().c_str());
    return false;
}

// ---------------------------------------------------------------- event texts

std::string vekMegaRAIDController::getAddEventInfoWithOptionalDetail(const VEK_SAS_EVENT_DETAIL& detail,
                                                                     const std::string& optional)
{
    const size_t length = strnlen(detail.body.description, sizeof detail.body.description);
    char code[32];
    snprintf(code, sizeof code, "[Msg # 0x%04x] ", detail.code);
    std::string text = code + std::string(detail.body.description, length);
    if (!optional.empty()) {
        text += ", (" + optional + ")";
    }
    return text + ". Please refer to MegaRAID Software User Guide for further details.";
}

std::string vekMegaRAIDController::getAddEventInfo(const VEK_SAS_EVENT_DETAIL& detail)
{
    return getAddEventInfoWithOptionalDetail(detail, "");
}

std::string vekMegaRAIDController::getAddEventInfo(const VEK_SAS_EVENT_DETAIL& detail, const std::string& extra)
{
    return getAddEventInfoWithOptionalDetail(detail, extra);
}

void vekMegaRAIDController::getPhyDiskListForLD(const vekLogicalDiskInfo& disk, std::vector<vekDiskInfo>& members)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    for (const std::string& serial : disk.getPhysicalDiskVector()) {
        for (const vekDiskInfo& candidate : disks_) {
            if (candidate.getSerialNumber() == serial) {
                members.push_back(candidate);
                break;
            }
        }
    }
}

// ---------------------------------------------------------------- event analysis

void vekMegaRAIDController::analyzeAndGenerateEvent(VEK_SAS_EVENT_DETAIL& detail)
{
    // Bounded: an event gives up rather than wait on a build without end.
    const std::unique_lock<std::recursive_mutex> lock = vekLockWithin(inventoryMutex_, vekSASLSIEvent::lockWait());
    if (!lock.owns_lock()) {
        VEK_LOG_ERROR(TAG, "MegaRAID [%s]: Event (0x%x) dropped: the inventory stays busy.", deviceName_.c_str(),
                      detail.code);
        return;
    }
    try {
        if (detail.locale == "LD_EVENT") {
            analyzeLDEvent(detail);
        } else if (detail.locale == "PD_EVENT") {
            analyzePDEvent(detail);
        } else {
            analyzeControllerEvent(detail);
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "MegaRAID [%s]: Event (0x%x) dropped: %s", deviceName_.c_str(), detail.code, e.what());
    }
}

void vekMegaRAIDController::analyzeLDEvent(VEK_SAS_EVENT_DETAIL& detail)
{
    vekLogicalDiskInfo* disk = nullptr;
    for (vekLogicalDiskInfo& candidate : logicalDisks_) {
        if (!candidate.getDeviceMissing() && candidate.getLogicalDiskID() == std::to_string(detail.ldTargetId)) {
            disk = &candidate;
            break;
        }
    }
    if (disk == nullptr) {
        if (detail.eventClass >= VEK_SAS_EVENT_CLASS_CRITICAL || detail.code == 138) {
            VEK_LOG_INFO(TAG, "Ignoring CRITICAL/FATAL event (%d, %d) received for VD[%d] absent in VEK inventory.",
                         static_cast<int>(detail.code), detail.eventClass, detail.ldTargetId);
        }
        return;
    }
    detail.deviceLocation = disk->getHostControllerPhysicalLocation();
    if (vekMegaRAIDConsistencyCheckEventHandler::processConsistencyCheckEvents(this, *disk, &detail)) {
        return;
    }
    if (detail.code == 139) {
        disk->setDeletedEventReceived(true);
        VEK_LOG_INFO(TAG, "Invalidate cache as LD has been deleted");
        SASResourceManager::invalidateInventoryCache();
        return;
    }
    VEK_RESOURCE_STATE state;
    VEK_RESOURCE_HEALTH health;
    int kind = IELEVENT::IEL_LOGICAL_DISK_DEGRADED;
    bool asserted = true;
    switch (detail.code) {
    case 249:
        if (disk->getEventHealth() == VEK_HEALTH_OK) {
            VEK_LOG_INFO(TAG, "Ignoring event ID %d  INFO event as device is already in OK state",
                         static_cast<int>(detail.code));
            return;
        }
        state = VEK_STATE_OPTIMAL;
        health = VEK_HEALTH_OK;
        kind = IELEVENT::IEL_LOGICAL_DISK_OPTIMAL;
        asserted = false;
        break;
    case 250:
        state = VEK_STATE_PARTIALLY_DEGRADED;
        health = VEK_HEALTH_WARNING;
        break;
    case 251:
        state = VEK_STATE_DEGRADED;
        health = VEK_HEALTH_CRITICAL;
        break;
    case 252:
        state = VEK_STATE_OFFLINE;
        health = VEK_HEALTH_CRITICAL;
        break;
    default:
        if (detail.eventClass < VEK_SAS_EVENT_CLASS_CRITICAL) {
            return;
        }
        if (disk->getEventHealth() == VEK_HEALTH_CRITICAL && !forwardAllCritical_) {
            VEK_LOG_INFO(TAG, "Ignoring FATAL event as device already in CRITICAL state");
            return;
        }
        state = VEK_STATE_FAILED;
        health = VEK_HEALTH_CRITICAL;
        break;
    }
    disk->setEventState(state);
    disk->setEventHealth(health);
    disk->setState(state);
    disk->setHealth(health);
    disk->setEventInfoString(getAddEventInfo(detail));
    raiseEvent(kind, disk->getHostControllerPhysicalLocation(), asserted, *disk);
}

vekDiskInfo* vekMegaRAIDController::findDiskBySlot(int enclosure, int slot)
{
    char text[32];
    snprintf(text, sizeof text, "%d:%d", enclosure, slot);
    for (vekDiskInfo& disk : disks_) {
        if (!disk.getDeviceMissing() && disk.getSlot() == text) {
            return &disk;
        }
    }
    return nullptr;
}

void vekMegaRAIDController::raiseDriveEvent(vekDiskInfo& disk, VEK_RESOURCE_STATE state, VEK_RESOURCE_HEALTH health,
                                            int kind, bool asserted, const VEK_SAS_EVENT_DETAIL& detail,
                                            const std::string& text)
{
    const bool critical = detail.eventClass >= VEK_SAS_EVENT_CLASS_CRITICAL;
    if (health == VEK_HEALTH_OK && disk.getEventHealth() == VEK_HEALTH_OK) {
        VEK_LOG_INFO(TAG, "Dropping the event as Device already in OK state.");
        return;
    }
    if (health == VEK_HEALTH_WARNING && disk.getEventHealth() == VEK_HEALTH_CRITICAL) {
        VEK_LOG_INFO(TAG, "Ignoring WARNING event as device is already in BAD state");
        return;
    }
    if (health == VEK_HEALTH_WARNING && disk.getEventHealth() == VEK_HEALTH_WARNING) {
        VEK_LOG_INFO(TAG, "Skipping the event as fru is already BAD state");
        return;
    }
    if (health == VEK_HEALTH_CRITICAL && disk.getEventHealth() == VEK_HEALTH_CRITICAL &&
        !(critical && forwardAllCritical_)) {
        if (detail.code == MR_EVT_PD_NOT_RESPONDING_FAILED) {
            VEK_LOG_INFO(TAG, "Dropping the event 389 as device already in CRITICAL state.");
        } else {
            VEK_LOG_INFO(TAG, "Ignoring FATAL event as device already in CRITICAL state");
        }
        return;
    }
    disk.setState(state);
    disk.setHealth(health);
    disk.setEventState(state);
    disk.setEventHealth(health);
    disk.setEventInfoString(text);
    raiseEvent(kind, detail.deviceLocation, asserted, disk);
}

void vekMegaRAIDController::analyzePDEvent(VEK_SAS_EVENT_DETAIL& detail)
{
    if (detail.pdEnclosure < 0 || detail.pdSlot < 0) {
        VEK_LOG_INFO(TAG, "MegaRAID [%s]: Disk slot information from AEN callback (%d:%d) not valid.",
                     deviceName_.c_str(), detail.pdEnclosure, detail.pdSlot);
        return;
    }
    if (detail.code == 91) {
        VEK_LOG_INFO(TAG, "VEK has realized that PD has been inserted to existing  location");
        vekStoreLibInterface& lib = vekStoreLibInterface::getInstance();
        auto cacheLock = lib.takeLock(vekSASLSIEvent::lockWait());
        if (!cacheLock.owns_lock()) {
            VEK_LOG_ERROR(TAG, "MegaRAID [%s]: Event (0x%x) dropped: the library cache stays busy.",
                          deviceName_.c_str(), detail.code);
            return;
        }
        const std::vector<PD_INFO> drives = lib.getPDInventoryForCtrl(controllerId_);
        cacheLock.unlock();
        const auto pd = std::find_if(drives.begin(), drives.end(), [&](const PD_INFO& d) {
            return d.enclosure == detail.pdEnclosure && d.slot == detail.pdSlot;
        });
        if (pd == drives.end()) {
            VEK_LOG_INFO(TAG, "Unable to fetch inventory of newly inserted drive [Slot %d]; No drive event will be "
                              "generated.",
                         detail.pdSlot);
        } else {
            vekDiskInfo disk;
            discoverPhysicalDiskAttributes(disk, *pd);
            disk.setEventInfoString(getAddEventInfo(detail));
            raiseEvent(IELEVENT::IEL_DRIVE_OK, disk.getPhysicalLocation(), false, disk);
        }
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
        SASResourceManager::invalidateInventoryCache();
        return;
    }
    vekDiskInfo* disk = findDiskBySlot(detail.pdEnclosure, detail.pdSlot);
    if (disk == nullptr) {
        if (detail.eventClass >= VEK_SAS_EVENT_CLASS_WARNING || detail.code == 112 || detail.code == 114) {
            VEK_LOG_INFO(TAG,
                         "Ignoring CRITICAL/FATAL/WARNING event (%d, %d) received for PD [%s] @ slot [%d] absent in "
                         "VEK inventory.",
                         static_cast<int>(detail.code), detail.eventClass, "", detail.pdSlot);
        }
        return;
    }
    detail.deviceLocation = disk->getPhysicalLocation();
    const std::string serial = disk->getSerialNumber();
    if (detail.code == 112) {
        VEK_LOG_INFO(TAG, "VEK has realized that PD has been removed");
        raiseDriveEvent(*disk, VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL, IELEVENT::IEL_DRIVE_FAILED, true, detail,
                        getAddEventInfo(detail));
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
        SASResourceManager::invalidateInventoryCache();
    } else if (detail.code == 114) {
        // The new firmware state follows the drive's address and the old state.
        uint32_t newState = 0;
        memcpy(&newState, detail.body.args + 8, sizeof newState);
        VEK_LOG_INFO(TAG, "VEK has realized that PD status has been changed New status: %d",
                     static_cast<int>(newState));
        const std::string word = vekStoreLibInterface::getFWStateString(static_cast<int>(newState));
        const int health = vekStoreLibInterface::getHealth(static_cast<int>(newState));
        const std::string text = getAddEventInfo(detail, "Drive is in " + word + " state");
        if (health == 4) {
            raiseDriveEvent(*disk, getStateEnum(word), VEK_HEALTH_CRITICAL, IELEVENT::IEL_DRIVE_FAILED, true,
                            detail, text);
        } else if (health == 1) {
            raiseDriveEvent(*disk, getStateEnum(word), VEK_HEALTH_OK, IELEVENT::IEL_DRIVE_OK, false, detail, text);
        } else {
            VEK_LOG_INFO(TAG, "State variable not recognized by VEK SAS RM. Skipping the event");
        }
    } else if (detail.code == 87 || detail.code == 96) {
        VEK_LOG_INFO(TAG, "Error reported on PD [%s] @ slot [%d] for controller [%s].", serial.c_str(),
                     detail.pdSlot, deviceName_.c_str());
        if (detail.eventClass >= VEK_SAS_EVENT_CLASS_CRITICAL) {
            raiseDriveEvent(*disk, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, IELEVENT::IEL_DRIVE_FAILED, true, detail,
                            getAddEventInfo(detail));
        } else if (detail.eventClass == VEK_SAS_EVENT_CLASS_WARNING) {
            raiseDriveEvent(*disk, VEK_STATE_PREDICTIVE_FAILURE, VEK_HEALTH_WARNING,
                            IELEVENT::IEL_DRIVE_PREDICTIVE_FAILURE, true, detail, getAddEventInfo(detail));
        }
    } else if (kPredictiveFailureCodes.count(detail.code) != 0) {
        VEK_LOG_INFO(TAG, "Reporting predictive failure event on PD [%s] @ slot [%d] for controller [%s].",
                     serial.c_str(), detail.pdSlot, deviceName_.c_str());
        raiseDriveEvent(*disk, VEK_STATE_PREDICTIVE_FAILURE, VEK_HEALTH_WARNING,
                        IELEVENT::IEL_DRIVE_PREDICTIVE_FAILURE, true, detail, getAddEventInfo(detail));
    } else if (detail.eventClass >= VEK_SAS_EVENT_CLASS_CRITICAL) {
        raiseDriveEvent(*disk, VEK_STATE_FAILED, VEK_HEALTH_CRITICAL, IELEVENT::IEL_DRIVE_FAILED, true, detail,
                        getAddEventInfo(detail));
    }
}

void vekMegaRAIDController::analyzeBBUEvent(VEK_SAS_EVENT_DETAIL& detail)
{
    // The battery is a FRU of the controller: its failure and its recovery
    // are the controller's events, each told once.
    const bool failed = detail.code == MR_EVT_BBU_FAILED || detail.code == MR_EVT_BBU_REPLACE_BATTERY;
    const bool good = detail.code == MR_EVT_BBU_GOOD || detail.code == MR_EVT_BBU_REPLACED;
    const VEK_RESOURCE_HEALTH before = currentInfo_.getEventHealth();
    // A good battery doesn't end a fault of the controller itself.
    if ((!failed && !good) || (good && before == VEK_HEALTH_CRITICAL)) {
        VEK_LOG_INFO(TAG, "Ignoring BBU event (%d: %s) class [%d] received for controller [%s].",
                     static_cast<int>(detail.code), detail.description.c_str(), detail.eventClass,
                     deviceName_.c_str());
        return;
    }
    if (failed && (before == VEK_HEALTH_WARNING || before == VEK_HEALTH_CRITICAL)) {
        VEK_LOG_INFO(TAG, "Skipping the event as fru is already BAD state");
        return;
    }
    if (good && before == VEK_HEALTH_OK) {
        VEK_LOG_INFO(TAG, "Skipping the event as fru is already OK");
        return;
    }
    currentInfo_.setEventState(failed ? VEK_STATE_DEGRADED : VEK_STATE_RUNNING);
    currentInfo_.setEventHealth(failed ? VEK_HEALTH_WARNING : VEK_HEALTH_OK);
    currentInfo_.setEventInfoString(getAddEventInfo(detail));
    raiseEvent(failed ? IELEVENT::IEL_STORAGE_CONTROLLER_FAULT : IELEVENT::IEL_STORAGE_CONTROLLER_OK,
               currentInfo_.getPhysicalLocation(), failed, currentInfo_);
}

void vekMegaRAIDController::analyzeControllerEvent(VEK_SAS_EVENT_DETAIL& detail)
{
    if (detail.locale == "BBU_EVENT") {
        analyzeBBUEvent(detail);
        return;
    }
    if (detail.eventClass < VEK_SAS_EVENT_CLASS_CRITICAL) {
        return;
    }
    if (currentInfo_.getEventHealth() == VEK_HEALTH_CRITICAL && !forwardAllCritical_) {
        VEK_LOG_INFO(TAG, "Ignoring FATAL event as device already in CRITICAL state");
        return;
    }
    currentInfo_.setEventState(VEK_STATE_FAILED);
    currentInfo_.setEventHealth(VEK_HEALTH_CRITICAL);
    currentInfo_.setEventInfoString(getAddEventInfo(detail));
    criticalEventOutstanding = 1;
    raiseEvent(IELEVENT::IEL_STORAGE_CONTROLLER_FAULT, currentInfo_.getPhysicalLocation(), true, currentInfo_);
}
