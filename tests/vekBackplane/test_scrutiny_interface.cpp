// UBM backplane discovery through the real dlopen of the project's fake
// Scrutiny library (testtools/scrutiny), whose controllers, page 43, UBM
// controllers and FRU EEPROMs come from $VEK_ROOT/sim/libscrutiny.json, with
// FRU images made by the project's generator (testtools/frugen).

#include "vekScrutinyInterface.h"
#include "vekSubjectShutdownNotifier.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

const char kMegaRAID[] = "0000:3b:00.0";

class ScrutinyTest : public vekRootTest {
protected:
    ScrutinyTest() : dsi(vekScrutinyInterface::getInstance()) {}

    // A FRU image under sim/, as the fake serves it from the EEPROM.
    std::string fru(const std::string& name, const std::string& options)
    {
        const std::string path = "sim/" + name + ".fru";
        root.makeDirectory("/sim");
        const std::string command = "'" + std::string(VEK_BINARY_DIR) + "/testtools/frugen/frugen' " + options + " '" +
                                    root.path() + "/" + path + "'";
        EXPECT_EQ(system(command.c_str()), 0) << command;
        return path;
    }

    // One Gen3 MegaRAID whose page 43 names the buses, each bus as given.
    void megaRAID(const std::string& page43, const std::string& buses, const std::string& extra = "")
    {
        root.writeFile("/sim/libscrutiny.json",
                       "{" + extra + "\"controllers\": [{\"pci\": \"" + kMegaRAID +
                           "\", \"generation\": 2, \"chipsetID\": \"0x10E21000\", \"boardID\": \"0x40001000\", "
                           "\"serial\": \"SK01234567890123456789012345678X\", \"page43\": " +
                           page43 + ", \"i2c\": {" + buses + "}}]}");
    }

    // What a reader of the cache sees of the MegaRAID's segments, one line each.
    std::vector<std::string> segments()
    {
        std::vector<std::string> lines;
        for (const dsiEnclosureSegmentInfo* s : dsi.getEnclosureSegmentList(kMegaRAID)) {
            std::string routes;
            for (const UBM_PORT_ROUTE_INFO_DESCRIPTOR& route : s->getUBMPortRouteInfoVector()) {
                routes += " " + std::to_string(route.driveBay);
            }
            char line[512];
            snprintf(line, sizeof line,
                     "bus %d: %s %04x/%08x ubm %s image %s box %d state %d; %s|%s|%s|%s; %d bays:%s",
                     s->getI2CBusNumber(), s->getBackplaneType().c_str(), s->getUBMBackplanePCIVendorID(),
                     s->getUBMControllerDeviceCode(), s->getUBMBackplaneStandardVersion().c_str(),
                     s->getUBMBackplaneImageVersion().c_str(), s->getBoxNumber(),
                     static_cast<int>(s->getUBMControllerOperationalState()), s->getManufacturerName().c_str(),
                     s->getProductName().c_str(), s->getPartNumber().c_str(), s->getSerialNumber().c_str(),
                     s->getBayCount(), routes.c_str());
            lines.push_back(line);
        }
        return lines;
    }

    vekSubjectShutdownNotifier subject{"SAS Resource Manager"};
    vekScrutinyInterface& dsi;
};

