#include "vekIODevicePortContext.h"

#include "vekLog.h"

#include <stdexcept>

namespace {
const char TAG[] = "IO_PORT_STATE";
} // namespace

const char* vekNetworkEventName(int event)
{
    static const std::map<int, const char*> names{
        {Port_Link_Up, "Port_Link_Up"},
        {Port_Link_Down, "Port_Link_Down"},
        {Port_Link_Initializing, "Port_Link_Initializing"},
        {Port_Link_Disabled, "Port_Link_Disabled"},
        {Port_Error, "Port_Error"},
        {Port_NIC_OK, "Port_NIC_OK"},
        {Admin_Up_Link_Down, "Admin_Up_Link_Down"},
        {Not_Found, "Not_Found"},
    };
    const auto found = names.find(event);
    return found != names.end() ? found->second : "Not_Found";
}

// ---- the state base ----

void vekIODevicePortState::handleEvent(NetworkEvents event)
{
    VEK_LOG_DEBUG(TAG, "%s received state transition notification : %d", name_.c_str(), static_cast<int>(event));
    std::shared_ptr<vekIODevicePortState> next = getNextState(event);
    if (next && next->getStateID() == getStateID()) {
        VEK_LOG_DEBUG(TAG, "Ignoring state transition notification");
        return;
    }
    context_->transitionPortState(next);
}

void vekIODevicePortState::setContext(vekIODevicePortContext* context)
{
    context_ = context;
}

void vekIODevicePortState::send(NetworkEvents event)
{
    vekNetworkEventManager* manager = context_->getEventManager();
    const std::string device = context_->getAssociatedDeviceName();
    IELEVENT::IELEventId id = static_cast<IELEVENT::IELEventId>(0);
    bool serviceEvent = false;
    manager->setEventPayloadAttributes(event, device, id, serviceEvent);
    manager->generateNetworkEvent(device, id, serviceEvent);
}

std::shared_ptr<vekIODevicePortState> vekIODevicePortState::stay(const char* line)
{
    VEK_LOG_DEBUG(TAG, "%s", line);
    return context_->getState(static_cast<NetworkEvents>(getStateID()));
}

// ---- Up ----

void portLinkupState::entry(const vekIODevicePortState& from)
{
    VEK_LOG_DEBUG(TAG, "Entering into Port Link UP state");
    previousStateId = from.getStateID();
}

void portLinkupState::exit()
{
    VEK_LOG_DEBUG(TAG, "Exiting from Port Link Up state");
}

int portLinkupState::exec()
{
    if (previousStateId == -1) {
        return -1;
    }
    // Out of an error the recovery goes first, then the link.
    if (previousStateId == Port_Error) {
        send(Port_NIC_OK);
    }
    send(Port_Link_Up);
    context_->getEventManager()->postProcessingEventNotification(context_->getAssociatedDeviceName());
    return 0;
}

std::shared_ptr<vekIODevicePortState> portLinkupState::getNextState(const NetworkEvents& event)
{
    switch (event) {
    case Port_Link_Up:
    case Port_Link_Down:
    case Port_Link_Disabled:
    case Port_Error:
        return context_->getState(event);
    default:
        // An Up port does not go straight to Initializing.
        return stay("Not exiting from Port Link Up state");
    }
}

// ---- Down ----

void portLinkdownState::entry(const vekIODevicePortState& from)
{
    VEK_LOG_DEBUG(TAG, "Entering into Port Link Down state");
    previousStateId = from.getStateID();
}

void portLinkdownState::exit()
{
    VEK_LOG_DEBUG(TAG, "Exiting from Port Link Down state");
}

int portLinkdownState::exec()
{
    if (previousStateId == -1) {
        return -1;
    }
    send(Port_Link_Down);
    context_->getEventManager()->postProcessingEventNotification(context_->getAssociatedDeviceName());
    return 0;
}

std::shared_ptr<vekIODevicePortState> portLinkdownState::getNextState(const NetworkEvents& event)
{
    if (event == Port_Link_Disabled) {
        // The down report goes on standing.
        return stay("Not exiting from Port Link Down state");
    }
    return context_->getState(event);
}

// ---- Initializing ----

void portLinkInitializingState::entry(const vekIODevicePortState& from)
{
    VEK_LOG_DEBUG(TAG, "Entering into Port Link Initializing state");
    previousStateId = from.getStateID();
}

void portLinkInitializingState::exit()
{
    VEK_LOG_DEBUG(TAG, "Exiting from Port Link Initializing state");
}

