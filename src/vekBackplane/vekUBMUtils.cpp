#include "vekUBMUtils.h"

#include "vekLog.h"

#include <algorithm>

namespace {

const char TAG[] = "UBMUTIL";

const size_t kLastPredefinedField = 7;
const unsigned char kFormatVersion = 1;
const unsigned char kLanguageEnglish = 25;
const unsigned char kDescriptorCountRecord = 0xA0;
const unsigned char kPortRouteRecord = 0xA1;
const size_t kRecordHeaderSize = 5;
const unsigned char kEndOfList = 0x80;

// Both walks begin from the common header; an image too short for the
// header byte they need, of another format, or without the area fails.
bool areaAddress(const unsigned char* fru, size_t fruSize, size_t minimumSize, size_t offsetByte, size_t& address)
{
    if (fru == nullptr || fruSize < minimumSize || fru[0] != kFormatVersion || fru[offsetByte] == 0) {
        return false;
    }
    address = static_cast<size_t>(fru[offsetByte]) * 8;
    return true;
}

// Walks the multi-record list from its start for the first record of the
// type whose bytes up to `needed` lie inside the image. Never reads a header
// that does not lie whole inside the image; a list without its end bit
// stops there.
bool findMultiRecord(const unsigned char* fru, size_t fruSize, size_t listAddress, int pass, unsigned char type,
                     size_t needed, size_t& found)
{
    size_t offset = listAddress;
    while (offset + kRecordHeaderSize < fruSize) {
        VEK_LOG_DEBUG(TAG, "    Pass #%d: Parsing multi-record [0x%02X] at offset [%zu].", pass, fru[offset], offset);
        if (fru[offset] == type && offset + needed < fruSize) {
            found = offset;
            return true;
        }
        if ((fru[offset + 1] & kEndOfList) != 0) {
            break;
        }
        offset += fru[offset + 2] + kRecordHeaderSize;
    }
    VEK_LOG_DEBUG(TAG, "    Pass #%d: Reached end of all multi-record areas.", pass);
    return false;
}

} // namespace

bool vekUBMUtils::extractFRUDataFromIPMIProductInfoArea(const unsigned char* fruData, size_t fruSize, size_t fieldIndex,
                                                        std::string& value)
{
    VEK_LOG_DEBUG(TAG, "ipmiFRUData=%p; ipmiFRUDataSize=%zu; infoIndex=%zu", static_cast<const void*>(fruData), fruSize,
                  fieldIndex);
    if (fieldIndex > kLastPredefinedField) {
        VEK_LOG_DEBUG(TAG, "Extracting custom field #%zu from PIA not supported.", fieldIndex);
        return false;
    }
    size_t piaAddr = 0;
    if (!areaAddress(fruData, fruSize, 5, 4, piaAddr)) {
        return false;
    }
    VEK_LOG_DEBUG(TAG, "Product Info Area present in the IPMI FRU Common Header @ offset %zu", piaAddr);
    if (piaAddr + 3 > fruSize || fruData[piaAddr] != kFormatVersion || fruData[piaAddr + 2] != kLanguageEnglish) {
        return false;
    }
    const size_t piaSize = static_cast<size_t>(fruData[piaAddr + 1]) * 8;
    VEK_LOG_DEBUG(TAG, "Ready to walk Product Info Area. (Size=%zu)", piaSize);

    size_t offset = 3;
    for (size_t field = 1; field <= kLastPredefinedField; ++field) {
        // The type/length byte itself must lie inside both the area and the image.
        if (offset >= piaSize || piaAddr + offset >= fruSize) {
            VEK_LOG_WARNING(TAG,
                            "Insufficient data bytes for length of field #%zu. (Total size=[%zu], piaAddr=[%zu], "
                            "piaSize=[%zu], offset=[%zu])",
                            field, fruSize, piaAddr, piaSize, offset);
            return false;
        }
        const size_t length = fruData[piaAddr + offset] & 0x3F;
        if (piaAddr + offset + 1 + length > fruSize || offset + 1 + length > piaSize) {
            VEK_LOG_WARNING(TAG,
                            "Insufficient data bytes for field #%zu. (Total size=[%zu], piaAddr=[%zu], "
                            "piaSize=[%zu], offset=[%zu], fieldLength=[%zu])",
                            field, fruSize, piaAddr, piaSize, offset, length);
            return false;
        }
        VEK_LOG_DEBUG(TAG, "Reached PIA field #%zu @ offset %zu of size %zu.", field, offset, length);
        if (field == fieldIndex) {
            value.assign(reinterpret_cast<const char*>(fruData + piaAddr + offset + 1), length);
            VEK_LOG_DEBUG(TAG, "Found field #%zu in Product Info Area: [%s]", field, value.c_str());
            return true;
        }
        offset += 1 + length;
    }
    VEK_LOG_DEBUG(TAG, "Pre-defined field #%zu not found in PIA.", fieldIndex);
    return false;
}

