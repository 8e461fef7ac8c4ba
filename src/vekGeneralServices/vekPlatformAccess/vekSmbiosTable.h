#pragma once

// The host's SMBIOS access, as the ESXi environment offers it: the structure
// table read raw, a sequence of structures, each a formatted area (type,
// length, handle, fields) followed by its string set, ended by two NULs; the
// table ends with the end-of-table structure (type 127) or the data.
//
// The table is read from /vmfs/devices/char/mem/smbios when that exists, else
// from /sys/firmware/dmi/tables/DMI (the layout Linux exposes), both under the
// path root.

#include <cstddef>
#include <string>
#include <vector>

// Loads the table for a span of work, so that the fetches in between read it
// once. 0 on success; 1 on failure, with errno telling why. Every successful
// call is matched by one SmBiosDeinit().
int SmBiosInit();
void SmBiosDeinit();

// The structures of one type, copied whole (formatted area, strings, double
// NUL) one after another into a block allocated with malloc: *records points
// at it (null when none matched) and the caller releases it with free();
// *count is the number of structures. Walk the block with
// vekSmbios::nextStructure(). Returns 0 on success (also when no structure
// matched), else an errno value: EINVAL for a null argument, the error of
// opening or reading the table (ENOENT when the host has none).
int getSmbiosRecordsByType(int type, unsigned char** records, int* count);

namespace vekSmbios {

const int kEndOfTableType = 127;

// Offsets of the structure header.
const size_t kTypeOffset = 0;
const size_t kLengthOffset = 1;
const size_t kHandleOffset = 2;
const size_t kHeaderSize = 4;

// The file the table is read from, under the path root.
std::string tablePath();

// The following operate on one whole structure, as getSmbiosRecordsByType
// hands them out (its string set is known to be terminated).

// Bytes of the structure including its string set and the closing NULs.
size_t structureSize(const unsigned char* structure);
// The structure that follows in a block of structures.
const unsigned char* nextStructure(const unsigned char* structure);
// String number `number` of the structure's string set (1 is the first);
// empty for 0 or a number past the last string.
std::string structureString(const unsigned char* structure, unsigned number);
// All strings of the structure's string set, in order.
std::vector<std::string> structureStrings(const unsigned char* structure);

// Little-endian fields of a formatted area.
unsigned readWord(const unsigned char* at);

} // namespace vekSmbios