TEST_F(ScrutinyTest, DiscoversTheSegmentsOfEachBusOfPage43)
{
    const std::string front = fru("front", "--product 'UBM BP 8' --part BP-8 --serial SN-F --bays 8");
    const std::string rear =
        fru("rear", "--manufacturer Acme --product 'UBM BP 4' --part BP-4 --serial SN-R --bays 4 --route 4,5,6,7");
    root.writeFile("/sim/libscrutiny.json", std::string(R"({"controllers": [
        {"pci": "0000:3b:00.0", "generation": 2, "chipsetID": "0x10E21000", "boardID": "0x40001000",
         "serial": "SK01234567890123456789012345678X",
         "page43": {"buses": [3, 5, 3]},
         "i2c": {"3": {"ubm": {"deviceCode": 3, "imageVersion": "1.10", "ubmVersion": "1.1", "box": 1, "state": 3},
                       "fru": ")") + front + R"("},
                 "5": {"ubm": {"vendor": "0x1000", "deviceCode": 5, "imageVersion": "2.7", "ubmVersion": "1.0",
                               "box": 2, "state": 7},
                       "fru": ")" + rear + R"("}}},
        {"pci": "0000:5e:00.0", "generation": 1, "chipsetID": "0x00141000", "boardID": "0x1d491000", "serial": "SAS"}
    ]})");
    vekLogTail log(vekTestMainLogPath());
    dsi.initialize(&subject);
    dsi.cacheBuild();

    const std::vector<dsiControllerInfo*> controllers = dsi.getControllerList();
    ASSERT_EQ(controllers.size(), 1u) << "only the Gen3 MegaRAID has UBM sideband";
    EXPECT_EQ(controllers[0]->getPCIAddress(), kMegaRAID);
    EXPECT_EQ(controllers[0]->getChipsetID(), 0x10E21000u);
    EXPECT_EQ(controllers[0]->getBoardID(), 0x40001000u);
    EXPECT_EQ(controllers[0]->getSerialNumber(), "SK01234567890123456789012345678X");
    EXPECT_TRUE(log.contains("Discovered MegaRAID @ [0000:3b:00.0]: (Chipset ID=[0x10e21000]; Board ID=[0x40001000]; "
                             "Serial #=[SK01234567890123456789012345678X]"))
        << log.newText();

    EXPECT_EQ(segments(), (std::vector<std::string>{
                              "bus 3: UBM 4417/00000003 ubm 1.1 image 1.10 box 1 state 3; "
                              "Zolvek|UBM BP 8|BP-8|SN-F; 8 bays: 0 1 2 3 4 5 6 7",
                              "bus 5: UBM 1000/00000005 ubm 1.0 image 2.7 box 2 state 7; "
                              "Acme|UBM BP 4|BP-4|SN-R; 4 bays: 4 5 6 7",
                          }));
    EXPECT_TRUE(dsi.getEnclosureSegmentList("0000:5e:00.0").empty());
}

TEST_F(ScrutinyTest, FailingOrShortTransfersLeaveWhatTheOthersRead)
{
    const std::string image = fru("bp", "--product 'UBM BP 8' --serial SN-1 --bays 8 --route 0,1");
    const std::string ubm = R"("ubm": {"deviceCode": 3, "imageVersion": "1.10", "box": 1, "state": 3})";
    const std::string all = ubm + R"(, "fru": ")" + image + "\"";
    const std::string names = "Zolvek|UBM BP 8|BP-0001|SN-1; 8 bays: 0 1";
    const std::string pic = "UBM 4417/00000003 ubm 1.1 image 1.10 box 1 state 3";
    struct Case {
        const char* situation;
        std::string bus;
        std::string seen; // "" when no segment is reported
    } const cases[] = {
        {"everything answers", all, pic + "; " + names},
        {"a short identity answer", all + R"(, "faults": {"silicon": "short"})",
         " 0000/00000000 ubm  image  box 1 state 3; " + names},
        {"the identity refused by Last Command Status", all + R"(, "faults": {"silicon": "refused"})",
         " 0000/00000000 ubm  image  box 1 state 3; " + names},
        {"Last Command Status fails in the library", all + R"(, "faults": {"status": "library"})",
         " 0000/00000000 ubm  image  box -1 state -1; " + names},
        {"backplane info fails at the IOC", all + R"(, "faults": {"backplane": "ioc"})",
         "UBM 4417/00000003 ubm 1.1 image 1.10 box -1 state 3; " + names},
        {"a short operational state", all + R"(, "faults": {"state": "short"})",
         "UBM 4417/00000003 ubm 1.1 image 1.10 box 1 state -1; " + names},
        {"a short FRU read", all + R"(, "faults": {"fru": "short"})", pic + "; |||; -1 bays:"},
        {"a PIC that does not answer", R"("fru": ")" + image + "\"",
         " 0000/00000000 ubm  image  box -1 state -1; " + names},
        {"a blank EEPROM", ubm + R"(, "fru": "sim/none.fru")", pic + "; |||; -1 bays:"},
        {"the bus cannot be reserved", all + R"(, "faults": {"reserve": "library"})", ""},
        {"the bus cannot be released", all + R"(, "faults": {"release": "ioc"})", ""},
        {"nothing answers", "", ""},
    };
    dsi.initialize(&subject);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.situation);
        megaRAID(R"({"buses": [4]})", "\"4\": {" + c.bus + "}");
        vekLogTail log(vekTestMainLogPath());
        dsi.cacheBuild();
        const std::vector<std::string> seen = segments();
        if (c.seen.empty()) {
            EXPECT_TRUE(seen.empty()) << seen.front();
            EXPECT_TRUE(log.contains("MegaRAID @ [0000:3b:00.0]: I2c Bus [4]: No enclosure segment will be reported"))
                << log.newText();
        } else {
            EXPECT_EQ(seen, std::vector<std::string>{"bus 4: " + c.seen});
        }
    }
}

