// A stand-in for the SmartRAID storage library, libstoragecore.so, for tests
// and simulated hosts. Everything comes from $VEK_ROOT/sim/libstoragecore.json,
// read at every call (see README.md). A CDA is keyed by its address: the
// library keeps its own state beside it and never reads the caller's memory
// after SA_UnInitializeCDA. Events go to the registered sink on the library's
// own thread. FAKE_SC_OMIT_ENCLOSURE_STATUS builds the library without
// SA_GetStorageEnclosureStatusInfo, for the fault of a missing symbol.

#include "fake_scenario.h"
#include "vekStorageCoreSDK.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

struct CdaState {
    std::string pci;
    SA_EVENT_SINK sink = nullptr;
    bool queueStarted = false;
    Json::ArrayIndex delivered = 0;
    SA_DWORD lastTag = 0;
    std::map<Json::ArrayIndex, SA_DWORD> driveStatus;
};

std::mutex gMutex;
std::map<PCDA, CdaState> gCdas;
std::thread gEventThread;
std::atomic<bool> gStop{false};

long tickMilliseconds()
{
    const Json::Value value = fakeReadScenario("libstoragecore")["eventTickMs"];
    return value.isInt() && value.asInt() > 0 ? value.asInt() : 50;
}

Json::Value controllerByPci(const std::string& pci)
{
    for (const Json::Value& controller : fakeScenarioControllers()) {
        if (controller.get("pci", "").asString() == pci) {
            return controller;
        }
    }
    return Json::Value();
}

Json::Value controllerOf(PCDA cda)
{
    std::string pci;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        auto found = gCdas.find(cda);
        if (found == gCdas.end()) {
            return Json::Value();
        }
        pci = found->second.pci;
    }
    return controllerByPci(pci);
}

Json::Value listOf(PCDA cda, const char* key)
{
    const Json::Value controller = controllerOf(cda);
    const Json::Value list = controller.isObject() ? controller[key] : Json::Value();
    return list.isArray() ? list : Json::Value(Json::arrayValue);
}

Json::Value itemOf(PCDA cda, const char* key, SA_WORD index)
{
    const Json::Value list = listOf(cda, key);
    return index < list.size() ? list[index] : Json::Value();
}

SA_BYTE copyText(const Json::Value& object, const char* key, char* buffer, size_t size)
{
    if (!object.isObject() || !object.isMember(key) || buffer == nullptr || size == 0) {
        return kSAFailed;
    }
    snprintf(buffer, size, "%s", object[key].asString().c_str());
    return kSAOK;
}

SA_DWORD number(const Json::Value& object, const char* key, SA_DWORD fallback = 0)
{
    if (!object.isObject() || !object.isMember(key)) {
        return fallback;
    }
    const Json::Value value = object[key];
    if (value.isString()) {
        return static_cast<SA_DWORD>(strtoul(value.asCString(), nullptr, 0));
    }
    return value.isNumeric() ? static_cast<SA_DWORD>(value.asUInt64()) : fallback;
}

SA_WORD nextIndex(Json::ArrayIndex count, SA_WORD previous)
{
    const unsigned next = previous == kInvalidDeviceNumber ? 0u : previous + 1u;
    return next < count ? static_cast<SA_WORD>(next) : static_cast<SA_WORD>(kInvalidDeviceNumber);
}

time_t controllerClock(const Json::Value& controller)
{
    return time(nullptr) + static_cast<time_t>(controller.get("clockOffset", 0).asInt64());
}

// The detail of a drive's status event for its status word.
SA_WORD driveEventDetail(SA_DWORD status)
{
    if ((status & 0x3u) == 0x3u || (status & 0xC08700u) != 0) {
        return kPhysicalDriveEventFailed;
    }
    if ((status & 0x4000u) != 0) {
        return kPhysicalDriveEventOffline;
    }
    if ((status & 0x1800u) != 0) {
        return kPhysicalDriveEventPredictiveFailure;
    }
    return kPhysicalDriveEventOK;
}

