// ipmi::IPMIUtils against the emulated RMC: RMC CLI commands that stop at the
// first refusal, completion codes and failures on the way, the doorbells, the
// small standard questions, and the one lock of all instances.

#include "IPMIUtils.h"
#include "vekIPMIExceptions.h"
#include "vekIPMITestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace vekIPMITest;

namespace {

class IPMIUtilsTest : public RmcCase {
};

TEST_F(IPMIUtilsTest, RefusalStopsTheTransferAtOnce)
{
    const struct {
        int status;
        int after;       // chunks taken before the refusal
        size_t chunks;   // chunks sent in all
    } cases[] = {{5, 0, 1}, {4, 2, 3}};
    ipmi::IPMIUtils utils;
    for (const auto& c : cases) {
        rmc_->injectFault(c.status, 1, 0, c.after);
        const size_t before = rmc_->chunkExchanges();
        int status = -1;
        int exitStatus = -1;
        EXPECT_EQ(utils.RMC_CLI_Exec("WriteInventory", payloadOf(1000), status, exitStatus), 0);
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(exitStatus, 0);
        EXPECT_EQ(rmc_->chunkExchanges() - before, c.chunks) << "nothing more sent";
    }
    EXPECT_TRUE(rmc_->spooledCommands().empty());

    LogTail log;
    rmc_->writeFile("max_length", "800");
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(1000)), 1);
    EXPECT_TRUE(log.contains("Transfer Status is 0x8[Request command length exceeded] and Cmd Exit Status is 0x0. "
                             "Payload size:1000"))
        << log.text();
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x8, 0x0)"));

    // Status 2 is no reason to stop, but the command failed all the same.
    rmc_->writeFile("max_length", "4096");
    rmc_->injectFault(2, 18, 5);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("WriteTelemetry", payloadOf(1000)), 1);
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0x2, 0x5)"));
    EXPECT_EQ(rmc_->chunkExchanges(), 5u + 18u);
}

TEST_F(IPMIUtilsTest, CompletionCodeIsAnAnswerAndFailuresOfTheWayHaveTheirCodes)
{
    ipmi::IPMIUtils utils;
    {
        // The third chunk answered 0xD5 alone: no index to go on with.
        LogTail log;
        rmc_->injectCompletionCode(0xD5, 1, 2);
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(1000)), 1);
        EXPECT_EQ(rmc_->chunkExchanges(), 2u);
        EXPECT_EQ(utils.refusal().answer.completionCode, 0xD5);
        EXPECT_TRUE(log.contains("RMC CLI command MPEventGen: chunk 3 answered with completion code 0xd5 (Command not "
                                 "supported in present state); the rest of the payload is not sent"))
            << log.text();
        EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0xd5, 0x0)"));
        EXPECT_FALSE(log.contains("ioctl failure"));
    }
    // The next command goes on over the one left incomplete (status 1).
    const std::string next = payloadOf(1000, 2);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", next), 0);
    EXPECT_EQ(utils.refusal().noStatus, false);
    EXPECT_EQ(rmc_->logLines("0x80 index=0x0000 status=1 "), 1u);
    {
        LogTail log;
        rmc_->freeze();
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(400)), 1);
        EXPECT_TRUE(log.contains("Response ioctl failure\n")) << log.text();
        rmc_->thaw();
    }
    {
        LogTail log;
        rmc_->stop();
        EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(400)), 1);
        EXPECT_TRUE(log.contains("Request ioctl failure with error code : 111")) << log.text();
        EXPECT_TRUE(log.contains("Request ioctl failure\n")) << "the code's own text";
    }
    rmc_->restart();
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(400, 9)), 0);
    const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
    ASSERT_EQ(spooled.size(), 2u);
    EXPECT_EQ(spooled[0].payload, next);
    EXPECT_EQ(spooled[1].payload, payloadOf(400, 9));

    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("", payloadOf(400)), 1);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", ""), 1);
}

