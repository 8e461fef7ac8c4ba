// The plain adapter's rule books: port words, the controller's roll-up, the
// disks' verdicts, the events they raise as the RMC receives them, and how a
// fresh discovery is reconciled with the last one.

#include "vekTestStorage.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

namespace {

const VEK_RESOURCE_STATE R = VEK_STATE_RUNNING, O = VEK_STATE_OFFLINE, Y = VEK_STATE_RECOVERY,
                         F = VEK_STATE_CANCEL, P = VEK_STATE_PREDICTIVE_FAILURE, X = VEK_STATE_FAILED,
                         U = VEK_STATE_UNKNOWN;
const VEK_RESOURCE_HEALTH OK = VEK_HEALTH_OK, CRIT = VEK_HEALTH_CRITICAL, WARN = VEK_HEALTH_WARNING;
const char kPL[] = "2A00000000000001";

std::string status(const vekStatusInfo& s)
{
    return vekResourceStateMap[s.getState()] + "/" + vekResourceHealthMap[s.getHealth()];
}

class StorageControllerTest : public vekRootTest {
protected:
    vekStorageEventsHost events{root};
    vekTestStorageController controller;
};

TEST_F(StorageControllerTest, PortWordsAndRecoveryTiming)
{
    controller.addPort("/sys/class/scsi_host/host2");
    const long now = static_cast<long>(time(nullptr));
    const struct {
        const char* word;
        long recordedSince; // 0: none
        const char* expected;
        bool recordsNow;
    } cases[] = {
        {"running", now - 5, "Running/OK", false},
        {"Created", 0, "Created/OK", false},
        {"recovery", 0, "Running/OK", true},               // first sighting
        {"recovery", now - 3600, "Running/OK", false},      // since long ago: the clock runs forward
        {"recovery", now + 120, "Recovery/Warning", false}, // only a clock that ran backward
        {"offline", 0, "Offline/Critical", false},
        {"cancel", 0, "Cancel/Critical", false},
        {"blocked", 0, "Unknown/Critical", false},
    };
    for (const auto& c : cases) {
        root.writeFile("/sys/class/scsi_host/host2/state", std::string(c.word) + "\n");
        vekStorageControllerPortInfo port;
        port.setLastRecoveryTimestamp(c.recordedSince);
        EXPECT_EQ(controller.discoverControllerPortStatus(0, port), 0);
        EXPECT_EQ(status(port), c.expected) << c.word;
        if (c.recordsNow) {
            EXPECT_GE(port.getLastRecoveryTimestamp(), now) << c.word;
        } else if (std::string(c.word) == "running") {
            EXPECT_EQ(port.getLastRecoveryTimestamp(), 0);
        }
    }
    // An unreadable attribute leaves the port as it was.
    vekStorageControllerPortInfo port;
    port.setState(VEK_STATE_CREATED);
    EXPECT_LT(controller.discoverControllerPortStatus(1, port), 0);
    EXPECT_EQ(port.getState(), VEK_STATE_CREATED);
}

TEST_F(StorageControllerTest, ControllerStatusFromItsPorts)
{
    const std::string one = "The storage controller port has gone offline or will be removed from the system, or "
                            "has been in recovery state for >= 60 seconds.";
    const struct {
        size_t maxPorts;
        std::vector<VEK_RESOURCE_STATE> ports;
        const char* expected;
        std::string text;
    } cases[] = {
        {0, {}, "Running/OK", ""},
        {0, {R, VEK_STATE_CREATED}, "Running/OK", "The storage controller port(s) are now online."},
        {0, {Y}, "Recovering/Critical", one},
        {0, {Y, Y}, "Recovering/Critical", "At least 1 of 2 ports of the storage controller have gone offline or "
                                           "will be removed from the system, or have been in recovery state for >= "
                                           "60 seconds."},
        {0, {R, Y, R, R}, "Recovering/Warning", ""},
        {0, {R, R, R, O}, "Degraded/Warning", ""},
        {0, {R, O, R, F}, "Degraded/Warning", ""},
        {0, {R, O}, "Degraded/Critical", "At least 1 of 2 ports of the storage controller have gone offline or will "
                                         "be removed from the system, or have been in recovery state for >= 60 "
                                         "seconds."},
        {0, {F, O}, "Failed/Critical", "At least 1 of 2 ports of the storage controller have gone offline or will be "
                                       "removed from the system, or have been in recovery state for >= 60 seconds."},
        {0, {F}, "Failed/Critical", one},
        {0, {O}, "Offline/Critical", one},
        {0, {O, O, O}, "Offline/Critical", "At least 2 of 3 ports of the storage controller have gone offline or "
                                           "will be removed from the system, or have been in recovery state for >= "
                                           "60 seconds."},
        // Ports the OS does not show count as offline.
        {4, {R, R}, "Degraded/Warning", ""},
        {2, {R}, "Degraded/Critical", "At least 1 of 2 ports of the storage controller have gone offline or will be "
                                      "removed from the system, or have been in recovery state for >= 60 seconds."},
    };
    for (const auto& c : cases) {
        controller.setMaxSupportedControllerPorts(c.maxPorts);
        controller.currentInfo_.clearControllerPortList();
        for (VEK_RESOURCE_STATE state : c.ports) {
            vekStorageControllerPortInfo port;
            port.setState(state);
            controller.currentInfo_.addControllerPort(port);
        }
        controller.computeControllerStatus();
        const std::string label = std::to_string(c.maxPorts) + "/" + std::to_string(c.ports.size());
        EXPECT_EQ(status(controller.currentInfo_), c.expected) << label;
        EXPECT_EQ(controller.currentInfo_.getEventInfoString(), c.text) << label;
    }
}

TEST_F(StorageControllerTest, DiskVerdicts)
{
    const struct {
        bool ata;
        int health, wear, temperature, maxTemperature;
        bool haveTemperature;
        const char* expected;
        const char* text;
    } cases[] = {
        {false, 0, 10, 40, 60, true, "Running/OK", ""},
        {false, 0, 0, 40, 0, true, "Running/OK", ""}, // no maximum known
        {false, -8, 0, 40, 60, true, "Failed/Critical", "Failed to read Informational Exceptions log page from disk drive."},
        {true, -3, 0, 40, 60, true, "Failed/Critical", "Failed to read Summary SMART Error Log from disk drive."},
        {false, 0x5D00, 0, 40, 60, true, "Predictive failure/Warning",
         "[SSD Wear percentage (0); Threshold (95)], [Current Temp (40 C); Max Operating Temperature (60 C)], [23808 "
         "errors reported in Summary SMART error log / Informational Exceptions log page.]"},
        {false, 0, 95, 40, 60, true, "Predictive failure/Warning",
         "[SSD Wear percentage (95); Threshold (95)], [Current Temp (40 C); Max Operating Temperature (60 C)], [0 "
         "errors reported in Summary SMART error log / Informational Exceptions log page.]"},
        {true, 0, 0, 71, 70, true, "Predictive failure/Warning",
         "[SSD Wear percentage (0); Threshold (95)], [Current Temp (71 C); Max Operating Temperature (70 C)], [0 "
         "errors reported in Summary SMART error log / Informational Exceptions log page.]"},
        {true, 2, 5, 0, 0, false, "Predictive failure/Warning",
         "[SSD Wear percentage (5); Threshold (95)], [2 errors reported in Summary SMART error log / Informational "
         "Exceptions log page.]"},
    };
    for (const auto& c : cases) {
        vekDiskInfo disk;
        disk.setEventInfoString("stale");
        vekTestStorageController::applyDiskVerdict(disk, c.ata, c.health, c.wear, c.temperature, c.maxTemperature,
                                                   c.haveTemperature);
        EXPECT_EQ(status(disk), c.expected) << c.text;
        EXPECT_EQ(disk.getEventInfoString(), c.text);
    }
}

TEST_F(StorageControllerTest, ControllerEventsFollowHealthAndTheOutstandingFault)
{
    const struct {
        int outstanding; // criticalEventOutstanding before
        VEK_RESOURCE_STATE previousState;
        VEK_RESOURCE_HEALTH previous, current;
        const char* previousPL;
        int event; // 0: none
        int outstandingAfter;
    } cases[] = {
        {-1, R, CRIT, OK, kPL, 397, 0},
        {-1, R, OK, CRIT, kPL, 398, 1},
        {0, R, WARN, CRIT, kPL, 398, 1},
        {1, R, WARN, CRIT, kPL, 0, 1},
        {-1, R, WARN, OK, kPL, 397, 0}, // the start value lets the first clearing through
        {0, R, WARN, OK, kPL, 0, 0},
        {1, R, WARN, OK, kPL, 397, 0},
        {-1, R, OK, WARN, kPL, 0, -1},
        {-1, R, OK, OK, kPL, 0, -1},
        {-1, R, OK, CRIT, "FFFFFFFFFFFFFFFF", 0, -1},
        {-1, R, OK, CRIT, "", 0, -1},
        {-1, R, OK, CRIT, "2A00000000000002", 0, -1}, // the controller moved
        {-1, U, OK, CRIT, kPL, 0, -1},
    };
    size_t sent = 0;
    for (const auto& c : cases) {
        controller.criticalEventOutstanding = c.outstanding;
        controller.previousInfo_.setState(c.previousState);
        controller.previousInfo_.setHealth(c.previous);
        controller.previousInfo_.setPhysicalLocation(c.previousPL);
        controller.currentInfo_.setPhysicalLocation(kPL);
        controller.currentInfo_.setHealth(c.current);
        controller.currentInfo_.setEventInfoString("text of " + std::to_string(c.event));
        EXPECT_EQ(controller.generateEventOnStatusChange(), c.event != 0) << c.event;
        EXPECT_EQ(controller.criticalEventOutstanding, c.outstandingAfter);
        if (c.event != 0) {
            const Json::Value event = events.events(++sent).back();
            EXPECT_EQ(event["ID"].asInt(), c.event);
            EXPECT_EQ(event["PhysicalLocation"].asString(), kPL);
            EXPECT_EQ(event["Source"].asString(), "VEK");
            EXPECT_EQ(event["VariableData"]["Type"].asString(), "Controller");
            EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), "text of " + std::to_string(c.event));
        }
    }
    EXPECT_EQ(events.events().size(), sent);
}

