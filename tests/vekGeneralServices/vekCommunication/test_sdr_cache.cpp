// The SDR repository cache reading the emulated RMC's repository through
// vekIPMIService: the whole walk, one walk for many first readers, a
// reservation taken away over LAN in the middle of a record, failures that
// end the walk, and an empty repository.

#include "SDRRepositoryCache.h"
#include "vekIPMIService.h"
#include "vekIPMITestSupport.h"
#include "vekLog.h"
#include "vekRmcEmulator.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMITest;
using vekIPMI::SDRRecord;

namespace {

// Forwards to the real service, and lets a case act before each Get SDR.
class ObservedService : public vekIPMI::IPMIServiceInterface {
public:
    explicit ObservedService(vekIPMI::IPMIServiceInterface& real) : real_(real) {}

    vekIPMI::GetDeviceIDResponse executeGetDeviceID() override { return real_.executeGetDeviceID(); }
    vekIPMI::GetSDRRepositoryInfoResponse executeGetSDRRepositoryInfo() override
    {
        ++infoCalls;
        return real_.executeGetSDRRepositoryInfo();
    }
    uint16_t executeReserveSDRRepository() override
    {
        ++reservations;
        return real_.executeReserveSDRRepository();
    }
    vekIPMI::GetSDRResponse executeGetSDR(const vekIPMI::GetSDRRequest& request) override
    {
        requests.push_back(request);
        if (beforeGetSDR) {
            beforeGetSDR(request, requests.size());
        }
        try {
            return real_.executeGetSDR(request);
        } catch (const vekIPMI::SDRRepositoryReservationNotValidException&) {
            ++reservationsLost;
            throw;
        }
    }

