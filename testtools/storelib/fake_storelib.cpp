// A stand-in for the MegaRAID management library (libstorelib.so), for tests
// and simulated hosts. Its one entry point, ProcessLibCommand, answers from
// the scenario $VEK_ROOT/sim/libstorelib.json, read afresh at every call so a
// test or a person changes the controllers while the service runs. Events
// (AENs) go to the registered callback on the library's own thread, in the
// order of their sequence numbers, once they appear in the scenario.

#include "vekStoreLibSDK.h"

#include <json/json.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

Json::Value scenario()
{
    const char* root = getenv("VEK_ROOT");
    std::ifstream in(std::string(root != nullptr ? root : "") + "/sim/libstorelib.json");
    Json::Value value;
    Json::CharReaderBuilder reader;
    std::string errors;
    if (!in || !Json::parseFromStream(reader, in, &value, &errors) || !value.isObject()) {
        return Json::Value(Json::objectValue);
    }
    return value;
}

// A number written as JSON number or as hexadecimal text ("10e2").
uint32_t number(const Json::Value& value, uint32_t fallback = 0)
{
    if (value.isIntegral()) {
        return value.asUInt();
    }
    if (value.isString()) {
        return static_cast<uint32_t>(strtoul(value.asCString(), nullptr, 16));
    }
    return fallback;
}

Json::Value controllerOf(const Json::Value& all, uint32_t id)
{
    for (const Json::Value& ctrl : all["controllers"]) {
        if (ctrl.get("id", 0).asUInt() == id) {
            return ctrl;
        }
    }
    return Json::Value();
}

bool fails(const Json::Value& object, const char* operation)
{
    for (const Json::Value& word : object["fail"]) {
        if (word.asString() == operation) {
            return true;
        }
    }
    return false;
}

void copyText(void* out, size_t size, const std::string& text)
{
    memcpy(out, text.data(), std::min(size, text.size()));
}

// Space-padded, as inquiry data is.
void copyPadded(uint8_t* out, size_t size, const std::string& text)
{
    memset(out, ' ', size);
    memcpy(out, text.data(), std::min(size, text.size()));
}

const std::map<std::string, int> kStates = {
    {"Unconfigured good", MR_PD_STATE_UNCONFIGURED_GOOD}, {"Unconfigured bad", MR_PD_STATE_UNCONFIGURED_BAD},
    {"Hot spare", MR_PD_STATE_HOT_SPARE},                 {"Offline", MR_PD_STATE_OFFLINE},
    {"Failed", MR_PD_STATE_FAILED},                       {"Rebuild", MR_PD_STATE_REBUILD},
    {"Online", MR_PD_STATE_ONLINE},                       {"Copyback", MR_PD_STATE_COPYBACK},
    {"System", MR_PD_STATE_SYSTEM}};

int driveState(const Json::Value& value)
{
    if (value.isIntegral()) {
        return value.asInt();
    }
    const auto found = kStates.find(value.asString());
    return found != kStates.end() ? found->second : MR_PD_STATE_ONLINE;
}

// The index of the enclosure in the controller's enclosure list, as events
// and drive information name it; 0xFF for one not listed.
uint8_t enclosureIndex(const Json::Value& ctrl, uint32_t deviceId)
{
    for (Json::ArrayIndex i = 0; i < ctrl["enclosures"].size() && i < 64; ++i) {
        if (ctrl["enclosures"][i].get("deviceId", 0).asUInt() == deviceId) {
            return static_cast<uint8_t>(i);
        }
    }
    return 0xFF;
}

std::vector<uint8_t> hexBytes(const std::string& text)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    }
    return bytes;
}

int interfaceType(const std::string& word)
{
    if (word == "SATA") {
        return MR_PD_INTF_SATA;
    }
    if (word == "NVMe") {
        return MR_PD_INTF_NVME;
    }
    return word == "SAS" || word.empty() ? MR_PD_INTF_SAS : MR_PD_INTF_UNKNOWN;
}

