#pragma once

// The disks of a simulated host for a test (testtools/diskemu): `diskemu
// serve ROOT` as a child process, alive for the life of the object.
//
//   vekTestRoot root;
//   root.writeFile("/sim/disks.json", description);
//   vekDiskEmulator disks(root.path());        // listening at ROOT/dev/sgN
//   auto reply = disks.request(1, {0x12, 0, 0, 0, 96, 0});
//   disks.set("d0", {"health=failed"});         // seen by the next request
//
// - The constructor waits (bounded) for the ready line and throws
//   std::runtime_error when the emulator does not come up; the destructor
//   stops it (SIGTERM, then SIGKILL if it lingers) and reaps it.
// - request() is a client of the emulator's wire format, as the service's
//   SCSI pass-through is; it reports a connection closed before a whole
//   response as not answered.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

struct vekProgramResult {
    int status = -1;    // exit status; -1 when it did not end by itself in time
    std::string output; // standard output and error together
};

// Runs a program (no shell) with 'input' on its standard input, for 30
// seconds at most.
vekProgramResult vekRunProgram(const std::vector<std::string>& argv, const std::string& input = "");

// Whether a program of that name is on PATH.
bool vekProgramOnPath(const std::string& name);

class vekDiskEmulator {
public:
    // The emulator's program, as the build made it.
    static std::string program();

    explicit vekDiskEmulator(const std::string& root);
    ~vekDiskEmulator();

    vekDiskEmulator(const vekDiskEmulator&) = delete;
    vekDiskEmulator& operator=(const vekDiskEmulator&) = delete;

    // Stops it now; its sockets go with it.
    void stop();

    // The device count of its ready line.
    int readyDevices() const { return readyDevices_; }
    std::string socketPath(int sg) const;

    // `diskemu set ROOT ID assignments...`; throws std::runtime_error with
    // its words when it refuses.
    void set(const std::string& id, const std::vector<std::string>& assignments) const;

    // sg_io_hdr directions.
    static constexpr int kNone = -1;
    static constexpr int kToDevice = -2;
    static constexpr int kFromDevice = -3;

    struct Reply {
        bool answered = false; // false: no connection, or closed without a whole response
        uint32_t status = 0;
        uint32_t hostStatus = 0;
        uint32_t driverStatus = 0;
        std::vector<uint8_t> sense;
        std::vector<uint8_t> data;
    };
    Reply request(int sg, const std::vector<uint8_t>& cdb, int direction = kFromDevice, uint32_t dxferLen = 4096,
                  const std::vector<uint8_t>& dataOut = {}) const;

private:
    std::string root_;
    pid_t child_ = -1;
    int readyDevices_ = -1;
};
