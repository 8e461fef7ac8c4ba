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
#include <functional>
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

    // Waits as long as the slowest family of the rack server may take to
    // answer on a loaded machine.
    static bool eventually(const std::function<bool()>& condition)
    {
        return vekEventually(condition, std::chrono::seconds(60));
    }

    static Json::Value parse(const std::string& text)
    {
        Json::Value value;
        std::istringstream in(text);
        Json::parseFromStream(Json::CharReaderBuilder(), in, &value, nullptr);
        return value;
    }

    // The commands of that name in the emulated RMC's spool, parsed, oldest first.
    std::vector<Json::Value> spooled(const std::string& name) const
    {
        std::vector<Json::Value> found;
        for (const auto& command : rmc_->spooledCommands()) {
            if (command.name == name) {
                found.push_back(parse(command.payload));
            }
        }
        return found;
    }

    // Waits for a command in the emulated RMC's spool.
    bool waitForCommand(const std::string& name, vekRmcEmulator::Command& found)
    {
        return eventually([&] {
            for (const auto& command : rmc_->spooledCommands()) {
                if (command.name == name) {
                    found = command;
                    return true;
                }
            }
            return false;
        });
    }

    // Waits for an inventory document that holds the top-level section of
    // the key: the first push goes out with the managers ready by then, a
    // late manager's own push follows.
    bool waitForInventoryWith(const std::string& key, Json::Value& document)
    {
        return eventually([&] {
            for (const Json::Value& parsed : spooled("WriteInventory")) {
                if (parsed["HostDataCollection"].isMember(key)) {
                    document = parsed;
                    return true;
                }
            }
            return false;
        });
    }

    // The "HostDataCollection" of the newest inventory the condition holds
    // for; null when none does.
    Json::Value latestInventory(const std::function<bool(const Json::Value&)>& holds) const
    {
        Json::Value latest;
        for (const Json::Value& document : spooled("WriteInventory")) {
            if (holds(document["HostDataCollection"])) {
                latest = document["HostDataCollection"];
            }
        }
        return latest;
    }

    // The newest inventory with storage sections.
    Json::Value latestStorage() const
    {
        return latestInventory([](const Json::Value& collection) { return collection.isMember("Drives"); });
    }

    // The events of that number the RMC received, oldest first, that the
    // condition holds for.
    std::vector<Json::Value> eventsOf(int id, const std::function<bool(const Json::Value&)>& holds = nullptr) const
    {
        std::vector<Json::Value> found;
        for (const Json::Value& event : spooled("MPEventGen")) {
            if (event["ID"].asInt() == id && (!holds || holds(event))) {
                found.push_back(event);
            }
        }
        return found;
    }

    // The "Data" of the first record of the section whose Data holds the
    // value at the key; null when none.
    static Json::Value findRecord(const Json::Value& section, const std::string& key, const std::string& value)
    {
        for (const Json::Value& record : section) {
            if (record["Data"][key].asString() == value) {
                return record["Data"];
            }
        }
        return Json::Value();
    }

    // The "Data" of the records of the section by their serial numbers.
    static std::map<std::string, Json::Value> bySerial(const Json::Value& section)
    {
        std::map<std::string, Json::Value> records;
        for (const Json::Value& record : section) {
            records[record["Data"]["SerialNumber"].asString()] = record["Data"];
        }
        return records;
    }

    // A PL the RMC can place: sixteen hex digits, not the all-F of "unknown".
    static void expectPlaced(const Json::Value& data)
    {
        const std::string pl = data["Oem"]["PhysicalLocation"].asString();
        EXPECT_TRUE(std::regex_match(pl, std::regex("[0-9A-F]{16}"))) << data;
        EXPECT_NE(pl, "FFFFFFFFFFFFFFFF") << data;
    }

    // An inventory every ten minutes of the host's time (0.6 s here), so the
    // next one comes soon after a change.
    void pushInventoryOften()
    {
        const std::string config = host_ + "/opt/zolvek/vital/vek.conf";
        std::string text = readAll(config);
        text.insert(text.find('{') + 1, "\n  \"PushInventoryFrequencyInMinutes\": 10,");
        std::ofstream(config, std::ios::trunc) << text;
    }

    // Writes the file whole and renames it into place, as the simulated
    // host's readers may read it at any moment.
    static void replaceFile(const std::string& path, const std::string& text)
    {
        std::ofstream(path + ".new", std::ios::trunc) << text;
        ASSERT_EQ(std::rename((path + ".new").c_str(), path.c_str()), 0) << path;
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
    Json::Value document;
    ASSERT_TRUE(waitForInventoryWith("Oem", document)) << mainLog();
    const int status = stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    const Json::Value& oem = document["HostDataCollection"]["Oem"];
    EXPECT_FALSE(oem["HostOSInfo"]["HostName"].asString().empty()) << document;
    EXPECT_TRUE(oem["CollectionInfo"].isObject()) << document;
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
    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ \[(INFO|DEBUG|WARNING|ERROR)\] +\d{3,} \d{3,} [A-Z_]+: .*)");
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
    start();
    vekRmcEmulator::Command inventory;
    ASSERT_TRUE(waitForCommand("WriteInventory", inventory)) << mainLog();
    const std::string list = host_ + "/sim/cli/network_nic_list.txt";
    const std::string up = readAll(list);
    const std::string upRow = "vmnic0  0000:16:00.0  icen     Up            Up            25000";
    const std::string downRow = "vmnic0  0000:16:00.0  icen     Up            Down              0";
    ASSERT_NE(up.find(upRow), std::string::npos);
    auto events = [&] {
        std::vector<int> ids;
        for (const Json::Value& event : spooled("MPEventGen")) {
            ids.push_back(event["ID"].asInt());
        }
        return ids;
    };
    auto waitForEvents = [&](size_t count) {
        vekEventually([&] { return events().size() >= count; });
        return events();
    };

    std::string down = up;
    down.replace(down.find(upRow), upRow.size(), downRow);
    std::ofstream(list, std::ios::trunc) << down;
    EXPECT_EQ(waitForEvents(1), std::vector<int>{1384});
    std::ofstream(list, std::ios::trunc) << up;
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
    pushInventoryOften();
    vekDiskEmulator disks(host_);
    start();
    // Six drives behind the HBA in slot 4, five behind the SmartRAID
    // controller in slot 10, two on the chipset's SATA controller, four
    // behind the MegaRAID controller in slot 2.
    ASSERT_TRUE(eventually([&] { return latestStorage()["Drives"].size() == 6 + 5 + 2 + 4; })) << mainLog();
    const Json::Value first = latestStorage();
    ASSERT_EQ(first["StorageControllers"].size(), 4u);
    Json::Value hba;
    for (const Json::Value& controller : first["StorageControllers"]) {
        if (controller["Data"]["Oem"]["Description"].asString() == "PCI 0000:a8:00.0 r001u03p1i04") {
            hba = controller;
        }
    }
    EXPECT_EQ(hba["EventInfo"].asString(), "The storage controller port(s) are now online.");
    // The HBA's and the SmartRAID controller's, and the two segments of the
    // MegaRAID's UBM backplane.
    EXPECT_EQ(first["StorageEnclosures"].size(), 4u);
    std::set<std::string> places;
    for (const Json::Value& drive : first["Drives"]) {
        places.insert(drive["Data"]["Oem"]["PhysicalLocation"].asString());
    }
    EXPECT_EQ(places.size(), 6u + 5u + 2u + 4u);
    EXPECT_EQ(places.count("FFFFFFFFFFFFFFFF"), 0u);

    const std::string serial = "WBN2A7Q40000K9280ZYX"; // d0, the SAS HDD of bay 1
    const std::string failed = "Failed to read Informational Exceptions log page from disk drive.";
    disks.set("d0", {"health=failed"});
    auto failures = [&] {
        return eventsOf(538, [&](const Json::Value& event) {
            return event["VariableData"]["Data"]["SerialNumber"].asString() == serial;
        });
    };
    ASSERT_TRUE(eventually([&] { return !failures().empty(); })) << mainLog();
    EXPECT_EQ(failures()[0]["VariableData"]["EventInfo"].asString(), failed);
    EXPECT_EQ(failures()[0]["PhysicalLocation"].asString(), "3B0103010101FF04");
    EXPECT_TRUE(eventually([&] {
        const Json::Value storage = latestStorage();
        for (const Json::Value& drive : storage["Drives"]) {
            if (drive["Data"]["SerialNumber"].asString() == serial) {
                return drive["EventInfo"].asString() == failed;
            }
        }
        return false;
    })) << "the last drives: " << latestStorage()["Drives"];
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
             "EnableResources": ["HostOSInfo", "Utilization"]})",
         "vekd: configuration: " + conf + ": \"LoggingLevel\" must be a string, not an integer; its default is used\n",
         0, "Error:unable to create thread for the RM 99"},
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

