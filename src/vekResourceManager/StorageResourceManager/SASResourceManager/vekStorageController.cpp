#include "vekStorageController.h"

#include "IELEvent.h"
#include "IvekStorageControllerFactory.h"
#include "SASResourceManager.h"
#include "SysFs.h"
#include "vekGlobalDef.h"
#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIVendorsMap.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekPhysLocFactory.h"
#include "vekSCMServerChassisManager.h"
#include "vekScsiInfo.h"

#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <new>

using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "STOR_CTLR";
const char kScsiDeviceClass[] = "/sys/class/scsi_device";
const char kInvalidPL[] = "FFFFFFFFFFFFFFFF";
const int kWearThreshold = 95;
const long kRecoveryGraceSeconds = 60;
const int kEnclosureServicesDevice = 13;

const std::string& stateWord(VEK_RESOURCE_STATE state) { return vekResourceStateMap[state]; }
const std::string& healthWord(VEK_RESOURCE_HEALTH health) { return vekResourceHealthMap[health]; }

bool isPLValid(const std::string& pl) { return !pl.empty() && pl != kInvalidPL; }

// Closes the generic device when the read is done.
class vekScsiDescriptor {
public:
    explicit vekScsiDescriptor(int fd) : fd_(fd) {}
    ~vekScsiDescriptor()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    vekScsiDescriptor(const vekScsiDescriptor&) = delete;
    vekScsiDescriptor& operator=(const vekScsiDescriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// "host3" -> 3 for the element of a path that starts with the prefix; -1 when none does.
int numberOfPathElement(const std::string& path, const std::string& prefix)
{
    for (const std::string& part : stringUtils::splitStringstream(path, '/')) {
        if (part.size() > prefix.size() && part.compare(0, prefix.size(), prefix) == 0 &&
            part.find_first_not_of("0123456789", prefix.size()) == std::string::npos) {
            return std::stoi(part.substr(prefix.size()));
        }
    }
    return -1;
}

// The host path of the SCSI device's own directory (the class link leads to
// its "scsi_device/<name>" inside); empty when the name is no link.
std::string devicePathOf(SysFs& sysfs, const std::string& scsiName)
{
    const std::string link = std::string(kScsiDeviceClass) + "/" + scsiName;
    std::string target = sysfs.resolve(link);
    if (target == link) {
        // Only this device's link: the whole class again for each device
        // would make a discovery cost the square of the disks.
        sysfs.synchronize(link);
        target = sysfs.resolve(link);
    }
    if (target == link) {
        return std::string();
    }
    const std::string inside = "/scsi_device/" + scsiName;
    if (target.size() > inside.size() && target.compare(target.size() - inside.size(), inside.size(), inside) == 0) {
        target.erase(target.size() - inside.size());
    }
    return target;
}

void markOfflineCritical(vekStatusInfo& status)
{
    status.setState(VEK_STATE_OFFLINE);
    status.setHealth(VEK_HEALTH_CRITICAL);
}

std::string serialChangeText(const std::string& current, const std::string& lastKnown)
{
    char text[256];
    snprintf(text, sizeof(text),
             "Detected change in disk serial number (Current serial number: %s; Last known serial number: %s).",
             current.c_str(), lastKnown.c_str());
    return text;
}

// An attribute read now, wherever the tree stands.
bool readSysfs(SysFs& sysfs, const std::string& path, std::string& value)
{
    return sysfs.synchronize(path) && sysfs.getValue(path, value);
}

} // namespace

int vekStorageController::claimDevice(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation,
                                      bool firstPass, vekOSInterface* osInterface,
                                      IvekStorageController** controller)
{
    *controller = nullptr;
    unsigned char flags = 0;
    const char* model = getStorageControllerModel(chipsetID, boardID, VEK_STORAGE_FAMILY_ALL, flags);
    if (model == nullptr) {
        return 0;
    }
    auto* created = new (std::nothrow)
        vekStorageController(chipsetID, boardID, pciLocation, flags, firstPass, osInterface);
    if (created == nullptr) {
        VEK_LOG_ERROR(TAG, "Out of memory!");
        return 1;
    }
    VEK_LOG_DEBUG(TAG, "Claimed device [%s 0x%x 0x%x].", pciLocation.c_str(), chipsetID, boardID);
    *controller = created;
    return 1;
}

vekStorageController::vekStorageController(uint32_t chipsetID, uint32_t boardID, std::string pciLocation,
                                           unsigned char familyFlags, bool firstPass, vekOSInterface* osInterface)
    : ChipsetID(chipsetID),
      BoardID(boardID),
      PciLocation(std::move(pciLocation)),
      FamilyFlags(familyFlags),
      FoundOnFirstDiscoveryPass(firstPass),
      osInterface_(osInterface)
{
}

// ---------------------------------------------------------------- controller record

int vekStorageController::discoverInventory(vekStorageControllerInfo& info)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    VEK_LOG_DEBUG(TAG, "Gathering inventory for controller @ %s [0x%X, 0x%X] [%d].", PciLocation.c_str(), ChipsetID,
                  BoardID, static_cast<int>(ports_.size()));
    if (isRemoved()) {
        VEK_LOG_DEBUG(TAG, "%s: Return last known inventory for removed controller.", PciLocation.c_str());
        info = currentInfo_;
        return 0;
    }
    const std::vector<vekStorageControllerPortInfo> lastPorts = currentInfo_.getControllerPortVector();
    previousInfo_ = currentInfo_;

    unsigned char flags = 0;
    const char* model = getStorageControllerModel(ChipsetID, BoardID, VEK_STORAGE_FAMILY_ALL, flags);
    currentInfo_.setProtocol("SAS/SATA");
    currentInfo_.setModel(model != nullptr ? model : "");
    currentInfo_.setDeviceName(PciLocation);
    currentInfo_.setChipsetID(ChipsetID);
    currentInfo_.setBoardID(BoardID);
    std::string text;
    discoverFirmwareVersion(text);
    currentInfo_.setFirmwareVersion(text);
    text.clear();
    discoverSerialNumber(text);
    currentInfo_.setSerialNumber(text);
    text.clear();
    discoverManufacturer(text);
    currentInfo_.setManufacturer(text);

