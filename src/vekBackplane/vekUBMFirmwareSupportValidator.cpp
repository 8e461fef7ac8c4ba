#include "vekLog.h"
#include "vekStorageBackplane.h"

#include <cstdio>

namespace vekStorageBackplane {

namespace {

const char TAG[] = "UBM_FW_VS";

const uint16_t kZOLVendorID = 0x4417;

std::unique_ptr<UBMFirmwareSupportValidatorBase> accepted()
{
    return std::make_unique<TrueUBMFirmwareSupportValidator>();
}

std::unique_ptr<UBMFirmwareSupportValidatorBase> atLeast(const std::string& minimum)
{
    return std::make_unique<MinimumUBMFirmwareSupportValidator>(minimum);
}

} // namespace

void UBMFirmwareSupportValidatorBase::operator()(uint16_t, uint32_t, const std::string&)
{
    VEK_LOG_ERROR(TAG, "Operator()(3) method not implemented!");
    throw MethodNotImplementedException("Operator()(3) method not implemented!");
}

void UBMFirmwareSupportValidatorBase::operator()(uint32_t, const std::string&)
{
    VEK_LOG_ERROR(TAG, "Operator()(2) method not implemented!");
    throw MethodNotImplementedException("Operator()(2) method not implemented!");
}

void UBMFirmwareSupportValidatorBase::operator()(const std::string&)
{
    VEK_LOG_ERROR(TAG, "Operator()(1) method not implemented!");
    throw MethodNotImplementedException("Operator()(1) method not implemented!");
}

PrincipalUBMFirmwareSupportValidator::PrincipalUBMFirmwareSupportValidator()
{
    vendors_[kZOLVendorID] = std::make_unique<ZOLUBMFirmwareSupportValidator>();
}

void PrincipalUBMFirmwareSupportValidator::operator()(uint16_t vendorID, uint32_t deviceCode,
                                                      const std::string& firmware)
{
    VEK_LOG_DEBUG(TAG, "Principal validator called for UBM backplane [%04x, %08x] running firmware [%s].", vendorID,
                  deviceCode, firmware.c_str());
    const auto vendor = vendors_.find(vendorID);
    if (vendor == vendors_.end()) {
        throw UnknownUBMBackplaneVendorException(
            vekLog::format("Unsupported/Unknown backplane vendor ID [%04x]!", vendorID));
    }
    VEK_LOG_DEBUG(TAG, "Found vendor's validators table.");
    (*vendor->second)(deviceCode, firmware);
}

ZOLUBMFirmwareSupportValidator::ZOLUBMFirmwareSupportValidator()
{
    devices_[1] = accepted();
    devices_[2] = accepted();
    devices_[3] = atLeast("1.10");
    devices_[4] = accepted();
    devices_[5] = atLeast("1.06");
    devices_[6] = atLeast("1.00");
    devices_[7] = atLeast("1.00");
    devices_[20] = accepted();
}

void ZOLUBMFirmwareSupportValidator::operator()(uint32_t deviceCode, const std::string& firmware)
{
    VEK_LOG_DEBUG(TAG, "ZOL validator called for UBM controller device [%08x] running firmware [%s].", deviceCode,
                  firmware.c_str());
    const auto device = devices_.find(deviceCode);
    if (device == devices_.end()) {
        throw UnknownUBMControllerDeviceModelException(
            vekLog::format("Unsupported/Unknown UBM controller/manager device code [%08x]!", deviceCode));
    }
    VEK_LOG_DEBUG(TAG, "Found validator for UBM controller device [%08x].", deviceCode);
    (*device->second)(firmware);
}

void MinimumUBMFirmwareSupportValidator::operator()(const std::string& firmware)
{
    VEK_LOG_DEBUG(TAG, "Minimum validator (%s) called with firmware [%s].", minimum_.c_str(), firmware.c_str());
    unsigned char minimumMajor = 0, minimumMinor = 0, major = 0, minor = 0;
    const int minimumItems = sscanf(minimum_.c_str(), "%hhu.%hhu", &minimumMajor, &minimumMinor);
    const int items = sscanf(firmware.c_str(), "%hhu.%hhu", &major, &minor);
    if (minimumItems != 2 || items != 2) {
        throw InvalidUBMControllerFirmwareVersionFormatException(
            vekLog::format("Invalid UBM firmware version format! (%d, %d, mfv=[%s], bfv=[%s])", minimumItems, items,
                           minimum_.c_str(), firmware.c_str()));
    }
    // By number: "1.9" is below "1.10".
    const bool met = major > minimumMajor || (major == minimumMajor && minor >= minimumMinor);
    VEK_LOG_DEBUG(TAG, "Minimum UBM controller/manager firmware version requirement [%s >= %s] %s.", firmware.c_str(),
                  minimum_.c_str(), met ? "met" : "not met");
    if (!met) {
        throw FirmwareVersionNotSupportedException("Minimum UBM controller/manager firmware version requirement [" +
                                                   firmware + " >= " + minimum_ + "] not met.");
    }
}

void TrueUBMFirmwareSupportValidator::operator()(const std::string& firmware)
{
    VEK_LOG_DEBUG(TAG, "True validator called with firmware [%s].", firmware.c_str());
}

void FalseUBMFirmwareSupportValidator::operator()(const std::string& firmware)
{
    VEK_LOG_DEBUG(TAG, "False validator called with firmware [%s].", firmware.c_str());
    throw FirmwareVersionNotSupportedException("UBM controller/manager firmware [" + firmware + "] not supported.");
}

} // namespace vekStorageBackplane
