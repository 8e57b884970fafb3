// Unpacking behind the calls of the standard library, by fopencookie. A packed file is taken in
// pieces, so that memory is bounded whatever it unpacks to.
#include "data/streams.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

#ifdef VESK_ZLIB
#include <zlib.h>
#endif
#ifdef VESK_ZSTD
#include <zstd.h>
#endif

#include "base/files.h"
#include "data/packed_form.h"

#if defined(VESK_ZLIB) && defined(VESK_ZSTD)
const char* const packed_forms = ".gz .zst";
#elif defined(VESK_ZLIB)
const char* const packed_forms = ".gz";
#elif defined(VESK_ZSTD)
const char* const packed_forms = ".zst";
#else
const char* const packed_forms = "none";
#endif

static constexpr char damaged[] = "is damaged: what is packed in it cannot be unpacked";
static constexpr char cut_short[] = "ends too early, as an unfinished download does";

struct Unpacker {
    FILE* file = nullptr; // the packed one
    PackedForm form = PackedForm::Plain;
    bool begun = false;   // the form is known
    bool complete = true; // what is packed has come to an end, as far as it was read
    i64 taken = 0;        // bytes of the packed file
    size_t start = 0;     // of what is still to be unpacked
    size_t end = 0;
    const char* problem = nullptr; // why it could not be read on, where no errno says it
    int error = 0;                 // errno of the packed file
    char piece[packed_piece_size];
#ifdef VESK_ZLIB
    z_stream gzip {};
#endif
#ifdef VESK_ZSTD
    ZSTD_DCtx* zstd = nullptr;
#endif

    ~Unpacker()
    {
#ifdef VESK_ZLIB
        if (form == PackedForm::Gzip && begun) {
            inflateEnd(&gzip);
        }
#endif
#ifdef VESK_ZSTD
        ZSTD_freeDCtx(zstd);
#endif
        if (file != nullptr && file != stdin) {
            fclose(file);
        }
    }
};

// Reads the next piece when all of the last one is used. Returns whether there is any.
static bool fill_piece(Unpacker* unpacker)
{
    if (unpacker->start < unpacker->end) {
        return true;
    }
    unpacker->start = 0;
    unpacker->end = 0;
    // Not by fread, which waits for a whole piece: what comes through a pipe is worked on at once.
    ssize_t count;
    do {
        count = read(fileno(unpacker->file), unpacker->piece, packed_piece_size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        unpacker->error = errno;
        return false;
    }
    unpacker->end = static_cast<size_t>(count);
    unpacker->taken += static_cast<i64>(count);
    return count > 0;
}

// A pipe may hand out the first bytes one at a time.
static size_t fill_magic(Unpacker* unpacker, size_t size)
{
    while (unpacker->end < size) {
        const ssize_t count =
            read(fileno(unpacker->file), unpacker->piece + unpacker->end, size - unpacker->end);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            unpacker->error = count < 0 ? errno : 0;
            break;
        }
        unpacker->end += static_cast<size_t>(count);
        unpacker->taken += static_cast<i64>(count);
    }
    return unpacker->end;
}

// Tells the form by the first bytes: names lie. Returns false if this build cannot read it.
static bool find_form(Unpacker* unpacker)
{
    const size_t size = fill_magic(unpacker, 4);
    unpacker->begun = true;
    if (size >= 2 && memcmp(unpacker->piece, "\x1f\x8b", 2) == 0) {
#ifdef VESK_ZLIB
        constexpr int gzip_window = 15 + 16; // the largest, with the header of a gzip file
        if (inflateInit2(&unpacker->gzip, gzip_window) == Z_OK) {
            unpacker->form = PackedForm::Gzip;
            return true;
        }
        unpacker->error = ENOMEM;
#else
        unpacker->problem = no_gzip;
#endif
        return false;
    }
    if (size >= 4 && memcmp(unpacker->piece, "\x28\xb5\x2f\xfd", 4) == 0) {
#ifdef VESK_ZSTD
        unpacker->zstd = ZSTD_createDCtx();
        unpacker->form = PackedForm::Zstd;
        unpacker->error = unpacker->zstd == nullptr ? ENOMEM : 0;
        return unpacker->zstd != nullptr;
#else
        unpacker->problem = no_zstd;
        return false;
#endif
    }
    return unpacker->error == 0;
}

static ssize_t refuse_reading(Unpacker* unpacker, const char* problem)
{
    unpacker->problem = problem;
    errno = EIO;
    return -1;
}

static ssize_t read_plain(Unpacker* unpacker, char* buffer, size_t size)
{
    if (!fill_piece(unpacker)) {
        return 0;
    }
    const size_t count = std::min(size, unpacker->end - unpacker->start);
    memcpy(buffer, unpacker->piece + unpacker->start, count);
    unpacker->start += count;
    return static_cast<ssize_t>(count);
}

