// The game of the console as a whole. The game is the undo stack of the dialogue's record: moves up
// to undo_count are made, those behind it were taken back and wait to be repeated, up to the first
// that is none. A game read from a file is played on the console's own position move by move, so
// that its record is one that the board has allowed throughout.
#include "shell/console_game.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/moves.h"
#include "board/notation.h"
#include "search/control.h"
#include "shell/board_text.h"
#include "shell/input.h"
#include "shell/words.h"

// ---- Walking through the game

// The board may have been changed by other means since the move was taken back, so the move is
// tried as one from outside would be.
bool redo_move(Dialogue* dialogue)
{
    const SearchThread* thread = dialogue->game;
    Position* pos = &dialogue->game->pos;
    const Move move = thread->undo[thread->undo_count].move;
    if (move == NoMove || thread->undo_count >= game_limit
        || !is_makeable(
            pos, from_square(move), to_square(move), static_cast<Move>(move & PromotionMask))) {
        return false;
    }
    make_move(pos, move);
    return true;
}

// The moves stay in the record, where they can be repeated.
static void go_to_start(Dialogue* dialogue)
{
    while (dialogue->game->undo_count > 0) {
        unmake_move(&dialogue->game->pos);
    }
}

// Moves are counted in pairs, as on a score sheet, from the start of the record: of a very long
// game the oldest moves are gone, and the count begins where the record does.
void jump_to_move(Dialogue* dialogue, i32 number)
{
    const i32 plies = 2 * std::clamp(number, 1, game_limit) - 2;
    go_to_start(dialogue);
    while (dialogue->game->undo_count < plies && redo_move(dialogue)) { }
    print_board(&dialogue->game->pos);
}

// ---- Saving

// In the current folder, with a fixed name: games are added at the end and none is ever replaced.
static constexpr char saved_games[] = "tmp.pgn";
static constexpr i32 moves_per_line = 11;

// The moves are taken back and made again, since a move's text needs the position before it. The
// position afterwards is the one before, so the game goes on where it stood.
static void write_moves(Dialogue* dialogue, FILE* file)
{
    Position* pos = &dialogue->game->pos;
    const i32 count = dialogue->game->undo_count;
    go_to_start(dialogue);
    for (i32 i = 0; i < count; ++i) {
        const Move move = dialogue->game->undo[i].move;
        char forms[4][16];
        make_san(pos, move, forms[0], forms[1], forms[2], forms[3]);
        fprintf(file, "%s %s", forms[1], (i + 1) % moves_per_line == 0 ? "\n" : "");
        make_move(pos, move);
    }
}

// A game that does not fit on the disk is taken back as a whole: half of one would be taken for the
// game when it is loaded again. The length before it is kept for that.
void save_game(Dialogue* dialogue)
{
    FILE* file = open_or_complain(saved_games, true);
    if (file == nullptr) {
        exit_status = 1;
        return;
    }
    // So that an error reported by closing is one of this writing.
    errno = 0;
    const off_t length = lseek(fileno(file), 0, SEEK_END);
    fputs("[Event \"Unknown\"]\n", file);
    write_moves(dialogue, file);
    fputs("\n\n", file);
    // The file itself is cut, whatever has its name by then.
    const int kept_open = dup(fileno(file));
    const int error = close_written_file(file);
    if (error != 0) {
        exit_status = 1;
        complain(saved_games, "cannot be written", error);
        if (ftruncate(kept_open, length) != 0) {
            complain(saved_games, "holds half a game", errno);
        }
    }
    close(kept_open);
}

// ---- Loading

// A line beyond its size is read in pieces, each of which loses its last character; moves beyond
// the room for waiting ones are dropped.
static constexpr i32 file_line_size = 1023;     // of a line or a piece of one, with its NUL
static constexpr size_t game_text_size = 16384; // moves waiting for the end of a comment
static constexpr i32 most_games = 1000;         // greater numbers are taken for the first
// What some editors put before the first line; it would keep the first tag from being one.
static constexpr char byte_order_mark[] = "\xef\xbb\xbf";

