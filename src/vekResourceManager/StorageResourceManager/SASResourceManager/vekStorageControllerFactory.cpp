#include "vekStorageControllerFactory.h"

#include "SASResourceManager.h"
#include "SysFs.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekStorageController.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

using vekGlobalDef::VMwareOSUtils;
using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "STOR_FACT";
const char kScsiHostClass[] = "/sys/class/scsi_host";
const char kScsiDeviceClass[] = "/sys/class/scsi_device";

bool onAnySystem() { return true; }

const uint16_t kBroadcom = 0x1000;
const uint16_t kIntel = 0x8086;
const uint16_t kAmd = 0x1022;

// Enrols the factory before the manager's first build.
const FactoryRegister registration(&vekStorageControllerFactory::getInstance());

bool sameTime(const struct stat& a, const struct stat& b)
{
    return a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// An attribute read now, wherever the tree stands.
bool readSysfs(SysFs& sysfs, const std::string& path, std::string& value)
{
    return sysfs.synchronize(path) && sysfs.getValue(path, value);
}

} // namespace

// Plain SAS/SATA adapters, served through sysfs and the SCSI probes.
const _VEK_STORAGE_HBA_MODEL gStorageHbaList[MAX_STORAGE_HBA_LIST] = {
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x00E6), 0, VEK_STORAGE_FAMILY_HBA, "HBA 9500-16i SAS38xx"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x00E5), 0, VEK_STORAGE_FAMILY_HBA, "HBA 9500 SAS38xx"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x0097), 0, VEK_STORAGE_FAMILY_HBA, "SAS3008 HBA"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x0096), 0, VEK_STORAGE_FAMILY_HBA, "SAS3004 HBA"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x00AF), 0, VEK_STORAGE_FAMILY_HBA, "HBA 9400-8i SAS3408"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x00AC), 0, VEK_STORAGE_FAMILY_HBA, "HBA 9400-16i SAS3416"},
    {onAnySystem, vekStorageChipsetID(kIntel, 0xA182), 0, VEK_STORAGE_FAMILY_HBA, "Lewisburg SATA AHCI"},
    {onAnySystem, vekStorageChipsetID(kIntel, 0xA1D2), 0, VEK_STORAGE_FAMILY_HBA, "Lewisburg sSATA AHCI"},
    {onAnySystem, vekStorageChipsetID(kAmd, 0x7901), 0, VEK_STORAGE_FAMILY_HBA, "FCH SATA AHCI"},
    // Served by the MegaRAID factory through libstorelib.so.
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x10E2), 0x40001000, VEK_STORAGE_FAMILY_MEGARAID, "MegaRAID 9560-16i"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x10E2), 0x40101000, VEK_STORAGE_FAMILY_MEGARAID, "MegaRAID 9560-8i"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x10E2), 0, VEK_STORAGE_FAMILY_MEGARAID,
     "MegaRAID 12GSAS/PCIe Secure SAS39xx"},
    {onAnySystem, vekStorageChipsetID(kBroadcom, 0x005D), 0, VEK_STORAGE_FAMILY_MEGARAID, "MegaRAID SAS-3 3108"},
    {onAnySystem, vekStorageChipsetID(0x9005, 0x028F), vekStorageChipsetID(0x9005, 0x1A20),
     VEK_STORAGE_FAMILY_SMARTRAID, "SmartRAID 3254-16i"},
    // The chipset's SATA controllers in RAID mode (vekLewisburgSATARAIDController).
    {onAnySystem, vekStorageChipsetID(kIntel, 0xA186), 0, VEK_STORAGE_FAMILY_LEWISBURG, "Lewisburg SATA RAID"},
    {onAnySystem, vekStorageChipsetID(kIntel, 0xA1D6), 0, VEK_STORAGE_FAMILY_LEWISBURG, "Lewisburg sSATA RAID"},
    {onAnySystem, vekStorageChipsetID(kIntel, 0x2826), 0, VEK_STORAGE_FAMILY_LEWISBURG, "Lewisburg SATA RAID (VROC)"},
};

const char* getStorageControllerModel(uint32_t chipsetID, uint32_t boardID, unsigned char familyMask,
                                      unsigned char& flags)
{
    for (size_t i = 0; i < MAX_STORAGE_HBA_LIST; ++i) {
        const _VEK_STORAGE_HBA_MODEL& row = gStorageHbaList[i];
        if (row.modelName == nullptr) {
            break;
        }
        if ((familyMask != 0 && (row.familyFlags & familyMask) == 0) ||
            (row.chipsetID != 0 && row.chipsetID != chipsetID) || (row.boardID != 0 && row.boardID != boardID)) {
            continue;
        }
        if (row.isSupported != nullptr && !row.isSupported()) {
            VEK_LOG_DEBUG(TAG,
                          "[ChipsetID=0x%08x, BoardID=0x%08x]: Skipping matching HBA model entry @ [%zu] as it is "
                          "not supported on this system.",
                          chipsetID, boardID, i);
            continue;
        }
        flags = row.familyFlags;
        return row.modelName;
    }
    return nullptr;
}

