#pragma once

// The RMC's Sensor Data Record repository, read whole once, by the first
// reader on its own thread, then served from memory. The location and
// backplane code search it, for instance for FRU device locator records.
//
//     vekIPMI::SDRRepositoryCacheInterface& sdrs = platformServices.getIPMISDRRepositoryCache();
//     for (const vekIPMI::SDRRecord& record : sdrs) {
//         if (vekIPMI::sdrRecordType(record) == vekIPMI::kSDRTypeFRUDeviceLocator) { ... }
//     }
//
// Every iteration call first makes sure the repository was read; concurrent
// first readers wait for the one read. What could not be read is missing
// from the cache (logged), never retried: the repository does not change
// while the service runs.

#include "vekIPMIServiceInterface.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace vekIPMI {

// One record as it came: the 5-byte header (record id, SDR version, record
// type, length of the rest) and the rest.
using SDRRecord = std::vector<uint8_t>;

const size_t kSDRHeaderSize = 5;
const size_t kSDRTypeOffset = 3;
const size_t kSDRLengthOffset = 4;
const uint8_t kSDRTypeFRUDeviceLocator = 0x11;
const uint8_t kSDRTypeMCDeviceLocator = 0x12;

inline uint16_t sdrRecordId(const SDRRecord& record)
{
    return record.size() >= 2 ? static_cast<uint16_t>(record[0] | record[1] << 8) : 0;
}
inline uint8_t sdrRecordType(const SDRRecord& record)
{
    return record.size() > kSDRTypeOffset ? record[kSDRTypeOffset] : 0;
}

class SDRRepositoryCacheInterface {
public:
    using Records = std::vector<SDRRecord>;
    using const_iterator = Records::const_iterator;
    using const_reverse_iterator = Records::const_reverse_iterator;

    virtual ~SDRRepositoryCacheInterface() = default;

    virtual const_iterator begin() = 0;
    virtual const_iterator end() = 0;
    virtual const_iterator cbegin() = 0;
    virtual const_iterator cend() = 0;
    virtual const_reverse_iterator rbegin() = 0;
    virtual const_reverse_iterator rend() = 0;
    virtual const_reverse_iterator crbegin() = 0;
    virtual const_reverse_iterator crend() = 0;
};

class SDRRepositoryCache : public SDRRepositoryCacheInterface {
public:
    // The singleton; the service counts only at the first call.
    static SDRRepositoryCache& getInstance(IPMIServiceInterface& service);

    const_iterator begin() override;
    const_iterator end() override;
    const_iterator cbegin() override;
    const_iterator cend() override;
    const_reverse_iterator rbegin() override;
    const_reverse_iterator rend() override;
    const_reverse_iterator crbegin() override;
    const_reverse_iterator crend() override;

    SDRRepositoryCache(const SDRRepositoryCache&) = delete;
    SDRRepositoryCache& operator=(const SDRRepositoryCache&) = delete;

    // Reads one record whole, in pieces, under the reservation; the id of
    // the record after it goes to nextRecordId. On failure logs, stores the
    // offset of the failing read in failedOffset and rethrows.
    static SDRRecord readSDR(uint16_t recordId, uint16_t reservationId, IPMIServiceInterface& service,
                             uint16_t& nextRecordId, uint8_t& failedOffset);

protected:
    // For tests: a cache of its own, outside the singleton.
    explicit SDRRepositoryCache(IPMIServiceInterface& service);

private:
    void refreshCacheOnce();
    void refreshCache();

    Records records_;
    IPMIServiceInterface& service_;
    std::once_flag once_;
};

} // namespace vekIPMI
