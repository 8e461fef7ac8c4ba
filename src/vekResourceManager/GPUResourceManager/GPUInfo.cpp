#include "GPUInfo.h"

#include <utility>

void GPUInfo::setBasicProperties(std::string serial, std::string manufacturerName, int32_t totalCores,
                                 uint32_t maxSpeedMHZ, std::string deviceName, std::string instructionSet,
                                 std::string processorType, std::string processorArchitecture)
{
    serialNumber = std::move(serial);
    manufacturer = std::move(manufacturerName);
    TotalCores = totalCores;
    MaxSpeedMHZ = maxSpeedMHZ;
    DeviceName = std::move(deviceName);
    InstructionSet = std::move(instructionSet);
    ProcessorType = std::move(processorType);
    ProcessorArchitecture = std::move(processorArchitecture);
}

Json::Value GPUInfo::getGPUInstanceInfoJson() const
{
    Json::Value gpu(Json::objectValue);
    gpu["TotalCores"] = TotalCores;
    gpu["MaxSpeedMHZ"] = MaxSpeedMHZ;
    gpu["ProcessorType"] = ProcessorType;
    gpu["Manufacturer"] = manufacturer;
    gpu["InstructionSet"] = InstructionSet;
    // A card the matrix does not know is still named, by its library.
    gpu["Model"] = model.empty() ? DeviceName : model;
    gpu["Status"] = getStatusJson();
    Json::Value& oem = gpu["Oem"];
    oem["PhysicalLocation"] = physicalLocation;
    oem["SerialNumber"] = serialNumber;
    oem["PartNumber"] = partNumber;
    oem["SparePartNumber"] = sparePartNumber;
    oem["SKU"] = sku;
    oem["Description"] = description;
    gpu["Name"] = DeviceName;
    return gpu;
}
