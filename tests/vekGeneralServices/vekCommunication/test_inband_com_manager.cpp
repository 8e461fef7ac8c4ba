// The communication manager: the order in which its single worker serves the
// four streams, dropping waiting work, the event envelope, a dead channel,
// and the whole way to the emulated RMC.

#include "vekInBandComManager.h"
#include "vekInbandComInterface.h"
#include "vekRmcEmulator.h"
#include "vekSmbiosInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

class FixedSmbios : public vekSmbiosInterface {
public:
    std::string platformFamily() override { return "ZR"; }
    std::string getManufacturer() override { return "Zolvek"; }
    int platform() override { return 4; }
    int FetchSmbiosRecordsByType(int, unsigned char**, int*) override { return -1; }
};

// Records what is sent, in order. While held, a send waits inside the
// channel, as a slow multi-chunk transfer does.
class RecordingChannel : public vekInbandComInterface {
public:
    void sendData(std::string command, std::string data) override
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (failing) {
            throw std::runtime_error("channel is dead");
        }
        sent_.push_back(command + " " + data);
        changed_.notify_all();
        changed_.wait(lock, [this] { return !held_; });
    }
    void sendData(std::string command, std::string data, std::function<void(int)> callback) override
    {
        sendData(std::move(command), std::move(data));
        if (callback) {
            callback(0);
        }
    }
    int readDoorBell(int level) override { return level == 3 ? 1 : 0; }

    void hold()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = true;
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return sent_.size() >= count; });
    }
    std::vector<std::string> sent()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent_;
    }

    bool failing = false;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    std::vector<std::string> sent_;
};

class TestComManager : public vekInBandComManager {
public:
    TestComManager(vekInbandComInterface* channel, vekSmbiosInterface& smbios) : vekInBandComManager(channel, smbios)
    {
    }
};

class InBandComManagerTest : public vekRootTest {
protected:
    FixedSmbios smbios;
    RecordingChannel channel;
};

TEST_F(InBandComManagerTest, EventsQueuedDuringAnInventoryGoOutRightAfterIt)
{
    TestComManager manager(&channel, smbios);
    channel.hold();
    manager.sendInventory("{\"inventory\":1}");
    ASSERT_TRUE(channel.waitForCount(1));

    // The worker is inside the inventory: everything below waits.
    manager.sendAppTelemetry("{\"app\":1}", nullptr);
    manager.sendUtilization("{\"util\":1}", nullptr);
    for (int i = 0; i < 12; ++i) {
        std::string event = "{\"event\":" + std::to_string(i) + "}";
        manager.sendEvent(event);
    }
    channel.release();
    ASSERT_TRUE(channel.waitForCount(15));

    const auto sent = channel.sent();
    EXPECT_EQ(sent[0], "WriteInventory {\"inventory\":1}");
    for (size_t i = 1; i <= 12; ++i) {
        EXPECT_EQ(sent[i].rfind("MPEventGen {\"event\":", 0), 0u) << sent[i];
    }
    EXPECT_EQ(sent[13], "WriteTelemetry {\"util\":1}");
    EXPECT_EQ(sent[14], "WriteAppTelemetry {\"app\":1}");
}

TEST_F(InBandComManagerTest, CleanUpDropsWaitingWorkAndLaterSendsStillGo)
{
    TestComManager manager(&channel, smbios);
    channel.hold();
    manager.sendInventory("{}");
    ASSERT_TRUE(channel.waitForCount(1));
    for (int i = 0; i < 5; ++i) {
        std::string event = "{\"dropped\":true}";
        manager.sendEvent(event);
    }
    manager.cleanUpDispatchQ();
    channel.release();

    std::string kept = "{\"kept\":true}";
    manager.sendEvent(kept);
    ASSERT_TRUE(channel.waitForCount(2));
    const auto sent = channel.sent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1], "MPEventGen {\"kept\":true}");
}

