#include "vekPhysLocInterface.h"

#include "vekDimmGeoIDContainer.h"
#include "vekLog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace {
const char TAG[] = "PL_INTF_HPP";
} // namespace

const std::string vekPhysLocInterface::NotApplicable = "NA";
const std::string vekPhysLocInterface::InvalidPL = "FFFFFFFFFFFFFFFF";

bool vekPhysLocInterface::isPCIAddressFormatValid(const std::string& pci)
{
    unsigned domain = 0, bus = 0, device = 0, function = 0;
    const char* format = nullptr;
    if (pci.size() == 12) {
        format = "%04x:%02x:%02x.%x";
    } else if (pci.size() == 13) {
        format = "%05x:%02x:%02x.%x";
    } else {
        return false;
    }
    return sscanf(pci.c_str(), format, &domain, &bus, &device, &function) == 4;
}

void vekPhysLocInterface::logMissingSymbol(const char* name, const char* error)
{
    VEK_LOG_ERROR(TAG, "Failed to find address of symbol [%s]: (%s)", name, error);
}

vekPhysLocEncoderLibrary::vekPhysLocEncoderLibrary(const std::string& path, const char* tag) : path_(path), tag_(tag)
{
    if (path.empty()) {
        VEK_LOG_ERROR(tag_, "No physical locations library file path was specified! (%s)", path.c_str());
        throw vekPhysLoc::InvalidLibraryPathException("PL library file path not specified!");
    }
    handle_ = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    if (handle_ == nullptr) {
        const std::string error = dlerror();
        VEK_LOG_ERROR(tag_, "Failed to load physical locations library [%s]: (%s)", path.c_str(), error.c_str());
        throw vekPhysLoc::LibraryLoadFailedException("Failed to load PL library [" + path + "]: (" + error + ")");
    }
    try {
        initData = vekPhysLocInterface::fetchSymbolAddress<physloc_init_data_fn>(handle_, "physloc_init_data");
        encode = vekPhysLocInterface::fetchSymbolAddress<physloc_encode_fn>(handle_, "physloc_encode");
        getString = vekPhysLocInterface::fetchSymbolAddress<physloc_get_string_fn>(handle_, "physloc_get_string");
    } catch (...) {
        dlclose(handle_);
        handle_ = nullptr;
        throw;
    }
    VEK_LOG_DEBUG(tag_, "Successfully loaded physical locations library.");
}

vekPhysLocEncoderLibrary::~vekPhysLocEncoderLibrary()
{
    if (handle_ != nullptr && dlclose(handle_) != 0) {
        VEK_LOG_ERROR(tag_, "Failed to unload physical locations library [%s]: (%s)", path_.c_str(), dlerror());
    }
}

std::string vekPhysLocEncoderLibrary::format(unsigned long long pl)
{
    char text[32];
    snprintf(text, sizeof text, "%016llX", pl);
    return text;
}

std::string vekPhysLocEncoderLibrary::decode(const std::string& pl) const
{
    unsigned long long value = 0;
    size_t used = 0;
    try {
        value = std::stoull(pl, &used, 16);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(tag_, "Failed to extract PL value from string [%s]: (%s)", pl.c_str(), e.what());
        std::throw_with_nested(vekPhysLoc::InvalidPLException(pl));
    }
    if (used != 16) {
        VEK_LOG_ERROR(tag_, "PL string of invalid size supplied for decoding: [%s]; (pos: [%zu])", pl.c_str(), used);
        throw vekPhysLoc::InvalidPLException(pl);
    }
    char text[PHYSLOC_STRING_SIZE];
    memset(text, 0, sizeof text);
    const physloc_rtn_t result = getString(0, value, text);
    if (result != 0) {
        VEK_LOG_ERROR(tag_, "Failed to decode PL [%s]! (ret = %d)", pl.c_str(), result);
        throw vekPhysLoc::PLAPIFailureException("physloc_get_string failed (" + std::to_string(result) + ")");
    }
    text[sizeof text - 1] = '\0';
    VEK_LOG_DEBUG(tag_, "PL [%s] decoded to [%s].", pl.c_str(), text);
    return text;
}

std::string vekPhysLocJoin(const std::vector<std::string>& elements)
{
    std::string joined;
    for (const std::string& element : elements) {
        joined += joined.empty() ? element : " " + element;
    }
    return joined;
}

// A DIMM GeoID has five elements: rack, unit (or "i"), processor, five
// letters and a digit. The encoders take six: rack, unit, processor, the
// memory channel (the last of the five letters, A counting 0), the slot on
// that channel (the digit), and a spare that no platform fills here.
namespace {
std::vector<std::string> dimmElements(const vekDecodedGeoID& decoded)
{
    const std::vector<std::string> split = decoded.getGeoIDSplit();
    const std::string& letters = split.at(3);
    return {split.at(0), split.at(1), split.at(2), std::to_string(letters.back() - 'A'), split.at(4),
            vekPhysLocInterface::NotApplicable};
}

uint8_t byteOf(const std::string& element)
{
    return static_cast<uint8_t>(strtoull(element.c_str(), nullptr, 10));
}
} // namespace

