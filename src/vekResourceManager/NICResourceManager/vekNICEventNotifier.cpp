#include "vekNICEventNotifier.h"

#include "IObserver.h"
#include "NICDeviceInfo.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekNICInterface.h"
#include "vekOSInterface.h"
#include "vekObserverRegistry.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace {
const char TAG[] = "NIC_EVT_NOTIFIER";
} // namespace

std::map<std::string, vekDeviceStatus> vekNICEventNotifierBase::nicDevicesStatusInfo;

vekNICEventNotifierBase::vekNICEventNotifierBase(std::string subjectName) : subjectName_(std::move(subjectName)) {}

vekNICEventNotifierBase::~vekNICEventNotifierBase()
{
    VEK_LOG_DEBUG(TAG, "Subject[%s]: destroyed.", subjectName_.c_str());
}

vekObservableStatus vekNICEventNotifierBase::attach(IObserver* observer, vekObservableAspect aspect)
{
    return vekObserverRegistry::attach(TAG, this, subjectName_, VEK_OBSERVABLE_ASPECT_NIC, observer, aspect, observers_,
                                       mutex_);
}

void vekNICEventNotifierBase::detach(IObserver* observer)
{
    vekObserverRegistry::detach(TAG, this, subjectName_, VEK_OBSERVABLE_ASPECT_NIC, observer, observers_, mutex_,
                                notifyMutex_);
}

void vekNICEventNotifierBase::detachAllObservers()
{
    VEK_LOG_DEBUG(TAG, "Subject[%s]: Detaching all observers.", subjectName_.c_str());
    std::vector<IObserver*> observers;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        observers = observers_;
    }
    for (IObserver* observer : observers) {
        detach(observer);
    }
}

size_t vekNICEventNotifierBase::getObserverCount()
{
    size_t count = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        count = observers_.size();
    }
    VEK_LOG_DEBUG(TAG, "Subject[%s]: # of registered observers = [%zu].", subjectName_.c_str(), count);
    return count;
}

void vekNICEventNotifierBase::updateNICDevicesStatusMap(std::map<std::string, vekDeviceStatus> statuses)
{
    std::lock_guard<std::mutex> lock(mutex_);
    addNewEntriesToNICDeviceStatusMap(statuses);
    removeMissingEntriesFromNICDeviceStatusMap(statuses);
}

void vekNICEventNotifierBase::addNewEntriesToNICDeviceStatusMap(const std::map<std::string, vekDeviceStatus>& statuses)
{
    for (const auto& entry : statuses) {
        nicDevicesStatusInfo.insert(entry); // a known name keeps its status
    }
}

void vekNICEventNotifierBase::removeMissingEntriesFromNICDeviceStatusMap(
    const std::map<std::string, vekDeviceStatus>& statuses)
{
    for (auto it = nicDevicesStatusInfo.begin(); it != nicDevicesStatusInfo.end();) {
        it = statuses.count(it->first) != 0 ? std::next(it) : nicDevicesStatusInfo.erase(it);
    }
}

void vekNICEventNotifierBase::updateNICDeviceStatusInfo(const std::string& name, const vekDeviceStatus& status)
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = nicDevicesStatusInfo.find(name);
    if (found != nicDevicesStatusInfo.end()) {
        found->second = status;
    }
}

std::map<std::string, vekDeviceStatus> vekNICEventNotifierBase::getNICDevicesStatusInfo()
{
    return nicDevicesStatusInfo;
}

void vekNICEventNotifierBase::notifyRegisteredObservers(ISubject* subject, const std::string& name,
                                                        VEK_RESOURCE_STATE state, VEK_RESOURCE_HEALTH health)
{
    std::lock_guard<std::mutex> notifying(notifyMutex_);
    std::vector<IObserver*> observers;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        observers = observers_;
    }
    for (IObserver* observer : observers) {
        if (auto* portObserver = dynamic_cast<vekNICPortObserver*>(observer)) {
            portObserver->notifyChange(subject, VEK_OBSERVABLE_ASPECT_NIC, "", name, &state, &health);
        }
    }
}

// ---- the ESXi poller ----

vekNICVmwareEventNotifier& vekNICVmwareEventNotifier::getInstance(vekOSInterface& os)
{
    static vekNICVmwareEventNotifier instance(os);
    return instance;
}

vekNICVmwareEventNotifier::vekNICVmwareEventNotifier(vekOSInterface& os)
    : vekNICEventNotifierBase("vekNICVmwareEventNotifier"),
      os_(os),
      queue_(new dispatch_queue("VEK NIC VMware Event Q Dispatcher", 1))
{
}

vekNICVmwareEventNotifier::~vekNICVmwareEventNotifier()
{
    stopMonitoring();
}

int vekNICVmwareEventNotifier::startMonitoring(std::vector<std::string> names)
{
    std::lock_guard<std::mutex> lock(monitorMutex_);
    if (names_.empty()) {
        names_ = std::move(names);
    }
    if (producer_.joinable()) {
        return 0; // already polling
    }
    stop_ = false;
    VEK_LOG_DEBUG(TAG, "Creating a producer thread");
    try {
        producer_ = std::thread(&vekNICVmwareEventNotifier::startPolling, this);
    } catch (const std::system_error& e) {
        VEK_LOG_ERROR(TAG, "Unable to start the Polling service for the ethernet instances: %s", strerror(errno));
        return -1;
    }
    return 0;
}

int vekNICVmwareEventNotifier::stopMonitoring()
{
    {
        std::lock_guard<std::mutex> lock(monitorMutex_);
        stop_ = true;
    }
    monitorCondition_.notify_all();
    VEK_LOG_DEBUG(TAG, "Signalled for stop");
    if (producer_.joinable()) {
        producer_.join();
    }
    return 0;
}

void vekNICVmwareEventNotifier::startPolling()
{
    std::unique_lock<std::mutex> lock(monitorMutex_);
    while (!stop_) {
        try {
            vekNICInterface* nic = os_.getNICInterface();
            nic->refreshData();
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Unable to refresh the ethernet instances: %s", e.what());
        }
        for (const std::string& name : names_) {
            if (stop_) {
                break;
            }
            queue_->dispatch([this, name] { analyzePollingNotification(name); });
        }
        monitorCondition_.wait_for(lock, vekGlobalDef::timeUtils::scaledSeconds(kPollSeconds), [this] { return stop_; });
    }
    VEK_LOG_DEBUG(TAG, "Got VEK stop signal. Shutting down polling thread");
}

void vekNICVmwareEventNotifier::analyzePollingNotification(const std::string& name)
{
    try {
        NICDeviceInfo info;
        os_.getNICInterface()->discoverNICStatusInfo(name, info);
        VEK_LOG_DEBUG(TAG, "DeviceName : %s, current state : %s, current health : %s", name.c_str(),
                      vekResourceStateMap[info.deviceStatus.state].c_str(),
                      vekResourceHealthMap[info.deviceStatus.health].c_str());
        notifyRegisteredObservers(this, name, info.deviceStatus.state, info.deviceStatus.health);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to analyze the status of %s: %s", name.c_str(), e.what());
    }
}
