// The storage records as the RMC reads them: the JSON of each kind, members
// of a logical disk, and the ownership of its consistency check states.

#include "Logger.h"
#include "vekDiskInfo.h"
#include "vekLog.h"
#include "vekLogicalDiskConsistencyCheckStateBase.h"
#include "vekLogicalDiskInfo.h"
#include "vekStorageControllerInfo.h"
#include "vekStorageEnclosureInfo.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

std::string compact(const Json::Value& value)
{
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, value);
}

vekDiskInfo sampleDisk(const std::string& serial, const std::string& slot)
{
    vekDiskInfo disk;
    disk.setSerialNumber(serial);
    disk.setPartNumber("PN-D");
    disk.setSparePartNumber("SP-D");
    disk.setSkuPartNumber("SKU-D");
    disk.setModel("ST4000NM");
    disk.setCapacityBytes(4000787030016ULL); // past 32 bits
    disk.setProtocol("SAS");
    disk.setMediaType("HDD");
    disk.setRevision("E004");
    disk.setManufacturer("SEAGATE");
    disk.setSlot(slot);
    disk.setPhysicalLocation("00000000000000B1");
    disk.setDecodedPhysicalLocation("r001u01p0d01");
    disk.setEventInfoString("Drive inserted");
    disk.setState(VEK_STATE_ONLINE);
    return disk;
}

// A state a controller family keeps, counting its live instances.
class CountedCCState : public vekLogicalDiskConsistencyCheckStateBase {
public:
    static int live;
    explicit CountedCCState(int id) : id(id) { ++live; }
    CountedCCState(const CountedCCState& other) : vekLogicalDiskConsistencyCheckStateBase(other), id(other.id) { ++live; }
    ~CountedCCState() override { --live; }
    std::unique_ptr<vekLogicalDiskConsistencyCheckStateBase> clone() const override
    {
        return std::make_unique<CountedCCState>(*this);
    }
    int id;
};
int CountedCCState::live = 0;

int idOf(const vekLogicalDiskConsistencyCheckStateBase* state)
{
    return state == nullptr ? -1 : static_cast<const CountedCCState*>(state)->id;
}

