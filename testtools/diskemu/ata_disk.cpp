#include "ata_disk.h"

#include "byte_order.h"
#include "disk_facts.h"

#include <algorithm>

namespace diskemu {
namespace ata {

namespace {

constexpr size_t kBlock = 512;

// General purpose logs and SMART sub-commands the drive knows.
constexpr uint8_t kLogDirectory = 0x00;
constexpr uint8_t kSummaryErrorLog = 0x01;
constexpr uint8_t kExtendedErrorLog = 0x03;
constexpr uint8_t kDeviceStatistics = 0x04;
constexpr uint8_t kSctStatus = 0xE0;
constexpr uint8_t kSmartReadLog = 0xD5;
constexpr uint8_t kSmartReturnStatus = 0xDA;
constexpr uint64_t kSmartSignature = 0xC24F; // LBA(23:8) of every SMART command

// Device statistics pages: 0 list, 1 general, 5 temperature, 7 solid state.
constexpr uint8_t kStatisticsList = 0x00;
constexpr uint8_t kGeneralStatistics = 0x01;
constexpr uint8_t kTemperatureStatistics = 0x05;
constexpr uint8_t kSolidStateStatistics = 0x07;

// Flags of a device statistic (its byte 7): supported, valid.
constexpr uint8_t kStatisticSupportedValid = 0xC0;

void putWord(Bytes& block, size_t word, uint16_t value) { putLe(block, 2 * word, value, 2); }

// ATA strings hold two characters per word, the first in the high byte.
void putAtaString(Bytes& block, size_t firstWord, const std::string& text, size_t words)
{
    const std::string padded = blankPadded(text, 2 * words);
    for (size_t i = 0; i < words; ++i) {
        putWord(block, firstWord + i,
                static_cast<uint16_t>((static_cast<uint8_t>(padded[2 * i]) << 8) | static_cast<uint8_t>(padded[2 * i + 1])));
    }
}

// Makes the sum of the block's bytes zero, with 'signature' before the
// checksum when the layout has one (IDENTIFY DEVICE).
void sealChecksum(Bytes& block, int signature = -1)
{
    size_t last = kBlock - 1;
    if (signature >= 0) {
        block[kBlock - 2] = static_cast<uint8_t>(signature);
    }
    uint8_t sum = 0;
    for (size_t i = 0; i < last; ++i) {
        sum = static_cast<uint8_t>(sum + block[i]);
    }
    block[last] = static_cast<uint8_t>(-sum);
}

void putStatistic(Bytes& page, size_t at, uint64_t value, size_t width)
{
    putLe(page, at, value, width);
    page.at(at + 7) = kStatisticSupportedValid;
}

std::vector<uint8_t> statisticsPages(const simstorage::Device& device)
{
    std::vector<uint8_t> pages = {kStatisticsList, kGeneralStatistics, kTemperatureStatistics};
    if (isSolidState(device)) {
        pages.push_back(kSolidStateStatistics);
    }
    return pages;
}

// One page of the Device Statistics log; empty when the drive lacks it.
Bytes statisticsPage(const simstorage::Device& device, uint16_t number)
{
    const std::vector<uint8_t> supported = statisticsPages(device);
    if (std::find(supported.begin(), supported.end(), number) == supported.end()) {
        return {};
    }
    Bytes page(kBlock, 0);
    putLe(page, 0, 1, 2); // revision
    page[2] = static_cast<uint8_t>(number);
    switch (number) {
    case kStatisticsList:
        page[8] = static_cast<uint8_t>(supported.size());
        std::copy(supported.begin(), supported.end(), page.begin() + 9);
        break;
    case kGeneralStatistics:
        putStatistic(page, 16, device.powerOnHours, 4);
        break;
    case kTemperatureStatistics:
        putStatistic(page, 8, static_cast<uint8_t>(device.temperature), 1);
        putStatistic(page, 32, static_cast<uint8_t>(device.temperature), 1); // highest this life, as far as known
        putStatistic(page, 88, static_cast<uint8_t>(device.maxTemperature), 1);
        break;
    case kSolidStateStatistics:
        putStatistic(page, 8, static_cast<uint8_t>(std::clamp(device.wear, 0, 255)), 1);
        break;
    }
    return page;
}

Bytes logDirectory(const simstorage::Device& device, bool general)
{
    Bytes page(kBlock, 0);
    putWord(page, 0, 1); // logging version
    putWord(page, kSummaryErrorLog, general ? 0 : 1);
    putWord(page, kExtendedErrorLog, general ? 1 : 0);
    putWord(page, kDeviceStatistics, static_cast<uint16_t>(statisticsPages(device).back() + 1));
    putWord(page, kSctStatus, 1);
    return page;
}

Bytes extendedErrorLog(const simstorage::Device& device)
{
    Bytes page(kBlock, 0);
    const int errors = loggedErrors(device);
    page[0] = 1; // version
    putLe(page, 2, static_cast<uint16_t>(std::min(errors, 0xffff)), 2); // error log index
    putLe(page, 500, static_cast<uint16_t>(std::min(errors, 0xffff)), 2); // device error count
    sealChecksum(page);
    return page;
}

Bytes summaryErrorLog(const simstorage::Device& device)
{
    Bytes page(kBlock, 0);
    const int errors = loggedErrors(device);
    page[0] = 1; // version
    page[1] = static_cast<uint8_t>(errors == 0 ? 0 : 1 + (errors - 1) % 5); // most recent of five entries
    putLe(page, 452, static_cast<uint16_t>(std::min(errors, 0xffff)), 2);
    sealChecksum(page);
    return page;
}

Bytes sctStatus(const simstorage::Device& device)
{
    constexpr uint8_t kUnknownTemperature = 0x80;
    Bytes page(kBlock, 0);
    putLe(page, 0, 3, 2); // format version
    putLe(page, 2, 1, 2); // SCT version
    putLe(page, 4, 1, 2); // SCT command set revision
    const auto current = static_cast<uint8_t>(device.temperature);
    page[200] = current;
    page[201] = current; // lowest and highest of this power cycle
    page[202] = current;
    page[203] = kUnknownTemperature; // lifetime extremes: not kept
    page[204] = kUnknownTemperature;
    return page;
}

// The pages [first, first + count) of a log, each produced by 'page';
// aborted when any is missing.
template <typename PageOf>
Result readPages(uint16_t first, uint16_t count, PageOf page)
{
    if (count == 0) {
        return {Result::kAborted, {}};
    }
    Result result;
    for (uint32_t number = first; number < uint32_t{first} + count; ++number) {
        Bytes one = page(static_cast<uint16_t>(number));
        if (one.empty()) {
            return {Result::kAborted, {}};
        }
        result.data.insert(result.data.end(), one.begin(), one.end());
    }
    return result;
}

Result readLogExt(const simstorage::Device& device, const Command& command)
{
    const auto log = static_cast<uint8_t>(command.lba & 0xff);
    const auto first = static_cast<uint16_t>(((command.lba >> 8) & 0xff) | ((command.lba >> 24) & 0xff00));
    if (device.state == "notready") {
        return {Result::kNotReady, {}};
    }
    if (log == kExtendedErrorLog && device.health == "failed") {
        return {Result::kDeviceFault, {}};
    }
    return readPages(first, command.count, [&](uint16_t number) -> Bytes {
        switch (log) {
        case kLogDirectory:
            return number == 0 ? logDirectory(device, true) : Bytes{};
        case kExtendedErrorLog:
            return number == 0 ? extendedErrorLog(device) : Bytes{};
        case kDeviceStatistics:
            return statisticsPage(device, number);
        case kSctStatus:
            return number == 0 ? sctStatus(device) : Bytes{};
        default:
            return {};
        }
    });
}

Result smart(const simstorage::Device& device, const Command& command)
{
    if (((command.lba >> 8) & 0xffff) != kSmartSignature) {
        return {Result::kAborted, {}};
    }
    const auto subcommand = static_cast<uint8_t>(command.features & 0xff);
    if (subcommand == kSmartReturnStatus) {
        return {};
    }
    if (subcommand != kSmartReadLog) {
        return {Result::kAborted, {}};
    }
    if (device.state == "notready") {
        return {Result::kNotReady, {}};
    }
    // The SMART logs are one page each; the extended logs are for READ LOG
    // EXT only, and any other address aborts as on a real drive.
    const auto log = static_cast<uint8_t>(command.lba & 0xff);
    if (log == kSummaryErrorLog && device.health == "failed") {
        return {Result::kDeviceFault, {}};
    }
    return readPages(0, command.count, [&](uint16_t number) -> Bytes {
        if (log == kDeviceStatistics) {
            return statisticsPage(device, number);
        }
        if (number != 0) {
            return {};
        }
        switch (log) {
        case kLogDirectory:
            return logDirectory(device, false);
        case kSummaryErrorLog:
            return summaryErrorLog(device);
        case kSctStatus:
            return sctStatus(device);
        default:
            return {};
        }
    });
}

} // namespace

std::string modelText(const simstorage::Device& device) { return blankPadded(device.model, 40); }
std::string serialText(const simstorage::Device& device) { return blankPadded(device.serial, 20); }
std::string firmwareText(const simstorage::Device& device) { return blankPadded(device.revision, 8); }

Bytes identify(const simstorage::Device& device)
{
    Bytes block(kBlock, 0);
    const uint64_t blocks = device.blocks;
    putWord(block, 0, 0x0040);  // fixed, not removable
    putWord(block, 1, 16383);   // obsolete geometry, as drives still show it
    putWord(block, 3, 16);
    putWord(block, 6, 63);
    putAtaString(block, 10, serialText(device), 10);
    putAtaString(block, 23, firmwareText(device), 4);
    putAtaString(block, 27, modelText(device), 20);
    putWord(block, 47, 0x8010); // 16 sectors per DRQ block
    putWord(block, 49, 0x2f00); // LBA, DMA, IORDY, standby timer
    putWord(block, 50, 0x4000);
    putWord(block, 53, 0x0007); // words 64-70 and 88 valid
    putWord(block, 59, 0x0110);
    putLe(block, 2 * 60, std::min<uint64_t>(blocks, 0x0fffffff), 4);
    putWord(block, 63, 0x0007);
    putWord(block, 64, 0x0003);
    for (size_t word = 65; word <= 68; ++word) {
        putWord(block, word, 120);
    }
    putWord(block, 75, 31);     // queue depth 32
    putWord(block, 76, 0x010e); // SATA 1.5, 3 and 6 Gb/s, NCQ
    putWord(block, 77, 0x0006); // running at 6 Gb/s
    putWord(block, 78, 0x0040);
    putWord(block, 79, 0x0040);
    putWord(block, 80, 0x07e0); // ATA/ATAPI-5 to ACS-3
    putWord(block, 81, 0x006d); // ACS-3 revision 5
    putWord(block, 82, 0x746b); // SMART, write cache, look-ahead...
    putWord(block, 83, 0x7501); // 48-bit addresses, flush cache (ext)
    putWord(block, 84, 0x4163); // SMART error logging and self-test, GPL, WWN
    putWord(block, 85, 0x7469);
    putWord(block, 86, 0xb401);
    putWord(block, 87, 0x4163);
    putWord(block, 88, 0x407f); // UDMA 0-6, mode 6 selected
    putLe(block, 2 * 100, blocks, 8);
    if (device.blockSize > kBlock) {
        putWord(block, 106, 0x5000); // logical sector longer than 256 words
        putLe(block, 2 * 117, device.blockSize / 2, 4);
    } else {
        putWord(block, 106, 0x4000);
    }
    const uint64_t wwn = worldWideName(device);
    for (size_t i = 0; i < 4; ++i) {
        putWord(block, 108 + i, static_cast<uint16_t>(wwn >> (48 - 16 * i)));
    }
    putWord(block, 119, 0x401c);
    putWord(block, 120, 0x401c);
    putWord(block, 168, static_cast<uint16_t>(formFactorCode(device)));
    putWord(block, 169, isSolidState(device) ? 0x0001 : 0x0000); // TRIM
    putWord(block, 217, static_cast<uint16_t>(device.rotationRate));
    putWord(block, 222, 0x10ff); // serial transport, SATA 1.0a to 3.0
    sealChecksum(block, 0xa5);
    return block;
}

Result execute(const simstorage::Device& device, const Command& command)
{
    switch (command.command) {
    case kIdentifyDevice:
        return {Result::kOk, identify(device)};
    case kReadLogExt:
        return readLogExt(device, command);
    case kSmart:
        return smart(device, command);
    default:
        return {Result::kAborted, {}};
    }
}

} // namespace ata
} // namespace diskemu
