#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The kinds of GeoID the firmware writes into slot designations. Stored as a
// 32-bit integer wherever it travels.
enum VEK_GEOID_TYPES : int32_t {
    VEK_GEOID_TYPE_NONE = 0,            // no GeoID
    VEK_GEOID_TYPE_IO_SLOT_LEGACY = 1,  // r...i..s..        rack, unit, slot (GQ/NW)
    VEK_GEOID_TYPE_IO_SLOT = 2,         // r...u..p.i..      rack, unit, partition, I/O slot ("00" on-board)
    VEK_GEOID_TYPE_DIMM = 3,            // r...u.._P.-.....  DIMM slot
    VEK_GEOID_TYPE_OCP = 4,             // r...u..p.o.       OCP adapter slot
    VEK_GEOID_TYPE_CPU_NVME_DRIVE = 5,  // r...u..p.x.y..    CPU-attached NVMe drive bay
    VEK_GEOID_TYPE_SLOT_DRIVE = 6,      // r...u..p.i..x.y.. drive behind the PCH or a slot card
};

// A GeoID with its type and its elements, each kept as the matched digits
// (leading zeros included). A default record has type 0, no text and no
// elements: the normal answer for a place nobody named.
class vekDecodedGeoID {
public:
    vekDecodedGeoID() = default;
    vekDecodedGeoID(VEK_GEOID_TYPES type, std::string geoID, std::vector<std::string> split);
    virtual VEK_GEOID_TYPES getType() const;
    virtual void setType(VEK_GEOID_TYPES type);
    virtual std::string getGeoID() const;
    virtual void setGeoID(std::string geoID);
    virtual std::vector<std::string> getGeoIDSplit() const;
    virtual void setGeoIDSplit(std::vector<std::string> split);
    virtual ~vekDecodedGeoID() = default;

    vekDecodedGeoID(const vekDecodedGeoID&) = default;
    vekDecodedGeoID& operator=(const vekDecodedGeoID&) = default;

    void addToGeoIDSplit(const std::string& element);
    // One element; std::out_of_range past the end.
    std::string geoIDSplitAt(size_t index) const;
    vekDecodedGeoID getDecodedGeoID() const { return *this; }

private:
    VEK_GEOID_TYPES type_ = VEK_GEOID_TYPE_NONE;
    std::string geoID_;
    std::vector<std::string> split_;
};

// The name of a GeoID type for log lines ("IO_SLOT", "OCP", ...).
const char* vekGeoIDTypeName(VEK_GEOID_TYPES type);