    currentInfo_.clearControllerPortList();
    for (size_t i = 0; i < ports_.size(); ++i) {
        vekStorageControllerPortInfo port;
        // A port in recovery keeps the time it went there.
        if (i < lastPorts.size()) {
            port = lastPorts[i];
        }
        std::string procName;
        readPortAttribute(i, "proc_name", procName);
        port.setOSInstanceName(procName);
        port.setDriverName(procName);
        port.setATADeviceNumber(getATADeviceNumberForControllerPort(i));
        discoverControllerPortStatus(i, port);
        currentInfo_.addControllerPort(port);
    }
    currentInfo_.setPhysicalLocation(vekPhysLocFactory::getPhysLocInterface()->getPhysLocForPCIDevice(PciLocation));
    currentInfo_.setDescription("PCI " + PciLocation + " " + vekIOGeoIDHelper::getInstance().getGeoIDStr(PciLocation));
    try {
        _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
        if (vekSCM::ServerChassisManagerFactory::getServerChassisManager().getPCIDeviceFormFactor(PciLocation,
                                                                                                  formFactor) == 0) {
            currentInfo_.setFormFactor(formFactor);
        }
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "%s: Form factor unknown: %s", PciLocation.c_str(), e.what());
    }
    VEK_LOG_DEBUG(TAG, "pciloc=[%s] phyloc=[%s] Description=[%s]", PciLocation.c_str(),
                  currentInfo_.getPhysicalLocation().c_str(), currentInfo_.getDescription().c_str());
    computeControllerStatus();
    if (isEventsEnabled()) {
        generateEventOnStatusChange();
    }
    if (NewDevice) {
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
    }
    info = currentInfo_;
    return 0;
}

bool vekStorageController::isMatchingController(uint32_t chipsetID, uint32_t boardID,
                                                const std::string& pciLocation, bool)
{
    return chipsetID == ChipsetID && boardID == BoardID && pciLocation == PciLocation;
}

bool vekStorageController::readPortAttribute(size_t index, const std::string& name, std::string& value)
{
    const std::string port = getPort(index);
    if (port.empty()) {
        return false;
    }
    SysFs sysfs;
    if (!readSysfs(sysfs, port + "/" + name, value)) {
        return false;
    }
    value = stringUtils::trim(value);
    return true;
}

int vekStorageController::discoverFirmwareVersion(std::string& version)
{
    if (!readPortAttribute(0, "version_fw", version)) {
        return -1;
    }
    VEK_LOG_DEBUG(TAG, "%s: SCSI HOST HBA Firmware: %s", PciLocation.c_str(), version.c_str());
    return 0;
}

int vekStorageController::discoverSerialNumber(std::string& serial)
{
    if (!readPortAttribute(0, "board_tracer", serial)) {
        return -1;
    }
    VEK_LOG_DEBUG(TAG, "%s: SCSI HOST HBA Serial Number: %s", PciLocation.c_str(), serial.c_str());
    return 0;
}

int vekStorageController::discoverManufacturer(std::string& manufacturer)
{
    try {
        vekPCIeManufacturerResolver* resolver =
            osInterface_ != nullptr ? osInterface_->getPCIeManufacturerResolverInterface() : nullptr;
        std::string subVendor;
        if (resolver != nullptr && resolver->fetchManufacturer(PciLocation, manufacturer, subVendor) == 0) {
            return 0;
        }
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "%s: No manufacturer from the OS: %s", PciLocation.c_str(), e.what());
    }
    // Where the OS keeps no device list, the card's own subsystem vendor names it.
    std::string subVendor;
    SysFs sysfs;
    if (!readSysfs(sysfs, "/sys/bus/pci/devices/" + PciLocation + "/subsystem_vendor", subVendor)) {
        return -1;
    }
    char key[8];
    snprintf(key, sizeof(key), "%04lx", stringUtils::hexStringToInt(subVendor) & 0xFFFF);
    const auto found = vekPCIVendorsMap.find(key);
    if (found == vekPCIVendorsMap.end()) {
        return -1;
    }
    manufacturer = found->second;
    return 0;
}

// ---------------------------------------------------------------- ports and controller status

int vekStorageController::discoverControllerPortStatus(size_t index, vekStorageControllerPortInfo& port)
{
    std::string word;
    if (!readPortAttribute(index, "state", word)) {
        return -1;
    }
    VEK_RESOURCE_STATE state = VEK_STATE_UNKNOWN;
    bool matched = false;
    for (int i = 0; i < VEK_RESOURCE_STATE_COUNT && !matched; ++i) {
        if (strcasecmp(word.c_str(), vekResourceStateMap[i].c_str()) == 0) {
            state = static_cast<VEK_RESOURCE_STATE>(i);
            matched = true;
        }
    }
    VEK_RESOURCE_HEALTH health = VEK_HEALTH_CRITICAL;
    switch (state) {
    case VEK_STATE_CREATED:
        health = VEK_HEALTH_OK;
        break;
    case VEK_STATE_RUNNING:
        health = VEK_HEALTH_OK;
        port.setLastRecoveryTimestamp(0);
        break;
    case VEK_STATE_RECOVERY: {
        const int64_t now = static_cast<int64_t>(time(nullptr));
        const int64_t since = port.getLastRecoveryTimestamp();
        const std::string name = getPort(index);
        if (since == 0) {
            VEK_LOG_INFO(TAG, "Controller port [%s] went into recovery mode.", name.c_str());
            port.setLastRecoveryTimestamp(now);
            state = VEK_STATE_RUNNING;
            health = VEK_HEALTH_OK;
        } else if (since - now >= kRecoveryGraceSeconds) {
            VEK_LOG_WARNING(TAG, "Controller port [%s] in recovery mode for atleast 60 seconds.", name.c_str());
            health = VEK_HEALTH_WARNING;
        } else {
            state = VEK_STATE_RUNNING;
            health = VEK_HEALTH_OK;
        }
        break;
    }
    default:
        break;
    }
    port.setState(state);
    port.setHealth(health);
    return 0;
}

void vekStorageController::computeControllerStatus()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const std::vector<vekStorageControllerPortInfo> ports = currentInfo_.getControllerPortVector();
    const size_t total = maxSupportedControllerPorts_ != 0 ? maxSupportedControllerPorts_ : ports.size();
    size_t running = 0, recovery = 0, offline = 0, failed = 0;
    for (size_t i = 0; i < total; ++i) {
        const VEK_RESOURCE_STATE state = i < ports.size() ? ports[i].getState() : VEK_STATE_OFFLINE;
        if (state == VEK_STATE_RUNNING || state == VEK_STATE_CREATED) {
            ++running;
        } else if (state == VEK_STATE_RECOVERY) {
            ++recovery;
        } else if (state == VEK_STATE_OFFLINE) {
            ++offline;
        } else {
            ++failed;
        }
    }
    const long t = static_cast<long>(total);
    const long m = t - 1;
    const long r = static_cast<long>(running), y = static_cast<long>(recovery);
    const long o = static_cast<long>(offline), f = static_cast<long>(failed);
    VEK_RESOURCE_STATE state = VEK_STATE_UNKNOWN;
    VEK_RESOURCE_HEALTH health = VEK_HEALTH_UNKNOWN;
    int type = 0;
    if (t == 0 || r == t) {
        state = VEK_STATE_RUNNING, health = VEK_HEALTH_OK, type = STORAGE_EVENT_INFO_PORTS_ONLINE;
    } else if (f + o == 0 && y >= m) {
        state = VEK_STATE_RECOVERING, health = VEK_HEALTH_CRITICAL, type = STORAGE_EVENT_INFO_PORTS_FAILING;
    } else if (r > 0 && y > 0 && y < m && f + o == 0) {
        state = VEK_STATE_RECOVERING, health = VEK_HEALTH_WARNING, type = STORAGE_EVENT_INFO_PORTS_PARTIAL;
    } else if (f + o > 0 && f + o < m) {
        state = VEK_STATE_DEGRADED, health = VEK_HEALTH_WARNING, type = STORAGE_EVENT_INFO_PORTS_PARTIAL;
    } else if (f + o == m) {
        state = VEK_STATE_DEGRADED, health = VEK_HEALTH_CRITICAL, type = STORAGE_EVENT_INFO_PORTS_FAILING;
    } else if (f == t || (f + o == t && f != t && o != t)) {
        state = VEK_STATE_FAILED, health = VEK_HEALTH_CRITICAL, type = STORAGE_EVENT_INFO_PORTS_FAILING;
    } else if (o == t) {
        state = VEK_STATE_OFFLINE, health = VEK_HEALTH_CRITICAL, type = STORAGE_EVENT_INFO_PORTS_FAILING;
    }
    currentInfo_.setState(state);
    currentInfo_.setHealth(health);
    currentInfo_.setEventInfoString(
        type == 0 ? std::string() : formatControllerEventInfoString(static_cast<STORAGE_EVENT_INFO_TYPE>(type)));
}

