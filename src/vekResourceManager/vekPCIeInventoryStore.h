#pragma once

#include "vekLog.h"
#include "vekResourceStatus.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

// What one family of PCIe adapters calls itself in the store's log lines.
struct vekPCIeInventoryTexts {
    // The log tag of the manager that owns the store.
    const char* tag;
    // The inventory's section name at the RMC, e.g. "EthernetDevices".
    const char* section;
    // The short family name, e.g. "NIC".
    const char* family;
    // What ends the store's sentences: "" for most families, "." for GPUs.
    const char* end = "";
};

// The records of the last build of one adapter family, where the event path
// writes a device's new status between two builds, and the copy taken before
// the next build. Each family's manager is a thin singleton over this.
template <typename Record>
class vekPCIeInventoryStore {
public:
    using NameOf = std::string (*)(const Record&);

    vekPCIeInventoryStore(const vekPCIeInventoryStore&) = delete;
    vekPCIeInventoryStore& operator=(const vekPCIeInventoryStore&) = delete;

    void saveInventory(std::vector<Record> inventory)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        VEK_LOG_DEBUG(texts_.tag, "Save the %s inventory%s", texts_.section, texts_.end);
        saved_ = std::move(inventory);
    }

    void getInventory(std::vector<Record>& inventory)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        VEK_LOG_DEBUG(texts_.tag, "Fetch the updated %s inventory%s", texts_.section, texts_.end);
        inventory = saved_;
    }

    void backupInventory()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        VEK_LOG_DEBUG(texts_.tag, "Taking a backup of %s inventory%s", texts_.section, texts_.end);
        backup_ = saved_;
    }

    void getBackupInventory(std::vector<Record>& inventory)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        VEK_LOG_DEBUG(texts_.tag, "Fetch the backup copy of %s inventory%s", texts_.section, texts_.end);
        inventory = backup_;
    }

    // Writes the status into the saved record of that device, if any.
    void updateInventory(const std::string& name, const vekDeviceStatus& status)
    {
        VEK_LOG_DEBUG(texts_.tag, "Updating %s inventory for a particular%s device : %s", texts_.section,
                      texts_.family, name.c_str());
        std::lock_guard<std::mutex> lock(mutex_);
        for (Record& record : saved_) {
            if (nameOf_(record) == name) {
                record.deviceStatus = status;
                return;
            }
        }
        notFound(name);
    }

protected:
    vekPCIeInventoryStore(const vekPCIeInventoryTexts& texts, NameOf nameOf) : texts_(texts), nameOf_(nameOf) {}
    ~vekPCIeInventoryStore() = default;

    // The saved record of that device; info stays as it is when none.
    void queryInstance(const std::string& name, Record& info)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const Record& record : saved_) {
            if (nameOf_(record) == name) {
                info = record;
                return;
            }
        }
        notFound(name);
    }

private:
    void notFound(const std::string& name)
    {
        VEK_LOG_WARNING(texts_.tag, "%s inventory for %s not found", texts_.family, name.c_str());
    }

    const vekPCIeInventoryTexts texts_;
    const NameOf nameOf_;
    std::mutex mutex_;
    std::vector<Record> saved_;
    std::vector<Record> backup_;
};
