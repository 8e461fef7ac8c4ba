#include "dispatch_queue.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

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
    void record(int what)
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
    std::vector<int> entries()
    {
        std::lock_guard<std::mutex> guard(mutex_);
        return entries_;
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<int> entries_;
};

size_t occurrences(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++count;
    }
    return count;
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

TEST(DispatchQueue, RunsTasksInArrivalOrder)
{
    vekLogTail mainLog(vekTestMainLogPath());
    Journal journal;
    {
        dispatch_queue queue("NIC Event Q", 1);
        for (int i = 0; i < 40; ++i) {
            if (i % 2 == 0) {
                const dispatch_queue::fp_t task = [&journal, i] { journal.record(i); };
                queue.dispatch(task);
            } else {
                queue.dispatch([&journal, i] { journal.record(i); });
            }
        }
        ASSERT_TRUE(journal.waitForCount(40));
    }
    std::vector<int> expected;
    for (int i = 0; i < 40; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(expected, journal.entries());
    const std::string log = mainLog.newText();
    EXPECT_NE(std::string::npos, log.find("DISPATCH_Q: Creating dispatch queue [NIC Event Q] with [1] threads."));
    EXPECT_NE(std::string::npos, log.find("DISPATCH_Q: Destructor: Joining thread 0 until completion"));
}

TEST(DispatchQueue, WorkersRunTasksSideBySide)
{
    vekLogTail mainLog(vekTestMainLogPath());
    const int workers = 3;
    std::mutex mutex;
    std::condition_variable cv;
    int arrived = 0;
    int finished = 0;
    std::atomic<int> sawEveryone(0);
    {
        dispatch_queue queue("Wide Q", workers);
        // Each task waits until all of them are inside: possible only when
        // every worker holds one at the same time.
        for (int i = 0; i < workers; ++i) {
            queue.dispatch([&] {
                std::unique_lock<std::mutex> lock(mutex);
                ++arrived;
                cv.notify_all();
                if (cv.wait_for(lock, kPatience, [&] { return arrived == workers; })) {
                    ++sawEveryone;
                }
                ++finished;
                cv.notify_all();
            });
        }
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, kPatience, [&] { return finished == workers; }));
    }
    EXPECT_EQ(workers, sawEveryone.load());
    const std::string log = mainLog.newText();
    EXPECT_NE(std::string::npos, log.find("Creating dispatch queue [Wide Q] with [3] threads."));
    for (const char* line : {"Destructor: Joining thread 0 until completion",
                             "Destructor: Joining thread 1 until completion",
                             "Destructor: Joining thread 2 until completion"}) {
        EXPECT_NE(std::string::npos, log.find(line)) << line;
    }
}

TEST(DispatchQueue, DestructionFinishesTheRunningTaskAndDiscardsTheRest)
{
    vekLogTail mainLog(vekTestMainLogPath());
    vekLogTail debugLog(vekTestDebugLogPath());
    Gate started;
    Gate release;
    std::atomic<bool> finished(false);
    std::atomic<int> leftoversRun(0);
    auto token = std::make_shared<int>(0);

    auto queue = std::make_unique<dispatch_queue>("Busy Q", 1);
    queue->dispatch([&] {
        started.open();
        release.wait();
        finished = true;
    });
    ASSERT_TRUE(started.wait());
    for (int i = 0; i < 3; ++i) {
        queue->dispatch([&leftoversRun, token] { ++leftoversRun; });
    }
    EXPECT_EQ(4, token.use_count());

    std::thread destroyer([&] { queue.reset(); });
    ASSERT_TRUE(waitForLogLine(mainLog, "Destructor: Joining thread 0 until completion"));
    release.open();
    destroyer.join();

    EXPECT_TRUE(finished);
    EXPECT_EQ(0, leftoversRun.load());
    EXPECT_EQ(1, token.use_count()) << "discarded tasks must be destroyed with the queue";
    EXPECT_TRUE(mainLog.contains("DISPATCH_Q: Destructor: Destroying dispatch threads..."));
    EXPECT_TRUE(debugLog.contains("DISPATCH_Q: Destructor: Destroyed dispatch threads..."));
}

TEST(DispatchQueue, ZeroThreadQueueTakesWorkAndRunsNone)
{
    vekLogTail mainLog(vekTestMainLogPath());
    std::atomic<int> ran(0);
    auto token = std::make_shared<int>(0);
    {
        dispatch_queue queue("Idle Q", 0);
        for (int i = 0; i < 5; ++i) {
            queue.dispatch([&ran, token] { ++ran; });
        }
        EXPECT_EQ(6, token.use_count());
    }
    EXPECT_EQ(0, ran.load());
    EXPECT_EQ(1, token.use_count());
    const std::string log = mainLog.newText();
    EXPECT_NE(std::string::npos, log.find("Creating dispatch queue [Idle Q] with [0] threads."));
    EXPECT_NE(std::string::npos, log.find("Destructor: Destroying dispatch threads..."));
    EXPECT_EQ(0u, occurrences(log, "Destructor: Joining thread"));
}

TEST(DispatchQueue, AfterShutdownTheWorkerStopsOnceItsTaskIsDoneLeavingTheRestUnrun)
{
    Journal journal;
    Gate started;
    Gate release;
    auto token = std::make_shared<int>(0);
    {
        dispatch_queue queue("Stopping Q", 1);
        queue.dispatch([&] {
            started.open();
            release.wait();
            journal.record(1);
        });
        ASSERT_TRUE(started.wait());
        queue.dispatch([&journal, token] { journal.record(2); });
        queue.dispatch([&journal, token] { journal.record(3); });
        queue.shutdown();
        release.open();
        ASSERT_TRUE(journal.waitForCount(1));
    }
    EXPECT_EQ(std::vector<int>{1}, journal.entries());
    EXPECT_EQ(1, token.use_count());
}
