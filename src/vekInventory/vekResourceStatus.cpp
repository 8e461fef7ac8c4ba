#include "vekResourceStatus.h"

#include <cctype>

const std::string vekResourceStateMap[VEK_RESOURCE_STATE_COUNT] = {
    "Unknown",         "Bypassed",           "Cancel",             "Cancel/Recovery", "Created",
    "Degraded",        "Deleted",            "Deleted/Recovery",   "Diagnostic mode", "Disabled",
    "Down",            "Error",              "Failed",             "Initializing",    "Linkdown",
    "Loopback",        "Offline",            "Online",             "Optimal",         "Other",
    "Partially degraded", "Predictive failure", "Rebuild",         "Recovering",      "Recovery",
    "Running",         "Unconfigured bad",
};

const std::string vekResourceHealthMap[VEK_RESOURCE_HEALTH_COUNT] = {
    "Unknown",
    "Critical",
    "OK",
    "Warning",
};

namespace {

std::string lowerCase(std::string word)
{
    for (char& c : word) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return word;
}

// Both spellings of every word of a table, by value.
template <typename Enum, int Count>
std::map<std::string, Enum> wordsAndLowerCase(const std::string (&words)[Count])
{
    std::map<std::string, Enum> mapper;
    for (int value = 0; value < Count; ++value) {
        mapper.emplace(words[value], static_cast<Enum>(value));
        mapper.emplace(lowerCase(words[value]), static_cast<Enum>(value));
    }
    return mapper;
}

} // namespace

// Defined after the word tables of this file, so they are built first.
const std::map<std::string, VEK_RESOURCE_STATE> vekResourceStateMapper =
    wordsAndLowerCase<VEK_RESOURCE_STATE, VEK_RESOURCE_STATE_COUNT>(vekResourceStateMap);
const std::map<std::string, VEK_RESOURCE_HEALTH> vekResourceHealthMapper =
    wordsAndLowerCase<VEK_RESOURCE_HEALTH, VEK_RESOURCE_HEALTH_COUNT>(vekResourceHealthMap);
