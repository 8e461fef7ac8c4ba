#pragma once

// Descriptions of large storage for benchmarks and load tests.

#include "storage_model.h"

namespace simstorage {

// HBAS plain SAS adapters with DISKS_PER_HBA disks each, the disks taking
// turns as SAS HDD, SAS SSD, SATA HDD and SATA SSD; every adapter has its own
// host number and PCI address, every disk its own serial number, WWN, target,
// bay, generic device and block device. Throws ModelError for counts outside
// 0..200 adapters or 0..1000 disks per adapter.
Storage generate(int hbas, int disksPerHba);

} // namespace simstorage
