#include "vekLewisburgSATARAIDController.h"

#include "IvekStorageControllerFactory.h"
#include "SASResourceManager.h"
#include "SysFs.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekPlatformServices.h"
#include "vekSCMServerChassisManager.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

using vekGlobalDef::VMwareOSUtils;
using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "STOR_LB";
const char kInvalidPL[] = "FFFFFFFFFFFFFFFF";
const char kVersionKey[] = "Version : ";
const char kControllerKey[] = "Controller : ";
const size_t kMaxMdadmPairs = 10;

const ControllerClassRegister registration({"vekLewisburgSATARAIDController",
                                            &vekLewisburgSATARAIDController::claimDevice,
                                            &vekLewisburgSATARAIDController::refreshVendorInterfaceCache});

// What mdadm said of the platform's RAID controllers: (controller, version)
// pairs, read once for the life of the process.
class MdadmCache {
public:
    static MdadmCache& instance()
    {
        static MdadmCache cache;
        return cache;
    }

    // The version of the first controller whose text names the PCI location.
    std::string versionOf(const std::string& pciLocation)
    {
        std::call_once(loaded_, [this] { load(); });
        for (const auto& pair : pairs_) {
            if (pair.first.find(pciLocation) != std::string::npos) {
                return pair.second;
            }
        }
        return "";
    }

private:
    void load()
    {
        std::string mdadm;
        for (const char* candidate : {"/usr/sbin/mdadm", "/sbin/mdadm"}) {
            const std::string path = vekConfig::getEnv() + candidate;
            if (access(path.c_str(), R_OK | X_OK) == 0) {
                mdadm = path;
                break;
            }
        }
        if (mdadm.empty()) {
            VEK_LOG_WARNING(TAG, "Unable to find mdadm at standard locations");
            return;
        }
        const std::string command = VMwareOSUtils::composeCommand(
            "{} --detail-platform | /usr/bin/grep -e \"Version : \" -e \"Controller : \"", {mdadm});
        const std::vector<std::string> lines = VMwareOSUtils::executeCliCommandAndFetchOutput(command);
        if (lines.empty()) {
            VEK_LOG_ERROR(TAG, "popen(%s) failed: %d", command.c_str(), errno);
            return;
        }
        std::string output;
        for (const std::string& line : lines) {
            output += line;
        }
        VEK_LOG_DEBUG(TAG, "mdadm output:\n%s\n", output.c_str());
        // A version line, then the controller line that closes the pair.
        std::string version;
        for (const std::string& line : lines) {
            size_t at = line.find(kVersionKey);
            if (at != std::string::npos) {
                version = stringUtils::trim(line.substr(at + sizeof(kVersionKey) - 1));
                continue;
            }
            at = line.find(kControllerKey);
            if (at == std::string::npos) {
                continue;
            }
            if (pairs_.size() == kMaxMdadmPairs) {
                break;
            }
            pairs_.emplace_back(stringUtils::trim(line.substr(at + sizeof(kControllerKey) - 1)), version);
            version.clear();
        }
    }

    std::once_flag loaded_;
    std::vector<std::pair<std::string, std::string>> pairs_;
};

// The number behind the first "/<prefix>" of a path ("/host%d"); -1 when none.
int numberAfter(const std::string& path, const std::string& prefix)
{
    const size_t at = path.find("/" + prefix);
    int number = -1;
    if (at == std::string::npos || sscanf(path.c_str() + at, ("/" + prefix + "%d").c_str(), &number) != 1) {
        return -1;
    }
    return number;
}

// Where a class link ("/sys/class/scsi_device/9:0:0:0") leads; empty when
// it is no link.
std::string resolvedLink(const std::string& link)
{
    SysFs sysfs;
    sysfs.synchronize(link);
    const std::string target = sysfs.resolve(link);
    return target == link ? std::string() : target;
}

void markOfflineCritical(vekStatusInfo& status)
{
    status.setState(VEK_STATE_OFFLINE);
    status.setHealth(VEK_HEALTH_CRITICAL);
}

bool isLocationValid(const vekDiskInfo& disk)
{
    return disk.getPhysicalLocation() != kInvalidPL && disk.getSlot() != "-1";
}

// The same disk across two discoveries: the same place, or, with no place
// known, the same SCSI link.
bool sameDisk(const vekDiskInfo& a, const vekDiskInfo& b)
{
    if (isLocationValid(a) && isLocationValid(b)) {
        return a.getPhysicalLocation() == b.getPhysicalLocation() && a.getSlot() == b.getSlot();
    }
    return !isLocationValid(a) && !isLocationValid(b) && !a.getOSSCSILink().empty() &&
           a.getOSSCSILink() == b.getOSSCSILink();
}

