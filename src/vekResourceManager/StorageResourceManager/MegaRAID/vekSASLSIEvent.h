#pragma once

#include "vekStoreLibSDK.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

// Severity classes of a firmware event, as the service counts them.
enum VEK_SAS_EVENT_CLASS {
    VEK_SAS_EVENT_CLASS_DEBUG = 0,
    VEK_SAS_EVENT_CLASS_PROGRESS = 1,
    VEK_SAS_EVENT_CLASS_INFO = 2,
    VEK_SAS_EVENT_CLASS_WARNING = 3,
    VEK_SAS_EVENT_CLASS_CRITICAL = 4,
    VEK_SAS_EVENT_CLASS_FATAL = 5,
    VEK_SAS_EVENT_CLASS_DEAD = 6,
    VEK_SAS_EVENT_CLASS_UNKNOWN = 7,
};

// One firmware event, as the library's callback turned it into the service's terms.
struct VEK_SAS_EVENT_DETAIL {
    uint32_t code = 0;
    int eventClass = VEK_SAS_EVENT_CLASS_UNKNOWN;
    std::string locale;
    uint32_t ctrlId = 0;
    std::string ctrlSerialNumber;
    // The PL of the device the event names; "NotAvailable" when unknown.
    std::string deviceLocation = "NotAvailable";
    // "[Msg # 0x%04x] <firmware text>".
    std::string description;
    int pdEnclosure = -1;
    int pdSlot = -1;
    // The block of a medium error, when the event names one.
    uint64_t pdBlock = 0;
    int ldTargetId = -1;
    _MR_EVT_DETAIL body{};
};

typedef void (*VEK_SAS_EVENT_HANDLER)(VEK_SAS_EVENT_DETAIL* detail);

// Registration for the MegaRAID firmware's asynchronous events (AENs) of all
// controllers at once, and the callback that turns each into a
// VEK_SAS_EVENT_DETAIL for handleEvent.
class vekSASLSIEvent {
public:
    static vekSASLSIEvent& getInstance();

    bool RegisterForAEN(VEK_SAS_EVENT_HANDLER callback);
    bool UnregisterForAEN();
    uint32_t RegisterAENCall(_SL_REG_AEN_INPUT_T& input);
    uint32_t IssueEventSequenceInfo(_MR_EVT_LOG_INFO& info, uint32_t ctrlId);
    bool isRegistered() const { return registered_; }

    // Runs on the library's thread.
    static void AENCallBack(_SL_EVENT_DETAIL_T* detail);
    // Filters by locale and class and hands the event to its controller.
    static void handleEvent(VEK_SAS_EVENT_DETAIL* detail);

    static int translateClass(int8_t libraryClass);
    // "PD_EVENT", "LD_EVENT"...: by the locale bits, else by the code; empty
    // when neither tells.
    static std::string localeWord(uint16_t locale, uint32_t code);
    // The drive an event names, by its argument type; false for a type that
    // names no drive.
    static bool readPDArgument(const _MR_EVT_DETAIL& event, int& enclosure, int& slot, uint64_t& block);
    // The logical drive an event names; false for a type that names none.
    static bool readLDArgument(const _MR_EVT_DETAIL& event, int& targetId);
    // How long the event path waits for a lock held by a build.
    static std::chrono::milliseconds lockWait();

private:
    vekSASLSIEvent() = default;
    void convert(const _SL_EVENT_DETAIL_T& in, VEK_SAS_EVENT_DETAIL& out);

    // Set while the registration ends; a callback then only wakes the waiter.
    std::atomic<bool> removing_{false};
    std::mutex removeMutex_;
    std::condition_variable removeSignal_;
    std::atomic<VEK_SAS_EVENT_HANDLER> callback_{nullptr};
    std::atomic<bool> registered_{false};
    uint32_t uniqueId_ = 0;
};
