// vekcli: the client of the service's test event server. It writes one
// message to the request pipe, waits (bounded) for the answer on the answer
// pipe and prints it. See README.md beside it.
//
// It does not link the service's library: that would open the service's own
// log files. Only the message layout is shared, through vekServerPipes.h.

#include "vekServerPipes.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Exit statuses.
const int kDone = 0;
const int kRefused = 1;
const int kUsage = 2;
const int kNoAnswer = 3;

const uint16_t kTestEvent = 256;
const uint16_t kJsonEvent = 258;
const uint16_t kSaveInventory = 259;
const uint16_t kAnswerCode = 0;
const uint32_t kAnswerLength = 8;

const char kUsageText[] =
    "usage: vekcli [--timeout SECONDS] COMMAND ARGUMENTS\n"
    "  event NUMBER RESOURCE [DETAILS...]  raise test event NUMBER for RESOURCE (message 256):\n"
    "                                      1 server, 2 host, 3 NIC, 4 Fibre Channel, 5 SAS storage,\n"
    "                                      6 NVMe, 7 none; DETAILS go to the resource's manager\n"
    "  json FILE | - | 'JSON TEXT'         send a JSON event, from a file, standard input or the\n"
    "                                      argument itself (message 258)\n"
    "  save PATH                           have the service write its last inventory to PATH, an\n"
    "                                      absolute path on the service's host (message 259)\n"
    "  send CODE [PAYLOAD]                 send any message code with PAYLOAD as it is (257: a\n"
    "                                      test event like 256)\n"
    "The pipes are $VEK_ROOT/var/run/zolvek (requests) and $VEK_ROOT/var/run/zolvekcli (answers).\n"
    "The answer is awaited for 30 seconds unless --timeout says otherwise.\n"
    "Exit status: 0 done, 1 the service refused, 2 bad arguments, 3 no answer.\n";

struct Request {
    uint16_t code = 0;
    std::string payload;
    std::string resource;  // event: the resource's number
    std::string number;    // event: the event's number
};

int usage(const std::string& problem)
{
    std::cerr << "vekcli: " << problem << "\n" << kUsageText;
    return kUsage;
}

bool parseNumber(const std::string& text, long low, long high, long& value)
{
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= low && value <= high;
}

const char* resourceName(const std::string& resource)
{
    static const char* const names[] = {"", "server", "host", "NIC", "Fibre Channel", "SAS storage", "NVMe",
                                        "none"};
    long number = 0;
    return parseNumber(resource, 1, 7, number) ? names[number] : "unknown";
}

// At most one byte past the limit, so that an oversized source is seen as such.
bool readBounded(std::istream& in, std::string& text)
{
    std::vector<char> buffer(VEK_MESSAGE_MAX_PAYLOAD + 1);
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    text.assign(buffer.data(), static_cast<size_t>(in.gcount()));
    return !in.bad();
}

int jsonPayload(const std::string& source, std::string& payload)
{
    const size_t first = source.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && (source[first] == '{' || source[first] == '[')) {
        payload = source;
    } else if (source == "-") {
        if (!readBounded(std::cin, payload)) {
            return usage("cannot read the JSON event from standard input");
        }
    } else {
        std::ifstream in(source, std::ios::binary);
        if (!in || !readBounded(in, payload)) {
            return usage("cannot read the JSON event from " + source);
        }
    }
    return kDone;
}

