#pragma once

#include <ctime>

#include <chrono>
#include <map>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace vekGlobalDef {

// What became of one host command (VMwareOSUtils::runHostCommand).
struct HostCommandResult {
    // Standard output, one element per line, each with its newline.
    std::vector<std::string> lines;
    // The wait status as system() gives it; -1 when the command did not run
    // to its end (it could not start, or was killed at the bound).
    int status = -1;
    // With status -1: the errno of the failed start, or ETIMEDOUT.
    int error = 0;
    bool timedOut = false;
};

// Owns a descriptor; closes it when replaced or destroyed.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release();
    void reset(int fd = -1);

private:
    int fd_ = -1;
};

// What the start-stop file is asked to record.
enum VEKOperation {
    VEK_OPERATION_INIT = 0,
    VEK_OPERATION_SHUTDOWN = 1,
};

// Everything the service asks of the host operating system. The object itself
// is empty: it is only passed around as a policy argument. All host paths
// these operations build are under the path root (vekConfig::getEnv()), so
// the path operations below already carry that prefix.
class VMwareOSUtils {
public:
    // Rooted "/opt/zolvek" and the files below it.
    static std::string DirectoryPath();
    static std::string StartupFilePath();        // stem of the start-stop file
    static std::string NICListsFilePath();
    static std::string NICInstanceDetailsFilePath();
    static std::string HardwareListFilePath();   // written from "localcli hardware pci list"
    static std::string StartStopFilePath();
    static std::string StartStopScratchFilePath();

    static std::string readHostName();
    // ctime() of now without its newline: the time of every event.
    static std::string getDateTime();
    static int getOSType();
    static int getFCEventsPollInterval();
    static std::string readHostOSDescription();
    static std::string fetchHostOSName();
    static std::string readHostOSVersion();
    // The IPv4 addresses of all interfaces but "lo", in the order of the list.
    static std::vector<std::string> getIPAddress();
    // Total and free machine memory in whole GiB (the fraction is dropped).
    static std::pair<double, double> getTotalPhysicalMemory();

    // Runs a command line with /bin/sh in a process group of its own, with
    // no signal blocked or ignored, and reads its standard output. A command
    // still running after hostCommandTimeout() is killed with its whole group
    // and logged; it counts as failed, with no output.
    static HostCommandResult runHostCommand(const std::string& command);
    // "HostCommandTimeoutInSeconds" divided by the time scale, never below a
    // floor that a loaded machine needs to start a command at all.
    static std::chrono::milliseconds hostCommandTimeout();
    // One shell word that stands for the text literally, whatever it holds.
    static std::string shellQuote(const std::string& word);
    // The command line of a pattern whose every "{}" is replaced by the next
    // word, quoted: every text from outside (names, addresses, paths) goes
    // into a command line through here. Throws std::invalid_argument when the
    // number of "{}" is not the number of words.
    static std::string composeCommand(const std::string& pattern, const std::vector<std::string>& words);
    // "%04x:%02x:%02x.%x", or five digits of domain behind VMD.
    static bool isPciAddress(const std::string& text);
    // One element per line of the command's output, each with its newline;
    // nothing when the command could not run or was killed.
    static std::vector<std::string> executeCliCommandAndFetchOutput(const std::string& command);
    // The value behind the key that the extended regular expression matches:
    // what stands two characters behind the first ':' of the first match.
    static std::string getValueByRegexFromLocalcli(const std::string& text, const std::string& regex);
    // A "Key: value" listing as one line, ",Key: value ,Key: value", so that a
    // regular expression can anchor a key on its leading comma.
    static std::string parseEsxiCommandOutputAsCsv(const std::vector<std::string>& lines);
    // The same for the output of a command, which it runs.
    static std::string parseEsxiCommandOutputAsCsv(const std::string& command);
    // Vendor and device id, and subsystem vendor and device id, of a PCI
    // address as the hardware list file has them ("0x8086"); empty if unknown.
    static std::pair<std::string, std::string> get_vendor_device(const std::string& pciAddress);
    static std::pair<std::string, std::string> get_subvendor_subdevice(const std::string& pciAddress);

