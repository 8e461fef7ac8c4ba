#include "vekGPUNVidiaInterface.h"

#include "vekIOGeoIDHelper.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPCIeManufacturerResolver.h"
#include "vekPhysLocFactory.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace {

const char TAG[] = "GPU_NVIDIA_INTF";

// What a text output holds when nothing filled it.
const char kNotFilled[] = "-1";

} // namespace

const char* const vekGPUNVidiaInterface::kLibraryName = "libnvidia-ml.so";

void vekGPUNVidiaInterface::LibraryCloser::operator()(void* handle) const
{
    dlclose(handle);
}

vekGPUNVidiaInterface::vekGPUNVidiaInterface(vekPlatformServices* services, std::string libraryName)
    : services_(services), libraryName_(std::move(libraryName))
{
}

vekGPUNVidiaInterface::~vekGPUNVidiaInterface()
{
    shutDownNVML();
}

bool vekGPUNVidiaInterface::initVendorLibrary()
{
    VEK_LOG_DEBUG(TAG, "Library Name: [%s].", libraryName_.c_str());
    if (handle_) {
        if (initialized_) {
            VEK_LOG_DEBUG(TAG, "Vendor Library handle has already been Initialized!");
            return true;
        }
        if (nvmlShutdown_ == nullptr) {
            // An entry point is missing: no later attempt can mend that.
            return false;
        }
    } else {
        handle_.reset(dlopen(libraryName_.c_str(), RTLD_NOW | RTLD_GLOBAL));
        if (!handle_) {
            const char* error = dlerror();
            VEK_LOG_ERROR(TAG,
                          "Failed to open Dynamic Library: [%s], Error = [%s]. NVIDIA GPU devices information will "
                          "not be included in the VEK JSON Inventory.",
                          libraryName_.c_str(), error != nullptr ? error : "");
            return false;
        }
        VEK_LOG_DEBUG(TAG, "Successfully received handle to Dynamic Library: [%s].", libraryName_.c_str());
    }
    try {
        getNVMLFunctionPointers();
    } catch (const vekGPUExceptions::Exception& e) {
        VEK_LOG_ERROR(TAG, "Exception caught! {%s}", e.what());
        return false;
    }
    return true;
}

void* vekGPUNVidiaInterface::loadFunctionPointer(const char* symbol)
{
    dlerror();
    void* function = dlsym(handle_.get(), symbol);
    if (function == nullptr) {
        const char* error = dlerror();
        char text[512];
        snprintf(text, sizeof text, "Could not find symbol '%s'. Error = [%s]", symbol, error != nullptr ? error : "");
        throw vekGPUExceptions::SymbolNotFound(text);
    }
    return function;
}

void vekGPUNVidiaInterface::getNVMLFunctionPointers()
{
    VEK_LOG_DEBUG(TAG, "Inside getNVMLFunctionPointers.");
    // A library that failed only its start keeps its entry points for the
    // next attempt.
    if (nvmlShutdown_ == nullptr) {
        // Bound all or none: nvmlShutdown_, the last, says that all are there.
        auto errorString = reinterpret_cast<nvmlErrorString_f>(loadFunctionPointer("nvmlErrorString"));
        auto init = reinterpret_cast<nvmlInit_f>(loadFunctionPointer("nvmlInit"));
        auto count = reinterpret_cast<nvmlDeviceGetCount_f>(loadFunctionPointer("nvmlDeviceGetCount"));
        auto pciInfo = reinterpret_cast<nvmlDeviceGetPciInfo_v3_f>(loadFunctionPointer("nvmlDeviceGetPciInfo_v3"));
        auto handle =
            reinterpret_cast<nvmlDeviceGetHandleByIndex_f>(loadFunctionPointer("nvmlDeviceGetHandleByIndex"));
        auto name = reinterpret_cast<nvmlDeviceGetName_f>(loadFunctionPointer("nvmlDeviceGetName"));
        auto serial = reinterpret_cast<nvmlDeviceGetSerial_f>(loadFunctionPointer("nvmlDeviceGetSerial"));
        auto clock = reinterpret_cast<nvmlDeviceGetMaxClockInfo_f>(loadFunctionPointer("nvmlDeviceGetMaxClockInfo"));
        auto shutdown = reinterpret_cast<nvmlShutdown_f>(loadFunctionPointer("nvmlShutdown"));
        nvmlErrorString_ = errorString;
        nvmlInit_ = init;
        nvmlDeviceGetCount_ = count;
        nvmlDeviceGetPciInfo_v3_ = pciInfo;
        nvmlDeviceGetHandleByIndex_ = handle;
        nvmlDeviceGetName_ = name;
        nvmlDeviceGetSerial_ = serial;
        nvmlDeviceGetMaxClockInfo_ = clock;
        nvmlShutdown_ = shutdown;
    }
    const nvmlReturn_t result = nvmlInit_();
    if (result != NVML_SUCCESS) {
        throw vekGPUExceptions::NvmlAPICallFailed("NVIDIA library not initialized properly. Error: [" +
                                                  errorText(result) + "].");
    }
    initialized_ = true;
}

