#include "vekStoreLibInterface.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekTimedLock.h"
#include "vekLogicalDiskInfo.h"

#include <dlfcn.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

using vekGlobalDef::stringUtils;

namespace {

const char TAG[] = "LSI_INTERF";

const uint32_t kChipsetSAS35xx = 0x005D1000;
const uint32_t kChipsetSAS39xx = 0x10E21000;

// The library forks helpers of its own and waits for them itself. The
// handler only keeps SIGCHLD from being ignored; it must reap nothing, since
// every pclose() and system() of the service needs its own child's status.
void sighdlr(int) {}

// A fixed-size text field of the firmware, which need not end in a NUL.
std::string fieldText(const void* data, size_t size)
{
    const char* text = static_cast<const char*>(data);
    return stringUtils::trim(std::string(text, strnlen(text, size)));
}

std::string hexBytes(const uint8_t* data, size_t size)
{
    std::string text;
    bool any = false;
    char byte[3];
    for (size_t i = 0; i < size; ++i) {
        snprintf(byte, sizeof byte, "%02X", data[i]);
        text += byte;
        any = any || data[i] != 0;
    }
    return any ? text : std::string();
}

} // namespace

std::string vekBroadcom::StorelibAPIFailureException::hex(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof text, "%x", value);
    return text;
}

vekStoreLibInterface& vekStoreLibInterface::getInstance()
{
    // Never destroyed: the library's event thread may still call in at exit.
    static vekStoreLibInterface* const instance = new vekStoreLibInterface("libstorelib.so");
    return *instance;
}

vekStoreLibInterface::vekStoreLibInterface(std::string libraryName) : libraryName_(std::move(libraryName)) {}

vekStoreLibInterface::~vekStoreLibInterface() { UnInitializeLibrary(); }

std::unique_lock<std::recursive_mutex> vekStoreLibInterface::takeLock(std::chrono::milliseconds wait)
{
    return vekLockWithin(cache_lock, wait);
}

bool vekStoreLibInterface::vekStoreInit()
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    if (pfnProcessLibCommandMR != nullptr) {
        return true;
    }
    if (doNotRetryLibLoad) {
        return false;
    }
    memset(&gCtrlListMR, 0, sizeof gCtrlListMR);
    gTotalControllers = 0;
    handle_ = dlopen(libraryName_.c_str(), RTLD_LAZY);
    if (handle_ == nullptr) {
        const char* error = dlerror();
        doNotRetryLibLoad = true;
        initializeMRsuccessful = false;
        VEK_LOG_ERROR(TAG,
                      "Failed to load library for monitoring MegaRAID devices. If you need VEK to monitor this class "
                      "of devices, then kindly remove and install storelib package and restart");
        VEK_LOG_ERROR(TAG, "Error occurred while loading MegaRAID lib dlerror = %s", error != nullptr ? error : "");
        return false;
    }
    libMRPresent = true;
    VEK_LOG_INFO(TAG, "Library loaded for MegaRAID SAS Controller.");
    auto entry = reinterpret_cast<ProcessLibCommandFunction>(dlsym(handle_, "ProcessLibCommand"));
    if (entry == nullptr) {
        VEK_LOG_ERROR(TAG, "Unable to get Entry Point function address Exiting.");
        unloadDLLs();
        return false;
    }
    struct sigaction action {};
    action.sa_handler = sighdlr;
    action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigaction(SIGCHLD, &action, nullptr);

    VEK_LOG_INFO(TAG, "Initializing library for MegaRAID SAS Controller...");
    pfnProcessLibCommandMR = entry;
    pfnProcessLibCommand = entry;
    currentCtrlIndex_ = -1;
    initializeMRsuccessful = true;
    const uint32_t status = libraryCommand(SL_CMD_TYPE_LIBRARY, SL_LIB_INIT, 0, &gCtrlListMR, sizeof gCtrlListMR);
    if (status != SL_SUCCESS) {
        switch (status) {
        case SL_ERR_FAILED:
            VEK_LOG_ERROR(TAG, "InitializeLibraryMR failed _FAILED");
            break;
        case SL_ERR_LIBSYSFS_NOT_PRESENT:
            VEK_LOG_ERROR(TAG, "InitializeLibraryMR failed:LIBSYSFS_NOT_PRESENT");
            break;
        case SL_ERR_ACCESS_LEVEL:
            VEK_LOG_ERROR(TAG, "User Access level incorrect, administrator privilege required");
            break;
        case SL_ERR_NOT_PRESENT:
            VEK_LOG_ERROR(TAG, "InitializeLibraryMR failed _NOT_PRESENT");
            break;
        default:
            break;
        }
        VEK_LOG_ERROR(TAG, "InitLib failed for MegaRAID SAS Controller!!");
        initializeMRsuccessful = false;
        pfnProcessLibCommandMR = nullptr;
        pfnProcessLibCommand = nullptr;
        return false;
    }
    if (gCtrlListMR.simulationMode == 1) {
        VEK_LOG_WARNING(TAG, "MegaRAID SAS Controller is running under Simulation Mode.");
    }
    mergeControllerLists(gCtrlListMR);
    if (gTotalControllers == 0) {
        VEK_LOG_INFO(TAG, "No LSI MR controllers found");
    }
    return true;
}

