#include "vekSubjectShutdownObserver.h"

#include "vekLog.h"

#include <utility>

namespace {
const char TAG[] = "DSSO";

std::string nameOf(const ISubject* subject)
{
    return subject != nullptr ? subject->getSubjectName() : std::string();
}
} // namespace

vekSubjectShutdownObserver::vekSubjectShutdownObserver(std::string observerName, ISubject* subject)
    : observerName_(std::move(observerName))
{
    if (subject != nullptr) {
        VEK_LOG_DEBUG(TAG, "Register observer [%s] in construction with subject [%s].", observerName_.c_str(),
                      nameOf(subject).c_str());
        const vekObservableStatus status = subject->attach(this, VEK_OBSERVABLE_ASPECT_SHUTDOWN);
        if (status != VEK_OBSERVABLE_STATUS_SUCCESS) {
            VEK_LOG_WARNING(TAG, "Failed to register observer [%s] with subject [%s] during construction. (status: %d)",
                            observerName_.c_str(), nameOf(subject).c_str(), status);
            return;
        }
    }
    VEK_LOG_DEBUG(TAG, "Observer[%s]: created.", observerName_.c_str());
}

vekSubjectShutdownObserver::~vekSubjectShutdownObserver()
{
    VEK_LOG_DEBUG(TAG, "Observer [%s]: Clearing subject during cleanup.", observerName_.c_str());
    ISubject* subject = nullptr;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        subject = subject_;
        subject_ = nullptr;
        attached_ = false;
    }
    // Outside our own lock: the subject takes its lock first and may be
    // calling into us right now.
    if (subject != nullptr) {
        VEK_LOG_DEBUG(TAG, "Attempting de-registration of observer [%s] from subject [%s] during cleanup.",
                      observerName_.c_str(), nameOf(subject).c_str());
        subject->detach(this);
    }
    VEK_LOG_DEBUG(TAG, "Observer[%s]: destroyed.", observerName_.c_str());
}

vekObservableStatus vekSubjectShutdownObserver::init()
{
    // Nothing to prepare: registration happens at construction.
    return -1;
}

vekObservableStatus vekSubjectShutdownObserver::notifyChange(ISubject* subject, vekObservableAspect aspect,
                                                             std::string text)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!attached_ || subject == nullptr || subject != subject_ || aspect != VEK_OBSERVABLE_ASPECT_SHUTDOWN) {
        return VEK_OBSERVABLE_STATUS_NOT_ATTACHED;
    }
    shutdownInitiated_ = true;
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

vekObservableStatus vekSubjectShutdownObserver::notifyAttach(ISubject* subject, vekObservableAspect aspect)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (aspect != VEK_OBSERVABLE_ASPECT_SHUTDOWN) {
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Unrecognized aspect [%d].", observerName_.c_str(), aspect);
        return VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT;
    }
    if (subject == nullptr) {
        return VEK_OBSERVABLE_STATUS_FAILURE;
    }
    if (attached_ && subject_ != subject) {
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Attach notification received from subject [%s] when already attached to "
                           "subject [%s].",
                      observerName_.c_str(), nameOf(subject).c_str(), nameOf(subject_).c_str());
        return VEK_OBSERVABLE_STATUS_ALREADY_ATTACHED;
    }
    if (attached_) {
        // Refused, so that the subject does not list us twice and keep a
        // stale entry after our detach.
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Duplicate attach notification from subject [%s].", observerName_.c_str(),
                      nameOf(subject).c_str());
        return VEK_OBSERVABLE_STATUS_ALREADY_ATTACHED;
    }
    VEK_LOG_DEBUG(TAG, "Observer[%s]: Processing attach notification from subject [%s].", observerName_.c_str(),
                  nameOf(subject).c_str());
    subject_ = subject;
    attached_ = true;
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

vekObservableStatus vekSubjectShutdownObserver::notifyDetach(ISubject* subject, vekObservableAspect aspect)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!attached_ || subject == nullptr || subject != subject_ || aspect != VEK_OBSERVABLE_ASPECT_SHUTDOWN) {
        VEK_LOG_DEBUG(TAG, "Observer[%s]: Not detached due to unregistered observer [%s], unrecognized subject [%s] or "
                           "aspect [%d].",
                      observerName_.c_str(), attached_ ? "true" : "false", nameOf(subject).c_str(), aspect);
        return VEK_OBSERVABLE_STATUS_NOT_ATTACHED;
    }
    VEK_LOG_DEBUG(TAG, "Observer[%s]: Detaching from subject [%s].", observerName_.c_str(), nameOf(subject).c_str());
    subject_ = nullptr;
    attached_ = false;
    return VEK_OBSERVABLE_STATUS_SUCCESS;
}

std::string vekSubjectShutdownObserver::getObserverName() const
{
    return observerName_;
}

ISubject* vekSubjectShutdownObserver::getSubject() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return subject_;
}

bool vekSubjectShutdownObserver::isSubjectShutdownInitiated() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return shutdownInitiated_;
}
