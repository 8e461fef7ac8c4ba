// The service executable as a real process on a copy of the bundled rack
// server: start, stop on SIGTERM, the start-stop file and the log lines.

#include "vekDiskEmulator.h"
#include "vekRmcEmulator.h"
#include "vekTestRoot.h"

#include <json/json.h>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string readAll(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class VekdTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        VEK_REQUIRE_RMC_EMULATOR();
        rmc_.reset(new vekRmcEmulator());
        host_ = vekTestTemporaryFolder("vekd-host");
        const std::string make = std::string("sh '") + VEK_SIMHOST_DIR + "/mkhost.sh' '" + VEK_SIMHOST_DIR +
                                 "/profiles/rack-type4' '" + host_ + "'";
        ASSERT_EQ(system(make.c_str()), 0);
    }

    void TearDown() override
    {
        if (host_.empty()) {
            return;
        }
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        const std::string remove = "rm -rf '" + host_ + "'";
        EXPECT_EQ(system(remove.c_str()), 0);
    }

    // Starts vekd on the host; bootTime, when not 0, is the host's boot time.
    void start(long bootTime = 0)
    {
        pid_ = fork();
        ASSERT_GE(pid_, 0);
        if (pid_ == 0) {
            setenv("VEK_ROOT", host_.c_str(), 1);
            setenv("PATH", (host_ + "/bin:" + getenv("PATH")).c_str(), 1);
            setenv("VEK_TIME_SCALE", "1000", 1);
            if (bootTime != 0) {
                setenv("VEK_SIM_BOOT_TIME", std::to_string(bootTime).c_str(), 1);
            } else {
                unsetenv("VEK_SIM_BOOT_TIME");
            }
            if (freopen((host_ + "/vekd.stderr").c_str(), "w", stderr) == nullptr) {
                _exit(126);
            }
            const std::string program = std::string(VEK_BINARY_DIR) + "/src/vekd";
            execl(program.c_str(), "vekd", static_cast<char*>(nullptr));
            _exit(127);
        }
    }

    // Waits for the text to appear in what the main log gained since tail began.
    bool waitForLog(const vekLogTail& tail, const std::string& text)
    {
        return vekEventually([&] { return tail.contains(text); });
    }

    // Sends the signal and returns how the process ended.
    int stop(int signal)
    {
        kill(pid_, signal);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

    std::string mainLogPath() const { return host_ + "/scratch/log/zolvek/vek.log"; }
    std::string debugLogPath() const { return host_ + "/scratch/log/zolvek/vek-debug.log"; }
    std::string mainLog() const { return readAll(mainLogPath()); }
    std::string debugLog() const { return readAll(debugLogPath()); }

    std::map<std::string, long> startStopValues() const
    {
        std::map<std::string, long> values;
        std::istringstream in(readAll(host_ + "/opt/zolvek/vital/zolVEKStartStop.txt"));
        std::string key;
        long value = 0;
        while (in >> key >> value) {
            values[key] = value;
        }
        return values;
    }

    // Waits for a command in the emulated RMC's spool.
    bool waitForCommand(const std::string& name, vekRmcEmulator::Command& found)
    {
        return vekEventually(
            [&] {
                for (const auto& command : rmc_->spooledCommands()) {
                    if (command.name == name) {
                        found = command;
                        return true;
                    }
                }
                return false;
            },
            std::chrono::seconds(60));
    }

    std::unique_ptr<vekRmcEmulator> rmc_;
    std::string host_;
    pid_t pid_ = -1;
};

