#pragma once

#include "ISubject.h"
#include "dispatch_queue.h"
#include "vekResourceStatus.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class vekOSInterface;

// What the NIC Resource Manager asks of the poller of port statuses.
class IvekNICEventNotifier {
public:
    virtual ~IvekNICEventNotifier() = default;
    // 0 when the polling runs.
    virtual int startMonitoring(std::vector<std::string> names) = 0;
    virtual int stopMonitoring() = 0;
    // The adapters of the last build and their statuses.
    virtual void updateNICDevicesStatusMap(std::map<std::string, vekDeviceStatus> statuses) = 0;
};

// An observer of port statuses (the NIC event manager): told, for one port,
// the state and health the poller read.
class vekNICPortObserver {
public:
    virtual ~vekNICPortObserver() = default;
    virtual vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text,
                                             std::string name, VEK_RESOURCE_STATE* state,
                                             VEK_RESOURCE_HEALTH* health) = 0;
};

// The subject side of the port statuses, whatever the host OS.
class vekNICEventNotifierBase : public ISubject, public IvekNICEventNotifier {
public:
    explicit vekNICEventNotifierBase(std::string subjectName);
    ~vekNICEventNotifierBase() override;

    // Only aspect 3 (Ethernet ports) is offered.
    vekObservableStatus attach(IObserver* observer, vekObservableAspect aspect) override;
    void detach(IObserver* observer) override;
    size_t getObserverCount() override;
    std::string getSubjectName() const override { return subjectName_; }
    void updateNICDevicesStatusMap(std::map<std::string, vekDeviceStatus> statuses) override;
    virtual vekOSInterface& OsInterface() = 0;

    void detachAllObservers();
    // Replaces the status of a known adapter; an unknown one is ignored.
    void updateNICDeviceStatusInfo(const std::string& name, const vekDeviceStatus& status);
    static std::map<std::string, vekDeviceStatus> getNICDevicesStatusInfo();

protected:
    // Tells every observer the status of one port.
    void notifyRegisteredObservers(ISubject* subject, const std::string& name, VEK_RESOURCE_STATE state,
                                   VEK_RESOURCE_HEALTH health);

private:
    void addNewEntriesToNICDeviceStatusMap(const std::map<std::string, vekDeviceStatus>& statuses);
    void removeMissingEntriesFromNICDeviceStatusMap(const std::map<std::string, vekDeviceStatus>& statuses);

    std::vector<IObserver*> observers_;
    std::string subjectName_;
    std::mutex mutex_;
    // Held while observers are told of a port; detach waits for it.
    std::mutex notifyMutex_;
    static std::map<std::string, vekDeviceStatus> nicDevicesStatusInfo;
};

// The poller of an ESXi host: every ten seconds it re-reads the adapter list
// once and puts one job per port on its one-thread queue; the job reads the
// port's status from that list and tells the observers.
class vekNICVmwareEventNotifier : public vekNICEventNotifierBase {
public:
    // The OS interface counts only at the first call.
    static vekNICVmwareEventNotifier& getInstance(vekOSInterface& os);

    vekNICVmwareEventNotifier(const vekNICVmwareEventNotifier&) = delete;
    vekNICVmwareEventNotifier& operator=(const vekNICVmwareEventNotifier&) = delete;

    // Keeps the first list of names it is given for good.
    int startMonitoring(std::vector<std::string> names) override;
    int stopMonitoring() override;
    vekOSInterface& OsInterface() override { return os_; }

    // The period of the poller; fixed, not configurable.
    static const long kPollSeconds = 10;

private:
    explicit vekNICVmwareEventNotifier(vekOSInterface& os);
    ~vekNICVmwareEventNotifier() override;

    void startPolling();
    void analyzePollingNotification(const std::string& name);

    vekOSInterface& os_;
    bool stop_ = false;
    std::thread producer_;
    std::mutex monitorMutex_;
    std::condition_variable monitorCondition_;
    std::vector<std::string> names_;
    // Last member: destroyed first, so its worker is gone before the rest.
    std::unique_ptr<dispatch_queue> queue_;
};