    // The request and its number, from 1.
    std::function<void(const vekIPMI::GetSDRRequest&, size_t)> beforeGetSDR;
    std::vector<vekIPMI::GetSDRRequest> requests;
    int infoCalls = 0;
    int reservations = 0;
    int reservationsLost = 0;

private:
    vekIPMI::IPMIServiceInterface& real_;
};

// A cache of its own, outside the singleton.
class TestCache : public vekIPMI::SDRRepositoryCache {
public:
    explicit TestCache(vekIPMI::IPMIServiceInterface& service) : SDRRepositoryCache(service) {}
};

std::vector<SDRRecord> recordsOf(vekIPMI::SDRRepositoryCacheInterface& cache)
{
    return std::vector<SDRRecord>(cache.begin(), cache.end());
}

std::string idString(const SDRRecord& record, size_t typeLengthOffset)
{
    const size_t length = record[typeLengthOffset] & 0x1F;
    return std::string(record.begin() + typeLengthOffset + 1, record.begin() + typeLengthOffset + 1 + length);
}

class SDRCacheTest : public vekIPMITest::RmcCase {
};

TEST_F(SDRCacheTest, WalkReadsEveryRecordAsItCame)
{
    LogTail log;
    vekIPMI::SDRRepositoryCacheInterface& cache =
        vekIPMI::SDRRepositoryCache::getInstance(vekIPMIService::getIPMIServiceInterface());
    const std::vector<SDRRecord> records = recordsOf(cache);

    const uint16_t count = vekIPMIService::getIPMIServiceInterface().executeGetSDRRepositoryInfo().recordCount;
    ASSERT_EQ(records.size(), count);
    ASSERT_EQ(records.size(), 5u);
    std::set<uint16_t> ids;
    std::vector<std::string> fruNames;
    for (const SDRRecord& r : records) {
        ASSERT_GE(r.size(), vekIPMI::kSDRHeaderSize);
        EXPECT_EQ(r.size(), vekIPMI::kSDRHeaderSize + r[vekIPMI::kSDRLengthOffset]) << "header and body, whole";
        EXPECT_EQ(r[2], 0x51) << "SDR version";
        ids.insert(vekIPMI::sdrRecordId(r));
        if (vekIPMI::sdrRecordType(r) == vekIPMI::kSDRTypeFRUDeviceLocator) {
            fruNames.push_back(idString(r, 15));
        }
    }
    EXPECT_EQ(ids.size(), records.size());
    EXPECT_EQ(vekIPMI::sdrRecordType(records.front()), vekIPMI::kSDRTypeMCDeviceLocator);
    EXPECT_EQ(idString(records.front(), 15), "RMC");
    EXPECT_EQ(fruNames, std::vector<std::string>({"UBM_BOX0_BP", "UBM_BOX1_BP", "PSU0"})) << "in repository order";

    // Every way to iterate sees the same records.
    EXPECT_TRUE(std::equal(cache.cbegin(), cache.cend(), records.begin(), records.end()));
    EXPECT_TRUE(std::equal(cache.rbegin(), cache.rend(), records.rbegin(), records.rend()));
    EXPECT_TRUE(std::equal(cache.crbegin(), cache.crend(), records.rbegin(), records.rend()));

    EXPECT_TRUE(log.contains("SDR Version: [0x51]"));
    EXPECT_TRUE(log.contains("Total SDR record count: [5]"));
    EXPECT_TRUE(log.contains("Supported operations: [0x"));
    EXPECT_TRUE(log.contains("Reservation ID: [0x"));
    EXPECT_TRUE(log.contains(vekLog::format("SDR [0x%04x] read successful.", vekIPMI::sdrRecordId(records.back()))));
}

TEST_F(SDRCacheTest, ManyFirstReadersShareOneWalk)
{
    ObservedService observed(vekIPMIService::getIPMIServiceInterface());
    TestCache cache(observed);
    std::vector<size_t> seen(4, 0);
    std::vector<std::thread> readers;
    for (size_t i = 0; i < seen.size(); ++i) {
        readers.emplace_back([&cache, &seen, i] {
            seen[i] = static_cast<size_t>(std::distance(cache.begin(), cache.end()));
        });
    }
    for (std::thread& r : readers) {
        r.join();
    }
    EXPECT_EQ(seen, std::vector<size_t>(4, 5));
    EXPECT_EQ(observed.infoCalls, 1);
    EXPECT_EQ(observed.requests.size(), 10u) << "header and body of each record, once";

    // Later readers read nothing more.
    recordsOf(cache);
    EXPECT_EQ(observed.requests.size(), 10u);
}

TEST_F(SDRCacheTest, ReservationTakenOverLanInTheMiddleOfARecord)
{
    if (!vekRmcEmulator::hasIpmitool()) {
        GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
    }
    ObservedService plain(vekIPMIService::getIPMIServiceInterface());
    TestCache clean(plain);
    const std::vector<SDRRecord> expected = recordsOf(clean);
    ASSERT_EQ(expected.size(), 5u);

    // Request 4 is the body of the second record: its header was read under
    // the reservation that LAN takes away now.
    ObservedService observed(vekIPMIService::getIPMIServiceInterface());
    observed.beforeGetSDR = [this](const vekIPMI::GetSDRRequest&, size_t number) {
        if (number == 4) {
            rmc_->reserveSdrOverLan();
        }
    };
    LogTail log;
    TestCache cache(observed);
    EXPECT_EQ(recordsOf(cache), expected);

    EXPECT_EQ(observed.reservationsLost, 1);
    EXPECT_EQ(observed.reservations, 2);
    ASSERT_GE(observed.requests.size(), 5u);
    const vekIPMI::GetSDRRequest& lost = observed.requests[3];
    const vekIPMI::GetSDRRequest& again = observed.requests[4];
    EXPECT_EQ(lost.offset, vekIPMI::kSDRHeaderSize);
    EXPECT_EQ(again.recordId, lost.recordId) << "the same record again";
    EXPECT_EQ(again.offset, 0) << "from its start";
    EXPECT_NE(again.reservationId, lost.reservationId) << "under the new reservation";
    EXPECT_EQ(observed.requests.size(), 12u);
    EXPECT_TRUE(log.contains(vekLog::format("Reservation cancelled/invalidated when reading SDR [%d] @ [0x05]...",
                                            lost.recordId)))
        << log.text();
}

TEST_F(SDRCacheTest, ReservationThatKeepsBeingTakenEndsTheWalk)
{
    if (!vekRmcEmulator::hasIpmitool()) {
        GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
    }
    // From the third record on, LAN reserves before every read.
    ObservedService observed(vekIPMIService::getIPMIServiceInterface());
    observed.beforeGetSDR = [this](const vekIPMI::GetSDRRequest&, size_t number) {
        if (number >= 5) {
            rmc_->reserveSdrOverLan();
        }
    };
    LogTail log;
    TestCache cache(observed);
    const std::vector<SDRRecord> records = recordsOf(cache);
    EXPECT_EQ(records.size(), 2u) << "what was read stays";
    EXPECT_EQ(observed.reservationsLost, 6);
    EXPECT_TRUE(log.contains("the reservation keeps being cancelled")) << log.text();
}

TEST_F(SDRCacheTest, RmcGoneInTheMiddleEndsTheWalkWithWhatWasRead)
{
    ObservedService observed(vekIPMIService::getIPMIServiceInterface());
    observed.beforeGetSDR = [this](const vekIPMI::GetSDRRequest&, size_t number) {
        if (number == 6) {
            rmc_->stop();
        }
    };
    LogTail log;
    TestCache cache(observed);
    const std::vector<SDRRecord> records = recordsOf(cache);
    EXPECT_EQ(records.size(), 2u);
    EXPECT_EQ(observed.requests.size(), 6u) << "no retry of other failures";
    const uint16_t third = observed.requests[5].recordId;
    EXPECT_TRUE(log.contains(vekLog::format("Failed to retrieve SDR [0x%04x] @ offset [0x05]: (", third)))
        << log.text();
    EXPECT_TRUE(log.contains(vekLog::format("Failed to retrieve SDR [0x%04x]: (", third)));

    // Read once: the cache does not try again.
    rmc_->restart();
    EXPECT_EQ(recordsOf(cache).size(), 2u);
}

TEST_F(SDRCacheTest, NoRmcAtAllGivesAnEmptyCache)
{
    vekIPMIService& service = vekIPMIService::getInstance();
    rmc_->stop();
    LogTail log;
    TestCache cache(service);
    EXPECT_TRUE(cache.begin() == cache.end());
    EXPECT_TRUE(log.contains("Failed to build SDR Repository cache: (")) << log.text();
}

TEST(SDRCacheEmpty, EmptyRepositoryHasNoRecords)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekTestRoot root;
    root.writeFile("/empty.sdrs", "# no records\n");
    vekRmcEmulator rmc(root.path() + "/rmc", root.path() + "/empty.sdrs");
    ObservedService observed(vekIPMIService::getIPMIServiceInterface());
    TestCache cache(observed);
    EXPECT_TRUE(cache.begin() == cache.end());
    EXPECT_TRUE(cache.cbegin() == cache.cend());
    EXPECT_TRUE(cache.rbegin() == cache.rend());
    EXPECT_TRUE(cache.crbegin() == cache.crend());
    EXPECT_EQ(observed.infoCalls, 1);
    EXPECT_TRUE(observed.requests.empty());
}

