#include "vekSASLSIEvent.h"

#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekMegaRAIDController.h"
#include "vekMegaRAIDControllerFactory.h"
#include "vekStoreLibInterface.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <thread>

using vekGlobalDef::timeUtils;

namespace {

const char TAG[] = "LSI_EVENT_INTERF";

const uint16_t kAllLocales = 0xFFFF;

template <typename T>
T readArgument(const _MR_EVT_DETAIL& event, size_t offset)
{
    T value;
    memcpy(&value, event.args + offset, sizeof value);
    return value;
}

} // namespace

vekSASLSIEvent& vekSASLSIEvent::getInstance()
{
    // Never destroyed: the library's thread may call back until process exit.
    static vekSASLSIEvent* const instance = new vekSASLSIEvent();
    return *instance;
}

std::chrono::milliseconds vekSASLSIEvent::lockWait()
{
    // A build of a large controller takes seconds; an event that waits longer
    // is dropped rather than hang the library's thread.
    return timeUtils::scaledAtLeast(std::chrono::seconds(10), std::chrono::seconds(2));
}

uint32_t vekSASLSIEvent::IssueEventSequenceInfo(_MR_EVT_LOG_INFO& info, uint32_t ctrlId)
{
    return vekStoreLibInterface::getInstance().IssueEventSequenceInfo(ctrlId, info);
}

uint32_t vekSASLSIEvent::RegisterAENCall(_SL_REG_AEN_INPUT_T& input)
{
    _SL_LIB_CMD_PARAM_T param{};
    param.cmdType = SL_CMD_TYPE_LIBRARY;
    param.cmd = SL_LIB_REGISTER_AEN;
    param.dataSize = sizeof input;
    param.pData = &input;
    return vekStoreLibInterface::getInstance().ProcessLibCommandCall(param);
}

bool vekSASLSIEvent::RegisterForAEN(VEK_SAS_EVENT_HANDLER callback)
{
    vekStoreLibInterface& lib = vekStoreLibInterface::getInstance();
    if (!lib.vekStoreInit()) {
        return false;
    }
    callback_ = callback;
    _SL_REG_AEN_INPUT_T input;
    memset(&input, 0, sizeof input);
    const std::vector<uint32_t> ids = lib.getLibraryControllerIds();
    for (uint32_t id : ids) {
        _MR_EVT_LOG_INFO info;
        const uint32_t status = IssueEventSequenceInfo(info, id);
        if (status != SL_SUCCESS) {
            VEK_LOG_WARNING(TAG,
                            "Failed to determine event sequence info.                             Skipping AEN "
                            "registration for this controller. (ID: [%u]; rval = [0x%x])",
                            id, status);
            continue;
        }
        input.ctrl[input.count].ctrlId = id;
        input.ctrl[input.count].locale = kAllLocales;
        input.ctrl[input.count].evtClass = 0;
        input.ctrl[input.count].seqNum = info.newestSeqNum + 1;
        ++input.count;
    }
    if (input.count == 0) {
        VEK_LOG_ERROR(TAG, "Unable to register for AEN: No controllers could be selected. (Total: [%u]; Selected: [%u])",
                      static_cast<unsigned>(ids.size()), input.count);
        return false;
    }
    input.pFunc = AENCallBack;
    removing_ = false;
    const uint32_t status = RegisterAENCall(input);
    if (status == SL_SUCCESS) {
        uniqueId_ = input.uniqueId;
        registered_ = true;
        VEK_LOG_INFO(TAG, "AEN Registration successful for [%u] LSI MR controllers. (Unique ID: [0x%x])", input.count,
                     uniqueId_);
        return true;
    }
    const char* word = "RegisterAEN command failed";
    switch (status) {
    case SL_ERR_INIT_NOT_DONE:
        word = "Init not done";
        break;
    case SL_ERR_WMI_INIT:
        word = "WMI Init failed";
        break;
    case SL_ERR_WMI_REGISTRATION:
        word = "WMI Registration failed";
        break;
    case SL_ERR_COM_INIT:
        word = "COM Init failed";
        break;
    case SL_ERR_INVALID_EVENT_MASK:
        word = "Invalid Event Mask";
        break;
    case SL_ERR_COMMAND_TIMEOUT:
        word = "Command Timeout";
        break;
    case SL_ERR_INVALID_CTRL:
        word = "Invalid controller";
        break;
    case SL_ERR_MEMORY_ALLOCATION:
        word = "Memory Allocation failed";
        break;
    default:
        break;
    }
    VEK_LOG_ERROR(TAG, "%s", word);
    return false;
}