void stampEvent(SA_CONTROLLER_EVENT& event, time_t when)
{
    struct tm parts {};
    gmtime_r(&when, &parts);
    event.year = static_cast<SA_WORD>(parts.tm_year + 1900);
    event.month = static_cast<SA_BYTE>(parts.tm_mon + 1);
    event.day = static_cast<SA_BYTE>(parts.tm_mday);
    event.secondsSinceMidnight = static_cast<SA_DWORD>(parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec);
}

SA_CONTROLLER_EVENT eventOf(const Json::Value& entry, const Json::Value& controller, SA_DWORD tag)
{
    SA_CONTROLLER_EVENT event;
    memset(&event, 0, sizeof event);
    event.eventID = number(entry, "id", tag);
    event.tag = entry.isMember("tag") ? number(entry, "tag") : tag;
    event.classCode = static_cast<SA_WORD>(number(entry, "class"));
    event.subclassCode = static_cast<SA_WORD>(number(entry, "subclass"));
    event.detailCode = static_cast<SA_WORD>(number(entry, "detail"));
    stampEvent(event, controllerClock(controller) - static_cast<time_t>(entry.get("age", 0).asInt64()));
    if (entry.isMember("date")) {
        unsigned year = 0, month = 0, day = 0;
        sscanf(entry["date"].asCString(), "%u-%u-%u", &year, &month, &day);
        event.year = static_cast<SA_WORD>(year);
        event.month = static_cast<SA_BYTE>(month);
        event.day = static_cast<SA_BYTE>(day);
        event.secondsSinceMidnight = number(entry, "seconds");
    }
    snprintf(event.message, sizeof event.message, "%s", entry.get("message", "").asString().c_str());
    return event;
}

// What one CDA has to hear now: the scenario's events not yet delivered, and
// an event for each drive whose status word changed since the last look.
std::vector<SA_CONTROLLER_EVENT> pendingEvents(CdaState& state)
{
    std::vector<SA_CONTROLLER_EVENT> out;
    const Json::Value controller = controllerByPci(state.pci);
    if (!controller.isObject()) {
        return out;
    }
    const Json::Value events = controller["events"];
    if (events.isArray()) {
        for (; state.delivered < events.size(); ++state.delivered) {
            out.push_back(eventOf(events[state.delivered], controller, ++state.lastTag));
            state.lastTag = out.back().tag;
        }
    }
    const Json::Value drives = controller["drives"];
    for (Json::ArrayIndex i = 0; drives.isArray() && i < drives.size(); ++i) {
        const SA_DWORD status = number(drives[i], "status");
        auto known = state.driveStatus.find(i);
        if (known != state.driveStatus.end() && known->second != status) {
            Json::Value entry;
            entry["class"] = kEventClassPhysicalDrive;
            entry["subclass"] = 0;
            entry["detail"] = driveEventDetail(status);
            entry["message"] = "Physical drive status change: PORT " + drives[i].get("port", "").asString() + " BOX " +
                               drives[i].get("box", "").asString() + " BAY " + drives[i].get("bay", "").asString() +
                               " REASON status 0x" + std::to_string(status);
            out.push_back(eventOf(entry, controller, ++state.lastTag));
        }
        state.driveStatus[i] = status;
    }
    return out;
}

