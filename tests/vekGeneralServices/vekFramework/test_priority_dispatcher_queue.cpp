#include "vekPriorityDispatcherQueue.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

typedef vekPriorityDispatcherQueue PQ;

// Upper bound for anything a worker should do promptly; only reached on failure.
const std::chrono::seconds kPatience(30);

// Held shut by the test to keep a worker inside a task.
class Gate {
public:
    void open()
    {
        std::lock_guard<std::mutex> guard(mutex_);
        open_ = true;
        cv_.notify_all();
    }
    bool wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return cv_.wait_for(lock, kPatience, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    bool open_ = false;
};

// What the tasks did, in the order they did it.
class Journal {
public:
    void record(const std::string& what)
    {
        std::lock_guard<std::mutex> guard(mutex_);
        entries_.push_back(what);
        cv_.notify_all();
    }
    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return cv_.wait_for(lock, kPatience, [&] { return entries_.size() >= count; });
    }
    std::vector<std::string> entries()
    {
        std::lock_guard<std::mutex> guard(mutex_);
        return entries_;
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<std::string> entries_;
};

// The messages logged under the queue's tag, in order, that begin with prefix.
std::vector<std::string> queueMessages(const std::string& log, const std::string& prefix)
{
    const std::string marker = " P_DISPATCH_Q: ";
    std::vector<std::string> found;
    std::istringstream lines(log);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t at = line.find(marker);
        if (at == std::string::npos) {
            continue;
        }
        const std::string message = line.substr(at + marker.size());
        if (message.compare(0, prefix.size(), prefix) == 0) {
            found.push_back(message);
        }
    }
    return found;
}

// The destructor has no other outward sign that it has raised the quit flag
// than the line it logs right after.
bool waitForLogLine(const vekLogTail& tail, const std::string& text)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!tail.contains(text)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace

TEST(PriorityDispatcherQueue, WaitingTrafficGoesOutEventsFirstThenInventoryThenUtilization)
{
    vekLogTail mainLog(vekTestMainLogPath());
    vekLogTail debugLog(vekTestDebugLogPath());
    Journal journal;
    Gate started;
    Gate release;
    {
        PQ queue("VEK - IPMI Dispatch Queue", 1);
        queue.dispatch(
            [&] {
                started.open();
                release.wait();
                journal.record("telemetry");
            },
            PQ::VEK_PRIORITY_APP_TELEMETRY);
        ASSERT_TRUE(started.wait());
        queue.dispatch([&] { journal.record("utilization"); }, PQ::VEK_PRIORITY_UTILIZATION);
        queue.dispatch([&] { journal.record("event"); }, PQ::VEK_PRIORITY_EVENT);
        queue.dispatch([&] { journal.record("inventory"); }, PQ::VEK_PRIORITY_INVENTORY);
        release.open();
        ASSERT_TRUE(journal.waitForCount(4));
    }
    EXPECT_EQ((std::vector<std::string>{"telemetry", "event", "inventory", "utilization"}), journal.entries());

    const std::string info = mainLog.newText();
    EXPECT_NE(std::string::npos, info.find("P_DISPATCH_Q: Creating dispatch queue: VEK - IPMI Dispatch Queue"));
    EXPECT_NE(std::string::npos, info.find("P_DISPATCH_Q: Dispatch threads: 1"));

    const std::string debug = debugLog.newText();
    EXPECT_EQ(4u, queueMessages(debug, "Added to queue and notified").size());
    EXPECT_EQ((std::vector<std::string>{"Popped a task from queue. Size: 0", "Popped a task from queue. Size: 2",
                                        "Popped a task from queue. Size: 1", "Popped a task from queue. Size: 0"}),
              queueMessages(debug, "Popped a task"));
    EXPECT_EQ((std::vector<std::string>{"Task execution completed. Size: 3", "Task execution completed. Size: 2",
                                        "Task execution completed. Size: 1", "Task execution completed. Size: 0"}),
              queueMessages(debug, "Task execution completed"));
}

TEST(PriorityDispatcherQueue, EveryTaskRunsOnceAndNeverBeforeAWaitingHigherOne)
{
    Journal journal;
    Gate started;
    Gate release;
    // Many of each priority, queued interleaved, so the heap has ties to sort.
    const int priorities[] = {1, 3, 0, 2, 2, 3, 1, 0, 3, 3, 2, 1, 0, 0, 1, 2, 3, 1, 2, 0, 3, 2, 1, 0};
    const size_t count = sizeof(priorities) / sizeof(priorities[0]);
    {
        PQ queue("Tie Q", 1);
        queue.dispatch(
            [&] {
                started.open();
                release.wait();
            },
            PQ::VEK_PRIORITY_EVENT);
        ASSERT_TRUE(started.wait());
        for (size_t i = 0; i < count; ++i) {
            const std::string name = std::to_string(priorities[i]) + "#" + std::to_string(i);
            queue.dispatch([&journal, name] { journal.record(name); }, priorities[i]);
        }
        release.open();
        ASSERT_TRUE(journal.waitForCount(count));
    }
    const std::vector<std::string> ran = journal.entries();
    ASSERT_EQ(count, ran.size());
    std::vector<bool> seen(count, false);
    for (size_t k = 0; k < ran.size(); ++k) {
        const size_t index = std::stoul(ran[k].substr(ran[k].find('#') + 1));
        EXPECT_FALSE(seen[index]) << ran[k] << " ran twice";
        seen[index] = true;
        if (k > 0) {
            EXPECT_GE(ran[k - 1][0], ran[k][0]) << ran[k - 1] << " before " << ran[k];
        }
    }
}