// ---------------------------------------------------------------- events

class EventSource {
public:
    ~EventSource() { stop(); }

    uint32_t start(const _SL_REG_AEN_INPUT_T& input)
    {
        stop();
        std::lock_guard<std::mutex> lock(mutex_);
        callback_ = input.pFunc;
        next_.clear();
        for (uint32_t i = 0; i < std::min<uint32_t>(input.count, SL_MAX_CONTROLLERS); ++i) {
            next_[input.ctrl[i].ctrlId] = input.ctrl[i].seqNum;
        }
        stopping_ = false;
        worker_ = std::thread([this] { run(); });
        return ++uniqueId_;
    }

    void stop()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        if (worker_.joinable()) {
            if (worker_.get_id() == std::this_thread::get_id()) {
                worker_.detach();
            } else {
                worker_.join();
            }
        }
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stopping_) {
            lock.unlock();
            deliverDue();
            lock.lock();
            wake_.wait_for(lock, std::chrono::milliseconds(10), [this] { return stopping_; });
        }
    }

    // Every event whose sequence number is due, oldest first; the callback
    // runs with no lock of the library held.
    void deliverDue()
    {
        Json::Value events = scenario()["events"];
        std::vector<Json::Value> due;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            for (const Json::Value& event : events) {
                const auto found = next_.find(event.get("ctrl", 0).asUInt());
                if (found != next_.end() && event.get("seq", 0).asUInt() >= found->second) {
                    due.push_back(event);
                }
            }
        }
        std::sort(due.begin(), due.end(),
                  [](const Json::Value& a, const Json::Value& b) { return a["seq"].asUInt() < b["seq"].asUInt(); });
        for (const Json::Value& event : due) {
            SL_AEN_CALLBACK callback;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                if (stopping_) {
                    return;
                }
                next_[event.get("ctrl", 0).asUInt()] = event["seq"].asUInt() + 1;
                callback = callback_;
            }
            _SL_EVENT_DETAIL_T detail;
            fill(controllerOf(scenario(), event.get("ctrl", 0).asUInt()), event, detail);
            if (callback != nullptr) {
                callback(&detail);
            }
        }
    }

    static void fill(const Json::Value& ctrl, const Json::Value& event, _SL_EVENT_DETAIL_T& detail)
    {
        memset(&detail, 0, sizeof detail);
        detail.ctrlId = event.get("ctrl", 0).asUInt();
        detail.status = number(event["status"]);
        _MR_EVT_DETAIL& evt = detail.evtDetail;
        evt.seqNum = event["seq"].asUInt();
        evt.timeStamp = static_cast<uint32_t>(time(nullptr));
        evt.code = event.get("code", 0).asUInt();
        evt.locale = static_cast<uint16_t>(event.get("locale", 0).asUInt());
        evt.evtClass = static_cast<int8_t>(event.get("class", 0).asInt());
        evt.argType = static_cast<uint8_t>(event.get("argType", 0).asUInt());
        // The argument's drive or logical drive at the byte offset given.
        const size_t offset = std::min<uint32_t>(event.get("argOffset", 0).asUInt(), sizeof evt.args - 12);
        if (event.isMember("pd")) {
            _MR_EVT_ARG_PD pd{};
            pd.deviceId = static_cast<uint16_t>(event["pd"].get("deviceId", 0xFFFF).asUInt());
            pd.enclIndex = enclosureIndex(ctrl, event["pd"].get("enclosure", 0).asUInt());
            pd.slotNumber = static_cast<uint8_t>(event["pd"].get("slot", 0).asUInt());
            memcpy(evt.args + offset, &pd, sizeof pd);
        }
        // A drive's state change: the old and the new firmware state follow its address.
        if (event.isMember("newState")) {
            const uint32_t previous = static_cast<uint32_t>(driveState(event.get("prevState", "Online")));
            const uint32_t next = static_cast<uint32_t>(driveState(event["newState"]));
            memcpy(evt.args + offset + 4, &previous, sizeof previous);
            memcpy(evt.args + offset + 8, &next, sizeof next);
        }
        if (event.isMember("targetId")) {
            _MR_EVT_ARG_LD ld{};
            ld.targetId = static_cast<uint8_t>(event["targetId"].asUInt());
            memcpy(evt.args + offset, &ld, sizeof ld);
        }
        copyText(evt.description, sizeof evt.description - 1, event.get("description", "").asString());
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::thread worker_;
    bool stopping_ = false;
    SL_AEN_CALLBACK callback_ = nullptr;
    std::map<uint32_t, uint32_t> next_;
    uint32_t uniqueId_ = 0x5000;
};

