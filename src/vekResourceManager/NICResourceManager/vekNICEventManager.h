#pragma once

#include "IObserver.h"
#include "vekSubjectAttachment.h"
#include "NICDeviceInfo.h"
#include "vekIODevicePortContext.h"
#include "vekIOMatrixInterface.h"
#include "vekNICEventNotifier.h"
#include "vekNetworkEventManager.h"

#include <json/json.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class vekOSInterface;
class vekPlatformServices;

// Turns the port statuses the poller reads into events: each watched port
// has a state machine that decides whether a status is a change, and this
// manager builds and sends the event of a change and writes the new status
// into the inventory.
class vekNICEventManager : public IObserver, public vekNetworkEventManager, public vekNICPortObserver {
public:
    vekNICEventManager(vekPlatformServices* services, vekOSInterface* system);
    ~vekNICEventManager() override = default;

    vekNICEventManager(const vekNICEventManager&) = delete;
    vekNICEventManager& operator=(const vekNICEventManager&) = delete;

    // IObserver
    vekObservableStatus init() override { return VEK_OBSERVABLE_STATUS_SUCCESS; }
    vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text) override;
    vekObservableStatus notifyAttach(ISubject* subject, vekObservableAspect aspect) override;
    vekObservableStatus notifyDetach(ISubject* subject, vekObservableAspect aspect) override;
    std::string getObserverName() const override { return "vekNICEventManager"; }
    ISubject* getSubject() const override { return attachment_.subject(); }

    // The status of one port, from the poller.
    vekObservableStatus notifyChange(ISubject* subject, vekObservableAspect aspect, std::string text,
                                     std::string name, VEK_RESOURCE_STATE* state,
                                     VEK_RESOURCE_HEALTH* health) override;

    // vekNetworkEventManager
    void generateNetworkEvent(const std::string& device, const IELEVENT::IELEventId& id,
                              const bool& serviceEvent) override;
    void postProcessingEventNotification(const std::string& device) override;
    std::string getEventInfoDescription(const IELEVENT::IELEventId& id) override;
    void setEventPayloadAttributes(const NetworkEvents& event, const std::string& device, IELEVENT::IELEventId& id,
                                   bool& serviceEvent) override;

    // One state machine per port whose status is one of the watched ones,
    // starting in that status.
    void initNICDevicesPortContextMap(const std::vector<std::string>& names);
    // The status a state machine understands; Not_Found for the others.
    static NetworkEvents computeNICDevicePortState(VEK_RESOURCE_STATE state, VEK_RESOURCE_HEALTH health);
    // The event's variable data: the adapter without its status, the type
    // and the description of the event.
    Json::Value getVariableData(NICDeviceInfo& info, IELEVENT::IELEventId id);
    // The ids of the ports watched now, and their states.
    std::map<std::string, int> getPortStates();

private:
    std::unique_ptr<vekIODevicePortContext> fetchNICDevicePortContext(const std::string& name);
    void updateNICDevicePortContext(const std::string& name, std::unique_ptr<vekIODevicePortContext> context);

    vekSubjectAttachment attachment_;
    bool changed_ = false;
    std::map<std::string, std::unique_ptr<vekIODevicePortContext>> nicDevicesPortContextStateMap;
    std::mutex mapMutex_;
    vekPlatformServices* services_;
    vekOSInterface* system_;
    vekNICIOMatrixInterface matrix_;
};