void vekStoreLibInterface::UnInitializeLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    if (pfnProcessLibCommandMR != nullptr) {
        VEK_LOG_INFO(TAG, "UnInitializing library for MegaRAID SAS Controller.");
        currentCtrlIndex_ = -1;
        if (libraryCommand(SL_CMD_TYPE_LIBRARY, SL_LIB_EXIT, 0, nullptr, 0) != SL_SUCCESS) {
            VEK_LOG_ERROR(TAG, "ExitLib failed for MegaRAID SAS Controller");
        }
    }
    pfnProcessLibCommandMR = nullptr;
    pfnProcessLibCommand = nullptr;
    initializeMRsuccessful = false;
    memset(&gCtrlList, 0, sizeof gCtrlList);
    gTotalControllers = 0;
    unloadDLLs();
}

void vekStoreLibInterface::unloadDLL(void*& handle)
{
    if (handle != nullptr) {
        dlclose(handle);
        handle = nullptr;
    }
}

void vekStoreLibInterface::unloadDLLs() { unloadDLL(handle_); }

void vekStoreLibInterface::mergeControllerLists(const _SL_CTRL_LIST_T& mr)
{
    memset(&gCtrlList, 0, sizeof gCtrlList);
    gCtrlList.simulationMode = mr.simulationMode;
    const uint32_t count = std::min<uint32_t>(mr.count, SL_MAX_CONTROLLERS);
    for (uint32_t i = 0; i < count; ++i) {
        gCtrlList.ctrlId[i] = (SL_CTRL_KIND_MR << 24) | (mr.ctrlId[i] & 0x00FFFFFF);
    }
    gCtrlList.count = static_cast<uint16_t>(count);
    gTotalControllers = count;
    // An index of the old list means nothing in the new one.
    currentCtrlIndex_ = -1;
}

uint32_t vekStoreLibInterface::ProcessLibCommandCall(_SL_LIB_CMD_PARAM_T& param)
{
    std::unique_lock<std::recursive_mutex> lock(cache_lock);
    if (currentCtrlIndex_ >= 0 && static_cast<uint32_t>(currentCtrlIndex_) < gTotalControllers &&
        (gCtrlList.ctrlId[currentCtrlIndex_] >> 24) == SL_CTRL_KIND_MR && pfnProcessLibCommandMR != nullptr) {
        pfnProcessLibCommand = pfnProcessLibCommandMR;
    }
    const ProcessLibCommandFunction entry = pfnProcessLibCommand;
    if (entry == nullptr) {
        return SL_ERR_INIT_NOT_DONE;
    }
    // (Un)registration runs outside the lock: the library ends its event
    // thread there, and that thread may be waiting for the lock.
    if (param.cmdType == SL_CMD_TYPE_LIBRARY && (param.cmd == SL_LIB_REGISTER_AEN || param.cmd == SL_LIB_UNREGISTER_AEN)) {
        lock.unlock();
    }
    return entry(&param);
}

uint32_t vekStoreLibInterface::libraryCommand(uint8_t type, uint8_t cmd, uint32_t ctrlId, void* data, uint32_t size)
{
    _SL_LIB_CMD_PARAM_T param{};
    param.cmdType = type;
    param.cmd = cmd;
    param.ctrlId = ctrlId;
    param.dataSize = size;
    param.pData = data;
    return ProcessLibCommandCall(param);
}

std::vector<uint32_t> vekStoreLibInterface::getLibraryControllerIds()
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < gTotalControllers; ++i) {
        ids.push_back(gCtrlList.ctrlId[i] & 0x00FFFFFF);
    }
    return ids;
}

bool vekStoreLibInterface::getEnclosureDeviceId(uint32_t ctrlId, int index, int& deviceId)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    const auto ctrl = enclosures_.find(ctrlId);
    if (ctrl == enclosures_.end()) {
        return false;
    }
    const auto found = ctrl->second.find(index);
    if (found == ctrl->second.end()) {
        return false;
    }
    deviceId = found->second;
    return true;
}

// ---------------------------------------------------------------- requests

uint32_t vekStoreLibInterface::getCtrlList(_SL_CTRL_LIST_T& list)
{
    memset(&list, 0, sizeof list);
    return libraryCommand(SL_CMD_TYPE_LIBRARY, SL_LIB_GET_CTRL_LIST, 0, &list, sizeof list);
}

uint32_t vekStoreLibInterface::getCtrlInfoFunc(uint32_t ctrlId, _MR_CTRL_INFO& info)
{
    memset(&info, 0, sizeof info);
    return libraryCommand(SL_CMD_TYPE_CONTROLLER, SL_CTRL_GET_INFO, ctrlId, &info, sizeof info);
}

