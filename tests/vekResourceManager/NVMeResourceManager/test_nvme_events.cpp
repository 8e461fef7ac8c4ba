// SMART changes of the rack server's NVMe devices, made by rewriting what the
// host's localcli prints, reach the emulated RMC as the family's event pairs.

#include "NVMeResourceManager/NVMeResourceManager.h"
#include "NVMeResourceManager/vekNvmeEventManager.h"
#include "vekIPMIService.h"
#include "vekNvmeTestHost.h"
#include "vekRmcEmulator.h"
#include "vekTestInventoryPush.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

namespace {

const char kReadOnly[] = "Read Only Mode:";
const char kTemperature[] = "Temperature Warning:";

class NVMeEventsTest : public vekRootTest {
protected:
    void SetUp() override
    {
        VEK_REQUIRE_RMC_EMULATOR();
        rmc.reset(new vekRmcEmulator());
        com.reset(new vekTestComManager(&vekIPMIService::getInstance(), smbios));
        nvme.services(*com);
    }

    // The events the RMC received, oldest first.
    std::vector<Json::Value> events() const
    {
        std::vector<Json::Value> found;
        for (const auto& command : rmc->spooledCommands()) {
            if (command.name == "MPEventGen") {
                found.push_back(vekRecordingChannel::parse(command.payload));
            }
        }
        return found;
    }

    std::unique_ptr<vekRmcEmulator> rmc;
    vekTestSmbios smbios;
    std::unique_ptr<vekTestComManager> com;
    vekNvmeTestHost nvme{root};
};

TEST_F(NVMeEventsTest, SmartChangesReachTheRmcAsTheirPairs)
{
    ASSERT_TRUE(nvme.startManager());
    const std::string readOnlyText = std::string(vekNvmeEventManager::kReadOnlyText) +
                                     ", [SMART Info : 0x8, PercentageUsed : 0, PowerOnHours : 4410]";
    const std::string temperatureText = std::string(vekNvmeEventManager::kTemperatureText) +
                                        ", [SMART Info : 0x2, PercentageUsed : 3, PowerOnHours : 12873]";
    // One step after the other: the flags a device's log shows from then on,
    // the health the inventory then shows, and the events the RMC gets.
    const struct {
        const char* device;
        std::vector<std::string> flags;
        const char* health;
        std::vector<int> ids;
        std::string eventInfo;
    } steps[] = {
        // Both flags: read-only mode wins, and a card gives two events.
        {vekNvmeTestHost::kCard7, {kReadOnly, kTemperature}, "Critical", {837, 538}, readOnlyText},
        {vekNvmeTestHost::kCard7, {kTemperature}, "Warning", {}, ""},
        {vekNvmeTestHost::kCard7, {}, "OK", {835, 540}, ""},
        // A bay drive has no controller event.
        {vekNvmeTestHost::kBay1, {kTemperature}, "Warning", {539}, temperatureText},
        {vekNvmeTestHost::kBay1, {}, "OK", {540}, ""},
    };
    size_t seen = 0;
    for (const auto& step : steps) {
        nvme.setSmartFlags(step.device, step.flags);
        const std::string slot = step.device == std::string(vekNvmeTestHost::kCard7) ? "07" : "01";
        ASSERT_TRUE(vekEventually([&] {
            return vekNvmeTestHost::inSlot(nvme.inventory(2), slot)["Status"]["Health"].asString() ==
                   step.health;
        })) << step.device << " " << step.health;
        ASSERT_TRUE(vekEventually([&] { return events().size() >= seen + step.ids.size(); }));
        const std::vector<Json::Value> all = events();
        ASSERT_EQ(all.size(), seen + step.ids.size()) << step.device << " " << step.health;
        const Json::Value drive = vekNvmeTestHost::inSlot(nvme.inventory(2), slot);
        for (size_t i = 0; i < step.ids.size(); ++i) {
            const Json::Value& event = all[seen + i];
            EXPECT_EQ(event["ID"].asInt(), step.ids[i]);
            EXPECT_EQ(event["Source"].asString(), "VEK");
            EXPECT_EQ(event["VariableData"]["EventInfo"].asString(), step.eventInfo);
            EXPECT_EQ(event["PhysicalLocation"].asString(), drive["Oem"]["PhysicalLocation"].asString());
            const Json::Value& data = event["VariableData"]["Data"];
            if (i + 1 < step.ids.size()) {
                EXPECT_EQ(event["VariableData"]["Type"].asString(), "Controller");
                EXPECT_EQ(data["Oem"]["Description"].asString(), "PCI 0000:e3:00.0 r001u03p1i07");
            } else {
                EXPECT_EQ(event["VariableData"]["Type"].asString(), "Drive");
                EXPECT_EQ(data["Oem"]["Slot"].asString(), slot);
                EXPECT_EQ(data["Status"]["Health"].asString(), step.health);
            }
        }
        seen = all.size();
    }
    EXPECT_EQ(events()[0]["VariableData"]["Data"]["SerialNumber"].asString(), "S55JNA0R200701");
}

// What the test event server asks of this family: an event for the device
// named by its PL or its OS name.
TEST_F(NVMeEventsTest, TestEventsFindTheirDeviceByPlaceOrName)
{
    ASSERT_TRUE(nvme.startManager());
    NVMeResourceManager& manager = nvme.manager();
    const std::string pl =
        vekNvmeTestHost::at(nvme.inventory(1), "0000:e4:00.0")["Oem"]["PhysicalLocation"].asString();
    EXPECT_TRUE(manager.generateTestEvent(836, pl, true));
    EXPECT_TRUE(manager.generateTestEvent(539, vekNvmeTestHost::kBay1, false));
    EXPECT_FALSE(manager.generateTestEvent(386, vekNvmeTestHost::kBay1, true)) << "not an NVMe event";
    EXPECT_FALSE(manager.generateTestEvent(538, vekNvmeTestHost::kVmdDrive, true)) << "not this family's";
    ASSERT_TRUE(vekEventually([&] { return events().size() >= 2; }));
    const std::vector<Json::Value> sent = events();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0]["ID"].asInt(), 836);
    EXPECT_EQ(sent[0]["PhysicalLocation"].asString(), pl);
    EXPECT_EQ(sent[0]["VariableData"]["Type"].asString(), "Controller");
    EXPECT_EQ(sent[0]["VariableData"]["EventInfo"].asString(), "Injected Event");
    EXPECT_EQ(sent[1]["ID"].asInt(), 539);
    EXPECT_EQ(sent[1]["VariableData"]["Data"]["SerialNumber"].asString(), "S4YNNE0N100101");
}

} // namespace
