// A stand-in for a vendor's Fibre Channel HBA library, for tests and
// simulated hosts. It registers its entry points through HBA_RegisterLibrary
// as a vendor library does, and answers from its scenario,
// $VEK_ROOT/sim/<library name>.json, read afresh at every call so that a test
// or a person changes the adapters while the service runs. Built once per
// vendor (FAKE_HBA_NAME); FAKE_HBA_NO_REGISTER leaves HBA_RegisterLibrary out.

#include <ctime> // hbaapi.h uses struct tm without including it

#include <hbaapi.h>
#include <vendorhbaapi.h>

#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>

namespace {

Json::Value scenario()
{
    const char* root = getenv("VEK_ROOT");
    std::ifstream in(std::string(root != nullptr ? root : "") + "/sim/" FAKE_HBA_NAME ".json");
    Json::Value value;
    Json::CharReaderBuilder reader;
    std::string errors;
    if (!in || !Json::parseFromStream(reader, in, &value, &errors) || !value.isObject()) {
        return Json::Value(Json::objectValue);
    }
    return value;
}

Json::Value adapters()
{
    const Json::Value all = scenario()["adapters"];
    return all.isArray() ? all : Json::Value(Json::arrayValue);
}

// The adapter of a handle (its index plus one), null when there is none.
Json::Value adapterOf(HBA_HANDLE handle)
{
    const Json::Value all = adapters();
    return handle >= 1 && handle <= all.size() ? all[handle - 1] : Json::Value();
}

bool fails(const Json::Value& adapter, const char* operation)
{
    return adapter.isObject() && adapter.get("fail", "").asString() == operation;
}

void copyText(char* out, size_t size, const Json::Value& object, const char* key)
{
    snprintf(out, size, "%s", object.get(key, "").asString().c_str());
}

// "20:00:f4:c7:aa:1c:35:e0"; what does not parse stays zero.
HBA_WWN parseWwn(const std::string& text)
{
    HBA_WWN wwn;
    memset(&wwn, 0, sizeof wwn);
    unsigned int b[8] = {0};
    if (sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7]) ==
        8) {
        for (int i = 0; i < 8; ++i) {
            wwn.wwn[i] = static_cast<HBA_UINT8>(b[i]);
        }
    }
    return wwn;
}

HBA_UINT32 portState(const Json::Value& value)
{
    static const std::map<std::string, HBA_UINT32> words = {
        {"Unknown", HBA_PORTSTATE_UNKNOWN},   {"Online", HBA_PORTSTATE_ONLINE},
        {"Offline", HBA_PORTSTATE_OFFLINE},   {"Bypassed", HBA_PORTSTATE_BYPASSED},
        {"Diagnostics", HBA_PORTSTATE_DIAGNOSTICS}, {"Linkdown", HBA_PORTSTATE_LINKDOWN},
        {"Error", HBA_PORTSTATE_ERROR},       {"Loopback", HBA_PORTSTATE_LOOPBACK}};
    if (value.isUInt()) {
        return value.asUInt();
    }
    const auto found = words.find(value.asString());
    return found != words.end() ? found->second : HBA_PORTSTATE_UNKNOWN;
}

// Gbit/s to the speed bits of the FC-HBA attributes.
HBA_UINT32 portSpeed(unsigned int gbit)
{
    static const std::map<unsigned int, HBA_UINT32> bits = {{1, 0x1},  {2, 0x2},  {10, 0x4}, {4, 0x8},
                                                           {8, 0x10}, {16, 0x20}, {32, 0x40}, {64, 0x80}};
    const auto found = bits.find(gbit);
    return found != bits.end() ? found->second : HBA_PORTSPEED_UNKNOWN;
}

HBA_UINT32 getVersion()
{
    return HBA_LIBVERSION;
}

HBA_STATUS loadLibrary()
{
    return scenario().get("load", 0).asUInt();
}

HBA_STATUS freeLibrary()
{
    return HBA_STATUS_OK;
}

HBA_UINT32 getNumberOfAdapters()
{
    return adapters().size();
}

HBA_STATUS getAdapterName(HBA_UINT32 index, char* name)
{
    const Json::Value all = adapters();
    if (index >= all.size()) {
        return HBA_STATUS_ERROR_ILLEGAL_INDEX;
    }
    copyText(name, 256, all[index], "name");
    return HBA_STATUS_OK;
}

HBA_HANDLE openAdapter(char* name)
{
    const Json::Value all = adapters();
    for (Json::ArrayIndex i = 0; i < all.size(); ++i) {
        if (all[i].get("name", "").asString() == name) {
            return fails(all[i], "open") ? 0 : i + 1;
        }
    }
    return 0;
}