bool sameAttributes(const vekDiskInfo& a, const vekDiskInfo& b)
{
    return a.getModel() == b.getModel() && a.getRevision() == b.getRevision() &&
           a.getCapacityBytes() == b.getCapacityBytes() && a.getMediaType() == b.getMediaType() &&
           a.getOSDeviceName() == b.getOSDeviceName() && a.getOSSCSILink() == b.getOSSCSILink() &&
           a.getDecodedPhysicalLocation() == b.getDecodedPhysicalLocation();
}

} // namespace

int vekLewisburgSATARAIDController::claimDevice(uint32_t chipsetID, uint32_t boardID, const std::string& pciLocation,
                                                bool firstPass, vekOSInterface* osInterface,
                                                IvekStorageController** controller)
{
    *controller = nullptr;
    unsigned char flags = 0;
    if (getStorageControllerModel(chipsetID, boardID, VEK_STORAGE_FAMILY_LEWISBURG, flags) == nullptr) {
        return 0;
    }
    auto* created = new (std::nothrow) vekLewisburgSATARAIDController(
        chipsetID, boardID, pciLocation, flags, firstPass, osInterface, vekPlatformServices::getCachedPlatform());
    if (created == nullptr) {
        VEK_LOG_ERROR(TAG, "Out of memory!");
        return 1;
    }
    VEK_LOG_DEBUG(TAG, "Claimed device [%s 0x%x 0x%x].", pciLocation.c_str(), chipsetID, boardID);
    *controller = created;
    return 1;
}

void vekLewisburgSATARAIDController::refreshVendorInterfaceCache()
{
    // Nothing to refresh: what mdadm says is read at the first controller's
    // need and kept for the life of the process, so a host without this
    // chipset never runs it.
}

size_t vekLewisburgSATARAIDController::maxSupportedControllerPortsFor(int platform)
{
    if (platform == 4 || platform == 2) {
        return 8;
    }
    if (platform == 1) {
        return 4;
    }
    VEK_LOG_WARNING(TAG, "Unable to determine max # supported controller ports due to unrecognized server Volume");
    return 0;
}

vekLewisburgSATARAIDController::vekLewisburgSATARAIDController(uint32_t chipsetID, uint32_t boardID,
                                                               std::string pciLocation, unsigned char familyFlags,
                                                               bool firstPass, vekOSInterface* osInterface,
                                                               int platform)
    : vekStorageController(chipsetID, boardID, std::move(pciLocation), familyFlags, firstPass, osInterface)
{
    setMaxSupportedControllerPorts(maxSupportedControllerPortsFor(platform));
}

int vekLewisburgSATARAIDController::discoverInventory(vekStorageControllerInfo& info)
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    discoveryRunning = 0;
    const int result = vekStorageController::discoverInventory(info);
    if (result >= 0 && !isRemoved()) {
        currentInfo_.setProtocol("SATA");
        info = currentInfo_;
    }
    return result;
}

int vekLewisburgSATARAIDController::discoverFirmwareVersion(std::string& version)
{
    version = MdadmCache::instance().versionOf(PciLocation);
    return version.empty() ? -1 : 0;
}

bool vekLewisburgSATARAIDController::validatePhysicalDisk(vekDiskInfo& disk)
{
    // The chipset speaks ATA to its disks, with no translation layer between.
    disk.setProtocol("ATA");
    return true;
}

int vekLewisburgSATARAIDController::discoverPhysicalDiskBoxNumber(vekDiskInfo& disk)
{
    return discoverPhysicalDiskBoxNumber(disk.getOSSCSILink(), disk);
}

int vekLewisburgSATARAIDController::discoverPhysicalDiskBoxNumber(const std::string& scsiName, vekDiskInfo& disk)
{
    disk.setOSSCSILink(scsiName);
    disk.setSlot("-1");
    disk.setPhysicalLocation(kInvalidPL);
    // Every disk of the chipset sits in the box wired to the primary chassis's PCH.
    int box = -1;
    try {
        box = vekSCM::ServerChassisManagerFactory::getServerChassisManager()
                  .findMonarchPCHAttachedStorageEnclosureBoxNumber();
    } catch (const vekSCM::Exception& e) {
        VEK_LOG_ERROR(TAG, "%s: No enclosure box for the chipset's disks. (%s)", scsiName.c_str(), e.what());
    }
    if (box < 0) {
        return -1;
    }
    disk.setEnclosureBox(box);
    const int bay = discoverPhysicalDiskSlotNumber(disk, box);
    if (bay < 0) {
        return -1;
    }
    disk.setSlot(std::to_string(bay));
    setChassisDriveLocation(disk, box, bay);
    return 0;
}

