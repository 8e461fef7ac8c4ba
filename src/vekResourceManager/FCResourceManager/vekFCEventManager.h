#pragma once

#include "FCDeviceInfo.h"
#include "IObserver.h"
#include "vekSubjectAttachment.h"
#include "vekFCEventNotifier.h"

#include <json/json.h>

#include <string>

class vekPlatformServices;

// Turns the changes the FC poller reports into events for the RMC and writes
// the adapter's new status into the inventory.
class vekFCEventManager : public IObserver, public vekFCPortObserver {
public:
    explicit vekFCEventManager(vekPlatformServices* services);
    ~vekFCEventManager() override = default;

    vekFCEventManager(const vekFCEventManager&) = delete;
    vekFCEventManager& operator=(const vekFCEventManager&) = delete;

    vekObservableStatus init() override { return VEK_OBSERVABLE_STATUS_SUCCESS; }
    vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text) override;
    vekObservableStatus notifyAttach(ISubject* subject, vekObservableAspect aspect) override;
    vekObservableStatus notifyDetach(ISubject* subject, vekObservableAspect aspect) override;
    std::string getObserverName() const override { return "vekFCEventManager"; }
    ISubject* getSubject() const override { return attachment_.subject(); }

    // A change of one adapter, from the poller.
    vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text,
                                     std::string name, int eventId, bool serviceEvent, FCDeviceInfo* info) override;

    // The event's variable data: the adapter, the type and the event's text.
    static Json::Value getVariableData(const FCDeviceInfo& info, int eventId);

private:
    void processEventGeneration(const std::string& name, int eventId, bool serviceEvent, FCDeviceInfo& info);
    void generateEvent(int eventId, bool serviceEvent, FCDeviceInfo& info);

    vekSubjectAttachment attachment_;
    vekPlatformServices* services_;
};
