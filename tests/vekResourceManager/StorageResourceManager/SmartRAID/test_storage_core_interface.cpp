// Binding the SmartRAID management libraries, and what each way of failing
// leaves behind.

#include "vekSmartRAIDTestHost.h"
#include "vekStorageCoreInterface.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

namespace {

class StorageCoreInterfaceTest : public vekRootTest {
protected:
    vekLogTail log{vekTestMainLogPath()};
};

} // namespace

TEST_F(StorageCoreInterfaceTest, ALibraryThatCannotBeBoundLeavesOneLineAndNoControllers)
{
    vekSmartRAIDTestHost host(root);
    const std::string broken = std::string(VEK_BINARY_DIR) + "/testtools/lib/broken/libstoragecore.so";
    const struct {
        const char* what;
        const char* hostLibrary;
        std::string coreLibrary;
        const char* line;
    } cases[] = {
        {"no host library", "libnosuchhostcore.so", "libstoragecore.so",
         "Failed to load syscore host library to monitor SmartRAID devices: ("},
        {"no storage library", "libvekhostcore.so", "libnosuchstoragecore.so",
         "Failed to load storage core library to monitor SmartRAID devices: ("},
        {"a symbol missing", "libvekhostcore.so", broken,
         "Failed to find symbol [SA_GetStorageEnclosureStatusInfo] in the SmartRAID management libraries"},
    };
    for (const auto& c : cases) {
        vekLogTail tail(vekTestMainLogPath());
        vekStorageCoreInterface sci(c.hostLibrary, c.coreLibrary);
        EXPECT_FALSE(sci.Initialize()) << c.what;
        EXPECT_FALSE(sci.isInitialized()) << c.what;
        sci.cacheBuild();
        EXPECT_TRUE(sci.getControllerCollection().empty()) << c.what;
        EXPECT_EQ(vekOccurrences(tail.newText(), c.line), 1u) << c.what << ":\n" << tail.newText();
        EXPECT_FALSE(tail.contains("Successfully initialized")) << c.what;
    }
}

TEST_F(StorageCoreInterfaceTest, AStorageLibraryThatRefusesToStartEmptiesTheFamily)
{
    vekSmartRAIDTestHost host(root);
    host.scenario["failInitialize"] = true;
    host.write();
    std::vector<IvekStorageController*> controllers;
    auto& factory = vekSmartRAIDControllerFactory::getInstance();
    EXPECT_LT(factory.discoverControllers(controllers), 0);
    EXPECT_TRUE(controllers.empty());
    EXPECT_EQ(vekOccurrences(log.newText(), "Failed to initialize storage core library. (ret: 0x01)"), 1u) << log.newText();
    EXPECT_EQ(vekOccurrences(log.newText(), "Failed to initialize SmartRAID library."), 1u);

    // The next build tries again, and then finds the controller.
    host.scenario["failInitialize"] = false;
    host.write();
    EXPECT_EQ(host.discover(false).size(), 1u);
    EXPECT_TRUE(log.contains("Successfully initialized management libraries for SmartRAID devices."));
}

TEST_F(StorageCoreInterfaceTest, ACDAThatFailsSkipsOnlyItsController)
{
    vekSmartRAIDTestHost host(root);
    Json::Value second = vekSmartRAIDTestController("0000:e7:00.0");
    second["fail"].append("cda");
    host.scenario["controllers"].append(second);
    host.write();
    vekStorageCoreInterface sci;
    ASSERT_TRUE(sci.Initialize());
    sci.cacheBuild();
    const auto controllers = sci.getControllerCollection();
    ASSERT_EQ(controllers.size(), 1u);
    EXPECT_EQ(controllers[0]->pciLocation, "0:230:0.0");
    EXPECT_NE(sci.getControllerAt("0:230:0.0"), nullptr);
    EXPECT_EQ(sci.getControllerAt("0:231:0.0"), nullptr);
    EXPECT_EQ(vekOccurrences(log.newText(), "Failed to initialize CDA for handle 0x"), 1u) << log.newText();
    EXPECT_TRUE(log.contains("(ret: 0x1)"));

    // A rebuild keeps the known controller's entry, and so its CDA.
    sci.cacheBuild();
    ASSERT_EQ(sci.getControllerCollection().size(), 1u);
    EXPECT_EQ(sci.getControllerCollection()[0], controllers[0]);
}

TEST_F(StorageCoreInterfaceTest, ACacheLockHeldPastItsTriesGivesAnEmptyList)
{
    vekSmartRAIDTestHost host(root);
    // Three tries of 2 s of the host's time, each at its floor here.
    setenv("VEK_TIME_SCALE", "40", 1);
    vekStorageCoreInterface sci;
    ASSERT_TRUE(sci.Initialize());
    sci.cacheBuild();
    ASSERT_EQ(sci.getControllerCollection().size(), 1u);
    ASSERT_TRUE(sci.try_cache_lock());
    std::vector<SCI_CONTROLLER_METADATA_PTR> seen{nullptr};
    std::thread reader([&] { seen = sci.getControllerCollection(); });
    reader.join();
    sci.cache_unlock();
    unsetenv("VEK_TIME_SCALE");
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(vekOccurrences(log.newText(), "Failed to acquire lock."), 3u);
    EXPECT_EQ(sci.getControllerCollection().size(), 1u);
}