// The rack server's two GPUs reach the RMC as its "Processors", each placed
// in its slot.
TEST_F(VekdTest, GPUsReachTheRmcAsProcessors)
{
    start();
    Json::Value document;
    ASSERT_TRUE(waitForInventoryWith("Processors", document)) << mainLog();
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
    const Json::Value& processors = document["HostDataCollection"]["Processors"];
    ASSERT_EQ(processors.size(), 2u) << document;
    const char* const descriptions[] = {"PCI 0000:ca:00.0 r001u03p1i05", "PCI 0000:e5:00.0 r001u03p1i09"};
    for (Json::ArrayIndex i = 0; i < 2; ++i) {
        const Json::Value& gpu = processors[i];
        EXPECT_EQ(gpu["Oem"]["Description"].asString(), descriptions[i]) << gpu;
        const std::string pl = gpu["Oem"]["PhysicalLocation"].asString();
        EXPECT_EQ(pl.size(), 16u) << gpu;
        EXPECT_NE(pl, "FFFFFFFFFFFFFFFF") << gpu;
        EXPECT_EQ(gpu["Manufacturer"].asString(), "NVIDIA Corporation") << gpu;
        EXPECT_EQ(gpu["Status"]["State"].asString(), "Online") << gpu;
    }
    EXPECT_EQ(processors[1]["Name"].asString(), "NVIDIA L40S");
}

