#pragma once

#include "vekDecodedGeoID.h"

#include <cstdint>
#include <stdexcept>
#include <string>

// Where a PCI device sits in the machine, by platform: its slot, its
// chassis, its form factor, and for drives the enclosure and bay.
enum _VEK_DEVICE_FORM_FACTOR : int32_t {
    VEK_FORM_FACTOR_UNKNOWN = -1,
    VEK_FORM_FACTOR_ON_BOARD = 0,
    VEK_FORM_FACTOR_PCIE_CEM = 1,
    VEK_FORM_FACTOR_OCP = 2,
    VEK_FORM_FACTOR_SSD_HDD = 3,
};

namespace vekSCM {

class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class MethodNotImplementedException : public Exception {
public:
    explicit MethodNotImplementedException(const std::string& method)
        : Exception("Method not implemented: [" + method + "]")
    {
    }
};

class InvalidPCIAddressFormatException : public Exception {
public:
    explicit InvalidPCIAddressFormatException(const std::string& pci)
        : Exception("Invalid PCI address format: [" + pci + "]")
    {
    }
};

class InvalidStorageEnclosureBoxException : public Exception {
public:
    explicit InvalidStorageEnclosureBoxException(int box)
        : Exception("Invalid storage enclosure box #: [" + std::to_string(box) + "]")
    {
    }
};

class InvalidPCHSATAPortException : public Exception {
public:
    explicit InvalidPCHSATAPortException(int value)
        : Exception("Invalid PCH SATA/sSATA port #: [" + std::to_string(value) + "]")
    {
    }
};

// Codes of the operations that answer with an int.
enum : int {
    SCM_SUCCESS = 0,
    SCM_INVALID_PCI_ADDRESS = -1,
    SCM_UNEXPECTED_GEOID_TYPE = -2,
    SCM_MOCK_SAME_CHASSIS = -3,
    SCM_MOCK_NOT_IMPLEMENTED = -4,
    SCM_TRB_UNEXPECTED_GEOID_TYPE = -5,
    SCM_SAME_CHASSIS = 2,
    SCM_DIFFERENT_CHASSIS = 1,
};

class IServerChassisManager {
public:
    virtual ~IServerChassisManager() = default;
    virtual int getPCIeSlotForIOSlot(const std::string pci, std::string& slot) = 0;
    // 2 same chassis, 1 different, a negative code on failure.
    virtual int checkIfPCIDevicesAreLocatedInSameChassis(const std::string pci1, const std::string pci2) = 0;
    virtual int getPCIDeviceFormFactor(const std::string pci, _VEK_DEVICE_FORM_FACTOR& formFactor) = 0;
    // "r<rack>u<unit>".
    virtual int getChassisLocationForIOSlot(const std::string pci, std::string& location) = 0;
    virtual bool isNVMeDeviceManagedByCPUStorageController(const std::string pci) = 0;
    // The highest enclosure box the RMC's FRU records name; -1 when none.
    virtual int findMonarchPCHAttachedStorageEnclosureBoxNumber() = 0;
    virtual int mapPCHSATAControllerPortToStorageEnclosureDriveBay(int port, int box) = 0;
};

class ServerChassisManagerBase : public IServerChassisManager {
public:
    // Twelve characters "%04x:%02x:%02x.%x" or thirteen "%05x:%02x:%02x.%x";
    // InvalidPCIAddressFormatException otherwise. Null pointers are skipped.
    static void extractPCIAddressElements(const std::string pci, int* domain, int* bus, int* device, int* function);
    static bool isPCIAddressFormatValid(const std::string pci);

protected:
    static vekDecodedGeoID decodedGeoID(const std::string& pci);
    // The platforms before TRB: one GeoID type, the slot at `slotElement`.
    int legacyFormFactor(const char* tag, const std::string& pci, _VEK_DEVICE_FORM_FACTOR& formFactor);
    static int legacyChassisLocation(const char* tag, const std::string& pci, VEK_GEOID_TYPES expected,
                                     std::string& location);
    static int legacySameChassis(const char* tag, const std::string& pci1, const std::string& pci2,
                                 VEK_GEOID_TYPES expected);
    // Elements 0 and 1 of both GeoIDs compared as text.
    static int compareChassis(const vekDecodedGeoID& a, const vekDecodedGeoID& b);
};

// The manager of this machine's platform, chosen on first use.
class ServerChassisManagerFactory {
public:
    static IServerChassisManager& getServerChassisManager();
};

} // namespace vekSCM