TEST_F(InBandComManagerTest, EnvelopeHoldsOnlyWhatTheRmcCanUse)
{
    TestComManager manager(&channel, smbios);
    Json::Value variable(Json::objectValue);
    variable["Port"] = 2;
    struct Case {
        const char* name;
        std::string ip;
        vekEvent event;
        std::string expected;
    };
    const std::string head = "{\"EventTime\":\"Sun Nov 15 12:00:00 2026\",\"HostName\":\"host1\",";
    const Case cases[] = {
        {"plain event, no address", "",
         vekEvent(434, "Host", "NotApplicable", false, "Sun Nov 15 12:00:00 2026", "AB12CD34EF560000", "VEK"),
         head + "\"ID\":434,\"OSType\":2,\"OSVersion\":\"8.0.3\",\"PhysicalLocation\":\"AB12CD34EF560000\","
                "\"Source\":\"VEK\"}"},
        {"address, location not available", "10.0.0.5",
         vekEvent(540, "NIC", "P1", false, "Sun Nov 15 12:00:00 2026", "NotAvailable", "VEK"),
         head + "\"ID\":540,\"IPv4Addresses\":[{\"Address\":\"10.0.0.5\"}],\"OSType\":2,\"OSVersion\":\"8.0.3\","
                "\"Source\":\"VEK\"}"},
        {"variable data", "",
         vekEvent(1337, "NIC", "P1", false, "Sun Nov 15 12:00:00 2026", "Not Applicable", variable, "VEK"),
         head + "\"ID\":1337,\"OSType\":2,\"OSVersion\":\"8.0.3\",\"Source\":\"VEK\",\"VariableData\":{\"Port\":2}}"},
        {"empty variable data still goes out", "",
         vekEvent(1338, "NIC", false, "Sun Nov 15 12:00:00 2026", Json::Value(Json::objectValue), "VEK"),
         head + "\"ID\":1338,\"OSType\":2,\"OSVersion\":\"8.0.3\",\"Source\":\"VEK\",\"VariableData\":{}}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        manager.initMessageHeader(msgHeader{"host1", "8.0.3", 2, c.ip});
        Json::Value payload(Json::objectValue);
        manager.populateEventPayload(c.event, payload);
        EXPECT_EQ(vekInBandComManager::transformJson(payload), c.expected);
    }
}

TEST_F(InBandComManagerTest, SendEventQueuesTheEnvelopeAndLogsIt)
{
    TestComManager manager(&channel, smbios);
    manager.initMessageHeader(msgHeader{"host1", "8.0.3", 2, ""});
    vekLogTail main(vekTestMainLogPath());
    manager.sendEvent(vekEvent(435, "Host", "NotApplicable", false, "T", "", "VEK"));
    ASSERT_TRUE(channel.waitForCount(1));
    const std::string json = "{\"EventTime\":\"T\",\"HostName\":\"host1\",\"ID\":435,\"OSType\":2,"
                             "\"OSVersion\":\"8.0.3\",\"Source\":\"VEK\"}";
    EXPECT_EQ(channel.sent()[0], "MPEventGen " + json);
    EXPECT_TRUE(main.contains("Sending event through selected protocol - EventId [435]\n" + json)) << main.newText();
    EXPECT_TRUE(main.contains("Sent - Successful"));
    EXPECT_TRUE(manager.shouldLaunchFwSweep());
    EXPECT_FALSE(manager.isTelemetryEnabledOnRMC());
}

TEST_F(InBandComManagerTest, ADeadChannelEndsTheProcessFromTheWorker)
{
    EXPECT_DEATH(
        {
            channel.failing = true;
            TestComManager manager(&channel, smbios);
            manager.sendInventory("{}");
            std::this_thread::sleep_for(std::chrono::seconds(30));
        },
        "");
}

// The singleton on the real IPMI service, reaching the emulated RMC.
TEST_F(InBandComManagerTest, InventoryEventAndDoorbellsThroughTheEmulatedRmc)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    setenv("VEK_TIME_SCALE", "50", 1);
    rmc.writeDoorbell(2, std::string("\x01\x02", 2));
    rmc.writeDoorbell(3, std::string("\x00\x00", 2));

    vekInBandComManager& manager = vekInBandComManager::getInstance(smbios);
    EXPECT_TRUE(manager.isTelemetryEnabledOnRMC());
    EXPECT_FALSE(manager.shouldLaunchFwSweep());

    manager.initMessageHeader(msgHeader{"rack-host", "8.0.3", 2, "192.168.1.20"});
    const std::string inventory = "{\"HostDataCollection\":{\"Oem\":{\"HostOSInfo\":{\"HostName\":\"rack-host\"}}}}";
    manager.sendInventory(inventory);
    manager.sendEvent(vekEvent(434, "Host", "NotApplicable", false, "Sun Nov 15 12:00:00 2026", "", "VEK"));
    int result = 1;
    std::mutex mutex;
    std::condition_variable done;
    manager.sendUtilization(std::string(200, 'u'), [&](int outcome) {
        std::lock_guard<std::mutex> lock(mutex);
        result = outcome;
        done.notify_all();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(done.wait_for(lock, std::chrono::seconds(60), [&] { return result != 1; }));
    }
    EXPECT_EQ(result, 0);

    // The event may overtake the inventory if the worker was still idle;
    // utilization, the lowest, always comes last.
    const auto commands = rmc.spooledCommands();
    ASSERT_EQ(commands.size(), 3u);
    std::map<std::string, std::string> byName;
    for (const auto& command : commands) {
        byName[command.name] = command.payload;
    }
    EXPECT_EQ(byName["WriteInventory"], inventory);
    EXPECT_EQ(byName["MPEventGen"],
              "{\"EventTime\":\"Sun Nov 15 12:00:00 2026\",\"HostName\":\"rack-host\",\"ID\":434,"
              "\"IPv4Addresses\":[{\"Address\":\"192.168.1.20\"}],\"OSType\":2,\"OSVersion\":\"8.0.3\","
              "\"Source\":\"VEK\"}");
    EXPECT_EQ(commands[2].name, "WriteTelemetry");
    EXPECT_EQ(commands[2].payload, std::string(200, 'u'));
}

} // namespace