void eventLoop()
{
    while (!gStop) {
        std::vector<std::pair<PCDA, std::vector<SA_CONTROLLER_EVENT>>> work;
        {
            std::lock_guard<std::mutex> lock(gMutex);
            for (auto& [cda, state] : gCdas) {
                if (state.queueStarted && state.sink != nullptr) {
                    work.emplace_back(cda, pendingEvents(state));
                }
            }
        }
        for (auto& [cda, events] : work) {
            for (const SA_CONTROLLER_EVENT& event : events) {
                SA_EVENT_SINK sink = nullptr;
                {
                    std::lock_guard<std::mutex> lock(gMutex);
                    auto found = gCdas.find(cda);
                    if (found != gCdas.end() && found->second.queueStarted) {
                        sink = found->second.sink;
                    }
                }
                if (sink != nullptr) {
                    sink(cda, &event);
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(tickMilliseconds()));
    }
}

void stopEventThread()
{
    gStop = true;
    if (gEventThread.joinable()) {
        gEventThread.join();
    }
    gStop = false;
}

// The thread must not outlive the library's code.
struct ThreadGuard {
    ~ThreadGuard() { stopEventThread(); }
} gThreadGuard;

bool fails(const Json::Value& object, const char* what)
{
    const Json::Value list = object.isObject() ? object["fail"] : Json::Value();
    for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
        if (list[i].asString() == what) {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" {

SA_BYTE InitializeStorageCore(const char* accessString)
{
    if (accessString == nullptr || strcmp(accessString, kStorageCoreAccessString) != 0) {
        return kStorageCoreFailed;
    }
    return fakeReadScenario("libstoragecore").get("failInitialize", false).asBool() ? kStorageCoreFailed
                                                                                    : kStorageCoreOK;
}

void UnInitializeStorageCore(void) { stopEventThread(); }

SA_DWORD SA_GetCDASize(void) { return 256; }

SA_WORD SA_InitializeCDA(PCDA cda, SC_DEVICE_DESCRIPTOR descriptor)
{
    if (cda == nullptr || descriptor == nullptr) {
        return kInitializeCDAFailed;
    }
    const std::string pci = static_cast<const char*>(descriptor);
    const Json::Value controller = controllerByPci(pci);
    if (!controller.isObject() || fails(controller, "cda")) {
        return kInitializeCDAFailed;
    }
    std::lock_guard<std::mutex> lock(gMutex);
    CdaState state;
    state.pci = pci;
    state.lastTag = number(controller, "firstTag", 1) - 1;
    gCdas[cda] = state;
    return kInitializeCDASuccess;
}

SA_WORD SA_ReInitializeCDA(PCDA cda) { return controllerOf(cda).isObject() ? kInitializeCDASuccess : kInitializeCDAFailed; }

void SA_UnInitializeCDA(PCDA cda)
{
    std::lock_guard<std::mutex> lock(gMutex);
    gCdas.erase(cda);
}

// ---- controller

SA_BYTE SA_GetControllerPCILocation(PCDA cda, char* buffer, size_t size)
{
    const Json::Value controller = controllerOf(cda);
    unsigned domain = 0, bus = 0, device = 0, function = 0;
    if (!controller.isObject() || fails(controller, "pci") ||
        sscanf(controller.get("pci", "").asCString(), "%x:%x:%x.%x", &domain, &bus, &device, &function) != 4) {
        return kSAFailed;
    }
    snprintf(buffer, size, "%u:%u:%u.%u", domain, bus, device, function);
    return kSAOK;
}

SA_BYTE SA_GetControllerFirmwareVersion(PCDA cda, char* buffer, size_t size)
{
    return copyText(controllerOf(cda), "firmware", buffer, size);
}

SA_BYTE SA_GetControllerFirmwareBuildNumber(PCDA cda, char* buffer, size_t size)
{
    return copyText(controllerOf(cda), "build", buffer, size);
}

SA_BYTE SA_GetControllerSerialNumber(PCDA cda, char* buffer, size_t size)
{
    return copyText(controllerOf(cda), "serial", buffer, size);
}

SA_DWORD SA_GetControllerStatusInfo(PCDA cda) { return number(controllerOf(cda), "status"); }

SA_BYTE SA_GetControllerHealth(PCDA cda)
{
    return static_cast<SA_BYTE>(number(controllerOf(cda), "health", kHealthOK));
}

SA_BYTE SA_GetControllerHealthRollup(PCDA cda)
{
    return static_cast<SA_BYTE>(number(controllerOf(cda), "healthRollup", kHealthOK));
}

SA_BYTE SA_GetControllerManufacturingData(PCDA cda, SA_MANUFACTURING_DATA* data)
{
    const Json::Value controller = controllerOf(cda);
    if (data == nullptr || !controller.isObject() || fails(controller, "manufacturing")) {
        return kSAFailed;
    }
    memset(data, 0, sizeof *data);
    copyText(controller, "boardSerial", data->boardSerialNumber, sizeof data->boardSerialNumber);
    copyText(controller, "assembly", data->assemblyNumber, sizeof data->assemblyNumber);
    return kSAOK;
}

SA_WORD SA_GetControllerPCIValue(PCDA cda, SA_BYTE which)
{
    static const char* const keys[] = {"vendor", "device", "subVendor", "subDevice"};
    return which < 4 ? static_cast<SA_WORD>(number(controllerOf(cda), keys[which], 0xFFFF)) : 0xFFFF;
}

// ---- physical drives

SA_WORD SA_EnumerateControllerPhysicalDrives(PCDA cda, SA_WORD previous)
{
    return nextIndex(listOf(cda, "drives").size(), previous);
}

SA_DWORD SA_GetPhysicalDriveBasicInfo(PCDA cda, SA_WORD drive)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    if (!pd.isObject()) {
        return 0;
    }
    SA_DWORD info = pd.get("present", true).asBool() ? kPhysicalDrivePresent : 0;
    const std::string protocol = pd.get("protocol", "").asString();
    info |= protocol == "SAS" ? kPhysicalDriveProtocolSAS
            : protocol == "SATA" ? kPhysicalDriveProtocolSATA
            : protocol == "NVMe" ? kPhysicalDriveProtocolNVMe
                                 : 0;
    const std::string media = pd.get("media", "").asString();
    info |= media == "HDD" ? kPhysicalDriveMediaHDD : media == "SSD" ? kPhysicalDriveMediaSSD : 0;
    return info;
}

// The library's model text is the drive's SCSI inquiry product: sixteen
// characters at most, which cuts a SATA drive's model short.
SA_BYTE SA_GetPhysicalDriveModel(PCDA cda, SA_WORD drive, char* buffer, size_t size)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    if (!pd.isObject()) {
        return kSAFailed;
    }
    snprintf(buffer, size, "%.16s", pd.get("model", "").asCString());
    return kSAOK;
}

SA_BYTE SA_GetPhysicalDriveSerialNumber(PCDA cda, SA_WORD drive, char* buffer, size_t size)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    return fails(pd, "serial") ? kSAFailed : copyText(pd, "serial", buffer, size);
}

SA_BYTE SA_GetPhysicalDriveFirmwareVersion(PCDA cda, SA_WORD drive, char* buffer, size_t size)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    return fails(pd, "firmware") ? kSAFailed : copyText(pd, "firmware", buffer, size);
}

