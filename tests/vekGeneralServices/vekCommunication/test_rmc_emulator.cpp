// The emulated RMC (ipmi_sim with the project's module, started by
// testtools/rmcemu/rmc-emu.sh through vekRmcEmulator) reached through the
// system's external IPMI transport: what the RMC answers and what lands in
// its spool folder.

#include "vekIPMIExternalTransport.h"
#include "vekIPMITransport.h"
#include "vekRmcEmulator.h"
#include "vekSamplePayload.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace vekIPMI;
using Bytes = std::vector<uint8_t>;

namespace {

const std::string kScript = std::string(VEK_SOURCE_DIR) + "/testtools/rmcemu/rmc-emu.sh";
const std::string kModule = std::string(VEK_BINARY_DIR) + "/testtools/rmcemu/vekrmc_module.so";

const uint8_t kRmcNetfn = 0x3A;
const uint8_t kCliChunk = 0x80;

std::string valueOf(const std::string& output, const std::string& key)
{
    std::smatch m;
    if (std::regex_search(output, m, std::regex("(^|\\n)" + key + "=([^\\n]*)"))) {
        return m[2];
    }
    return "";
}

uint16_t le16(const Bytes& b, size_t at)
{
    return static_cast<uint16_t>(b[at] | b[at + 1] << 8);
}

// What the RMC says to one chunk.
struct ChunkReply {
    uint8_t completion = 0xFF;
    uint8_t status = 0xFF;
    uint16_t next = 0;
    uint8_t exitStatus = 0xFF;
};

using vekIPMITest::payloadOf;

class RmcEmulatorTest : public vekRootTest {
protected:
    void SetUp() override
    {
        VEK_REQUIRE_RMC_EMULATOR();
        rmc_.reset(new vekRmcEmulator(root.path() + "/rmc-spool"));
        link_.reset(new ExternalLink(rmc_->address()));
        transport_.reset(new ExternalTransport(*link_));
        ASSERT_TRUE(transport_->open());
    }

    Bytes ask(uint8_t netfn, uint8_t cmd, const Bytes& data = {})
    {
        Bytes response(kMaxResponseSize);
        size_t len = response.size();
        transport_->exchange(netfn, cmd, 0, data.data(), data.size(), response.data(), len);
        response.resize(len);
        return response;
    }

    ChunkReply sendChunk(const Bytes& chunk)
    {
        const Bytes r = ask(kRmcNetfn, kCliChunk, chunk);
        ChunkReply reply;
        if (!r.empty()) {
            reply.completion = r[0];
        }
        if (r.size() >= 5) {
            reply.status = r[1];
            reply.next = le16(r, 2);
            reply.exitStatus = r[4];
        }
        return reply;
    }

    static Bytes firstChunk(const std::string& name, uint32_t declaredLength, const std::string& first33)
    {
        Bytes chunk(60, 0);
        chunk[2] = 0x14;
        std::copy(name.begin(), name.begin() + std::min<size_t>(name.size(), 20), chunk.begin() + 3);
        for (int i = 0; i < 4; ++i) {
            chunk[23 + i] = static_cast<uint8_t>(declaredLength >> (8 * i));
        }
        std::copy(first33.begin(), first33.begin() + std::min<size_t>(first33.size(), 33), chunk.begin() + 27);
        return chunk;
    }

    static Bytes followingChunk(uint16_t index, const std::string& next57)
    {
        Bytes chunk(60, 0);
        chunk[0] = static_cast<uint8_t>(index);
        chunk[1] = static_cast<uint8_t>(index >> 8);
        std::copy(next57.begin(), next57.begin() + std::min<size_t>(next57.size(), 57), chunk.begin() + 3);
        return chunk;
    }

