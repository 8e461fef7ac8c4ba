#pragma once

// A small Resource Manager for tests, built on the shared lifecycle like the
// real managers, and a factory that hands it to the job manager. Every step a
// manager takes is recorded as a line ("build-end 1 of 2", "stop 2") so that a
// test can wait for a step and check the order of steps across threads. Also
// the gate, step journal and log checks that the framework's tests share.

#include "vekConfig.h"
#include "vekFactory.h"
#include "vekResourceIds.h"
#include "vekResourceManager.h"
#include "vekResourceManagerLifecycle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

// Only a failing case waits this long.
const std::chrono::seconds kVekTestPatience(30);

// VEK_TIME_SCALE for the life of a case.
class vekScopedTimeScale {
public:
    explicit vekScopedTimeScale(long scale) : hadPrevious_(getenv("VEK_TIME_SCALE") != nullptr)
    {
        previous_ = hadPrevious_ ? getenv("VEK_TIME_SCALE") : "";
        setenv("VEK_TIME_SCALE", std::to_string(scale).c_str(), 1);
    }
    ~vekScopedTimeScale()
    {
        if (hadPrevious_) {
            setenv("VEK_TIME_SCALE", previous_.c_str(), 1);
        } else {
            unsetenv("VEK_TIME_SCALE");
        }
    }

private:
    bool hadPrevious_;
    std::string previous_;
};

// Steps recorded from any thread, in the order they happened.
class vekTestSteps {
public:
    void record(const std::string& step)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        steps_.push_back(step);
        changed_.notify_all();
    }
    bool waitFor(const std::string& step, std::chrono::seconds timeout = kVekTestPatience)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return indexLocked(step) >= 0; });
    }
    bool waitForCount(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, kVekTestPatience, [&] { return steps_.size() >= count; });
    }
    // -1 when absent.
    long indexOf(const std::string& step)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return indexLocked(step);
    }
    bool has(const std::string& step) { return indexOf(step) >= 0; }
    std::vector<std::string> list()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return steps_;
    }
    std::string all()
    {
        std::string text;
        for (const auto& step : list()) {
            text += step + "\n";
        }
        return text;
    }

private:
    long indexLocked(const std::string& step) const
    {
        const auto found = std::find(steps_.begin(), steps_.end(), step);
        return found == steps_.end() ? -1 : static_cast<long>(found - steps_.begin());
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> steps_;
};

// Holds work (a build, a queued task) inside until released, like a slow device.
class vekBuildGate {
public:
    void hold() { set(true); }
    void release() { set(false); }
    void pass()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, kVekTestPatience, [this] { return !held_; });
    }

private:
    void set(bool held)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = held;
        changed_.notify_all();
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
};

class vekTestResourceManager final : public vekResourceManager {
public:
    vekTestResourceManager(int id, vekTestSteps& steps, const vekConfig& config, vekBuildGate* gate)
        : id_(id), steps_(steps), gate_(gate),
          lifecycle_("TEST_RM", vekResourceIds::nameOf(id), "TestInventory", [this] { step("push"); }, config)
    {
    }

    using vekResourceManager::init;

    void stopResourceManagerJob() override
    {
        step("stop");
        step(std::string("stopped outcome ") + (lifecycle_.stopResourceManagerJob() ? "1" : "0"));
    }
    // The base's init(vekPlatformServices&) leads here on the manager's thread.
    void init() override
    {
        lifecycle_.runRefreshLoop([this] { cacheBuild(); }, [this] { step("shutdown"); });
    }
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override
    {
        return lifecycle_.getInventory(inventory);
    }
    bool isRunning() override { return lifecycle_.isRunning(); }
    bool isInventoryReady(int iteration) override { return lifecycle_.isInventoryReady(iteration); }

private:
    void step(const std::string& what) { steps_.record(what + " " + std::to_string(id_)); }

    void cacheBuild()
    {
        lifecycle_.cacheBuild([this] {
            const std::string build = std::to_string(++builds_);
            step("build-start " + build + " of");
            if (gate_ != nullptr) {
                gate_->pass();
            }
            step("build-end " + build + " of");
            Json::Value record(Json::objectValue);
            record["Manager"] = id_;
            record["Build"] = builds_;
            return vekResourceManagerLifecycle::Inventory{record};
        });
    }

    const int id_;
    vekTestSteps& steps_;
    vekBuildGate* gate_;
    int builds_ = 0;
    vekResourceManagerLifecycle lifecycle_;
};

// Hands out one test manager per id, made on first request. Ids can be set to
// fail (the creation throws), to get the product factory's own answer, to end
// the process (for a death test, an id that must not be reached), or to build
// behind a gate.
class vekTestFactory : public vekFactory {
public:
    explicit vekTestFactory(std::shared_ptr<const vekConfig> config) : config_(std::move(config)) {}

    vekResourceManager* createInstance(int id) override
    {
        steps.record("create " + std::to_string(id));
        if (echoToStderr) {
            fprintf(stderr, "createInstance(%d)\n", id);
            fflush(stderr);
        }
        if (endsTheProcess.count(id) != 0) {
            // Quietly and successfully, which a death test counts as failed.
            _exit(0);
        }
        if (failing.count(id) != 0) {
            throw std::runtime_error("no manager for this id");
        }
        if (fromProduct.count(id) != 0) {
            return vekFactory::createInstance(id);
        }
        auto& slot = managers_[id];
        if (!slot) {
            const auto gate = gates.find(id);
            slot.reset(new vekTestResourceManager(id, steps, *config_, gate == gates.end() ? nullptr : gate->second));
        }
        return slot.get();
    }

    vekTestSteps steps;
    std::set<int> failing;
    std::set<int> endsTheProcess;
    std::set<int> fromProduct;
    std::map<int, vekBuildGate*> gates;
    // Death tests read what the child wrote to stderr.
    bool echoToStderr = false;

private:
    std::shared_ptr<const vekConfig> config_;
    std::map<int, std::unique_ptr<vekTestResourceManager>> managers_;
};

// Log checks the framework's tests share.
inline size_t vekOccurrences(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

inline ::testing::AssertionResult vekInOrder(const std::string& text, const std::vector<std::string>& lines)
{
    size_t from = 0;
    for (const auto& line : lines) {
        const size_t at = text.find(line, from);
        if (at == std::string::npos) {
            return ::testing::AssertionFailure() << "missing or out of order \"" << line << "\" in:\n" << text;
        }
        from = at + line.size();
    }
    return ::testing::AssertionSuccess();
}

// The level word of the first log line that holds the text ("INFO"), empty
// when none does.
inline std::string vekLevelOf(const std::string& log, const std::string& text)
{
    const size_t at = log.find(text);
    if (at == std::string::npos) {
        return "";
    }
    const size_t open = log.find('[', log.rfind('\n', at) + 1);
    return log.substr(open + 1, log.find(']', open) - open - 1);
}