vekStorageControllerFactory& vekStorageControllerFactory::getInstance()
{
    // Never destroyed: the manager's thread may still use it at process exit.
    static vekStorageControllerFactory* const instance = new vekStorageControllerFactory();
    return *instance;
}

vekStorageControllerFactory::vekStorageControllerFactory() = default;
vekStorageControllerFactory::~vekStorageControllerFactory() = default;

bool vekStorageControllerFactory::initialize(vekOSInterface* osInterface, ISubject* shutdownSubject)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    init_.initialize(TAG, this, "vekStorageControllerFactory", osInterface, shutdownSubject);
    return true;
}

int vekStorageControllerFactory::findHostCard(SysFs& sysfs, const std::string& hostPath, HostCard& card)
{
    // The host's device sits below its PCI function; the nearest PCI address
    // on the way up is the card (an adapter behind a bridge keeps its own).
    const std::string devicePath = sysfs.resolve(sysfs.resolve(hostPath) + "/device");
    const std::vector<std::string> parts = stringUtils::splitStringstream(devicePath, '/');
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
        if (VMwareOSUtils::isPciAddress(*part)) {
            card.pciLocation = *part;
            break;
        }
    }
    if (card.pciLocation.empty()) {
        return -2;
    }
    const std::string pciPath = "/sys/bus/pci/devices/" + card.pciLocation + "/";
    std::string vendor, device, subVendor, subDevice;
    if (!readSysfs(sysfs, pciPath + "vendor", vendor) || !readSysfs(sysfs, pciPath + "device", device)) {
        return -1;
    }
    readSysfs(sysfs, pciPath + "subsystem_vendor", subVendor);
    readSysfs(sysfs, pciPath + "subsystem_device", subDevice);
    card.chipsetID = vekStorageChipsetID(static_cast<uint16_t>(stringUtils::hexStringToInt(vendor)),
                                         static_cast<uint16_t>(stringUtils::hexStringToInt(device)));
    card.boardID = vekStorageChipsetID(static_cast<uint16_t>(stringUtils::hexStringToInt(subVendor)),
                                       static_cast<uint16_t>(stringUtils::hexStringToInt(subDevice)));
    return 0;
}

IvekStorageController* vekStorageControllerFactory::claim(const std::string& hostPath, const HostCard& card)
{
    const std::string host = stringUtils::extractFilename(hostPath);
    VEK_LOG_DEBUG(TAG, "Claim processing for %s [0x%x 0x%x] @ %s", host.c_str(), card.chipsetID, card.boardID,
                  card.pciLocation.c_str());
    IvekStorageController* controller = nullptr;
    int status = 0;
    // The specialised classes first; the plain adapter class takes what is left.
    for (const auto& metadata : ControllerClassRegister::getRegistry()) {
        if (metadata.claimDevice == nullptr) {
            continue;
        }
        status = metadata.claimDevice(card.chipsetID, card.boardID, card.pciLocation, firstPass_, init_.osInterface(),
                                      &controller);
        if (controller != nullptr) {
            break;
        }
    }
    if (controller == nullptr) {
        status = vekStorageController::claimDevice(card.chipsetID, card.boardID, card.pciLocation, firstPass_,
                                                   init_.osInterface(), &controller);
    }
    if (controller == nullptr) {
        VEK_LOG_DEBUG(TAG, "Skipping port %s [0x%X, 0x%X %s] - Claim status: [%d]; Device object: [%p]",
                      host.c_str(), card.chipsetID, card.boardID, card.pciLocation.c_str(), status,
                      static_cast<void*>(controller));
        return nullptr;
    }
    VEK_LOG_DEBUG(TAG, "%s [0x%X, 0x%X %s] managed by device object: [%p]", host.c_str(), card.chipsetID,
                  card.boardID, card.pciLocation.c_str(), static_cast<void*>(controller));
    return controller;
}

