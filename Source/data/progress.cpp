// A line that is written over itself.
#include "data/progress.h"

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "base/clock.h"

static constexpr f64 seconds_between_shows = 0.5;

void start_run_progress(RunProgress* progress, const CommonOptions& common, i64 total)
{
    progress->on = !common.quiet && isatty(STDERR_FILENO) != 0;
    progress->visible = false;
    progress->due = monotonic_seconds() + seconds_between_shows;
    start_progress_stage(progress, total);
}

// When the line is due stays as it is: many short stages would otherwise never show one.
void start_progress_stage(RunProgress* progress, i64 total)
{
    progress->total = total;
    progress->started = monotonic_seconds();
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
        const f64 share = static_cast<f64>(position) / static_cast<f64>(progress->total);
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
        if (file == "-" || stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return 0;
        }
        total += static_cast<i64>(status.st_size);
    }
    return total;
}
