#include "vekServerPipes.h"

#include "vekGlobalDef.h"
#include "vekIPMIExternalTransport.h"
#include "vekLog.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>
#include <thread>

using vekGlobalDef::VMwareOSUtils;
using vekGlobalDef::timeUtils;
using vekIPMI::UniqueFd;

namespace {

const char TAG[] = "VEK_MSGINFRA";

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The other end must go on within this once it started a message...
const milliseconds kQuietWait(2000);
const milliseconds kQuietWaitFloor(500);
// ...and a whole message never takes longer than this.
const milliseconds kMessageDeadline(10000);
const milliseconds kMessageDeadlineFloor(2000);
// How long a writer waits for a reader to open the pipe, and how often it looks.
const milliseconds kOpenWindow(2000);
const milliseconds kOpenWindowFloor(500);
const milliseconds kOpenRetryPause(20);

enum class Transfer { Done, Silent, Failed };

// Waits until the descriptor is ready for the events (or hung up), for the
// quiet wait at most and never past the deadline.
bool waitReady(int fd, short events, Clock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        pollfd entry{fd, events, 0};
        const milliseconds wait = std::min(left, timeUtils::scaledAtLeast(kQuietWait, kQuietWaitFloor));
        const int ready = ::poll(&entry, 1, static_cast<int>(wait.count()));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

// Reads exactly `length` bytes; Silent when the other end went away or fell
// silent first.
Transfer readExactly(int fd, char* buffer, size_t length, Clock::time_point deadline, size_t& got, int& error)
{
    got = 0;
    while (got < length) {
        if (!waitReady(fd, POLLIN, deadline)) {
            return Transfer::Silent;
        }
        const ssize_t n = ::read(fd, buffer + got, length - got);
        if (n > 0) {
            got += static_cast<size_t>(n);
        } else if (n == 0) {
            return Transfer::Silent;  // every writer has gone
        } else if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
            error = errno;
            return Transfer::Failed;
        }
    }
    return Transfer::Done;
}

Transfer writeAll(int fd, const char* data, size_t length, Clock::time_point deadline, int& error)
{
    size_t done = 0;
    while (done < length) {
        const ssize_t n = ::write(fd, data + done, length - done);
        if (n >= 0) {
            done += static_cast<size_t>(n);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!waitReady(fd, POLLOUT, deadline)) {
                error = ETIMEDOUT;
                return Transfer::Failed;
            }
        } else if (errno != EINTR) {
            error = errno;
            return Transfer::Failed;
        }
    }
    return Transfer::Done;
}

// Discards what follows a refused header, so that it is not taken for the
// next message: up to its declared length, while the writer keeps sending.
void drain(int fd, uint64_t length, Clock::time_point deadline)
{
    char scrap[4096];
    while (length > 0) {
        const size_t chunk = static_cast<size_t>(std::min<uint64_t>(sizeof(scrap), length));
        size_t got = 0;
        int error = 0;
        if (readExactly(fd, scrap, chunk, deadline, got, error) != Transfer::Done) {
            return;
        }
        length -= chunk;
    }
}

void logEof(size_t got, size_t wanted)
{
    VEK_LOG_WARNING(TAG, "EOF encountered");
    VEK_LOG_DEBUG(TAG, "Message dropped after %zu of %zu bytes.", got, wanted);
}

