#pragma once

// Serves the disks of a simulated host: one listening Unix socket per
// present device at ROOT/dev/sgN, all served from one poll() loop. Each
// connection carries one request (wire.h); a client that stalls is dropped
// without holding up the others. The description is read again whenever it
// changes, and the sockets follow it.

#include "storage_model.h"

#include <csignal>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace diskemu {

class DiskServer {
public:
    // 'changed' is called with every description taken (the first included).
    DiskServer(std::string root, std::function<void(const simstorage::Storage&)> changed);
    ~DiskServer();

    DiskServer(const DiskServer&) = delete;
    DiskServer& operator=(const DiskServer&) = delete;

    // Listens, prints the ready line, and serves until 'stop' is set (from a
    // signal handler); removes its sockets before returning.
    void run(const volatile std::sig_atomic_t& stop);

private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        int sg = 0;
        std::vector<uint8_t> in;
        std::vector<uint8_t> out;
        size_t sent = 0;
        bool writing = false;
        Clock::time_point deadline;
    };

    // What identifies one version of the description file.
    struct FileIdentity {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        long long mtimeNs = 0;
        off_t size = 0;
        bool operator==(const FileIdentity& other) const;
    };

    void removeStaleSockets();
    void reloadIfChanged();
    void reconcileSockets();
    void openListener(int sg);
    void closeListener(int sg);
    std::string bindPath(int sg) const;

    void acceptOn(int listenerFd, int sg);
    void readFrom(int fd, Connection& connection);
    void writeTo(int fd, Connection& connection);
    void closeConnection(int fd);
    const simstorage::Device* servedDevice(int sg) const;

    std::string root_;
    std::string devDir_;
    std::string descriptionPath_;
    std::function<void(const simstorage::Storage&)> changed_;
    int devDirFd_ = -1;
    simstorage::Storage storage_;
    FileIdentity seen_;
    bool everChecked_ = false;
    std::map<int, int> listeners_;          // sg -> listening socket
    std::map<int, Connection> connections_; // socket -> its exchange
};

} // namespace diskemu
