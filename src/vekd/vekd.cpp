// vekd: the service executable. Loads the library and drives its exported
// operations: start in order, wait for SIGTERM or SIGINT, stop in order.
// A failure of one step is logged and the next step still runs, except the
// platform services: without a channel to the RMC the service cannot work,
// so it says why and exits with status 1, before anything else started.

#include "IELEvent.h"
#include "Logger.h"
#include "vekConfig.h"
#include "vekEvent.h"
#include "vekEventHandler.h"
#include "vekGlobalDef.h"
#include "vekIPMIDBService.h"
#include "vekInBandComManager.h"
#include "vekJobManager.h"
#include "vekJsonAggregator.h"
#include "vekLocationReport.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPlatformServiceBuilder.h"
#include "vekPlatformServices.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <pthread.h>
#include <string>
#include <vector>

namespace {
const char TAG[] = "VEKD";

using vekGlobalDef::VMwareOSUtils;

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

msgHeader hostHeader()
{
    msgHeader header;
    header.HostName = VMwareOSUtils::readHostName();
    header.OSVersion = VMwareOSUtils::readHostOSVersion();
    header.OSType = VMwareOSUtils::getOSType();
    const std::vector<std::string> addresses = VMwareOSUtils::getIPAddress();
    if (!addresses.empty()) {
        header.IPAddress = addresses.front();
    }
    return header;
}

// The boot event of this start, when the host went down and came up again
// since the service's last run: ids 2 (after a graceful shutdown) and 3
// (after an ungraceful one).
void sendBootEvent(vekPlatformServices& services, bool ungraceful, bool graceful)
{
    if (!ungraceful && !graceful) {
        return;
    }
    const IELEVENT::IELEventId kind = ungraceful ? IELEVENT::IEL_EVENT_3 : IELEVENT::IEL_EVENT_2;
    const int id = (*services.getIELEventResolver())(kind);
    VEK_LOG_INFO(TAG, "Host OS boot after a %s shutdown: event [%d]", ungraceful ? "not-graceful" : "graceful", id);
    vekEventHandler::generateEvent(
        vekEvent(id, "Host", "NotApplicable", false, VMwareOSUtils::getDateTime(), "Not-Available", "VEK"));
}

// Nothing of the service has started when this fails.
std::unique_ptr<vekPlatformServices> buildPlatformServices()
{
    try {
        return vekPlatformServiceManager::getPlatformServices(0);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Cannot reach the RMC, the service stops: %s", e.what());
        fprintf(stderr, "vekd: cannot reach the RMC (%s); see the service log\n", e.what());
    } catch (...) {
        VEK_LOG_ERROR(TAG, "Cannot reach the RMC, the service stops");
        fprintf(stderr, "vekd: cannot reach the RMC; see the service log\n");
    }
    return nullptr;
}

void stop(vekPlatformServices& services)
{
    runStep("Stopping the doorbell monitor", [] { vekIPMIDBService::stopvekIPMIDBService(); });
    runStep("Stopping the aggregator", [] { vekJsonAggregator::getInstance().stopvekJsonAggregator(); });
    runStep("Stopping the test event server", [] { vekJobManager::getInstance().stopVEKServer(); });
    runStep("Stopping the Resource Managers", [] { vekJobManager::getInstance().stopResourceManagers(); });
    runStep("Removing the OS interface's scratch files", [] { vekSystemInterfaceFactory::unInitializeSystemInterface(); });
    runStep("Cleaning up the dispatch queue", [&] { services.getInbandComInterface()->cleanUpDispatchQ(); });
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

    // The configuration tells its trouble to syslog only, which a plain
    // machine may not have: say it here too, one line per problem.
    for (const std::string& problem : vekConfig::getInstance().problems()) {
        fprintf(stderr, "vekd: configuration: %s\n", problem.c_str());
    }
    CPlusPlusLogging::Logger::getInstance();
    VEK_LOG_ALWAYS(TAG, "Starting the VEK service");

    runStep("Service init of the start-stop file",
            [] { VMwareOSUtils::vekStartStopFileOperations(vekGlobalDef::VEK_OPERATION_INIT); });
    bool ungraceful = false;
    bool graceful = false;
    runStep("Boot decision", [&] { VMwareOSUtils::getLastOSShutdownStatus(ungraceful, graceful); });
    VEK_LOG_INFO(TAG, "Last OS shutdown: ungraceful=%d graceful=%d", ungraceful ? 1 : 0, graceful ? 1 : 0);

    std::unique_ptr<vekPlatformServices> services = buildPlatformServices();
    if (!services) {
        return 1;
    }
    vekInBandComManager* comManager = services->getInbandComInterface();
    runStep("Setting the message header", [&] { comManager->initMessageHeader(hostHeader()); });
    runStep("Sending the boot event", [&] { sendBootEvent(*services, ungraceful, graceful); });
    runStep("Mapping the PCI locations", [] { vekLogPCILocations(); });
    runStep("Starting the aggregator", [&] {
        vekJsonAggregator& aggregator = vekJsonAggregator::getInstance();
        aggregator.initialize(comManager, services->getResourceManagerIds());
        aggregator.start();
    });
    // Not a guarded step: the crash simulation of SimulateUnhandledException
    // throws from here on purpose, and that exception must end the process.
    vekJobManager::getInstance().startResourceManagers(*services);
    runStep("Starting the test event server", [&] { vekJobManager::getInstance().startVEKServer(*services); });
    runStep("Starting the doorbell monitor", [] { vekIPMIDBService::startvekIPMIDBService(); });
    runStep("Recording the start", [] { VMwareOSUtils::updateVEKLastStartValue(); });
    VEK_LOG_ALWAYS(TAG, "VEK service started");

    int received = 0;
    sigwait(&stopSignals, &received);
    VEK_LOG_ALWAYS(TAG, "Stop requested (signal %d)", received);

    stop(*services);
    VEK_LOG_ALWAYS(TAG, "VEK service stopped");
    return 0;
}