SA_BYTE SA_GetPhysicalDriveVendorID(PCDA cda, SA_WORD drive, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "drives", drive), "vendor", buffer, size);
}

SA_QWORD SA_GetPhysicalDriveSize(PCDA cda, SA_WORD drive)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    return pd.isObject() ? pd.get("size", 0).asUInt64() : 0;
}

SA_DWORD SA_GetPhysicalDriveStatusInfo(PCDA cda, SA_WORD drive) { return number(itemOf(cda, "drives", drive), "status"); }

SA_BYTE SA_GetPhysicalDriveHealth(PCDA cda, SA_WORD drive)
{
    return static_cast<SA_BYTE>(number(itemOf(cda, "drives", drive), "health", kHealthOK));
}

SA_BYTE SA_GetPhysicalDriveLocation(PCDA cda, SA_WORD drive, SA_PHYSICAL_DRIVE_LOCATION* location)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    if (location == nullptr || !pd.isObject() || fails(pd, "location")) {
        return kSAFailed;
    }
    memset(location, 0, sizeof *location);
    copyText(pd, "port", location->port, sizeof location->port);
    copyText(pd, "box", location->box, sizeof location->box);
    copyText(pd, "bay", location->bay, sizeof location->bay);
    return kSAOK;
}

// ---- logical drives

