#pragma once

#include "vekNICInterface.h"

#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

class vekOSInterface;
class vekSmbiosInterface;

// The Ethernet ports of an ESXi host, read with localcli. The row map is the
// one source of adapter data for the inventory and of link status for the
// poller: a build fills it, the poller refreshes the link columns.
class vekNICVmwareInterface : public vekNICInterfaceBase {
public:
    vekNICVmwareInterface(vekSmbiosInterface& smbios, vekOSInterface& os);
    ~vekNICVmwareInterface() override;

    vekNICVmwareInterface(const vekNICVmwareInterface&) = delete;
    vekNICVmwareInterface& operator=(const vekNICVmwareInterface&) = delete;

    // The names of every port ever listed, in name order.
    void populateNICInstances(std::vector<std::string>& names) override;
    void discoverNICProperties(std::string name, NICDeviceInfo& info) override;
    void discoverNICStatusInfo(std::string name, NICDeviceInfo& info) override;
    void refreshData() override;
    IvekNICEventNotifier* getNICEventNotifierInterface() override;

    // A port whose name lacks "vmnic" is a virtual one (vusb0, ...).
    static bool isVirtualNICInstance(const std::string& name);

private:
    // Reads the adapter list into the row map; 0, or -1 when the list could
    // not be read whole (the rows read so far stay).
    int fetchNICDevicesInterfaceDetails();
    void fetchNICInstanceInterfaceDetails(const std::string& name, NICInterfacesDetailsStruct& row);

    std::string getNICDeviceName(const NICInterfacesDetailsStruct& row);
    std::string getNICMACAddress(const NICInterfacesDetailsStruct& row);
    std::string getNICPCIAddress(const NICInterfacesDetailsStruct& row);
    void getNICFirmwareVersion(const NICInterfacesDetailsStruct& row, std::string& firmware);
    int64_t getNICSpeedMbps(const NICInterfacesDetailsStruct& row);
    std::string getNICSerialNumber(const NICInterfacesDetailsStruct& row);
    std::string getNICManufacturer(const NICInterfacesDetailsStruct& row);
    void populatePCIIDs(const std::string& pciAddress, const NICInterfacesDetailsStruct& row, NICDeviceInfo& info);
    // Joins the admin and link columns into one number, 0 when unknown.
    void getNICAdapterCondition(const NICInterfacesDetailsStruct& row, int& condition);

    vekSmbiosInterface& smbios_;
    vekOSInterface& os_;
    std::mutex mutex_;
    std::map<std::string, NICInterfacesDetailsStruct> nicDevicesPropertiesFromLocalcli;
    std::regex pciAddressRegex_;
    bool pciAddressRegexCompiled_ = false;
};
