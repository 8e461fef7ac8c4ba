#pragma once

#include "vekLog.h"

#include <json/json.h>

#include <cstddef>
#include <string>
#include <vector>

namespace vekPCIeInventoryJson {

// One line of JSON, for the log.
inline std::string writeCompact(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

// The inventory sections of one adapter family's records, in order: each
// record's own JSON (toJson) with its "Status", logged with the manager's tag
// and the family's name ("Ethernet", "FC").
template <typename Record, typename ToJson>
std::vector<Json::Value> recordsToJson(const char* tag, const char* family, const std::vector<Record>& records,
                                       ToJson toJson)
{
    std::vector<Json::Value> json;
    for (size_t i = 0; i < records.size(); ++i) {
        const Record& record = records[i];
        Json::Value adapter = toJson(record);
        adapter["Status"] = record.getStatusJson();
        VEK_LOG_DEBUG(tag, "Printing %s Instance %zu:    %s", family, i, writeCompact(adapter).c_str());
        json.push_back(adapter);
    }
    return json;
}

} // namespace vekPCIeInventoryJson
