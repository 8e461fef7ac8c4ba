#include "vekDecodedGeoID.h"

#include <utility>

vekDecodedGeoID::vekDecodedGeoID(VEK_GEOID_TYPES type, std::string geoID, std::vector<std::string> split)
    : type_(type), geoID_(std::move(geoID)), split_(std::move(split))
{
}

VEK_GEOID_TYPES vekDecodedGeoID::getType() const
{
    return type_;
}

void vekDecodedGeoID::setType(VEK_GEOID_TYPES type)
{
    type_ = type;
}

std::string vekDecodedGeoID::getGeoID() const
{
    return geoID_;
}

void vekDecodedGeoID::setGeoID(std::string geoID)
{
    geoID_ = std::move(geoID);
}

std::vector<std::string> vekDecodedGeoID::getGeoIDSplit() const
{
    return split_;
}

void vekDecodedGeoID::setGeoIDSplit(std::vector<std::string> split)
{
    split_ = std::move(split);
}

void vekDecodedGeoID::addToGeoIDSplit(const std::string& element)
{
    split_.push_back(element);
}

std::string vekDecodedGeoID::geoIDSplitAt(size_t index) const
{
    return split_.at(index);
}

const char* vekGeoIDTypeName(VEK_GEOID_TYPES type)
{
    switch (type) {
    case VEK_GEOID_TYPE_NONE:
        return "NONE";
    case VEK_GEOID_TYPE_IO_SLOT_LEGACY:
        return "IO_SLOT_LEGACY";
    case VEK_GEOID_TYPE_IO_SLOT:
        return "IO_SLOT";
    case VEK_GEOID_TYPE_DIMM:
        return "DIMM";
    case VEK_GEOID_TYPE_OCP:
        return "OCP";
    case VEK_GEOID_TYPE_CPU_NVME_DRIVE:
        return "CPU_NVME_DRIVE";
    case VEK_GEOID_TYPE_SLOT_DRIVE:
        return "SLOT_DRIVE";
    }
    return "UNKNOWN";
}
