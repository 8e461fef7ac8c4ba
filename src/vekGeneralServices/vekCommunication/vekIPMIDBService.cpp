#include "vekIPMIDBService.h"

#include "IPMIUtils.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekJobManager.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <exception>
#include <utility>

using vekGlobalDef::timeUtils;

namespace {
const char TAG[] = "IPMI_DB";
// Used when the configured period cannot be used.
const long kDefaultPeriodMinutes = 10;
} // namespace

pthread_t vekIPMIDBService::thread_;
bool vekIPMIDBService::threadStarted_ = false;
std::mutex vekIPMIDBService::mutex_;
std::condition_variable vekIPMIDBService::condition_;
bool vekIPMIDBService::stop_ = false;
bool vekIPMIDBService::checkDevice_ = false;
std::shared_ptr<const vekConfig> vekIPMIDBService::config_;

void vekIPMIDBService::setConfig(std::shared_ptr<const vekConfig> config)
{
    config_ = std::move(config);
}

const vekConfig& vekIPMIDBService::activeConfig()
{
    return config_ ? *config_ : vekConfig::getInstance();
}

void vekIPMIDBService::startvekIPMIDBService()
{
    if (threadStarted_) {
        VEK_LOG_WARNING(TAG, "Doorbell monitor already running.");
        return;
    }
    const int result = pthread_create(&thread_, nullptr, startIPMIDBMonitor, nullptr);
    if (result != 0) {
        VEK_LOG_ERROR(TAG, "Error: Unable to create thread: %d", result);
        return;
    }
    threadStarted_ = true;
}

void vekIPMIDBService::startMonitoring()
{
    long minutes = activeConfig().getDoorBellSleepInterval();
    if (minutes <= 0) {
        VEK_LOG_WARNING(TAG, "Doorbell period of %ld minutes cannot be used; checking every %ld minutes.", minutes,
                        kDefaultPeriodMinutes);
        minutes = kDefaultPeriodMinutes;
    }
    const long periodSeconds = minutes * 60;
    while (waitForNextCheck(periodSeconds)) {
        checkDoorBell();
    }
}

bool vekIPMIDBService::waitForNextCheck(long periodSeconds)
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_ && !checkDevice_) {
        struct timespec now;
        if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
            VEK_LOG_ERROR(TAG, "Failed to get current time! (error no: %d)", errno);
            return false;
        }
        const std::chrono::system_clock::time_point deadline =
            std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
                std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec))) +
            timeUtils::scaledSeconds(periodSeconds);
        condition_.wait_until(lock, deadline, [] { return stop_; });
        VEK_LOG_DEBUG(TAG, "DB service thread up.");
        if (!stop_) {
            checkDevice_ = true;
        }
    }
    if (stop_) {
        return false;
    }
    checkDevice_ = false;
    return true;
}

void vekIPMIDBService::checkDoorBell()
{
    try {
        ipmi::IPMIUtils utils;
        if (utils.checkIPMIDBRequest()) {
            vekJsonAggregator::getInstance().sendInventory();
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to check the inventory doorbell: %s", e.what());
    }
}

void vekIPMIDBService::stopvekIPMIDBService()
{
    VEK_LOG_DEBUG(TAG, "Stopping vekIPMIDBService");
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    condition_.notify_all();
    VEK_LOG_DEBUG(TAG, "Signaled for stop.");
    if (!threadStarted_) {
        return;
    }
    const int result = pthread_join(thread_, nullptr);
    if (result != 0) {
        VEK_LOG_ERROR(TAG, "Error: Unable to join thread: %d", result);
        return;
    }
    threadStarted_ = false;
}
