#pragma once

#include <map>
#include <memory>
#include <thread>

class vekConfig;
class vekFactory;
class vekPlatformServices;
class vekResourceManager;

// Starts and stops the Resource Managers, one thread each. Called from the
// service's control thread only, one call at a time, so it has no lock.
class vekJobManager {
public:
    static vekJobManager& getInstance();

    vekJobManager(const vekJobManager&) = delete;
    vekJobManager& operator=(const vekJobManager&) = delete;

    // Starts every id of the platform's list that the configuration enables.
    // Nothing waits for a manager to be ready. Always true.
    bool startResourceManagers(vekPlatformServices& services);

    // Stops the started managers one after the other, in ascending id order,
    // joining each thread before the next manager is told.
    void stopResourceManagers();

    // Starts the test event server's thread with these services. Always true.
    bool startVEKServer(vekPlatformServices& services);
    // Stops the test event server and waits for its thread.
    void stopVEKServer();

    // Where the managers come from: by default a fresh vekFactory for each
    // id. Another factory (a test's) replaces it; null restores the default.
    void setFactory(std::shared_ptr<vekFactory> factory);

    // Which configuration decides: by default the process-wide one. A
    // configuration read from elsewhere (a test's) replaces it; null
    // restores the default.
    void setConfig(std::shared_ptr<const vekConfig> config);

private:
    vekJobManager() = default;
    ~vekJobManager();

    const vekConfig& activeConfig() const;

    std::map<int, std::thread> threads_;
    std::map<int, vekResourceManager*> instances_;
    std::shared_ptr<vekFactory> factory_;
    std::shared_ptr<const vekConfig> config_;
};

// Thread body of a Resource Manager: runs rm->init(*services) for the life of
// the thread. Returns null.
void* initializeResourceManager(int id, vekResourceManager* rm, vekPlatformServices* services);

// Thread body of the inventory aggregator: runs
// vekJsonAggregator::initializeCachePush() on the singleton. Returns null.
void* startInventoryPushThread(void* unused);

// Thread body of the doorbell monitor: runs vekIPMIDBService::startMonitoring().
// Returns null.
void* startIPMIDBMonitor(void* unused);

// The crash hook of the service's own tests: with SimulateUnhandledException
// at 11 it faults (SIGSEGV), at 6 it throws an exception nobody catches
// (SIGABRT); with any other value it returns.
void simulateUnhandledExceptions();
void simulateUnhandledExceptions(const vekConfig& config);
