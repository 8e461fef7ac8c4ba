#include "wire.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace diskemu {
namespace wire {

namespace {

const char kMagic[4] = {'S', 'G', 'I', 'O'};

uint32_t le32(const Bytes& in, size_t at)
{
    return uint32_t{in.at(at)} | uint32_t{in.at(at + 1)} << 8 | uint32_t{in.at(at + 2)} << 16 |
           uint32_t{in.at(at + 3)} << 24;
}

void appendLe32(Bytes& out, uint32_t value)
{
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

struct Header {
    int32_t direction;
    uint32_t cdbLength;
    uint32_t dxferLen;
    uint32_t timeoutMs;

    size_t total() const { return kRequestHeaderSize + cdbLength + (direction == kToDevice ? dxferLen : 0); }
};

Header readHeader(const Bytes& received)
{
    Header header;
    header.direction = static_cast<int32_t>(le32(received, 4));
    header.cdbLength = le32(received, 8);
    header.dxferLen = le32(received, 12);
    header.timeoutMs = le32(received, 16);
    if (header.direction != kNone && header.direction != kToDevice && header.direction != kFromDevice) {
        throw WireError("unknown transfer direction " + std::to_string(header.direction));
    }
    if (header.cdbLength == 0 || header.cdbLength > kMaxCdbLength) {
        throw WireError("CDB length " + std::to_string(header.cdbLength) + " out of bounds");
    }
    if (header.dxferLen > (header.direction == kToDevice ? kMaxDataOut : kMaxTransfer)) {
        throw WireError("transfer length " + std::to_string(header.dxferLen) + " out of bounds");
    }
    return header;
}

} // namespace

size_t missingBytes(const Bytes& received)
{
    const size_t magic = std::min(received.size(), sizeof(kMagic));
    if (magic > 0 && std::memcmp(received.data(), kMagic, magic) != 0) {
        throw WireError("no SGIO request");
    }
    if (received.size() < kRequestHeaderSize) {
        return kRequestHeaderSize - received.size();
    }
    const size_t total = readHeader(received).total();
    return received.size() >= total ? 0 : total - received.size();
}

Request decodeRequest(const Bytes& received)
{
    if (missingBytes(received) != 0) {
        throw WireError("the request is not whole");
    }
    const Header header = readHeader(received);
    Request request;
    request.direction = header.direction;
    request.dxferLen = header.dxferLen;
    request.timeoutMs = header.timeoutMs;
    const auto cdb = received.begin() + kRequestHeaderSize;
    request.cdb.assign(cdb, cdb + header.cdbLength);
    if (header.direction == kToDevice) {
        request.dataOut.assign(cdb + header.cdbLength, cdb + header.cdbLength + header.dxferLen);
    }
    return request;
}

Bytes encodeResponse(const Response& response)
{
    Bytes out(kMagic, kMagic + sizeof(kMagic));
    appendLe32(out, response.status);
    appendLe32(out, response.hostStatus);
    appendLe32(out, response.driverStatus);
    appendLe32(out, static_cast<uint32_t>(response.sense.size()));
    appendLe32(out, static_cast<uint32_t>(response.data.size()));
    out.insert(out.end(), response.sense.begin(), response.sense.end());
    out.insert(out.end(), response.data.begin(), response.data.end());
    return out;
}

} // namespace wire
} // namespace diskemu
