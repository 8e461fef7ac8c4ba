// Port changes of the FC adapters become events: the poller reads the fake
// vendor library, compares with the stored status and the event manager
// sends; and the whole road on the service itself, to the emulated RMC.

#include "FCResourceManager/FCResourceManager.h"
#include "FCResourceManager/vekFCEventManager.h"
#include "FCResourceManager/vekFCEventNotifier.h"
#include "FCResourceManager/vekFCInterface.h"
#include "vekBundledProfile.h"
#include "vekEventTestFixture.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekRmcEmulator.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// Sets the first port state of the QLogic scenario's first adapter (vmhba2).
void setPortState(const std::string& scenarioFile, const std::string& state)
{
    const std::string edit = "sed -i '0,/\"PortState\": \"[A-Za-z]*\"/s//\"PortState\": \"" + state + "\"/' '" +
                             scenarioFile + "'";
    ASSERT_EQ(system(edit.c_str()), 0);
}

const auto parse = vekRecordingChannel::parse;

class FCEventsTest : public vekEventTestFixture {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(vekCopyBundledProfile(root));
        root.makeDirectory("/opt/zolvek/tmp");
        services = &host.services();
        services->SetCommunicationService(com);
        os = vekSystemInterfaceFactory::getSystemInterface();
        std::vector<std::string> names;
        os->getFCInterface()->populateFCInstances(names);
        notifier = dynamic_cast<vekFCEventNotifier*>(os->getFCInterface()->getFCEventNotifierInterface());
        ASSERT_NE(notifier, nullptr);
        manager.reset(new vekFCEventManager(services));
        ASSERT_EQ(notifier->attach(manager.get(), VEK_OBSERVABLE_ASPECT_FC), VEK_OBSERVABLE_STATUS_SUCCESS);
        FCDeviceInfo record;
        record.DeviceName = "vmhba2";
        vekFCInventoryManager::getInstance().saveInventory({record});
    }
    void TearDown() override
    {
        if (notifier != nullptr && manager) {
            notifier->detach(manager.get());
        }
    }

    vekFCEventNotifier* notifier = nullptr;
    std::unique_ptr<vekFCEventManager> manager;
};

// Each row: the states the port goes through from Online, one poll each, and
// the events the RMC gets.
TEST_F(FCEventsTest, EachChangeGivesTheEventOfItsTable)
{
    const struct {
        std::vector<std::string> states;
        std::vector<int> events;
    } cases[] = {
        {{"Linkdown", "Online"}, {386, 1391}},
        {{"Offline", "Online"}, {385, 384}},
        {{"Error", "Error", "Online"}, {388, 384}},
        // No event for these: the next change still compares with Online.
        {{"Loopback", "Bypassed", "Linkdown", "Online"}, {386, 1391}},
    };
    for (const auto& c : cases) {
        FCDeviceInfo online;
        online.deviceStatus = {VEK_STATE_ONLINE, VEK_HEALTH_OK};
        notifier->updateFCDevicesStatusMap({{"vmhba2", online.deviceStatus}});
        notifier->updateFCDeviceStatusInfo("vmhba2", online);
        const size_t before = channel.count("MPEventGen");
        for (const std::string& state : c.states) {
            setPortState(root.hostPath("/sim/libfakehba_qlogic.json"), state);
            notifier->pollAnalyzeAndNotifyObserver(VEK_OBSERVABLE_ASPECT_FC, "vmhba2");
        }
        // Events leave through the communication manager's queue.
        EXPECT_TRUE(channel.waitFor("MPEventGen", before + c.events.size()));
        const std::vector<int> all = sentIds();
        EXPECT_EQ(std::vector<int>(all.begin() + before, all.end()), c.events) << c.states.front();
    }

    const Json::Value linkDown = parse(channel.payloads("MPEventGen").at(0));
    EXPECT_EQ(linkDown["VariableData"]["Type"].asString(), "FibreChannelDevice");
    EXPECT_EQ(linkDown["VariableData"]["EventInfo"].asString(),
              "Fibre channel device port has changed to a state of link down. Check the FC cabling to this port.");
    EXPECT_EQ(linkDown["VariableData"]["Data"]["WWPN"].asString(), "21:00:f4:c7:aa:1c:35:e0");
    EXPECT_EQ(linkDown["VariableData"]["Data"]["Oem"]["Description"].asString(), "PCI 0000:5e:00.0 r001u03p1i03");
    EXPECT_EQ(parse(channel.payloads("MPEventGen").at(2))["VariableData"]["EventInfo"].asString(),
              "The Fibre Channel device port has gone offline. Refer to /var/log/messages for further details.");
    // The last change is in the inventory between two builds.
    std::vector<FCDeviceInfo> saved;
    vekFCInventoryManager::getInstance().getInventory(saved);
    EXPECT_EQ(saved.at(0).getStatusJson()["State"].asString(), "Online");
}

