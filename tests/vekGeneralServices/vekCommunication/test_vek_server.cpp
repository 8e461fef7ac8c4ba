// The test event server through its real named pipes: what a client's
// requests make of it at the emulated RMC, clients that misbehave, stopping.

#include "IELEvent.h"
#include "vekDiskEmulator.h"
#include "vekIPMITestSupport.h"
#include "vekJobManager.h"
#include "vekPlatformServices.h"
#include "vekServer.h"
#include "vekTestInventoryPush.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
const uint32_t kPid = 4242;

// The wire format written out byte by byte, as a client of another make would.
std::string header(uint16_t code, uint32_t length)
{
    std::string bytes(17, '\0');
    bytes[3] = static_cast<char>(code);
    bytes[4] = static_cast<char>(code >> 8);
    for (int i = 0; i < 4; ++i) {
        bytes[5 + i] = static_cast<char>(length >> (8 * i));
        bytes[9 + i] = static_cast<char>(kPid >> (8 * i));
    }
    return bytes;
}

class ServerCase : public vekIPMITest::RmcCase {
protected:
    void TearDown() override { vekServer::getInstance().stopVEKServer(); }

    void start()
    {
        services.SetIELEventResolver(new IELEventMap::IELEventTRB);
        if (rmc_) {
            services.SetCommunicationService(vekInBandComManager::getInstance(smbios));
        }
        vekServer::getInstance().initializeVEKServer(&services);
    }

    // Writes raw bytes to the server once it listens.
    void send(const std::string& bytes)
    {
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        int fd = -1;
        while ((fd = open(root.hostPath("/var/run/zolvek").c_str(), O_WRONLY | O_NONBLOCK)) < 0) {
            ASSERT_LT(Clock::now(), deadline) << "the server never listened";
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        close(fd);
    }

    // Sends a request and returns the result of the answer; 99 for none.
    int64_t ask(uint16_t code, const std::string& payload)
    {
        root.makeDirectory("/var/run");
        mkfifo(root.hostPath("/var/run/zolvekcli").c_str(), 0666);
        const int fd = open(root.hostPath("/var/run/zolvekcli").c_str(), O_RDONLY | O_NONBLOCK);
        send(header(code, payload.size()) + payload);
        std::string answer;
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        while (answer.size() < 25 && Clock::now() < deadline) {
            pollfd entry{fd, POLLIN, 0};
            char buffer[64];
            const ssize_t n = poll(&entry, 1, 100) > 0 ? read(fd, buffer, sizeof(buffer)) : 0;
            answer.append(buffer, n > 0 ? n : 0);
        }
        close(fd);
        if (answer.size() != 25) {
            ADD_FAILURE() << "answer of " << answer.size() << " bytes";
            return 99;
        }
        EXPECT_EQ(answer.substr(0, 17), header(0, 8));  // code 0, 8 bytes, the client's PID
        uint64_t result = 0;
        for (int i = 7; i >= 0; --i) {
            result = result << 8 | static_cast<unsigned char>(answer[17 + i]);
        }
        return static_cast<int64_t>(result);
    }

    // The events the RMC received, once there are `count`.
    std::vector<Json::Value> events(size_t count)
    {
        vekEventually([&] { return rmc_->spooledCommands().size() >= count; }, std::chrono::seconds(60));
        std::vector<Json::Value> received;
        for (const auto& command : rmc_->spooledCommands()) {
            EXPECT_EQ(command.name, "MPEventGen");
            received.push_back(vekRecordingChannel::parse(command.payload));
        }
        return received;
    }

    struct Request {
        uint16_t code;
        std::string payload;
        int64_t result;
        std::string logged;
    };
    void expectAnswers(const std::vector<Request>& requests)
    {
        for (const auto& request : requests) {
            SCOPED_TRACE(request.payload);
            vekIPMITest::LogTail log;
            EXPECT_EQ(ask(request.code, request.payload), request.result);
            // An answered request leaves no error behind.
            EXPECT_TRUE(request.logged.empty() ? !log.contains("[ERROR]") : log.contains(request.logged)) << log.text();
        }
    }

    vekTestSmbios smbios;
    vekPlatformServices services;
};

TEST_F(ServerCase, TestEventRequestsAreAnsweredAndTheServersOwnReachesTheRmc)
{
    start();
    expectAnswers({
        {256, "434 1", 0, ""},
        {257, "434 7", 0, ""},
        {256, "434 4", -1,
         "VEK_SERVER: Error generating event, check the logs of respective resource manager for further details."},
        {256, "434 9", -1, "VEK_SERVER: VEK Server: Invalid eventId."},
        {256, "four 1", -1, "VEK_SERVER: Encountered exception: stoi"},
        {300, "", -1, "VEK_SERVER: Unhandled message code: 300"},
        {259, "/var/tmp/inventory.json", -1, "since no last known inventory is available"},
    });
    const std::vector<Json::Value> received = events(1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0]["ID"], 434);
    EXPECT_EQ(received[0]["Source"], "VEK-CLI");
    EXPECT_EQ(received[0]["VariableData"],
              vekRecordingChannel::parse(R"({"EventInfo": "VEK Test Event", "Type": "Test Event"})"));
}

