#include "vekIOGeoIDHelper.h"

#include "vekGeoIDOSInterface.h"
#include "vekLog.h"
#include "vekOSInterface.h"
#include "vekPlatformServices.h"

#include <algorithm>
#include <cstdio>

namespace {

const char TAG[] = "IO_GEOID_HELPER";

// The platform gates. They only read the platform type and never ask to stop.
bool legacySlotRuleProcessor(_VEK_IO_GEOID_EXTRACTION_RULE&, bool&, std::string, std::string,
                             const std::vector<VEK_GEOID_TYPES>&)
{
    const int platform = vekPlatformServices::getCachedPlatform();
    return platform == 0 || platform == 1;
}

bool ioSlotRuleProcessor(_VEK_IO_GEOID_EXTRACTION_RULE&, bool&, std::string, std::string,
                         const std::vector<VEK_GEOID_TYPES>&)
{
    const int platform = vekPlatformServices::getCachedPlatform();
    return platform == 2 || platform == 4;
}

bool trbOnlyRuleProcessor(_VEK_IO_GEOID_EXTRACTION_RULE&, bool&, std::string, std::string,
                          const std::vector<VEK_GEOID_TYPES>&)
{
    return vekPlatformServices::getCachedPlatform() == 4;
}

_VEK_IO_GEOID_EXTRACTION_RULE makeRule(decltype(_VEK_IO_GEOID_EXTRACTION_RULE::ruleProcessor) processor,
                                       VEK_GEOID_TYPES type, const char* pattern, uint64_t splitSize,
                                       const char* name)
{
    _VEK_IO_GEOID_EXTRACTION_RULE rule;
    rule.ruleProcessor = std::move(processor);
    rule.geoIDType = type;
    rule.regexPattern = pattern;
    rule.splitSize = splitSize;
    rule.regexCompiled = false;
    rule.ruleName = name;
    return rule;
}

std::string pciKey(uint16_t segment, uint8_t bus, uint8_t device, uint8_t function)
{
    char key[32];
    snprintf(key, sizeof key, "%04x:%02x:%02x.%x", segment, bus, device, function);
    return key;
}

const std::vector<VEK_GEOID_TYPES> kTopologyTypes{VEK_GEOID_TYPE_IO_SLOT_LEGACY, VEK_GEOID_TYPE_IO_SLOT,
                                                  VEK_GEOID_TYPE_OCP};
const std::vector<VEK_GEOID_TYPES> kType9Types{VEK_GEOID_TYPE_IO_SLOT_LEGACY, VEK_GEOID_TYPE_IO_SLOT,
                                               VEK_GEOID_TYPE_OCP, VEK_GEOID_TYPE_CPU_NVME_DRIVE,
                                               VEK_GEOID_TYPE_SLOT_DRIVE};
const std::vector<VEK_GEOID_TYPES> kType41Types{VEK_GEOID_TYPE_IO_SLOT_LEGACY, VEK_GEOID_TYPE_IO_SLOT};

} // namespace

std::vector<_VEK_IO_GEOID_EXTRACTION_RULE> IOGeoIDExtractionRuleBook{
    makeRule(legacySlotRuleProcessor, VEK_GEOID_TYPE_IO_SLOT_LEGACY, "\\b(r([0-9]{3})i([0-9]{2})s([0-9]{2}))\\b", 3,
             "r...i..s.."),
    makeRule(ioSlotRuleProcessor, VEK_GEOID_TYPE_IO_SLOT, "\\b(r([0-9]{3})u([0-9]{2})p([0-9])i([0-9]{2}))\\b", 4,
             "r...u..p.i.."),
    makeRule(trbOnlyRuleProcessor, VEK_GEOID_TYPE_OCP, "\\b(r([0-9]{3})u([0-9]{2})p([0-9])o([0-9]))\\b", 4,
             "r...u..p.o."),
    makeRule(trbOnlyRuleProcessor, VEK_GEOID_TYPE_CPU_NVME_DRIVE,
             "\\b(r([0-9]{3})u([0-9]{2})p([0-9])x([0-9])y([0-9]{2}))\\b", 5, "r...u..p.x.y.."),
    makeRule(trbOnlyRuleProcessor, VEK_GEOID_TYPE_SLOT_DRIVE,
             "\\b(r([0-9]{3})u([0-9]{2})p([0-9])i([0-9]{2})x([0-9])y([0-9]{2}))\\b", 6, "r...u..p.i..x.y.."),
};

vekIOGeoIDHelper& vekIOGeoIDHelper::getInstance()
{
    static vekIOGeoIDHelper instance;
    return instance;
}

vekIOGeoIDHelper::vekIOGeoIDHelper()
{
    VEK_LOG_DEBUG(TAG, "Building I/O GeoID map first time.");
    refreshGeoIDMap();
}

