// How fast payloads go to the RMC through vekIPMIService, measured against
// the emulated RMC over the external IPMI link: for each payload size, the
// exchanges made against the fewest the chunk format allows, and the bytes
// per second, once with the pause after each command and once with it scaled
// away (VEK_TIME_SCALE). See README.md beside this file.

#include "vekIPMIService.h"
#include "vekRMCCliProtocol.h"
#include "vekSamplePayload.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const char kScript[] = VEK_BENCH_SOURCE_DIR "/testtools/rmcemu/rmc-emu.sh";
const char kModule[] = VEK_BENCH_BINARY_DIR "/testtools/rmcemu/vekrmc_module.so";

struct Options {
    std::vector<size_t> sizes = {1024, 4096, 16384, 65536, 262144, 1048576};
    long fastScale = 100;
    int repeats = 1;
};

std::string run(const std::string& command, int& status)
{
    std::string output;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
    if (!pipe) {
        status = -1;
        return output;
    }
    char buffer[512];
    size_t got;
    while ((got = fread(buffer, 1, sizeof(buffer), pipe.get())) > 0) {
        output.append(buffer, got);
    }
    const int raw = pclose(pipe.release());
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return output;
}

std::string readWhole(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

// The emulated RMC for the run: the one VEK_IPMI_EXTERNAL and VEK_RMC_SPOOL
// name, or one of our own, stopped at the end.
class Emulator {
public:
    Emulator()
    {
        const char* address = getenv("VEK_IPMI_EXTERNAL");
        const char* spool = getenv("VEK_RMC_SPOOL");
        if (address != nullptr && spool != nullptr && *address != '\0' && *spool != '\0') {
            spool_ = spool;
            return;
        }
        char pattern[] = "/tmp/vek-ipmi-bench.XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            throw std::runtime_error("cannot make a state folder");
        }
        spool_ = pattern;
        own_ = true;
        int status = 0;
        const std::string output = run("VEK_RMC_SPOOL='" + spool_ + "' VEK_RMC_MODULE='" + kModule + "' '" +
                                           std::string(kScript) + "' start",
                                       status);
        std::smatch m;
        if (status != 0 || !std::regex_search(output, m, std::regex("VEK_IPMI_EXTERNAL=([^\\n]*)"))) {
            throw std::runtime_error("the emulated RMC did not start: " + output);
        }
        setenv("VEK_IPMI_EXTERNAL", m[1].str().c_str(), 1);
    }

    ~Emulator()
    {
        if (own_) {
            int status = 0;
            run("'" + std::string(kScript) + "' stop '" + spool_ + "'", status);
            run("rm -rf '" + spool_ + "'", status);
        }
    }

    // Chunks the RMC answered so far.
    size_t exchanges() const
    {
        std::istringstream log(readWhole(spool_ + "/rmc.log"));
        size_t count = 0;
        for (std::string line; std::getline(log, line);) {
            count += line.compare(0, 11, "0x80 index=") == 0 ? 1 : 0;
        }
        return count;
    }

    // The payload of the newest spooled command.
    std::string lastPayload() const
    {
        int status = 0;
        std::string name = run("ls -1 '" + spool_ + "' | grep -E '^[0-9]{6}-' | sort | tail -1", status);
        name.erase(name.find_last_not_of('\n') + 1);
        return readWhole(spool_ + "/" + name);
    }

private:
    std::string spool_;
    bool own_ = false;
};

// The fewest 60-byte chunks that can carry a payload and its NUL: the first
// chunk has room for 33 bytes (after index, name and length), every later
// one for 57.
size_t minimumExchanges(size_t payloadLength)
{
    using namespace vekIPMI::rmcCli;
    const size_t total = payloadLength + 1;
    if (total <= kFirstPayloadBytes) {
        return 1;
    }
    return 1 + (total - kFirstPayloadBytes + kNextPayloadBytes - 1) / kNextPayloadBytes;
}

std::string payloadOf(size_t length)
{
    return vekIPMITest::payloadOf(length, static_cast<unsigned>(length));
}

