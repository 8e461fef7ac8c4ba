#include "vekSmartRAIDController.h"

#include "SASResourceManager.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekPhysLocFactory.h"
#include "vekSCMServerChassisManager.h"
#include "vekScsiInfo.h"
#include "vekSmartRAIDControllerFactory.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>

using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "STOR_SR";
const char kInvalidPL[] = "FFFFFFFFFFFFFFFF";

const char* stateWord(VEK_RESOURCE_STATE state) { return vekResourceStateMap[state].c_str(); }
const char* healthWord(VEK_RESOURCE_HEALTH health) { return vekResourceHealthMap[health].c_str(); }

std::string text(const char* buffer) { return stringUtils::trim(std::string(buffer)); }

const std::map<int, std::string> kRaidLevels = {{kRAID0, "RAID0"},   {kRAID1, "RAID1"},   {kRAID5, "RAID5"},
                                                {kRAID6, "RAID6"},   {kRAID10, "RAID10"}, {kRAID50, "RAID50"},
                                                {kRAID60, "RAID60"}};

} // namespace

vekSmartRAIDController::vekSmartRAIDController(SCI_CONTROLLER_METADATA_PTR metadata, bool firstPass,
                                               vekOSInterface* osInterface)
    : vekStorageController(0, 0, std::string(), VEK_STORAGE_FAMILY_SMARTRAID, firstPass, osInterface),
      metadata_(std::move(metadata))
{
    if (metadata_) {
        formatPciLocation(metadata_->pciLocation, PciLocation);
    }
}

bool vekSmartRAIDController::parseLocationNumber(const std::string& word, unsigned& value)
{
    if (word.empty() || word[0] < '0' || word[0] > '9') {
        return false;
    }
    value = static_cast<unsigned>(std::stoul(word));
    return true;
}

std::string vekSmartRAIDController::wordAfterKey(const std::string& message, const std::string& key)
{
    const std::vector<std::string> words = stringUtils::splitStringstream(message, ' ');
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i] == key) {
            return words[i + 1];
        }
    }
    return std::string();
}

bool vekSmartRAIDController::formatPciLocation(const std::string& library, std::string& location)
{
    unsigned short domain = 0, bus = 0, device = 0, function = 0;
    char rest = 0;
    if (sscanf(library.c_str(), "%hu:%hu:%hu.%hu%c", &domain, &bus, &device, &function, &rest) != 4) {
        VEK_LOG_ERROR(TAG, "Failed to process PCI location from library. (%s, %d)", library.c_str(), -1);
        return false;
    }
    char formatted[32];
    snprintf(formatted, sizeof formatted, "%04x:%02x:%02x.%x", domain, bus, device, function);
    location = formatted;
    return true;
}

SCI_CONTROLLER_METADATA_PTR vekSmartRAIDController::getControllerMetadata()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return metadata_;
}

void vekSmartRAIDController::setControllerMetadata(SCI_CONTROLLER_METADATA_PTR metadata)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (metadata_ != metadata) {
        // Events were registered on the old CDA.
        eventControlFlags &= ~VEK_STORAGE_EVENTS_ENABLED;
        metadata_ = std::move(metadata);
    }
}

bool vekSmartRAIDController::isMatchingController(uint32_t, uint32_t, const std::string& pciLocation, bool)
{
    return pciLocation == PciLocation;
}

int vekSmartRAIDController::refreshCDA()
{
    SCI_CONTROLLER_METADATA_PTR metadata = getControllerMetadata();
    if (!metadata) {
        return -1;
    }
    const SA_WORD ret = vekStorageCoreInterface::getInstance().SA_ReInitializeCDA(metadata->cda);
    if (ret != kInitializeCDASuccess) {
        VEK_LOG_ERROR(TAG, "Failed to re-initialize CDA for controller with SN [%s]. (ret: 0x%hx)",
                      currentInfo_.getSerialNumber().c_str(), ret);
        return -1;
    }
    return 0;
}

// ---------------------------------------------------------------- controller