bool vekIOGeoIDHelper::runRulesEngine(const std::string& pci, const std::string& designation,
                                      const std::vector<VEK_GEOID_TYPES>& allowedTypes)
{
    VEK_LOG_DEBUG(TAG, "Rules Engine: Called for [%s, %s]", pci.c_str(), designation.c_str());
    for (_VEK_IO_GEOID_EXTRACTION_RULE& rule : IOGeoIDExtractionRuleBook) {
        const char* name = rule.ruleName.c_str();
        VEK_LOG_DEBUG(TAG, "~~~ Processing [%s] extraction rule ~~~", name);
        bool stop = false;
        // An empty processor throws std::bad_function_call, as it should.
        const bool runDefault = rule.ruleProcessor(rule, stop, pci, designation, allowedTypes);
        if (stop) {
            VEK_LOG_DEBUG(TAG,
                          "[%s] Extraction Rule: Rule processor function requested to stop processing all further "
                          "rules. (%d)",
                          name, runDefault ? 1 : 0);
            return runDefault;
        }
        if (!runDefault) {
            VEK_LOG_DEBUG(TAG,
                          "[%s] Extraction Rule: Rule processor function requested to skip default rule processor "
                          "and move on to the next rule.",
                          name);
            continue;
        }
        if (runDefaultRuleProcessor(rule, pci, designation, allowedTypes)) {
            VEK_LOG_DEBUG(TAG,
                          "[%s] Extraction Rule: Default rule processor successfully extracted GeoID and added it to "
                          "I/O GeoID map!",
                          name);
            return true;
        }
        VEK_LOG_DEBUG(TAG,
                      "[%s] Extraction Rule: Default rule processor could not extract GeoID from slot designation "
                      "[%s]. Skipping to next rule.",
                      name, designation.c_str());
    }
    VEK_LOG_DEBUG(TAG, "Rules Engine: No rule in the rule book could extract a GeoID from [%s, %s]", pci.c_str(),
                  designation.c_str());
    return false;
}

bool vekIOGeoIDHelper::runDefaultRuleProcessor(_VEK_IO_GEOID_EXTRACTION_RULE& rule, const std::string& pci,
                                               const std::string& designation,
                                               const std::vector<VEK_GEOID_TYPES>& allowedTypes)
{
#define RULE_LOG(...) VEK_LOG_DEBUG(TAG, "Default Rule Processor: [%s] Extraction Rule: " __VA_ARGS__)
    const char* name = rule.ruleName.c_str();
    RULE_LOG("Called for [%s, %s]", name, pci.c_str(), designation.c_str());
    if (!allowedTypes.empty()) {
        RULE_LOG("Allowed GeoID types filter specified.", name);
        if (std::find(allowedTypes.begin(), allowedTypes.end(), rule.geoIDType) == allowedTypes.end()) {
            RULE_LOG("GeoID type not allowed.", name);
            return false;
        }
        RULE_LOG("Allowed.", name);
    }
    if (!rule.regexCompiled) {
        RULE_LOG("Compiling regex...", name);
        try {
            rule.compiledRegex = std::regex(rule.regexPattern, std::regex::ECMAScript);
            rule.regexCompiled = true;
        } catch (const std::regex_error& e) {
            RULE_LOG("Regex compilation failed: [%d - %s]", name, static_cast<int>(e.code()), e.what());
            return false;
        }
    }
    std::smatch match;
    if (!std::regex_search(designation, match, rule.compiledRegex) || match.size() != rule.splitSize + 2) {
        RULE_LOG("No GeoID could be extracted!", name);
        return false;
    }
    vekDecodedGeoID decoded;
    decoded.setType(rule.geoIDType);
    for (size_t group = 1; group < match.size(); ++group) {
        const std::string text = match[group].str();
        RULE_LOG("Processing match [%zu]: [%s]", name, group, text.c_str());
        if (group == 1) {
            decoded.setGeoID(text);
        } else {
            decoded.addToGeoIDSplit(text);
        }
    }
    RULE_LOG("Successfully extracted GeoID [%s] with split size [%zu].", name, decoded.getGeoID().c_str(),
             decoded.getGeoIDSplit().size());
#undef RULE_LOG
    std::lock_guard<std::mutex> lock(mutex_);
    currentMap_[pci] = decoded;
    return true;
}

template <typename Result, typename Extract>
Result vekIOGeoIDHelper::findGeoIDForPCILocation(const std::string& pci, Extract extract)
{
    std::lock_guard<std::mutex> lock(mutex_);
    // While a refresh runs, only the previous picture is searched; never both.
    const std::map<std::string, vekDecodedGeoID>& map = mapReady ? currentMap_ : previousMap_;
    if (mapReady) {
        VEK_LOG_DEBUG(TAG, "Looking up GeoID for PCI address [%s] in current map.", pci.c_str());
    } else {
        VEK_LOG_DEBUG(TAG, "Looking up GeoID for PCI address [%s] in previous map.", pci.c_str());
    }
    const auto found = map.find(pci);
    if (found == map.end()) {
        VEK_LOG_DEBUG(TAG, "GeoID not found for PCI address [%s]!", pci.c_str());
        return Result();
    }
    if (mapReady) {
        VEK_LOG_DEBUG(TAG, "Found GeoID for PCI address [%s] in current map: [%s]", pci.c_str(),
                      found->second.getGeoID().c_str());
    } else {
        VEK_LOG_DEBUG(TAG, "Found GeoID for PCI address [%s] in previous map: [%s]", pci.c_str(),
                      found->second.getGeoID().c_str());
    }
    return extract(found->second);
}

