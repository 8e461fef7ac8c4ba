#include "vekIPMIExternalTransport.h"

#include "vekGlobalDef.h"
#include "vekLog.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

namespace {
const char TAG[] = "IPMI_TRANSPORT";

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Waits for the events on fd until the deadline: 1 ready, 0 timed out, -1
// failed (errno set).
int waitFor(int fd, short events, Clock::time_point deadline)
{
    for (;;) {
        pollfd entry;
        entry.fd = fd;
        entry.events = events;
        entry.revents = 0;
        const int ready = poll(&entry, 1, remainingMs(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        return ready < 0 ? -1 : (ready == 0 ? 0 : 1);
    }
}

} // namespace

namespace vekIPMI {

namespace vmcodec {

uint8_t checksum(const uint8_t* bytes, size_t len)
{
    uint8_t sum = 0;
    for (size_t i = 0; i < len; ++i) {
        sum = static_cast<uint8_t>(sum + bytes[i]);
    }
    return static_cast<uint8_t>(-sum);
}

void appendEscaped(std::vector<uint8_t>& out, uint8_t byte)
{
    if (byte == kMessageEnd || byte == kControlEnd || byte == kEscape) {
        out.push_back(kEscape);
        out.push_back(static_cast<uint8_t>(byte | kEscapeBit));
    } else {
        out.push_back(byte);
    }
}

std::vector<uint8_t> encodeMessage(const std::vector<uint8_t>& body)
{
    std::vector<uint8_t> out;
    out.reserve(body.size() * 2 + 4);
    for (uint8_t byte : body) {
        appendEscaped(out, byte);
    }
    appendEscaped(out, checksum(body.data(), body.size()));
    out.push_back(kMessageEnd);
    return out;
}

std::vector<uint8_t> encodeRequest(uint8_t seq, uint8_t netfn, uint8_t lun, uint8_t cmd, const uint8_t* data,
                                   size_t len)
{
    std::vector<uint8_t> body;
    body.reserve(len + 3);
    body.push_back(seq);
    body.push_back(static_cast<uint8_t>((netfn << 2) | (lun & 0x03)));
    body.push_back(cmd);
    if (len > 0) {
        body.insert(body.end(), data, data + len);
    }
    return encodeMessage(body);
}

size_t FrameDecoder::feed(const uint8_t* bytes, size_t len, std::vector<Frame>& out)
{
    size_t dropped = 0;
    for (size_t i = 0; i < len; ++i) {
        const uint8_t byte = bytes[i];
        if (byte == kMessageEnd || byte == kControlEnd) {
            if (inEscape_ || overflow_) {
                ++dropped;
            } else if (!current_.empty()) {
                Frame frame;
                frame.control = (byte == kControlEnd);
                frame.bytes.swap(current_);
                out.push_back(std::move(frame));
            }
            current_.clear();
            inEscape_ = false;
            overflow_ = false;
            continue;
        }
        if (byte == kEscape) {
            inEscape_ = true;
            continue;
        }
        uint8_t value = byte;
        if (inEscape_) {
            value = static_cast<uint8_t>(value & ~kEscapeBit);
            inEscape_ = false;
        }
        if (overflow_) {
            continue;
        }
        if (current_.size() >= kMaxFrameSize) {
            overflow_ = true;
            current_.clear();
            continue;
        }
        current_.push_back(value);
    }
    return dropped;
}

void FrameDecoder::reset()
{
    current_.clear();
    inEscape_ = false;
    overflow_ = false;
}

ParseResult parseResponse(const std::vector<uint8_t>& frame, Response& out)
{
    // seq, netfn/lun, cmd, completion code, checksum
    if (frame.size() < 5) {
        return ParseResult::TooShort;
    }
    uint8_t sum = 0;
    for (uint8_t byte : frame) {
        sum = static_cast<uint8_t>(sum + byte);
    }
    if (sum != 0) {
        return ParseResult::BadChecksum;
    }
    out.seq = frame[0];
    out.netfn = static_cast<uint8_t>(frame[1] >> 2);
    out.lun = static_cast<uint8_t>(frame[1] & 0x03);
    out.cmd = frame[2];
    out.body.assign(frame.begin() + 3, frame.end() - 1);
    return ParseResult::Ok;
}

} // namespace vmcodec

const std::chrono::milliseconds ExternalLink::kPeerWait(5000);
const std::chrono::milliseconds ExternalLink::kPeerWaitFloor(2000);

std::chrono::milliseconds ExternalLink::peerWait()
{
    return vekGlobalDef::timeUtils::scaledAtLeast(kPeerWait, kPeerWaitFloor);
}

ExternalLink& ExternalLink::instance()
{
    // One link per address, each living until the process ends, like the
    // other singletons: never torn down under a thread that still talks to
    // the RMC. In production the address never changes; a test process may
    // meet several emulated RMCs one after the other.
    static std::mutex mutex;
    static std::map<std::string, ExternalLink*>* links = new std::map<std::string, ExternalLink*>();
    const std::string address = externalAddressFromEnv();
    std::lock_guard<std::mutex> lock(mutex);
    ExternalLink*& link = (*links)[address];
    if (link == nullptr) {
        link = new ExternalLink(address);
    }
    return *link;
}

ExternalLink::ExternalLink(std::string address) : address_(std::move(address))
{
    const size_t colon = address_.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 >= address_.size()) {
        return;
    }
    std::string host = address_.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    const std::string port = address_.substr(colon + 1);
    if (port.find_first_not_of("0123456789") != std::string::npos) {
        return;
    }
    host_ = host;
    port_ = port;
}

bool ExternalLink::connect()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (fd_.valid()) {
        return true;
    }
    int error = 0;
    return connectLocked(error);
}

bool ExternalLink::isConnected() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return fd_.valid();
}

