#include "vekSCMTRBChassisManager.h"

#include "SDRRepositoryCache.h"
#include "vekLog.h"
#include "vekPlatformServices.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace vekSCM {

namespace {
const char TAG[] = "TRB_SCM";
} // namespace

// Box 2 is cabled crosswise (port 0 is bay 2, port 4 bay 1), and its other
// ports lead nowhere.
const std::map<int, std::map<int, int>> TRBChassisManager::driveBayMap{
    {1, {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 7}, {7, 8}}},
    {2, {{0, 2}, {4, 1}}},
};

TRBChassisManager* TRBChassisManager::getInstance()
{
    static TRBChassisManager instance;
    return &instance;
}

IServerChassisManager* __TRBChassisManager__getInstance()
{
    return TRBChassisManager::getInstance();
}

int TRBChassisManager::getPCIeSlotForIOSlot(const std::string pci, std::string& slot)
{
    slot = "0";
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID geoID = decodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unexpected GeoID type [%d] for I/O slot! (GeoID: [%s])", pci.c_str(),
                      static_cast<int>(geoID.getType()), geoID.getGeoID().c_str());
        return SCM_TRB_UNEXPECTED_GEOID_TYPE;
    }
    slot = geoID.geoIDSplitAt(3);
    VEK_LOG_DEBUG(TAG, "PCI address [%s]: GeoID [%s], GeoID type [%d]: PCI slot # [%s]. (I/O)", pci.c_str(),
                  geoID.getGeoID().c_str(), static_cast<int>(geoID.getType()), slot.c_str());
    return SCM_SUCCESS;
}

int TRBChassisManager::getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor)
{
    formFactor = VEK_FORM_FACTOR_UNKNOWN;
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "PCI device address is invalid. ([%s])", pci.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID geoID = decodedGeoID(pci);
    const std::string text = geoID.getGeoID();
    const int type = static_cast<int>(geoID.getType());
    switch (geoID.getType()) {
    case VEK_GEOID_TYPE_IO_SLOT: {
        const bool onBoard = geoID.geoIDSplitAt(3) == "00";
        formFactor = onBoard ? VEK_FORM_FACTOR_ON_BOARD : VEK_FORM_FACTOR_PCIE_CEM;
        VEK_LOG_DEBUG(TAG, "PCI address [%s]: GeoID [%s], GeoID type [%d]. (%s device)", pci.c_str(), text.c_str(),
                      type, onBoard ? "On-board" : "PCIe CEM");
        return SCM_SUCCESS;
    }
    case VEK_GEOID_TYPE_OCP:
        formFactor = VEK_FORM_FACTOR_OCP;
        VEK_LOG_DEBUG(TAG, "PCI address [%s]: GeoID [%s], GeoID type [%d]. (OCP device)", pci.c_str(), text.c_str(),
                      type);
        return SCM_SUCCESS;
    case VEK_GEOID_TYPE_CPU_NVME_DRIVE:
        formFactor = VEK_FORM_FACTOR_SSD_HDD;
        VEK_LOG_DEBUG(TAG, "PCI address [%s]: GeoID [%s], GeoID type [%d]. (CPU-attached NVMe drive)", pci.c_str(),
                      text.c_str(), type);
        return SCM_SUCCESS;
    case VEK_GEOID_TYPE_SLOT_DRIVE:
        formFactor = VEK_FORM_FACTOR_SSD_HDD;
        VEK_LOG_DEBUG(TAG,
                      "PCI address [%s]: GeoID [%s], GeoID type [%d]. (SSD/HDD attached to PCH or to a card in a PCIe "
                      "I/O slot)",
                      pci.c_str(), text.c_str(), type);
        return SCM_SUCCESS;
    default:
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unsupported/Unrecognized GeoID Type: [%d - %s].", pci.c_str(), type,
                      text.c_str());
        return SCM_TRB_UNEXPECTED_GEOID_TYPE;
    }
}

int TRBChassisManager::getChassisLocationForIOSlot(const std::string pci, std::string& location)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID geoID = decodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT && geoID.getType() != VEK_GEOID_TYPE_OCP) {
        VEK_LOG_ERROR(TAG, "Unexpected GeoID type [%d] at PCI address [%s] for chassis location.",
                      static_cast<int>(geoID.getType()), pci.c_str());
        return SCM_TRB_UNEXPECTED_GEOID_TYPE;
    }
    location = "r" + geoID.geoIDSplitAt(0) + "u" + geoID.geoIDSplitAt(1);
    return SCM_SUCCESS;
}