bool vekUBMUtils::extractUBMPortRouteInfoDescriptors(const unsigned char* fruData, size_t fruSize,
                                                     std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR>& list)
{
    list.clear();
    VEK_LOG_DEBUG(TAG, "extractUBMPortRouteInfoDescriptors: ipmiFRUData=%p; ipmiFRUDataSize=%zu",
                  static_cast<const void*>(fruData), fruSize);
    size_t listAddr = 0;
    if (!areaAddress(fruData, fruSize, 6, 5, listAddr)) {
        return false;
    }
    VEK_LOG_DEBUG(TAG, "Multi-record area present in the IPMI FRU Common Header @ offset %zu", listAddr);

    // The count and the routes are two records in either order, so each pass
    // walks the list from its beginning.
    int pass = 1;
    VEK_LOG_DEBUG(TAG, "  Starting Pass #%d...", pass);
    size_t record = 0;
    if (!findMultiRecord(fruData, fruSize, listAddr, pass, kDescriptorCountRecord, 16, record)) {
        VEK_LOG_DEBUG(TAG, "  Pass #%d: UBM port route info descriptor count not found!", pass);
        return false;
    }
    const size_t count = fruData[record + 11];
    VEK_LOG_DEBUG(TAG, "    Pass #%d: Found [%zu] UBM port route info descriptors.", pass, count);

    pass = 2;
    VEK_LOG_DEBUG(TAG, "  Starting Pass #%d...", pass);
    if (!findMultiRecord(fruData, fruSize, listAddr, pass, kPortRouteRecord, 12, record)) {
        return false;
    }
    // The count, not the record length, says how many there are; still, a
    // count that runs past the image is a broken image, not a reason to read on.
    const size_t first = record + kRecordHeaderSize;
    if (first + count * sizeof(UBM_PORT_ROUTE_INFO_DESCRIPTOR) > fruSize) {
        VEK_LOG_WARNING(TAG,
                        "    Pass #%d: UBM port route info descriptors run past the end of the FRU data. "
                        "(count=[%zu], offset=[%zu], size=[%zu])",
                        pass, count, first, fruSize);
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        UBM_PORT_ROUTE_INFO_DESCRIPTOR descriptor;
        const unsigned char* bytes = fruData + first + i * sizeof descriptor;
        std::copy(bytes, bytes + sizeof descriptor.route, descriptor.route);
        descriptor.driveBay = bytes[sizeof descriptor.route];
        list.push_back(descriptor);
        VEK_LOG_DEBUG(TAG, "    Pass #%d: Added UBM port route info descriptor [%zu] to list.", pass, i);
    }
    return true;
}

UBM_CONTROLLER_OPERATIONAL_STATE vekUBMUtils::mapUBMControllerOperationState(unsigned char state)
{
    if (state > VEK_UBM_CONTROLLER_STATE_UPGRADE) {
        VEK_LOG_DEBUG(TAG, "Mapping reserved or vendor-specific UBM operational state: [0x%02hhx]", state);
    }
    return static_cast<UBM_CONTROLLER_OPERATIONAL_STATE>(state);
}
