// vekIPMIService against the emulated RMC, over the external IPMI link: the
// RMC CLI chunks as they arrive in the RMC's spool, the statuses and their
// texts, failures of the channel, the doorbells, the standard commands, and
// opening the device.

#include "vekIPMIExceptions.h"
#include "vekIPMITestSupport.h"
#include "vekIPMIService.h"
#include "vekRMCCliProtocol.h"
#include "vekRmcEmulator.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMITest;

namespace {

// A service of its own per case, outside the singleton.
class TestService : public vekIPMIService {
public:
    TestService() : vekIPMIService(64) {}
};

class IPMIServiceTest : public vekRootTest {
protected:
    void SetUp() override
    {
        VEK_REQUIRE_RMC_EMULATOR();
        rmc_.reset(new vekRmcEmulator(root.path() + "/rmc"));
        service_.reset(new TestService());
    }

    size_t exchangesOf(const std::function<void()>& send)
    {
        const size_t before = rmc_->chunkExchanges();
        send();
        return rmc_->chunkExchanges() - before;
    }

    // The pause after each command and the link's answer timeout, divided.
    ScopedEnv timeScale_{"VEK_TIME_SCALE", "10"};
    std::unique_ptr<vekRmcEmulator> rmc_;
    std::unique_ptr<TestService> service_;
};

TEST_F(IPMIServiceTest, PayloadsArriveByteExactWithTheExchangesTheFormatImplies)
{
    const struct {
        size_t length;
        size_t exchanges;
    } cases[] = {
        {57, 2},        // 33 in the first chunk, 24 and the NUL in the second
        {58, 2},        // 33, then 25 and the NUL
        {90, 3},        // 33, 57, then the NUL alone
        {1000, 18},     // 33, 16 * 57, then 55 and the NUL
        {200000, 3510}, // 33, 3508 * 57, then 103 - 57 = 46 and the NUL
    };
    const char* commands[] = {"WriteInventory", "MPEventGen", "WriteTelemetry", "WriteAppTelemetry"};
    size_t sent = 0;
    for (const auto& c : cases) {
        const std::string command = commands[sent % 4];
        const std::string payload = payloadOf(c.length, static_cast<unsigned>(c.length));
        EXPECT_EQ(vekIPMI::rmcCli::chunksFor(c.length), c.exchanges) << c.length;
        const size_t exchanges = exchangesOf([&] { service_->sendData(command, payload); });
        ++sent;
        EXPECT_EQ(exchanges, c.exchanges) << c.length;

        const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
        ASSERT_EQ(spooled.size(), sent) << c.length;
        EXPECT_EQ(spooled.back().name, command);
        EXPECT_EQ(spooled.back().payload, payload) << c.length;
    }
    // Every following chunk carried the index the RMC handed out: the RMC
    // refuses any other with status 3.
    EXPECT_EQ(rmc_->log().find("status=3"), std::string::npos);
}

TEST_F(IPMIServiceTest, PayloadShorterThan57BytesOverlaysTheNameAndIsRefused)
{
    // 56 bytes and the NUL make one last piece, which goes to offset 3: the
    // RMC reads the name from the first 20 payload bytes and refuses it. This
    // is what the RMC expects of a sender; no real payload is this short.
    LogTail log;
    const std::string payload = payloadOf(56);
    EXPECT_EQ(exchangesOf([&] { service_->sendData("WriteInventory", payload); }), 1u);
    EXPECT_TRUE(rmc_->spooledCommands().empty());
    EXPECT_NE(rmc_->log().find("unknown command name [" + payload.substr(0, 20) + "]"), std::string::npos)
        << rmc_->log();
    EXPECT_TRUE(log.contains("Transfer Status is 0x5[Provided command not supported] and Cmd Exit Status is 0x0"));
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x5, 0x0)"));
}

