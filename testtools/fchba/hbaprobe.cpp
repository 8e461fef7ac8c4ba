// hbaprobe LIBRARY: loads a common HBA library (this project's libvek.so or
// another implementation of the SNIA HBA API, such as Debian's libHBAAPI),
// and prints as one JSON object what it reports: the result of its load, and
// each adapter with its name, attributes and port attributes. Two common
// libraries over the same vendor libraries must print the same.

#include <ctime> // hbaapi.h uses struct tm without including it

#include <hbaapi.h>

#include <dlfcn.h>
#include <json/json.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace {

template <typename F>
F symbol(void* library, const char* name)
{
    return reinterpret_cast<F>(dlsym(library, name));
}

std::string wwn(const HBA_WWN& value)
{
    char text[32];
    const HBA_UINT8* b = value.wwn;
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6],
             b[7]);
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: hbaprobe LIBRARY\n";
        return 2;
    }
    // Local, so that the library's own calls between its functions stay inside it.
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << "hbaprobe: " << dlerror() << "\n";
        return 1;
    }
    auto load = symbol<HBA_STATUS (*)()>(library, "HBA_LoadLibrary");
    auto freeLibrary = symbol<HBA_STATUS (*)()>(library, "HBA_FreeLibrary");
    auto count = symbol<HBA_UINT32 (*)()>(library, "HBA_GetNumberOfAdapters");
    auto name = symbol<HBA_STATUS (*)(HBA_UINT32, char*)>(library, "HBA_GetAdapterName");
    auto open = symbol<HBA_HANDLE (*)(char*)>(library, "HBA_OpenAdapter");
    auto close = symbol<void (*)(HBA_HANDLE)>(library, "HBA_CloseAdapter");
    auto attributes = symbol<HBA_STATUS (*)(HBA_HANDLE, HBA_ADAPTERATTRIBUTES*)>(library, "HBA_GetAdapterAttributes");
    auto portAttributes =
        symbol<HBA_STATUS (*)(HBA_HANDLE, HBA_UINT32, HBA_PORTATTRIBUTES*)>(library, "HBA_GetAdapterPortAttributes");
    if (!load || !freeLibrary || !count || !name || !open || !close || !attributes || !portAttributes) {
        std::cerr << "hbaprobe: not a common HBA library: " << argv[1] << "\n";
        return 1;
    }

    Json::Value out(Json::objectValue);
    out["load"] = load();
    out["adapters"] = Json::Value(Json::arrayValue);
    const HBA_UINT32 adapters = count();
    for (HBA_UINT32 i = 0; i < adapters; ++i) {
        Json::Value adapter(Json::objectValue);
        char adapterName[256] = {0};
        adapter["nameStatus"] = name(i, adapterName);
        adapter["name"] = adapterName;
        const HBA_HANDLE handle = open(adapterName);
        adapter["opened"] = handle != 0;
        HBA_ADAPTERATTRIBUTES a{};
        if (handle != 0 && attributes(handle, &a) == HBA_STATUS_OK) {
            Json::Value& at = adapter["attributes"];
            at["Manufacturer"] = a.Manufacturer;
            at["SerialNumber"] = a.SerialNumber;
            at["Model"] = a.Model;
            at["ModelDescription"] = a.ModelDescription;
            at["NodeWWN"] = wwn(a.NodeWWN);
            at["NodeSymbolicName"] = a.NodeSymbolicName;
            at["HardwareVersion"] = a.HardwareVersion;
            at["DriverVersion"] = a.DriverVersion;
            at["OptionROMVersion"] = a.OptionROMVersion;
            at["FirmwareVersion"] = a.FirmwareVersion;
            at["VendorSpecificID"] = a.VendorSpecificID;
            at["NumberOfPorts"] = a.NumberOfPorts;
            at["DriverName"] = a.DriverName;
            for (HBA_UINT32 p = 0; p < a.NumberOfPorts; ++p) {
                HBA_PORTATTRIBUTES port{};
                Json::Value entry(Json::objectValue);
                entry["status"] = portAttributes(handle, p, &port);
                entry["PortWWN"] = wwn(port.PortWWN);
                entry["PortState"] = port.PortState;
                entry["PortSpeed"] = port.PortSpeed;
                entry["PortFcId"] = port.PortFcId;
                entry["OSDeviceName"] = port.OSDeviceName;
                adapter["ports"].append(entry);
            }
        }
        if (handle != 0) {
            close(handle);
        }
        out["adapters"].append(adapter);
    }
    out["free"] = freeLibrary();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    std::cout << Json::writeString(writer, out) << "\n";
    return 0;
}
