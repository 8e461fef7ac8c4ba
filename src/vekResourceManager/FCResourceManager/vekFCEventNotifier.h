#pragma once

#include "FCDeviceInfo.h"
#include "ISubject.h"
#include "vekResourceStatus.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class vekOSInterface;

// What the FC Resource Manager asks of the poller of adapter statuses.
class IvekFCEventNotifier {
public:
    virtual ~IvekFCEventNotifier() = default;
    // 0 when the polling runs, -1 when its thread could not start.
    virtual int startMonitoring() = 0;
    virtual int stopMonitoring() = 0;
    // The adapters of the last build and their statuses.
    virtual void updateFCDevicesStatusMap(std::map<std::string, vekDeviceStatus> statuses) = 0;
    virtual vekOSInterface& OsInterface() = 0;
};

// An observer of adapter changes (the FC event manager): told, for one
// adapter, the event the change gives and the adapter's whole record.
class vekFCPortObserver {
public:
    virtual ~vekFCPortObserver() = default;
    virtual vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text,
                                             std::string name, int eventId, bool serviceEvent,
                                             FCDeviceInfo* info) = 0;
};

// The poller of the Fibre Channel adapters: on its own thread it reads the
// first port's status of each adapter every period, compares it with the
// status stored for the adapter, and tells the observers of a change that
// the event table knows.
class vekFCEventNotifier : public ISubject, public IvekFCEventNotifier {
public:
    // The OS interface counts only at the first call.
    static vekFCEventNotifier& getInstance(vekOSInterface& os);

    vekFCEventNotifier(const vekFCEventNotifier&) = delete;
    vekFCEventNotifier& operator=(const vekFCEventNotifier&) = delete;

    // Only aspect 7 (Fibre Channel) is offered.
    vekObservableStatus attach(IObserver* observer, vekObservableAspect aspect) override;
    void detach(IObserver* observer) override;
    size_t getObserverCount() override;
    std::string getSubjectName() const override { return "vekFCEventNotifier"; }

    int startMonitoring() override;
    int stopMonitoring() override;
    void updateFCDevicesStatusMap(std::map<std::string, vekDeviceStatus> statuses) override;
    vekOSInterface& OsInterface() override { return os_; }

    // The stored status of an adapter; an unknown name leaves the outputs alone.
    void getFCPrevStatusInfo(const std::string& name, VEK_RESOURCE_STATE& state, VEK_RESOURCE_HEALTH& health);
    // Replaces the stored status of a known adapter.
    void updateFCDeviceStatusInfo(const std::string& name, const FCDeviceInfo& info);
    // The event of a status change (0: none) and whether it asks for service.
    static void identifyEventInfo(VEK_RESOURCE_STATE current, VEK_RESOURCE_STATE previous, int& eventId,
                                  bool& serviceEvent);
    // One poll of one adapter, on the calling thread.
    void pollAnalyzeAndNotifyObserver(vekObservableAspect aspect, const std::string& name);

private:
    explicit vekFCEventNotifier(vekOSInterface& os);
    ~vekFCEventNotifier() override;

    void startPolling();

    std::vector<IObserver*> observers_;
    std::map<std::string, vekDeviceStatus> statuses_;
    std::mutex mutex_;
    // Held while observers are told of a change; detach waits for it.
    std::mutex notifyMutex_;
    bool stop_ = false;
    std::thread poller_;
    std::mutex monitorMutex_;
    std::condition_variable monitorCondition_;
    std::vector<std::string> names_;
    vekOSInterface& os_;
};