TEST_F(ServerCase, JsonEventsGoOutOnlyWhenWholeAndPlaced)
{
    start();
    const std::string common = R"("EventTime": "Tue Nov 17 10:00:00 2026", "IPv4Addresses": [], "OSType": 104,
                                  "OSVersion": "8.0.2", "Source": "elsewhere")";
    const std::string host = R"("HostName": "rack-host", )" + common;
    expectAnswers({
        {258, "{ oops", -1, "VEK_SERVER: Error: "},
        {258, "{ \"ID\": 434, " + common + " }", -1,
         "VEK_SERVER: Not a valid JSON payload. Member \"HostName\" is missing."},
        {258, "{ \"ID\": 434, " + host + " }", 0, ""},
        {258, "{ \"ID\": 680, " + host + " }", -1, "Event 680 needs a \"PhysicalLocation\"."},
        {258, "{ \"ID\": 680, \"PhysicalLocation\": \"0123456789ABCDEF\", " + host + " }", 0, ""},
        {258, "{ \"ID\": 12345, \"PhysicalLocation\": \"0123456789ABCDEF\", " + host + " }", -1,
         "Event 12345 is not known."},
    });
    const std::vector<Json::Value> received = events(2);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0]["ID"], 434);
    EXPECT_EQ(received[0]["PhysicalLocation"], "NA");
    EXPECT_EQ(received[1]["ID"], 680);
    EXPECT_EQ(received[1]["PhysicalLocation"], "0123456789ABCDEF");
    EXPECT_EQ(received[1]["Source"], "VEK-CLI");
}

// No RMC needed: nothing of these reaches it.
class ServerClientCase : public ServerCase {
protected:
    void SetUp() override {}
};

TEST_F(ServerClientCase, AMisbehavingClientIsDroppedAndTheServerGoesOn)
{
    start();
    const struct {
        const char* name;
        std::string bytes;
        const char* logged;
    } clients[] = {
        {"stops in the middle of a header", header(256, 5).substr(0, 7), "VEK_MSGINFRA: EOF encountered"},
        {"stops in the middle of a payload", header(256, 10) + "434", "VEK_MSGINFRA: EOF encountered"},
        {"claims a payload of 2 MiB", header(258, 2u << 20) + std::string(4096, '{'), "refused, the limit is 1048576"},
        {"never reads its answer", header(256, 5) + "434 7", "VEK_MSGINFRA: vekWritePipe: Open of"},
    };
    for (const auto& client : clients) {
        SCOPED_TRACE(client.name);
        const vekLogTail main(vekTestMainLogPath());
        send(client.bytes);
        // Only once the server is done with this client may the next one come.
        EXPECT_TRUE(vekWaitForLog(main, client.logged)) << main.newText();
        EXPECT_EQ(ask(256, "434 7"), 0);
    }
}

