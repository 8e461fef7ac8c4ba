#include "vekResourceManagerLifecycle.h"

#include "vekConfig.h"
#include "vekPlatformServices.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Inventory = vekResourceManagerLifecycle::Inventory;
using Clock = std::chrono::steady_clock;

Json::Value record(int build)
{
    Json::Value value(Json::objectValue);
    value["Build"] = build;
    return value;
}

class LifecycleTest : public vekRootTest {
protected:
    // The lifecycle of a manager named "HostOSInfo" under this configuration.
    std::unique_ptr<vekResourceManagerLifecycle> lifecycleWith(const std::string& json)
    {
        root.writeConfig(json);
        config = std::make_unique<vekConfig>();
        return std::make_unique<vekResourceManagerLifecycle>(
            "TEST_RM", "HostOSInfo", "HostInventory", [this] { steps.record("push"); }, *config);
    }

    std::unique_ptr<vekConfig> config;
    vekTestSteps steps;
};

TEST_F(LifecycleTest, RefreshIntervalComesFromConfigurationWithThirtySecondsFloor)
{
    const struct {
        const char* intervals;
        int seconds;
    } cases[] = {
        {"{ \"HostOSInfo\": 60, \"Global\": 120 }", 60},
        {"{ \"GPUDevices\": 5, \"Global\": 120 }", 120},
        {"{ \"HostOSInfo\": 0, \"Global\": 120 }", 30},
        {"{ \"HostOSInfo\": -5 }", 30},
        {"{}", 30},
    };
    for (const auto& c : cases) {
        auto lifecycle =
            lifecycleWith(std::string("{ \"LoggingLevel\": \"Info\", \"CacheRefreshInSeconds\": ") + c.intervals + " }");
        EXPECT_EQ(lifecycle->refreshIntervalSeconds(), c.seconds) << c.intervals;
    }
}

TEST_F(LifecycleTest, FirstBuildStartsAtOnceAndStopEndsTheWait)
{
    // An hour between builds: only the first build can happen in this case.
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "CacheRefreshInSeconds": { "HostOSInfo": 3600 } })");
    vekLogTail debug(vekTestDebugLogPath());
    vekLogTail main(vekTestMainLogPath());
    std::atomic<int> builds{0};
    std::thread job([&] {
        lifecycle->runRefreshLoop(
            [&] {
                ++builds;
                steps.record("build");
            },
            [&] { steps.record("shutdown activities"); });
        steps.record("loop left");
    });

    ASSERT_TRUE(steps.waitFor("build"));
    EXPECT_TRUE(lifecycle->stopResourceManagerJob());
    job.join();

    EXPECT_EQ(builds, 1);
    EXPECT_LT(steps.indexOf("shutdown activities"), steps.indexOf("loop left"));
    const std::string debugText = debug.newText();
    const size_t called = debugText.find("TEST_RM: Resource manager stop called.");
    const size_t signalled = debugText.find("TEST_RM: Signalled for stop & waiting for RM to complete Shutdown.");
    ASSERT_NE(called, std::string::npos) << debugText;
    ASSERT_NE(signalled, std::string::npos) << debugText;
    EXPECT_LT(called, signalled);
    EXPECT_TRUE(main.contains("TEST_RM: RM completed Shutdown gracefully: [1]")) << main.newText();
}

TEST_F(LifecycleTest, LaterBuildsWaitTheScaledIntervalAndZeroMeansThirtySeconds)
{
    vekScopedTimeScale fast(100);
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "CacheRefreshInSeconds": { "HostOSInfo": 0 } })");
    std::vector<Clock::time_point> starts;
    std::thread job([&] {
        lifecycle->runRefreshLoop([&] {
            starts.push_back(Clock::now());
            if (starts.size() == 2) {
                lifecycle->signalRMStop();
            }
        });
    });
    job.join();

    ASSERT_EQ(starts.size(), 2u);
    // 30 s at a hundredfold speed.
    EXPECT_GE(starts[1] - starts[0], std::chrono::milliseconds(300));
}

TEST_F(LifecycleTest, StopBeforeTheFirstPassBuildsNothing)
{
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "EnableDebugLog": true })");
    lifecycle->signalRMStop();
    int builds = 0;
    lifecycle->runRefreshLoop([&] { ++builds; });
    EXPECT_EQ(builds, 0);
    EXPECT_TRUE(lifecycle->waitUntilShutdownComplete());
}

