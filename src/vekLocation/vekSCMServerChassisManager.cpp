#include "vekSCMServerChassisManager.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekSCMGQNWChassisManager.h"
#include "vekSCMLMChassisManager.h"
#include "vekSCMMockServerChassisManager.h"
#include "vekSCMTRBChassisManager.h"
#include "vekPlatformServices.h"

#include <cstdio>

namespace vekSCM {

namespace {
const char TAG[] = "SCM_BASE";
const char FACTORY_TAG[] = "SCM_FACT";
} // namespace

void ServerChassisManagerBase::extractPCIAddressElements(const std::string pci, int* domain, int* bus, int* device,
                                                         int* function)
{
    const char* format = pci.size() == 12 ? "%04x:%02x:%02x.%x" : pci.size() == 13 ? "%05x:%02x:%02x.%x" : nullptr;
    unsigned d = 0, b = 0, s = 0, f = 0;
    if (format == nullptr || sscanf(pci.c_str(), format, &d, &b, &s, &f) != 4) {
        throw InvalidPCIAddressFormatException(pci);
    }
    if (domain != nullptr) {
        *domain = static_cast<int>(d);
    }
    if (bus != nullptr) {
        *bus = static_cast<int>(b);
    }
    if (device != nullptr) {
        *device = static_cast<int>(s);
    }
    if (function != nullptr) {
        *function = static_cast<int>(f);
    }
}

bool ServerChassisManagerBase::isPCIAddressFormatValid(const std::string pci)
{
    try {
        extractPCIAddressElements(pci, nullptr, nullptr, nullptr, nullptr);
        return true;
    } catch (const InvalidPCIAddressFormatException& e) {
        VEK_LOG_DEBUG(TAG, "Failed during validation of PCI address! (%s)", e.what());
    } catch (const Exception& e) {
        VEK_LOG_ERROR(TAG, "Unexpected exception validating PCI address [%s]: [%s]", pci.c_str(), e.what());
    }
    return false;
}

vekDecodedGeoID ServerChassisManagerBase::decodedGeoID(const std::string& pci)
{
    return vekIOGeoIDHelper::getInstance().getDecodedGeoID(pci);
}

int ServerChassisManagerBase::legacyFormFactor(const char* tag, const std::string& pci,
                                               _VEK_DEVICE_FORM_FACTOR& formFactor)
{
    formFactor = VEK_FORM_FACTOR_UNKNOWN;
    std::string slot;
    const int code = getPCIeSlotForIOSlot(pci, slot);
    if (code != SCM_SUCCESS) {
        VEK_LOG_ERROR(tag, "Unable to determine PCI slot for PCI address [%s]! (%d)", pci.c_str(), code);
        return code;
    }
    if (slot == "00") {
        formFactor = VEK_FORM_FACTOR_ON_BOARD;
        VEK_LOG_DEBUG(tag, "The device at PCI address [%s] is an on-board device.", pci.c_str());
    } else {
        formFactor = VEK_FORM_FACTOR_PCIE_CEM;
        VEK_LOG_DEBUG(tag, "The device at PCI address [%s] is an add-in device.", pci.c_str());
    }
    return SCM_SUCCESS;
}

int ServerChassisManagerBase::legacyChassisLocation(const char* tag, const std::string& pci, VEK_GEOID_TYPES expected,
                                                    std::string& location)
{
    if (!isPCIAddressFormatValid(pci)) {
        VEK_LOG_ERROR(tag, "I/O controller PCI address is invalid. ([%s])", pci.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID geoID = decodedGeoID(pci);
    if (geoID.getType() != expected) {
        VEK_LOG_ERROR(tag, "Unexpected GeoID type [%d] at PCI address [%s] for chassis location.",
                      static_cast<int>(geoID.getType()), pci.c_str());
        return SCM_UNEXPECTED_GEOID_TYPE;
    }
    location = "r" + geoID.geoIDSplitAt(0) + "u" + geoID.geoIDSplitAt(1);
    return SCM_SUCCESS;
}

int ServerChassisManagerBase::compareChassis(const vekDecodedGeoID& a, const vekDecodedGeoID& b)
{
    const auto sa = a.getGeoIDSplit();
    const auto sb = b.getGeoIDSplit();
    if (sa.size() < 2 || sb.size() < 2) {
        return SCM_DIFFERENT_CHASSIS;
    }
    return sa[0] == sb[0] && sa[1] == sb[1] ? SCM_SAME_CHASSIS : SCM_DIFFERENT_CHASSIS;
}

int ServerChassisManagerBase::legacySameChassis(const char* tag, const std::string& pci1, const std::string& pci2,
                                                VEK_GEOID_TYPES expected)
{
    if (!isPCIAddressFormatValid(pci1) || !isPCIAddressFormatValid(pci2)) {
        VEK_LOG_ERROR(tag, "Either or both PCI addresses specified are not valid. ([%s], [%s])", pci1.c_str(),
                      pci2.c_str());
        return SCM_INVALID_PCI_ADDRESS;
    }
    const vekDecodedGeoID a = decodedGeoID(pci1);
    const vekDecodedGeoID b = decodedGeoID(pci2);
    if (a.getType() != expected || b.getType() != expected) {
        VEK_LOG_ERROR(tag,
                      "Unexpected GeoID type(s) [%d, %d] for GeoID of PCI addresses [%s, %s], respectively. (Expected "
                      "type: [%d])",
                      static_cast<int>(a.getType()), static_cast<int>(b.getType()), pci1.c_str(), pci2.c_str(),
                      static_cast<int>(expected));
        return SCM_UNEXPECTED_GEOID_TYPE;
    }
    return compareChassis(a, b);
}

IServerChassisManager& ServerChassisManagerFactory::getServerChassisManager()
{
    static IServerChassisManager& manager = []() -> IServerChassisManager& {
        const int platform = vekPlatformServices::getCachedPlatform();
        switch (platform) {
        case 4:
            VEK_LOG_DEBUG(FACTORY_TAG, "TRB chassis manager will be used.");
            return *__TRBChassisManager__getInstance();
        case 2:
            VEK_LOG_DEBUG(FACTORY_TAG, "LM chassis manager will be used.");
            return *__LMChassisManager__getInstance();
        case 0:
        case 1:
            VEK_LOG_DEBUG(FACTORY_TAG, "GQ/NW chassis manager will be used.");
            return *__GQNWChassisManager__getInstance();
        default:
            VEK_LOG_WARNING(FACTORY_TAG, "Unable to determine platform type [%d]. Mock server chassis manager will be used.",
                            platform);
            return *__MockServerChassisManager__getInstance();
        }
    }();
    return manager;
}

} // namespace vekSCM