TEST_F(ServerClientCase, StopWhileIdleIsAtOnceAndAStopBeforeAnyStartSaysSo)
{
    vekIPMITest::ScopedEnv realTime("VEK_TIME_SCALE", "1");
    vekIPMITest::LogTail beforeStart;
    vekJobManager::getInstance().stopVEKServer();
    EXPECT_TRUE(beforeStart.contains("VEK_SERVER: Stopping VEK Server.")) << beforeStart.text();
    EXPECT_TRUE(beforeStart.contains("VEK_SERVER: VEK Server: Server can't be stopped as it hasn't been spawn yet."));

    EXPECT_TRUE(vekJobManager::getInstance().startVEKServer(services));
    send("");  // returns once the server listens
    // The request pipe is the only way in: the shutdown pipe has no path.
    std::vector<std::string> reachable;
    for (const auto& entry : std::filesystem::directory_iterator(root.hostPath("/var/run"))) {
        reachable.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(reachable, std::vector<std::string>{"zolvek"});
    vekIPMITest::LogTail whileStopping;
    vekJobManager::getInstance().stopVEKServer();
    // Woken by the shutdown pipe, not by the end of its 5-second poll.
    EXPECT_TRUE(whileStopping.contains("VEK_SERVER: VEK Server signalled for stop. Closing server pipe"));
    EXPECT_FALSE(whileStopping.contains("VEK Server: Polling timed out"));
    EXPECT_FALSE(root.exists("/var/run/zolvek"));
}

// The client tool as a person runs it: its own process, the real pipes.
vekProgramResult vekcli(const std::vector<std::string>& args)
{
    std::vector<std::string> argv{std::string(VEK_BINARY_DIR) + "/testtools/vekcli/vekcli"};
    argv.insert(argv.end(), args.begin(), args.end());
    return vekRunProgram(argv);
}

TEST_F(ServerCase, TheClientToolSendsEachCodeAndTellsTheAnswer)
{
    start();
    send("");  // returns once the server listens
    root.writeFile("/tmp/event.json", R"({"ID": 435, "HostName": "rack-host", "EventTime": "Tue Nov 17 10:00:00 2026",
                                         "IPv4Addresses": [], "OSType": 104, "OSVersion": "8.0.2", "Source": "x"})");
    const struct {
        std::vector<std::string> args;
        int status;
        std::string said;
    } cases[] = {
        {{"event", "434", "1"}, 0, "the service answered 0: test event 434 raised for resource 1 (server)"},
        {{"send", "257", "434 7"}, 0, "the service answered 0: test event raised"},
        {{"event", "434", "9"}, 1, "the service answered -1: no test event raised"},
        {{"json", root.hostPath("/tmp/event.json")}, 0, "the service answered 0: JSON event sent"},
        {{"json", R"({"ID": 434})"}, 1, "the service answered -1: JSON event refused"},
        {{"save", "/var/tmp/inventory.json"}, 1, "the service answered -1: no inventory has been collected yet"},
        {{"send", "300"}, 1, "message code 300 refused or not handled"},
        {{"event", "four", "1"}, 2, "vekcli: event needs an event number and a resource number\nusage: vekcli"},
        {{"save", "inventory.json"}, 2, "vekcli: save needs one absolute path"},
        {{"--timeout", "0", "event", "434", "1"}, 2, "--timeout needs a number of seconds"},
        {{}, 2, "vekcli: no command"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.said);
        const vekProgramResult result = vekcli(c.args);
        EXPECT_EQ(result.status, c.status) << result.output;
        EXPECT_NE(result.output.find(c.said), std::string::npos) << result.output;
    }
    const std::vector<Json::Value> received = events(2);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0]["ID"], 434);
    EXPECT_EQ(received[1]["ID"], 435);
    EXPECT_EQ(received[1]["Source"], "VEK-CLI");
}

TEST_F(ServerClientCase, TheClientToolGivesUpInTimeWithoutAServingService)
{
    EXPECT_EQ(vekcli({"event", "434", "1"}).status, 3);
    root.makeDirectory("/var/run");
    const std::string pipe = root.hostPath("/var/run/zolvek");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    vekProgramResult result = vekcli({"event", "434", "1"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("the service is not listening on " + pipe), std::string::npos) << result.output;

    // A reader that takes the request and never answers.
    const int fd = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    result = vekcli({"--timeout", "1", "event", "434", "1", "vmnic0"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("vekcli: no answer in time (waited up to 1 s"), std::string::npos) << result.output;
    std::string request(64, '\0');
    const ssize_t got = read(fd, &request[0], request.size());
    close(fd);
    ASSERT_EQ(got, 17 + 12);
    // Code 256, 12 bytes; the PID is the client's own.
    EXPECT_EQ(request.substr(0, 9), header(256, 12).substr(0, 9));
    EXPECT_EQ(request.substr(17, 12), "434 1 vmnic0");
}

} // namespace
