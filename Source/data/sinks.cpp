// Packing behind the calls of the standard library, by fopencookie.
#include "data/sinks.h"

#include <cerrno>
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
#include "data/places.h"

struct Packer {
    OutputFile out {};
    std::string unfinished;
    bool is_named = false; // out is open; otherwise it is standard output
    FILE* target = nullptr;
    PackedForm form = PackedForm::Plain;
    int error = 0;
    char piece[packed_piece_size];
#ifdef VESK_ZLIB
    z_stream gzip {};
#endif
#ifdef VESK_ZSTD
    ZSTD_CCtx* zstd = nullptr;
#endif

    ~Packer()
    {
#ifdef VESK_ZLIB
        if (form == PackedForm::Gzip) {
            deflateEnd(&gzip);
        }
#endif
#ifdef VESK_ZSTD
        ZSTD_freeCCtx(zstd);
#endif
        if (is_named && out.file != nullptr) {
            fclose(out.file);
            unlink(unfinished.c_str());
        }
        if (is_named) {
            forget_unfinished(unfinished);
        }
    }
};

[[maybe_unused]] static bool put_piece(Packer* packer, size_t size)
{
    errno = 0;
    if (fwrite(packer->piece, 1, size, packer->target) != size) {
        packer->error = errno != 0 ? errno : EIO;
        return false;
    }
    return true;
}

#ifdef VESK_ZLIB
static bool pack_gzip(Packer* packer, const char* buffer, size_t size, int flush)
{
    z_stream* gzip = &packer->gzip;
    gzip->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(buffer));
    gzip->avail_in = static_cast<uInt>(size);
    do {
        gzip->next_out = reinterpret_cast<Bytef*>(packer->piece);
        gzip->avail_out = packed_piece_size;
        deflate(gzip, flush);
        if (!put_piece(packer, packed_piece_size - gzip->avail_out)) {
            return false;
        }
    } while (gzip->avail_out == 0);
    return true;
}
#endif

#ifdef VESK_ZSTD
static bool pack_zstd(Packer* packer, const char* buffer, size_t size, ZSTD_EndDirective end)
{
    ZSTD_inBuffer in = { buffer, size, 0 };
    size_t left = 0;
    do {
        ZSTD_outBuffer out = { packer->piece, packed_piece_size, 0 };
        left = ZSTD_compressStream2(packer->zstd, &out, &in, end);
        if (ZSTD_isError(left) != 0 || !put_piece(packer, out.pos)) {
            packer->error = packer->error != 0 ? packer->error : ENOMEM;
            return false;
        }
    } while (end == ZSTD_e_end ? left > 0 : in.pos < in.size);
    return true;
}
#endif

// For fopencookie: the number of bytes taken, 0 for an error.
static ssize_t write_cookie(void* cookie, const char* buffer, size_t size)
{
    Packer* packer = static_cast<Packer*>(cookie);
    bool good = false;
#ifdef VESK_ZLIB
    if (packer->form == PackedForm::Gzip) {
        good = pack_gzip(packer, buffer, size, Z_NO_FLUSH);
    }
#endif
#ifdef VESK_ZSTD
    if (packer->form == PackedForm::Zstd) {
        good = pack_zstd(packer, buffer, size, ZSTD_e_continue);
    }
#endif
    (void)buffer;
    if (!good) {
        errno = packer->error != 0 ? packer->error : EIO;
        return 0;
    }
    return static_cast<ssize_t>(size);
}

// Starts packing if the name wants it. Returns false with a reason if this build cannot.
static bool start_packing(
    [[maybe_unused]] Packer* packer, const std::string& name, const char** problem)
{
    if (name.ends_with(".gz")) {
#ifdef VESK_ZLIB
        constexpr int gzip_window = 15 + 16;
        constexpr int usual_memory = 8;
        if (deflateInit2(&packer->gzip, Z_DEFAULT_COMPRESSION, Z_DEFLATED, gzip_window,
                usual_memory, Z_DEFAULT_STRATEGY)
            == Z_OK) {
            packer->form = PackedForm::Gzip;
            return true;
        }
        *problem = "cannot be packed: out of memory";
#else
        *problem = "cannot be packed: this build does not know gzip";
#endif
        return false;
    }
    if (name.ends_with(".zst")) {
#ifdef VESK_ZSTD
        packer->zstd = ZSTD_createCCtx();
        packer->form = PackedForm::Zstd;
        *problem = "cannot be packed: out of memory";
        return packer->zstd != nullptr
            && ZSTD_isError(ZSTD_CCtx_setParameter(packer->zstd, ZSTD_c_checksumFlag, 1)) == 0;
#else
        *problem = "cannot be packed: this build does not know zstd";
        return false;
#endif
    }
    return true;
}