    // The sender's chunk loop, byte for byte: the payload and its NUL go out
    // 33 bytes in the first chunk, then 57 a chunk; a last piece always goes
    // to offset 3, also when it is the first chunk, where it overlays the name.
    std::vector<ChunkReply> sendCommand(const std::string& name, const std::string& payload)
    {
        std::string data = payload;
        data.push_back('\0');
        Bytes request = firstChunk(name, static_cast<uint32_t>(data.size()), "");
        std::vector<ChunkReply> replies;
        uint16_t index = 0;
        size_t at = 0;
        while (at < data.size()) {
            request[0] = static_cast<uint8_t>(index);
            request[1] = static_cast<uint8_t>(index >> 8);
            if (index != 0) {
                request[2] = 0;
            }
            const size_t remaining = data.size() - at;
            if (remaining > 57) {
                const size_t piece = (at == 0) ? 33 : 57;
                std::copy(data.begin() + at, data.begin() + at + piece, request.begin() + (at == 0 ? 27 : 3));
                at += piece;
            } else {
                std::copy(data.begin() + at, data.end(), request.begin() + 3);
                at = data.size();
            }
            const ChunkReply reply = sendChunk(request);
            replies.push_back(reply);
            index = reply.next;
            std::fill(request.begin(), request.end(), 0);
        }
        return replies;
    }

    std::vector<std::string> spoolFiles() const
    {
        std::vector<std::string> names;
        for (const vekRmcEmulator::Command& c : rmc_->spooledCommands()) {
            names.push_back(c.file);
        }
        return names;
    }

    void writeSpool(const std::string& name, const std::string& content) const { rmc_->writeFile(name, content); }

    size_t logLines(const std::string& prefix) const { return rmc_->logLines(prefix); }

    std::unique_ptr<vekRmcEmulator> rmc_;
    std::unique_ptr<ExternalLink> link_;
    std::unique_ptr<ExternalTransport> transport_;
};

TEST_F(RmcEmulatorTest, GetDeviceIdComesFromTheEmulatorConfiguration)
{
    const Bytes id = ask(0x06, 0x01);
    ASSERT_EQ(id.size(), 16u) << "completion code and the 15 bytes of Get Device ID";
    EXPECT_EQ(id[0], 0x00);
    EXPECT_EQ(id[1], 0x20) << "device id";
    EXPECT_EQ(id[6] & 0x02, 0x02) << "SDR repository supported";
    EXPECT_EQ(id[7] | id[8] << 8 | id[9] << 16, 0x001291) << "manufacturer";
}

TEST_F(RmcEmulatorTest, PayloadsArriveByteExactInTheSpool)
{
    const struct {
        size_t length;
        size_t chunks;
    } cases[] = {
        {57, 2},      // 33 + 25 with the NUL
        {58, 2},      // 33 + 26
        {90, 3},      // 33 + 57 + the NUL alone
        {1000, 18},   // 33 + 16 * 57 + 56
        {200000, 3510},
    };
    const char* commands[] = {"WriteInventory", "MPEventGen", "WriteTelemetry", "WriteAppTelemetry"};
    size_t sequence = 0;
    for (const auto& c : cases) {
        const std::string command = commands[sequence % 4];
        const std::string payload = payloadOf(c.length, static_cast<unsigned>(c.length));
        const size_t linesBefore = logLines("0x80 index=");
        const std::vector<ChunkReply> replies = sendCommand(command, payload);
        ++sequence;

        ASSERT_EQ(replies.size(), c.chunks) << c.length;
        for (const ChunkReply& r : replies) {
            ASSERT_EQ(r.completion, 0x00) << c.length;
            ASSERT_EQ(r.status, 0) << c.length;
            ASSERT_EQ(r.exitStatus, 0) << c.length;
        }
        EXPECT_EQ(replies.back().next, 0) << "a finished transfer has no next index";
        EXPECT_EQ(logLines("0x80 index=") - linesBefore, c.chunks) << "one exchange per chunk";

        char name[64];
        snprintf(name, sizeof(name), "%06zu-%s.txt", sequence, command.c_str());
        EXPECT_EQ(rmc_->readFile(name), payload) << name;
    }
    EXPECT_EQ(spoolFiles().size(), 5u);
}

TEST_F(RmcEmulatorTest, PayloadTooShortForTheChunkFormatOverlaysTheNameAndIsRefused)
{
    const std::vector<ChunkReply> replies = sendCommand("WriteInventory", payloadOf(56));
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].status, 5) << "the name field holds payload bytes";
    EXPECT_TRUE(spoolFiles().empty());
    EXPECT_NE(rmc_->log().find("unknown command name"), std::string::npos);
}