std::string vekStorageController::formatControllerEventInfoString(STORAGE_EVENT_INFO_TYPE type)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const size_t ports =
        maxSupportedControllerPorts_ != 0 ? maxSupportedControllerPorts_ : currentInfo_.getControllerPortListSize();
    if (ports == 0) {
        return "";
    }
    if (type == STORAGE_EVENT_INFO_PORTS_ONLINE) {
        return "The storage controller port(s) are now online.";
    }
    if (type != STORAGE_EVENT_INFO_PORTS_FAILING) {
        return "";
    }
    if (ports == 1) {
        return "The storage controller port has gone offline or will be removed from the system, or has been in "
               "recovery state for >= 60 seconds.";
    }
    char text[512];
    snprintf(text, sizeof(text),
             "At least %zu of %zu ports of the storage controller have gone offline or will be removed from the "
             "system, or have been in recovery state for >= 60 seconds.",
             ports - 1, ports);
    return text;
}

// ---------------------------------------------------------------- events

void vekStorageController::raiseControllerEvent(int kind, bool asserted)
{
    const int number = SASResourceManager::resolveEventNumber(kind);
    if (number >= 0) {
        SASResourceManager::generateEvent(number, currentInfo_.getPhysicalLocation(), asserted, currentInfo_);
    }
}

void vekStorageController::raiseDiskEvent(int kind, const std::string& location, bool asserted,
                                          const vekDiskInfo& disk)
{
    const int number = SASResourceManager::resolveEventNumber(kind);
    if (number >= 0) {
        SASResourceManager::generateEvent(number, location, asserted, disk);
    }
}

bool vekStorageController::generateEventOnStatusChange()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const VEK_RESOURCE_HEALTH current = currentInfo_.getHealth();
    const VEK_RESOURCE_HEALTH previous = previousInfo_.getHealth();
    const std::string& location = previousInfo_.getPhysicalLocation();
    if (current == previous || !isPLValid(location) || location != currentInfo_.getPhysicalLocation() ||
        previousInfo_.getState() == VEK_STATE_UNKNOWN) {
        return false;
    }
    const char* curState = stateWord(currentInfo_.getState()).c_str();
    const char* prevState = stateWord(previousInfo_.getState()).c_str();
    VEK_LOG_INFO(TAG, "%s: Detected controller status change. [CurrState=%s, PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                 PciLocation.c_str(), curState, prevState, healthWord(current).c_str(), healthWord(previous).c_str());
    if (current == VEK_HEALTH_OK && previous == VEK_HEALTH_CRITICAL) {
        criticalEventOutstanding = 0;
        raiseControllerEvent(IELEVENT::IEL_STORAGE_CONTROLLER_OK, false);
        return true;
    }
    if (current == VEK_HEALTH_CRITICAL && previous == VEK_HEALTH_OK) {
        criticalEventOutstanding = 1;
        raiseControllerEvent(IELEVENT::IEL_STORAGE_CONTROLLER_FAULT, true);
        return true;
    }
    if (current == VEK_HEALTH_CRITICAL && previous == VEK_HEALTH_WARNING) {
        if (criticalEventOutstanding == 1) {
            return false;
        }
        criticalEventOutstanding = 1;
        raiseControllerEvent(IELEVENT::IEL_STORAGE_CONTROLLER_FAULT, true);
        return true;
    }
    if (current == VEK_HEALTH_OK && previous == VEK_HEALTH_WARNING) {
        if (criticalEventOutstanding == 0) {
            return false;
        }
        criticalEventOutstanding = 0;
        raiseControllerEvent(IELEVENT::IEL_STORAGE_CONTROLLER_OK, false);
        return true;
    }
    VEK_LOG_DEBUG(TAG,
                  "%s: Event not generated for controller status change. [CurrState=%s, PrevState=%s, "
                  "CurrHealth=%s, PrevHealth=%s]",
                  PciLocation.c_str(), curState, prevState, healthWord(current).c_str(), healthWord(previous).c_str());
    return false;
}

bool vekStorageController::generateEventOnStatusChange(vekDiskInfo& current, const vekDiskInfo& previous)
{
    const VEK_RESOURCE_STATE curState = current.getState();
    const VEK_RESOURCE_STATE prevState = previous.getState();
    if (curState == prevState) {
        return false;
    }
    const char* curWord = stateWord(curState).c_str();
    const char* prevWord = stateWord(prevState).c_str();
    const char* curHealth = healthWord(current.getHealth()).c_str();
    const char* prevHealth = healthWord(previous.getHealth()).c_str();
    std::string location = previous.getPhysicalLocation();
    if (!isPLValid(location)) {
        location = current.getPhysicalLocation();
    }
    if (!isPLValid(location)) {
        VEK_LOG_DEBUG(TAG,
                      "%s: Invalid physical location detected. [OldLoc=%s, NewLoc=%s, CurrState=%s, PrevState=%s, "
                      "CurrHealth=%s, PrevHealth=%s]",
                      current.getOSSCSILink().c_str(), previous.getPhysicalLocation().c_str(),
                      current.getPhysicalLocation().c_str(), curWord, prevWord, curHealth, prevHealth);
        return false;
    }
    VEK_LOG_INFO(TAG, "%s: %s - Detected disk status change. [CurrState=%s, PrevState=%s, CurrHealth=%s, PrevHealth=%s]",
                 PciLocation.c_str(), current.getSerialNumber().c_str(), curWord, prevWord, curHealth, prevHealth);
    if (curState == VEK_STATE_RUNNING) {
        current.setEventInfoString("");
        raiseDiskEvent(IELEVENT::IEL_DRIVE_OK, location, false, current);
        return true;
    }
    if (curState == VEK_STATE_PREDICTIVE_FAILURE) {
        raiseDiskEvent(IELEVENT::IEL_DRIVE_PREDICTIVE_FAILURE, location, true, current);
        return true;
    }
    if (curState == VEK_STATE_FAILED ||
        (curState == VEK_STATE_OFFLINE &&
         (prevState == VEK_STATE_PREDICTIVE_FAILURE || prevState == VEK_STATE_RUNNING))) {
        raiseDiskEvent(IELEVENT::IEL_DRIVE_FAILED, location, true, current);
        return true;
    }
    VEK_LOG_DEBUG(TAG, "%s: Event not generated for disk status change.", current.getSerialNumber().c_str());
    return false;
}