int vekSmartRAIDController::discoverInventory(vekStorageControllerInfo& info)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (isRemoved()) {
        VEK_LOG_DEBUG(TAG, "%s: Return last known inventory for removed controller.", PciLocation.c_str());
        info = currentInfo_;
        return 0;
    }
    if (!metadata_) {
        VEK_LOG_ERROR(TAG, "Invalid metadata for SmartRAID controller 0x%lX.", 0UL);
        return -1;
    }
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    PCDA cda = metadata_->cda;
    previousInfo_ = currentInfo_;
    formatPciLocation(metadata_->pciLocation, PciLocation);

    const SA_WORD vendor = sci.SA_GetControllerPCIValue(cda, kControllerPCIVendorID);
    const SA_WORD device = sci.SA_GetControllerPCIValue(cda, kControllerPCIDeviceID);
    const SA_WORD subVendor = sci.SA_GetControllerPCIValue(cda, kControllerPCISubVendorID);
    const SA_WORD subDevice = sci.SA_GetControllerPCIValue(cda, kControllerPCISubDeviceID);
    ChipsetID = vekStorageChipsetID(vendor, device);
    BoardID = vekStorageChipsetID(subVendor, subDevice);
    const vekSmartRAIDModel* model = findSmartRAIDModel(vendor, device, subVendor, subDevice);
    if (model == nullptr) {
        VEK_LOG_WARNING(TAG, "Unrecognized or unsupported SmartRAID controller model [%08X, %08X] @ [%s].", ChipsetID,
                        BoardID, PciLocation.c_str());
    }
    currentInfo_.setModel(model != nullptr ? model->model : "");
    currentInfo_.setPartNumber(model != nullptr ? model->partNumber : "");
    currentInfo_.setSparePartNumber(model != nullptr ? model->sparePartNumber : "");
    currentInfo_.setSkuPartNumber(model != nullptr ? model->sku : "");
    currentInfo_.setChipsetID(ChipsetID);
    currentInfo_.setBoardID(BoardID);
    currentInfo_.setDeviceName(PciLocation);

    char buffer[128] = {0};
    currentInfo_.setSerialNumber(sci.SA_GetControllerSerialNumber(cda, buffer, sizeof buffer) == kSAOK ? text(buffer)
                                                                                                      : "");
    std::string firmware;
    if (sci.SA_GetControllerFirmwareVersion(cda, buffer, sizeof buffer) == kSAOK) {
        firmware = text(buffer);
        if (sci.SA_GetControllerFirmwareBuildNumber(cda, buffer, sizeof buffer) == kSAOK) {
            firmware += "-" + text(buffer);
        }
    }
    currentInfo_.setFirmwareVersion(firmware);
    std::string manufacturer;
    if (discoverManufacturer(manufacturer) != 0 || manufacturer.empty()) {
        manufacturer = "Microchip";
    }
    currentInfo_.setManufacturer(manufacturer);
    currentInfo_.setProtocol("SAS/SATA");
    currentInfo_.setDescription("PCI " + PciLocation + " " + vekIOGeoIDHelper::getInstance().getGeoIDStr(PciLocation));
    currentInfo_.setPhysicalLocation(vekPhysLocFactory::getPhysLocInterface()->getPhysLocForPCIDevice(PciLocation));
    try {
        _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
        if (vekSCM::ServerChassisManagerFactory::getServerChassisManager().getPCIDeviceFormFactor(PciLocation,
                                                                                                  formFactor) == 0) {
            currentInfo_.setFormFactor(formFactor);
        }
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "%s: Form factor unknown: %s", PciLocation.c_str(), e.what());
    }

    const SA_DWORD statusInfo = sci.SA_GetControllerStatusInfo(cda);
    vekSmartRAIDStatus status = sciControllerStatusToVEKStatus(statusInfo);
    // The library's own verdicts can only make it worse.
    for (SA_BYTE health : {sci.SA_GetControllerHealth(cda), sci.SA_GetControllerHealthRollup(cda)}) {
        if (health == kHealthCritical) {
            status.health = VEK_HEALTH_CRITICAL;
        } else if (health == kHealthWarning && status.health == VEK_HEALTH_OK) {
            status.health = VEK_HEALTH_WARNING;
        }
    }
    currentInfo_.setState(status.state);
    currentInfo_.setHealth(status.health);
    VEK_LOG_INFO(TAG,
                 "SmartRAID controller [%s] with SN [%s] @ [%s]: PL=[%s] FW Version=[%s] PN=[%s]; StatusInfo=[0x%08x] "
                 "Status=[%s] Health=[%s]",
                 currentInfo_.getModel().c_str(), currentInfo_.getSerialNumber().c_str(), PciLocation.c_str(),
                 currentInfo_.getPhysicalLocation().c_str(), firmware.c_str(), currentInfo_.getPartNumber().c_str(),
                 statusInfo, stateWord(status.state), healthWord(status.health));
    // A controller of the first pass goes out with the first inventory; one
    // that arrives later asks for its own push.
    if (NewDevice && !FoundOnFirstDiscoveryPass) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
    info = currentInfo_;
    return 0;
}

