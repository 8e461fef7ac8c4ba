#include "vekIPMIServiceInterface.h"

#include "vekIPMITransport.h"
#include "vekLog.h"

namespace vekIPMI {

struct IPMICommandTexts {
    const char* name;
    const char* finishedWithCode;  // completion code
    const char* insufficientData;  // data size, required size
};

} // namespace vekIPMI

namespace {
const char TAG[] = "IPMI_SERVICE";

const vekIPMI::IPMICommandTexts kGetDeviceID = {
    "Get Device ID",
    "Get Device ID finished with CC: [0x%02x]",
    "Insufficient Get Device ID response data size [%hu]. Expected [%zu].",
};
const vekIPMI::IPMICommandTexts kGetSDRRepositoryInfo = {
    "Get SDR Repository Info",
    "Get SDR Repository Info finished with CC: [0x%02x]",
    "Insufficient Get SDR Repository Info response data size [%hu]. Expected [%zu].",
};
const vekIPMI::IPMICommandTexts kReserveSDRRepository = {
    "Reserve SDR Repository",
    "Reserve SDR Repository finished with CC: [0x%02x]",
    "Insufficient Reserve SDR Repository response data size [%hu]. Expected [%zu].",
};
const vekIPMI::IPMICommandTexts kGetSDR = {
    "Get SDR",
    "Get SDR finished with CC: [0x%02x]",
    "Insufficient Get SDR response data size [%hu]. Expected [%zu].",
};

uint16_t le16(const std::vector<uint8_t>& bytes, size_t at)
{
    return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

uint32_t le32(const std::vector<uint8_t>& bytes, size_t at)
{
    return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
           static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

std::string hexCode(unsigned char code)
{
    return vekLog::format("0x%02x", code);
}

} // namespace

namespace vekIPMI {

InvalidResponseDataSizeException::InvalidResponseDataSizeException(const std::string& command)
    : Exception("Incorrect response data size for " + command + "!")
{
}

IPMICommandFailureException::IPMICommandFailureException(unsigned char completionCode)
    : Exception("IPMI command failed with: [" + hexCode(completionCode) + "]"), completionCode_(completionCode)
{
}

SDRRepositoryReservationNotValidException::SDRRepositoryReservationNotValidException()
    : IPMICommandFailureException(kCompletionCodeReservationCancelled)
{
}

std::vector<uint8_t> IPMIServiceBase::run(uint8_t netfn, uint8_t cmd, const uint8_t* data, size_t dataLen,
                                          const IPMICommandTexts& command, size_t requiredSize)
{
    std::vector<uint8_t> response(kMaxResponseSize);
    size_t length = response.size();
    uint8_t completionCode = 0xFF;
    execute(netfn, cmd, 0, data, dataLen, response.data(), length, completionCode);
    if (completionCode != kCompletionCodeOk) {
        VEK_LOG_ERROR(TAG, command.finishedWithCode, completionCode);
        if (cmd == kCmdGetSDR && netfn == kNetFnStorage && completionCode == kCompletionCodeReservationCancelled) {
            VEK_LOG_WARNING(TAG, "Get SDR failed due to reservation");
            throw SDRRepositoryReservationNotValidException();
        }
        throw IPMICommandFailureException(completionCode);
    }
    if (length < requiredSize) {
        VEK_LOG_ERROR(TAG, command.insufficientData, static_cast<unsigned short>(length), requiredSize);
        throw InvalidResponseDataSizeException(command.name);
    }
    response.resize(length);
    return response;
}

GetDeviceIDResponse IPMIServiceBase::executeGetDeviceID()
{
    const std::vector<uint8_t> r = run(kNetFnApp, kCmdGetDeviceID, nullptr, 0, kGetDeviceID, kGetDeviceIDResponseSize);
    GetDeviceIDResponse id;
    id.deviceId = r[0];
    id.deviceRevision = r[1];
    id.firmwareRevision1 = r[2];
    id.firmwareRevision2 = r[3];
    id.ipmiVersion = r[4];
    id.additionalDeviceSupport = r[5];
    id.manufacturerId = static_cast<uint32_t>(r[6] | r[7] << 8 | (r[8] & 0x0F) << 16);
    id.productId = le16(r, 9);
    for (size_t i = 0; i < 4; ++i) {
        id.auxFirmwareRevision[i] = r[11 + i];
    }
    return id;
}

GetSDRRepositoryInfoResponse IPMIServiceBase::executeGetSDRRepositoryInfo()
{
    const std::vector<uint8_t> r = run(kNetFnStorage, kCmdGetSDRRepositoryInfo, nullptr, 0, kGetSDRRepositoryInfo,
                                       kGetSDRRepositoryInfoResponseSize);
    GetSDRRepositoryInfoResponse info;
    info.sdrVersion = r[0];
    info.recordCount = le16(r, 1);
    info.freeSpace = le16(r, 3);
    info.mostRecentAddition = le32(r, 5);
    info.mostRecentErase = le32(r, 9);
    info.operationSupport = r[13];
    return info;
}

uint16_t IPMIServiceBase::executeReserveSDRRepository()
{
    const std::vector<uint8_t> r = run(kNetFnStorage, kCmdReserveSDRRepository, nullptr, 0, kReserveSDRRepository,
                                       kReserveSDRRepositoryResponseSize);
    return le16(r, 0);
}

GetSDRResponse IPMIServiceBase::executeGetSDR(const GetSDRRequest& request)
{
    const uint8_t data[kGetSDRRequestSize] = {
        static_cast<uint8_t>(request.reservationId), static_cast<uint8_t>(request.reservationId >> 8),
        static_cast<uint8_t>(request.recordId),      static_cast<uint8_t>(request.recordId >> 8),
        request.offset,                              request.bytesToRead,
    };
    const std::vector<uint8_t> r =
        run(kNetFnStorage, kCmdGetSDR, data, sizeof(data), kGetSDR, kGetSDRMinimumResponseSize);
    GetSDRResponse response;
    response.nextRecordId = le16(r, 0);
    response.data.assign(r.begin() + kGetSDRMinimumResponseSize, r.end());
    return response;
}

} // namespace vekIPMI
