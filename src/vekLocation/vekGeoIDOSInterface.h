#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>

class vekOSInterface;
class vekSmbiosInterface;

// The OS side of GeoID discovery: it reports every designation it finds, with
// the PCI function it belongs to, through the callbacks of its source.
class vekGeoIDOSInterface {
public:
    // (pci address text, designation)
    using TopologyCallback = std::function<bool(std::string, std::string)>;
    // (segment, bus, device, function, designation)
    using SmbiosCallback = std::function<bool(uint16_t, uint8_t, uint8_t, uint8_t, std::string)>;
    using DimmTopology = std::map<std::string, std::list<std::string>>;

    virtual ~vekGeoIDOSInterface() = default;
    // Reports the designations of the host; false when discovery failed
    // (what was reported before the failure counts all the same).
    virtual int discoverIOGeoIDs(TopologyCallback topology, SmbiosCallback type9, SmbiosCallback type41) = 0;
    // DIMM ID to its topology elements.
    virtual void discoverNvdimmTopology(DimmTopology& topology, std::list<std::string>& errors) = 0;
    virtual vekOSInterface& OsInterface() = 0;
};

// ESXi: the designations come from the SMBIOS system slot (type 9) and
// on-board device (type 41) records. There is no topology source on this
// host, so the topology callback is never called.
class vekGeoIDVMwareInterface : public vekGeoIDOSInterface {
public:
    vekGeoIDVMwareInterface(vekOSInterface& os, vekSmbiosInterface& smbios);

    int discoverIOGeoIDs(TopologyCallback topology, SmbiosCallback type9, SmbiosCallback type41) override;
    // Not offered by ESXi: std::runtime_error("Not Implemented!!").
    void discoverNvdimmTopology(DimmTopology& topology, std::list<std::string>& errors) override;
    vekOSInterface& OsInterface() override { return os_; }

private:
    vekOSInterface& os_;
    vekSmbiosInterface& smbios_;
    std::mutex mutex_;
    bool discovering_ = false;
};
