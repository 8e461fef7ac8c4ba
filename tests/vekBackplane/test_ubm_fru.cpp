// The UBM FRU reader on images made by the project's generator
// (testtools/frugen), good and broken, each one read as well by freeipmi's
// ipmi-fru: every field ipmi-fru prints must be what the reader finds, and
// what the reader finds must be what the image was made with.

#include "vekTestRoot.h"
#include "vekUBMUtils.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Fields = std::array<std::string, 7>;
const Fields kFields = {"Zolvek", "UBM Backplane 8", "BP-0001-A", "1.2", "SN000017", "AT-9", "fru-1.0"};
const Fields kSparse = {"Acme Storage", "UBM 4-Bay", "", "", "XZ42", "", ""};
const char kAllFields[] = "1234567";
const char* const kNoRoutes = nullptr;
const char kEightBays[] = "0 1 2 3 4 5 6 7";

// ipmi-fru's labels of the seven fields.
const char* const kLabels[7] = {"FRU Product Manufacturer Name",
                                "FRU Product Name",
                                "FRU Product Part/Model Number",
                                "FRU Product Version",
                                "FRU Product Serial Number",
                                "FRU Product Asset Tag",
                                "FRU FRU File ID"};

struct Case {
    const char* situation;
    const char* breakage;    // further options of the generator
    const char* ipmiFruSays; // an error ipmi-fru reports; empty: none but our OEM records
    const char* found;       // the field numbers the reader finds
    const char* routes;      // the drive bays of the descriptors; kNoRoutes: none can be read
    const Fields* fields;
};

const Case kCases[] = {
    {"a good image", "", "", kAllFields, kEightBays, &kFields},
    {"empty fields are walked over", "--route 4,5,6,7 --bays 4", "", kAllFields, "4 5 6 7", &kSparse},
    {"the routes before the count", "--route-first", "", kAllFields, kEightBays, &kFields},
    {"the count, not the record, says how many", "--descriptor-count 2", "", kAllFields, "0 1", &kFields},
    {"a backplane without routes", "--descriptor-count 0", "", kAllFields, "", &kFields},
    {"cut inside the common header", "--size 3", "FRU information inconsistent", "", kNoRoutes, &kFields},
    {"cut inside the product info area", "--size 48", "FRU area length invalid", "1234", kNoRoutes, &kFields},
    {"cut before the multi-records", "--size 100", "FRU information inconsistent", kAllFields, kNoRoutes, &kFields},
    {"cut inside the descriptors", "--size 160", "FRU area length invalid", kAllFields, kNoRoutes, &kFields},
    {"a wrong header checksum", "--bad-header-checksum", "common header checksum invalid", kAllFields, kEightBays,
     &kFields},
    {"a wrong area checksum", "--bad-area-checksum", "product info area checksum invalid", kAllFields, kEightBays,
     &kFields},
    {"a wrong record checksum", "--bad-record-checksum", "multirecord area checksum invalid", kAllFields, kEightBays,
     &kFields},
    {"another header format", "--header-version 2", "common header format invalid", "", kNoRoutes, &kFields},
    {"another area format", "--area-version 2", "product info area format invalid", "", kEightBays, &kFields},
    {"a language other than English (25)", "--language 0", "", "", kEightBays, &kFields},
    {"no product info area", "--product-offset 0", "", "", kEightBays, &kFields},
    {"a product info area past the end", "--product-offset 40", "FRU information inconsistent", "", kEightBays,
     &kFields},
    {"an area length shorter than its fields", "--area-length 3", "product info area checksum invalid", "1", kEightBays,
     &kFields},
    {"multi-records past the end", "--multirecord-offset 40", "FRU information inconsistent", kAllFields, kNoRoutes,
     &kFields},
    {"no multi-records", "--multirecord-offset 0", "", kAllFields, kNoRoutes, &kFields},
    {"a list without its end bit", "--no-end-bit", "multirecord area format invalid", kAllFields, kEightBays, &kFields},
    {"no end bit and no routes", "--no-end-bit --no-route-record", "multirecord area format invalid", kAllFields,
     kNoRoutes, &kFields},
    {"no count record", "--no-count-record", "", kAllFields, kNoRoutes, &kFields},
};

std::string quoted(const std::string& text)
{
    return "'" + text + "'";
}

