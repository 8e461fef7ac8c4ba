// The plain FIFO queue and the priority queue of the RMC traffic: what they
// share is tested on both, what differs on each.

#include "dispatch_queue.h"
#include "vekPriorityDispatcherQueue.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

typedef vekPriorityDispatcherQueue PQ;

void send(dispatch_queue& queue, std::function<void()> task, int = 0) { queue.dispatch(std::move(task)); }
void send(PQ& queue, std::function<void()> task, int priority = PQ::VEK_PRIORITY_EVENT)
{
    queue.dispatch(std::move(task), priority);
}

// A task that records its start, waits at the gate and records its end.
std::function<void()> held(vekTestSteps& steps, vekBuildGate& gate, const std::string& name)
{
    gate.hold();
    return [&steps, &gate, name] {
        steps.record("started " + name);
        gate.pass();
        steps.record(name);
    };
}

template <class Queue>
class BothQueues : public ::testing::Test {
};
using QueueTypes = ::testing::Types<dispatch_queue, PQ>;
TYPED_TEST_SUITE(BothQueues, QueueTypes);

TYPED_TEST(BothQueues, WorkersRunTasksSideBySide)
{
    vekLogTail mainLog(vekTestMainLogPath());
    vekTestSteps steps;
    {
        TypeParam queue("Wide Q", 2);
        // Each task waits for the other: possible only when both workers hold
        // one at the same time.
        for (const std::string name : {"a", "b"}) {
            send(queue, [&steps, name] {
                steps.record(name);
                if (steps.waitFor(name == "a" ? "b" : "a")) {
                    steps.record(name + " saw the other");
                }
            });
        }
        EXPECT_TRUE(steps.waitForCount(4)) << steps.all();
    }
    EXPECT_TRUE(steps.has("a saw the other") && steps.has("b saw the other")) << steps.all();
    const std::string log = mainLog.newText();
    EXPECT_EQ(1u, vekOccurrences(log, "DISPATCH_Q: Creating dispatch queue [Wide Q] with [2] threads.") +
                      vekOccurrences(log, "P_DISPATCH_Q: Creating dispatch queue: Wide Q"));
    EXPECT_EQ(1u, vekOccurrences(log, "Destructor: Joining thread 1 until completion")) << log;
}

// Destruction and shutdown() alike: the running task ends, the rest are
// destroyed unrun.
TYPED_TEST(BothQueues, StoppingFinishesTheRunningTaskAndDiscardsTheRest)
{
    for (const bool byShutdown : {false, true}) {
        SCOPED_TRACE(byShutdown ? "shutdown" : "destructor");
        vekLogTail mainLog(vekTestMainLogPath());
        vekTestSteps steps;
        vekBuildGate gate;
        auto token = std::make_shared<int>(0);
        auto queue = std::make_unique<TypeParam>("Busy Q", 1);
        send(*queue, held(steps, gate, "running"), PQ::VEK_PRIORITY_APP_TELEMETRY);
        EXPECT_TRUE(steps.waitFor("started running"));
        for (int priority = 3; priority >= 0; --priority) {
            send(*queue, [&steps, token] { steps.record("leftover"); }, priority);
        }
        std::thread destroyer;
        if (byShutdown) {
            queue->shutdown();
        } else {
            destroyer = std::thread([&] { queue.reset(); });
            // The quit flag is up once the destructor logs this.
            vekEventually([&] { return mainLog.contains("Destructor: Joining thread 0"); }, kVekTestPatience);
        }
        gate.release();
        EXPECT_TRUE(steps.waitFor("running"));
        if (destroyer.joinable()) {
            destroyer.join();
        }
        queue.reset();
        EXPECT_EQ(steps.all(), "started running\nrunning\n");
        EXPECT_EQ(1, token.use_count()) << "discarded tasks must be destroyed with the queue";
        EXPECT_TRUE(mainLog.contains("Destructor: Destroying dispatch threads..."));
    }
}

TYPED_TEST(BothQueues, ZeroThreadQueueTakesWorkAndRunsNone)
{
    vekLogTail mainLog(vekTestMainLogPath());
    vekTestSteps steps;
    auto token = std::make_shared<int>(0);
    {
        TypeParam queue("Idle Q", 0);
        for (int priority = 0; priority < 4; ++priority) {
            send(queue, [&steps, token] { steps.record("ran"); }, priority);
        }
        EXPECT_EQ(5, token.use_count());
    }
    EXPECT_EQ(steps.all(), "");
    EXPECT_EQ(1, token.use_count());
    EXPECT_TRUE(mainLog.contains("Destructor: Destroying dispatch threads..."));
    EXPECT_FALSE(mainLog.contains("Destructor: Joining thread"));
}

