// A stand-in for the closed Scrutiny library (libscrutiny.so), for tests and
// simulated hosts: MegaRAID controllers with their configuration page 43, and
// on each I2C bus a UBM controller at 0x40 and a FRU EEPROM at 0x57, all as
// $VEK_ROOT/sim/libscrutiny.json describes them (read at every call). See
// README.md beside this file.

#include "vekScrutinyLibrary.h"

#include <json/json.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace {

const unsigned kHandleBase = 0x100; // handles are not indexes, so a caller that mixes them up fails
const _SCRUTINY_STATUS kLibraryFault = 0x0B;
const uint16_t kIOCNoAnswer = 0x0004;
const uint16_t kIOCBusNotReserved = 0x0022;
const uint32_t kIOCLogInfo = 0x31120000;
const uint8_t kUBMStatusFailed = 2;

std::string rootPath()
{
    const char* root = getenv("VEK_ROOT");
    return root != nullptr ? root : "";
}

Json::Value scenario()
{
    std::ifstream in(rootPath() + "/sim/libscrutiny.json");
    Json::Value root;
    Json::CharReaderBuilder reader;
    std::string errors;
    if (!in || !Json::parseFromStream(reader, in, &root, &errors) || !root.isObject()) {
        return Json::Value(Json::objectValue);
    }
    return root;
}

// A JSON number, or a text such as "0x10E21000".
uint32_t number(const Json::Value& value, uint32_t fallback = 0)
{
    if (value.isString()) {
        return static_cast<uint32_t>(strtoul(value.asCString(), nullptr, 0));
    }
    return value.isNumeric() ? value.asUInt() : fallback;
}

// "1.10" as major and minor.
std::pair<unsigned, unsigned> version(const Json::Value& value)
{
    unsigned major = 0, minor = 0;
    if (sscanf(value.asString().c_str(), "%u.%u", &major, &minor) != 2) {
        return {0, 0};
    }
    return {major, minor};
}

const Json::Value* controller(const Json::Value& root, const unsigned* handle)
{
    const Json::Value& controllers = root["controllers"];
    if (handle == nullptr || *handle < kHandleBase || !controllers.isArray() ||
        *handle - kHandleBase >= controllers.size()) {
        return nullptr;
    }
    return &controllers[*handle - kHandleBase];
}

// Buses reserved, per controller handle; and the UBM controllers' Last
// Command Status, per handle and bus.
std::mutex gStateLock;
std::set<std::pair<unsigned, unsigned>> gReserved;
std::vector<std::pair<std::pair<unsigned, unsigned>, uint8_t>> gLastStatus;

void setLastStatus(unsigned handle, unsigned bus, uint8_t status)
{
    for (auto& entry : gLastStatus) {
        if (entry.first == std::make_pair(handle, bus)) {
            entry.second = status;
            return;
        }
    }
    gLastStatus.push_back({{handle, bus}, status});
}

uint8_t lastStatus(unsigned handle, unsigned bus)
{
    for (const auto& entry : gLastStatus) {
        if (entry.first == std::make_pair(handle, bus)) {
            return entry.second;
        }
    }
    return 1;
}

std::vector<uint8_t> page43(const Json::Value& page)
{
    const Json::Value& buses = page["buses"];
    const size_t count = buses.isArray() ? buses.size() : 0;
    std::vector<uint8_t> bytes(MR_CONFIG_PAGE_HEADER_SIZE + 1 + count * MR_CONFIG_PAGE_43_ENTRY_SIZE, 0);
    while (bytes.size() % 4 != 0) {
        bytes.push_back(0);
    }
    const uint32_t words = number(page["length"], static_cast<uint32_t>(bytes.size() / 4));
    bytes[0] = 1;  // page version
    bytes[2] = 43; // page number
    bytes[4] = static_cast<uint8_t>(words & 0xFF);
    bytes[5] = static_cast<uint8_t>(words >> 8);
    bytes[MR_CONFIG_PAGE_HEADER_SIZE] = static_cast<uint8_t>(number(page["count"], static_cast<uint32_t>(count)));
    for (size_t i = 0; i < count; ++i) {
        bytes[MR_CONFIG_PAGE_HEADER_SIZE + 1 + i * MR_CONFIG_PAGE_43_ENTRY_SIZE + MR_CONFIG_PAGE_43_ENTRY_BUS_OFFSET] =
            static_cast<uint8_t>(number(buses[static_cast<Json::ArrayIndex>(i)]));
    }
    return bytes;
}

