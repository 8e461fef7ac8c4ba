// A SmartRAID controller seen through the stand-in storage libraries: its
// inventory, and its events arriving on the library's own thread as the RMC
// receives them.

#include "vekSmartRAIDTestHost.h"
#include "vekSubjectShutdownNotifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace {

// "ID: EventInfo" of each event sent, once at least that many came.
std::vector<std::string> sentLines(vekStorageEventsHost& events, size_t atLeast)
{
    std::vector<std::string> lines;
    for (const Json::Value& event : events.events(atLeast)) {
        lines.push_back(std::to_string(event["ID"].asInt()) + ": " + event["VariableData"]["EventInfo"].asString());
    }
    return lines;
}

class SmartRAIDControllerTest : public vekRootTest {
protected:
    vekLogTail log{vekTestMainLogPath()};
    vekStorageEventsHost events{root};
    vekSmartRAIDTestHost host{root};

    std::vector<std::string> sent(size_t atLeast) { return sentLines(events, atLeast); }
};

} // namespace

TEST_F(SmartRAIDControllerTest, InventoryOfControllerDrivesVolumesAndEnclosure)
{
    const auto controllers = host.discover(false);
    ASSERT_EQ(controllers.size(), 1u);
    IvekStorageController* controller = controllers[0];
    EXPECT_EQ(controller->getPciLocation(), "0000:e6:00.0");
    EXPECT_EQ(controller->getFamilyFlags(), VEK_STORAGE_FAMILY_SMARTRAID);

    const Json::Value record = controller->getInventory().getVariableData()["Data"];
    EXPECT_EQ(record["Model"].asString(), "SmartRAID 3254-16i");
    EXPECT_EQ(record["SerialNumber"].asString(), "SR3254A0001");
    EXPECT_EQ(record["FirmwareVersion"].asString(), "5.61-112");
    EXPECT_EQ(record["PartNumber"].asString(), "R7A12-16001");
    EXPECT_EQ(controller->getInventory().getDescription().rfind("PCI 0000:e6:00.0 ", 0), 0u);

    const std::vector<vekDiskInfo> drives = controller->getPhysicalDrivesInventory();
    ASSERT_EQ(drives.size(), 5u);
    // The SATA model comes whole from IDENTIFY DEVICE, not cut to the
    // library's sixteen characters; its maker from the model.
    EXPECT_EQ(drives[0].getModel(), "SAMSUNG MZ7L3480HCHQ-00A07");
    EXPECT_EQ(drives[0].getManufacturer(), "SAMSUNG");
    EXPECT_EQ(drives[0].getProtocol(), "SATA");
    EXPECT_EQ(drives[0].getMediaType(), "SSD");
    EXPECT_EQ(drives[0].getRevision(), "JXTC304Q");
    EXPECT_EQ(drives[0].getCapacityBytes(), 480103981056ULL);
    EXPECT_EQ(drives[2].getModel(), "ST2400MM0129");
    EXPECT_EQ(drives[2].getManufacturer(), "SEAGATE");
    EXPECT_EQ(drives[2].getProtocol(), "SAS");
    EXPECT_EQ(drives[2].getSlot(), "3");
    EXPECT_EQ(drives[2].getEnclosureBox(), 1);

    const std::vector<vekLogicalDiskInfo> volumes = controller->getLogicalDiskInventory();
    ASSERT_EQ(volumes.size(), 2u);
    EXPECT_EQ(volumes[0].getRAIDLevel(), "RAID1");
    EXPECT_EQ(volumes[0].getPhysicalDiskVector(), (std::vector<std::string>{"S6KPNA0T100001", "S6KPNA0T100002"}));
    EXPECT_EQ(volumes[1].getRAIDLevel(), "RAID5");
    EXPECT_EQ(volumes[1].getPhysicalDiskVector().size(), 3u);
    EXPECT_EQ(volumes[1].getDurableName(), "600508B1001C5E0A4D1F2E3A4B5C6D02");

    const std::vector<vekStorageEnclosureInfo> enclosures = controller->getStorageEnclosureInventory();
    ASSERT_EQ(enclosures.size(), 1u);
    EXPECT_EQ(enclosures[0].getModel(), "8 SFF UBM Backplane");
    EXPECT_EQ(enclosures[0].getType(), "UBM Backplane");
    EXPECT_EQ(enclosures[0].getPartNumber(), "BP-8SFF-UBM");
    EXPECT_EQ(enclosures[0].getBayCount(), 8);
    EXPECT_EQ(enclosures[0].getControllerPCILocation(), "0000:e6:00.0");
}

