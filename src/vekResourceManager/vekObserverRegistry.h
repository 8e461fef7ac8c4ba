#pragma once

#include "IObserver.h"
#include "ISubject.h"
#include "vekLog.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

// The subject side of an adapter family's notifier: the observers it calls,
// added and taken off with the answers and log lines both families give
// (logged with the notifier's own tag).
namespace vekObserverRegistry {

inline vekObservableStatus attach(const char* tag, ISubject* self, const std::string& subjectName,
                                  vekObservableAspect familyAspect, IObserver* observer, vekObservableAspect aspect,
                                  std::vector<IObserver*>& observers, std::mutex& mutex)
{
    const char* subject = subjectName.c_str();
    const std::string observerName = observer != nullptr ? observer->getObserverName() : "";
    VEK_LOG_DEBUG(tag, "Subject[%s]: Received attach request for observer [%s].", subject, observerName.c_str());
    if (observer == nullptr) {
        return VEK_OBSERVABLE_STATUS_INVALID_OBSERVER;
    }
    if (aspect != familyAspect) {
        VEK_LOG_WARNING(tag, "Subject[%s]: Observable aspect [%d] not supported.", subject, aspect);
        return VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT;
    }
    const vekObservableStatus status = observer->notifyAttach(self, familyAspect);
    if (status != VEK_OBSERVABLE_STATUS_SUCCESS) {
        VEK_LOG_WARNING(tag, "Subject[%s]: Observer [%s] failed notify-attach query with status [%d].", subject,
                        observerName.c_str(), status);
        return status;
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        observers.push_back(observer);
    }
    VEK_LOG_DEBUG(tag, "Subject[%s]: Observer [%s] successfully added to registered observers list.", subject,
                  observerName.c_str());
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

// Holds notifyMutex while taking the observer off: not while a notification
// is inside an observer, since once detached the observer may go.
inline void detach(const char* tag, ISubject* self, const std::string& subjectName, vekObservableAspect familyAspect,
                   IObserver* observer, std::vector<IObserver*>& observers, std::mutex& mutex,
                   std::mutex& notifyMutex)
{
    const char* subject = subjectName.c_str();
    const std::string observerName = observer != nullptr ? observer->getObserverName() : "";
    VEK_LOG_DEBUG(tag, "Subject[%s]: Received detach request for observer [%s].", subject, observerName.c_str());
    bool found = false;
    {
        std::lock_guard<std::mutex> notifying(notifyMutex);
        std::lock_guard<std::mutex> lock(mutex);
        const auto at = std::find(observers.begin(), observers.end(), observer);
        if (at != observers.end()) {
            observers.erase(at);
            found = true;
        }
    }
    if (!found) {
        VEK_LOG_WARNING(tag, "Subject[%s]: Observer [%s] not found in registered observers list!", subject,
                        observerName.c_str());
        return;
    }
    observer->notifyDetach(self, familyAspect);
    VEK_LOG_DEBUG(tag, "Subject[%s]: Detached observer [%s].", subject, observerName.c_str());
}

} // namespace vekObserverRegistry