int TRBChassisManager::checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2)
{
    if (!isPCIAddressFormatValid(pci1) || !isPCIAddressFormatValid(pci2)) {
        VEK_LOG_ERROR(TAG, "Either or both PCI addresses specified are not valid. ([%s], [%s])", pci1.c_str(),
                      pci2.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID a = decodedGeoID(pci1);
    const vekDecodedGeoID b = decodedGeoID(pci2);
    const VEK_GEOID_TYPES ta = a.getType();
    const VEK_GEOID_TYPES tb = b.getType();
    if (ta != VEK_GEOID_TYPE_IO_SLOT && ta != VEK_GEOID_TYPE_OCP && ta != VEK_GEOID_TYPE_CPU_NVME_DRIVE &&
        ta != VEK_GEOID_TYPE_SLOT_DRIVE) {
        VEK_LOG_ERROR(TAG, "Unknown/Invalid GeoID type [%d] for PCI address #1 [%s]: [%s]", static_cast<int>(ta),
                      pci1.c_str(), a.getGeoID().c_str());
        return SCM_TRB_UNEXPECTED_GEOID_TYPE;
    }
    // Not the same set as for the first address, on purpose: a drive behind
    // a slot card is only compared with another such drive.
    const bool secondAccepted = tb == VEK_GEOID_TYPE_IO_SLOT || tb == VEK_GEOID_TYPE_OCP ||
                                tb == VEK_GEOID_TYPE_CPU_NVME_DRIVE || ta == VEK_GEOID_TYPE_SLOT_DRIVE;
    if (!secondAccepted) {
        VEK_LOG_ERROR(TAG, "Unknown/Invalid GeoID type [%d] for PCI address #2 [%s]: [%s]", static_cast<int>(tb),
                      pci2.c_str(), b.getGeoID().c_str());
        return SCM_TRB_UNEXPECTED_GEOID_TYPE;
    }
    return compareChassis(a, b);
}

bool TRBChassisManager::isNVMeDeviceManagedByCPUStorageController(const std::string pci)
{
    int domain = 0;
    extractPCIAddressElements(pci, &domain, nullptr, nullptr, nullptr);
    const bool vmd = domain > 0xFFFF;
    VEK_LOG_DEBUG(TAG, "Device at PCI address [%s] %s managed by Intel VMD.", pci.c_str(), vmd ? "is" : "is not");
    return vmd;
}

int TRBChassisManager::findMonarchPCHAttachedStorageEnclosureBoxNumber()
{
    int best = -1;
    vekPlatformServices* services = vekPlatformServices::getCurrent();
    vekIPMI::SDRRepositoryCacheInterface* sdrs = services != nullptr ? services->getIPMISDRRepositoryCache() : nullptr;
    if (sdrs == nullptr) {
        return best;
    }
    for (const vekIPMI::SDRRecord& record : *sdrs) {
        if (vekIPMI::sdrRecordType(record) != vekIPMI::kSDRTypeFRUDeviceLocator || record.size() < 16) {
            continue;
        }
        const uint8_t length = record[4];
        const uint8_t idLength = record[15];
        VEK_LOG_DEBUG(TAG, "FRU SDR at Record ID [0x%04x]: [%hhu, %zu, %zu, %hhu]", vekIPMI::sdrRecordId(record),
                      length, static_cast<size_t>(16), static_cast<size_t>(5), idLength);
        if (length <= 11) {
            VEK_LOG_DEBUG(TAG, "    FRU SDR has a blank Device ID string");
            continue;
        }
        // The whole byte is the length: type bits are not masked off.
        const size_t available = record.size() - 16;
        const std::string id(reinterpret_cast<const char*>(record.data()) + 16,
                             std::min<size_t>(idLength, available));
        VEK_LOG_DEBUG(TAG, "    FRU SDR Device ID [%s]", id.c_str());
        int box = 0;
        if (sscanf(id.c_str(), "UBM_BOX%d_", &box) == 1 && box > best) {
            VEK_LOG_DEBUG(TAG, "    Found storage enclosure box #[%d] > last known box #[%d].", box, best);
            best = box;
        }
    }
    return best;
}

int TRBChassisManager::mapPCHSATAControllerPortToStorageEnclosureDriveBay(int port, int box)
{
    const auto ports = driveBayMap.find(box);
    if (ports == driveBayMap.end()) {
        VEK_LOG_ERROR(TAG, "No mapping strategy found for enclosure box [%d]!", box);
        throw InvalidStorageEnclosureBoxException(box);
    }
    const auto bay = ports->second.find(port);
    if (bay == ports->second.end()) {
        VEK_LOG_ERROR(TAG, "No drive bay mapping found for PCH SATA port [%d] in box [%d]!", port, box);
        // The text names the box, not the port, as it always has.
        throw InvalidPCHSATAPortException(box);
    }
    VEK_LOG_DEBUG(TAG, "Box [%d]: PCH SATA/sSATA port [%d] -> Drive Bay [%d]", box, port, bay->second);
    return bay->second;
}

} // namespace vekSCM
