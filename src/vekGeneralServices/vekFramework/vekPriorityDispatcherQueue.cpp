#include "vekPriorityDispatcherQueue.h"

#include "vekLog.h"

#include <algorithm>
#include <utility>

namespace {
const char TAG[] = "P_DISPATCH_Q";
}

vekPriorityDispatcherQueue::vekPriorityDispatcherQueue(std::string name, unsigned long threadCount)
    : name_(std::move(name))
{
    VEK_LOG_INFO(TAG, "Creating dispatch queue: %s", name_.c_str());
    VEK_LOG_INFO(TAG, "Dispatch threads: %zu", static_cast<size_t>(threadCount));
    try {
        threads_.reserve(threadCount);
        for (unsigned long i = 0; i < threadCount; ++i) {
            threads_.emplace_back(&vekPriorityDispatcherQueue::priority_queue_handler, this);
        }
    } catch (...) {
        // The destructor will not run for a half-built queue: the workers that
        // did start must be stopped here, or their std::thread objects abort.
        stopAndJoinWorkers();
        throw;
    }
}

vekPriorityDispatcherQueue::~vekPriorityDispatcherQueue()
{
    VEK_LOG_INFO(TAG, "Destructor: Destroying dispatch threads...");
    stopAndJoinWorkers();
}

void vekPriorityDispatcherQueue::stopAndJoinWorkers()
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

void vekPriorityDispatcherQueue::dispatch(std::function<void()>&& op, Priority priority)
{
    std::lock_guard<std::mutex> guard(lock_);
    tasks_.push_back(Task{std::move(op), priority});
    std::push_heap(tasks_.begin(), tasks_.end());
    cv_.notify_one();
    VEK_LOG_DEBUG(TAG, "Added to queue and notified");
}

bool vekPriorityDispatcherQueue::isEmpty() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return tasks_.empty();
}

void vekPriorityDispatcherQueue::cleanup()
{
    std::vector<Task> dropped;
    {
        std::lock_guard<std::mutex> guard(lock_);
        VEK_LOG_INFO(TAG, "Cleanup_Received: QSize [%zu]", tasks_.size());
        dropped.swap(tasks_);
        VEK_LOG_INFO(TAG, "Q Cleaned_up: QSize [%zu]", tasks_.size());
    }
    // The dropped tasks die here, outside the lock, in case what they hold
    // wants to queue something on its way out.
}

void vekPriorityDispatcherQueue::shutdown()
{
    std::lock_guard<std::mutex> guard(lock_);
    quit_ = true;
}

void vekPriorityDispatcherQueue::priority_queue_handler()
{
    std::unique_lock<std::mutex> lock(lock_);
    for (;;) {
        while (tasks_.empty()) {
            if (quit_) {
                return;
            }
            cv_.wait(lock);
        }
        {
            std::pop_heap(tasks_.begin(), tasks_.end());
            Task task = std::move(tasks_.back());
            tasks_.pop_back();
            VEK_LOG_DEBUG(TAG, "Popped a task from queue. Size: %zu", tasks_.size());
            lock.unlock();
            // A task owns its errors: what it lets out ends the process.
            task.func();
        }
        lock.lock();
        VEK_LOG_DEBUG(TAG, "Task execution completed. Size: %zu", tasks_.size());
        // Stop with work still queued: what remains belongs to the destructor.
        if (quit_) {
            return;
        }
    }
}
