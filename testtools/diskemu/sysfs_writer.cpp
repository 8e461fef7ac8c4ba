#include "sysfs_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace simstorage {

namespace {

namespace fs = std::filesystem;

// A path under ROOT/sys, as its components.
using Path = std::vector<std::string>;
using Attributes = std::vector<std::pair<std::string, std::string>>;

Path operator/(Path path, const std::string& name)
{
    path.push_back(name);
    return path;
}

std::string joined(const Path& path)
{
    std::string text;
    for (const auto& part : path) {
        text += (text.empty() ? "" : "/") + part;
    }
    return text;
}

// The link text the kernel writes (kernfs): up from the link's folder to the
// first folder that also holds the target's parent, then down to the target.
std::string relativeTarget(const Path& link, const Path& target)
{
    const size_t from = link.size() - 1, parent = target.size() - 1;
    size_t common = 0;
    while (common < from && common < parent && link[common] == target[common]) {
        ++common;
    }
    std::string text;
    for (size_t i = common; i < from; ++i) {
        text += "../";
    }
    for (size_t i = common; i < target.size(); ++i) {
        text += target[i] + (i + 1 < target.size() ? "/" : "");
    }
    return text;
}

// Everything one description lays out, and the entries it owns: the roots of
// its subtrees and its links, which is what goes when the item goes.
struct Plan {
    std::vector<std::pair<Path, Attributes>> folders;
    std::vector<std::pair<Path, Path>> links;                   // at, target
    std::vector<std::pair<Path, std::set<std::string>>> prunes; // folder, the children it keeps
    std::set<std::string> owned;                                // "sys/..." paths