TEST_F(IPMIServiceTest, RefusedFirstChunkDoesNotStopTheRestOfThePayload)
{
    LogTail log;
    rmc_->injectFault(5, 1);
    EXPECT_EQ(exchangesOf([&] { service_->sendData("WriteInventory", payloadOf(1000)); }), 18u)
        << "every chunk goes out, and with the RMC's index 0 each is a refused first chunk";
    EXPECT_TRUE(rmc_->spooledCommands().empty());
    EXPECT_TRUE(log.contains("Transfer Status is 0x5[Provided command not supported] and Cmd Exit Status is 0x0"));

    // The first refusal is the one logged, not the refusals of the chunks
    // after it (each a first chunk with no name for the RMC).
    rmc_->setMaxLength(500);
    LogTail tooLong;
    EXPECT_EQ(exchangesOf([&] { service_->sendData("WriteInventory", payloadOf(1000)); }), 18u);
    EXPECT_TRUE(tooLong.contains("RMC Cli Command Execution failed! (0x8, 0x0)")) << tooLong.text();
    EXPECT_FALSE(tooLong.contains("(0x5, 0x0)"));
    EXPECT_NE(rmc_->log().find("unknown command name"), std::string::npos) << "the later chunks were refused";

    // The channel is fine afterwards.
    rmc_->setMaxLength(4096);
    service_->sendData("WriteInventory", payloadOf(1000));
    EXPECT_EQ(rmc_->spooledCommands().size(), 1u);
}

TEST_F(IPMIServiceTest, EachTransferStatusIsLoggedWithItsText)
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
    const char* failedLines[] = {
        "RMC Cli Command Execution failed! (0x1, 0x0)", "RMC Cli Command Execution failed! (0x2, 0x1c)",
        "RMC Cli Command Execution failed! (0x3, 0x0)", "RMC Cli Command Execution failed! (0x4, 0x1)",
        "RMC Cli Command Execution failed! (0x5, 0x0)", "RMC Cli Command Execution failed! (0x6, 0xc)",
        "RMC Cli Command Execution failed! (0x8, 0x0)", "RMC Cli Command Execution failed! (0x9, 0x3)",
    };
    const std::string payload = payloadOf(200);
    const size_t chunks = vekIPMI::rmcCli::chunksFor(payload.size());
    size_t next = 0;
    for (const auto& c : cases) {
        LogTail log;
        rmc_->injectFault(c.status, static_cast<int>(chunks), c.exitStatus);
        EXPECT_NO_THROW(service_->sendData("WriteTelemetry", payload)) << c.status;
        EXPECT_TRUE(log.contains(failedLines[next++])) << c.status << "\n" << log.text();
        if (*c.text != '\0') {
            EXPECT_TRUE(log.contains(c.text)) << c.status << "\n" << log.text();
            EXPECT_FALSE(log.contains(std::string(c.text) + " Payload size:")) << "only ipmi::IPMIUtils adds it";
        } else {
            EXPECT_FALSE(log.contains("Transfer Status is")) << c.status;
        }
        EXPECT_FALSE(rmc_->fileExists("inject"));
    }
    EXPECT_TRUE(rmc_->spooledCommands().empty());

    LogTail quiet;
    service_->sendData("WriteTelemetry", payload);
    EXPECT_FALSE(quiet.contains("RMC Cli Command Execution failed")) << "status 0 logs nothing";
}

TEST_F(IPMIServiceTest, BadArgumentsAreRefusedBeforeAnythingIsSent)
{
    const struct {
        std::string command;
        std::string data;
    } cases[] = {
        {"", payloadOf(100)},
        {"WriteInventory", ""},
        {"WriteInventoryTooLong1", payloadOf(100)},  // 22 bytes: no room in the name field
    };
    for (const auto& c : cases) {
        LogTail log;
        EXPECT_THROW(service_->sendData(c.command, c.data), ipmi_exceptions::invalid_arguments) << c.command;
        EXPECT_TRUE(log.contains("Provided command / arguments is not valid"));
    }
    EXPECT_EQ(rmc_->chunkExchanges(), 0u);
    // Twenty bytes fit; the RMC does not know the name.
    EXPECT_NO_THROW(service_->sendData("WriteInventoryNow123", payloadOf(100)));
    EXPECT_EQ(rmc_->chunkExchanges(), 3u) << "33 + 57 + 11: each a refused first chunk";
}

