#pragma once

// Placing integers and texts into the byte layouts of SCSI (big-endian) and
// ATA (little-endian) data.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace diskemu {

inline void putBe(std::vector<uint8_t>& out, size_t at, uint64_t value, size_t width)
{
    for (size_t i = 0; i < width; ++i) {
        out.at(at + width - 1 - i) = static_cast<uint8_t>(value >> (8 * i));
    }
}

inline void putLe(std::vector<uint8_t>& out, size_t at, uint64_t value, size_t width)
{
    for (size_t i = 0; i < width; ++i) {
        out.at(at + i) = static_cast<uint8_t>(value >> (8 * i));
    }
}

inline uint64_t getBe(const std::vector<uint8_t>& in, size_t at, size_t width)
{
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value = (value << 8) | in.at(at + i);
    }
    return value;
}

// The text cut or padded with blanks to exactly 'width' characters.
inline std::string blankPadded(const std::string& text, size_t width)
{
    std::string out = text.substr(0, width);
    out.resize(width, ' ');
    return out;
}

inline void putText(std::vector<uint8_t>& out, size_t at, const std::string& text, size_t width)
{
    const std::string padded = blankPadded(text, width);
    for (size_t i = 0; i < width; ++i) {
        out.at(at + i) = static_cast<uint8_t>(padded[i]);
    }
}

} // namespace diskemu