// One life of the service on the rack server: start, the host's inventory
// at the RMC, a graceful stop in order, the start-stop file and the logs.
TEST_F(VekdTest, StartsSendsTheInventoryAndStopsGracefully)
{
    const long before = static_cast<long>(time(nullptr));
    vekLogTail tail(mainLogPath());
    start();
    ASSERT_TRUE(waitForLog(tail, "VEK service started")) << mainLog();
    // The PCI list is a scratch file: there while the service runs, gone
    // after a clean stop.
    const std::string scratch = host_ + "/opt/zolvek/tmp/vek_hwlist.txt";
    EXPECT_EQ(access(scratch.c_str(), F_OK), 0);
    vekRmcEmulator::Command inventory;
    ASSERT_TRUE(waitForCommand("WriteInventory", inventory)) << mainLog();
    const int status = stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    Json::Value document;
    std::istringstream in(inventory.payload);
    std::string errors;
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &document, &errors)) << errors;
    const Json::Value& oem = document["HostDataCollection"]["Oem"];
    EXPECT_FALSE(oem["HostOSInfo"]["HostName"].asString().empty()) << inventory.payload;
    EXPECT_TRUE(oem["CollectionInfo"].isObject()) << inventory.payload;
    // Compact text, as the RMC takes it.
    EXPECT_EQ(inventory.payload.find('\n'), std::string::npos);

    const std::string log = mainLog();
    EXPECT_NE(log.find("Stopped Json Aggregator gracefully."), std::string::npos) << log;
    EXPECT_NE(log.find("VEK Exiting Gracefully!"), std::string::npos) << log;
    EXPECT_NE(log.find("VEK service stopped"), std::string::npos) << log;
    // The test event server stops before the Resource Managers it calls.
    ASSERT_NE(log.find("Stopped VEK Server"), std::string::npos) << log;
    EXPECT_LT(log.find("Stopped VEK Server"), log.find("Stopping all RMs")) << log;
    // Every entry: time, level, thread number, source line, tag, text. A
    // text may go on over lines of its own (a JSON document after "\n").
    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ \[(INFO|DEBUG|WARNING|ERROR)\] +\d{3,} \d{3} [A-Z_]+: .*)");
    std::istringstream lines(log + debugLog());
    std::string each;
    size_t count = 0;
    while (std::getline(lines, each)) {
        // ...or a command's output quoted after "\n", its lines indented (mdadm's).
        if (each.find_first_not_of(' ') == std::string::npos || each[each.find_first_not_of(' ')] == '{' ||
            each[0] == ' ') {
            continue;
        }
        EXPECT_TRUE(std::regex_match(each, line)) << each;
        ++count;
    }
    EXPECT_GT(count, 5u);
    // On a Linux host the ids without a manager are listed and stay disabled.
    const std::string debug = debugLog();
    EXPECT_NE(debug.find("Resource manager InfiniBandDevices [6] is disabled."), std::string::npos);
    // The map of places of the rack server's slots, with the PLs of its encoder.
    for (const char* line : {"0000:16:00.0  r001u03p1i01        PCIe CEM   r001u03   03010301FF01FFFF",
                             "0000:2a:00.0  r001u03p1o1         OCP        r001u03   070103FFFFFFFFFF",
                             "0000:00:17.0  r001u03p1i00        on-board   r001u03   03010301FF00FFFF",
                             "0000:87:00.0  r001u03p1x1y02      SSD/HDD    -         460103010102FFFF"}) {
        EXPECT_NE(debug.find(std::string("LOCATION_MAP:        ") + line), std::string::npos) << line;
    }

    auto values = startStopValues();
    EXPECT_GE(values["last_start"], before);
    EXPECT_GE(values["last_stop"], values["last_start"]);
    EXPECT_EQ(values["current_start"], 0);
    EXPECT_NE(access(scratch.c_str(), F_OK), 0);
    EXPECT_NE(access((host_ + "/opt/zolvek/tmp/vek_nicAddDetails.txt").c_str(), F_OK), 0);
}

