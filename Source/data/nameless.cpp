// They stand in no folder from the beginning.
#include "data/nameless.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "base/files.h"

static std::string nameless_folder()
{
    const char* folder = getenv("TMPDIR");
    return folder != nullptr && folder[0] != '\0' ? folder : "/tmp";
}

// Where the file system has no files without a name, one is made that loses it at once.
int open_nameless(const std::string& folder)
{
    const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0) {
        return descriptor;
    }
    std::string name = folder + "/vesk-data-XXXXXX";
    const int named = mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0) {
        unlink(name.c_str());
    }
    return named;
}

OwnedFile open_nameless_file(Report* report)
{
    const int descriptor = open_nameless(nameless_folder());
    FILE* file = descriptor >= 0 ? fdopen(descriptor, "w+") : nullptr;
    if (file == nullptr) {
        fail_file(report, nameless_folder(), "cannot hold a file for the time of the run", errno);
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    return OwnedFile(file);
}

bool flush_nameless(FILE* file, Report* report)
{
    const int error = flush_written_file(file);
    if (error != 0) {
        fail_file(report, nameless_folder(), "cannot hold what the run needs", error);
    }
    return error == 0;
}

// What cannot be cut is written over.
void clear_nameless(FILE* file)
{
    rewind(file);
    if (ftruncate(fileno(file), 0) != 0) {
        clearerr(file);
    }
}

size_t read_at(FILE* file, i64 offset, void* bytes, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t count = pread(fileno(file), static_cast<u8*>(bytes) + done, size - done,
            static_cast<off_t>(offset + static_cast<i64>(done)));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return done;
}