TEST_F(SmartRAIDControllerTest, ADriveFailingAndRecoveringRaisesItsEventsOnce)
{
    host.discover();
    host.controller()["drives"][2]["status"] = 0x800000;
    host.write();
    ASSERT_EQ(events.events(1).size(), 1u);
    const Json::Value failed = events.events()[0];
    EXPECT_EQ(failed["ID"].asInt(), 538);
    EXPECT_EQ(failed["VariableData"]["Data"]["SerialNumber"].asString(), "WBN0SR000003");
    EXPECT_NE(failed["VariableData"]["EventInfo"].asString().find("PORT 2I BOX 1 BAY 3"), std::string::npos);

    // A second event of the same health is dropped; the recovery goes out.
    Json::Value again;
    again["message"] = "Physical drive status change: PORT 2I BOX 1 BAY 3";
    host.pushEvent(4, 0, kPhysicalDriveEventFailed, again);
    ASSERT_TRUE(vekEventually([&] { return log.contains("indicating Critical health. (Previous Health: [Critical]"); }));
    host.controller()["drives"][2]["status"] = 0;
    host.write();
    const std::vector<std::string> all = sent(2);
    ASSERT_EQ(all.size(), 2u) << ::testing::PrintToString(all);
    EXPECT_EQ(all[1].substr(0, 4), "540:");
}

TEST(SmartRAIDEvents, ControllerEventStreamWithTheForwardingOptionOffAndOn)
{
    struct Step {
        int classCode, subclass, detail;
        const char* extra;
    };
    // A pre-registration Critical, two Criticals in a row, a Warning, a
    // missed tag, the recovery, and one interface event that always goes.
    const Step steps[] = {
        {2, 0, 1, R"({"age": 3600, "message": "Old fault"})"},
        {2, 0, 1, R"({"message": "Fault one"})"},
        {2, 1, 0, R"({"message": "Fault two"})"},
        {2, 0, 2, R"({"message": "Warning"})"},
        {3, 4, 2, R"({"tag": 40, "message": "Recovered"})"},
        {2, 11, 192, R"({"message": "Lane degraded"})"},
    };
    const struct {
        bool forwardAll;
        std::vector<std::string> expected;
    } modes[] = {
        {false, {"398: Fault one", "397: Recovered", "1180: Lane degraded"}},
        {true, {"398: Fault one", "398: Fault two", "398: Warning", "397: Recovered", "1180: Lane degraded"}},
    };
    for (const auto& mode : modes) {
        vekTestRoot modeRoot;
        vekStorageEventsHost modeEvents(modeRoot);
        vekSmartRAIDTestHost modeHost(modeRoot);
        vekSmartRAIDTestHost::useConfig(modeRoot, mode.forwardAll
                                                      ? R"({"LoggingLevel": "Info", "ForwardAllSmartRAIDDegradedOrHigherEvents": true})"
                                                      : "{}");
        // The controller's clock runs two hours ahead: only with the offset
        // taken out is the hour-old event older than the registration.
        modeHost.controller()["clockOffset"] = 7200;
        modeHost.write();
        vekLogTail tail(vekTestMainLogPath());
        modeHost.discover();
        for (const Step& step : steps) {
            Json::Value extra;
            Json::Reader().parse(step.extra, extra);
            modeHost.pushEvent(step.classCode, step.subclass, step.detail, extra);
        }
        // The last step always goes out, so all before it were handled.
        std::vector<std::string> lines = sentLines(modeEvents, mode.expected.size());
        // The outbound queue orders by priority only: compare as sets.
        std::vector<std::string> expected = mode.expected;
        std::sort(lines.begin(), lines.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(lines, expected) << "forward all: " << mode.forwardAll;
        const std::string text = tail.newText();
        EXPECT_EQ(vekOccurrences(text, "Skipping pre-registration event [CC=2, SCC=0, DC=1, (Old fault)]"), 1u) << text;
        EXPECT_EQ(vekOccurrences(text, "(Current tag: [40]; Last known tag: [4])"), 1u) << text;
        EXPECT_EQ(vekOccurrences(text, "VEK missed one or more events"), 1u);
    }
}

TEST_F(SmartRAIDControllerTest, AnEventWithAnInvalidDateIsSkippedUnlessItIsAFirmwareFault)
{
    host.discover();
    Json::Value undated;
    undated["date"] = "0000-00-00";
    undated["message"] = "Undated fault";
    host.pushEvent(2, 0, 1, undated);
    Json::Value firmware;
    firmware["date"] = "2026-13-40";
    firmware["message"] = "Firmware fault";
    host.pushEvent(12, 0, 0, firmware);
    EXPECT_EQ(sent(1), (std::vector<std::string>{"398: Firmware fault"}));
    EXPECT_TRUE(log.contains("Unable to convert event timestamp [0000-00-00 (0)] to calendar time."));
    EXPECT_TRUE(log.contains("Skipping event [CC=2, SCC=0, DC=1, (Undated fault)] with invalid timestamp"));
}

TEST_F(SmartRAIDControllerTest, AQueueIndexAboveTwoStartsNoQueue)
{
    vekSmartRAIDTestHost::useConfig(root, R"({"LoggingLevel": "Info", "MicrochipEventQueueIndex": 3})");
    const auto controllers = host.discover();
    ASSERT_EQ(controllers.size(), 1u);
    EXPECT_FALSE(controllers[0]->isEventsEnabled());
    EXPECT_TRUE(log.contains("VEK configuration parameter MicrochipEventQueueIndex value (3) is more than 2."));
}

TEST_F(SmartRAIDControllerTest, AControllerRemovedWhileItsEventsArriveIsNotUsedAfterItsRemoval)
{
    host.discover();
    // A stream of Warnings the filter drops, so that delivery runs on while
    // the controller leaves.
    for (int i = 0; i < 2000; ++i) {
        host.controller()["events"].append(Json::Value(Json::objectValue));
        Json::Value& event = host.controller()["events"][host.controller()["events"].size() - 1];
        event["class"] = 2;
        event["subclass"] = 0;
        event["detail"] = 2;
        event["message"] = "Warning " + std::to_string(i);
    }
    host.write();
    ASSERT_TRUE(vekEventually([&] { return log.contains("Warning 1)] indicating Warning health"); }));
    host.scenario["controllers"] = Json::Value(Json::arrayValue);
    host.write();
    EXPECT_TRUE(host.discover().empty());
    // The controller went offline with its drives and volumes.
    const std::vector<std::string> all = sent(1 + 5 + 2);
    EXPECT_EQ(all[0], "398: The SmartRAID storage controller is offline. This may have been caused by controller "
                      "driver unload.");
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const std::string& s) { return s.rfind("538:", 0) == 0; }), 5);
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const std::string& s) { return s.rfind("681:", 0) == 0; }), 2);
}

