#pragma once

// A work queue that hands its workers the most important task first. All
// traffic to the RMC goes through one of these with a single worker, so that
// one slow channel serves events before inventory, inventory before
// utilization and utilization before application telemetry.

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class vekPriorityDispatcherQueue {
public:
    // A larger number runs first.
    typedef int Priority;
    static constexpr Priority VEK_PRIORITY_APP_TELEMETRY = 0;
    static constexpr Priority VEK_PRIORITY_UTILIZATION = 1;
    static constexpr Priority VEK_PRIORITY_INVENTORY = 2;
    static constexpr Priority VEK_PRIORITY_EVENT = 3;

    struct Task {
        std::function<void()> func;
        Priority priority;

        // Heap order. Nothing breaks ties, so tasks of one priority may run in
        // any order.
        bool operator<(const Task& other) const { return priority < other.priority; }
    };

    // Starts threadCount workers at once. A queue of zero threads accepts
    // work and never runs it.
    vekPriorityDispatcherQueue(std::string name, unsigned long threadCount = 1);

    // Tells the workers to stop, waits for each one to finish the task in its
    // hands and throws away whatever is still queued.
    virtual ~vekPriorityDispatcherQueue();

    vekPriorityDispatcherQueue(const vekPriorityDispatcherQueue&) = delete;
    vekPriorityDispatcherQueue& operator=(const vekPriorityDispatcherQueue&) = delete;
    vekPriorityDispatcherQueue(vekPriorityDispatcherQueue&&) = delete;
    vekPriorityDispatcherQueue& operator=(vekPriorityDispatcherQueue&&) = delete;

    void dispatch(std::function<void()>&& op, Priority priority);

    bool isEmpty() const;

    // Throws away every task still waiting, unrun. A task already running
    // finishes; the workers carry on with whatever comes next.
    void cleanup();

    // Only raises the quit flag: an idle worker sleeps on until something wakes
    // it, so the owner still has to destroy the queue.
    void shutdown();

private:
    void priority_queue_handler();
    void stopAndJoinWorkers();

    std::string name_;
    mutable std::mutex lock_;
    std::vector<std::thread> threads_;
    std::vector<Task> tasks_;
    std::condition_variable cv_;
    bool quit_ = false;
};