std::string vekIOGeoIDHelper::getGeoIDStr(std::string pci)
{
    return findGeoIDForPCILocation<std::string>(pci, [](const vekDecodedGeoID& d) { return d.getGeoID(); });
}

std::vector<std::string> vekIOGeoIDHelper::getGeoIDInfo(std::string pci)
{
    return findGeoIDForPCILocation<std::vector<std::string>>(pci,
                                                             [](const vekDecodedGeoID& d) { return d.getGeoIDSplit(); });
}

vekDecodedGeoID vekIOGeoIDHelper::getDecodedGeoID(std::string pci)
{
    return findGeoIDForPCILocation<vekDecodedGeoID>(pci, [](const vekDecodedGeoID& d) { return d.getDecodedGeoID(); });
}

std::vector<std::string> vekIOGeoIDHelper::getPCIAddresses()
{
    std::lock_guard<std::mutex> lock(mutex_);
    const std::map<std::string, vekDecodedGeoID>& map = mapReady ? currentMap_ : previousMap_;
    std::vector<std::string> addresses;
    for (const auto& entry : map) {
        addresses.push_back(entry.first);
    }
    return addresses;
}

void vekIOGeoIDHelper::refreshGeoIDMap()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!mapReady) {
            VEK_LOG_WARNING(TAG, "Another refresh I/O GeoID map operation is already in progress!");
            return;
        }
        VEK_LOG_DEBUG(TAG, "Kick-started I/O GeoID map refresh operation.");
        mapReady = false;
        previousMap_ = currentMap_;
        currentMap_.clear();
    }

    int discovered = false;
    vekOSInterface* system = vekSystemInterfaceFactory::getSystemInterface();
    vekGeoIDOSInterface* os = nullptr;
    try {
        os = system != nullptr ? system->getGeoIDInterface() : nullptr;
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "No GeoID interface on this host: %s", e.what());
    }
    if (os != nullptr) {
        VEK_LOG_DEBUG(TAG, "Initiating I/O GeoID discovery process.");
        using namespace std::placeholders;
        try {
            discovered = os->discoverIOGeoIDs(
                std::bind(&vekIOGeoIDHelper::topologyDataCallbackHandler, this, _1, _2),
                std::bind(&vekIOGeoIDHelper::smbiosType9DataCallbackHandler, this, _1, _2, _3, _4, _5),
                std::bind(&vekIOGeoIDHelper::smbiosType41DataCallbackHandler, this, _1, _2, _3, _4, _5));
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "I/O GeoID discovery stopped: %s", e.what());
        }
    }
    if (!discovered) {
        VEK_LOG_ERROR(TAG, "Failure reported during I/O GeoID discovery process!");
    }
    printGeoIDMap();
    VEK_LOG_DEBUG(TAG, "I/O GeoID map refresh operation is complete.");
    std::lock_guard<std::mutex> lock(mutex_);
    mapReady = true;
}

void vekIOGeoIDHelper::printGeoIDMap()
{
    std::lock_guard<std::mutex> lock(mutex_);
    VEK_LOG_DEBUG(TAG, "----- Printing PCIe-location-to-GeoID map -----");
    for (const auto& entry : currentMap_) {
        const vekDecodedGeoID& decoded = entry.second;
        std::string split;
        for (const std::string& element : decoded.getGeoIDSplit()) {
            split += split.empty() ? element : ", " + element;
        }
        VEK_LOG_DEBUG(TAG, "       %s => %s (type %d - %s) {%s}", entry.first.c_str(), decoded.getGeoID().c_str(),
                      static_cast<int>(decoded.getType()), vekGeoIDTypeName(decoded.getType()), split.c_str());
    }
}

bool vekIOGeoIDHelper::topologyDataCallbackHandler(std::string pci, std::string designation)
{
    return runRulesEngine(pci, designation, kTopologyTypes);
}

bool vekIOGeoIDHelper::smbiosType9DataCallbackHandler(uint16_t segment, uint8_t bus, uint8_t device,
                                                      uint8_t function, std::string designation)
{
    return runRulesEngine(pciKey(segment, bus, device, function), designation, kType9Types);
}

bool vekIOGeoIDHelper::smbiosType41DataCallbackHandler(uint16_t segment, uint8_t bus, uint8_t device,
                                                       uint8_t function, std::string designation)
{
    return runRulesEngine(pciKey(segment, bus, device, function), designation, kType41Types);
}
