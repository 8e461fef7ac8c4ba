#pragma once

#include "vekDecodedGeoID.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

// One rule of the GeoID rule book: a platform gate and the regular
// expression of one GeoID form. The compiled expression is kept in the rule
// itself, so rules are handed around mutable.
struct _VEK_IO_GEOID_EXTRACTION_RULE {
    // The gate: true asks the engine to run the default rule processor. It
    // may set "stop" to end the walk of the book with its own answer.
    std::function<bool(_VEK_IO_GEOID_EXTRACTION_RULE& rule, bool& stop, std::string pci, std::string designation,
                       const std::vector<VEK_GEOID_TYPES>& allowedTypes)>
        ruleProcessor;
    VEK_GEOID_TYPES geoIDType;
    std::string regexPattern;
    uint64_t splitSize;
    bool regexCompiled;
    std::string ruleName;
    std::regex compiledRegex;
};

// The map from PCI address ("%04x:%02x:%02x.%x") to decoded GeoID, built
// from the slot designations the host reports, and the answers drawn from
// it. An unknown address is a normal answer: empty text, empty split, a
// default record.
class vekIOGeoIDHelper {
public:
    // The first call discovers the host before it returns.
    static vekIOGeoIDHelper& getInstance();

    vekIOGeoIDHelper(const vekIOGeoIDHelper&) = delete;
    vekIOGeoIDHelper& operator=(const vekIOGeoIDHelper&) = delete;

    std::string getGeoIDStr(std::string pci);
    std::vector<std::string> getGeoIDInfo(std::string pci);
    vekDecodedGeoID getDecodedGeoID(std::string pci);

    // Discovers the host anew. Readers keep the old picture until it is done.
    void refreshGeoIDMap();
    void printGeoIDMap();
    // The addresses of the current picture, in order.
    std::vector<std::string> getPCIAddresses();

    // Where the OS layer reports what it found; each returns the answer of
    // the rules engine for the designation.
    bool topologyDataCallbackHandler(std::string pci, std::string designation);
    bool smbiosType9DataCallbackHandler(uint16_t segment, uint8_t bus, uint8_t device, uint8_t function,
                                        std::string designation);
    bool smbiosType41DataCallbackHandler(uint16_t segment, uint8_t bus, uint8_t device, uint8_t function,
                                         std::string designation);

    // Runs the rule book over one designation; true when a rule extracted a
    // GeoID and it went into the map under pci.
    bool runRulesEngine(const std::string& pci, const std::string& designation,
                        const std::vector<VEK_GEOID_TYPES>& allowedTypes);
    bool runDefaultRuleProcessor(_VEK_IO_GEOID_EXTRACTION_RULE& rule, const std::string& pci,
                                 const std::string& designation, const std::vector<VEK_GEOID_TYPES>& allowedTypes);

private:
    vekIOGeoIDHelper();

    template <typename Result, typename Extract>
    Result findGeoIDForPCILocation(const std::string& pci, Extract extract);

    std::map<std::string, vekDecodedGeoID> currentMap_;
    std::map<std::string, vekDecodedGeoID> previousMap_;
    std::mutex mutex_;
    bool mapReady = true;
};

// The rule book, in the order the rules are tried.
extern std::vector<_VEK_IO_GEOID_EXTRACTION_RULE> IOGeoIDExtractionRuleBook;
