#pragma once

#include <memory>

class ISubject;
class vekOSInterface;
class vekSubjectShutdownObserver;

// What every storage controller factory keeps from its initialisation: the
// OS interface its controllers are made with, and an observer of the
// service's shutdown, so that a long discovery can end early. The factory
// calls it under its own lock.
class vekStorageFactoryInit {
public:
    vekStorageFactoryInit();
    ~vekStorageFactoryInit();
    vekStorageFactoryInit(const vekStorageFactoryInit&) = delete;
    vekStorageFactoryInit& operator=(const vekStorageFactoryInit&) = delete;

    // Logs with the factory's tag. A second call changes nothing. Without a
    // subject, or once its shutdown has begun, no observer is registered.
    void initialize(const char* tag, const void* factory, const char* observerName, vekOSInterface* osInterface,
                    ISubject* shutdownSubject);
    bool shutdownDetected() const;
    vekOSInterface* osInterface() const { return osInterface_; }

private:
    std::unique_ptr<vekSubjectShutdownObserver> shutdownObserver_;
    vekOSInterface* osInterface_ = nullptr;
    bool initialized_ = false;
};
