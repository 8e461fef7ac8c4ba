#include "vekJobManager.h"

#include "vekConfig.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

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

// Positions of the lines in the text, -1 for a missing one.
std::vector<long> positionsOf(const std::string& text, const std::vector<std::string>& lines)
{
    std::vector<long> positions;
    for (const auto& line : lines) {
        const size_t at = text.find(line);
        positions.push_back(at == std::string::npos ? -1 : static_cast<long>(at));
    }
    return positions;
}

::testing::AssertionResult inOrder(const std::string& text, const std::vector<std::string>& lines)
{
    const std::vector<long> positions = positionsOf(text, lines);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (positions[i] < 0) {
            return ::testing::AssertionFailure() << "missing \"" << lines[i] << "\" in:\n" << text;
        }
        if (i > 0 && positions[i] < positions[i - 1]) {
            return ::testing::AssertionFailure() << "\"" << lines[i] << "\" comes before \"" << lines[i - 1]
                                                 << "\" in:\n"
                                                 << text;
        }
    }
    return ::testing::AssertionSuccess();
}

// A configuration with the given EnableResources and further members.
std::string configText(const std::string& enabled, const std::string& more = "")
{
    return "{ \"LoggingLevel\": \"Info\", \"EnableResources\": " + enabled + (more.empty() ? "" : ", " + more) +
           " }";
}

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

TEST_F(JobManagerTest, AllResourcesDisabledStartsNothing)
{
    auto factory = configure(configText("[]"));
    services.SetResourceManagerIds({1, 0, 2, 3, 4, 5});
    vekLogTail debug(vekTestDebugLogPath());
    vekLogTail main(vekTestMainLogPath());

    EXPECT_TRUE(jobs.startResourceManagers(services));
    jobs.stopResourceManagers();

    EXPECT_TRUE(inOrder(debug.newText(), {"JOB_MGR: Resource manager HostOSInfo [1] is disabled.",
                                          "Resource manager FibreChannelDevices [0] is disabled.",
                                          "Resource manager StorageControllers [2] is disabled.",
                                          "Resource manager EthernetDevices [3] is disabled.",
                                          "Resource manager NVMeControllers [4] is disabled.",
                                          "Resource manager GPUDevices [5] is disabled."}));
    EXPECT_FALSE(debug.contains("ACTIVATED"));
    EXPECT_FALSE(debug.contains("Notify RM["));
    EXPECT_TRUE(inOrder(main.newText(), {"[INFO]", "JOB_MGR: Stopping all RMs", "JOB_MGR: VEK Exiting Gracefully!"}));
    EXPECT_EQ(factory->steps.all(), "");
}

TEST_F(JobManagerTest, EmptyIdListReturnsAtOnce)
{
    auto factory = configure(configText("[\"All\"]"));
    vekLogTail debug(vekTestDebugLogPath());

    EXPECT_TRUE(jobs.startResourceManagers(services));
    jobs.stopResourceManagers();

    EXPECT_FALSE(debug.contains("Resource manager"));
    EXPECT_EQ(factory->steps.all(), "");
}

TEST_F(JobManagerTest, OnlyEnabledResourcesGetAManagerAndAThread)
{
    const struct {
        const char* enabled;
        std::vector<int> activated;
        std::vector<int> disabled;
    } cases[] = {
        {"[\"HostOSInfo\", \"EthernetDevices\"]", {1, 3}, {0, 2}},
        {"[\"All\"]", {1, 0, 2, 3}, {}},
        {"[\"StorageControllers\"]", {2}, {1, 0, 3}},
        {"[\"hostosinfo\", \"Ethernet\"]", {}, {1, 0, 2, 3}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.enabled);
        auto factory = configure(configText(c.enabled));
        services.SetResourceManagerIds({1, 0, 2, 3});
        vekLogTail debug(vekTestDebugLogPath());
        vekLogTail main(vekTestMainLogPath());

        EXPECT_TRUE(jobs.startResourceManagers(services));
        for (int id : c.activated) {
            EXPECT_TRUE(factory->steps.waitFor("build-end 1 of " + std::to_string(id))) << factory->steps.all();
        }
        jobs.stopResourceManagers();

        const std::string debugText = debug.newText();
        for (int id : c.activated) {
            const std::string name = vekResourceIds::nameOf(id);
            const std::string tag = " [" + std::to_string(id) + "]";
            EXPECT_NE(debugText.find("Resource manager " + name + tag + " is ACTIVATED."), std::string::npos)
                << debugText;
            EXPECT_NE(debugText.find("Creating thread for " + name), std::string::npos) << debugText;
            EXPECT_NE(debugText.find("Notify RM[" + std::to_string(id) + "] to close"), std::string::npos);
            EXPECT_TRUE(factory->steps.has("shutdown " + std::to_string(id)));
        }
        for (int id : c.disabled) {
            const std::string line = "Resource manager " + vekResourceIds::nameOf(id) + " [" + std::to_string(id) +
                                     "] is disabled.";
            EXPECT_NE(debugText.find(line), std::string::npos) << debugText;
            EXPECT_FALSE(factory->steps.has("create " + std::to_string(id)));
        }
        const std::string mainText = main.newText();
        size_t graceful = 0;
        for (size_t at = mainText.find("RM completed Shutdown gracefully: [1]"); at != std::string::npos;
             at = mainText.find("RM completed Shutdown gracefully: [1]", at + 1)) {
            ++graceful;
        }
        EXPECT_EQ(graceful, c.activated.size()) << mainText;
    }
}

