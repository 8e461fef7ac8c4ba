#pragma once

#include <fstream>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

class vekConfig;

namespace CPlusPlusLogging {

typedef int LOG_LEVEL;
typedef int LOG_TYPE;

// Channel types.
const LOG_TYPE FILE_LOG = 2;
const LOG_TYPE SYSLOG_LOG = 3;
const LOG_TYPE TERMINAL_LOG = 4;

// The system-wide log: a main channel (error, warning, info, always) and a
// debug channel, each to a file, syslog or the terminal.
class Logger {
public:
    static Logger* getInstance();
    static Logger* loggerInit();

    // Builds a logger from the given configuration. The process uses the
    // singleton; tests build their own against a configuration of theirs.
    explicit Logger(const vekConfig& config);
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void always(std::string message, std::string tag, int line);
    void error(std::string message, std::string tag, int line);
    void warning(std::string message, std::string tag, int line);
    void info(std::string message, std::string tag, int line);
    void debug(std::string message, std::string tag, int line);

    void lock();
    void unlock();

    LOG_LEVEL getLoglevel() const { return logLevel; }
    LOG_LEVEL getDebugLoglevel() const { return debugLogLevel; }
    void updateLogLevel(LOG_LEVEL level) { logLevel = level; }
    void enaleLog() { logLevel = 6; }
    void disableLog() { logLevel = 12; }
    void enableFileLogging() { logType = FILE_LOG; }

    LOG_TYPE getLogType() const { return logType; }
    LOG_TYPE getDebugLogType() const { return debugLogType; }

    // A small number for the calling thread, stable for its life, from 100 up.
    unsigned int getCurrentThreadID();

private:
    void writeLine(const std::string& levelTag, const std::string& message, const std::string& tag, int line);
    void linkIntoBackup(const std::string& target);
    unsigned int threadNumberLocked();

    LOG_LEVEL logLevel;
    LOG_LEVEL debugLogLevel;
    LOG_TYPE logType;
    LOG_TYPE debugLogType;
    std::ostream* mainStream;
    std::ostream* debugStream;
    std::ofstream telemetryStream;
    std::ofstream mainFile;
    std::ofstream debugFile;
    std::string mainPath;
    std::string debugPath;
    std::mutex mutex;
    std::map<std::thread::id, unsigned int> threadTable;
    unsigned int nextThreadNumber;
};

} // namespace CPlusPlusLogging
