#pragma once

#include <json/json.h>

#include <string>
#include <utility>

// One event for the RMC, as a value. The id is the RMC's own event number
// (IELEventResolver gives it). Module name, part number and the service flag
// serve only the collectors and never reach the RMC.
class vekEvent {
public:
    vekEvent() = default;

    vekEvent(int id, std::string moduleName, std::string partNum, bool isService, std::string eventTime,
             std::string phyLoc, std::string source)
        : eventId_(id),
          eventTime_(std::move(eventTime)),
          isServiceEvent_(isService),
          moduleName_(std::move(moduleName)),
          partNum_(std::move(partNum)),
          phyLoc_(std::move(phyLoc)),
          source_(std::move(source))
    {
    }

    vekEvent(int id, std::string moduleName, bool isService, std::string eventTime, Json::Value variableData,
             std::string source)
        : eventId_(id),
          eventTime_(std::move(eventTime)),
          isServiceEvent_(isService),
          moduleName_(std::move(moduleName)),
          source_(std::move(source)),
          variableData_(std::move(variableData))
    {
    }

    vekEvent(int id, std::string moduleName, std::string partNum, bool isService, std::string eventTime,
             std::string phyLoc, Json::Value variableData, std::string source)
        : eventId_(id),
          eventTime_(std::move(eventTime)),
          isServiceEvent_(isService),
          moduleName_(std::move(moduleName)),
          partNum_(std::move(partNum)),
          phyLoc_(std::move(phyLoc)),
          source_(std::move(source)),
          variableData_(std::move(variableData))
    {
    }

    int getEventID() const { return eventId_; }
    const std::string& getEventTime() const { return eventTime_; }
    bool getisServiceEvent() const { return isServiceEvent_; }
    const std::string& getModuleName() const { return moduleName_; }
    const std::string& getPartNum() const { return partNum_; }
    const std::string& getPhyLoc() const { return phyLoc_; }
    // Whether the physical location names a place: not empty and none of the
    // words that mean "no location", which keep the member out of the event.
    bool hasPhysicalLocation() const
    {
        return !phyLoc_.empty() && phyLoc_ != "Not Applicable" && phyLoc_ != "Not Available" &&
               phyLoc_ != "NotApplicable" && phyLoc_ != "NotAvailable";
    }
    const std::string& getSource() const { return source_; }
    const Json::Value& getVariableData() const { return variableData_; }

private:
    int eventId_ = 0;
    std::string eventTime_;
    bool isServiceEvent_ = false;
    std::string moduleName_;
    std::string partNum_;
    std::string phyLoc_;
    std::string source_;
    Json::Value variableData_;
};

// What every event carries that does not change during a run; set once at
// service start (vekInBandComManager::initMessageHeader).
struct msgHeader {
    std::string HostName;
    std::string OSVersion;
    int OSType = 0;
    std::string IPAddress;
};