SA_WORD SA_EnumerateControllerLogicalDrives(PCDA cda, SA_WORD previous)
{
    return nextIndex(listOf(cda, "volumes").size(), previous);
}

SA_BYTE SA_GetLogicalDriveUniqueVolumeID(PCDA cda, SA_WORD volume, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "volumes", volume), "id", buffer, size);
}

SA_DWORD SA_GetLogicalDriveStatusInfo(PCDA cda, SA_WORD volume) { return number(itemOf(cda, "volumes", volume), "status"); }

SA_BYTE SA_GetLogicalDriveHealth(PCDA cda, SA_WORD volume)
{
    return static_cast<SA_BYTE>(number(itemOf(cda, "volumes", volume), "health", kHealthOK));
}

SA_QWORD SA_GetLogicalDriveSize(PCDA cda, SA_WORD volume)
{
    const Json::Value ld = itemOf(cda, "volumes", volume);
    return ld.isObject() ? ld.get("size", 0).asUInt64() : 0;
}

SA_BYTE SA_GetLogicalDriveRAIDInfo(PCDA cda, SA_WORD volume, SA_BYTE* level)
{
    const Json::Value ld = itemOf(cda, "volumes", volume);
    if (level == nullptr || !ld.isObject()) {
        return kSAFailed;
    }
    *level = static_cast<SA_BYTE>(number(ld, "raid"));
    return kSAOK;
}

// An array per volume, numbered as the volume.
SA_WORD SA_GetLogicalDriveArray(PCDA cda, SA_WORD volume)
{
    return itemOf(cda, "volumes", volume).isObject() ? volume : static_cast<SA_WORD>(kInvalidDeviceNumber);
}

SA_WORD SA_EnumerateArrayPhysicalDrives(PCDA cda, SA_WORD array, SA_WORD previous)
{
    const Json::Value members = itemOf(cda, "volumes", array)["drives"];
    if (!members.isArray()) {
        return kInvalidDeviceNumber;
    }
    // Walks the member list; 'previous' is a drive number, so find it first.
    Json::ArrayIndex at = 0;
    if (previous != kInvalidDeviceNumber) {
        while (at < members.size() && members[at].asUInt() != previous) {
            ++at;
        }
        ++at;
    }
    return at < members.size() ? static_cast<SA_WORD>(members[at].asUInt()) : static_cast<SA_WORD>(kInvalidDeviceNumber);
}

// ---- events

SA_BYTE SA_RegisterEventSink(PCDA cda, SA_EVENT_SINK sink)
{
    std::lock_guard<std::mutex> lock(gMutex);
    auto found = gCdas.find(cda);
    if (found == gCdas.end()) {
        return kEventFailed;
    }
    found->second.sink = sink;
    return kEventOK;
}

SA_BYTE SA_RegisterSerialLogSink(PCDA cda, SA_SERIAL_LOG_SINK)
{
    std::lock_guard<std::mutex> lock(gMutex);
    return gCdas.count(cda) != 0 ? kEventOK : kEventFailed;
}

SA_BYTE SA_StartEventQueue(PCDA cda, SA_BYTE)
{
    const Json::Value controller = controllerOf(cda);
    if (!controller.isObject() || fails(controller, "eventQueue")) {
        return kEventFailed;
    }
    std::lock_guard<std::mutex> lock(gMutex);
    auto found = gCdas.find(cda);
    if (found == gCdas.end()) {
        return kEventFailed;
    }
    found->second.queueStarted = true;
    // A drive's status changes from now on raise its events.
    const Json::Value drives = controller["drives"];
    for (Json::ArrayIndex i = 0; drives.isArray() && i < drives.size(); ++i) {
        found->second.driveStatus[i] = number(drives[i], "status");
    }
    if (!gEventThread.joinable()) {
        gEventThread = std::thread(eventLoop);
    }
    return kEventOK;
}

