#pragma once

// The storage of a simulated host as one description, sim/disks.json under
// the host's folder: the SAS/SATA host adapters and the devices behind them.
// The disk emulator answers SCSI from it and the sysfs writer lays out sys/
// from it; both read it again when it changes, and every change is written
// whole (a new file renamed over the old one), so a reader never sees half.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace simstorage {

struct Hba {
    std::string id;              // name used by devices and by "set"
    std::string pci;             // "0000:5e:00.0"
    int host = 0;                // N of hostN
    std::string procName = "mpt3sas";
    std::string firmware;        // scsi_host version_fw
    std::string serial;          // scsi_host board_tracer
    std::string state = "running"; // scsi_host state
    uint16_t vendorId = 0x1000, deviceId = 0, subVendorId = 0, subDeviceId = 0;
    bool present = true;
    // 0: one SCSI host for the whole adapter (SAS). N: a chipset SATA (AHCI)
    // adapter with N ATA ports, port i being ata<ataBase+i> with its own SCSI
    // host host<host+i>; a device's target is then its port.
    int ataPorts = 0;
    int ataBase = 1;
};

struct Device {
    std::string id;              // name used by "set"
    std::string hba;             // Hba::id
    int target = 0;              // H:0:target:0; on an ATA adapter the port (H:0:0:0 of its host)
    int sg = 0;                  // /dev/sgN
    std::string block;           // "sdb"; empty for an enclosure
    int deviceType = 0;          // peripheral device type: 0 disk, 13 enclosure services
    std::string transport = "SAS"; // "SAS" or "SATA"
    std::string vendor;          // inquiry vendor; a SATA disk shows "ATA"
    std::string model;
    std::string revision;
    std::string serial;
    std::string wwn;             // 16 hexadecimal digits (NAA 5)
    uint64_t blocks = 0;         // logical blocks
    uint32_t blockSize = 512;
    int rotationRate = 7200;     // 1: solid state
    int temperature = 30;        // degrees C
    int maxTemperature = 60;     // maximum operating temperature, C
    int wear = 0;                // percentage used (solid state)
    uint32_t powerOnHours = 0;
    std::string health = "ok";   // "ok", "predictive", "failed"
    int smartErrors = 0;         // errors in the SMART error log
    std::string state = "running"; // "running", "offline", "notready", "unresponsive"
    int bay = -1;                // sas_device bay_identifier; -1: none
    int bays = 0;                // enclosure: number of element slots
    bool present = true;
};

struct Storage {
    std::vector<Hba> hbas;
    std::vector<Device> devices;

    const Hba* findHba(const std::string& id) const;
    Hba* findHba(const std::string& id);
    Device* findDevice(const std::string& id);
};

class ModelError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The description's path under a host folder.
std::string descriptionPath(const std::string& root);

// Reads and checks a description (ids unique, devices name an existing
// adapter, sg numbers unique); throws ModelError with the reason.
Storage load(const std::string& path);
Storage parse(const std::string& text);
std::string render(const Storage& storage);
// Writes the whole description to a sibling file and renames it into place.
void save(const std::string& path, const Storage& storage);

// Applies "key=value" to the adapter or device named 'id' (a device's fields
// by their JSON names: "health=failed", "temperature=70", "present=false");
// throws ModelError for an unknown id, key or a value of the wrong type.
void apply(Storage& storage, const std::string& id, const std::string& assignment);

} // namespace simstorage
