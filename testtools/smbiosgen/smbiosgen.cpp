// smbiosgen: writes the SMBIOS structure table of a simulated host from a
// readable description (JSON), as the host exposes it raw
// (/sys/firmware/dmi/tables/DMI, /vmfs/devices/char/mem/smbios), and the same
// table as a dump file that `dmidecode --from-dump` reads.
//
//     smbiosgen [--table FILE] [--dump FILE] DESCRIPTION.json
//
// See README.md beside this file for the description's format.

#include <json/json.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

class DescriptionError : public std::runtime_error {
public:
    explicit DescriptionError(const std::string& what) : std::runtime_error(what) {}
};

struct Version {
    unsigned major = 3;
    unsigned minor = 2;
    unsigned docrev = 0;
    bool atLeast(unsigned maj, unsigned min) const { return major > maj || (major == maj && minor >= min); }
};

// One structure in the making: the formatted area (header included) and its
// string set.
class Structure {
public:
    Structure(unsigned type, unsigned handle) : area_{static_cast<uint8_t>(type), 0, 0, 0}
    {
        area_[2] = static_cast<uint8_t>(handle & 0xff);
        area_[3] = static_cast<uint8_t>(handle >> 8);
    }

    void byte(unsigned value) { area_.push_back(static_cast<uint8_t>(value)); }
    void word(unsigned value)
    {
        byte(value & 0xff);
        byte((value >> 8) & 0xff);
    }
    void dword(uint32_t value)
    {
        word(value & 0xffff);
        word(value >> 16);
    }
    void qword(uint64_t value)
    {
        dword(static_cast<uint32_t>(value & 0xffffffffu));
        dword(static_cast<uint32_t>(value >> 32));
    }
    void bytes(const Bytes& values) { area_.insert(area_.end(), values.begin(), values.end()); }
    // Adds a string to the set and its number to the formatted area; an
    // empty text is string number 0 ("not specified").
    void string(const std::string& text) { byte(addString(text)); }

    unsigned addString(const std::string& text)
    {
        if (text.empty()) {
            return 0;
        }
        if (text.find('\0') != std::string::npos) {
            throw DescriptionError("a string holds a NUL character");
        }
        if (strings_.size() == 255) {
            throw DescriptionError("more than 255 strings in one structure");
        }
        strings_.push_back(text);
        return static_cast<unsigned>(strings_.size());
    }

    size_t fullLength() const { return area_.size(); }
    // Cuts the formatted area to an older, shorter form of the structure.
    void cutTo(size_t length)
    {
        if (length < 4 || length > area_.size()) {
            throw DescriptionError("length " + std::to_string(length) + " is outside 4.." +
                                   std::to_string(area_.size()) + " for type " + std::to_string(area_[0]));
        }
        area_.resize(length);
    }

    void appendTo(Bytes& table) const
    {
        if (area_.size() > 255) {
            throw DescriptionError("formatted area of type " + std::to_string(area_[0]) + " is longer than 255");
        }
        Bytes out = area_;
        out[1] = static_cast<uint8_t>(area_.size());
        for (const std::string& s : strings_) {
            out.insert(out.end(), s.begin(), s.end());
            out.push_back(0);
        }
        if (strings_.empty()) {
            out.push_back(0);
        }
        out.push_back(0);
        table.insert(table.end(), out.begin(), out.end());
    }

private:
    Bytes area_;
    std::vector<std::string> strings_;
};

// A number member: a JSON integer or a text such as "0x1f".
uint64_t number(const Json::Value& object, const char* key, uint64_t fallback, uint64_t max)
{
    if (!object.isMember(key)) {
        return fallback;
    }
    const Json::Value& v = object[key];
    uint64_t value = 0;
    if (v.isUInt64()) {
        value = v.asUInt64();
    } else if (v.isString()) {
        const std::string text = v.asString();
        char* end = nullptr;
        errno = 0;
        value = std::strtoull(text.c_str(), &end, 0);
        if (text.empty() || *end != '\0' || errno != 0 || text[0] == '-') {
            throw DescriptionError(std::string("\"") + key + "\" is not a number: " + text);
        }
    } else {
        throw DescriptionError(std::string("\"") + key + "\" must be a number");
    }
    if (value > max) {
        throw DescriptionError(std::string("\"") + key + "\" is larger than " + std::to_string(max));
    }
    return value;
}

