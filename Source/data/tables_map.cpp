// Mapping files, and surviving what happens to them.
#include "data/tables_map.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// A failed read is a signal to the thread that reads, so each thread counts its own.
static thread_local volatile i64 failed_reads = 0;

static uintptr_t page_size()
{
    return static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
}

// Puts a page of zeros where the file has none, and lets the read go on. mmap is no function that a
// handler may call by the letter of POSIX, but a plain system call here. Where it fails, the signal
// comes again and ends the program.
static void fill_gap(int number, siginfo_t* info, void* /*context*/)
{
    const int error = errno;
    const uintptr_t size = page_size();
    void* page = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(info->si_addr) & ~(size - 1));
    static constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED;
    if (info->si_code != BUS_ADRERR || mmap(page, size, PROT_READ, flags, -1, 0) == MAP_FAILED) {
        signal(number, SIG_DFL);
        return;
    }
    failed_reads = failed_reads + 1;
    errno = error;
}

void survive_failed_reads()
{
    struct sigaction action = {};
    action.sa_sigaction = fill_gap;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, nullptr);
}

i64 count_failed_reads()
{
    return failed_reads;
}

static void note_status(const struct stat& status, MappedFile* file)
{
    file->size = static_cast<u64>(status.st_size);
    file->seconds = status.st_mtim.tv_sec;
    file->nanoseconds = status.st_mtim.tv_nsec;
}

int map_table_file(const char* path, MappedFile* file)
{
    // O_NONBLOCK: opening a pipe would wait for its writer.
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    struct stat status;
    int error = fstat(descriptor, &status) != 0 ? errno : 0;
    if (error == 0 && !S_ISREG(status.st_mode)) {
        error = ENOTSUP;
    }
    if (error == 0) {
        note_status(status, file);
        if (file->size > 0) {
            void* data = mmap(nullptr, file->size, PROT_READ, MAP_SHARED, descriptor, 0);
            error = data == MAP_FAILED ? errno : 0;
            file->data = error == 0 ? static_cast<const u8*>(data) : nullptr;
        }
    }
    close(descriptor);
    return error;
}

void unmap_table_file(MappedFile* file)
{
    if (file->data != nullptr) {
        munmap(const_cast<u8*>(file->data), file->size);
    }
    file->data = nullptr;
}

bool is_unchanged(const char* path, const MappedFile& file)
{
    struct stat status;
    if (stat(path, &status) != 0) {
        return false;
    }
    MappedFile now;
    note_status(status, &now);
    return now.size == file.size && now.seconds == file.seconds
        && now.nanoseconds == file.nanoseconds;
}

// Only whole pages can be advised about; what is cut off at the ends does not matter.
static void advise(const MappedFile& file, u64 begin, u64 end, int advice)
{
    begin &= ~(static_cast<u64>(page_size()) - 1);
    end = std::min(end, file.size);
    if (file.data != nullptr && begin < end) {
        madvise(const_cast<u8*>(file.data) + begin, end - begin, advice);
    }
}

void announce_reading(const MappedFile& file, u64 begin, u64 end)
{
    advise(file, begin, end, MADV_WILLNEED);
}

void finish_reading(const MappedFile& file, u64 begin, u64 end)
{
    advise(file, begin, end, MADV_DONTNEED);
}