TEST_F(StorageControllerTest, DiskEventsFollowState)
{
    const struct {
        VEK_RESOURCE_STATE previous, current;
        int previousBay, currentBay;
        int event;
        const char* location;
    } cases[] = {
        {O, R, 3, 3, 540, "0000000000000B03"},
        {R, P, 3, 3, 539, "0000000000000B03"},
        {R, X, 3, 4, 538, "0000000000000B03"}, // the previous place wins
        {R, X, -1, 4, 538, "0000000000000B04"},
        {P, O, 3, 3, 538, "0000000000000B03"},
        {R, O, 3, 3, 538, "0000000000000B03"},
        {X, O, 3, 3, 0, ""},
        {R, R, 3, 3, 0, ""},
        {R, X, -1, -1, 0, ""}, // nowhere to place it
        {R, U, 3, 3, 0, ""},
    };
    size_t sent = 0;
    for (const auto& c : cases) {
        const vekDiskInfo previous = vekTestDisk("S1", c.previousBay, c.previous);
        vekDiskInfo current = vekTestDisk("S1", c.currentBay, c.current);
        current.setEventInfoString("why");
        EXPECT_EQ(controller.generateEventOnStatusChange(current, previous), c.event != 0) << c.event;
        if (c.event == 0) {
            continue;
        }
        const Json::Value event = events.events(++sent).back();
        EXPECT_EQ(event["ID"].asInt(), c.event);
        EXPECT_EQ(event["PhysicalLocation"].asString(), c.location);
        EXPECT_EQ(event["VariableData"]["Type"].asString(), "Drive");
        EXPECT_EQ(event["VariableData"]["Data"]["SerialNumber"].asString(), "S1");
        // Back to Running clears the text.
        EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), c.event == 540 ? "" : "why");
    }
    EXPECT_EQ(events.events().size(), sent);
}

