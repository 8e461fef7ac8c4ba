#include "vekLMPhysLocInterface.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"


namespace {
const char TAG[] = "LMPL_INTF";
} // namespace

vekLMPhysLocInterface::vekLMPhysLocInterface(const std::string& libraryPath)
    : vekLibraryPhysLocInterface(libraryPath, TAG)
{
}

vekLMPhysLocInterface* vekLMPhysLocInterface::getInstance(const std::string& libraryPath)
{
    return singleton<vekLMPhysLocInterface>(libraryPath);
}

vekPhysLocInterface* __vekLMPhysLocInterface__getInstance(const std::string& libraryPath)
{
    return vekLMPhysLocInterface::getInstance(libraryPath);
}

std::string vekLMPhysLocInterface::physlocEncode(const std::string& pci, const std::vector<std::string>& elements,
                                                 physloc_type_t type, physloc_rtn_t* rtn, const std::string& last)
{
    return vekPhysLocEncodeElements(*library_, TAG, pci, elements, 4, type, rtn, last);
}

std::string vekLMPhysLocInterface::getPhysLocForDIMMSlot(const std::string& dimmID)
{
    return physlocEncodeForDIMM(*library_, TAG, {2, 52, true, true}, dimmID);
}

std::string vekLMPhysLocInterface::getPhysLocForPCIDevice(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    return physlocEncode(pci, vekIOGeoIDHelper::getInstance().getGeoIDInfo(pci), 3, nullptr, NotApplicable);
}

std::string vekLMPhysLocInterface::getPhysLocForNetworkAdapter(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Network controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "Unexpected GeoID type [%d] for PCI address [%s] for network adapter.",
                      static_cast<int>(geoID.getType()), pci.c_str());
        return InvalidPL;
    }
    // An embedded adapter (slot "00") is a kind of its own on this library.
    const physloc_type_t type = geoID.geoIDSplitAt(3) == "00" ? 59 : 3;
    return physlocEncode(pci, geoID.getGeoIDSplit(), type, nullptr, NotApplicable);
}

std::string vekLMPhysLocInterface::getPhysLocForChassisDriveSlot(const std::string& pci, int box, int bay)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    if (box < 1 || box > 2) {
        VEK_LOG_ERROR(TAG, "Invalid internal box # [%d] for chassis drive PL encoding at PCI address [%s].", box,
                      pci.c_str());
        return InvalidPL;
    }
    if (bay < 1 || bay > 8) {
        VEK_LOG_ERROR(TAG, "Invalid internal drive bay # [%d] for chassis drive PL encoding at PCI address [%s].", bay,
                      pci.c_str());
        return InvalidPL;
    }
    const int chassisBay = box == 1 ? bay : bay + 8;
    VEK_LOG_DEBUG(TAG, "LM: Box [%d], Bay [%d] => Chassis-wide Bay [%d]", box, bay, chassisBay);
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "PCI address [%s]: Unexpected GeoID type [%d] for chassis drive slot! (GeoID: [%s])",
                      pci.c_str(), static_cast<int>(geoID.getType()), geoID.getGeoID().c_str());
        return InvalidPL;
    }
    const std::vector<std::string> s = geoID.getGeoIDSplit();
    return physlocEncode(pci, {s[0], s[1], s[2], std::to_string(chassisBay)}, 56, nullptr, s[3]);
}

std::string vekLMPhysLocInterface::getPhysLocForExternalDrive(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    return physlocEncode(pci, vekIOGeoIDHelper::getInstance().getGeoIDInfo(pci), 69, nullptr, NotApplicable);
}

std::string vekLMPhysLocInterface::getPhysLocForChassisStorageBackplane(const std::string& pci, int box)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    if (box < 1 || box > 2) {
        VEK_LOG_ERROR(TAG, "Invalid box number [%d] for storage backplane connected to PCI address [%s].", box,
                      pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT) {
        VEK_LOG_ERROR(TAG, "Storage Backplane PL: Unexpected GeoID type [%d] for PCI address [%s]! (%s)",
                      static_cast<int>(geoID.getType()), pci.c_str(), geoID.getGeoID().c_str());
        return InvalidPL;
    }
    return physlocEncode(pci, geoID.getGeoIDSplit(), 64, nullptr, std::to_string(box));
}