std::string vekGPUNVidiaInterface::errorText(nvmlReturn_t result) const
{
    const char* text = nvmlErrorString_ != nullptr ? nvmlErrorString_(result) : nullptr;
    return text != nullptr ? text : std::to_string(static_cast<int>(result));
}

void vekGPUNVidiaInterface::shutDownNVML()
{
    VEK_LOG_DEBUG(TAG, "Shutting down the NVML library.");
    if (shutDown_) {
        return;
    }
    shutDown_ = true;
    if (!initialized_) {
        VEK_LOG_DEBUG(TAG, "Cannot shutdown NVML Library since Init failed.");
    } else {
        const nvmlReturn_t result = nvmlShutdown_();
        if (result != NVML_SUCCESS) {
            VEK_LOG_ERROR(TAG, "Unable to shutdown the NVML library. Error: [%s].", errorText(result).c_str());
        }
        initialized_ = false;
    }
    handle_.reset();
}

void vekGPUNVidiaInterface::getDeviceCount(unsigned int& count)
{
    const nvmlReturn_t result = nvmlDeviceGetCount_(&count);
    if (result != NVML_SUCCESS) {
        throw vekGPUExceptions::NvmlAPICallFailed("Unable to fetch the count of GPU devices. Error: [" +
                                                  errorText(result) + "].");
    }
    VEK_LOG_DEBUG(TAG, "Device Count: [%d].", count);
}

void vekGPUNVidiaInterface::populateGPUInstances(std::vector<std::string>& names)
{
    unsigned int count = 0;
    getDeviceCount(count);
    for (unsigned int index = 0; index < count; ++index) {
        names.push_back(std::to_string(index));
    }
}

void vekGPUNVidiaInterface::getDeviceName(nvmlDevice_t device, std::string& name)
{
    char text[NVML_DEVICE_NAME_BUFFER_SIZE] = {};
    const nvmlReturn_t result = nvmlDeviceGetName_(device, text, sizeof text);
    if (result != NVML_SUCCESS) {
        throw vekGPUExceptions::NvmlAPICallFailed("Unable to fetch Device Name. Error: [" + errorText(result) + "].");
    }
    // Never past the buffer, whether or not the library ended its text.
    name.assign(text, strnlen(text, sizeof text));
    VEK_LOG_DEBUG(TAG, "Device Name from NVML Library: [%s].", name.c_str());
}

void vekGPUNVidiaInterface::getSerialNumber(nvmlDevice_t device, std::string& serial)
{
    char text[NVML_DEVICE_SERIAL_BUFFER_SIZE] = {};
    const nvmlReturn_t result = nvmlDeviceGetSerial_(device, text, sizeof text);
    if (result != NVML_SUCCESS) {
        throw vekGPUExceptions::NvmlAPICallFailed("Unable to fetch the Serial Number. Error: [" + errorText(result) +
                                                  "].");
    }
    serial.assign(text, strnlen(text, sizeof text));
    VEK_LOG_DEBUG(TAG, "Serial Number: [%s].", serial.c_str());
}

void vekGPUNVidiaInterface::getMaxSpeedMHZ(nvmlDevice_t device, unsigned int& speed)
{
    const nvmlReturn_t result = nvmlDeviceGetMaxClockInfo_(device, NVML_CLOCK_GRAPHICS, &speed);
    if (result != NVML_SUCCESS) {
        throw vekGPUExceptions::NvmlAPICallFailed("Unable to fetch the Max clock speed. Error: [" + errorText(result) +
                                                  "].");
    }
    VEK_LOG_DEBUG(TAG, "Max Speed in MHZ: [%d].", speed);
}

void vekGPUNVidiaInterface::getPciAttributes(nvmlDevice_t device, GPUInfo& info, std::string& busId)
{
    nvmlPciInfo_t pci = {};
    const nvmlReturn_t result = nvmlDeviceGetPciInfo_v3_(device, &pci);
    if (result != NVML_SUCCESS) {
        throw vekGPUExceptions::NvmlAPICallFailed("Unable to fetch PCI Information for GPU device. Error: [" +
                                                  errorText(result) + "].");
    }
    // The library's buffer is trusted no further than its size.
    busId.assign(pci.busId, strnlen(pci.busId, sizeof pci.busId));
    VEK_LOG_DEBUG(TAG, "PCI BUS ID: [%s].", busId.c_str());
    info.pciAddress = getPCIAddress(pci);
    std::map<std::string, std::string> ids;
    getPCIIDs(pci, ids);
    info.vendorId = ids["Vendor"];
    info.deviceId = ids["Device"];
    info.subVendorId = ids["SubVendor"];
    info.subDeviceId = ids["SubDevice"];
}

