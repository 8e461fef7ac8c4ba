#pragma once

// A lock taken within a bounded wait, or not at all.
//
// The wait polls try_lock against the steady clock instead of using a timed
// mutex: a change of the wall clock can't stretch it, and every lock is a
// plain lock or try-lock that lock checkers (the thread sanitizer among them)
// see, which the C library's clock-bound lock is not.

#include <chrono>
#include <mutex>
#include <thread>

// Holds the mutex when it owns it; the wait is never shorter than one try.
template <typename Mutex>
std::unique_lock<Mutex> vekLockWithin(Mutex& mutex, std::chrono::milliseconds wait)
{
    const std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::now() + wait;
    std::unique_lock<Mutex> lock(mutex, std::try_to_lock);
    while (!lock.owns_lock() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lock.try_lock();
    }
    return lock;
}
