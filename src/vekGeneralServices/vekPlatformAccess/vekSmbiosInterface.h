#pragma once

#include <stdexcept>
#include <string>

namespace smbios_exceptions {
// Raised by a getter when no SMBIOS table could be loaded.
class not_initialized : public std::runtime_error {
public:
    not_initialized() : std::runtime_error("SMBIOS not initialized") {}
};
} // namespace smbios_exceptions

// The SMBIOS records of the host and what the rest of the system derives from
// them: the platform code (which event table, which location rules), the
// family and the manufacturer.
class vekSmbiosInterface {
public:
    virtual ~vekSmbiosInterface() = default;

    // From the type 1 (System Information) record.
    virtual std::string platformFamily() = 0;
    virtual std::string getManufacturer() = 0;
    // 0, 1 (GQ/NW), 2 (LM), 4 (TRB) or -1 for an unknown identifier. An
    // empty identifier raises std::runtime_error.
    virtual int platform() = 0;
    // The raw records of one type, whole structures one after another in a
    // block allocated with malloc that the caller releases with free();
    // *count is the number of records. 0 on success, else an errno value.
    virtual int FetchSmbiosRecordsByType(int type, unsigned char** records, int* count) = 0;
};