int vekLewisburgSATARAIDController::discoverPhysicalDiskSlotNumber(vekDiskInfo& disk, int box)
{
    return getDiskSlotNumberFromATADeviceNumber(disk, box);
}

int vekLewisburgSATARAIDController::getDiskSlotNumberFromATADeviceNumber(vekDiskInfo& disk, int box)
{
    const std::string scsiName = disk.getOSSCSILink();
    const std::string diskPath = resolvedLink("/sys/class/scsi_device/" + scsiName);
    const std::string portPath = resolvedLink(getPort(0));
    // The chipset's ports are numbered from the ATA device of its first port.
    int base = -1;
    for (size_t i = 0; i < getPortListSize(); ++i) {
        const int number = getATADeviceNumberForControllerPort(i);
        base = number >= 0 && (base < 0 || number < base) ? number : base;
    }
    const int ata = numberAfter(diskPath, "ata");
    if (numberAfter(diskPath, "host") < 0 || numberAfter(portPath, "host") < 0 || ata < 0 || base < 0 || ata < base) {
        VEK_LOG_ERROR(TAG, "Unable to determine disk slot # from ATA device numbers. (%s, %s, %s, %d, %d)",
                      scsiName.c_str(), diskPath.c_str(), portPath.c_str(), ata, base);
        return -1;
    }
    disk.setATADeviceNumber(ata);
    const int port = ata - base;
    VEK_LOG_DEBUG(TAG, "Disk %s found @ Offset [%d]; (ATA device number: [%d]; ATA device base: [%d])",
                  scsiName.c_str(), port, ata, base);
    try {
        return vekSCM::ServerChassisManagerFactory::getServerChassisManager()
            .mapPCHSATAControllerPortToStorageEnclosureDriveBay(port, box);
    } catch (const vekSCM::Exception& e) {
        VEK_LOG_ERROR(TAG, "Failed to find bay # for SATA drive at PCH port [%d] in enclosure box [%d]! (%s)", port,
                      box, e.what());
    }
    return -1;
}

int vekLewisburgSATARAIDController::getATADeviceNumberForControllerPort(size_t index)
{
    // Each port of the chipset is a SCSI host below its own "ataN".
    const std::string port = getPort(index);
    return port.empty() ? -1 : numberAfter(resolvedLink(port), "ata");
}

size_t vekLewisburgSATARAIDController::countFailingPorts()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    size_t failing = 0;
    for (const vekStorageControllerPortInfo& port : currentInfo_.getControllerPortVector()) {
        const VEK_RESOURCE_STATE state = port.getState();
        failing += state != VEK_STATE_RUNNING && state != VEK_STATE_CREATED ? 1 : 0;
    }
    return failing;
}

void vekLewisburgSATARAIDController::computeControllerStatus()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    if (discoveryRunning != 0) {
        vekStorageController::computeControllerStatus();
        return;
    }
    // Only the ports the OS shows count: a chipset whose unused ports are
    // hidden is not degraded for that.
    const size_t failing = countFailingPorts();
    if (failing == 0) {
        currentInfo_.setState(VEK_STATE_RUNNING);
        currentInfo_.setHealth(VEK_HEALTH_OK);
        currentInfo_.setEventInfoString(formatControllerEventInfoString(STORAGE_EVENT_INFO_PORTS_ONLINE));
    } else {
        currentInfo_.setState(failing >= getPortListSize() ? VEK_STATE_OFFLINE : VEK_STATE_DEGRADED);
        currentInfo_.setHealth(VEK_HEALTH_CRITICAL);
        currentInfo_.setEventInfoString(formatControllerEventInfoString(STORAGE_EVENT_INFO_PORTS_FAILING));
    }
    discoveryRunning = 1;
}