    static time_t getSystemCurrentBootTime();
    // Taken at the first call and kept for the life of the process.
    static time_t getVEKStartTime();
    // Returns the status of the command as system() gave it.
    static int synchronizePersistentStorage();

    // The start-stop file: "current_start", "last_start", "last_stop", each a
    // time_t, 0 for never.
    static long readStartupValue(const std::string& key);
    // Throws std::runtime_error when the file cannot be written.
    static void vekStartStopFileOperations(VEKOperation op);
    static void updateVEKLastStartValue();
    static void getLastOSShutdownStatus(bool& ungraceful, bool& graceful);

    static std::string getErrorDescription(int error);
    static std::string execErrnoToDescription(int error);
};

class stringUtils {
public:
    // Blank, tab, form feed, vertical tab, newline and return.
    static const char* const kBlanks;

    static std::string trim(const std::string& text, const std::string& blanks = kBlanks);
    // True for a non-empty run of hexadecimal digits, with or without "0x".
    static bool validateHexadecimalString(const std::string& text);
    // The text without a leading "0x" or "0X".
    static std::string stripHexRepresentedString(const std::string& text);
    // Rounds the value to the given number of decimals ("%*.*lf", width 0)
    // and returns the text it was formatted to.
    static std::string limitPrecision(double& value, int precision);
    // The text after the last '/' or '\'.
    static std::string extractFilename(const std::string& path);
    static bool findString(const std::string& text, const std::string& search, bool ignoreCase = false);
    // The value of a hexadecimal text (with or without "0x"); 0 when it is not one.
    static long hexStringToInt(const std::string& text);
    // Drops every byte outside 7-bit ASCII.
    static std::string removeNonAscii(const std::string& text);
    // Bytes of a fixed-size field as text: up to the first NUL, trimmed.
    static std::string stringifyByteArray(const unsigned char* bytes, size_t length);
    // The first line of the file that contains the text, without its newline;
    // empty when none does or the file cannot be read.
    static std::string getMatchingLineFromFile(const std::string& path, const std::string& search);
    // The pieces between the delimiters, as std::getline gives them: empty
    // pieces inside are kept, a trailing empty one is not.
    static std::vector<std::string> splitStringstream(const std::string& text, char delimiter);
    // Each line split at its first delimiter into a trimmed key and value;
    // lines without the delimiter or with an empty key are skipped; a later
    // key replaces an earlier one.
    static std::map<std::string, std::string> convertStringStreamToKeyVal(const std::string& text,
                                                                          char delimiter = ':');
    // Every whole match, in order.
    static std::vector<std::string> execRegexAndExtractAllMatches(const std::string& text, const std::regex& regex);
    // The capture groups of the first match (not the whole match); empty
    // when nothing matches. A group that took no part is an empty string.
    static std::vector<std::string> execRegexAndExtractCaptureGroups(const std::string& text,
                                                                     const std::regex& regex);
    // False, with a warning, when the expression does not compile.
    static bool compileRegEx(const std::string& pattern, std::regex& compiled,
                             std::regex_constants::syntax_option_type flags = std::regex_constants::ECMAScript);
};

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
    // The same for a wait that stands for a peer's answer time, which a
    // faster clock does not make the peer keep: never below the floor (nor
    // above the wait itself, when the wait is shorter than the floor).
    static std::chrono::milliseconds scaledAtLeast(std::chrono::milliseconds wait, std::chrono::milliseconds floor);

    // "%FT%TZ" of now in UTC.
    static std::string getUTCTime();
    // "%F %T" of a time_t in local time.
    static std::string getTimeAsString(long seconds);
    static std::string getTime();
    // result = later - earlier, borrowing a second when the nanoseconds underflow.
    static void computeTimeDiff(timespec& later, timespec& earlier, timespec& result);
};

} // namespace vekGlobalDef