int vekStorageControllerFactory::discoverControllers(std::vector<IvekStorageController*>& controllers)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (const auto& metadata : ControllerClassRegister::getRegistry()) {
        if (metadata.refreshVendorInterfaceCache != nullptr) {
            metadata.refreshVendorInterfaceCache();
        }
    }
    SysFs sysfs;
    sysfs.synchronize(kScsiHostClass);
    std::vector<IvekStorageController*> seen;
    std::vector<IvekStorageController*> created;
    bool stopped = false;
    for (const std::string& host : sysfs.dirList(kScsiHostClass)) {
        const std::string hostPath = std::string(kScsiHostClass) + "/" + host;
        VEK_LOG_DEBUG(TAG, "Processing %s", hostPath.c_str());
        HostCard card;
        const int found = findHostCard(sysfs, hostPath, card);
        if (found == -1) {
            VEK_LOG_DEBUG(TAG, "Unable to access PCI card information for %s.", hostPath.c_str());
            continue;
        }
        if (found == -2) {
            VEK_LOG_DEBUG(TAG, "Skipping host port [%s 0x%x 0x%x] due to absence of PCI location.", host.c_str(),
                          card.chipsetID, card.boardID);
            continue;
        }
        if (SASResourceManager::isControllerModelSupported(card.chipsetID, card.boardID)) {
            VEK_LOG_DEBUG(TAG,
                          "Skipping controller model [0x%08x 0x%08x], since it is handled by another factory "
                          "instance.",
                          card.chipsetID, card.boardID);
            continue;
        }
        if (init_.shutdownDetected()) {
            VEK_LOG_DEBUG(TAG, "Subject shutdown detected during controller discovery.");
            stopped = true;
            break;
        }
        IvekStorageController* controller =
            FindExistingController(card.chipsetID, card.boardID, card.pciLocation, false);
        if (controller != nullptr) {
            if (std::find(seen.begin(), seen.end(), controller) == seen.end()) {
                // The ports are found again on every pass.
                controller->clearPortList();
                seen.push_back(controller);
            }
            VEK_LOG_DEBUG(TAG, "Found port %s on controller @ %s.", hostPath.c_str(), card.pciLocation.c_str());
            controller->addPort(hostPath);
            continue;
        }
        controller = claim(hostPath, card);
        if (controller != nullptr) {
            controller->addPort(hostPath);
            controllers_.push_back(controller);
            seen.push_back(controller);
            created.push_back(controller);
        }
    }
    if (!stopped) {
        reconcile(seen, created);
        firstPass_ = false;
    }
    for (IvekStorageController* controller : controllers_) {
        controller->acquireReference();
        controllers.push_back(controller);
    }
    return static_cast<int>(controllers_.size());
}

void vekStorageControllerFactory::reconcile(const std::vector<IvekStorageController*>& seen,
                                            const std::vector<IvekStorageController*>& created)
{
    for (auto it = controllers_.begin(); it != controllers_.end();) {
        if (std::find(seen.begin(), seen.end(), *it) != seen.end()) {
            ++it;
            continue;
        }
        (*it)->processDeviceRemoval();
        removed_.push_back(*it);
        it = controllers_.erase(it);
    }
    for (IvekStorageController* newer : created) {
        const auto older = std::find_if(removed_.begin(), removed_.end(), [newer](IvekStorageController* c) {
            return c->getPciLocation() == newer->getPciLocation();
        });
        if (older == removed_.end()) {
            continue;
        }
        IvekStorageController* returning = *older;
        removed_.erase(older);
        returning->processDeviceAddition(newer);
        std::replace(controllers_.begin(), controllers_.end(), newer, returning);
        newer->markRemoved();
        newer->releaseReference();
    }
}

IvekStorageController* vekStorageControllerFactory::FindExistingController(uint32_t chipsetID, uint32_t boardID,
                                                                           const std::string& pciLocation,
                                                                           bool ignored)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (IvekStorageController* controller : controllers_) {
        if (controller->isMatchingController(chipsetID, boardID, pciLocation, ignored)) {
            return controller;
        }
    }
    return nullptr;
}

void vekStorageControllerFactory::getControllers(unsigned char familyMask,
                                                 std::vector<IvekStorageController*>& controllers)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (IvekStorageController* controller : controllers_) {
        if ((controller->getFamilyFlags() & familyMask) != 0) {
            controller->acquireReference();
            controllers.push_back(controller);
        }
    }
}

void vekStorageControllerFactory::deleteControllers(unsigned char familyMask)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (auto* list : {&controllers_, &removed_}) {
        for (auto it = list->begin(); it != list->end();) {
            if (((*it)->getFamilyFlags() & familyMask) == 0) {
                ++it;
                continue;
            }
            IvekStorageController* controller = *it;
            it = list->erase(it);
            controller->markRemoved();
            controller->releaseReference();
        }
    }
}

void vekStorageControllerFactory::shutdownFactory()
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    VEK_LOG_DEBUG(TAG, "Initiating shutdown sequence");
    for (IvekStorageController* controller : controllers_) {
        controller->disableEvents();
        controller->processDeviceRemoval();
        controller->releaseReference();
    }
    controllers_.clear();
    for (IvekStorageController* controller : removed_) {
        controller->releaseReference();
    }
    removed_.clear();
}

void vekStorageControllerFactory::poll()
{
    bool changed = false;
    const struct {
        const char* path;
        const char* name;
        struct stat* stored;
    } watched[] = {{kScsiHostClass, "scsi_host", &hostStat_}, {kScsiDeviceClass, "scsi_device", &deviceStat_}};
    for (const auto& dir : watched) {
        struct stat now {};
        const std::string path = vekConfig::getEnv() + dir.path;
        if (lstat(path.c_str(), &now) != 0) {
            const int error = errno;
            VEK_LOG_DEBUG(TAG, "lstat(%s) completed with %d (%d).", dir.name, -1, error);
            continue;
        }
        // The first look only takes note.
        if (dir.stored->st_ino != 0 && (!sameTime(now, *dir.stored) || now.st_ino != dir.stored->st_ino)) {
            changed = true;
        }
        *dir.stored = now;
    }
    if (changed) {
        VEK_LOG_DEBUG(TAG, "Detected change in SCSI hosts/device");
        SASResourceManager::invalidateInventoryCache();
    }
}

std::vector<std::tuple<uint32_t, uint32_t>> vekStorageControllerFactory::getSupportedControllerModels()
{
    return {};
}
