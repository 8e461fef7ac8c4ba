#include "vekGlobalDef.h"

#include <cstdlib>

namespace vekGlobalDef {

long timeUtils::timeScale()
{
    const char* text = std::getenv("VEK_TIME_SCALE");
    if (text == nullptr || *text == '\0') {
        return 1;
    }
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1) {
        return 1;
    }
    return value;
}

std::chrono::milliseconds timeUtils::scaled(std::chrono::milliseconds wait)
{
    if (wait.count() <= 0) {
        return std::chrono::milliseconds(0);
    }
    const long long result = wait.count() / timeScale();
    return std::chrono::milliseconds(result > 0 ? result : 1);
}

std::chrono::milliseconds timeUtils::scaledSeconds(long seconds)
{
    return scaled(std::chrono::milliseconds(static_cast<long long>(seconds) * 1000));
}

} // namespace vekGlobalDef
