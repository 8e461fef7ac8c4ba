#include "vekResourceManagerLifecycle.h"

#include "vekGlobalDef.h"
#include "vekLog.h"

#include <thread>
#include <utility>

using vekGlobalDef::timeUtils;

namespace {

const int kDefaultRefreshSeconds = 30;
const int kIdlenessChecks = 3;
const long kIdlenessCheckPauseSeconds = 3;
const std::chrono::seconds kShutdownWait(10);
// A faster clock does not make the job thread leave its build sooner.
const std::chrono::seconds kShutdownWaitFloor(2);

} // namespace

vekResourceManagerLifecycle::vekResourceManagerLifecycle(const char* tag, std::string resourceName,
                                                         std::string inventoryName,
                                                         std::function<void()> pushInventory,
                                                         const vekConfig& config)
    : tag_(tag),
      resourceName_(std::move(resourceName)),
      inventoryName_(std::move(inventoryName)),
      pushInventory_(std::move(pushInventory)),
      config_(config)
{
}

int vekResourceManagerLifecycle::refreshIntervalSeconds() const
{
    const int configured = config_.getrefreshInterval(resourceName_);
    return configured > 0 ? configured : kDefaultRefreshSeconds;
}

void vekResourceManagerLifecycle::runRefreshLoop(const std::function<void()>& refresh,
                                                 const std::function<void()>& shutdownActivities)
{
    // The stop side waits for the completion mark however this thread leaves.
    struct CompletionMark {
        vekResourceManagerLifecycle& owner;
        ~CompletionMark() { owner.markShutdownComplete(); }
    } mark{*this};

    const std::chrono::milliseconds period = timeUtils::scaledSeconds(refreshIntervalSeconds());
    bool firstPass = true;
    while (firstPass ? !isStopRequested() : waitForNextPass(period)) {
        firstPass = false;
        refresh();
    }
    if (shutdownActivities) {
        shutdownActivities();
    }
}

bool vekResourceManagerLifecycle::waitForNextPass(std::chrono::milliseconds period)
{
    std::unique_lock<std::mutex> lock(stopMutex_);
    stopCondition_.wait_for(lock, period, [this] { return stopRequested_; });
    return !stopRequested_;
}

void vekResourceManagerLifecycle::cacheBuild(const std::function<Inventory()>& collect, bool pushWhenPending)
{
    {
        std::scoped_lock lock(inventoryMutex_, backupMutex_);
        backup_ = inventory_;
    }
    buildInProgress_ = true;

    struct ProgressFlag {
        std::atomic<bool>& flag;
        ~ProgressFlag() { flag = false; }
    } progress{buildInProgress_};

    Inventory collected = collect();
    {
        std::lock_guard<std::mutex> lock(inventoryMutex_);
        inventory_ = std::move(collected);
    }
    buildInProgress_ = false;
    ready_ = true;

    if (pushWhenPending) {
        pushIfPending();
    }
}

bool vekResourceManagerLifecycle::pushIfPending()
{
    if (!pendingPush_.exchange(false)) {
        return false;
    }
    if (pushInventory_) {
        pushInventory_();
    }
    return true;
}

bool vekResourceManagerLifecycle::getInventory(Inventory& out)
{
    if (!buildInProgress_) {
        std::unique_lock<std::mutex> lock(inventoryMutex_, std::try_to_lock);
        if (lock.owns_lock()) {
            out.insert(out.end(), inventory_.begin(), inventory_.end());
            return false;
        }
    }
    std::lock_guard<std::mutex> lock(backupMutex_);
    out.insert(out.end(), backup_.begin(), backup_.end());
    return true;
}

bool vekResourceManagerLifecycle::isInventoryReady(int iteration)
{
    const bool ready = ready_;
    if (iteration == kLastReadinessPoll && !ready) {
        pendingPush_ = true;
    }
    return ready;
}

size_t vekResourceManagerLifecycle::inventorySize()
{
    std::lock_guard<std::mutex> lock(inventoryMutex_);
    return inventory_.size();
}

bool vekResourceManagerLifecycle::isRunning()
{
    for (int retryCount = 0; retryCount < kIdlenessChecks; ++retryCount) {
        const bool building = buildInProgress_;
        if (!building && !ready_) {
            return true;
        }
        VEK_LOG_WARNING(tag_, "_cacheBuildInProgress = %d, %s.size() =%d,retryCount =%d", building ? 1 : 0,
                        inventoryName_.c_str(), static_cast<int>(inventorySize()), retryCount);
        std::this_thread::sleep_for(timeUtils::scaledSeconds(kIdlenessCheckPauseSeconds));
    }
    return false;
}

bool vekResourceManagerLifecycle::stopResourceManagerJob()
{
    VEK_LOG_DEBUG(tag_, "Resource manager stop called.");
    signalRMStop();
    VEK_LOG_DEBUG(tag_, "Signalled for stop & waiting for RM to complete Shutdown.");
    const bool finished = waitUntilShutdownComplete();
    VEK_LOG_INFO(tag_, "RM completed Shutdown gracefully: [%d]", finished ? 1 : 0);
    return finished;
}

void vekResourceManagerLifecycle::signalRMStop()
{
    {
        std::lock_guard<std::mutex> lock(stopMutex_);
        stopRequested_ = true;
    }
    stopCondition_.notify_all();
}

bool vekResourceManagerLifecycle::isStopRequested()
{
    std::lock_guard<std::mutex> lock(stopMutex_);
    return stopRequested_;
}

bool vekResourceManagerLifecycle::waitUntilShutdownComplete()
{
    std::unique_lock<std::mutex> lock(shutdownMutex_);
    return shutdownCondition_.wait_for(lock, timeUtils::scaledAtLeast(kShutdownWait, kShutdownWaitFloor),
                                       [this] { return shutdownComplete_; });
}

void vekResourceManagerLifecycle::markShutdownComplete()
{
    // Notified under the lock: once the waiter sees the flag the manager may
    // be gone, and this thread must not touch it afterwards.
    std::lock_guard<std::mutex> lock(shutdownMutex_);
    shutdownComplete_ = true;
    shutdownCondition_.notify_all();
}