uint32_t vekStoreLibInterface::GetPDListFunc(uint32_t ctrlId, std::vector<_MR_PD_ADDRESS>& drives,
                                             size_t initialEntries)
{
    drives.clear();
    size_t entries = std::max<size_t>(initialEntries, 1);
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::vector<uint8_t> buffer(MR_PD_LIST_HEADER + entries * sizeof(_MR_PD_ADDRESS), 0);
        const uint32_t status =
            libraryCommand(SL_CMD_TYPE_CONTROLLER, SL_CTRL_GET_PD_LIST, ctrlId, buffer.data(), buffer.size());
        uint32_t needed = 0;
        uint32_t count = 0;
        memcpy(&needed, buffer.data(), sizeof needed);
        memcpy(&count, buffer.data() + sizeof needed, sizeof count);
        if (status == SL_ERR_BUFFER_TOO_SMALL || (status == SL_SUCCESS && needed > buffer.size())) {
            // The library told how much the whole list needs; ask once more.
            const size_t wanted = needed > MR_PD_LIST_HEADER ? (needed - MR_PD_LIST_HEADER) / sizeof(_MR_PD_ADDRESS) : 0;
            if (attempt == 0 && wanted > entries && wanted <= 4096) {
                entries = wanted;
                continue;
            }
            if (status != SL_SUCCESS) {
                return status;
            }
        } else if (status != SL_SUCCESS) {
            return status;
        }
        // Never past what the buffer holds, whatever the count says.
        const size_t held = std::min<size_t>(count, entries);
        drives.resize(held);
        memcpy(drives.data(), buffer.data() + MR_PD_LIST_HEADER, held * sizeof(_MR_PD_ADDRESS));
        return SL_SUCCESS;
    }
    return SL_ERR_BUFFER_TOO_SMALL;
}

uint32_t vekStoreLibInterface::FirePDInfo(uint32_t ctrlId, uint16_t deviceId, _MR_PD_INFO& info)
{
    memset(&info, 0, sizeof info);
    _SL_LIB_CMD_PARAM_T param{};
    param.cmdType = SL_CMD_TYPE_PD;
    param.cmd = SL_PD_GET_INFO;
    param.ctrlId = ctrlId;
    param.pdDeviceId = deviceId;
    param.dataSize = sizeof info;
    param.pData = &info;
    return ProcessLibCommandCall(param);
}

uint32_t vekStoreLibInterface::GetEnclListFunc(uint32_t ctrlId, _MR_ENCL_LIST& list)
{
    memset(&list, 0, sizeof list);
    return libraryCommand(SL_CMD_TYPE_CONTROLLER, SL_CTRL_GET_ENCL_LIST, ctrlId, &list, sizeof list);
}

uint32_t vekStoreLibInterface::GetLDListFunc(uint32_t ctrlId, _MR_LD_LIST& list)
{
    memset(&list, 0, sizeof list);
    return libraryCommand(SL_CMD_TYPE_CONTROLLER, SL_CTRL_GET_LD_LIST, ctrlId, &list, sizeof list);
}

uint32_t vekStoreLibInterface::FireLDInfo(uint32_t ctrlId, uint8_t targetId, _MR_LD_INFO& info)
{
    memset(&info, 0, sizeof info);
    _SL_LIB_CMD_PARAM_T param{};
    param.cmdType = SL_CMD_TYPE_LD;
    param.cmd = SL_LD_GET_INFO;
    param.ctrlId = ctrlId;
    param.ldTargetId = targetId;
    param.dataSize = sizeof info;
    param.pData = &info;
    return ProcessLibCommandCall(param);
}

uint32_t vekStoreLibInterface::GetLDPDMap(uint32_t ctrlId, uint8_t targetId, _MR_LD_PD_MAP& map)
{
    memset(&map, 0, sizeof map);
    _SL_LIB_CMD_PARAM_T param{};
    param.cmdType = SL_CMD_TYPE_LD;
    param.cmd = SL_LD_GET_PD_MAP;
    param.ctrlId = ctrlId;
    param.ldTargetId = targetId;
    param.dataSize = sizeof map;
    param.pData = &map;
    return ProcessLibCommandCall(param);
}

uint32_t vekStoreLibInterface::GetUserDataBlockSizeOfPdInLD(uint32_t ctrlId, uint8_t targetId)
{
    _MR_LD_PD_MAP map;
    if (GetLDPDMap(ctrlId, targetId, map) != SL_SUCCESS || map.count == 0 || map.pd[0].userDataBlockSize == 0) {
        return 512;
    }
    return map.pd[0].userDataBlockSize;
}

uint32_t vekStoreLibInterface::IssueEventSequenceInfo(uint32_t ctrlId, _MR_EVT_LOG_INFO& info)
{
    memset(&info, 0, sizeof info);
    return libraryCommand(SL_CMD_TYPE_EVENT, SL_EVENT_GET_SEQ_INFO, ctrlId, &info, sizeof info);
}