    void own(const Path& path) { owned.insert("sys/" + joined(path)); }
    void link(const Path& at, const Path& target, bool owns = false)
    {
        links.emplace_back(at, target);
        if (owns) {
            own(at);
        }
    }
};

bool allOf(const std::string& text, int (*test)(int))
{
    for (unsigned char c : text) {
        if (test(c) == 0) {
            return false;
        }
    }
    return !text.empty();
}

std::string hex(uint64_t value, int digits)
{
    char text[24];
    snprintf(text, sizeof(text), "0x%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

uint64_t wwnValue(const Device& device)
{
    if (device.wwn.empty()) {
        return 0;
    }
    if (device.wwn.size() != 16 || !allOf(device.wwn, isxdigit)) {
        throw ModelError("device '" + device.id + "': wwn '" + device.wwn + "' is not 16 hexadecimal digits");
    }
    return std::stoull(device.wwn, nullptr, 16);
}

bool isSata(const Device& device) { return device.transport == "SATA"; }

// What an initiator sees of the device's SAS address: a SAS device's target
// port (its name plus one), or the address the adapter makes up for a SATA
// disk on one of its phys.
uint64_t sasAddress(const Device& device)
{
    return isSata(device) ? 0x4433221100000000ULL | (static_cast<uint64_t>(device.target & 0xff) << 24)
                          : wwnValue(device) + 1;
}

std::string padded(const std::string& text, size_t width)
{
    std::string field = text.substr(0, width);
    field.resize(width, ' ');
    return field;
}

// The inquiry revision: a SATA disk's is what the kernel's translation takes
// from its firmware revision, the last four of eight characters unless blank.
std::string revision(const Device& device)
{
    if (!isSata(device)) {
        return padded(device.revision, 4);
    }
    const std::string firmware = padded(device.revision, 8);
    return firmware.compare(4, 4, "    ") == 0 ? firmware.substr(0, 4) : firmware.substr(4, 4);
}

std::string standardInquiry(const Device& device)
{
    std::string data(36, '\0');
    data[0] = static_cast<char>(device.deviceType & 0x1f);
    data[2] = isSata(device) ? 0x05 : 0x06; // SPC-3 from the translation layer, SPC-4 from a SAS device
    data[3] = 0x12;                         // HiSup, response data format 2
    data[4] = static_cast<char>(data.size() - 5);
    data[6] = device.deviceType == 13 ? 0x40 : 0x00; // EncServ
    data[7] = 0x02;                                  // CmdQue
    data.replace(8, 8, padded(device.vendor, 8));
    data.replace(16, 16, padded(device.model, 16));
    data.replace(32, 4, revision(device));
    return data;
}

std::string vpdPage(unsigned char code, const std::string& payload)
{
    std::string page{'\0', static_cast<char>(code), static_cast<char>(payload.size() >> 8),
                     static_cast<char>(payload.size() & 0xff)};
    return page + payload;
}

std::string designator(unsigned char codeSetAndProtocol, unsigned char typeAndAssociation, const std::string& value)
{
    return std::string{static_cast<char>(codeSetAndProtocol), static_cast<char>(typeAndAssociation), '\0',
                       static_cast<char>(value.size())} +
           value;
}

std::string bigEndian(uint64_t value, int bytes)
{
    std::string data;
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
        data.push_back(static_cast<char>((value >> shift) & 0xff));
    }
    return data;
}

// Device identification: the logical unit's NAA 5 name from its WWN; a SAS
// device adds its target port and relative port, a SATA disk what the
// kernel's translation layer makes (T10 vendor id "ATA", model and serial).
std::string identificationPage(const Device& device)
{
    std::string designators;
    if (isSata(device)) {
        designators += designator(0x02, 0x01, "ATA     " + padded(device.model, 40) + padded(device.serial, 20));
    }
    if (!device.wwn.empty()) {
        designators += designator(0x01, 0x03, bigEndian(wwnValue(device), 8));
    }
    if (!isSata(device)) {
        designators += designator(0x61, 0x93, bigEndian(sasAddress(device), 8));
        designators += designator(0x61, 0x94, bigEndian(1, 4));
    }
    return vpdPage(0x83, designators);
}

// "0000:5e:00.0" (or five digits of domain behind Intel VMD): the domain and
// the bus, which name the root bus folder ("pci0000:5e").
std::pair<std::string, std::string> domainAndBus(const Hba& hba)
{
    const std::string& pci = hba.pci;
    const size_t first = pci.find(':');
    const bool shaped = (first == 4 || first == 5) && pci.size() == first + 8 && pci[first + 3] == ':' &&
                        pci[first + 6] == '.' && allOf(pci.substr(0, first), isxdigit) &&
                        allOf(pci.substr(first + 1, 2), isxdigit) && allOf(pci.substr(first + 4, 2), isxdigit) &&
                        pci[first + 7] >= '0' && pci[first + 7] <= '7';
    if (!shaped) {
        throw ModelError("adapter '" + hba.id + "': '" + pci + "' is no PCI address");
    }
    return {pci.substr(0, first), pci.substr(first + 1, 2)};
}

bool isAta(const Hba& hba) { return hba.ataPorts > 0; }

// The SCSI host of a port: the adapter's one host, or on an ATA adapter the
// host of that ATA port.
int hostNumber(const Hba& hba, int port) { return hba.host + (isAta(hba) ? port : 0); }

std::string hostName(int host) { return "host" + std::to_string(host); }

Path pciFolder(const Hba& hba)
{
    const auto root = domainAndBus(hba);
    return {"devices", "pci" + root.first + ":" + root.second, hba.pci};
}

// An ATA port's host sits below its "ataN" folder, as libata lays it out.
Path hostFolder(const Hba& hba, int port = 0)
{
    const Path pci = pciFolder(hba);
    const std::string host = hostName(hostNumber(hba, port));
    return isAta(hba) ? pci / ("ata" + std::to_string(hba.ataBase + port)) / host : pci / host;
}

void layAdapter(const Hba& hba, Plan& plan)
{
    if (hba.host < 0) {
        throw ModelError("adapter '" + hba.id + "': negative host number");
    }
    const Path pci = pciFolder(hba);
    // RAID bus, SATA (AHCI) or SAS controller.
    const int pciClass = hba.procName == "megaraid_sas" ? 0x010400 : isAta(hba) ? 0x010601 : 0x010700;
    plan.folders.push_back({pci,
                            {{"vendor", hex(hba.vendorId, 4) + "\n"},
                             {"device", hex(hba.deviceId, 4) + "\n"},
                             {"subsystem_vendor", hex(hba.subVendorId, 4) + "\n"},
                             {"subsystem_device", hex(hba.subDeviceId, 4) + "\n"},
                             {"class", hex(pciClass, 6) + "\n"}}});
    plan.own(pci);
    plan.link({"bus", "pci", "devices", hba.pci}, pci, true);
    for (int port = 0; port < std::max(hba.ataPorts, 1); ++port) {
        const Path host = hostFolder(hba, port);
        const std::string name = hostName(hostNumber(hba, port));
        const Path scsiHost = host / "scsi_host" / name;
        Attributes attributes{{"proc_name", hba.procName + "\n"}, {"state", hba.state + "\n"}};
        // libata's hosts have no firmware or tracer attributes.
        if (!isAta(hba)) {
            attributes.push_back({"version_fw", hba.firmware + "\n"});
            attributes.push_back({"board_tracer", hba.serial + "\n"});
        }
        attributes.push_back({"unique_id", std::to_string(hostNumber(hba, port)) + "\n"});
        plan.folders.push_back({scsiHost, attributes});
        plan.own(host);
        plan.link(scsiHost / "device", host);
        plan.link({"class", "scsi_host", name}, scsiHost, true);
    }
}

// The enclosure an adapter's devices sit in: the logical identifier of its
// enclosure services device, when it has one.
uint64_t enclosureIdentifier(const Storage& storage, const Hba& hba)
{
    for (const auto& device : storage.devices) {
        if (device.hba == hba.id && device.deviceType == 13) {
            return wwnValue(device);
        }
    }
    return 0;
}

void layDevice(const Storage& storage, const Hba& hba, const Device& device, Plan& plan)
{
    if (device.target < 0) {
        throw ModelError("device '" + device.id + "': negative target");
    }
    if (!device.block.empty() && !allOf(device.block, isalnum)) {
        throw ModelError("device '" + device.id + "': '" + device.block + "' is no block device name");
    }
    if (isAta(hba) && (device.target >= hba.ataPorts || !isSata(device))) {
        throw ModelError("device '" + device.id + "': an ATA adapter takes SATA disks on its ports 0 to " +
                         std::to_string(hba.ataPorts - 1));
    }
    // On an ATA adapter every port is a host of its own, with the disk as target 0.
    const std::string h = std::to_string(hostNumber(hba, device.target));
    const std::string t = isAta(hba) ? "0" : std::to_string(device.target);
    const std::string scsiName = h + ":0:" + t + ":0", endName = "end_device-" + h + ":" + t;
    const std::string sg = "sg" + std::to_string(device.sg);
    const Path port = isAta(hba) ? hostFolder(hba, device.target) / ("target" + h + ":0:" + t)
                                 : hostFolder(hba) / ("port-" + h + ":" + t);
    const Path end = port / endName;
    const Path scsi = isAta(hba) ? port / scsiName : end / ("target" + h + ":0:" + t) / scsiName;
    const std::string address = hex(sasAddress(device), 16) + "\n";

    Attributes attributes{{"type", std::to_string(device.deviceType) + "\n"},
                          {"vendor", padded(device.vendor, 8) + "\n"},
                          {"model", padded(device.model, 16) + "\n"},
                          {"rev", revision(device) + "\n"},
                          {"state", std::string(device.state == "offline" ? "offline" : "running") + "\n"},
                          {"vpd_pg80", vpdPage(0x80, device.serial)},
                          {"vpd_pg83", identificationPage(device)},
                          {"inquiry", standardInquiry(device)}};
    if (!isAta(hba)) {
        plan.folders.push_back({end / "sas_device" / endName,
                                {{"bay_identifier", std::to_string(device.bay) + "\n"},
                                 {"enclosure_identifier", hex(enclosureIdentifier(storage, hba), 1) + "\n"},
                                 {"sas_address", address}}});
        attributes.push_back({"sas_address", address});
        plan.link({"class", "sas_device", endName}, end / "sas_device" / endName, true);
    }
    plan.folders.push_back({scsi, attributes});
    plan.folders.push_back({scsi / "scsi_generic" / sg, {}});
    plan.prunes.push_back({scsi / "scsi_generic", {sg}});
    plan.folders.push_back({scsi / "scsi_device" / scsiName, {}});
    plan.link(scsi / "scsi_device" / scsiName / "device", scsi);
    plan.own(port);

    if (!device.block.empty()) {
        const uint64_t sectors = device.blocks * device.blockSize / 512;
        plan.folders.push_back({scsi / "block" / device.block, {{"size", std::to_string(sectors) + "\n"}}});
        plan.link({"block", device.block}, scsi / "block" / device.block, true);
    }
    plan.prunes.push_back({scsi / "block", device.block.empty() ? std::set<std::string>{} : std::set{device.block}});
    if (device.deviceType == 13) {
        plan.folders.push_back(
            {scsi / "enclosure" / scsiName,
             {{"components", std::to_string(device.bays) + "\n"}, {"id", hex(wwnValue(device), 1) + "\n"}}});
        plan.link({"class", "enclosure", scsiName}, scsi / "enclosure" / scsiName, true);
    }
    plan.prunes.push_back(
        {scsi / "enclosure", device.deviceType == 13 ? std::set<std::string>{scsiName} : std::set<std::string>{}});
    plan.link({"class", "scsi_device", scsiName}, scsi / "scsi_device" / scsiName, true);
}

// What the present part of the description lays out; refuses a description
// whose entries would collide.
Plan presentPlan(const Storage& storage)
{
    Plan plan;
    std::set<std::string> pcis, blocks, targets;
    for (const auto& hba : storage.hbas) {
        if (!hba.present) {
            continue;
        }
        if (!pcis.insert(hba.pci).second) {
            throw ModelError("PCI address " + hba.pci + " is used twice");
        }
        layAdapter(hba, plan);
        for (const auto& device : storage.devices) {
            if (device.hba != hba.id || !device.present) {
                continue;
            }
            if (!targets.insert(hba.id + ":" + std::to_string(device.target)).second) {
                throw ModelError("device '" + device.id + "': target " + std::to_string(device.target) +
                                 " is used twice on adapter '" + hba.id + "'");
            }
            if (!device.block.empty() && !blocks.insert(device.block).second) {
                throw ModelError("device '" + device.id + "': block device " + device.block + " is used twice");
            }
            layDevice(storage, hba, device, plan);
        }
    }
    return plan;
}

// The entries of what the description holds but marks gone: these go even
// when no record of an earlier run says they were laid out. An item whose
// address can't be laid out was never laid out either.
std::set<std::string> absentEntries(const Storage& storage)
{
    Plan plan;
    for (const auto& hba : storage.hbas) {
        for (const auto& device : storage.devices) {
            if (device.hba == hba.id && (!hba.present || !device.present)) {
                try {
                    layDevice(storage, hba, device, plan);
                } catch (const ModelError&) {
                }
            }
        }
        if (!hba.present) {
            try {
                layAdapter(hba, plan);
            } catch (const ModelError&) {
            }
        }
    }
    return plan.owned;
}

// The record of what the last run laid out, one "sys/..." path a line. Lines
// that could reach outside sys/ are ignored.
std::set<std::string> readRecord(const std::string& path)
{
    std::set<std::string> entries;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream parts(line);
        std::string part;
        bool safe = line.compare(0, 4, "sys/") == 0 && line.size() > 4;
        while (safe && std::getline(parts, part, '/')) {
            safe = !part.empty() && part != "." && part != "..";
        }
        if (safe) {
            entries.insert(line);
        }
    }
    return entries;
}

class Writer {
public:
    explicit Writer(const std::string& root) : root_(root) {}