int vekStorageController::enableEvents()
{
    if (isRemoved()) {
        return -1;
    }
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    eventControlFlags |= VEK_STORAGE_EVENTS_ENABLED;
    if (NewDevice && !FoundOnFirstDiscoveryPass) {
        // Arrived while the service ran: report it as if it had been offline.
        previousInfo_ = currentInfo_;
        markOfflineCritical(previousInfo_);
        generateEventOnStatusChange();
        previousInfo_ = currentInfo_;
        for (vekDiskInfo& disk : disks_) {
            vekDiskInfo absent = disk;
            markOfflineCritical(absent);
            generateEventOnStatusChange(disk, absent);
        }
        previousDisks_ = disks_;
    }
    NewDevice = false;
    return 0;
}

bool vekStorageController::isEventsEnabled()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return (eventControlFlags & VEK_STORAGE_EVENTS_ENABLED) != 0;
}

int vekStorageController::disableEvents()
{
    if (isRemoved()) {
        return -1;
    }
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    eventControlFlags &= ~VEK_STORAGE_EVENTS_ENABLED;
    return 0;
}

int vekStorageController::poll()
{
    if (isRemoved() || !isEventsEnabled()) {
        return 0;
    }
    if ((eventControlFlags & VEK_STORAGE_EVENTS_NO_PORT_POLL) == 0) {
        std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
        bool changed = false;
        for (size_t i = 0; i < currentInfo_.getControllerPortListSize(); ++i) {
            const vekStorageControllerPortInfo before = currentInfo_.getControllerPort(i);
            vekStorageControllerPortInfo now = before;
            if (discoverControllerPortStatus(i, now) != 0) {
                continue;
            }
            if (now.getState() != before.getState() || now.getHealth() != before.getHealth()) {
                VEK_LOG_INFO(TAG, "%s: Detected port status change. [%s, %s, %s, %s]", getPort(i).c_str(),
                             stateWord(now.getState()).c_str(), stateWord(before.getState()).c_str(),
                             healthWord(now.getHealth()).c_str(), healthWord(before.getHealth()).c_str());
                changed = true;
            }
            // Also keeps the time a recovery was first seen.
            currentInfo_.setControllerPort(i, now);
        }
        if (changed) {
            computeControllerStatus();
            if (generateEventOnStatusChange()) {
                SASResourceManager::invalidateInventoryCache();
            }
            previousInfo_ = currentInfo_;
        }
    }
    if ((eventControlFlags & VEK_STORAGE_EVENTS_NO_DISK_POLL) == 0) {
        std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
        for (size_t i = 0; i < disks_.size(); ++i) {
            vekDiskInfo& disk = disks_[i];
            // A placeholder has nothing to ask; it raised its event when it went.
            if (disk.getDeviceMissing()) {
                continue;
            }
            discoverPhysicalDiskStatus(disk);
            if (i >= previousDisks_.size()) {
                previousDisks_.push_back(disk);
                continue;
            }
            if (generateEventOnStatusChange(disk, previousDisks_[i])) {
                SASResourceManager::invalidateInventoryCache();
            }
            previousDisks_[i] = disk;
        }
    }
    return 0;
}

// ---------------------------------------------------------------- removal and return

void vekStorageController::processDeviceRemoval()
{
    VEK_LOG_INFO(TAG, "Controller @ [%s] removal processing started.", PciLocation.c_str());
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    markRemoved();
    std::vector<vekStorageControllerPortInfo> ports = currentInfo_.getControllerPortVector();
    for (auto& port : ports) {
        markOfflineCritical(port);
    }
    currentInfo_.setControllerPortVector(ports);
    computeControllerStatus();
    if ((eventControlFlags & (VEK_STORAGE_EVENTS_NO_PORT_POLL | VEK_STORAGE_EVENTS_ENABLED)) ==
        VEK_STORAGE_EVENTS_ENABLED) {
        generateEventOnStatusChange();
    }
    previousInfo_ = currentInfo_;
    const bool diskEvents = (eventControlFlags & (VEK_STORAGE_EVENTS_NO_DISK_POLL | VEK_STORAGE_EVENTS_ENABLED)) ==
                            VEK_STORAGE_EVENTS_ENABLED;
    for (size_t i = 0; i < disks_.size(); ++i) {
        vekDiskInfo& disk = disks_[i];
        if (disk.getDeviceMissing()) {
            continue;
        }
        markOfflineCritical(disk);
        disk.setEventInfoString("");
        if (i < previousDisks_.size()) {
            if (diskEvents) {
                generateEventOnStatusChange(disk, previousDisks_[i]);
            }
            previousDisks_[i] = disk;
        }
    }
}

void vekStorageController::processDeviceAddition(IvekStorageController* newer)
{
    auto* other = dynamic_cast<vekStorageController*>(newer);
    if (other == nullptr || other == this) {
        return;
    }
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    std::lock_guard<std::recursive_mutex> newerLock(other->inventoryMutex_);
    VEK_LOG_INFO(TAG, "Controller @ [%s] returned.", PciLocation.c_str());
    // The identity and ports of the returning card; the records stay ours, so
    // that the next discovery compares with what was last reported.
    ChipsetID = other->ChipsetID;
    BoardID = other->BoardID;
    ports_ = other->ports_;
    FamilyFlags = other->FamilyFlags;
    osInterface_ = other->osInterface_;
    clearRemoved();
}

// ---------------------------------------------------------------- port list

std::vector<std::string> vekStorageController::getPortVector()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return ports_;
}

void vekStorageController::setPortVector(const std::vector<std::string>& ports)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    ports_ = ports;
}

std::string vekStorageController::getPort(size_t index)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return index < ports_.size() ? ports_[index] : std::string();
}

void vekStorageController::setPort(size_t index, const std::string& port)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (index < ports_.size()) {
        ports_[index] = port;
    }
}

void vekStorageController::addPort(const std::string& port)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    ports_.push_back(port);
}

void vekStorageController::clearPortList()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    ports_.clear();
}

size_t vekStorageController::getPortListSize()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return ports_.size();
}

void vekStorageController::deletePort(size_t index)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (index < ports_.size()) {
        ports_.erase(ports_.begin() + static_cast<long>(index));
    }
}

bool vekStorageController::getNewDevice()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return NewDevice;
}

void vekStorageController::setNewDevice(bool value)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    NewDevice = value;
}

