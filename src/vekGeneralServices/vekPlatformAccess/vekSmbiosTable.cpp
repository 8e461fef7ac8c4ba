#include "vekSmbiosTable.h"

#include "vekConfig.h"
#include "vekGlobalDef.h"
#include "vekLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

namespace {

const char TAG[] = "SMBIOS";

const char kEsxiTablePath[] = "/vmfs/devices/char/mem/smbios";
const char kLinuxTablePath[] = "/sys/firmware/dmi/tables/DMI";

// SMBIOS 3 allows a table of up to 4 GiB; real ones are a few KiB. A file
// larger than this is not a structure table.
const size_t kMaxTableSize = 64 * 1024 * 1024;

using Table = std::vector<unsigned char>;

using vekGlobalDef::UniqueFd;

// Reads the whole table. 0, or the errno of what failed.
int readTable(Table& table)
{
    const std::string path = vekSmbios::tablePath();
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        const int error = errno;
        VEK_LOG_DEBUG(TAG, "Unable to open SMBIOS table [%s]: %d - %s", path.c_str(), error, strerror(error));
        return error;
    }
    table.clear();
    unsigned char chunk[8192];
    for (;;) {
        const ssize_t got = read(fd.get(), chunk, sizeof(chunk));
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            const int error = errno;
            VEK_LOG_ERROR(TAG, "Unable to read SMBIOS table [%s]: %d - %s", path.c_str(), error, strerror(error));
            return error;
        }
        if (got == 0) {
            break;
        }
        if (table.size() + static_cast<size_t>(got) > kMaxTableSize) {
            VEK_LOG_ERROR(TAG, "SMBIOS table [%s] is larger than %zu bytes", path.c_str(), kMaxTableSize);
            return EFBIG;
        }
        table.insert(table.end(), chunk, chunk + got);
    }
    return 0;
}

// Calls visit(begin, end) for each whole structure of the table, in order,
// the end-of-table structure included. A structure shorter than its header
// or running past the data ends the walk: what came before stays good.
template <typename Visit>
void walkTable(const Table& table, Visit visit)
{
    size_t offset = 0;
    while (offset + vekSmbios::kHeaderSize <= table.size()) {
        const unsigned type = table[offset + vekSmbios::kTypeOffset];
        const size_t length = table[offset + vekSmbios::kLengthOffset];
        if (length < vekSmbios::kHeaderSize) {
            VEK_LOG_WARNING(TAG, "SMBIOS table is broken at offset %zu: structure of type %u with length %zu", offset,
                            type, length);
            return;
        }
        // The string set begins after the formatted area and ends with two NULs.
        size_t end = offset + length;
        while (end + 1 < table.size() && (table[end] != 0 || table[end + 1] != 0)) {
            ++end;
        }
        end += 2;
        if (end > table.size()) {
            VEK_LOG_WARNING(TAG, "SMBIOS table is truncated at offset %zu: structure of type %u", offset, type);
            return;
        }
        visit(offset, end);
        if (static_cast<int>(type) == vekSmbios::kEndOfTableType) {
            return;
        }
        offset = end;
    }
}

// The table held between SmBiosInit and the last SmBiosDeinit.
struct LoadedTable {
    std::mutex mutex;
    int users = 0;
    std::shared_ptr<const Table> table;
};

LoadedTable& loadedTable()
{
    static LoadedTable loaded;
    return loaded;
}

std::shared_ptr<const Table> currentTable()
{
    LoadedTable& loaded = loadedTable();
    std::lock_guard<std::mutex> lock(loaded.mutex);
    return loaded.table;
}

} // namespace

int SmBiosInit()
{
    LoadedTable& loaded = loadedTable();
    std::lock_guard<std::mutex> lock(loaded.mutex);
    if (loaded.users == 0) {
        auto table = std::make_shared<Table>();
        const int error = readTable(*table);
        if (error != 0) {
            errno = error;
            return 1;
        }
        loaded.table = std::move(table);
    }
    ++loaded.users;
    return 0;
}

void SmBiosDeinit()
{
    LoadedTable& loaded = loadedTable();
    std::lock_guard<std::mutex> lock(loaded.mutex);
    if (loaded.users > 0 && --loaded.users == 0) {
        loaded.table.reset();
    }
}

int getSmbiosRecordsByType(int type, unsigned char** records, int* count)
{
    if (records == nullptr || count == nullptr) {
        return EINVAL;
    }
    *records = nullptr;
    *count = 0;
    if (type < 0 || type > 255) {
        return EINVAL;
    }

    std::shared_ptr<const Table> table = currentTable();
    if (!table) {
        auto ownTable = std::make_shared<Table>();
        const int error = readTable(*ownTable);
        if (error != 0) {
            return error;
        }
        table = std::move(ownTable);
    }

    std::vector<std::pair<size_t, size_t>> matches;
    size_t total = 0;
    walkTable(*table, [&](size_t begin, size_t end) {
        if ((*table)[begin + vekSmbios::kTypeOffset] == type) {
            matches.emplace_back(begin, end);
            total += end - begin;
        }
    });
    if (matches.empty()) {
        return 0;
    }

    auto* block = static_cast<unsigned char*>(malloc(total));
    if (block == nullptr) {
        return ENOMEM;
    }
    unsigned char* at = block;
    for (const auto& match : matches) {
        memcpy(at, table->data() + match.first, match.second - match.first);
        at += match.second - match.first;
    }
    *records = block;
    *count = static_cast<int>(matches.size());
    return 0;
}

namespace vekSmbios {

std::string tablePath()
{
    const std::string esxi = vekConfig::getEnv() + kEsxiTablePath;
    struct stat info;
    if (stat(esxi.c_str(), &info) == 0) {
        return esxi;
    }
    return vekConfig::getEnv() + kLinuxTablePath;
}

size_t structureSize(const unsigned char* structure)
{
    size_t end = structure[kLengthOffset];
    while (structure[end] != 0 || structure[end + 1] != 0) {
        ++end;
    }
    return end + 2;
}

const unsigned char* nextStructure(const unsigned char* structure)
{
    return structure + structureSize(structure);
}

std::string structureString(const unsigned char* structure, unsigned number)
{
    if (number == 0) {
        return "";
    }
    const char* text = reinterpret_cast<const char*>(structure + structure[kLengthOffset]);
    // An empty string set is the two NULs alone.
    if (*text == '\0') {
        return "";
    }
    for (unsigned n = 1; n < number; ++n) {
        text += strlen(text) + 1;
        if (*text == '\0') {
            return "";
        }
    }
    return text;
}

std::vector<std::string> structureStrings(const unsigned char* structure)
{
    std::vector<std::string> strings;
    const char* text = reinterpret_cast<const char*>(structure + structure[kLengthOffset]);
    while (*text != '\0') {
        strings.emplace_back(text);
        text += strlen(text) + 1;
    }
    return strings;
}

unsigned readWord(const unsigned char* at)
{
    return static_cast<unsigned>(at[0]) | (static_cast<unsigned>(at[1]) << 8);
}

} // namespace vekSmbios