TEST_F(RmcEmulatorTest, NextIndexesAreTheRmcsOwnAndAWrongOneIsRefused)
{
    const std::string payload = payloadOf(1000);
    std::string data = payload + '\0';

    ChunkReply reply = sendChunk(firstChunk("WriteInventory", static_cast<uint32_t>(data.size()), data.substr(0, 33)));
    ASSERT_EQ(reply.status, 0);
    std::vector<uint16_t> indexes = {reply.next};

    // A counter's guess is refused and changes nothing.
    for (uint16_t guess : {uint16_t(1), uint16_t(reply.next + 1)}) {
        const ChunkReply refused = sendChunk(followingChunk(guess, data.substr(33, 57)));
        EXPECT_EQ(refused.status, 3) << guess;
        EXPECT_EQ(refused.next, 0) << guess;
    }

    for (size_t at = 33; at < data.size(); at += 57) {
        reply = sendChunk(followingChunk(indexes.back(), data.substr(at, 57)));
        ASSERT_EQ(reply.status, 0) << at;
        if (reply.next != 0) {
            indexes.push_back(reply.next);
        }
    }
    EXPECT_EQ(reply.next, 0);
    EXPECT_EQ(rmc_->readFile("000001-WriteInventory.txt"), payload);

    ASSERT_EQ(indexes.size(), 17u);
    for (uint16_t index : indexes) {
        EXPECT_TRUE(index != 0 && index != 1 && index != 2 && index != 3) << index;
    }
    size_t counting = 0;
    for (size_t i = 1; i < indexes.size(); ++i) {
        counting += (indexes[i] == indexes[i - 1] + 1) ? 1 : 0;
    }
    EXPECT_LT(counting, indexes.size() - 1) << "indexes must not simply count";
    EXPECT_GT(std::set<uint16_t>(indexes.begin(), indexes.end()).size(), 10u);

    // With nothing in progress, any index is wrong.
    EXPECT_EQ(sendChunk(followingChunk(indexes[0], "late")).status, 3);
}

TEST_F(RmcEmulatorTest, FirstChunksThatAreRefused)
{
    writeSpool("max_length", "2000\n");
    const struct {
        Bytes chunk;
        uint8_t status;
        const char* why;
    } cases[] = {
        {firstChunk("WriteSomething", 100, "x"), 5, "unknown command"},
        {firstChunk("writeinventory", 100, "x"), 5, "names are case-sensitive"},
        {firstChunk("WriteInventory", 2001, "x"), 8, "longer than the configured limit"},
        {firstChunk("MPEventGen", 0xFFFFFFFFu, "x"), 8, "absurd length"},
    };
    for (const auto& c : cases) {
        const ChunkReply reply = sendChunk(c.chunk);
        EXPECT_EQ(reply.completion, 0x00) << c.why;
        EXPECT_EQ(reply.status, c.status) << c.why;
        EXPECT_EQ(reply.next, 0) << c.why;
    }
    EXPECT_TRUE(spoolFiles().empty());

    // At the limit it is taken.
    const std::vector<ChunkReply> replies = sendCommand("WriteTelemetry", payloadOf(1999));
    EXPECT_EQ(replies.back().status, 0);
    EXPECT_EQ(spoolFiles(), std::vector<std::string>({"000001-WriteTelemetry.txt"}));
}

TEST_F(RmcEmulatorTest, DefaultLimitIsSixteenMebibytes)
{
    EXPECT_EQ(sendChunk(firstChunk("WriteInventory", 16u * 1024 * 1024 + 1, "x")).status, 8);
    EXPECT_EQ(sendChunk(firstChunk("WriteInventory", 16u * 1024 * 1024, "x")).status, 0);
}

TEST_F(RmcEmulatorTest, NewFirstChunkWhileATransferIsIncompleteStartsOver)
{
    const std::string abandoned = payloadOf(500, 2);
    ASSERT_EQ(sendChunk(firstChunk("WriteInventory", 501, abandoned)).status, 0);

    const std::string payload = payloadOf(300, 3);
    const std::vector<ChunkReply> replies = sendCommand("MPEventGen", payload);
    EXPECT_EQ(replies.front().status, 1) << "input data of the earlier command was not complete";
    EXPECT_NE(replies.front().next, 0) << "the new transfer goes on";
    EXPECT_EQ(replies.back().status, 0);
    EXPECT_EQ(spoolFiles(), std::vector<std::string>({"000001-MPEventGen.txt"}));
    EXPECT_EQ(rmc_->readFile("000001-MPEventGen.txt"), payload);
}

