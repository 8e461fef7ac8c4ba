// The one way the service runs a host command: /bin/sh in a process group of
// its own, output read against a deadline, the whole group killed when the
// deadline passes, the child reaped on every path.

#include "vekGlobalDef.h"

#include "vekConfig.h"
#include "vekLog.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cctype>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace {

const char TAG[] = "HOST_COMMAND";

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A command bound below this cannot even start a shell on a loaded machine.
const milliseconds kTimeoutFloor(2000);
// How long a killed group gets to end on SIGTERM before SIGKILL, and how long
// SIGKILL may take before the reaping is left to a thread of its own.
const milliseconds kTerminateGrace(2000);
const milliseconds kTerminateGraceFloor(250);
const milliseconds kKillWait(5000);

using vekGlobalDef::UniqueFd;

// How the child starts: its own process group, stdout into the pipe, stdin
// from /dev/null, and an empty signal mask with default dispositions. The
// service blocks SIGTERM and SIGINT in all its threads; a command must not
// inherit that, or it could not be stopped.
class SpawnSetup {
public:
    explicit SpawnSetup(int outputFd)
    {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        sigset_t none;
        sigemptyset(&none);
        sigset_t all;
        sigfillset(&all);
        sigdelset(&all, SIGKILL);
        sigdelset(&all, SIGSTOP);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, outputFd, STDOUT_FILENO);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    int spawn(pid_t& pid, const std::string& command)
    {
        char shell[] = "sh";
        char option[] = "-c";
        std::string line = command;
        char* argv[] = {shell, option, &line[0], nullptr};
        return posix_spawn(&pid, "/bin/sh", &actions_, &attributes_, argv, environ);
    }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

// The shell and its process group (same id). Until it is reaped, the child
// stays a zombie at worst, so its id cannot be taken by another process and
// signals to the group reach only what the command started.
class ChildProcess {
public:
    explicit ChildProcess(pid_t pid) : pid_(pid) {}
    ~ChildProcess()
    {
        if (!reaped_) {
            terminate();
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // True once the shell has ended, by the deadline at the latest. It is
    // not reaped yet.
    bool endedBy(Clock::time_point deadline) const
    {
        milliseconds pause(1);
        for (;;) {
            siginfo_t info{};
            const int rc = waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
            if (rc == 0 && info.si_pid == pid_) {
                return true;
            }
            if (rc != 0 && errno != EINTR) {
                return true; // nothing left to wait for (SIGCHLD ignored: reaped already)
            }
            const auto now = Clock::now();
            if (now >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
            pause = std::min(pause * 2, milliseconds(50));
        }
    }

    // The wait status, or -1 when it could not be had.
    int reap()
    {
        reaped_ = true;
        int status = 0;
        pid_t rc;
        do {
            rc = waitpid(pid_, &status, 0);
        } while (rc < 0 && errno == EINTR);
        return rc == pid_ ? status : -1;
    }

    // SIGTERM to the whole group, SIGKILL after a grace, then reaped.
    void terminate()
    {
        kill(-pid_, SIGTERM);
        const milliseconds grace = vekGlobalDef::timeUtils::scaledAtLeast(kTerminateGrace, kTerminateGraceFloor);
        endedBy(Clock::now() + grace);
        // Also what ignored SIGTERM or outlived the shell.
        kill(-pid_, SIGKILL);
        if (endedBy(Clock::now() + kKillWait)) {
            reap();
            return;
        }
        // A process stuck in the kernel ends when the kernel lets it; the
        // caller does not wait for that.
        VEK_LOG_ERROR(TAG, "Process %d does not end on SIGKILL; it is reaped in the background",
                      static_cast<int>(pid_));
        reaped_ = true;
        const pid_t pid = pid_;
        std::thread([pid] {
            int status = 0;
            while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }

private:
    pid_t pid_;
    bool reaped_ = false;
};

// Splits what the pipe gives into lines, each with its newline.
class LineCollector {
public:
    explicit LineCollector(std::vector<std::string>& lines) : lines_(lines) {}
    void add(const char* bytes, size_t count)
    {
        for (size_t i = 0; i < count; ++i) {
            current_ += bytes[i];
            if (bytes[i] == '\n') {
                lines_.push_back(std::move(current_));
                current_.clear();
            }
        }
    }
    void finish()
    {
        if (!current_.empty()) {
            lines_.push_back(std::move(current_));
            current_.clear();
        }
    }

private:
    std::vector<std::string>& lines_;
    std::string current_;
};

// Reads until the end of the output or the deadline; true at the end.
bool readUntil(int fd, Clock::time_point deadline, LineCollector& output)
{
    for (;;) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        struct pollfd ready = {fd, POLLIN, 0};
        const int rc = poll(&ready, 1, static_cast<int>(std::min<long long>(left, 1000)));
        if (rc < 0 && errno != EINTR) {
            return true; // the pipe cannot be read; the wait for the child still has its deadline
        }
        if (rc <= 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = read(fd, buffer, sizeof(buffer));
        if (got > 0) {
            output.add(buffer, static_cast<size_t>(got));
        } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
            return true;
        }
    }
}

} // namespace

namespace vekGlobalDef {

std::chrono::milliseconds VMwareOSUtils::hostCommandTimeout()
{
    const milliseconds configured(static_cast<long long>(vekConfig::getInstance().getHostCommandTimeout()) * 1000);
    return timeUtils::scaledAtLeast(configured, kTimeoutFloor);
}

HostCommandResult VMwareOSUtils::runHostCommand(const std::string& command)
{
    HostCommandResult result;
    const milliseconds bound = hostCommandTimeout();
    const Clock::time_point deadline = Clock::now() + bound;

    int ends[2] = {-1, -1};
    const int opened = pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno;
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    pid_t pid = -1;
    const int started = opened != 0 ? opened : SpawnSetup(writeEnd.get()).spawn(pid, command);
    writeEnd.reset();
    if (started != 0) {
        result.error = started;
        VEK_LOG_ERROR(TAG, "popen() failed! : %s", command.c_str());
        return result;
    }
    ChildProcess child(pid);

    LineCollector output(result.lines);
    if (readUntil(readEnd.get(), deadline, output) && child.endedBy(deadline)) {
        output.finish();
        result.status = child.reap();
        if (result.status == -1) {
            result.error = ECHILD;
        }
        return result;
    }
    VEK_LOG_ERROR(TAG, "Host command still running after %lld ms, killed with its process group: [%s]",
                  static_cast<long long>(bound.count()), command.c_str());
    readEnd.reset();
    child.terminate();
    result.lines.clear();
    result.timedOut = true;
    result.error = ETIMEDOUT;
    return result;
}

std::vector<std::string> VMwareOSUtils::executeCliCommandAndFetchOutput(const std::string& command)
{
    return runHostCommand(command).lines;
}

std::string VMwareOSUtils::shellQuote(const std::string& word)
{
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else if (c != '\0') {
            // A command line cannot carry a NUL; the rest of the word still goes in.
            quoted += c;
        }
    }
    return quoted + "'";
}

std::string VMwareOSUtils::composeCommand(const std::string& pattern, const std::vector<std::string>& words)
{
    std::string line;
    size_t used = 0;
    size_t from = 0;
    for (size_t at = pattern.find("{}"); at != std::string::npos; at = pattern.find("{}", from)) {
        if (used == words.size()) {
            throw std::invalid_argument("more places than words in command pattern: " + pattern);
        }
        line += pattern.substr(from, at - from) + shellQuote(words[used++]);
        from = at + 2;
    }
    if (used != words.size()) {
        throw std::invalid_argument("more words than places in command pattern: " + pattern);
    }
    return line + pattern.substr(from);
}

bool VMwareOSUtils::isPciAddress(const std::string& text)
{
    // Domain, bus, device and function: "x" stands for a hexadecimal digit.
    const size_t domain = text.find(':');
    if (domain != 4 && domain != 5) {
        return false;
    }
    const std::string shape = std::string(domain, 'x') + ":xx:xx.x";
    if (text.size() != shape.size()) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        const bool matches =
            shape[i] == 'x' ? std::isxdigit(static_cast<unsigned char>(text[i])) != 0 : text[i] == shape[i];
        if (!matches) {
            return false;
        }
    }
    return true;
}

} // namespace vekGlobalDef
