#include "vekResourceManagerLifecycle.h"

#include "vekConfig.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

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
    // The lifecycle of a manager named "HostOSInfo" with these refresh times.
    std::unique_ptr<vekResourceManagerLifecycle> lifecycleWith(const std::string& intervals = "{}")
    {
        root.writeConfig(R"({ "LoggingLevel": "Info", "CacheRefreshInSeconds": )" + intervals + " }");
        config = std::make_unique<vekConfig>();
        return std::make_unique<vekResourceManagerLifecycle>(
            "TEST_RM", "HostOSInfo", "HostInventory",
            [this] {
                std::vector<Json::Value> inventory;
                const bool backup = lifecycle->getInventory(inventory);
                steps.record("push of " + std::to_string(inventory.size()) + (backup ? " from the backup" : ""));
            },
            *config);
    }

    std::unique_ptr<vekConfig> config;
    std::unique_ptr<vekResourceManagerLifecycle> lifecycle;
    vekTestSteps steps;
};

TEST_F(LifecycleTest, FirstBuildStartsAtOnceAndStopEndsTheWait)
{
    // An hour between builds: only the first build can happen in this case.
    lifecycle = lifecycleWith(R"({ "HostOSInfo": 3600 })");
    vekLogTail debug(vekTestDebugLogPath());
    vekLogTail main(vekTestMainLogPath());
    std::thread job([&] {
        lifecycle->runRefreshLoop([&] { steps.record("build"); }, [&] { steps.record("shutdown activities"); });
        steps.record("loop left");
    });
    EXPECT_TRUE(steps.waitFor("build"));
    EXPECT_TRUE(lifecycle->stopResourceManagerJob());
    job.join();

    EXPECT_EQ(steps.all(), "build\nshutdown activities\nloop left\n");
    EXPECT_TRUE(vekInOrder(debug.newText(), {"TEST_RM: Resource manager stop called.\n",
                                             "TEST_RM: Signalled for stop & waiting for RM to complete Shutdown.\n"}));
    EXPECT_EQ(vekLevelOf(main.newText(), "TEST_RM: RM completed Shutdown gracefully: [1]\n"), "INFO");
}

TEST_F(LifecycleTest, LaterBuildsWaitTheScaledIntervalAndZeroOrLessMeansThirtySeconds)
{
    vekScopedTimeScale fast(100);
    for (const char* seconds : {"0", "-5"}) {
        // "Global" would be 10 ms here: the manager's own member is the one read.
        lifecycle = lifecycleWith(std::string(R"({ "Global": 1, "HostOSInfo": )") + seconds + " }");
        std::vector<Clock::time_point> starts;
        lifecycle->runRefreshLoop([&] {
            starts.push_back(Clock::now());
            if (starts.size() == 2) {
                lifecycle->signalRMStop();
            }
        });
        ASSERT_EQ(starts.size(), 2u);
        // 30 s at a hundredfold speed.
        EXPECT_GE(starts[1] - starts[0], std::chrono::milliseconds(300)) << seconds;
    }
}

TEST_F(LifecycleTest, StopWaitGivesUpAfterTheScaledTenSecondsAndAStoppedLoopBuildsNothing)
{
    vekScopedTimeScale fast(100);
    lifecycle = lifecycleWith();
    vekLogTail main(vekTestMainLogPath());
    const Clock::time_point before = Clock::now();
    EXPECT_FALSE(lifecycle->stopResourceManagerJob());
    EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(100));
    EXPECT_TRUE(main.contains("TEST_RM: RM completed Shutdown gracefully: [0]\n")) << main.newText();

    lifecycle->runRefreshLoop([&] { steps.record("build"); });
    EXPECT_EQ(steps.all(), "");
    EXPECT_TRUE(lifecycle->waitUntilShutdownComplete());
}