    std::string absolute(const Path& path) const { return root_ + "/sys/" + joined(path); }

    void folder(const Path& path, const Attributes& attributes)
    {
        fs::create_directories(absolute(path));
        for (const auto& attribute : attributes) {
            write(absolute(path) + "/" + attribute.first, attribute.second);
        }
    }

    void link(const Path& at, const Path& target)
    {
        const std::string path = absolute(at), text = relativeTarget(at, target);
        std::error_code error;
        const bool existed = fs::is_symlink(fs::symlink_status(path, error));
        if (existed && fs::read_symlink(path, error).string() == text) {
            return;
        }
        fs::create_directories(fs::path(path).parent_path());
        const std::string temporary = temporaryName(path);
        fs::remove(temporary, error);
        noteChange(fs::path(path).parent_path().string(), existed);
        fs::create_symlink(text, temporary);
        fs::rename(temporary, path);
    }

    // Removes an entry and all below it; a link goes without its target.
    void remove(const std::string& entry)
    {
        const fs::path path = root_ + "/" + entry;
        std::error_code error;
        if (!fs::exists(fs::symlink_status(path, error))) {
            return;
        }
        noteChange(path.parent_path().string(), false);
        fs::remove_all(path);
        // The root bus folder goes with its last function.
        const fs::path parent = path.parent_path();
        if (parent.parent_path() == fs::path(root_ + "/sys/devices") && fs::is_empty(parent, error)) {
            fs::remove(parent, error);
        }
    }

