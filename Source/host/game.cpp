// The rules of chess, asked before the engine is: nothing reaches it that it would take wrongly.
#include "host/game.h"

#include <algorithm>
#include <span>

#include "board/defect.h"
#include "board/moves.h"
#include "board/notation.h"
#include "host/text.h"

// The engine reads lines of up to 4999 characters; some room stays.
static constexpr size_t longest_position_line = 4900;
static constexpr i64 highest_counter = 9999; // of half-moves and moves in a position text

// ---- The text of a position

// Whether a castling field names a right that the classical game does not know: by the file of a
// rook, or with king or rook on other squares than at home. A right without any rook on its side is
// a slip that many programs make, and no sign of another game.
static bool is_other_castling(const Position* pos, std::string_view field)
{
    constexpr i32 king_file = 4;
    if (field == "-") {
        return false;
    }
    for (const char letter : field) {
        const bool white = letter == 'K' || letter == 'Q';
        if (!white && letter != 'k' && letter != 'q') {
            return true;
        }
        const i32 side = white ? White : Black;
        const i32 home = side == White ? 0 : 56;
        const u64 rank = u64 { 255 } << home;
        const u64 king = bit(home + king_file);
        const bool short_side = letter == 'K' || letter == 'k';
        const u64 wing = rank & (short_side ? ~(king | (king - 1)) : king - 1);
        const u64 corner = bit(home + (short_side ? 7 : 0));
        const u64 rooks = pos->bb[side][Rook] & wing;
        const bool king_moved = (pos->bb[side][King] & king) == 0;
        if (rooks != 0 && (king_moved || (rooks & corner) == 0)) {
            return true;
        }
    }
    return false;
}

// Reads the position text that words begins with and cuts it off. Returns the defect of the text,
// or an empty one.
static std::string read_start(HostGame* game, std::string_view* words)
{
    const std::string_view kind = take_word(words);
    if (kind == "startpos") {
        parse_epd(&game->pos, start_position);
        game->start = "startpos";
        return "";
    }
    if (kind != "fen") {
        return "a position begins with startpos or fen";
    }
    std::string fields[4];
    for (std::string& field : fields) {
        std::string_view rest = *words;
        const std::string_view word = take_word(&rest);
        if (word.empty() || word == "moves") {
            break;
        }
        field = word;
        *words = rest;
    }
    if (!is_whole_board(fields[0])) {
        return "the board is not eight ranks of eight squares";
    }
    if (fields[1] != "w" && fields[1] != "b") {
        return "the side to move is neither w nor b";
    }
    for (std::string& field : std::span(fields).subspan(2)) {
        if (field.empty()) {
            field.push_back('-');
        }
    }
    const std::string text = fields[0] + ' ' + fields[1] + ' ' + fields[2] + ' ' + fields[3];
    const bool dropped = parse_epd(&game->pos, text.c_str()) != 0;
    if (is_other_castling(&game->pos, fields[2])) {
        return "Chess960 is not supported";
    }
    if (dropped) {
        game->remark = "a castling right without its king or rook is left out";
    }
    if (const char* defect = position_defect(&game->pos)) {
        return defect;
    }
    char fen[fen_size];
    make_fen(&game->pos, fen);
    game->start = std::string("fen ") + fen;
    return "";
}

// ---- Moves

std::string text_of_move(Move move)
{
    char text[8];
    move_text(move, text);
    return text;
}

std::vector<Move> legal_moves(HostGame* game)
{
    MoveEntry list[max_list_moves];
    const MoveEntry* end = gen_moves_into(&game->pos, list);
    std::vector<Move> moves;
    for (const MoveEntry* entry = list; entry < end; ++entry) {
        if (is_legal_move(&game->pos, game->pos.stm, entry->move)) {
            moves.push_back(entry->move);
        }
    }
    return moves;
}

// Some hosts write the letter of a promotion as a capital.
Move find_legal_move(HostGame* game, std::string_view text)
{
    const std::string plain = to_lower(text);
    for (const Move move : legal_moves(game)) {
        if (text_of_move(move) == plain) {
            return move;
        }
    }
    return NoMove;
}

bool is_in_check(const HostGame* game)
{
    const Position* pos = &game->pos;
    return is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
}

// The board behind the move is a new start if nothing before it can come back.
static void play(HostGame* game, Move move)
{
    const std::string text = ' ' + text_of_move(move);
    make_game_move(&game->pos, move);
    game->moves += text;
    ++game->plies;
    game->late_moves += text;
    ++game->late_plies;
    if (game->pos.cnt50 == 0) {
        char fen[fen_size];
        make_fen(&game->pos, fen);
        game->late_start = std::string("fen ") + fen;
        game->late_moves.clear();
        game->late_plies = 0;
    }
}

