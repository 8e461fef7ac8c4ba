#pragma once

// Small helpers of the IPMI tests: sample payloads, both log channels read
// together, and an environment variable set for a scope.

#include "vekTestRoot.h"

#include <cstdlib>
#include <string>

namespace vekIPMITest {

// A payload of this length: JSON-like text, different for each seed.
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

// What both log files gained: debug lines go to one, the others to the main one.
class LogTail {
public:
    LogTail() : main_(vekTestMainLogPath()), debug_(vekTestDebugLogPath()) {}
    bool contains(const std::string& text) const { return main_.contains(text) || debug_.contains(text); }
    std::string text() const { return main_.newText() + debug_.newText(); }

private:
    vekLogTail main_;
    vekLogTail debug_;
};

// Sets (or with unset, removes) an environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value, bool unset = false) : name_(name)
    {
        const char* old = getenv(name);
        had_ = old != nullptr;
        old_ = had_ ? old : "";
        if (unset) {
            unsetenv(name);
        } else {
            setenv(name, value.c_str(), 1);
        }
    }
    ~ScopedEnv()
    {
        if (had_) {
            setenv(name_, old_.c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    bool had_;
    std::string old_;
};

} // namespace vekIPMITest