EventSource& events()
{
    static EventSource source;
    return source;
}

// ---------------------------------------------------------------- answers

uint32_t controllerList(const Json::Value& all, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < sizeof(_SL_CTRL_LIST_T) || param->pData == nullptr) {
        return SL_ERR_FAILED;
    }
    _SL_CTRL_LIST_T list{};
    list.simulationMode = all.get("simulation", false).asBool() ? 1 : 0;
    for (const Json::Value& ctrl : all["controllers"]) {
        if (list.count < SL_MAX_CONTROLLERS) {
            list.ctrlId[list.count++] = ctrl.get("id", 0).asUInt() & 0x00FFFFFF;
        }
    }
    memcpy(param->pData, &list, sizeof list);
    return SL_SUCCESS;
}

// The controller's PHY or lane connections: groups of `count` connections
// (default 1) from `port` to `connector`; a group without a port is invalid.
template <size_t N> uint8_t connections(const Json::Value& groups, _MR_CONNECTION (&out)[N])
{
    size_t used = 0;
    for (const Json::Value& group : groups) {
        for (unsigned i = 0; i < group.get("count", 1).asUInt() && used < N; ++i, ++used) {
            if (group.isMember("port")) {
                out[used].flags = MR_CONNECTION_VALID;
                out[used].portNumber = static_cast<uint8_t>(group["port"].asUInt());
                out[used].connectorIndex = static_cast<uint8_t>(group.get("connector", 0).asUInt());
            }
        }
    }
    return static_cast<uint8_t>(used);
}

uint32_t controllerInfo(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (fails(ctrl, "info") || param->dataSize < sizeof(_MR_CTRL_INFO)) {
        return SL_ERR_FAILED;
    }
    _MR_CTRL_INFO info;
    memset(&info, 0, sizeof info);
    info.pci.vendorId = static_cast<uint16_t>(number(ctrl["vendorId"], 0x1000));
    info.pci.deviceId = static_cast<uint16_t>(number(ctrl["deviceId"]));
    info.pci.subVendorId = static_cast<uint16_t>(number(ctrl["subVendorId"]));
    info.pci.subDeviceId = static_cast<uint16_t>(number(ctrl["subDeviceId"]));
    info.imageComponentCount = 1;
    copyText(info.imageComponent[0].name, sizeof info.imageComponent[0].name, "APP");
    copyText(info.imageComponent[0].version, sizeof info.imageComponent[0].version - 1,
             ctrl.get("firmware", "").asString());
    copyText(info.productName, sizeof info.productName - 1, ctrl.get("model", "").asString());
    copyText(info.serialNo, sizeof info.serialNo - 1, ctrl.get("serialNumber", "").asString());
    _MR_SAS_PHY_CONNECTIONS phys{};
    info.sasPhyCount = connections(ctrl["phys"], phys.phy);
    memcpy(param->pData, &info, sizeof info);
    return SL_SUCCESS;
}