// Where the reading of a file stands.
struct GameReader {
    const char* sought; // text that marks the game, null once it is found
    i32 wanted;         // number of the game
    i32 games;          // headers seen
    i32 open_braces;    // not 0: inside a comment. A stray brace that closes counts as one
    size_t used;
    char text[game_text_size]; // what stands outside comments and is not played yet
};

// A digit makes the tag a number, so no text that begins with one can be sought. Numbers count the
// headers "[Event " from 1 on.
static void choose_game(GameReader* reader, const char* tag)
{
    reader->wanted = 1;
    if (is_digit(tag[0])) {
        const i32 number = read_i32(tag);
        reader->wanted = number >= 1 && number <= most_games ? number : 1;
    } else if (tag[0] != '\0') {
        reader->sought = tag;
    }
}

// Whether a line belongs to the game that is wanted. Text is sought in headers and moves alike, and
// the game in which it stands is known only then: lines of that game before it are lost, which
// matters if it stands among the moves.
static bool is_in_game(GameReader* reader, const char* line)
{
    if (strstr(line, "[Event ") != nullptr) {
        ++reader->games;
    }
    if (reader->sought != nullptr) {
        if (strstr(line, reader->sought) == nullptr) {
            return false;
        }
        reader->sought = nullptr;
        reader->wanted = reader->games;
    }
    return reader->games == reader->wanted;
}

// The last character goes, whatever it is, and a carriage return before a line feed with it. A last
// line without a line feed loses a character: mostly the end of its result, which is not read.
static void cut_line_end(char* line)
{
    size_t length = strlen(line);
    if (length == 0) {
        return;
    }
    --length;
    if (length > 0 && line[length] == '\n' && line[length - 1] == '\r') {
        --length;
    }
    line[length] = '\0';
}

// Moves are collected outside comments alone. Braces are counted, so that a comment may hold one of
// its own; a closing one too many hides what follows, until an opening one makes up for it.
static void add_text(GameReader* reader, const char* line)
{
    for (; *line != '\0'; ++line) {
        if (*line == '{') {
            ++reader->open_braces;
        } else if (*line == '}') {
            --reader->open_braces;
        } else if (reader->open_braces == 0 && reader->used < game_text_size - 1) {
            reader->text[reader->used++] = *line;
        }
    }
    reader->text[reader->used] = '\0';
}

// Plays a word from its first letter on, since numbers may stand right before a move ("1.e4"); a
// word without a letter is a move number or a result. A word that is no move ends the reading: what
// follows it would be played from a wrong position.
static bool play_word(Dialogue* dialogue, std::string_view word)
{
    while (!word.empty() && !is_letter(word.front())) {
        word.remove_prefix(1);
    }
    if (word.empty()) {
        return true;
    }
    char text[game_text_size + 4]; // reading a move may add a character
    copy_text(text, word.size() + 1, word.data());
    Position* pos = &dialogue->game->pos;
    Move move = NoMove;
    if (!read_move(pos, text, &move)) {
        print_line_format("can't parse move '%s'", text);
        return false;
    }
    make_game_move(pos, move);
    return true;
}

// Plays what has been collected. Called only outside comments, so that a move broken by one is not
// played in halves. Returns whether all of it could be read.
static bool play_text(Dialogue* dialogue, GameReader* reader)
{
    reader->used = 0;
    const char* text = reader->text;
    for (auto word = take_word(&text); !word.empty(); word = take_word(&text)) {
        if (!play_word(dialogue, word)) {
            return false;
        }
    }
    return true;
}

// Tags are left out, unless a comment goes on over them. Returns whether the reading may go on.
static bool read_game_line(Dialogue* dialogue, GameReader* reader, char* line)
{
    if (!is_in_game(reader, line) || (line[0] == '[' && reader->open_braces == 0)) {
        return true;
    }
    cut_line_end(line);
    add_text(reader, line);
    return reader->open_braces != 0 || play_text(dialogue, reader);
}