    void prune(const Path& path, const std::set<std::string>& keep)
    {
        const std::string folder = absolute(path);
        std::error_code error;
        if (!fs::is_directory(fs::symlink_status(folder, error))) {
            return;
        }
        if (keep.empty()) {
            fs::remove_all(folder);
            return;
        }
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (keep.count(entry.path().filename().string()) == 0) {
                fs::remove_all(entry.path());
            }
        }
    }

    // A folder whose entries changed within the second of its last change
    // still shows a newer time in whole seconds.
    void advanceChangedFolders() const
    {
        for (const auto& folder : changed_) {
            struct stat now {};
            if (folder.second < 0 || stat(folder.first.c_str(), &now) != 0 || now.st_mtime > folder.second) {
                continue;
            }
            const struct timespec times[2] = {{0, UTIME_OMIT}, {folder.second + 1, 0}};
            if (utimensat(AT_FDCWD, folder.first.c_str(), times, 0) != 0) {
                throw std::runtime_error("can't set the time of " + folder.first + ": " + strerror(errno));
            }
        }
    }

    static void write(const std::string& path, const std::string& content)
    {
        {
            std::ifstream in(path, std::ios::binary);
            std::ostringstream old;
            if (in && (old << in.rdbuf()) && old.str() == content) {
                return;
            }
        }
        const std::string temporary = temporaryName(path);
        {
            std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
            out << content;
            out.flush();
            if (!out) {
                throw std::runtime_error("can't write " + temporary);
            }
        }
        fs::rename(temporary, path);
    }

private:
    static std::string temporaryName(const std::string& path)
    {
        const fs::path p(path);
        return (p.parent_path() / ("." + p.filename().string() + ".new")).string();
    }

