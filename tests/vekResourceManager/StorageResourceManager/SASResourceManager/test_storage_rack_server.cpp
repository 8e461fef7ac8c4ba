// The storage manager on the bundled rack server with its disks served by the
// disk emulator: the inventory, and a disk that fails, recovers, is swapped,
// leaves and comes back, as the RMC receives it.

#include "SASResourceManager.h"
#include "vekBundledProfile.h"
#include "vekDiskEmulator.h"
#include "vekTestStorage.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

class StorageOnTheRackServerTest : public vekRootTest {
protected:
    void SetUp() override
    {
        storage = vekRecordingChannel::parse(vekBundledProfileFile("sim/disks.json"));
        ASSERT_TRUE(storage.isObject()) << "the profile describes no storage";
        // Ten-second polls in a tenth of a second.
        setenv("VEK_TIME_SCALE", "100", 1);
        ASSERT_NO_FATAL_FAILURE(vekCopyBundledProfile(root));
        // The HBA alone: without their scenarios the SmartRAID and MegaRAID
        // libraries see no controller.
        std::remove(root.hostPath("/sim/libstoragecore.json").c_str());
        std::remove(root.hostPath("/sim/libstorelib.json").c_str());
        disks.reset(new vekDiskEmulator(root.path()));
        events.reset(new vekStorageEventsHost(root, false));
        job = std::thread([this] { sas.init(events->services()); });
    }
    void TearDown() override
    {
        if (job.joinable()) {
            sas.stopResourceManagerJob();
            job.join();
        }
    }

    // The emulator changes the description and the sysfs tree in one step.
    void set(const std::string& id, const std::string& assignment) { disks->set(id, {assignment}); }

    // The first SAS disk of the description.
    Json::Value sasDisk(int skip = 0)
    {
        for (const Json::Value& device : storage["devices"]) {
            if (device.get("deviceType", 0).asInt() == 0 && device.get("transport", "SAS").asString() == "SAS" &&
                skip-- == 0) {
                return device;
            }
        }
        return Json::Value();
    }

    std::vector<Json::Value> inventory(int type)
    {
        std::vector<Json::Value> items;
        sas.getInventoryJsonObject2(type, items);
        return items;
    }
    Json::Value drive(const std::string& serial)
    {
        for (const Json::Value& item : inventory(SASResourceManager::DRIVES)) {
            if (item["Data"]["SerialNumber"].asString() == serial) {
                return item;
            }
        }
        return Json::Value();
    }
    // The event with that number for that disk, waited for.
    Json::Value event(int id, const std::string& serial, size_t skip = 0)
    {
        Json::Value found;
        vekEventually([&] {
            size_t seen = 0;
            for (const Json::Value& sent : events->events()) {
                if (sent["ID"].asInt() == id && sent["VariableData"]["Data"]["SerialNumber"].asString() == serial &&
                    seen++ == skip) {
                    found = sent;
                    return true;
                }
            }
            return false;
        });
        return found;
    }

    Json::Value storage;
    std::unique_ptr<vekDiskEmulator> disks;
    std::unique_ptr<vekStorageEventsHost> events;
    SASResourceManager& sas = SASResourceManager::getInstance();
    std::thread job;
};

TEST_F(StorageOnTheRackServerTest, DisksFailRecoverAreSwappedLeaveAndComeBack)
{
    // Six disks behind the HBA of slot 4, two on the chipset's SATA controller.
    ASSERT_TRUE(vekEventually([&] { return inventory(SASResourceManager::DRIVES).size() == 8; }));
    const std::vector<Json::Value> controllers = inventory(SASResourceManager::CONTROLLERS);
    ASSERT_EQ(controllers.size(), 2u);
    for (const Json::Value& controller : controllers) {
        if (controller["Data"]["Oem"]["Description"].asString().find("0000:a8:00.0") != std::string::npos) {
            EXPECT_EQ(controller["EventInfo"].asString(), "The storage controller port(s) are now online.");
        }
    }
    EXPECT_EQ(inventory(SASResourceManager::ENCLOSURES).size(), 1u);

    const Json::Value disk = sasDisk();
    const std::string id = disk["id"].asString(), serial = disk["serial"].asString();
    set(id, "health=failed");
    const std::string failed = "Failed to read Informational Exceptions log page from disk drive.";
    const Json::Value fault = event(538, serial);
    EXPECT_EQ(fault["VariableData"]["EventInfo"].asString(), failed);
    // Its bay: a drive behind the card of slot 4, box 1, the description's bay.
    EXPECT_EQ(disk["bay"].asInt(), 1);
    EXPECT_EQ(fault["PhysicalLocation"].asString(), "3B0103010101FF04");
    EXPECT_TRUE(vekEventually([&] { return drive(serial)["EventInfo"].asString() == failed; }));

    set(id, "health=ok");
    EXPECT_EQ(event(540, serial)["VariableData"]["EventInfo"].asString(), "");

    // Another disk in the same bay.
    set(id, "serial=ZZSWAP0001");
    EXPECT_EQ(event(538, serial, 1)["VariableData"]["EventInfo"].asString(),
              "Detected change in disk serial number (Current serial number: ZZSWAP0001; Last known serial number: " +
                  serial + ").");
    EXPECT_FALSE(event(540, "ZZSWAP0001").isNull());

    // A disk leaves and comes back.
    const std::string other = sasDisk(1)["id"].asString(), otherSerial = sasDisk(1)["serial"].asString();
    set(other, "present=false");
    EXPECT_FALSE(event(538, otherSerial).isNull());
    set(other, "present=true");
    EXPECT_FALSE(event(540, otherSerial).isNull());
    // Between two builds: a build that outlasts the readiness check's three
    // looks (a loaded machine, two controllers) is no fault.
    EXPECT_TRUE(vekEventually([&] { return sas.isRunning(); }));
}

} // namespace