// The rack server's MegaRAID controller as the RMC receives it, placed by its
// slot, with its drives placed on the bays of its UBM backplane and the
// backplane's segments as enclosures, and its volumes; and a consistency
// check that corrects three medium errors ends in exactly one event with the
// summary.
TEST_F(VekdTest, MegaRAIDControllerReachesTheRmcAndAConsistencyCheckEndsInOneEvent)
{
    const std::string scenarioFile = host_ + "/sim/libstorelib.json";
    Json::Value scenario = parse(readAll(scenarioFile));
    ASSERT_TRUE(scenario.isObject());
    start();
    auto holdsController = [](const Json::Value& collection) {
        return !findRecord(collection["StorageControllers"], "SerialNumber", "SKC4012345").isNull();
    };
    ASSERT_TRUE(eventually([&] { return !latestInventory(holdsController).isNull(); })) << mainLog();
    const Json::Value storage = latestInventory(holdsController);
    const Json::Value controller = findRecord(storage["StorageControllers"], "SerialNumber", "SKC4012345");
    EXPECT_EQ(controller["Model"].asString(), "MegaRAID 9560-16i");
    EXPECT_EQ(controller["FirmwareVersion"].asString(), "5.220.02-3691");
    EXPECT_EQ(controller["Oem"]["Description"].asString(), "PCI 0000:3b:00.0 r001u03p1i02");
    expectPlaced(controller);
    // Each drive on its own bay of box 1: two through the FRU of their own
    // connector's bus, two through the other bus's FRU.
    std::map<std::string, Json::Value> drives = bySerial(storage["Drives"]);
    std::set<std::string> places;
    for (const char* serial : {"WFK0A1B20000C9270ABC", "WFK0A1B30000C9270ABD", "S45NNE0M500123", "S45NNE0M500124"}) {
        ASSERT_EQ(drives.count(serial), 1u) << serial;
        expectPlaced(drives[serial]);
        places.insert(drives[serial]["Oem"]["PhysicalLocation"].asString());
    }
    EXPECT_EQ(places.size(), 4u);
    std::map<std::string, Json::Value> backplanes;
    for (const Json::Value& enclosure : storage["StorageEnclosures"]) {
        // The SmartRAID controller's backplane is a UBM one too, of another model.
        if (enclosure["Data"]["Model"].asString() == "UBM 4-Bay Backplane") {
            backplanes[enclosure["Data"]["SerialNumber"].asString()] = enclosure["Data"];
        }
    }
    ASSERT_EQ(backplanes.size(), 2u) << storage["StorageEnclosures"];
    for (int box = 1; box <= 2; ++box) {
        const Json::Value& backplane = backplanes["BP4A0000" + std::to_string(box)];
        EXPECT_EQ(backplane["Type"].asString(), "UBM Backplane") << backplane;
        EXPECT_EQ(backplane["PartNumber"].asString(), "BP-0004") << backplane;
        EXPECT_EQ(backplane["FirmwareVersion"].asString(), "1.10") << backplane;
        EXPECT_EQ(backplane["Oem"]["Box"].asInt(), box) << backplane;
        expectPlaced(backplane);
        places.insert(backplane["Oem"]["PhysicalLocation"].asString());
    }
    EXPECT_EQ(places.size(), 6u);
    const Json::Value raid1 = findRecord(storage["Volumes"], "DurableName", "600062B20CF5E6802A9D4E1F0B7C3D01");
    EXPECT_EQ(raid1["VolumeType"].asString(), "RAID1") << storage["Volumes"];
    EXPECT_EQ(raid1["Drives"].size(), 2u);
    EXPECT_FALSE(findRecord(storage["Volumes"], "DurableName", "600062B20CF5E6802A9D4E1F0B7C3D02").isNull());

    // The firmware's events of the check, then a clean check of the other
    // volume, whose event tells that the first check's events are all in.
    auto event = [](unsigned seq, int code, int target, const std::string& text) {
        Json::Value e;
        e["seq"] = seq;
        e["ctrl"] = 0;
        e["code"] = code;
        e["class"] = code == 57 ? 1 : 0;
        e["locale"] = 1;
        e["argType"] = 2;
        e["targetId"] = target;
        e["description"] = text;
        return e;
    };
    for (unsigned seq = 1; seq <= 3; ++seq) {
        scenario["events"].append(event(seq, 57, 0, "Consistency Check corrected medium error (VD 00/0)"));
    }
    scenario["events"].append(event(4, 58, 0, "Consistency Check done on VD 00/0"));
    scenario["events"].append(event(5, 58, 1, "Consistency Check done on VD 01/1"));
    replaceFile(scenarioFile, Json::writeString(Json::StreamWriterBuilder(), scenario));
    ASSERT_TRUE(eventually([&] { return !eventsOf(1388).empty(); })) << mainLog();
    const std::vector<Json::Value> folded = eventsOf(1387);
    ASSERT_EQ(folded.size(), 1u);
    const std::string info = folded[0]["VariableData"]["EventInfo"].asString();
    EXPECT_NE(info.find("# Corrected medium errors = 3"), std::string::npos) << info;
    EXPECT_EQ(folded[0]["VariableData"]["Data"]["DurableName"].asString(), "600062B20CF5E6802A9D4E1F0B7C3D01");
    EXPECT_EQ(folded[0]["VariableData"]["Data"]["Drives"].size(), 2u);
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

// The NVMe devices of the rack server as the RMC receives them: the two
// cards as controllers and drives, the three bays as drives, each placed;
// and the read-only flag of a card's SMART log raising 837 and 538.
TEST_F(VekdTest, NVMeDevicesAreInTheInventoryAndAReadOnlyCardReachesTheRmc)
{
    start();
    // The NVMe items of a section of the last inventory.
    auto nvmeItems = [&](const std::string& section) {
        std::vector<Json::Value> items;
        const Json::Value collection = latestInventory([](const Json::Value&) { return true; });
        for (const Json::Value& item : collection[section]) {
            if (item["Protocol"].asString() == "NVMe") {
                items.push_back(item);
            }
        }
        return items;
    };
    ASSERT_TRUE(eventually([&] { return nvmeItems("Drives").size() == 5; })) << mainLog();
    const std::vector<Json::Value> controllers = nvmeItems("StorageControllers");
    ASSERT_EQ(controllers.size(), 2u);
    std::set<std::string> descriptions;
    for (const Json::Value& controller : controllers) {
        descriptions.insert(controller["Oem"]["Description"].asString());
        expectPlaced(controller);
    }
    EXPECT_EQ(descriptions,
              (std::set<std::string>{"PCI 0000:e3:00.0 r001u03p1i07", "PCI 0000:e4:00.0 r001u03p1i08"}));
    for (const Json::Value& drive : nvmeItems("Drives")) {
        expectPlaced(drive);
    }

    const std::string smart = host_ + "/sim/cli/nvme_device_log_smart_get_-A_vmhba7.txt";
    std::string text = readAll(smart);
    const std::string clear = "Read Only Mode: false";
    ASSERT_NE(text.find(clear), std::string::npos);
    text.replace(text.find(clear), clear.size(), "Read Only Mode: true");
    replaceFile(smart, text);
    auto nvmeEvents = [&] {
        std::vector<std::pair<int, std::string>> events;
        for (const Json::Value& event : spooled("MPEventGen")) {
            if (event["VariableData"]["Data"]["Protocol"].asString() == "NVMe") {
                events.emplace_back(event["ID"].asInt(), event["VariableData"]["Type"].asString());
            }
        }
        return events;
    };
    ASSERT_TRUE(eventually([&] { return nvmeEvents().size() >= 2; })) << mainLog();
    EXPECT_EQ(nvmeEvents(), (std::vector<std::pair<int, std::string>>{{837, "Controller"}, {538, "Drive"}}));
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

TEST_F(VekdTest, SmartRAIDControllerReachesTheRmcAndAFailingDriveRaises538)
{
    pushInventoryOften();
    start();
    auto holdsController = [](const Json::Value& collection) {
        return !findRecord(collection["StorageControllers"], "Model", "SmartRAID 3254-16i").isNull();
    };
    ASSERT_TRUE(eventually([&] { return !latestInventory(holdsController).isNull(); })) << mainLog();
    const Json::Value storage = latestInventory(holdsController);
    const Json::Value controller = findRecord(storage["StorageControllers"], "Model", "SmartRAID 3254-16i");
    EXPECT_EQ(controller["SerialNumber"].asString(), "SR3254A0001");
    EXPECT_EQ(controller["Oem"]["Description"].asString(), "PCI 0000:e6:00.0 r001u03p1i10");
    expectPlaced(controller);
    const std::map<std::string, Json::Value> drives = bySerial(storage["Drives"]);
    for (const char* serial : {"S6KPNA0T100001", "S6KPNA0T100002", "WBN0SR000003", "WBN0SR000004", "WBN0SR000005"}) {
        EXPECT_EQ(drives.count(serial), 1u) << serial;
    }
    EXPECT_EQ(findRecord(storage["Volumes"], "DurableName", "600508B1001C5E0A4D1F2E3A4B5C6D01")["VolumeType"], "RAID1");
    EXPECT_EQ(findRecord(storage["Volumes"], "DurableName", "600508B1001C5E0A4D1F2E3A4B5C6D02")["VolumeType"], "RAID5");
    EXPECT_FALSE(findRecord(storage["StorageEnclosures"], "Model", "8 SFF UBM Backplane").isNull())
        << storage["StorageEnclosures"];

    // The drive of bay 3 fails in the library's scenario.
    const std::string scenarioPath = host_ + "/sim/libstoragecore.json";
    Json::Value scenario = parse(readAll(scenarioPath));
    scenario["controllers"][0]["drives"][2]["status"] = 0x800000;
    replaceFile(scenarioPath, Json::writeString(Json::StreamWriterBuilder(), scenario));
    auto failures = [&] {
        return eventsOf(538, [](const Json::Value& event) {
            return event["VariableData"]["Data"]["SerialNumber"].asString() == "WBN0SR000003";
        });
    };
    ASSERT_TRUE(eventually([&] { return !failures().empty(); })) << mainLog();
    EXPECT_NE(failures()[0]["VariableData"]["EventInfo"].asString().find("PORT 2I BOX 1 BAY 3"), std::string::npos);
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

// The client tool against the running service: a test event of each family
// that has a manager reaches the RMC with its number (storage's own events
// name the service as their source, its test events say "Injected Event").
TEST_F(VekdTest, TestEventsOfEachFamilyReachTheRmcThroughTheClient)
{
    start();
    // The NVMe manager names its devices once its first build is in.
    ASSERT_TRUE(eventually([&] {
        for (const auto& command : rmc_->spooledCommands()) {
            if (command.name == "WriteInventory" && command.payload.find("\"Protocol\":\"NVMe\"") != std::string::npos) {
                return true;
            }
        }
        return false;
    })) << mainLog();
    const struct {
        const char* resource;
        int id;
        const char* details;
    } families[] = {
        {"1", 436, ""},     {"2", 1337, ""},
        {"3", 1384, "vmnic0"}, {"4", 386, "vmhba2"},
        {"5", 538, "3B0103010101FF04"}, {"6", 837, "vmhba7"},
    };
    auto injected = [](const Json::Value& event) {
        return event["Source"].asString() == "VEK-CLI" ||
               event["VariableData"]["EventInfo"].asString() == "Injected Event";
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
        EXPECT_TRUE(eventually([&] { return !eventsOf(family.id, injected).empty(); })) << mainLog();
    }
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

// The chipset's SATA controller of the rack server in the inventory the RMC
// receives: its version from mdadm, and its two SATA disks in the bays that
// the PCH's ports 6 and 7 lead to in the box the RMC's FRU records name.
TEST_F(VekdTest, ChipsetSataDisksReachTheRmcInTheirBays)
{
    vekDiskEmulator disks(host_);
    start();
    ASSERT_TRUE(eventually([&] { return latestStorage()["Drives"].size() == 6 + 5 + 2 + 4; })) << mainLog();
    const Json::Value inventory = latestStorage();
    const Json::Value chipset =
        findRecord(inventory["StorageControllers"], "Model", "Lewisburg SATA RAID");
    ASSERT_FALSE(chipset.isNull()) << inventory["StorageControllers"];
    EXPECT_EQ(chipset["Oem"]["Description"].asString(), "PCI 0000:00:17.0 r001u03p1i00");
    EXPECT_EQ(chipset["FirmwareVersion"].asString(), "6.3.0.1005");
    EXPECT_EQ(chipset["Protocol"].asString(), "SATA");
    for (const Json::Value& controller : inventory["StorageControllers"]) {
        if (controller["Data"]["Model"].asString() == "Lewisburg SATA RAID") {
            EXPECT_EQ(controller["EventInfo"].asString(),
                      "All ports of the Intel SATA RAID controller are now online.");
        }
    }

    std::map<std::string, Json::Value> drives = bySerial(inventory["Drives"]);
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
        expectPlaced(drive);
    }

    // A disk of the chipset leaves its bay and comes back: the RMC hears of
    // each at the disk's place.
    const std::string place = drives["PHYF8341012A480BGN"]["Oem"]["PhysicalLocation"].asString();
    auto raised = [&](int id) {
        return !eventsOf(id, [&](const Json::Value& event) {
                    return event["PhysicalLocation"].asString() == place &&
                           event["VariableData"]["Data"]["SerialNumber"].asString() == "PHYF8341012A480BGN";
                }).empty();
    };
    disks.set("s0", {"present=false"});
    EXPECT_TRUE(eventually([&] { return raised(538); })) << mainLog();
    disks.set("s0", {"present=true"});
    EXPECT_TRUE(eventually([&] { return raised(540); })) << mainLog();
    EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0);
}

} // namespace
