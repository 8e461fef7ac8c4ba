#include "vekTRBPhysLocInterface.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"

#include <cstring>

namespace {

const char TAG[] = "TRBPL_INTF";
const unsigned char kVersion = 4;

bool applicable(const std::string& element)
{
    return !element.empty() && element != vekPhysLocInterface::NotApplicable;
}

} // namespace

vekTRBPhysLocInterface* vekTRBPhysLocInterface::getInstance(const std::string& libraryPath)
{
    return singleton<vekTRBPhysLocInterface>(libraryPath);
}

vekPhysLocInterface* __vekTRBPhysLocInterface__getInstance(const std::string& libraryPath)
{
    return vekTRBPhysLocInterface::getInstance(libraryPath);
}

vekTRBPhysLocInterface::vekTRBPhysLocInterface(const std::string& libraryPath)
    : vekLibraryPhysLocInterface(libraryPath, TAG)
{
}

std::string vekTRBPhysLocInterface::physlocEncode(const std::string& pci, physloc_type_t type, const std::string& e1,
                                                  const std::string& e2, const std::string& e3,
                                                  const std::string& e4, const std::string& e5,
                                                  const std::string& e6)
{
    __physloc_data_t data;
    memset(&data, 0, sizeof data);
    const physloc_rtn_t init = library_->initData(&data, kVersion);
    if (init != 0) {
        VEK_LOG_ERROR(TAG, "Failed to initialize PL data for encoding! (%d)", init);
        return InvalidPL;
    }
    try {
        data.type = type;
        data.rack = static_cast<uint8_t>(std::stoul(e1, nullptr, 10));
        data.unit = static_cast<uint8_t>(std::stoul(e2, nullptr, 10));
        if (applicable(e3)) {
            data.partition = static_cast<uint8_t>(std::stoul(e3, nullptr, 10));
        }
        if (applicable(e4)) {
            data.slot = static_cast<uint8_t>(std::stoul(e4, nullptr, 10));
        }
        if (applicable(e5)) {
            data.slot2 = static_cast<uint8_t>(std::stoul(e5, nullptr, 10));
        }
        if (applicable(e6)) {
            data.box = static_cast<uint8_t>(std::stoul(e6, nullptr, 10));
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Failed to encode physical location for PCI address [%s]. (%d) [%s, %s, %s, %s, %s, %s]",
                      pci.c_str(), -1, e1.c_str(), e2.c_str(), e3.c_str(), e4.c_str(), e5.c_str(), e6.c_str());
        return InvalidPL;
    }
    unsigned long long pl = 0;
    const physloc_rtn_t result = library_->encode(&data, &pl);
    if (result != 0) {
        VEK_LOG_ERROR(TAG, "Failed to encode physical location for PCI address [%s]. (%d) [%s, %s, %s, %s, %s, %s]",
                      pci.c_str(), result, e1.c_str(), e2.c_str(), e3.c_str(), e4.c_str(), e5.c_str(), e6.c_str());
        return InvalidPL;
    }
    const std::string text = vekPhysLocEncoderLibrary::format(pl);
    VEK_LOG_DEBUG(TAG, "PCI address [%s]: [%d] - {%s, %s, %s, %s, %s, %s} - PL: [%s]", pci.c_str(),
                  static_cast<int>(type), e1.c_str(), e2.c_str(), e3.c_str(), e4.c_str(), e5.c_str(), e6.c_str(),
                  text.c_str());
    return text;
}

std::string vekTRBPhysLocInterface::getPhysLocForDIMMSlot(const std::string& dimmID)
{
    return physlocEncodeForDIMM(*library_, TAG, {kVersion, 55, true, false}, dimmID);
}

std::string vekTRBPhysLocInterface::getPhysLocForPCIDevice(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    const std::vector<std::string> s = geoID.getGeoIDSplit();
    const std::string& NA = NotApplicable;
    switch (geoID.getType()) {
    case VEK_GEOID_TYPE_IO_SLOT: // r u p i
        return physlocEncode(pci, 3, s[0], s[1], s[2], s[3], NA, NA);
    case VEK_GEOID_TYPE_OCP: // rack and unit only, on purpose
        return physlocEncode(pci, 7, s[0], s[1], NA, NA, NA, NA);
    case VEK_GEOID_TYPE_CPU_NVME_DRIVE: // r u p x y
        return physlocEncode(pci, 70, s[0], s[1], s[2], s[4], NA, s[3]);
    case VEK_GEOID_TYPE_SLOT_DRIVE: // r u p i x y
        return physlocEncode(pci, 71, s[0], s[1], s[2], s[5], s[3], s[4]);
    default:
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unsupported/Unrecognized GeoID Type: [%d - %s]! Invalid PL will be reported.",
                      pci.c_str(), static_cast<int>(geoID.getType()), geoID.getGeoID().c_str());
        return InvalidPL;
    }
}

std::string vekTRBPhysLocInterface::getPhysLocForNetworkAdapter(const std::string& pci)
{
    VEK_LOG_DEBUG(TAG, "Call received for PL for network adapter @ PCI address [%s]", pci.c_str());
    return getPhysLocForPCIDevice(pci);
}

std::string vekTRBPhysLocInterface::getPhysLocForChassisDriveSlot(const std::string& pci, int box, int bay)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    if (box < 1 || box > 3 || bay < 1 || bay > 12) {
        VEK_LOG_ERROR(TAG,
                      "Invalid internal box # [%d] and/or drive bay # [%d] for chassis drive PL encoding at PCI "
                      "address [%s].",
                      box, bay, pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unexpected GeoID type [%d] for chassis drive slot! (GeoID: [%s])",
                      pci.c_str(), static_cast<int>(geoID.getType()), geoID.getGeoID().c_str());
        return InvalidPL;
    }
    const std::vector<std::string> s = geoID.getGeoIDSplit();
    if (s[3] == "00") {
        return physlocEncode(pci, 71, s[0], s[1], s[2], std::to_string(bay), NotApplicable, std::to_string(box));
    }
    return physlocEncode(pci, 59, s[0], s[1], s[2], std::to_string(bay), s[3], std::to_string(box));
}

std::string vekTRBPhysLocInterface::getPhysLocForExternalDrive(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unexpected GeoID type [%d] for external drive! (GeoID: [%s])",
                      pci.c_str(), static_cast<int>(geoID.getType()), geoID.getGeoID().c_str());
        return InvalidPL;
    }
    const std::vector<std::string> s = geoID.getGeoIDSplit();
    return physlocEncode(pci, 69, s[0], s[1], s[2], s[3], NotApplicable, NotApplicable);
}

std::string vekTRBPhysLocInterface::getPhysLocForChassisStorageBackplane(const std::string& pci, int box)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    if (box < 1 || box > 3) {
        VEK_LOG_ERROR(TAG, "Invalid internal box # [%d] for storage backplane PL encoding at PCI address [%s].", box,
                      pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "Storage Backplane PL: Unexpected GeoID type [%d] for PCI address [%s]! (%s)",
                      static_cast<int>(geoID.getType()), pci.c_str(), geoID.getGeoID().c_str());
        return InvalidPL;
    }
    const std::vector<std::string> s = geoID.getGeoIDSplit();
    return physlocEncode(pci, 43, s[0], s[1], s[2], s[3], std::to_string(box), NotApplicable);
}
