// The platform services as the service builds them at start, on the bundled
// rack server's SMBIOS table and the emulated RMC; and the RMC's numbers of
// the internal event ids, per platform generation.

#include "IELEvent.h"
#include "SDRRepositoryCache.h"
#include "vekInBandComManager.h"
#include "vekPlatformServiceBuilder.h"
#include "vekPlatformServices.h"
#include "vekRmcEmulator.h"
#include "vekSmbiosInterface.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

class PlatformServicesTest : public vekRootTest {
protected:
    void SetUp() override
    {
        setenv("VEK_TIME_SCALE", "100", 1);
        // modprobe and mknod of a driver reload: recorded, never run.
        for (const char* tool : {"modprobe", "mknod"}) {
            root.writeFile(std::string("/fakebin/") + tool, "#!/bin/sh\nexit 1\n");
            chmod(root.hostPath(std::string("/fakebin/") + tool).c_str(), 0755);
        }
        setenv("PATH", (root.hostPath("/fakebin") + ":" + getenv("PATH")).c_str(), 1);
    }

    // The SMBIOS table of the bundled rack server (platform TRB).
    void useRackServerTable()
    {
        root.writeFile("/sys/firmware/dmi/tables/DMI", vekBundledProfileFile("sys/firmware/dmi/tables/DMI"));
    }
};

TEST_F(PlatformServicesTest, ResourceManagerListFollowsTheHostOs)
{
    EXPECT_EQ(vekResourceManagerIdsFor("VMware ESXi 8.0.3 build-24022510"), (std::vector<int>{1, 0, 2, 3, 4, 5}));
    EXPECT_EQ(vekResourceManagerIdsFor("Linux rack 6.1.0 x86_64"), (std::vector<int>{6, 99, 8, 1, 0, 2, 3, 4, 5}));
}

TEST_F(PlatformServicesTest, RackServerGetsTheTrbEventMapTheChannelAndTheSdrCache)
{
    VEK_REQUIRE_RMC_EMULATOR();
    useRackServerTable();
    vekRmcEmulator rmc;
    vekLogTail debug(vekTestDebugLogPath());
    std::unique_ptr<vekPlatformServices> services = vekPlatformServiceManager::getPlatformServices(0);
    ASSERT_NE(services, nullptr);
    EXPECT_EQ(services->getPlatform(), 4);
    ASSERT_NE(services->getvekSmbiosInterface(), nullptr);
    EXPECT_EQ(services->getInbandComInterface(), &vekInBandComManager::getInstance(*services->getvekSmbiosInterface()));
    ASSERT_NE(services->getIELEventResolver(), nullptr);
    EXPECT_EQ((*services->getIELEventResolver())(static_cast<IELEVENT::IELEventId>(49)), 1968);
    // This test runs on Linux, so the ids without a manager lead the list.
    EXPECT_EQ(services->getResourceManagerIds(), (std::vector<int>{6, 99, 8, 1, 0, 2, 3, 4, 5}));
    EXPECT_TRUE(vekInOrder(debug.newText(), {"Building the Resource Manager List applicable to the Environment",
                                             "Target OS [Linux"}));
    // The SDR cache reads the RMC's repository at its first use.
    auto* sdrs = services->getIPMISDRRepositoryCache();
    ASSERT_NE(sdrs, nullptr);
    EXPECT_EQ(std::vector<vekIPMI::SDRRecord>(sdrs->begin(), sdrs->end()).size(), 5u);
}

TEST_F(PlatformServicesTest, UnknownPlatformGetsTheOlderEventMap)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekRmcEmulator rmc;
    std::unique_ptr<vekPlatformServices> services = vekPlatformServiceManager::getPlatformServices(0);
    ASSERT_NE(services->getIELEventResolver(), nullptr);
    EXPECT_EQ((*services->getIELEventResolver())(static_cast<IELEVENT::IELEventId>(35)), 1501);
}

TEST_F(PlatformServicesTest, NoChannelToTheRmcFailsTheWholeBuild)
{
    useRackServerTable();
    unsetenv("VEK_IPMI_EXTERNAL");
    vekLogTail main(vekTestMainLogPath());
    EXPECT_THROW(vekPlatformServiceManager::getPlatformServices(0), std::runtime_error);
    EXPECT_TRUE(main.contains("FAILURE in Initializing the Communication Channel [IPMI - Connection - Failed]"))
        << main.newText();
}

using IELEVENT::IELEventId;

// Every id the resolver answers, found by asking it for a wide range; the
// others raise "IEL Event Not Matching".
std::map<int, int> resolvedIds(IELEventResolver& resolver)
{
    std::map<int, int> resolved;
    for (int id = -5; id <= 100; ++id) {
        try {
            resolved[id] = resolver(static_cast<IELEventId>(id));
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "IEL Event Not Matching") << id;
        }
    }
    return resolved;
}

TEST(IELEventMapTest, TablesOfTheTwoPlatformGenerations)
{
    // The numbers both tables share.
    const std::map<int, int> shared = {
        {2, 434},   {3, 435},   {4, 356},   {5, 359},   {6, 360},   {7, 397},   {8, 398},   {9, 835},
        {10, 837},  {11, 836},  {12, 540},  {13, 538},  {14, 539},  {15, 383},  {16, 384},  {17, 385},
        {18, 386},  {19, 388},  {20, 390},  {21, 1391}, {22, 681},  {23, 683},  {24, 1385}, {25, 1387},
        {26, 1388}, {27, 680},  {28, 678},  {29, 1384}, {30, 1390}, {31, 708},  {32, 1138}, {33, 1139},
        {34, 1150}, {36, 1152}, {37, 1148}, {38, 1151}, {39, 1179}, {40, 1180}, {41, 1181}, {42, 1182},
        {43, 1183}, {44, 1337}, {45, 1338},
    };
    std::map<int, int> trb = shared;
    trb.insert({{35, 1978}, {46, 1750}, {47, 1751}, {48, 1752}, {49, 1968}, {50, 1969}});
    std::map<int, int> preTrb = shared;
    preTrb.insert({{35, 1501}, {46, 1441}, {47, 1442}, {48, 1443}});

    IELEventMap::IELEventTRB trbMap;
    IELEventMap::IELEventPreTRB preTrbMap;
    EXPECT_EQ(resolvedIds(trbMap), trb);
    EXPECT_EQ(resolvedIds(preTrbMap), preTrb);
}

} // namespace
