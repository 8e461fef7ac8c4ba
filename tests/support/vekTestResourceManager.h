#pragma once

// A small Resource Manager for tests, built on the shared lifecycle like the
// real managers, and a factory that hands it to the job manager. Every step a
// manager takes is recorded as a line ("build-end 1 1", "stop 2") so that a
// test can wait for a step and check the order of steps across threads.

#include "vekConfig.h"
#include "vekFactory.h"
#include "vekResourceIds.h"
#include "vekResourceManager.h"
#include "vekResourceManagerLifecycle.h"

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
#include <vector>

// VEK_TIME_SCALE for the life of a case.
class vekScopedTimeScale {
public:
    explicit vekScopedTimeScale(long scale)
    {
        const char* previous = getenv("VEK_TIME_SCALE");
        hadPrevious_ = previous != nullptr;
        previous_ = previous ? previous : "";
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

    // Waits (generously) until the step has been recorded.
    bool waitFor(const std::string& step, std::chrono::seconds timeout = std::chrono::seconds(30))
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return indexLocked(step) >= 0; });
    }

    // Position of the first such step, -1 when absent.
    long indexOf(const std::string& step)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return indexLocked(step);
    }

    bool has(const std::string& step) { return indexOf(step) >= 0; }

    size_t count(const std::string& step)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return static_cast<size_t>(std::count(steps_.begin(), steps_.end(), step));
    }

    std::string all()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::string text;
        for (const auto& step : steps_) {
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

// Holds builds inside their collection until released, like a slow device.
class vekBuildGate {
public:
    void hold()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = true;
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    void pass()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return !held_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
};

class vekTestResourceManager final : public vekResourceManager {
public:
    vekTestResourceManager(int id, vekTestSteps& steps, const vekConfig& config, vekBuildGate* gate)
        : id_(id),
          steps_(steps),
          gate_(gate),
          lifecycle_("TEST_RM", vekResourceIds::nameOf(id), "TestInventory", [this] { step("push"); }, config)
    {
    }

    using vekResourceManager::init;

    void stopResourceManagerJob() override
    {
        step("stop");
        const bool finished = lifecycle_.stopResourceManagerJob();
        step(std::string("stopped outcome ") + (finished ? "1" : "0"));
    }

    // The base's init(vekPlatformServices&) leads here on the manager's thread.
    void init() override
    {
        step("init");
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
            const int build = ++builds_;
            step("build-start " + std::to_string(build) + " of");
            if (gate_ != nullptr) {
                gate_->pass();
            }
            step("build-end " + std::to_string(build) + " of");
            Json::Value record(Json::objectValue);
            record["Manager"] = id_;
            record["Build"] = build;
            return vekResourceManagerLifecycle::Inventory{record};
        });
        // The build's result is now the current inventory.
        step("cached " + std::to_string(builds_) + " of");
    }

    const int id_;
    vekTestSteps& steps_;
    vekBuildGate* gate_;
    int builds_ = 0;
    vekResourceManagerLifecycle lifecycle_;
};

// Hands out one test manager per id, made on first request. Ids can be set to
// fail (the creation throws) or to build behind a gate.
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
        if (failing.count(id) != 0) {
            throw std::runtime_error("no manager for this id");
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
    std::map<int, vekBuildGate*> gates;
    // Death tests read what the child wrote to stderr.
    bool echoToStderr = false;

private:
    std::shared_ptr<const vekConfig> config_;
    std::map<int, std::unique_ptr<vekTestResourceManager>> managers_;
};
