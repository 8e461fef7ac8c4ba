#include "vekDiskEmulator.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <regex>
#include <stdexcept>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kProgramPatience = std::chrono::seconds(30);
constexpr auto kStopPatience = std::chrono::seconds(10);
constexpr int kSocketTimeoutSeconds = 10;

int remainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

// Starts argv[0] from PATH (or by its path) with the given pipe ends as its
// standard input (-1: /dev/null) and output; the child's copies only.
pid_t spawn(const std::vector<std::string>& argv, int inFd, int outFd, bool errorsToo)
{
    std::vector<char*> args;
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        const int in = inFd >= 0 ? inFd : open("/dev/null", O_RDONLY);
        dup2(in, STDIN_FILENO);
        dup2(outFd, STDOUT_FILENO);
        if (errorsToo) {
            dup2(outFd, STDERR_FILENO);
        }
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// Waits for the child until the deadline, then kills it; its exit status,
// or -1 when it had to be killed.
int reap(pid_t pid, Clock::time_point deadline)
{
    int raw = 0;
    while (waitpid(pid, &raw, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &raw, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

struct Pipe {
    int read = -1;
    int write = -1;
    Pipe()
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0) {
            throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
        }
        read = fds[0];
        write = fds[1];
    }
    ~Pipe()
    {
        closeRead();
        closeWrite();
    }
    void closeRead()
    {
        if (read >= 0) {
            close(read);
        }
        read = -1;
    }
    void closeWrite()
    {
        if (write >= 0) {
            close(write);
        }
        write = -1;
    }
};

void appendLe32(std::vector<uint8_t>& out, uint32_t value)
{
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

uint32_t le32(const std::vector<uint8_t>& in, size_t at)
{
    return uint32_t{in[at]} | uint32_t{in[at + 1]} << 8 | uint32_t{in[at + 2]} << 16 | uint32_t{in[at + 3]} << 24;
}

} // namespace

vekProgramResult vekRunProgram(const std::vector<std::string>& argv, const std::string& input)
{
    Pipe in;
    Pipe out;
    const auto deadline = Clock::now() + kProgramPatience;
    const pid_t pid = spawn(argv, in.read, out.write, true);
    in.closeRead();
    out.closeWrite();
    vekProgramResult result;
    if (pid < 0) {
        return result;
    }
    fcntl(in.write, F_SETFL, O_NONBLOCK);
    size_t written = 0;
    if (input.empty()) {
        in.closeWrite();
    }
    while (Clock::now() < deadline) {
        pollfd fds[2] = {{out.read, POLLIN, 0}, {in.write, POLLOUT, 0}};
        if (poll(fds, in.write >= 0 ? 2 : 1, remainingMs(deadline)) <= 0) {
            continue;
        }
        if (in.write >= 0 && fds[1].revents != 0) {
            const ssize_t put = ::write(in.write, input.data() + written, input.size() - written);
            written += put > 0 ? static_cast<size_t>(put) : 0;
            if (put < 0 || written == input.size()) {
                in.closeWrite();
            }
        }
        if (fds[0].revents != 0) {
            char buffer[4096];
            const ssize_t got = ::read(out.read, buffer, sizeof(buffer));
            if (got <= 0) {
                break;
            }
            result.output.append(buffer, static_cast<size_t>(got));
        }
    }
    result.status = reap(pid, deadline);
    return result;
}

bool vekProgramOnPath(const std::string& name)
{
    return vekRunProgram({"sh", "-c", "command -v \"$1\"", "sh", name}).status == 0;
}

std::string vekDiskEmulator::program() { return std::string(VEK_BINARY_DIR) + "/testtools/diskemu/diskemu"; }

vekDiskEmulator::vekDiskEmulator(const std::string& root) : root_(root)
{
    Pipe out;
    child_ = spawn({program(), "serve", root_}, -1, out.write, false);
    out.closeWrite();
    if (child_ < 0) {
        throw std::runtime_error("can't start " + program());
    }
    const auto deadline = Clock::now() + kProgramPatience;
    std::string said;
    static const std::regex readyLine("diskemu: ready \\(([0-9]+) devices\\)\n");
    std::smatch match;
    while (!std::regex_search(said, match, readyLine)) {
        pollfd fd = {out.read, POLLIN, 0};
        char buffer[256];
        ssize_t got = 0;
        if (Clock::now() >= deadline || poll(&fd, 1, remainingMs(deadline)) <= 0 ||
            (got = ::read(out.read, buffer, sizeof(buffer))) <= 0) {
            stop();
            throw std::runtime_error(program() + " did not come up; it said: " + said);
        }
        said.append(buffer, static_cast<size_t>(got));
    }
    readyDevices_ = std::stoi(match[1]);
    // It says nothing more on its standard output, which closes here.
}

vekDiskEmulator::~vekDiskEmulator() { stop(); }

void vekDiskEmulator::stop()
{
    if (child_ > 0) {
        kill(child_, SIGTERM);
        reap(child_, Clock::now() + kStopPatience);
        child_ = -1;
    }
}

std::string vekDiskEmulator::socketPath(int sg) const { return root_ + "/dev/sg" + std::to_string(sg); }

void vekDiskEmulator::set(const std::string& id, const std::vector<std::string>& assignments) const
{
    std::vector<std::string> argv = {program(), "set", root_, id};
    argv.insert(argv.end(), assignments.begin(), assignments.end());
    const vekProgramResult result = vekRunProgram(argv);
    if (result.status != 0) {
        throw std::runtime_error("diskemu set " + id + " failed: " + result.output);
    }
}

vekDiskEmulator::Reply vekDiskEmulator::request(int sg, const std::vector<uint8_t>& cdb, int direction,
                                                uint32_t dxferLen, const std::vector<uint8_t>& dataOut) const
{
    Reply reply;
    const std::string path = socketPath(sg);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("socket path too long: " + path);
    }
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return reply;
    }
    const timeval timeout = {kSocketTimeoutSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));

    std::vector<uint8_t> message = {'S', 'G', 'I', 'O'};
    appendLe32(message, static_cast<uint32_t>(direction));
    appendLe32(message, static_cast<uint32_t>(cdb.size()));
    appendLe32(message, dxferLen);
    appendLe32(message, 60000);
    message.insert(message.end(), cdb.begin(), cdb.end());
    if (direction == kToDevice) {
        message.insert(message.end(), dataOut.begin(), dataOut.end());
    }
    std::vector<uint8_t> in;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        send(fd, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size())) {
        uint8_t buffer[4096];
        ssize_t got;
        while ((got = recv(fd, buffer, sizeof(buffer), 0)) > 0) {
            in.insert(in.end(), buffer, buffer + got);
        }
    }
    close(fd);

    constexpr size_t kHeader = 24;
    if (in.size() < kHeader || std::memcmp(in.data(), "SGIO", 4) != 0) {
        return reply;
    }
    const size_t senseLength = le32(in, 16);
    const size_t dataLength = le32(in, 20);
    if (in.size() != kHeader + senseLength + dataLength) {
        return reply;
    }
    reply.answered = true;
    reply.status = le32(in, 4);
    reply.hostStatus = le32(in, 8);
    reply.driverStatus = le32(in, 12);
    reply.sense.assign(in.begin() + kHeader, in.begin() + static_cast<long>(kHeader + senseLength));
    reply.data.assign(in.begin() + static_cast<long>(kHeader + senseLength), in.end());
    return reply;
}