// One discovery cycle: the disks found now against the list of the last one.
std::vector<std::string> cycle(vekTestStorageController& controller, std::vector<vekDiskInfo> found)
{
    controller.previousDisks_ = controller.disks_;
    controller.disks_ = std::move(found);
    controller.synchronizePhysicalDrivesInventory();
    std::vector<std::string> listed;
    for (const vekDiskInfo& disk : controller.disks_) {
        listed.push_back(disk.getSerialNumber() + "@" + disk.getSlot() + (disk.getDeviceMissing() ? " missing" : ""));
    }
    return listed;
}

TEST_F(StorageControllerTest, PhysicalDrivesAcrossDiscoveries)
{
    controller.enableEvents();
    cycle(controller, {vekTestDisk("A", 1), vekTestDisk("B", 2), vekTestDisk("C", -1)});
    ASSERT_TRUE(events.events().empty());

    // B swapped for D in bay 2: B's failure names both serial numbers, then D comes up.
    EXPECT_EQ(cycle(controller, {vekTestDisk("A", 1), vekTestDisk("D", 2)}), (std::vector<std::string>{"A@1", "D@2"}));
    EXPECT_EQ(events.summaries(2),
              (std::vector<std::string>{"538 @ 0000000000000B02: Detected change in disk serial number (Current "
                                        "serial number: D; Last known serial number: B).",
                                        "540 @ 0000000000000B02: "}));
    EXPECT_EQ(events.events()[0]["VariableData"]["Data"]["SerialNumber"].asString(), "B");

    // A leaves: one event, and a placeholder that stays for many cycles.
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(cycle(controller, {vekTestDisk("D", 2)}), (std::vector<std::string>{"D@2", "A@1 missing"}));
    }
    EXPECT_EQ(events.summaries(3).back(), "538 @ 0000000000000B01: ");

    // A new disk at an empty bay: Running says nothing, a failed one reports.
    cycle(controller, {vekTestDisk("D", 2), vekTestDisk("E", 5), vekTestDisk("G", 6, X)});
    EXPECT_EQ(events.summaries(4).back(), "538 @ 0000000000000B06: ");

    // A comes back to its bay and takes its place again; E leaves (reported),
    // G leaves failed (nothing more to report).
    EXPECT_EQ(cycle(controller, {vekTestDisk("A", 1), vekTestDisk("D", 2)}),
              (std::vector<std::string>{"A@1", "D@2", "E@5 missing", "G@6 missing"}));
    EXPECT_EQ(events.summaries(5).back(), "538 @ 0000000000000B05: ");
    EXPECT_EQ(events.events().size(), 5u);
}

TEST_F(StorageControllerTest, LogicalDiskPlaceholders)
{
    const auto volume = [](const std::string& name, bool missing = false, bool deleted = false) {
        vekLogicalDiskInfo disk;
        disk.setDurableName(name);
        disk.setLogicalDiskID("7");
        disk.setDeviceMissing(missing);
        disk.setDeletedEventReceived(deleted);
        return disk;
    };
    controller.previousLogicalDisks_ = {volume("kept"), volume(""), volume("gone"), volume("long gone", true),
                                        volume("deleted", false, true)};
    controller.logicalDisks_ = {volume("kept")};
    controller.synchronizeLogicalDiskInventory();
    std::vector<std::string> listed;
    for (const auto& disk : controller.logicalDisks_) {
        listed.push_back(disk.getDurableName() + (disk.getDeviceMissing() ? " missing" : ""));
    }
    EXPECT_EQ(listed, (std::vector<std::string>{"kept", "gone missing", "long gone missing"}));
}

} // namespace
