// vekd: the service executable. Loads the library and drives its exported
// operations: start in order, wait for SIGTERM or SIGINT, stop in order.
// A failure of one step is logged and the next step still runs.

#include "Logger.h"
#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekJobManager.h"
#include "vekLog.h"
#include "vekPlatformServices.h"

#include <csignal>
#include <exception>
#include <pthread.h>
#include <string>
#include <vector>

namespace {
const char TAG[] = "VEKD";

using vekGlobalDef::VMwareOSUtils;

// The Resource Manager ids of this host: Host first; on Linux the ids that
// have no manager go ahead and must stay disabled in the configuration.
std::vector<int> resourceManagerIds()
{
    std::vector<int> ids{1, 0, 2, 3, 4, 5};
    const std::string os = VMwareOSUtils::readHostOSDescription();
    VEK_LOG_DEBUG(TAG, "Target OS [%s]", os.c_str());
    if (os.find("Linux") != std::string::npos) {
        ids.insert(ids.begin(), {6, 99, 8});
    }
    return ids;
}

// Runs one step of the start or stop sequence; what it throws is logged.
template <typename Step>
void runStep(const char* what, Step step)
{
    try {
        step();
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "%s failed: %s", what, e.what());
    } catch (...) {
        VEK_LOG_ERROR(TAG, "%s failed", what);
    }
}

void start(vekPlatformServices& services)
{
    runStep("Service init of the start-stop file",
            [] { VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_INIT); });
    runStep("Boot decision", [] {
        bool ungraceful = false;
        bool graceful = false;
        VMwareOSUtils::getLastOSShutdownStatus(ungraceful, graceful);
        VEK_LOG_INFO(TAG, "Last OS shutdown: ungraceful=%d graceful=%d", ungraceful ? 1 : 0, graceful ? 1 : 0);
    });
    services.SetResourceManagerIds(resourceManagerIds());
    runStep("Starting the Resource Managers", [&] { vekJobManager::getInstance().startResourceManagers(services); });
    runStep("Recording the start", [] { VMwareOSUtils::updateVEKLastStartValue(); });
}

void stop()
{
    runStep("Stopping the Resource Managers", [] { vekJobManager::getInstance().stopResourceManagers(); });
    runStep("Shutdown of the start-stop file",
            [] { VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_SHUTDOWN); });
    runStep("Synchronizing persistent storage", [] { VMwareOSUtils::synchronizePersistentStorage(); });
}
} // namespace

int main()
{
    // Blocked before any thread starts, so that every thread inherits the
    // mask and only sigwait() below sees the stop request.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    vekConfig::getInstance();
    CPlusPlusLogging::Logger::getInstance();
    VEK_LOG_ALWAYS(TAG, "Starting the VEK service");

    vekPlatformServices services;
    start(services);
    VEK_LOG_ALWAYS(TAG, "VEK service started");

    int received = 0;
    sigwait(&stopSignals, &received);
    VEK_LOG_ALWAYS(TAG, "Stop requested (signal %d)", received);

    stop();
    VEK_LOG_ALWAYS(TAG, "VEK service stopped");
    return 0;
}
