#pragma once

// The observer side of the subject-observer protocol: a subject asks an
// observer whether it may attach it, tells it of changes of one aspect, and
// of its detaching.

#include <string>

class ISubject;

// What a subject can be observed for.
typedef int vekObservableAspect;
const vekObservableAspect VEK_OBSERVABLE_ASPECT_SHUTDOWN = 2;
const vekObservableAspect VEK_OBSERVABLE_ASPECT_NIC = 3;
const vekObservableAspect VEK_OBSERVABLE_ASPECT_FC = 7;

// Status of the attach and notify calls; 0 is success, anything else a failure.
typedef int vekObservableStatus;
const vekObservableStatus VEK_OBSERVABLE_STATUS_SUCCESS = 0;
const vekObservableStatus VEK_OBSERVABLE_STATUS_FAILURE = -1;
const vekObservableStatus VEK_OBSERVABLE_STATUS_INVALID_OBSERVER = -2;
const vekObservableStatus VEK_OBSERVABLE_STATUS_UNSUPPORTED_ASPECT = -3;
const vekObservableStatus VEK_OBSERVABLE_STATUS_SHUTDOWN_INITIATED = -4;
const vekObservableStatus VEK_OBSERVABLE_STATUS_ALREADY_ATTACHED = -5;
const vekObservableStatus VEK_OBSERVABLE_STATUS_NOT_ATTACHED = -6;

class IObserver {
public:
    virtual ~IObserver() {}

    virtual vekObservableStatus init() = 0;
    virtual vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text) = 0;
    // Called by a subject before it registers the observer; a failure keeps
    // the observer off the subject's list.
    virtual vekObservableStatus notifyAttach(ISubject* subject, vekObservableAspect aspect) = 0;
    virtual vekObservableStatus notifyDetach(ISubject* subject, vekObservableAspect aspect) = 0;
    virtual std::string getObserverName() const = 0;
    virtual ISubject* getSubject() const = 0;
};
