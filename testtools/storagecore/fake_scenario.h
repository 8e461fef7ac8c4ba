#pragma once

// The scenario both stand-in SmartRAID libraries read: a JSON file under the
// simulated host, read afresh at every call so that a test or a person
// changes the controllers while the service runs.

#include <json/json.h>

#include <cstdlib>
#include <fstream>
#include <string>

inline Json::Value fakeReadScenario(const char* baseName)
{
    const char* root = getenv("VEK_ROOT");
    std::ifstream in(std::string(root != nullptr ? root : "") + "/sim/" + baseName + ".json");
    Json::Value value;
    Json::CharReaderBuilder reader;
    std::string errors;
    if (!in || !Json::parseFromStream(reader, in, &value, &errors) || !value.isObject()) {
        return Json::Value(Json::objectValue);
    }
    return value;
}

// The controllers of the storage library's scenario; an empty array when none.
inline Json::Value fakeScenarioControllers()
{
    const Json::Value all = fakeReadScenario("libstoragecore")["controllers"];
    return all.isArray() ? all : Json::Value(Json::arrayValue);
}
