#include "vekIPMIService.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekIPMIExceptions.h"
#include "vekLog.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {
const char TAG[] = "IPMI_SERVICE";

const int kDefaultChannelWidth = 64;
// Pause after the last chunk of a command, so that the RMC has carried it
// out before the next one comes.
const std::chrono::milliseconds kPauseAfterCommand(500);
const long kDriverSettleSeconds = 3;
// The chunk buffer of a payload: the payload, its NUL and room to spare.
const size_t kPayloadBufferExtra = 22;

// A failed exchange as the callers of execute() and sendData() see it: a
// plain std::exception whose text says what failed (a process that it ends
// prints that text); the sender's failure code (request or response) stays
// inside this file for the status log.
class ExecFailure : public std::exception {
public:
    ExecFailure(int code, std::string what) : code_(code), what_(std::move(what)) {}
    const char* what() const noexcept override { return what_.c_str(); }
    int code() const { return code_; }

private:
    int code_;
    std::string what_;
};

// Raises the channel's own exception for a failure of the transport.
[[noreturn]] void raiseTransportFailure(const vekIPMI::TransportException& e)
{
    using vekIPMI::TransportFailure;
    switch (e.failure()) {
    case TransportFailure::NotOpen:
        throw ipmi_exceptions::invalid_handle(e.what());
    case TransportFailure::Send:
        throw ipmi_exceptions::send_error(
            vekLog::format("  Request ioctl failure with error code : %d", e.errorCode()) + " (" + e.what() + ")");
    case TransportFailure::WaitFailed:
        throw ipmi_exceptions::wait_fd_free_failed(e.what());
    case TransportFailure::NoResponse:
        throw ipmi_exceptions::wait_error(e.what());
    case TransportFailure::Receive:
        throw ipmi_exceptions::no_ack(vekLog::format("  Unable to read acknowlegement : %d", e.errorCode()) + " (" +
                                      e.what() + ")");
    }
    throw ipmi_exceptions::no_ack(e.what());
}

} // namespace

vekIPMIService& vekIPMIService::getInstance()
{
    static vekIPMIService instance(kDefaultChannelWidth);
    return instance;
}

vekInbandComInterface* vekIPMIService::getInbandComInterface()
{
    return &getInstance();
}

vekIPMI::IPMIServiceInterface& vekIPMIService::getIPMIServiceInterface()
{
    return getInstance();
}

vekIPMIService::vekIPMIService(int channelWidth) : IPMI_Channel_width(channelWidth)
{
    if (IPMI_Channel_width < static_cast<int>(vekIPMI::rmcCli::kChunkSize)) {
        throw std::invalid_argument("IPMI channel width " + std::to_string(channelWidth) +
                                    " is too small for an RMC CLI chunk");
    }
    try {
        openHandle();
    } catch (const std::runtime_error&) {
        VEK_LOG_ERROR(TAG, "Unable to Open IPMI channel - Bailing out");
        throw;
    }
}

vekIPMIService::~vekIPMIService() = default;

void vekIPMIService::openHandle()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (transport_ && transport_->isOpen()) {
        return;
    }
    transport_ = vekIPMI::createTransport();
    if (transport_->open()) {
        VEK_LOG_INFO(TAG, "IPMI channel %s open", transport_->describe().c_str());
        return;
    }
    VEK_LOG_ERROR(TAG, "Unable to open IPMI channel %s", transport_->describe().c_str());
    if (dynamic_cast<vekIPMI::DeviceTransport*>(transport_.get()) != nullptr) {
        // The drivers may not be loaded yet; the next start finds the device.
        reinitIPMIDevice();
    }
    throw std::runtime_error("IPMI - Connection - Failed");
}

void vekIPMIService::reinitIPMIDevice()
{
    const std::string device = vekConfig::getEnv() + "/dev/ipmi0";
    const std::vector<std::string> commands = {
        "modprobe ipmi_msghandler > /dev/null 2>&1",
        "modprobe ipmi_si > /dev/null 2>&1",
        "modprobe ipmi_devintf > /dev/null 2>&1",
        "modprobe ipmi_watchdog > /dev/null 2>&1",
        "modprobe ipmi_ssif > /dev/null 2>&1",
        vekGlobalDef::VMwareOSUtils::composeCommand(
            "mknod -m 0600 {} c `cat /proc/devices | grep ipmidev |cut -d \" \" -f 1` 0 > /dev/null 2>&1", {device}),
    };
    for (const std::string& command : commands) {
        const int status = vekGlobalDef::VMwareOSUtils::runHostCommand(command).status;
        VEK_LOG_DEBUG(TAG, "Reinitialising IPMI: [%s] returned %d", command.c_str(), status);
    }
    std::this_thread::sleep_for(vekGlobalDef::timeUtils::scaledSeconds(kDriverSettleSeconds));
}