uint32_t vekStoreLibInterface::sendDCMDPassThru(uint32_t ctrlId, uint32_t opCode, void* data, uint32_t length,
                                                const char* what, uint8_t mbox0)
{
    _SL_DCMD_INPUT_T dcmd{};
    dcmd.opCode = opCode;
    dcmd.mbox[0] = mbox0;
    dcmd.dir = SL_DCMD_DIR_READ;
    dcmd.dataTransferLength = length;
    dcmd.pData = data;
    const uint32_t status = libraryCommand(SL_CMD_TYPE_PASSTHRU, SL_PASSTHRU_DCMD, ctrlId, &dcmd, sizeof dcmd);
    if (status == SL_ERR_INVALID_CTRL) {
        VEK_LOG_ERROR(TAG, "Invalid controller (ID: [%u]) when retrieving %s! (0x%x)", ctrlId, what, status);
    } else if (status != SL_SUCCESS) {
        VEK_LOG_ERROR(TAG, "ProcessLibCommandCall failed on controller (ID: [%u]) when retrieving %s! (0x%x)", ctrlId,
                      what, status);
    }
    return status;
}

uint32_t vekStoreLibInterface::GetMFCMFG(uint32_t ctrlId, _MR_MFC_MFG& out, uint8_t page)
{
    memset(&out, 0, sizeof out);
    return sendDCMDPassThru(ctrlId, MR_DCMD_CTRL_MFC_MFG_GET, &out, sizeof out, "manufacturing data", page);
}

uint32_t vekStoreLibInterface::getCtrlSafeID(uint32_t ctrlId, char (&out)[41])
{
    memset(out, 0, sizeof out);
    const uint32_t status = sendDCMDPassThru(ctrlId, MR_DCMD_CTRL_GET_SAFEID, out, sizeof out, "safe ID");
    out[sizeof out - 1] = '\0';
    return status;
}

uint32_t vekStoreLibInterface::fireSCSIPassThru(uint32_t ctrlId, uint16_t deviceId, const uint8_t* cdb,
                                                uint8_t cdbLength, uint8_t* data, uint32_t& length)
{
    std::vector<uint8_t> buffer(SL_SCSI_PASSTHRU_HEADER + length, 0);
    _SL_SCSI_PASSTHRU_T header{};
    header.deviceId = deviceId;
    header.cdbLength = std::min<uint8_t>(cdbLength, sizeof header.cdb);
    header.dir = SL_DCMD_DIR_READ;
    header.timeoutSeconds = 30;
    memcpy(header.cdb, cdb, header.cdbLength);
    header.dataSize = length;
    memcpy(buffer.data(), &header, SL_SCSI_PASSTHRU_HEADER);

    _SL_LIB_CMD_PARAM_T param{};
    param.cmdType = SL_CMD_TYPE_PASSTHRU;
    param.cmd = SL_PASSTHRU_SCSI;
    param.ctrlId = ctrlId;
    param.pdDeviceId = deviceId;
    param.dataSize = static_cast<uint32_t>(buffer.size());
    param.pData = buffer.data();
    const uint32_t status = ProcessLibCommandCall(param);
    if (status != SL_SUCCESS) {
        VEK_LOG_ERROR(TAG, "ProcessLibCommandCall failed!! retVal 0x%x", status);
        length = 0;
        return status;
    }
    memcpy(&header, buffer.data(), SL_SCSI_PASSTHRU_HEADER);
    // A short or long transfer is usual for pages of a drive's own length:
    // what arrived is used.
    uint32_t arrived = length;
    if (header.ioStatus == SL_SCSI_IO_STATUS_DATA_UNDERRUN) {
        VEK_LOG_DEBUG(TAG, "SCSI DATA UNDERRUN");
        arrived = std::min(header.dataSize, length);
    } else if (header.ioStatus == SL_SCSI_IO_STATUS_DATA_OVERRUN) {
        VEK_LOG_DEBUG(TAG, "SCSI DATA OVERRUN");
    } else if (header.ioStatus != 0) {
        length = 0;
        return header.ioStatus;
    }
    if (header.scsiStatus != SL_SCSI_STATUS_GOOD) {
        length = 0;
        return header.scsiStatus;
    }
    memcpy(data, buffer.data() + SL_SCSI_PASSTHRU_HEADER, arrived);
    length = arrived;
    return SL_SUCCESS;
}

uint32_t vekStoreLibInterface::fireSCSIVPDInquiry(uint32_t ctrlId, uint16_t deviceId, uint8_t page, uint8_t* data,
                                                  uint32_t& length)
{
    length = std::min<uint32_t>(length, 0xFFFF);
    const uint8_t cdb[6] = {SCSI_OP_INQUIRY, 0x01, page, static_cast<uint8_t>(length >> 8),
                            static_cast<uint8_t>(length & 0xFF), 0};
    return fireSCSIPassThru(ctrlId, deviceId, cdb, sizeof cdb, data, length);
}

