#pragma once

// A MegaRAID controller found through the Scrutiny library, with the
// library's device info block, which the record owns.

#include "vekScrutinyLibrary.h"

#include <memory>
#include <string>

class dsiControllerInfo {
public:
    dsiControllerInfo() = default;
    virtual ~dsiControllerInfo() = default;

    dsiControllerInfo(const dsiControllerInfo&) = delete;
    dsiControllerInfo& operator=(const dsiControllerInfo&) = delete;

    virtual _SCRUTINY_DEVICE_INFO* getScrutinyDeviceInfo() const { return deviceInfo_.get(); }
    // Takes ownership of a block made with new.
    virtual void setScrutinyDeviceInfo(_SCRUTINY_DEVICE_INFO* deviceInfo) { deviceInfo_.reset(deviceInfo); }
    virtual unsigned getChipsetID() const { return chipsetID_; }
    virtual void setChipsetID(unsigned chipsetID) { chipsetID_ = chipsetID; }
    virtual unsigned getBoardID() const { return boardID_; }
    virtual void setBoardID(unsigned boardID) { boardID_ = boardID; }
    virtual std::string getPCIAddress() const { return pciAddress_; }
    virtual void setPCIAddress(const std::string& pciAddress) { pciAddress_ = pciAddress; }
    virtual std::string getSerialNumber() const { return serialNumber_; }
    virtual void setSerialNumber(const std::string& serialNumber) { serialNumber_ = serialNumber; }

private:
    std::unique_ptr<_SCRUTINY_DEVICE_INFO> deviceInfo_;
    unsigned chipsetID_ = 0;
    unsigned boardID_ = 0;
    std::string pciAddress_;
    std::string serialNumber_;
};