// ---------------------------------------------------------------- drives

int vekSmartRAIDController::discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (isRemoved() || !metadata_) {
        disks.insert(disks.end(), disks_.begin(), disks_.end());
        return static_cast<int>(disks_.size());
    }
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    std::vector<vekDiskInfo> found;
    std::vector<DriveKey> keys;
    for (SA_WORD drive = sci.SA_EnumerateControllerPhysicalDrives(metadata_->cda, kInvalidDeviceNumber);
         drive != kInvalidDeviceNumber; drive = sci.SA_EnumerateControllerPhysicalDrives(metadata_->cda, drive)) {
        vekDiskInfo disk;
        DriveKey key;
        try {
            if (!discoverPhysicalDiskAttributes(drive, disk, key)) {
                continue;
            }
        } catch (const vekSmartRAID::Exception& e) {
            VEK_LOG_WARNING(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: %s", currentInfo_.getModel().c_str(),
                            PciLocation.c_str(), drive, e.what());
            continue;
        }
        // What the last build knew of the drive at this place.
        bool known = false;
        for (const vekDiskInfo& last : disks_) {
            if (last.getPhysicalLocation() == disk.getPhysicalLocation()) {
                VEK_LOG_DEBUG(TAG, "  Checking with last known disk [%s] @ [%s].", last.getSerialNumber().c_str(),
                              last.getPhysicalLocation().c_str());
                known = true;
            }
        }
        if (!known) {
            VEK_LOG_DEBUG(TAG, "  Previous details not found for [%s] @ [%s].", disk.getSerialNumber().c_str(),
                          disk.getPhysicalLocation().c_str());
        }
        driveHealth_.emplace(disk.getSerialNumber(), disk.getHealth());
        found.push_back(disk);
        keys.push_back(key);
    }
    const std::vector<vekDiskInfo> before = disks_;
    previousDisks_ = disks_;
    disks_ = found;
    driveKeys_ = keys;
    requestInventoryPushToRMCOnPhysicalDiskChange(before);
    disks.insert(disks.end(), disks_.begin(), disks_.end());
    return static_cast<int>(disks_.size());
}

