#include "vekRmcEmulator.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

const std::string kScript = std::string(VEK_SOURCE_DIR) + "/testtools/rmcemu/rmc-emu.sh";
const std::string kModule = std::string(VEK_BINARY_DIR) + "/testtools/rmcemu/vekrmc_module.so";
const char kExternalVariable[] = "VEK_IPMI_EXTERNAL";

std::string valueOf(const std::string& output, const std::string& key)
{
    std::smatch m;
    if (std::regex_search(output, m, std::regex("(^|\\n)" + key + "=([^\\n]*)"))) {
        return m[2];
    }
    return "";
}

std::string shellQuoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}

struct Result {
    std::string output;
    int status = -1;
};

// Runs a shell command, stdout and stderr together.
Result run(const std::string& command)
{
    Result result;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
    if (!pipe) {
        return result;
    }
    char buffer[512];
    size_t got;
    while ((got = fread(buffer, 1, sizeof(buffer), pipe.get())) > 0) {
        result.output.append(buffer, got);
    }
    const int raw = pclose(pipe.release());
    result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return result;
}

bool onPath(const std::string& program)
{
    return run("command -v " + program + " >/dev/null").status == 0;
}

} // namespace

std::string vekRmcEmulator::missing()
{
    if (!onPath("ipmi_sim") || !onPath("sdrcomp")) {
        return "ipmi_sim is not installed (Debian package openipmi): the emulated RMC cannot run";
    }
    if (access(kModule.c_str(), R_OK) != 0) {
        return kModule + " is missing: build the vekrmc_module target (needs libopenipmi-dev)";
    }
    return "";
}

bool vekRmcEmulator::hasIpmitool()
{
    return onPath("ipmitool");
}

vekRmcEmulator::vekRmcEmulator(const std::string& stateFolder, const std::string& sdrSource)
    : spool_(stateFolder), sdrSource_(sdrSource)
{
    if (spool_.empty()) {
        const char* tmp = getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/vek-rmc-test.XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data()) == nullptr) {
            throw std::runtime_error("cannot make a state folder from " + pattern);
        }
        spool_ = buffer.data();
        ownSpool_ = true;
    }
    const char* previous = getenv(kExternalVariable);
    hadExternal_ = previous != nullptr;
    previousExternal_ = hadExternal_ ? previous : "";
    start(false);
}

vekRmcEmulator::~vekRmcEmulator()
{
    stop();
    if (hadExternal_) {
        setenv(kExternalVariable, previousExternal_.c_str(), 1);
    } else {
        unsetenv(kExternalVariable);
    }
    if (ownSpool_) {
        run("rm -rf " + shellQuoted(spool_));
    }
}

std::string vekRmcEmulator::scriptEnv(const std::string& extra) const
{
    std::string env = "VEK_RMC_SPOOL=" + shellQuoted(spool_) + " VEK_RMC_MODULE=" + shellQuoted(kModule) + " ";
    if (!sdrSource_.empty()) {
        env += "VEK_RMC_SDRS=" + shellQuoted(sdrSource_) + " ";
    }
    return env + extra + " ";
}

void vekRmcEmulator::start(bool samePorts)
{
    const std::string ports = samePorts ? "VEK_RMC_PORT=" + address_.substr(address_.rfind(':') + 1) +
                                              " VEK_RMC_LAN_PORT=" + lanPort_
                                        : std::string();
    const Result started = run(scriptEnv(ports) + shellQuoted(kScript) + " start");
    if (started.status != 0) {
        throw std::runtime_error("the emulated RMC did not start: " + started.output);
    }
    const std::string address = valueOf(started.output, "VEK_IPMI_EXTERNAL");
    const std::string lan = valueOf(started.output, "VEK_RMC_LAN_PORT");
    if (address.empty() || lan.empty()) {
        run(scriptEnv("") + shellQuoted(kScript) + " stop");
        throw std::runtime_error("the emulated RMC said nothing of its ports: " + started.output);
    }
    address_ = address;
    lanPort_ = lan;
    started_ = true;
    setenv(kExternalVariable, address_.c_str(), 1);
}

void vekRmcEmulator::stop()
{
    try {
        thaw();
    } catch (const std::exception&) {
        // Gone already: nothing to let go on.
    }
    if (started_) {
        run(scriptEnv("") + shellQuoted(kScript) + " stop");
        started_ = false;
    }
}

void vekRmcEmulator::restart()
{
    stop();
    start(true);
}

std::vector<vekRmcEmulator::Command> vekRmcEmulator::spooledCommands() const
{
    std::vector<std::string> names;
    const Result listing = run("ls -1 " + shellQuoted(spool_));
    std::istringstream lines(listing.output);
    const std::regex spooled("[0-9]{6}-(.*)\\.txt");
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, spooled)) {
            names.push_back(line);
        }
    }
    std::sort(names.begin(), names.end());
    std::vector<Command> commands;
    for (const std::string& name : names) {
        Command command;
        command.file = name;
        command.name = name.substr(7, name.size() - 7 - 4);
        command.payload = readFile(name);
        commands.push_back(command);
    }
    return commands;
}

void vekRmcEmulator::inject(const char* file, int code, int count, int exitStatus, int after) const
{
    writeFile(file, std::to_string(code) + " " + std::to_string(count) + " " + std::to_string(exitStatus) + " " +
                        std::to_string(after) + "\n");
}

void vekRmcEmulator::injectFault(int status, int count, int exitStatus, int after) const
{
    inject("inject", status, count, exitStatus, after);
}

void vekRmcEmulator::injectCompletionCode(int completionCode, int count, int after) const
{
    inject("inject_cc", completionCode, count, 0, after);
}

void vekRmcEmulator::signal(const char* name) const
{
    const std::string pid = readFile("rmc-emu.pid");
    if (pid.empty() || pid.find_first_not_of("0123456789\n") != std::string::npos) {
        throw std::runtime_error("the emulated RMC has no process id in " + spool_);
    }
    const Result sent = run(std::string("kill -") + name + " " + pid.substr(0, pid.find('\n')));
    if (sent.status != 0) {
        throw std::runtime_error("kill -" + std::string(name) + " failed: " + sent.output);
    }
}

void vekRmcEmulator::freeze()
{
    signal("STOP");
    frozen_ = true;
}

void vekRmcEmulator::thaw()
{
    if (frozen_) {
        frozen_ = false;
        signal("CONT");
    }
}

std::string vekRmcEmulator::log() const
{
    return readFile("rmc.log");
}

size_t vekRmcEmulator::logLines(const std::string& prefix) const
{
    std::istringstream lines(log());
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, prefix.size(), prefix) == 0) {
            ++count;
        }
    }
    return count;
}

std::string vekRmcEmulator::readFile(const std::string& name) const
{
    std::ifstream in(spool_ + "/" + name, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void vekRmcEmulator::writeFile(const std::string& name, const std::string& content) const
{
    // Whole or not at all for the module, which reads these files at any time.
    const std::string temporary = spool_ + "/." + name + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << content;
    }
    rename(temporary.c_str(), (spool_ + "/" + name).c_str());
}

void vekRmcEmulator::reserveSdrOverLan() const
{
    const Result reserved = run("ipmitool -I lan -H 127.0.0.1 -p " + lanPort_ + " -U admin -P admin raw 0x0a 0x22");
    if (reserved.status != 0) {
        throw std::runtime_error("ipmitool could not reserve the SDR repository over LAN: " + reserved.output);
    }
}
