#pragma once

#include "ISubject.h"
#include "IObserver.h"
#include "vekLog.h"

#include <string>

// The one subject an adapter family's event manager listens to, for one
// aspect: the attach and detach answers both families give, logged with the
// manager's own tag.
class vekSubjectAttachment {
public:
    vekSubjectAttachment(const char* tag, vekObservableAspect aspect) : tag_(tag), aspect_(aspect) {}

    ISubject* subject() const { return subject_; }
    bool isAttachedTo(const ISubject* subject) const { return attached_ && subject == subject_; }

    vekObservableStatus attach(const std::string& me, ISubject* subject, vekObservableAspect aspect)
    {
        const std::string name = subject != nullptr ? subject->getSubjectName() : "";
        if (aspect != aspect_) {
            VEK_LOG_WARNING(tag_, "Observer[%s]: Unrecognized aspect [%d].", me.c_str(), aspect);
            return VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT;
        }
        if (!attached_) {
            VEK_LOG_DEBUG(tag_, "Observer[%s]: Processing attach notification from subject [%s].", me.c_str(),
                          name.c_str());
            subject_ = subject;
            attached_ = true;
            return VEK_OBSERVABLE_STATUS_SUCCESS;
        }
        if (subject_ == subject) {
            VEK_LOG_DEBUG(tag_, "Observer[%s]: Duplicate attach notification from subject [%s].", me.c_str(),
                          name.c_str());
            return VEK_OBSERVABLE_STATUS_SUCCESS;
        }
        VEK_LOG_WARNING(
            tag_,
            "Observer[%s]: Attach notification received from subject [%s] when already attached to subject [%s].",
            me.c_str(), name.c_str(), subject_->getSubjectName().c_str());
        return VEK_OBSERVABLE_STATUS_ALREADY_ATTACHED;
    }

    vekObservableStatus detach(const std::string& me, ISubject* subject, vekObservableAspect aspect)
    {
        const std::string name = subject != nullptr ? subject->getSubjectName() : "";
        if (attached_ && subject == subject_ && aspect == aspect_) {
            VEK_LOG_DEBUG(tag_, "Observer[%s]: Detaching from subject [%s].", me.c_str(), name.c_str());
            subject_ = nullptr;
            attached_ = false;
            return VEK_OBSERVABLE_STATUS_SUCCESS;
        }
        VEK_LOG_WARNING(tag_,
                        "Observer[%s]: Not detached due to unregistered observer [%s], unrecognized subject [%s] or "
                        "aspect [%d].",
                        me.c_str(), attached_ ? "true" : "false", name.c_str(), aspect);
        return VEK_OBSERVABLE_STATUS_NOT_ATTACHED;
    }

private:
    const char* const tag_;
    const vekObservableAspect aspect_;
    ISubject* subject_ = nullptr;
    bool attached_ = false;
};
