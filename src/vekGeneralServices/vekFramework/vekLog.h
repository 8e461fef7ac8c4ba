#pragma once

// The one logging helper of the code base. A call site stays one line:
//     VEK_LOG_DEBUG(TAG, "Polling devices on %s.", name.c_str());
// The level is tested first, so nothing is formatted for a dropped line; the
// text is composed into a 4096-byte buffer and handed over with tag and line.

#include "Logger.h"

#include <string>

namespace vekLog {

const size_t kMessageBufferSize = 4096;

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

inline bool debugEnabled(CPlusPlusLogging::Logger* log)
{
    return log->getDebugLoglevel() == 1 || log->getLoglevel() <= 1;
}
inline bool infoEnabled(CPlusPlusLogging::Logger* log) { return log->getLoglevel() < 3; }
inline bool warningEnabled(CPlusPlusLogging::Logger* log) { return log->getLoglevel() < 4; }
inline bool errorEnabled(CPlusPlusLogging::Logger* log) { return log->getLoglevel() < 5; }

} // namespace vekLog

#define VEK_LOG_AT_(check, method, tag, ...)                                                  \
    do {                                                                                      \
        CPlusPlusLogging::Logger* vekLogger_ = CPlusPlusLogging::Logger::getInstance();      \
        if (vekLog::check(vekLogger_)) {                                                      \
            vekLogger_->method(vekLog::format(__VA_ARGS__), (tag), __LINE__);                 \
        }                                                                                     \
    } while (0)

#define VEK_LOG_DEBUG(tag, ...) VEK_LOG_AT_(debugEnabled, debug, tag, __VA_ARGS__)
#define VEK_LOG_INFO(tag, ...) VEK_LOG_AT_(infoEnabled, info, tag, __VA_ARGS__)
#define VEK_LOG_WARNING(tag, ...) VEK_LOG_AT_(warningEnabled, warning, tag, __VA_ARGS__)
#define VEK_LOG_ERROR(tag, ...) VEK_LOG_AT_(errorEnabled, error, tag, __VA_ARGS__)
#define VEK_LOG_ALWAYS(tag, ...)                                                                          \
    CPlusPlusLogging::Logger::getInstance()->always(vekLog::format(__VA_ARGS__), (tag), __LINE__)