TEST_F(JobManagerTest, ManagersStopInAscendingIdOrderOneAfterTheOther)
{
    auto factory = configure(configText("[\"All\"]"));
    services.SetResourceManagerIds({3, 1, 2});
    vekLogTail debug(vekTestDebugLogPath());

    jobs.startResourceManagers(services);
    for (const char* id : {"1", "2", "3"}) {
        ASSERT_TRUE(factory->steps.waitFor(std::string("build-end 1 of ") + id)) << factory->steps.all();
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
    EXPECT_TRUE(inOrder(debug.newText(),
                        {"Notify RM[1] to close", "Thread join for: [1]", "Notify RM[2] to close",
                         "Thread join for: [2]", "Notify RM[3] to close", "Thread join for: [3]"}));
}

TEST_F(JobManagerTest, OverrunningManagerTimesOutAndHoldsUpTheNext)
{
    vekScopedTimeScale fast(100);
    auto factory = configure(configText("[\"All\"]"));
    vekBuildGate slowBuild;
    slowBuild.hold();
    factory->gates[1] = &slowBuild;
    services.SetResourceManagerIds({1, 2});
    vekLogTail main(vekTestMainLogPath());

    jobs.startResourceManagers(services);
    auto& steps = factory->steps;
    ASSERT_TRUE(steps.waitFor("build-start 1 of 1"));

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

    EXPECT_LT(steps.indexOf("stopped outcome 0 1"), steps.indexOf("build-end 1 of 1"));
    EXPECT_LT(steps.indexOf("build-end 1 of 1"), steps.indexOf("shutdown 1"));
    EXPECT_LT(steps.indexOf("shutdown 1"), steps.indexOf("stop 2"));
    EXPECT_FALSE(steps.has("build-start 2 of 1"));
    EXPECT_TRUE(inOrder(main.newText(), {"TEST_RM: RM completed Shutdown gracefully: [0]",
                                         "TEST_RM: RM completed Shutdown gracefully: [1]",
                                         "JOB_MGR: VEK Exiting Gracefully!"}));
}

TEST_F(JobManagerTest, ManagerThatCannotBeCreatedIsSkipped)
{
    auto factory = configure(configText("[\"All\"]"));
    factory->failing.insert(2);
    services.SetResourceManagerIds({1, 2, 3});
    vekLogTail main(vekTestMainLogPath());
    vekLogTail debug(vekTestDebugLogPath());

    EXPECT_TRUE(jobs.startResourceManagers(services));
    ASSERT_TRUE(factory->steps.waitFor("build-end 1 of 1"));
    ASSERT_TRUE(factory->steps.waitFor("build-end 1 of 3"));
    jobs.stopResourceManagers();

    EXPECT_TRUE(inOrder(main.newText(), {"[ERROR]", "JOB_MGR: Error:unable to create thread for the RM 2"}));
    const std::string debugText = debug.newText();
    EXPECT_TRUE(inOrder(debugText, {"Notify RM[1] to close", "Notify RM[3] to close"}));
    EXPECT_EQ(debugText.find("Notify RM[2]"), std::string::npos);
    EXPECT_EQ(debugText.find("Creating thread for StorageControllers"), std::string::npos);
}

TEST_F(JobManagerTest, SecondStartAfterStopRunsManagersAgain)
{
    auto first = configure(configText("[\"All\"]"));
    services.SetResourceManagerIds({1, 5});
    jobs.startResourceManagers(services);
    ASSERT_TRUE(first->steps.waitFor("build-end 1 of 5"));
    jobs.stopResourceManagers();

    auto second = configure(configText("[\"GPUDevices\"]"));
    vekLogTail debug(vekTestDebugLogPath());
    jobs.startResourceManagers(services);
    ASSERT_TRUE(second->steps.waitFor("build-end 1 of 5"));
    jobs.stopResourceManagers();

    EXPECT_FALSE(second->steps.has("create 1"));
    EXPECT_TRUE(second->steps.has("shutdown 5"));
    const std::string debugText = debug.newText();
    EXPECT_EQ(debugText.find("Notify RM[1]"), std::string::npos) << "the first run's managers are forgotten";
    EXPECT_NE(debugText.find("Notify RM[5] to close"), std::string::npos);
}

TEST_F(JobManagerTest, UnknownIdInTheListRaisesMapAt)
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

TEST(ResourceIdsTest, NamesOfKnownIdsAndMapAtForOthers)
{
    EXPECT_EQ(vekResourceIds::table().size(), 16u);
    EXPECT_EQ(vekResourceIds::nameOf(8), "StorageControllers (RSRM)");
    EXPECT_EQ(vekResourceIds::nameOf(99), "Utilization");
    EXPECT_EQ(vekResourceIds::table().rbegin()->second, "NvdimmTelemetry");
    for (int id : {-1, 7, 9, 98, 107}) {
        try {
            vekResourceIds::nameOf(id);
            ADD_FAILURE() << "id " << id << " has a name";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "map::at") << id;
        }
    }
}