bool vekSmartRAIDController::discoverPhysicalDiskAttributes(SA_WORD drive, vekDiskInfo& disk, DriveKey& key)
{
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    PCDA cda = metadata_->cda;
    const char* model = currentInfo_.getModel().c_str();
    const char* at = PciLocation.c_str();
    const SA_DWORD info = sci.SA_GetPhysicalDriveBasicInfo(cda, drive);
    if ((info & kPhysicalDrivePresent) == 0) {
        VEK_LOG_DEBUG(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: Not gathering inventory since the PD is not present. [0x%08x]",
                      model, at, drive, info);
        return false;
    }
    switch (info & kPhysicalDriveProtocolMask) {
    case kPhysicalDriveProtocolSAS:
        disk.setProtocol("SAS");
        break;
    case kPhysicalDriveProtocolSATA:
        disk.setProtocol("SATA");
        break;
    case kPhysicalDriveProtocolNVMe:
        disk.setProtocol("NVMe");
        break;
    default:
        VEK_LOG_WARNING(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: Unable to determine disk protocol. [0x%08x]", model,
                        at, drive, info);
    }
    switch (info & kPhysicalDriveMediaMask) {
    case kPhysicalDriveMediaHDD:
        disk.setMediaType("HDD");
        break;
    case kPhysicalDriveMediaSSD:
        disk.setMediaType("SSD");
        break;
    default:
        VEK_LOG_WARNING(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: Unable to determine disk media type. [0x%08x]",
                        model, at, drive, info);
    }
    char buffer[128] = {0};
    if (sci.SA_GetPhysicalDriveSerialNumber(cda, drive, buffer, sizeof buffer) == kSAOK) {
        disk.setSerialNumber(text(buffer));
    } else {
        VEK_LOG_WARNING(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: Failed to fetch disk serial number.", model, at,
                        drive);
    }
    if (sci.SA_GetPhysicalDriveFirmwareVersion(cda, drive, buffer, sizeof buffer) == kSAOK) {
        disk.setRevision(text(buffer));
    } else {
        VEK_LOG_WARNING(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: Failed to fetch disk firmware revision.", model,
                        at, drive);
    }
    disk.setCapacityBytes(sci.SA_GetPhysicalDriveSize(cda, drive));

    key.number = drive;
    SA_PHYSICAL_DRIVE_LOCATION location;
    memset(&location, 0, sizeof location);
    disk.setSlot("-1");
    disk.setPhysicalLocation(kInvalidPL);
    if (sci.SA_GetPhysicalDriveLocation(cda, drive, &location) != kSAOK) {
        VEK_LOG_WARNING(TAG, "SmartRAID controller [%s] @ [%s]: PD %d: Failed to fetch physical drive location.", model,
                        at, drive);
    } else {
        const std::string port = text(location.port), box = text(location.box), bay = text(location.bay);
        if (!parseLocationNumber(port, key.port) || !parseLocationNumber(box, key.box) || !parseLocationNumber(bay, key.bay)) {
            VEK_LOG_WARNING(TAG,
                            "SmartRAID controller [%s] @ [%s]: PD %d: Failed to extract box number. (%s, 0x%lX, "
                            "0x%lX, 0x%lX, %d, %d)",
                            model, at, drive, (port + ":" + box + ":" + bay).c_str(),
                            static_cast<unsigned long>(info), static_cast<unsigned long>(key.box),
                            static_cast<unsigned long>(key.bay), static_cast<int>(key.port), -1);
        } else {
            disk.setSlot(std::to_string(key.bay));
            disk.setEnclosureBox(static_cast<int>(key.box));
        }
    }
    discoverPhysicalDiskModel(drive, disk);
    discoverPhysicalDiskManufacturer(drive, disk);
    int external = 0;
    discoverPhysicalDiskConnectorType(drive, external);

    const vekSmartRAIDStatus status = sciDiskStatusToVEKStatus(sci.SA_GetPhysicalDriveStatusInfo(cda, drive));
    disk.setState(status.state);
    disk.setHealth(status.health);

    if (disk.getSlot() != "-1" && external == 0) {
        setChassisDriveLocation(disk, disk.getEnclosureBox(), key.bay);
    }
    if (disk.getPhysicalLocation() == kInvalidPL) {
        VEK_LOG_DEBUG(TAG, "Skipping disk @ index %zu due to invalid location info. [%s, %s]",
                      static_cast<size_t>(drive), disk.getSerialNumber().c_str(), disk.getSlot().c_str());
    }
    return true;
}

void vekSmartRAIDController::discoverPhysicalDiskModel(SA_WORD drive, vekDiskInfo& disk)
{
    // The library's model of a SATA drive is its translated inquiry product,
    // cut short; the drive's own IDENTIFY data holds the whole model.
    std::vector<unsigned char> identify;
    if (disk.getProtocol() == "SATA" && issueATAIdentifyDevice(drive, identify)) {
        disk.setModel(ata_identify_string(identify, 27, 20));
        disk.setATAMajorRevision(ata_major_revision(identify));
        return;
    }
    char buffer[128] = {0};
    if (vekStorageCoreInterface::getInstance().SA_GetPhysicalDriveModel(metadata_->cda, drive, buffer,
                                                                       sizeof buffer) == kSAOK) {
        disk.setModel(text(buffer));
    }
}

