#include "SMBIOSVMware.h"

#include "vekLog.h"
#include "vekSmbiosTable.h"

#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

const char TAG[] = "SMBIOS_VMWARE";

const int kSystemInformationType = 1;
const int kOemStringsType = 11;

// Offsets of the type 1 formatted area.
const unsigned kManufacturer = 0x04;
const unsigned kFamily = 0x1A;

const char kPlatformIdentifierPrefix[] = "4417PID";

struct PlatformCode {
    const char* identifier;
    int code;
};

const PlatformCode kPlatformCodes[] = {
    {"4417PID11020101", 0},
    {"4417PID11020102", 1},
    {"4417PID10020001", 2},
    {"4417PID11030201", 4},
};

const int kUnknownPlatform = -1;

struct FreeDeleter {
    void operator()(unsigned char* block) const { free(block); }
};
using RecordBlock = std::unique_ptr<unsigned char, FreeDeleter>;

// Reads the identifier from the type 11 records. 0, or the error of the fetch.
int readPlatformIdentifier(vekSmbiosInterface& smbios, std::string& identifier)
{
    identifier.clear();
    unsigned char* records = nullptr;
    int count = 0;
    const int error = smbios.FetchSmbiosRecordsByType(kOemStringsType, &records, &count);
    RecordBlock block(records);
    if (error != 0) {
        return error;
    }
    const unsigned char* record = records;
    for (int i = 0; i < count; ++i, record = vekSmbios::nextStructure(record)) {
        const std::string first = vekSmbios::structureString(record, 1);
        if (first.compare(0, sizeof(kPlatformIdentifierPrefix) - 1, kPlatformIdentifierPrefix) == 0) {
            identifier = first;
            break;
        }
    }
    return 0;
}

} // namespace

SMBIOSVMware::SMBIOSVMware()
{
    LoadSMBIOS();
}

int SMBIOSVMware::LoadSMBIOS()
{
    unsigned char* records = nullptr;
    int count = 0;
    int error = FetchSmbiosRecordsByType(kSystemInformationType, &records, &count);
    RecordBlock block(records);
    if (error == 0 && count == 0) {
        error = ENODATA;
    }

    std::lock_guard<std::mutex> lock(mutex_);
    systemInformation_.clear();
    systemInformationCount_ = 0;
    if (error != 0) {
        openlog("vek", 0, LOG_USER);
        syslog(LOG_ERR, "Error starting SMBIOS table, Error : %d", error);
        closelog();
        return error;
    }
    const unsigned char* begin = records;
    const unsigned char* end = begin;
    for (int i = 0; i < count; ++i) {
        end = vekSmbios::nextStructure(end);
    }
    systemInformation_.assign(begin, end);
    systemInformationCount_ = count;
    VEK_LOG_DEBUG(TAG, "Loaded %d SMBIOS System Information record(s)", count);
    return 0;
}

std::string SMBIOSVMware::systemInformationString(unsigned offset, const char* absent)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (systemInformationCount_ == 0) {
        throw smbios_exceptions::not_initialized();
    }
    const unsigned char* record = systemInformation_.data();
    std::string value;
    if (offset < record[vekSmbios::kLengthOffset]) {
        value = vekSmbios::structureString(record, record[offset]);
    }
    if (value.empty()) {
        throw std::runtime_error(absent);
    }
    return value;
}

std::string SMBIOSVMware::platformFamily()
{
    return systemInformationString(kFamily, "Couldnot Fetch the family details");
}

std::string SMBIOSVMware::getManufacturer()
{
    return systemInformationString(kManufacturer, "Couldnot Fetch the manufacturer details");
}

std::string SMBIOSVMware::platformIdentifier()
{
    std::string identifier;
    readPlatformIdentifier(*this, identifier);
    return identifier;
}

int SMBIOSVMware::platform()
{
    std::string identifier;
    const int error = readPlatformIdentifier(*this, identifier);
    if (error != 0) {
        VEK_LOG_ERROR(TAG, "Unable to read the SMBIOS OEM strings: %d - %s", error, strerror(error));
        throw smbios_exceptions::not_initialized();
    }
    if (identifier.empty()) {
        throw std::runtime_error("Couldnot Fetch the Platform details");
    }
    for (const PlatformCode& known : kPlatformCodes) {
        if (identifier == known.identifier) {
            return known.code;
        }
    }
    VEK_LOG_WARNING(TAG, "Unknown platform identifier [%s]", identifier.c_str());
    return kUnknownPlatform;
}

int SMBIOSVMware::FetchSmbiosRecordsByType(int type, unsigned char** records, int* count)
{
    return getSmbiosRecordsByType(type, records, count);
}