TEST(PriorityDispatcherQueue, CleanupThrowsAwayWaitingTasksAndTheWorkerGoesOn)
{
    vekLogTail mainLog(vekTestMainLogPath());
    Journal journal;
    Gate started;
    Gate release;
    auto token = std::make_shared<int>(0);
    std::atomic<int> droppedRan(0);
    {
        PQ queue("Cleanup Q", 1);
        queue.dispatch(
            [&] {
                started.open();
                release.wait();
                journal.record("running");
            },
            PQ::VEK_PRIORITY_INVENTORY);
        ASSERT_TRUE(started.wait());
        for (int priority = 0; priority < 5; ++priority) {
            queue.dispatch([&droppedRan, token] { ++droppedRan; }, priority % 4);
        }
        EXPECT_FALSE(queue.isEmpty());

        queue.cleanup();

        EXPECT_TRUE(queue.isEmpty());
        EXPECT_EQ(1, token.use_count()) << "dropped tasks must be destroyed, not kept";
        release.open();
        queue.dispatch([&] { journal.record("later event"); }, PQ::VEK_PRIORITY_EVENT);
        ASSERT_TRUE(journal.waitForCount(2));
    }
    EXPECT_EQ((std::vector<std::string>{"running", "later event"}), journal.entries());
    EXPECT_EQ(0, droppedRan.load());
    const std::string info = mainLog.newText();
    EXPECT_EQ(1u, queueMessages(info, "Cleanup_Received: QSize [5]").size());
    EXPECT_EQ(1u, queueMessages(info, "Q Cleaned_up: QSize [0]").size());
}

TEST(PriorityDispatcherQueue, DestructionFinishesTheRunningTaskAndDiscardsTheRest)
{
    vekLogTail mainLog(vekTestMainLogPath());
    Gate started;
    Gate release;
    std::atomic<bool> finished(false);
    std::atomic<int> leftoversRun(0);
    auto token = std::make_shared<int>(0);

    auto queue = std::make_unique<PQ>("Busy Q", 1);
    queue->dispatch(
        [&] {
            started.open();
            release.wait();
            finished = true;
        },
        PQ::VEK_PRIORITY_APP_TELEMETRY);
    ASSERT_TRUE(started.wait());
    for (int priority = 3; priority >= 0; --priority) {
        queue->dispatch([&leftoversRun, token] { ++leftoversRun; }, priority);
    }

    std::thread destroyer([&] { queue.reset(); });
    ASSERT_TRUE(waitForLogLine(mainLog, "Destructor: Joining thread 0 until completion"));
    release.open();
    destroyer.join();

    EXPECT_TRUE(finished);
    EXPECT_EQ(0, leftoversRun.load());
    EXPECT_EQ(1, token.use_count()) << "discarded tasks must be destroyed with the queue";
    EXPECT_EQ(1u, queueMessages(mainLog.newText(), "Destructor: Destroying dispatch threads...").size());
}

TEST(PriorityDispatcherQueue, ZeroThreadQueueTakesWorkAndRunsNone)
{
    vekLogTail mainLog(vekTestMainLogPath());
    std::atomic<int> ran(0);
    auto token = std::make_shared<int>(0);
    {
        PQ queue("Idle Q", 0);
        EXPECT_TRUE(queue.isEmpty());
        for (int priority = 0; priority < 4; ++priority) {
            queue.dispatch([&ran, token] { ++ran; }, priority);
        }
        EXPECT_FALSE(queue.isEmpty());
    }
    EXPECT_EQ(0, ran.load());
    EXPECT_EQ(1, token.use_count());
    const std::string info = mainLog.newText();
    EXPECT_EQ(1u, queueMessages(info, "Dispatch threads: 0").size());
    EXPECT_EQ(1u, queueMessages(info, "Destructor: Destroying dispatch threads...").size());
    EXPECT_TRUE(queueMessages(info, "Destructor: Joining thread").empty());
}

TEST(PriorityDispatcherQueue, WorkersRunTasksSideBySide)
{
    const int workers = 2;
    std::mutex mutex;
    std::condition_variable cv;
    int arrived = 0;
    int finished = 0;
    std::atomic<int> sawEveryone(0);
    {
        PQ queue("Wide Q", workers);
        // Each task waits until all of them are inside: possible only when
        // every worker holds one at the same time.
        for (int i = 0; i < workers; ++i) {
            queue.dispatch(
                [&] {
                    std::unique_lock<std::mutex> lock(mutex);
                    ++arrived;
                    cv.notify_all();
                    if (cv.wait_for(lock, kPatience, [&] { return arrived == workers; })) {
                        ++sawEveryone;
                    }
                    ++finished;
                    cv.notify_all();
                },
                PQ::VEK_PRIORITY_EVENT);
        }
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, kPatience, [&] { return finished == workers; }));
    }
    EXPECT_EQ(workers, sawEveryone.load());
}
