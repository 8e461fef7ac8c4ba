#include "vekJobManager.h"

#include "vekConfig.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// The job manager reads the configuration through setConfig() here: the
// process-wide configuration is read once in the test main, before any case
// (and before a death test's child reaches its statement), so a case cannot
// give it a vek.conf of its own.

namespace {

std::string configText(const std::string& enabled, const std::string& more = "")
{
    return "{ \"LoggingLevel\": \"Info\", \"EnableResources\": " + enabled + (more.empty() ? "" : ", " + more) + " }";
}

bool contains(const std::vector<int>& ids, int id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); }

class JobManagerTest : public vekRootTest {
protected:
    void TearDown() override
    {
        jobs.setFactory(nullptr);
        jobs.setConfig(nullptr);
    }

    // This case's configuration, for the job manager and its managers, with a
    // factory of test managers.
    std::shared_ptr<vekTestFactory> configure(const std::string& json)
    {
        root.writeConfig(json);
        auto config = std::make_shared<const vekConfig>();
        auto factory = std::make_shared<vekTestFactory>(config);
        jobs.setConfig(config);
        jobs.setFactory(factory);
        return factory;
    }

    vekJobManager& jobs = vekJobManager::getInstance();
    vekPlatformServices services;
};

TEST_F(JobManagerTest, OnlyEnabledResourcesGetAManagerAndAThread)
{
    // No crash is simulated for a value other than 6 and 11, nor for a
    // disabled manager.
    const struct {
        const char* enabled;
        std::vector<int> ids;
        std::vector<int> activated;
        const char* simulate;
    } cases[] = {
        {"[]", {1, 0, 2, 3, 4, 5}, {}, "11"},
        {"[\"All\"]", {}, {}, "0"},
        {"[\"HostOSInfo\", \"EthernetDevices\"]", {1, 0, 2, 3}, {1, 3}, "9"},
        {"[\"All\"]", {1, 0, 2, 3}, {1, 0, 2, 3}, "\"11\""},
        {"[\"StorageControllers\"]", {1, 0, 2, 3}, {2}, "0"},
        {"[\"hostosinfo\", \"Ethernet\"]", {1, 0, 2, 3}, {}, "0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.enabled);
        auto factory = configure(configText(c.enabled, std::string("\"SimulateUnhandledException\": ") + c.simulate));
        services.SetResourceManagerIds(c.ids);
        vekLogTail debug(vekTestDebugLogPath());
        vekLogTail main(vekTestMainLogPath());

        EXPECT_TRUE(jobs.startResourceManagers(services));
        for (int id : c.activated) {
            EXPECT_TRUE(factory->steps.waitFor("build-end 1 of " + std::to_string(id))) << factory->steps.all();
        }
        jobs.stopResourceManagers();

        // Each id of the list is looked at once, in list order; a stop knows
        // only the managers of the start before it.
        std::vector<std::string> decisions;
        const std::string debugText = debug.newText();
        for (int id : c.ids) {
            const std::string name = vekResourceIds::nameOf(id);
            const bool active = contains(c.activated, id);
            decisions.push_back("JOB_MGR: Resource manager " + name + " [" + std::to_string(id) + "] is " +
                                (active ? "ACTIVATED." : "disabled."));
            EXPECT_EQ(debugText.find("Creating thread for " + name) != std::string::npos, active) << name;
            EXPECT_EQ(debugText.find("Notify RM[" + std::to_string(id) + "] to close") != std::string::npos, active);
            EXPECT_EQ(factory->steps.has("shutdown " + std::to_string(id)), active);
            EXPECT_EQ(factory->steps.has("create " + std::to_string(id)), active);
        }
        EXPECT_TRUE(vekInOrder(debugText, decisions));
        const std::string mainText = main.newText();
        EXPECT_EQ(vekOccurrences(mainText, "RM completed Shutdown gracefully: [1]"), c.activated.size()) << mainText;
        EXPECT_TRUE(vekInOrder(mainText, {"JOB_MGR: Stopping all RMs\n", "JOB_MGR: VEK Exiting Gracefully!\n"}));
        EXPECT_EQ(vekLevelOf(mainText, "JOB_MGR: Stopping all RMs"), "INFO");
        EXPECT_EQ(vekLevelOf(mainText, "JOB_MGR: VEK Exiting Gracefully!"), "INFO");
        EXPECT_EQ(mainText.find("Simulating unhandled exception"), std::string::npos);
    }
}

TEST_F(JobManagerTest, ManagersStopInAscendingIdOrderOneAfterTheOther)
{
    auto factory = configure(configText("[\"All\"]"));
    services.SetResourceManagerIds({3, 1, 2});
    vekLogTail debug(vekTestDebugLogPath());

    jobs.startResourceManagers(services);
    for (const char* id : {"1", "2", "3"}) {
        EXPECT_TRUE(factory->steps.waitFor(std::string("build-end 1 of ") + id)) << factory->steps.all();
    }
    jobs.stopResourceManagers();

    auto& steps = factory->steps;
    EXPECT_LT(steps.indexOf("create 3"), steps.indexOf("create 1"));
    EXPECT_LT(steps.indexOf("create 1"), steps.indexOf("create 2"));
    // Each manager has finished before the next one is told.
    EXPECT_LT(steps.indexOf("stop 1"), steps.indexOf("shutdown 1"));
    EXPECT_LT(steps.indexOf("shutdown 1"), steps.indexOf("stop 2"));
    EXPECT_LT(steps.indexOf("shutdown 2"), steps.indexOf("stop 3"));
    EXPECT_GE(steps.indexOf("shutdown 3"), 0);
    EXPECT_TRUE(vekInOrder(debug.newText(), {"Notify RM[1] to close", "Thread join for: [1]", "Notify RM[2] to close",
                                          "Thread join for: [2]", "Notify RM[3] to close", "Thread join for: [3]"}));
}

TEST_F(JobManagerTest, OverrunningManagerTimesOutAndHoldsUpTheNext)
{
    // The 10 s stop wait becomes half a second: long enough for a loaded
    // machine to end an idle manager in time.
    vekScopedTimeScale fast(20);
    auto factory = configure(configText("[\"All\"]"));
    vekBuildGate slowBuild;
    slowBuild.hold();
    factory->gates[1] = &slowBuild;
    services.SetResourceManagerIds({1, 2});
    vekLogTail main(vekTestMainLogPath());

    jobs.startResourceManagers(services);
    auto& steps = factory->steps;
    EXPECT_TRUE(steps.waitFor("build-start 1 of 1"));
    EXPECT_TRUE(steps.waitFor("build-end 1 of 2"));
    std::atomic<bool> stopReturned{false};
    std::thread stopper([&] {
        jobs.stopResourceManagers();
        stopReturned = true;
    });
    // The wait for manager 1 gives up while its build still runs; the join
    // then holds everything until the build ends.
    const bool gaveUp = steps.waitFor("stopped outcome 0 1");
    EXPECT_FALSE(stopReturned);
    EXPECT_FALSE(steps.has("stop 2"));
    slowBuild.release();
    stopper.join();
    ASSERT_TRUE(gaveUp) << steps.all();

    EXPECT_LT(steps.indexOf("build-end 1 of 1"), steps.indexOf("shutdown 1"));
    EXPECT_FALSE(steps.has("build-start 2 of 1"));
    EXPECT_LT(steps.indexOf("shutdown 1"), steps.indexOf("stop 2"));
    EXPECT_TRUE(vekInOrder(main.newText(), {"TEST_RM: RM completed Shutdown gracefully: [0]",
                                         "TEST_RM: RM completed Shutdown gracefully: [1]",
                                         "JOB_MGR: VEK Exiting Gracefully!"}));
}

// A manager that cannot be made, because its creation fails or because the
// product's factory has none for the id (the Linux ids 99 and 8; 6 is never
// enabled), is logged and skipped; the others start and stop.
TEST_F(JobManagerTest, ManagerThatCannotBeMadeIsLoggedAndSkipped)
{
    const struct {
        const char* why;
        std::vector<int> ids;
        std::vector<int> skipped;
        bool creationThrows;
    } cases[] = {
        {"creation throws", {1, 2, 3}, {2}, true},
        {"no manager for the id", {6, 99, 8, 1, 3}, {99, 8}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        auto factory = configure(configText("[\"All\"]"));
        (c.creationThrows ? factory->failing : factory->fromProduct).insert(c.skipped.begin(), c.skipped.end());
        services.SetResourceManagerIds(c.ids);
        vekLogTail main(vekTestMainLogPath());
        vekLogTail debug(vekTestDebugLogPath());

        EXPECT_TRUE(jobs.startResourceManagers(services));
        EXPECT_TRUE(factory->steps.waitFor("build-end 1 of 1"));
        EXPECT_TRUE(factory->steps.waitFor("build-end 1 of 3"));
        jobs.stopResourceManagers();

        const std::string mainText = main.newText();
        for (int id : c.skipped) {
            const std::string error = "JOB_MGR: Error:unable to create thread for the RM " + std::to_string(id) + "\n";
            EXPECT_EQ(vekLevelOf(mainText, error), "ERROR") << mainText;
        }
        EXPECT_EQ(vekOccurrences(mainText, "RM completed Shutdown gracefully: [1]"), 2u) << mainText;
        const std::string debugText = debug.newText();
        EXPECT_TRUE(vekInOrder(debugText, {"Notify RM[1] to close", "Notify RM[3] to close"}));
        for (int id : c.skipped) {
            EXPECT_EQ(debugText.find("Notify RM[" + std::to_string(id) + "]"), std::string::npos) << id;
            EXPECT_EQ(debugText.find("Creating thread for " + vekResourceIds::nameOf(id)), std::string::npos) << id;
        }
    }
}

TEST_F(JobManagerTest, UnknownIdRaisesMapAt)
{
    configure(configText("[\"All\"]"));
    services.SetResourceManagerIds({7});
    try {
        jobs.startResourceManagers(services);
        FAIL() << "an id without a name was accepted";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "map::at");
    }
}

using JobManagerDeathTest = JobManagerTest;

// The process ends after the first manager's thread has started; the second
// is never made. Let out of a frame that lets nothing pass, as the service's
// control thread does, the simulated abort is an exception nobody catches.
TEST_F(JobManagerDeathTest, SimulatedCrashesEndTheProcessAfterTheFirstManager)
{
    services.SetResourceManagerIds({1, 3});
    for (const int simulated : {SIGSEGV, SIGABRT}) {
        auto factory = configure(configText("[\"All\"]", "\"SimulateUnhandledException\": " + std::to_string(simulated)));
        factory->echoToStderr = true;
        factory->endsTheProcess = {3};
        if (simulated == SIGSEGV) {
            EXPECT_DEATH(jobs.startResourceManagers(services), "createInstance\\(1\\)");
        } else {
            EXPECT_EXIT([&]() noexcept { jobs.startResourceManagers(services); }(), ::testing::KilledBySignal(SIGABRT),
                        "createInstance\\(1\\).*std::invalid_argument");
        }
    }
}

} // namespace