TEST_F(LifecycleTest, StopDuringABuildTakesEffectWhenTheBuildEnds)
{
    vekScopedTimeScale fast(1000);
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "CacheRefreshInSeconds": { "HostOSInfo": 1 } })");
    vekBuildGate gate;
    gate.hold();
    std::atomic<int> builds{0};
    std::thread job([&] {
        lifecycle->runRefreshLoop([&] {
            lifecycle->cacheBuild([&] {
                ++builds;
                steps.record("build started");
                gate.pass();
                return Inventory{record(builds)};
            });
        });
    });
    ASSERT_TRUE(steps.waitFor("build started"));
    lifecycle->signalRMStop();
    gate.release();
    job.join();

    EXPECT_EQ(builds, 1);
    std::vector<Json::Value> inventory;
    EXPECT_FALSE(lifecycle->getInventory(inventory));
    ASSERT_EQ(inventory.size(), 1u);
    EXPECT_TRUE(lifecycle->waitUntilShutdownComplete());
}

TEST_F(LifecycleTest, ShutdownWaitGivesUpAfterTheScaledTenSeconds)
{
    vekScopedTimeScale fast(100);
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "EnableDebugLog": true })");
    vekLogTail main(vekTestMainLogPath());

    const Clock::time_point before = Clock::now();
    EXPECT_FALSE(lifecycle->stopResourceManagerJob());
    EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(100));
    EXPECT_TRUE(main.contains("TEST_RM: RM completed Shutdown gracefully: [0]")) << main.newText();
}

TEST_F(LifecycleTest, ReadersGetTheBackupWhileABuildRuns)
{
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "EnableDebugLog": true })");
    vekBuildGate gate;
    gate.hold();
    int build = 0;
    auto slowCollect = [&] {
        ++build;
        steps.record("collecting " + std::to_string(build));
        gate.pass();
        return Inventory{record(build), record(build)};
    };

    // The first build: there is nothing yet, not even a backup.
    std::thread first([&] { lifecycle->cacheBuild(slowCollect); });
    ASSERT_TRUE(steps.waitFor("collecting 1"));
    std::vector<Json::Value> during;
    EXPECT_TRUE(lifecycle->getInventory(during));
    EXPECT_TRUE(during.empty());
    EXPECT_FALSE(lifecycle->isReady());
    gate.release();
    first.join();
    EXPECT_TRUE(lifecycle->isReady());

    // The second build: readers keep getting the first one's records, without
    // waiting for the collection to end.
    gate.hold();
    std::thread second([&] { lifecycle->cacheBuild(slowCollect); });
    ASSERT_TRUE(steps.waitFor("collecting 2"));
    std::vector<Json::Value> inventory{Json::Value("already there")};
    EXPECT_TRUE(lifecycle->getInventory(inventory));
    ASSERT_EQ(inventory.size(), 3u);
    EXPECT_EQ(inventory[0], Json::Value("already there"));
    EXPECT_EQ(inventory[1], record(1));
    EXPECT_TRUE(lifecycle->isBuildInProgress());
    gate.release();
    second.join();

    std::vector<Json::Value> after;
    EXPECT_FALSE(lifecycle->getInventory(after));
    EXPECT_EQ(after, (Inventory{record(2), record(2)}));
    EXPECT_FALSE(lifecycle->isBuildInProgress());
}

TEST_F(LifecycleTest, FailedCollectionKeepsTheLastInventory)
{
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "EnableDebugLog": true })");
    lifecycle->cacheBuild([] { return Inventory{record(1)}; });
    EXPECT_THROW(lifecycle->cacheBuild([]() -> Inventory { throw std::runtime_error("device gone"); }),
                 std::runtime_error);

    std::vector<Json::Value> inventory;
    EXPECT_FALSE(lifecycle->getInventory(inventory));
    EXPECT_EQ(inventory, Inventory{record(1)});
    EXPECT_FALSE(lifecycle->isBuildInProgress());
}

