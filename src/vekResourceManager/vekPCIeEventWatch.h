#pragma once

#include "IObserver.h"
#include "ISubject.h"
#include "vekLog.h"

#include <atomic>
#include <string>

// How an adapter family's manager hangs its event manager on the family's
// notifier and takes it off again; the log lines carry the manager's tag and
// the family's short name ("NIC", "FC").
namespace vekPCIeEventWatch {

// Attaches the observer to the notifier's subject; throws the subject's
// status when it refuses.
template <typename Notifier>
void attachObserver(const char* tag, Notifier* notifier, IObserver* observer, vekObservableAspect aspect)
{
    auto* subject = dynamic_cast<ISubject*>(notifier);
    const std::string observerName = observer->getObserverName();
    const std::string subjectName = subject->getSubjectName();
    VEK_LOG_DEBUG(tag, "Inside registerEventObserver");
    VEK_LOG_DEBUG(tag, "Register observer [%s] in construction with subject [%s].", observerName.c_str(),
                  subjectName.c_str());
    const vekObservableStatus status = subject->attach(observer, aspect);
    if (status != VEK_OBSERVABLE_STATUS_SUCCESS) {
        VEK_LOG_WARNING(tag, "Failed to register observer [%s] with subject [%s] during construction. (status: %d)",
                        observerName.c_str(), subjectName.c_str(), status);
        throw status;
    }
    VEK_LOG_DEBUG(tag, "Observer[%s]: created.", observerName.c_str());
}

// Records whether the notifier's monitoring started (rc 0).
inline void noteMonitoringStart(const char* tag, const char* family, int rc, std::atomic<bool>& monitoring)
{
    if (rc == 0) {
        monitoring = true;
    } else {
        VEK_LOG_WARNING(tag, "Unable to start Event monitoring service for %s card", family);
        VEK_LOG_DEBUG(tag, "Event monitoring service not started");
    }
}

// Stops the notifier's monitoring and takes the observer off its subject.
template <typename Notifier>
void detachObserver(const char* tag, const char* family, Notifier* notifier, IObserver* observer,
                    std::atomic<bool>& monitoring)
{
    if (notifier->stopMonitoring() != 0) {
        VEK_LOG_WARNING(tag, "Unable to stop Event monitoring service for %s card", family);
    } else {
        monitoring = false;
    }
    auto* subject = dynamic_cast<ISubject*>(notifier);
    const std::string observerName = observer->getObserverName();
    VEK_LOG_DEBUG(tag, "Attempting de-registration of observer [%s] from subject [%s] during cleanup.",
                  observerName.c_str(), subject->getSubjectName().c_str());
    subject->detach(observer);
    VEK_LOG_DEBUG(tag, "Observer[%s]: destroyed.", observerName.c_str());
}

} // namespace vekPCIeEventWatch
