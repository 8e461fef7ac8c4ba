// The NVML reader through the real dlopen of the stand-in library: how each
// kind of library failure degrades (the records it reads are checked whole
// in the GPU manager's inventory).

#include "GPUResourceManager/GPUResourceManager.h"
#include "GPUResourceManager/vekGPUNVidiaInterface.h"
#include "vekGPUTestHost.h"
#include "vekTestInventoryPush.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

class GPUNVidiaInterfaceTest : public vekGPUTestHost {
protected:
    std::unique_ptr<vekGPUDataCollector> collector(const std::string& library = vekGPUNVidiaInterface::kLibraryName)
    {
        vekPlatformServices& services = host.services();
        return std::unique_ptr<vekGPUDataCollector>(new vekGPUDataCollector(
            &services, std::unique_ptr<vekGPUVendorInterface>(new vekGPUNVidiaInterface(&services, library))));
    }
};

// A call that fails for the first GPU costs that GPU's record, not the other's.
TEST_F(GPUNVidiaInterfaceTest, OneFailingCallCostsOnlyThatGPU)
{
    struct Case {
        const char* call;
        const char* result;  // empty: the scenario gives the GPU no serial number
        const char* logged;
    };
    const Case cases[] = {
        {"nvmlDeviceGetHandleByIndex", "NVML_ERROR_GPU_IS_LOST",
         "Unable to get the Device handle for GPU Index : [0]. Error: [GPU is lost]."},
        {"nvmlDeviceGetName", "NVML_ERROR_UNKNOWN", "Unable to fetch Device Name. Error: [Unknown Error]."},
        {"nvmlDeviceGetPciInfo_v3", "NVML_ERROR_GPU_IS_LOST",
         "Unable to fetch PCI Information for GPU device. Error: [GPU is lost]."},
        {"nvmlDeviceGetSerial", "", "Unable to fetch the Serial Number. Error: [Not Supported]."},
        {"nvmlDeviceGetMaxClockInfo", "NVML_ERROR_NO_PERMISSION",
         "Unable to fetch the Max clock speed. Error: [Insufficient Permissions]."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call);
        Json::Value scenario = rackGPUs;
        if (*c.result == '\0') {
            scenario["gpus"][0].removeMember("serial");
        } else {
            scenario["gpus"][0]["fail"][c.call] = c.result;
        }
        writeScenario(scenario);
        vekLogTail log(vekTestMainLogPath());
        std::vector<GPUInfo> gpus;
        EXPECT_EQ(collector()->discoverGPUInventory(gpus), 0);
        ASSERT_EQ(gpus.size(), 1u);
        EXPECT_EQ(gpus[0].getGPUInstanceInfoJson()["Name"].asString(), "NVIDIA L40S");
        EXPECT_EQ(vekLogCount(log, c.logged), 1u) << log.newText();
    }
}

// What empties the whole family, and what stops a build.
TEST_F(GPUNVidiaInterfaceTest, LibraryFaultsEmptyTheFamily)
{
    struct Case {
        const char* name;
        std::string library;
        const char* failingCall;  // fails for the whole library; null: none
        bool noGPUs;
        int result;  // of discoverGPUInventory; -1: it throws
        const char* logged;
    };
    const Case cases[] = {
        {"no library", "libnvidia-ml-absent.so", nullptr, false, 1,
         "Failed to open Dynamic Library: [libnvidia-ml-absent.so], Error = [libnvidia-ml-absent.so: cannot open "
         "shared object file"},
        {"a missing entry point", libraryWithoutMaxClock(), nullptr, false, 1,
         "Exception caught! {Could not find symbol 'nvmlDeviceGetMaxClockInfo'. Error = ["},
        {"no driver", vekGPUNVidiaInterface::kLibraryName, "nvmlInit", false, 1,
         "Exception caught! {NVIDIA library not initialized properly. Error: [Driver Not Loaded].}"},
        {"no count", vekGPUNVidiaInterface::kLibraryName, "nvmlDeviceGetCount", false, -1,
         "Unable to fetch the count of GPU devices. Error: [Driver Not Loaded]."},
        {"no GPU", vekGPUNVidiaInterface::kLibraryName, nullptr, true, 2, "Zero NVIDIA GPU Devices found"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Json::Value scenario = rackGPUs;
        if (c.failingCall != nullptr) {
            scenario["fail"][c.failingCall] = "NVML_ERROR_DRIVER_NOT_LOADED";
        }
        if (c.noGPUs) {
            scenario["gpus"] = Json::Value(Json::arrayValue);
        }
        writeScenario(scenario);
        // Errors go to the main log, the rest to the debug log.
        vekLogTail mainLog(vekTestMainLogPath());
        vekLogTail debugLog(vekTestDebugLogPath());
        std::vector<GPUInfo> gpus;
        if (c.result < 0) {
            try {
                collector(c.library)->discoverGPUInventory(gpus);
                ADD_FAILURE() << "no exception";
            } catch (const vekGPUExceptions::NvmlAPICallFailed& e) {
                EXPECT_EQ(std::string(e.what()), c.logged);
            }
        } else {
            EXPECT_EQ(collector(c.library)->discoverGPUInventory(gpus), c.result);
            EXPECT_EQ(vekLogCount(mainLog, c.logged) + vekLogCount(debugLog, c.logged), 1u) << mainLog.newText();
        }
        EXPECT_TRUE(gpus.empty());
    }
}

// The library is opened and started once, and shut down with its reader.
TEST_F(GPUNVidiaInterfaceTest, LibraryOpensOnceAndShutsDownWithItsReader)
{
    Json::Value scenario = rackGPUs;
    scenario["recordCalls"] = true;
    writeScenario(scenario);
    vekLogTail log(vekTestDebugLogPath());
    {
        vekGPUNVidiaInterface nvidia(&host.services());
        ASSERT_TRUE(nvidia.initVendorLibrary());
        ASSERT_TRUE(nvidia.initVendorLibrary());
        EXPECT_EQ(vekLogCount(log, "Successfully received handle to Dynamic Library: [libnvidia-ml.so]."), 1u);
        EXPECT_EQ(vekLogCount(log, "Vendor Library handle has already been Initialized!"), 1u);
    }
    EXPECT_EQ(calls(), "nvmlInit\nnvmlShutdown\n");

    // A library whose start failed is not shut down, and is started again
    // at the next look without being opened again.
    scenario["fail"]["nvmlInit"] = "NVML_ERROR_DRIVER_NOT_LOADED";
    writeScenario(scenario);
    root.writeFile("/sim/libnvidia-ml.calls", "");
    {
        vekGPUNVidiaInterface nvidia(&host.services());
        EXPECT_FALSE(nvidia.initVendorLibrary());
        scenario["fail"].removeMember("nvmlInit");
        writeScenario(scenario);
        EXPECT_TRUE(nvidia.initVendorLibrary());
        EXPECT_EQ(vekLogCount(log, "Successfully received handle to Dynamic Library: [libnvidia-ml.so]."), 2u);
    }
    EXPECT_EQ(calls(), "nvmlInit\nnvmlInit\nnvmlShutdown\n");
}

} // namespace
