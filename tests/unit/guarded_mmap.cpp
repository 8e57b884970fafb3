// The linker sends the engine's calls of mmap and munmap here (--wrap).
#include "guarded_mmap.h"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <unistd.h>

#include "sanitizers.h"

extern "C" {
void* __real_mmap(void* at, size_t size, int protection, int flags, int file, off_t start);
int __real_munmap(void* at, size_t size);
void* __wrap_mmap(void* at, size_t size, int protection, int flags, int file, off_t start);
int __wrap_munmap(void* at, size_t size);
}

// What has to be given back for a mapping.
struct GuardedBlock {
    void* start;
    size_t size; // 0 for a block of malloc
    size_t asked;
};

static std::mutex mutex;
static std::map<void*, GuardedBlock> blocks;
static size_t made = 0;
static bool guarding = false;

// Reads the whole file to where it is wanted; a file that is shorter leaves zeros behind.
static bool read_whole(int file, char* to, size_t size)
{
    for (size_t done = 0; done < size;) {
        const ssize_t count = pread(file, to + done, size - done, static_cast<off_t>(done));
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return true;
}

#if defined(ADDRESS_SANITIZED)
static void* guarded_copy(int file, size_t size, GuardedBlock* block)
{
    char* data = static_cast<char*>(calloc(size, 1));
    *block = { data, 0, size };
    return data != nullptr && read_whole(file, data, size) ? data : nullptr;
}
#else
static void* guarded_copy(int file, size_t size, GuardedBlock* block)
{
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t room = (size + page - 1) / page * page;
    void* start = __real_mmap(
        nullptr, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED) {
        return nullptr;
    }
    *block = { start, room + page, size };
    char* data = static_cast<char*>(start) + (room - (size + 63) / 64 * 64);
    const bool good = read_whole(file, data, size) && mprotect(start, room, PROT_READ) == 0
        && mprotect(static_cast<char*>(start) + room, page, PROT_NONE) == 0;
    return good ? data : nullptr;
}
#endif

void* __wrap_mmap(void* at, size_t size, int protection, int flags, int file, off_t start)
{
    const std::lock_guard lock(mutex);
    if (!guarding || file < 0 || at != nullptr || start != 0 || size == 0) {
        return __real_mmap(at, size, protection, flags, file, start);
    }
    GuardedBlock block;
    void* data = guarded_copy(file, size, &block);
    if (data == nullptr) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    blocks[data] = block;
    ++made;
    return data;
}

int __wrap_munmap(void* at, size_t size)
{
    const std::lock_guard lock(mutex);
    const auto found = blocks.find(at);
    if (found == blocks.end()) {
        return __real_munmap(at, size);
    }
    const GuardedBlock block = found->second;
    // What is not given back in the size that it was taken in counts as a failure.
    if (size != block.asked) {
        errno = EINVAL;
        return -1;
    }
    blocks.erase(found);
    if (block.size != 0) {
        return __real_munmap(block.start, block.size);
    }
    free(block.start);
    return 0;
}

void guard_mappings(bool on)
{
    const std::lock_guard lock(mutex);
    guarding = on;
}

size_t guarded_mappings()
{
    const std::lock_guard lock(mutex);
    return blocks.size();
}

size_t guarded_mappings_made()
{
    const std::lock_guard lock(mutex);
    return made;
}
