// ipmi::IPMIUtils against the emulated RMC: RMC CLI commands that stop at the
// first refusal, failures on the way, the inventory doorbell, the small
// standard questions, and the one lock of all instances.

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

// The chunk loop and the doorbell decoding are the ones of vekIPMIService,
// tested there; here what this class adds around them.
TEST_F(IPMIUtilsTest, CompletionCodesDoorbellAndFailuresOfTheWay)
{
    ipmi::IPMIUtils utils;
    LogTail log;
    // The third chunk answered 0xD5 alone: no index to go on with.
    rmc_->injectCompletionCode(0xD5, 1, 2);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(1000)), 1);
    EXPECT_EQ(rmc_->chunkExchanges(), 2u);
    EXPECT_TRUE(log.contains("RMC Cli Command Execution failed! (0xd5, 0x0)")) << log.text();
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(1000, 2)), 0);
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("", payloadOf(400)) + utils.RMC_CLI_Cmd_Execution("MPEventGen", ""), 2);

    rmc_->writeDoorbell(1, "{\"cmd\":\"WriteInventory\"}");
    EXPECT_TRUE(utils.checkIPMIDBRequest());
    EXPECT_TRUE(log.contains("Return buffer from door bell: {\"cmd\":\"WriteInventory\"}"));
    // A completion code asks for nothing; it is no error of the channel.
    rmc_->injectCompletionCode(0xC0);
    EXPECT_FALSE(utils.checkIPMIDBRequest());
    EXPECT_FALSE(log.contains("An error occurred in checking RMC request via IPMI"));

    ipmi::_GET_DEVICE_ID id = {};
    ASSERT_EQ(GetDeviceIdInfo(id), 0);
    EXPECT_EQ(id.manufacturer_id[0] | id.manufacturer_id[1] << 8 | id.manufacturer_id[2] << 16, 0x001291);
    ipmi::_GET_BMC_CAPABILITIES caps = {};
    rmc_->writeFile("capabilities", std::string("\x02\x80\x40\x05\x03", 5));
    ASSERT_EQ(GetCapabilities(caps), 0);
    EXPECT_EQ(caps.input_buffer_size, 0x80);
    rmc_->writeFile("partition_id", std::string("\x07\x01", 2));
    EXPECT_EQ(GetPartitionId(1), 0x107);

    rmc_->stop();
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(400)), 1);
    EXPECT_TRUE(log.contains("Request ioctl failure\n")) << "the code's own text";
    EXPECT_FALSE(utils.checkIPMIDBRequest());
    EXPECT_TRUE(log.contains("An error occurred in checking RMC request via IPMI"));
    EXPECT_EQ(GetPartitionId(2), -1);
    EXPECT_THROW(ipmi::IPMIUtils(), ipmi_exceptions::invalid_handle) << "nobody listens at " << rmc_->address();
    EXPECT_TRUE(log.contains("(try 2 of 2)"));

    rmc_->restart();
    EXPECT_EQ(utils.RMC_CLI_Cmd_Execution("MPEventGen", payloadOf(400, 9)), 0);
    const std::vector<vekRmcEmulator::Command> spooled = rmc_->spooledCommands();
    ASSERT_EQ(spooled.size(), 2u);
    EXPECT_EQ(spooled[0].payload, payloadOf(1000, 2));
    EXPECT_EQ(spooled[1].payload, payloadOf(400, 9));
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

} // namespace