// A page 43 status: one number for every read, or [header read, page read].
uint32_t perRead(const Json::Value& value, bool headerRead)
{
    if (value.isArray()) {
        return number(value.get(headerRead ? 0u : 1u, 0));
    }
    return number(value);
}

// What the UBM controller answers to a command; false for one it doesn't know.
bool ubmAnswer(const Json::Value& ubm, uint8_t command, std::vector<uint8_t>& answer)
{
    switch (command) {
    case UBM_COMMAND_SILICON_IDENTITY_VERSION: {
        answer.assign(UBM_SILICON_IDENTITY_VERSION_SIZE, 0);
        const auto ubmVersion = version(ubm.get("ubmVersion", "1.1"));
        const auto image = version(ubm.get("imageVersion", "1.10"));
        const uint32_t vendor = number(ubm["vendor"], 0x4417);
        const uint32_t device = number(ubm["deviceCode"], 1);
        answer[0] = static_cast<uint8_t>((ubmVersion.first << 4) | (ubmVersion.second & 0x0F));
        answer[1] = static_cast<uint8_t>(vendor & 0xFF);
        answer[2] = static_cast<uint8_t>(vendor >> 8);
        for (int i = 0; i < 4; ++i) {
            answer[4 + i] = static_cast<uint8_t>(device >> (8 * i));
        }
        answer[10] = static_cast<uint8_t>(image.second);
        answer[11] = static_cast<uint8_t>(image.first);
        return true;
    }
    case UBM_COMMAND_BACKPLANE_INFO:
        answer.assign(1, static_cast<uint8_t>(0xF0 | (number(ubm["box"]) & 0x0F))); // high bits not the box's
        return true;
    case UBM_COMMAND_OPERATIONAL_STATE:
        answer.assign(1, static_cast<uint8_t>(number(ubm["state"], 3)));
        return true;
    default:
        return false;
    }
}

const char* commandName(uint8_t command)
{
    switch (command) {
    case UBM_COMMAND_SILICON_IDENTITY_VERSION:
        return "silicon";
    case UBM_COMMAND_BACKPLANE_INFO:
        return "backplane";
    case UBM_COMMAND_OPERATIONAL_STATE:
        return "state";
    case UBM_COMMAND_LAST_COMMAND_STATUS:
        return "status";
    default:
        return "other";
    }
}