std::string run(const std::string& command)
{
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    char buffer[512];
    while (pipe && fgets(buffer, sizeof buffer, pipe.get()) != nullptr) {
        output += buffer;
    }
    return output;
}

// ipmi-fru's "  Label: value" lines.
std::map<std::string, std::string> printedFields(const std::string& output)
{
    std::map<std::string, std::string> fields;
    size_t start = 0;
    while (start < output.size()) {
        const size_t end = output.find('\n', start);
        const std::string line = output.substr(start, end - start);
        const size_t colon = line.find(": ");
        if (line.rfind("  FRU ", 0) == 0 && colon != std::string::npos) {
            fields[line.substr(2, colon - 2)] = line.substr(colon + 2);
        }
        start = end == std::string::npos ? output.size() : end + 1;
    }
    return fields;
}

std::string bays(const std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR>& descriptors)
{
    std::string text;
    for (const UBM_PORT_ROUTE_INFO_DESCRIPTOR& d : descriptors) {
        text += (text.empty() ? "" : " ") + std::to_string(d.driveBay);
    }
    return text;
}

class UBMFRUTest : public vekRootTest {};

TEST_F(UBMFRUTest, ReadsWhatIpmiFruReadsAndNothingPastTheImage)
{
    const std::string frugen = std::string(VEK_BINARY_DIR) + "/testtools/frugen/frugen";
    const char* const options[7] = {"--manufacturer", "--product", "--part",   "--version",
                                    "--serial",       "--asset",   "--file-id"};
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.situation);
        const std::string image = root.hostPath("/fru.bin");
        std::string command = quoted(frugen);
        for (size_t i = 0; i < 7; ++i) {
            command += std::string(" ") + options[i] + " " + quoted((*c.fields)[i]);
        }
        ASSERT_EQ(system((command + " " + c.breakage + " " + quoted(image)).c_str()), 0);
        std::ifstream in(image, std::ios::binary);
        // Exactly the image's bytes, so that a read past them is the sanitizer's to see.
        const std::vector<unsigned char> fru{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        ASSERT_FALSE(fru.empty());

        const std::string ipmiFru = run("ipmi-fru --fru-file=" + quoted(image) + " 2>&1");
        ASSERT_NE(ipmiFru.find("FRU Inventory From File"), std::string::npos) << ipmiFru;
        const std::map<std::string, std::string> printed = printedFields(ipmiFru);
        if (*c.ipmiFruSays != '\0') {
            EXPECT_NE(ipmiFru.find(c.ipmiFruSays), std::string::npos) << ipmiFru;
        } else {
            // Our two OEM record types are unknown to ipmi-fru; anything else is a fault of the image.
            std::string errors = ipmiFru;
            for (size_t at; (at = errors.find("FRU Error: Unknown FRU Area Type Read")) != std::string::npos;) {
                errors.erase(at, 10);
            }
            EXPECT_EQ(errors.find("FRU Error"), std::string::npos) << ipmiFru;
        }

        for (size_t field = 1; field <= 7; ++field) {
            SCOPED_TRACE("field #" + std::to_string(field));
            const std::string& made = (*c.fields)[field - 1];
            std::string value = "<untouched>";
            const bool found = vekUBMUtils::extractFRUDataFromIPMIProductInfoArea(fru.data(), fru.size(), field, value);
            EXPECT_EQ(found, std::string(c.found).find(char('0' + field)) != std::string::npos);
            const auto shown = printed.find(kLabels[field - 1]);
            if (found) {
                EXPECT_EQ(value, made);
            }
            if (shown != printed.end()) {
                EXPECT_EQ(shown->second, made);
            } else if (found && *c.ipmiFruSays == '\0') {
                EXPECT_EQ(value, "") << "ipmi-fru prints every field that holds text";
            }
        }
        std::string custom;
        EXPECT_FALSE(vekUBMUtils::extractFRUDataFromIPMIProductInfoArea(fru.data(), fru.size(), 8, custom));

        std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR> routes(3);
        const bool routed = vekUBMUtils::extractUBMPortRouteInfoDescriptors(fru.data(), fru.size(), routes);
        EXPECT_EQ(routed, c.routes != kNoRoutes);
        EXPECT_EQ(bays(routes), c.routes != kNoRoutes ? c.routes : "");
    }
}

} // namespace