int vekStorageController::getHostNumberForControllerPort(size_t index)
{
    return numberOfPathElement(getPort(index), "host");
}

int vekStorageController::getATADeviceNumberForControllerPort(size_t index)
{
    const std::string port = getPort(index);
    if (port.empty()) {
        return -1;
    }
    SysFs sysfs;
    return numberOfPathElement(sysfs.resolve(port), "ata");
}

// ---------------------------------------------------------------- copies

void vekStorageController::getInventory(vekStorageControllerInfo& info)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    info = currentInfo_;
}

vekStorageControllerInfo vekStorageController::getInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return currentInfo_;
}

void vekStorageController::getPhysicalDrivesInventory(std::vector<vekDiskInfo>& disks)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    disks = disks_;
}

std::vector<vekDiskInfo> vekStorageController::getPhysicalDrivesInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return disks_;
}

void vekStorageController::getLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    disks = logicalDisks_;
}

std::vector<vekLogicalDiskInfo> vekStorageController::getLogicalDiskInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return logicalDisks_;
}

void vekStorageController::getStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    enclosures = enclosures_;
}

std::vector<vekStorageEnclosureInfo> vekStorageController::getStorageEnclosureInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    return enclosures_;
}

int vekStorageController::populateDeviceNameMap() { return 0; }

std::string vekStorageController::getLogicalDeviceName(const std::string& name)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const auto found = deviceNameMap_.find(name);
    return found == deviceNameMap_.end() ? std::string() : found->second;
}

// ---------------------------------------------------------------- disks

bool vekStorageController::validatePhysicalDisk(vekDiskInfo&) { return true; }

bool vekStorageController::isLocationValid(const vekDiskInfo& disk)
{
    return disk.getPhysicalLocation() != kInvalidPL && disk.getSlot() != "-1";
}

int vekStorageController::discoverPhysicalDiskManufacturer(const vekDiskInfo& disk, std::string& manufacturer)
{
    const std::string vendor = stringUtils::trim(get_DiskVendor(disk.getOSSCSILink()));
    if (vendor != "ATA") {
        manufacturer = vendor;
        return vendor.empty() ? -1 : 0;
    }
    // Behind the translation layer the maker is only in the model text.
    const std::string model = disk.getModel();
    const size_t blank = model.find(' ');
    manufacturer = blank == std::string::npos ? std::string() : model.substr(0, blank);
    return manufacturer.empty() ? -1 : 0;
}

bool vekStorageController::discoverDisk(const std::string& scsiName, vekDiskInfo& disk)
{
    disk.setOSSCSILink(scsiName);
    SysFs sysfs;
    const std::vector<std::string> blocks = sysfs.dirList(std::string(kScsiDeviceClass) + "/" + scsiName + "/device/block");
    if (!blocks.empty()) {
        disk.setOSDeviceName(blocks.front());
    }
    // What sysfs says first; the disk's own answers win where it gives them.
    disk.setModel(stringUtils::trim(get_DiskModel(scsiName)));
    disk.setRevision(stringUtils::trim(get_sas_DiskRev(scsiName)));
    std::string serial;
    if (get_unit_sn_from_sysfs_vpd_pg80(scsiName, serial) >= 0) {
        disk.setSerialNumber(stringUtils::trim(serial));
    }
    const bool ata = get_DiskVendor(scsiName).compare(0, 3, "ATA") == 0;
    disk.setProtocol(ata ? "SATA" : "SAS");
    const std::string sg = get_ScsiGeneric(scsiName);
    vekScsiDescriptor fd(sg.empty() ? -1 : vekScsiOpenGenericDevice(sg));
    if (fd.get() >= 0 && ata) {
        std::vector<unsigned char> identify;
        if (get_ata_identify_device_info(fd.get(), identify) >= 0) {
            disk.setSerialNumber(stringUtils::trim(ata_identify_string(identify, 10, 10)));
            disk.setRevision(stringUtils::trim(ata_identify_string(identify, 23, 4)));
            disk.setModel(stringUtils::trim(ata_identify_string(identify, 27, 20)));
            disk.setCapacityBytes(ata_capacity_bytes(identify));
            disk.setMediaType(ata_is_ssd(identify) ? "SSD" : "HDD");
            const int major = ata_major_revision(identify);
            disk.setATAMajorRevision(major);
            VEK_LOG_DEBUG(TAG, "%s: ATA major revision %d (%s)", scsiName.c_str(), major,
                          major >= 9 ? "ACS-2 or later" : "Non ACS-2");
        }
    } else if (fd.get() >= 0) {
        std::vector<unsigned char> inquiry;
        if (get_identify_info(fd.get(), inquiry) >= 0) {
            disk.setModel(inq_parse_prodID(inquiry));
            disk.setRevision(inq_parse_rev(inquiry));
        }
        if (get_unit_sn_from_device_vpd_pg80(fd.get(), serial) >= 0) {
            disk.setSerialNumber(stringUtils::trim(serial));
        }
        uint64_t bytes = 0;
        if (get_disk_capacity(fd.get(), bytes) >= 0) {
            disk.setCapacityBytes(bytes);
            VEK_LOG_DEBUG(TAG, "%s: Drv size %lu Blocks, %lu bytes", scsiName.c_str(),
                          static_cast<unsigned long>(bytes / 512), static_cast<unsigned long>(bytes));
        }
        disk.setMediaType(is_unit_ssd(fd.get()) == 1 ? "SSD" : "HDD");
    } else {
        VEK_LOG_DEBUG(TAG, "%s: No SCSI generic device [%s]; sysfs only.", scsiName.c_str(), sg.c_str());
    }
    std::string manufacturer;
    discoverPhysicalDiskManufacturer(disk, manufacturer);
    disk.setManufacturer(manufacturer);
    return true;
}

int vekStorageController::discoverPhysicalDiskBoxNumber(vekDiskInfo& disk)
{
    return discoverPhysicalDiskBoxNumber(disk.getOSSCSILink(), disk);
}

int vekStorageController::discoverPhysicalDiskBoxNumber(const std::string& scsiName, vekDiskInfo& disk)
{
    // A plain adapter's disks sit in the one drive cage of the chassis; the
    // SAS end device knows its bay.
    SysFs sysfs;
    const std::string devicePath = devicePathOf(sysfs, scsiName);
    std::string bayText;
    const size_t at = devicePath.find("/end_device-");
    if (at != std::string::npos) {
        const size_t end = devicePath.find('/', at + 1);
        const std::string endDevice = devicePath.substr(0, end);
        const std::string name = devicePath.substr(at + 1, end - at - 1);
        readSysfs(sysfs, endDevice + "/sas_device/" + name + "/bay_identifier", bayText);
    }
    bayText = stringUtils::trim(bayText);
    if (bayText.empty() || bayText.find_first_not_of("0123456789") != std::string::npos) {
        disk.setSlot("-1");
        disk.setPhysicalLocation(kInvalidPL);
        return -1;
    }
    const int box = 1;
    const int bay = std::stoi(bayText);
    disk.setSlot(std::to_string(bay));
    disk.setEnclosureBox(box);
    setChassisDriveLocation(disk, box, bay);
    return 0;
}