uint32_t pciInfo(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    unsigned domain = 0, bus = 0, device = 0, function = 0;
    if (param->dataSize < sizeof(_SL_PCI_INFO_T) ||
        sscanf(ctrl.get("pci", "").asCString(), "%x:%x:%x.%x", &domain, &bus, &device, &function) != 4) {
        return SL_ERR_FAILED;
    }
    _SL_PCI_INFO_T pci{};
    pci.domain = static_cast<uint16_t>(domain);
    pci.bus = static_cast<uint8_t>(bus);
    pci.device = static_cast<uint8_t>(device);
    pci.function = static_cast<uint8_t>(function);
    memcpy(param->pData, &pci, sizeof pci);
    return SL_SUCCESS;
}

// Writes what fits of the list and says in its header what the whole needs.
uint32_t pdList(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < MR_PD_LIST_HEADER || param->pData == nullptr) {
        return SL_ERR_BUFFER_TOO_SMALL;
    }
    const Json::Value& drives = ctrl["drives"];
    const uint32_t count = drives.size();
    const uint32_t needed = static_cast<uint32_t>(MR_PD_LIST_HEADER + count * sizeof(_MR_PD_ADDRESS));
    uint8_t* out = static_cast<uint8_t*>(param->pData);
    memcpy(out, &needed, sizeof needed);
    memcpy(out + sizeof needed, &count, sizeof count);
    const size_t room = (param->dataSize - MR_PD_LIST_HEADER) / sizeof(_MR_PD_ADDRESS);
    for (uint32_t i = 0; i < count && i < room; ++i) {
        _MR_PD_ADDRESS address{};
        address.deviceId = static_cast<uint16_t>(drives[i].get("deviceId", i).asUInt());
        address.enclDeviceId = static_cast<uint16_t>(drives[i].get("enclosure", 0).asUInt());
        address.slotNumber = static_cast<uint8_t>(drives[i].get("slot", i).asUInt());
        memcpy(out + MR_PD_LIST_HEADER + i * sizeof address, &address, sizeof address);
    }
    return needed > param->dataSize ? SL_ERR_BUFFER_TOO_SMALL : SL_SUCCESS;
}

uint32_t pdInfo(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < sizeof(_MR_PD_INFO)) {
        return SL_ERR_FAILED;
    }
    for (const Json::Value& drive : ctrl["drives"]) {
        if (drive.get("deviceId", 0).asUInt() != param->pdDeviceId) {
            continue;
        }
        _MR_PD_INFO info;
        memset(&info, 0, sizeof info);
        info.deviceId = param->pdDeviceId;
        copyPadded(info.inquiryData + 8, 8, drive.get("vendor", "").asString());
        copyPadded(info.inquiryData + 16, 16, drive.get("model", "").asString());
        copyPadded(info.inquiryData + 32, 4, drive.get("revision", "").asString());
        copyPadded(info.inquiryData + 36, 20, drive.get("serialNumber", "").asString());
        info.fwState = static_cast<uint16_t>(driveState(drive.get("state", "Online")));
        info.enclDeviceId = static_cast<uint16_t>(drive.get("enclosure", 0).asUInt());
        info.enclIndex = enclosureIndex(ctrl, info.enclDeviceId);
        info.slotNumber = static_cast<uint8_t>(drive.get("slot", 0).asUInt());
        info.interfaceType = static_cast<uint8_t>(interfaceType(drive.get("interface", "SAS").asString()));
        info.mediaType = drive.get("media", "HDD").asString() == "SSD" ? 1 : 0;
        info.logicalBlockSize = drive.get("blockSize", 512).asUInt();
        // One path per port the drive is cabled to, each with its own address.
        Json::Value ports = drive.isMember("port") ? Json::Value(Json::arrayValue) : drive["ports"];
        if (drive.isMember("port")) {
            ports.append(drive["port"]);
        }
        for (Json::ArrayIndex path = 0; path < ports.size() && path < 2; ++path) {
            info.pathInfo.count = static_cast<uint8_t>(path + 1);
            info.pathInfo.sasAddr[path] = 0x5000C50000000000ULL + (param->pdDeviceId << 4) + path;
            info.connectedPortBitmap |= static_cast<uint8_t>((ports[path].asUInt() & 0x0F) << (4 * path));
        }
        info.coercedSize = drive.get("blocks", 0).asUInt64();
        info.rawSize = info.nonCoercedSize = info.coercedSize;
        memcpy(param->pData, &info, sizeof info);
        return SL_SUCCESS;
    }
    return SL_ERR_FAILED;
}