// Runs a send that must fail: true when it raised a plain std::exception
// (none of the channel's own classes, which stay inside the service).
bool raisesPlainException(const std::function<void()>& send)
{
    try {
        send();
    } catch (const ipmi_exceptions::ipmi_error& e) {
        ADD_FAILURE() << "the channel's exception came through: " << e.what();
        return true;
    } catch (const std::exception&) {
        return true;
    }
    return false;
}

TEST_F(IPMIServiceTest, CompletionCodeOtherThanZeroIsAnException)
{
    LogTail log;
    rmc_->injectCompletionCode(0xC0);
    EXPECT_TRUE(raisesPlainException([&] { service_->sendData("WriteInventory", payloadOf(500)); }));
    EXPECT_TRUE(log.contains("RMC CLI chunk finished with CC: [0xc0]")) << log.text();
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed"));
    EXPECT_EQ(rmc_->chunkExchanges(), 0u) << "nothing after the failed chunk";

    service_->sendData("WriteInventory", payloadOf(500));
    EXPECT_EQ(rmc_->spooledCommands().size(), 1u);
}

TEST_F(IPMIServiceTest, DroppedLinkIsAnExceptionAndTheRmcIsReachedAgainWhenBack)
{
    service_->sendData("WriteInventory", payloadOf(300));
    rmc_->stop();
    LogTail log;
    EXPECT_TRUE(raisesPlainException([&] { service_->sendData("WriteInventory", payloadOf(300, 2)); }));
    EXPECT_TRUE(log.contains("IPMI exec failed")) << log.text();
    EXPECT_TRUE(log.contains("Request ioctl failure"));
    EXPECT_EQ(service_->readDoorBell(1), 0);

    rmc_->restart();
    service_->sendData("WriteInventory", payloadOf(300, 3));
    const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
    ASSERT_EQ(spooled.size(), 2u);
    EXPECT_EQ(spooled[1].payload, payloadOf(300, 3));
}

TEST_F(IPMIServiceTest, SilentRmcIsAnExceptionNotAHang)
{
    service_->sendData("WriteInventory", payloadOf(300));
    rmc_->freeze();
    LogTail log;
    EXPECT_TRUE(raisesPlainException([&] { service_->sendData("WriteInventory", payloadOf(300, 2)); }));
    EXPECT_TRUE(log.contains("IPMI exec failed")) << log.text();
    EXPECT_TRUE(log.contains("Response ioctl failure"));

    // Back again: the late answer to the lost chunk is not taken for the
    // answer to a new one.
    rmc_->thaw();
    service_->sendData("WriteInventory", payloadOf(300, 3));
    const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
    ASSERT_EQ(spooled.size(), 2u);
    EXPECT_EQ(spooled[1].payload, payloadOf(300, 3));
}

TEST_F(IPMIServiceTest, CallbackHearsZeroOnSuccessAndMinusOneOnFailure)
{
    std::vector<int> heard;
    const auto callback = [&heard](int result) { heard.push_back(result); };

    LogTail delivered;
    service_->sendData("WriteAppTelemetry", payloadOf(400), callback);
    EXPECT_TRUE(delivered.contains("Delivered Data through IPMI"));

    // An RMC status is no failure of the channel.
    rmc_->injectFault(4, 1);
    service_->sendData("WriteAppTelemetry", payloadOf(400), callback);

    LogTail failed;
    service_->sendData("", payloadOf(400), callback);
    rmc_->stop();
    EXPECT_NO_THROW(service_->sendData("WriteTelemetry", payloadOf(400), callback));
    EXPECT_TRUE(failed.contains("Failed to deliver data through IPMI"));
    EXPECT_NO_THROW(service_->sendData("WriteTelemetry", payloadOf(400), std::function<void(int)>()));

    EXPECT_EQ(heard, std::vector<int>({0, 0, -1, -1}));
}

