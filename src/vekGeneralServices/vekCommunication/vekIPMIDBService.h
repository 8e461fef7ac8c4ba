#pragma once

#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <mutex>

class vekConfig;

// The doorbell monitor: a thread that asks the RMC every IPMIDBSleepInterval
// minutes whether it rang the inventory doorbell, and asks the aggregator for
// a push when it did. The first look comes after one period, not at start.
// All state is static: there is one monitor per process.
class vekIPMIDBService {
public:
    static void startvekIPMIDBService();
    // The thread body (see startIPMIDBMonitor); returns once stopped.
    static void startMonitoring();
    // Signals the thread and joins it.
    static void stopvekIPMIDBService();

    // Which configuration gives the period: by default the process-wide one.
    // Another (a test's) replaces it; null restores the default. Set before
    // the start.
    static void setConfig(std::shared_ptr<const vekConfig> config);

private:
    static const vekConfig& activeConfig();
    // Waits one period; false when stopping (or the clock failed) instead.
    static bool waitForNextCheck(long periodSeconds);
    static void checkDoorBell();

    static pthread_t thread_;
    static bool threadStarted_;
    static std::mutex mutex_;
    static std::condition_variable condition_;
    static bool stop_;
    static bool checkDevice_;
    static std::shared_ptr<const vekConfig> config_;
};