uint32_t ldList(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < sizeof(_MR_LD_LIST)) {
        return SL_ERR_FAILED;
    }
    _MR_LD_LIST list;
    memset(&list, 0, sizeof list);
    for (const Json::Value& ld : ctrl["logicalDrives"]) {
        if (list.ldCount < MR_MAX_LOGICAL_DRIVES) {
            list.ldList[list.ldCount].targetId = static_cast<uint8_t>(ld.get("targetId", 0).asUInt());
            list.ldList[list.ldCount].state = static_cast<uint8_t>(ld.get("state", MR_LD_STATE_OPTIMAL).asUInt());
            list.ldList[list.ldCount].size = ld.get("blocks", 0).asUInt64();
            ++list.ldCount;
        }
    }
    memcpy(param->pData, &list, sizeof list);
    return SL_SUCCESS;
}

Json::Value logicalDriveOf(const Json::Value& ctrl, uint8_t target)
{
    for (const Json::Value& ld : ctrl["logicalDrives"]) {
        if (ld.get("targetId", 0).asUInt() == target) {
            return ld;
        }
    }
    return Json::Value();
}

uint32_t ldInfo(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    const Json::Value ld = logicalDriveOf(ctrl, param->ldTargetId);
    if (ld.isNull() || param->dataSize < sizeof(_MR_LD_INFO)) {
        return SL_ERR_FAILED;
    }
    _MR_LD_INFO info;
    memset(&info, 0, sizeof info);
    info.properties.targetId = param->ldTargetId;
    copyText(info.properties.name, sizeof info.properties.name, ld.get("name", "").asString());
    info.parameters.primaryRaidLevel = static_cast<uint8_t>(ld.get("raid", 0).asUInt());
    info.parameters.secondaryRaidLevel = static_cast<uint8_t>(ld.get("secondary", 0).asUInt());
    info.parameters.spanDepth = static_cast<uint8_t>(ld.get("spanDepth", 1).asUInt());
    info.parameters.numDrives = static_cast<uint8_t>(ld["members"].size());
    info.parameters.state = static_cast<uint8_t>(ld.get("state", MR_LD_STATE_OPTIMAL).asUInt());
    info.size = ld.get("blocks", 0).asUInt64();
    // VPD page 0x83 with one NAA designator of 16 bytes.
    const std::string naa = ld.get("naa", "").asString();
    info.vpdPage83[1] = 0x83;
    info.vpdPage83[3] = 20;
    info.vpdPage83[4] = 0x01;
    info.vpdPage83[5] = 0x03;
    info.vpdPage83[7] = 16;
    for (size_t i = 0; i < 16 && 2 * i + 1 < naa.size(); ++i) {
        info.vpdPage83[8 + i] = static_cast<uint8_t>(strtoul(naa.substr(2 * i, 2).c_str(), nullptr, 16));
    }
    memcpy(param->pData, &info, sizeof info);
    return SL_SUCCESS;
}

uint32_t ldPdMap(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    const Json::Value ld = logicalDriveOf(ctrl, param->ldTargetId);
    if (ld.isNull() || param->dataSize < sizeof(_MR_LD_PD_MAP)) {
        return SL_ERR_FAILED;
    }
    _MR_LD_PD_MAP map;
    memset(&map, 0, sizeof map);
    for (const Json::Value& member : ld["members"]) {
        if (map.count < 64) {
            map.pd[map.count].deviceId = static_cast<uint16_t>(member.asUInt());
            map.pd[map.count].userDataBlockSize = ld.get("blockSize", 512).asUInt();
            ++map.count;
        }
    }
    memcpy(param->pData, &map, sizeof map);
    return SL_SUCCESS;
}

