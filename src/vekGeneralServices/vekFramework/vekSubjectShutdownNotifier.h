#pragma once

// Tells the long-running workers of a Resource Manager that shutdown has
// begun, so that a discovery loop can give up early instead of delaying stop.
// Observers attach for the shutdown aspect only; once shutdown is signalled
// no one can attach any more.

#include "ISubject.h"

#include <mutex>
#include <string>
#include <vector>

class vekSubjectShutdownNotifier : public ISubject {
public:
    explicit vekSubjectShutdownNotifier(std::string subjectName);
    // Observers still attached are told of the detach, so none of them keeps
    // a pointer to a subject that is gone.
    ~vekSubjectShutdownNotifier() override;

    vekSubjectShutdownNotifier(const vekSubjectShutdownNotifier&) = delete;
    vekSubjectShutdownNotifier& operator=(const vekSubjectShutdownNotifier&) = delete;

    vekObservableStatus attach(IObserver* observer, vekObservableAspect aspect) override;
    void detach(IObserver* observer) override;
    size_t getObserverCount() override;
    std::string getSubjectName() const override;

    void detachAllObservers();
    bool isSubjectShutdownInitiated();

    // Once only: every registered observer hears of it, in order of
    // registration, and stays registered. A second call does nothing.
    void signalSubjectShutdown();

private:
    void detachAllObserversLocked();

    const std::string subjectName_;
    bool shutdownInitiated_ = false;
    // Held while observers are notified; an observer takes its own lock
    // inside, never the other way round.
    std::mutex mutex_;
    std::vector<IObserver*> observers_;
};