// A root of our own, so that the service's configuration and logs (errors
// only) stay out of the way.
std::string makeRoot()
{
    char pattern[] = "/tmp/vek-ipmi-bench-root.XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        throw std::runtime_error("cannot make a root folder");
    }
    const std::string root = pattern;
    int status = 0;
    run("mkdir -p '" + root + "/opt/zolvek/vital' '" + root + "/scratch/log/zolvek'", status);
    std::ofstream conf(root + "/opt/zolvek/vital/vek.conf");
    conf << R"({"EnableDebugLog": false, "LoggingLevel": "Error",)"
         << R"( "VEKLogLocation": "/scratch/log/zolvek/vek.log"})" << "\n";
    setenv("VEK_ROOT", root.c_str(), 1);
    return root;
}

void measure(vekIPMIService& service, const Emulator& rmc, const Options& options, long scale)
{
    setenv("VEK_TIME_SCALE", std::to_string(scale).c_str(), 1);
    const double pauseMs = 500.0 / static_cast<double>(scale);
    std::printf("\nVEK_TIME_SCALE=%ld: pause after each command %.1f ms\n", scale, pauseMs);
    std::printf("%10s %10s %10s %7s %10s %12s %12s\n", "bytes", "exchanges", "minimum", "ratio", "seconds",
                "bytes/s", "exch/s");
    for (size_t size : options.sizes) {
        const std::string payload = payloadOf(size);
        double seconds = 0;
        size_t exchanges = 0;
        for (int i = 0; i < options.repeats; ++i) {
            const size_t before = rmc.exchanges();
            const auto start = std::chrono::steady_clock::now();
            service.sendData("WriteInventory", payload);
            seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            exchanges = rmc.exchanges() - before;
            if (rmc.lastPayload() != payload) {
                throw std::runtime_error("the RMC did not receive the payload of " + std::to_string(size) +
                                         " bytes whole");
            }
        }
        seconds /= options.repeats;
        const size_t minimum = minimumExchanges(size);
        std::printf("%10zu %10zu %10zu %7.3f %10.3f %12.0f %12.0f\n", size, exchanges, minimum,
                    static_cast<double>(exchanges) / static_cast<double>(minimum), seconds,
                    static_cast<double>(size) / seconds, static_cast<double>(exchanges) / seconds);
    }
}

void usage(const char* self)
{
    std::fprintf(stderr,
                 "usage: %s [--sizes N,N,...] [--fast-scale N] [--repeats N]\n"
                 "  --sizes       payload sizes in bytes (default 1024,...,1048576)\n"
                 "  --fast-scale  VEK_TIME_SCALE of the second run (default 100: the pause\n"
                 "                becomes 5 ms; the answer timeout stays at least 2 s)\n"
                 "  --repeats     sends per size, averaged (default 1)\n",
                 self);
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc) {
            usage(argv[0]);
            return 2;
        }
        const std::string value = argv[++i];
        if (arg == "--sizes") {
            options.sizes.clear();
            std::istringstream list(value);
            for (std::string item; std::getline(list, item, ',');) {
                options.sizes.push_back(std::stoul(item));
            }
        } else if (arg == "--fast-scale") {
            options.fastScale = std::stol(value);
        } else if (arg == "--repeats") {
            options.repeats = std::max(1, std::stoi(value));
        } else {
            usage(argv[0]);
            return 2;
        }
    }

    std::string root;
    try {
        root = makeRoot();
        Emulator rmc;
        std::printf("RMC at %s; format: %zu-byte chunks, %zu payload bytes in the first, %zu in each later one\n",
                    getenv("VEK_IPMI_EXTERNAL"), vekIPMI::rmcCli::kChunkSize, vekIPMI::rmcCli::kFirstPayloadBytes,
                    vekIPMI::rmcCli::kNextPayloadBytes);
        vekIPMIService& service = vekIPMIService::getInstance();
        measure(service, rmc, options, 1);
        measure(service, rmc, options, options.fastScale);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ipmi_bench: %s\n", e.what());
        int status = 0;
        run("rm -rf '" + root + "'", status);
        return 1;
    }
    int status = 0;
    run("rm -rf '" + root + "'", status);
    return 0;
}
