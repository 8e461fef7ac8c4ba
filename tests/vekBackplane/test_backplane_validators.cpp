// Which UBM backplane firmware the service accepts for drive location and
// reporting, and what it says when it refuses.

#include "vekStorageBackplane.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace vekStorageBackplane;

// The class of a refusal, by name.
std::string kind(const Exception& e)
{
    if (dynamic_cast<const FirmwareVersionNotSupportedException*>(&e) != nullptr) {
        return "FirmwareVersionNotSupported";
    }
    if (dynamic_cast<const InvalidUBMControllerFirmwareVersionFormatException*>(&e) != nullptr) {
        return "InvalidFormat";
    }
    if (dynamic_cast<const UnknownUBMControllerDeviceModelException*>(&e) != nullptr) {
        return "UnknownDevice";
    }
    if (dynamic_cast<const UnknownUBMBackplaneVendorException*>(&e) != nullptr) {
        return "UnknownVendor";
    }
    if (dynamic_cast<const MethodNotImplementedException*>(&e) != nullptr) {
        return "NotImplemented";
    }
    return "Exception";
}

// "" when accepted, else the class and text of the refusal.
template <typename Call> std::string verdict(Call call)
{
    try {
        call();
    } catch (const Exception& e) {
        return kind(e) + ": " + e.what();
    }
    return "";
}

TEST(BackplaneValidatorTest, AcceptsNewEnoughFirmwareOfKnownBackplanes)
{
    struct Case {
        uint16_t vendor;
        uint32_t device;
        const char* firmware;
        const char* verdict;
    } const cases[] = {
        {0x4417, 1, "0.01", ""},
        {0x4417, 1, "unknown", ""}, // accepted whatever it runs
        {0x4417, 2, "", ""},
        {0x4417, 4, "9.9", ""},
        {0x4417, 20, "0.0", ""},
        {0x4417, 3, "1.10", ""},
        {0x4417, 3, "2.00", ""},
        {0x4417, 3, "1.11", ""},
        {0x4417, 3, "1.9",
         "FirmwareVersionNotSupported: Minimum UBM controller/manager firmware version requirement [1.9 >= 1.10] not "
         "met."},
        {0x4417, 3, "0.20",
         "FirmwareVersionNotSupported: Minimum UBM controller/manager firmware version requirement [0.20 >= 1.10] not "
         "met."},
        {0x4417, 5, "1.06", ""},
        {0x4417, 5, "1.5",
         "FirmwareVersionNotSupported: Minimum UBM controller/manager firmware version requirement [1.5 >= 1.06] not "
         "met."},
        {0x4417, 6, "1.00", ""},
        {0x4417, 7, "0.99",
         "FirmwareVersionNotSupported: Minimum UBM controller/manager firmware version requirement [0.99 >= 1.00] not "
         "met."},
        {0x4417, 3, "unknown", "InvalidFormat: Invalid UBM firmware version format! (2, 0, mfv=[1.10], bfv=[unknown])"},
        {0x4417, 7, "1", "InvalidFormat: Invalid UBM firmware version format! (2, 1, mfv=[1.00], bfv=[1])"},
        {0x4417, 8, "1.10", "UnknownDevice: Unsupported/Unknown UBM controller/manager device code [00000008]!"},
        {0x4417, 0, "1.10", "UnknownDevice: Unsupported/Unknown UBM controller/manager device code [00000000]!"},
        {0x1000, 1, "1.10", "UnknownVendor: Unsupported/Unknown backplane vendor ID [1000]!"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.vendor) + " " + std::to_string(c.device) + " " + c.firmware);
        EXPECT_EQ(verdict([&] { verifyUBMBackplaneFirmwareVersionSupported(c.vendor, c.device, c.firmware); }),
                  c.verdict);
    }
}

TEST(BackplaneValidatorTest, RefusalIsLoggedWithTheBackplane)
{
    vekLogTail log(vekTestMainLogPath());
    EXPECT_THROW(verifyUBMBackplaneFirmwareVersionSupported(0x4417, 5, "1.01"), FirmwareVersionNotSupportedException);
    EXPECT_TRUE(log.contains("UBM backplane [4417, 00000005, 1.01]: Exception reported: [Minimum UBM "
                             "controller/manager firmware version requirement [1.01 >= 1.06] not met.]"))
        << log.newText();
}

} // namespace
