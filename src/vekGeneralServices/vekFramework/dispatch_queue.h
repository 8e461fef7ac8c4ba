#pragma once

// A FIFO work queue served by its own worker threads. Used where work must
// leave the caller's thread but no ordering beyond arrival is needed.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class dispatch_queue {
public:
    typedef std::function<void()> fp_t;

    // Starts threadCount workers at once. A queue of zero threads accepts
    // work and never runs it.
    dispatch_queue(std::string name, unsigned long threadCount = 1);

    // Tells the workers to stop, waits for each one to finish the task in its
    // hands and throws away whatever is still queued.
    virtual ~dispatch_queue();

    dispatch_queue(const dispatch_queue&) = delete;
    dispatch_queue& operator=(const dispatch_queue&) = delete;
    dispatch_queue(dispatch_queue&&) = delete;
    dispatch_queue& operator=(dispatch_queue&&) = delete;

    void dispatch(const fp_t& op);
    void dispatch(fp_t&& op);

    // Only raises the quit flag: an idle worker sleeps on until something wakes
    // it, so the owner still has to destroy the queue.
    void shutdown();

private:
    void dispatch_thread_handler();
    void stopAndJoinWorkers();

    std::string name_;
    std::mutex lock_;
    std::vector<std::thread> threads_;
    std::deque<fp_t> q_;
    std::condition_variable cv_;
    bool quit_ = false;
};