TEST_F(IPMIUtilsTest, DoorbellsAndTheSmallQuestions)
{
    ipmi::IPMIUtils utils;
    rmc_->writeDoorbell(1, "{\"cmd\":\"WriteInventory\"}");
    rmc_->writeDoorbell(2, std::string("\x00\x03", 2));
    rmc_->writeDoorbell(3, std::string("\x01\x01", 2));
    LogTail log;
    EXPECT_TRUE(utils.checkIPMIDBRequest());
    EXPECT_TRUE(log.contains("Return buffer from door bell: {\"cmd\":\"WriteInventory\"}"));
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(2), 2);
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(3), 1);
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(7), 0);
    EXPECT_TRUE(log.contains("Invalid Doorbell request [7]"));
    // A completion code asks for nothing; it is no error of the channel.
    rmc_->injectCompletionCode(0xC0, 2);
    EXPECT_FALSE(utils.checkIPMIDBRequest());
    EXPECT_EQ(utils.checkIPMIDBGenericRequest(3), 0);
    EXPECT_TRUE(log.contains("Doorbell 3 answered with completion code 0xc0 (Node busy): nothing is asked"));
    EXPECT_FALSE(log.contains("An error occurred in checking RMC request via IPMI"));

    ipmi::_GET_DEVICE_ID id = {};
    ASSERT_EQ(GetDeviceIdInfo(id), 0);
    EXPECT_EQ(id.manufacturer_id[0] | id.manufacturer_id[1] << 8 | id.manufacturer_id[2] << 16, 0x001291);
    ipmi::_GET_BMC_CAPABILITIES caps = {};
    rmc_->writeFile("capabilities", std::string("\x02\x80\x40\x05\x03", 5));
    ASSERT_EQ(GetCapabilities(caps), 0);
    EXPECT_EQ(std::vector<int>({caps.outstanding_requests, caps.input_buffer_size, caps.output_buffer_size,
                                caps.request_to_response_time, caps.retries}),
              std::vector<int>({2, 0x80, 0x40, 5, 3}));
    rmc_->writeFile("partition_id", std::string("\x07\x01", 2));
    EXPECT_EQ(GetPartitionId(1), 0x107);

    rmc_->stop();
    EXPECT_FALSE(utils.checkIPMIDBRequest());
    EXPECT_TRUE(log.contains("An error occurred in checking RMC request via IPMI"));
    EXPECT_EQ(GetDeviceIdInfo(id), -1);
    EXPECT_EQ(GetPartitionId(2), -1);
    EXPECT_THROW(ipmi::IPMIUtils(), ipmi_exceptions::invalid_handle) << "nobody listens at " << rmc_->address();
    EXPECT_TRUE(log.contains("(try 2 of 2)"));
}

TEST_F(IPMIUtilsTest, InstancesOnManyThreadsNeverMixTheirChunks)
{
    // Without the one lock, a first chunk of one thread would cut into the
    // transfer of another, and the RMC would drop that one (status 1).
    std::vector<std::thread> senders;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        senders.emplace_back([t, &failures] {
            for (int i = 0; i < 3; ++i) {
                ipmi::IPMIUtils utils;
                failures[t] +=
                    utils.RMC_CLI_Cmd_Execution("WriteInventory", payloadOf(3000, static_cast<unsigned>(t * 10 + i)));
            }
        });
    }
    for (std::thread& s : senders) {
        s.join();
    }
    EXPECT_EQ(failures, std::vector<int>(4, 0));
    EXPECT_EQ(rmc_->spooledCommands().size(), 12u);
    EXPECT_EQ(rmc_->log().find("status=1"), std::string::npos);
}

TEST(IPMIUtilsOpen, ChannelThatCannotBeOpenedThrows)
{
    vekTestRoot root;
    for (const char* address : {"no-port-here", "127.0.0.1:1", ""}) {
        ScopedEnv external("VEK_IPMI_EXTERNAL", address, *address == '\0');
        EXPECT_THROW(ipmi::IPMIUtils(), ipmi_exceptions::invalid_handle) << "[" << address << "]";
    }
}

} // namespace
