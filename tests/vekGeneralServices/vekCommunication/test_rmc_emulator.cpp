// The emulated RMC (testtools/rmcemu) reached through the system's external
// IPMI transport: the RMC's rules it plays (indexes no client can guess,
// refused first chunks, a transfer started over), its fault files, its
// doorbells, restarts, and its script.

#include "vekIPMITestSupport.h"
#include "vekIPMITransport.h"
#include "vekRMCCliProtocol.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>
#include <vector>

using namespace vekIPMI::rmcCli;
using Bytes = std::vector<uint8_t>;
using vekIPMITest::payloadOf;

namespace {

class RmcEmulatorTest : public vekIPMITest::RmcCase {
protected:
    void SetUp() override
    {
        RmcCase::SetUp();
        if (rmc_) {
            transport_ = vekIPMI::createTransport();
            ASSERT_TRUE(transport_->open());
        }
    }

    Bytes ask(uint8_t cmd, const Bytes& data = {})
    {
        Bytes answer(vekIPMI::kMaxResponseSize);
        size_t len = answer.size();
        transport_->exchange(kNetFn, cmd, 0, data.data(), data.size(), answer.data(), len);
        answer.resize(len);
        return answer;
    }

    Reply chunk(const Bytes& data)
    {
        const Bytes answer = ask(kCmdChunk, data);
        return readReply(answer.at(0), answer.data() + 1, answer.size() - 1);
    }

    static Bytes first(const std::string& name, uint32_t declared, const std::string& payload)
    {
        Bytes c(kChunkSize, 0);
        c[2] = kNameFieldLength;
        std::copy(name.begin(), name.end(), c.begin() + kNameOffset);
        for (int i = 0; i < 4; ++i) {
            c[kLengthOffset + i] = static_cast<uint8_t>(declared >> (8 * i));
        }
        std::copy_n(payload.begin(), std::min(payload.size(), kFirstPayloadBytes), c.begin() + kFirstPayloadOffset);
        return c;
    }

    static Bytes following(uint16_t index, const std::string& payload)
    {
        Bytes c(kChunkSize, 0);
        c[0] = static_cast<uint8_t>(index);
        c[1] = static_cast<uint8_t>(index >> 8);
        std::copy_n(payload.begin(), std::min(payload.size(), kNextPayloadBytes), c.begin() + kNextPayloadOffset);
        return c;
    }

    // The whole command, as any sender of this protocol sends it.
    Outcome send(const std::string& name, const std::string& payload)
    {
        return transfer(name, reinterpret_cast<const uint8_t*>(payload.c_str()), payload.size() + 1,
                        StopRule::SendAll, [this](const uint8_t* c, Reply& reply) {
                            reply = chunk(Bytes(c, c + kChunkSize));
                            return true;
                        });
    }

