// Making an opening book from games. Every position and move is counted by how the games went for
// the side that played it; what did not do well often enough is left out.
// Text comes from anywhere: a line may have any length and hold any bytes.
#include <array>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string_view>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/moves.h"
#include "board/notation.h"
#include "book/nodes.h"
#include "book/polyglot.h"

static constexpr char book_name[] = "tmp_book.bin";
static constexpr char unfinished_name[] = "tmp_book.part"; // renamed once it is complete

// Reading. A game is followed through its opening only: a line of text that begins behind this many
// plies is not read, one that began in time is read to its end.
static constexpr i32 line_length = 1022; // characters; longer lines are read in pieces
static constexpr i32 last_started_ply = 35;
static constexpr i32 games_per_dot = 1024;

// What a move must have shown to be kept: points by the results of its games, from the view of the
// side that played it, and wins. A win makes up for two losses: a move that holds its own gets in,
// one that keeps losing does not. Fewer wins than three may be chance.
static constexpr i64 win_points = 4;
static constexpr i64 loss_points = -2;
static constexpr i64 draw_points = 1;
static constexpr i64 least_score = 10;
static constexpr u32 least_wins = 3;

// Points are the weights of the book, scaled down where those of a position would pass this; the
// field holds 65535.
static constexpr f64 highest_weight = 60000.0;
static constexpr i32 max_moves_of_key = 256; // no position has more legal moves

static constexpr u64 lists_ahead = 8; // nodes lie all over the memory: fetched early

// The first two are sides, so that a result is compared with the side that moved.
enum GameResult : i32 { WhiteWon = White, BlackWon = Black, Drawn, Unknown };

// A move that was read and is not counted yet. Whether it counts does not depend on what follows:
// it waits for the rest of its line alone, whose nodes are then fetched together.
struct PlayedMove {
    u64 key;
    Move move;
    u8 side;
};

// The run and the game being read. A line has fewer moves than characters, so line_moves has room.
struct BookReader {
    Position* pos; // the games are played here
    BookBoard board;
    Position start; // where they begin
    BookBoard start_board;
    const char* file_name;
    NodeTable table;
    PlayedMove line_moves[line_length]; // of the line being read, in their order
    i32 line_move_count;
    i32 game_count; // 0 before the first result tag: nothing is entered then
    i32 result;
    i32 plies;           // moves entered
    i64 comment_depth;   // a closing mark without an opening one makes it negative,
    i64 variation_depth; // and anything but 0 is inside
    bool skips;          // a move could not be read: the rest of the game is lost
    bool out_of_memory;
};

// ---- Reading games

// The text may stand anywhere in the line.
static bool holds(std::string_view line, std::string_view text)
{
    return line.find(text) != std::string_view::npos;
}

// A result tag begins a game; the tags around it are passed over. A game from a set-up position is
// played from the start position too, until a move does not fit.
static void start_game(BookReader* reader, std::string_view line)
{
    copy_position(reader->pos, &reader->start);
    reader->board = reader->start_board;
    if (holds(line, "1-0")) {
        reader->result = WhiteWon;
    } else if (holds(line, "0-1")) {
        reader->result = BlackWon;
    } else if (holds(line, "1/2")) {
        reader->result = Drawn;
    } else {
        reader->result = Unknown;
    }
    ++reader->game_count;
    if (reader->game_count % games_per_dot == 0) {
        print_plain(".");
    }
    reader->plies = 0;
    reader->comment_depth = 0;
    reader->variation_depth = 0;
    reader->skips = false;
}

// From the view of the side that moved.
static void count_result(BookNode* node, i32 result, i32 side)
{
    if (result == side) {
        ++node->wins;
    } else if (result == (side ^ 1)) {
        ++node->losses;
    } else {
        ++node->draws;
    }
}