std::string physlocEncodeForDIMM(const vekPhysLocEncoderLibrary& library, const char* tag,
                                 const vekPhysLocDimmLayout& layout, const std::string& dimmID)
{
    vekDecodedGeoID decoded;
    try {
        decoded = vekDimmGeoIDContainer::getInstance().getDecodedGeoID(dimmID);
    } catch (const vekGeoIDExceptions::DimmExceptions& e) {
        VEK_LOG_ERROR(tag, "Failed to encode PL for DIMM slot {%s}: %s", dimmID.c_str(), e.what());
        return vekPhysLocInterface::InvalidPL;
    }
    if (decoded.getType() != VEK_GEOID_TYPE_DIMM) {
        VEK_LOG_ERROR(tag, "Failed to encode PL for DIMM slot {%s}: Incorrect GeoID type: (%d)", dimmID.c_str(),
                      static_cast<int>(decoded.getType()));
        return vekPhysLocInterface::InvalidPL;
    }
    const std::vector<std::string> e = dimmElements(decoded);
    VEK_LOG_DEBUG(tag, "Split elements are: {%s} {%s} {%s} {%s} {%s} {%s}", e[0].c_str(), e[1].c_str(), e[2].c_str(),
                  e[3].c_str(), e[4].c_str(), e[5].c_str());
    __physloc_data_t data;
    memset(&data, 0, sizeof data);
    const physloc_rtn_t init = library.initData(&data, layout.version);
    if (init != 0) {
        VEK_LOG_ERROR(tag, "Failed to initialize PL data for encoding! (%d)", init);
        return vekPhysLocInterface::InvalidPL;
    }
    data.type = layout.type;
    data.rack = byteOf(e[0]);
    data.unit = byteOf(e[1]);
    if (layout.partition) {
        data.partition = byteOf(e[2]);
    }
    data.dimm = byteOf(e[3]);
    data.slot2 = byteOf(e[4]);
    if (layout.chassisSlot && data.slot2 != 0) {
        const unsigned spare = e[5] == vekPhysLocInterface::NotApplicable ? 0 : byteOf(e[5]);
        data.slot = static_cast<uint8_t>(1 + 2 * data.slot2 + spare);
    }
    unsigned long long pl = 0;
    const physloc_rtn_t result = library.encode(&data, &pl);
    if (result != 0) {
        VEK_LOG_ERROR(tag, "Failed to encode PL for DIMM slot {%s}: (%d)", dimmID.c_str(), result);
        return vekPhysLocInterface::InvalidPL;
    }
    const std::string text = vekPhysLocEncoderLibrary::format(pl);
    VEK_LOG_DEBUG(tag, "DIMM [%s]: [%u] - PL: [%s]", dimmID.c_str(), layout.type, text.c_str());
    return text;
}

std::string vekPhysLocEncodeElements(const vekPhysLocEncoderLibrary& library, const char* tag, const std::string& pci,
                                     const std::vector<std::string>& elements, size_t expected, physloc_type_t type,
                                     physloc_rtn_t* rtn, const std::string& last)
{
    if (elements.size() != expected) {
        VEK_LOG_ERROR(tag, "Failed to determine physical location for PCI address [%s]. (%zu, [%s])", pci.c_str(),
                      elements.size(), vekPhysLocJoin(elements).c_str());
        if (rtn != nullptr) {
            *rtn = 1;
        }
        return vekPhysLocInterface::InvalidPL;
    }
    __physloc_data_t data;
    memset(&data, 0, sizeof data);
    physloc_rtn_t result = library.initData(&data, 2);
    if (result != 0) {
        VEK_LOG_ERROR(tag, "Failed to initialize PL data for encoding! (%d)", result);
        if (rtn != nullptr) {
            *rtn = result;
        }
        return vekPhysLocInterface::InvalidPL;
    }
    data.type = type;
    data.rack = byteOf(elements[0]);
    data.unit = byteOf(elements[1]);
    if (expected == 4) {
        data.partition = byteOf(elements[2]);
    }
    data.slot = byteOf(elements[expected - 1]);
    if (last != vekPhysLocInterface::NotApplicable) {
        data.slot2 = byteOf(last);
    }
    unsigned long long pl = 0;
    result = library.encode(&data, &pl);
    if (rtn != nullptr) {
        *rtn = result;
    }
    const std::string text = result == 0 ? vekPhysLocEncoderLibrary::format(pl) : vekPhysLocInterface::InvalidPL;
    if (expected == 4) {
        if (result != 0) {
            VEK_LOG_ERROR(tag, "Failed to encode physical location for PCI address [%s]. (%d) [%hhu, %hhu, %hhu, %hhu, %s]",
                          pci.c_str(), result, data.rack, data.unit, data.partition, data.slot, last.c_str());
        } else {
            VEK_LOG_DEBUG(tag, "PCI address [%s]: [%d] - {%s, %s, %s, %s, %s} - PL: [%s]", pci.c_str(),
                          static_cast<int>(type), elements[0].c_str(), elements[1].c_str(), elements[2].c_str(),
                          elements[3].c_str(), last.c_str(), text.c_str());
        }
    } else {
        if (result != 0) {
            VEK_LOG_ERROR(tag, "Failed to encode physical location for PCI address [%s]. (%d) [%hhu, %hhu, %hhu, %s]",
                          pci.c_str(), result, data.rack, data.unit, data.slot, last.c_str());
        } else {
            VEK_LOG_DEBUG(tag, "PCI address [%s]: [%d] - {%s, %s, %s, %s} - PL: [%s]", pci.c_str(),
                          static_cast<int>(type), elements[0].c_str(), elements[1].c_str(), elements[2].c_str(),
                          last.c_str(), text.c_str());
        }
    }
    return text;
}

void vekLibraryPhysLocInterface::Initialize()
{
    library_.reset(new vekPhysLocEncoderLibrary(libraryPath_, tag_));
}

void vekLibraryPhysLocInterface::UnInitialize()
{
    library_.reset();
}
