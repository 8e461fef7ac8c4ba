// A stand-in for the closed PL encoder libraries, for tests and simulated
// hosts. It packs the fields it receives into the PL reversibly, writes down
// the bytes of every structure it is asked to encode, and can be told to
// fail. Built three times, as libvekloc1.so, libvekloc2.so and
// libvekloc3.so (FAKE_PHYSLOC_NAME, FAKE_PHYSLOC_VERSION).

#include "vekPhysLocLibrary.h"

#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

std::string simFile(const char* suffix)
{
    const char* root = getenv("VEK_ROOT");
    return std::string(root != nullptr ? root : "") + "/sim/" FAKE_PHYSLOC_NAME + suffix;
}

// The result the scenario sets for an operation; 0 without one.
int scenario(const char* operation)
{
    std::ifstream in(simFile(".json"));
    if (!in) {
        return 0;
    }
    Json::Value root;
    Json::CharReaderBuilder reader;
    std::string errors;
    if (!Json::parseFromStream(reader, in, &root, &errors) || !root.isObject()) {
        return 0;
    }
    return root.get(operation, 0).asInt();
}

} // namespace

extern "C" {

physloc_rtn_t physloc_init_data(__physloc_data_t* data, unsigned char version)
{
    if (const int forced = scenario("init")) {
        return forced;
    }
    if (data == nullptr || version != FAKE_PHYSLOC_VERSION) {
        return 2;
    }
    // Fields nobody sets keep this filler, so a test sees what was left alone.
    memset(data, 0xFF, sizeof *data);
    data->type = 0;
    return 0;
}

physloc_rtn_t physloc_encode(const __physloc_data_t* data, unsigned long long* pl)
{
    if (data == nullptr || pl == nullptr) {
        return 2;
    }
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    if (FILE* calls = fopen(simFile(".calls").c_str(), "a")) {
        for (size_t i = 0; i < sizeof *data; ++i) {
            fprintf(calls, "%02x", bytes[i]);
        }
        fputc('\n', calls);
        fclose(calls);
    }
    if (const int forced = scenario("encode")) {
        return forced;
    }
    // type, rack, unit, partition, box, slot, dimm, slot2: one byte each.
    *pl = (static_cast<unsigned long long>(data->type & 0xFF) << 56) |
          (static_cast<unsigned long long>(data->rack) << 48) | (static_cast<unsigned long long>(data->unit) << 40) |
          (static_cast<unsigned long long>(data->partition) << 32) |
          (static_cast<unsigned long long>(data->box) << 24) | (static_cast<unsigned long long>(data->slot) << 16) |
          (static_cast<unsigned long long>(data->dimm) << 8) | data->slot2;
    return 0;
}

#ifndef FAKE_PHYSLOC_NO_GET_STRING
physloc_rtn_t physloc_get_string(physloc_string_type_t type, unsigned long long pl, char* text)
{
    if (const int forced = scenario("get_string")) {
        return forced;
    }
    if (text == nullptr || type != 0) {
        return 2;
    }
    snprintf(text, PHYSLOC_STRING_SIZE, "T%u R%u U%u P%u B%u S%u D%u X%u", unsigned(pl >> 56 & 0xFF),
             unsigned(pl >> 48 & 0xFF), unsigned(pl >> 40 & 0xFF), unsigned(pl >> 32 & 0xFF),
             unsigned(pl >> 24 & 0xFF), unsigned(pl >> 16 & 0xFF), unsigned(pl >> 8 & 0xFF), unsigned(pl & 0xFF));
    return 0;
}
#endif

} // extern "C"