// Reads to the end of the file, behind the game too: the headers there have other numbers, so
// nothing of theirs is played.
static void read_game(Dialogue* dialogue, FILE* file, const char* tag)
{
    GameReader reader = {};
    choose_game(&reader, tag);
    char line[file_line_size];
    bool first = true;
    while (fgets(line, sizeof line, file) != nullptr) {
        const size_t mark = sizeof byte_order_mark - 1;
        const bool marked = first && strncmp(line, byte_order_mark, mark) == 0;
        first = false;
        if (!read_game_line(dialogue, &reader, marked ? line + mark : line)) {
            return;
        }
    }
}

// The clocks are set anew even if nothing was loaded; the game of a file that cannot be read is
// left alone. A running search is told to report, and its lines may come among those of the
// loading.
void load_game(Dialogue* dialogue, const char* path, const char* tag)
{
    print_line_format("loading %s, tag %s\n", path, tag);
    FILE* file = open_regular_file(path);
    if (file != nullptr) {
        SearchThread* thread = dialogue->game;
        store(stop_code, StopCode::ReportGame);
        read_position(&thread->pos, start_position);
        read_game(dialogue, file, tag);
        fclose(file);
        // Behind the last move there is nothing to repeat: not even what the older game left there.
        thread->undo[thread->undo_count].move = NoMove;
        print_board(&thread->pos);
    }
    store(dialogue->limits.clock_left[White], dialogue->limits.tc_seconds);
    store(dialogue->limits.clock_left[Black], dialogue->limits.tc_seconds);
}

// ---- The board editor

// With line feed and NUL; a longer line goes on as another, whose first word must be a side.
static constexpr i32 edit_line_size = 78;
static constexpr size_t piece_text_length = 3;    // letter, file and rank
static constexpr char edit_letters[] = " pnbrqk"; // by piece type
static constexpr char lower_case_bit = 32;

// The square is emptied first, so any letter that is no piece, such as x, takes a piece away.
static void edit_square(Position* pos, i32 side, char letter, i32 square)
{
    remove_piece(pos, square);
    const char lower = static_cast<char>(letter | lower_case_bit);
    const char* found = is_letter(letter) ? strchr(edit_letters, lower) : nullptr;
    if (found != nullptr) {
        put_piece(pos, square, piece_code(side, static_cast<i32>(found - edit_letters)));
    }
}

// The pieces of one side, each a letter and a square. The side of the last such line is to move,
// even of a line without pieces. What names no square ends the line.
static void edit_pieces(Position* pos, const char* line)
{
    const char* word = skip_blanks(line);
    if (*word != 'w' && *word != 'b') {
        return;
    }
    const i32 side = *word == 'w' ? White : Black;
    pos->stm = static_cast<u8>(side);
    for (;;) {
        word = skip_blanks(word + strcspn(word, " "));
        const size_t length = strcspn(word, " ");
        const i32 square = length >= piece_text_length ? square_of_text(word + 1) : NoSquare;
        if (square >= NoSquare) {
            return;
        }
        edit_square(pos, side, word[0], square);
    }
}

// What the board alone does not tell is made to fit it: rights to castle without king and rook at
// home go, the keys follow, and the game begins here. Without the first entries of the record there
// is nothing to take back and nothing to repeat.
static void complete_position(Position* pos)
{
    drop_false_castling(pos);
    pos->key = compute_key(pos);
    pos->pawn_key = compute_pawn_key(pos);
    pos->thread->undo[0] = {};
    pos->thread->undo[1] = {};
    pos->thread->undo_count = 0;
}

void edit_board(Dialogue* dialogue)
{
    print_line("\n\n");
    print_line(".                    end edit");
    print_line("#                    clear board");
    print_line("w  Pa2 Pb2 Kc2       white, pieces");
    print_line("b  Pa7 Pb7 Kc7       black, pieces");
    Position* pos = &dialogue->game->pos;
    char line[edit_line_size];
    while (read_input(line, sizeof line, true) != 0 && line[0] != '.') {
        // The last character is the line feed; a line cut at its size loses one more.
        line[line[0] != '\0' ? strlen(line) - 1 : 0] = '\0';
        if (line[0] == '#') {
            clear_board(pos);
        }
        edit_pieces(pos, line);
    }
    complete_position(pos);
    print_board(pos);
}
