#pragma once

#include "vekGPUVendorInterface.h"
#include "vekNvmlApi.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class vekPlatformServices;

// NVIDIA GPUs through NVML, opened at run time so that a host without the
// driver runs on without GPU data. The name of a GPU is its NVML index.
class vekGPUNVidiaInterface : public vekGPUVendorInterface {
public:
    static const char* const kLibraryName;

    // libraryName: the library to open, found through the linker's search
    // path unless it holds a '/'.
    explicit vekGPUNVidiaInterface(vekPlatformServices* services, std::string libraryName = kLibraryName);
    ~vekGPUNVidiaInterface() override;

    vekGPUNVidiaInterface(const vekGPUNVidiaInterface&) = delete;
    vekGPUNVidiaInterface& operator=(const vekGPUNVidiaInterface&) = delete;

    void populateGPUInstances(std::vector<std::string>& names) override;
    void discoverGPUProperties(const std::string& name, GPUInfo& info) override;
    int discoverGPUStatusInfo(const std::string& name, GPUInfo& info) override;
    bool initVendorLibrary() override;

    const std::string& getLibraryName() const { return libraryName_; }

    void getDeviceCount(unsigned int& count);
    void getDeviceName(nvmlDevice_t device, std::string& name);
    void getSerialNumber(nvmlDevice_t device, std::string& serial);
    void getMaxSpeedMHZ(nvmlDevice_t device, unsigned int& speed);
    // Fills the record's PCI address and ids; busId is NVML's own text.
    void getPciAttributes(nvmlDevice_t device, GPUInfo& info, std::string& busId);
    // "Vendor", "Device", "SubVendor", "SubDevice": four hexadecimal digits each.
    static void getPCIIDs(const nvmlPciInfo_t& pci, std::map<std::string, std::string>& ids);
    // The address as every location look-up of this system keys it.
    static std::string getPCIAddress(const nvmlPciInfo_t& pci);
    void getGPUPCIeProperties(const std::string& pciAddress, std::string& description, std::string& physicalLocation);

private:
    struct LibraryCloser {
        void operator()(void* handle) const;
    };

    void getNVMLFunctionPointers();
    void* loadFunctionPointer(const char* symbol);
    // The library's text of a result.
    std::string errorText(nvmlReturn_t result) const;
    void shutDownNVML();

    vekPlatformServices* services_;
    const std::string libraryName_;
    std::unique_ptr<void, LibraryCloser> handle_;
    nvmlErrorString_f nvmlErrorString_ = nullptr;
    nvmlInit_f nvmlInit_ = nullptr;
    nvmlDeviceGetCount_f nvmlDeviceGetCount_ = nullptr;
    nvmlDeviceGetPciInfo_v3_f nvmlDeviceGetPciInfo_v3_ = nullptr;
    nvmlDeviceGetHandleByIndex_f nvmlDeviceGetHandleByIndex_ = nullptr;
    nvmlDeviceGetName_f nvmlDeviceGetName_ = nullptr;
    nvmlDeviceGetSerial_f nvmlDeviceGetSerial_ = nullptr;
    nvmlDeviceGetMaxClockInfo_f nvmlDeviceGetMaxClockInfo_ = nullptr;
    nvmlShutdown_f nvmlShutdown_ = nullptr;
    bool initialized_ = false;
    bool shutDown_ = false;
};