// The service stops while the controllers are being found: that pass has not
// seen them all, so none is taken for gone; the factory's shutdown then takes
// them out with their events off. The RMC hears nothing of it.
TEST_F(SmartRAIDControllerTest, AStopDuringDiscoveryTakesNoControllerForGone)
{
    vekSubjectShutdownNotifier subject{"SAS Resource Manager"};
    vekSmartRAIDControllerFactory& factory = vekSmartRAIDControllerFactory::getInstance();
    factory.initialize(nullptr, &subject);
    ASSERT_EQ(host.discover().size(), 1u);
    subject.signalSubjectShutdown();
    std::vector<IvekStorageController*> again;
    EXPECT_EQ(factory.discoverControllers(again), 1);
    for (IvekStorageController* controller : again) {
        controller->releaseReference();
    }
    EXPECT_TRUE(log.contains("Subject shutdown detected during controller discovery.")) << log.newText();
    host.release();
    factory.shutdownFactory();
    EXPECT_TRUE(events.events().empty()) << ::testing::PrintToString(sent(0));
}

TEST_F(SmartRAIDControllerTest, VolumeEventsFollowTheLibrarysStatusOfTheVolumeNamed)
{
    host.discover();
    vekLogTail debug(vekTestDebugLogPath());
    const struct {
        int status;
        const char* message;
        const char* sent; // null: nothing goes out
    } steps[] = {
        {3, "Logical drive 1 status changed to degraded", "681: Logical drive 1 status changed to degraded"},
        {3, "Logical drive 1 is still degraded", nullptr},
        {0, "Logical drive 1 status changed to optimal", "683: Logical drive 1 status changed to optimal"},
    };
    std::vector<std::string> expected;
    for (const auto& step : steps) {
        host.controller()["volumes"][1]["status"] = step.status;
        Json::Value extra;
        extra["message"] = step.message;
        host.pushEvent(5, 0, 0, extra);
        // The library's status is read when the event is handled: the next
        // step changes it only after this event's status was read.
        if (step.sent != nullptr) {
            expected.push_back(step.sent);
            ASSERT_EQ(sent(expected.size()), expected);
        } else {
            ASSERT_TRUE(vekEventually([&] { return debug.contains(std::string("no event for [") + step.message); }));
        }
    }
    EXPECT_EQ(events.events()[0]["VariableData"]["Data"]["DurableName"].asString(), "600508B1001C5E0A4D1F2E3A4B5C6D02");

    // A volume the inventory does not know yet asks for a refresh instead.
    Json::Value unknown;
    unknown["message"] = "Logical drive 7 created";
    host.pushEvent(5, 0, 0, unknown);
    EXPECT_TRUE(vekEventually([&] { return log.contains("Unable to find LD # 7 in inventory list."); }));
}