// Readers never wait for a build: during one they get the backup (nothing
// before the first build), appended to what they hold.
TEST_F(LifecycleTest, ReadersGetTheBackupWhileABuildRuns)
{
    lifecycle = lifecycleWith();
    vekBuildGate gate;
    for (int build = 1; build <= 2; ++build) {
        SCOPED_TRACE(build);
        gate.hold();
        std::thread builder([&] {
            lifecycle->cacheBuild([&] {
                steps.record("collecting " + std::to_string(build));
                gate.pass();
                return Inventory{record(build), record(build)};
            });
        });
        EXPECT_TRUE(steps.waitFor("collecting " + std::to_string(build)));
        Inventory during{Json::Value("held")};
        EXPECT_TRUE(lifecycle->getInventory(during));
        EXPECT_EQ(during, build == 1 ? Inventory{Json::Value("held")}
                                     : (Inventory{Json::Value("held"), record(1), record(1)}));
        EXPECT_EQ(lifecycle->isReady(), build == 2);
        gate.release();
        builder.join();
        Inventory after;
        EXPECT_FALSE(lifecycle->getInventory(after));
        EXPECT_EQ(after, (Inventory{record(build), record(build)}));
    }
    // A failed collection keeps the last inventory.
    EXPECT_THROW(lifecycle->cacheBuild([]() -> Inventory { throw std::runtime_error("device gone"); }),
                 std::runtime_error);
    Inventory kept;
    EXPECT_FALSE(lifecycle->getInventory(kept));
    EXPECT_EQ(kept, (Inventory{record(2), record(2)}));
}

// A manager not ready at the aggregator's last poll (8) pushes by itself once
// its next build ends, and the push finds the new inventory.
TEST_F(LifecycleTest, LastPollMissedPushesAfterTheNextBuild)
{
    const struct {
        std::vector<int> pollsBeforeFirstBuild;
        std::vector<int> pollsBeforeSecondBuild;
        const char* pushes;
    } cases[] = {
        {{0, 1, 2, 3, 4, 5, 6, 7, 8}, {}, "push of 1\n"},
        {{0, 1, 2, 3, 4, 5, 6, 7}, {}, ""},
        {{}, {8}, ""},
    };
    for (const auto& c : cases) {
        const size_t before = steps.all().size();
        lifecycle = lifecycleWith();
        for (int poll : c.pollsBeforeFirstBuild) {
            EXPECT_FALSE(lifecycle->isInventoryReady(poll));
        }
        lifecycle->cacheBuild([] { return Inventory{record(1)}; });
        for (int poll : c.pollsBeforeSecondBuild) {
            EXPECT_TRUE(lifecycle->isInventoryReady(poll));
        }
        lifecycle->cacheBuild([] { return Inventory{record(2), record(2)}; });
        EXPECT_EQ(steps.all().substr(before), c.pushes) << c.pollsBeforeFirstBuild.size() << " polls";
    }
}

// isRunning() looks three times for a manager with neither a build running
// nor an inventory, warning each time it finds one.
TEST_F(LifecycleTest, IsRunningLooksThreeTimesBeforeGivingUp)
{
    vekScopedTimeScale fast(1000);
    lifecycle = lifecycleWith();
    vekLogTail idle(vekTestMainLogPath());
    EXPECT_TRUE(lifecycle->isRunning());
    EXPECT_FALSE(idle.contains("_cacheBuildInProgress"));

    vekBuildGate gate;
    gate.hold();
    std::thread build([&] {
        lifecycle->cacheBuild([&] {
            steps.record("collecting");
            gate.pass();
            return Inventory{record(1), record(1)};
        });
    });
    EXPECT_TRUE(steps.waitFor("collecting"));
    vekLogTail building(vekTestMainLogPath());
    EXPECT_FALSE(lifecycle->isRunning());
    gate.release();
    build.join();
    vekLogTail ready(vekTestMainLogPath());
    EXPECT_FALSE(lifecycle->isRunning());
    for (const std::string retry : {"0\n", "1\n", "2\n"}) {
        EXPECT_EQ(vekLevelOf(building.newText(), "TEST_RM: _cacheBuildInProgress = 1, HostInventory.size() =0,"
                                                 "retryCount =" + retry),
                  "WARNING");
        EXPECT_EQ(vekLevelOf(ready.newText(), "TEST_RM: _cacheBuildInProgress = 0, HostInventory.size() =2,"
                                              "retryCount =" + retry),
                  "WARNING");
    }
    EXPECT_FALSE(ready.contains("retryCount =3"));
}

} // namespace
