// The GPU Resource Manager on the rack server: its thread, its inventory as
// the aggregator reads it, a host without the library, and its stop.

#include "GPUResourceManager/GPUResourceManager.h"
#include "GPUResourceManager/vekGPUNVidiaInterface.h"
#include "vekConfig.h"
#include "vekFactory.h"
#include "vekGPUTestHost.h"
#include "vekResourceIds.h"
#include "vekTestInventoryPush.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// A manager of the test's own, on its configuration and library.
class GPUResourceManagerOf : public GPUResourceManager {
public:
    GPUResourceManagerOf(const vekConfig& config, const std::string& library) : GPUResourceManager(config, library) {}
};

class GPUResourceManagerTest : public vekGPUTestHost {};

TEST_F(GPUResourceManagerTest, RackServerGPUsAreTheProcessorsOfTheInventory)
{
    GPUResourceManager& gpu = GPUResourceManager::getInstance();
    EXPECT_EQ(vekFactory().createInstance(vekResourceIds::GPU), &gpu);
    vekLogTail log(vekTestDebugLogPath());
    vekManagerJob job(gpu, host.services());
    ASSERT_TRUE(vekEventually([&] { return gpu.isInventoryReady(0); }));

    std::vector<Json::Value> inventory;
    EXPECT_FALSE(gpu.getInventoryJsonObject(inventory));
    ASSERT_EQ(inventory.size(), 2u);
    // The A100 in slot 5, the L40S in slot 9, whole: the matrix's numbers come
    // by the PCI ids NVML gives (and keep the A100's spare part and SKU off
    // this server model), the description by its address.
    const char* expected[] = {
        R"({"Name": "NVIDIA A100 80GB PCIe", "Model": "GPU A100 80GB PCIe", "MaxSpeedMHZ": 1410,
            "Oem": {"Description": "PCI 0000:ca:00.0 r001u03p1i05", "PhysicalLocation": "03010301FF05FFFF",
                    "SerialNumber": "1324121034567", "PartNumber": "ZV4-GPU-A100", "SparePartNumber": "", "SKU": ""},)",
        R"({"Name": "NVIDIA L40S", "Model": "GPU L40S 48GB PCIe", "MaxSpeedMHZ": 2520,
            "Oem": {"Description": "PCI 0000:e5:00.0 r001u03p1i09", "PhysicalLocation": "03010301FF09FFFF",
                    "SerialNumber": "1652023019876", "PartNumber": "ZV4-GPU-L40S",
                    "SparePartNumber": "ZV4-GPU-L40S-SP", "SKU": "ZR4-OPT-L40S"},)",
    };
    for (size_t i = 0; i < inventory.size(); ++i) {
        // As text: the speed is unsigned in the record, signed once parsed.
        EXPECT_EQ(inventory[i].toStyledString(),
                  vekRecordingChannel::parse(std::string(expected[i]) +
                                             R"( "Manufacturer": "NVIDIA Corporation", "InstructionSet": "-1",
                                                 "ProcessorType": "-1", "TotalCores": -1,
                                                 "Status": {"State": "Online", "Health": "OK"}})")
                      .toStyledString());
    }
    EXPECT_TRUE(gpu.isRunning());
    EXPECT_EQ(vekLogCount(log, "discoverGpuInstance() for NVIDIA completed. Number of GPU's = [2]."), 1u);
}

// No driver on the host: the manager runs on with no GPUs, says so once per
// build, and a refresh interval of -1 means twice a day.
TEST_F(GPUResourceManagerTest, HostWithoutTheLibraryRunsOnWithNoGPUs)
{
    root.writeConfig(R"({"EnableResources": ["GPUDevices"], "CacheRefreshInSeconds": {"GPUDevices": -1}})");
    const vekConfig config;
    GPUResourceManagerOf gpu(config, "libnvidia-ml-absent.so");
    vekLogTail log(vekTestMainLogPath());
    {
        vekManagerJob job(gpu, host.services());
        ASSERT_TRUE(vekEventually([&] { return gpu.isInventoryReady(0); }));
        std::vector<Json::Value> inventory;
        EXPECT_FALSE(gpu.getInventoryJsonObject(inventory));
        EXPECT_TRUE(inventory.empty());
    }
    EXPECT_EQ(vekLogCount(log, "Failed to open Dynamic Library: [libnvidia-ml-absent.so]"), 1u) << log.newText();
    EXPECT_EQ(vekLogCount(log, "Undefined interval. Reset to default"), 1u);
    EXPECT_EQ(vekLogCount(log, "Refresh interval = [43200]."), 1u);
    EXPECT_EQ(vekLogCount(log, "RM completed Shutdown gracefully: [1]"), 1u);
}

// A library that cannot count its GPUs stops that build only: the JSON of
// the last good build stays.
TEST_F(GPUResourceManagerTest, FailingCountKeepsTheLastGoodBuild)
{
    root.writeConfig(R"({"EnableResources": ["GPUDevices"], "CacheRefreshInSeconds": {"GPUDevices": 20}})");
    const vekConfig config;
    GPUResourceManagerOf gpu(config, vekGPUNVidiaInterface::kLibraryName);
    vekLogTail log(vekTestMainLogPath());
    vekManagerJob job(gpu, host.services());
    std::vector<Json::Value> inventory;
    ASSERT_TRUE(vekEventually([&] {
        inventory.clear();
        return !gpu.getInventoryJsonObject(inventory) && inventory.size() == 2;
    }));

    Json::Value scenario = rackGPUs;
    scenario["fail"]["nvmlDeviceGetCount"] = "NVML_ERROR_UNKNOWN";
    writeScenario(scenario);
    ASSERT_TRUE(
        vekWaitForLog(log, "Exception caught! {Unable to fetch the count of GPU devices. Error: [Unknown Error].}"));
    inventory.clear();
    gpu.getInventoryJsonObject(inventory);
    EXPECT_EQ(inventory.size(), 2u);
}

} // namespace
