// The console's answers are read here, since UCI has no words for a score table or a count.
#include "host/jobs.h"

#include <cerrno>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "board/moves.h"
#include "host/bench_word.h"
#include "host/game.h"
#include "host/text.h"
#include "main/engine.h"

// What the console answers.
static constexpr std::string_view table_start = "           white";
static constexpr std::string_view table_end = "eval= ";
static constexpr std::string_view answer_end = "uciok";
static constexpr std::string_view count_start = "visited ";

// ---- What runs in the process

// The engine's console, with the options of a file if there is one.
static int run_console(void* context)
{
    char name[] = "vesk-uci";
    char console[] = "-c";
    char option[] = "-cfg";
    char* file = static_cast<char*>(context);
    char* words[] = { name, console, option, file, nullptr };
    return run_engine(file != nullptr ? 4 : 2, words);
}

static int run_benchmark(void* context)
{
    return print_benchmark(*static_cast<const i32*>(context));
}

// ---- Starting

static std::string fen_of(const Position* pos)
{
    char fen[fen_size];
    make_fen(pos, fen);
    return fen;
}

// The options that the evaluation hangs on, as lines of a configuration file in memory: the file is
// open in this process, where the forked one finds it by the process's number.
static int write_config(Job* job, const HostSettings* settings)
{
    std::string text;
    for (const Setting& setting : settings->list) {
        if (setting.of_engine && setting.kind == SettingKind::Text
            && setting.value.find(',') != std::string::npos && setting.value != setting.start) {
            text += setting.name + " = " + setting.value + '\n';
        }
    }
    job->config = memfd_create("options", MFD_CLOEXEC);
    if (job->config < 0) {
        return errno;
    }
    return write(job->config, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0
                                                                                             : EIO;
}

static void begin_job(Job* job, JobKind kind)
{
    *job = Job {};
    job->kind = kind;
}

int start_evaluation(Job* job, const HostSettings* settings, const HostGame* game)
{
    begin_job(job, JobKind::Evaluation);
    if (const int error = write_config(job, settings); error != 0) {
        end_job(job);
        return error;
    }
    std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(job->config);
    if (const int error = start_process(&job->process, run_console, path.data()); error != 0) {
        end_job(job);
        return error;
    }
    put_line(&job->process.to, "fen " + fen_of(&game->pos));
    put_line(&job->process.to, "ev");
    // Whose answer ends the job where "ev" prints nothing.
    put_line(&job->process.to, "uci");
    return 0;
}

// A count behind each move, since the console only knows sums.
int start_perft(Job* job, HostGame* game, i32 depth)
{
    begin_job(job, JobKind::Perft);
    if (const int error = start_process(&job->process, run_console, nullptr); error != 0) {
        return error;
    }
    for (const Move move : legal_moves(game)) {
        job->moves.push_back(text_of_move(move));
        make_move(&game->pos, move);
        put_line(&job->process.to, "fen " + fen_of(&game->pos));
        put_line(&job->process.to, "perft " + std::to_string(depth - 1));
        unmake_move(&game->pos);
    }
    return 0;
}

int start_benchmark(Job* job, i32 depth)
{
    begin_job(job, JobKind::Benchmark);
    return start_process(&job->process, run_benchmark, &depth);
}

// ---- Showing

// An ending that a rule judges, such as a king alone or a pawn against a king, has no table.
static std::vector<std::string> shown_table_line(Job* job, const std::string& line)
{
    if (line == answer_end && job->done == 0) {
        job->done = 1;
        return { "info string eval: no table, a rule of its own judges this ending" };
    }
    job->shows |= line.starts_with(table_start);
    if (!job->shows || job->done > 0) {
        return {};
    }
    job->done = line.starts_with(table_end);
    return { line };
}

// A count to depth 0 is not made by the console: behind a move is the one position.
static std::vector<std::string> shown_count(Job* job, const std::string& line)
{
    if (!line.starts_with(count_start) || job->done >= job->moves.size()) {
        return {};
    }
    std::string_view rest = std::string_view(line).substr(count_start.size());
    i64 leaves = 0;
    (void)read_number(take_word(&rest), &leaves);
    leaves = leaves > 0 ? leaves : 1;
    job->leaves += static_cast<u64>(leaves);
    std::vector<std::string> shown { job->moves[job->done] + ": " + std::to_string(leaves) };
    if (++job->done == job->moves.size()) {
        shown.emplace_back("");
        shown.push_back("Nodes searched: " + std::to_string(job->leaves));
    }
    return shown;
}

std::vector<std::string> shown_lines(Job* job, const std::string& line)
{
    switch (job->kind) {
    case JobKind::Evaluation:
        return shown_table_line(job, line);
    case JobKind::Perft:
        return shown_count(job, line);
    case JobKind::Benchmark:
        break;
    }
    return { line };
}

bool is_done(const Job* job)
{
    switch (job->kind) {
    case JobKind::Evaluation:
        return job->done > 0;
    case JobKind::Perft:
        return job->done == job->moves.size();
    case JobKind::Benchmark:
        break;
    }
    return false;
}

void end_job(Job* job)
{
    end_process(&job->process);
    if (job->config >= 0) {
        close(job->config);
        job->config = -1;
    }
}
