#pragma once

// The common Fibre Channel HBA library: the SNIA HBA API's functions,
// exported under their own names, over the vendor libraries that
// "/opt/zolvek/data/hba.conf" lists. Each vendor library gives its entry
// points through its HBA_RegisterLibrary; an adapter handle carries the index
// of its library in the upper 16 bits.

#include <ctime> // hbaapi.h uses struct tm without including it

#include <hbaapi.h>
#include <vendorhbaapi.h>

namespace vekHBACommonLibrary {

// Bounds of the two tables; lines and adapters beyond them are left out.
const int kMaxLibraries = 32;
const int kMaxAdapters = 64;
const int kLibraryNameSize = 64;
const int kLibraryPathSize = 256;
const int kAdapterNameSize = 256;

// The host path of the list of vendor libraries, below the path root.
const char kConfigurationFile[] = "/opt/zolvek/data/hba.conf";

} // namespace vekHBACommonLibrary

extern "C" {

// The path of the library of an open adapter (kLibraryPathSize bytes) and the
// vendor's handle of the adapter opened last on that library.
HBA_STATUS HBA_GetLibraryPath(HBA_HANDLE handle, char* path, HBA_HANDLE* vendorHandle);

// Splits a handle into its library's index and the vendor handle stored for
// that library: 3 for an index beyond the table, 1 for a library that is not
// loaded.
HBA_STATUS HBA_CheckLibrary(HBA_HANDLE handle, HBA_UINT32* libraryIndex, HBA_HANDLE* vendorHandle);

} // extern "C"
