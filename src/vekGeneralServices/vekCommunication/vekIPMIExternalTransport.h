#pragma once

// The RMC reached over TCP instead of /dev/ipmi0: the serial protocol of an
// external BMC as QEMU speaks it to ipmi_sim ("VM" codec).
//
//   request   seq, netfn<<2|lun, cmd, data..., checksum, 0xA0
//   response  seq, (netfn|1)<<2|lun, cmd, completion code, data..., checksum, 0xA0
//   control   id [arg], 0xA1   (version, attention...; no answer needed)
//
// The checksum is the two's complement of the sum of every byte before it.
// 0xA0, 0xA1 and 0xAA inside a message travel as 0xAA, byte|0x10.
//
// The BMC end takes one connection at a time, so the process keeps one link
// per address, shared by every transport object and serialised by its mutex;
// it is made again when the other end drops it.

#include "vekGlobalDef.h"
#include "vekIPMITransport.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace vekIPMI {

namespace vmcodec {

const uint8_t kMessageEnd = 0xA0;
const uint8_t kControlEnd = 0xA1;
const uint8_t kEscape = 0xAA;
const uint8_t kEscapeBit = 0x10;
// ipmi_sim's own bound on a message, plus header and checksum.
const size_t kMaxFrameSize = 255 + 8;

// Two's complement of the sum of the bytes.
uint8_t checksum(const uint8_t* bytes, size_t len);

// Appends one byte, escaped when it is a framing byte.
void appendEscaped(std::vector<uint8_t>& out, uint8_t byte);

// body (seq, netfn/lun, cmd, ...) + checksum, escaped, + 0xA0.
std::vector<uint8_t> encodeMessage(const std::vector<uint8_t>& body);

std::vector<uint8_t> encodeRequest(uint8_t seq, uint8_t netfn, uint8_t lun, uint8_t cmd, const uint8_t* data,
                                   size_t len);

struct Frame {
    bool control = false;        // ended by 0xA1
    std::vector<uint8_t> bytes;  // unescaped, end byte removed
};

// Splits a byte stream into frames; input may arrive in any pieces. A frame
// that ends inside an escape or grows beyond kMaxFrameSize is dropped.
class FrameDecoder {
public:
    // Appends the frames completed by these bytes to out; returns how many
    // malformed frames were dropped on the way.
    size_t feed(const uint8_t* bytes, size_t len, std::vector<Frame>& out);
    void reset();

private:
    std::vector<uint8_t> current_;
    bool inEscape_ = false;
    bool overflow_ = false;
};

struct Response {
    uint8_t seq = 0;
    uint8_t netfn = 0;  // as on the wire: the request's net function | 1
    uint8_t lun = 0;
    uint8_t cmd = 0;
    std::vector<uint8_t> body;  // completion code, then the data
};

enum class ParseResult { Ok, TooShort, BadChecksum };

// Reads a message frame as a response.
ParseResult parseResponse(const std::vector<uint8_t>& frame, Response& out);

} // namespace vmcodec

using vekGlobalDef::UniqueFd;

// One TCP link to an external BMC.
class ExternalLink {
public:
    // How long the other end may take to accept, take a request and answer
    // it: this, divided by VEK_TIME_SCALE, but never less than
    // kPeerWaitFloor. The floor is the peer's own time, which a simulation
    // does not speed up: a BMC on a loaded machine may need a second.
    static const std::chrono::milliseconds kPeerWait;
    static const std::chrono::milliseconds kPeerWaitFloor;
    static std::chrono::milliseconds peerWait();

    // The process-wide link to the address VEK_IPMI_EXTERNAL holds now, made
    // at the first use of that address.
    static ExternalLink& instance();

    explicit ExternalLink(std::string address);
    ExternalLink(const ExternalLink&) = delete;
    ExternalLink& operator=(const ExternalLink&) = delete;

    const std::string& address() const { return address_; }
    // HOST:PORT parsed; says nothing about the other end being there.
    bool addressValid() const { return !host_.empty() && !port_.empty(); }

    // Connects unless connected. False when that fails now.
    bool connect();
    bool isConnected() const;

    // One request and its answer, under the link's mutex. Same contract as
    // Transport::exchange.
    size_t exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len, uint8_t* response,
                    size_t& responseLen);

private:
    bool connectLocked(int& error);
    void dropLocked();
    // Reads what arrived since the last exchange; false when the other end
    // has gone (the link is then closed).
    bool drainLocked();
    void sendLocked(const std::vector<uint8_t>& frame);
    size_t awaitResponseLocked(uint8_t seq, uint8_t netfn, uint8_t cmd, uint8_t* response, size_t& responseLen);

    std::string address_;
    std::string host_;
    std::string port_;

    mutable std::mutex mutex_;
    UniqueFd fd_;
    vmcodec::FrameDecoder decoder_;
    std::vector<vmcodec::Frame> frames_;
    uint8_t nextSeq_ = 0;
};

// A transport object over a link (by default the process-wide one).
class ExternalTransport : public Transport {
public:
    ExternalTransport();
    explicit ExternalTransport(ExternalLink& link);

    // Connects the shared link unless it is up: false when the address is
    // not HOST:PORT or nobody answers there, as the device that is not
    // there. Once open, a link that drops is made again by the next exchange.
    bool open() override;
    bool isOpen() const override { return opened_; }
    void close() override { opened_ = false; }
    size_t exchange(uint8_t netfn, uint8_t cmd, uint8_t lun, const uint8_t* data, size_t len, uint8_t* response,
                    size_t& responseLen) override;
    std::string describe() const override { return link_.address(); }

private:
    ExternalLink& link_;
    bool opened_ = false;
};

} // namespace vekIPMI