int portLinkInitializingState::exec()
{
    const std::string device = context_->getAssociatedDeviceName();
    VEK_LOG_DEBUG(TAG, "Ignore generating event for %s as the port is initializing", device.c_str());
    context_->getEventManager()->postProcessingEventNotification(device);
    return 0;
}

std::shared_ptr<vekIODevicePortState> portLinkInitializingState::getNextState(const NetworkEvents& event)
{
    return context_->getState(event);
}

// ---- Disabled ----

void portLinkDisabledState::entry(const vekIODevicePortState& from)
{
    VEK_LOG_DEBUG(TAG, "Entering into Port Link Disabled state");
    previousStateId = from.getStateID();
}

void portLinkDisabledState::exit()
{
    VEK_LOG_DEBUG(TAG, "Exiting from Port Link Disabled state");
}

int portLinkDisabledState::exec()
{
    const std::string device = context_->getAssociatedDeviceName();
    VEK_LOG_DEBUG(TAG, "Ignore generating event for %s as the port is disabled", device.c_str());
    context_->getEventManager()->postProcessingEventNotification(device);
    return 0;
}

std::shared_ptr<vekIODevicePortState> portLinkDisabledState::getNextState(const NetworkEvents& event)
{
    switch (event) {
    case Port_Link_Up:
    case Port_Link_Initializing:
    case Port_Link_Disabled:
    case Port_Error:
        return context_->getState(event);
    default:
        // A disabled port ignores a down report: it must come up first.
        return stay("Not exiting from Port Link Disabled state");
    }
}

// ---- Error ----

void portErrorState::entry(const vekIODevicePortState& from)
{
    VEK_LOG_DEBUG(TAG, "Entering into Port Error state");
    previousStateId = from.getStateID();
}

void portErrorState::exit()
{
    VEK_LOG_DEBUG(TAG, "Exiting from Port Error state");
}

int portErrorState::exec()
{
    if (previousStateId == -1) {
        return -1;
    }
    send(Port_Error);
    context_->getEventManager()->postProcessingEventNotification(context_->getAssociatedDeviceName());
    return 0;
}

std::shared_ptr<vekIODevicePortState> portErrorState::getNextState(const NetworkEvents& event)
{
    return context_->getState(event);
}

// ---- the context ----

vekIODevicePortContext::vekIODevicePortContext(NetworkEvents initial, std::string device,
                                               vekNetworkEventManager* manager)
    : manager_(manager), device_(std::move(device))
{
    initializeIODevicePortStateMap();
    current_ = states_[initial];
    if (current_) {
        current_->setContext(this);
    }
}

void vekIODevicePortContext::initializeIODevicePortStateMap()
{
    states_[Port_Link_Up] = std::make_shared<portLinkupState>();
    states_[Port_Link_Down] = std::make_shared<portLinkdownState>();
    states_[Port_Link_Initializing] = std::make_shared<portLinkInitializingState>();
    states_[Port_Link_Disabled] = std::make_shared<portLinkDisabledState>();
    states_[Port_Error] = std::make_shared<portErrorState>();
    for (auto& entry : states_) {
        entry.second->setContext(this);
    }
}

std::shared_ptr<vekIODevicePortState> vekIODevicePortContext::getState(const NetworkEvents& event)
{
    return states_[event];
}

void vekIODevicePortContext::handlePortStateChange(NetworkEvents event)
{
    try {
        current_->handleEvent(event);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Exception caught! {%s}", e.what());
    }
}

void vekIODevicePortContext::transitionPortState(std::shared_ptr<vekIODevicePortState> next)
{
    VEK_LOG_DEBUG(TAG, "Device : %s is transitioning from %s", device_.c_str(),
                  vekNetworkEventName(current_->getStateID()));
    if (!next) {
        throw std::runtime_error("Undefined IO Device Port State!!!");
    }
    try {
        current_->exit();
        next->entry(*current_);
        current_ = next;
        current_->setContext(this);
        const int status = current_->exec();
        if (status != 0) {
            VEK_LOG_WARNING(TAG, "Could not execute the necessary action items in the transitioned state : (%d)",
                            current_->getStateID());
        }
    } catch (const std::exception& e) {
        // Whatever stopped the state's actions (an event that could not be
        // built) ends this transition; the new state holds.
        VEK_LOG_ERROR(TAG, "Issue occurred in transitioning from one state to another state: %s", e.what());
        return;
    }
    VEK_LOG_DEBUG(TAG, "Device : %s is transitioned to %s", device_.c_str(),
                  vekNetworkEventName(current_->getStateID()));
}
