// The storage manager's thread, its readers and its stop; the adapter
// factory on a simulated sysfs tree.

#include "SASResourceManager.h"
#include "vekFactory.h"
#include "vekResourceIds.h"
#include "vekStorageControllerFactory.h"
#include "vekTestStorage.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <thread>
#include <vector>

namespace {

class SASResourceManagerTest : public vekRootTest {
protected:
    void SetUp() override
    {
        factory.add(new vekTestStorageController("0000:5e:00.0"));
        job = std::thread([this] { sas.init(events.services()); });
        ASSERT_TRUE(factory.steps.waitFor("discover-leave 1"));
        ASSERT_TRUE(vekEventually([this] { return sas.isInventoryReady(0); }));
    }
    void TearDown() override
    {
        factory.gate.release();
        if (job.joinable()) {
            sas.stopResourceManagerJob();
            job.join();
        }
    }

    // The controllers a reader gets now, and whether they are the previous copy.
    size_t controllers(bool& previous)
    {
        std::vector<Json::Value> inventory;
        previous = sas.getInventoryJsonObject2(SASResourceManager::CONTROLLERS, inventory);
        return inventory.size();
    }

    // A second build that stays inside its discovery until released.
    void holdNextBuild()
    {
        factory.gate.hold();
        factory.add(new vekTestStorageController("0000:af:00.0"));
        SASResourceManager::invalidateInventoryCache();
        ASSERT_TRUE(factory.steps.waitFor("discover-enter 2"));
    }

