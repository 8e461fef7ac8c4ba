#include "disk_server.h"

#include "scsi_disk.h"
#include "wire.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <regex>
#include <stdexcept>

namespace diskemu {

namespace {

// How long a client may go without moving its exchange along.
constexpr auto kClientPatience = std::chrono::seconds(5);
// How often the description is looked at when no request comes.
constexpr int kTickMs = 100;
constexpr size_t kMaxConnections = 512;
constexpr size_t kReadChunk = 64 * 1024;

// One line per message, whatever the reason's text holds.
void warn(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::fprintf(stderr, "diskemu: %s\n", text.c_str());
}

std::string socketName(int sg) { return "sg" + std::to_string(sg); }

// Room for several hundred disks and their clients.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

bool DiskServer::FileIdentity::operator==(const FileIdentity& other) const
{
    return exists == other.exists && device == other.device && inode == other.inode && mtimeNs == other.mtimeNs &&
           size == other.size;
}

DiskServer::DiskServer(std::string root, std::function<void(const simstorage::Storage&)> changed)
    : root_(std::move(root)), devDir_(root_ + "/dev"), descriptionPath_(simstorage::descriptionPath(root_)),
      changed_(std::move(changed))
{
    if (mkdir(devDir_.c_str(), 0755) != 0 && errno != EEXIST) {
        throw std::runtime_error("can't create " + devDir_ + ": " + std::strerror(errno));
    }
    devDirFd_ = open(devDir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (devDirFd_ < 0) {
        throw std::runtime_error("can't open " + devDir_ + ": " + std::strerror(errno));
    }
    raiseDescriptorLimit();
}

DiskServer::~DiskServer()
{
    while (!connections_.empty()) {
        closeConnection(connections_.begin()->first);
    }
    while (!listeners_.empty()) {
        closeListener(listeners_.begin()->first);
    }
    if (devDirFd_ >= 0) {
        close(devDirFd_);
    }
}

void DiskServer::run(const volatile std::sig_atomic_t& stop)
{
    removeStaleSockets();
    reloadIfChanged();
    std::printf("diskemu: ready (%zu devices)\n", listeners_.size());
    std::fflush(stdout);

    auto nextTick = Clock::now() + std::chrono::milliseconds(kTickMs);
    std::vector<pollfd> polled;
    std::vector<int> sgOfListener; // parallel to the listener part of 'polled'
    while (!stop) {
        polled.clear();
        sgOfListener.clear();
        if (connections_.size() < kMaxConnections) {
            for (const auto& listener : listeners_) {
                polled.push_back({listener.second, POLLIN, 0});
                sgOfListener.push_back(listener.first);
            }
        }
        const size_t listenerCount = polled.size();
        for (const auto& connection : connections_) {
            polled.push_back({connection.first, static_cast<short>(connection.second.writing ? POLLOUT : POLLIN), 0});
        }
        const int ready = poll(polled.data(), polled.size(), kTickMs);
        if (ready < 0 && errno != EINTR) {
            throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
        }
        for (size_t i = 0; ready > 0 && i < polled.size(); ++i) {
            if (polled[i].revents == 0) {
                continue;
            }
            if (i < listenerCount) {
                // A listener closed by a reload since the poll is skipped.
                const auto listener = listeners_.find(sgOfListener[i]);
                if (listener != listeners_.end() && listener->second == polled[i].fd) {
                    acceptOn(polled[i].fd, sgOfListener[i]);
                }
                continue;
            }
            const auto connection = connections_.find(polled[i].fd);
            if (connection == connections_.end()) {
                continue;
            }
            if (connection->second.writing) {
                writeTo(polled[i].fd, connection->second);
            } else {
                readFrom(polled[i].fd, connection->second);
            }
        }
        const auto now = Clock::now();
        for (auto it = connections_.begin(); it != connections_.end();) {
            const int fd = it->first;
            const bool stalled = now >= it->second.deadline;
            ++it;
            if (stalled) {
                closeConnection(fd);
            }
        }
        if (now >= nextTick) {
            reloadIfChanged();
            nextTick = now + std::chrono::milliseconds(kTickMs);
        }
    }
}

void DiskServer::removeStaleSockets()
{
    DIR* dir = opendir(devDir_.c_str());
    if (dir == nullptr) {
        return;
    }
    static const std::regex name("sg[0-9]+");
    while (const dirent* entry = readdir(dir)) {
        struct stat info {};
        if (std::regex_match(entry->d_name, name) && fstatat(devDirFd_, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISSOCK(info.st_mode)) {
            unlinkat(devDirFd_, entry->d_name, 0);
        }
    }
    closedir(dir);
}

void DiskServer::reloadIfChanged()
{
    FileIdentity now;
    struct stat info {};
    if (stat(descriptionPath_.c_str(), &info) == 0) {
        now.exists = true;
        now.device = info.st_dev;
        now.inode = info.st_ino;
        now.mtimeNs = static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
        now.size = info.st_size;
    }
    if (everChecked_ && now == seen_) {
        return;
    }
    everChecked_ = true;
    seen_ = now;
    if (!now.exists) {
        warn(descriptionPath_ + " is missing; keeping the last good description");
        return;
    }
    try {
        storage_ = simstorage::load(descriptionPath_);
    } catch (const simstorage::ModelError& error) {
        warn(descriptionPath_ + ": " + error.what() + "; keeping the last good description");
        return;
    }
    reconcileSockets();
    try {
        changed_(storage_);
    } catch (const std::exception& error) {
        warn(std::string("following the description: ") + error.what());
    }
}

const simstorage::Device* DiskServer::servedDevice(int sg) const
{
    for (const auto& device : storage_.devices) {
        if (device.sg != sg || !device.present) {
            continue;
        }
        const simstorage::Hba* hba = storage_.findHba(device.hba);
        return hba != nullptr && hba->present ? &device : nullptr;
    }
    return nullptr;
}

void DiskServer::reconcileSockets()
{
    for (auto it = listeners_.begin(); it != listeners_.end();) {
        const int sg = it->first;
        ++it;
        if (servedDevice(sg) == nullptr) {
            closeListener(sg);
        }
    }
    for (const auto& device : storage_.devices) {
        if (listeners_.count(device.sg) == 0 && servedDevice(device.sg) != nullptr) {
            openListener(device.sg);
        }
    }
}

// sun_path holds about a hundred characters; a deeper folder is reached
// through the open descriptor of ROOT/dev.
std::string DiskServer::bindPath(int sg) const
{
    const std::string full = devDir_ + "/" + socketName(sg);
    if (full.size() < sizeof(sockaddr_un::sun_path)) {
        return full;
    }
    return "/proc/self/fd/" + std::to_string(devDirFd_) + "/" + socketName(sg);
}

void DiskServer::openListener(int sg)
{
    const std::string name = socketName(sg);
    struct stat info {};
    if (fstatat(devDirFd_, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!S_ISSOCK(info.st_mode)) {
            warn(devDir_ + "/" + name + " exists and is no socket; leaving it alone");
            return;
        }
        unlinkat(devDirFd_, name.c_str(), 0);
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        warn("socket for " + name + ": " + std::strerror(errno));
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = bindPath(sg);
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 || listen(fd, 64) != 0) {
        warn("can't listen at " + devDir_ + "/" + name + ": " + std::strerror(errno));
        close(fd);
        return;
    }
    listeners_[sg] = fd;
}

void DiskServer::closeListener(int sg)
{
    const auto listener = listeners_.find(sg);
    if (listener == listeners_.end()) {
        return;
    }
    close(listener->second);
    unlinkat(devDirFd_, socketName(sg).c_str(), 0);
    listeners_.erase(listener);
}

void DiskServer::acceptOn(int listenerFd, int sg)
{
    while (connections_.size() < kMaxConnections) {
        const int fd = accept4(listenerFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            return; // EAGAIN: all taken; anything else: the client is gone
        }
        Connection& connection = connections_[fd];
        connection.sg = sg;
        connection.deadline = Clock::now() + kClientPatience;
    }
}

void DiskServer::readFrom(int fd, Connection& connection)
{
    size_t missing = 0;
    try {
        missing = wire::missingBytes(connection.in);
    } catch (const wire::WireError&) {
        closeConnection(fd);
        return;
    }
    const size_t have = connection.in.size();
    const size_t want = std::min(missing, kReadChunk);
    connection.in.resize(have + want);
    const ssize_t got = recv(fd, connection.in.data() + have, want, 0);
    if (got <= 0) {
        connection.in.resize(have);
        if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
            closeConnection(fd); // closed early: nothing to answer
        }
        return;
    }
    connection.in.resize(have + static_cast<size_t>(got));
    connection.deadline = Clock::now() + kClientPatience;
    try {
        if (wire::missingBytes(connection.in) != 0) {
            return;
        }
        const Request request = wire::decodeRequest(connection.in);
        reloadIfChanged();
        const simstorage::Device* device = servedDevice(connection.sg);
        Response response;
        if (device != nullptr) {
            response = answer(*device, request);
        } else {
            response.answered = false; // gone since the client connected
        }
        if (!response.answered) {
            closeConnection(fd);
            return;
        }
        connection.out = wire::encodeResponse(response);
        connection.writing = true;
        connection.in.clear();
        writeTo(fd, connection);
    } catch (const wire::WireError& error) {
        warn(socketName(connection.sg) + ": " + error.what());
        closeConnection(fd);
    }
}

void DiskServer::writeTo(int fd, Connection& connection)
{
    const ssize_t sent =
        send(fd, connection.out.data() + connection.sent, connection.out.size() - connection.sent, MSG_NOSIGNAL);
    if (sent < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            closeConnection(fd);
        }
        return;
    }
    connection.sent += static_cast<size_t>(sent);
    connection.deadline = Clock::now() + kClientPatience;
    if (connection.sent == connection.out.size()) {
        closeConnection(fd);
    }
}

void DiskServer::closeConnection(int fd)
{
    close(fd);
    connections_.erase(fd);
}

} // namespace diskemu
