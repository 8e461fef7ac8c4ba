#pragma once

#include <json/json.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class vekConfig;
class vekFactory;
class vekInBandComManager;
class vekResourceManager;

// The one inventory document of the service. A thread of its own waits until
// the enabled Resource Managers have their first inventory, then collects all
// of them into one JSON document under "HostDataCollection" and hands the text
// to the communication manager: once at first, then every
// PushInventoryFrequencyInMinutes and whenever sendInventory() asks. The
// whole document goes every time; the last one is kept as text for
// saveJsonInventoryAsFile().
class vekJsonAggregator {
public:
    static vekJsonAggregator& getInstance();

    vekJsonAggregator(const vekJsonAggregator&) = delete;
    vekJsonAggregator& operator=(const vekJsonAggregator&) = delete;

    // Where the documents go and which managers count. Ids above 98 (the
    // utilization and telemetry streams) are not inventory and are dropped.
    void initialize(vekInBandComManager* comManager, std::vector<int> ids);
    // Starts the thread; its first pass is a push.
    void start();
    // Asks for a push of the whole document. Before the first push the
    // request only waits: the first push serves it.
    void sendInventory();
    // True once the first push has been made (or found nothing to send);
    // events are held back until then.
    bool isInventorySent() const;
    // Writes the last document sent to the file at this host path (under the
    // path root). 0 on success, -1 with no document yet, -2 when the file
    // cannot be written.
    int saveJsonInventoryAsFile(std::string path);
    // Stops the thread and joins it. A stopped aggregator stays stopped.
    void stopvekJsonAggregator();

    // The thread body (see startInventoryPushThread).
    void initializeCachePush();

    // Where the managers come from: by default a fresh vekFactory for each
    // request. Another factory (a test's) replaces it; null restores the
    // default. Set before start().
    void setFactory(std::shared_ptr<vekFactory> factory);
    // Which configuration decides (enabled resources, intervals): by default
    // the process-wide one; null restores it. Set before start().
    void setConfig(std::shared_ptr<const vekConfig> config);

private:
    vekJsonAggregator();
    ~vekJsonAggregator() = default;

    const vekConfig& activeConfig() const;
    vekResourceManager* managerOf(int id) const;

    bool WaitforInitialnventoryReady();
    bool aggrThreadSleep(long seconds, bool interruptible);
    void createInventoryJsonString();
    bool fetchUpdatedInventory(int id, vekResourceManager* manager, std::vector<Json::Value>& inventory);
    void fetchTypedInventory(vekResourceManager* manager, const std::map<int, std::string>& keysByType);
    void sendJsonString();

    Json::Value aggregate_;
    Json::Value root_;
    std::atomic<bool> sendPending_{false};
    std::atomic<bool> inventorySent_{false};
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable condition_;
    std::mutex lastInventoryMutex_;
    vekInBandComManager* comManager_ = nullptr;
    const std::map<int, std::string> keys_;
    std::vector<int> ids_;
    std::string lastInventory_;

    std::shared_ptr<vekFactory> factory_;
    std::shared_ptr<const vekConfig> config_;
};