// Reads the two counters of a position text, from word on, and returns the word behind them. The
// engine counts for itself; they are for whoever wants to see the FEN.
static std::string_view read_counters(
    HostGame* game, std::string_view word, std::string_view* words)
{
    i64 value = 0;
    game->start_half_moves = 0;
    game->start_move = 1;
    if (read_number(word, &value)) {
        game->start_half_moves = static_cast<i32>(std::clamp<i64>(value, 0, highest_counter));
        word = take_word(words);
        if (read_number(word, &value)) {
            game->start_move = static_cast<i32>(std::clamp<i64>(value, 1, highest_counter));
            word = take_word(words);
        }
    }
    return word;
}

std::string whole_fen(const HostGame* game)
{
    char fen[fen_size];
    make_fen(&game->pos, fen);
    const bool no_progress = game->pos.cnt50 >= game->plies;
    const i32 half_moves = game->pos.cnt50 + (no_progress ? game->start_half_moves : 0);
    const bool black_began = (game->pos.stm == Black) == (game->plies % 2 == 0);
    const i32 move = game->start_move + (game->plies + black_began) / 2;
    return std::string(fen) + ' ' + std::to_string(half_moves) + ' ' + std::to_string(move);
}

// Plays the moves of words. Where all can be, the whole text of the game is kept for the line that
// goes on from there.
static void play_moves(HostGame* game, std::string_view whole, std::string_view words)
{
    for (std::string_view word = take_word(&words); !word.empty(); word = take_word(&words)) {
        const Move move = find_legal_move(game, word);
        if (move == NoMove) {
            game->defect = "move " + std::to_string(game->plies + 1) + ", "
                + std::string(shortened(word)) + ", is not legal";
            return;
        }
        play(game, move);
    }
    game->words = whole;
}

// A chess program tells the whole game before each move; only what is new of it is played, or the
// time that goes into a move would grow with the game.
static bool goes_on(const HostGame* game, std::string_view words)
{
    const size_t known = game->words.size();
    return known > 0 && words.starts_with(game->words)
        && (words.size() == known || words[known] == ' ');
}

void set_up_game(HostGame* game, std::string_view words)
{
    const std::string_view whole = words;
    if (goes_on(game, whole)) {
        words.remove_prefix(game->words.size());
        game->words.clear();
        play_moves(game, whole, words);
        return;
    }
    game->words.clear();
    game->pos.stack = &game->stack;
    game->moves.clear();
    game->plies = 0;
    game->late_moves.clear();
    game->late_plies = 0;
    game->remark.clear();
    game->defect = read_start(game, &words);
    if (!game->defect.empty()) {
        return;
    }
    game->late_start = game->start;
    std::string_view word = take_word(&words);
    word = read_counters(game, word, &words);
    while (!word.empty() && word != "moves") {
        word = take_word(&words);
    }
    if (word == "moves") {
        play_moves(game, whole, words);
    }
}

// The board alone, with the clock of the fifty moves at its start, for a game that is beyond them:
// any legal move is better than none, and a draw is there for the claiming anyway.
PositionLine position_line(const HostGame* game)
{
    const bool has_moves = game->plies > 0;
    if (game->pos.cnt50 > fifty_move_plies) {
        char fen[fen_size];
        make_fen(&game->pos, fen);
        return { std::string("position fen ") + fen, 0 };
    }
    const std::string whole = "position " + game->start + (has_moves ? " moves" : "") + game->moves;
    if (whole.size() <= longest_position_line) {
        return { whole, game->plies };
    }
    return { "position " + game->late_start + (game->late_plies > 0 ? " moves" : "")
            + game->late_moves,
        game->late_plies };
}

// ---- A move of one's own

static constexpr i32 mate_worth = 100000; // above any exchange

// What the side to move wins by its best capture; nothing if it has none.
static i32 best_capture(const Position* pos)
{
    i32 best = 0;
    u64 targets = pieces_of(pos, pos->stm ^ 1);
    while (targets != 0) {
        best = std::max(best, swapoff(pos, pos->stm, NoSquare, pop_lowest(&targets)));
    }
    return best;
}

static i32 worth_of_move(HostGame* game, Move move)
{
    Position* pos = &game->pos;
    i32 worth = exchange_value[type_of(pos->board[to_square(move)])];
    make_move(pos, move);
    const bool no_answer = legal_moves(game).empty();
    if (no_answer) {
        worth = is_in_check(game) ? mate_worth : 0;
    } else {
        worth -= best_capture(pos);
    }
    unmake_move(pos);
    if ((move & PromotionMask) != 0 && !no_answer) {
        worth += exchange_value[Queen] - exchange_value[Pawn];
    }
    // Among equals the one towards the middle, as long as it is no king's.
    const i32 to = to_square(move);
    const i32 file = to & 7;
    const i32 rank = to >> 3;
    if (type_of(pos->board[from_square(move)]) != King) {
        worth += std::min(file, 7 - file) + std::min(rank, 7 - rank);
    }
    return worth;
}

Move choose_own_move(HostGame* game)
{
    Move best = NoMove;
    i32 most = 0;
    for (const Move move : legal_moves(game)) {
        const i32 worth = worth_of_move(game, move);
        if (best == NoMove || worth > most) {
            best = move;
            most = worth;
        }
    }
    return best;
}
