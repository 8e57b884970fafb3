// Books are sorted by key, and the engine looks for a key by halving: what stands out of order is
// not found.
#include "host/book_check.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

#include "base/files.h"

static constexpr size_t record_size = 16;
static constexpr size_t key_size = 8;                // at the start of a record
static constexpr u64 start_key = 0x463b96181691fc9c; // of the position before the first move

static u64 key_of(const u8* record)
{
    u64 key = 0;
    for (size_t i = 0; i < key_size; ++i) {
        key = key << 8 | record[i];
    }
    return key;
}

BookCheck check_book(const char* path)
{
    BookCheck check = {};
    struct stat status;
    if (stat(path, &status) != 0) {
        check.error = errno;
        return check;
    }
    check.regular = S_ISREG(status.st_mode);
    if (!check.regular) {
        return check;
    }
    check.bytes = static_cast<u64>(status.st_size);
    FILE* file = open_regular_file(path);
    if (file == nullptr) {
        check.error = errno != 0 ? errno : EIO;
        return check;
    }
    u8 record[record_size];
    u64 last = 0;
    while (fread(record, 1, sizeof record, file) == sizeof record) {
        const u64 key = key_of(record);
        ++check.records;
        check.positions += check.records == 1 || key != last ? 1 : 0;
        if (key < last && check.first_unsorted == 0) {
            check.first_unsorted = check.records;
        }
        check.start_position |= key == start_key;
        last = key;
    }
    check.error = ferror(file) != 0 ? EIO : 0;
    fclose(file);
    return check;
}
