#include "vekHBACommonLibrary.h"

#include "vekConfig.h"
#include "vekLog.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

using namespace vekHBACommonLibrary;

namespace {

const char TAG[] = "HBA_COMMON_LIB";

const HBA_UINT32 kLoaded = 1;
const HBA_UINT32 kNotLoaded = 2;
const int kLineSize = 512;

struct LibraryEntry {
    char name[kLibraryNameSize];
    char path[kLibraryPathSize];
    void* handle;
    HBA_ENTRYPOINTS entries;
    HBA_UINT32 status;
    HBA_HANDLE vendorHandle;
};

struct AdapterEntry {
    char name[kAdapterNameSize];
    HBA_UINT32 library;
};

LibraryEntry librarytable[kMaxLibraries];
AdapterEntry adaptertable[kMaxAdapters];
int number_of_libraries = 0;
HBA_UINT32 number_of_total_adapters = 0;

// The tables are written by the load and the adapter count and read by every
// call; a vendor's own calls run outside this lock.
std::mutex& tableMutex()
{
    static std::mutex mutex;
    return mutex;
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

bool isPathCharacter(char c)
{
    return (c >= '-' && c <= '9') || c == '_' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Splits one line of the list into the library's name and path; false for a
// line that names no library.
bool parseLine(char* line, std::string& name, std::string& path)
{
    if (line[0] == '#' || line[0] == '\0' || line[0] == '\n') {
        return false;
    }
    line[strcspn(line, "\n")] = '\0';
    char* end = strchr(line, '\t');
    if (end == nullptr) {
        end = strchr(line, ' ');
    }
    if (end == nullptr) {
        return false;
    }
    name.assign(line, end);
    const char* start = end;
    while (*start == ' ' || *start == '\t') {
        ++start;
    }
    const char* stop = start;
    while (*stop != '\0' && isPathCharacter(*stop)) {
        ++stop;
    }
    path.assign(start, stop);
    return !path.empty();
}

void closeLibrary(LibraryEntry& entry)
{
    if (entry.handle != nullptr) {
        dlclose(entry.handle);
        entry.handle = nullptr;
    }
    entry.status = kNotLoaded;
}

// Opens the library of one line into the entry; false when the entry stays
// unused (no such library, or no HBA_RegisterLibrary in it).
bool loadVendorLibrary(LibraryEntry& entry, const std::string& name, const std::string& path)
{
    memset(&entry, 0, sizeof entry);
    snprintf(entry.name, sizeof entry.name, "%s", name.c_str());
    snprintf(entry.path, sizeof entry.path, "%s", path.c_str());
    entry.handle = dlopen(entry.path, RTLD_LAZY);
    if (entry.handle == nullptr) {
        const char* why = dlerror();
        VEK_LOG_WARNING(TAG, "HBA library [%s] at [%s] could not be opened: %s", entry.name, entry.path,
                        why != nullptr ? why : "");
        return false;
    }
    auto reg = reinterpret_cast<HBARegisterLibraryFunc>(dlsym(entry.handle, "HBA_RegisterLibrary"));
    if (reg == nullptr) {
        VEK_LOG_WARNING(TAG, "HBA library [%s] at [%s] has no HBA_RegisterLibrary", entry.name, entry.path);
        dlclose(entry.handle);
        entry.handle = nullptr;
        return false;
    }
    if (reg(&entry.entries) != HBA_STATUS_OK) {
        VEK_LOG_WARNING(TAG, "HBA library [%s] refused to register", entry.name);
        closeLibrary(entry);
        return true;
    }
    if (entry.entries.GetVersionHandler == nullptr) {
        VEK_LOG_WARNING(TAG, "HBA library [%s] gives no version", entry.name);
        closeLibrary(entry);
        return true;
    }
    entry.entries.GetVersionHandler();
    if (entry.entries.LoadLibraryHandler != nullptr && entry.entries.LoadLibraryHandler() != HBA_STATUS_OK) {
        VEK_LOG_WARNING(TAG, "HBA library [%s] failed to load", entry.name);
        closeLibrary(entry);
        return true;
    }
    entry.status = kLoaded;
    VEK_LOG_DEBUG(TAG, "HBA library [%s] loaded from [%s]", entry.name, entry.path);
    return true;
}

HBA_STATUS freeLibraries()
{
    HBA_STATUS result = HBA_STATUS_OK;
    for (int i = 0; i < number_of_libraries; ++i) {
        LibraryEntry& entry = librarytable[i];
        if (entry.status != kLoaded) {
            continue;
        }
        if (entry.entries.FreeLibraryHandler != nullptr) {
            result = entry.entries.FreeLibraryHandler();
        }
        closeLibrary(entry);
    }
    number_of_total_adapters = 0;
    return result;
}

HBA_STATUS checkLibrary(HBA_HANDLE handle, HBA_UINT32* libraryIndex, HBA_HANDLE* vendorHandle)
{
    const HBA_UINT32 index = handle >> 16;
    if (index > static_cast<HBA_UINT32>(kMaxLibraries)) {
        return HBA_STATUS_ERROR_INVALID_HANDLE;
    }
    // An index of exactly the table's size names no entry: not loaded.
    if (index == static_cast<HBA_UINT32>(kMaxLibraries) || librarytable[index].status != kLoaded) {
        return HBA_STATUS_ERROR;
    }
    if (libraryIndex != nullptr) {
        *libraryIndex = index;
    }
    if (vendorHandle != nullptr) {
        *vendorHandle = librarytable[index].vendorHandle;
    }
    return HBA_STATUS_OK;
}

// The vendor's entry point of an open adapter's library and its handle; null
// when the vendor has none.
template <typename Entry>
HBA_STATUS vendorEntry(HBA_HANDLE handle, Entry HBA_ENTRYPOINTS::*member, Entry& entry, HBA_HANDLE& vendor)
{
    std::lock_guard<std::mutex> lock(tableMutex());
    HBA_UINT32 index = 0;
    const HBA_STATUS status = checkLibrary(handle, &index, &vendor);
    if (status == HBA_STATUS_OK) {
        entry = librarytable[index].entries.*member;
    }
    return status;
}

// A call passed on to the vendor: the check's error, the vendor's result, or
// good when the vendor has no such entry.
template <typename Entry, typename... Args>
HBA_STATUS forward(HBA_HANDLE handle, Entry HBA_ENTRYPOINTS::*member, Args... args)
{
    Entry entry = nullptr;
    HBA_HANDLE vendor = 0;
    const HBA_STATUS status = vendorEntry(handle, member, entry, vendor);
    if (status != HBA_STATUS_OK) {
        return status;
    }
    return entry != nullptr ? entry(vendor, args...) : HBA_STATUS_OK;
}

template <typename Entry, typename... Args>
void forwardVoid(HBA_HANDLE handle, Entry HBA_ENTRYPOINTS::*member, Args... args)
{
    Entry entry = nullptr;
    HBA_HANDLE vendor = 0;
    if (vendorEntry(handle, member, entry, vendor) == HBA_STATUS_OK && entry != nullptr) {
        entry(vendor, args...);
    }
}

} // namespace

extern "C" {

HBA_UINT32 HBA_GetVersion()
{
    return 1;
}

HBA_STATUS HBA_LoadLibrary()
{
    const std::string file = vekConfig::getEnv() + kConfigurationFile;
    std::unique_ptr<FILE, FileCloser> list(std::fopen(file.c_str(), "r"));
    if (!list) {
        VEK_LOG_WARNING(TAG, "The list of HBA libraries [%s] could not be opened", file.c_str());
        return HBA_STATUS_ERROR;
    }
    std::lock_guard<std::mutex> lock(tableMutex());
    // A second load starts afresh: what the first opened is let go first.
    freeLibraries();
    number_of_libraries = 0;
    char line[kLineSize];
    while (std::fgets(line, sizeof line, list.get()) != nullptr) {
        std::string name;
        std::string path;
        if (!parseLine(line, name, path)) {
            continue;
        }
        if (number_of_libraries == kMaxLibraries) {
            VEK_LOG_WARNING(TAG, "More than %d HBA libraries listed: [%s] and the rest are left out", kMaxLibraries,
                            name.c_str());
            break;
        }
        if (loadVendorLibrary(librarytable[number_of_libraries], name, path)) {
            ++number_of_libraries;
        }
    }
    return HBA_STATUS_OK;
}

HBA_STATUS HBA_FreeLibrary()
{
    std::lock_guard<std::mutex> lock(tableMutex());
    return freeLibraries();
}

HBA_UINT32 HBA_GetNumberOfAdapters()
{
    std::lock_guard<std::mutex> lock(tableMutex());
    number_of_total_adapters = 0;
    for (int i = 0; i < kMaxLibraries; ++i) {
        const LibraryEntry& entry = librarytable[i];
        if (i >= number_of_libraries || entry.status != kLoaded || entry.entries.GetNumberOfAdaptersHandler == nullptr ||
            entry.entries.GetAdapterNameHandler == nullptr) {
            continue;
        }
        const HBA_UINT32 count = entry.entries.GetNumberOfAdaptersHandler();
        for (HBA_UINT32 j = 0; j < count; ++j) {
            if (number_of_total_adapters == static_cast<HBA_UINT32>(kMaxAdapters)) {
                VEK_LOG_WARNING(TAG, "More than %d HBA adapters: those of [%s] from index %u are left out",
                                kMaxAdapters, entry.name, j);
                return number_of_total_adapters;
            }
            AdapterEntry& row = adaptertable[number_of_total_adapters];
            char name[kAdapterNameSize] = {0};
            if (entry.entries.GetAdapterNameHandler(j, name) != HBA_STATUS_OK) {
                continue;
            }
            name[kAdapterNameSize - 1] = '\0';
            memcpy(row.name, name, sizeof row.name);
            row.library = static_cast<HBA_UINT32>(i);
            ++number_of_total_adapters;
        }
    }
    return number_of_total_adapters;
}

HBA_STATUS HBA_GetAdapterName(HBA_UINT32 adapterindex, char* adaptername)
{
    std::lock_guard<std::mutex> lock(tableMutex());
    if (adapterindex >= number_of_total_adapters || adaptername == nullptr) {
        return HBA_STATUS_ERROR_ILLEGAL_INDEX;
    }
    memcpy(adaptername, adaptertable[adapterindex].name, kAdapterNameSize);
    return HBA_STATUS_OK;
}

HBA_STATUS HBA_GetLibraryPath(HBA_HANDLE handle, char* path, HBA_HANDLE* vendorHandle)
{
    std::lock_guard<std::mutex> lock(tableMutex());
    HBA_UINT32 index = 0;
    const HBA_STATUS status = checkLibrary(handle, &index, vendorHandle);
    if (status == HBA_STATUS_OK && path != nullptr) {
        memcpy(path, librarytable[index].path, kLibraryPathSize);
    }
    return status;
}

HBA_HANDLE HBA_OpenAdapter(char* adaptername)
{
    if (adaptername == nullptr) {
        return 0;
    }
    std::lock_guard<std::mutex> lock(tableMutex());
    for (HBA_UINT32 i = 0; i < number_of_total_adapters; ++i) {
        if (strncmp(adaptertable[i].name, adaptername, kAdapterNameSize) != 0) {
            continue;
        }
        const HBA_UINT32 index = adaptertable[i].library;
        LibraryEntry& entry = librarytable[index];
        if (entry.status != kLoaded || entry.entries.OpenAdapterHandler == nullptr) {
            return 0;
        }
        entry.vendorHandle = entry.entries.OpenAdapterHandler(adaptername);
        // A vendor handle 0 of library 0 reads as a failed open, as it is.
        return (entry.vendorHandle & 0xffff) | (index << 16);
    }
    return 0;
}

HBA_STATUS HBA_CheckLibrary(HBA_HANDLE handle, HBA_UINT32* libraryIndex, HBA_HANDLE* vendorHandle)
{
    std::lock_guard<std::mutex> lock(tableMutex());
    return checkLibrary(handle, libraryIndex, vendorHandle);
}

void HBA_CloseAdapter(HBA_HANDLE handle)
{
    forwardVoid(handle, &HBA_ENTRYPOINTS::CloseAdapterHandler);
}

HBA_STATUS HBA_GetAdapterAttributes(HBA_HANDLE handle, HBA_ADAPTERATTRIBUTES* hbaattributes)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetAdapterAttributesHandler, hbaattributes);
}

HBA_STATUS HBA_GetAdapterPortAttributes(HBA_HANDLE handle, HBA_UINT32 portindex, HBA_PORTATTRIBUTES* portattributes)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetAdapterPortAttributesHandler, portindex, portattributes);
}