    std::unique_ptr<vekIPMI::Transport> transport_;
};

TEST_F(RmcEmulatorTest, NextIndexesAreTheRmcsOwnAndAWrongOneIsRefused)
{
    const std::string data = payloadOf(1000) + '\0';
    Reply reply = chunk(first("WriteInventory", static_cast<uint32_t>(data.size()), data));
    ASSERT_EQ(reply.status, 0);
    std::vector<uint16_t> indexes = {reply.nextIndex};
    // A counter's guess is refused and changes nothing.
    for (uint16_t guess : {uint16_t(1), uint16_t(reply.nextIndex + 1)}) {
        const Reply refused = chunk(following(guess, data.substr(33)));
        EXPECT_EQ(std::make_pair(refused.status, refused.nextIndex), std::make_pair(uint8_t(3), uint16_t(0)));
    }
    for (size_t at = 33; at < data.size(); at += 57) {
        reply = chunk(following(indexes.back(), data.substr(at)));
        ASSERT_EQ(reply.status, 0) << at;
        if (reply.nextIndex != 0) {
            indexes.push_back(reply.nextIndex);
        }
    }
    EXPECT_EQ(rmc_->readFile("000001-WriteInventory.txt"), payloadOf(1000));
    ASSERT_EQ(indexes.size(), 17u);
    size_t counting = 0;
    for (size_t i = 0; i < indexes.size(); ++i) {
        EXPECT_GE(indexes[i], 0x100) << i;
        counting += (i > 0 && indexes[i] == indexes[i - 1] + 1) ? 1 : 0;
    }
    EXPECT_LT(counting, indexes.size() - 1) << "indexes must not simply count";
    EXPECT_GT(std::set<uint16_t>(indexes.begin(), indexes.end()).size(), 10u);
    EXPECT_EQ(chunk(following(indexes[0], "late")).status, 3) << "with nothing in progress any index is wrong";
}

TEST_F(RmcEmulatorTest, FirstChunksThatAreRefusedAndATransferStartedOver)
{
    const struct {
        Bytes chunk;
        uint8_t status;
        const char* why;
    } cases[] = {
        {first("WriteSomething", 100, "x"), 5, "unknown command"},
        {first("writeinventory", 100, "x"), 5, "names are case-sensitive"},
        {first("WriteInventory", 16u * 1024 * 1024 + 1, "x"), 8, "longer than the default limit"},
        {first("WriteInventory", 16u * 1024 * 1024, "x"), 0, "at the default limit"},
        {first("MPEventGen", 301, "x"), 1, "input data of the one before was not complete"},
    };
    for (const auto& c : cases) {
        const Reply reply = chunk(c.chunk);
        EXPECT_EQ(reply.completionCode, 0x00) << c.why;
        EXPECT_EQ(reply.status, c.status) << c.why;
        EXPECT_EQ(reply.nextIndex != 0, c.status < 3) << c.why;
    }
    rmc_->setMaxLength(2000);
    EXPECT_EQ(send("WriteTelemetry", payloadOf(2000)).status, 8);
    EXPECT_EQ(send("WriteTelemetry", payloadOf(1999)).status, 0);
    EXPECT_EQ(rmc_->spooledCommands().size(), 1u);
}

TEST_F(RmcEmulatorTest, FaultFilesAnswerTheNextCommandsThenAreGone)
{
    const std::string data = payloadOf(200) + '\0';
    const Bytes firstChunk = first("WriteInventory", static_cast<uint32_t>(data.size()), data);
    rmc_->writeFile("inject", "4 2\n");
    EXPECT_EQ(chunk(firstChunk).status, 4);
    EXPECT_EQ(rmc_->readFile("inject"), "4 1 0\n");
    EXPECT_EQ(chunk(firstChunk).status, 4);
    EXPECT_FALSE(rmc_->fileExists("inject")) << "used up";

    // A transfer under way is lost to the injected failure.
    const Reply started = chunk(firstChunk);
    ASSERT_EQ(started.status, 0);
    rmc_->injectFault(6, 1, 7);
    const Reply failed = chunk(following(started.nextIndex, data.substr(33)));
    EXPECT_EQ(std::make_pair(failed.status, failed.exitStatus), std::make_pair(uint8_t(6), uint8_t(7)));
    EXPECT_EQ(chunk(following(started.nextIndex, data.substr(33))).status, 3);

    // A completion code alone, for chunks and doorbells alike.
    rmc_->writeFile("inject_cc", "0xC0 2\n");
    EXPECT_EQ(ask(kCmdChunk, firstChunk), Bytes({0xC0}));
    EXPECT_EQ(ask(0x81), Bytes({0xC0}));
    EXPECT_FALSE(rmc_->fileExists("inject_cc"));
    EXPECT_EQ(send("WriteInventory", payloadOf(200)).status, 0);
    EXPECT_EQ(rmc_->spooledCommands().size(), 1u);
}

TEST_F(RmcEmulatorTest, DoorbellsAnswerTheirFiles)
{
    rmc_->writeDoorbell(1, "WriteInventory");
    rmc_->writeDoorbell(2, std::string("\x01\x02", 2));
    rmc_->writeDoorbell(3, std::string(50, 'z'));
    EXPECT_EQ(ask(0x81), Bytes({0x00, 'W', 'r', 'i', 't', 'e', 'I', 'n', 'v', 'e', 'n', 't', 'o', 'r', 'y'}));
    EXPECT_EQ(ask(0x82), Bytes({0x00, 0x01, 0x02}));
    EXPECT_EQ(ask(0x83).size(), 36u) << "ipmi_sim answers at most 35 data bytes";
    rmc_->clearDoorbell(1);
    EXPECT_EQ(ask(0x81), Bytes({0x00})) << "no file, no request";
    EXPECT_EQ(ask(0x84), Bytes({0xC1})) << "not an RMC command";
}

TEST_F(RmcEmulatorTest, RestartedEmulatorIsReachedAgainAndGoesOnNumbering)
{
    const std::string address = rmc_->address();
    EXPECT_EQ(send("WriteInventory", payloadOf(100)).status, 0);
    rmc_->restart();
    ASSERT_EQ(rmc_->address(), address);
    EXPECT_EQ(send("WriteInventory", payloadOf(100)).status, 0);
    std::vector<std::string> files;
    for (const auto& command : rmc_->spooledCommands()) {
        files.push_back(command.file);
    }
    EXPECT_EQ(files, std::vector<std::string>({"000001-WriteInventory.txt", "000002-WriteInventory.txt"}));
}

TEST(RmcEmulatorScript, WithoutASpoolFolderItMakesAndPrintsOne)
{
    VEK_REQUIRE_RMC_EMULATOR();
    const std::string script = "env -u VEK_RMC_SPOOL VEK_RMC_MODULE='" VEK_BINARY_DIR
                               "/testtools/rmcemu/vekrmc_module.so' '" VEK_SOURCE_DIR "/testtools/rmcemu/rmc-emu.sh' ";
    const vekRmcEmulator::Result started = vekRmcEmulator::run(script + "start");
    ASSERT_EQ(started.status, 0) << started.output;
    std::smatch m;
    ASSERT_TRUE(std::regex_search(started.output, m, std::regex("VEK_RMC_SPOOL=([^\\n]+)"))) << started.output;
    const std::string spool = m[1];
    struct stat st;
    EXPECT_EQ(stat((spool + "/ipmi_sim/vekrmc/sdr.20.main").c_str(), &st), 0) << "fresh SDR repository";
    EXPECT_EQ(vekRmcEmulator::run(script + "status '" + spool + "'").status, 0);
    EXPECT_EQ(vekRmcEmulator::run(script + "stop '" + spool + "'").status, 0);
    EXPECT_NE(vekRmcEmulator::run(script + "status '" + spool + "'").status, 0);
    vekRmcEmulator::run("rm -rf '" + spool + "'");
}

} // namespace
