#pragma once

#include <algorithm>
#include <mutex>
#include <vector>

// Self-registration: a static object of this class, defined beside a factory
// or a controller class, appends its value to the one list of T before the
// first use. add() and remove() serve code that enrols at run time.
template <typename T>
class vekRegistryManager {
public:
    explicit vekRegistryManager(T value) { add(std::move(value)); }

    static void add(T value)
    {
        std::lock_guard<std::mutex> lock(mutex());
        entries().push_back(std::move(value));
    }

    template <typename Equal>
    static void remove(Equal isIt)
    {
        std::lock_guard<std::mutex> lock(mutex());
        auto& list = entries();
        list.erase(std::remove_if(list.begin(), list.end(), isIt), list.end());
    }

    // A copy, in order of registration.
    static std::vector<T> getRegistry()
    {
        std::lock_guard<std::mutex> lock(mutex());
        return entries();
    }

private:
    static std::mutex& mutex()
    {
        static std::mutex m;
        return m;
    }
    static std::vector<T>& entries()
    {
        static std::vector<T> list;
        return list;
    }
};