bool vekSmartRAIDController::issueATAIdentifyDevice(SA_WORD drive, std::vector<unsigned char>& identify)
{
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    if (!sci.SA_CanSendPhysicalDeviceSCSICommand(metadata_->cda, drive)) {
        return false;
    }
    const std::vector<unsigned char> cdb = vekAtaIdentifyDeviceCdb();
    identify.assign(512, 0);
    SA_BYTE sense[32] = {0};
    SA_BYTE senseLength = sizeof sense;
    SA_BYTE status = 0xFF;
    const SA_BYTE ret = sci.SA_SendPhysicalDeviceSCSICommand(metadata_->cda, drive, cdb.data(),
                                                             static_cast<SA_BYTE>(cdb.size()), kSCSIDataIn,
                                                             identify.data(), static_cast<SA_DWORD>(identify.size()),
                                                             sense, &senseLength, &status);
    if (ret != kSAOK || status != 0) {
        VEK_LOG_WARNING(TAG, "SmartRAID controller @ [%s]: PD %d: ATA IDENTIFY DEVICE failed. (ret: 0x%02x, status: 0x%02x)",
                        PciLocation.c_str(), drive, ret, status);
        return false;
    }
    return true;
}

void vekSmartRAIDController::discoverPhysicalDiskManufacturer(SA_WORD drive, vekDiskInfo& disk)
{
    char buffer[64] = {0};
    std::string vendor;
    if (vekStorageCoreInterface::getInstance().SA_GetPhysicalDriveVendorID(metadata_->cda, drive, buffer,
                                                                          sizeof buffer) == kSAOK) {
        vendor = text(buffer);
    }
    if (vendor.empty() || vendor == "ATA") {
        // Behind the translation layer the maker is only in the model text.
        const std::string model = disk.getModel();
        const size_t blank = model.find(' ');
        vendor = blank == std::string::npos ? std::string() : model.substr(0, blank);
    }
    disk.setManufacturer(vendor);
}

void vekSmartRAIDController::discoverPhysicalDiskConnectorType(SA_WORD drive, int& external)
{
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    SA_BYTE connector = 0;
    char message[512];
    if (sci.SA_GetPhysicalDriveConnectorIndex(metadata_->cda, drive, &connector) != kSAOK) {
        snprintf(message, sizeof message,
                 "Invalid Connector Index : %u for SmartRAID controller [%s] at slot= [%s] : with PD number %d",
                 connector, currentInfo_.getModel().c_str(), PciLocation.c_str(), drive);
        throw vekSmartRAID::InvalidConnectorIndexException(message);
    }
    SA_CONNECTOR_INFO info;
    memset(&info, 0, sizeof info);
    if (sci.SA_GetControllerConnectorInfo(metadata_->cda, connector, &info) != kSAOK) {
        snprintf(message, sizeof message,
                 "connector mode info was not successfully written to connector_info forSmartRAID controller [%s] at "
                 "slot= [%s]:  with PD number %d is attached by connector %u",
                 currentInfo_.getModel().c_str(), PciLocation.c_str(), drive, connector);
        throw vekSmartRAID::ConnectorInfoNotAvailableException(message);
    }
    external = info.mode == kConnectorExternal ? 1 : 0;
}

void vekSmartRAIDController::requestInventoryPushToRMCOnPhysicalDiskChange(const std::vector<vekDiskInfo>& before)
{
    VEK_LOG_DEBUG(TAG, "Looking for changes in PD inventory (Pass %d)...", 1);
    bool changed = before.size() != disks_.size();
    for (size_t i = 0; !changed && i < before.size(); ++i) {
        changed = before[i].getSerialNumber() != disks_[i].getSerialNumber() ||
                  before[i].getState() != disks_[i].getState() || before[i].getHealth() != disks_[i].getHealth();
    }
    if (changed && !before.empty()) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
}

// ---------------------------------------------------------------- volumes