TEST_F(RmcEmulatorTest, InjectedStatusesAnswerTheNextChunksThenTheFileIsGone)
{
    const std::string data = payloadOf(200) + '\0';
    const Bytes first = firstChunk("WriteInventory", static_cast<uint32_t>(data.size()), data.substr(0, 33));

    writeSpool("inject", "4 2\n");
    EXPECT_EQ(sendChunk(first).status, 4);
    EXPECT_EQ(rmc_->readFile("inject"), "4 1 0\n");
    EXPECT_EQ(sendChunk(first).status, 4);
    EXPECT_FALSE(rmc_->fileExists("inject")) << "used up";

    // A transfer under way is lost to the injected failure.
    ChunkReply reply = sendChunk(first);
    ASSERT_EQ(reply.status, 0);
    writeSpool("inject", "6 1 7");
    const ChunkReply failed = sendChunk(followingChunk(reply.next, data.substr(33, 57)));
    EXPECT_EQ(failed.status, 6);
    EXPECT_EQ(failed.exitStatus, 7);
    EXPECT_EQ(sendChunk(followingChunk(reply.next, data.substr(33, 57))).status, 3);

    EXPECT_EQ(sendCommand("WriteInventory", payloadOf(200)).back().status, 0);
    EXPECT_EQ(spoolFiles(), std::vector<std::string>({"000001-WriteInventory.txt"}));
}

TEST_F(RmcEmulatorTest, DoorbellsAnswerTheirFiles)
{
    writeSpool("doorbell1", "WriteInventory");
    writeSpool("doorbell2", std::string("\x01\x02", 2));
    writeSpool("doorbell3", std::string(50, 'z'));

    const Bytes one = ask(kRmcNetfn, 0x81);
    EXPECT_EQ(std::string(one.begin() + 1, one.end()), "WriteInventory");
    EXPECT_EQ(ask(kRmcNetfn, 0x82), Bytes({0x00, 0x01, 0x02}));
    const Bytes three = ask(kRmcNetfn, 0x83);
    EXPECT_EQ(three.size(), 36u) << "ipmi_sim answers at most 35 data bytes";
    EXPECT_EQ(three[0], 0x00);

    rmc_->clearDoorbell(1);
    EXPECT_EQ(ask(kRmcNetfn, 0x81), Bytes({0x00})) << "no file, no request";
    EXPECT_EQ(ask(kRmcNetfn, 0x84), Bytes({0xC1})) << "not an RMC command";
    EXPECT_EQ(logLines("0x8"), 4u);
}

// Reads one SDR in two pieces, header then body, as the SDR cache does.
struct Sdr {
    uint16_t nextId = 0xFFFF;
    Bytes bytes;
};

TEST_F(RmcEmulatorTest, SdrRepositoryWalkReadsEveryRecord)
{
    const Bytes info = ask(0x0A, 0x20);
    ASSERT_GE(info.size(), 15u);
    ASSERT_EQ(info[0], 0x00);
    EXPECT_EQ(info[1], 0x51) << "SDR version";
    const uint16_t count = le16(info, 2);

    const Bytes reserved = ask(0x0A, 0x22);
    ASSERT_EQ(reserved.size(), 3u);
    ASSERT_EQ(reserved[0], 0x00);

    std::vector<Bytes> records;
    uint16_t id = 0;
    while (id != 0xFFFF && records.size() < 50) {
        const Bytes header = ask(0x0A, 0x23, {reserved[1], reserved[2], uint8_t(id), uint8_t(id >> 8), 0, 5});
        ASSERT_EQ(header[0], 0x00) << id;
        ASSERT_EQ(header.size(), 8u) << id;
        Bytes record(header.begin() + 3, header.end());
        const uint8_t bodyLength = record[4];
        const Bytes body =
            ask(0x0A, 0x23, {reserved[1], reserved[2], uint8_t(id), uint8_t(id >> 8), 5, bodyLength});
        ASSERT_EQ(body[0], 0x00) << "record " << id << " must fit one read";
        record.insert(record.end(), body.begin() + 3, body.end());
        ASSERT_EQ(record.size(), 5u + bodyLength);
        records.push_back(record);
        id = le16(header, 1);
    }
    EXPECT_EQ(records.size(), count);

    std::vector<std::string> fruNames;
    for (const Bytes& r : records) {
        if (r[3] == 0x11) {
            const size_t length = r[15] & 0x3F;
            EXPECT_EQ(r[15] & 0xC0, 0xC0) << "8-bit ASCII id string";
            fruNames.emplace_back(r.begin() + 16, r.begin() + 16 + length);
        }
    }
    std::sort(fruNames.begin(), fruNames.end());
    EXPECT_EQ(fruNames, std::vector<std::string>({"PSU0", "UBM_BOX0_BP", "UBM_BOX1_BP"}));
}

