#pragma once

// One emulated RMC for a test (testtools/rmcemu: ipmi_sim with the project's
// module, started through rmc-emu.sh), alive for the life of the object.
//
//   TEST_F(MyTest, Something)
//   {
//       VEK_REQUIRE_RMC_EMULATOR();           // skips when ipmi_sim is missing
//       vekRmcEmulator rmc;                   // started; VEK_IPMI_EXTERNAL set
//       ... the code under test talks to it through createTransport() ...
//       EXPECT_EQ(rmc.spooledCommands().at(0).payload, "...");
//   }                                         // stopped; VEK_IPMI_EXTERNAL restored
//
// - The constructor starts the emulator with a fresh state folder (a new
//   temporary one, removed by the destructor, or the folder given, which is
//   kept) and throws std::runtime_error with the script's words when it does
//   not come up. Use it after VEK_REQUIRE_RMC_EMULATOR().
// - While the object lives, VEK_IPMI_EXTERNAL holds its address, so
//   vekIPMI::createTransport() reaches it (the process keeps one link per
//   address, made again after restart()). Several may live at once; the
//   variable names the last one made.
// - Spool: spooledCommands() lists the commands received whole, in the order
//   they came, with their payloads. writeDoorbell() sets what doorbells 1-3
//   answer, injectFault() answers the next chunks with a
//   transfer status instead of taking them, injectCompletionCode() answers
//   the next OEM commands with a completion code, writeFile() any other file
//   of the state folder (max_length, capabilities...), freeze() makes it
//   hang (connected, never answering). chunkExchanges() counts the chunks the
//   RMC answered (its rmc.log).
// - reserveSdrOverLan() takes an SDR reservation with ipmitool over the
//   emulator's LAN channel (see hasIpmitool()), which cancels the one the
//   service holds.
// - sdrSource: another SDR repository source than testtools/rmcemu/rmc.sdrs
//   (sdrcomp syntax; an empty file gives an empty repository).

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

// Skips the current test (in a test body or SetUp) when the emulator cannot
// run here: ipmi_sim not installed or the module not built.
#define VEK_REQUIRE_RMC_EMULATOR()                                  \
    do {                                                            \
        const std::string vekRmcWhyNot = vekRmcEmulator::missing(); \
        if (!vekRmcWhyNot.empty()) {                                \
            GTEST_SKIP() << vekRmcWhyNot;                           \
        }                                                           \
    } while (0)

class vekRmcEmulator {
public:
    // What stops the emulator from running here, empty when nothing does.
    static std::string missing();
    static bool hasIpmitool();

    // Starts it; stateFolder empty: a fresh temporary folder of its own.
    explicit vekRmcEmulator(const std::string& stateFolder = "", const std::string& sdrSource = "");
    ~vekRmcEmulator();

    vekRmcEmulator(const vekRmcEmulator&) = delete;
    vekRmcEmulator& operator=(const vekRmcEmulator&) = delete;

    // Stops it (the object keeps its folder and ports).
    void stop();
    // Starts it again on the same ports, so the same address reaches it.
    void restart();

    // "127.0.0.1:PORT", the value of VEK_IPMI_EXTERNAL.
    const std::string& address() const { return address_; }

    struct Command {
        std::string file;     // "000001-WriteInventory.txt"
        std::string name;     // "WriteInventory"
        std::string payload;  // as received, without the terminating NUL
    };
    // The commands received whole, oldest first.
    std::vector<Command> spooledCommands() const;

    // doorbell 1..3 answers these bytes (at most 35 go out).
    void writeDoorbell(int doorbell, const std::string& bytes) const
    {
        writeFile("doorbell" + std::to_string(doorbell), bytes);
    }
    // After `after` chunks taken normally, the next `count` chunks are
    // answered with `status` (and `exitStatus`) and not taken.
    void injectFault(int status, int count = 1, int exitStatus = 0, int after = 0) const;
    // After `after` let through, the next `count` commands of net function
    // 0x3A (chunks, doorbells) are answered with this completion code alone.
    void injectCompletionCode(int completionCode, int count = 1, int after = 0) const;
    // Stops ipmi_sim in its tracks (SIGSTOP): connections stay up, nothing
    // is answered, as a hung RMC. thaw() lets it go on; the destructor thaws.
    void freeze();
    void thaw();

    // The RMC's log and the number of its lines starting with a prefix.
    std::string log() const;
    size_t logLines(const std::string& prefix) const;
    // Chunks (0x3A 0x80) the RMC answered so far.
    size_t chunkExchanges() const { return logLines("0x80 index="); }

    // Any file of the state folder, written whole or not at all.
    void writeFile(const std::string& name, const std::string& content) const;

    // `ipmitool ... raw 0x0a 0x22` over LAN; throws std::runtime_error when it fails.
    void reserveSdrOverLan() const;

private:
    void start(bool samePorts);
    std::string readFile(const std::string& name) const;
    void signal(const char* name) const;
    void inject(const char* file, int code, int count, int exitStatus, int after) const;
    std::string scriptEnv(const std::string& extra) const;

    std::string spool_;
    std::string sdrSource_;
    bool ownSpool_ = false;
    std::string address_;
    std::string lanPort_;
    bool started_ = false;
    bool frozen_ = false;
    bool hadExternal_ = false;
    std::string previousExternal_;
};