int parseArguments(int argc, char** argv, Request& request, int& timeoutSeconds)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    size_t at = 0;
    if (at < words.size() && words[at] == "--timeout") {
        long seconds = 0;
        if (at + 1 >= words.size() || !parseNumber(words[at + 1], 1, 3600, seconds)) {
            return usage("--timeout needs a number of seconds from 1 to 3600");
        }
        timeoutSeconds = static_cast<int>(seconds);
        at += 2;
    }
    if (at >= words.size()) {
        return usage("no command");
    }
    const std::string command = words[at++];
    const std::vector<std::string> args(words.begin() + static_cast<long>(at), words.end());
    long value = 0;
    if (command == "event") {
        if (args.size() < 2 || !parseNumber(args[0], 0, INT32_MAX, value) ||
            !parseNumber(args[1], 0, INT32_MAX, value)) {
            return usage("event needs an event number and a resource number");
        }
        request.code = kTestEvent;
        request.number = args[0];
        request.resource = args[1];
        for (const std::string& arg : args) {
            request.payload += (request.payload.empty() ? "" : " ") + arg;
        }
    } else if (command == "json") {
        if (args.size() != 1) {
            return usage("json needs one file, '-' or JSON text");
        }
        request.code = kJsonEvent;
        const int status = jsonPayload(args[0], request.payload);
        if (status != kDone) {
            return status;
        }
    } else if (command == "save") {
        // The service writes the file from its own folder, on its own host
        // (under its VEK_ROOT when simulated): only an absolute path is clear.
        if (args.size() != 1 || args[0].empty() || args[0][0] != '/') {
            return usage("save needs one absolute path");
        }
        request.code = kSaveInventory;
        request.payload = args[0];
    } else if (command == "send") {
        if (args.empty() || args.size() > 2 || !parseNumber(args[0], 0, 65535, value)) {
            return usage("send needs a message code from 0 to 65535 and at most one payload");
        }
        request.code = static_cast<uint16_t>(value);
        request.payload = args.size() == 2 ? args[1] : "";
    } else {
        return usage("unknown command '" + command + "'");
    }
    if (request.payload.size() > VEK_MESSAGE_MAX_PAYLOAD) {
        return usage("the payload is larger than the service takes (" + std::to_string(VEK_MESSAGE_MAX_PAYLOAD) +
                     " bytes)");
    }
    return kDone;
}

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

