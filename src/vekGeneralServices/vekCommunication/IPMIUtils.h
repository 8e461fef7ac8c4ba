#pragma once

// A light channel to the RMC, made for one use by the event handler and the
// doorbell monitor:
//
//     ipmi::IPMIUtils utils;   // throws ipmi_exceptions::invalid_handle
//     if (utils.RMC_CLI_Cmd_Execution("MPEventGen", json) == 1) { ... }
//
// All traffic of all instances goes under one static mutex. It does not share
// a lock with vekIPMIService: the driver (or the external link) keeps the
// messages of the two apart. The RMC CLI chunks are the same as
// vekIPMIService sends (vekRMCCliProtocol.h), but the first status above 2
// ends the transfer here.

#include "vekIPMITransport.h"
#include "vekRMCCliProtocol.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace ipmi {

// Get Device ID (net function 0x06, command 0x01): the 15 data bytes.
struct _GET_DEVICE_ID {
    uint8_t device_id;
    uint8_t device_revision;
    uint8_t firmware_revision1;
    uint8_t firmware_revision2;
    uint8_t ipmi_version;
    uint8_t additional_device_support;
    uint8_t manufacturer_id[3];
    uint8_t product_id[2];
    uint8_t aux_firmware_revision[4];
} __attribute__((packed));

// The RMC's interface capabilities (net function 0x06, command 0x36): the 5
// data bytes.
struct _GET_BMC_CAPABILITIES {
    uint8_t outstanding_requests;
    uint8_t input_buffer_size;
    uint8_t output_buffer_size;
    uint8_t request_to_response_time;  // seconds
    uint8_t retries;
} __attribute__((packed));

// The partition of this host in the rack (net function 0x34, command 0x08):
// the 8 data bytes, the id little-endian first.
struct _GET_PARTITION_ID {
    uint8_t partition_id[4];
    uint8_t reserved[4];
} __attribute__((packed));

class IPMIUtils {
public:
    // Opens the channel, trying twice; throws ipmi_exceptions::invalid_handle
    // when it cannot be opened.
    IPMIUtils();
    ~IPMIUtils();
    IPMIUtils(const IPMIUtils&) = delete;
    IPMIUtils& operator=(const IPMIUtils&) = delete;

    // Sends the payload as an RMC CLI command and logs the outcome. 0 when the
    // RMC took it (transfer status 0), 1 when not.
    int RMC_CLI_Cmd_Execution(std::string command, std::string data);
    // Whether doorbell 1 asks for the inventory now; false on any failure,
    // and when the RMC answers with a completion code (nothing asked).
    bool checkIPMIDBRequest();
    // The meaning of doorbell 1, 2 or 3 (see checkIPMIBuffer); 0 on failure.
    int checkIPMIDBGenericRequest(int level);
    // What a doorbell's answer (NUL-terminated) means for its level.
    int checkIPMIBuffer(int level, unsigned char* buffer);

    // Sends the payload; 0 when every chunk was answered, else the code of
    // the failure on the way (7 request, 8 response). The RMC's status and
    // exit status of the last chunk answered go to the last two arguments.
    // Stops at the first status above 2, and at a chunk answered without a
    // status (a completion code other than 0: see refusal()). The caller
    // holds the mutex.
    int RMC_CLI_Exec(const std::string& command, const std::string& data, int& status, int& exitStatus);
    // How the last RMC_CLI_Exec ended when a chunk's answer carried no
    // status (noStatus set, with the completion code), else empty.
    const vekIPMI::rmcCli::Outcome& refusal() const { return refusal_; }

    // One request under the mutex: true and the answer's data (cut to the
    // capacity in responseLen) when it came, false otherwise. Throws nothing.
    bool request(uint8_t netfn, uint8_t cmd, const uint8_t* data, size_t dataLen, uint8_t* response,
                 size_t& responseLen, uint8_t& completionCode);

private:
    // One exchange: true on success. lastFailure_ says which side failed.
    bool execute(uint8_t netfn, uint8_t cmd, const uint8_t* data, size_t dataLen, uint8_t* response,
                 size_t& responseLen, uint8_t& completionCode);
    // Reads a doorbell into a zeroed kDoorbellBufferSize buffer. False when
    // it asks for nothing: the channel failed (logged as an error) or the
    // RMC answered with a completion code other than 0.
    bool readDoorbell(int level, unsigned char* buffer);

    // Serialises all traffic of this class.
    static std::mutex mutex_;

    std::unique_ptr<vekIPMI::Transport> transport_;
    int lastFailure_ = 0;
    vekIPMI::rmcCli::Outcome refusal_;
};

} // namespace ipmi

// Ask the RMC with a temporary ipmi::IPMIUtils; 0 on success, -1 when the
// channel or the command failed (logged).
int GetDeviceIdInfo(ipmi::_GET_DEVICE_ID& deviceId);
int GetCapabilities(ipmi::_GET_BMC_CAPABILITIES& capabilities);
// The partition id, or -1 when it could not be read. The argument is the
// number of tries (at least one).
int GetPartitionId(unsigned int tries);