std::string text(const Json::Value& object, const char* key)
{
    if (!object.isMember(key)) {
        return "";
    }
    if (!object[key].isString()) {
        throw DescriptionError(std::string("\"") + key + "\" must be a string");
    }
    return object[key].asString();
}

bool flag(const Json::Value& object, const char* key, bool fallback)
{
    if (!object.isMember(key)) {
        return fallback;
    }
    if (!object[key].isBool()) {
        throw DescriptionError(std::string("\"") + key + "\" must be true or false");
    }
    return object[key].asBool();
}

Bytes hexBytes(const std::string& hex)
{
    Bytes out;
    std::string digits;
    for (char c : hex) {
        if (c == ' ' || c == ':' || c == '-') {
            continue;
        }
        if (!isxdigit(static_cast<unsigned char>(c))) {
            throw DescriptionError("not a hexadecimal byte string: " + hex);
        }
        digits += c;
    }
    if (digits.size() % 2 != 0) {
        throw DescriptionError("odd number of hexadecimal digits: " + hex);
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return out;
}

// A PCI address "SSSS:BB:DD.F" (segment optional) into segment, bus, devfn.
struct PciAddress {
    unsigned segment = 0xffff;
    unsigned bus = 0xff;
    unsigned devfn = 0xff;
};

PciAddress pciAddress(const Json::Value& object)
{
    PciAddress a;
    if (object.isMember("address")) {
        const std::string s = text(object, "address");
        unsigned segment = 0, bus = 0, device = 0, function = 0;
        char tail = 0;
        if (std::sscanf(s.c_str(), "%x:%x:%x.%x%c", &segment, &bus, &device, &function, &tail) == 4) {
        } else if (std::sscanf(s.c_str(), "%x:%x.%x%c", &bus, &device, &function, &tail) == 3) {
            segment = 0;
        } else {
            throw DescriptionError("not a PCI address: " + s);
        }
        if (segment > 0xffff || bus > 0xff || device > 0x1f || function > 7) {
            throw DescriptionError("PCI address out of range: " + s);
        }
        a.segment = segment;
        a.bus = bus;
        a.devfn = (device << 3) | function;
    }
    a.segment = static_cast<unsigned>(number(object, "segment", a.segment, 0xffff));
    a.bus = static_cast<unsigned>(number(object, "bus", a.bus, 0xff));
    if (object.isMember("device") || object.isMember("function")) {
        a.devfn = static_cast<unsigned>(number(object, "device", a.devfn >> 3, 0x1f) << 3 |
                                        number(object, "function", a.devfn & 7, 7));
    }
    a.devfn = static_cast<unsigned>(number(object, "devfn", a.devfn, 0xff));
    return a;
}

// "4c4c4544-0042-3510-8052-b2c04f4a4b32": SMBIOS 2.6 and later store the
// first three fields little-endian.
Bytes uuid(const std::string& s, const Version& version)
{
    if (s.empty()) {
        return Bytes(16, 0);
    }
    Bytes raw = hexBytes(s);
    if (raw.size() != 16 || s.size() != 36 || s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-') {
        throw DescriptionError("not a UUID: " + s);
    }
    if (version.atLeast(2, 6)) {
        std::swap(raw[0], raw[3]);
        std::swap(raw[1], raw[2]);
        std::swap(raw[4], raw[5]);
        std::swap(raw[6], raw[7]);
    }
    return raw;
}

void biosInformation(Structure& s, const Json::Value& d)
{
    s.string(text(d, "vendor"));
    s.string(text(d, "version"));
    s.word(static_cast<unsigned>(number(d, "startingSegment", 0xe800, 0xffff)));
    s.string(text(d, "releaseDate"));
    s.byte(static_cast<unsigned>(number(d, "romSize", 0xff, 0xff)));
    s.qword(number(d, "characteristics", 0x08, UINT64_MAX));
    s.byte(static_cast<unsigned>(number(d, "characteristicsExtension1", 0x01, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "characteristicsExtension2", 0x0c, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "biosMajorRelease", 0xff, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "biosMinorRelease", 0xff, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "firmwareMajorRelease", 0xff, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "firmwareMinorRelease", 0xff, 0xff)));
    s.word(static_cast<unsigned>(number(d, "extendedRomSize", 0x0020, 0xffff)));
}

void systemInformation(Structure& s, const Json::Value& d, const Version& version)
{
    s.string(text(d, "manufacturer"));
    s.string(text(d, "product"));
    s.string(text(d, "version"));
    s.string(text(d, "serial"));
    s.bytes(uuid(text(d, "uuid"), version));
    s.byte(static_cast<unsigned>(number(d, "wakeUpType", 0x06, 0xff)));
    s.string(text(d, "sku"));
    s.string(text(d, "family"));
}

void systemSlot(Structure& s, const Json::Value& d)
{
    s.string(text(d, "designation"));
    s.byte(static_cast<unsigned>(number(d, "slotType", 0xc3, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "dataBusWidth", 0x0d, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "currentUsage", 0x04, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "slotLength", 0x04, 0xff)));
    s.word(static_cast<unsigned>(number(d, "slotId", 0, 0xffff)));
    s.byte(static_cast<unsigned>(number(d, "characteristics1", 0x04, 0xff)));
    s.byte(static_cast<unsigned>(number(d, "characteristics2", 0x01, 0xff)));
    const PciAddress a = pciAddress(d);
    s.word(a.segment);
    s.byte(a.bus);
    s.byte(a.devfn);
    // SMBIOS 3.2: base data bus width and peer groups.
    if (d.isMember("baseDataBusWidth") || d.isMember("peers")) {
        s.byte(static_cast<unsigned>(number(d, "baseDataBusWidth", 0, 0xff)));
        const Json::Value& peers = d["peers"];
        if (!peers.isNull() && !peers.isArray()) {
            throw DescriptionError("\"peers\" must be an array");
        }
        if (peers.size() > 255) {
            throw DescriptionError("more than 255 peers");
        }
        s.byte(peers.size());
        for (const Json::Value& peer : peers) {
            const PciAddress p = pciAddress(peer);
            s.word(p.segment);
            s.byte(p.bus);
            s.byte(p.devfn);
            s.byte(static_cast<unsigned>(number(peer, "width", 0, 0xff)));
        }
    }
}

void oemStrings(Structure& s, const Json::Value& d)
{
    const Json::Value& strings = d["strings"];
    if (!strings.isArray()) {
        throw DescriptionError("type 11 needs \"strings\", an array of texts");
    }
    s.byte(strings.size());
    for (const Json::Value& one : strings) {
        if (!one.isString() || one.asString().empty()) {
            throw DescriptionError("OEM strings must be non-empty texts");
        }
        s.addString(one.asString());
    }
}

void onboardDevice(Structure& s, const Json::Value& d)
{
    s.string(text(d, "designation"));
    const unsigned kind = static_cast<unsigned>(number(d, "deviceType", 0x01, 0x7f));
    s.byte(kind | (flag(d, "enabled", true) ? 0x80 : 0));
    s.byte(static_cast<unsigned>(number(d, "instance", 1, 0xff)));
    const PciAddress a = pciAddress(d);
    s.word(a.segment);
    s.byte(a.bus);
    s.byte(a.devfn);
}

// Any other structure: the bytes of its formatted area after the header, and
// its strings.
void rawStructure(Structure& s, const Json::Value& d)
{
    if (!d.isMember("data") && !d.isMember("strings")) {
        throw DescriptionError("type " + std::to_string(d["type"].asUInt()) +
                               " has no named fields: give \"data\" (hex) and \"strings\"");
    }
    s.bytes(hexBytes(text(d, "data")));
    const Json::Value& strings = d["strings"];
    if (!strings.isNull() && !strings.isArray()) {
        throw DescriptionError("\"strings\" must be an array");
    }
    for (const Json::Value& one : strings) {
        if (!one.isString() || one.asString().empty()) {
            throw DescriptionError("strings must be non-empty texts");
        }
        s.addString(one.asString());
    }
}

Version parseVersion(const Json::Value& root)
{
    Version v;
    if (!root.isMember("smbiosVersion")) {
        return v;
    }
    const std::string s = text(root, "smbiosVersion");
    char tail = 0;
    const int got = std::sscanf(s.c_str(), "%u.%u.%u%c", &v.major, &v.minor, &v.docrev, &tail);
    if (got < 2 || got > 3 || v.major > 255 || v.minor > 255 || v.docrev > 255) {
        throw DescriptionError("\"smbiosVersion\" must look like 3.2 or 3.2.0: " + s);
    }
    return v;
}

Bytes buildTable(const Json::Value& root, const Version& version)
{
    if (!root.isObject() || !root["structures"].isArray()) {
        throw DescriptionError("the description needs \"structures\", an array of objects");
    }
    Bytes table;
    unsigned nextHandle = 0;
    bool ended = false;
    for (const Json::Value& d : root["structures"]) {
        if (!d.isObject() || !d.isMember("type")) {
            throw DescriptionError("each structure is an object with a \"type\"");
        }
        const unsigned type = static_cast<unsigned>(number(d, "type", 0, 0xff));
        const unsigned handle = static_cast<unsigned>(number(d, "handle", nextHandle, 0xfeff));
        nextHandle = handle + 1;
        Structure s(type, handle);
        switch (type) {
        case 0:
            biosInformation(s, d);
            break;
        case 1:
            systemInformation(s, d, version);
            break;
        case 9:
            systemSlot(s, d);
            break;
        case 11:
            oemStrings(s, d);
            break;
        case 41:
            onboardDevice(s, d);
            break;
        case 127:
            ended = true;
            break;
        default:
            rawStructure(s, d);
            break;
        }
        if (d.isMember("length")) {
            s.cutTo(static_cast<size_t>(number(d, "length", 0, 0xff)));
        }
        s.appendTo(table);
    }
    if (!ended && flag(root, "endOfTable", true)) {
        Structure(127, nextHandle).appendTo(table);
    }
    return table;
}

// The dump file of `dmidecode --dump-bin`: a 64-bit (SMBIOS 3) entry point
// padded to 32 bytes, whose table address is the offset of the table in the
// file, then the table.
Bytes dumpFile(const Bytes& table, const Version& version)
{
    Bytes ep = {'_', 'S', 'M', '3', '_', 0, 0x18, static_cast<uint8_t>(version.major),
                static_cast<uint8_t>(version.minor), static_cast<uint8_t>(version.docrev), 0x01, 0x00};
    const uint32_t size = static_cast<uint32_t>(table.size());
    for (int i = 0; i < 4; ++i) {
        ep.push_back(static_cast<uint8_t>(size >> (8 * i)));
    }
    const uint64_t address = 0x20;
    for (int i = 0; i < 8; ++i) {
        ep.push_back(static_cast<uint8_t>(address >> (8 * i)));
    }
    uint8_t sum = 0;
    for (uint8_t b : ep) {
        sum = static_cast<uint8_t>(sum + b);
    }
    ep[5] = static_cast<uint8_t>(0x100 - sum);
    ep.resize(0x20, 0);
    ep.insert(ep.end(), table.begin(), table.end());
    return ep;
}

void writeFile(const std::string& path, const Bytes& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    }
}