SA_BYTE SA_StopEventQueue(PCDA cda, SA_BYTE)
{
    std::lock_guard<std::mutex> lock(gMutex);
    auto found = gCdas.find(cda);
    if (found == gCdas.end() || !found->second.queueStarted) {
        return kEventFailed;
    }
    found->second.queueStarted = false;
    return kEventOK;
}

SA_QWORD SA_GetControllerTime(PCDA cda)
{
    const Json::Value controller = controllerOf(cda);
    return controller.isObject() ? static_cast<SA_QWORD>(controllerClock(controller)) : 0;
}

// ---- pass-through: a SATA drive answers ATA IDENTIFY DEVICE through ATA
// PASS-THROUGH(16), as a translation layer does; everything else is refused.

SA_BOOL SA_CanSendPhysicalDeviceSCSICommand(PCDA cda, SA_WORD drive)
{
    return itemOf(cda, "drives", drive).get("protocol", "").asString() == "SATA" ? 1 : 0;
}

SA_BYTE SA_SendPhysicalDeviceSCSICommand(PCDA cda, SA_WORD drive, const SA_BYTE* cdb, SA_BYTE cdbLength,
                                         SA_BYTE direction, void* data, SA_DWORD dataLength, SA_BYTE* sense,
                                         SA_BYTE* senseLength, SA_BYTE* status)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    if (!pd.isObject() || cdb == nullptr || status == nullptr || senseLength == nullptr) {
        return kSAFailed;
    }
    const bool identify = cdbLength == 16 && cdb[0] == 0x85 && cdb[14] == 0xEC && direction == kSCSIDataIn &&
                          data != nullptr && dataLength >= 512 && pd.get("protocol", "").asString() == "SATA";
    if (!identify) {
        *status = 0x02; // CHECK CONDITION, ILLEGAL REQUEST, INVALID COMMAND OPERATION CODE
        const SA_BYTE fixed[18] = {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00, 0, 0, 0, 0};
        const SA_BYTE length = *senseLength < sizeof fixed ? *senseLength : sizeof fixed;
        if (sense != nullptr) {
            memcpy(sense, fixed, length);
        }
        *senseLength = length;
        return kSAOK;
    }
    auto* words = static_cast<unsigned char*>(data);
    memset(words, 0, 512);
    // ATA strings: two characters a word, the first in the high byte.
    auto put = [&](int firstWord, int count, const std::string& text) {
        for (int i = 0; i < count * 2; ++i) {
            const char c = i < static_cast<int>(text.size()) ? text[i] : ' ';
            words[firstWord * 2 + (i ^ 1)] = static_cast<unsigned char>(c);
        }
    };
    put(10, 10, pd.get("serial", "").asString());
    put(23, 4, pd.get("firmware", "").asString());
    put(27, 20, pd.get("model", "").asString());
    words[80 * 2] = 0xF0; // major version: ACS-4 and below
    words[217 * 2] = pd.get("media", "").asString() == "SSD" ? 1 : 0;
    *status = 0;
    *senseLength = 0;
    return kSAOK;
}

SA_BYTE SA_GetPhysicalDriveConnectorIndex(PCDA cda, SA_WORD drive, SA_BYTE* connector)
{
    const Json::Value pd = itemOf(cda, "drives", drive);
    if (connector == nullptr || !pd.isObject() || !pd.isMember("connector")) {
        return kSAFailed;
    }
    *connector = static_cast<SA_BYTE>(number(pd, "connector"));
    return kSAOK;
}

