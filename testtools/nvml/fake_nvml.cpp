// A stand-in for the NVIDIA Management Library (libnvidia-ml.so), for tests
// and simulated hosts. It answers as the library does (text formats, buffer
// sizes, result codes, reference-counted nvmlInit/nvmlShutdown) from its
// scenario, $VEK_ROOT/sim/libnvidia-ml.json, read afresh at every call so
// that a test or a person changes the GPUs while the service runs.
// FAKE_NVML_WITHOUT_MAX_CLOCK leaves nvmlDeviceGetMaxClockInfo out, for the
// library that lacks an entry point.

#include "vekNvmlApi.h"

#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

// The handles the library hands out: one per possible index.
struct nvmlDevice_st {
    unsigned int index;
};

namespace {

const unsigned int kMaxDevices = 64;
nvmlDevice_st devices[kMaxDevices];
std::mutex mutex;
unsigned int initCount = 0;

std::string simPath(const char* file)
{
    const char* root = getenv("VEK_ROOT");
    return std::string(root != nullptr ? root : "") + "/sim/" + file;
}

Json::Value scenario()
{
    std::ifstream in(simPath("libnvidia-ml.json"));
    Json::Value value;
    Json::CharReaderBuilder reader;
    std::string errors;
    if (!in || !Json::parseFromStream(reader, in, &value, &errors) || !value.isObject()) {
        return Json::Value(Json::objectValue);
    }
    return value;
}

// With "recordCalls" set, each call's name goes on a line of
// sim/libnvidia-ml.calls, so that a test sees what the service asked.
void record(const Json::Value& sim, const char* call)
{
    if (sim.get("recordCalls", false).asBool()) {
        std::ofstream(simPath("libnvidia-ml.calls"), std::ios::app) << call << '\n';
    }
}

Json::Value gpus(const Json::Value& sim)
{
    const Json::Value all = sim["gpus"];
    return all.isArray() ? all : Json::Value(Json::arrayValue);
}

const std::map<std::string, nvmlReturn_t>& resultNames()
{
    static const std::map<std::string, nvmlReturn_t> names = {
        {"NVML_SUCCESS", NVML_SUCCESS},
        {"NVML_ERROR_UNINITIALIZED", NVML_ERROR_UNINITIALIZED},
        {"NVML_ERROR_INVALID_ARGUMENT", NVML_ERROR_INVALID_ARGUMENT},
        {"NVML_ERROR_NOT_SUPPORTED", NVML_ERROR_NOT_SUPPORTED},
        {"NVML_ERROR_NO_PERMISSION", NVML_ERROR_NO_PERMISSION},
        {"NVML_ERROR_ALREADY_INITIALIZED", NVML_ERROR_ALREADY_INITIALIZED},
        {"NVML_ERROR_NOT_FOUND", NVML_ERROR_NOT_FOUND},
        {"NVML_ERROR_INSUFFICIENT_SIZE", NVML_ERROR_INSUFFICIENT_SIZE},
        {"NVML_ERROR_INSUFFICIENT_POWER", NVML_ERROR_INSUFFICIENT_POWER},
        {"NVML_ERROR_DRIVER_NOT_LOADED", NVML_ERROR_DRIVER_NOT_LOADED},
        {"NVML_ERROR_TIMEOUT", NVML_ERROR_TIMEOUT},
        {"NVML_ERROR_IRQ_ISSUE", NVML_ERROR_IRQ_ISSUE},
        {"NVML_ERROR_LIBRARY_NOT_FOUND", NVML_ERROR_LIBRARY_NOT_FOUND},
        {"NVML_ERROR_FUNCTION_NOT_FOUND", NVML_ERROR_FUNCTION_NOT_FOUND},
        {"NVML_ERROR_CORRUPTED_INFOROM", NVML_ERROR_CORRUPTED_INFOROM},
        {"NVML_ERROR_GPU_IS_LOST", NVML_ERROR_GPU_IS_LOST},
        {"NVML_ERROR_RESET_REQUIRED", NVML_ERROR_RESET_REQUIRED},
        {"NVML_ERROR_OPERATING_SYSTEM", NVML_ERROR_OPERATING_SYSTEM},
        {"NVML_ERROR_LIB_RM_VERSION_MISMATCH", NVML_ERROR_LIB_RM_VERSION_MISMATCH},
        {"NVML_ERROR_IN_USE", NVML_ERROR_IN_USE},
        {"NVML_ERROR_MEMORY", NVML_ERROR_MEMORY},
        {"NVML_ERROR_NO_DATA", NVML_ERROR_NO_DATA},
        {"NVML_ERROR_UNKNOWN", NVML_ERROR_UNKNOWN},
    };
    return names;
}

// The failure a scenario object ("fail": {"<call>": "<result name or number>"})
// asks of a call; NVML_SUCCESS when none.
nvmlReturn_t failureOf(const Json::Value& object, const char* call)
{
    if (!object.isObject() || !object["fail"].isObject() || !object["fail"].isMember(call)) {
        return NVML_SUCCESS;
    }
    const Json::Value result = object["fail"][call];
    if (result.isIntegral()) {
        return static_cast<nvmlReturn_t>(result.asInt());
    }
    const auto found = resultNames().find(result.asString());
    return found != resultNames().end() ? found->second : NVML_ERROR_UNKNOWN;
}

// The checks every device call makes first: initialised, a handle it gave,
// a GPU that is still there; then the failures the scenario asks.
nvmlReturn_t deviceCall(const char* call, nvmlDevice_t device, Json::Value& gpu)
{
    const Json::Value sim = scenario();
    record(sim, call);
    std::lock_guard<std::mutex> lock(mutex);
    if (initCount == 0) {
        return NVML_ERROR_UNINITIALIZED;
    }
    const Json::Value all = gpus(sim);
    if (device == nullptr || device < devices || device >= devices + kMaxDevices || device->index >= all.size()) {
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    gpu = all[device->index];
    const nvmlReturn_t failure = failureOf(sim, call);
    return failure != NVML_SUCCESS ? failure : failureOf(gpu, call);
}

nvmlReturn_t copyText(const std::string& text, char* out, unsigned int length)
{
    if (out == nullptr) {
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    if (text.size() + 1 > length) {
        return NVML_ERROR_INSUFFICIENT_SIZE;
    }
    memcpy(out, text.c_str(), text.size() + 1);
    return NVML_SUCCESS;
}

unsigned int hexNumber(const Json::Value& value)
{
    return value.isIntegral() ? value.asUInt()
                              : static_cast<unsigned int>(strtoul(value.asString().c_str(), nullptr, 16));
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) const char* nvmlErrorString(nvmlReturn_t result)
{
    switch (result) {
    case NVML_SUCCESS: return "Success";
    case NVML_ERROR_UNINITIALIZED: return "Uninitialized";
    case NVML_ERROR_INVALID_ARGUMENT: return "Invalid Argument";
    case NVML_ERROR_NOT_SUPPORTED: return "Not Supported";
    case NVML_ERROR_NO_PERMISSION: return "Insufficient Permissions";
    case NVML_ERROR_ALREADY_INITIALIZED: return "Already Initialized";
    case NVML_ERROR_NOT_FOUND: return "Not Found";
    case NVML_ERROR_INSUFFICIENT_SIZE: return "Insufficient Size";
    case NVML_ERROR_INSUFFICIENT_POWER: return "Insufficient External Power";
    case NVML_ERROR_DRIVER_NOT_LOADED: return "Driver Not Loaded";
    case NVML_ERROR_TIMEOUT: return "Timeout";
    case NVML_ERROR_IRQ_ISSUE: return "Interrupt Request Issue";
    case NVML_ERROR_LIBRARY_NOT_FOUND: return "NVML Shared Library Not Found";
    case NVML_ERROR_FUNCTION_NOT_FOUND: return "Function Not Found";
    case NVML_ERROR_CORRUPTED_INFOROM: return "Corrupted infoROM";
    case NVML_ERROR_GPU_IS_LOST: return "GPU is lost";
    case NVML_ERROR_RESET_REQUIRED: return "GPU requires restart";
    case NVML_ERROR_OPERATING_SYSTEM: return "The operating system has blocked the request.";
    case NVML_ERROR_LIB_RM_VERSION_MISMATCH: return "RM has detected an NVML/RM version mismatch.";
    case NVML_ERROR_IN_USE: return "In use by another client";
    case NVML_ERROR_MEMORY: return "Insufficient Memory";
    case NVML_ERROR_NO_DATA: return "No data";
    default: return "Unknown Error";
    }
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlInit(void)
{
    const Json::Value sim = scenario();
    record(sim, "nvmlInit");
    const nvmlReturn_t failure = failureOf(sim, "nvmlInit");
    if (failure != NVML_SUCCESS) {
        return failure;
    }
    std::lock_guard<std::mutex> lock(mutex);
    ++initCount;
    return NVML_SUCCESS;
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlShutdown(void)
{
    const Json::Value sim = scenario();
    record(sim, "nvmlShutdown");
    std::lock_guard<std::mutex> lock(mutex);
    if (initCount == 0) {
        return NVML_ERROR_UNINITIALIZED;
    }
    const nvmlReturn_t failure = failureOf(sim, "nvmlShutdown");
    if (failure != NVML_SUCCESS) {
        return failure;
    }
    --initCount;
    return NVML_SUCCESS;
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlDeviceGetCount(unsigned int* deviceCount)
{
    const Json::Value sim = scenario();
    record(sim, "nvmlDeviceGetCount");
    std::lock_guard<std::mutex> lock(mutex);
    if (initCount == 0) {
        return NVML_ERROR_UNINITIALIZED;
    }
    if (deviceCount == nullptr) {
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    const nvmlReturn_t failure = failureOf(sim, "nvmlDeviceGetCount");
    if (failure != NVML_SUCCESS) {
        return failure;
    }
    const unsigned int count = gpus(sim).size();
    *deviceCount = count < kMaxDevices ? count : kMaxDevices;
    return NVML_SUCCESS;
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlDeviceGetHandleByIndex(unsigned int index,
                                                                               nvmlDevice_t* device)
{
    const Json::Value sim = scenario();
    record(sim, "nvmlDeviceGetHandleByIndex");
    std::lock_guard<std::mutex> lock(mutex);
    if (initCount == 0) {
        return NVML_ERROR_UNINITIALIZED;
    }
    const Json::Value all = gpus(sim);
    if (device == nullptr || index >= all.size() || index >= kMaxDevices) {
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    const nvmlReturn_t failure = failureOf(all[index], "nvmlDeviceGetHandleByIndex");
    if (failure != NVML_SUCCESS) {
        return failure;
    }
    devices[index].index = index;
    *device = &devices[index];
    return NVML_SUCCESS;
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlDeviceGetName(nvmlDevice_t device, char* name,
                                                                      unsigned int length)
{
    Json::Value gpu;
    const nvmlReturn_t result = deviceCall("nvmlDeviceGetName", device, gpu);
    return result != NVML_SUCCESS ? result : copyText(gpu.get("name", "").asString(), name, length);
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlDeviceGetSerial(nvmlDevice_t device, char* serial,
                                                                        unsigned int length)
{
    Json::Value gpu;
    const nvmlReturn_t result = deviceCall("nvmlDeviceGetSerial", device, gpu);
    if (result != NVML_SUCCESS) {
        return result;
    }
    // Boards without a serial number (consumer cards) do not support the call.
    if (!gpu.isMember("serial")) {
        return NVML_ERROR_NOT_SUPPORTED;
    }
    return copyText(gpu["serial"].asString(), serial, length);
}

__attribute__((visibility("default"))) nvmlReturn_t nvmlDeviceGetPciInfo_v3(nvmlDevice_t device, nvmlPciInfo_t* pci)
{
    Json::Value gpu;
    const nvmlReturn_t result = deviceCall("nvmlDeviceGetPciInfo_v3", device, gpu);
    if (result != NVML_SUCCESS) {
        return result;
    }
    if (pci == nullptr) {
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    unsigned int domain = 0;
    unsigned int bus = 0;
    unsigned int slot = 0;
    unsigned int function = 0;
    sscanf(gpu.get("pciAddress", "").asCString(), "%x:%x:%x.%x", &domain, &bus, &slot, &function);
    memset(pci, 0, sizeof *pci);
    pci->domain = domain;
    pci->bus = bus;
    pci->device = slot;
    pci->pciDeviceId = hexNumber(gpu["pciDeviceId"]);
    pci->pciSubSystemId = hexNumber(gpu["pciSubSystemId"]);
    snprintf(pci->busId, sizeof pci->busId, NVML_DEVICE_PCI_BUS_ID_FMT, domain, bus, slot);
    snprintf(pci->busIdLegacy, sizeof pci->busIdLegacy, NVML_DEVICE_PCI_BUS_ID_LEGACY_FMT, domain, bus, slot);
    return NVML_SUCCESS;
}

#ifndef FAKE_NVML_WITHOUT_MAX_CLOCK
__attribute__((visibility("default"))) nvmlReturn_t nvmlDeviceGetMaxClockInfo(nvmlDevice_t device,
                                                                              nvmlClockType_t type,
                                                                              unsigned int* clock)
{
    Json::Value gpu;
    const nvmlReturn_t result = deviceCall("nvmlDeviceGetMaxClockInfo", device, gpu);
    if (result != NVML_SUCCESS) {
        return result;
    }
    static const char* const names[NVML_CLOCK_COUNT] = {"graphics", "sm", "memory", "video"};
    if (clock == nullptr || type < 0 || type >= NVML_CLOCK_COUNT) {
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    const Json::Value clocks = gpu["maxClockMHz"];
    if (!clocks.isObject() || !clocks[names[type]].isUInt()) {
        return NVML_ERROR_NOT_SUPPORTED;
    }
    *clock = clocks[names[type]].asUInt();
    return NVML_SUCCESS;
}
#endif

} // extern "C"
