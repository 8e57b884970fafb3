// Files of games that grow. A night's games must outlive a full disk, a signal and a power cut in
// the middle: a game goes out in one piece behind its lines, and whoever goes on with the files
// cuts off what is not whole and plays it again.
#include "tools/selfplay/selfplay_files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "base/files.h"
#include "tools/selfplay/selfplay_text.h"
#include "tools/tool_input.h"

static constexpr char event_tag[] = "[Event \"";
static constexpr char round_tag[] = "[Round \"";
static constexpr char number_mark[] = "c0 \"game ";
static constexpr i32 line_size = 512; // longer than any line that is written

// Tells what is wrong with a file, for the reason error; 0 where what says it all.
static bool fail(const char* name, const char* what, int error)
{
    if (error != 0) {
        complain(name, what, error);
    } else {
        fprintf(stderr, "%s: %s\n", name, what);
    }
    exit_status = 1;
    return false;
}

// ---- Opening

// No link is followed and nothing but a regular file is taken, as with all outputs of fixed names.
static bool open_growing(GrowingFile* file, const char* name, bool resume)
{
    file->name = name;
    file->size = 0;
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | (resume ? 0 : O_EXCL);
    file->descriptor = open(name, flags, 0666);
    if (file->descriptor < 0) {
        const int error = errno;
        return fail(name,
            error == EEXIST ? "is there already; -selfplay-resume goes on with it"
                            : "cannot be opened for writing",
            error == EEXIST ? 0 : error);
    }
    struct stat status;
    if (fstat(file->descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return fail(name, "is no regular file", 0);
    }
    if (flock(file->descriptor, LOCK_EX | LOCK_NB) != 0) {
        return fail(name, "is being written by another run", 0);
    }
    return true;
}

// A whole game in an earlier run's file.
struct GamePlace {
    i64 number;
    i64 start; // bytes before it
    u64 key;
};

// What an earlier run has left.
struct EarlierRun {
    std::vector<GamePlace> games;
    i64 games_size;       // bytes of the whole games
    i64 lines_size;       // bytes of their lines
    i64 last_lines;       // number of the last game that has lines, 0 if none has
    i64 last_lines_start; // bytes before its lines
};

// A power cut may take what was written last out of one file and leave it in the other. So many
// games may be played again for it; if more lack their lines, the file is another one.
static constexpr size_t most_games_without_lines = 1000;

// The game that is being read out of an earlier run's file.
struct GameReading {
    std::string event_line; // the first of each game
    std::string text;
    i64 number;
    bool has_moves;
};

// Takes a line into the game. Returns why the file is not one to go on with, or null. Nothing is
// cut off that this run could not have written: a wrong name must not cost a file of the user's.
static const char* read_game_line(GameReading* reading, const char* line, i64 last_number)
{
    const std::string_view text(line);
    const bool is_cut = !text.ends_with('\n');
    if (reading->text.empty() && text != reading->event_line
        && !(is_cut && reading->event_line.starts_with(text))) {
        return "no game that was played with these settings begins here";
    }
    if (text.starts_with(round_tag)) {
        reading->number = atoll(line + sizeof round_tag - 1);
        if (!is_cut && reading->number <= last_number) {
            return "the games are not in the order of their numbers";
        }
    }
    reading->has_moves = reading->has_moves || (line[0] != '[' && line[0] != '\n');
    reading->text.append(text);
    return nullptr;
}

// Notes the games that the file holds and where the last whole one ends: a game is whole with the
// empty line behind its moves.
static bool read_games(EarlierRun* earlier, ToolInput* input, std::string_view event)
{
    GameReading reading = {};
    reading.event_line.append(event_tag).append(event).append("\"]\n");
    char line[line_size];
    i64 offset = 0;
    for (i32 size = 0; (size = read_line_piece(&input->lines, line, line_size)) > 0;) {
        offset += size;
        const i64 last_number = earlier->games.empty() ? 0 : earlier->games.back().number;
        if (const char* why = read_game_line(&reading, line, last_number)) {
            refuse(input, input->lines.line_number, "%s", why);
            return false;
        }
        if (line[0] == '\n' && reading.has_moves) {
            earlier->games.push_back(
                { reading.number, earlier->games_size, key_of_game_text(reading.text) });
            earlier->games_size = offset;
            reading.text.clear();
            reading.has_moves = false;
        }
    }
    return true;
}

// Notes where the lines of the games that are there end. A line without its line feed, or of a
// later game, is where a run has been cut off.
static bool read_lines(EarlierRun* earlier, ToolInput* input)
{
    char line[line_size];
    const i64 last_number = earlier->games.empty() ? 0 : earlier->games.back().number;
    for (i32 size = 0; (size = read_line_piece(&input->lines, line, line_size)) > 0;) {
        const char* mark = strstr(line, number_mark);
        const bool is_whole = line[size - 1] == '\n';
        if (mark == nullptr && (is_whole || earlier->lines_size == 0)) {
            refuse(input, input->lines.line_number, "no line of such games");
            return false;
        }
        const i64 number = mark == nullptr ? 0 : atoll(mark + sizeof number_mark - 1);
        if (!is_whole || number > last_number) {
            return true;
        }
        if (number != earlier->last_lines) {
            earlier->last_lines = number;
            earlier->last_lines_start = earlier->lines_size;
        }
        earlier->lines_size += size;
    }
    return true;
}

// Drops the games behind the last one that has lines, and that one too, as some of its lines may be
// missing. They are played again and come out the same.
static bool drop_games_without_lines(EarlierRun* earlier, const char* lines_name)
{
    if (earlier->games.empty() || earlier->games.back().number == earlier->last_lines) {
        return true;
    }
    size_t kept = earlier->games.size();
    while (kept > 0 && earlier->games[kept - 1].number >= earlier->last_lines) {
        --kept;
    }
    if (earlier->games.size() - kept > most_games_without_lines) {
        return fail(lines_name, "lacks the lines of most games, it is not theirs", 0);
    }
    earlier->games_size = earlier->games[kept].start;
    earlier->lines_size = earlier->last_lines_start;
    earlier->games.resize(kept);
    return true;
}

// Reads one of the files. Returns false after a message.
static bool read_earlier(EarlierRun* earlier, const char* name, const std::string_view* event)
{
    ToolInput* input = new ToolInput();
    bool good = open_input(input, name);
    if (good) {
        good = event != nullptr ? read_games(earlier, input, *event) : read_lines(earlier, input);
        close_input(input);
    } else {
        exit_status = 1;
    }
    delete input;
    return good;
}

static bool cut(GrowingFile* file, i64 size)
{
    file->size = size;
    if (ftruncate(file->descriptor, size) != 0 || lseek(file->descriptor, size, SEEK_SET) < 0) {
        return fail(file->name, "cannot be cut to its whole games", errno);
    }
    return true;
}

// Nothing is changed before both files have been found to be those of such a run.
static bool go_on(SelfplayFiles* files, std::string_view event)
{
    EarlierRun earlier = {};
    const bool has_lines = files->lines.name != nullptr;
    if (!read_earlier(&earlier, files->games.name, &event)
        || (has_lines
            && !(read_earlier(&earlier, files->lines.name, nullptr)
                && drop_games_without_lines(&earlier, files->lines.name)))) {
        return false;
    }
    for (const GamePlace& game : earlier.games) {
        files->keys.insert(game.key);
        files->last_number = game.number;
        ++files->count;
    }
    return cut(&files->games, earlier.games_size)
        && (!has_lines || cut(&files->lines, earlier.lines_size));
}

bool open_selfplay_files(
    SelfplayFiles* files, const char* games, const char* lines, std::string_view event, bool resume)
{
    files->games = { nullptr, -1, 0 };
    files->lines = { nullptr, -1, 0 };
    files->last_number = 0;
    files->count = 0;
    files->keys.clear();
    if (!open_growing(&files->games, games, resume)) {
        return false;
    }
    if (lines != nullptr && !open_growing(&files->lines, lines, resume)) {
        // A file that this run has made must not stand in the way of the next one.
        if (!resume) {
            unlink(games);
        }
        return false;
    }
    return !resume || go_on(files, event);
}

// ---- Writing

// Takes back what a failed write has left. A failure of this does no harm: whoever goes on with the
// file cuts it off.
static void drop_rest(GrowingFile* file)
{
    [[maybe_unused]] const int failure = ftruncate(file->descriptor, file->size);
    lseek(file->descriptor, file->size, SEEK_SET);
}

// Writes all of text behind what is there, or nothing. Returns 0 or the error.
static int append(GrowingFile* file, std::string_view text)
{
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(file->descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            const int error = count < 0 ? errno : ENOSPC;
            drop_rest(file);
            return error;
        }
        written += static_cast<size_t>(count);
    }
    return 0;
}

bool add_selfplay_game(
    SelfplayFiles* files, i64 number, std::string_view game, std::string_view lines, bool* failed)
{
    *failed = false;
    if (!files->keys.insert(key_of_game_text(game)).second) {
        return false;
    }
    GrowingFile* file = &files->lines;
    int error = file->name == nullptr ? 0 : append(file, lines);
    if (error == 0) {
        file = &files->games;
        error = append(file, game);
        if (error != 0 && files->lines.name != nullptr) {
            drop_rest(&files->lines);
        }
    }
    if (error != 0) {
        *failed = true;
        fail(file->name, "cannot be written, it ends with the game before", error);
        return true;
    }
    files->games.size += static_cast<i64>(game.size());
    files->lines.size += files->lines.name == nullptr ? 0 : static_cast<i64>(lines.size());
    files->last_number = number;
    ++files->count;
    return true;
}

void close_selfplay_files(SelfplayFiles* files)
{
    for (GrowingFile* file : { &files->games, &files->lines }) {
        if (file->descriptor >= 0 && close(file->descriptor) != 0) {
            fail(file->name, "cannot be written", errno);
        }
        file->descriptor = -1;
    }
}
