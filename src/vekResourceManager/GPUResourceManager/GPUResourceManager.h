#pragma once

#include "GPUInfo.h"
#include "vekGPUVendorInterface.h"
#include "vekIOMatrixInterface.h"
#include "vekPCIeInventoryStore.h"
#include "vekResourceManager.h"
#include "vekResourceManagerLifecycle.h"

#include <json/json.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class vekConfig;
class vekPlatformServices;

// Reads every GPU of the host whole.
class IvekGPUDataCollector {
public:
    virtual ~IvekGPUDataCollector() = default;
    // 0 gathered, 1 no driver, 2 no GPU, 3 stopped.
    virtual int discoverGPUInventory(std::vector<GPUInfo>& out) = 0;
};

class vekGPUDataCollector : public IvekGPUDataCollector {
public:
    // vendor: the GPU library's reader, owned from here on.
    vekGPUDataCollector(vekPlatformServices* services, std::unique_ptr<vekGPUVendorInterface> vendor);

    int discoverGPUInventory(std::vector<GPUInfo>& out) override;
    // A read in progress ends after the GPU in hand.
    void notifyGPURMStop() { stop_ = true; }

private:
    int discoverNVidiaGPUInventory(std::vector<GPUInfo>& out);

    vekPlatformServices* services_;
    vekGPUIOMatrixInterface matrix_;
    std::unique_ptr<vekGPUVendorInterface> vendor_;
    std::atomic<bool> stop_{false};
};

// The records of the last build.
class vekGPUInventoryManager : public vekPCIeInventoryStore<GPUInfo> {
public:
    static vekGPUInventoryManager& getInstance();

private:
    vekGPUInventoryManager();
};

// The GPUs (id 5, "GPUDevices", the "Processors" of the inventory): one
// record per GPU, rebuilt every refresh interval. A GPU raises no events.
class GPUResourceManager : public vekResourceManager {
public:
    static GPUResourceManager& getInstance();

    GPUResourceManager(const GPUResourceManager&) = delete;
    GPUResourceManager& operator=(const GPUResourceManager&) = delete;

    void stopResourceManagerJob() override;
    void init() override {}
    void init(vekPlatformServices& services) override;
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override;
    // True when the last build is done and holds GPUs.
    bool isRunning() override;
    bool isInventoryReady(int iteration) override;

    // The thread body: builds at once, then every refresh interval.
    void startInventory();
    void cacheBuild();

protected:
    // libraryName: the GPU library to open (tests open others).
    GPUResourceManager(const vekConfig& config, std::string libraryName);
    ~GPUResourceManager() = default;

private:
    // 0 when the build is whole, -1 when a stop or a failing library cut it.
    int getInventory(std::vector<GPUInfo>& records);
    std::vector<Json::Value> createGpuInfoJsonPayload(const std::vector<GPUInfo>& records);

    const vekConfig& config_;
    const std::string libraryName_;
    std::unique_ptr<vekGPUDataCollector> collector_;
    std::atomic<vekGPUDataCollector*> collectorReady_{nullptr};
    vekGPUInventoryManager& inventoryManager_;
    std::atomic<bool> started_{false};
    std::atomic<vekPlatformServices*> services_{nullptr};
    vekResourceManagerLifecycle lifecycle_;
};
