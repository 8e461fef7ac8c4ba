// ipmi::IPMIUtils against the emulated RMC: RMC CLI commands that stop at the
// first refusal, the failure codes of the way, the inventory doorbell, the
// small standard questions, and the one lock of all instances.

#include "IPMIUtils.h"
#include "vekIPMIExceptions.h"
#include "vekIPMITestSupport.h"
#include "vekRMCCliProtocol.h"
#include "vekRmcEmulator.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMITest;

namespace {

class IPMIUtilsTest : public vekIPMITest::RmcCase {
};

TEST_F(IPMIUtilsTest, CommandsArriveWholeAndReturnZero)
{
    const struct {
        size_t length;
        size_t exchanges;
    } cases[] = {{57, 2}, {58, 2}, {90, 3}, {1000, 18}, {200000, 3510}};
    size_t sent = 0;
    for (const auto& c : cases) {
        const std::string payload = payloadOf(c.length, 3);
        const size_t before = rmc_->chunkExchanges();
        LogTail log;
        ipmi::IPMIUtils utils;
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payload), 0) << c.length;
        EXPECT_EQ(rmc_->chunkExchanges() - before, c.exchanges) << c.length;
        EXPECT_TRUE(log.contains("Command to be executed on RMC : MPEventGen " + payload.substr(0, 100)));
        EXPECT_FALSE(log.contains("failed"));

        const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
        ASSERT_EQ(spooled.size(), ++sent);
        EXPECT_EQ(spooled.back().name, "MPEventGen");
        EXPECT_EQ(spooled.back().payload, payload) << c.length;
    }
}

TEST_F(IPMIUtilsTest, ShortPayloadIsRefusedInItsOneChunk)
{
    LogTail log;
    ipmi::IPMIUtils utils;
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(56)), 1);
    EXPECT_EQ(rmc_->chunkExchanges(), 1u);
    EXPECT_TRUE(rmc_->spooledCommands().empty());
    EXPECT_TRUE(log.contains("Transfer Status is 0x5[Provided command not supported] and Cmd Exit Status is 0x0"));
}

TEST_F(IPMIUtilsTest, RefusalOnTheFirstChunkStopsAtOnce)
{
    LogTail log;
    rmc_->injectFault(5, 1);
    ipmi::IPMIUtils utils;
    int status = -1;
    int exitStatus = -1;
    EXPECT_EQ(utils.RMC_CLI_Exec("WriteInventory", payloadOf(1000), status, exitStatus), 0);
    EXPECT_EQ(status, 5);
    EXPECT_EQ(exitStatus, 0);
    EXPECT_EQ(rmc_->chunkExchanges(), 1u) << "nothing more sent";
    EXPECT_TRUE(rmc_->spooledCommands().empty());

    // Through the public operation, the same, logged.
    rmc_->injectFault(6, 1, 12);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(1000)), 1);
    EXPECT_EQ(rmc_->chunkExchanges(), 2u);
    EXPECT_TRUE(log.contains("Transfer Status is 0x6[Memory could not be allocated] and Cmd Exit Status is 0xc"));
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x6, 0xc)"));
}

TEST_F(IPMIUtilsTest, RefusalInTheMiddleStopsThere)
{
    // Two chunks of 18 taken, the third refused: no fourth.
    rmc_->injectFault(4, 1, 0, 2);
    ipmi::IPMIUtils utils;
    int status = -1;
    int exitStatus = -1;
    EXPECT_EQ(utils.RMC_CLI_Exec("WriteInventory", payloadOf(1000), status, exitStatus), 0);
    EXPECT_EQ(status, 4);
    EXPECT_EQ(rmc_->chunkExchanges(), 3u);
    EXPECT_TRUE(rmc_->spooledCommands().empty());
}

TEST_F(IPMIUtilsTest, LengthAboveTheLimitIsLoggedWithThePayloadSize)
{
    LogTail log;
    rmc_->setMaxLength(800);
    ipmi::IPMIUtils utils;
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(1000)), 1);
    EXPECT_EQ(rmc_->chunkExchanges(), 1u);
    EXPECT_TRUE(log.contains("Transfer Status is 0x8[Request command length exceeded] and Cmd Exit Status is 0x0. "
                             "Payload size:1000"))
        << log.text();
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x8, 0x0)"));
}