// What the test event server asks of this family: a fixed sample adapter.
TEST_F(FCEventsTest, TestEventCarriesTheSampleAdapter)
{
    FCResourceManager::getInstance().generateTestEvent(386, "");
    ASSERT_TRUE(channel.waitFor("MPEventGen", 1));
    const Json::Value event = parse(channel.payloads("MPEventGen").at(0));
    EXPECT_EQ(event["ID"].asInt(), 386);
    EXPECT_EQ(event["Source"].asString(), "VEK-CLI");
    EXPECT_EQ(event["EventTime"].asString(), "NOT AVAILABLE");
    EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), "Injected Event");
    EXPECT_EQ(event["VariableData"]["Data"]["Oem"]["Description"].asString(), "PCI 0000:c3:00.0 r001u01p0i00");
}

// The service on the rack server: both HBAs in the inventory, and a port
// taken down and brought back reaches the RMC as 386 then 1391.
TEST(FCServiceTest, PortDownAndUpReachTheRmcInOrder)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    const std::string host = vekTestTemporaryFolder("fc-host");
    const std::string make = std::string("sh '") + VEK_SIMHOST_DIR + "/mkhost.sh' '" + VEK_SIMHOST_DIR +
                             "/profiles/rack-type4' '" + host + "'";
    ASSERT_EQ(system(make.c_str()), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        setenv("VEK_ROOT", host.c_str(), 1);
        setenv("PATH", (host + "/bin:" + getenv("PATH")).c_str(), 1);
        setenv("VEK_TIME_SCALE", "1000", 1);
        if (freopen((host + "/vekd.stderr").c_str(), "w", stderr) == nullptr) {
            _exit(126);
        }
        execl((std::string(VEK_BINARY_DIR) + "/src/vekd").c_str(), "vekd", static_cast<char*>(nullptr));
        _exit(127);
    }
    struct StopOnExit {
        pid_t pid;
        std::string host;
        ~StopOnExit()
        {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
            EXPECT_EQ(system(("rm -rf '" + host + "'").c_str()), 0);
        }
    } stop{pid, host};

    // The FC events of the spool, and the last inventory's FC records.
    auto fcEvents = [&] {
        std::vector<int> ids;
        for (const auto& command : rmc.spooledCommands()) {
            const Json::Value event = parse(command.payload);
            if (command.name == "MPEventGen" && event["VariableData"]["Type"].asString() == "FibreChannelDevice") {
                ids.push_back(event["ID"].asInt());
            }
        }
        return ids;
    };
    Json::Value adapters;
    ASSERT_TRUE(vekEventually(
        [&] {
            for (const auto& command : rmc.spooledCommands()) {
                if (command.name == "WriteInventory") {
                    adapters = parse(command.payload)["HostDataCollection"]["FibreChannelDevices"];
                }
            }
            return adapters.isArray();
        },
        std::chrono::seconds(60)));
    const Json::Value fc = adapters;
    ASSERT_EQ(fc.size(), 4u) << adapters;
    const char* places[][2] = {{"PCI 0000:5e:00.0 r001u03p1i03", "03010301FF03FFFF"},
                               {"PCI 0000:5e:00.1 r001u03p1i03", "03010301FF03FFFF"},
                               {"PCI 0000:d8:00.0 r001u03p1i06", "03010301FF06FFFF"},
                               {"PCI 0000:d8:00.1 r001u03p1i06", "03010301FF06FFFF"}};
    for (Json::ArrayIndex i = 0; i < 4; ++i) {
        EXPECT_EQ(fc[i]["Oem"]["Description"].asString(), places[i][0]);
        EXPECT_EQ(fc[i]["Oem"]["PhysicalLocation"].asString(), places[i][1]);
    }

    const std::string scenario = host + "/sim/libfakehba_qlogic.json";
    setPortState(scenario, "Linkdown");
    ASSERT_TRUE(vekEventually([&] { return fcEvents().size() >= 1; }, std::chrono::seconds(60)));
    setPortState(scenario, "Online");
    ASSERT_TRUE(vekEventually([&] { return fcEvents().size() >= 2; }, std::chrono::seconds(60)));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(fcEvents(), (std::vector<int>{386, 1391}));
}

} // namespace