std::vector<std::string> vekSmartRAIDController::getPhysicalDrivesForVolume(SA_WORD volume)
{
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    std::vector<std::string> members;
    const SA_WORD array = sci.SA_GetLogicalDriveArray(metadata_->cda, volume);
    if (array == kInvalidDeviceNumber) {
        return members;
    }
    for (SA_WORD drive = sci.SA_EnumerateArrayPhysicalDrives(metadata_->cda, array, kInvalidDeviceNumber);
         drive != kInvalidDeviceNumber; drive = sci.SA_EnumerateArrayPhysicalDrives(metadata_->cda, array, drive)) {
        for (size_t i = 0; i < driveKeys_.size() && i < disks_.size(); ++i) {
            if (driveKeys_[i].number == drive) {
                members.push_back(disks_[i].getSerialNumber());
            }
        }
    }
    return members;
}

int vekSmartRAIDController::discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& volumes)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (isRemoved() || !metadata_) {
        volumes.insert(volumes.end(), logicalDisks_.begin(), logicalDisks_.end());
        return static_cast<int>(logicalDisks_.size());
    }
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    PCDA cda = metadata_->cda;
    std::vector<vekLogicalDiskInfo> found;
    for (SA_WORD volume = sci.SA_EnumerateControllerLogicalDrives(cda, kInvalidDeviceNumber);
         volume != kInvalidDeviceNumber; volume = sci.SA_EnumerateControllerLogicalDrives(cda, volume)) {
        vekLogicalDiskInfo disk;
        char buffer[128] = {0};
        if (sci.SA_GetLogicalDriveUniqueVolumeID(cda, volume, buffer, sizeof buffer) == kSAOK) {
            disk.setDurableName(text(buffer));
        }
        SA_BYTE level = 0;
        if (sci.SA_GetLogicalDriveRAIDInfo(cda, volume, &level) == kSAOK) {
            const auto name = kRaidLevels.find(level);
            disk.setRAIDLevel(name != kRaidLevels.end() ? name->second : "");
        }
        disk.setCapacityBytes(sci.SA_GetLogicalDriveSize(cda, volume));
        disk.setPhysicalDiskVector(getPhysicalDrivesForVolume(volume));
        disk.setLogicalDiskID(std::to_string(volume));
        disk.setDeviceName("LD" + std::to_string(volume));
        disk.setHostControllerPhysicalLocation(currentInfo_.getPhysicalLocation());
        const vekSmartRAIDStatus status = sciVolumeStatusToVEKStatus(sci.SA_GetLogicalDriveStatusInfo(cda, volume));
        disk.setState(status.state);
        disk.setHealth(status.health);
        volumeHealth_.emplace(disk.getLogicalDiskID(), status.health);
        found.push_back(disk);
    }
    const std::vector<vekLogicalDiskInfo> before = logicalDisks_;
    previousLogicalDisks_ = logicalDisks_;
    logicalDisks_ = found;
    requestInventoryPushToRMCOnLogicalDiskChange(before);
    volumes.insert(volumes.end(), logicalDisks_.begin(), logicalDisks_.end());
    return static_cast<int>(logicalDisks_.size());
}

void vekSmartRAIDController::requestInventoryPushToRMCOnLogicalDiskChange(const std::vector<vekLogicalDiskInfo>& before)
{
    bool changed = before.size() != logicalDisks_.size();
    for (size_t i = 0; !changed && i < before.size(); ++i) {
        changed = before[i].getDurableName() != logicalDisks_[i].getDurableName() ||
                  before[i].getHealth() != logicalDisks_[i].getHealth();
    }
    if (changed && !before.empty()) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
}

// ---------------------------------------------------------------- enclosures