TEST_F(RmcEmulatorTest, ReservationTakenOverLanCancelsOurs)
{
    if (!vekRmcEmulator::hasIpmitool()) {
        GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
    }
    const Bytes reserved = ask(0x0A, 0x22);
    ASSERT_EQ(reserved[0], 0x00);
    const Bytes getFirst = {reserved[1], reserved[2], 0, 0, 0, 5};
    EXPECT_EQ(ask(0x0A, 0x23, getFirst)[0], 0x00);

    ASSERT_NO_THROW(rmc_->reserveSdrOverLan());

    EXPECT_EQ(ask(0x0A, 0x23, getFirst), Bytes({0xC5})) << "reservation cancelled";
    const Bytes again = ask(0x0A, 0x22);
    EXPECT_EQ(ask(0x0A, 0x23, {again[1], again[2], 0, 0, 0, 5})[0], 0x00);
}

TEST_F(RmcEmulatorTest, RestartedEmulatorIsReachedAgain)
{
    const std::string sameAddress = rmc_->address();
    ASSERT_EQ(ask(0x06, 0x01)[0], 0x00);

    // Down and up again between two requests: nobody notices.
    rmc_->restart();
    ASSERT_EQ(rmc_->address(), sameAddress);
    EXPECT_EQ(ask(0x06, 0x01)[0], 0x00);

    // A request while it is down fails as a send; the next one after it is
    // back goes through.
    rmc_->stop();
    try {
        ask(0x06, 0x01);
        ADD_FAILURE() << "no RMC, but an answer";
    } catch (const TransportException& e) {
        EXPECT_EQ(e.failure(), TransportFailure::Send);
    }
    rmc_->restart();
    EXPECT_EQ(ask(0x06, 0x01)[0], 0x00);

    // Spool numbering goes on across restarts.
    EXPECT_EQ(sendCommand("WriteInventory", payloadOf(100)).back().status, 0);
    rmc_->restart();
    EXPECT_EQ(sendCommand("WriteInventory", payloadOf(100)).back().status, 0);
    EXPECT_EQ(spoolFiles(), std::vector<std::string>({"000001-WriteInventory.txt", "000002-WriteInventory.txt"}));
}

TEST(RmcEmulatorScript, WithoutASpoolFolderItMakesAndPrintsOne)
{
    VEK_REQUIRE_RMC_EMULATOR();
    const std::string env = "env -u VEK_RMC_SPOOL VEK_RMC_MODULE='" + kModule + "' ";
    const vekRmcEmulator::Result started = vekRmcEmulator::run(env + "'" + kScript + "' start");
    ASSERT_EQ(started.status, 0) << started.output;
    const std::string spool = valueOf(started.output, "VEK_RMC_SPOOL");
    ASSERT_FALSE(spool.empty()) << started.output;
    struct stat st;
    EXPECT_EQ(stat((spool + "/ipmi_sim/vekrmc/sdr.20.main").c_str(), &st), 0) << "fresh SDR repository";

    EXPECT_EQ(vekRmcEmulator::run(env + "'" + kScript + "' status '" + spool + "'").status, 0);
    EXPECT_EQ(vekRmcEmulator::run(env + "'" + kScript + "' stop '" + spool + "'").status, 0);
    EXPECT_NE(vekRmcEmulator::run(env + "'" + kScript + "' status '" + spool + "'").status, 0);
    vekRmcEmulator::run("rm -rf '" + spool + "'");
}

} // namespace