// The file keeps whole seconds, so each run here starts from a file written
// by the case rather than from runs that may share a second.
TEST_F(VekdTest, BootDecisionFollowsHowTheLastRunEnded)
{
    {
        SCOPED_TRACE("first start ever, then a crash");
        vekLogTail tail(mainLogPath());
        start();
        ASSERT_TRUE(waitForLog(tail, "VEK service started"));
        EXPECT_FALSE(tail.contains("Last shutdown was")) << tail.newText();
        EXPECT_TRUE(tail.contains("Last OS shutdown: ungraceful=0 graceful=0")) << tail.newText();
        stop(SIGKILL);
        auto values = startStopValues();
        EXPECT_GT(values["last_start"], values["last_stop"]);
    }
    struct Case {
        const char* name;
        const char* file;
        long bootTime;
        const char* decision;
        const char* flags;
        int bootEvent;  // the RMC's number of the boot event sent, 0 for none
    };
    const Case cases[] = {
        {"crash, restart in the same boot", "last_start 2000\nlast_stop 1000\ncurrent_start 0\n", 1500,
         "VEK crashed in current boot so do nothing in point 3", "ungraceful=0 graceful=0", 0},
        {"power loss", "last_start 2000\nlast_stop 1000\ncurrent_start 0\n", 3000,
         "In gen OS boot logic.Last shutdown was not-graceful.", "ungraceful=1 graceful=0", 435},
        {"graceful stop, then a reboot", "last_start 1000\nlast_stop 2000\ncurrent_start 0\n", 3000,
         "In gen OS boot logic.Last shutdown was graceful.", "ungraceful=0 graceful=1", 434},
        {"graceful stop, restart in the same boot", "last_start 1000\nlast_stop 2000\ncurrent_start 0\n", 1500,
         "VEK crashed in current boot so do nothing in point 2", "ungraceful=0 graceful=0", 0},
    };
    std::set<std::string> seenEvents;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::ofstream(host_ + "/opt/zolvek/vital/zolVEKStartStop.txt", std::ios::trunc) << c.file;
        vekLogTail tail(mainLogPath());
        const long before = static_cast<long>(time(nullptr));
        start(c.bootTime);
        ASSERT_TRUE(waitForLog(tail, "VEK service started"));
        EXPECT_TRUE(tail.contains(c.decision)) << tail.newText();
        EXPECT_TRUE(tail.contains(std::string("Last OS shutdown: ") + c.flags)) << tail.newText();
        EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
        // The boot event goes out before the first inventory, synchronously.
        std::vector<std::string> events;
        for (const auto& command : rmc_->spooledCommands()) {
            if (command.name == "MPEventGen" && seenEvents.insert(command.file).second) {
                events.push_back(command.payload);
            }
        }
        if (c.bootEvent == 0) {
            EXPECT_TRUE(events.empty());
        } else {
            ASSERT_EQ(events.size(), 1u);
            EXPECT_NE(events[0].find("\"ID\":" + std::to_string(c.bootEvent) + ","), std::string::npos) << events[0];
        }
        auto values = startStopValues();
        EXPECT_GE(values["last_start"], before);
        EXPECT_GE(values["last_stop"], values["last_start"]);
    }
}

