// The IPMI transport: the external BMC protocol's framing and escaping; the
// external link to the emulated RMC (a slow one, a silent one, one that went
// away, nobody there, many users at once).
// And the next indexes the emulated RMC hands out, which no sender can guess.

#include "vekIPMIExternalTransport.h"
#include "vekIPMIService.h"
#include "vekIPMITestSupport.h"
#include "vekIPMITransport.h"
#include "vekRMCCliProtocol.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMI;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes hex(const std::string& text)
{
    Bytes out;
    for (size_t i = 0; i + 1 < text.size(); i += (text[i] == ' ') ? 1 : 2) {
        if (text[i] != ' ') {
            out.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
        }
    }
    return out;
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(IpmiExternalCodec, RequestsAreFramedAndEscapedAsTheBmcExpects)
{
    const struct {
        uint8_t seq, netfn, lun, cmd;
        Bytes data;
        Bytes expected;
        const char* why;
    } cases[] = {
        {0x05, 0x06, 0, 0x01, {}, hex("05 18 01 e2 a0"), "Get Device ID"},
        {0x01, 0x3A, 2, 0x81, {}, hex("01 ea 81 94 a0"), "LUN in the low bits"},
        {0xA0, 0x06, 0, 0x01, {}, hex("aa b0 18 01 47 a0"), "sequence number escaped"},
        {0x02, 0x3A, 0, 0x80, {0xA0, 0xA1, 0xAA, 0xB0}, hex("02 e8 80 aa b0 aa b1 aa ba b0 fb a0"), "data escaped"},
        {0x00, 0x01, 0, 0x5C, {}, hex("00 04 5c aa b0 a0"), "checksum 0xA0 escaped"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(vmcodec::encodeRequest(c.seq, c.netfn, c.lun, c.cmd, c.data.data(), c.data.size()), c.expected)
            << c.why;
    }
}

TEST(IpmiExternalCodec, ControlFramesInTheSameReadAsAnAnswerAreSplitOff)
{
    // As ipmi_sim sent it on a fresh connection: version and attention
    // frames, then the answer to Get Device ID, in one read.
    const Bytes wire = hex("ff01a100a1 051c010000030908029f911200020f0000000075a0");
    for (size_t piece : {wire.size(), size_t(1), size_t(3)}) {
        vmcodec::FrameDecoder decoder;
        std::vector<vmcodec::Frame> frames;
        for (size_t at = 0; at < wire.size(); at += piece) {
            EXPECT_EQ(decoder.feed(wire.data() + at, std::min(piece, wire.size() - at), frames), 0u);
        }
        ASSERT_EQ(frames.size(), 3u) << "pieces of " << piece;
        EXPECT_TRUE(frames[0].control && frames[1].control && !frames[2].control);
        EXPECT_EQ(frames[0].bytes, hex("ff 01"));
        vmcodec::Response r;
        ASSERT_EQ(vmcodec::parseResponse(frames[2].bytes, r), vmcodec::ParseResult::Ok);
        EXPECT_EQ(Bytes({r.seq, r.netfn, r.lun, r.cmd}), hex("05 07 00 01"));
        EXPECT_EQ(r.body, hex("00 00 03 09 08 02 9f 91 12 00 02 0f 00 00 00 00"));
    }
}

TEST(IpmiExternalCodec, BrokenFramesAreDroppedAndTheNextOneIsRead)
{
    const struct {
        Bytes wire;
        size_t dropped;
        const char* why;
    } cases[] = {
        {hex("01 02 aa a0 01 1c 01 00 e2 a0"), 1, "frame ending inside an escape"},
        {hex("a0 a0 a1 01 1c 01 00 e2 a0"), 0, "empty frames are no frames"},
        {Bytes(400, 0x11) + hex("a0 01 1c 01 00 e2 a0"), 1, "over-long frame"},
    };
    for (const auto& c : cases) {
        vmcodec::FrameDecoder decoder;
        std::vector<vmcodec::Frame> frames;
        EXPECT_EQ(decoder.feed(c.wire.data(), c.wire.size(), frames), c.dropped) << c.why;
        ASSERT_EQ(frames.size(), 1u) << c.why;
        EXPECT_EQ(frames[0].bytes, hex("01 1c 01 00 e2")) << c.why;
    }
    vmcodec::Response r;
    EXPECT_EQ(vmcodec::parseResponse(hex("01 1c 01 e2"), r), vmcodec::ParseResult::TooShort);
    EXPECT_EQ(vmcodec::parseResponse(hex("01 1c 01 00 e3"), r), vmcodec::ParseResult::BadChecksum);
}

Bytes ask(Transport& transport, uint8_t netfn, uint8_t cmd, const Bytes& data = {})
{
    Bytes answer(kMaxResponseSize);
    size_t len = answer.size();
    transport.exchange(netfn, cmd, 0, data.data(), data.size(), answer.data(), len);
    answer.resize(len);
    return answer;
}

TransportFailure failureOf(const std::function<void()>& call, int* errorCode = nullptr)
{
    try {
        call();
    } catch (const TransportException& e) {
        if (errorCode != nullptr) {
            *errorCode = e.errorCode();
        }
        return e.failure();
    }
    ADD_FAILURE() << "no TransportException";
    return TransportFailure::NotOpen;
}

// A simulation a thousand times faster than real time, as the service's
// end-to-end tests run: the RMC's own time is not sped up.
class ExternalLinkTest : public vekIPMITest::RmcCase {
protected:
    vekIPMITest::ScopedEnv fast_{"VEK_TIME_SCALE", "1000"};
};

TEST_F(ExternalLinkTest, SlowRmcIsHeardAndASilentOneIsNoResponseWhoseLateAnswerIsIgnored)
{
    ExternalLink link(rmc_->address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());
    rmc_->writeDoorbell(1, "WriteInventory");
    rmc_->freeze();
    // Far beyond the scaled 5 ms, as a busy machine may be.
    std::thread thaw([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        rmc_->thaw();
    });
    EXPECT_EQ(ask(transport, 0x3A, 0x81), Bytes{0x00} + hex("57 72 69 74 65 49 6e 76 65 6e 74 6f 72 79"));
    thaw.join();

    vekIPMITest::LogTail log;
    rmc_->freeze();
    EXPECT_EQ(failureOf([&] { ask(transport, 0x3A, 0x82); }), TransportFailure::NoResponse);
    EXPECT_TRUE(log.contains("No answer from external BMC at " + rmc_->address() +
                             " to netfn 0x3a cmd 0x82 within 2000 ms"))
        << log.text();
    rmc_->thaw();
    EXPECT_EQ(ask(transport, 0x3A, 0x81).size(), 15u) << "the answer of doorbell 1, not the late one of doorbell 2";
}

TEST_F(ExternalLinkTest, LinkThatWentAwayIsMadeAgainAndNobodyListeningCannotBeOpened)
{
    ExternalLink link(rmc_->address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());
    vekIPMITest::LogTail log;
    rmc_->restart();
    EXPECT_EQ(ask(transport, 0x06, 0x01).at(0), 0x00);
    EXPECT_TRUE(log.contains("was dropped; reconnecting"));

    rmc_->stop();
    int error = 0;
    EXPECT_EQ(failureOf([&] { ask(transport, 0x06, 0x01); }, &error), TransportFailure::Send);
    EXPECT_EQ(error, ECONNREFUSED);
    ExternalLink nobody(rmc_->address());
    ExternalTransport unopened(nobody);
    EXPECT_FALSE(unopened.open());
    EXPECT_TRUE(log.contains("Unable to connect to external BMC at " + rmc_->address() + ": Connection refused"));
    EXPECT_EQ(failureOf([&] { ask(unopened, 0x06, 0x01); }), TransportFailure::NotOpen);

    for (const char* bad : {"", "localhost", "localhost:", ":623", "host:port"}) {
        ExternalLink invalid(bad);
        ExternalTransport never(invalid);
        EXPECT_FALSE(never.open()) << bad;
        EXPECT_EQ(failureOf([&] { ask(never, 0x06, 0x01); }), TransportFailure::NotOpen) << bad;
    }
    EXPECT_TRUE(ExternalLink("[::1]:9002").addressValid());
}

TEST_F(ExternalLinkTest, ConcurrentUsersOfTheOneLinkEachGetTheirOwnAnswer)
{
    const std::string answers[] = {"", "first doorbell", "second doorbell", "third doorbell"};
    for (int level = 1; level <= 3; ++level) {
        rmc_->writeDoorbell(level, answers[level]);
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> users;
    for (int level = 1; level <= 3; ++level) {
        users.emplace_back([&wrong, &answers, level] {
            std::unique_ptr<Transport> transport = createTransport();
            ASSERT_TRUE(transport->open());
            for (int i = 0; i < 50; ++i) {
                const Bytes answer = ask(*transport, 0x3A, static_cast<uint8_t>(0x80 + level));
                wrong += std::string(answer.begin() + 1, answer.end()) != answers[level] ? 1 : 0;
            }
        });
    }
    for (std::thread& u : users) {
        u.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(rmc_->logLines("0x8"), 150u);
}

class RmcEmulatorTest : public vekIPMITest::RmcCase {
};

TEST_F(RmcEmulatorTest, NextIndexesAreTheRmcsOwnAndAGuessIsRefused)
{
    vekIPMIService& service = vekIPMIService::getInstance();
    service.sendData("WriteInventory", vekIPMITest::payloadOf(1000));
    std::vector<unsigned> indexes;
    const std::string log = rmc_->log();
    const std::regex handedOut("status=0 next=0x([0-9a-f]{4})");
    for (std::sregex_iterator it(log.begin(), log.end(), handedOut), end; it != end; ++it) {
        indexes.push_back(std::stoul((*it)[1], nullptr, 16));
    }
    ASSERT_EQ(indexes.size(), 18u);
    EXPECT_EQ(indexes.back(), 0u) << "a finished transfer has no next index";
    indexes.pop_back();
    size_t counting = 0;
    for (size_t i = 0; i < indexes.size(); ++i) {
        EXPECT_GE(indexes[i], 0x100u) << i;
        counting += (i > 0 && indexes[i] == indexes[i - 1] + 1) ? 1 : 0;
    }
    EXPECT_LT(counting, indexes.size() - 1) << "indexes must not simply count";
    EXPECT_GT(std::set<unsigned>(indexes.begin(), indexes.end()).size(), 10u);

    // A transfer left half-way (the RMC busy at its third chunk): a
    // following chunk with a counter's index is refused, status 3.
    rmc_->injectCompletionCode(0xC0, 1, 2);
    service.sendData("WriteInventory", vekIPMITest::payloadOf(1000));
    for (uint16_t guess : {1, 2}) {
        uint8_t chunk[vekIPMI::rmcCli::kChunkSize] = {static_cast<uint8_t>(guess), static_cast<uint8_t>(guess >> 8)};
        uint8_t answer[4] = {0xFF, 0xFF, 0xFF, 0xFF};
        size_t length = sizeof(answer);
        uint8_t completionCode = 0xFF;
        service.execute(0x3A, 0x80, 0, chunk, sizeof(chunk), answer, length, completionCode);
        EXPECT_EQ(std::vector<uint8_t>(answer, answer + length), std::vector<uint8_t>({3, 0, 0, 0})) << guess;
    }
}

} // namespace
