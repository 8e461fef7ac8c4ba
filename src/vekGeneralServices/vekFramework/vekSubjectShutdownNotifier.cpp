#include "vekSubjectShutdownNotifier.h"

#include "vekLog.h"

#include <algorithm>
#include <utility>

namespace {
const char TAG[] = "DSSN";
}

vekSubjectShutdownNotifier::vekSubjectShutdownNotifier(std::string subjectName) : subjectName_(std::move(subjectName))
{
    VEK_LOG_DEBUG(TAG, "Subject[%s]: created.", subjectName_.c_str());
}

vekSubjectShutdownNotifier::~vekSubjectShutdownNotifier()
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!observers_.empty()) {
        detachAllObserversLocked();
    }
}

vekObservableStatus vekSubjectShutdownNotifier::attach(IObserver* observer, vekObservableAspect aspect)
{
    if (observer == nullptr) {
        return VEK_OBSERVABLE_STATUS_INVALID_OBSERVER;
    }
    const std::string observerName = observer->getObserverName();
    std::lock_guard<std::mutex> guard(mutex_);
    VEK_LOG_DEBUG(TAG, "Subject[%s]: Received attach request for observer [%s].", subjectName_.c_str(),
                  observerName.c_str());
    if (aspect != VEK_OBSERVABLE_ASPECT_SHUTDOWN) {
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Observable aspect [%d] not supported.", subjectName_.c_str(), aspect);
        return VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT;
    }
    if (shutdownInitiated_) {
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Not registering observer [%s] since shutdown is already initiated.",
                      subjectName_.c_str(), observerName.c_str());
        return VEK_OBSERVABLE_STATUS_SHUTDOWN_INITIATED;
    }
    const vekObservableStatus status = observer->notifyAttach(this, aspect);
    if (status != VEK_OBSERVABLE_STATUS_SUCCESS) {
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Observer [%s] failed notify-attach query with status [%d].",
                      subjectName_.c_str(), observerName.c_str(), status);
        return status;
    }
    observers_.push_back(observer);
    VEK_LOG_DEBUG(TAG, "Subject[%s]: Observer [%s] successfully added to registered observers list.",
                  subjectName_.c_str(), observerName.c_str());
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

void vekSubjectShutdownNotifier::detach(IObserver* observer)
{
    if (observer == nullptr) {
        return;
    }
    const std::string observerName = observer->getObserverName();
    std::lock_guard<std::mutex> guard(mutex_);
    VEK_LOG_DEBUG(TAG, "Subject[%s]: Received detach request for observer [%s].", subjectName_.c_str(),
                  observerName.c_str());
    auto found = std::find(observers_.begin(), observers_.end(), observer);
    if (found == observers_.end()) {
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Observer [%s] not found in registered observers list!", subjectName_.c_str(),
                      observerName.c_str());
        return;
    }
    observers_.erase(found);
    VEK_LOG_DEBUG(TAG, "Subject[%s]: Detached observer [%s].", subjectName_.c_str(), observerName.c_str());
}

void vekSubjectShutdownNotifier::detachAllObservers()
{
    std::lock_guard<std::mutex> guard(mutex_);
    detachAllObserversLocked();
}

void vekSubjectShutdownNotifier::detachAllObserversLocked()
{
    VEK_LOG_DEBUG(TAG, "Subject[%s]: Detaching all observers.", subjectName_.c_str());
    for (IObserver* observer : observers_) {
        observer->notifyDetach(this, VEK_OBSERVABLE_ASPECT_SHUTDOWN);
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Detached observer [%s].", subjectName_.c_str(),
                      observer->getObserverName().c_str());
    }
    observers_.clear();
}

size_t vekSubjectShutdownNotifier::getObserverCount()
{
    std::lock_guard<std::mutex> guard(mutex_);
    VEK_LOG_DEBUG(TAG, "Subject[%s]: # of registered observers = [%zu].", subjectName_.c_str(), observers_.size());
    return observers_.size();
}

std::string vekSubjectShutdownNotifier::getSubjectName() const
{
    // Fixed at construction, so observers may ask for it while this subject's
    // lock is held by the notification that called them.
    return subjectName_;
}

bool vekSubjectShutdownNotifier::isSubjectShutdownInitiated()
{
    std::lock_guard<std::mutex> guard(mutex_);
    return shutdownInitiated_;
}

void vekSubjectShutdownNotifier::signalSubjectShutdown()
{
    std::lock_guard<std::mutex> guard(mutex_);
    VEK_LOG_DEBUG(TAG, "Subject[%s]: signalSubjectShutdown() called.", subjectName_.c_str());
    if (shutdownInitiated_) {
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Shutdown already signalled prevously.", subjectName_.c_str());
        return;
    }
    shutdownInitiated_ = true;
    for (IObserver* observer : observers_) {
        const std::string observerName = observer->getObserverName();
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Notifying observer [%s] of subject shutdown event.", subjectName_.c_str(),
                      observerName.c_str());
        observer->notifyChange(this, VEK_OBSERVABLE_ASPECT_SHUTDOWN, subjectName_);
        VEK_LOG_DEBUG(TAG, "Subject[%s]: Notified observer [%s] of subject shutdown.", subjectName_.c_str(),
                      observerName.c_str());
    }
}
