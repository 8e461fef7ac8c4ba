// Firmware events (AENs) delivered on the stand-in library's own thread, and
// what the RMC receives of them.

#include "vekMegaRAIDTestHost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::string kGuide = ". Please refer to MegaRAID Software User Guide for further details.";
const std::string kNoPL = "FFFFFFFFFFFFFFFF";

class MegaRAIDEventsTest : public vekMegaRAIDTest {
protected:
    void SetUp() override
    {
        vekMegaRAIDTest::SetUp();
        build();
        ASSERT_TRUE(vekMegaRAIDController::isAENRegistered);
    }

    // The state of the drive at that slot in the controller's last report.
    std::string driveState(const std::string& slot)
    {
        for (const vekDiskInfo& disk : controller()->getPhysicalDrivesInventory()) {
            if (disk.getSlot() == slot) {
                return vekResourceStateMap[disk.getState()] + "/" + vekResourceHealthMap[disk.getHealth()];
            }
        }
        return "absent";
    }
};

TEST_F(MegaRAIDEventsTest, DriveEventsReachTheRmc)
{
    struct Case {
        const char* name;
        std::vector<Json::Value> events;
        std::vector<std::string> received;
        const char* slot;
        const char* state;
    };
    Json::Value failed = pdEvent(114, 2, 2, "State change on PD 09(e0xfc/s2) from ONLINE(18) to FAILED(11)", 33);
    failed["prevState"] = "Online";
    failed["newState"] = "Failed";
    Json::Value back = pdEvent(114, 2, 0, "State change on PD 09(e0xfc/s2) from FAILED(11) to REBUILD(14)", 33);
    back["prevState"] = "Failed";
    back["newState"] = "Rebuild";
    Json::Value unknownState = pdEvent(114, 2, 0, "State change on PD 09(e0xfc/s2) to 99", 33);
    unknownState["newState"] = 0x99;
    const std::vector<Case> cases = {
        {"a drive fails by state change",
         {failed},
         {"538 @ " + kNoPL + ": [Msg # 0x0072] State change on PD 09(e0xfc/s2) from ONLINE(18) to FAILED(11), (Drive "
                             "is in Failed state)" + kGuide},
         "252:2", "Failed/Critical"},
        {"and rebuilds",
         {back},
         {"540 @ " + kNoPL + ": [Msg # 0x0072] State change on PD 09(e0xfc/s2) from FAILED(11) to REBUILD(14), (Drive "
                             "is in Rebuild state)" + kGuide},
         "252:2", "Rebuild/OK"},
        {"a state the firmware words don't know", {unknownState}, {}, "252:2", "Rebuild/OK"},
        {"a predictive failure, told once",
         {pdEvent(97, 3, 1, "Predictive failure: PD 0a(e0xfc/s3)"),
          pdEvent(97, 3, 1, "Predictive failure: PD 0a(e0xfc/s3)")},
         {"539 @ " + kNoPL + ": [Msg # 0x0061] Predictive failure: PD 0a(e0xfc/s3)" + kGuide},
         "252:3", "Predictive failure/Warning"},
        {"a drive is pulled",
         {pdEvent(112, 4, 1, "Removed: PD 0b(e0xfc/s4)")},
         {"538 @ " + kNoPL + ": [Msg # 0x0070] Removed: PD 0b(e0xfc/s4)" + kGuide},
         "252:4", "Offline/Critical"},
        {"a drive inserted where the library's cache knows one",
         {pdEvent(91, 4, 0, "Inserted: PD 0b(e0xfc/s4)")},
         {"540 @ " + kNoPL + ": [Msg # 0x005b] Inserted: PD 0b(e0xfc/s4)" + kGuide},
         "252:4", "Offline/Critical"},
        {"a drive inserted that the cache doesn't know yet",
         {pdEvent(91, 8, 0, "Inserted: PD 0f(e0xfc/s8)")}, {}, "252:8", "absent"},
        {"an event for a slot with no drive", {pdEvent(112, 7, 1, "Removed: PD 0e(e0xfc/s7)")}, {}, "252:7",
         "absent"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(deliver(c.events), c.received) << c.name;
        EXPECT_EQ(driveState(c.slot), c.state) << c.name;
    }
}

// A firmware critical on a drive that is already Critical is dropped, unless
// ForwardAllMegaRAIDCriticalOrHigherEvents asks for each of them.
TEST_F(MegaRAIDEventsTest, ACriticalOnACriticalDriveIsDroppedUnlessForwardingIsAskedFor)
{
    controller()->setForwardAllCriticalOrHigherEvents(false);
    vekLogTail log(vekTestMainLogPath());
    EXPECT_EQ(deliver({pdEvent(87, 1, 2, "Error on PD 08(e0xfc/s1) (Error 02)"),
                       pdEvent(87, 1, 3, "Error on PD 08(e0xfc/s1) (Error 03)")}),
              std::vector<std::string>{"538 @ " + kNoPL + ": [Msg # 0x0057] Error on PD 08(e0xfc/s1) (Error 02)" +
                                       kGuide});
    EXPECT_TRUE(log.contains("Ignoring FATAL event as device already in CRITICAL state"));
    EXPECT_EQ(deliver({pdEvent(389, 2, 2, "PD 09(e0xfc/s2) is not responding, marked failed"),
                       pdEvent(389, 2, 2, "PD 09(e0xfc/s2) is not responding, marked failed")}),
              std::vector<std::string>{"538 @ " + kNoPL + ": [Msg # 0x0185] PD 09(e0xfc/s2) is not responding, "
                                       "marked failed" + kGuide});
    EXPECT_TRUE(log.contains("Dropping the event 389 as device already in CRITICAL state."));

    // The same drive, still Critical: each critical now goes out.
    controller()->setForwardAllCriticalOrHigherEvents(true);
    EXPECT_EQ(deliver({pdEvent(87, 1, 2, "Error on PD 08(e0xfc/s1) (Error 02)"),
                       pdEvent(87, 1, 3, "Error on PD 08(e0xfc/s1) (Error 03)")}),
              (std::vector<std::string>{"538 @ " + kNoPL + ": [Msg # 0x0057] Error on PD 08(e0xfc/s1) (Error 02)" + kGuide,
                                        "538 @ " + kNoPL + ": [Msg # 0x0057] Error on PD 08(e0xfc/s1) (Error 03)" + kGuide}));
}

// The edge cases of a consistency check's folding: exactly one event each,
// with the summary of what the check found.
TEST_F(MegaRAIDEventsTest, AConsistencyCheckEndsInOneEvent)
{
    auto repeat = [](const Json::Value& event, int times) { return std::vector<Json::Value>(times, event); };
    auto then = [](std::vector<Json::Value> events, const std::vector<Json::Value>& more) {
        events.insert(events.end(), more.begin(), more.end());
        return events;
    };
    const Json::Value corrected = ldEvent(57, 0, 1, "Consistency Check corrected medium error (VD 00/0, PD 08 LBA 1a2b)");
    const Json::Value parity = ldEvent(63, 0, 1, "Consistency Check found inconsistent parity on VD 00/0 at strip 9");
    struct Case {
        const char* name;
        std::vector<Json::Value> events;
        std::string received;
    };
    const std::vector<Case> cases = {
        {"three corrected medium errors, then done",
         then(repeat(corrected, 3), {ldEvent(58, 0, 0, "Consistency Check done on VD 00/0")}),
         "1387 @ : [Msg # 0x003a] Consistency Check done on VD 00/0, (# Corrected medium errors = 3)" + kGuide},
        {"eleven parity errors, logging off, done with inconsistencies",
         then(repeat(parity, 11), {ldEvent(64, 0, 1, "Consistency Check parity logging disabled on VD 00/0"),
                                   ldEvent(59, 0, 1, "Consistency Check done with inconsistencies on VD 00/0")}),
         "1387 @ : [Msg # 0x003b] Consistency Check done with inconsistencies on VD 00/0, (# Inconsistent parity > "
         "10)" + kGuide},
        {"a clean check", {ldEvent(58, 0, 0, "Consistency Check done on VD 00/0")},
         "1388 @ : [Msg # 0x003a] Consistency Check done on VD 00/0" + kGuide},
        {"aborted after a finding: the finding's own text",
         then({corrected, ldEvent(60, 0, 2, "Consistency Check double medium errors on VD 00/0")},
              {ldEvent(56, 0, 1, "Consistency Check aborted on VD 00/0")}),
         "1385 @ : [Msg # 0x0038] Consistency Check aborted on VD 00/0, (Consistency Check corrected medium error "
         "(VD 00/0, PD 08 LBA 1a2b))" + kGuide},
        {"failed uncorrectable with no finding",
         {ldEvent(14, 0, 0, "Consistency Check started on VD 00/0"),
          ldEvent(62, 0, 2, "Consistency Check failed with uncorrectable data on VD 00/0")},
         "1385 @ : [Msg # 0x003e] Consistency Check failed with uncorrectable data on VD 00/0" + kGuide},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(deliver(c.events), std::vector<std::string>{c.received}) << c.name;
    }
    // The counts start again from nothing.
    EXPECT_EQ(deliver(then({corrected}, {ldEvent(58, 0, 0, "Consistency Check done on VD 00/0")})),
              std::vector<std::string>{"1387 @ : [Msg # 0x003a] Consistency Check done on VD 00/0, (# Corrected "
                                       "medium errors = 1)" + kGuide});
}

// A check that runs across a rebuild of the inventory keeps its counts.
TEST_F(MegaRAIDEventsTest, ARunningCheckSurvivesARebuild)
{
    const Json::Value corrected = ldEvent(57, 0, 1, "Consistency Check corrected medium error (VD 00/0)");
    EXPECT_TRUE(deliver({corrected, corrected}).empty());
    build();
    EXPECT_EQ(deliver({corrected, ldEvent(58, 0, 0, "Consistency Check done on VD 00/0")}),
              std::vector<std::string>{"1387 @ : [Msg # 0x003a] Consistency Check done on VD 00/0, (# Corrected "
                                       "medium errors = 3)" + kGuide});
}

// The battery is a FRU of the controller: its failure and its recovery each
// reach the RMC once.
TEST_F(MegaRAIDEventsTest, BatteryEventsOfTheController)
{
    auto bbu = [](int code, int eventClass, const std::string& text) {
        Json::Value event;
        event["code"] = code;
        event["class"] = eventClass;
        event["locale"] = 8;
        event["description"] = text;
        return event;
    };
    vekLogTail log(vekTestMainLogPath());
    // As the controller's own events (this host has no slot for it: no PL).
    EXPECT_EQ(deliver({bbu(0x95, 1, "Battery has failed and cannot support data retention"),
                       bbu(0xC5, 1, "Replace battery")}),
              std::vector<std::string>{"398 @ " + kNoPL +
                                       ": [Msg # 0x0095] Battery has failed and cannot support data retention" + kGuide});
    EXPECT_TRUE(log.contains("Skipping the event as fru is already BAD state"));
    EXPECT_EQ(deliver({bbu(0x92, 0, "Battery is good"), bbu(0xC6, 0, "Battery replaced"), bbu(0x97, 0, "Battery relearn")}),
              std::vector<std::string>{"397 @ " + kNoPL + ": [Msg # 0x0092] Battery is good" + kGuide});
    EXPECT_TRUE(log.contains("Skipping the event as fru is already OK"));
    EXPECT_TRUE(log.contains("Ignoring BBU event (151: [Msg # 0x0097] Battery relearn) class [2]"));
}

TEST_F(MegaRAIDEventsTest, VolumeEvents)
{
    struct Case {
        const char* name;
        Json::Value event;
        std::vector<std::string> received;
    };
    const std::vector<Case> cases = {
        {"degraded", ldEvent(251, 0, 2, "State change on VD 00/0 from OPTIMAL(3) to DEGRADED(2)"),
         {"681 @ " + kNoPL + ": [Msg # 0x00fb] State change on VD 00/0 from OPTIMAL(3) to DEGRADED(2)" + kGuide}},
        {"another critical on the degraded volume", ldEvent(81, 0, 2, "VD 00/0 is now OFFLINE"), {}},
        {"optimal again", ldEvent(249, 0, 0, "State change on VD 00/0 from DEGRADED(2) to OPTIMAL(3)"),
         {"683 @ " + kNoPL + ": [Msg # 0x00f9] State change on VD 00/0 from DEGRADED(2) to OPTIMAL(3)" + kGuide}},
        {"optimal while already OK", ldEvent(249, 0, 0, "State change on VD 00/0 from DEGRADED(2) to OPTIMAL(3)"),
         {}},
        {"a critical for a volume that isn't there", ldEvent(251, 9, 2, "State change on VD 09/9"), {}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(deliver({c.event}), c.received) << c.name;
    }
}

// Events that carry what the service can't use are dropped, each with its
// line, and the events after them still arrive.
TEST_F(MegaRAIDEventsTest, EventsThatCanNotBeUsedAreDropped)
{
    vekLogTail log(vekTestMainLogPath());
    Json::Value badStatus = pdEvent(112, 1, 2, "Removed: PD 08(e0xfc/s1)");
    badStatus["status"] = 1;
    Json::Value noLocale = pdEvent(4242, 1, 2, "Something new");
    noLocale["locale"] = 0;
    Json::Value debugClass = pdEvent(112, 1, -2, "Removed: PD 08(e0xfc/s1)");
    Json::Value otherEnclosure = pdEvent(112, 1, 2, "Removed: PD 20(e0xfb/s1)");
    otherEnclosure["pd"]["enclosure"] = 251;
    Json::Value enclosureLocale = pdEvent(112, 1, 2, "Enclosure removed");
    enclosureLocale["locale"] = 4;
    Json::Value ldArgument = ldEvent(251, 0, 2, "State change on VD 00/0 from OPTIMAL(3) to DEGRADED(2)");
    ldArgument["argType"] = 99;
    EXPECT_TRUE(deliver({badStatus, pdEvent(112, 1, 2, "Removed: PD 08(e0xfc/s1)", 99),
                         pdEvent(4242, 1, 1, "An event of a code we don't know"), noLocale, debugClass,
                         otherEnclosure, enclosureLocale, ldArgument})
                    .empty());
    EXPECT_TRUE(log.contains("Ignoring LSI MegaRAID PD-locale event argument type: [99]; Event code: [0x70]"));
    EXPECT_TRUE(log.contains("Ignoring LSI MegaRAID LD-locale event argument type: [99]; Event code: [0xfb]"));
    EXPECT_TRUE(log.contains("Enclosure index [255] of event (0x70) not in the enclosure list of controller [0]."));
    EXPECT_TRUE(log.contains("Disk slot information from AEN callback (-1:-1) not valid."));
    EXPECT_EQ(driveState("252:1"), "Online/OK");

    // The controller is on its way out when its event comes.
    controller()->markRemoved();
    Json::Value late = pdEvent(112, 1, 2, "Removed: PD 08(e0xfc/s1)");
    late["seq"] = ++sequence;
    late["ctrl"] = 0;
    scenario["events"].append(late);
    writeScenario();
    EXPECT_TRUE(vekEventually(
        [&] { return log.contains("MegaRAID [SKC4012345]: Event (0x70) for a controller being removed is dropped."); }));
    controller()->clearRemoved();
    EXPECT_EQ(driveState("252:1"), "Online/OK");
}

} // namespace