void vekStorageController::setChassisDriveLocation(vekDiskInfo& disk, int box, int bay) const
{
    vekPhysLocInterface* physLoc = vekPhysLocFactory::getPhysLocInterface();
    disk.setPhysicalLocation(physLoc->getPhysLocForChassisDriveSlot(PciLocation, box, bay));
    if (!isPLValid(disk.getPhysicalLocation())) {
        return;
    }
    try {
        disk.setDecodedPhysicalLocation(physLoc->getDecodedPhysLocLongFormat(disk.getPhysicalLocation()));
    } catch (const std::exception& e) {
        VEK_LOG_DEBUG(TAG, "%s: PL [%s] not decoded: %s", PciLocation.c_str(), disk.getPhysicalLocation().c_str(),
                      e.what());
    }
}

int vekStorageController::discoverPhysicalDiskInventory(std::vector<vekDiskInfo>& disks)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    VEK_LOG_DEBUG(TAG, "Gathering disk inventory for controller @ %s [0x%X, 0x%X] [%d].", PciLocation.c_str(),
                  ChipsetID, BoardID, static_cast<int>(ports_.size()));
    if (isRemoved()) {
        VEK_LOG_DEBUG(TAG, "%s: Return last known PD inventory for removed controller.", PciLocation.c_str());
        disks.insert(disks.end(), disks_.begin(), disks_.end());
        return static_cast<int>(disks_.size());
    }
    SysFs sysfs;
    sysfs.synchronize(kScsiDeviceClass);
    std::vector<vekDiskInfo> found;
    for (const std::string& name : sysfs.dirList(kScsiDeviceClass)) {
        const std::string devicePath = devicePathOf(sysfs, name);
        if (devicePath.empty()) {
            VEK_LOG_DEBUG(TAG, "%s: readlink failed! (%d) Skipping device %s.", PciLocation.c_str(), -1, name.c_str());
            continue;
        }
        if (devicePath.find("/" + PciLocation + "/") == std::string::npos) {
            VEK_LOG_DEBUG(TAG, "%s: Skipping device since it is not hosted by controller at %s.", name.c_str(),
                          PciLocation.c_str());
            continue;
        }
        if (!is_direct_access_block_device(name)) {
            VEK_LOG_DEBUG(TAG, "%s: Skipping since it is not a direct-access block device", name.c_str());
            continue;
        }
        const std::string model = stringUtils::trim(get_DiskModel(name));
        if (model == "LOGICAL VOLUME") {
            VEK_LOG_DEBUG(TAG, "%s: Skipping logical drive %s", name.c_str(), model.c_str());
            continue;
        }
        vekDiskInfo disk;
        discoverDisk(name, disk);
        const int ret = discoverPhysicalDiskBoxNumber(name, disk);
        VEK_LOG_DEBUG(TAG,
                      "%s: Disk Device [%s] @ slot [%s] in box [%d] on HBA pciloc=[%s]: phyloc=[%s], Decoded PL=[%s] "
                      "(slot=[%d], ret=[%d])",
                      name.c_str(), disk.getOSDeviceName().c_str(), disk.getSlot().c_str(), disk.getEnclosureBox(),
                      PciLocation.c_str(), disk.getPhysicalLocation().c_str(),
                      disk.getDecodedPhysicalLocation().c_str(), ret == 0 ? std::stoi(disk.getSlot()) : -1, ret);
        if (!validatePhysicalDisk(disk)) {
            VEK_LOG_DEBUG(TAG, "%s: Not allowed as physical drive during validation.", name.c_str());
            continue;
        }
        discovering_ = true;
        discoverPhysicalDiskStatus(disk);
        discovering_ = false;
        found.push_back(disk);
    }
    previousDisks_ = disks_;
    disks_ = found;
    synchronizePhysicalDrivesInventory();
    alignPreviousDisks();
    disks.insert(disks.end(), disks_.begin(), disks_.end());
    return static_cast<int>(disks_.size());
}

void vekStorageController::alignPreviousDisks()
{
    // The poll compares each disk with the one at the same index of the
    // previous list: line them up by place and serial number. A disk with no
    // such match was judged by the synchronisation and starts from itself.
    std::vector<vekDiskInfo> aligned;
    for (const vekDiskInfo& disk : disks_) {
        const vekDiskInfo* match = &disk;
        for (const vekDiskInfo& previous : previousDisks_) {
            if (previous.getPhysicalLocation() == disk.getPhysicalLocation() && previous.getSlot() == disk.getSlot() &&
                previous.getSerialNumber() == disk.getSerialNumber() && isLocationValid(disk)) {
                match = &previous;
                break;
            }
        }
        aligned.push_back(*match);
    }
    previousDisks_ = aligned;
}

void vekStorageController::invalidateUnlessDiscovering()
{
    if (!discovering_) {
        SASResourceManager::invalidateInventoryCache();
    }
}

int vekStorageController::discoverPhysicalDiskStatus(vekDiskInfo& disk)
{
    const std::string scsiName = disk.getOSSCSILink();
    const std::string sg = get_ScsiGeneric(scsiName);
    char text[512];
    if (sg.empty()) {
        markOfflineCritical(disk);
        snprintf(text, sizeof(text), "SCSI generic device for SCSI link %s not available.", scsiName.c_str());
        disk.setEventInfoString(text);
        invalidateUnlessDiscovering();
        return -1;
    }
    vekScsiDescriptor fd(vekScsiOpenGenericDevice(sg));
    if (fd.get() < 0) {
        const int error = errno;
        if (error == ENODEV || error == ENXIO) {
            markOfflineCritical(disk);
        } else {
            disk.setState(VEK_STATE_FAILED);
            disk.setHealth(VEK_HEALTH_CRITICAL);
        }
        snprintf(text, sizeof(text), "Unable to open SCSI generic device %s (SCSI link: %s). Error number: %d.",
                 sg.c_str(), scsiName.c_str(), error);
        disk.setEventInfoString(text);
        invalidateUnlessDiscovering();
        return -1;
    }
    std::string serial;
    if (get_unit_sn_from_sysfs_vpd_pg80(scsiName, serial) >= 0) {
        serial = stringUtils::trim(serial);
        if (!serial.empty() && serial != disk.getSerialNumber()) {
            VEK_LOG_INFO(TAG, "%s: Detected change in disk serial number: [%s, %s].", scsiName.c_str(), serial.c_str(),
                         disk.getSerialNumber().c_str());
            disk.setEventInfoString(serialChangeText(serial, disk.getSerialNumber()));
            // The next discovery sees the swap and reports it.
            invalidateUnlessDiscovering();
            return 0;
        }
    }
    const std::string protocol = disk.getProtocol();
    const bool ata = protocol == "SATA" || protocol == "ATA";
    if (!ata && protocol != "SAS") {
        if (protocol.empty()) {
            disk.setEventInfoString("Unable to determine the transport protocol of the disk drive.");
        } else {
            snprintf(text, sizeof(text), "Unknown transport protocol (%s) for disk drive. (SCSI link: %s)",
                     protocol.c_str(), scsiName.c_str());
            disk.setEventInfoString(text);
            VEK_LOG_WARNING(TAG, "%s: Unknown disk protocol [%s]", scsiName.c_str(), protocol.c_str());
        }
        return -1;
    }
    int wear = 0, temperature = 0, maxTemperature = 0;
    bool haveTemperature = true;
    const int health = ata ? discoverAtaStatus(disk, fd.get(), wear, temperature, maxTemperature, haveTemperature)
                           : discoverSasStatus(disk, fd.get(), wear, temperature, maxTemperature);
    applyDiskVerdict(disk, ata, health, wear, temperature, maxTemperature, haveTemperature);
    return 0;
}

