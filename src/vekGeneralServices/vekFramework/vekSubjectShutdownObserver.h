#pragma once

// The ready-made observer of a shutdown subject: a worker keeps one and polls
// isSubjectShutdownInitiated() in its loop to give up early at stop.

#include "IObserver.h"
#include "ISubject.h"

#include <mutex>
#include <string>

class vekSubjectShutdownObserver : public IObserver {
public:
    // Registers with the subject at once. A refused registration leaves an
    // observer that works but never sees the shutdown. Without a subject the
    // owner attaches it later with subject->attach(&observer, 2).
    explicit vekSubjectShutdownObserver(std::string observerName, ISubject* subject = nullptr);
    // De-registers from the subject; must not happen inside a notification.
    ~vekSubjectShutdownObserver() override;

    vekSubjectShutdownObserver(const vekSubjectShutdownObserver&) = delete;
    vekSubjectShutdownObserver& operator=(const vekSubjectShutdownObserver&) = delete;

    vekObservableStatus init() override;
    vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text) override;
    vekObservableStatus notifyAttach(ISubject* subject, vekObservableAspect aspect) override;
    vekObservableStatus notifyDetach(ISubject* subject, vekObservableAspect aspect) override;
    std::string getObserverName() const override;
    ISubject* getSubject() const override;

    bool isSubjectShutdownInitiated() const;

private:
    ISubject* subject_ = nullptr;
    bool attached_ = false;
    bool shutdownInitiated_ = false;
    mutable std::mutex mutex_;
    const std::string observerName_;
};