int usage()
{
    std::cerr << "usage: smbiosgen [--table FILE] [--dump FILE] DESCRIPTION.json\n"
                 "  --table FILE  the raw structure table (sys/firmware/dmi/tables/DMI)\n"
                 "  --dump FILE   the table as a dump file for dmidecode --from-dump\n";
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string tablePath;
    std::string dumpPath;
    std::string descriptionPath;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if ((arg == "--table" || arg == "--dump") && i + 1 < argc) {
            (arg == "--table" ? tablePath : dumpPath) = argv[++i];
        } else if (arg == "-h" || arg == "--help") {
            usage();
            return 0;
        } else if (!arg.empty() && arg[0] != '-' && descriptionPath.empty()) {
            descriptionPath = arg;
        } else {
            return usage();
        }
    }
    if (descriptionPath.empty() || (tablePath.empty() && dumpPath.empty())) {
        return usage();
    }

    try {
        std::ifstream in(descriptionPath);
        if (!in) {
            throw std::runtime_error("cannot open " + descriptionPath + ": " + std::strerror(errno));
        }
        Json::CharReaderBuilder reader;
        reader["rejectDupKeys"] = true;
        Json::Value root;
        std::string errors;
        if (!Json::parseFromStream(reader, in, &root, &errors)) {
            throw DescriptionError("not valid JSON: " + errors);
        }
        const Version version = parseVersion(root);
        const Bytes table = buildTable(root, version);
        if (!tablePath.empty()) {
            writeFile(tablePath, table);
        }
        if (!dumpPath.empty()) {
            writeFile(dumpPath, dumpFile(table, version));
        }
    } catch (const DescriptionError& e) {
        std::cerr << "smbiosgen: " << descriptionPath << ": " << e.what() << "\n";
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "smbiosgen: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
