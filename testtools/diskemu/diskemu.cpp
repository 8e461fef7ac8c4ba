// diskemu: the disks of a simulated host.
//
//     diskemu serve ROOT                  answers SCSI at ROOT/dev/sgN, lays out ROOT/sys
//     diskemu set ROOT ID key=value...    changes the description and the sysfs tree
//     diskemu sync ROOT                   lays out ROOT/sys from ROOT/sim/disks.json
//     diskemu generate HBAS DISKS_PER_HBA prints a description of plain adapters with disks
//
// See README.md beside this file.

#include "disk_server.h"
#include "storage_generator.h"
#include "storage_model.h"
#include "sysfs_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>

namespace {

constexpr int kUsageError = 2;

volatile std::sig_atomic_t gStop = 0;

void onStopSignal(int) { gStop = 1; }

int fail(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::fprintf(stderr, "diskemu: %s\n", text.c_str());
    return kUsageError;
}

int usage()
{
    return fail("usage: diskemu serve ROOT | diskemu set ROOT ID key=value... | diskemu sync ROOT | "
                "diskemu generate HBAS DISKS_PER_HBA");
}

// The one place where the host's other view of its storage, the sysfs tree,
// follows the description, each time it is taken (serve) or changed (set).
void publishStorage(const std::string& root, const simstorage::Storage& storage)
{
    simstorage::writeSysfs(root, storage);
}

bool wholeNumber(const char* text, int& value)
{
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || number < 0 || number > 100000) {
        return false;
    }
    value = static_cast<int>(number);
    return true;
}

int serve(const std::string& root)
{
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr); // no SA_RESTART: poll() returns at once
    sigaction(SIGINT, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        diskemu::DiskServer server(root, [&root](const simstorage::Storage& storage) { publishStorage(root, storage); });
        server.run(gStop);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
    return 0;
}

// Holds the description's folder locked for one read-change-write, so that
// two changes at once don't lose one; gives up after a few seconds.
class DescriptionLock {
public:
    explicit DescriptionLock(const std::string& root)
        : fd_(open((root + "/sim").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (fd_ >= 0 && flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            if (std::chrono::steady_clock::now() >= giveUp) {
                throw simstorage::ModelError("the description stays locked by another change");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~DescriptionLock()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    DescriptionLock(const DescriptionLock&) = delete;
    DescriptionLock& operator=(const DescriptionLock&) = delete;

private:
    int fd_;
};

int set(const std::string& root, const std::string& id, int count, char** assignments)
{
    try {
        DescriptionLock lock(root);
        const std::string path = simstorage::descriptionPath(root);
        simstorage::Storage storage = simstorage::load(path);
        for (int i = 0; i < count; ++i) {
            simstorage::apply(storage, id, assignments[i]);
        }
        // The description first: the disks answer as described before the
        // tree shows the change, as a real disk is there before the kernel
        // has seen it.
        simstorage::save(path, storage);
        publishStorage(root, storage);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0) {
        return serve(argv[2]);
    }
    if (argc >= 5 && std::strcmp(argv[1], "set") == 0) {
        return set(argv[2], argv[3], argc - 4, argv + 4);
    }
    try {
        int hbas = 0, disks = 0;
        if (argc == 3 && std::strcmp(argv[1], "sync") == 0) {
            publishStorage(argv[2], simstorage::load(simstorage::descriptionPath(argv[2])));
            return 0;
        }
        if (argc == 4 && std::strcmp(argv[1], "generate") == 0 && wholeNumber(argv[2], hbas) &&
            wholeNumber(argv[3], disks)) {
            std::cout << simstorage::render(simstorage::generate(hbas, disks));
            return std::cout.flush() ? 0 : 1;
        }
    } catch (const std::exception& error) {
        return fail(error.what());
    }
    return usage();
}
