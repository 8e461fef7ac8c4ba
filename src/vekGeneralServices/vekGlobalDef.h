#pragma once

#include <chrono>
#include <string>

namespace vekGlobalDef {

// Time helpers of the whole service.
class timeUtils {
public:
    // VEK_TIME_SCALE (a whole number, default 1) divides every wait, period,
    // sleep and timeout of the service, so a simulation can run in fast time.
    static long timeScale();

    // A configured wait divided by the time scale; never below one millisecond
    // for a positive wait, so that a scaled wait still yields.
    static std::chrono::milliseconds scaled(std::chrono::milliseconds wait);
    static std::chrono::milliseconds scaledSeconds(long seconds);
};

} // namespace vekGlobalDef