// Counts the moves of the line. Their nodes lie all over the memory, so they are asked for
// together first: waiting for one after the other would take most of the time. Three rounds, since
// a node is reached over its list's entry and the node in front of it.
static void count_line_moves(BookReader* reader)
{
    const PlayedMove* end = reader->line_moves + reader->line_move_count;
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        __builtin_prefetch(list_of(&reader->table, played->key));
    }
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        __builtin_prefetch(*list_of(&reader->table, played->key));
    }
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        if (const BookNode* first = *list_of(&reader->table, played->key)) {
            __builtin_prefetch(first->next);
        }
    }
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        BookNode* node = find_node(&reader->table, played->key, played->move);
        if (node == nullptr) {
            reader->out_of_memory = true;
            return;
        }
        count_result(node, reader->result, played->side);
    }
    reader->line_move_count = 0;
}

// Plays a move of the game.
static void play_move(BookReader* reader, std::string_view text)
{
    Position* pos = reader->pos;
    PlayedMove* played = &reader->line_moves[reader->line_move_count];
    played->key = next_book_key(pos, &reader->board);
    played->side = pos->stm;
    // What is no move, or two, ends the game here; what was read of it counts.
    const i32 matches = find_move(pos, text, &played->move);
    if (matches == 2) {
        print_plain("ambiguous move\n");
    }
    if (matches != 1) {
        reader->skips = true;
        return;
    }
    make_move(pos, played->move);
    ++reader->plies;
    ++reader->line_move_count;
}

// The move that a word such as "12.Nf3" or "4.0-0" ends with; empty if there is none, as in a
// number or most results. "0-1" looks like castling, is none and ends the game as it should.
static std::string_view find_move_text(std::string_view word)
{
    while (!word.empty() && !is_letter(word[0]) && !word.starts_with("0-")) {
        word.remove_prefix(1);
    }
    return word;
}

// Comments and variations may hold each other. They are counted apart, as the text closes them.
static void read_mark(BookReader* reader, char mark)
{
    switch (mark) {
    case '{':
        ++reader->comment_depth;
        break;
    case '}':
        --reader->comment_depth;
        break;
    case '(':
        ++reader->variation_depth;
        break;
    default:
        --reader->variation_depth;
        break;
    }
}

// A word that begins with ; or $ is passed over, but not the rest of its line.
static void read_word(BookReader* reader, std::string_view word)
{
    if (word[0] == ';' || word[0] == '$') {
        return;
    }
    if (reader->comment_depth != 0 || reader->variation_depth != 0) {
        return;
    }
    const std::string_view text = find_move_text(word);
    if (!text.empty()) {
        play_move(reader, text);
    }
}

// What a character is to the words of a line. Those that cannot be printed are dropped wherever
// they stand.
enum CharacterKind : u8 { OfWord, Blank, Mark, Dropped };
static constexpr auto character_kinds = [] {
    std::array<CharacterKind, 256> kinds {};
    for (size_t c = 0; c < 256; ++c) {
        kinds[c] = c == '{' || c == '}' || c == '(' || c == ')' ? Mark
            : c == ' '                                          ? Blank
            : c > ' ' && c < 127                                ? OfWord
                                                                : Dropped;
    }
    return kinds;
}();

static CharacterKind kind_of(char c)
{
    return character_kinds[static_cast<u8>(c)];
}

// Takes a word off the line, up to the blank or mark behind it. Nearly all words are read where
// they stand; one with a dropped character among its own is put together in joined, which has room
// for a whole line.
static std::string_view take_word(std::string_view* line, char* joined)
{
    const char* text = line->data();
    const char* end = text + line->size();
    while (text < end && kind_of(*text) == OfWord) {
        ++text;
    }
    std::string_view word = line->substr(0, static_cast<size_t>(text - line->data()));
    if (text < end && kind_of(*text) == Dropped) {
        size_t size = word.copy(joined, word.size());
        for (; text < end && kind_of(*text) != Blank && kind_of(*text) != Mark; ++text) {
            if (kind_of(*text) == OfWord) {
                joined[size++] = *text;
            }
        }
        word = { joined, size };
    }
    line->remove_prefix(static_cast<size_t>(text - line->data()));
    return word;
}

