// The one place that sends a SCSI command to a device: SG_IO on a generic
// SCSI character device, or one request to the disk emulator behind a Unix
// socket node that stands in for /dev/sgN on a simulated host. Whatever the
// peer answers, the caller sees the record the kernel would have filled.

#include "vekScsiInfo.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

const char* const TAG = "SCSI_PASSTHRU";

using Clock = std::chrono::steady_clock;
using vekGlobalDef::UniqueFd;

const char kMagic[4] = {'S', 'G', 'I', 'O'};
const size_t kResponseHeaderSize = 24;
// What the sg driver uses when a request names no timeout.
const std::chrono::milliseconds kDefaultTimeout(60000);
// The emulator is a process on a loaded machine: however fast the clock runs,
// it gets this long to answer.
const std::chrono::milliseconds kPeerFloor(2000);
// No disk answers a CDB with more than this; a larger claim is a broken peer.
const uint32_t kMaxClaimedLength = 16u << 20;

// The connection failed, closed early or ran out of time; errno tells which.
struct PeerFailure {
    int error;
};

void putLe32(std::vector<unsigned char>& out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

uint32_t getLe32(const unsigned char* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// One exchange on one connection, every step bounded by the same deadline.
class EmulatorExchange {
public:
    EmulatorExchange(int nodeFd, Clock::time_point deadline) : deadline_(deadline)
    {
        socket_ = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!socket_.valid()) {
            throw PeerFailure{EIO};
        }
        connectTo(nodeFd);
    }

    void send(const std::vector<unsigned char>& bytes)
    {
        size_t done = 0;
        while (done < bytes.size()) {
            waitFor(POLLOUT);
            const ssize_t n = ::send(socket_.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n < 0) {
                if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) {
                    continue;
                }
                VEK_LOG_DEBUG(TAG, "Disk emulator write failed after %zu of %zu bytes. (%d)", done, bytes.size(), errno);
                throw PeerFailure{EIO};
            }
            done += static_cast<size_t>(n);
        }
    }

    // Reads exactly 'length' bytes; the first 'keep' of them go to 'into', the
    // rest are read and dropped, so a peer that claims more than the caller's
    // buffer holds never writes past it.
    void receive(unsigned char* into, size_t keep, size_t length)
    {
        unsigned char scratch[512];
        size_t done = 0;
        while (done < length) {
            unsigned char* target = done < keep ? into + done : scratch;
            const size_t room = done < keep ? keep - done : std::min(sizeof(scratch), length - done);
            waitFor(POLLIN);
            const ssize_t n = ::recv(socket_.get(), target, std::min(room, length - done), 0);
            if (n < 0) {
                if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) {
                    continue;
                }
                VEK_LOG_DEBUG(TAG, "Disk emulator read failed. (%d)", errno);
                throw PeerFailure{EIO};
            }
            if (n == 0) {
                VEK_LOG_DEBUG(TAG, "Disk emulator closed the connection before a whole response.");
                throw PeerFailure{EIO};
            }
            done += static_cast<size_t>(n);
        }
    }

private:
    int millisecondsLeft() const
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
        return left > 0 ? static_cast<int>(std::min<long long>(left, 1 << 30)) : 0;
    }

    void waitFor(short events)
    {
        for (;;) {
            const int left = millisecondsLeft();
            if (left == 0) {
                VEK_LOG_DEBUG(TAG, "Disk emulator did not answer in time.");
                throw PeerFailure{ETIMEDOUT};
            }
            struct pollfd p = {socket_.get(), events, 0};
            const int ready = ::poll(&p, 1, left);
            if (ready > 0) {
                return; // errors and hang-ups show in the read or write that follows
            }
            if (ready < 0 && errno != EINTR) {
                throw PeerFailure{EIO};
            }
        }
    }

    void connectTo(int nodeFd)
    {
        // The node was opened as O_PATH; its /proc link reaches the socket
        // without the node's own path, which may be longer than sun_path.
        struct sockaddr_un address;
        std::memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d", nodeFd);
        for (;;) {
            if (::connect(socket_.get(), reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) == 0) {
                return;
            }
            if (errno == EINTR) {
                continue;
            }
            if (errno == EINPROGRESS) {
                waitFor(POLLOUT);
                int error = 0;
                socklen_t size = sizeof(error);
                if (::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0) {
                    return;
                }
                errno = error;
            } else if (errno == EAGAIN && millisecondsLeft() > 0) {
                // The listener's backlog is full: it is busy, not gone.
                std::this_thread::sleep_for(std::chrono::milliseconds(std::min(10, millisecondsLeft())));
                continue;
            }
            VEK_LOG_DEBUG(TAG, "Connecting to the disk emulator failed. (%d)", errno);
            throw PeerFailure{EIO};
        }
    }

    UniqueFd socket_;
    Clock::time_point deadline_;
};