uint32_t enclosureList(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < sizeof(_MR_ENCL_LIST)) {
        return SL_ERR_FAILED;
    }
    _MR_ENCL_LIST list;
    memset(&list, 0, sizeof list);
    for (const Json::Value& encl : ctrl["enclosures"]) {
        if (list.count < 64) {
            list.encl[list.count].deviceId = static_cast<uint16_t>(encl.get("deviceId", 0).asUInt());
            list.encl[list.count].slotCount = static_cast<uint8_t>(encl.get("slots", 0).asUInt());
            list.encl[list.count].index = static_cast<uint8_t>(list.count);
            ++list.count;
        }
    }
    memcpy(param->pData, &list, sizeof list);
    return SL_SUCCESS;
}

uint32_t eventLogInfo(const Json::Value& all, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < sizeof(_MR_EVT_LOG_INFO)) {
        return SL_ERR_FAILED;
    }
    _MR_EVT_LOG_INFO info{};
    for (const Json::Value& event : all["events"]) {
        if (event.get("ctrl", 0).asUInt() == param->ctrlId) {
            info.newestSeqNum = std::max(info.newestSeqNum, event.get("seq", 0).asUInt());
        }
    }
    info.bootSeqNum = info.oldestSeqNum = 1;
    memcpy(param->pData, &info, sizeof info);
    return SL_SUCCESS;
}

uint32_t dcmd(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < sizeof(_SL_DCMD_INPUT_T)) {
        return SL_ERR_FAILED;
    }
    _SL_DCMD_INPUT_T input;
    memcpy(&input, param->pData, sizeof input);
    if (input.pData == nullptr || input.dir != SL_DCMD_DIR_READ || fails(ctrl, "dcmd")) {
        return SL_ERR_FAILED;
    }
    memset(input.pData, 0, input.dataTransferLength);
    // Manufacturing page 0 only.
    if (input.opCode == MR_DCMD_CTRL_MFC_MFG_GET && input.dataTransferLength >= sizeof(_MR_MFC_MFG) &&
        input.mbox[0] == 0) {
        copyText(input.pData, 15, ctrl.get("serialNumber", "").asString());
        return SL_SUCCESS;
    }
    if (input.opCode == MR_DCMD_SAS_CONNECTORS_GET && input.dataTransferLength >= sizeof(_MR_SAS_CONNECTORS)) {
        _MR_SAS_CONNECTORS connectors{};
        for (const Json::Value& name : ctrl["connectors"]) {
            if (connectors.count < MR_MAX_SAS_CONNECTORS) {
                copyText(connectors.connectors[connectors.count++].name, 15, name.asString());
            }
        }
        memcpy(input.pData, &connectors, sizeof connectors);
        return SL_SUCCESS;
    }
    if (input.opCode == MR_DCMD_SAS_PHY_CONNECTIONS_GET &&
        input.dataTransferLength >= sizeof(_MR_SAS_PHY_CONNECTIONS)) {
        _MR_SAS_PHY_CONNECTIONS phys{};
        phys.count = connections(ctrl["phys"], phys.phy);
        memcpy(input.pData, &phys, sizeof phys);
        return SL_SUCCESS;
    }
    if (input.opCode == MR_DCMD_PCIE_LANE_CONNECTIONS_GET &&
        input.dataTransferLength >= sizeof(_MR_PCIE_LANE_CONNECTIONS)) {
        _MR_PCIE_LANE_CONNECTIONS lanes{};
        lanes.count = connections(ctrl["lanes"], lanes.lane);
        memcpy(input.pData, &lanes, sizeof lanes);
        return SL_SUCCESS;
    }
    if (input.opCode == MR_DCMD_CTRL_GET_SAFEID && input.dataTransferLength > 0) {
        copyText(input.pData, input.dataTransferLength - 1, ctrl.get("safeId", "").asString());
        return SL_SUCCESS;
    }
    return SL_ERR_FAILED;
}