// The road of one event: a port of the rack server loses its link and gets
// it back; the RMC hears of each once, in order, and nothing more.
TEST_F(VekdTest, PortDownAndBackReachTheRmcOnceEach)
{
    vekLogTail tail(mainLogPath());
    start();
    vekRmcEmulator::Command inventory;
    ASSERT_TRUE(waitForCommand("WriteInventory", inventory)) << mainLog();
    const std::string list = host_ + "/sim/cli/network_nic_list.txt";
    const std::string up = readAll(list);
    const std::string upRow = "vmnic0  0000:16:00.0  icen     Up            Up            25000";
    const std::string downRow = "vmnic0  0000:16:00.0  icen     Up            Down              0";
    ASSERT_NE(up.find(upRow), std::string::npos);
    auto write = [&](const std::string& text) { std::ofstream(list, std::ios::trunc) << text; };
    auto events = [&] {
        std::vector<int> ids;
        for (const auto& command : rmc_->spooledCommands()) {
            if (command.name == "MPEventGen") {
                Json::Value event;
                std::istringstream in(command.payload);
                std::string errors;
                if (Json::parseFromStream(Json::CharReaderBuilder(), in, &event, &errors)) {
                    ids.push_back(event["ID"].asInt());
                }
            }
        }
        return ids;
    };
    auto waitForEvents = [&](size_t count) {
        vekEventually([&] { return events().size() >= count; });
        return events();
    };

    std::string down = up;
    down.replace(down.find(upRow), upRow.size(), downRow);
    write(down);
    EXPECT_EQ(waitForEvents(1), std::vector<int>{1384});
    write(up);
    EXPECT_EQ(waitForEvents(2), (std::vector<int>{1384, 1390}));
    // Several more poll periods: nothing else.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(events(), (std::vector<int>{1384, 1390}));
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

// The storage of the rack server as the RMC receives it: the HBA of slot 4
// with its six disks and backplane in the inventory, and a disk that fails
// while the service runs: its 538 with the text, and the next inventory
// telling the same.
TEST_F(VekdTest, FailingDiskReachesTheRmcAsEventAndInInventory)
{
    // An inventory every ten minutes of the host's time (0.6 s here), so the
    // next one comes soon after the failure.
    const std::string config = host_ + "/opt/zolvek/vital/vek.conf";
    std::string text = readAll(config);
    text.insert(text.find('{') + 1, "\n  \"PushInventoryFrequencyInMinutes\": 10,");
    std::ofstream(config, std::ios::trunc) << text;
    vekDiskEmulator disks(host_);
    start();
    auto parse = [](const std::string& text) {
        Json::Value value;
        std::istringstream in(text);
        Json::parseFromStream(Json::CharReaderBuilder(), in, &value, nullptr);
        return value;
    };
    // The storage sections of the newest inventory, once it has them.
    auto latestStorage = [&] {
        Json::Value storage;
        for (const auto& command : rmc_->spooledCommands()) {
            const Json::Value collection = parse(command.payload)["HostDataCollection"];
            if (command.name == "WriteInventory" && collection.isMember("Drives")) {
                storage = collection;
            }
        }
        return storage;
    };
    // With the two disks of the chipset's SATA controller.
    ASSERT_TRUE(vekEventually([&] { return latestStorage()["Drives"].size() == 8; }, std::chrono::seconds(60)))
        << mainLog();
    const Json::Value first = latestStorage();
    ASSERT_EQ(first["StorageControllers"].size(), 2u);
    Json::Value hba;
    for (const Json::Value& controller : first["StorageControllers"]) {
        if (controller["Data"]["Oem"]["Description"].asString() == "PCI 0000:a8:00.0 r001u03p1i04") {
            hba = controller;
        }
    }
    EXPECT_EQ(hba["EventInfo"].asString(), "The storage controller port(s) are now online.");
    EXPECT_EQ(first["StorageEnclosures"].size(), 1u);
    std::set<std::string> places;
    for (const Json::Value& drive : first["Drives"]) {
        places.insert(drive["Data"]["Oem"]["PhysicalLocation"].asString());
    }
    EXPECT_EQ(places.size(), 8u);
    EXPECT_EQ(places.count("FFFFFFFFFFFFFFFF"), 0u);

    const std::string serial = "WBN2A7Q40000K9280ZYX"; // d0, the SAS HDD of bay 1
    const std::string failed = "Failed to read Informational Exceptions log page from disk drive.";
    disks.set("d0", {"health=failed"});
    auto eventFor = [&](int id) {
        for (const auto& command : rmc_->spooledCommands()) {
            const Json::Value event = parse(command.payload);
            if (command.name == "MPEventGen" && event["ID"].asInt() == id &&
                event["VariableData"]["Data"]["SerialNumber"].asString() == serial) {
                return event;
            }
        }
        return Json::Value();
    };
    ASSERT_TRUE(vekEventually([&] { return !eventFor(538).isNull(); }, std::chrono::seconds(60))) << mainLog();
    EXPECT_EQ(eventFor(538)["VariableData"]["EventInfo"].asString(), failed);
    EXPECT_EQ(eventFor(538)["PhysicalLocation"].asString(), "3B0103010101FF04");
    EXPECT_TRUE(vekEventually(
        [&] {
            const Json::Value storage = latestStorage();
            for (const Json::Value& drive : storage["Drives"]) {
                if (drive["Data"]["SerialNumber"].asString() == serial) {
                    return drive["EventInfo"].asString() == failed;
                }
            }
            return false;
        },
        std::chrono::seconds(60)))
        << "the last drives: " << latestStorage()["Drives"];
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

// What a wrong configuration does: the service says so on its standard
// error and runs on its defaults; only the crash simulation ends it.
TEST_F(VekdTest, ConfigurationFaultsAreToldAndOnlyTheCrashSimulationEndsTheService)
{
    struct Case {
        const char* name;
        const char* conf;
        std::string told;    // on standard error; empty: no configuration line at all
        int signal;          // the process ends by this signal, 0 when it runs
        const char* logged;  // in the main log; empty when the log goes to syslog
    };
    const std::string conf = host_ + "/opt/zolvek/vital/vek.conf";
    const Case cases[] = {
        {"a key of the wrong type; a resource without a manager",
         R"({"LoggingLevel": 5, "VEKLogLocation": "/scratch/log/zolvek/vek.log",
             "EnableResources": ["HostOSInfo", "GPUDevices"]})",
         "vekd: configuration: " + conf + ": \"LoggingLevel\" must be a string, not an integer; its default is used\n",
         0, "Error:unable to create thread for the RM 5"},
        {"not JSON", "{\"LoggingLevel\": ", "vekd: configuration: cannot parse " + conf + ": ", 0, ""},
        {"crash simulation 6",
         R"({"VEKLogLocation": "/scratch/log/zolvek/vek.log", "EnableResources": ["HostOSInfo"],
             "SimulateUnhandledException": 6})",
         "", SIGABRT, "Simulating unhandled exception SIGABRT. (6)"},
    };
    const std::string log = mainLogPath();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::ofstream(conf, std::ios::trunc) << c.conf;
        std::remove(log.c_str());
        vekLogTail tail(log);
        start();
        int status = 0;
        if (c.signal != 0) {
            if (!vekEventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
                stop(SIGKILL);
                FAIL() << "the service ran on: " << readAll(log);
            }
            pid_ = -1;
            ASSERT_TRUE(WIFSIGNALED(status));
            EXPECT_EQ(WTERMSIG(status), c.signal);
        } else {
            // Running: the told line is out, or the start has been logged.
            vekEventually([&] { return readAll(host_ + "/vekd.stderr").find(c.told) != std::string::npos; });
            if (*c.logged != '\0') {
                ASSERT_TRUE(waitForLog(tail, "VEK service started")) << readAll(host_ + "/vekd.stderr");
            }
            status = stop(SIGTERM);
            ASSERT_TRUE(WIFEXITED(status));
            EXPECT_EQ(WEXITSTATUS(status), 0);
        }
        const std::string told = readAll(host_ + "/vekd.stderr");
        if (c.told.empty()) {
            EXPECT_EQ(told.find("configuration"), std::string::npos) << told;
        } else {
            EXPECT_NE(told.find(c.told), std::string::npos) << told;
        }
        if (*c.logged != '\0') {
            EXPECT_NE(readAll(log).find(c.logged), std::string::npos) << readAll(log);
        }
    }
}

