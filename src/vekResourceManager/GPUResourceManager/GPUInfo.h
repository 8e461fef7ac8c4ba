#pragma once

#include "PCIeDevice.h"

#include <json/json.h>

#include <cstdint>
#include <string>

// One GPU as its vendor library names it, with what the I/O card matrix adds.
// Copied by value.
class GPUInfo : public PCIeDevice {
public:
    std::string getDeviceClass() const override { return "GPU"; }
    virtual void setBasicProperties(std::string serial, std::string manufacturerName, int32_t totalCores,
                                    uint32_t maxSpeedMHZ, std::string deviceName, std::string instructionSet,
                                    std::string processorType, std::string processorArchitecture);
    // The GPU's inventory object, its "Status" included.
    virtual Json::Value getGPUInstanceInfoJson() const;

    std::string getInterfaceName() const { return DeviceName; }
    std::string getInstructionSet() const { return InstructionSet; }
    std::string getProcessorType() const { return ProcessorType; }
    std::string getProcessorArchitecture() const { return ProcessorArchitecture; }
    uint32_t getMaxSpeedMHZ() const { return MaxSpeedMHZ; }
    int32_t getTotalCores() const { return TotalCores; }

    std::string DeviceName;
    std::string InstructionSet;
    std::string ProcessorType;
    std::string ProcessorArchitecture;
    int32_t TotalCores = -1;
    uint32_t MaxSpeedMHZ = 0;
};