Json::Value driveOf(const Json::Value& ctrl, uint16_t deviceId)
{
    for (const Json::Value& drive : ctrl["drives"]) {
        if (drive.get("deviceId", 0).asUInt() == deviceId) {
            return drive;
        }
    }
    return Json::Value();
}

// What the drive answers to the CDB; false when it refuses it (check condition).
bool driveAnswer(const Json::Value& drive, const uint8_t* cdb, std::vector<uint8_t>& answer)
{
    if (cdb[0] == SCSI_OP_INQUIRY && (cdb[1] & 0x01) != 0) {
        std::string text;
        if (cdb[2] == VPD_PAGE_UNIT_SERIAL_NUMBER) {
            text = drive.get("vpdSerialNumber", drive.get("serialNumber", "")).asString();
        } else if (cdb[2] == VPD_PAGE_DRIVE_VENDOR && drive.isMember("vpdVendor")) {
            text = drive["vpdVendor"].asString();
            text.resize(sizeof(_MR_VPD_PAGE_D0) - 4, ' ');
        } else {
            return false;
        }
        answer = {0, cdb[2], static_cast<uint8_t>(text.size() >> 8), static_cast<uint8_t>(text.size() & 0xFF)};
        answer.insert(answer.end(), text.begin(), text.end());
        return true;
    }
    if (cdb[0] == SCSI_OP_ATA_PASSTHRU_16 && cdb[14] == ATA_CMD_READ_LOG_EXT) {
        char address[8];
        snprintf(address, sizeof address, "%02x", cdb[8]);
        const Json::Value& log = drive["ataLogs"][address];
        if (!log.isString() || drive.get("interface", "SAS").asString() != "SATA") {
            return false;
        }
        answer = hexBytes(log.asString());
        // A log is read in whole blocks.
        answer.resize((answer.size() + 511) / 512 * 512, 0);
        return true;
    }
    return false;
}

// A SCSI command passed through to a drive: never more than the caller's
// buffer holds, with the transfer's over- or underrun told.
uint32_t scsiPassThru(const Json::Value& ctrl, _SL_LIB_CMD_PARAM_T* param)
{
    if (param->dataSize < SL_SCSI_PASSTHRU_HEADER || fails(ctrl, "scsi")) {
        return SL_ERR_FAILED;
    }
    _SL_SCSI_PASSTHRU_T header;
    memcpy(&header, param->pData, SL_SCSI_PASSTHRU_HEADER);
    if (header.dataSize > param->dataSize - SL_SCSI_PASSTHRU_HEADER || header.cdbLength == 0 ||
        header.cdbLength > sizeof header.cdb) {
        return SL_ERR_FAILED;
    }
    const Json::Value drive = driveOf(ctrl, header.deviceId);
    if (drive.isNull()) {
        return SL_ERR_FAILED;
    }
    uint8_t* data = static_cast<uint8_t*>(param->pData) + SL_SCSI_PASSTHRU_HEADER;
    std::vector<uint8_t> answer;
    header.ioStatus = 0;
    if (!driveAnswer(drive, header.cdb, answer)) {
        header.scsiStatus = SL_SCSI_STATUS_CHECK_CONDITION;
        header.dataSize = 0;
    } else {
        header.scsiStatus = SL_SCSI_STATUS_GOOD;
        memcpy(data, answer.data(), std::min<size_t>(answer.size(), header.dataSize));
        if (answer.size() > header.dataSize) {
            header.ioStatus = SL_SCSI_IO_STATUS_DATA_OVERRUN;
        } else if (answer.size() < header.dataSize) {
            header.ioStatus = SL_SCSI_IO_STATUS_DATA_UNDERRUN;
            header.dataSize = static_cast<uint32_t>(answer.size());
        }
    }
    memcpy(param->pData, &header, SL_SCSI_PASSTHRU_HEADER);
    return SL_SUCCESS;
}