// Reads the moves of a line. Words end at blanks and at the marks of comments and variations.
static void read_moves(BookReader* reader, std::string_view line)
{
    char joined[line_length];
    while (!line.empty() && !reader->skips) {
        const std::string_view word = take_word(&line, joined);
        if (!word.empty()) {
            read_word(reader, word);
        }
        if (reader->skips || line.empty()) {
            return;
        }
        if (kind_of(line[0]) == Mark) {
            read_mark(reader, line[0]);
        }
        line.remove_prefix(1);
    }
}

// A line, or a piece of one that is too long for a line. The result tag is looked for first and in
// all of them, so that a game whose comments are never closed does not swallow the ones behind it.
static void read_game_line(BookReader* reader, std::string_view line)
{
    if (holds(line, "[Result")) {
        start_game(reader, line);
        return;
    }
    if (line.empty() || reader->game_count == 0) {
        return;
    }
    // Tags and remarks, unless a comment goes on here.
    if (reader->comment_depth == 0 && (line[0] == ';' || line[0] == '[')) {
        return;
    }
    // A game without a result proves nothing.
    if (reader->result == Unknown || reader->plies > last_started_ply) {
        return;
    }
    read_moves(reader, line);
    count_line_moves(reader);
}

// Returns 0, or the error that kept the file from being read to its end.
static int read_games(BookReader* reader, FILE* file)
{
    // Too large for the stack.
    LineReader* lines = new (std::nothrow) LineReader;
    if (lines == nullptr) {
        reader->out_of_memory = true;
        return 0;
    }
    start_reading(lines, file);
    char line[line_length + 1];
    i32 length;
    // The last character of a line or a piece of one is taken off, whatever it is.
    while (!reader->out_of_memory && (length = read_line_piece(lines, line, sizeof line)) > 0) {
        read_game_line(reader, { line, static_cast<size_t>(length - 1) });
    }
    delete lines;
    return ferror(file) ? errno : 0;
}

// ---- Writing the book

// In points; below 0 where losses are more than twice the wins, draws aside.
static i64 node_score(const BookNode* node)
{
    return win_points * static_cast<i64>(node->wins) + loss_points * static_cast<i64>(node->losses)
        + draw_points * static_cast<i64>(node->draws);
}

// Both conditions: three wins and many losses are no good, nor are many draws and a win.
static bool is_kept(const BookNode* node)
{
    return node_score(node) >= least_score && node->wins >= least_wins;
}

// Puts the last of count entries in its place. Entries that compare equal keep their order.
// The entries before it are in order already.
static void sort_in(BookEntry* entries, i32 count)
{
    for (i32 i = count - 1; i > 0; --i) {
        if (book_entry_compare(&entries[i - 1], &entries[i]) <= 0) {
            return;
        }
        const BookEntry entry = entries[i];
        entries[i] = entries[i - 1];
        entries[i - 1] = entry;
    }
}

// Writes the kept nodes of the key that the list begins with and returns the first node of the
// next key. A file that takes no more shows it when it is closed.
static const BookNode* write_key(FILE* file, const BookNode* first)
{
    i64 highest = 0;
    const BookNode* end = first;
    for (; end != nullptr && end->key == first->key; end = end->next) {
        if (is_kept(end) && node_score(end) > highest) {
            highest = node_score(end);
        }
    }
    if (highest == 0) {
        return end;
    }

    // All moves of a position by the same scale, which keeps their proportions; never up, so that a
    // reader can tell a well-tried position from a rare one.
    f64 scale = highest_weight / static_cast<f64>(highest);
    if (scale > 1.0) {
        scale = 1.0;
    }
    BookEntry entries[max_moves_of_key];
    i32 count = 0;
    for (const BookNode* node = first; node != end && count < max_moves_of_key; node = node->next) {
        if (!is_kept(node)) {
            continue;
        }
        const f64 weight = static_cast<f64>(node_score(node)) * scale;
        entries[count++] = { node->key, move_to_book_move(node->move), static_cast<u16>(weight),
            0 };
        sort_in(entries, count);
    }
    for (i32 i = 0; i < count; ++i) {
        write_book_entry(file, &entries[i]);
    }
    return end;
}

