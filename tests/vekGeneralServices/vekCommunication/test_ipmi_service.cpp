// vekIPMIService against the emulated RMC, over the external IPMI link: the
// RMC CLI chunks as they arrive in the RMC's spool, the RMC's statuses and
// completion codes, failures of the channel, the doorbells, and opening the
// channel.

#include "vekIPMIExceptions.h"
#include "vekIPMITestSupport.h"
#include "vekIPMIService.h"
#include "vekLog.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

using namespace vekIPMITest;

namespace {

// A service of its own per case, outside the singleton.
class TestService : public vekIPMIService {
public:
    TestService() : vekIPMIService(64) {}
};

class IPMIServiceTest : public RmcCase {
protected:
    void SetUp() override
    {
        RmcCase::SetUp();
        if (rmc_) {
            service_.reset(new TestService());
        }
    }

    size_t exchangesOf(const std::string& command, const std::string& payload)
    {
        const size_t before = rmc_->chunkExchanges();
        EXPECT_NO_THROW(service_->sendData(command, payload));
        return rmc_->chunkExchanges() - before;
    }

    // The text of the exception a send raised; it must not be one of the
    // channel's own classes, which stay inside the service.
    std::string failureOf(const std::string& payload)
    {
        try {
            service_->sendData("WriteInventory", payload);
        } catch (const ipmi_exceptions::ipmi_error& e) {
            ADD_FAILURE() << "the channel's exception came through: " << e.what();
        } catch (const std::exception& e) {
            return e.what();
        }
        ADD_FAILURE() << "no exception";
        return "";
    }

    std::unique_ptr<TestService> service_;
};

TEST_F(IPMIServiceTest, PayloadsArriveByteExactWithTheExchangesTheFormatImplies)
{
    const struct {
        size_t length;
        size_t exchanges;
        bool taken;
    } cases[] = {
        {56, 1, false},  // 56 and the NUL: one last piece at offset 3, over the name: refused
        {57, 2, true},   // 33 in the first chunk, 24 and the NUL in the second
        {58, 2, true},   // 33, then 25 and the NUL
        {90, 3, true},   // 33, 57, then the NUL alone
        {70000, 1229, true},  // the length field needs its third byte
    };
    const char* commands[] = {"WriteInventory", "MPEventGen", "WriteTelemetry", "WriteAppTelemetry"};
    size_t taken = 0;
    for (const auto& c : cases) {
        const std::string command = commands[c.length % 4];
        const std::string payload = payloadOf(c.length, static_cast<unsigned>(c.length));
        LogTail log;
        EXPECT_EQ(exchangesOf(command, payload), c.exchanges) << c.length;
        const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
        ASSERT_EQ(spooled.size(), taken += c.taken ? 1 : 0) << c.length;
        if (c.taken) {
            EXPECT_EQ(spooled.back().name, command);
            EXPECT_EQ(spooled.back().payload, payload) << c.length;
            EXPECT_FALSE(log.contains("RMC Cli Command Execution failed")) << c.length;
        } else {
            EXPECT_NE(rmc_->log().find("unknown command name [" + payload.substr(0, 20) + "]"), std::string::npos);
            EXPECT_TRUE(log.contains("Transfer Status is 0x5[Provided command not supported] and Cmd Exit Status is 0x0"));
            EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x5, 0x0)"));
        }
    }
    // Every following chunk carried the index the RMC handed out: the RMC
    // refuses any other with status 3.
    EXPECT_EQ(rmc_->log().find("status=3"), std::string::npos);
}