TEST_F(LifecycleTest, LastPollMissedPushesAfterTheNextBuild)
{
    const struct {
        const char* what;
        std::vector<int> pollsBeforeFirstBuild;
        std::vector<int> pollsBeforeSecondBuild;
        size_t pushesAfterFirst;
        size_t pushesAfterSecond;
    } cases[] = {
        {"nine polls, none ready", {0, 1, 2, 3, 4, 5, 6, 7, 8}, {}, 1, 1},
        {"eight polls, none ready", {0, 1, 2, 3, 4, 5, 6, 7}, {}, 0, 0},
        {"last poll finds it ready", {}, {8}, 0, 0},
        {"no polls", {}, {}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        vekTestSteps pushes;
        vekResourceManagerLifecycle* self = nullptr;
        vekConfig defaults;
        vekResourceManagerLifecycle lifecycle(
            "TEST_RM", "HostOSInfo", "HostInventory",
            [&] {
                // The aggregator, asked to push, must find the new inventory.
                std::vector<Json::Value> inventory;
                const bool backup = self->getInventory(inventory);
                pushes.record(std::string("push ready=") + (self->isReady() ? "1" : "0") +
                              " backup=" + (backup ? "1" : "0") + " size=" + std::to_string(inventory.size()));
            },
            defaults);
        self = &lifecycle;

        for (int poll : c.pollsBeforeFirstBuild) {
            EXPECT_FALSE(lifecycle.isInventoryReady(poll));
        }
        lifecycle.cacheBuild([] { return Inventory{record(1)}; });
        EXPECT_EQ(pushes.count("push ready=1 backup=0 size=1"), c.pushesAfterFirst) << pushes.all();
        for (int poll : c.pollsBeforeSecondBuild) {
            EXPECT_TRUE(lifecycle.isInventoryReady(poll));
        }
        lifecycle.cacheBuild([] { return Inventory{record(2)}; });
        EXPECT_EQ(pushes.count("push ready=1 backup=0 size=1"), c.pushesAfterSecond) << pushes.all();
    }
}

TEST_F(LifecycleTest, IsRunningLooksThreeTimesBeforeGivingUp)
{
    vekScopedTimeScale fast(1000);
    auto lifecycle = lifecycleWith(R"({ "LoggingLevel": "Info", "EnableDebugLog": true })");

    {
        SCOPED_TRACE("nothing built yet");
        vekLogTail main(vekTestMainLogPath());
        EXPECT_TRUE(lifecycle->isRunning());
        EXPECT_FALSE(main.contains("_cacheBuildInProgress"));
    }
    {
        SCOPED_TRACE("first build running");
        vekBuildGate gate;
        gate.hold();
        std::thread build([&] {
            lifecycle->cacheBuild([&] {
                steps.record("collecting");
                gate.pass();
                return Inventory{record(1), record(1)};
            });
        });
        ASSERT_TRUE(steps.waitFor("collecting"));
        vekLogTail main(vekTestMainLogPath());
        EXPECT_FALSE(lifecycle->isRunning());
        gate.release();
        build.join();
        const std::string text = main.newText();
        for (int retry = 0; retry < 3; ++retry) {
            EXPECT_NE(text.find("TEST_RM: _cacheBuildInProgress = 1, HostInventory.size() =0,retryCount =" +
                                std::to_string(retry)),
                      std::string::npos)
                << text;
        }
        EXPECT_EQ(text.find("retryCount =3"), std::string::npos);
    }
    {
        SCOPED_TRACE("inventory ready");
        vekLogTail main(vekTestMainLogPath());
        EXPECT_FALSE(lifecycle->isRunning());
        const std::string text = main.newText();
        const size_t last = text.find("_cacheBuildInProgress = 0, HostInventory.size() =2,retryCount =2");
        ASSERT_NE(last, std::string::npos) << text;
        const size_t newline = text.rfind('\n', last);
        const size_t lineStart = newline == std::string::npos ? 0 : newline + 1;
        EXPECT_NE(text.substr(lineStart, last - lineStart).find("[WARNING]"), std::string::npos) << text;
    }
}

TEST_F(LifecycleTest, TestManagerRunsThroughTheBaseInit)
{
    auto cfg = std::make_shared<vekConfig>();
    vekTestFactory factory(cfg);
    vekResourceManager* manager = factory.createInstance(4);
    vekPlatformServices services;
    std::thread job([&] { manager->init(services); });
    ASSERT_TRUE(factory.steps.waitFor("cached 1 of 4"));
    std::vector<Json::Value> inventory;
    EXPECT_FALSE(manager->getInventoryJsonObject(inventory));
    ASSERT_EQ(inventory.size(), 1u);
    EXPECT_EQ(inventory[0]["Manager"], 4);
    manager->stopResourceManagerJob();
    job.join();
    EXPECT_TRUE(factory.steps.has("stopped outcome 1 4"));

    // What a manager does not override keeps the base behaviour.
    std::vector<Json::Value> typed{Json::Value("kept")};
    EXPECT_FALSE(manager->getInventoryJsonObject2(1, typed));
    EXPECT_EQ(typed.size(), 1u);
    Json::Value value;
    EXPECT_FALSE(manager->getTelemetryJsonObject(value));
    EXPECT_FALSE(manager->getUtilizationJsonObject(value));
    std::vector<Json::Value> files;
    EXPECT_FALSE(manager->getFileServiceJsonObject(files));
}

} // namespace