bool requestIsValid(const sg_io_hdr_t* io)
{
    if (io == nullptr || io->interface_id != 'S' || io->iovec_count != 0 || io->cmdp == nullptr ||
        io->cmd_len == 0 || (io->dxfer_len > 0 && io->dxferp == nullptr)) {
        return false;
    }
    return io->dxfer_direction == SG_DXFER_NONE || io->dxfer_direction == SG_DXFER_TO_DEV ||
           io->dxfer_direction == SG_DXFER_FROM_DEV || io->dxfer_direction == SG_DXFER_TO_FROM_DEV;
}

int emulatorPassThrough(int fd, sg_io_hdr_t* io)
{
    if (!requestIsValid(io)) {
        errno = EINVAL;
        return -1;
    }
    const Clock::time_point start = Clock::now();
    const std::chrono::milliseconds timeout =
        io->timeout == 0 ? kDefaultTimeout : std::chrono::milliseconds(io->timeout);
    try {
        EmulatorExchange exchange(fd, start + vekGlobalDef::timeUtils::scaledAtLeast(timeout, kPeerFloor));

        std::vector<unsigned char> request(kMagic, kMagic + sizeof(kMagic));
        putLe32(request, static_cast<uint32_t>(io->dxfer_direction));
        putLe32(request, io->cmd_len);
        putLe32(request, io->dxfer_len);
        putLe32(request, io->timeout);
        request.insert(request.end(), io->cmdp, io->cmdp + io->cmd_len);
        if (io->dxfer_direction == SG_DXFER_TO_DEV) {
            const unsigned char* data = static_cast<const unsigned char*>(io->dxferp);
            request.insert(request.end(), data, data + io->dxfer_len);
        }
        exchange.send(request);

        unsigned char header[kResponseHeaderSize];
        exchange.receive(header, sizeof(header), sizeof(header));
        if (std::memcmp(header, kMagic, sizeof(kMagic)) != 0) {
            VEK_LOG_DEBUG(TAG, "Disk emulator answered without the response mark.");
            throw PeerFailure{EIO};
        }
        const uint32_t status = getLe32(header + 4);
        const uint32_t hostStatus = getLe32(header + 8);
        const uint32_t driverStatus = getLe32(header + 12);
        const uint32_t senseLength = getLe32(header + 16);
        const uint32_t dataLength = getLe32(header + 20);
        if (senseLength > kMaxClaimedLength || dataLength > kMaxClaimedLength) {
            VEK_LOG_DEBUG(TAG, "Disk emulator claims %u sense and %u data bytes.", senseLength, dataLength);
            throw PeerFailure{EIO};
        }
        const size_t senseKept = io->sbp == nullptr ? 0 : std::min<size_t>(senseLength, io->mx_sb_len);
        exchange.receive(io->sbp, senseKept, senseLength);
        // Data only ever flows into the caller's buffer when it asked for it.
        const bool fromDevice =
            io->dxfer_direction == SG_DXFER_FROM_DEV || io->dxfer_direction == SG_DXFER_TO_FROM_DEV;
        const size_t dataKept = fromDevice ? std::min<size_t>(dataLength, io->dxfer_len) : 0;
        exchange.receive(static_cast<unsigned char*>(io->dxferp), dataKept, dataLength);

        io->status = static_cast<unsigned char>(status);
        io->masked_status = static_cast<unsigned char>((status >> 1) & 0x7F);
        io->host_status = static_cast<unsigned short>(hostStatus);
        io->driver_status = static_cast<unsigned short>(driverStatus);
        io->sb_len_wr = static_cast<unsigned char>(senseKept);
        io->resid = fromDevice ? static_cast<int>(io->dxfer_len - dataKept) : 0;
        io->info = (status != 0 || hostStatus != 0 || driverStatus != 0 || senseLength != 0) ? SG_INFO_CHECK
                                                                                             : SG_INFO_OK;
        io->duration = static_cast<unsigned int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
        return 0;
    } catch (const PeerFailure& failure) {
        errno = failure.error;
        return -1;
    }
}

} // namespace

namespace {
// Requests sent since the process started, for the cost statistics.
std::atomic<unsigned long long> gRequests{0};
} // namespace

unsigned long long vekScsiRequestCount() { return gRequests.load(); }

int vekScsiPassThrough(int fd, sg_io_hdr_t* io)
{
    gRequests.fetch_add(1);
    struct stat st;
    if (fd < 0 || ::fstat(fd, &st) != 0) {
        errno = EBADF;
        return -1;
    }
    if (S_ISSOCK(st.st_mode)) {
        return emulatorPassThrough(fd, io);
    }
    return ::ioctl(fd, SG_IO, io);
}

int vekScsiOpenGenericDevice(const std::string& sgName)
{
    std::string name = sgName;
    const std::string devicePrefix = "/dev/";
    if (name.compare(0, devicePrefix.size(), devicePrefix) == 0) {
        name.erase(0, devicePrefix.size());
    }
    // The name comes from sysfs: it must stay a node of /dev.
    if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..") {
        VEK_LOG_WARNING(TAG, "Invalid SCSI generic device name [%s].", sgName.c_str());
        errno = EINVAL;
        return -1;
    }
    const std::string path = vekConfig::getEnv() + devicePrefix + name;
    struct stat st;
    if (::stat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) {
        return ::open(path.c_str(), O_PATH | O_CLOEXEC);
    }
    return ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}
