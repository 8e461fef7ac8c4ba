#pragma once

// The one request/response exchange with the RMC, underneath both IPMI
// clients of the service. Everything above it (chunking, statuses, doorbells,
// the SDR walk) is the same whichever way the bytes travel:
//  - the Linux IPMI device, <root>/dev/ipmi0, the RMC being the local BMC on
//    the system interface;
//  - or, when VEK_IPMI_EXTERNAL holds HOST:PORT, a TCP connection speaking the
//    serial protocol of an external BMC (see vekIPMIExternalTransport.h).
// The choice is made once per transport object, by createTransport().

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace vekIPMI {

// Where an exchange failed, so that each client can raise its own exception
// for it. The device's failures and their external counterparts:
enum class TransportFailure {
    NotOpen,     // no descriptor / an address that is not HOST:PORT
    Send,        // IPMICTL_SEND_COMMAND failed / no connection, or writing failed
    WaitFailed,  // select failed / poll failed
    NoResponse,  // nothing readable / no answer within the receive timeout
    Receive,     // IPMICTL_RECEIVE_MSG_TRUNC failed / the link dropped meanwhile
};

const char* transportFailureName(TransportFailure failure);

class TransportException : public std::runtime_error {
public:
    TransportException(TransportFailure failure, int errorCode, const std::string& what);

    TransportFailure failure() const { return failure_; }
    // errno of the failing call, 0 when there was none.
    int errorCode() const { return errorCode_; }

private:
    TransportFailure failure_;
    int errorCode_;
};

// The largest answer a client needs room for: completion code and data.
const size_t kMaxResponseSize = 272;

class Transport {
public:
    virtual ~Transport() = default;

    // Makes the transport usable: opens the device, or connects the shared
    // link. False when that is not possible now; nothing is thrown.
    virtual bool open() = 0;
    virtual bool isOpen() const = 0;
    // Releases what this object holds. The shared external link stays up for
    // the other users of the process.
    virtual void close() = 0;

    // Sends one request and waits for its answer. On entry responseLen is the
    // capacity of response; on return it is the number of bytes stored there:
    // the completion code first, then the data, cut to the capacity. Returns
    // the full length of the answer. Throws TransportException.
    virtual size_t exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len,
                            uint8_t* response, size_t& responseLen) = 0;

    // Device path or "HOST:PORT", for log lines.
    virtual std::string describe() const = 0;
};

// The Linux IPMI device: one descriptor per object, closed with it.
class DeviceTransport : public Transport {
public:
    explicit DeviceTransport(std::string devicePath);
    ~DeviceTransport() override;

    DeviceTransport(const DeviceTransport&) = delete;
    DeviceTransport& operator=(const DeviceTransport&) = delete;

    bool open() override;
    bool isOpen() const override { return fd_ >= 0; }
    void close() override;
    size_t exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len, uint8_t* response,
                    size_t& responseLen) override;
    std::string describe() const override { return path_; }

private:
    std::string path_;
    int fd_;
};

// <root>/dev/ipmi0.
std::string ipmiDevicePath();

// The external address from VEK_IPMI_EXTERNAL, empty when production rules.
std::string externalAddressFromEnv();

// The device, or the external link when VEK_IPMI_EXTERNAL is set. Not opened.
std::unique_ptr<Transport> createTransport();

} // namespace vekIPMI
