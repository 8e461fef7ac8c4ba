#pragma once

// The subject side of the subject-observer protocol. Observers are not owned:
// an observer detaches itself before it goes.

#include "IObserver.h"

#include <cstddef>
#include <string>

class ISubject {
public:
    virtual ~ISubject() {}

    virtual vekObservableStatus attach(IObserver* observer, vekObservableAspect aspect) = 0;
    virtual void detach(IObserver* observer) = 0;
    virtual size_t getObserverCount() = 0;
    virtual std::string getSubjectName() const = 0;
};