int vekSmartRAIDController::discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (isRemoved() || !metadata_) {
        enclosures.insert(enclosures.end(), enclosures_.begin(), enclosures_.end());
        return static_cast<int>(enclosures_.size());
    }
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    PCDA cda = metadata_->cda;
    std::vector<vekStorageEnclosureInfo> found;
    for (SA_WORD index = sci.SA_EnumerateControllerStorageEnclosures(cda, kInvalidDeviceNumber);
         index != kInvalidDeviceNumber; index = sci.SA_EnumerateControllerStorageEnclosures(cda, index)) {
        vekStorageEnclosureInfo enclosure;
        char buffer[128] = {0};
        std::string vendor, product;
        if (sci.SA_GetStorageEnclosureVendorID(cda, index, buffer, sizeof buffer) == kSAOK) {
            vendor = text(buffer);
        }
        if (sci.SA_GetStorageEnclosureProductID(cda, index, buffer, sizeof buffer) == kSAOK) {
            product = text(buffer);
        }
        if (sci.SA_GetStorageEnclosureSerialNumber(cda, index, buffer, sizeof buffer) == kSAOK) {
            enclosure.setSerialNumber(text(buffer));
        }
        enclosure.setBayCount(sci.SA_GetStorageEnclosureDeviceCount(cda, index));
        enclosure.setSegmentCount(sci.SA_GetStorageEnclosurePathCount(cda, index));
        // A UBM backplane names itself; others go by the enclosure's inquiry.
        const bool ubm = sci.SA_GetUBMBackplaneProductString(cda, index, buffer, sizeof buffer) == kSAOK;
        if (ubm) {
            enclosure.setModel(text(buffer));
            enclosure.setType("UBM Backplane");
            enclosure.setEnclosureType(VEK_STORAGE_ENCLOSURE_TYPE_UBM_BACKPLANE);
            if (sci.SA_GetUBMBackplaneVersion(cda, index, buffer, sizeof buffer) == kSAOK) {
                enclosure.setFirmwareVersion(text(buffer));
            }
            if (sci.SA_GetUBMBackplanePartNumber(cda, index, buffer, sizeof buffer) == kSAOK) {
                enclosure.setPartNumber(text(buffer));
            }
        } else {
            enclosure.setModel(stringUtils::trim(vendor + " " + product));
            enclosure.setType("SAS Backplane");
            enclosure.setEnclosureType(VEK_STORAGE_ENCLOSURE_TYPE_BACKPLANE);
        }
        const int box = static_cast<int>(index) + 1;
        enclosure.setBox(box);
        enclosure.setControllerPCILocation(PciLocation);
        enclosure.setPhysicalLocation(
            vekPhysLocFactory::getPhysLocInterface()->getPhysLocForChassisStorageBackplane(PciLocation, box));
        const vekSmartRAIDStatus status = sciEnclosureStatusToVEKStatus(sci.SA_GetStorageEnclosureStatusInfo(cda, index));
        enclosure.setState(status.state);
        enclosure.setHealth(status.health);
        found.push_back(enclosure);
    }
    previousEnclosures_ = enclosures_;
    enclosures_ = found;
    enclosures.insert(enclosures.end(), enclosures_.begin(), enclosures_.end());
    return static_cast<int>(enclosures_.size());
}

// ---------------------------------------------------------------- event registration

