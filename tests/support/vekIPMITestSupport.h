#pragma once

// Small helpers of the IPMI tests: sample payloads, both log channels read
// together, and an environment variable set for a scope.

#include "vekRmcEmulator.h"
#include "vekSamplePayload.h"
#include "vekTestRoot.h"

#include <cstdlib>
#include <memory>
#include <string>

namespace vekIPMITest {

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

// A case with its own emulated RMC, its state folder under the case's root,
// and time running ten times faster.
class RmcCase : public vekRootTest {
protected:
    void SetUp() override
    {
        VEK_REQUIRE_RMC_EMULATOR();
        rmc_.reset(new vekRmcEmulator(root.path() + "/rmc"));
    }

    ScopedEnv timeScale_{"VEK_TIME_SCALE", "10"};
    std::unique_ptr<vekRmcEmulator> rmc_;
};

} // namespace vekIPMITest
