#include "NVMeControllerInfo.h"

void NVMeControllerInfo::setBasicProperties(const std::string& serial, const std::string& modelNumber_,
                                            const std::string& firmware, const std::string& maker, int64_t capacity)
{
    serialNumber = serial;
    modelNumber = modelNumber_;
    model = modelNumber_;
    firmwareVersion = firmware;
    manufacturer = maker;
    capacityBytes = capacity;
}

void NVMeControllerInfo::setExtendedProperties(int64_t detected, const std::string& media, const std::string& protocol)
{
    capacityBytesDetected = detected;
    mediaType = media;
    protocolName = protocol;
}