// Matches a death test's stderr that holds every wanted text and none of the
// unwanted ones.
class StderrMatcher : public ::testing::MatcherInterface<const std::string&> {
public:
    StderrMatcher(std::vector<std::string> wanted, std::vector<std::string> unwanted)
        : wanted_(std::move(wanted)), unwanted_(std::move(unwanted))
    {
    }
    bool MatchAndExplain(const std::string& text, ::testing::MatchResultListener* listener) const override
    {
        for (const auto& w : wanted_) {
            if (text.find(w) == std::string::npos) {
                *listener << "lacks \"" << w << "\"";
                return false;
            }
        }
        for (const auto& u : unwanted_) {
            if (text.find(u) != std::string::npos) {
                *listener << "holds \"" << u << "\"";
                return false;
            }
        }
        return true;
    }
    void DescribeTo(std::ostream* os) const override { *os << "stderr of the crashed start"; }

private:
    std::vector<std::string> wanted_;
    std::vector<std::string> unwanted_;
};

::testing::Matcher<const std::string&> stderrWith(std::vector<std::string> wanted,
                                                  std::vector<std::string> unwanted = {})
{
    return ::testing::MakeMatcher(new StderrMatcher(std::move(wanted), std::move(unwanted)));
}

using JobManagerDeathTest = JobManagerTest;

TEST_F(JobManagerDeathTest, SimulatedSegmentationFaultAfterTheFirstManager)
{
    auto factory = configure(configText("[\"All\"]", "\"SimulateUnhandledException\": 11"));
    factory->echoToStderr = true;
    services.SetResourceManagerIds({1, 3});

    EXPECT_DEATH(jobs.startResourceManagers(services), stderrWith({"createInstance(1)"}, {"createInstance(3)"}));
}

TEST_F(JobManagerDeathTest, SimulatedAbortIsAnExceptionNobodyCatches)
{
    auto factory = configure(configText("[\"All\"]", "\"SimulateUnhandledException\": 6"));
    factory->echoToStderr = true;
    services.SetResourceManagerIds({1, 3});

    // Called from a frame that lets nothing pass, as the service's control
    // thread does: the exception ends the process.
    EXPECT_EXIT([&]() noexcept { jobs.startResourceManagers(services); }(), ::testing::KilledBySignal(SIGABRT),
                stderrWith({"createInstance(1)", "std::invalid_argument"}, {"createInstance(3)"}));
}

TEST_F(JobManagerTest, OtherSimulationValuesAndDisabledManagersDoNotCrash)
{
    const struct {
        const char* enabled;
        const char* simulate;
    } cases[] = {
        {"[\"All\"]", "\"SimulateUnhandledException\": 9"},
        {"[\"All\"]", "\"SimulateUnhandledException\": \"11\""},
        {"[]", "\"SimulateUnhandledException\": 11"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.simulate);
        auto factory = configure(configText(c.enabled, c.simulate));
        services.SetResourceManagerIds({1});
        vekLogTail main(vekTestMainLogPath());
        EXPECT_TRUE(jobs.startResourceManagers(services));
        jobs.stopResourceManagers();
        EXPECT_FALSE(main.contains("Simulating unhandled exception"));
    }
}

} // namespace
