#pragma once

// The bundled rack server as the NVMe family sees it: a copy of the profile
// under a fresh root, its platform services current, events and inventory
// going out through the given channel, and the NVMe manager's loop on a
// thread of its own, stopped at the end.

#include "NVMeResourceManager/NVMeResourceManager.h"
#include "vekBundledProfile.h"
#include "vekConfig.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekPlatformServices.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include <json/json.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// The manager on the case's own configuration.
class vekNvmeTestManager final : public NVMeResourceManager {
public:
    explicit vekNvmeTestManager(const vekConfig& config) : NVMeResourceManager(config) {}
};

class vekNvmeTestHost {
public:
    // The rack server's devices, by their place.
    static constexpr const char* kCard7 = "vmhba7";     // slot 7, 0000:e3:00.0
    static constexpr const char* kCard8 = "vmhba8";     // slot 8, 0000:e4:00.0
    static constexpr const char* kBay1 = "vmhba64";     // NVMe bay 1, 0000:86:00.0
    static constexpr const char* kVmdDrive = "vmhba67"; // behind Intel VMD, 10000:01:00.0

    explicit vekNvmeTestHost(const vekTestRoot& root) : root_(root), location_(root)
    {
        vekCopyBundledProfile(root);
        // A long refresh: the cases watch the ten-second poll, sped up.
        root.writeConfig(R"({"EnableResources": ["NVMeControllers"], "LoggingLevel": "Debug",
                             "CacheRefreshInSeconds": {"NVMeControllers": 3600}})");
        setenv("VEK_TIME_SCALE", "100", 1);
        config_.reset(new vekConfig());
        manager_.reset(new vekNvmeTestManager(*config_));
    }

    ~vekNvmeTestHost()
    {
        if (loop_.joinable()) {
            manager_->stopResourceManagerJob();
            loop_.join();
        }
        unsetenv("VEK_TIME_SCALE");
    }

    // The services with the communication manager; the OS interface made.
    vekPlatformServices& services(vekInBandComManager& com)
    {
        vekPlatformServices& services = location_.services();
        services.SetCommunicationService(com);
        vekSystemInterfaceFactory::getSystemInterface();
        return services;
    }

    // Starts the manager and waits for its first build.
    bool startManager()
    {
        NVMeResourceManager* manager = manager_.get();
        loop_ = std::thread([manager] { manager->init(); });
        return vekEventually([manager] { return manager->isInventoryReady(0); });
    }

    NVMeResourceManager& manager() { return *manager_; }

    std::vector<Json::Value> inventory(int type)
    {
        std::vector<Json::Value> out;
        manager_->getInventoryJsonObject2(type, out);
        return out;
    }

    // The controller whose description names the address; the drive in
    // that slot ("07" a card's slot, "01" a bay). Null when there is none.
    static Json::Value at(const std::vector<Json::Value>& list, const std::string& pciAddress)
    {
        return first(list, [&](const Json::Value& item) {
            return item["Oem"]["Description"].asString().find("PCI " + pciAddress + " ") == 0;
        });
    }
    static Json::Value inSlot(const std::vector<Json::Value>& drives, const std::string& slot)
    {
        return first(drives, [&](const Json::Value& item) { return item["Oem"]["Slot"].asString() == slot; });
    }
    static Json::Value first(const std::vector<Json::Value>& list, const std::function<bool(const Json::Value&)>& is)
    {
        const auto found = std::find_if(list.begin(), list.end(), is);
        return found == list.end() ? Json::Value() : *found;
    }

    // Rewrites the device's SMART log with these warning flags set.
    void setSmartFlags(const std::string& name, const std::vector<std::string>& flagsSet) const
    {
        const std::string file = root_.hostPath("/sim/cli/nvme_device_log_smart_get_-A_" + name + ".txt");
        std::string text = root_.readFile("/sim/cli/nvme_device_log_smart_get_-A_" + name + ".txt");
        for (const char* key : {"Available Spare Space Below Threshold:", "Temperature Warning:",
                                "NVM Subsystem Reliability Degradation:", "Read Only Mode:",
                                "Volatile Memory Backup Device Failure:"}) {
            const size_t at = text.find(key);
            const size_t end = text.find('\n', at);
            bool set = false;
            for (const std::string& flag : flagsSet) {
                set = set || flag == key;
            }
            text.replace(at, end - at, std::string(key) + (set ? " true" : " false"));
        }
        // Whole or not at all: the poll may read at any moment.
        std::ofstream(file + ".new") << text;
        EXPECT_EQ(std::rename((file + ".new").c_str(), file.c_str()), 0);
    }

private:
    const vekTestRoot& root_;
    vekLocationTestHost location_;
    std::unique_ptr<vekConfig> config_;
    std::unique_ptr<vekNvmeTestManager> manager_;
    std::thread loop_;
};
