// The chassis managers of each platform, on GeoIDs from real SMBIOS tables;
// the monarch enclosure search on the emulated RMC's SDR repository.

#include "SDRRepositoryCache.h"
#include "vekIPMIService.h"
#include "vekIPMITestSupport.h"
#include "vekLocationTestHost.h"
#include "vekSCMMockServerChassisManager.h"
#include "vekSCMServerChassisManager.h"
#include "vekSCMTRBChassisManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using namespace vekSCM;

namespace {

const auto slot = vekLocationTestHost::slot;

class ChassisManagerTest : public vekRootTest {
protected:
    IServerChassisManager& on(int platform, const std::vector<std::string>& records)
    {
        host.use(platform, records);
        return ServerChassisManagerFactory::getServerChassisManager();
    }
    vekLocationTestHost host{root};
};

const std::string kCard = "0000:5e:00.0", kOnboard = "0000:00:17.0", kOcp = "0000:2a:00.0", kNvme = "0000:87:00.0",
                  kDrive = "0000:88:00.0", kOtherChassis = "0000:3b:00.0", kNoGeoID = "0000:99:00.0";

const std::vector<std::string> kTrbSlots = {
    slot("Slot 4 r001u03p1i04", kCard), slot("Onboard r001u03p2i00", kOnboard), slot("OCP r001u03p1o1", kOcp),
    slot("NVMe r001u03p1x1y02", kNvme), slot("Drive r001u03p1i04x2y07", kDrive),
    slot("Slot 1 r001u05p1i01", kOtherChassis)};

TEST_F(ChassisManagerTest, TrbAnswersForEveryGeoIdForm)
{
    vekLogTail debug(vekTestDebugLogPath());
    IServerChassisManager& scm = on(4, kTrbSlots);
    EXPECT_TRUE(debug.contains("TRB chassis manager will be used."));

    // Slot of an I/O slot GeoID: "0" and -5 for a type the rule does not
    // take (type 0 is unexpected, not invalid), -1 for a bad address.
    for (const auto& c : {std::make_tuple(kCard, 0, "04"), {kOnboard, 0, "00"}, {kOcp, -5, "0"}, {kNoGeoID, -5, "0"},
                          {"5e:00.0", -1, "0"}}) {
        std::string text = "?";
        EXPECT_EQ(scm.getPCIeSlotForIOSlot(std::get<0>(c), text), std::get<1>(c)) << std::get<0>(c);
        EXPECT_EQ(text, std::get<2>(c)) << std::get<0>(c);
    }
    for (const auto& c : {std::make_tuple(kCard, 0, VEK_FORM_FACTOR_PCIE_CEM), {kOnboard, 0, VEK_FORM_FACTOR_ON_BOARD},
                          {kOcp, 0, VEK_FORM_FACTOR_OCP}, {kNvme, 0, VEK_FORM_FACTOR_SSD_HDD},
                          {kDrive, 0, VEK_FORM_FACTOR_SSD_HDD}, {kNoGeoID, -5, VEK_FORM_FACTOR_UNKNOWN},
                          {"0000:5e:00", -1, VEK_FORM_FACTOR_UNKNOWN}}) {
        _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_OCP;
        EXPECT_EQ(scm.getPCIDeviceFormFactor(std::get<0>(c), formFactor), std::get<1>(c)) << std::get<0>(c);
        EXPECT_EQ(formFactor, std::get<2>(c)) << std::get<0>(c);
    }

    std::string location;
    EXPECT_EQ(scm.getChassisLocationForIOSlot(kCard, location), 0);
    EXPECT_EQ(location, "r001u03");
    EXPECT_EQ(scm.getChassisLocationForIOSlot(kOcp, location), 0);
    EXPECT_EQ(scm.getChassisLocationForIOSlot(kNvme, location), -5);

    // Partitions don't count; the second address's accepted types are not the first's.
    for (const auto& c : {std::make_tuple(kCard, kOnboard, 2), {kCard, kOtherChassis, 1}, {kCard, kNvme, 2},
                          {kCard, kDrive, -5}, {kDrive, kNoGeoID, 1}, {kDrive, kCard, 2}, {kNoGeoID, kCard, -5},
                          {kCard, "5e:00.0", -1}}) {
        EXPECT_EQ(scm.checkIfPCIDevicesAreLocatedInSameChassis(std::get<0>(c), std::get<1>(c)), std::get<2>(c))
            << std::get<0>(c) << " " << std::get<1>(c);
    }

    EXPECT_FALSE(scm.isNVMeDeviceManagedByCPUStorageController(kNvme));
    EXPECT_TRUE(scm.isNVMeDeviceManagedByCPUStorageController("10000:01:00.0"));
    EXPECT_THROW(scm.isNVMeDeviceManagedByCPUStorageController("5e:00.0"), InvalidPCIAddressFormatException);
}

TEST(ChassisManagerStatic, PciAddressFormatsAndPchBays)
{
    int parts[4] = {0};
    ServerChassisManagerBase::extractPCIAddressElements("10000:5e:1f.7", &parts[0], &parts[1], &parts[2], &parts[3]);
    EXPECT_EQ(std::vector<int>(parts, parts + 4), (std::vector<int>{0x10000, 0x5e, 0x1f, 7}));
    for (const char* invalid : {"0000:5e:00:0", "000g:5e:00.0", "0000-5e:00.0", ""}) {
        EXPECT_FALSE(ServerChassisManagerBase::isPCIAddressFormatValid(invalid)) << invalid;
    }
    try {
        ServerChassisManagerBase::extractPCIAddressElements("5e:00.0", nullptr, nullptr, nullptr, nullptr);
        FAIL();
    } catch (const InvalidPCIAddressFormatException& e) {
        EXPECT_STREQ(e.what(), "Invalid PCI address format: [5e:00.0]");
    }

    // PCH SATA ports to the bays they are cabled to: port, box, bay.
    TRBChassisManager& trb = *TRBChassisManager::getInstance();
    for (const auto& c : {std::make_tuple(0, 1, 1), {7, 1, 8}, {0, 2, 2}, {4, 2, 1}}) {
        EXPECT_EQ(trb.mapPCHSATAControllerPortToStorageEnclosureDriveBay(std::get<0>(c), std::get<1>(c)),
                  std::get<2>(c));
    }
    try {
        trb.mapPCHSATAControllerPortToStorageEnclosureDriveBay(1, 2);
        FAIL();
    } catch (const InvalidPCHSATAPortException& e) {
        // Names the box, not the port.
        EXPECT_STREQ(e.what(), "Invalid PCH SATA/sSATA port #: [2]");
    }
    EXPECT_THROW(trb.mapPCHSATAControllerPortToStorageEnclosureDriveBay(0, 3), InvalidStorageEnclosureBoxException);
}

TEST_F(ChassisManagerTest, LmReadsIoSlotsOnly)
{
    IServerChassisManager& scm = on(2, {slot("Slot 4 r001u03p1i04", kCard), slot("LOM r001u03p1i00", kOnboard),
                                        slot("Slot 1 r001u05p1i01", kOtherChassis)});
    std::string slotText;
    EXPECT_EQ(scm.getPCIeSlotForIOSlot(kCard, slotText), 0);
    EXPECT_EQ(slotText, "04");
    EXPECT_EQ(scm.getPCIeSlotForIOSlot(kNoGeoID, slotText), -2);
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_OCP;
    EXPECT_EQ(scm.getPCIDeviceFormFactor(kOnboard, formFactor), 0);
    EXPECT_EQ(formFactor, VEK_FORM_FACTOR_ON_BOARD);
    EXPECT_EQ(scm.getPCIDeviceFormFactor(kNoGeoID, formFactor), -2);
    EXPECT_EQ(formFactor, VEK_FORM_FACTOR_UNKNOWN);
    EXPECT_EQ(scm.checkIfPCIDevicesAreLocatedInSameChassis(kCard, kOtherChassis), 1);
    EXPECT_EQ(scm.checkIfPCIDevicesAreLocatedInSameChassis(kCard, kNoGeoID), -2);
    EXPECT_FALSE(scm.isNVMeDeviceManagedByCPUStorageController("10000:01:00.0"));
    EXPECT_EQ(scm.findMonarchPCHAttachedStorageEnclosureBoxNumber(), 1);
    EXPECT_THROW(scm.mapPCHSATAControllerPortToStorageEnclosureDriveBay(0, 1), MethodNotImplementedException);
}

TEST_F(ChassisManagerTest, GqNwLocationSpellsUFromTheSecondElement)
{
    IServerChassisManager& scm = on(1, {slot("Slot 2 r001i05s02", kCard)});
    std::string text;
    EXPECT_EQ(scm.getPCIeSlotForIOSlot(kCard, text), 0);
    EXPECT_EQ(text, "02");
    EXPECT_EQ(scm.getChassisLocationForIOSlot(kCard, text), 0);
    EXPECT_EQ(text, "r001u05");
    _VEK_DEVICE_FORM_FACTOR formFactor = VEK_FORM_FACTOR_UNKNOWN;
    EXPECT_EQ(scm.getPCIDeviceFormFactor(kCard, formFactor), 0);
    EXPECT_EQ(formFactor, VEK_FORM_FACTOR_PCIE_CEM);
}

TEST_F(ChassisManagerTest, UnknownPlatformGetsTheMock)
{
    vekLogTail log(vekTestMainLogPath());
    IServerChassisManager& scm = on(-1, kTrbSlots);
    EXPECT_NE(dynamic_cast<MockServerChassisManager*>(&scm), nullptr);
    EXPECT_TRUE(log.contains("Unable to determine platform type [-1]. Mock server chassis manager will be used."));
    std::string text = "kept";
    EXPECT_EQ(scm.getChassisLocationForIOSlot(kCard, text), -4);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(scm.getPCIeSlotForIOSlot(kCard, text), -4);
    EXPECT_EQ(text, "0");
    EXPECT_EQ(scm.checkIfPCIDevicesAreLocatedInSameChassis(kCard, kCard), -3);
    EXPECT_THROW(scm.findMonarchPCHAttachedStorageEnclosureBoxNumber(), MethodNotImplementedException);
}

class MonarchBoxTest : public vekIPMITest::RmcCase {
};

TEST_F(MonarchBoxTest, HighestUbmBoxOfTheRmcsFruRecords)
{
    vekLocationTestHost host(root);
    vekPlatformServices& services = host.use(4, {});
    EXPECT_EQ(TRBChassisManager::getInstance()->findMonarchPCHAttachedStorageEnclosureBoxNumber(), -1);

    services.SetIPMISDRRepositoryCache(
        vekIPMI::SDRRepositoryCache::getInstance(vekIPMIService::getIPMIServiceInterface()));
    vekIPMITest::LogTail log;
    // The repository names UBM_BOX0_BP and UBM_BOX1_BP, and a power supply.
    EXPECT_EQ(TRBChassisManager::getInstance()->findMonarchPCHAttachedStorageEnclosureBoxNumber(), 1);
    EXPECT_TRUE(log.contains("    FRU SDR Device ID [PSU0]"));
    EXPECT_TRUE(log.contains("    Found storage enclosure box #[1] > last known box #[0]."));
}

} // namespace
