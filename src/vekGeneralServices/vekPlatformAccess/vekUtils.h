#pragma once

#include <string>
#include <vector>

// The older static helpers. The host questions they share with
// vekGlobalDef::VMwareOSUtils are answered there; what is left here are the
// small readers of time stamps, files and directories and the cached
// primary address. Paths given to the readers are taken as they stand: a
// caller builds them under the path root.
class vekUtils {
public:
    static std::string readHostName();
    static std::string readHostOSVersion();
    static std::string readHostOSName();
    static std::string readHostOSDescription();
    static std::string getDateTime();
    static std::string getTime();
    static std::string getUTCTime();
    static int synchronizePersistentStorage();
    static std::vector<std::string> executeCliCommandAndFetchOutput(const std::string& command);
    static std::vector<std::string> getIPAddresses();

    // "YYYY-MM-DDThh:mm:ss..." (UTC, as the host's logs write it) in epoch
    // seconds; 0 for a text of another shape.
    static long toEpoc(const std::string& timeStamp);
    // The PCI address of a storage adapter ("vmhba2"), from the "(...)" of its
    // line in the adapter list; empty when the host does not list it.
    static std::string getPCIString(const std::string& adapterName);
    static bool is_ipv4_address(const std::string& text);

    static void setPrimaryIPAddress(const std::string& address);
    // The cached first address; read from the host when nothing is cached.
    static std::string getPrimaryIPAddress();
    // Reads the addresses afresh and caches the first one.
    static std::vector<std::string> updateAndFetchIPAddresses();

    static void setCacheRefreshTimeInterval(long seconds);
    // 0 until set.
    static long getCacheRefreshTimeInterval();

    // The abbreviation of the local time zone now ("UTC").
    static std::string getTimeZone();
    // The text between the first 'begin' and the next 'end' after it; empty
    // when either is missing.
    static std::string getSubStr(const std::string& text, const std::string& begin, const std::string& end);
    // The first line of a file without its newline; empty when unreadable.
    static std::string getLineFromFile(const std::string& path);
    // The names in a directory, without "." and "..", sorted.
    static std::vector<std::string> dirList(const std::string& path);
    // Only the names that are PCI addresses ("0000:3b:00.0", or five digits of
    // domain behind VMD).
    static std::vector<std::string> dirPciList(const std::string& path);
    // Only the names of NVMe namespaces ("nvme0n1").
    static std::vector<std::string> dirListNvmeNameSpaces(const std::string& path);

    // The last two boots in /var/log/vmksummary.log: the latest, and the one
    // before it (0 when there is only one). False when none could be read.
    static bool fetchSystemBootTime(long& lastBootTime, long& previousBootTime);
    // The last "Host is rebooting" in the same log.
    static bool fetchSystemShutdownTime(long& shutdownTime);
};