TEST(StorageRecordsTest, EachKindRendersAsTheRmcReadsIt)
{
    // The suite logs at the debug level, so an enclosure shows its counts.
    ASSERT_TRUE(vekLog::debugEnabled(CPlusPlusLogging::Logger::getInstance()));

    vekStorageControllerInfo controller;
    controller.setDeviceName("vmhba2");
    controller.setModel("MegaRAID 9560-8i");
    controller.setSerialNumber("SK01");
    controller.setPartNumber("PN-C");
    controller.setSparePartNumber("SP-C");
    controller.setSkuPartNumber("SKU-C");
    controller.setFirmwareVersion("5.200");
    controller.setProtocol("SAS/SATA");
    controller.setManufacturer("Broadcom");
    controller.setPhysicalLocation("00000000000000A1");
    controller.setDescription("PCI 0000:5e:00.0");
    controller.setEventInfoString("Controller found");
    controller.addControllerPort(vekStorageControllerPortInfo());

    const vekDiskInfo disk = sampleDisk("ZC1", "3");
    vekDiskStatusInfo diskStatus;
    diskStatus.setState(VEK_STATE_FAILED);
    diskStatus.setHealth(VEK_HEALTH_CRITICAL);

    vekLogicalDiskInfo volume;
    volume.setDurableName("600605b0");
    volume.setRAIDLevel("RAID1");
    volume.setCapacityBytes(5000000000ULL);
    volume.addPhysicalDisk("ZC1");
    volume.addPhysicalDisk("ZC2");
    volume.setDeviceName("naa.600605b0");
    volume.setHostControllerPhysicalLocation("00000000000000A1");
    volume.setEventInfoString("Volume created");

    vekLogicalDiskExtInfo extVolume;
    extVolume.setDurableName("600605b0");
    extVolume.setRAIDLevel("RAID0");
    extVolume.setCapacityBytes(7);
    extVolume.addPhysicalDisk(disk);
    extVolume.setDeviceName("naa.600605b0");
    extVolume.setHostControllerPhysicalLocation("00000000000000A1");
    extVolume.setEventInfoString("CC done");

    vekStorageEnclosureInfo enclosure;
    enclosure.setFirmwareVersion("0.6");
    enclosure.setModel("UBM");
    enclosure.setType("Backplane");
    enclosure.setPartNumber("PN-E");
    enclosure.setSerialNumber("BP7");
    enclosure.setBox(2);
    enclosure.setBayCount(8);
    enclosure.setSegmentCount(1);
    enclosure.setPhysicalLocation("00000000000000C1");
    enclosure.setState(VEK_STATE_DEGRADED);
    enclosure.setHealth(VEK_HEALTH_WARNING);

    const std::string diskData =
        R"({"CapacityBytes":4000787030016,"Manufacturer":"SEAGATE","MediaType":"HDD","Model":"ST4000NM",)"
        R"("Oem":{"DecodedPhysicalLocation":"r001u01p0d01","PhysicalLocation":"00000000000000B1","Slot":"3"},)"
        R"("PartNumber":"PN-D","Protocol":"SAS","Revision":"E004","SKU":"SKU-D","SerialNumber":"ZC1",)"
        R"("SparePartNumber":"SP-D"})";
    const std::string enclosureOem =
        R"({"BayCount":"8","Box":2,"PhysicalLocation":"00000000000000C1","SegmentCount":"1"})";

    const struct {
        const char* what;
        Json::Value json;
        std::string expected;
    } cases[] = {
        {"controller", controller.getVariableData(),
         R"({"Data":{"FirmwareVersion":"5.200","Manufacturer":"Broadcom","Model":"MegaRAID 9560-8i",)"
         R"("Oem":{"Description":"PCI 0000:5e:00.0","PhysicalLocation":"00000000000000A1"},"PartNumber":"PN-C",)"
         R"("Protocol":"SAS/SATA","SKU":"SKU-C","SerialNumber":"SK01","SparePartNumber":"SP-C"},)"
         R"("EventInfo":"Controller found","Type":"Controller"})"},
        {"controller inventory", controller.getInventoryData(), "null"},
        {"port", controller.getControllerPort(0).getVariableData(), "null"},
        {"port inventory", controller.getControllerPort(0).getInventoryData(), "null"},
        {"disk", disk.getVariableData(), R"({"Data":)" + diskData + R"(,"EventInfo":"Drive inserted","Type":"Drive"})"},
        {"disk flat", disk.getPDVarData(), diskData},
        {"disk inventory", disk.getInventoryData(), "null"},
        {"disk status", diskStatus.getVariableData(), R"({"Health":"Critical","State":"Failed"})"},
        {"disk status inventory", diskStatus.getInventoryData(), "null"},
        {"volume", volume.getVariableData(),
         R"({"Data":{"CapacityBytes":5000000000,"Drives":["ZC1","ZC2"],"DurableName":"600605b0",)"
         R"("Oem":{"DeviceName":"naa.600605b0","HostControllerPhysicalLocation":"00000000000000A1"},)"
         R"("VolumeType":"RAID1"},"EventInfo":"Volume created","Type":"Volume"})"},
        {"volume inventory", volume.getInventoryData(), "null"},
        {"volume with disks", extVolume.getVariableData(),
         R"({"Data":{"CapacityBytes":7,"Drives":[)" + diskData + R"(],"DurableName":"600605b0",)"
         R"("Oem":{"DeviceName":"naa.600605b0","HostControllerPhysicalLocation":"00000000000000A1"},)"
         R"("VolumeType":"RAID0"},"EventInfo":"CC done","Type":"Volume"})"},
        {"volume with disks inventory", extVolume.getInventoryData(), "null"},
        {"enclosure", enclosure.getVariableData(),
         R"({"Data":{"FirmwareVersion":"0.6","Model":"UBM","Oem":)" + enclosureOem +
             R"(,"PartNumber":"PN-E","SerialNumber":"BP7","Type":"Backplane"},"EventInfo":"","Type":"StorageEnclosure"})"},
        {"enclosure inventory", enclosure.getInventoryData(),
         R"({"FirmwareVersion":"0.6","Model":"UBM","Oem":)" + enclosureOem +
             R"(,"PartNumber":"PN-E","SerialNumber":"BP7","Status":{"Health":"Warning","State":"Degraded"},)"
             R"("Type":"Backplane"})"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(compact(c.json), c.expected) << c.what;
    }
}

TEST(StorageRecordsTest, RenderingFollowsTheGetters)
{
    class RenumberedEnclosure : public vekStorageEnclosureInfo {
    public:
        int getBox() const override { return 5; }
        VEK_RESOURCE_HEALTH getHealth() const override { return VEK_HEALTH_CRITICAL; }
    };
    RenumberedEnclosure enclosure;
    EXPECT_EQ(compact(enclosure.getInventoryData()["Oem"]),
              R"({"BayCount":"0","Box":5,"PhysicalLocation":"","SegmentCount":"0"})");
    EXPECT_EQ(compact(enclosure.getInventoryData()["Status"]), R"({"Health":"Critical","State":"Unknown"})");

    class RenamedDisk : public vekDiskInfo {
    public:
        std::string getSlot() const override { return "Bay 4"; }
    };
    EXPECT_EQ(RenamedDisk().getVariableData()["Data"]["Oem"]["Slot"], Json::Value("Bay 4"));
}

TEST(StorageRecordsTest, ListsGrowByTheirFirstElementAndIgnoreDeletesPastTheEnd)
{
    vekLogicalDiskInfo volume;
    EXPECT_FALSE(volume.getVariableData()["Data"].isMember("Drives"));

    volume.setPhysicalDiskVector({"A", "B", "C"});
    volume.deletePhysicalDisk(3);
    volume.setPhysicalDisk(7, "X");
    EXPECT_EQ(volume.getPhysicalDiskVector(), (std::vector<std::string>{"A", "B", "C"}));
    volume.deletePhysicalDisk(1);
    volume.setPhysicalDisk(1, "D");
    EXPECT_EQ(compact(volume.getVariableData()["Data"]["Drives"]), R"(["A","D"])");

    vekStorageControllerInfo controller;
    vekStorageControllerPortInfo port;
    port.setOSInstanceName("vmhba2");
    controller.addControllerPort(port);
    port.setOSInstanceName("vmhba3");
    controller.addControllerPort(port);
    controller.deleteControllerPort(2);
    ASSERT_EQ(controller.getControllerPortListSize(), 2u);
    controller.deleteControllerPort(0);
    ASSERT_EQ(controller.getControllerPortListSize(), 1u);
    EXPECT_EQ(controller.getControllerPort(0).getOSInstanceName(), "vmhba3");
}

TEST(StorageRecordsTest, CopiesOfALogicalDiskOwnTheirConsistencyCheckStates)
{
    {
        auto original = std::make_unique<vekLogicalDiskInfo>();
        original->setDurableName("LD0");
        original->setCurrentCCState(std::make_unique<CountedCCState>(1));
        original->setPreviousCCState(std::make_unique<CountedCCState>(2));

        vekLogicalDiskInfo copy(*original);
        EXPECT_EQ(CountedCCState::live, 4);
        EXPECT_NE(copy.getCurrentCCState(), original->getCurrentCCState());

        // Assignment releases what the target held; a null source stays null.
        vekLogicalDiskInfo assigned;
        assigned.setCurrentCCState(std::make_unique<CountedCCState>(9));
        assigned = *original;
        EXPECT_EQ(CountedCCState::live, 6);
        vekLogicalDiskInfo empty;
        empty.setPreviousCCState(std::make_unique<CountedCCState>(8));
        empty = vekLogicalDiskInfo();
        EXPECT_EQ(empty.getPreviousCCState(), nullptr);
        EXPECT_EQ(CountedCCState::live, 6);

        original.reset();
        EXPECT_EQ(CountedCCState::live, 4);
        EXPECT_EQ(copy.getDurableName(), "LD0");
        EXPECT_EQ(idOf(copy.getCurrentCCState()), 1);
        EXPECT_EQ(idOf(copy.getPreviousCCState()), 2);
        EXPECT_EQ(idOf(assigned.getCurrentCCState()), 1);

        std::vector<vekLogicalDiskInfo> cache{copy, assigned};
        EXPECT_EQ(CountedCCState::live, 8);
    }
    EXPECT_EQ(CountedCCState::live, 0);
}

} // namespace