SA_BYTE SA_GetControllerConnectorInfo(PCDA cda, SA_BYTE connector, SA_CONNECTOR_INFO* info)
{
    const Json::Value list = listOf(cda, "connectors");
    if (info == nullptr || connector >= list.size()) {
        return kSAFailed;
    }
    memset(info, 0, sizeof *info);
    copyText(list[connector], "name", info->name, sizeof info->name);
    info->mode = list[connector].get("mode", "internal").asString() == "external" ? kConnectorExternal
                                                                                 : kConnectorInternal;
    info->laneCount = static_cast<SA_BYTE>(number(list[connector], "lanes", 4));
    return kSAOK;
}

// ---- enclosures and their UBM backplanes

SA_WORD SA_EnumerateControllerStorageEnclosures(PCDA cda, SA_WORD previous)
{
    return nextIndex(listOf(cda, "enclosures").size(), previous);
}

SA_BYTE SA_GetStorageEnclosureVendorID(PCDA cda, SA_WORD enclosure, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "enclosures", enclosure), "vendor", buffer, size);
}

SA_BYTE SA_GetStorageEnclosureProductID(PCDA cda, SA_WORD enclosure, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "enclosures", enclosure), "product", buffer, size);
}

SA_WORD SA_GetStorageEnclosureDeviceCount(PCDA cda, SA_WORD enclosure)
{
    return static_cast<SA_WORD>(number(itemOf(cda, "enclosures", enclosure), "bays"));
}

SA_BYTE SA_GetStorageEnclosureSerialNumber(PCDA cda, SA_WORD enclosure, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "enclosures", enclosure), "serial", buffer, size);
}

SA_WORD SA_GetStorageEnclosureBackplaneInterfaceType(PCDA cda, SA_WORD enclosure)
{
    return static_cast<SA_WORD>(number(itemOf(cda, "enclosures", enclosure), "interface"));
}

SA_WORD SA_GetStorageEnclosurePathCount(PCDA cda, SA_WORD enclosure)
{
    const Json::Value paths = itemOf(cda, "enclosures", enclosure)["paths"];
    return paths.isArray() ? static_cast<SA_WORD>(paths.size()) : 0;
}

SA_BYTE SA_GetStorageEnclosurePathName(PCDA cda, SA_WORD enclosure, SA_WORD path, char* buffer, size_t size)
{
    const Json::Value paths = itemOf(cda, "enclosures", enclosure)["paths"];
    if (!paths.isArray() || path >= paths.size()) {
        return kSAFailed;
    }
    snprintf(buffer, size, "%s", paths[path].asCString());
    return kSAOK;
}

#ifndef FAKE_SC_OMIT_ENCLOSURE_STATUS
SA_DWORD SA_GetStorageEnclosureStatusInfo(PCDA cda, SA_WORD enclosure)
{
    return number(itemOf(cda, "enclosures", enclosure), "status");
}
#endif

SA_BYTE SA_GetUBMBackplaneProductString(PCDA cda, SA_WORD enclosure, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "enclosures", enclosure)["ubm"], "product", buffer, size);
}

SA_WORD SA_GetUBMBackplaneManagerDeviceCode(PCDA cda, SA_WORD enclosure)
{
    return static_cast<SA_WORD>(number(itemOf(cda, "enclosures", enclosure)["ubm"], "deviceCode"));
}

SA_WORD SA_GetUBMBackplanePCIVendorID(PCDA cda, SA_WORD enclosure)
{
    return static_cast<SA_WORD>(number(itemOf(cda, "enclosures", enclosure)["ubm"], "pciVendor"));
}

SA_BYTE SA_GetUBMBackplaneVersion(PCDA cda, SA_WORD enclosure, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "enclosures", enclosure)["ubm"], "version", buffer, size);
}

SA_BYTE SA_GetUBMBackplanePartNumber(PCDA cda, SA_WORD enclosure, char* buffer, size_t size)
{
    return copyText(itemOf(cda, "enclosures", enclosure)["ubm"], "partNumber", buffer, size);
}

} // extern "C"
