// A line that is written over itself.
#include "data/progress.h"

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "base/clock.h"

static constexpr f64 seconds_between_shows = 0.5;
static constexpr f64 least_measured = 0.1; // seconds of a stage that a rate is made of

void start_run_progress(RunProgress* progress, const CommonOptions& common, i64 total, bool writes)
{
    // A line that comes and goes would be in the way of others.
    const bool is_shared = writes && common.output == "-" && isatty(STDOUT_FILENO) != 0;
    progress->on = !common.quiet && !is_shared && isatty(STDERR_FILENO) != 0;
    progress->visible = false;
    progress->due = monotonic_seconds() + seconds_between_shows;
    start_progress_stage(progress, total);
}

// When the line is due stays as it is, or many short stages would never show one; only what a stage
// does in its first moment tells nothing of its rate.
void start_progress_stage(RunProgress* progress, i64 total)
{
    progress->total = total;
    progress->started = monotonic_seconds();
    progress->due = std::max(progress->due, progress->started + least_measured);
}

// What is left is expected at the rate so far. Unpacked bytes are not counted: how many there will
// be is not known before the end.
void show_run_progress(RunProgress* progress, const char* what, i64 count, i64 position)
{
    if (!progress->on) {
        return;
    }
    const f64 now = monotonic_seconds();
    if (now < progress->due) {
        return;
    }
    progress->due = now + seconds_between_shows;
    progress->visible = true;
    const f64 passed = now - progress->started;
    fprintf(stderr, "\r%s: %lld, %.0f a second", what, static_cast<long long>(count),
        static_cast<f64>(count) / passed);
    if (progress->total > 0 && position > 0) {
        // A file may grow while it is read.
        const f64 share =
            std::min(static_cast<f64>(position) / static_cast<f64>(progress->total), 1.0);
        const f64 left = passed * (1.0 - share) / share;
        fprintf(stderr, ", %.0f %%, %lld:%02lld left", 100.0 * share,
            static_cast<long long>(left) / 60, static_cast<long long>(left) % 60);
    }
    fputs("\x1b[K\r", stderr);
}

void show_stage_progress(RunProgress* progress, const char* what, u64 done)
{
    show_run_progress(progress, what, static_cast<i64>(done), static_cast<i64>(done));
}

void hide_run_progress(RunProgress* progress)
{
    if (progress->visible) {
        fputs("\r\x1b[K", stderr);
        progress->visible = false;
    }
}

i64 total_size(const std::vector<std::string>& files)
{
    i64 total = 0;
    for (const std::string& file : files) {
        struct stat status;
        const bool is_input = file == "-";
        if ((is_input ? fstat(STDIN_FILENO, &status) : stat(file.c_str(), &status)) != 0) {
            continue;
        }
        if (!S_ISREG(status.st_mode)) {
            return 0;
        }
        total += static_cast<i64>(status.st_size);
        if (is_input) {
            total -= std::max<i64>(lseek(STDIN_FILENO, 0, SEEK_CUR), 0);
        }
    }
    return total;
}