TEST_F(IPMIServiceTest, EachTransferStatusIsLoggedAndTheRestOfThePayloadStillGoesOut)
{
    const struct {
        int status;
        int exitStatus;
        const char* text;  // empty: only the failure line
    } cases[] = {
        {1, 0, "Transfer Status is 0x1[Input data is not complete] and Cmd Exit Status is 0x0"},
        {2, 28, ""},
        {3, 0, "Transfer Status is 0x3[Error in index] and Cmd Exit Status is 0x0"},
        {4, 1, "Transfer Status is 0x4[Cli entries full] and Cmd Exit Status is 0x1"},
        {5, 0, "Transfer Status is 0x5[Provided command not supported] and Cmd Exit Status is 0x0"},
        {6, 12, "Transfer Status is 0x6[Memory could not be allocated] and Cmd Exit Status is 0xc"},
        {8, 0, "Transfer Status is 0x8[Request command length exceeded] and Cmd Exit Status is 0x0."},
        {9, 3, ""},
    };
    for (const auto& c : cases) {
        LogTail log;
        rmc_->injectFault(c.status, 18, c.exitStatus);
        EXPECT_EQ(exchangesOf("WriteTelemetry", payloadOf(1000)), 18u) << c.status;
        EXPECT_TRUE(log.contains(vekLog::format("RMC Cli Command Execution failed! (0x%x, 0x%x)", c.status,
                                                c.exitStatus)))
            << c.status << "\n" << log.text();
        EXPECT_EQ(log.contains("Transfer Status is"), *c.text != '\0') << c.status << "\n" << log.text();
        if (*c.text != '\0') {
            EXPECT_TRUE(log.contains(c.text));
            EXPECT_FALSE(log.contains(std::string(c.text) + " Payload size:")) << "only ipmi::IPMIUtils adds it";
        }
    }
}

TEST_F(IPMIServiceTest, CompletionCodeEndsTheCommandAndTheNextOneGoesOut)
{
    // Two chunks taken, the third answered 0xC0 alone: no index to go on with.
    rmc_->injectCompletionCode(0xC0, 1, 2);
    LogTail log;
    EXPECT_EQ(exchangesOf("WriteInventory", payloadOf(1000)), 2u);
    EXPECT_TRUE(log.contains("RMC CLI command WriteInventory: chunk 3 answered with completion code 0xc0 (Node busy); "
                             "the rest of the payload is not sent"))
        << log.text();
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0xc0, 0x0)"));
    EXPECT_FALSE(log.contains("ioctl failure"));

    const std::string next = payloadOf(1000, 2);
    EXPECT_EQ(exchangesOf("WriteInventory", next), 18u);
    ASSERT_EQ(rmc_->spooledCommands().size(), 1u);
    EXPECT_EQ(rmc_->spooledCommands()[0].payload, next);

    std::vector<int> heard;
    rmc_->injectCompletionCode(0xC0);
    service_->sendData("WriteTelemetry", payloadOf(400), [&heard](int result) { heard.push_back(result); });
    EXPECT_EQ(heard, std::vector<int>{0}) << "an answer of the RMC, as a status is";
}

TEST_F(IPMIServiceTest, FailingChannelIsAnExceptionWithItsTextAndTheRmcIsReachedAgain)
{
    std::vector<int> heard;
    const auto callback = [&heard](int result) { heard.push_back(result); };
    service_->sendData("WriteAppTelemetry", payloadOf(300), callback);

    rmc_->stop();
    LogTail down;
    EXPECT_NE(failureOf(payloadOf(300)).find("Request ioctl failure with error code : 111"), std::string::npos);
    EXPECT_TRUE(down.contains("IPMI exec failed   Request ioctl failure with error code : 111")) << down.text();
    EXPECT_EQ(service_->readDoorBell(1), 0);
    service_->sendData("WriteTelemetry", payloadOf(300), callback);
    EXPECT_TRUE(down.contains("Failed to deliver data through IPMI"));

    rmc_->restart();
    service_->sendData("WriteInventory", payloadOf(300, 3));
    const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
    ASSERT_EQ(spooled.size(), 2u);
    EXPECT_EQ(spooled[1].payload, payloadOf(300, 3));
    EXPECT_EQ(heard, std::vector<int>({0, -1}));
}

TEST_F(IPMIServiceTest, BadArgumentsAreRefusedBeforeAnythingIsSent)
{
    LogTail log;
    const std::pair<const char*, std::string> bad[] = {
        {"", payloadOf(100)}, {"WriteInventory", ""}, {"WriteInventoryTooLong1", payloadOf(100)}};
    for (const auto& b : bad) {
        EXPECT_THROW(service_->sendData(b.first, b.second), ipmi_exceptions::invalid_arguments) << b.first;
    }
    EXPECT_TRUE(log.contains("Provided command / arguments is not valid"));
    EXPECT_EQ(rmc_->chunkExchanges(), 0u);
    // Twenty bytes fit; the RMC does not know the name.
    EXPECT_EQ(exchangesOf("WriteInventoryNow123", payloadOf(100)), 3u);
}