TEST_F(VekdTest, WithoutTheRmcItExitsWithOneClearMessage)
{
    // Both ways to the RMC fail at the same point: no device, and an
    // external address where nobody listens any more.
    const std::string address = getenv("VEK_IPMI_EXTERNAL") ? getenv("VEK_IPMI_EXTERNAL") : "";
    rmc_.reset();
    for (const std::string& external : {std::string(), address}) {
        SCOPED_TRACE(external.empty() ? "device" : external);
        if (external.empty()) {
            unsetenv("VEK_IPMI_EXTERNAL");
        } else {
            setenv("VEK_IPMI_EXTERNAL", external.c_str(), 1);
        }
        std::remove(mainLogPath().c_str());
        start();
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 1);
        const std::string log = mainLog();
        EXPECT_NE(log.find("Cannot reach the RMC, the service stops: IPMI - Connection - Failed"), std::string::npos)
            << log;
        EXPECT_EQ(log.find("VEK service started"), std::string::npos);
        EXPECT_NE(readAll(host_ + "/vekd.stderr").find("vekd: cannot reach the RMC (IPMI - Connection - Failed)"),
                  std::string::npos);
    }
}

} // namespace

namespace {

// The client tool against the running service: a test event of each family
// that has a manager reaches the RMC with its number (storage's own events
// name the service as their source, its test events say "Injected Event").
TEST_F(VekdTest, TestEventsOfEachFamilyReachTheRmcThroughTheClient)
{
    start();
    vekRmcEmulator::Command inventory;
    ASSERT_TRUE(waitForCommand("WriteInventory", inventory)) << mainLog();
    const struct {
        const char* resource;
        int id;
        const char* details;
    } families[] = {
        {"1", 436, ""}, {"2", 1337, ""}, {"3", 1384, "vmnic0"}, {"4", 386, "vmhba2"}, {"5", 538, "3B0103010101FF04"},
    };
    auto sent = [&](int id) {
        for (const auto& command : rmc_->spooledCommands()) {
            Json::Value event;
            std::istringstream in(command.payload);
            if (command.name == "MPEventGen" && Json::parseFromStream(Json::CharReaderBuilder(), in, &event, nullptr) &&
                event["ID"].asInt() == id &&
                (event["Source"].asString() == "VEK-CLI" ||
                 event["VariableData"]["EventInfo"].asString() == "Injected Event")) {
                return true;
            }
        }
        return false;
    };
    for (const auto& family : families) {
        SCOPED_TRACE(family.resource);
        std::vector<std::string> argv{"env", "VEK_ROOT=" + host_,
                                      std::string(VEK_BINARY_DIR) + "/testtools/vekcli/vekcli", "event",
                                      std::to_string(family.id), family.resource};
        if (*family.details != '\0') {
            argv.push_back(family.details);
        }
        const vekProgramResult result = vekRunProgram(argv);
        EXPECT_EQ(result.status, 0) << result.output;
        EXPECT_TRUE(vekEventually([&] { return sent(family.id); }, std::chrono::seconds(60))) << mainLog();
    }
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

} // namespace

namespace {

// The chipset's SATA controller of the rack server in the inventory the RMC
// receives: its version from mdadm, and its two SATA disks in the bays that
// the PCH's ports 6 and 7 lead to in the box the RMC's FRU records name.
TEST_F(VekdTest, ChipsetSataDisksReachTheRmcInTheirBays)
{
    vekDiskEmulator disks(host_);
    start();
    auto storage = [&] {
        Json::Value latest;
        for (const auto& command : rmc_->spooledCommands()) {
            Json::Value document;
            std::istringstream in(command.payload);
            if (command.name == "WriteInventory" &&
                Json::parseFromStream(Json::CharReaderBuilder(), in, &document, nullptr) &&
                document["HostDataCollection"].isMember("Drives")) {
                latest = document["HostDataCollection"];
            }
        }
        return latest;
    };
    ASSERT_TRUE(vekEventually([&] { return storage()["Drives"].size() == 8; }, std::chrono::seconds(60))) << mainLog();
    const Json::Value inventory = storage();
    Json::Value chipset;
    for (const Json::Value& controller : inventory["StorageControllers"]) {
        if (controller["Data"]["Oem"]["Description"].asString() == "PCI 0000:00:17.0 r001u03p1i00") {
            chipset = controller;
        }
    }
    ASSERT_FALSE(chipset.isNull()) << inventory["StorageControllers"];
    EXPECT_EQ(chipset["Data"]["Model"].asString(), "Lewisburg SATA RAID");
    EXPECT_EQ(chipset["Data"]["FirmwareVersion"].asString(), "6.3.0.1005");
    EXPECT_EQ(chipset["Data"]["Protocol"].asString(), "SATA");
    EXPECT_EQ(chipset["EventInfo"].asString(), "All ports of the Intel SATA RAID controller are now online.");

    std::map<std::string, Json::Value> drives;
    std::set<std::string> places;
    for (const Json::Value& drive : inventory["Drives"]) {
        drives[drive["Data"]["SerialNumber"].asString()] = drive["Data"];
        places.insert(drive["Data"]["Oem"]["PhysicalLocation"].asString());
    }
    const struct {
        const char* serial;
        const char* bay;
    } sata[] = {{"PHYF8341012A480BGN", "7"}, {"PHYF8341013B480BGN", "8"}};
    for (const auto& disk : sata) {
        SCOPED_TRACE(disk.serial);
        const Json::Value& drive = drives[disk.serial];
        EXPECT_EQ(drive["Protocol"].asString(), "ATA");
        EXPECT_EQ(drive["Model"].asString(), "INTEL SSDSC2KB480G8");
        EXPECT_EQ(drive["MediaType"].asString(), "SSD");
        EXPECT_EQ(drive["Oem"]["Slot"].asString(), disk.bay);
        EXPECT_NE(drive["Oem"]["PhysicalLocation"].asString(), "FFFFFFFFFFFFFFFF");
    }
    // Every drive has a place of its own.
    EXPECT_EQ(places.size(), 8u);
    EXPECT_EQ(places.count("FFFFFFFFFFFFFFFF"), 0u);

    // A disk of the chipset leaves its bay and comes back: the RMC hears of
    // each at the disk's place.
    const std::string place = drives["PHYF8341012A480BGN"]["Oem"]["PhysicalLocation"].asString();
    auto raised = [&](int id) {
        for (const auto& command : rmc_->spooledCommands()) {
            Json::Value event;
            std::istringstream in(command.payload);
            if (command.name == "MPEventGen" && Json::parseFromStream(Json::CharReaderBuilder(), in, &event, nullptr) &&
                event["ID"].asInt() == id && event["PhysicalLocation"].asString() == place &&
                event["VariableData"]["Data"]["SerialNumber"].asString() == "PHYF8341012A480BGN") {
                return true;
            }
        }
        return false;
    };
    disks.set("s0", {"present=false"});
    EXPECT_TRUE(vekEventually([&] { return raised(538); }, std::chrono::seconds(60))) << mainLog();
    disks.set("s0", {"present=true"});
    EXPECT_TRUE(vekEventually([&] { return raised(540); }, std::chrono::seconds(60))) << mainLog();
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

} // namespace
