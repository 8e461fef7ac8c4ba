// The FC adapters of the bundled rack server as the OS interface reads them:
// the fake vendor libraries through the common HBA library, joined with the
// fake localcli's outputs; and what each kind of bad output or failing vendor
// call makes of them.

#include "FCResourceManager/vekFCInterface.h"
#include "vekBundledProfile.h"
#include "vekLocationTestHost.h"
#include "vekOSInterface.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

class FCVMwareInterfaceTest : public vekRootTest {
protected:
    void SetUp() override
    {
        restoreProfile();
        root.makeDirectory("/opt/zolvek/tmp");
        host.services();
        os = vekSystemInterfaceFactory::getSystemInterface();
        ASSERT_NE(os, nullptr);
        fc = os->getFCInterface();
    }

    void restoreProfile() { vekCopyBundledProfile(root); }

    std::vector<std::string> names()
    {
        std::vector<std::string> found;
        fc->populateFCInstances(found);
        return found;
    }

    // Replaces a text of the first adapter in a vendor's scenario.
    void editScenario(const std::string& library, const std::string& from, const std::string& to)
    {
        const std::string file = "/sim/" + library + ".json";
        std::string text = root.readFile(file);
        const size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        root.writeFile(file, text.replace(at, from.size(), to));
    }

    vekLocationTestHost host{root};
    vekOSInterface* os = nullptr;
    vekFCInterface* fc = nullptr;
};

// Each fault of the host's outputs or of a vendor call, and the adapters
// that are then listed; adapters without an OS name all stand under one name.
TEST_F(FCVMwareInterfaceTest, FaultsOfTheOutputsAndOfTheVendorCalls)
{
    const std::string injected = root.hostPath("/injected");
    struct Case {
        const char* what;
        const char* words;   // a localcli output to replace, or a vendor library's scenario
        std::string from;
        std::string to;
        std::vector<std::string> names;
    } cases[] = {
        {"alias list without its header", "device alias list", "Bus type  Bus address                 Alias", "Bus",
         {"NotAvailable"}},
        {"alias list with an extra column", "device alias list", "pci       p0000:d8:00.0               vmhba4",
         "pci  x  p0000:d8:00.0  vmhba4  more", {"vmhba2", "vmhba3", "vmhba4", "vmhba5"}},
        {"alias of an adapter without its address column", "device alias get -n vmhba4", "pci       0000:d8:00.0",
         "pci", {"vmhba2", "vmhba3", "NotAvailable", "vmhba5"}},
        {"a name from the host that is a command", "device alias list", "vmhba5\n",
         "vmhba5\npci  p0000:99:00.0  vmhba9$(touch${IFS}" + injected + ")\n", {"vmhba2", "vmhba3", "vmhba4", "vmhba5"}},
        {"SAN list missing a node name", "storage san fc list", "   Node Name: 20:00:f4:c7:aa:1c:35:e0\n", "",
         {"NotAvailable"}},
        {"a vendor's attributes failing for one adapter", "libfakehba_emulex", "\"name\": \"lpfc-LPe35002-M2-0\",",
         "\"name\": \"lpfc-LPe35002-M2-0\", \"fail\": \"attributes\",", {"vmhba2", "vmhba3", "vmhba5"}},
        {"a vendor's open failing for one adapter", "libfakehba_qlogic", "\"name\": \"qlnativefc-0\",",
         "\"name\": \"qlnativefc-0\", \"fail\": \"open\",", {"vmhba3", "vmhba4", "vmhba5"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string words = c.words;
        if (words.compare(0, 10, "libfakehba") == 0) {
            editScenario(words, c.from, c.to);
        } else {
            std::string file = words;
            for (char& ch : file) {
                ch = ch == ' ' ? '_' : ch;
            }
            std::string text = root.readFile("/sim/cli/" + file + ".txt");
            const size_t at = text.find(c.from);
            ASSERT_NE(at, std::string::npos);
            root.writeCliOutput(words, text.replace(at, c.from.size(), c.to));
        }
        EXPECT_EQ(names(), c.names);
        restoreProfile();
    }
    EXPECT_FALSE(root.exists("/injected"));
    // Every adapter is back once the outputs are.
    EXPECT_EQ(names().size(), 4u);
}

// The first port's state as the vendor gives it, and the status it makes.
TEST_F(FCVMwareInterfaceTest, PortStatesGiveStateAndHealth)
{
    ASSERT_EQ(names().size(), 4u);
    const struct {
        const char* portState;
        VEK_RESOURCE_STATE state;
        VEK_RESOURCE_HEALTH health;
    } cases[] = {
        {"Online", VEK_STATE_ONLINE, VEK_HEALTH_OK},
        {"Offline", VEK_STATE_OFFLINE, VEK_HEALTH_WARNING},
        {"Bypassed", VEK_STATE_BYPASSED, VEK_HEALTH_WARNING},
        {"Diagnostics", VEK_STATE_DIAGNOSTIC_MODE, VEK_HEALTH_WARNING},
        {"Loopback", VEK_STATE_LOOPBACK, VEK_HEALTH_WARNING},
        {"Linkdown", VEK_STATE_LINKDOWN, VEK_HEALTH_CRITICAL},
        {"Error", VEK_STATE_ERROR, VEK_HEALTH_CRITICAL},
        {"Unknown", VEK_STATE_UNKNOWN, VEK_HEALTH_UNKNOWN},
    };
    std::string current = "Online";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.portState);
        editScenario("libfakehba_qlogic", "\"PortState\": \"" + current + "\"",
                     "\"PortState\": \"" + std::string(c.portState) + "\"");
        current = c.portState;
        FCDeviceInfo info;
        fc->discoverFCStatusInfo("vmhba2", info);
        EXPECT_EQ(info.getStatusJson()["State"].asString(), vekResourceStateMap[c.state]);
        EXPECT_EQ(info.getStatusJson()["Health"].asString(), vekResourceHealthMap[c.health]);
    }
}

} // namespace