bool ExternalLink::connectLocked(int& error)
{
    error = 0;
    if (!addressValid()) {
        error = EINVAL;
        return false;
    }
    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int resolved = getaddrinfo(host_.c_str(), port_.c_str(), &hints, &found);
    if (resolved != 0) {
        VEK_LOG_WARNING(TAG, "Unable to resolve external BMC address %s: %s", address_.c_str(),
                        gai_strerror(resolved));
        error = EHOSTUNREACH;
        return false;
    }
    std::unique_ptr<addrinfo, void (*)(addrinfo*)> guard(found, freeaddrinfo);

    const Clock::time_point deadline = Clock::now() + peerWait();
    for (addrinfo* candidate = found; candidate != nullptr; candidate = candidate->ai_next) {
        const int type = candidate->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK;
        UniqueFd socketFd(socket(candidate->ai_family, type, candidate->ai_protocol));
        if (!socketFd.valid()) {
            error = errno;
            continue;
        }
        if (::connect(socketFd.get(), candidate->ai_addr, candidate->ai_addrlen) < 0) {
            if (errno != EINPROGRESS) {
                error = errno;
                continue;
            }
            const int ready = waitFor(socketFd.get(), POLLOUT, deadline);
            if (ready <= 0) {
                error = ready == 0 ? ETIMEDOUT : errno;
                continue;
            }
            int soError = 0;
            socklen_t soLen = sizeof(soError);
            if (getsockopt(socketFd.get(), SOL_SOCKET, SO_ERROR, &soError, &soLen) < 0 || soError != 0) {
                error = soError != 0 ? soError : errno;
                continue;
            }
        }
        // One small request, then its answer: nothing to gain from Nagle.
        const int one = 1;
        setsockopt(socketFd.get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        fd_ = std::move(socketFd);
        decoder_.reset();
        frames_.clear();
        VEK_LOG_INFO(TAG, "Connected to external BMC at %s", address_.c_str());
        return true;
    }
    VEK_LOG_WARNING(TAG, "Unable to connect to external BMC at %s: %s", address_.c_str(), strerror(error));
    return false;
}

void ExternalLink::dropLocked()
{
    fd_.reset();
    decoder_.reset();
    frames_.clear();
}

bool ExternalLink::drainLocked()
{
    uint8_t buffer[512];
    for (;;) {
        const ssize_t got = recv(fd_.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
        if (got > 0) {
            decoder_.feed(buffer, static_cast<size_t>(got), frames_);
            continue;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        dropLocked();
        return false;
    }
    // Control frames and answers to requests that timed out earlier.
    frames_.clear();
    return true;
}

void ExternalLink::sendLocked(const std::vector<uint8_t>& frame)
{
    const Clock::time_point deadline = Clock::now() + peerWait();
    size_t sent = 0;
    while (sent < frame.size()) {
        const ssize_t n = ::send(fd_.get(), frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            const int ready = waitFor(fd_.get(), POLLOUT, deadline);
            if (ready > 0) {
                continue;
            }
            const int error = ready == 0 ? ETIMEDOUT : errno;
            throw TransportException(TransportFailure::Send, error,
                                     vekLog::format("Sending to external BMC at %s failed: %s", address_.c_str(),
                                                    strerror(error)));
        }
        const int error = n < 0 ? errno : EPIPE;
        throw TransportException(TransportFailure::Send, error,
                                 vekLog::format("Sending to external BMC at %s failed: %s", address_.c_str(),
                                                strerror(error)));
    }
}

size_t ExternalLink::awaitResponseLocked(uint8_t seq, uint8_t netfn, uint8_t cmd, uint8_t* response,
                                         size_t& responseLen)
{
    const std::chrono::milliseconds timeout = peerWait();
    const Clock::time_point deadline = Clock::now() + timeout;
    const uint8_t responseNetfn = static_cast<uint8_t>(netfn | 1);
    uint8_t buffer[512];
    for (;;) {
        for (const vmcodec::Frame& frame : frames_) {
            if (frame.control) {
                continue;
            }
            vmcodec::Response parsed;
            const vmcodec::ParseResult result = vmcodec::parseResponse(frame.bytes, parsed);
            if (result != vmcodec::ParseResult::Ok) {
                VEK_LOG_WARNING(TAG, "Ignoring a malformed frame of %zu bytes from external BMC at %s (%s)",
                                frame.bytes.size(), address_.c_str(),
                                result == vmcodec::ParseResult::TooShort ? "too short" : "bad checksum");
                continue;
            }
            if (parsed.seq != seq || parsed.netfn != responseNetfn || parsed.cmd != cmd) {
                VEK_LOG_DEBUG(TAG, "Ignoring a stale answer (seq %u, netfn 0x%02x, cmd 0x%02x) awaiting seq %u",
                              parsed.seq, parsed.netfn, parsed.cmd, seq);
                continue;
            }
            const size_t full = parsed.body.size();
            const size_t stored = full < responseLen ? full : responseLen;
            if (stored > 0) {
                memcpy(response, parsed.body.data(), stored);
            }
            responseLen = stored;
            frames_.clear();
            return full;
        }
        frames_.clear();

        const int ready = waitFor(fd_.get(), POLLIN, deadline);
        if (ready == 0) {
            VEK_LOG_WARNING(TAG, "No answer from external BMC at %s to netfn 0x%02x cmd 0x%02x within %lld ms",
                            address_.c_str(), netfn, cmd, static_cast<long long>(timeout.count()));
            throw TransportException(TransportFailure::NoResponse, 0, "No answer from external BMC at " + address_);
        }
        if (ready < 0) {
            const int error = errno;
            throw TransportException(TransportFailure::WaitFailed, error,
                                     vekLog::format("Waiting for external BMC at %s failed: %s", address_.c_str(),
                                                    strerror(error)));
        }
        const ssize_t got = recv(fd_.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
        if (got > 0) {
            const size_t dropped = decoder_.feed(buffer, static_cast<size_t>(got), frames_);
            if (dropped > 0) {
                VEK_LOG_WARNING(TAG, "Dropped %zu malformed frame(s) from external BMC at %s", dropped,
                                address_.c_str());
            }
            continue;
        }
        if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
            continue;
        }
        const int error = got < 0 ? errno : 0;
        dropLocked();
        VEK_LOG_WARNING(TAG, "External BMC at %s closed the connection while answering netfn 0x%02x cmd 0x%02x",
                        address_.c_str(), netfn, cmd);
        throw TransportException(TransportFailure::Receive, error,
                                 "External BMC at " + address_ + " closed the connection");
    }
}

size_t ExternalLink::exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len,
                              uint8_t* response, size_t& responseLen)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!addressValid()) {
        throw TransportException(TransportFailure::NotOpen, EINVAL,
                                 "External BMC address [" + address_ + "] is not HOST:PORT");
    }
    // A link that went down between two exchanges is made again and the
    // request sent once more; one that fails after the request went out is
    // not, since the RMC may have acted on it.
    for (int attempt = 0;; ++attempt) {
        if (fd_.valid() && !drainLocked()) {
            VEK_LOG_WARNING(TAG, "Connection to external BMC at %s was dropped; reconnecting", address_.c_str());
        }
        if (!fd_.valid()) {
            int error = 0;
            if (!connectLocked(error)) {
                throw TransportException(TransportFailure::Send, error,
                                         vekLog::format("Unable to connect to external BMC at %s: %s",
                                                        address_.c_str(), strerror(error)));
            }
        }
        const uint8_t seq = nextSeq_++;
        try {
            sendLocked(vmcodec::encodeRequest(seq, netfn, lun, cmd, data, len));
        } catch (const TransportException& e) {
            dropLocked();
            if (attempt == 0 && (e.errorCode() == EPIPE || e.errorCode() == ECONNRESET)) {
                continue;
            }
            throw;
        }
        return awaitResponseLocked(seq, netfn, cmd, response, responseLen);
    }
}

ExternalTransport::ExternalTransport() : link_(ExternalLink::instance()) {}

ExternalTransport::ExternalTransport(ExternalLink& link) : link_(link) {}

bool ExternalTransport::open()
{
    if (!link_.addressValid()) {
        VEK_LOG_WARNING(TAG, "External BMC address [%s] is not HOST:PORT", link_.address().c_str());
        opened_ = false;
        return false;
    }
    opened_ = link_.connect();
    return opened_;
}

size_t ExternalTransport::exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len,
                                   uint8_t* response, size_t& responseLen)
{
    if (!opened_) {
        throw TransportException(TransportFailure::NotOpen, 0, "External BMC link " + link_.address() + " is not open");
    }
    return link_.exchange(netfn, cmd, lun, data, len, response, responseLen);
}

} // namespace vekIPMI
