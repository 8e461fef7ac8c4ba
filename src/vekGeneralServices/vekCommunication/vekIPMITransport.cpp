#include "vekIPMITransport.h"

#include "vekConfig.h"
#include "vekIPMIExternalTransport.h"
#include "vekLog.h"

#include <linux/ipmi.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {
const char TAG[] = "IPMI_TRANSPORT";
}

namespace vekIPMI {

const char* transportFailureName(TransportFailure failure)
{
    switch (failure) {
    case TransportFailure::NotOpen:
        return "not open";
    case TransportFailure::Send:
        return "send";
    case TransportFailure::WaitFailed:
        return "wait";
    case TransportFailure::NoResponse:
        return "no response";
    case TransportFailure::Receive:
        return "receive";
    }
    return "unknown";
}

TransportException::TransportException(TransportFailure failure, int errorCode, const std::string& what)
    : std::runtime_error(what), failure_(failure), errorCode_(errorCode)
{
}

DeviceTransport::DeviceTransport(std::string devicePath) : path_(std::move(devicePath)), fd_(-1) {}

DeviceTransport::~DeviceTransport()
{
    close();
}

bool DeviceTransport::open()
{
    if (fd_ >= 0) {
        return true;
    }
    fd_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
    if (fd_ < 0) {
        const int error = errno;
        VEK_LOG_DEBUG(TAG, "Unable to open %s: %s", path_.c_str(), strerror(error));
        return false;
    }
    return true;
}

void DeviceTransport::close()
{
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

size_t DeviceTransport::exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len,
                                 uint8_t* response, size_t& responseLen)
{
    if (fd_ < 0) {
        throw TransportException(TransportFailure::NotOpen, 0, "IPMI device " + path_ + " is not open");
    }

    ipmi_system_interface_addr address;
    memset(&address, 0, sizeof(address));
    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;
    address.lun = lun;

    ipmi_req request;
    memset(&request, 0, sizeof(request));
    request.addr = reinterpret_cast<unsigned char*>(&address);
    request.addr_len = sizeof(address);
    request.msgid = 0;
    request.msg.netfn = netfn;
    request.msg.cmd = cmd;
    request.msg.data = const_cast<unsigned char*>(data);
    request.msg.data_len = static_cast<unsigned short>(len);

    if (ioctl(fd_, IPMICTL_SEND_COMMAND, &request) < 0) {
        const int error = errno;
        throw TransportException(TransportFailure::Send, error,
                                 vekLog::format("IPMICTL_SEND_COMMAND failed: %s", strerror(error)));
    }

    // The driver times requests out itself and answers with a completion
    // code, so waiting without a limit of our own is safe.
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd_, &readable);
    const int ready = select(fd_ + 1, &readable, nullptr, nullptr, nullptr);
    if (ready < 0) {
        const int error = errno;
        throw TransportException(TransportFailure::WaitFailed, error,
                                 vekLog::format("select on the IPMI device failed: %s", strerror(error)));
    }
    if (ready == 0 || !FD_ISSET(fd_, &readable)) {
        throw TransportException(TransportFailure::NoResponse, 0, "IPMI device not readable");
    }

    unsigned char buffer[kMaxResponseSize];
    ipmi_addr from;
    ipmi_recv received;
    memset(&received, 0, sizeof(received));
    received.addr = reinterpret_cast<unsigned char*>(&from);
    received.addr_len = sizeof(from);
    received.msg.data = buffer;
    received.msg.data_len = sizeof(buffer);
    if (ioctl(fd_, IPMICTL_RECEIVE_MSG_TRUNC, &received) < 0 && errno != EMSGSIZE) {
        const int error = errno;
        throw TransportException(TransportFailure::Receive, error,
                                 vekLog::format("IPMICTL_RECEIVE_MSG_TRUNC failed: %s", strerror(error)));
    }

    const size_t full = received.msg.data_len;
    const size_t stored = full < responseLen ? full : responseLen;
    if (stored > 0) {
        memcpy(response, buffer, stored);
    }
    responseLen = stored;
    return full;
}

std::string ipmiDevicePath()
{
    return vekConfig::getEnv() + "/dev/ipmi0";
}

std::string externalAddressFromEnv()
{
    const char* value = std::getenv("VEK_IPMI_EXTERNAL");
    return value != nullptr ? std::string(value) : std::string();
}

std::unique_ptr<Transport> createTransport()
{
    if (!externalAddressFromEnv().empty()) {
        return std::unique_ptr<Transport>(new ExternalTransport());
    }
    return std::unique_ptr<Transport>(new DeviceTransport(ipmiDevicePath()));
}

} // namespace vekIPMI