    vekStorageEventsHost events{root};
    vekTestStorageFactory factory;
    SASResourceManager& sas = SASResourceManager::getInstance();
    std::thread job;
};

TEST_F(SASResourceManagerTest, ReadersDuringABuildGetThePreviousCopyWithoutWaiting)
{
    EXPECT_EQ(vekFactory().createInstance(vekResourceIds::STORAGE), &sas);
    bool previous = true;
    EXPECT_EQ(controllers(previous), 1u);
    EXPECT_FALSE(previous);

    holdNextBuild();
    // The build is held inside its discovery: an answer now cannot have waited for it.
    EXPECT_EQ(controllers(previous), 1u);
    EXPECT_TRUE(previous);
    std::vector<Json::Value> none;
    EXPECT_FALSE(sas.getInventoryJsonObject2(7, none));
    EXPECT_TRUE(none.empty());

    factory.gate.release();
    EXPECT_TRUE(vekEventually([&] { return controllers(previous) == 2 && !previous; }));
    std::vector<Json::Value> inventory;
    sas.getInventoryJsonObject2(SASResourceManager::CONTROLLERS, inventory);
    EXPECT_EQ(inventory.at(1)["Type"].asString(), "Controller");
    EXPECT_EQ(inventory.at(1)["Data"]["Model"].asString(), "HBA 9500-16i SAS38xx");
    EXPECT_EQ(inventory.at(1)["Data"]["Protocol"].asString(), "SAS/SATA");
    EXPECT_TRUE(sas.isRunning());
}

TEST_F(SASResourceManagerTest, StopDuringABuildWaitsForTheBuild)
{
    holdNextBuild();
    vekLogTail log(vekTestMainLogPath());
    std::thread stopper([this] {
        sas.stopResourceManagerJob();
        factory.steps.record("stopped");
    });
    ASSERT_TRUE(vekWaitForLog(log, "Resource manager stop called"));
    factory.gate.release();
    stopper.join();
    job.join();
    EXPECT_TRUE(vekInOrder(factory.steps.all(), {"discover-leave 2", "shutdown", "stopped"}));
}

TEST_F(SASResourceManagerTest, TestEventsCarrySampleRecords)
{
    const struct {
        int id;
        const char* type;
    } cases[] = {{398, "Controller"}, {538, "Drive"}, {683, "Volume"}};
    for (const auto& c : cases) {
        EXPECT_TRUE(sas.generateTestEvent(c.id, "2A00000000000001", false));
    }
    EXPECT_FALSE(sas.generateTestEvent(434, "", false));
    const std::vector<Json::Value> sent = events.events(3);
    ASSERT_EQ(sent.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(sent[i]["ID"].asInt(), cases[i].id);
        EXPECT_EQ(sent[i]["PhysicalLocation"].asString(), "2A00000000000001");
        EXPECT_EQ(sent[i]["VariableData"]["Type"].asString(), cases[i].type);
        EXPECT_EQ(sent[i]["VariableData"]["EventInfo"].asString(), "Injected Event");
    }
}

class StorageFactoryTest : public vekRootTest {
protected:
    vekStorageEventsHost events{root};
    vekStorageControllerFactory factory;
};

TEST_F(StorageFactoryTest, AdaptersOfTheTableAreFoundLeaveAndReturn)
{
    vekWriteScsiHost(root, 2, "0000:5e:00.0", 0x1000, 0x00E6);
    vekWriteScsiHost(root, 3, "0000:af:00.0", 0x8086, 0x1234); // not a model of the table
    ASSERT_TRUE(factory.initialize(nullptr, nullptr));
    std::vector<IvekStorageController*> found;
    ASSERT_EQ(factory.discoverControllers(found), 1);
    IvekStorageController* adapter = found.at(0);
    EXPECT_EQ(adapter->getPciLocation(), "0000:5e:00.0");
    EXPECT_EQ(adapter->getPortVector(), std::vector<std::string>{"/sys/class/scsi_host/host2"});
    EXPECT_EQ(adapter->getHostNumberForControllerPort(0), 2);
    vekStorageControllerInfo info;
    ASSERT_EQ(adapter->discoverInventory(info), 0);
    EXPECT_EQ(info.getModel(), "HBA 9500-16i SAS38xx");
    EXPECT_EQ(info.getFirmwareVersion(), "24.00.00.00");
    EXPECT_EQ(info.getSerialNumber(), "SP20000000");
    EXPECT_EQ(info.getControllerPort(0).getOSInstanceName(), "mpt3sas");
    EXPECT_EQ(vekResourceStateMap[info.getState()], "Running");
    adapter->releaseReference();

    std::vector<IvekStorageController*> none;
    factory.getControllers(0, none);
    EXPECT_TRUE(none.empty());

    // The first look at the tree takes note only; a change is seen at the next.
    vekLogTail log(vekTestDebugLogPath());
    factory.poll();
    factory.poll();
    EXPECT_FALSE(log.contains("Detected change in SCSI hosts/device"));
    ASSERT_EQ(remove(root.hostPath("/sys/class/scsi_host/host2").c_str()), 0);
    factory.poll();
    EXPECT_TRUE(log.contains("Detected change in SCSI hosts/device"));

    found.clear();
    EXPECT_EQ(factory.discoverControllers(found), 0);
    vekWriteScsiHost(root, 2, "0000:5e:00.0", 0x1000, 0x00E6);
    ASSERT_EQ(factory.discoverControllers(found), 1);
    // The same object, with its history.
    EXPECT_EQ(found.at(0), adapter);
    EXPECT_FALSE(adapter->isRemoved());
    adapter->releaseReference();
    factory.shutdownFactory();
}

TEST_F(StorageFactoryTest, DisksAndTheEnclosureBehindTheAdapterAreFoundInTheirPlaces)
{
    vekWriteScsiHost(root, 2, "0000:5e:00.0", 0x1000, 0x00E6);
    vekWriteScsiDevice(root, 2, 0, "0000:5e:00.0", 0, 4, "WBN0A");
    vekWriteScsiDevice(root, 2, 8, "0000:5e:00.0", 13, 8, "ENC1");
    vekWriteScsiHost(root, 3, "0000:af:00.0", 0x1000, 0x0097);
    vekWriteScsiDevice(root, 3, 0, "0000:af:00.0", 0, 1, "OTHER");
    std::vector<IvekStorageController*> found;
    ASSERT_EQ(factory.discoverControllers(found), 2);
    IvekStorageController* adapter = found.at(0)->getPciLocation() == "0000:5e:00.0" ? found[0] : found[1];

    std::vector<vekDiskInfo> disks;
    ASSERT_EQ(adapter->discoverPhysicalDiskInventory(disks), 1);
    EXPECT_EQ(disks[0].getSerialNumber(), "WBN0A");
    EXPECT_EQ(disks[0].getSlot(), "4");
    EXPECT_EQ(disks[0].getEnclosureBox(), 1);
    // No generic device to ask: offline, and the text says why.
    EXPECT_EQ(vekResourceStateMap[disks[0].getState()], "Offline");
    EXPECT_EQ(disks[0].getEventInfoString(), "SCSI generic device for SCSI link 2:0:0:0 not available.");

    std::vector<vekStorageEnclosureInfo> enclosures;
    ASSERT_EQ(adapter->discoverStorageEnclosureInventory(enclosures), 1);
    EXPECT_EQ(enclosures[0].getSerialNumber(), "ENC1");
    EXPECT_EQ(enclosures[0].getBayCount(), 8);
    EXPECT_EQ(enclosures[0].getBox(), 1);
    EXPECT_EQ(enclosures[0].getControllerPCILocation(), "0000:5e:00.0");
    for (IvekStorageController* controller : found) {
        controller->releaseReference();
    }
    factory.shutdownFactory();
}

} // namespace