TEST_F(IPMIServiceTest, DoorbellsAreReadAndUnderstood)
{
    const struct {
        int level;
        std::string answer;  // empty: no file
        int expected;
        const char* logged;
    } cases[] = {
        {1, "WriteInventory", 1, "Received doorbell string (WriteInventory)"},
        {1, "please WriteInventory now", 1, nullptr},
        {1, "WriteTelemetry", 0, nullptr},
        {1, "", 0, nullptr},
        {2, std::string("\x01\x04", 2), 1, "Received Telemetry doorbell string (\x01\x04) cmd (1), cmd_level(4)"},
        {2, std::string("\x00\x02", 2), 2, "Received Telemetry doorbell string () cmd (0), cmd_level(2)"},
        {2, std::string("\x07\x01", 2), 2,
         "Received Unsupported telemetry doorbell string (\x07\x01) cmd (7), cmd_level(1)"},
        {3, std::string("\x01\x00", 2), 1, "IOFWU doorbell string (1) (0) "},
        {3, std::string("\x00\x09", 2), 0, "IOFWU doorbell string (0) (9) "},
    };
    for (const auto& c : cases) {
        if (c.answer.empty()) {
            rmc_->clearDoorbell(c.level);
        } else {
            rmc_->writeDoorbell(c.level, c.answer);
        }
        LogTail log;
        EXPECT_EQ(service_->readDoorBell(c.level), c.expected) << c.level << " " << c.answer;
        EXPECT_TRUE(log.contains("Checking IPMI door bell request"));
        if (c.logged != nullptr) {
            EXPECT_TRUE(log.contains(c.logged)) << log.text();
        }
        rmc_->clearDoorbell(c.level);
    }

    // No such doorbell: nothing is asked.
    const size_t asked = rmc_->logLines("0x8");
    LogTail invalid;
    EXPECT_EQ(service_->readDoorBell(4), 0);
    EXPECT_EQ(service_->readDoorBell(0), 0);
    EXPECT_TRUE(invalid.contains("Invalid Doorbell request [4]"));
    EXPECT_TRUE(invalid.contains("Invalid Doorbell request [0]"));
    EXPECT_EQ(rmc_->logLines("0x8"), asked);

    // A failing doorbell reads as 0.
    rmc_->writeDoorbell(3, "\x01");
    rmc_->injectCompletionCode(0xC1);
    EXPECT_EQ(service_->readDoorBell(3), 0);
    EXPECT_EQ(service_->readDoorBell(3), 1);
}

TEST_F(IPMIServiceTest, DoorbellReadsInterleaveWithALongPayload)
{
    rmc_->writeDoorbell(1, "WriteInventory");
    const std::string payload = payloadOf(60000, 7);
    std::atomic<bool> sending{true};
    std::atomic<int> rings{0};
    std::thread doorbells([&] {
        while (sending) {
            if (service_->readDoorBell(1) == 1) {
                ++rings;
            }
        }
    });
    service_->sendData("WriteInventory", payload);
    sending = false;
    doorbells.join();

    EXPECT_GT(rings.load(), 0);
    const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
    ASSERT_EQ(spooled.size(), 1u);
    EXPECT_EQ(spooled[0].payload, payload);
}

TEST_F(IPMIServiceTest, StandardCommandsOfTheSdrCache)
{
    const vekIPMI::GetDeviceIDResponse id = service_->executeGetDeviceID();
    EXPECT_EQ(id.deviceId, 0x20);
    EXPECT_EQ(id.manufacturerId, 0x001291u);
    EXPECT_EQ(id.additionalDeviceSupport & 0x02, 0x02) << "SDR repository";

    const vekIPMI::GetSDRRepositoryInfoResponse info = service_->executeGetSDRRepositoryInfo();
    EXPECT_EQ(info.sdrVersion, 0x51);
    EXPECT_EQ(info.recordCount, 5);

    const uint16_t reservation = service_->executeReserveSDRRepository();
    vekIPMI::GetSDRRequest request;
    request.reservationId = reservation;
    request.bytesToRead = 5;
    const vekIPMI::GetSDRResponse first = service_->executeGetSDR(request);
    ASSERT_EQ(first.data.size(), 5u);
    EXPECT_EQ(first.data[2], 0x51) << "SDR version in the header";
    EXPECT_NE(first.nextRecordId, vekIPMI::kLastSDRRecordId);

    // A record that is not there: the completion code comes out.
    request.recordId = 0x4242;
    LogTail log;
    try {
        service_->executeGetSDR(request);
        ADD_FAILURE() << "no such record, but an answer";
    } catch (const vekIPMI::SDRRepositoryReservationNotValidException&) {
        ADD_FAILURE() << "not a reservation problem";
    } catch (const vekIPMI::IPMICommandFailureException& e) {
        EXPECT_EQ(e.completionCode(), 0xCB);
        EXPECT_STREQ(e.what(), "IPMI command failed with: [0xcb]");
    }
    EXPECT_TRUE(log.contains("Get SDR finished with CC: [0xcb]"));
}

