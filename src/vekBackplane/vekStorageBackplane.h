#pragma once

// Whether a UBM backplane's firmware is new enough for the service to locate
// drives on it and to report it. Chosen by backplane vendor, then by UBM
// controller device code; a refusal is an exception of this namespace.

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace vekStorageBackplane {

class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class MethodNotImplementedException : public Exception {
public:
    using Exception::Exception;
};

class FirmwareVersionNotSupportedException : public Exception {
public:
    using Exception::Exception;
};

class InvalidUBMControllerFirmwareVersionFormatException : public Exception {
public:
    using Exception::Exception;
};

class UnknownUBMControllerDeviceModelException : public Exception {
public:
    using Exception::Exception;
};

class UnknownUBMBackplaneVendorException : public Exception {
public:
    using Exception::Exception;
};

// Returns when the firmware is supported; otherwise throws one of the above.
void verifyUBMBackplaneFirmwareVersionSupported(uint16_t vendorID, uint32_t deviceCode, const std::string& firmware);

// Each validator answers one of the three questions; the others are not its
// business and throw MethodNotImplementedException.
class UBMFirmwareSupportValidatorBase {
public:
    virtual ~UBMFirmwareSupportValidatorBase() = default;
    virtual void operator()(uint16_t vendorID, uint32_t deviceCode, const std::string& firmware);
    virtual void operator()(uint32_t deviceCode, const std::string& firmware);
    virtual void operator()(const std::string& firmware);
};

// By backplane vendor.
class PrincipalUBMFirmwareSupportValidator : public UBMFirmwareSupportValidatorBase {
public:
    PrincipalUBMFirmwareSupportValidator();
    using UBMFirmwareSupportValidatorBase::operator();
    void operator()(uint16_t vendorID, uint32_t deviceCode, const std::string& firmware) override;

private:
    std::map<uint16_t, std::unique_ptr<UBMFirmwareSupportValidatorBase>> vendors_;
};

// Our own backplanes, by UBM controller device code.
class ZOLUBMFirmwareSupportValidator : public UBMFirmwareSupportValidatorBase {
public:
    ZOLUBMFirmwareSupportValidator();
    using UBMFirmwareSupportValidatorBase::operator();
    void operator()(uint32_t deviceCode, const std::string& firmware) override;

private:
    std::map<uint32_t, std::unique_ptr<UBMFirmwareSupportValidatorBase>> devices_;
};

class MinimumUBMFirmwareSupportValidator : public UBMFirmwareSupportValidatorBase {
public:
    explicit MinimumUBMFirmwareSupportValidator(std::string minimum) : minimum_(std::move(minimum)) {}
    using UBMFirmwareSupportValidatorBase::operator();
    void operator()(const std::string& firmware) override;

private:
    const std::string minimum_;
};

class TrueUBMFirmwareSupportValidator : public UBMFirmwareSupportValidatorBase {
public:
    using UBMFirmwareSupportValidatorBase::operator();
    void operator()(const std::string& firmware) override;
};

class FalseUBMFirmwareSupportValidator : public UBMFirmwareSupportValidatorBase {
public:
    using UBMFirmwareSupportValidatorBase::operator();
    void operator()(const std::string& firmware) override;
};

} // namespace vekStorageBackplane