TEST(DispatchQueue, RunsTasksInArrivalOrder)
{
    vekTestSteps steps;
    std::string expected;
    {
        dispatch_queue queue("NIC Event Q", 1);
        for (int i = 0; i < 40; ++i) {
            const dispatch_queue::fp_t task = [&steps, i] { steps.record(std::to_string(i)); };
            i % 2 == 0 ? queue.dispatch(task) : queue.dispatch(dispatch_queue::fp_t(task));
            expected += std::to_string(i) + "\n";
        }
        EXPECT_TRUE(steps.waitForCount(40));
    }
    EXPECT_EQ(steps.all(), expected);
}

// While the one worker sends application telemetry, traffic of all kinds
// queues up interleaved: it leaves events first, then inventory, then
// utilization, then telemetry, each task once; the telemetry under way is
// not interrupted.
TEST(PriorityDispatcherQueue, WaitingTrafficLeavesInOrderOfImportance)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    const int priorities[] = {1, 3, 0, 2, 2, 3, 1, 0, 3, 3, 2, 1, 0, 0, 1, 2, 3, 1, 2, 0, 3, 2, 1, 0};
    const size_t count = sizeof(priorities) / sizeof(priorities[0]);
    vekTestSteps steps;
    vekBuildGate gate;
    {
        PQ queue("VEK - IPMI Dispatch Queue", 1);
        queue.dispatch(held(steps, gate, "telemetry under way"), PQ::VEK_PRIORITY_APP_TELEMETRY);
        EXPECT_TRUE(steps.waitForCount(1));
        for (size_t i = 0; i < count; ++i) {
            const std::string name = std::to_string(priorities[i]) + "#" + std::to_string(i);
            queue.dispatch([&steps, name] { steps.record(name); }, priorities[i]);
        }
        gate.release();
        EXPECT_TRUE(steps.waitForCount(count + 2));
    }
    const std::vector<std::string> ran = steps.list();
    ASSERT_EQ(ran.size(), count + 2);
    EXPECT_EQ(ran[1], "telemetry under way");
    std::vector<bool> seen(count, false);
    for (size_t k = 2; k < ran.size(); ++k) {
        const size_t index = std::stoul(ran[k].substr(ran[k].find('#') + 1));
        EXPECT_FALSE(seen[index]) << ran[k] << " ran twice";
        seen[index] = true;
        EXPECT_TRUE(k == 2 || ran[k - 1][0] >= ran[k][0]) << ran[k - 1] << " before " << ran[k];
    }
    // The worker's lines: telemetry left nothing waiting when it was taken and
    // everything when it was done.
    EXPECT_TRUE(vekInOrder(debugLog.newText(), {"P_DISPATCH_Q: Popped a task from queue. Size: 0\n",
                                                "Task execution completed. Size: " + std::to_string(count) + "\n"}));
}

TEST(PriorityDispatcherQueue, CleanupThrowsAwayWaitingTasksAndTheWorkerGoesOn)
{
    vekLogTail mainLog(vekTestMainLogPath());
    vekTestSteps steps;
    vekBuildGate gate;
    auto token = std::make_shared<int>(0);
    {
        PQ queue("Cleanup Q", 1);
        queue.dispatch(held(steps, gate, "running"), PQ::VEK_PRIORITY_INVENTORY);
        EXPECT_TRUE(steps.waitFor("started running"));
        for (int priority = 0; priority < 5; ++priority) {
            queue.dispatch([&steps, token] { steps.record("dropped"); }, priority % 4);
        }
        queue.cleanup();
        EXPECT_TRUE(queue.isEmpty());
        EXPECT_EQ(1, token.use_count()) << "dropped tasks must be destroyed, not kept";
        gate.release();
        queue.dispatch([&] { steps.record("later event"); }, PQ::VEK_PRIORITY_EVENT);
        EXPECT_TRUE(steps.waitFor("later event"));
    }
    EXPECT_EQ(steps.all(), "started running\nrunning\nlater event\n");
    EXPECT_TRUE(vekInOrder(mainLog.newText(), {"P_DISPATCH_Q: Cleanup_Received: QSize [5]\n",
                                               "P_DISPATCH_Q: Q Cleaned_up: QSize [0]\n"}));
}

} // namespace
