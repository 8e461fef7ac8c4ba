// The SDR repository cache reading the emulated RMC's repository through
// vekIPMIService: the whole walk, one walk for many first readers, a
// reservation taken away over LAN, failures that end the walk, and records
// longer than a BMC's answers.

#include "SDRRepositoryCache.h"
#include "vekIPMIService.h"
#include "vekIPMITestSupport.h"
#include "vekLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace vekIPMITest;
using vekIPMI::SDRRecord;

namespace {

// The real service on a channel of its own, letting a case act before each
// Get SDR.
class ObservedService : public vekIPMIService {
public:
    ObservedService() : vekIPMIService(64) {}
    vekIPMI::GetSDRResponse executeGetSDR(const vekIPMI::GetSDRRequest& request) override
    {
        requests.push_back(request);
        if (beforeGetSDR) {
            beforeGetSDR(requests.size());
        }
        return vekIPMIService::executeGetSDR(request);
    }

    std::function<void(size_t number)> beforeGetSDR;  // numbered from 1
    std::vector<vekIPMI::GetSDRRequest> requests;
};

// A cache of its own, outside the singleton.
class TestCache : public vekIPMI::SDRRepositoryCache {
public:
    explicit TestCache(vekIPMI::IPMIServiceInterface& service) : SDRRepositoryCache(service) {}
    std::vector<SDRRecord> records() { return std::vector<SDRRecord>(begin(), end()); }
};

class SDRCacheTest : public RmcCase {
};

TEST_F(SDRCacheTest, WalkReadsEveryRecordOnceForAllFirstReaders)
{
    LogTail log;
    vekIPMI::SDRRepositoryCacheInterface& cache = vekIPMI::SDRRepositoryCache::getInstance(vekIPMIService::getIPMIServiceInterface());
    const std::vector<SDRRecord> records(cache.begin(), cache.end());
    ASSERT_EQ(records.size(), 5u);
    std::vector<std::string> fruNames;
    for (const SDRRecord& r : records) {
        ASSERT_EQ(r.size(), vekIPMI::kSDRHeaderSize + r[vekIPMI::kSDRLengthOffset]) << "header and body, whole";
        if (vekIPMI::sdrRecordType(r) == vekIPMI::kSDRTypeFRUDeviceLocator) {
            fruNames.emplace_back(r.begin() + 16, r.begin() + 16 + (r[15] & 0x1F));
        }
    }
    EXPECT_EQ(vekIPMI::sdrRecordType(records.front()), vekIPMI::kSDRTypeMCDeviceLocator);
    EXPECT_EQ(fruNames, std::vector<std::string>({"UBM_BOX0_BP", "UBM_BOX1_BP", "PSU0"})) << "in repository order";
    EXPECT_TRUE(log.contains("Total SDR record count: [5]"));

    ObservedService observed;
    TestCache shared(observed);
    std::vector<size_t> seen(4, 0);
    std::vector<std::thread> readers;
    for (size_t i = 0; i < seen.size(); ++i) {
        readers.emplace_back([&shared, &seen, i] { seen[i] = shared.records().size(); });
    }
    for (std::thread& r : readers) {
        r.join();
    }
    EXPECT_EQ(seen, std::vector<size_t>(4, 5));
    EXPECT_EQ(shared.records(), records);
    EXPECT_EQ(observed.requests.size(), 10u) << "header and body of each record, once";
}

TEST_F(SDRCacheTest, ReservationTakenOverLanIsTakenAgainUntilItKeepsBeingTaken)
{
    if (!vekRmcEmulator::hasIpmitool()) {
        GTEST_SKIP() << "ipmitool is not installed (Debian package ipmitool)";
    }
    // Request 4 is the body of the second record: its header was read under
    // the reservation that LAN takes away now.
    ObservedService once;
    once.beforeGetSDR = [this](size_t number) {
        if (number == 4) {
            rmc_->reserveSdrOverLan();
        }
    };
    LogTail log;
    TestCache cache(once);
    EXPECT_EQ(cache.records().size(), 5u);
    ASSERT_EQ(once.requests.size(), 12u);
    const vekIPMI::GetSDRRequest& lost = once.requests[3];
    const vekIPMI::GetSDRRequest& again = once.requests[4];
    EXPECT_EQ(lost.offset, vekIPMI::kSDRHeaderSize);
    EXPECT_EQ(again.recordId, lost.recordId) << "the same record again";
    EXPECT_EQ(again.offset, 0) << "from its start";
    EXPECT_NE(again.reservationId, lost.reservationId) << "under a new reservation";
    EXPECT_TRUE(log.contains(vekLog::format("Reservation cancelled/invalidated when reading SDR [%d] @ [0x05]...",
                                            lost.recordId)))
        << log.text();

    // From the third record on, LAN reserves before every read.
    ObservedService always;
    always.beforeGetSDR = [this](size_t number) {
        if (number >= 5) {
            rmc_->reserveSdrOverLan();
        }
    };
    TestCache given(always);
    EXPECT_EQ(given.records().size(), 2u) << "what was read stays";
    EXPECT_TRUE(log.contains("the reservation keeps being cancelled")) << log.text();
}

TEST_F(SDRCacheTest, RmcGoneEndsTheWalkWithWhatWasReadForGood)
{
    ObservedService observed;
    observed.beforeGetSDR = [this](size_t number) {
        if (number == 6) {
            rmc_->stop();
        }
    };
    LogTail log;
    TestCache cache(observed);
    EXPECT_EQ(cache.records().size(), 2u);
    EXPECT_EQ(observed.requests.size(), 6u) << "no retry of other failures";
    EXPECT_TRUE(log.contains(vekLog::format("Failed to retrieve SDR [0x%04x] @ offset [0x05]: (",
                                            observed.requests[5].recordId)))
        << log.text();

    rmc_->restart();
    EXPECT_EQ(cache.records().size(), 2u) << "read once: the cache does not try again";
}

TEST(SDRCacheEmpty, EmptyRepositoryHasNoRecords)
{
    VEK_REQUIRE_RMC_EMULATOR();
    vekTestRoot root;
    root.writeFile("/empty.sdrs", "# no records\n");
    vekRmcEmulator rmc(root.path() + "/rmc", root.path() + "/empty.sdrs");
    ObservedService observed;
    EXPECT_TRUE(TestCache(observed).records().empty());
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
        completionCode = netfn == vekIPMI::kNetFnStorage ? 0 : 0xC1;
        if (cmd == vekIPMI::kCmdGetSDRRepositoryInfo) {
            answer.assign(infoSize, 0);
            answer[0] = 0x51;
            answer[1] = static_cast<uint8_t>(records.size());
        } else if (cmd == vekIPMI::kCmdReserveSDRRepository) {
            answer = {0x34, 0x12};
        } else if (cmd == vekIPMI::kCmdGetSDR && dataLen == 6 && size_t(data[2] | data[3] << 8) < records.size()) {
            const size_t index = data[2] | data[3] << 8;
            const SDRRecord& r = records[index];
            const uint16_t next = index + 1 < records.size() ? static_cast<uint16_t>(index + 1) : 0xFFFF;
            answer = {static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)};
            const size_t from = std::min<size_t>(data[4], r.size());
            const size_t take = std::min<size_t>({data[5], r.size() - from, maxData - 2});
            answer.insert(answer.end(), r.begin() + from, r.begin() + from + take);
        } else {
            completionCode = 0xCB;
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

TEST(SDRCachePieces, LongRecordsAreReadWholeAndAShortAnswerEndsTheSetup)
{
    vekTestRoot root;
    SmallBufferBmc bmc;
    bmc.records = {recordOf(0, 0x12, 0), recordOf(1, 0x11, 60), recordOf(2, 0x01, 250), recordOf(3, 0x11, 6)};
    TestCache cache(bmc);
    EXPECT_EQ(cache.records(), bmc.records);

    bmc.infoSize = 3;
    LogTail log;
    TestCache shortInfo(bmc);
    EXPECT_TRUE(shortInfo.begin() == shortInfo.end());
    EXPECT_TRUE(log.contains("Insufficient Get SDR Repository Info response data size [3]. Expected [14]."));
    EXPECT_TRUE(log.contains("Failed to build SDR Repository cache: (Incorrect response data size for Get SDR "
                             "Repository Info!)!"))
        << log.text();
}

} // namespace
