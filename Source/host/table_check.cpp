// Endgame tables as files: each is looked for by its name, as the engine looks for it. Of a file
// the kind and the length are checked, not what is in it: a whole set has gigabytes.
#include "host/table_check.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.h"
#include "fathom/tbbits.h"
#include "fathom/tbnames.h"

static constexpr size_t path_size = 4096;
static constexpr std::string_view endings[tb_kinds] = { tb_suffixes[TbWdlFile],
    tb_suffixes[TbDtzFile] };

// ---- Folders

FolderKind look_at_folder(const char* folder)
{
    struct stat status;
    if (stat(folder, &status) != 0) {
        return errno == EACCES ? FolderKind::Closed : FolderKind::Missing;
    }
    if (!S_ISDIR(status.st_mode)) {
        return FolderKind::NoFolder;
    }
    return access(folder, R_OK | X_OK) == 0 ? FolderKind::Readable : FolderKind::Closed;
}

bool next_folder(const char** path, char* folder, size_t size)
{
    while (**path == ':') {
        ++*path;
    }
    const size_t length = strcspn(*path, ":");
    if (length == 0) {
        return false;
    }
    snprintf(folder, size, "%.*s", static_cast<int>(std::min(length, size - 1)), *path);
    *path += length;
    return true;
}

// Upper and lower case are one here: a file that the engine does not find for its letters is to be
// told of.
static bool has_table_ending(const char* name)
{
    const size_t length = strlen(name);
    for (const std::string_view ending : endings) {
        if (length > ending.size()
            && strcasecmp(name + length - ending.size(), ending.data()) == 0) {
            return true;
        }
    }
    return false;
}

static bool holds_tables(const char* folder)
{
    DIR* listing = opendir(folder);
    if (listing == nullptr) {
        return false;
    }
    bool found = false;
    while (!found) {
        const dirent* entry = readdir(listing);
        if (entry == nullptr) {
            break;
        }
        found = has_table_ending(entry->d_name);
    }
    closedir(listing);
    return found;
}

bool find_folder_with_tables(const char* folder, char* found, size_t size)
{
    DIR* listing = opendir(folder);
    if (listing == nullptr) {
        return false;
    }
    bool any = false;
    while (!any) {
        const dirent* entry = readdir(listing);
        if (entry == nullptr) {
            break;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && !has_table_ending(entry->d_name)) {
            const int length = snprintf(found, size, "%s/%s", folder, entry->d_name);
            any = length > 0 && static_cast<size_t>(length) < size && holds_tables(found);
        }
    }
    closedir(listing);
    return any;
}

// ---- Files

static void append_name(TableList* list, const char* name, const char* reason)
{
    if (list->count < shown_tables) {
        copy_text(list->names[list->count], table_name_size, name);
        copy_text(list->reasons[list->count], sizeof list->reasons[0], reason);
    }
    ++list->count;
}

// What keeps a file from being used, as the user is told; null for a good one, whose size is
// stored. errno is ENOENT where there is no such file.
static const char* find_fault(const char* path, TbKind kind, u64* bytes)
{
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        const int error = errno;
        const char* reason = strerror(error);
        errno = error;
        return reason;
    }
    struct stat status;
    u8 start[4] = {};
    const bool known = fstat(descriptor, &status) == 0;
    const bool regular = known && S_ISREG(status.st_mode);
    const bool read_it = regular && read(descriptor, start, sizeof start) == sizeof start;
    close(descriptor);
    errno = 0;
    if (!regular) {
        return "no regular file";
    }
    *bytes = static_cast<u64>(status.st_size);
    if (*bytes == 0) {
        return "empty";
    }
    if (!read_it || tb_u32(start) != tb_magic_numbers[kind]) {
        return "no table inside";
    }
    return *bytes % tb_block_alignment == tb_checksum_size ? nullptr
                                                           : "cut short, or not copied to its end";
}

struct FolderSearch {
    const char* path;
    TableCheck* check;
    i32 pieces;
};

static void look_for_file(const FolderSearch* search, const char* material, TbKind kind)
{
    TableCount* count = &search->check->counts[search->pieces][kind];
    char file_name[table_name_size];
    snprintf(file_name, sizeof file_name, "%s%s", material, endings[kind].data());
    ++count->wanted;
    const char* rest = search->path;
    char folder[path_size];
    while (next_folder(&rest, folder, sizeof folder)) {
        char path[path_size + table_name_size + 1];
        snprintf(path, sizeof path, "%s/%s", folder, file_name);
        u64 bytes = 0;
        const char* fault = find_fault(path, kind, &bytes);
        if (fault == nullptr) {
            ++count->found;
            count->bytes += bytes;
            return;
        }
        if (errno != ENOENT && errno != ENOTDIR) {
            append_name(&search->check->broken, file_name, fault);
        }
    }
    append_name(&count->missing, file_name, "");
}

static void look_for_material(const char* name, void* context)
{
    const FolderSearch* search = static_cast<const FolderSearch*>(context);
    look_for_file(search, name, TbWdlFile);
    look_for_file(search, name, TbDtzFile);
}

// A name that the engine looks for; sets of seven pieces are the usual ones that it does not.
struct NameSearch {
    const char* name;
    bool found;
};

static void compare_name(const char* material, void* context)
{
    NameSearch* search = static_cast<NameSearch*>(context);
    const size_t length = strlen(material);
    search->found |= strncmp(search->name, material, length) == 0
        && (endings[TbWdlFile] == search->name + length
            || endings[TbDtzFile] == search->name + length);
}

static bool is_looked_for(const char* name)
{
    NameSearch search = { name, false };
    for (i32 pieces = fewest_table_pieces; pieces <= most_table_pieces; ++pieces) {
        tb_visit_names(pieces, compare_name, &search);
    }
    return search.found;
}

static void count_others(const char* folder, TableCheck* check)
{
    DIR* listing = opendir(folder);
    if (listing == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(listing)) {
        if (has_table_ending(entry->d_name) && !is_looked_for(entry->d_name)) {
            if (check->others++ == 0) {
                copy_text(check->other, sizeof check->other, entry->d_name);
            }
        }
    }
    closedir(listing);
}

void check_tables(const char* path, TableCheck* check)
{
    *check = TableCheck {};
    for (i32 pieces = fewest_table_pieces; pieces <= most_table_pieces; ++pieces) {
        FolderSearch search = { path, check, pieces };
        tb_visit_names(pieces, look_for_material, &search);
    }
    char folder[path_size];
    while (next_folder(&path, folder, sizeof folder)) {
        count_others(folder, check);
    }
}