HBA_STATUS HBA_GetPortStatistics(HBA_HANDLE handle, HBA_UINT32 portindex, HBA_PORTSTATISTICS* portstatistics)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetPortStatisticsHandler, portindex, portstatistics);
}

HBA_STATUS HBA_GetDiscoveredPortAttributes(HBA_HANDLE handle, HBA_UINT32 portindex, HBA_UINT32 discoveredportindex,
                                           HBA_PORTATTRIBUTES* portattributes)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetDiscoveredPortAttributesHandler, portindex, discoveredportindex,
                   portattributes);
}

HBA_STATUS HBA_GetPortAttributesByWWN(HBA_HANDLE handle, HBA_WWN PortWWN, HBA_PORTATTRIBUTES* portattributes)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetPortAttributesByWWNHandler, PortWWN, portattributes);
}

HBA_STATUS HBA_SendCTPassThru(HBA_HANDLE handle, void* pReqBuffer, HBA_UINT32 ReqBufferSize, void* pRspBuffer,
                              HBA_UINT32 RspBufferSize)
{
    return forward(handle, &HBA_ENTRYPOINTS::SendCTPassThruHandler, pReqBuffer, ReqBufferSize, pRspBuffer,
                   RspBufferSize);
}

HBA_STATUS HBA_GetEventBuffer(HBA_HANDLE handle, HBA_EVENTINFO* EventBuffer, HBA_UINT32* EventBufferCount)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetEventBufferHandler, EventBuffer, EventBufferCount);
}