bool vekSASLSIEvent::UnregisterForAEN()
{
    // Callbacks that arrive from now on only wake us.
    removing_ = true;
    const int attempts = 3;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        _SL_LIB_CMD_PARAM_T param{};
        param.cmdType = SL_CMD_TYPE_LIBRARY;
        param.cmd = SL_LIB_UNREGISTER_AEN;
        param.ctrlId = uniqueId_;
        const uint32_t status = vekStoreLibInterface::getInstance().ProcessLibCommandCall(param);
        if (status == SL_SUCCESS) {
            registered_ = false;
            return true;
        }
        VEK_LOG_ERROR(TAG, "Failed to unregister AEN for LSI MR controllers on attempt #%d. (Unique ID: [0x%x]; rval: [0x%x])",
                      attempt, uniqueId_, status);
    }
    return false;
}

int vekSASLSIEvent::translateClass(int8_t libraryClass)
{
    return libraryClass >= -2 && libraryClass <= 4 ? libraryClass + 2 : VEK_SAS_EVENT_CLASS_UNKNOWN;
}

std::string vekSASLSIEvent::localeWord(uint16_t locale, uint32_t code)
{
    static const std::pair<uint16_t, const char*> bits[] = {
        {1, "LD_EVENT"},       {2, "PD_EVENT"},    {4, "ENCLOSURE_EVENT"},   {8, "BBU_EVENT"},
        {16, "SAS_EVENT"},     {32, "CTRL_EVENT"}, {64, "CONFIG_CHNG_EVENT"}, {128, "CLUSTER_EVENT"},
    };
    if (locale != 0) {
        for (const auto& bit : bits) {
            if ((locale & bit.first) != 0) {
                return bit.second;
            }
        }
        return "ALL_EVENT";
    }
    static const std::set<uint32_t> ldCodes = {79, 138, 139};
    static const std::set<uint32_t> pdCodes = {118, 132, 133, 134, 135, 136, 137, 244, 245, 262,
                                               288, 289, 298, 333, 334, 392, 393, 543, 544};
    static const std::set<uint32_t> ctrlCodes = {11, 323, 324, 325, 326};
    if (ldCodes.count(code) != 0) {
        return "LD_EVENT";
    }
    if (pdCodes.count(code) != 0) {
        return "PD_EVENT";
    }
    if (ctrlCodes.count(code) != 0) {
        return "CTRL_EVENT";
    }
    if (code == 2) {
        return "BBU_EVENT";
    }
    if (code == 231 || code == 232) {
        return "CONFIG_CHNG_EVENT";
    }
    return "";
}

bool vekSASLSIEvent::readPDArgument(const _MR_EVT_DETAIL& event, int& enclosure, int& slot, uint64_t& block)
{
    // Where the drive's address sits in the argument, by its type.
    static const std::set<int> first = {1, 10, 11, 14, 22, 23, 28, 33, 34, 44, 45, 48, 49, 51, 53, 57};
    size_t offset = 0;
    if (first.count(event.argType) != 0) {
        offset = 0;
    } else if (event.argType == 12 || event.argType == 13) {
        offset = 8;
    } else if (event.argType == 15 || event.argType == 35) {
        offset = 8;
        block = readArgument<uint64_t>(event, 0);
    } else if (event.argType == 26) {
        offset = 16;
    } else if (event.argType == 29) {
        offset = 24;
    } else {
        return false;
    }
    const _MR_EVT_ARG_PD pd = readArgument<_MR_EVT_ARG_PD>(event, offset);
    enclosure = pd.enclIndex;
    slot = pd.slotNumber;
    return true;
}

bool vekSASLSIEvent::readLDArgument(const _MR_EVT_DETAIL& event, int& targetId)
{
    size_t offset = 0;
    switch (event.argType) {
    case 2:
    case 3:
    case 5:
    case 7:
    case 8:
    case 9:
        offset = 0;
        break;
    case 4:
        offset = 8;
        break;
    case 6:
        offset = 16;
        break;
    default:
        return false;
    }
    targetId = readArgument<_MR_EVT_ARG_LD>(event, offset).targetId;
    return true;
}

void vekSASLSIEvent::convert(const _SL_EVENT_DETAIL_T& in, VEK_SAS_EVENT_DETAIL& out)
{
    out.body = in.evtDetail;
    out.body.description[sizeof out.body.description - 1] = '\0';
    out.ctrlId = in.ctrlId;
    out.code = out.body.code;
    out.eventClass = translateClass(out.body.evtClass);
    out.locale = localeWord(out.body.locale, out.code);
    char text[sizeof out.body.description + 32];
    snprintf(text, sizeof text, "[Msg # 0x%04x] %s", out.code, out.body.description);
    out.description = text;
}