    // Keeps a folder's time from before its first change in this run (-1:
    // the folder is new); only a changed set of entries counts.
    void noteChange(const std::string& folder, bool replaced)
    {
        if (replaced || changed_.count(folder) != 0) {
            return;
        }
        struct stat before {};
        changed_[folder] = stat(folder.c_str(), &before) == 0 ? before.st_mtime : -1;
    }

    std::string root_;
    std::map<std::string, time_t> changed_;
};

// One writer at a time per host: the record of what is laid out is theirs.
class HostLock {
public:
    explicit HostLock(const std::string& path) : fd_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644))
    {
        if (fd_ < 0 || flock(fd_, LOCK_EX) != 0) {
            const std::string reason = strerror(errno);
            if (fd_ >= 0) {
                close(fd_);
            }
            throw std::runtime_error("can't lock " + path + ": " + reason);
        }
    }
    ~HostLock() { close(fd_); }
    HostLock(const HostLock&) = delete;
    HostLock& operator=(const HostLock&) = delete;

private:
    int fd_;
};

} // namespace

void writeSysfs(const std::string& root, const Storage& storage)
{
    const Plan plan = presentPlan(storage);
    std::set<std::string> gone = absentEntries(storage);

    fs::create_directories(root + "/sim");
    HostLock lock(root + "/sim/sysfs-storage.lock");
    const std::string recordPath = root + "/sim/sysfs-storage.list";
    const std::set<std::string> earlier = readRecord(recordPath);
    gone.insert(earlier.begin(), earlier.end());

    // Links first, so a reader never follows one into a half-removed device.
    Writer writer(root);
    for (bool links : {true, false}) {
        for (const auto& entry : gone) {
            std::error_code error;
            if (plan.owned.count(entry) == 0 &&
                fs::is_symlink(fs::symlink_status(root + "/" + entry, error)) == links) {
                writer.remove(entry);
            }
        }
    }
    for (const auto& folder : plan.folders) {
        writer.folder(folder.first, folder.second);
    }
    for (const auto& prune : plan.prunes) {
        writer.prune(prune.first, prune.second);
    }
    // Links last, so a reader finds a device complete behind its link.
    for (const auto& link : plan.links) {
        writer.link(link.first, link.second);
    }

    std::string record;
    for (const auto& entry : plan.owned) {
        record += entry + "\n";
    }
    Writer::write(recordPath, record);
    writer.advanceChangedFolders();
}

} // namespace simstorage