OutputStream::OutputStream() = default;
OutputStream::OutputStream(OutputStream&& other) noexcept
    : name(std::move(other.name))
    , file(std::exchange(other.file, nullptr))
    , packer(std::move(other.packer))
{
}

OutputStream& OutputStream::operator=(OutputStream&& other) noexcept
{
    std::swap(name, other.name);
    std::swap(file, other.file);
    std::swap(packer, other.packer);
    return *this;
}

OutputStream::~OutputStream()
{
    // A FILE of its own stands before the target only where it is packed.
    if (file != nullptr && packer != nullptr && packer->form != PackedForm::Plain) {
        fclose(file);
    }
}

static bool open_target(
    OutputStream* stream, const std::vector<std::string>& inputs, Report* report)
{
    Packer* packer = stream->packer.get();
    packer->unfinished = unfinished_name(stream->name);
    for (const std::string& input : inputs) {
        if (is_same_place(input, stream->name) || is_same_place(input, packer->unfinished)) {
            fail_file(report, input, "would be replaced by the output", 0);
            return false;
        }
    }
    // A device takes what it is given, but is not replaced by a file.
    struct stat status;
    const bool is_folder = stat(stream->name.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (!is_folder && !is_plain_place(stream->name)) {
        packer->target = open_place(stream->name);
        if (packer->target == nullptr) {
            fail_file(report, stream->name, "cannot be opened for writing", errno);
        }
        return packer->target != nullptr;
    }
    const int error = is_folder
        ? EISDIR
        : open_unfinished(&packer->out, stream->name.c_str(), packer->unfinished.c_str());
    if (error != 0) {
        fail_file(report, stream->name, "cannot be opened for writing", error);
        return false;
    }
    packer->is_named = true;
    packer->target = packer->out.file;
    return true;
}

bool open_sink(OutputStream* stream, const std::string& name,
    const std::vector<std::string>& inputs, Report* report)
{
    *stream = OutputStream();
    stream->name = name;
    stream->packer = std::make_unique<Packer>();
    Packer* packer = stream->packer.get();
    if (name == "-") {
        stream->name = "standard output";
        packer->target = stdout;
    } else if (!open_target(stream, inputs, report)) {
        return false;
    }
    const char* problem = nullptr;
    if (!start_packing(packer, name, &problem)) {
        fail_file(report, stream->name, problem, 0);
        return false;
    }
    stream->file = packer->target;
    if (packer->form != PackedForm::Plain) {
        const cookie_io_functions_t calls = {
            .read = nullptr, .write = write_cookie, .seek = nullptr, .close = nullptr
        };
        stream->file = fopencookie(packer, "w", calls);
        if (stream->file == nullptr) {
            fail_file(report, stream->name, "cannot be opened for writing", errno);
            return false;
        }
    }
    return true;
}

// Writes what the packing still holds.
static void finish_packing(OutputStream* stream)
{
    Packer* packer = stream->packer.get();
    if (packer->form == PackedForm::Plain) {
        return;
    }
    if (fclose(std::exchange(stream->file, nullptr)) != 0 && packer->error == 0) {
        packer->error = errno;
    }
    if (packer->error != 0) {
        return;
    }
#ifdef VESK_ZLIB
    if (packer->form == PackedForm::Gzip) {
        pack_gzip(packer, nullptr, 0, Z_FINISH);
    }
#endif
#ifdef VESK_ZSTD
    if (packer->form == PackedForm::Zstd) {
        pack_zstd(packer, nullptr, 0, ZSTD_e_end);
    }
#endif
}

bool finish_sink(OutputStream* stream, Report* report)
{
    Packer* packer = stream->packer.get();
    finish_packing(stream);
    int error = packer->error;
    if (packer->is_named) {
        const int closing = close_output(&packer->out);
        if (error != 0 && closing == 0) {
            unlink(packer->unfinished.c_str());
        }
        error = error != 0 ? error : closing;
        error = error != 0 ? error : publish_output(&packer->out);
    } else {
        const int flushing = packer->target == stdout ? flush_written_file(stdout)
                                                      : close_written_file(packer->target);
        error = error != 0 ? error : flushing;
    }
    const std::string name = stream->name;
    stream->file = nullptr;
    *stream = OutputStream();
    if (error != 0) {
        fail_file(report, name, "cannot be written", error);
    }
    return error == 0;
}

bool finish_counted_sink(OutputStream* stream, i64 count, const char* item, Report* report)
{
    if (count > 0 || !stream->packer->is_named) {
        return finish_sink(stream, report);
    }
    fail_file(
        report, stream->name, std::string("is not written: there is no ") + item + " for it", 0);
    *stream = OutputStream();
    return false;
}

bool is_sink_well(const OutputStream& stream)
{
    return ferror(stream.file) == 0 && stream.packer->error == 0;
}
