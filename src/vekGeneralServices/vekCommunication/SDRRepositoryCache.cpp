#include "SDRRepositoryCache.h"

#include "vekLog.h"

#include <algorithm>
#include <set>

namespace {
const char TAG[] = "SDR_CACHE";

// Room for the largest record: a 5-byte header and up to 252 more.
const size_t kRecordBufferSize = 257;
// Reads stop when the offset passes this.
const size_t kHighestOffset = 254;
// A record whose reservation is lost this often in a row is given up: the
// other side keeps reserving, and the first reader must not wait forever.
const int kReservationRetries = 5;

} // namespace

namespace vekIPMI {

SDRRepositoryCache& SDRRepositoryCache::getInstance(IPMIServiceInterface& service)
{
    static SDRRepositoryCache instance(service);
    return instance;
}

SDRRepositoryCache::SDRRepositoryCache(IPMIServiceInterface& service) : service_(service) {}

void SDRRepositoryCache::refreshCacheOnce()
{
    std::call_once(once_, [this] { refreshCache(); });
}

SDRRecord SDRRepositoryCache::readSDR(uint16_t recordId, uint16_t reservationId, IPMIServiceInterface& service,
                                      uint16_t& nextRecordId, uint8_t& failedOffset)
{
    uint8_t buffer[kRecordBufferSize] = {0};
    size_t offset = 0;
    size_t remaining = kSDRHeaderSize;
    bool headerRead = false;
    try {
        while (remaining > 0 && offset <= kHighestOffset) {
            GetSDRRequest request;
            request.reservationId = reservationId;
            request.recordId = recordId;
            request.offset = static_cast<uint8_t>(offset);
            request.bytesToRead = static_cast<uint8_t>(std::min(remaining, kRecordBufferSize - offset));
            failedOffset = request.offset;
            const GetSDRResponse response = service.executeGetSDR(request);
            if (response.data.empty()) {
                throw InvalidResponseDataSizeException("Get SDR");
            }
            const size_t got = std::min(response.data.size(), static_cast<size_t>(request.bytesToRead));
            std::copy(response.data.begin(), response.data.begin() + got, buffer + offset);
            offset += got;
            remaining -= got;
            nextRecordId = response.nextRecordId;
            if (!headerRead && offset >= kSDRHeaderSize) {
                headerRead = true;
                remaining = std::min(static_cast<size_t>(buffer[kSDRLengthOffset]), kRecordBufferSize - offset);
            }
        }
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Failed to retrieve SDR [0x%04x] @ offset [0x%02x]: (%s)!", recordId, failedOffset,
                      e.what());
        throw;
    }
    VEK_LOG_DEBUG(TAG, "SDR [0x%04x] read successful.", recordId);
    return SDRRecord(buffer, buffer + offset);
}

void SDRRepositoryCache::refreshCache()
{
    uint16_t reservationId = 0;
    uint16_t recordCount = 0;
    try {
        const GetSDRRepositoryInfoResponse info = service_.executeGetSDRRepositoryInfo();
        VEK_LOG_INFO(TAG, "SDR Version: [0x%02x]", info.sdrVersion);
        VEK_LOG_INFO(TAG, "Total SDR record count: [%d]", info.recordCount);
        VEK_LOG_INFO(TAG, "Supported operations: [0x%02hhx]", info.operationSupport);
        recordCount = info.recordCount;
        reservationId = service_.executeReserveSDRRepository();
        VEK_LOG_INFO(TAG, "Reservation ID: [0x%04x]", reservationId);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Failed to build SDR Repository cache: (%s)!", e.what());
        return;
    }
    if (recordCount == 0) {
        return;
    }

    std::set<uint16_t> seen;
    uint16_t recordId = 0;
    int lostReservations = 0;
    while (recordId != kLastSDRRecordId) {
        if (!seen.insert(recordId).second) {
            VEK_LOG_ERROR(TAG, "Failed to retrieve SDR [0x%04x]: (%s)!", recordId,
                          "the repository links back to a record already read");
            break;
        }
        uint16_t nextRecordId = kLastSDRRecordId;
        uint8_t offset = 0;
        try {
            records_.push_back(readSDR(recordId, reservationId, service_, nextRecordId, offset));
            lostReservations = 0;
            recordId = nextRecordId;
        } catch (const SDRRepositoryReservationNotValidException&) {
            VEK_LOG_WARNING(TAG, "Reservation cancelled/invalidated when reading SDR [%d] @ [0x%02x]...", recordId,
                            offset);
            seen.erase(recordId);
            if (++lostReservations > kReservationRetries) {
                VEK_LOG_ERROR(TAG, "Failed to retrieve SDR [0x%04x]: (%s)!", recordId,
                              "the reservation keeps being cancelled");
                break;
            }
            try {
                reservationId = service_.executeReserveSDRRepository();
                VEK_LOG_INFO(TAG, "Reservation ID: [0x%04x]", reservationId);
            } catch (const std::exception& e) {
                VEK_LOG_ERROR(TAG, "Failed to retrieve SDR [0x%04x]: (%s)!", recordId, e.what());
                break;
            }
        } catch (const std::exception& e) {
            VEK_LOG_ERROR(TAG, "Failed to retrieve SDR [0x%04x]: (%s)!", recordId, e.what());
            break;
        }
    }
    VEK_LOG_INFO(TAG, "SDR repository cache holds %zu records", records_.size());
}

SDRRepositoryCacheInterface::const_iterator SDRRepositoryCache::begin()
{
    refreshCacheOnce();
    return records_.cbegin();
}

SDRRepositoryCacheInterface::const_iterator SDRRepositoryCache::end()
{
    refreshCacheOnce();
    return records_.cend();
}

SDRRepositoryCacheInterface::const_iterator SDRRepositoryCache::cbegin()
{
    refreshCacheOnce();
    return records_.cbegin();
}

SDRRepositoryCacheInterface::const_iterator SDRRepositoryCache::cend()
{
    refreshCacheOnce();
    return records_.cend();
}

SDRRepositoryCacheInterface::const_reverse_iterator SDRRepositoryCache::rbegin()
{
    refreshCacheOnce();
    return records_.crbegin();
}

SDRRepositoryCacheInterface::const_reverse_iterator SDRRepositoryCache::rend()
{
    refreshCacheOnce();
    return records_.crend();
}

SDRRepositoryCacheInterface::const_reverse_iterator SDRRepositoryCache::crbegin()
{
    refreshCacheOnce();
    return records_.crbegin();
}

SDRRepositoryCacheInterface::const_reverse_iterator SDRRepositoryCache::crend()
{
    refreshCacheOnce();
    return records_.crend();
}

} // namespace vekIPMI