void vekIPMIService::execute(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t dataLen,
                             uint8_t* response, size_t& responseLen, uint8_t& completionCode)
{
    VEK_LOG_DEBUG(TAG, "Transfer data through IPMI: rq [%hu %02x %02x %02x]; rp [%hu]",
                  static_cast<unsigned short>(dataLen), netfn, cmd, lun, static_cast<unsigned short>(responseLen));
    try {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!transport_ || !transport_->isOpen()) {
            throw ipmi_exceptions::invalid_handle();
        }
        uint8_t answer[vekIPMI::kMaxResponseSize];
        size_t answerLen = sizeof(answer);
        try {
            transport_->exchange(netfn, cmd, lun, data, dataLen, answer, answerLen);
        } catch (const vekIPMI::TransportException& e) {
            raiseTransportFailure(e);
        }
        if (answerLen == 0) {
            throw ipmi_exceptions::no_ack("  Unable to read acknowlegement : 0 (empty answer)");
        }
        completionCode = answer[0];
        const size_t stored = std::min(answerLen - 1, responseLen);
        if (stored > 0) {
            std::memcpy(response, answer + 1, stored);
        }
        responseLen = stored;
    } catch (const ipmi_exceptions::ipmi_error& e) {
        VEK_LOG_ERROR(TAG, "IPMI exec failed %s", e.what());
        const bool requestFailed = dynamic_cast<const ipmi_exceptions::invalid_handle*>(&e) != nullptr ||
                                   dynamic_cast<const ipmi_exceptions::send_error*>(&e) != nullptr;
        throw ExecFailure(requestFailed ? vekIPMI::rmcCli::kRequestFailure : vekIPMI::rmcCli::kResponseFailure,
                          e.what());
    }
}

void vekIPMIService::sendData(std::string command, std::string data)
{
    using namespace vekIPMI::rmcCli;
    if (command.empty() || data.empty() || command.size() > kNameFieldLength) {
        VEK_LOG_ERROR(TAG, "Provided command / arguments is not valid");
        throw ipmi_exceptions::invalid_arguments();
    }
    std::vector<uint8_t> buffer;
    try {
        buffer.assign(data.size() + kPayloadBufferExtra, 0);
    } catch (const std::bad_alloc&) {
        throw ipmi_exceptions::memory_error();
    }
    std::memcpy(buffer.data(), data.data(), data.size());

    Outcome outcome;
    try {
        outcome = transfer(command, buffer.data(), data.size() + 1, StopRule::SendAll,
                           [this](const uint8_t* chunk, Reply& reply) {
                               uint8_t answer[kReplySize] = {0};
                               size_t answerLen = sizeof(answer);
                               uint8_t completionCode = 0xFF;
                               execute(kNetFn, kCmdChunk, 0, chunk, kChunkSize, answer, answerLen, completionCode);
                               reply = readReply(completionCode, answer, answerLen);
                               return true;
                           });
    } catch (const std::exception& e) {
        // The channel itself failed: this ends the worker that sends, and
        // with it the process, which prints the text of the failure.
        const ExecFailure* failure = dynamic_cast<const ExecFailure*>(&e);
        VEK_LOG_ERROR(TAG, "RMC Cli Command Execution failed");
        LogRetStatus(true, failure != nullptr ? failure->code() : -1, 0);
        throw;
    }
    std::this_thread::sleep_for(vekGlobalDef::timeUtils::scaled(kPauseAfterCommand));
    if (outcome.noStatus) {
        // An answer, not a failure of the channel: the payload is lost, the
        // next command goes out as usual.
        logNoStatus(TAG, command, outcome);
        return;
    }
    LogRetStatus(false, outcome.status, outcome.exitStatus);
}

void vekIPMIService::sendData(std::string command, std::string data, std::function<void(int)> callback)
{
    try {
        sendData(std::move(command), std::move(data));
        VEK_LOG_DEBUG(TAG, "Delivered Data through IPMI");
        if (callback) {
            callback(0);
        }
    } catch (const std::exception&) {
        VEK_LOG_ERROR(TAG, "Failed to deliver data through IPMI");
        if (callback) {
            callback(-1);
        }
    }
}

void vekIPMIService::LogRetStatus(bool sendingFailed, int status, int exitStatus)
{
    if (sendingFailed) {
        vekIPMI::rmcCli::logCallerFailure(TAG, status, status, exitStatus);
    } else {
        vekIPMI::rmcCli::logTransferStatus(TAG, status, exitStatus, nullptr);
    }
}

int vekIPMIService::readDoorBell(int level)
{
    using namespace vekIPMI::rmcCli;
    VEK_LOG_DEBUG(TAG, "Checking IPMI door bell request");
    unsigned char buffer[kDoorbellBufferSize] = {0};
    if (level < kLowestDoorbell || level > kHighestDoorbell) {
        return checkIPMIBuffer(level, buffer);
    }
    try {
        size_t length = sizeof(buffer) - 1;
        uint8_t completionCode = 0xFF;
        execute(kNetFn, static_cast<uint8_t>(kCmdDoorbellBase + level), 0, nullptr, 0, buffer, length,
                completionCode);
        if (completionCode != 0) {
            logDoorbellCompletionCode(TAG, level, completionCode);
            return 0;
        }
        buffer[length] = '\0';
        VEK_LOG_DEBUG(TAG, "Received doorbell string (%s)", reinterpret_cast<const char*>(buffer));
        return checkIPMIBuffer(level, buffer);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Unable to read doorbell %d: %s", level, e.what());
        return 0;
    }
}

int vekIPMIService::checkIPMIBuffer(int level, unsigned char* buffer)
{
    return vekIPMI::rmcCli::doorbellAnswer(TAG, level, buffer);
}