uint32_t libraryRequest(const Json::Value& all, _SL_LIB_CMD_PARAM_T* param)
{
    switch (param->cmd) {
    case SL_LIB_INIT: {
        const uint32_t status = number(all["init"]);
        return status != SL_SUCCESS ? status : controllerList(all, param);
    }
    case SL_LIB_GET_CTRL_LIST:
        return controllerList(all, param);
    case SL_LIB_GET_PCI_INFO: {
        const Json::Value ctrl = controllerOf(all, param->ctrlId);
        return ctrl.isNull() ? SL_ERR_INVALID_CTRL : pciInfo(ctrl, param);
    }
    case SL_LIB_REGISTER_AEN: {
        if (param->pData == nullptr || param->dataSize < sizeof(_SL_REG_AEN_INPUT_T)) {
            return SL_ERR_FAILED;
        }
        const uint32_t status = number(all["registerAEN"]);
        if (status != SL_SUCCESS) {
            return status;
        }
        auto* input = static_cast<_SL_REG_AEN_INPUT_T*>(param->pData);
        input->uniqueId = events().start(*input);
        return SL_SUCCESS;
    }
    case SL_LIB_UNREGISTER_AEN:
    case SL_LIB_EXIT:
        events().stop();
        return SL_SUCCESS;
    default:
        return SL_ERR_FAILED;
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) uint32_t ProcessLibCommand(_SL_LIB_CMD_PARAM_T* param)
{
    if (param == nullptr) {
        return SL_ERR_FAILED;
    }
    const Json::Value all = scenario();
    if (param->cmdType == SL_CMD_TYPE_LIBRARY) {
        return libraryRequest(all, param);
    }
    const Json::Value ctrl = controllerOf(all, param->ctrlId);
    if (ctrl.isNull()) {
        return SL_ERR_INVALID_CTRL;
    }
    if (param->pData == nullptr) {
        return SL_ERR_FAILED;
    }
    switch (param->cmdType) {
    case SL_CMD_TYPE_CONTROLLER:
        switch (param->cmd) {
        case SL_CTRL_GET_INFO:
            return controllerInfo(ctrl, param);
        case SL_CTRL_GET_PD_LIST:
            return pdList(ctrl, param);
        case SL_CTRL_GET_ENCL_LIST:
            return enclosureList(ctrl, param);
        case SL_CTRL_GET_LD_LIST:
            return ldList(ctrl, param);
        default:
            return SL_ERR_FAILED;
        }
    case SL_CMD_TYPE_PD:
        return param->cmd == SL_PD_GET_INFO ? pdInfo(ctrl, param) : SL_ERR_FAILED;
    case SL_CMD_TYPE_LD:
        return param->cmd == SL_LD_GET_INFO ? ldInfo(ctrl, param)
               : param->cmd == SL_LD_GET_PD_MAP ? ldPdMap(ctrl, param)
                                                : SL_ERR_FAILED;
    case SL_CMD_TYPE_PASSTHRU:
        return param->cmd == SL_PASSTHRU_DCMD   ? dcmd(ctrl, param)
               : param->cmd == SL_PASSTHRU_SCSI ? scsiPassThru(ctrl, param)
                                                : SL_ERR_FAILED;
    case SL_CMD_TYPE_EVENT:
        return param->cmd == SL_EVENT_GET_SEQ_INFO ? eventLogInfo(all, param) : SL_ERR_FAILED;
    default:
        return SL_ERR_FAILED;
    }
}
