#include "dispatch_queue.h"

#include "vekLog.h"

#include <utility>

namespace {
const char TAG[] = "DISPATCH_Q";
}

dispatch_queue::dispatch_queue(std::string name, unsigned long threadCount)
    : name_(std::move(name)), threads_(threadCount)
{
    VEK_LOG_INFO(TAG, "Creating dispatch queue [%s] with [%zu] threads.", name_.c_str(), threads_.size());
    try {
        for (std::thread& worker : threads_) {
            worker = std::thread(&dispatch_queue::dispatch_thread_handler, this);
        }
    } catch (...) {
        // The destructor will not run for a half-built queue: the workers that
        // did start must be stopped here, or their std::thread objects abort.
        stopAndJoinWorkers();
        throw;
    }
}

dispatch_queue::~dispatch_queue()
{
    VEK_LOG_INFO(TAG, "Destructor: Destroying dispatch threads...");
    stopAndJoinWorkers();
    VEK_LOG_DEBUG(TAG, "Destructor: Destroyed dispatch threads...");
}

void dispatch_queue::stopAndJoinWorkers()
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        quit_ = true;
        cv_.notify_all();
    }
    for (size_t i = 0; i < threads_.size(); ++i) {
        if (threads_[i].joinable()) {
            VEK_LOG_INFO(TAG, "Destructor: Joining thread %zu until completion", i);
            threads_[i].join();
        }
    }
}

void dispatch_queue::dispatch(const fp_t& op)
{
    std::lock_guard<std::mutex> guard(lock_);
    q_.push_back(op);
    cv_.notify_one();
}

void dispatch_queue::dispatch(fp_t&& op)
{
    std::lock_guard<std::mutex> guard(lock_);
    q_.push_back(std::move(op));
    cv_.notify_one();
}

void dispatch_queue::shutdown()
{
    std::lock_guard<std::mutex> guard(lock_);
    quit_ = true;
}

void dispatch_queue::dispatch_thread_handler()
{
    std::unique_lock<std::mutex> lock(lock_);
    for (;;) {
        while (q_.empty()) {
            if (quit_) {
                return;
            }
            cv_.wait(lock);
        }
        {
            fp_t op = std::move(q_.front());
            q_.pop_front();
            lock.unlock();
            // A task owns its errors: what it lets out ends the process.
            op();
        }
        lock.lock();
        // Stop with work still queued: what remains belongs to the destructor.
        if (quit_) {
            return;
        }
    }
}