uint32_t vekStoreLibInterface::FireATAReadLogExt(uint32_t ctrlId, uint16_t deviceId, uint8_t page, uint8_t* buffer,
                                                 uint32_t size)
{
    const uint32_t blocks = std::min<uint32_t>(size / 512, 0xFFFF);
    uint8_t cdb[16] = {0};
    cdb[0] = SCSI_OP_ATA_PASSTHRU_16;
    cdb[1] = 4 << 1;   // PIO data-in
    cdb[2] = 0x0E;     // from the device, count in blocks, in the sector count field
    cdb[5] = static_cast<uint8_t>(blocks >> 8);
    cdb[6] = static_cast<uint8_t>(blocks & 0xFF);
    cdb[8] = page;     // the log address; its first page
    cdb[14] = ATA_CMD_READ_LOG_EXT;
    uint32_t length = blocks * 512;
    const uint32_t status = fireSCSIPassThru(ctrlId, deviceId, cdb, sizeof cdb, buffer, length);
    if (status == SL_SUCCESS && length < blocks * 512) {
        memset(buffer + length, 0, blocks * 512 - length);
    }
    return status;
}

// ---------------------------------------------------------------- tables

int vekStoreLibInterface::getHealth(int fwState)
{
    switch (fwState) {
    case MR_PD_STATE_UNCONFIGURED_GOOD:
    case MR_PD_STATE_HOT_SPARE:
    case MR_PD_STATE_ONLINE:
    case MR_PD_STATE_COPYBACK:
    case MR_PD_STATE_SYSTEM:
    case MR_PD_STATE_REBUILD:
        return 1;
    case MR_PD_STATE_UNCONFIGURED_BAD:
    case MR_PD_STATE_OFFLINE:
    case MR_PD_STATE_FAILED:
        return 4;
    default:
        return 3;
    }
}

std::string vekStoreLibInterface::getFWStateString(int fwState)
{
    switch (fwState) {
    case MR_PD_STATE_UNCONFIGURED_GOOD:
    case MR_PD_STATE_HOT_SPARE:
    case MR_PD_STATE_ONLINE:
    case MR_PD_STATE_COPYBACK:
    case MR_PD_STATE_SYSTEM:
        return "Online";
    case MR_PD_STATE_REBUILD:
        return "Rebuild";
    case MR_PD_STATE_UNCONFIGURED_BAD:
        return "Unconfigured bad";
    case MR_PD_STATE_OFFLINE:
        return "Offline";
    case MR_PD_STATE_FAILED:
        return "Failed";
    default:
        return "Unknown";
    }
}

int vekStoreLibInterface::getLDHealth(int ldState)
{
    switch (ldState) {
    case MR_LD_STATE_OFFLINE:
        return 4;
    case MR_LD_STATE_PARTIALLY_DEGRADED:
    case MR_LD_STATE_DEGRADED:
    case MR_LD_STATE_OPTIMAL:
        return 0;
    default:
        return 3;
    }
}

std::string vekStoreLibInterface::getLDStateString(int ldState)
{
    switch (ldState) {
    case MR_LD_STATE_OFFLINE:
        return "Offline";
    case MR_LD_STATE_PARTIALLY_DEGRADED:
        return "Partially degraded";
    case MR_LD_STATE_DEGRADED:
        return "Degraded";
    case MR_LD_STATE_OPTIMAL:
        return "Optimal";
    default:
        return "Undefined";
    }
}

std::string vekStoreLibInterface::getRAIDLevelString(int primary, int secondary, int spanDepth)
{
    // Secondary level 3 is the firmware's own spanning of a single level.
    if (secondary == 3) {
        return "SRL 3";
    }
    const std::map<int, std::string>& table = spanDepth > 1 ? SPANNED_RAID_TYPES : BASIC_RAID_TYPES;
    const auto found = table.find(primary);
    if (found != table.end()) {
        return found->second;
    }
    char text[16];
    snprintf(text, sizeof text, "0x%x", primary);
    return text;
}

std::string vekStoreLibInterface::getCtrlPCILoc(const _SL_PCI_INFO_T& pci)
{
    char text[32];
    snprintf(text, sizeof text, "%.04x:%.02x:%.02x.%.01x", pci.domain, pci.bus, pci.device, pci.function);
    return text;
}

// ---------------------------------------------------------------- cache

void vekStoreLibInterface::cacheBuild(const std::string& selector)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    if (!initializeMRsuccessful) {
        VEK_LOG_ERROR(TAG, "MR library was not initialized hence cancelling cache build");
        return;
    }
    if (selector == "All" || selector == "ALL_EVENT") {
        buildControllerInfo();
        buildPDInfo();
        buildLDInfo();
    } else if (selector == "PD_EVENT") {
        buildPDInfo();
    } else if (selector == "LD_EVENT") {
        buildLDInfo();
    } else if (selector == "CTRL_EVENT") {
        buildControllerInfo();
    }
}

