#pragma once

#include "PCIeDevice.h"
#include "vekSCMServerChassisManager.h"

#include <cstdint>
#include <string>

// One NVMe device as the OS interface reads it: the raw result from which
// the manager makes a controller record and a drive record.
class NVMeControllerInfo : public PCIeDevice {
public:
    std::string getDeviceClass() const override { return ""; }
    virtual void setBasicProperties(const std::string& serial, const std::string& modelNumber,
                                    const std::string& firmware, const std::string& maker, int64_t capacity);
    virtual void setExtendedProperties(int64_t detected, const std::string& media, const std::string& protocol);
    virtual std::string getModelNumber() const { return modelNumber; }
    virtual int64_t getCapacityBytesDetected() const { return capacityBytesDetected; }
    virtual int64_t getCapacityBytes() const { return capacityBytes; }
    virtual std::string getProtocolName() const { return protocolName; }
    virtual std::string getMediaType() const { return mediaType; }

    std::string modelNumber;
    std::string mediaType;
    std::string protocolName;
    int64_t capacityBytes = 0;
    // The sum over the device's namespaces.
    int64_t capacityBytesDetected = 0;

    // Where the device sits, as the location subsystem answers for its address.
    std::string deviceName;
    std::string slot;
    std::string decodedPhysicalLocation;
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
};