TEST_F(IPMIServiceTest, LostReservationIsItsOwnException)
{
    if (!vekRmcEmulator::hasIpmitool()) {
        GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
    }
    vekIPMI::GetSDRRequest request;
    request.reservationId = service_->executeReserveSDRRepository();
    request.bytesToRead = 5;
    service_->executeGetSDR(request);

    rmc_->reserveSdrOverLan();
    LogTail log;
    EXPECT_THROW(service_->executeGetSDR(request), vekIPMI::SDRRepositoryReservationNotValidException);
    EXPECT_TRUE(log.contains("Get SDR failed due to reservation"));
    EXPECT_TRUE(log.contains("Get SDR finished with CC: [0xc5]"));
}

// The device when no external link is set: <root>/dev/ipmi0.
class IPMIDeviceTest : public vekRootTest {
protected:
    void SetUp() override
    {
        // modprobe and mknod of the driver reload, recorded instead of run.
        const std::string bin = root.path() + "/fakebin";
        root.makeDirectory("/fakebin");
        for (const char* tool : {"modprobe", "mknod"}) {
            root.writeFile(std::string("/fakebin/") + tool,
                           std::string("#!/bin/sh\necho \"") + tool + " $*\" >> '" + root.path() + "/calls.txt'\n");
            chmod((bin + "/" + tool).c_str(), 0755);
        }
        path_.reset(new ScopedEnv("PATH", bin + ":" + getenv("PATH")));
    }

    ScopedEnv timeScale_{"VEK_TIME_SCALE", "100"};
    ScopedEnv noExternal_{"VEK_IPMI_EXTERNAL", "", true};
    std::unique_ptr<ScopedEnv> path_;
};

TEST_F(IPMIDeviceTest, NoDeviceReloadsTheDriversAndFails)
{
    LogTail log;
    try {
        vekIPMIService::getInstance();
        ADD_FAILURE() << "no device, but a service";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "IPMI - Connection - Failed");
    }
    EXPECT_TRUE(log.contains("Unable to Open IPMI channel - Bailing out"));

    const std::string calls = root.readFile("/calls.txt");
    const std::string expected = "modprobe ipmi_msghandler\nmodprobe ipmi_si\nmodprobe ipmi_devintf\n"
                                 "modprobe ipmi_watchdog\nmodprobe ipmi_ssif\nmknod -m 0600 " +
                                 root.path() + "/dev/ipmi0 c ";
    EXPECT_EQ(calls.substr(0, expected.size()), expected) << calls;

    // The next call tries again.
    EXPECT_THROW(vekIPMIService::getInstance(), std::runtime_error);
}

TEST_F(IPMIDeviceTest, SomethingThatIsNoIpmiDeviceFailsOnSending)
{
    root.writeFile("/dev/ipmi0", "");
    vekIPMIService& service = vekIPMIService::getInstance();
    EXPECT_EQ(vekIPMIService::getInbandComInterface(), &service);
    EXPECT_EQ(&vekIPMIService::getIPMIServiceInterface(), &service);
    EXPECT_FALSE(root.exists("/calls.txt")) << "the device opened: no reload";

    LogTail log;
    EXPECT_TRUE(raisesPlainException([&] { service.sendData("WriteInventory", payloadOf(100)); }));
    EXPECT_TRUE(log.contains("IPMI exec failed   Request ioctl failure with error code : 25")) << log.text();
    EXPECT_THROW(service.executeGetDeviceID(), std::exception);
    EXPECT_EQ(service.readDoorBell(1), 0);
}

} // namespace