TEST_F(ScrutinyTest, APage43ThatCannotBeReadGivesNoSegments)
{
    const std::string bus = R"("3": {"ubm": {"box": 1}})";
    struct Case {
        const char* page43;
        const char* logged;
        size_t segments;
    } const cases[] = {
        {R"({"buses": [3], "length": 0})", "Invalid page length for config page 43 on controller @ [0000:3b:00.0].", 0},
        {R"({"buses": [3], "mfi": 3})",
         "Dcmd passthrough call failed on controller @ [0000:3b:00.0] with command MFI status [0x3]", 0},
        {R"({"buses": [3], "dcmd": 9})", "Failed to read config page 43 header on controller @ [0000:3b:00.0].", 0},
        {R"({"buses": [3], "mfi": [0, 3]})", "Failed to read config page 43 on controller @ [0000:3b:00.0].", 0},
        // A count beyond the entries the page holds: only those count.
        {R"({"buses": [3], "count": 200})", "Page #43 names 200 entries but holds 1.", 1},
    };
    dsi.initialize(&subject);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.page43);
        megaRAID(c.page43, bus);
        vekLogTail log(vekTestMainLogPath());
        dsi.cacheBuild();
        EXPECT_EQ(dsi.getControllerList().size(), 1u);
        EXPECT_EQ(dsi.getEnclosureSegmentList(kMegaRAID).size(), c.segments);
        EXPECT_TRUE(log.contains(c.logged)) << log.newText();
    }
}

TEST_F(ScrutinyTest, ReadersTakeThePreviousGenerationDuringARebuild)
{
    megaRAID(R"({"buses": [3]})", R"("3": {"ubm": {"box": 1}})");
    dsi.initialize(&subject);
    dsi.cacheBuild();
    ASSERT_EQ(dsi.getEnclosureSegmentList(kMegaRAID).size(), 1u);

    // The next build finds two segments, but its transfers wait until told.
    root.writeFile("/sim/hold", "");
    megaRAID(R"({"buses": [3, 6]})", R"("3": {"ubm": {"box": 1}}, "6": {"ubm": {"box": 2}})",
             R"("hold": "sim/hold", )");
    std::thread build([this] { dsi.cacheBuild(); });
    const bool held = vekEventually([this] { return root.exists("/sim/hold.held"); });
    std::vector<dsiEnclosureSegmentInfo*> during = dsi.getEnclosureSegmentList(kMegaRAID);
    const size_t controllersDuring = dsi.getControllerList().size();
    remove(root.hostPath("/sim/hold").c_str());
    build.join();
    ASSERT_TRUE(held);
    ASSERT_EQ(during.size(), 1u);
    EXPECT_EQ(during[0]->getBoxNumber(), 1);
    EXPECT_EQ(controllersDuring, 1u);
    EXPECT_EQ(dsi.getEnclosureSegmentList(kMegaRAID).size(), 2u);
}

TEST_F(ScrutinyTest, ThreeFailedLoadsAreTheLastUntilReset)
{
    megaRAID(R"({"buses": [3]})", R"("3": {"ubm": {"box": 1}})", R"("initialize": 5, )");
    vekLogTail log(vekTestMainLogPath());
    for (int attempt = 0; attempt < 4; ++attempt) {
        dsi.initialize(&subject);
    }
    EXPECT_NE(log.newText().find("Initialization of Scrutiny Library interface failed. (0x00000005)"),
              std::string::npos);
    EXPECT_TRUE(log.contains("VEK Scrutiny interface initialization attempts failure threshold reached. (3, 3)"))
        << log.newText();
    dsi.cacheBuild();
    EXPECT_TRUE(dsi.getControllerList().empty());

    megaRAID(R"({"buses": [3]})", R"("3": {"ubm": {"box": 1}})");
    dsi.initialize(&subject);
    dsi.cacheBuild();
    EXPECT_TRUE(dsi.getControllerList().empty()) << "no fourth attempt before the reset";
    dsi.resetInitializeAttempts();
    dsi.initialize(&subject);
    dsi.cacheBuild();
    EXPECT_EQ(dsi.getControllerList().size(), 1u);

    // Once shutdown has begun a build gives up at once, and no new load starts.
    subject.signalSubjectShutdown();
    dsi.cacheBuild();
    EXPECT_TRUE(dsi.getControllerList().empty());
    EXPECT_TRUE(log.contains("Subject shutdown detected when building controller list.")) << log.newText();
    dsi.shutdown();
    dsi.initialize(&subject);
    EXPECT_TRUE(log.contains("Subject shutdown has already started. Hence, initialization will be skipped."))
        << log.newText();
}

} // namespace