void vekStorageController::applyDiskVerdict(vekDiskInfo& disk, bool ata, int health, int wear, int temperature,
                                            int maxTemperature, bool haveTemperature)
{
    // An unknown maximum never counts as exceeded.
    const bool tooHot = haveTemperature && maxTemperature > 0 && temperature > maxTemperature;
    if (health < 0) {
        disk.setState(VEK_STATE_FAILED);
        disk.setHealth(VEK_HEALTH_CRITICAL);
        disk.setEventInfoString(ata ? "Failed to read Summary SMART Error Log from disk drive."
                                    : "Failed to read Informational Exceptions log page from disk drive.");
        return;
    }
    if (health == 0 && wear < kWearThreshold && !tooHot) {
        disk.setState(VEK_STATE_RUNNING);
        disk.setHealth(VEK_HEALTH_OK);
        disk.setEventInfoString("");
        return;
    }
    char text[512];
    disk.setState(VEK_STATE_PREDICTIVE_FAILURE);
    disk.setHealth(VEK_HEALTH_WARNING);
    if (haveTemperature) {
        snprintf(text, sizeof(text),
                 "[SSD Wear percentage (%d); Threshold (95)], [Current Temp (%d C); Max Operating Temperature (%d "
                 "C)], [%d errors reported in Summary SMART error log / Informational Exceptions log page.]",
                 wear, temperature, maxTemperature, health);
    } else {
        snprintf(text, sizeof(text),
                 "[SSD Wear percentage (%d); Threshold (95)], [%d errors reported in Summary SMART error log / "
                 "Informational Exceptions log page.]",
                 wear, health);
    }
    disk.setEventInfoString(text);
}

int vekStorageController::discoverSasStatus(vekDiskInfo& disk, int fd, int& wear, int& temperature,
                                            int& maxTemperature)
{
    if (disk.getMediaType() == "SSD") {
        const int used = get_sas_ssd_wear(fd);
        wear = used >= 0 ? used : 0;
    }
    std::vector<unsigned char> page;
    if (get_sas_temp(fd, page) >= 0) {
        temperature = sas_parse_current(page);
        maxTemperature = sas_parse_mcot(page);
    } else {
        get_unit_temp(fd, temperature);
    }
    return get_sas_health(fd);
}

int vekStorageController::discoverAtaStatus(vekDiskInfo& disk, int fd, int& wear, int& temperature,
                                            int& maxTemperature, bool& haveTemperature)
{
    const std::string name = disk.getOSSCSILink();
    if (disk.getIfSSDWearPageSupported()) {
        const int used = get_sata_ssd_wear(fd);
        if (used >= 0) {
            wear = used;
        } else if (vekScsiIsNotSupported(used)) {
            disk.setIfSSDWearPageSupported(false);
            VEK_LOG_WARNING(TAG, "%s: The SSD Statistics Page(07h) is not supported by Device Statistics Log(04h)",
                            name.c_str());
        }
    }
    haveTemperature = false;
    if (disk.getIfTempPageSupported() && disk.getATAMajorRevision() > 1) {
        unsigned char page[512] = {};
        const int length = get_sata_temp(fd, page, sizeof(page));
        if (length >= 0) {
            haveTemperature = sata_parse_current(page, static_cast<size_t>(length), &temperature) >= 0;
            sata_parse_mcot(page, static_cast<size_t>(length), &maxTemperature);
        } else if (vekScsiIsNotSupported(length)) {
            disk.setIfTempPageSupported(false);
            VEK_LOG_WARNING(TAG,
                            "%s: The Temperature Statistics Page(05h) is not supported by Device Statistics Log(04h)",
                            name.c_str());
        }
    }
    return get_sata_health(fd);
}

// ---------------------------------------------------------------- synchronisation

void vekStorageController::synchronizePhysicalDrivesInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const bool diskEvents = (eventControlFlags & (VEK_STORAGE_EVENTS_NO_DISK_POLL | VEK_STORAGE_EVENTS_ENABLED)) ==
                            VEK_STORAGE_EVENTS_ENABLED;
    const size_t latestCount = disks_.size();
    for (size_t i = 0; i < previousDisks_.size(); ++i) {
        const vekDiskInfo& previous = previousDisks_[i];
        if (!isLocationValid(previous)) {
            VEK_LOG_DEBUG(TAG, "Skipping prev disk @ index %zu due to invalid location info. [%s, %s]", i,
                          previous.getPhysicalLocation().c_str(), previous.getSlot().c_str());
            continue;
        }
        vekDiskInfo* latest = nullptr;
        for (size_t j = 0; j < latestCount; ++j) {
            if (disks_[j].getPhysicalLocation() == previous.getPhysicalLocation() &&
                disks_[j].getSlot() == previous.getSlot()) {
                latest = &disks_[j];
                break;
            }
        }
        if (latest != nullptr && latest->getSerialNumber() == previous.getSerialNumber()) {
            latest->setIfSSDWearPageSupported(previous.getIfSSDWearPageSupported());
            latest->setIfTempPageSupported(previous.getIfTempPageSupported());
            continue;
        }
        if (latest != nullptr) {
            // Another disk in the same bay: the old one is gone, the new one arrived.
            vekDiskInfo gone = previous;
            gone.setEventInfoString(serialChangeText(latest->getSerialNumber(), previous.getSerialNumber()));
            markOfflineCritical(gone);
            generateEventOnStatusChange(gone, previous);
            latest->setEventInfoString("");
            if (latest->getState() == VEK_STATE_RUNNING) {
                generateEventOnStatusChange(*latest, gone);
            }
            continue;
        }
        const bool newlyMissing = !previous.getDeviceMissing();
        if (newlyMissing) {
            VEK_LOG_INFO(TAG, "%s - %s: Disk detected as offline in the current discovery cycle.",
                         previous.getPhysicalLocation().c_str(), previous.getSerialNumber().c_str());
        }
        vekDiskInfo placeholder = previous;
        placeholder.setDeviceMissing(true);
        markOfflineCritical(placeholder);
        disks_.push_back(placeholder);
        if (newlyMissing) {
            SASResourceManager::sendInventorytToRMCOnCacheBuild();
        }
        if (diskEvents) {
            generateEventOnStatusChange(placeholder, previous);
        }
    }
    for (size_t j = 0; j < latestCount; ++j) {
        vekDiskInfo& disk = disks_[j];
        if (!isLocationValid(disk)) {
            VEK_LOG_DEBUG(TAG, "Skipping disk @ index %zu due to invalid location info. [%s, %s]", j,
                          disk.getPhysicalLocation().c_str(), disk.getSlot().c_str());
            continue;
        }
        bool known = false;
        for (const vekDiskInfo& previous : previousDisks_) {
            known = known || (previous.getPhysicalLocation() == disk.getPhysicalLocation() &&
                              previous.getSlot() == disk.getSlot());
        }
        if (known) {
            continue;
        }
        VEK_LOG_INFO(TAG, "%s - %s: Detected new disk at previously-empty location in current discovery cycle.",
                     disk.getPhysicalLocation().c_str(), disk.getSerialNumber().c_str());
        SASResourceManager::sendInventorytToRMCOnCacheBuild();
        if (diskEvents && disk.getState() != VEK_STATE_RUNNING) {
            vekDiskInfo absent = disk;
            markOfflineCritical(absent);
            generateEventOnStatusChange(disk, absent);
        }
    }
}

void vekStorageController::synchronizeLogicalDiskInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const std::string serial = currentInfo_.getSerialNumber();
    VEK_LOG_DEBUG(TAG, "Controller [SN %s]: Inside synchronizeLogicalDiskInventory", serial.c_str());
    const size_t latestCount = logicalDisks_.size();
    for (const vekLogicalDiskInfo& previous : previousLogicalDisks_) {
        const std::string name = previous.getDurableName();
        if (name.empty()) {
            VEK_LOG_DEBUG(TAG, "Controller [SN %s]: Found a logical disk with empty durable name. [LogicalDiskID = %s]",
                          serial.c_str(), previous.getLogicalDiskID().c_str());
            continue;
        }
        bool found = false;
        for (size_t j = 0; j < latestCount && !found; ++j) {
            found = logicalDisks_[j].getDurableName() == name;
        }
        if (found) {
            VEK_LOG_DEBUG(TAG, "Controller [SN %s]: Found LD [%s] in latest inventory.", serial.c_str(), name.c_str());
            continue;
        }
        if (previous.getDeletedEventReceived()) {
            VEK_LOG_DEBUG(TAG, "Controller [SN %s]: Omitting LD [%s] that has received deleted-event. (Device %s)",
                          serial.c_str(), name.c_str(), previous.getDeviceMissing() ? "missing" : "not missing");
            continue;
        }
        vekLogicalDiskInfo placeholder = previous;
        if (previous.getDeviceMissing()) {
            VEK_LOG_DEBUG(TAG, "Controller [SN %s]: Re-added missing LD [%s] to latest inventory.", serial.c_str(),
                          name.c_str());
        } else {
            placeholder.setDeviceMissing(true);
            VEK_LOG_DEBUG(TAG, "Controller [SN %s]: Added placeholder for LD [%s] in latest inventory.",
                          serial.c_str(), name.c_str());
        }
        logicalDisks_.push_back(placeholder);
    }
}

int vekStorageController::discoverLogicalDiskInventory(std::vector<vekLogicalDiskInfo>& disks)
{
    // A plain adapter presents no volumes of its own.
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (!isRemoved()) {
        previousLogicalDisks_ = logicalDisks_;
        logicalDisks_.clear();
        synchronizeLogicalDiskInventory();
    }
    disks.insert(disks.end(), logicalDisks_.begin(), logicalDisks_.end());
    return static_cast<int>(logicalDisks_.size());
}

int vekStorageController::discoverStorageEnclosureInventory(std::vector<vekStorageEnclosureInfo>& enclosures)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (isRemoved()) {
        enclosures.insert(enclosures.end(), enclosures_.begin(), enclosures_.end());
        return static_cast<int>(enclosures_.size());
    }
    // The enclosure services devices behind the adapter stand for its backplane.
    SysFs sysfs;
    sysfs.synchronize(kScsiDeviceClass);
    std::vector<vekStorageEnclosureInfo> found;
    for (const std::string& name : sysfs.dirList(kScsiDeviceClass)) {
        const std::string devicePath = devicePathOf(sysfs, name);
        if (devicePath.find("/" + PciLocation + "/") == std::string::npos ||
            stringUtils::trim(get_DiskType(name)) != std::to_string(kEnclosureServicesDevice)) {
            continue;
        }
        vekStorageEnclosureInfo enclosure;
        const int box = 1;
        enclosure.setModel(stringUtils::trim(get_DiskModel(name)));
        enclosure.setFirmwareVersion(stringUtils::trim(get_sas_DiskRev(name)));
        enclosure.setType("SAS Backplane");
        enclosure.setEnclosureType(VEK_STORAGE_ENCLOSURE_TYPE_BACKPLANE);
        std::string serial;
        if (get_unit_sn_from_sysfs_vpd_pg80(name, serial) < 0 || stringUtils::trim(serial).empty()) {
            readSysfs(sysfs, devicePath + "/enclosure/" + name + "/id", serial);
        }
        enclosure.setSerialNumber(stringUtils::trim(serial));
        std::string components;
        readSysfs(sysfs, devicePath + "/enclosure/" + name + "/components", components);
        components = stringUtils::trim(components);
        const bool counted = !components.empty() && components.find_first_not_of("0123456789") == std::string::npos;
        enclosure.setBayCount(counted ? std::stoi(components) : 0);
        enclosure.setBox(box);
        enclosure.setSegmentCount(1);
        enclosure.setControllerPCILocation(PciLocation);
        enclosure.setPhysicalLocation(
            vekPhysLocFactory::getPhysLocInterface()->getPhysLocForChassisStorageBackplane(PciLocation, box));
        const bool running = strcasecmp(stringUtils::trim(get_DiskState(name)).c_str(), "running") == 0;
        enclosure.setState(running ? VEK_STATE_RUNNING : VEK_STATE_OFFLINE);
        enclosure.setHealth(running ? VEK_HEALTH_OK : VEK_HEALTH_CRITICAL);
        VEK_LOG_DEBUG(TAG, "%s: Storage enclosure [%s] SN [%s] with %d bays, box %d, PL [%s]", PciLocation.c_str(),
                      name.c_str(), enclosure.getSerialNumber().c_str(), enclosure.getBayCount(), box,
                      enclosure.getPhysicalLocation().c_str());
        found.push_back(enclosure);
    }
    previousEnclosures_ = enclosures_;
    enclosures_ = found;
    enclosures.insert(enclosures.end(), enclosures_.begin(), enclosures_.end());
    return static_cast<int>(enclosures_.size());
}
