// Books are sorted by key, and the engine looks for a key by halving: what stands out of order is
// not found.
#include "host/book_check.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

#include "base/files.h"
#include "book/polyglot.h"
#include "book/scan.h"

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
    BookScan scan = {};
    BookEntry entry;
    while (read_book_entry(file, &entry) == 0) {
        scan_book_entry(&scan, entry);
    }
    check.records = scan.records;
    check.positions = scan.positions;
    check.first_unsorted = scan.first_unsorted;
    check.start_position = scan.start_position;
    check.error = ferror(file) != 0 ? EIO : 0;
    fclose(file);
    return check;
}