TEST_F(IPMIUtilsTest, StatusesUpToTwoDoNotStopTheTransfer)
{
    const std::string payload = payloadOf(300);
    const size_t chunks = vekIPMI::rmcCli::chunksFor(payload.size());
    ipmi::IPMIUtils utils;

    LogTail log;
    rmc_->injectFault(2, static_cast<int>(chunks), 5);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteTelemetry", payload), 1);
    EXPECT_EQ(rmc_->chunkExchanges(), chunks);
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x2, 0x5)"));
    EXPECT_FALSE(log.contains("Transfer Status is")) << "status 2 has no text of its own";

    // An earlier transfer left incomplete (its third chunk failed on the
    // way): the next first chunk gets status 1, and that one goes on.
    rmc_->injectCompletionCode(0xC0, 1, 2);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteTelemetry", payloadOf(1000)), 1);
    const size_t before = rmc_->chunkExchanges();
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteTelemetry", payload), 0);
    EXPECT_EQ(rmc_->chunkExchanges() - before, chunks);
    EXPECT_NE(rmc_->log().find("0x80 index=0x0000 status=1 "), std::string::npos);
    ASSERT_EQ(rmc_->spooledCommands().size(), 1u);
    EXPECT_EQ(rmc_->spooledCommands()[0].payload, payload);
}

TEST_F(IPMIUtilsTest, FailuresOnTheWayHaveTheirCodes)
{
    ipmi::IPMIUtils utils;

    {
        LogTail log;
        rmc_->injectCompletionCode(0xD5);
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(400)), 1);
        EXPECT_TRUE(log.contains("RMC CLI chunk finished with CC: [0xd5]")) << log.text();
        EXPECT_TRUE(log.contains("Response ioctl failure"));
    }
    {
        LogTail log;
        rmc_->freeze();
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(400)), 1);
        EXPECT_TRUE(log.contains("Response ioctl failure")) << log.text();
        rmc_->thaw();
    }
    {
        LogTail log;
        rmc_->stop();
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(400)), 1);
        EXPECT_TRUE(log.contains("Request ioctl failure with error code : 111")) << log.text();
        EXPECT_TRUE(log.contains("Request ioctl failure\n")) << "the code's own text";
    }
    rmc_->restart();
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(400, 9)), 0);
    EXPECT_EQ(rmc_->spooledCommands().back().payload, payloadOf(400, 9));

    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("", payloadOf(400)), 1);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", ""), 1);
}

TEST(IPMIUtilsTexts, CallerFailureCodesHaveTheirTexts)
{
    using vekIPMI::rmcCli::callerFailureText;
    EXPECT_EQ(callerFailureText(7, 0, 0), "Request ioctl failure");
    EXPECT_EQ(callerFailureText(8, 0, 0), "Response ioctl failure");
    EXPECT_EQ(callerFailureText(170, 0, 0), "The pointer to the stdout or stderr is NULL.");
    EXPECT_EQ(callerFailureText(221, 0, 0), "Command time out");
    EXPECT_EQ(callerFailureText(238, 0, 0), "The size of stdout or stderr is not enough");
    EXPECT_EQ(callerFailureText(-1, 3, 4), "Error occurred while executing RMC_CLI_Exec status=3, cmd_exit_status=4");
}

TEST_F(IPMIUtilsTest, InventoryDoorbell)
{
    ipmi::IPMIUtils utils;
    LogTail log;
    EXPECT_FALSE(utils.checkIPMIDBRequest()) << "no doorbell";
    rmc_->writeDoorbell(1, "{\"cmd\":\"WriteInventory\"}");
    EXPECT_TRUE(utils.checkIPMIDBRequest());
    EXPECT_TRUE(log.contains("Return buffer from door bell: {\"cmd\":\"WriteInventory\"}"));
    rmc_->writeDoorbell(1, "WriteTelemetry");
    EXPECT_FALSE(utils.checkIPMIDBRequest()) << "a text without WriteInventory causes nothing";

    rmc_->writeDoorbell(1, "WriteInventory");
    rmc_->injectCompletionCode(0xC0);
    EXPECT_FALSE(utils.checkIPMIDBRequest());
    EXPECT_TRUE(log.contains("An error occurred in checking RMC request via IPMI"));
    rmc_->stop();
    EXPECT_FALSE(utils.checkIPMIDBRequest());
}

