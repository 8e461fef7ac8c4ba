// storage_bench: what one full storage inventory build and one poll of the
// SAS manager cost, for simulated hosts of 32 to 256 disks behind plain
// HBAs served by the disk emulator: CPU time of the manager's work and the
// number of SCSI requests it sends. See README.md.
//
//   storage_bench                 every size, medians of 3 runs each
//   storage_bench --one HBAS DISKS  one run in this process (used by the above)

#include "SASResourceManager.h"
#include "SMBIOSVMware.h"
#include "vekPlatformServices.h"
#include "vekScsiInfo.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

const std::string kSource = VEK_BENCH_SOURCE_DIR;
const std::string kBinary = VEK_BENCH_BINARY_DIR;
const std::string kEmulator = kBinary + "/testtools/diskemu/diskemu";

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

double wallMs()
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// CPU time (user + system) of another process so far, from /proc/PID/stat.
double processCpuMs(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t end = text.rfind(')');
    if (end == std::string::npos) {
        return 0;
    }
    std::istringstream fields(text.substr(end + 2));
    std::string field;
    unsigned long long user = 0, system = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14) {
            user = std::stoull(field);
        } else if (i == 15) {
            system = std::stoull(field);
        }
    }
    return (user + system) * 1000.0 / sysconf(_SC_CLK_TCK);
}

int run(const std::string& command)
{
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Measure {
    double cpuMs = 0, wallMs = 0, emulatorMs = 0;
    unsigned long long requests = 0;
};

// One build or poll on this thread, with what it cost.
template <typename Work>
Measure measure(pid_t emulator, Work work)
{
    Measure m;
    const unsigned long long requests = vekScsiRequestCount();
    const double emulatorBefore = processCpuMs(emulator), cpu = threadCpuMs(), wall = wallMs();
    work();
    m.cpuMs = threadCpuMs() - cpu;
    m.wallMs = wallMs() - wall;
    m.emulatorMs = processCpuMs(emulator) - emulatorBefore;
    m.requests = vekScsiRequestCount() - requests;
    return m;
}

// One host of that size, one build and one poll; prints a line of numbers.
int runOne(int hbas, int disks)
{
    char folder[] = "/tmp/vek-storage-bench-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        return 2;
    }
    const std::string host = folder;
    if (run("sh '" + kSource + "/testtools/simhost/mkhost.sh' '" + kSource + "/testtools/simhost/profiles/rack-type4' '" +
            host + "' >/dev/null") != 0 ||
        run("'" + kEmulator + "' generate " + std::to_string(hbas) + " " + std::to_string(disks) + " > '" + host +
            "/sim/disks.json'") != 0) {
        return 2;
    }
    // Only the storage manager, and no timed work of its own during the measure.
    std::ofstream(host + "/opt/zolvek/vital/vek.conf", std::ios::trunc)
        << "{\"EnableResources\": [\"StorageControllers (SASRM)\"], \"LoggingLevel\": \"Warning\"}\n";
    setenv("VEK_ROOT", host.c_str(), 1);
    setenv("PATH", (host + "/bin:" + std::getenv("PATH")).c_str(), 1);

    const std::string readyFile = host + "/sim/diskemu.out";
    pid_t emulator = -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, readyFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char*> argv = {const_cast<char*>(kEmulator.c_str()), const_cast<char*>("serve"),
                               const_cast<char*>(host.c_str()), nullptr};
    const int spawned = posix_spawn(&emulator, kEmulator.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        return 2;
    }
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        std::ifstream in(readyFile);
        std::string line;
        if (std::getline(in, line) && line.find("ready") != std::string::npos) {
            break;
        }
        if (std::chrono::steady_clock::now() > giveUp) {
            kill(emulator, SIGKILL);
            return 2;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    vekPlatformServices services;
    services.SetSmbiosServiceInterface(new SMBIOSVMware());
    vekPlatformServices::setCurrent(&services);
    SASResourceManager& sas = SASResourceManager::getInstance();
    std::thread job([&] { sas.init(services); });
    // The manager's own first build; the measured ones come after it, on a
    // host whose controllers are known, as every later build of a service is.
    while (!sas.isInventoryReady(0) && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::vector<Json::Value> drives;
    sas.getInventoryJsonObject2(SASResourceManager::DRIVES, drives);
    const Measure build = measure(emulator, [&] { sas.cacheBuild(); });
    const Measure poll = measure(emulator, [&] { sas.pollDevices(); });
    sas.stopResourceManagerJob();
    job.join();
    kill(emulator, SIGTERM);
    waitpid(emulator, nullptr, 0);
    run("rm -rf '" + host + "'");
    std::printf("%zu %.2f %.2f %.2f %llu %.2f %.2f %.2f %llu\n", drives.size(), build.cpuMs, build.wallMs,
                build.emulatorMs, build.requests, poll.cpuMs, poll.wallMs, poll.emulatorMs, poll.requests);
    return drives.size() == static_cast<size_t>(hbas * disks) ? 0 : 1;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::string(argv[1]) == "--one") {
        return runOne(std::atoi(argv[2]), std::atoi(argv[3]));
    }
    const int sizes[][2] = {{1, 32}, {2, 32}, {4, 32}, {8, 32}};
    const int repeats = 3;
    std::printf("%-6s %-6s | %-10s %-10s %-9s %-9s %-8s | %-10s %-10s %-9s %-8s\n", "HBAs", "disks", "build ms",
                "emul ms", "requests", "req/disk", "ms/disk", "poll ms", "emul ms", "requests", "req/disk");
    std::vector<double> perDisk;
    for (const auto& size : sizes) {
        std::vector<double> columns[8];
        size_t found = 0;
        for (int r = 0; r < repeats; ++r) {
            const std::string command = std::string("'") + argv[0] + "' --one " + std::to_string(size[0]) + " " +
                                        std::to_string(size[1]);
            FILE* child = popen(command.c_str(), "r");
            double v[8] = {};
            unsigned long long buildRequests = 0, pollRequests = 0;
            const int read = child ? std::fscanf(child, "%zu %lf %lf %lf %llu %lf %lf %lf %llu", &found, &v[0], &v[1],
                                                 &v[2], &buildRequests, &v[4], &v[5], &v[6], &pollRequests)
                                   : 0;
            const int status = child ? pclose(child) : -1;
            if (read != 9 || status != 0) {
                std::fprintf(stderr, "storage_bench: the run of %d x %d failed (status %d)\n", size[0], size[1],
                             status);
                return 1;
            }
            v[3] = static_cast<double>(buildRequests);
            v[7] = static_cast<double>(pollRequests);
            for (int c = 0; c < 8; ++c) {
                columns[c].push_back(v[c]);
            }
        }
        const int disks = size[0] * size[1];
        const double buildCpu = median(columns[0]), buildRequests = median(columns[3]);
        perDisk.push_back(buildCpu / disks);
        std::printf("%-6d %-6d | %-10.1f %-10.1f %-9.0f %-9.1f %-8.2f | %-10.1f %-10.1f %-9.0f %-8.1f\n", size[0],
                    disks, buildCpu, median(columns[2]), buildRequests, buildRequests / disks, buildCpu / disks,
                    median(columns[4]), median(columns[6]), median(columns[7]), median(columns[7]) / disks);
    }
    const double spread = *std::max_element(perDisk.begin(), perDisk.end()) /
                          *std::min_element(perDisk.begin(), perDisk.end());
    std::printf("build CPU per disk varies by %.2fx from 32 to 256 disks: %s\n", spread,
                spread <= 1.5 ? "linear" : "NOT linear");
    return 0;
}