HBA_STATUS HBA_SetRNIDMgmtInfo(HBA_HANDLE handle, HBA_MGMTINFO* pInfo)
{
    return forward(handle, &HBA_ENTRYPOINTS::SetRNIDMgmtInfoHandler, pInfo);
}

HBA_STATUS HBA_GetRNIDMgmtInfo(HBA_HANDLE handle, HBA_MGMTINFO* pInfo)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetRNIDMgmtInfoHandler, pInfo);
}

HBA_STATUS HBA_SendRNID(HBA_HANDLE handle, HBA_WWN wwn, HBA_WWNTYPE wwntype, void* pRspBuffer,
                        HBA_UINT32* pRspBufferSize)
{
    return forward(handle, &HBA_ENTRYPOINTS::SendRNIDHandler, wwn, wwntype, pRspBuffer, pRspBufferSize);
}

void HBA_RefreshInformation(HBA_HANDLE handle)
{
    forwardVoid(handle, &HBA_ENTRYPOINTS::RefreshInformationHandler);
}

void HBA_ResetStatistics(HBA_HANDLE handle, HBA_UINT32 portindex)
{
    forwardVoid(handle, &HBA_ENTRYPOINTS::ResetStatisticsHandler, portindex);
}

HBA_STATUS HBA_GetFcpTargetMapping(HBA_HANDLE handle, HBA_FCPTARGETMAPPING* pmapping)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetFcpTargetMappingHandler, pmapping);
}