TEST_F(IPMIUtilsTest, OtherDoorbells)
{
    ipmi::IPMIUtils utils;
    rmc_->writeDoorbell(2, std::string("\x01\x03", 2));
    rmc_->writeDoorbell(3, std::string("\x00\x01", 2));
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(2), 1);
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(3), 0);
    rmc_->writeDoorbell(2, std::string("\x00\x03", 2));
    rmc_->writeDoorbell(3, std::string("\x01\x01", 2));
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(2), 2);
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(3), 1);
    LogTail log;
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(7), 0);
    EXPECT_TRUE(log.contains("Invalid Doorbell request [7]"));
}

TEST_F(IPMIUtilsTest, DeviceIdCapabilitiesAndPartition)
{
    ipmi::_GET_DEVICE_ID id = {};
    ASSERT_EQ(GetDeviceIdInfo(id), 0);
    EXPECT_EQ(id.device_id, 0x20);
    EXPECT_EQ(id.manufacturer_id[0], 0x91);
    EXPECT_EQ(id.manufacturer_id[1], 0x12);
    EXPECT_EQ(id.manufacturer_id[2], 0x00);
    EXPECT_EQ(id.product_id[0] | id.product_id[1] << 8, 0x5652);

    ipmi::_GET_BMC_CAPABILITIES caps = {};
    rmc_->writeFile("capabilities", std::string("\x02\x80\x40\x05\x03", 5));
    ASSERT_EQ(GetCapabilities(caps), 0);
    EXPECT_EQ(caps.outstanding_requests, 2);
    EXPECT_EQ(caps.input_buffer_size, 0x80);
    EXPECT_EQ(caps.output_buffer_size, 0x40);
    EXPECT_EQ(caps.request_to_response_time, 5);
    EXPECT_EQ(caps.retries, 3);

    EXPECT_EQ(GetPartitionId(1), 1) << "the emulator's default";
    rmc_->writeFile("partition_id", std::string("\x07\x01", 2));
    EXPECT_EQ(GetPartitionId(1), 0x107);

    rmc_->stop();
    EXPECT_EQ(GetDeviceIdInfo(id), -1);
    EXPECT_EQ(GetCapabilities(caps), -1);
    EXPECT_EQ(GetPartitionId(2), -1);
}

TEST_F(IPMIUtilsTest, InstancesOnManyThreadsNeverMixTheirChunks)
{
    // Without the one lock, a first chunk of one thread would cut into the
    // transfer of another, and the RMC would drop that one (status 1).
    const int threads = 4;
    const int commands = 3;
    std::vector<std::thread> senders;
    std::vector<int> failures(threads, 0);
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([t, &failures] {
            for (int i = 0; i < commands; ++i) {
                ipmi::IPMIUtils utils;
                failures[t] +=
                    utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(3000, static_cast<unsigned>(t * 10 + i)));
            }
        });
    }
    for (std::thread& s : senders) {
        s.join();
    }
    EXPECT_EQ(failures, std::vector<int>(threads, 0));
    EXPECT_EQ(rmc_->spooledCommands().size(), static_cast<size_t>(threads * commands));
    EXPECT_EQ(rmc_->log().find("status=1"), std::string::npos);
}

TEST(IPMIUtilsOpen, ChannelThatCannotBeOpenedThrows)
{
    vekTestRoot root;
    {
        ScopedEnv external("VEK_IPMI_EXTERNAL", "no-port-here");
        LogTail log;
        EXPECT_THROW(ipmi::IPMIUtils(), ipmi_exceptions::invalid_handle);
        EXPECT_TRUE(log.contains("(try 2 of 2)"));
    }
    {
        ScopedEnv external("VEK_IPMI_EXTERNAL", "", true);
        EXPECT_THROW(ipmi::IPMIUtils(), ipmi_exceptions::invalid_handle) << "no " << root.path() << "/dev/ipmi0";
        ipmi::_GET_DEVICE_ID id = {};
        EXPECT_EQ(GetDeviceIdInfo(id), -1);
    }
}

} // namespace
