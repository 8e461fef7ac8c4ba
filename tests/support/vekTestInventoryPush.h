#pragma once

// What the inventory tests need around the aggregator: a channel to the RMC
// that records what the communication manager sends through it, a
// communication manager of the test's own on that channel, plain managers
// whose readiness and inventory a test sets, and a factory that hands out
// the managers a test registered.

#include "vekConfig.h"
#include "vekFactory.h"
#include "vekInBandComManager.h"
#include "vekInbandComInterface.h"
#include "vekResourceManager.h"
#include "vekSmbiosInterface.h"
#include "vekTestRoot.h"

#include <json/json.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Records every command sent, in order; doorbells answer nothing.
class vekRecordingChannel : public vekInbandComInterface {
public:
    struct Sent {
        std::string command;
        std::string data;
    };

    void sendData(std::string command, std::string data) override { record(std::move(command), std::move(data)); }
    void sendData(std::string command, std::string data, std::function<void(int)> callback) override
    {
        record(std::move(command), std::move(data));
        if (callback) {
            callback(0);
        }
    }
    int readDoorBell(int /*level*/) override { return 0; }

    // Waits (generously) until that many commands of the name were sent.
    bool waitFor(const std::string& command, size_t count, std::chrono::seconds timeout = std::chrono::seconds(30))
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return countLocked(command) >= count; });
    }

    size_t count(const std::string& command)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return countLocked(command);
    }

    // The payloads of one command, in order.
    std::vector<std::string> payloads(const std::string& command)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::string> found;
        for (const auto& sent : sent_) {
            if (sent.command == command) {
                found.push_back(sent.data);
            }
        }
        return found;
    }

    // The inventory documents sent, parsed.
    std::vector<Json::Value> inventories()
    {
        std::vector<Json::Value> documents;
        for (const auto& text : payloads("WriteInventory")) {
            documents.push_back(parse(text));
        }
        return documents;
    }

    static Json::Value parse(const std::string& text)
    {
        Json::Value value;
        Json::CharReaderBuilder builder;
        std::string errors;
        std::istringstream in(text);
        if (!Json::parseFromStream(builder, in, &value, &errors)) {
            return Json::Value("unparsable: " + text);
        }
        return value;
    }

private:
    void record(std::string command, std::string data)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sent_.push_back({std::move(command), std::move(data)});
        changed_.notify_all();
    }

    size_t countLocked(const std::string& command) const
    {
        size_t n = 0;
        for (const auto& sent : sent_) {
            n += sent.command == command ? 1 : 0;
        }
        return n;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Sent> sent_;
};

// A rack server of platform type 4 without SMBIOS records.
class vekTestSmbios : public vekSmbiosInterface {
public:
    std::string platformFamily() override { return "TestFamily"; }
    std::string getManufacturer() override { return "TestManufacturer"; }
    int platform() override { return 4; }
    int FetchSmbiosRecordsByType(int /*type*/, unsigned char** records, int* count) override
    {
        *records = nullptr;
        *count = 0;
        return -1;
    }
};

// The communication manager on a recording channel, outside the singleton.
class vekTestComManager : public vekInBandComManager {
public:
    vekTestComManager(vekInbandComInterface* channel, vekSmbiosInterface& smbios) : vekInBandComManager(channel, smbios)
    {
    }
};

// A manager without a thread: the test sets when it is ready and what it
// holds, and reads which readiness polls it was asked.
class vekFixedResourceManager : public vekResourceManager {
public:
    // Ready from the poll with this iteration on; -1: never.
    explicit vekFixedResourceManager(int readyFromIteration = 0) : readyFrom_(readyFromIteration) {}

    void setReadyFrom(int iteration)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        readyFrom_ = iteration;
    }
    void setItems(std::vector<Json::Value> items)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        items_ = std::move(items);
    }
    void setTyped(int type, std::vector<Json::Value> items)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        typed_[type] = std::move(items);
    }
    std::vector<int> polls()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return polls_;
    }

    void stopResourceManagerJob() override {}
    void init() override {}
    bool getInventoryJsonObject(std::vector<Json::Value>& inventory) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        inventory.insert(inventory.end(), items_.begin(), items_.end());
        return false;
    }
    bool getInventoryJsonObject2(int type, std::vector<Json::Value>& inventory) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = typed_.find(type);
        if (found == typed_.end()) {
            return false;
        }
        inventory.insert(inventory.end(), found->second.begin(), found->second.end());
        return false;
    }
    bool isRunning() override { return false; }
    bool isInventoryReady(int iteration) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        polls_.push_back(iteration);
        return readyFrom_ >= 0 && iteration >= readyFrom_;
    }

private:
    std::mutex mutex_;
    int readyFrom_;
    std::vector<Json::Value> items_;
    std::map<int, std::vector<Json::Value>> typed_;
    std::vector<int> polls_;
};

// Hands out the managers registered by id; null for any other id. Counts
// the requests per id.
class vekMapFactory : public vekFactory {
public:
    void add(int id, vekResourceManager* manager)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        managers_[id] = manager;
    }

    vekResourceManager* createInstance(int id) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++requests_[id];
        const auto found = managers_.find(id);
        return found == managers_.end() ? nullptr : found->second;
    }

    int requests(int id)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_[id];
    }

private:
    std::map<int, vekResourceManager*> managers_;
    std::mutex mutex_;
    std::map<int, int> requests_;
};

// A record of a test manager.
inline Json::Value vekTestRecord(const std::string& name)
{
    Json::Value record(Json::objectValue);
    record["Name"] = name;
    return record;
}

// Occurrences of a text in what a log gained.
inline size_t vekLogCount(const vekLogTail& log, const std::string& text)
{
    const std::string gained = log.newText();
    size_t n = 0;
    for (size_t at = gained.find(text); at != std::string::npos; at = gained.find(text, at + text.size())) {
        ++n;
    }
    return n;
}

// Waits (generously) until the log gained the text that many times.
inline bool vekWaitForLog(const vekLogTail& log, const std::string& text, size_t count = 1,
                          std::chrono::seconds timeout = std::chrono::seconds(30))
{
    return vekEventually([&] { return vekLogCount(log, text) >= count; }, timeout);
}