void closeAdapter(HBA_HANDLE) {}

HBA_STATUS getAdapterAttributes(HBA_HANDLE handle, HBA_ADAPTERATTRIBUTES* out)
{
    const Json::Value adapter = adapterOf(handle);
    if (!adapter.isObject()) {
        return HBA_STATUS_ERROR_INVALID_HANDLE;
    }
    if (fails(adapter, "attributes")) {
        return HBA_STATUS_ERROR;
    }
    memset(out, 0, sizeof *out);
    copyText(out->Manufacturer, sizeof out->Manufacturer, adapter, "Manufacturer");
    copyText(out->SerialNumber, sizeof out->SerialNumber, adapter, "SerialNumber");
    copyText(out->Model, sizeof out->Model, adapter, "Model");
    copyText(out->ModelDescription, sizeof out->ModelDescription, adapter, "ModelDescription");
    out->NodeWWN = parseWwn(adapter.get("NodeWWN", "").asString());
    copyText(out->NodeSymbolicName, sizeof out->NodeSymbolicName, adapter, "NodeSymbolicName");
    copyText(out->HardwareVersion, sizeof out->HardwareVersion, adapter, "HardwareVersion");
    copyText(out->DriverVersion, sizeof out->DriverVersion, adapter, "DriverVersion");
    copyText(out->OptionROMVersion, sizeof out->OptionROMVersion, adapter, "OptionROMVersion");
    copyText(out->FirmwareVersion, sizeof out->FirmwareVersion, adapter, "FirmwareVersion");
    out->VendorSpecificID = adapter.get("VendorSpecificID", 0).asUInt();
    out->NumberOfPorts = adapter["ports"].size();
    copyText(out->DriverName, sizeof out->DriverName, adapter, "DriverName");
    return HBA_STATUS_OK;
}

HBA_STATUS getAdapterPortAttributes(HBA_HANDLE handle, HBA_UINT32 index, HBA_PORTATTRIBUTES* out)
{
    const Json::Value adapter = adapterOf(handle);
    if (!adapter.isObject()) {
        return HBA_STATUS_ERROR_INVALID_HANDLE;
    }
    if (fails(adapter, "ports")) {
        return HBA_STATUS_ERROR;
    }
    const Json::Value ports = adapter["ports"];
    if (!ports.isArray() || index >= ports.size()) {
        return HBA_STATUS_ERROR_ILLEGAL_INDEX;
    }
    const Json::Value port = ports[index];
    memset(out, 0, sizeof *out);
    out->NodeWWN = parseWwn(adapter.get("NodeWWN", "").asString());
    out->PortWWN = parseWwn(port.get("PortWWN", "").asString());
    out->PortFcId = std::strtoul(port.get("PortFcId", "0").asString().c_str(), nullptr, 16);
    out->PortType = HBA_PORTTYPE_NPORT;
    out->PortState = portState(port["PortState"]);
    copyText(out->PortSymbolicName, sizeof out->PortSymbolicName, port, "PortSymbolicName");
    copyText(out->OSDeviceName, sizeof out->OSDeviceName, port, "OSDeviceName");
    out->PortSpeed = portSpeed(port.get("PortSpeedGbit", 0).asUInt());
    out->PortSupportedSpeed = out->PortSpeed;
    out->PortMaxFrameSize = 2048;
    out->FabricName = parseWwn(port.get("FabricName", "").asString());
    return HBA_STATUS_OK;
}

} // namespace

#ifdef FAKE_HBA_NO_REGISTER
// The same entry under another name: the library has no HBA_RegisterLibrary.
#define HBA_RegisterLibrary fakehba_RegisterLibraryUnderAnotherName
#endif

extern "C" HBA_STATUS HBA_RegisterLibrary(HBA_ENTRYPOINTS* entries)
{
    if (const HBA_STATUS forced = scenario().get("register", 0).asUInt()) {
        return forced;
    }
    memset(entries, 0, sizeof *entries);
    entries->GetVersionHandler = getVersion;
    entries->LoadLibraryHandler = loadLibrary;
    entries->FreeLibraryHandler = freeLibrary;
    entries->GetNumberOfAdaptersHandler = getNumberOfAdapters;
    entries->GetAdapterNameHandler = getAdapterName;
    entries->OpenAdapterHandler = openAdapter;
    entries->CloseAdapterHandler = closeAdapter;
    entries->GetAdapterAttributesHandler = getAdapterAttributes;
    entries->GetAdapterPortAttributesHandler = getAdapterPortAttributes;
    return HBA_STATUS_OK;
}
