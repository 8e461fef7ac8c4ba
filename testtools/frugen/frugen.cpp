// frugen: writes the FRU EEPROM image of a UBM backplane in the platform
// management FRU format: common header, product info area, and the two OEM
// multi-records that carry the drive routing. Options break each rule a
// reader must check, so that tests can feed it images a real EEPROM may hold
// after a bad flash or a short read.
//
//     frugen [OPTIONS] OUTPUT
//
// See README.md beside this file.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const size_t kImageSize = 256;
const size_t kProductAreaAt = 8;
const size_t kMultiRecordAt = 128;
const uint8_t kCountRecord = 0xA0;
const uint8_t kRouteRecord = 0xA1;

struct Options {
    std::string fields[7] = {"Zolvek", "UBM Backplane", "BP-0001", "1.0", "SN000001", "", ""};
    std::vector<unsigned> bays;
    unsigned bayCount = 8;
    int descriptorCount = -1; // -1: as many as there are routes
    unsigned vendor = 0x4417;
    size_t size = kImageSize;
    int headerVersion = 1;
    int areaVersion = 1;
    int language = 25;
    int productOffset = -1;     // in units of 8 bytes; -1: where the generator puts it
    int multiRecordOffset = -1; // likewise
    int areaLength = -1;        // likewise
    bool badHeaderChecksum = false;
    bool badAreaChecksum = false;
    bool badRecordChecksum = false;
    bool noEndBit = false;
    bool routeFirst = false;
    bool noCountRecord = false;
    bool noRouteRecord = false;
    std::string output;
};

uint8_t checksum(const uint8_t* bytes, size_t length)
{
    unsigned sum = 0;
    for (size_t i = 0; i < length; ++i) {
        sum += bytes[i];
    }
    return static_cast<uint8_t>(-sum);
}

Bytes productInfoArea(const Options& o)
{
    Bytes area{static_cast<uint8_t>(o.areaVersion), 0, static_cast<uint8_t>(o.language)};
    for (const std::string& field : o.fields) {
        if (field.size() > 0x3F) {
            throw std::runtime_error("field longer than 63 bytes: " + field);
        }
        area.push_back(static_cast<uint8_t>(0xC0 | field.size())); // 8-bit ASCII
        area.insert(area.end(), field.begin(), field.end());
    }
    area.push_back(0xC1); // no more fields
    while ((area.size() + 1) % 8 != 0) {
        area.push_back(0);
    }
    area[1] = static_cast<uint8_t>(o.areaLength >= 0 ? o.areaLength : (area.size() + 1) / 8);
    area.push_back(checksum(area.data(), area.size()));
    if (o.badAreaChecksum) {
        area.back() ^= 0x5A;
    }
    return area;
}

Bytes multiRecord(uint8_t type, const Bytes& data, bool last, bool badChecksum)
{
    Bytes record{type, static_cast<uint8_t>(0x02 | (last ? 0x80 : 0)), static_cast<uint8_t>(data.size()),
                 checksum(data.data(), data.size()), 0};
    record[4] = checksum(record.data(), 4);
    if (badChecksum) {
        record[3] ^= 0x5A;
    }
    record.insert(record.end(), data.begin(), data.end());
    return record;
}

// The count record puts the bay count and the descriptor count at record
// offsets 10 and 11: at the generator's place of the list, image bytes 138
// and 139, where the readers of the backplane expect them.
Bytes multiRecordArea(const Options& o)
{
    const Bytes counts{static_cast<uint8_t>(o.vendor & 0xFF),
                       static_cast<uint8_t>(o.vendor >> 8),
                       0x01,
                       0x00,
                       0x00,
                       static_cast<uint8_t>(o.bayCount),
                       static_cast<uint8_t>(o.descriptorCount >= 0 ? o.descriptorCount : o.bays.size())};
    Bytes routes;
    for (size_t i = 0; i < o.bays.size(); ++i) {
        // Port, lane and link bytes the service carries without reading.
        const Bytes descriptor{
            static_cast<uint8_t>(i),        0x40, 0x57, 0x00, static_cast<uint8_t>(i / 4), static_cast<uint8_t>(i % 4),
            static_cast<uint8_t>(o.bays[i])};
        routes.insert(routes.end(), descriptor.begin(), descriptor.end());
    }
    std::vector<std::pair<uint8_t, Bytes>> records;
    if (!o.noCountRecord) {
        records.emplace_back(kCountRecord, counts);
    }
    if (!o.noRouteRecord) {
        records.emplace(o.routeFirst ? records.begin() : records.end(), kRouteRecord, routes);
    }
    Bytes area;
    for (size_t i = 0; i < records.size(); ++i) {
        const bool last = i + 1 == records.size() && !o.noEndBit;
        const Bytes record = multiRecord(records[i].first, records[i].second, last, o.badRecordChecksum);
        area.insert(area.end(), record.begin(), record.end());
    }
    return area;
}