uint32_t little32(const unsigned char* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void putLittle(unsigned char* bytes, uint32_t value, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

// A write to a pipe whose reader went away raises SIGPIPE, which would end
// the service. It is blocked in this thread for the scope, and one that the
// scope raised is taken off before the mask comes back.
class SigpipeBlock {
public:
    SigpipeBlock()
    {
        sigemptyset(&pipeOnly_);
        sigaddset(&pipeOnly_, SIGPIPE);
        sigset_t pending;
        wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        blocked_ = pthread_sigmask(SIG_BLOCK, &pipeOnly_, &previous_) == 0;
    }
    ~SigpipeBlock()
    {
        if (!blocked_) {
            return;
        }
        sigset_t pending;
        if (!wasPending_ && sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1) {
            const timespec now{0, 0};
            sigtimedwait(&pipeOnly_, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;

private:
    sigset_t pipeOnly_;
    sigset_t previous_;
    bool wasPending_ = false;
    bool blocked_ = false;
};

bool isFifo(const char* path)
{
    struct stat info;
    return ::lstat(path, &info) == 0 && S_ISFIFO(info.st_mode);
}

} // namespace

bool vekCreatePipe(const char* path)
{
    std::error_code ignored;  // a folder that cannot be made shows in mkfifo
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (::mkfifo(path, 0666) == 0 || (errno == EEXIST && isFifo(path))) {
        VEK_LOG_DEBUG(TAG, "Creation of Pipe %s is successfull.", path);
        return true;
    }
    VEK_LOG_ERROR(TAG, "Creation of Pipe %s failed.", path);
    return false;
}

bool vekReadPipe(const char* path, _VEK_MESSAGE_PACKET* packet)
{
    const UniqueFd fd(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        VEK_LOG_ERROR(TAG, "vekReadPipe:Open of %s failed while reading.", path);
        return false;
    }
    return vekReadPipe(fd.get(), packet);
}

bool vekReadPipe(int fd, _VEK_MESSAGE_PACKET* packet)
{
    const Clock::time_point deadline = Clock::now() + timeUtils::scaledAtLeast(kMessageDeadline, kMessageDeadlineFloor);
    unsigned char header[VEK_MESSAGE_HEADER_SIZE];
    size_t got = 0;
    int error = 0;
    const Transfer headerRead = readExactly(fd, reinterpret_cast<char*>(header), sizeof(header), deadline, got, error);
    if (headerRead == Transfer::Failed) {
        VEK_LOG_ERROR(TAG, "Read packet meta data failed. Reason: %s",
                      VMwareOSUtils::getErrorDescription(error).c_str());
        return false;
    }
    if (headerRead == Transfer::Silent) {
        logEof(got, sizeof(header));
        return false;
    }
    VEK_LOG_DEBUG(TAG, "Read %d packet meta data bytes from readFd = %d", static_cast<int>(got), fd);

    packet->header.messageCode = static_cast<uint16_t>(header[3] | header[4] << 8);
    packet->header.payloadLength = little32(header + 5);
    packet->header.clientPID = little32(header + 9);
    const uint32_t length = packet->header.payloadLength;
    // A refused message is logged once its rest is gone, so that the log
    // tells when the pipe is clean again.
    if (length > VEK_MESSAGE_MAX_PAYLOAD) {
        drain(fd, length, deadline);
        VEK_LOG_ERROR(TAG, "Payload of %u bytes refused, the limit is %u. Packet dropped.", length,
                      VEK_MESSAGE_MAX_PAYLOAD);
        return false;
    }
    try {
        packet->payload.assign(length, '\0');
    } catch (const std::bad_alloc&) {
        drain(fd, length, deadline);
        VEK_LOG_ERROR(TAG, "Failed to allocate memory for payload");
        return false;
    }
    const Transfer payloadRead = readExactly(fd, &packet->payload[0], length, deadline, got, error);
    if (payloadRead == Transfer::Failed) {
        VEK_LOG_ERROR(TAG, "Read payload failed. Reason: %s", VMwareOSUtils::getErrorDescription(error).c_str());
        return false;
    }
    if (payloadRead == Transfer::Silent) {
        logEof(got, length);
        return false;
    }
    VEK_LOG_DEBUG(TAG, "Read %d payload bytes from readFd = %d", static_cast<int>(got), fd);
    return true;
}

bool vekWritePipe(const char* path, _VEK_MESSAGE_PACKET* packet)
{
    const SigpipeBlock noSigpipe;
    // Non-blocking: a blocking open would wait for ever for a reader that
    // never comes.
    const Clock::time_point openDeadline = Clock::now() + timeUtils::scaledAtLeast(kOpenWindow, kOpenWindowFloor);
    UniqueFd fd;
    for (;;) {
        const int opened = ::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        const int error = errno;
        fd.reset(opened);
        if (fd.valid() || (error != ENXIO && error != ENOENT && error != EINTR) || Clock::now() >= openDeadline) {
            break;
        }
        std::this_thread::sleep_for(kOpenRetryPause);
    }
    struct stat info;
    if (!fd.valid() || ::fstat(fd.get(), &info) != 0 || !S_ISFIFO(info.st_mode)) {
        VEK_LOG_ERROR(TAG, "vekWritePipe: Open of %s failed while writing.", path);
        return false;
    }

    const Clock::time_point deadline = Clock::now() + timeUtils::scaledAtLeast(kMessageDeadline, kMessageDeadlineFloor);
    unsigned char header[VEK_MESSAGE_HEADER_SIZE] = {};
    putLittle(header + 3, packet->header.messageCode, 2);
    putLittle(header + 5, static_cast<uint32_t>(packet->payload.size()), 4);
    putLittle(header + 9, packet->header.clientPID, 4);
    int error = 0;
    if (writeAll(fd.get(), reinterpret_cast<const char*>(header), sizeof(header), deadline, error) != Transfer::Done) {
        VEK_LOG_ERROR(TAG, "Write packet meta data failed. Reason: %s",
                      VMwareOSUtils::getErrorDescription(error).c_str());
        return false;
    }
    VEK_LOG_DEBUG(TAG, "%d packet meta data bytes written on pipe =%s", static_cast<int>(sizeof(header)), path);
    if (writeAll(fd.get(), packet->payload.data(), packet->payload.size(), deadline, error) != Transfer::Done) {
        VEK_LOG_ERROR(TAG, "Write payload failed. Reason: %s", VMwareOSUtils::getErrorDescription(error).c_str());
        return false;
    }
    VEK_LOG_DEBUG(TAG, "%d bytes payload written on pipe =%s", static_cast<int>(packet->payload.size()), path);
    return true;
}