std::string vekStoreLibInterface::getControllerSerialNo(uint32_t ctrlId, const _MR_CTRL_INFO* info)
{
    char safeId[41];
    if (getCtrlSafeID(ctrlId, safeId) == SL_SUCCESS) {
        VEK_LOG_DEBUG(TAG, "CtrlId [%u]: Safe ID [%s]", ctrlId, safeId);
    }
    // The board's own record first: the controller information's copy is
    // empty on some firmware.
    _MR_MFC_MFG mfg;
    if (GetMFCMFG(ctrlId, mfg, 0) == SL_SUCCESS) {
        const std::string serial = fieldText(mfg.boardSerialNumber, sizeof mfg.boardSerialNumber);
        if (!serial.empty()) {
            return serial;
        }
    }
    return info != nullptr ? fieldText(info->serialNo, sizeof info->serialNo) : std::string();
}

void vekStoreLibInterface::setDriveVendorName(uint32_t ctrlId, PD_INFO& pd)
{
    _MR_VPD_PAGE_D0 page;
    memset(&page, 0, sizeof page);
    uint32_t length = sizeof page;
    const uint32_t status =
        fireSCSIVPDInquiry(ctrlId, pd.deviceId, VPD_PAGE_DRIVE_VENDOR, reinterpret_cast<uint8_t*>(&page), length);
    if (status != SL_SUCCESS || length < offsetof(_MR_VPD_PAGE_D0, vendor) || page.pageCode != VPD_PAGE_DRIVE_VENDOR) {
        VEK_LOG_DEBUG(TAG, "Could not retrieve VPD Page D0 [%d]", static_cast<int>(status));
        return;
    }
    // Only an ATA drive's inquiry data lacks its maker.
    const size_t held = std::min<size_t>(length - offsetof(_MR_VPD_PAGE_D0, vendor), sizeof page.vendor);
    const std::string vendor = fieldText(page.vendor, held);
    if (pd.protocol == "SATA" && !vendor.empty()) {
        pd.vendor = vendor;
    }
}

void vekStoreLibInterface::populateDiskSerialNumber(uint32_t ctrlId, const _MR_PD_INFO& info, PD_INFO& pd)
{
    pd.serialNumber = fieldText(info.inquiryData + 36, 20);
    if (!pd.serialNumber.empty()) {
        return;
    }
    VEK_LOG_INFO(TAG, "No disk S/N available from SCSI Standard Inquiry page. Trying VPD page 0x80");
    uint8_t page[256] = {0};
    uint32_t length = sizeof page;
    const uint32_t status = fireSCSIVPDInquiry(ctrlId, pd.deviceId, VPD_PAGE_UNIT_SERIAL_NUMBER, page, length);
    if (status == SL_SUCCESS && length > 4 && page[1] == VPD_PAGE_UNIT_SERIAL_NUMBER) {
        const size_t declared = (static_cast<size_t>(page[2]) << 8) | page[3];
        pd.serialNumber = fieldText(page + 4, std::min<size_t>(declared, length - 4));
    }
    if (pd.serialNumber.empty()) {
        VEK_LOG_ERROR(TAG, "Unable to retrieve disk S/N from VPD Inquiry Page 0x80 for disk @ [%d:%d]. [%d]",
                      pd.enclosure, pd.slot, static_cast<int>(status));
        return;
    }
    VEK_LOG_INFO(TAG, "Disk S/N from VPD Page 0x80 for disk @ [%d:%d]: [%s]", pd.enclosure, pd.slot,
                 pd.serialNumber.c_str());
}

void vekStoreLibInterface::buildControllerInfo()
{
    controllers_.clear();
    _SL_CTRL_LIST_T list;
    if (getCtrlList(list) != SL_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Unable to read the list of MegaRAID controllers.");
        return;
    }
    // The list may have changed since the library was initialised: the
    // current index is into this one from now on.
    mergeControllerLists(list);
    std::map<size_t, uint32_t> ids;
    for (size_t i = 0; i < gTotalControllers; ++i) {
        ids[i] = gCtrlList.ctrlId[i] & 0x00FFFFFF;
    }
    VEK_LOG_INFO(TAG, "Total controllers found: %zu", ids.size());
    for (const auto& entry : ids) {
        currentCtrlIndex_ = static_cast<int>(entry.first);
        const uint32_t id = entry.second;
        CTRL_INFO ctrl;
        ctrl.ctrlId = id;
        ctrl.protocol = "SAS/SATA";
        _MR_CTRL_INFO info;
        const bool haveInfo = getCtrlInfoFunc(id, info) == SL_SUCCESS;
        ctrl.serialNumber = getControllerSerialNo(id, haveInfo ? &info : nullptr);
        if (haveInfo) {
            ctrl.model = fieldText(info.productName, sizeof info.productName);
            ctrl.firmwareVersion =
                fieldText(info.imageComponent[0].version, sizeof info.imageComponent[0].version);
            ctrl.chipsetId = (static_cast<uint32_t>(info.pci.deviceId) << 16) | info.pci.vendorId;
            ctrl.boardId = (static_cast<uint32_t>(info.pci.subDeviceId) << 16) | info.pci.subVendorId;
        } else {
            VEK_LOG_ERROR(TAG, "Unable to read the controller information of MegaRAID controller (ID: [%u]).", id);
        }
        // A controller whose information can't be read stays, with an empty model.
        if (haveInfo && ctrl.chipsetId != kChipsetSAS35xx && ctrl.chipsetId != kChipsetSAS39xx) {
            VEK_LOG_WARNING(TAG,
                            "Skipping the controller as chipset is not recognized. (vendorID= \t\t\t\t   0x%04X, "
                            "chipsetID= 0x%08X",
                            ctrl.chipsetId & 0xFFFF, ctrl.chipsetId);
            continue;
        }
        if (ctrl.chipsetId == kChipsetSAS39xx && (ctrl.boardId == 0x40001000 || ctrl.boardId == 0x40101000)) {
            ctrl.protocol = "SAS/SATA/NVMe";
        }
        _SL_PCI_INFO_T pci{};
        if (libraryCommand(SL_CMD_TYPE_LIBRARY, SL_LIB_GET_PCI_INFO, id, &pci, sizeof pci) == SL_SUCCESS) {
            ctrl.pciLocation = getCtrlPCILoc(pci);
        }
        controllers_.push_back(ctrl);
    }
    currentCtrlIndex_ = -1;
}

