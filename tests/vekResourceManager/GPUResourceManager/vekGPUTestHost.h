#pragma once

// A copy of the bundled rack server for the GPU cases: its two GPUs answer
// through the stand-in NVML, whose scenario a case rewrites.

#include "vekBundledProfile.h"
#include "vekLocationTestHost.h"
#include "vekTestRoot.h"

#include <json/json.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

class vekGPUTestHost : public vekRootTest {
protected:
    void SetUp() override
    {
        setenv("VEK_TIME_SCALE", "1000", 1);
        ASSERT_NO_FATAL_FAILURE(vekCopyBundledProfile(root));
        root.makeDirectory("/opt/zolvek/tmp");
        std::istringstream in(root.readFile(kScenario));
        std::string errors;
        ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &rackGPUs, &errors)) << errors;
        ASSERT_EQ(rackGPUs["gpus"].size(), 2u);
    }

    void writeScenario(const Json::Value& scenario) const
    {
        root.writeFile(kScenario, Json::writeString(Json::StreamWriterBuilder(), scenario));
    }

    // What the library was asked, one call a line (with "recordCalls").
    std::string calls() const
    {
        return root.exists("/sim/libnvidia-ml.calls") ? root.readFile("/sim/libnvidia-ml.calls") : "";
    }

    static constexpr const char* kScenario = "/sim/libnvidia-ml.json";
    // The stand-in that lacks nvmlDeviceGetMaxClockInfo.
    static std::string libraryWithoutMaxClock()
    {
        return std::string(VEK_BINARY_DIR) + "/testtools/lib/nvml-nosym/libnvidia-ml.so";
    }

    // The rack server's scenario as shipped: the A100 in slot 5, the L40S in slot 9.
    Json::Value rackGPUs;
    vekLocationTestHost host{root};
};