// The lists in the order of the top bits, and so the whole file in the order of its keys. All nodes
// of a key are in one list.
static void write_nodes(FILE* file, const NodeTable* table)
{
    const u64 count = 1ULL << table->list_bits;
    for (u64 list = 0; list < count; ++list) {
        if (list + 2 * lists_ahead < count) {
            __builtin_prefetch(table->lists[list + 2 * lists_ahead]);
            if (const BookNode* first = table->lists[list + lists_ahead]) {
                __builtin_prefetch(first->next);
            }
        }
        for (const BookNode* node = table->lists[list]; node != nullptr;) {
            node = write_key(file, node);
        }
    }
}

// The errors of a full disk, a used-up quota and a file that may not grow.
static bool is_lack_of_space(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

// Writes the book under another name first, so that the old one stays whole until the new one is.
// Returns whether the counts are worth telling: they are where the file is refused from the start
// or at the end, and not where the disk is full. Whatever fails is complained of and sets
// exit_status.
static bool write_book(const NodeTable* table)
{
    OutputFile book;
    const int open_error = open_output(&book, book_name, unfinished_name);
    if (open_error != 0) {
        complain(book_name, "cannot be opened for writing", open_error);
        exit_status = 1;
        return !is_lack_of_space(open_error);
    }
    write_nodes(book.file, table);
    const int write_error = close_output(&book);
    if (write_error != 0) {
        complain(book_name, "cannot be written", write_error);
        exit_status = 1;
        return false;
    }
    const int rename_error = publish_output(&book);
    if (rename_error != 0) {
        complain(book_name, "cannot be replaced", rename_error);
        exit_status = 1;
    }
    return true;
}

// ---- The mode

// Opens a file of games, or says why not and returns null. What stands under a name that the book
// takes would be lost.
static FILE* open_games(const char* file_name)
{
    FILE* file = open_or_complain(file_name);
    // A file that is not there gives a message alone, as for the other tools.
    if (file == nullptr && errno != ENOENT) {
        exit_status = 1;
    }
    if (file == nullptr || (!is_named(file, book_name) && !is_named(file, unfinished_name))) {
        return file;
    }
    fprintf(stderr, "%s: would be replaced by the book\n", file_name);
    exit_status = 1;
    fclose(file);
    return nullptr;
}

// From the games to the finished file, with lines for the user. Nothing is written of a run that
// could not read all of its games: half a book would look like a whole one.
static void make_book(BookReader* reader, FILE* games)
{
    print_line_format(" Creating file %s from games in %s", book_name, reader->file_name);
    const int read_error = read_games(reader, games);
    if (reader->out_of_memory) {
        fprintf(stderr, "no memory for the positions of %s\n", reader->file_name);
        exit_status = 1;
        return;
    }
    if (read_error != 0) {
        complain(reader->file_name, "cannot be read to its end", read_error);
        exit_status = 1;
        return;
    }
    print_plain("\nwriting book file ...");
    if (!write_book(&reader->table)) {
        return;
    }
    print_plain("\nngames= %d, nmoves= %d\n", reader->game_count,
        static_cast<i32>(reader->table.node_count));
    print_plain("done\n");
}

void build_book(Position* pos, const char* file_name)
{
    FILE* games = open_games(file_name);
    if (games == nullptr) {
        return;
    }
    BookReader reader = {};
    reader.pos = pos;
    reader.file_name = file_name;
    parse_epd(pos, start_position);
    reader.start = *pos;
    next_book_key(pos, &reader.start_board);
    // Of no consequence: nothing is counted before the first result tag.
    reader.result = Drawn;
    if (make_table(&reader.table)) {
        make_book(&reader, games);
    } else {
        fprintf(stderr, "no memory for a book\n");
        exit_status = 1;
    }
    fclose(games);
    free_table(&reader.table);
}