void vekStoreLibInterface::selectController(uint32_t ctrlId)
{
    currentCtrlIndex_ = -1;
    for (uint32_t i = 0; i < gTotalControllers; ++i) {
        if ((gCtrlList.ctrlId[i] & 0x00FFFFFF) == ctrlId) {
            currentCtrlIndex_ = static_cast<int>(i);
        }
    }
}

void vekStoreLibInterface::buildPDInfo()
{
    std::map<uint32_t, std::vector<PD_INFO>> previous;
    previous.swap(drives_);
    enclosures_.clear();
    for (const CTRL_INFO& ctrl : controllers_) {
        selectController(ctrl.ctrlId);
        // Events name a drive's enclosure by its index in this list.
        _MR_ENCL_LIST enclosures;
        if (GetEnclListFunc(ctrl.ctrlId, enclosures) == SL_SUCCESS) {
            std::map<int, int>& byIndex = enclosures_[ctrl.ctrlId];
            for (uint32_t i = 0; i < std::min<uint32_t>(enclosures.count, 64); ++i) {
                byIndex[enclosures.encl[i].index] = enclosures.encl[i].deviceId;
            }
        } else {
            VEK_LOG_WARNING(TAG, "CtrlId [%u]: Unable to read the list of enclosures.", ctrl.ctrlId);
        }
        std::vector<_MR_PD_ADDRESS> addresses;
        const uint32_t status = GetPDListFunc(ctrl.ctrlId, addresses);
        if (status != SL_SUCCESS) {
            VEK_LOG_ERROR(TAG, "CtrlId [%u]: Unable to read the list of physical drives. (0x%x)", ctrl.ctrlId, status);
            continue;
        }
        VEK_LOG_INFO(TAG, "Number of PD found %d", static_cast<int>(addresses.size()));
        std::vector<PD_INFO>& drives = drives_[ctrl.ctrlId];
        for (const _MR_PD_ADDRESS& address : addresses) {
            // Enclosures and other non-disk devices share the list.
            if (address.scsiDevType != 0) {
                continue;
            }
            _MR_PD_INFO info;
            if (FirePDInfo(ctrl.ctrlId, address.deviceId, info) != SL_SUCCESS) {
                VEK_LOG_ERROR(TAG, "CtrlId [%u]: Unable to read physical drive [%u].", ctrl.ctrlId,
                              address.deviceId);
                continue;
            }
            PD_INFO pd;
            pd.deviceId = info.deviceId;
            pd.enclosure = info.enclDeviceId;
            pd.slot = info.slotNumber;
            pd.vendor = fieldText(info.inquiryData + 8, 8);
            pd.model = fieldText(info.inquiryData + 16, 16);
            pd.revision = fieldText(info.inquiryData + 32, 4);
            switch (info.interfaceType) {
            case MR_PD_INTF_SAS:
                pd.protocol = "SAS";
                break;
            case MR_PD_INTF_SATA:
                pd.protocol = "SATA";
                break;
            case MR_PD_INTF_NVME:
                pd.protocol = "NVMe";
                break;
            case MR_PD_INTF_PARALLEL_SCSI:
                pd.protocol = "Parallel SCSI";
                break;
            default:
                pd.protocol = "Unknown";
                break;
            }
            pd.mediaType = info.mediaType == 1 ? "SSD" : "HDD";
            setDriveVendorName(ctrl.ctrlId, pd);
            populateDiskSerialNumber(ctrl.ctrlId, info, pd);
            pd.fwState = info.fwState;
            pd.health = getHealth(info.fwState);
            pd.capacityBytes = info.coercedSize * (info.logicalBlockSize != 0 ? info.logicalBlockSize : 512);
            try {
                discoverDriveConnectorNames(ctrl.ctrlId, pd.deviceId, pd.connectorNames);
            } catch (const vekBroadcom::Exception& e) {
                // The drive stays in the cache; only its place is lost.
                VEK_LOG_WARNING(TAG, "CtrlId [%u]: No connector names for PD (Device ID: [%hu]): %s", ctrl.ctrlId,
                                pd.deviceId, e.what());
            }
            // The counter outlives a rebuild of the cache; only events reset it.
            for (const PD_INFO& old : previous[ctrl.ctrlId]) {
                if (old.enclosure == pd.enclosure && old.slot == pd.slot && old.serialNumber == pd.serialNumber) {
                    pd.retryCount = old.retryCount;
                }
            }
            drives.push_back(pd);
        }
    }
    currentCtrlIndex_ = -1;
}

