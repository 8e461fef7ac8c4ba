#include "vekGeoIDOSInterface.h"

#include "DmiOnboardDevice.h"
#include "DmiSystemSlot.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekSmbiosInterface.h"
#include "vekSmbiosTable.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace {

const char TAG[] = "GEOID_VMWARE";

// The records of one fetch, released with free() on every path.
struct RecordBlock {
    unsigned char* records = nullptr;
    int count = 0;
    ~RecordBlock() { free(records); }
};

// Holds the SMBIOS table for the span of one discovery.
struct SmbiosSession {
    ~SmbiosSession() { SmBiosDeinit(); }
};

} // namespace

vekGeoIDVMwareInterface::vekGeoIDVMwareInterface(vekOSInterface& os, vekSmbiosInterface& smbios)
    : os_(os), smbios_(smbios)
{
}

int vekGeoIDVMwareInterface::discoverIOGeoIDs(TopologyCallback, SmbiosCallback type9, SmbiosCallback type41)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (discovering_) {
            VEK_LOG_WARNING(TAG, "Another I/O GeoID discovery process is already in progress!");
            return false;
        }
        discovering_ = true;
    }
    struct ClearDiscovering {
        vekGeoIDVMwareInterface* self;
        ~ClearDiscovering()
        {
            std::lock_guard<std::mutex> lock(self->mutex_);
            self->discovering_ = false;
        }
    } clearDiscovering{this};

    if (SmBiosInit() == 1) {
        const int error = errno;
        VEK_LOG_ERROR(TAG, "Error initializing SMBIOS access: [%d] - [%s]", error,
                      vekGlobalDef::VMwareOSUtils::getErrorDescription(error).c_str());
        return false;
    }
    SmbiosSession session;
    VEK_LOG_DEBUG(TAG, "SMBIOS initialized successfully.");

    {
        RecordBlock slots;
        const int result = smbios_.FetchSmbiosRecordsByType(DMI_SYSTEM_SLOT_TYPE, &slots.records, &slots.count);
        if (result != 0 || slots.records == nullptr || slots.count == 0) {
            VEK_LOG_WARNING(TAG, "Unable to fetch SMBIOS Type 9 record: (%d, %p)", result,
                            static_cast<void*>(slots.records));
        } else {
            VEK_LOG_DEBUG(TAG, "SMBIOS Type 9 data retrieved successfully! Reporting data via callback.");
            int entry = 0;
            for (const DmiSystemSlot& slot : DmiSystemSlot_DecodeAll(slots.records, slots.count)) {
                ++entry;
                VEK_LOG_DEBUG(TAG,
                              "  Type 9 Entry [%d]: designation: [%s], segmentGroupNum: [0x%04x],busNum: [0x%02x], "
                              "devFuncNum: [0x%02x]",
                              entry, slot.designation, slot.segmentGroupNum, slot.busNum, slot.devFuncNum);
                type9(slot.segmentGroupNum, slot.busNum, static_cast<uint8_t>(slot.devFuncNum >> 3),
                      static_cast<uint8_t>(slot.devFuncNum & 0x07), slot.designation);
            }
            VEK_LOG_DEBUG(TAG, "SMBIOS Type 9 data reporting complete.");
        }
    }
    {
        RecordBlock devices;
        const int result =
            smbios_.FetchSmbiosRecordsByType(DMI_ONBOARD_DEVICE_TYPE, &devices.records, &devices.count);
        if (result != 0 || devices.records == nullptr || devices.count == 0) {
            VEK_LOG_WARNING(TAG, "Unable to fetch SMBIOS Type 41 record: (%d, %p)", result,
                            static_cast<void*>(devices.records));
        } else {
            VEK_LOG_DEBUG(TAG, "SMBIOS Type 41 data retrieved successfully! Reporting data via callback.");
            int entry = 0;
            for (const DmiOnboardDevice& device : DmiOnboardDevice_DecodeAll(devices.records, devices.count)) {
                ++entry;
                VEK_LOG_DEBUG(TAG,
                              "  Type 41 Entry [%d]: designation: [%s], segmentGroupNum: [0x%x], busNum: [0x%x], "
                              "devNum: [0x%x], funcNum: [0x%x]",
                              entry, device.designation, device.segmentGroupNum, device.busNum, device.deviceNum(),
                              device.functionNum());
                type41(device.segmentGroupNum, device.busNum, device.deviceNum(), device.functionNum(),
                       device.designation);
            }
            VEK_LOG_DEBUG(TAG, "SMBIOS Type 41 data reporting complete.");
        }
    }
    return true;
}

void vekGeoIDVMwareInterface::discoverNvdimmTopology(DimmTopology&, std::list<std::string>&)
{
    throw std::runtime_error("Not Implemented!!");
}