std::vector<uint8_t> fruImage(const Json::Value& bus)
{
    std::string path = bus["fru"].asString();
    if (!path.empty() && path[0] != '/') {
        path = rootPath() + "/" + path;
    }
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

// While the scenario's "hold" file exists, transfers wait (a minute at most),
// so that a test can look at the service in the middle of a discovery. The
// file of the same name with ".held" appended tells that a transfer waits.
void holdWhileAsked(const Json::Value& root)
{
    if (!root.isMember("hold")) {
        return;
    }
    const std::string hold = rootPath() + "/" + root["hold"].asString();
    const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (exists(hold) && std::chrono::steady_clock::now() < until) {
        std::ofstream(hold + ".held").put('\n');
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// One read/write transfer on a bus the caller has reserved.
_SCRUTINY_STATUS transfer(unsigned handle, const Json::Value& bus, _SCRUTINY_ISTWI_REQUEST* request,
                          __SCRUTINY_IOC_STATUS* ioc)
{
    const uint8_t* transmit = static_cast<const uint8_t*>(request->transmitBuffer);
    uint8_t* receive = static_cast<uint8_t*>(request->receiveBuffer);
    const uint16_t wanted = request->receiveLength;
    request->receiveLength = 0;
    if (transmit == nullptr || request->transmitLength == 0 || (wanted > 0 && receive == nullptr)) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    std::string what;
    std::vector<uint8_t> answer;
    bool answers = false;
    if (request->deviceAddress == UBM_CONTROLLER_I2C_ADDRESS && bus.isMember("ubm")) {
        const uint8_t command = transmit[0];
        what = commandName(command);
        std::lock_guard<std::mutex> lock(gStateLock);
        answers = true;
        if (command == UBM_COMMAND_LAST_COMMAND_STATUS) {
            answer.assign(1, lastStatus(handle, request->bus));
        } else {
            const bool checked =
                request->transmitLength == 2 && transmit[1] == uint8_t(UBM_COMMAND_CHECKSUM_BASE - command);
            const bool known = ubmAnswer(bus["ubm"], command, answer);
            const bool refused = bus["faults"].get(what, "").asString() == "refused";
            setLastStatus(handle, request->bus, checked && known && !refused ? 1 : kUBMStatusFailed);
            if (!checked || !known) {
                answer.clear();
            }
        }
    } else if (request->deviceAddress == UBM_FRU_I2C_ADDRESS && bus.isMember("fru")) {
        what = "fru";
        answers = true;
        const std::vector<uint8_t> image = fruImage(bus);
        // An EEPROM reads 0xFF past what was written to it.
        for (size_t i = transmit[0]; i < static_cast<size_t>(transmit[0]) + wanted; ++i) {
            answer.push_back(i < image.size() ? image[i] : 0xFF);
        }
    }
    const std::string fault = bus["faults"].get(what, "").asString();
    if (!answers) {
        ioc->iocStatus = kIOCNoAnswer;
        ioc->iocLogInfo = kIOCLogInfo;
        return SCRUTINY_STATUS_SUCCESS;
    }
    if (fault == "library") {
        return kLibraryFault;
    }
    if (fault == "ioc") {
        ioc->iocStatus = kIOCNoAnswer;
        ioc->iocLogInfo = kIOCLogInfo;
        return SCRUTINY_STATUS_SUCCESS;
    }
    size_t length = std::min<size_t>(answer.size(), wanted);
    if (fault == "short") {
        length /= 2;
    }
    std::copy(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(length), receive);
    request->receiveLength = static_cast<uint16_t>(length);
    return SCRUTINY_STATUS_SUCCESS;
}

} // namespace

extern "C" {

_SCRUTINY_STATUS ScrutinyInitialize()
{
    return number(scenario()["initialize"]);
}

_SCRUTINY_STATUS ScrutinyExit()
{
    return number(scenario()["exit"]);
}

_SCRUTINY_STATUS ScrutinyGetLibraryVersion(unsigned* version)
{
    if (version == nullptr) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    *version = number(scenario()["version"], 0x07000100);
    return SCRUTINY_STATUS_SUCCESS;
}

_SCRUTINY_STATUS ScrutinyInitializeLogging(__SCRUTINY_DEBUG_LOGGER*)
{
    return SCRUTINY_STATUS_SUCCESS;
}

_SCRUTINY_STATUS ScrutinyDiscoverDevices(unsigned, __SCRUTINY_DISCOVERY_PARAMS*)
{
    return number(scenario()["discover"]);
}

_SCRUTINY_STATUS ScrutinyGetDeviceCount(unsigned* count)
{
    if (count == nullptr) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    const Json::Value controllers = scenario()["controllers"];
    *count = controllers.isArray() ? controllers.size() : 0;
    return SCRUTINY_STATUS_SUCCESS;
}

_SCRUTINY_STATUS ScrutinyGetDeviceInfo(unsigned index, unsigned size, _SCRUTINY_DEVICE_INFO* info)
{
    const Json::Value root = scenario();
    const unsigned handle = kHandleBase + index;
    const Json::Value* c = controller(root, &handle);
    if (c == nullptr || info == nullptr || size < sizeof *info) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    if (const _SCRUTINY_STATUS forced = number((*c)["deviceInfo"])) {
        return forced;
    }
    memset(info, 0, sizeof *info);
    info->productHandle = handle;
    info->generation = number((*c)["generation"], SCRUTINY_GENERATION_GEN3_MEGARAID);
    info->chipsetID = number((*c)["chipsetID"]);
    info->boardID = number((*c)["boardID"]);
    unsigned domain = 0, bus = 0, device = 0, function = 0;
    sscanf((*c)["pci"].asString().c_str(), "%x:%x:%x.%x", &domain, &bus, &device, &function);
    info->pciDomain = static_cast<uint16_t>(domain);
    info->pciBus = static_cast<uint8_t>(bus);
    info->pciDevice = static_cast<uint8_t>(device);
    info->pciFunction = static_cast<uint8_t>(function);
    // All 32 bytes used, as the controller's field may be: no terminating NUL.
    const std::string serial = (*c)["serial"].asString();
    memcpy(info->serialNumber, serial.data(), std::min(serial.size(), sizeof info->serialNumber));
    return SCRUTINY_STATUS_SUCCESS;
}

_SCRUTINY_STATUS ScrutinyControllerDcmdPassthrough(unsigned* handle, _SCRUTINY_DCMD_PASSTHROUGH* dcmd)
{
    const Json::Value root = scenario();
    const Json::Value* c = controller(root, handle);
    if (c == nullptr) {
        return SCRUTINY_STATUS_INVALID_HANDLE;
    }
    uint8_t* block = dcmd != nullptr ? static_cast<uint8_t*>(dcmd->dataBuffer) : nullptr;
    if (block == nullptr || dcmd->command != SCRUTINY_DCMD_READ_CONFIG_PAGE ||
        dcmd->direction != SCRUTINY_DCMD_DIRECTION_READ || dcmd->mailbox == nullptr ||
        dcmd->mailboxLength != SCRUTINY_DCMD_MAILBOX_SIZE || dcmd->response == nullptr ||
        dcmd->responseLength != SCRUTINY_DCMD_RESPONSE_SIZE || dcmd->dataLength < MR_CONFIG_PAGE_REQUEST_HEADER_SIZE ||
        block[MR_CONFIG_PAGE_REQUEST_KIND_OFFSET] != MR_CONFIG_PAGE_REQUEST_KIND ||
        block[MR_CONFIG_PAGE_REQUEST_PAGE_OFFSET] != MR_CONFIG_PAGE_43_REQUEST_PAGE) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    const size_t wanted =
        block[MR_CONFIG_PAGE_REQUEST_LENGTH_OFFSET] | (block[MR_CONFIG_PAGE_REQUEST_LENGTH_OFFSET + 1] << 8);
    if (MR_CONFIG_PAGE_REQUEST_HEADER_SIZE + wanted > dcmd->dataLength) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    const Json::Value& page = (*c)["page43"];
    const bool headerRead = wanted == MR_CONFIG_PAGE_HEADER_SIZE;
    if (const _SCRUTINY_STATUS forced = perRead(page["dcmd"], headerRead)) {
        return forced;
    }
    // A failing command still leaves what it read in the buffer, as a
    // controller may: only the MFI status tells that it is not to be trusted.
    static_cast<uint8_t*>(dcmd->response)[0] = static_cast<uint8_t>(perRead(page["mfi"], headerRead));
    const std::vector<uint8_t> bytes = page43(page);
    memcpy(block + MR_CONFIG_PAGE_REQUEST_HEADER_SIZE, bytes.data(), std::min(bytes.size(), wanted));
    return SCRUTINY_STATUS_SUCCESS;
}

_SCRUTINY_STATUS ScrutinyControllerToolboxIstwiReadWrite(unsigned* handle, _SCRUTINY_ISTWI_REQUEST* request,
                                                         __SCRUTINY_IOC_STATUS* ioc)
{
    const Json::Value root = scenario();
    const Json::Value* c = controller(root, handle);
    if (c == nullptr) {
        return SCRUTINY_STATUS_INVALID_HANDLE;
    }
    if (request == nullptr || ioc == nullptr || request->flags != 1 || request->type != SCRUTINY_ISTWI_TYPE) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    memset(ioc, 0, sizeof *ioc);
    const Json::Value& bus = (*c)["i2c"][std::to_string(request->bus)];
    const std::pair<unsigned, unsigned> key{*handle, request->bus};
    const bool reserve = request->action == SCRUTINY_ISTWI_ACTION_RESERVE_BUS;
    if (reserve || request->action == SCRUTINY_ISTWI_ACTION_RELEASE_BUS) {
        const std::string fault = bus["faults"].get(reserve ? "reserve" : "release", "").asString();
        const bool failing = fault == "library" || fault == "ioc";
        std::lock_guard<std::mutex> lock(gStateLock);
        const bool reserved = gReserved.count(key) != 0;
        if (reserve && !failing && !reserved) {
            gReserved.insert(key);
            return SCRUTINY_STATUS_SUCCESS;
        }
        // A release frees the bus even when it reports a failure, so that one
        // faulty release does not lock the bus for the tests that follow.
        if (!reserve) {
            gReserved.erase(key);
        }
        if (fault == "library") {
            return kLibraryFault;
        }
        if (failing || reserved == reserve) {
            ioc->iocStatus = kIOCBusNotReserved;
            ioc->iocLogInfo = kIOCLogInfo;
        }
        return SCRUTINY_STATUS_SUCCESS;
    }
    if (request->action != SCRUTINY_ISTWI_ACTION_READ_WRITE) {
        return SCRUTINY_STATUS_INVALID_PARAMETER;
    }
    {
        std::lock_guard<std::mutex> lock(gStateLock);
        if (gReserved.count(key) == 0) {
            request->receiveLength = 0;
            ioc->iocStatus = kIOCBusNotReserved;
            ioc->iocLogInfo = kIOCLogInfo;
            return SCRUTINY_STATUS_SUCCESS;
        }
    }
    holdWhileAsked(root);
    return transfer(*handle, bus, request, ioc);
}

} // extern "C"
