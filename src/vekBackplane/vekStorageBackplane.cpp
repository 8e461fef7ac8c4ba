#include "vekStorageBackplane.h"

#include "vekLog.h"

namespace {
const char TAG[] = "SBP_UTILS";
} // namespace

void vekStorageBackplane::verifyUBMBackplaneFirmwareVersionSupported(uint16_t vendorID, uint32_t deviceCode,
                                                                     const std::string& firmware)
{
    // The tables are read-only once built, so one validator serves every thread.
    static PrincipalUBMFirmwareSupportValidator validator;
    try {
        validator(vendorID, deviceCode, firmware);
    } catch (const Exception& e) {
        VEK_LOG_ERROR(TAG, "UBM backplane [%04x, %08x, %s]: Exception reported: [%s]", vendorID, deviceCode,
                      firmware.c_str(), e.what());
        throw;
    }
}