std::string vekGPUNVidiaInterface::getPCIAddress(const nvmlPciInfo_t& pci)
{
    // NVML names the function nowhere: a GPU is function 0.
    char text[32];
    snprintf(text, sizeof text, "%04x:%02x:%02x.0", pci.domain, pci.bus, pci.device);
    return text;
}

void vekGPUNVidiaInterface::getPCIIDs(const nvmlPciInfo_t& pci, std::map<std::string, std::string>& ids)
{
    char device[16];
    char subsystem[16];
    snprintf(device, sizeof device, "%08X", pci.pciDeviceId);
    snprintf(subsystem, sizeof subsystem, "%08X", pci.pciSubSystemId);
    // Each id holds the device in its upper half and the vendor in its lower.
    const std::string deviceText(device);
    const std::string subsystemText(subsystem);
    ids["Vendor"] = deviceText.substr(4);
    ids["Device"] = deviceText.substr(0, 4);
    ids["SubVendor"] = subsystemText.substr(4);
    ids["SubDevice"] = subsystemText.substr(0, 4);
    VEK_LOG_DEBUG(TAG,
                  "PCI-IDS are: Vendor ID = [0x%s], Device ID = [0x%s], Sub Vendor ID = [0x%s], Sub Device ID = "
                  "[0x%s]",
                  ids["Vendor"].c_str(), ids["Device"].c_str(), ids["SubVendor"].c_str(), ids["SubDevice"].c_str());
}

void vekGPUNVidiaInterface::getGPUPCIeProperties(const std::string& pciAddress, std::string& description,
                                                 std::string& physicalLocation)
{
    description = "PCI " + pciAddress + " " + vekIOGeoIDHelper::getInstance().getGeoIDStr(pciAddress);
    physicalLocation = vekPhysLocFactory::getPhysLocInterface()->getPhysLocForPCIDevice(pciAddress);
}

void vekGPUNVidiaInterface::discoverGPUProperties(const std::string& name, GPUInfo& info)
{
    const unsigned int index = static_cast<unsigned int>(std::stoi(name));
    VEK_LOG_DEBUG(TAG, "Index = [%u].", index);
    nvmlDevice_t device = nullptr;
    const nvmlReturn_t result = nvmlDeviceGetHandleByIndex_(index, &device);
    if (result != NVML_SUCCESS) {
        char text[256];
        snprintf(text, sizeof text, "Unable to get the Device handle for GPU Index : [%u]. Error: [%s].", index,
                 errorText(result).c_str());
        throw vekGPUExceptions::NvmlAPICallFailed(text);
    }

    std::string deviceName = kNotFilled;
    getDeviceName(device, deviceName);
    std::string busId;
    getPciAttributes(device, info, busId);
    getGPUPCIeProperties(info.pciAddress, info.description, info.physicalLocation);
    VEK_LOG_DEBUG(TAG, "PCIe Properties for GPU device: Description = [%s], Physical Location = [%s].",
                  info.description.c_str(), info.physicalLocation.c_str());
    std::string manufacturer = kNotFilled;
    vekOSInterface* os = vekSystemInterfaceFactory::getSystemInterface();
    if (os != nullptr && os->getPCIeManufacturerResolverInterface() != nullptr) {
        std::string subVendor;
        os->getPCIeManufacturerResolverInterface()->fetchManufacturer(info.pciAddress, manufacturer, subVendor);
    }
    VEK_LOG_DEBUG(TAG, "Manufacturer: [%s]", manufacturer.c_str());
    std::string serial = kNotFilled;
    getSerialNumber(device, serial);
    unsigned int maxSpeed = 0;
    getMaxSpeedMHZ(device, maxSpeed);
    // NVML is not asked for cores, instruction set, type or architecture.
    info.setBasicProperties(serial, manufacturer, -1, maxSpeed, deviceName, kNotFilled, kNotFilled, kNotFilled);
}

int vekGPUNVidiaInterface::discoverGPUStatusInfo(const std::string&, GPUInfo& info)
{
    // A GPU that answered every call above counts as good.
    info.deviceStatus.state = VEK_STATE_ONLINE;
    info.deviceStatus.health = VEK_HEALTH_OK;
    return 1;
}
