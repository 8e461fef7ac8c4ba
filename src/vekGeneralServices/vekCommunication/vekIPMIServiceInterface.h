#pragma once

// The standard IPMI commands the service asks of the RMC besides its own OEM
// commands: Get Device ID and the SDR repository. IPMIServiceBase decodes and
// checks the answers; a concrete service supplies the one exchange, execute().

#include "vekIPMIExceptions.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vekIPMI {

const uint8_t kNetFnApp = 0x06;
const uint8_t kNetFnStorage = 0x0A;
const uint8_t kCmdGetDeviceID = 0x01;
const uint8_t kCmdGetSDRRepositoryInfo = 0x20;
const uint8_t kCmdReserveSDRRepository = 0x22;
const uint8_t kCmdGetSDR = 0x23;

const uint8_t kCompletionCodeOk = 0x00;
const uint8_t kCompletionCodeReservationCancelled = 0xC5;

// Get Device ID, the 15 bytes after the completion code.
struct GetDeviceIDResponse {
    uint8_t deviceId = 0;
    uint8_t deviceRevision = 0;
    uint8_t firmwareRevision1 = 0;
    uint8_t firmwareRevision2 = 0;
    uint8_t ipmiVersion = 0;
    uint8_t additionalDeviceSupport = 0;
    uint32_t manufacturerId = 0;  // 20 bits
    uint16_t productId = 0;
    uint8_t auxFirmwareRevision[4] = {0, 0, 0, 0};
};
const size_t kGetDeviceIDResponseSize = 15;

// Get SDR Repository Info, the 14 bytes after the completion code.
struct GetSDRRepositoryInfoResponse {
    uint8_t sdrVersion = 0;
    uint16_t recordCount = 0;
    uint16_t freeSpace = 0;
    uint32_t mostRecentAddition = 0;
    uint32_t mostRecentErase = 0;
    uint8_t operationSupport = 0;
};
const size_t kGetSDRRepositoryInfoResponseSize = 14;

const size_t kReserveSDRRepositoryResponseSize = 2;

// Get SDR: reservation id, record id, offset into the record, bytes to read.
struct GetSDRRequest {
    uint16_t reservationId = 0;
    uint16_t recordId = 0;
    uint8_t offset = 0;
    uint8_t bytesToRead = 0;
};
const size_t kGetSDRRequestSize = 6;
// The answer starts with the id of the next record.
const size_t kGetSDRMinimumResponseSize = 2;
// Record id that ends the repository.
const uint16_t kLastSDRRecordId = 0xFFFF;

struct GetSDRResponse {
    uint16_t nextRecordId = kLastSDRRecordId;
    std::vector<uint8_t> data;  // the bytes of the record read
};

class IPMIServiceInterface {
public:
    virtual ~IPMIServiceInterface() = default;

    // Each throws InvalidResponseDataSizeException for a short answer,
    // IPMICommandFailureException for a completion code other than 0
    // (SDRRepositoryReservationNotValidException for 0xC5 on Get SDR), and
    // std::exception when the channel fails.
    virtual GetDeviceIDResponse executeGetDeviceID() = 0;
    virtual GetSDRRepositoryInfoResponse executeGetSDRRepositoryInfo() = 0;
    // The reservation id.
    virtual uint16_t executeReserveSDRRepository() = 0;
    virtual GetSDRResponse executeGetSDR(const GetSDRRequest& request) = 0;
};

// The name and log lines of one command (vekIPMIServiceInterface.cpp).
struct IPMICommandTexts;

class IPMIServiceBase : public IPMIServiceInterface {
public:
    GetDeviceIDResponse executeGetDeviceID() override;
    GetSDRRepositoryInfoResponse executeGetSDRRepositoryInfo() override;
    uint16_t executeReserveSDRRepository() override;
    GetSDRResponse executeGetSDR(const GetSDRRequest& request) override;

    // One request and its answer. On entry responseLen is the capacity of
    // response; on return the number of data bytes stored there (the
    // completion code apart), cut to the capacity. Throws when the channel
    // fails.
    virtual void execute(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t dataLen,
                         uint8_t* response, size_t& responseLen, uint8_t& completionCode) = 0;

private:
    // Runs a command with LUN 0 and checks completion code and size; the
    // data of the answer.
    std::vector<uint8_t> run(uint8_t netfn, uint8_t cmd, const uint8_t* data, size_t dataLen,
                             const IPMICommandTexts& command, size_t requiredSize);
};

} // namespace vekIPMI
