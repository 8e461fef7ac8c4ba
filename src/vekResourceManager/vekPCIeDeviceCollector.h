#pragma once

#include "vekLog.h"
#include "vekResourceStatus.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// The walk over one family's PCIe adapters that a stop ends after the device
// in hand, and the status each device had at the last walk.
template <typename Record>
class vekPCIeDeviceCollector {
public:
    // A walk in progress ends after the device in hand.
    void stopWalk() { stop_ = true; }

    std::map<std::string, vekDeviceStatus> statusesOfLastWalk()
    {
        std::lock_guard<std::mutex> lock(statusMutex_);
        return statuses_;
    }

protected:
    // Reads each named device whole with read(name, record) into out; false
    // when a stop cut the walk short, after logging stopText with tag.
    template <typename ReadOne>
    bool walk(std::vector<Record>& out, const std::vector<std::string>& names, const char* tag,
              const char* stopText, ReadOne read)
    {
        for (const std::string& name : names) {
            if (stop_) {
                VEK_LOG_DEBUG(tag, "%s", stopText);
                return false;
            }
            Record info;
            read(name, info);
            {
                std::lock_guard<std::mutex> lock(statusMutex_);
                statuses_[name] = info.deviceStatus;
            }
            out.push_back(info);
        }
        return true;
    }

private:
    std::atomic<bool> stop_{false};
    std::mutex statusMutex_;
    std::map<std::string, vekDeviceStatus> statuses_;
};
