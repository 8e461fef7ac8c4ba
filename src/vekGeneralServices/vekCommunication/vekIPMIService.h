#pragma once

// The service's long-lived channel to the RMC: RMC CLI commands (inventory,
// events, telemetry) in chunks, the doorbells, and the standard commands the
// SDR cache needs. One per process, over vekIPMI::Transport, so that it works
// the same on the IPMI device and on the external link of a test or
// simulation (VEK_IPMI_EXTERNAL).
//
// execute() holds the mutex for one request and its answer only: chunks of a
// payload may interleave with doorbell reads of other threads. Payloads are
// kept apart by the single worker of the communication manager.

#include "vekIPMIServiceInterface.h"
#include "vekIPMITransport.h"
#include "vekInbandComInterface.h"
#include "vekRMCCliProtocol.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

class vekIPMIService : public vekInbandIPMIBase, public vekIPMI::IPMIServiceBase {
public:
    // The singleton, made with a channel width of 64 at the first call. When
    // the channel cannot be opened this throws std::runtime_error, and the
    // next call tries again.
    static vekIPMIService& getInstance();
    static vekInbandComInterface* getInbandComInterface();
    static vekIPMI::IPMIServiceInterface& getIPMIServiceInterface();

    ~vekIPMIService() override;
    vekIPMIService(const vekIPMIService&) = delete;
    vekIPMIService& operator=(const vekIPMIService&) = delete;

    // Opens the channel (on the external link: connects, within a bounded
    // time); on failure reloads the IPMI drivers of the device and throws
    // std::runtime_error("IPMI - Connection - Failed").
    void openHandle() override;

    // Sends the payload as the RMC CLI command. An empty command or payload,
    // or a name longer than 20 bytes, throws ipmi_exceptions::invalid_arguments;
    // a failing channel throws std::exception with the failure's text. The
    // RMC's answers are logged only: an error status, and a chunk answered
    // with a completion code other than 0, which ends the command there (no
    // next index came) and loses the payload.
    void sendData(std::string command, std::string data) override;
    void sendData(std::string command, std::string data, std::function<void(int)> callback) override;
    // Doorbell 1, 2 or 3; see checkIPMIBuffer. 0 on any failure.
    int readDoorBell(int level) override;

    void execute(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t dataLen, uint8_t* response,
                 size_t& responseLen, uint8_t& completionCode) override;

    // What a doorbell's answer means (see vekRMCCliProtocol.h).
    int checkIPMIBuffer(int level, unsigned char* buffer);
    // Logs the final status of a command: as the RMC returned it, or, when
    // the sending failed, the code of that failure.
    void LogRetStatus(bool sendingFailed, int status, int exitStatus);

protected:
    // For tests: a service of its own, outside the singleton.
    explicit vekIPMIService(int channelWidth);

private:
    // Loads the IPMI drivers and makes the device node again.
    void reinitIPMIDevice();

    std::unique_ptr<vekIPMI::Transport> transport_;
    // Data bytes a request may carry; a chunk must fit.
    int IPMI_Channel_width;
    std::mutex mutex_;
};
