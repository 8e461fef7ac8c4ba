#pragma once

// One enclosure segment: what the UBM controller and the FRU EEPROM on one
// I2C bus behind a MegaRAID told about their backplane. A field nobody could
// read keeps its start value.

#include "vekUBMUtils.h"

#include <cstdint>
#include <string>
#include <vector>

class dsiEnclosureSegmentInfo {
public:
    dsiEnclosureSegmentInfo() = default;
    virtual ~dsiEnclosureSegmentInfo() = default;

    virtual std::string getManufacturerName() const { return manufacturerName_; }
    virtual void setManufacturerName(const std::string& value) { manufacturerName_ = value; }
    virtual std::string getProductName() const { return productName_; }
    virtual void setProductName(const std::string& value) { productName_ = value; }
    virtual std::string getSerialNumber() const { return serialNumber_; }
    virtual void setSerialNumber(const std::string& value) { serialNumber_ = value; }
    virtual std::string getPartNumber() const { return partNumber_; }
    virtual void setPartNumber(const std::string& value) { partNumber_ = value; }
    virtual std::string getBackplaneType() const { return backplaneType_; }
    virtual void setBackplaneType(const std::string& value) { backplaneType_ = value; }
    virtual int getBayCount() const { return bayCount_; }
    virtual void setBayCount(int value) { bayCount_ = value; }
    virtual int getBoxNumber() const { return boxNumber_; }
    virtual void setBoxNumber(int value) { boxNumber_ = value; }
    virtual uint16_t getUBMBackplanePCIVendorID() const { return vendorID_; }
    virtual void setUBMBackplanePCIVendorID(uint16_t value) { vendorID_ = value; }
    virtual std::string getUBMBackplaneStandardVersion() const { return standardVersion_; }
    virtual void setUBMBackplaneStandardVersion(const std::string& value) { standardVersion_ = value; }
    virtual uint32_t getUBMControllerDeviceCode() const { return deviceCode_; }
    virtual void setUBMControllerDeviceCode(uint32_t value) { deviceCode_ = value; }
    virtual std::string getUBMBackplaneImageVersion() const { return imageVersion_; }
    virtual void setUBMBackplaneImageVersion(const std::string& value) { imageVersion_ = value; }
    virtual UBM_CONTROLLER_OPERATIONAL_STATE getUBMControllerOperationalState() const { return state_; }
    virtual void setUBMControllerOperationalState(UBM_CONTROLLER_OPERATIONAL_STATE value) { state_ = value; }
    virtual uint8_t getI2CBusNumber() const { return bus_; }
    virtual void setI2CBusNumber(uint8_t value) { bus_ = value; }

    virtual std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR> getUBMPortRouteInfoVector() const { return routes_; }
    virtual void setUBMPortRouteInfoVector(const std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR>& value)
    {
        routes_ = value;
    }
    // std::out_of_range for an index past the list.
    virtual UBM_PORT_ROUTE_INFO_DESCRIPTOR getUBMPortRouteInfo(size_t index) const { return routes_.at(index); }
    virtual void setUBMPortRouteInfo(size_t index, const UBM_PORT_ROUTE_INFO_DESCRIPTOR& value)
    {
        routes_.at(index) = value;
    }
    virtual void addUBMPortRouteInfo(const UBM_PORT_ROUTE_INFO_DESCRIPTOR& value) { routes_.push_back(value); }
    virtual void clearUBMPortRouteInfoList() { routes_.clear(); }
    virtual size_t getUBMPortRouteInfoListSize() const { return routes_.size(); }
    // An index past the list deletes nothing.
    virtual void deleteUBMPortRouteInfo(size_t index)
    {
        if (index < routes_.size()) {
            routes_.erase(routes_.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

private:
    std::string manufacturerName_;
    std::string productName_;
    std::string serialNumber_;
    std::string partNumber_;
    std::string backplaneType_;
    int bayCount_ = -1;
    int boxNumber_ = -1;
    uint16_t vendorID_ = 0;
    std::string standardVersion_;
    uint32_t deviceCode_ = 0;
    std::string imageVersion_;
    UBM_CONTROLLER_OPERATIONAL_STATE state_ = VEK_UBM_CONTROLLER_STATE_UNKNOWN;
    uint8_t bus_ = 255;
    std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR> routes_;
};
