// Merging shards in one walk: each line is judged as the trainer will judge it, and written unless
// its position has been. Of all that is read only the positions' keys are kept.
#include "tools/trainer/merge_lines.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/output.h"
#include "tools/key_set.h"
#include "tools/line_judge.h"
#include "tools/trainer/trainer_options.h"
#include "tools/trainer/training_data.h"

static constexpr f64 seconds_per_progress = 0.5;
static constexpr char unfinished_end[] = ".part";

// ---- One shard

// A merge; the main thread's.
struct Merge {
    SearchThread* thread;
    OutputFile out;
    KeySet keys;
    i64 written;
    i64 known; // lines left out because their position has been written
    i64 refused;
    f64 progress_due;
    bool failed; // ended by a full disk or for want of memory, which has been told
};

static void reject(const char* name, const char* text)
{
    fprintf(stderr, "%s: %s\n", name, text);
    exit_status = 1;
}

// Compares the count of a trailer with the lines since the last one, or since the start: files that
// were merged before may have been put one behind the other. Returns whether the line is a trailer.
static bool check_trailer(ToolInput* input, const char* line, i64* lines)
{
    i64 told = 0;
    if (!read_trailer(line, &told)) {
        return false;
    }
    if (told != *lines) {
        refuse(input, input->lines.line_number,
            "tells of another number of lines than the %lld there are: some have been lost",
            static_cast<long long>(*lines));
    }
    *lines = 0;
    return true;
}

static void show_merging(Merge* merge, ToolInput* input)
{
    const f64 now = monotonic_seconds();
    if (now < merge->progress_due || isatty(STDERR_FILENO) == 0) {
        return;
    }
    merge->progress_due = now + seconds_per_progress;
    input->progress.visible = true;
    fprintf(stderr, "\r%s: line %d, %lld written\033[K", input->name, input->lines.line_number,
        static_cast<long long>(merge->written));
}

// A line that has been judged to be sound.
static void write_line(Merge* merge, const char* line)
{
    const KeyVerdict verdict = add_key(&merge->keys, merge->thread->pos.key);
    if (verdict == KeyWithoutMemory) {
        reject(tune_options.file, "no memory for the positions");
        merge->failed = true;
        return;
    }
    if (verdict == KeyKnown) {
        ++merge->known;
        return;
    }
    fprintf(merge->out.file, "%s\n", line);
    ++merge->written;
    // The reason is told when the file is closed.
    merge->failed = ferror(merge->out.file) != 0;
}

static void refuse_line(Merge* merge, ToolInput* input, const char* text)
{
    refuse(input, input->lines.line_number, "%s", text);
    ++merge->refused;
}

// Walks over a shard. Half a line at its end may still look like a whole one, of a wrong result or
// score, so it is never used.
static void merge_shard(Merge* merge, const char* name)
{
    ToolInput input;
    if (!open_input(&input, name)) {
        exit_status = 1;
        return;
    }
    char line[line_slot];
    LineVerdict verdict = LineUsed;
    LineJudgement said;
    i64 lines = 0;
    while (!merge->failed && read_training_line(&input.lines, line, &verdict)) {
        show_merging(merge, &input);
        if (input.lines.in_line) {
            refuse_line(merge, &input, "ends without a line feed: the file is cut short");
            break;
        }
        if (verdict == LineUsed && check_trailer(&input, line, &lines)) {
            continue;
        }
        verdict = verdict == LineUsed ? judge_line(&merge->thread->pos, line, &said) : verdict;
        if (verdict == LineComment) {
            continue;
        }
        ++lines;
        if (verdict >= LineRefused) {
            refuse_line(merge, &input, refusal_text(verdict));
        } else {
            write_line(merge, line);
        }
    }
    close_input(&input);
}

// ---- The whole

// Looks at the start whether all shards can be opened and none of them is the file to be written:
// after hours it would be too late.
static bool open_merge(Merge* merge, const char* unfinished)
{
    const char* name = tune_options.file;
    if (access(name, F_OK) == 0 && !tune_options.replaces) {
        reject(name, "is there: replace it with -merge-replace, or move it away");
        return false;
    }
    for (i32 i = 0; i < tune_options.shard_count; ++i) {
        ToolInput input;
        if (!open_input(&input, tune_options.shards[i])) {
            exit_status = 1;
            return false;
        }
        const bool can = open_tool_output(&input, &merge->out, name, unfinished);
        close_input(&input);
        if (!can) {
            return false;
        }
        if (i + 1 < tune_options.shard_count) {
            drop_output(&merge->out);
        }
    }
    return true;
}

// The file gets its name last, and only if all of it is on the disk.
static bool close_merge(Merge* merge)
{
    const bool lacks_memory = merge->failed && ferror(merge->out.file) == 0;
    if (lacks_memory || merge->written == 0) {
        drop_output(&merge->out);
        if (!lacks_memory) {
            reject(tune_options.file, "there is no line to write");
        }
        return false;
    }
    fprintf(merge->out.file, "%s%lld\n", line_trailer, static_cast<long long>(merge->written));
    int error = close_output(&merge->out);
    if (error == 0) {
        error = publish_output(&merge->out);
    }
    if (error != 0) {
        complain(tune_options.file, "cannot be written", error);
        exit_status = 1;
    }
    return error == 0;
}

void merge_lines(SearchThread* thread)
{
    const size_t size = strlen(tune_options.file) + sizeof unfinished_end;
    char* unfinished = static_cast<char*>(malloc(size));
    Merge* merge = static_cast<Merge*>(calloc(1, sizeof(Merge)));
    if (unfinished == nullptr || merge == nullptr) {
        reject(tune_options.file, "no memory");
    } else {
        snprintf(unfinished, size, "%s%s", tune_options.file, unfinished_end);
        merge->thread = thread;
        if (open_merge(merge, unfinished)) {
            for (i32 i = 0; i < tune_options.shard_count && !merge->failed; ++i) {
                merge_shard(merge, tune_options.shards[i]);
            }
            if (close_merge(merge)) {
                print_plain(
                    "%s: %lld lines of %d files\nleft out: %lld of a position that was there"
                    " already, %lld refused\n",
                    tune_options.file, static_cast<long long>(merge->written),
                    tune_options.shard_count, static_cast<long long>(merge->known),
                    static_cast<long long>(merge->refused));
            }
        }
        free_keys(&merge->keys);
    }
    free(merge);
    free(unfinished);
}