#ifdef VESK_ZLIB
// Several gzip files may stand one behind the other, and zeros behind the last, as tapes have them.
static ssize_t read_gzip(Unpacker* unpacker, char* buffer, size_t size)
{
    z_stream* gzip = &unpacker->gzip;
    gzip->next_out = reinterpret_cast<Bytef*>(buffer);
    gzip->avail_out = static_cast<uInt>(size);
    while (gzip->avail_out == size && fill_piece(unpacker)) {
        if (unpacker->complete) {
            if (unpacker->taken > static_cast<i64>(unpacker->end) || unpacker->start > 0) {
                if (unpacker->piece[unpacker->start] == '\0') {
                    ++unpacker->start;
                    continue;
                }
                inflateReset(gzip);
            }
            unpacker->complete = false;
        }
        gzip->next_in = reinterpret_cast<Bytef*>(unpacker->piece + unpacker->start);
        gzip->avail_in = static_cast<uInt>(unpacker->end - unpacker->start);
        const int status = inflate(gzip, Z_NO_FLUSH);
        unpacker->start = unpacker->end - gzip->avail_in;
        if (status == Z_STREAM_END) {
            unpacker->complete = true;
        } else if (status != Z_OK && status != Z_BUF_ERROR) {
            return refuse_reading(unpacker, damaged);
        }
    }
    return static_cast<ssize_t>(size - gzip->avail_out);
}
#endif

#ifdef VESK_ZSTD
static ssize_t read_zstd(Unpacker* unpacker, char* buffer, size_t size)
{
    ZSTD_outBuffer out = {};
    out.dst = buffer;
    out.size = size;
    while (out.pos == 0) {
        // What the library still holds comes out at the end of the file too.
        const bool has_input = fill_piece(unpacker);
        if (!has_input && unpacker->complete) {
            break;
        }
        ZSTD_inBuffer in = { unpacker->piece + unpacker->start,
            has_input ? unpacker->end - unpacker->start : 0, 0 };
        const size_t status = ZSTD_decompressStream(unpacker->zstd, &out, &in);
        if (ZSTD_isError(status) != 0) {
            return refuse_reading(unpacker, damaged);
        }
        unpacker->start += in.pos;
        unpacker->complete = status == 0;
        if (!has_input && out.pos == 0) {
            break;
        }
    }
    return static_cast<ssize_t>(out.pos);
}
#endif

// For fopencookie: the number of bytes, 0 at the end, -1 with errno for an error.
static ssize_t read_cookie(void* cookie, char* buffer, size_t size)
{
    Unpacker* unpacker = static_cast<Unpacker*>(cookie);
    if (!unpacker->begun && !find_form(unpacker)) {
        errno = unpacker->error != 0 ? unpacker->error : EIO;
        return -1;
    }
    ssize_t count = 0;
    switch (unpacker->form) {
    case PackedForm::Plain:
        count = read_plain(unpacker, buffer, size);
        break;
#ifdef VESK_ZLIB
    case PackedForm::Gzip:
        count = read_gzip(unpacker, buffer, size);
        break;
#endif
#ifdef VESK_ZSTD
    case PackedForm::Zstd:
        count = read_zstd(unpacker, buffer, size);
        break;
#endif
    default:
        break;
    }
    if (count == 0 && unpacker->error != 0) {
        errno = unpacker->error;
        return -1;
    }
    if (count == 0 && !unpacker->complete) {
        return refuse_reading(unpacker, cut_short);
    }
    return count;
}

InputStream::InputStream() = default;
InputStream::InputStream(InputStream&& other) noexcept
    : name(std::move(other.name))
    , file(std::exchange(other.file, nullptr))
    , size(other.size)
    , unpacker(std::move(other.unpacker))
{
}

InputStream& InputStream::operator=(InputStream&& other) noexcept
{
    std::swap(name, other.name);
    std::swap(file, other.file);
    std::swap(size, other.size);
    std::swap(unpacker, other.unpacker);
    return *this;
}

InputStream::~InputStream()
{
    if (file != nullptr) {
        fclose(file);
    }
}

// A folder can be opened, and only its reading would fail.
static FILE* open_to_read(const std::string& name, i64* size, int* error)
{
    const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status;
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        *error = errno;
    } else if (S_ISDIR(status.st_mode)) {
        *error = EISDIR;
    } else {
        *size = S_ISREG(status.st_mode) ? static_cast<i64>(status.st_size) : 0;
        FILE* file = fdopen(descriptor, "r");
        if (file != nullptr) {
            return file;
        }
        *error = errno;
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
    return nullptr;
}

bool open_stream(InputStream* stream, const std::string& name, Report* report)
{
    *stream = InputStream();
    stream->name = name == "-" ? "standard input" : name;
    stream->unpacker = std::make_unique<Unpacker>();
    int error = 0;
    stream->unpacker->file = name == "-" ? stdin : open_to_read(name, &stream->size, &error);
    if (stream->unpacker->file != nullptr) {
        const cookie_io_functions_t calls = {
            .read = read_cookie, .write = nullptr, .seek = nullptr, .close = nullptr
        };
        stream->file = fopencookie(stream->unpacker.get(), "r", calls);
        error = stream->file == nullptr ? errno : 0;
    }
    if (stream->file == nullptr) {
        fail_file(report, stream->name, "cannot be opened", error);
        return false;
    }
    return true;
}

i64 stream_position(const InputStream& stream)
{
    const Unpacker& unpacker = *stream.unpacker;
    return unpacker.taken - static_cast<i64>(unpacker.end - unpacker.start);
}

bool close_stream(InputStream* stream, Report* report)
{
    const Unpacker& unpacker = *stream->unpacker;
    const bool good = ferror(stream->file) == 0;
    if (!good) {
        if (unpacker.problem != nullptr) {
            fail_file(report, stream->name, unpacker.problem, 0);
        } else {
            fail_file(report, stream->name, "cannot be read to its end",
                unpacker.error != 0 ? unpacker.error : EIO);
        }
    }
    *stream = InputStream();
    return good;
}