void vekSASLSIEvent::AENCallBack(_SL_EVENT_DETAIL_T* detail)
{
    vekSASLSIEvent& self = getInstance();
    if (detail == nullptr || self.removing_ || detail->status != 0) {
        std::lock_guard<std::mutex> lock(self.removeMutex_);
        self.removeSignal_.notify_all();
        return;
    }
    try {
        VEK_SAS_EVENT_DETAIL event;
        self.convert(*detail, event);
        vekStoreLibInterface& lib = vekStoreLibInterface::getInstance();
        {
            auto lock = lib.takeLock(lockWait());
            if (!lock.owns_lock()) {
                VEK_LOG_ERROR(TAG, "Event (0x%x) of controller [%u] dropped: the library cache stays busy.",
                              event.code, event.ctrlId);
                return;
            }
            CTRL_INFO ctrl;
            if (!lib.getControllerInventory(event.ctrlId, ctrl)) {
                VEK_LOG_ERROR(TAG, "Event (0x%x) for unknown MegaRAID controller [%u] dropped.", event.code,
                              event.ctrlId);
                return;
            }
            event.ctrlSerialNumber = ctrl.serialNumber;
            if (event.locale == "PD_EVENT") {
                // Events name a drive's enclosure by its index, the cache by its device id.
                int enclosureIndex = -1;
                int slot = -1;
                if (!readPDArgument(event.body, enclosureIndex, slot, event.pdBlock)) {
                    VEK_LOG_INFO(TAG, "Ignoring LSI MegaRAID PD-locale event argument type: [%d]; Event code: [0x%x]",
                                 event.body.argType, event.code);
                } else {
                    if (!lib.getEnclosureDeviceId(event.ctrlId, enclosureIndex, event.pdEnclosure)) {
                        // A list that could not be read, or a drive behind no
                        // enclosure: the event's own number is all there is.
                        VEK_LOG_INFO(TAG,
                                     "Enclosure index [%d] of event (0x%x) not in the enclosure list of controller "
                                     "[%u].",
                                     enclosureIndex, event.code, event.ctrlId);
                        event.pdEnclosure = enclosureIndex;
                    }
                    event.pdSlot = slot;
                    if (event.code == 91 || event.code == 114) {
                        VEK_LOG_INFO(TAG,
                                     "Resetting retry/failure counters on PD inserted/state-change event @ [%d:%d].",
                                     event.pdEnclosure, event.pdSlot);
                        lib.resetPDRetryCounter(event.ctrlId, event.pdEnclosure, event.pdSlot);
                    }
                }
            } else if (event.locale == "LD_EVENT") {
                if (!readLDArgument(event.body, event.ldTargetId)) {
                    VEK_LOG_INFO(TAG, "Ignoring LSI MegaRAID LD-locale event argument type: [%d]; Event code: [0x%x]",
                                 event.body.argType, event.code);
                }
            }
        }
        VEK_SAS_EVENT_HANDLER handler = self.callback_;
        if (handler != nullptr) {
            handler(&event);
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "MegaRAID event dropped: %s", e.what());
    }
}

void vekSASLSIEvent::handleEvent(VEK_SAS_EVENT_DETAIL* detail)
{
    static const std::set<std::string> accepted = {"PD_EVENT", "CTRL_EVENT", "LD_EVENT", "BBU_EVENT", "ALL_EVENT"};
    if (detail == nullptr || accepted.count(detail->locale) == 0) {
        return;
    }
    VEK_LOG_INFO(TAG, "Locale received: %s, eventClass= %d", detail->locale.c_str(), detail->eventClass);
    if (detail->eventClass < VEK_SAS_EVENT_CLASS_INFO || detail->eventClass > VEK_SAS_EVENT_CLASS_DEAD) {
        VEK_LOG_DEBUG(TAG, "Event received for lesser severity ignoring the FW event");
        return;
    }
    if (detail->locale == "ALL_EVENT") {
        VEK_LOG_DEBUG(TAG, "Received event of other locale ignoring the FW event");
        return;
    }
    std::vector<IvekStorageController*> controllers;
    vekMegaRAIDControllerFactory::getInstance().getControllers(VEK_STORAGE_FAMILY_MEGARAID, controllers);
    VEK_LOG_DEBUG(TAG, "# of controllers in list: [%zu]", controllers.size());
    bool delivered = false;
    for (IvekStorageController* controller : controllers) {
        auto* megaraid = dynamic_cast<vekMegaRAIDController*>(controller);
        if (!delivered && megaraid != nullptr && megaraid->getDeviceName() == detail->ctrlSerialNumber) {
            delivered = true;
            if (megaraid->isRemoved()) {
                VEK_LOG_INFO(TAG, "MegaRAID [%s]: Event (0x%x) for a controller being removed is dropped.",
                             detail->ctrlSerialNumber.c_str(), detail->code);
            } else {
                megaraid->analyzeAndGenerateEvent(*detail);
            }
        }
    }
    for (IvekStorageController* controller : controllers) {
        controller->releaseReference();
    }
    if (!delivered) {
        VEK_LOG_INFO(TAG, "MegaRAID [%s]: No controller in inventory for event (0x%x).",
                     detail->ctrlSerialNumber.c_str(), detail->code);
    }
}
