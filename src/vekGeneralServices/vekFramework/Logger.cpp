#include "Logger.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <libgen.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <vector>

namespace vekLog {

std::string format(const char* fmt, ...)
{
    char buffer[kMessageBufferSize];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof(buffer), fmt, args);
    va_end(args);
    return std::string(buffer);
}

} // namespace vekLog

namespace CPlusPlusLogging {

namespace {

const char* const kBackupDirectory = "/scratch/log/zolvek/backup_log";
const char* const kTmpDirectory = "/opt/zolvek/tmp";

void loggerSyslog(int priority, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void loggerSyslog(int priority, const char* fmt, ...)
{
    char buffer[vekLog::kMessageBufferSize];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof(buffer), fmt, args);
    va_end(args);
    openlog("vek", 0, LOG_USER);
    syslog(priority, "%s", buffer);
    closelog();
}

LOG_TYPE typeOfLocation(const std::string& location)
{
    if (location == "syslog") {
        return SYSLOG_LOG;
    }
    if (location == "terminal") {
        return TERMINAL_LOG;
    }
    return FILE_LOG;
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

LOG_LEVEL levelOfWord(const std::string& word)
{
    const std::string w = lowered(word);
    if (w.find("error") != std::string::npos) {
        return 4;
    }
    if (w.find("warning") != std::string::npos) {
        return 3;
    }
    if (w.find("info") != std::string::npos) {
        return 2;
    }
    return 3;
}

// Creates every directory above the file, one component at a time, mode 0700.
// Returns 0 or the errno of the first failure.
int createParentDirectories(const std::string& filePath)
{
    const size_t lastSlash = filePath.rfind('/');
    if (lastSlash == std::string::npos || lastSlash == 0) {
        return 0;
    }
    const std::string dir = filePath.substr(0, lastSlash);
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        const std::string component = dir.substr(0, pos);
        if (component.empty()) {
            continue;
        }
        if (mkdir(component.c_str(), 0700) != 0 && errno != EEXIST) {
            return errno;
        }
    }
    return 0;
}

int priorityOfLevel(const std::string& levelTag)
{
    if (levelTag.find("ERROR") != std::string::npos) {
        return LOG_ERR;
    }
    if (levelTag.find("WARNING") != std::string::npos) {
        return LOG_WARNING;
    }
    if (levelTag.find("INFO") != std::string::npos) {
        return LOG_INFO;
    }
    if (levelTag.find("DEBUG") != std::string::npos) {
        return LOG_DEBUG;
    }
    return LOG_INFO;
}

} // namespace

Logger* Logger::getInstance()
{
    static Logger instance(vekConfig::getInstance());
    return &instance;
}

Logger* Logger::loggerInit()
{
    return getInstance();
}

Logger::Logger(const vekConfig& config)
    : logLevel(3),
      debugLogLevel(12),
      logType(SYSLOG_LOG),
      debugLogType(SYSLOG_LOG),
      mainStream(nullptr),
      debugStream(nullptr),
      nextThreadNumber(100)
{
    const bool debugEnabled = config.getDebugLogSettings();
    debugPath = config.getVEKDebugLogFileLocation();
    mainPath = config.getVEKLogFileLocation();
    const std::string levelWord = config.getVEKLoggingLevel();

    logType = typeOfLocation(mainPath);
    debugLogType = typeOfLocation(debugPath);
    debugLogLevel = debugEnabled ? 1 : 12;
    logLevel = levelOfWord(levelWord);

    if (logType == FILE_LOG) {
        int err = createParentDirectories(mainPath);
        if (err != 0) {
            loggerSyslog(LOG_ERR, "Failed to create directory path for VEK log file [%s]: %d - %s",
                         mainPath.c_str(), err, strerror(err));
            exit(-10);
        }
        if (debugLogType == FILE_LOG) {
            err = createParentDirectories(debugPath);
            if (err != 0) {
                loggerSyslog(LOG_ERR, "Failed to create directory path for VEK debug log file [%s]: %d - %s",
                             debugPath.c_str(), err, strerror(err));
                exit(-11);
            }
        }
        mainFile.open(mainPath, std::ios::out | std::ios::app);
        if (!mainFile.is_open()) {
            const int e = errno;
            loggerSyslog(LOG_WARNING, "Error opening VEK log file [%s]: %d - %s", mainPath.c_str(), e, strerror(e));
        }
        mainStream = &mainFile;
    } else if (logType == TERMINAL_LOG) {
        mainStream = &std::cout;
    }

    if (debugLogType == TERMINAL_LOG) {
        debugStream = &std::cout;
    } else if (debugLogType == FILE_LOG && debugEnabled) {
        debugFile.open(debugPath, std::ios::out | std::ios::app);
        if (!debugFile.is_open()) {
            const int e = errno;
            loggerSyslog(LOG_WARNING, "Error opening the VEK debug log file[%s]: %d - %s", debugPath.c_str(), e,
                         strerror(e));
        }
        debugStream = &debugFile;
    }

    if (logType == FILE_LOG) {
        linkIntoBackup(mainPath);
    }
    if (debugLogType == FILE_LOG) {
        linkIntoBackup(debugPath);
    }
    linkIntoBackup(vekConfig::getEnv() + kTmpDirectory);
}

Logger::~Logger()
{
    if (mainFile.is_open()) {
        mainFile.close();
    }
    if (debugFile.is_open()) {
        debugFile.close();
    }
    if (telemetryStream.is_open()) {
        telemetryStream.close();
    }
}

void Logger::linkIntoBackup(const std::string& target)
{
    if (access(target.c_str(), R_OK) != 0) {
        return;
    }
    std::vector<char> copy(target.begin(), target.end());
    copy.push_back('\0');
    const char* base = basename(copy.data());
    if (base == nullptr) {
        loggerSyslog(LOG_WARNING, "basename(%s) returned NULL", target.c_str());
        return;
    }
    const std::string linkPath = vekConfig::getEnv() + kBackupDirectory + "/" + base;
    if (remove(linkPath.c_str()) != 0 && errno != ENOENT) {
        loggerSyslog(LOG_WARNING, "remove(%s) completed with errno [%d]", linkPath.c_str(), errno);
    }
    if (target == linkPath) {
        loggerSyslog(LOG_WARNING,
                     "Target path(%s) matches symbolic link path(%s). Hence, symbolic link will not be created.",
                     target.c_str(), linkPath.c_str());
        return;
    }
    if (symlink(target.c_str(), linkPath.c_str()) != 0 && errno != EEXIST) {
        loggerSyslog(LOG_WARNING, "symlink(%s, %s) completed with errno [%d]", target.c_str(), linkPath.c_str(),
                     errno);
    }
}

void Logger::always(std::string message, std::string tag, int line)
{
    writeLine("[INFO]   ", message, tag, line);
}

void Logger::error(std::string message, std::string tag, int line)
{
    if (logLevel < 5) {
        writeLine("[ERROR]   ", message, tag, line);
    }
}

void Logger::warning(std::string message, std::string tag, int line)
{
    if (logLevel < 4) {
        writeLine("[WARNING]", message, tag, line);
    }
}

void Logger::info(std::string message, std::string tag, int line)
{
    if (logLevel < 3) {
        writeLine("[INFO]   ", message, tag, line);
    }
}

void Logger::debug(std::string message, std::string tag, int line)
{
    if (debugLogLevel == 1) {
        writeLine("[DEBUG]  ", message, tag, line);
    }
}

void Logger::lock()
{
    mutex.lock();
}

void Logger::unlock()
{
    mutex.unlock();
}

unsigned int Logger::threadNumberLocked()
{
    const std::thread::id self = std::this_thread::get_id();
    auto found = threadTable.find(self);
    if (found != threadTable.end()) {
        return found->second;
    }
    const unsigned int number = nextThreadNumber++;
    threadTable.emplace(self, number);
    return number;
}

unsigned int Logger::getCurrentThreadID()
{
    std::lock_guard<std::mutex> guard(mutex);
    return threadNumberLocked();
}

void Logger::writeLine(const std::string& levelTag, const std::string& message, const std::string& tag, int line)
{
    const bool isDebug = levelTag.find("DEBUG") != std::string::npos;
    const bool isMain = !isDebug && (levelTag.find("ERROR") != std::string::npos ||
                                     levelTag.find("WARNING") != std::string::npos ||
                                     levelTag.find("INFO") != std::string::npos);
    if (!isDebug && !isMain) {
        return;
    }
    const LOG_TYPE type = isDebug ? debugLogType : logType;

    std::lock_guard<std::mutex> guard(mutex);
    const std::string body = levelTag + " " + std::to_string(threadNumberLocked()) + " " +
                             vekLog::format("%03d", line) + " " + tag + ": " + message;
    if (type == SYSLOG_LOG) {
        if (body.empty()) {
            return;
        }
        openlog("vek", 0, LOG_USER);
        syslog(priorityOfLevel(levelTag), "%s", body.c_str());
        closelog();
        return;
    }
    std::ostream* stream = isDebug ? debugStream : mainStream;
    if (stream == nullptr) {
        return;
    }
    *stream << vekGlobalDef::timeUtils::getUTCTime() << " " << body << "\n";
    stream->flush();
}

} // namespace CPlusPlusLogging