TEST_F(IPMIServiceTest, DoorbellsAreReadAndUnderstood)
{
    const struct {
        int level;
        std::string answer;
        int completionCode;
        int expected;
        const char* logged;
    } cases[] = {
        {1, "WriteInventory", 0, 1, "Received doorbell string (WriteInventory)"},
        {1, "WriteTelemetry", 0, 0, nullptr},
        {1, "WriteInventory", 0xC0, 0, "Doorbell 1 answered with completion code 0xc0 (Node busy): nothing is asked"},
        {2, std::string("\x01\x04", 2), 0, 1, "Received Telemetry doorbell string (\x01\x04) cmd (1), cmd_level(4)"},
        {2, std::string("\x00\x02", 2), 0, 2, "Received Telemetry doorbell string () cmd (0), cmd_level(2)"},
        {2, std::string("\x07\x01", 2), 0, 2,
         "Received Unsupported telemetry doorbell string (\x07\x01) cmd (7), cmd_level(1)"},
        {3, std::string("\x01\x00", 2), 0, 1, "IOFWU doorbell string (1) (0) "},
        {4, "", 0, 0, "Invalid Doorbell request [4]"},
    };
    for (const auto& c : cases) {
        if (c.level <= 3) {
            rmc_->writeDoorbell(c.level, c.answer);
        }
        if (c.completionCode != 0) {
            rmc_->injectCompletionCode(c.completionCode);
        }
        LogTail log;
        EXPECT_EQ(service_->readDoorBell(c.level), c.expected) << c.level << " " << c.answer;
        if (c.logged != nullptr) {
            EXPECT_TRUE(log.contains(c.logged)) << log.text();
        }
    }
    EXPECT_EQ(rmc_->logLines("0x8"), 7u) << "level 4 asks nothing";
}

// Opening the channel when nobody is there: the device path, and an external
// address where nothing listens, fail alike when the service is made.
TEST(IPMIOpenTest, NobodyThereFailsTheServiceAtItsStart)
{
    vekTestRoot root;
    ScopedEnv fast("VEK_TIME_SCALE", "100");
    // modprobe and mknod of the driver reload, recorded instead of run.
    for (const char* tool : {"modprobe", "mknod"}) {
        root.writeFile(std::string("/fakebin/") + tool,
                       std::string("#!/bin/sh\necho \"") + tool + " $*\" >> '" + root.path() + "/calls.txt'\n");
        chmod(root.hostPath(std::string("/fakebin/") + tool).c_str(), 0755);
    }
    ScopedEnv path("PATH", root.hostPath("/fakebin") + ":" + getenv("PATH"));
    const std::string device = "modprobe ipmi_msghandler\nmodprobe ipmi_si\nmodprobe ipmi_devintf\n"
                               "modprobe ipmi_watchdog\nmodprobe ipmi_ssif\nmknod -m 0600 " +
                               root.path() + "/dev/ipmi0 c ";
    for (const char* external : {"", "127.0.0.1:1"}) {  // empty: the device
        ScopedEnv address("VEK_IPMI_EXTERNAL", external, *external == '\0');
        LogTail log;
        for (int attempt = 0; attempt < 2; ++attempt) {  // the next call tries again
            try {
                vekIPMIService::getInstance();
                ADD_FAILURE() << "nobody there, but a service";
            } catch (const std::runtime_error& e) {
                EXPECT_STREQ(e.what(), "IPMI - Connection - Failed");
            }
        }
        EXPECT_TRUE(log.contains("Unable to Open IPMI channel - Bailing out")) << log.text();
        const std::string calls = root.readFile("/calls.txt");
        // The drivers are the device's only.
        EXPECT_EQ(*external == '\0' ? calls.substr(0, device.size()) : calls, *external == '\0' ? device : "");
        unlink(root.hostPath("/calls.txt").c_str());
    }
}

} // namespace
