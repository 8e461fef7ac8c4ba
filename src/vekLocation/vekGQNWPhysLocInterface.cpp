#include "vekGQNWPhysLocInterface.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"


namespace {
const char TAG[] = "GQNWPL_INTF";
} // namespace

vekGQNWPhysLocInterface::vekGQNWPhysLocInterface(const std::string& libraryPath)
    : vekLibraryPhysLocInterface(libraryPath, TAG)
{
}

vekGQNWPhysLocInterface* vekGQNWPhysLocInterface::getInstance(const std::string& libraryPath)
{
    return singleton<vekGQNWPhysLocInterface>(libraryPath);
}

vekPhysLocInterface* __vekGQNWPhysLocInterface__getInstance(const std::string& libraryPath)
{
    return vekGQNWPhysLocInterface::getInstance(libraryPath);
}

std::string vekGQNWPhysLocInterface::physlocEncode(const std::string& pci, const std::vector<std::string>& elements,
                                                   physloc_type_t type, physloc_rtn_t* rtn, const std::string& last)
{
    return vekPhysLocEncodeElements(*library_, TAG, pci, elements, 3, type, rtn, last);
}

std::string vekGQNWPhysLocInterface::getPhysLocForDIMMSlot(const std::string& dimmID)
{
    return physlocEncodeForDIMM(*library_, TAG, {2, 41, false, false}, dimmID);
}

std::string vekGQNWPhysLocInterface::getPhysLocForPCIDevice(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    return physlocEncode(pci, vekIOGeoIDHelper::getInstance().getGeoIDInfo(pci), 3, nullptr, NotApplicable);
}

std::string vekGQNWPhysLocInterface::getPhysLocForNetworkAdapter(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Network controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT_LEGACY) {
        VEK_LOG_ERROR(TAG, "Unexpected GeoID type [%d] for PCI address [%s] for network adapter.",
                      static_cast<int>(geoID.getType()), pci.c_str());
        return InvalidPL;
    }
    const physloc_type_t type = geoID.geoIDSplitAt(2) == "00" ? 48 : 3;
    return physlocEncode(pci, geoID.getGeoIDSplit(), type, nullptr, NotApplicable);
}

std::string vekGQNWPhysLocInterface::getPhysLocForChassisDriveSlot(const std::string& pci, int box, int bay)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    // One drive cage: the box plays no part.
    if (bay < 0 || bay > 3) {
        VEK_LOG_ERROR(TAG, "Invalid internal drive bay # [%d] for physical location encoding at PCI address [%s].",
                      bay, pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT_LEGACY) {
        VEK_LOG_ERROR(TAG,
                      "Unexpected GeoID Type [%d] (value: [%s]) at PCI address [%s] for chassis drive slot. (Expected "
                      "type: [%d])",
                      static_cast<int>(geoID.getType()), geoID.getGeoID().c_str(), pci.c_str(),
                      static_cast<int>(VEK_GEOID_TYPE_IO_SLOT_LEGACY));
        return InvalidPL;
    }
    const std::vector<std::string> s = geoID.getGeoIDSplit();
    return physlocEncode(pci, {s[0], s[1], std::to_string(bay)}, 45, nullptr, "");
}

std::string vekGQNWPhysLocInterface::getPhysLocForExternalDrive(const std::string& pci)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    return physlocEncode(pci, vekIOGeoIDHelper::getInstance().getGeoIDInfo(pci), 61, nullptr, NotApplicable);
}

std::string vekGQNWPhysLocInterface::getPhysLocForChassisStorageBackplane(const std::string& pci, int)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(TAG, "Storage controller PCI address is invalid. ([%s])", pci.c_str());
        return InvalidPL;
    }
    const vekDecodedGeoID geoID = vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
    if (geoID.getType() != VEK_GEOID_TYPE_IO_SLOT_LEGACY) {
        VEK_LOG_ERROR(TAG, "Storage Backplane PL: Unexpected GeoID type [%d] for PCI address [%s]! (%s)",
                      static_cast<int>(geoID.getType()), pci.c_str(), geoID.getGeoID().c_str());
        return InvalidPL;
    }
    return physlocEncode(pci, geoID.getGeoIDSplit(), 53, nullptr, NotApplicable);
}