int vekSmartRAIDController::enableEvents()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (!metadata_ || isRemoved()) {
        VEK_LOG_ERROR(TAG, "Invalid metadata for SmartRAID controller 0x%016lX.", 0UL);
        return -1;
    }
    const unsigned long cda = static_cast<unsigned long>(reinterpret_cast<uintptr_t>(metadata_->cda));
    if (isEventsEnabled()) {
        VEK_LOG_DEBUG(TAG, "Events already enabled for controller with CDA 0x%016lX.", cda);
        return 0;
    }
    vekStorageCoreInterface& sci = vekStorageCoreInterface::getInstance();
    const SA_BYTE registered = sci.SA_RegisterEventSink(metadata_->cda, &vekSmartRAIDController::eventHandler);
    if (registered != kEventOK) {
        VEK_LOG_ERROR(TAG, "Failed to register event handler for controller with CDA 0x%016lX. (ret: 0x%02x)", cda,
                      registered);
        return -1;
    }
    const long index = vekSmartRAIDControllerFactory::getInstance().config().getMicrochipEventQueueIndex();
    if (index > 2 || index < 0) {
        VEK_LOG_ERROR(TAG, "VEK configuration parameter MicrochipEventQueueIndex value (%ld) is more than 2.", index);
        return -1;
    }
    const SA_BYTE started = sci.SA_StartEventQueue(metadata_->cda, static_cast<SA_BYTE>(index));
    if (started != kEventOK) {
        VEK_LOG_ERROR(TAG, "Failed to start event queue on controller with CDA 0x%016lX @ logIndex %ld. (ret: 0x%02x)",
                      cda, index, started);
        return -1;
    }
    metadata_->logIndex = index;
    eventRegistrationTimestamp = time(nullptr);
    const SA_QWORD controllerTime = sci.SA_GetControllerTime(metadata_->cda);
    controllerClockOffset = controllerTime != 0 ? static_cast<time_t>(controllerTime) - eventRegistrationTimestamp : 0;
    firstEventReceived = false;
    VEK_LOG_INFO(TAG, "Registered for event notification on controller [%s] @ [%s]. (CT=%lu, ST=%jd, Offset=%jd)",
                 currentInfo_.getSerialNumber().c_str(), PciLocation.c_str(), static_cast<unsigned long>(controllerTime),
                 static_cast<intmax_t>(eventRegistrationTimestamp), static_cast<intmax_t>(controllerClockOffset));
    eventControlFlags |= VEK_STORAGE_EVENTS_ENABLED;
    NewDevice = false;
    if (wentOffline_) {
        wentOffline_ = false;
        currentInfo_.setState(VEK_STATE_RUNNING);
        currentInfo_.setHealth(VEK_HEALTH_OK);
        sendControllerEvent(397, true, "The SmartRAID storage controller is online.");
    }
    return 0;
}

int vekSmartRAIDController::disableEvents()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (!isEventsEnabled() || !metadata_) {
        VEK_LOG_DEBUG(TAG, "Events already disabled for controller at [%s].", PciLocation.c_str());
        return 0;
    }
    eventControlFlags &= ~VEK_STORAGE_EVENTS_ENABLED;
    const SA_BYTE stopped =
        vekStorageCoreInterface::getInstance().SA_StopEventQueue(metadata_->cda, static_cast<SA_BYTE>(metadata_->logIndex));
    if (stopped != kEventOK) {
        VEK_LOG_ERROR(TAG, "Failed to stop event queue on controller with CDA 0x%016lX @ logIndex %ld. (ret: 0x%02x)",
                      static_cast<unsigned long>(reinterpret_cast<uintptr_t>(metadata_->cda)), metadata_->logIndex,
                      stopped);
        return -1;
    }
    return 0;
}

// ---------------------------------------------------------------- removal

void vekSmartRAIDController::processDeviceRemoval()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    VEK_LOG_INFO(TAG, "SmartRAID controller @ [%s] removal processing started.", PciLocation.c_str());
    const bool events = isEventsEnabled();
    markRemoved();
    wentOffline_ = true;
    currentInfo_.setState(VEK_STATE_OFFLINE);
    currentInfo_.setHealth(VEK_HEALTH_CRITICAL);
    const std::string offline =
        "The SmartRAID storage controller is offline. This may have been caused by controller driver unload.";
    currentInfo_.setEventInfoString(offline);
    if (events) {
        sendControllerEvent(398, true, offline);
    }
    for (vekDiskInfo& disk : disks_) {
        const VEK_RESOURCE_HEALTH last = driveHealth_[disk.getSerialNumber()];
        disk.setState(VEK_STATE_OFFLINE);
        disk.setHealth(VEK_HEALTH_CRITICAL);
        if (events && last != VEK_HEALTH_CRITICAL) {
            SASResourceManager::generateEvent(538, disk.getPhysicalLocation(), true, disk);
        }
        driveHealth_[disk.getSerialNumber()] = VEK_HEALTH_CRITICAL;
    }
    for (vekLogicalDiskInfo& volume : logicalDisks_) {
        generateEventOnStatusChange(volume, {VEK_STATE_OFFLINE, VEK_HEALTH_CRITICAL}, offline);
    }
}

void vekSmartRAIDController::sendControllerEvent(int eventId, bool service, const std::string& eventText)
{
    currentInfo_.setEventInfoString(eventText);
    SASResourceManager::generateEvent(eventId, currentInfo_.getPhysicalLocation(), service, currentInfo_);
}
