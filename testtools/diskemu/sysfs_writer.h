#pragma once

// Lays out what the Linux kernel shows in sysfs for a simulated host's
// storage: the PCI function of each adapter with its SCSI host, and behind it
// the SAS end devices, SCSI devices, generic devices, block devices and
// enclosures, with the class and bus links the kernel makes (relative, as
// the kernel makes them). The tree is documented in README.md beside this
// file.

#include "storage_model.h"

#include <string>

namespace simstorage {

// Brings ROOT/sys in line with the description: every present adapter and
// every present device of a present adapter is laid out, entries of adapters
// and devices that are gone (no longer present, or no longer described) are
// removed, and nothing else under ROOT/sys is touched. Running it again
// changes nothing; a reader running at the same time sees every attribute
// whole (written to a temporary name and renamed) and a device's class link
// only once the device is complete. When the set of SCSI hosts or devices
// changes, the modification time of sys/class/scsi_host or
// sys/class/scsi_device moves on by at least a second, so a watcher that
// compares whole seconds sees the change. Throws ModelError for a
// description that can't be laid out (a malformed PCI address or block
// name) and std::runtime_error when the file system refuses.
void writeSysfs(const std::string& root, const Storage& storage);

} // namespace simstorage