void vekStoreLibInterface::buildLDInfo()
{
    VEK_LOG_DEBUG(TAG, "Entering buildLDInfo");
    logicalDrives_.clear();
    for (const CTRL_INFO& ctrl : controllers_) {
        selectController(ctrl.ctrlId);
        _MR_LD_LIST list;
        if (GetLDListFunc(ctrl.ctrlId, list) != SL_SUCCESS) {
            VEK_LOG_ERROR(TAG, "An Error occurred in gathering list of logical drives from storelib library");
            continue;
        }
        const uint32_t count = std::min<uint32_t>(list.ldCount, MR_MAX_LOGICAL_DRIVES);
        VEK_LOG_INFO(TAG, "# of Logical Drives : %d", static_cast<int>(count));
        std::vector<LD_INFO>& lds = logicalDrives_[ctrl.ctrlId];
        const std::vector<PD_INFO>& drives = drives_[ctrl.ctrlId];
        for (uint32_t i = 0; i < count; ++i) {
            const uint8_t target = list.ldList[i].targetId;
            _MR_LD_INFO info;
            const uint32_t status = FireLDInfo(ctrl.ctrlId, target, info);
            if (status != SL_SUCCESS) {
                VEK_LOG_ERROR(TAG,
                              "CtrlId [%d]: FireLDInfo failed: (rval=[0x%x], targetId=[0x%x], i=[%u], LD count=[%u])",
                              static_cast<int>(ctrl.ctrlId), status, target, i, count);
                continue;
            }
            LD_INFO ld;
            ld.targetId = target;
            ld.name = fieldText(info.properties.name, sizeof info.properties.name);
            ld.durableName = hexBytes(info.vpdPage83 + 8, 16);
            ld.state = info.parameters.state;
            ld.raidLevel = getRAIDLevelString(info.parameters.primaryRaidLevel, info.parameters.secondaryRaidLevel,
                                              info.parameters.spanDepth);
            ld.capacityBytes = info.size * GetUserDataBlockSizeOfPdInLD(ctrl.ctrlId, target);
            // getPDInLD: the members by serial number.
            _MR_LD_PD_MAP map;
            if (GetLDPDMap(ctrl.ctrlId, target, map) == SL_SUCCESS) {
                for (uint32_t m = 0; m < std::min<uint32_t>(map.count, 64); ++m) {
                    for (const PD_INFO& pd : drives) {
                        if (pd.deviceId == map.pd[m].deviceId) {
                            ld.members.push_back(pd.serialNumber);
                        }
                    }
                }
            }
            lds.push_back(ld);
        }
    }
    currentCtrlIndex_ = -1;
}

std::vector<CTRL_INFO> vekStoreLibInterface::getControllerCollection()
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    return controllers_;
}

bool vekStoreLibInterface::getControllerInventory(uint32_t ctrlId, CTRL_INFO& info)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    for (const CTRL_INFO& ctrl : controllers_) {
        if (ctrl.ctrlId == ctrlId) {
            info = ctrl;
            return true;
        }
    }
    return false;
}

std::vector<PD_INFO> vekStoreLibInterface::getPDInventoryForCtrl(uint32_t ctrlId)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    const auto found = drives_.find(ctrlId);
    return found != drives_.end() ? found->second : std::vector<PD_INFO>();
}

std::vector<LD_INFO> vekStoreLibInterface::getLDInventoryForCtrl(uint32_t ctrlId)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    const auto found = logicalDrives_.find(ctrlId);
    return found != logicalDrives_.end() ? found->second : std::vector<LD_INFO>();
}

bool vekStoreLibInterface::getControllerID(const std::string& serial, uint32_t& ctrlId)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    for (const CTRL_INFO& ctrl : controllers_) {
        if (ctrl.serialNumber == serial) {
            ctrlId = ctrl.ctrlId;
            return true;
        }
    }
    return false;
}

void vekStoreLibInterface::resetPDRetryCounter(uint32_t ctrlId, int enclosure, int slot)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    for (PD_INFO& pd : drives_[ctrlId]) {
        if (pd.enclosure == enclosure && pd.slot == slot) {
            pd.retryCount = 0;
        }
    }
}
