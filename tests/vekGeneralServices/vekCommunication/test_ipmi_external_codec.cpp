// The IPMI transport without an RMC: the external BMC protocol's framing,
// escaping and checksum; the external link against a scripted BMC on a local
// socket (control frames, stale answers, silence, dropped connections); the
// device transport's failures; and the choice between the two.

#include "vekIPMIExternalTransport.h"
#include "vekIPMITransport.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMI;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes hex(const std::string& text)
{
    Bytes out;
    for (size_t i = 0; i + 1 < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        out.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
        i += 2;
    }
    return out;
}

// A response as the BMC frames it.
Bytes responseFrame(uint8_t seq, uint8_t netfn, uint8_t cmd, const Bytes& ccAndData)
{
    Bytes body = {seq, static_cast<uint8_t>((netfn | 1) << 2), cmd};
    body.insert(body.end(), ccAndData.begin(), ccAndData.end());
    return vmcodec::encodeMessage(body);
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

const Bytes kHello = hex("ff 01 a1 00 a1");  // what ipmi_sim says at connect

// A request frame read as the BMC reads it: seq, netfn/lun, cmd, data,
// checksum (body holds the data).
bool parseRequest(const Bytes& frame, vmcodec::Response& out)
{
    if (frame.size() < 4 || vmcodec::checksum(frame.data(), frame.size() - 1) != frame.back()) {
        return false;
    }
    out.seq = frame[0];
    out.netfn = static_cast<uint8_t>(frame[1] >> 2);
    out.lun = static_cast<uint8_t>(frame[1] & 3);
    out.cmd = frame[2];
    out.body.assign(frame.begin() + 3, frame.end() - 1);
    return true;
}

// ---------------------------------------------------------------- codec

TEST(IpmiExternalCodec, ChecksumIsTwosComplementOfTheSum)
{
    const struct {
        Bytes bytes;
        uint8_t expected;
    } cases[] = {
        {{}, 0x00},
        {{0x01}, 0xFF},
        {{0x05, 0x18, 0x01}, 0xE2},
        {{0x80, 0x80}, 0x00},
        {{0xFF, 0xFF, 0xFF}, 0x03},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(vmcodec::checksum(c.bytes.data(), c.bytes.size()), c.expected);
    }
}

TEST(IpmiExternalCodec, RequestsAreFramedAsTheBmcExpects)
{
    const struct {
        uint8_t seq, netfn, lun, cmd;
        Bytes data;
        Bytes expected;
        const char* why;
    } cases[] = {
        {0x05, 0x06, 0, 0x01, {}, hex("05 18 01 e2 a0"), "Get Device ID"},
        {0x07, 0x0A, 0, 0x22, {}, hex("07 28 22 af a0"), "Reserve SDR Repository"},
        {0x01, 0x3A, 2, 0x81, {}, hex("01 ea 81 94 a0"), "LUN in the low bits"},
        {0xA0, 0x06, 0, 0x01, {}, hex("aa b0 18 01 47 a0"), "sequence number escaped"},
        {0x02, 0x3A, 0, 0x80, {0xA0, 0xA1, 0xAA, 0xB0},
         hex("02 e8 80 aa b0 aa b1 aa ba b0 fb a0"), "data bytes escaped"},
        {0x00, 0x06, 0, 0x3A, {}, hex("00 18 3a ae a0"), "plain bytes left alone"},
        {0x00, 0x01, 0, 0x5C, {}, hex("00 04 5c aa b0 a0"), "checksum 0xA0 escaped"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(vmcodec::encodeRequest(c.seq, c.netfn, c.lun, c.cmd, c.data.data(), c.data.size()), c.expected)
            << c.why;
    }
}

TEST(IpmiExternalCodec, DecoderSplitsControlFramesFromAnAnswerInTheSameRead)
{
    // Bytes as ipmi_sim sent them on a fresh connection: its version and
    // attention frames, then the answer to Get Device ID, all in one read.
    const Bytes wire = hex("ff01a100a1 051c010000030908029f911200020f0000000075a0");
    for (size_t piece : {wire.size(), size_t(1), size_t(3)}) {
        vmcodec::FrameDecoder decoder;
        std::vector<vmcodec::Frame> frames;
        for (size_t at = 0; at < wire.size(); at += piece) {
            const size_t n = std::min(piece, wire.size() - at);
            EXPECT_EQ(decoder.feed(wire.data() + at, n, frames), 0u);
        }
        ASSERT_EQ(frames.size(), 3u) << "pieces of " << piece;
        EXPECT_TRUE(frames[0].control);
        EXPECT_EQ(frames[0].bytes, hex("ff 01"));
        EXPECT_TRUE(frames[1].control);
        EXPECT_EQ(frames[1].bytes, hex("00"));
        EXPECT_FALSE(frames[2].control);

        vmcodec::Response r;
        ASSERT_EQ(vmcodec::parseResponse(frames[2].bytes, r), vmcodec::ParseResult::Ok);
        EXPECT_EQ(r.seq, 0x05);
        EXPECT_EQ(r.netfn, 0x07);
        EXPECT_EQ(r.lun, 0);
        EXPECT_EQ(r.cmd, 0x01);
        EXPECT_EQ(r.body, hex("00 00 03 09 08 02 9f 91 12 00 02 0f 00 00 00 00"));
    }
}

TEST(IpmiExternalCodec, DecoderDropsBrokenFramesAndKeepsGoing)
{
    const struct {
        Bytes wire;
        size_t dropped;
        size_t frames;
        const char* why;
    } cases[] = {
        {hex("01 02 aa a0 01 1c 01 00 e2 a0"), 1, 1, "frame ending inside an escape"},
        {hex("a0 a0 a1 01 1c 01 00 e2 a0"), 0, 1, "empty frames are no frames"},
        {concat({Bytes(400, 0x11), hex("a0 01 1c 01 00 e2 a0")}), 1, 1, "over-long frame"},
    };
    for (const auto& c : cases) {
        vmcodec::FrameDecoder decoder;
        std::vector<vmcodec::Frame> frames;
        EXPECT_EQ(decoder.feed(c.wire.data(), c.wire.size(), frames), c.dropped) << c.why;
        ASSERT_EQ(frames.size(), c.frames) << c.why;
        EXPECT_EQ(frames.back().bytes, hex("01 1c 01 00 e2")) << c.why;
    }
}

TEST(IpmiExternalCodec, ParseRefusesShortAndCorruptFrames)
{
    vmcodec::Response r;
    EXPECT_EQ(vmcodec::parseResponse(hex("01 1c 01 e2"), r), vmcodec::ParseResult::TooShort);
    EXPECT_EQ(vmcodec::parseResponse(hex("01 1c 01 00 e3"), r), vmcodec::ParseResult::BadChecksum);
    EXPECT_EQ(vmcodec::parseResponse(hex("01 1c 01 00 e2"), r), vmcodec::ParseResult::Ok);
    EXPECT_EQ(r.body, hex("00"));
}

TEST(IpmiExternalCodec, AnyMessageSurvivesEncodingAndDecoding)
{
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        Bytes body(4 + random() % 60);
        for (uint8_t& b : body) {
            // Framing bytes often, so that escapes meet each other.
            b = (random() % 4 == 0) ? static_cast<uint8_t>(0xA0 + random() % 11) : static_cast<uint8_t>(random());
        }
        const Bytes wire = vmcodec::encodeMessage(body);
        vmcodec::FrameDecoder decoder;
        std::vector<vmcodec::Frame> frames;
        ASSERT_EQ(decoder.feed(wire.data(), wire.size(), frames), 0u);
        ASSERT_EQ(frames.size(), 1u);
        ASSERT_EQ(frames[0].bytes.size(), body.size() + 1);
        EXPECT_TRUE(std::equal(body.begin(), body.end(), frames[0].bytes.begin()));
        vmcodec::Response r;
        EXPECT_EQ(vmcodec::parseResponse(frames[0].bytes, r), vmcodec::ParseResult::Ok);
    }
}

// ---------------------------------------------------------------- a scripted BMC

struct Reply {
    Bytes bytes;        // written back as they are
    bool close = false; // then the connection is closed
};

// A BMC on 127.0.0.1 that reads requests and answers what the script says.
// One connection at a time, like ipmi_sim: a newer one replaces the older.
class ScriptedBmc {
public:
    using Script = std::function<Reply(const vmcodec::Response& request, int connection)>;

    explicit ScriptedBmc(Script script, bool greet = true) : script_(std::move(script)), greet_(greet)
    {
        listen_.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int one = 1;
        setsockopt(listen_.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        addr.sin_port = 0;
        if (bind(listen_.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
            listen(listen_.get(), 4) != 0) {
            throw std::runtime_error("fake BMC cannot listen");
        }
        socklen_t len = sizeof(addr);
        getsockname(listen_.get(), reinterpret_cast<sockaddr*>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        thread_ = std::thread([this] { run(); });
    }

    ~ScriptedBmc()
    {
        stop_ = true;
        thread_.join();
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    int connections() const { return connections_; }
    std::vector<vmcodec::Response> requests() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }
    // Hangs up on the current client, as a BMC that restarts does; returns
    // once it has.
    void hangUp()
    {
        hangUp_ = true;
        while (hangUp_) {
            std::this_thread::yield();
        }
    }

private:
    void run()
    {
        UniqueFd client;
        vmcodec::FrameDecoder decoder;
        while (!stop_) {
            if (hangUp_) {
                client.reset();
                hangUp_ = false;
            }
            pollfd fds[2] = {{listen_.get(), POLLIN, 0}, {client.get(), POLLIN, 0}};
            if (poll(fds, client.valid() ? 2 : 1, 20) <= 0) {
                continue;
            }
            if (fds[0].revents & POLLIN) {
                client.reset(accept4(listen_.get(), nullptr, nullptr, SOCK_CLOEXEC));
                decoder.reset();
                ++connections_;
                if (greet_) {
                    write(client, kHello);
                }
                continue;
            }
            if (!client.valid() || !(fds[1].revents & (POLLIN | POLLHUP))) {
                continue;
            }
            uint8_t buffer[512];
            const ssize_t got = recv(client.get(), buffer, sizeof(buffer), 0);
            if (got <= 0) {
                client.reset();
                continue;
            }
            std::vector<vmcodec::Frame> frames;
            decoder.feed(buffer, static_cast<size_t>(got), frames);
            for (const vmcodec::Frame& frame : frames) {
                vmcodec::Response request;
                if (frame.control || !parseRequest(frame.bytes, request)) {
                    continue;
                }
                {
                    std::lock_guard<std::mutex> lock(mutex_);
                    requests_.push_back(request);
                }
                const Reply reply = script_(request, connections_);
                write(client, reply.bytes);
                if (reply.close) {
                    client.reset();
                    break;
                }
            }
        }
    }

    static void write(const UniqueFd& fd, const Bytes& bytes)
    {
        if (!bytes.empty() && send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
            // The client went away; the next poll notices.
        }
    }

    Script script_;
    bool greet_;
    UniqueFd listen_;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<bool> hangUp_{false};
    std::atomic<int> connections_{0};
    mutable std::mutex mutex_;
    std::vector<vmcodec::Response> requests_;
    std::thread thread_;
};

// Echoes the request data behind completion code 0.
Reply echo(const vmcodec::Response& rq, int)
{
    Bytes body = {0x00};
    body.insert(body.end(), rq.body.begin(), rq.body.end());
    return {responseFrame(rq.seq, rq.netfn, rq.cmd, body)};
}

struct Answer {
    Bytes bytes;
    size_t full = 0;
};

Answer ask(Transport& transport, uint8_t netfn, uint8_t cmd, const Bytes& data = {}, size_t capacity = kMaxResponseSize)
{
    Answer a;
    a.bytes.resize(capacity);
    size_t len = capacity;
    a.full = transport.exchange(netfn, cmd, 0, data.data(), data.size(), a.bytes.data(), len);
    a.bytes.resize(len);
    return a;
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

class ExternalLinkTest : public vekRootTest {
protected:
    void SetUp() override { setenv("VEK_TIME_SCALE", "50", 1); }  // 5 s answer timeout -> 100 ms
    void TearDown() override { unsetenv("VEK_TIME_SCALE"); }
};

TEST_F(ExternalLinkTest, AnswerIsFoundBehindControlFramesAndStaleOrCorruptFrames)
{
    ScriptedBmc bmc([](const vmcodec::Response& rq, int) {
        Bytes corrupt = responseFrame(rq.seq, rq.netfn, rq.cmd, hex("00 11"));
        corrupt[corrupt.size() - 2] ^= 0x01;
        const Bytes stale = responseFrame(static_cast<uint8_t>(rq.seq - 1), rq.netfn, rq.cmd, hex("00 99"));
        const Bytes answer = responseFrame(rq.seq, rq.netfn, rq.cmd, hex("00 20 01 a0 a1 aa"));
        return Reply{concat({hex("01 a1"), stale, corrupt, answer, hex("00 a1")})};
    });
    ExternalLink link(bmc.address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());

    for (int round = 0; round < 3; ++round) {
        const Answer a = ask(transport, 0x06, 0x01);
        EXPECT_EQ(a.bytes, hex("00 20 01 a0 a1 aa")) << round;
    }
    EXPECT_EQ(bmc.connections(), 1);
}

TEST_F(ExternalLinkTest, RequestDataArrivesIntactAndAnswersAreCutToTheCapacity)
{
    ScriptedBmc bmc(echo);
    ExternalLink link(bmc.address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());

    Bytes data(60);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<uint8_t>(0x9C + i);  // runs across 0xA0, 0xA1, 0xAA
    }
    const Answer whole = ask(transport, 0x3A, 0x80, data);
    EXPECT_EQ(whole.full, 61u);
    EXPECT_EQ(Bytes(whole.bytes.begin() + 1, whole.bytes.end()), data);
    ASSERT_EQ(bmc.requests().size(), 1u);
    EXPECT_EQ(bmc.requests()[0].netfn, 0x3A);
    EXPECT_EQ(bmc.requests()[0].cmd, 0x80);
    EXPECT_EQ(bmc.requests()[0].body, data);

    const Answer cut = ask(transport, 0x3A, 0x80, data, 4);
    EXPECT_EQ(cut.full, 61u);
    EXPECT_EQ(cut.bytes, Bytes({0x00, 0x9C, 0x9D, 0x9E}));
}

TEST_F(ExternalLinkTest, SilenceIsNoResponseAndTheLateAnswerIsNotTakenForTheNextOne)
{
    std::atomic<int> seen{0};
    ScriptedBmc bmc([&](const vmcodec::Response& rq, int) {
        if (seen++ == 0) {
            return Reply{};
        }
        // The answer to the first request comes late, in front of this one.
        return Reply{concat({responseFrame(static_cast<uint8_t>(rq.seq - 1), rq.netfn, rq.cmd, hex("00 01")),
                             responseFrame(rq.seq, rq.netfn, rq.cmd, hex("00 02"))})};
    });
    vekLogTail mainLog(vekTestMainLogPath());
    ExternalLink link(bmc.address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());

    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(failureOf([&] { ask(transport, 0x3A, 0x81); }), TransportFailure::NoResponse);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(4)) << "timeout not scaled";
    EXPECT_TRUE(mainLog.contains("No answer from external BMC at " + bmc.address() + " to netfn 0x3a cmd 0x81"));

    EXPECT_EQ(ask(transport, 0x3A, 0x81).bytes, hex("00 02"));
    EXPECT_EQ(bmc.connections(), 1);
}

TEST_F(ExternalLinkTest, HangUpWhileAnsweringIsAReceiveFailureAndTheNextExchangeReconnects)
{
    ScriptedBmc bmc([](const vmcodec::Response& rq, int connection) {
        if (connection == 1) {
            return Reply{{}, true};
        }
        return echo(rq, connection);
    });
    ExternalLink link(bmc.address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());

    EXPECT_EQ(failureOf([&] { ask(transport, 0x06, 0x01); }), TransportFailure::Receive);
    EXPECT_FALSE(link.isConnected());
    EXPECT_EQ(ask(transport, 0x06, 0x01, {0x42}).bytes, hex("00 42"));
    EXPECT_EQ(bmc.connections(), 2);
}

TEST_F(ExternalLinkTest, LinkDroppedBetweenExchangesIsMadeAgainUnnoticed)
{
    ScriptedBmc bmc(echo);
    vekLogTail mainLog(vekTestMainLogPath());
    ExternalLink link(bmc.address());
    ExternalTransport transport(link);
    ASSERT_TRUE(transport.open());
    EXPECT_EQ(ask(transport, 0x06, 0x01, {0x01}).bytes, hex("00 01"));

    bmc.hangUp();
    // Loopback hands the FIN over in a softirq; on a busy machine that may
    // trail the close() a little.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(ask(transport, 0x06, 0x01, {0x02}).bytes, hex("00 02"));
    EXPECT_EQ(bmc.connections(), 2);
    EXPECT_TRUE(mainLog.contains("was dropped; reconnecting"));
}

TEST_F(ExternalLinkTest, NobodyListeningIsASendFailure)
{
    std::string address;
    {
        ScriptedBmc gone(echo);
        address = gone.address();
    }
    ExternalLink link(address);
    ExternalTransport transport(link);
    EXPECT_TRUE(transport.open()) << "an RMC that comes later must still be found";
    EXPECT_FALSE(link.isConnected());
    int error = 0;
    EXPECT_EQ(failureOf([&] { ask(transport, 0x06, 0x01); }, &error), TransportFailure::Send);
    EXPECT_EQ(error, ECONNREFUSED);
}

TEST_F(ExternalLinkTest, AddressThatIsNotHostAndPortCannotBeOpened)
{
    for (const char* address : {"", "localhost", "localhost:", ":623", "host:port"}) {
        ExternalLink link(address);
        ExternalTransport transport(link);
        EXPECT_FALSE(transport.open()) << address;
        EXPECT_EQ(failureOf([&] { ask(transport, 0x06, 0x01); }), TransportFailure::NotOpen) << address;
    }
    EXPECT_TRUE(ExternalLink("[::1]:9002").addressValid());
}

TEST_F(ExternalLinkTest, ClosedTransportRefusesWhileTheSharedLinkStaysUp)
{
    ScriptedBmc bmc(echo);
    ExternalLink link(bmc.address());
    ExternalTransport first(link);
    ExternalTransport second(link);
    ASSERT_TRUE(first.open());
    ASSERT_TRUE(second.open());
    first.close();
    EXPECT_EQ(failureOf([&] { ask(first, 0x06, 0x01); }), TransportFailure::NotOpen);
    EXPECT_EQ(ask(second, 0x06, 0x01, {0x07}).bytes, hex("00 07"));
    EXPECT_EQ(bmc.connections(), 1);
}

TEST_F(ExternalLinkTest, ConcurrentUsersEachGetTheirOwnAnswer)
{
    ScriptedBmc bmc(echo);
    ExternalLink link(bmc.address());
    std::atomic<int> wrong{0};
    std::vector<std::thread> users;
    for (int t = 0; t < 4; ++t) {
        users.emplace_back([&, t] {
            ExternalTransport transport(link);
            transport.open();
            for (int i = 0; i < 50; ++i) {
                const Bytes data = {static_cast<uint8_t>(t), static_cast<uint8_t>(i)};
                if (ask(transport, 0x3A, 0x80, data).bytes != concat({{0x00}, data})) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& u : users) {
        u.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(bmc.connections(), 1);
    EXPECT_EQ(bmc.requests().size(), 200u);
}

// ---------------------------------------------------------------- device and choice

class DeviceTransportTest : public vekRootTest {
};

TEST_F(DeviceTransportTest, MissingDeviceCannotBeOpened)
{
    DeviceTransport device(ipmiDevicePath());
    EXPECT_EQ(device.describe(), root.path() + "/dev/ipmi0");
    EXPECT_FALSE(device.open());
    EXPECT_FALSE(device.isOpen());
    EXPECT_EQ(failureOf([&] { ask(device, 0x06, 0x01); }), TransportFailure::NotOpen);
}

TEST_F(DeviceTransportTest, NodeThatIsNoIpmiDeviceFailsOnSend)
{
    root.writeFile("/dev/ipmi0", "");
    DeviceTransport device(ipmiDevicePath());
    ASSERT_TRUE(device.open());
    int error = 0;
    EXPECT_EQ(failureOf([&] { ask(device, 0x06, 0x01); }, &error), TransportFailure::Send);
    EXPECT_EQ(error, ENOTTY);
    device.close();
    EXPECT_FALSE(device.isOpen());
}

TEST_F(DeviceTransportTest, ExternalAddressInTheEnvironmentChoosesTheLink)
{
    unsetenv("VEK_IPMI_EXTERNAL");
    EXPECT_EQ(createTransport()->describe(), root.path() + "/dev/ipmi0");

    ScriptedBmc bmc(echo);
    setenv("VEK_IPMI_EXTERNAL", bmc.address().c_str(), 1);
    std::unique_ptr<Transport> first = createTransport();
    std::unique_ptr<Transport> second = createTransport();
    EXPECT_EQ(first->describe(), bmc.address());
    ASSERT_TRUE(first->open());
    ASSERT_TRUE(second->open());
    EXPECT_EQ(ask(*first, 0x06, 0x01, {0x01}).bytes, hex("00 01"));
    EXPECT_EQ(ask(*second, 0x06, 0x01, {0x02}).bytes, hex("00 02"));
    EXPECT_EQ(bmc.connections(), 1) << "one link for the whole process";
    unsetenv("VEK_IPMI_EXTERNAL");
}

} // namespace