std::string vekLewisburgSATARAIDController::formatControllerEventInfoString(STORAGE_EVENT_INFO_TYPE type)
{
    const size_t ports = getMaxSupportedControllerPorts();
    if (ports == 0) {
        return "";
    }
    if (type == STORAGE_EVENT_INFO_PORTS_ONLINE) {
        return "All ports of the Intel SATA RAID controller are now online.";
    }
    if (type != STORAGE_EVENT_INFO_PORTS_FAILING) {
        return "";
    }
    char text[512];
    snprintf(text, sizeof(text),
             "At least %zu of %zu ports of the Intel SATA RAID controller have gone offline or will be removed from "
             "the system, or have been in recovery state for >= 60 seconds.",
             std::min(ports, std::max<size_t>(countFailingPorts(), 1)), ports);
    return text;
}

void vekLewisburgSATARAIDController::synchronizePhysicalDrivesInventory()
{
    std::lock_guard<std::recursive_mutex> lock(inventoryMutex_);
    const bool diskEvents = (eventControlFlags & (VEK_STORAGE_EVENTS_NO_DISK_POLL | VEK_STORAGE_EVENTS_ENABLED)) ==
                            VEK_STORAGE_EVENTS_ENABLED;
    const size_t latestCount = disks_.size();
    for (size_t i = 0; i < previousDisks_.size(); ++i) {
        const vekDiskInfo& previous = previousDisks_[i];
        if (!isLocationValid(previous) && previous.getOSSCSILink().empty()) {
            VEK_LOG_DEBUG(TAG, "Skipping disk @ index %zu due to invalid location info. [%s, %s]", i,
                          previous.getPhysicalLocation().c_str(), previous.getSlot().c_str());
            continue;
        }
        vekDiskInfo* latest = nullptr;
        for (size_t j = 0; j < latestCount && latest == nullptr; ++j) {
            latest = sameDisk(disks_[j], previous) ? &disks_[j] : nullptr;
        }
        if (latest == nullptr) {
            const bool newlyMissing = !previous.getDeviceMissing();
            if (newlyMissing) {
                VEK_LOG_INFO(TAG, "Disk (SCSI link: %s) detected to be offline in the current discovery cycle.",
                             previous.getOSSCSILink().c_str());
                VEK_LOG_INFO(TAG, "%s - %s: Disk detected as offline in the current discovery cycle.",
                             previous.getPhysicalLocation().c_str(), previous.getSerialNumber().c_str());
                SASResourceManager::sendInventorytToRMCOnCacheBuild();
            }
            vekDiskInfo placeholder = previous;
            placeholder.setDeviceMissing(true);
            markOfflineCritical(placeholder);
            disks_.push_back(placeholder);
            if (diskEvents) {
                generateEventOnStatusChange(placeholder, previous);
            }
            continue;
        }
        if (latest->getSerialNumber() != previous.getSerialNumber()) {
            // Another disk in the same bay: the old one is gone, the new one arrived.
            char text[256];
            snprintf(text, sizeof(text),
                     "Detected change in disk serial number (Current serial number: %s; Last known serial number: "
                     "%s).",
                     latest->getSerialNumber().c_str(), previous.getSerialNumber().c_str());
            VEK_LOG_INFO(TAG, "%s", text);
            vekDiskInfo gone = previous;
            gone.setEventInfoString(text);
            markOfflineCritical(gone);
            generateEventOnStatusChange(gone, previous);
            latest->setEventInfoString("");
            if (latest->getState() == VEK_STATE_RUNNING) {
                generateEventOnStatusChange(*latest, gone);
            }
        } else {
            latest->setIfSSDWearPageSupported(previous.getIfSSDWearPageSupported());
            latest->setIfTempPageSupported(previous.getIfTempPageSupported());
        }
        if (!sameAttributes(*latest, previous)) {
            VEK_LOG_INFO(TAG,
                         "%s - %s: Detected change in inventory attributes. Updated inventory will be pushed to RMC.",
                         latest->getPhysicalLocation().c_str(), latest->getSerialNumber().c_str());
            SASResourceManager::sendInventorytToRMCOnCacheBuild();
        }
    }
    for (size_t j = 0; j < latestCount; ++j) {
        vekDiskInfo& disk = disks_[j];
        // With no place known, the SCSI link still tells the disk.
        if (!isLocationValid(disk) && disk.getOSSCSILink().empty()) {
            VEK_LOG_DEBUG(TAG, "Skipping disk @ index %zu due to invalid location info and SCSI link. [%s, %s]", j,
                          disk.getPhysicalLocation().c_str(), disk.getSlot().c_str());
            continue;
        }
        bool known = false;
        for (const vekDiskInfo& previous : previousDisks_) {
            known = known || sameDisk(disk, previous);
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
