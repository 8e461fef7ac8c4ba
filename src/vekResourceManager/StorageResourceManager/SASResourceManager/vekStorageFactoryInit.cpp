#include "vekStorageFactoryInit.h"

#include "ISubject.h"
#include "vekLog.h"
#include "vekSubjectShutdownNotifier.h"
#include "vekSubjectShutdownObserver.h"

vekStorageFactoryInit::vekStorageFactoryInit() = default;
vekStorageFactoryInit::~vekStorageFactoryInit() = default;

void vekStorageFactoryInit::initialize(const char* tag, const void* factory, const char* observerName,
                                       vekOSInterface* osInterface, ISubject* shutdownSubject)
{
    if (initialized_) {
        VEK_LOG_DEBUG(tag, "Factory[%p]: Already initialized.", factory);
        return;
    }
    osInterface_ = osInterface;
    initialized_ = true;
    if (shutdownSubject == nullptr) {
        VEK_LOG_DEBUG(tag, "Factory[%p]: No shutdown subject specified during initialization process.", factory);
        return;
    }
    auto* notifier = dynamic_cast<vekSubjectShutdownNotifier*>(shutdownSubject);
    if (notifier != nullptr && notifier->isSubjectShutdownInitiated()) {
        VEK_LOG_DEBUG(tag, "Subject shutdown has already started. Hence, initialization will be skipped.");
        return;
    }
    shutdownObserver_.reset(new vekSubjectShutdownObserver(observerName));
    const vekObservableStatus status = shutdownSubject->attach(shutdownObserver_.get(), VEK_OBSERVABLE_ASPECT_SHUTDOWN);
    if (status != VEK_OBSERVABLE_STATUS_SUCCESS) {
        VEK_LOG_WARNING(tag, "Factory[%p]: Registration with shutdown subject failed (status: %d).", factory, status);
    } else {
        VEK_LOG_DEBUG(tag, "Factory[%p]: Successfully registered to receive subject shutdown notification.", factory);
    }
}

bool vekStorageFactoryInit::shutdownDetected() const
{
    return shutdownObserver_ && shutdownObserver_->isSubjectShutdownInitiated();
}