Bytes image(const Options& o)
{
    Bytes fru(kImageSize, 0);
    const Bytes product = productInfoArea(o);
    if (kProductAreaAt + product.size() > kMultiRecordAt) {
        throw std::runtime_error("product info area does not fit below the multi-record area");
    }
    std::copy(product.begin(), product.end(), fru.begin() + kProductAreaAt);
    const Bytes records = multiRecordArea(o);
    if (kMultiRecordAt + records.size() > kImageSize) {
        throw std::runtime_error("multi-records do not fit in the image");
    }
    std::copy(records.begin(), records.end(), fru.begin() + kMultiRecordAt);
    fru[0] = static_cast<uint8_t>(o.headerVersion);
    fru[4] = static_cast<uint8_t>(o.productOffset >= 0 ? o.productOffset : kProductAreaAt / 8);
    fru[5] = static_cast<uint8_t>(o.multiRecordOffset >= 0 ? o.multiRecordOffset : kMultiRecordAt / 8);
    fru[7] = checksum(fru.data(), 7);
    if (o.badHeaderChecksum) {
        fru[7] ^= 0x5A;
    }
    fru.resize(o.size);
    return fru;
}

void usage()
{
    std::cerr << "usage: frugen [--manufacturer T] [--product T] [--part T] [--version T] [--serial T]\n"
                 "              [--asset T] [--file-id T] [--bays N] [--route BAY,BAY...] [--vendor N]\n"
                 "              [--descriptor-count N] [--size N] [--header-version N] [--area-version N]\n"
                 "              [--language N] [--product-offset N] [--multirecord-offset N] [--area-length N]\n"
                 "              [--bad-header-checksum] [--bad-area-checksum] [--bad-record-checksum]\n"
                 "              [--no-end-bit] [--route-first] [--no-count-record] [--no-route-record] OUTPUT\n";
}

unsigned number(const std::string& text)
{
    char* end = nullptr;
    const unsigned long value = strtoul(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0') {
        throw std::invalid_argument("not a number: " + text);
    }
    return static_cast<unsigned>(value);
}

std::vector<unsigned> numbers(const std::string& list)
{
    std::vector<unsigned> values;
    size_t start = 0;
    while (start <= list.size() && !list.empty()) {
        const size_t comma = list.find(',', start);
        values.push_back(number(list.substr(start, comma - start)));
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return values;
}

bool parse(int argc, char** argv, Options& o)
{
    const char* const fieldNames[7] = {"--manufacturer", "--product", "--part",   "--version",
                                       "--serial",       "--asset",   "--file-id"};
    struct Flag {
        const char* name;
        bool* value;
    };
    const Flag flags[] = {{"--bad-header-checksum", &o.badHeaderChecksum},
                          {"--bad-area-checksum", &o.badAreaChecksum},
                          {"--bad-record-checksum", &o.badRecordChecksum},
                          {"--no-end-bit", &o.noEndBit},
                          {"--route-first", &o.routeFirst},
                          {"--no-count-record", &o.noCountRecord},
                          {"--no-route-record", &o.noRouteRecord}};
    struct Value {
        const char* name;
        int* value;
    };
    const Value values[] = {{"--descriptor-count", &o.descriptorCount},
                            {"--header-version", &o.headerVersion},
                            {"--area-version", &o.areaVersion},
                            {"--language", &o.language},
                            {"--product-offset", &o.productOffset},
                            {"--multirecord-offset", &o.multiRecordOffset},
                            {"--area-length", &o.areaLength}};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        bool known = false;
        for (const Flag& flag : flags) {
            if (arg == flag.name) {
                *flag.value = known = true;
            }
        }
        if (known) {
            continue;
        }
        if (arg.rfind("--", 0) != 0) {
            if (!o.output.empty()) {
                return false;
            }
            o.output = arg;
            continue;
        }
        if (i + 1 >= argc) {
            return false;
        }
        const std::string value = argv[++i];
        for (int f = 0; f < 7; ++f) {
            if (arg == fieldNames[f]) {
                o.fields[f] = value;
                known = true;
            }
        }
        for (const Value& v : values) {
            if (arg == v.name) {
                *v.value = static_cast<int>(number(value));
                known = true;
            }
        }
        if (arg == "--bays") {
            o.bayCount = number(value);
        } else if (arg == "--route") {
            o.bays = numbers(value);
        } else if (arg == "--vendor") {
            o.vendor = number(value);
        } else if (arg == "--size") {
            o.size = number(value);
        } else if (!known) {
            return false;
        }
    }
    return !o.output.empty();
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    options.bays = {0, 1, 2, 3, 4, 5, 6, 7};
    try {
        if (!parse(argc, argv, options)) {
            usage();
            return 2;
        }
    } catch (const std::exception& e) {
        std::cerr << "frugen: " << e.what() << "\n";
        usage();
        return 2;
    }
    try {
        const Bytes fru = image(options);
        std::ofstream out(options.output, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(fru.data()), static_cast<std::streamsize>(fru.size()));
        if (!out) {
            std::cerr << "frugen: cannot write " << options.output << "\n";
            return 1;
        }
    } catch (const std::exception& e) {
        std::cerr << "frugen: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
