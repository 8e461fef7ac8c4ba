#pragma once

#include "vekSmbiosInterface.h"

#include <mutex>
#include <string>
#include <vector>

// The SMBIOS interface on ESXi: records come from the environment's
// getSmbiosRecordsByType. The type 1 (System Information) records are loaded
// at construction; the platform identifier is read afresh at each call.
class SMBIOSVMware : public vekSmbiosInterface {
public:
    SMBIOSVMware();
    ~SMBIOSVMware() override = default;

    SMBIOSVMware(const SMBIOSVMware&) = delete;
    SMBIOSVMware& operator=(const SMBIOSVMware&) = delete;

    // The family and manufacturer strings of the first type 1 record.
    // smbios_exceptions::not_initialized when nothing was loaded; a
    // std::runtime_error when the record lacks the field.
    std::string platformFamily() override;
    std::string getManufacturer() override;
    // The code of the platform identifier: 0, 1, 2, 4, or -1 for one that is
    // not known. A std::runtime_error when there is no identifier;
    // smbios_exceptions::not_initialized when the table can't be read.
    int platform() override;
    int FetchSmbiosRecordsByType(int type, unsigned char** records, int* count) override;

    // Fetches the type 1 records again. 0 on success; on failure the error
    // goes to syslog, the records stay empty and the error is returned.
    int LoadSMBIOS();

    // The platform identifier: the first string of the first type 11 (OEM
    // Strings) record whose first string begins with "4417PID"; empty when
    // there is none or the table can't be read.
    std::string platformIdentifier();

private:
    // String field `offset` of the first type 1 record; `absent` is the
    // error when the record lacks it.
    std::string systemInformationString(unsigned offset, const char* absent);

    std::mutex mutex_;
    // The type 1 records as fetched, one structure after the other.
    std::vector<unsigned char> systemInformation_;
    int systemInformationCount_ = 0;
};