int millisecondsLeft(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool waitFor(int fd, short events, Clock::time_point deadline)
{
    for (;;) {
        pollfd entry{fd, events, 0};
        const int ready = poll(&entry, 1, millisecondsLeft(deadline));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

void putLittle(std::string& bytes, size_t at, uint32_t value, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        bytes[at + i] = static_cast<char>(value >> (8 * i));
    }
}

uint64_t little(const std::string& bytes, size_t at, size_t size)
{
    uint64_t value = 0;
    for (size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

bool writeAll(int fd, const std::string& bytes, Clock::time_point deadline)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n >= 0) {
            done += static_cast<size_t>(n);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!waitFor(fd, POLLOUT, deadline)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool isFifo(const std::string& path)
{
    struct stat info;
    return lstat(path.c_str(), &info) == 0 && S_ISFIFO(info.st_mode);
}

// Waits for the answer to this process; answers to other clients that are
// still in the pipe are passed over. False when none came in time.
bool readAnswer(int fd, uint32_t pid, Clock::time_point deadline, int64_t& result, std::string& problem)
{
    std::string bytes;
    for (;;) {
        while (bytes.size() >= VEK_MESSAGE_HEADER_SIZE) {
            const uint16_t code = static_cast<uint16_t>(little(bytes, 3, 2));
            const uint64_t length = little(bytes, 5, 4);
            if (code != kAnswerCode || length != kAnswerLength) {
                problem = "the answer is not one of the service's (code " + std::to_string(code) + ", " +
                          std::to_string(length) + " bytes)";
                return false;
            }
            if (bytes.size() < VEK_MESSAGE_HEADER_SIZE + kAnswerLength) {
                break;
            }
            const uint32_t to = static_cast<uint32_t>(little(bytes, 9, 4));
            const int64_t value = static_cast<int64_t>(little(bytes, VEK_MESSAGE_HEADER_SIZE, 8));
            bytes.erase(0, VEK_MESSAGE_HEADER_SIZE + kAnswerLength);
            if (to == pid) {
                result = value;
                return true;
            }
        }
        if (!waitFor(fd, POLLIN, deadline)) {
            problem = "no answer in time";
            return false;
        }
        char buffer[256];
        const ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n > 0) {
            bytes.append(buffer, static_cast<size_t>(n));
        } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
            problem = std::string("cannot read the answer: ") + std::strerror(errno);
            return false;
        }
    }
}

// What the result means, by message code.
std::string meaning(const Request& request, int64_t result)
{
    switch (request.code) {
    case kTestEvent:
    case kTestEvent + 1:
        if (result == 0) {
            return request.number.empty()
                       ? "test event raised"
                       : "test event " + request.number + " raised for resource " + request.resource + " (" +
                             resourceName(request.resource) + ")";
        }
        return "no test event raised: an unknown resource, a text that is not two numbers, or the resource's "
               "manager could not send it";
    case kJsonEvent:
        return result == 0 ? "JSON event sent"
                           : "JSON event refused: not JSON, a required member missing (\"EventTime\", "
                             "\"HostName\", \"ID\", \"IPv4Addresses\", \"OSType\", \"OSVersion\"), an unknown "
                             "event number, or a device event without \"PhysicalLocation\"";
    case kSaveInventory:
        if (result == 0) {
            return "inventory saved to " + request.payload;
        }
        return result == -1 ? "no inventory has been collected yet" : "the service could not write the file";
    default:
        return result == 0 ? "done" : "message code " + std::to_string(request.code) + " refused or not handled";
    }
}

} // namespace

int main(int argc, char** argv)
{
    Request request;
    int timeoutSeconds = 30;
    const int parsed = parseArguments(argc, argv, request, timeoutSeconds);
    if (parsed != kDone) {
        return parsed;
    }
    // A service that goes away mid-write must not end the client by signal.
    signal(SIGPIPE, SIG_IGN);
    const char* root = getenv("VEK_ROOT");
    const std::string base = root != nullptr ? root : "";
    const std::string requestPath = base + "/var/run/zolvek";
    const std::string answerPath = base + "/var/run/zolvekcli";
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeoutSeconds);

    if (!isFifo(requestPath)) {
        std::cerr << "vekcli: the service is not running (no pipe " << requestPath << ")\n";
        return kNoAnswer;
    }
    if (mkfifo(answerPath.c_str(), 0666) != 0 && !(errno == EEXIST && isFifo(answerPath))) {
        std::cerr << "vekcli: cannot make the answer pipe " << answerPath << ": " << std::strerror(errno) << "\n";
        return kNoAnswer;
    }
    // Open for writing too: the pipe then never reads as ended between the
    // service's open and its write, and the wait below is one poll.
    const Fd answer(open(answerPath.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (answer.get() < 0) {
        std::cerr << "vekcli: cannot open " << answerPath << ": " << std::strerror(errno) << "\n";
        return kNoAnswer;
    }
    const Fd server(open(requestPath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (server.get() < 0) {
        std::cerr << "vekcli: the service is not listening on " << requestPath << ": " << std::strerror(errno)
                  << "\n";
        return kNoAnswer;
    }
    const uint32_t pid = static_cast<uint32_t>(getpid());
    std::string message(VEK_MESSAGE_HEADER_SIZE, '\0');
    putLittle(message, 3, request.code, 2);
    putLittle(message, 5, static_cast<uint32_t>(request.payload.size()), 4);
    putLittle(message, 9, pid, 4);
    // One write: up to PIPE_BUF bytes it cannot mix with another client's.
    message += request.payload;
    if (!writeAll(server.get(), message, deadline)) {
        std::cerr << "vekcli: cannot send the request to " << requestPath
                  << " (the service went away or took no more)\n";
        return kNoAnswer;
    }
    int64_t result = 0;
    std::string problem;
    if (!readAnswer(answer.get(), pid, deadline, result, problem)) {
        std::cerr << "vekcli: " << problem << " (waited up to " << timeoutSeconds << " s on " << answerPath << ")\n";
        return kNoAnswer;
    }
    const std::string text = meaning(request, result);
    if (result < 0) {
        std::cerr << "vekcli: the service answered " << result << ": " << text
                  << " (its log tells more: /scratch/log/zolvek/vek.log on its host)\n";
        return kRefused;
    }
    std::cout << "vekcli: the service answered " << result << ": " << text << "\n";
    return kDone;
}
