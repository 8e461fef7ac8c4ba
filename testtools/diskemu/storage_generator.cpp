#include "storage_generator.h"

#include <cstdio>
#include <string>

namespace simstorage {

namespace {

// The kernel's names of SCSI disks: sda..sdz, sdaa..sdzz, sdaaa...
std::string blockName(int index)
{
    std::string letters;
    for (int i = index; i >= 0; i = i / 26 - 1) {
        letters.insert(letters.begin(), static_cast<char>('a' + i % 26));
    }
    return "sd" + letters;
}

struct Kind {
    const char* transport;
    const char* vendor;
    const char* model;
    const char* revision;
    const char* serialPrefix;
    const char* wwnPrefix; // NAA 5 and the maker's OUI: the first 8 of 16 digits
    uint64_t blocks;
    int rotationRate;
};

// Real models of the four kinds, one after the other on every adapter.
const Kind kKinds[] = {
    {"SAS", "SEAGATE", "ST2400MM0129", "C003", "WBN", "5000c500", 4688430768ULL, 10000},
    {"SAS", "KIOXIA", "KPM6XRUG1T92", "0103", "X1G", "58ce38ee", 3750748848ULL, 1},
    {"SATA", "ATA", "WDC WUH721414ALE6L4", "LDGNW07G", "9MG", "5000cca2", 27344764928ULL, 7200},
    {"SATA", "ATA", "SAMSUNG MZ7L3960HCJR-00A07", "JXTC404Q", "S6H", "5002538f", 1875385008ULL, 1},
};

} // namespace

Storage generate(int hbas, int disksPerHba)
{
    if (hbas < 0 || hbas > 200 || disksPerHba < 0 || disksPerHba > 1000) {
        throw ModelError("between 0 and 200 adapters with 0 to 1000 disks each, please");
    }
    Storage storage;
    char text[64];
    for (int h = 0; h < hbas; ++h) {
        Hba hba;
        hba.id = "hba" + std::to_string(h);
        snprintf(text, sizeof(text), "0000:%02x:00.0", 0x20 + h);
        hba.pci = text;
        hba.host = h + 2; // hosts 0 and 1 are the chipset's SATA ports
        hba.firmware = "24.00.00.00";
        snprintf(text, sizeof(text), "SP%08d", 31400000 + h);
        hba.serial = text;
        hba.deviceId = 0x00e6; // SAS3816, HBA 9500-16i
        hba.subVendorId = 0x1000;
        hba.subDeviceId = 0x4050;
        storage.hbas.push_back(hba);

        for (int d = 0; d < disksPerHba; ++d) {
            const int n = h * disksPerHba + d;
            const Kind& kind = kKinds[d % 4];
            Device disk;
            disk.id = hba.id + "d" + std::to_string(d);
            disk.hba = hba.id;
            disk.target = d;
            disk.sg = n + 1;
            disk.block = blockName(n + 1); // sda is the boot disk
            disk.transport = kind.transport;
            disk.vendor = kind.vendor;
            disk.model = kind.model;
            disk.revision = kind.revision;
            snprintf(text, sizeof(text), "%s%07d", kind.serialPrefix, n);
            disk.serial = text;
            // Low digit 0: a SAS disk's ports take the next names.
            snprintf(text, sizeof(text), "%s%07x0", kind.wwnPrefix, n);
            disk.wwn = text;
            disk.blocks = kind.blocks;
            disk.rotationRate = kind.rotationRate;
            disk.temperature = 28 + n % 12;
            disk.wear = kind.rotationRate == 1 ? n % 25 : 0;
            disk.powerOnHours = 8000 + static_cast<uint32_t>(n) * 13;
            disk.bay = d + 1;
            storage.devices.push_back(disk);
        }
    }
    return storage;
}

} // namespace simstorage
