#pragma once

#include <string>
#include <utility>
#include <vector>

// Memory of the host, in whole GiB.
class vekHostMemorySummary {
public:
    double getTotalSystemMemGiB() const { return TotalSystemMemGiB; }
    void setTotalSystemMemGiB(double gib) { TotalSystemMemGiB = gib; }
    double getTotalFreeSystemMemGiB() const { return TotalFreeSystemMemGiB; }
    void setTotalFreeSystemMemGiB(double gib) { TotalFreeSystemMemGiB = gib; }

private:
    double TotalSystemMemGiB = 0;
    double TotalFreeSystemMemGiB = 0;
};

// The host's IPv4 addresses, loopback excluded.
class vekHostIPv4Addresses {
public:
    const std::vector<std::string>& getAddresses() const { return addresses; }
    void setAddresses(std::vector<std::string> list) { addresses = std::move(list); }

private:
    std::vector<std::string> addresses;
};

// What the host's operating system says about itself. The crash-kernel and
// software fields are not collected on every platform: they count as absent
// until set, and absent ones stay out of the inventory.
class vekHostOSInfo {
public:
    const std::string& getHostName() const { return HostName; }
    void setHostName(const std::string& value) { HostName = value; }
    const std::string& getOSName() const { return OSName; }
    void setOSName(const std::string& value) { OSName = value; }
    const std::string& getOSVersion() const { return OSVersion; }
    void setOSVersion(const std::string& value) { OSVersion = value; }
    const std::string& getOSDescription() const { return OSDescription; }
    void setOSDescription(const std::string& value) { OSDescription = value; }
    int getOSType() const { return OSType; }
    void setOSType(int value) { OSType = value; }
    const vekHostMemorySummary& getOSMemorySummary() const { return OSMemorySummary; }
    void setOSMemorySummary(const vekHostMemorySummary& value) { OSMemorySummary = value; }
    const vekHostIPv4Addresses& getIPv4Addresses() const { return IPv4Addresses; }
    void setIPv4Addresses(const vekHostIPv4Addresses& value) { IPv4Addresses = value; }

    const std::string& getKernelCmdLine() const { return KernelCmdLine; }
    void setKernelCmdLine(const std::string& value);
    const std::string& getCrashKernelCmd() const { return CrashKernelCmd; }
    void setCrashKernelCmd(const std::string& value);
    long getCrashKernelMemBytes() const { return CrashKernelMemBytes; }
    void setCrashKernelMemBytes(long value);
    const std::string& getCrashkernelLoaded() const { return CrashkernelLoaded; }
    void setCrashkernelLoaded(const std::string& value);
    const std::string& getKDumpSvcsEnabled() const { return KDumpSvcsEnabled; }
    void setKDumpSvcsEnabled(const std::string& value);
    const std::string& getKDumpSvcsStatus() const { return KDumpSvcsStatus; }
    void setKDumpSvcsStatus(const std::string& value);
    // True once any of the six crash-kernel fields above has been set.
    bool hasOSConfiguration() const { return hasOSConfiguration_; }

    const std::string& getListOfSoftwaresInstalled() const { return ListOfSoftwaresInstalled; }
    void setListOfSoftwaresInstalled(const std::string& value);
    bool hasListOfSoftwaresInstalled() const { return hasSoftwareList_; }

    const std::string& getVekSwVersion() const { return VekSwVersion; }
    void setVekSwVersion(const std::string& value) { VekSwVersion = value; }
    const std::string& getTelemetrySchemaVersion() const { return TelemetrySchemaVersion; }
    void setTelemetrySchemaVersion(const std::string& value) { TelemetrySchemaVersion = value; }

private:
    std::string HostName;
    std::string OSName;
    std::string OSVersion;
    std::string OSDescription;
    int OSType = 0;
    vekHostMemorySummary OSMemorySummary;
    vekHostIPv4Addresses IPv4Addresses;
    std::string KernelCmdLine;
    std::string CrashKernelCmd;
    long CrashKernelMemBytes = 0;
    std::string CrashkernelLoaded;
    std::string KDumpSvcsEnabled;
    std::string KDumpSvcsStatus;
    std::string ListOfSoftwaresInstalled;
    std::string VekSwVersion;
    std::string TelemetrySchemaVersion;
    bool hasOSConfiguration_ = false;
    bool hasSoftwareList_ = false;
};
