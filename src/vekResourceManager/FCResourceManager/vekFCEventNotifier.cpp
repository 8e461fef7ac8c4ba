#include "vekFCEventNotifier.h"

#include "IObserver.h"
#include "vekFCInterface.h"
#include "vekGlobalDef.h"
#include "vekIOMatrixInterface.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekObserverRegistry.h"

#include <algorithm>
#include <system_error>

namespace {
const char TAG[] = "FC_EVENT_NOTIFIER";
} // namespace

vekFCEventNotifier& vekFCEventNotifier::getInstance(vekOSInterface& os)
{
    static vekFCEventNotifier instance(os);
    return instance;
}

vekFCEventNotifier::vekFCEventNotifier(vekOSInterface& os) : os_(os) {}

vekFCEventNotifier::~vekFCEventNotifier()
{
    stopMonitoring();
    VEK_LOG_DEBUG(TAG, "Subject[%s]: destroyed.", getSubjectName().c_str());
}

vekObservableStatus vekFCEventNotifier::attach(IObserver* observer, vekObservableAspect aspect)
{
    return vekObserverRegistry::attach(TAG, this, getSubjectName(), VEK_OBSERVABLE_ASPECT_FC, observer, aspect,
                                       observers_, mutex_);
}

void vekFCEventNotifier::detach(IObserver* observer)
{
    vekObserverRegistry::detach(TAG, this, getSubjectName(), VEK_OBSERVABLE_ASPECT_FC, observer, observers_, mutex_,
                                notifyMutex_);
}

size_t vekFCEventNotifier::getObserverCount()
{
    size_t count = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        count = observers_.size();
    }
    VEK_LOG_DEBUG(TAG, "Subject[%s]: # of registered observers = [%zu].", getSubjectName().c_str(), count);
    return count;
}

int vekFCEventNotifier::startMonitoring()
{
    std::lock_guard<std::mutex> lock(monitorMutex_);
    if (poller_.joinable()) {
        return 0; // already polling
    }
    stop_ = false;
    VEK_LOG_DEBUG(TAG, "Creating a polling thread");
    try {
        poller_ = std::thread(&vekFCEventNotifier::startPolling, this);
    } catch (const std::system_error&) {
        VEK_LOG_ERROR(TAG,
                      "Unable to start the Polling service for FibreChannel devices, hence FC events cannot be "
                      "monitored");
        return -1;
    }
    return 0;
}

int vekFCEventNotifier::stopMonitoring()
{
    {
        std::lock_guard<std::mutex> lock(monitorMutex_);
        stop_ = true;
    }
    monitorCondition_.notify_all();
    VEK_LOG_DEBUG(TAG, "Signalled for stop");
    if (poller_.joinable() && poller_.get_id() != std::this_thread::get_id()) {
        poller_.join();
    }
    return 0;
}

void vekFCEventNotifier::updateFCDevicesStatusMap(std::map<std::string, vekDeviceStatus> statuses)
{
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : statuses) {
        statuses_.insert(entry); // a known name keeps its status
    }
    for (auto it = statuses_.begin(); it != statuses_.end();) {
        it = statuses.count(it->first) != 0 ? std::next(it) : statuses_.erase(it);
    }
}

void vekFCEventNotifier::getFCPrevStatusInfo(const std::string& name, VEK_RESOURCE_STATE& state,
                                             VEK_RESOURCE_HEALTH& health)
{
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : statuses_) {
        if (entry.first == name) {
            state = entry.second.state;
            health = entry.second.health;
            return;
        }
    }
}

void vekFCEventNotifier::updateFCDeviceStatusInfo(const std::string& name, const FCDeviceInfo& info)
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = statuses_.find(name);
    if (found != statuses_.end()) {
        found->second = info.deviceStatus;
    }
}

void vekFCEventNotifier::identifyEventInfo(VEK_RESOURCE_STATE current, VEK_RESOURCE_STATE previous, int& eventId,
                                           bool& serviceEvent)
{
    serviceEvent = false;
    switch (current) {
    case VEK_STATE_ERROR:
        eventId = 388;
        serviceEvent = true;
        break;
    case VEK_STATE_LINKDOWN:
        eventId = 386;
        serviceEvent = true;
        break;
    case VEK_STATE_OFFLINE:
        eventId = 385;
        break;
    case VEK_STATE_ONLINE:
        eventId = previous == VEK_STATE_LINKDOWN ? 1391 : 384;
        break;
    default:
        eventId = 0;
        break;
    }
}

void vekFCEventNotifier::startPolling()
{
    std::unique_lock<std::mutex> lock(monitorMutex_);
    if (names_.empty()) {
        // The adapters of the thread's start; later ones are not polled.
        lock.unlock();
        std::vector<std::string> names;
        try {
            os_.getFCInterface()->populateFCInstances(names);
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Unable to list the FC adapters to poll: %s", e.what());
        }
        lock.lock();
        names_ = names;
    }
    const auto period = vekGlobalDef::timeUtils::scaledSeconds(vekGlobalDef::VMwareOSUtils::getFCEventsPollInterval());
    while (!stop_) {
        for (const std::string& name : names_) {
            if (stop_) {
                break;
            }
            lock.unlock();
            pollAnalyzeAndNotifyObserver(VEK_OBSERVABLE_ASPECT_FC, name);
            lock.lock();
        }
        monitorCondition_.wait_for(lock, period, [this] { return stop_; });
    }
    VEK_LOG_DEBUG(TAG, "Got VEK stop signal. Shutting down polling thread");
}

void vekFCEventNotifier::pollAnalyzeAndNotifyObserver(vekObservableAspect aspect, const std::string& name)
{
    try {
        vekFCInterface* fc = os_.getFCInterface();
        FCDeviceInfo info;
        fc->discoverFCStatusInfo(name, info);
        const VEK_RESOURCE_STATE state = info.deviceStatus.state;
        const VEK_RESOURCE_HEALTH health = info.deviceStatus.health;
        VEK_LOG_DEBUG(TAG, "DeviceName : %s, currState and currHealth are %s and %s", name.c_str(),
                      vekResourceStateMap[state].c_str(), vekResourceHealthMap[health].c_str());
        // An adapter the builds never stored compares with itself: no event.
        VEK_RESOURCE_STATE previousState = state;
        VEK_RESOURCE_HEALTH previousHealth = health;
        getFCPrevStatusInfo(name, previousState, previousHealth);
        VEK_LOG_DEBUG(TAG, "prevState and prevHealth are %s and %s", vekResourceStateMap[previousState].c_str(),
                      vekResourceHealthMap[previousHealth].c_str());
        if (state == previousState && health == previousHealth) {
            return;
        }
        int eventId = 0;
        bool serviceEvent = false;
        identifyEventInfo(state, previousState, eventId, serviceEvent);
        if (eventId == 0) {
            // The stored status stays: the next poll compares with it again.
            return;
        }
        VEK_LOG_DEBUG(TAG, "Valid Event ID %d found for FC device %s", eventId, name.c_str());
        fc->discoverFCProperties(name, info);
        vekFCIOMatrixInterface().supplementAdditionalFCProperties(info);
        updateFCDeviceStatusInfo(name, info);

        std::lock_guard<std::mutex> notifying(notifyMutex_);
        std::vector<IObserver*> observers;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            observers = observers_;
        }
        for (IObserver* observer : observers) {
            if (auto* fcObserver = dynamic_cast<vekFCPortObserver*>(observer)) {
                fcObserver->notifyChange(this, aspect, "", name, eventId, serviceEvent, &info);
            }
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to analyze the status of %s: %s", name.c_str(), e.what());
    }
}
