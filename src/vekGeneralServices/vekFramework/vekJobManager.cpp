#include "vekJobManager.h"

#include "vekConfig.h"
#include "vekFactory.h"
#include "vekIPMIDBService.h"
#include "vekJsonAggregator.h"
#include "vekLog.h"
#include "vekPlatformServices.h"
#include "vekResourceIds.h"
#include "vekResourceManager.h"
#include "vekServer.h"

#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {
const char TAG[] = "JOB_MGR";
}

vekJobManager& vekJobManager::getInstance()
{
    static vekJobManager instance;
    return instance;
}

vekJobManager::~vekJobManager()
{
    // Reached only at process exit. A manager still running then is not
    // waited for: its thread is let go rather than ending the process with
    // std::terminate.
    for (auto& entry : threads_) {
        if (entry.second.joinable()) {
            entry.second.detach();
        }
    }
}

void vekJobManager::setFactory(std::shared_ptr<vekFactory> factory)
{
    factory_ = std::move(factory);
}

void vekJobManager::setConfig(std::shared_ptr<const vekConfig> config)
{
    config_ = std::move(config);
}

const vekConfig& vekJobManager::activeConfig() const
{
    return config_ ? *config_ : vekConfig::getInstance();
}

bool vekJobManager::startResourceManagers(vekPlatformServices& services)
{
    const std::vector<int> ids = services.getResourceManagerIds();
    const vekConfig& config = activeConfig();
    for (const int id : ids) {
        if (!config.isResourceEnabled(id)) {
            VEK_LOG_DEBUG(TAG, "Resource manager %s [%d] is disabled.", vekResourceIds::nameOf(id).c_str(), id);
            continue;
        }
        VEK_LOG_DEBUG(TAG, "Resource manager %s [%d] is ACTIVATED.", vekResourceIds::nameOf(id).c_str(), id);
        try {
            const std::shared_ptr<vekFactory> factory = factory_ ? factory_ : std::make_shared<vekFactory>();
            vekResourceManager* instance = factory->createInstance(id);
            if (instance == nullptr) {
                // An id with no manager in this build (a family not present,
                // or one of the ids that never have one): nothing to run.
                throw std::invalid_argument("no Resource Manager for this id");
            }
            instances_[id] = instance;
            threads_[id] = std::thread(initializeResourceManager, id, instance, &services);
        } catch (...) {
            VEK_LOG_ERROR(TAG, "Error:unable to create thread for the RM %d", id);
        }
        simulateUnhandledExceptions(config);
    }
    return true;
}

void vekJobManager::stopResourceManagers()
{
    VEK_LOG_INFO(TAG, "Stopping all RMs");
    for (auto& entry : instances_) {
        const int id = entry.first;
        VEK_LOG_DEBUG(TAG, "Notify RM[%d] to close", id);
        if (entry.second != nullptr) {
            entry.second->stopResourceManagerJob();
        }
        VEK_LOG_DEBUG(TAG, "Thread join for: [%d]", id);
        const auto thread = threads_.find(id);
        if (thread != threads_.end() && thread->second.joinable()) {
            thread->second.join();
        }
    }
    // Everything is joined: a later start begins from nothing.
    threads_.clear();
    instances_.clear();
    VEK_LOG_INFO(TAG, "VEK Exiting Gracefully!");
}

bool vekJobManager::startVEKServer(vekPlatformServices& services)
{
    vekServer::getInstance().initializeVEKServer(&services);
    return true;
}

void vekJobManager::stopVEKServer()
{
    vekServer::getInstance().stopVEKServer();
    VEK_LOG_INFO(TAG, "Stopped VEK Server");
}

void* initializeResourceManager(int id, vekResourceManager* rm, vekPlatformServices* services)
{
    VEK_LOG_DEBUG(TAG, "Creating thread for %s", vekResourceIds::nameOf(id).c_str());
    rm->init(*services);
    return nullptr;
}

void* startInventoryPushThread(void* /*unused*/)
{
    vekJsonAggregator::getInstance().initializeCachePush();
    return nullptr;
}

void* startIPMIDBMonitor(void* /*unused*/)
{
    vekIPMIDBService::startMonitoring();
    return nullptr;
}

void simulateUnhandledExceptions()
{
    simulateUnhandledExceptions(vekConfig::getInstance());
}

void simulateUnhandledExceptions(const vekConfig& config)
{
    const long simulated = config.getUnhandledExceptionToSimulate();
    if (simulated == SIGSEGV) {
        VEK_LOG_WARNING(TAG, "Simulating unhandled exception SIGSEGV. (%ld)", simulated);
        // Volatile on both sides, so that the compiler keeps the faulting store.
        volatile int* volatile target = nullptr;
        *target = 0;
    } else if (simulated == SIGABRT) {
        VEK_LOG_WARNING(TAG, "Simulating unhandled exception SIGABRT. (%ld)", simulated);
        throw std::invalid_argument("Simulated unhandled exception");
    }
}