// A BMC of a test's own making behind the real decoding of IPMIServiceBase:
// serves a repository from memory and answers at most maxData bytes, as a
// BMC with small buffers does.
class SmallBufferBmc : public vekIPMI::IPMIServiceBase {
public:
    std::vector<SDRRecord> records;
    size_t maxData = 8;
    size_t infoSize = vekIPMI::kGetSDRRepositoryInfoResponseSize;

    void execute(uint8_t netfn, uint8_t cmd, uint8_t, const uint8_t* data, size_t dataLen, uint8_t* response,
                 size_t& responseLen, uint8_t& completionCode) override
    {
        std::vector<uint8_t> answer;
        completionCode = 0;
        if (netfn == vekIPMI::kNetFnStorage && cmd == vekIPMI::kCmdGetSDRRepositoryInfo) {
            answer.assign(infoSize, 0);
            answer[0] = 0x51;
            answer[1] = static_cast<uint8_t>(records.size());
        } else if (netfn == vekIPMI::kNetFnStorage && cmd == vekIPMI::kCmdReserveSDRRepository) {
            answer = {0x34, 0x12};
        } else if (netfn == vekIPMI::kNetFnStorage && cmd == vekIPMI::kCmdGetSDR && dataLen == 6) {
            const size_t index = data[2] | data[3] << 8;
            if ((data[0] | data[1] << 8) != 0x1234 || index >= records.size()) {
                completionCode = 0xCB;
            } else {
                const SDRRecord& r = records[index];
                const uint16_t next = index + 1 < records.size() ? static_cast<uint16_t>(index + 1) : 0xFFFF;
                answer = {static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)};
                const size_t from = std::min<size_t>(data[4], r.size());
                const size_t take = std::min<size_t>({data[5], r.size() - from, maxData - 2});
                answer.insert(answer.end(), r.begin() + from, r.begin() + from + take);
            }
        } else {
            completionCode = 0xC1;
        }
        responseLen = std::min(responseLen, answer.size());
        std::copy(answer.begin(), answer.begin() + responseLen, response);
    }
};

SDRRecord recordOf(uint16_t id, uint8_t type, size_t bodyLength)
{
    SDRRecord r = {static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 0x51, type,
                   static_cast<uint8_t>(bodyLength)};
    for (size_t i = 0; i < bodyLength; ++i) {
        r.push_back(static_cast<uint8_t>(i * 7 + id));
    }
    return r;
}

TEST(SDRCachePieces, LongRecordsAreReadWholeInAsManyPiecesAsTheBmcNeeds)
{
    vekTestRoot root;
    SmallBufferBmc bmc;
    bmc.records = {recordOf(0, 0x12, 0), recordOf(1, 0x11, 60), recordOf(2, 0x01, 250), recordOf(3, 0x11, 6)};
    TestCache cache(bmc);
    EXPECT_EQ(recordsOf(cache), bmc.records);
}

TEST(SDRCachePieces, ShortAnswerEndsTheSetupWithItsOwnException)
{
    vekTestRoot root;
    SmallBufferBmc bmc;
    bmc.records = {recordOf(0, 0x12, 3)};
    bmc.infoSize = 3;
    bmc.maxData = 64;
    EXPECT_THROW(bmc.executeGetSDRRepositoryInfo(), vekIPMI::InvalidResponseDataSizeException);

    LogTail log;
    TestCache cache(bmc);
    EXPECT_TRUE(cache.begin() == cache.end());
    EXPECT_TRUE(log.contains("Insufficient Get SDR Repository Info response data size [3]. Expected [14]."));
    EXPECT_TRUE(log.contains("Failed to build SDR Repository cache: (Incorrect response data size for Get SDR "
                             "Repository Info!)!"))
        << log.text();
}

} // namespace