HBA_STATUS HBA_GetFcpPersistentBinding(HBA_HANDLE handle, HBA_FCPBINDING* binding)
{
    return forward(handle, &HBA_ENTRYPOINTS::GetFcpPersistentBindingHandler, binding);
}

HBA_STATUS HBA_SendScsiInquiry(HBA_HANDLE handle, HBA_WWN PortWWN, HBA_UINT64 fcLUN, HBA_UINT8 EVPD,
                               HBA_UINT32 PageCode, void* pRspBuffer, HBA_UINT32 RspBufferSize, void* pSenseBuffer,
                               HBA_UINT32 SenseBufferSize)
{
    return forward(handle, &HBA_ENTRYPOINTS::ScsiInquiryHandler, PortWWN, fcLUN, EVPD, PageCode, pRspBuffer,
                   RspBufferSize, pSenseBuffer, SenseBufferSize);
}

HBA_STATUS HBA_SendReportLUNs(HBA_HANDLE handle, HBA_WWN portWWN, void* pRspBuffer, HBA_UINT32 RspBufferSize,
                              void* pSenseBuffer, HBA_UINT32 SenseBufferSize)
{
    return forward(handle, &HBA_ENTRYPOINTS::ReportLUNsHandler, portWWN, pRspBuffer, RspBufferSize, pSenseBuffer,
                   SenseBufferSize);
}

HBA_STATUS HBA_SendReadCapacity(HBA_HANDLE handle, HBA_WWN portWWN, HBA_UINT64 fcLUN, void* pRspBuffer,
                                HBA_UINT32 RspBufferSize, void* pSenseBuffer, HBA_UINT32 SenseBufferSize)
{
    return forward(handle, &HBA_ENTRYPOINTS::ReadCapacityHandler, portWWN, fcLUN, pRspBuffer, RspBufferSize,
                   pSenseBuffer, SenseBufferSize);
}

} // extern "C"
