#pragma once

// Sample payloads for the RMC path: JSON-like text of an exact length,
// deterministic and different for each seed. Shared by the tests and the
// benchmark, so both measure the same kind of text.

#include <cstddef>
#include <string>

namespace vekIPMITest {

inline std::string payloadOf(size_t length, unsigned seed = 1)
{
    std::string text = "{\"Inventory\":[";
    unsigned x = seed * 2654435761u + 12345u;
    while (text.size() < length) {
        x = x * 1103515245u + 12345u;
        text += "{\"k" + std::to_string(x % 977) + "\":\"" + std::string(1 + (x >> 8) % 9, char('a' + (x >> 16) % 26)) +
                "\"},";
    }
    text.resize(length);
    return text;
}

} // namespace vekIPMITest
