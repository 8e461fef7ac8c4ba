#pragma once

#include "vekConfig.h"

#include <json/json.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// The life of a Resource Manager's thread, the same for every manager: a
// timed refresh loop, a current and a backup inventory so that readers never
// wait for a build, the readiness and pending-push flags the aggregator
// relies on, and the stop handshake with the job manager. A manager owns one
// of these and forwards its vekResourceManager operations to it; what it
// collects and how it logs its own steps stays in the manager.
class vekResourceManagerLifecycle {
public:
    using Inventory = std::vector<Json::Value>;

    // The last readiness poll of the aggregator; a manager not ready by then
    // pushes by itself after its next build.
    static const int kLastReadinessPoll = 8;

    // tag: the manager's log tag. resourceName: its configuration word, for
    // the refresh interval. inventoryName: how its inventory is named in the
    // isRunning() warning. pushInventory: asks the aggregator for a whole
    // push; called after a build that follows a missed last poll.
    vekResourceManagerLifecycle(const char* tag, std::string resourceName, std::string inventoryName,
                                std::function<void()> pushInventory,
                                const vekConfig& config = vekConfig::getInstance());

    vekResourceManagerLifecycle(const vekResourceManagerLifecycle&) = delete;
    vekResourceManagerLifecycle& operator=(const vekResourceManagerLifecycle&) = delete;

    // The thread body. Runs refresh() at once, then once per refresh interval
    // until stopped. On leaving runs shutdownActivities and, as the thread's
    // last act, marks the shutdown complete.
    void runRefreshLoop(const std::function<void()>& refresh,
                        const std::function<void()>& shutdownActivities = std::function<void()>());

    // The configured refresh interval in seconds; zero or less means 30.
    int refreshIntervalSeconds() const;

    // Waits up to the period for a stop; false once stopped. For managers
    // whose loop has a shape of its own.
    bool waitForNextPass(std::chrono::milliseconds period);

    // One build: the current inventory becomes the backup, collect() runs
    // without any lock, its result becomes the current inventory and the
    // manager counts as ready. A collect() that throws leaves the current
    // inventory as it was and passes the exception on. A push left pending
    // by the aggregator goes out at the end, unless the manager asks to send
    // it itself (pushWhenPending false) through pushIfPending().
    void cacheBuild(const std::function<Inventory()>& collect, bool pushWhenPending = true);

    // Sends the push that a missed last poll left pending, once; true when
    // there was one.
    bool pushIfPending();

    // Appends the inventory to the vector. While a build runs, or while the
    // current copy is being replaced, that is the backup copy and the result
    // is true; otherwise the current copy and false.
    bool getInventory(Inventory& out);

    // The ready flag. A miss at the aggregator's last poll leaves a push
    // pending for the end of the next build.
    bool isInventoryReady(int iteration);

    bool isBuildInProgress() const { return buildInProgress_; }
    bool isReady() const { return ready_; }
    size_t inventorySize();

    // A bounded wait for a manager with no build running and no inventory
    // yet: three looks, three seconds apart.
    bool isRunning();

    // The stop handshake: stopResourceManagerJob() signals and then waits for
    // the thread's markShutdownComplete(); the result is true when the thread
    // finished in time.
    bool stopResourceManagerJob();
    void signalRMStop();
    bool isStopRequested();
    bool waitUntilShutdownComplete();
    void markShutdownComplete();

private:
    const char* tag_;
    std::string resourceName_;
    std::string inventoryName_;
    std::function<void()> pushInventory_;
    const vekConfig& config_;

    std::atomic<bool> ready_{false};
    std::atomic<bool> pendingPush_{false};
    std::atomic<bool> buildInProgress_{false};

    // Current and backup copies each have their own lock, so that a reader
    // who finds the current copy busy still gets the backup.
    std::mutex inventoryMutex_;
    Inventory inventory_;
    std::mutex backupMutex_;
    Inventory backup_;

    std::mutex stopMutex_;
    std::condition_variable stopCondition_;
    bool stopRequested_ = false;

    std::mutex shutdownMutex_;
    std::condition_variable shutdownCondition_;
    bool shutdownComplete_ = false;
};
