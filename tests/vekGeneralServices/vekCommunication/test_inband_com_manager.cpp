// The communication manager: the order in which its single worker serves the
// four streams, dropping waiting work, the event envelope, and the whole way
// to the emulated RMC: an answer of the RMC loses one payload, a dead channel
// ends the process.

#include "vekIPMIService.h"
#include "vekIPMITestSupport.h"
#include "vekInBandComManager.h"
#include "vekTestInventoryPush.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMITest;

namespace {

// Records what is sent, in order. While held, a send waits inside the
// channel, as a slow multi-chunk transfer does.
class HeldChannel : public vekInbandComInterface {
public:
    void sendData(std::string command, std::string data) override
    {
        std::unique_lock<std::mutex> lock(mutex_);
        sent_.push_back(command + " " + data);
        changed_.notify_all();
        changed_.wait(lock, [this] { return !held_; });
    }
    void sendData(std::string command, std::string data, std::function<void(int)>) override
    {
        sendData(std::move(command), std::move(data));
    }
    int readDoorBell(int) override { return 0; }

    void hold(bool held)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = held;
        changed_.notify_all();
    }
    std::vector<std::string> waitFor(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(30), [&] { return sent_.size() >= count; }));
        return sent_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    std::vector<std::string> sent_;
};

class InBandComManagerTest : public vekRootTest {
protected:
    vekTestSmbios smbios;
    HeldChannel channel;
};

TEST_F(InBandComManagerTest, WorkWaitingBehindAnInventoryGoesOutByPriorityOrIsDroppedByCleanUp)
{
    vekTestComManager manager(&channel, smbios);
    channel.hold(true);
    manager.sendInventory("{\"inventory\":1}");
    channel.waitFor(1);
    // The worker is inside the inventory: everything below waits.
    manager.sendAppTelemetry("{\"app\":1}", nullptr);
    manager.sendUtilization("{\"util\":1}", nullptr);
    for (int i = 0; i < 12; ++i) {
        std::string event = "{\"event\":" + std::to_string(i) + "}";
        manager.sendEvent(event);
    }
    channel.hold(false);
    std::vector<std::string> sent = channel.waitFor(15);
    ASSERT_EQ(sent.size(), 15u);
    for (size_t i = 1; i <= 12; ++i) {
        EXPECT_EQ(sent[i].rfind("MPEventGen {\"event\":", 0), 0u) << sent[i];
    }
    EXPECT_EQ(sent[13], "WriteTelemetry {\"util\":1}");
    EXPECT_EQ(sent[14], "WriteAppTelemetry {\"app\":1}");

    channel.hold(true);
    manager.sendInventory("{}");
    channel.waitFor(16);
    for (int i = 0; i < 5; ++i) {
        std::string event = "{\"dropped\":true}";
        manager.sendEvent(event);
    }
    manager.cleanUpDispatchQ();
    channel.hold(false);
    std::string kept = "{\"kept\":true}";
    manager.sendEvent(kept);
    sent = channel.waitFor(17);
    EXPECT_EQ(std::vector<std::string>(sent.begin() + 15, sent.end()),
              std::vector<std::string>({"WriteInventory {}", "MPEventGen {\"kept\":true}"}));
}

TEST_F(InBandComManagerTest, EnvelopeHoldsOnlyWhatTheRmcCanUse)
{
    vekTestComManager manager(&channel, smbios);
    Json::Value variable(Json::objectValue);
    variable["Port"] = 2;
    const std::string time = "Sun Nov 15 12:00:00 2026";
    const std::string head = "{\"EventTime\":\"" + time + "\",\"HostName\":\"host1\",";
    const struct {
        std::string ip;
        vekEvent event;
        std::string expected;
    } cases[] = {
        {"", vekEvent(434, "Host", "NotApplicable", false, time, "AB12CD34EF560000", "VEK"),
         head + "\"ID\":434,\"OSType\":2,\"OSVersion\":\"8.0.3\",\"PhysicalLocation\":\"AB12CD34EF560000\","
                "\"Source\":\"VEK\"}"},
        {"10.0.0.5", vekEvent(540, "NIC", "P1", false, time, "NotAvailable", "VEK"),
         head + "\"ID\":540,\"IPv4Addresses\":[{\"Address\":\"10.0.0.5\"}],\"OSType\":2,\"OSVersion\":\"8.0.3\","
                "\"Source\":\"VEK\"}"},
        {"", vekEvent(1337, "NIC", "P1", false, time, "Not Applicable", variable, "VEK"),
         head + "\"ID\":1337,\"OSType\":2,\"OSVersion\":\"8.0.3\",\"Source\":\"VEK\",\"VariableData\":{\"Port\":2}}"},
        {"", vekEvent(1338, "NIC", false, time, Json::Value(Json::objectValue), "VEK"),
         head + "\"ID\":1338,\"OSType\":2,\"OSVersion\":\"8.0.3\",\"Source\":\"VEK\",\"VariableData\":{}}"},
    };
    LogTail log;
    for (const auto& c : cases) {
        manager.initMessageHeader(msgHeader{"host1", "8.0.3", 2, c.ip});
        manager.sendEvent(c.event);
        EXPECT_TRUE(log.contains("Sending event through selected protocol - EventId [" +
                                 std::to_string(c.event.getEventID()) + "]\n" + c.expected))
            << log.text();
        EXPECT_EQ(channel.waitFor(&c - cases + 1).back(), "MPEventGen " + c.expected);
    }
}

// The singleton on the real IPMI service, reaching the emulated RMC: an
// inventory the RMC refuses is lost, and the worker goes on with the next.
TEST_F(InBandComManagerTest, InventoryRefusedWithACompletionCodeIsLostAndTheNextOneGoesOut)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    ScopedEnv fast("VEK_TIME_SCALE", "50");
    rmc.writeDoorbell(2, std::string("\x01\x02", 2));
    rmc.writeDoorbell(3, std::string("\x00\x00", 2));
    vekInBandComManager& manager = vekInBandComManager::getInstance(smbios);
    EXPECT_TRUE(manager.isTelemetryEnabledOnRMC());
    EXPECT_FALSE(manager.shouldLaunchFwSweep());

    rmc.injectCompletionCode(0xC0, 1, 1);
    vekLogTail log(vekTestMainLogPath());
    manager.sendInventory(payloadOf(500, 1));
    ASSERT_TRUE(vekWaitForLog(log, "WriteInventory: chunk 2 answered with completion code 0xc0"));
    manager.sendInventory(payloadOf(500, 2));
    std::promise<int> delivered;
    manager.sendUtilization(std::string(200, 'u'), [&delivered](int outcome) { delivered.set_value(outcome); });
    std::future<int> outcome = delivered.get_future();
    ASSERT_EQ(outcome.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(outcome.get(), 0);
    const std::vector<vekRmcEmulator::Command> commands = rmc.spooledCommands();
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0].payload, payloadOf(500, 2));
    EXPECT_EQ(commands[1].name, "WriteTelemetry");
}

TEST_F(InBandComManagerTest, DeadChannelEndsTheProcessSayingWhy)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    vekIPMIService& service = vekIPMIService::getInstance();
    rmc.stop();
    EXPECT_DEATH(
        {
            vekTestComManager manager(&service, smbios);
            manager.sendInventory(payloadOf(300));
            std::this_thread::sleep_for(std::chrono::seconds(30));
        },
        "what\\(\\): +Request ioctl failure with error code : 111 \\(Unable to connect to external BMC at "
        "127\\.0\\.0\\.1:[0-9]+: Connection refused\\)");
}

} // namespace
