// The board tests' own view of the rules: no bit set, no table of the program is used to move.
#include "board_support.h"

#include <algorithm>
#include <cstring>

#include "search/thread.h"

struct Delta {
    i32 file;
    i32 rank;
};

static constexpr Delta lines[8] = { { 0, 1 }, { 1, 0 }, { 0, -1 }, { -1, 0 }, { 1, 1 }, { 1, -1 },
    { -1, -1 }, { -1, 1 } };
static constexpr Delta jumps[8] = { { 1, 2 }, { 2, 1 }, { 2, -1 }, { 1, -2 }, { -1, -2 },
    { -2, -1 }, { -2, 1 }, { -1, 2 } };

static i32 step(i32 square, Delta delta)
{
    const i32 file = square % 8 + delta.file;
    const i32 rank = square / 8 + delta.rank;
    return file >= 0 && file < 8 && rank >= 0 && rank < 8 ? rank * 8 + file : -1;
}

GameState state_of(const Position* pos)
{
    const SearchThread* thread = pos->thread;
    return { *pos, thread->undo_count, thread->ply, thread->last_move };
}

std::string difference(const GameState& a, const GameState& b)
{
    const Position& p = a.pos;
    const Position& q = b.pos;
    if (p.thread != q.thread) {
        return "thread";
    }
    if (memcmp(p.board, q.board, sizeof p.board) != 0) {
        return "board";
    }
    if (memcmp(p.bb, q.bb, sizeof p.bb) != 0) {
        return "bb";
    }
    if (p.key != q.key) {
        return "key";
    }
    if (p.pawn_key != q.pawn_key) {
        return "pawn_key";
    }
    if (memcmp(p.piece_count, q.piece_count, sizeof p.piece_count) != 0) {
        return "piece_count";
    }
    if (memcmp(p.phase_mtl, q.phase_mtl, sizeof p.phase_mtl) != 0) {
        return "phase_mtl";
    }
    if (p.stm != q.stm) {
        return "stm";
    }
    if (p.cnt50 != q.cnt50) {
        return "cnt50";
    }
    if (p.castle != q.castle) {
        return "castle";
    }
    if (p.ep_square != q.ep_square) {
        return "ep_square";
    }
    if (memcmp(p.king_sq, q.king_sq, sizeof p.king_sq) != 0) {
        return "king_sq";
    }
    if (p.spare != q.spare) {
        return "spare";
    }
    if (a.undo_count != b.undo_count) {
        return "undo_count";
    }
    if (a.ply != b.ply) {
        return "ply";
    }
    return a.last_move != b.last_move ? "last_move" : "";
}

KeyPair keys_from_text(const std::string& fen)
{
    static SearchThread* const other = new_thread_record(1);
    parse_epd(&other->pos, fen.c_str());
    return { other->pos.key, other->pos.pawn_key };
}

void set_keys(Position* pos)
{
    pos->key = compute_key(pos);
    pos->pawn_key = compute_pawn_key(pos);
}

void set_random_board(Position* pos, u64* state, i32 pieces)
{
    static constexpr i32 codes[12] = { 1, 2, 3, 4, 5, 6, 9, 10, 11, 12, 13, 14 };
    clear_board(pos);
    pos->stm = static_cast<u8>(next_random(state, 2));
    for (i32 i = 0; i < pieces; ++i) {
        const i32 square = static_cast<i32>(next_random(state, 64));
        put_piece(pos, square, codes[next_random(state, 12)]);
    }
    // Castling and the en-passant square come up more often than by chance alone.
    if (next_random(state, 2) == 0) {
        const i32 side = static_cast<i32>(next_random(state, 2));
        put_piece(pos, 4 + 56 * side, King + 8 * side);
        put_piece(pos, 56 * side + 7 * static_cast<i32>(next_random(state, 2)), Rook + 8 * side);
    }
    pos->ep_square = static_cast<u8>(next_random(state, 65));
    drop_false_castling(pos);
    set_keys(pos);
}

std::vector<std::string> sample_positions(i32 step_size)
{
    std::vector<std::string> texts;
    const auto rows = read_tsv("perft.tsv");
    for (size_t i = 0; i < rows.size(); i += static_cast<size_t>(step_size)) {
        size_t end = 0;
        for (i32 field = 0; field < 4; ++field) {
            end = rows[i][0].find(' ', end + 1);
        }
        texts.push_back(rows[i][0].substr(0, end));
    }
    return texts;
}

u64 slow_between(i32 a, i32 b)
{
    for (const Delta& delta : lines) {
        u64 walked = 0;
        for (i32 square = step(a, delta); square >= 0; square = step(square, delta)) {
            if (square == b) {
                return walked;
            }
            walked |= bit(square);
        }
    }
    return 0;
}

static bool on_line(i32 a, i32 b, i32 first, i32 last)
{
    for (i32 i = first; i <= last; ++i) {
        for (i32 square = step(a, lines[i]); square >= 0; square = step(square, lines[i])) {
            if (square == b) {
                return true;
            }
        }
    }
    return false;
}

bool is_open_line(const Position* pos, i32 a, i32 b)
{
    for (i32 square = 0; square < 64; ++square) {
        if ((slow_between(a, b) & bit(square)) && pos->board[square] != 0) {
            return false;
        }
    }
    return on_line(a, b, 0, 7);
}

bool slow_attacks(const Position* pos, i32 type, i32 side, i32 from, i32 to)
{
    const i32 forward = side == White ? 1 : -1;
    switch (type) {
    case Pawn:
        return step(from, { -1, forward }) == to || step(from, { 1, forward }) == to;
    case Knight:
        return std::any_of(jumps, jumps + 8, [&](Delta d) { return step(from, d) == to; });
    case King:
        return std::any_of(lines, lines + 8, [&](Delta d) { return step(from, d) == to; });
    case Bishop:
        return on_line(from, to, 4, 7) && is_open_line(pos, from, to);
    case Rook:
        return on_line(from, to, 0, 3) && is_open_line(pos, from, to);
    default:
        return is_open_line(pos, from, to);
    }
}

static void add_slow(
    const Position* pos, std::vector<MoveEntry>* moves, i32 from, i32 to, Move flag)
{
    moves->push_back(
        { static_cast<u16>(from * 256 + to + flag), 0, pos->board[from], pos->board[to] });
}

// One pawn move, in its four forms on the last rank.
static void add_slow_pawn(const Position* pos, std::vector<MoveEntry>* moves, i32 from, i32 to)
{
    if (to / 8 != 0 && to / 8 != 7) {
        add_slow(pos, moves, from, to, 0);
        return;
    }
    for (const Move flag : { PromoteQueen, PromoteKnight, PromoteBishop, PromoteRook }) {
        add_slow(pos, moves, from, to, flag);
    }
}

static void slow_pawn_moves(const Position* pos, i32 side, i32 from, std::vector<MoveEntry>* moves)
{
    const i32 forward = side == White ? 1 : -1;
    const i32 ahead = step(from, { 0, forward });
    if (ahead < 0) {
        return;
    }
    if (pos->board[ahead] == 0) {
        add_slow_pawn(pos, moves, from, ahead);
        const i32 further = step(ahead, { 0, forward });
        if (from / 8 == (side == White ? 1 : 6) && pos->board[further] == 0) {
            add_slow(pos, moves, from, further, 0);
        }
    }
    for (const i32 aside : { -1, 1 }) {
        const i32 to = step(from, { aside, forward });
        if (to < 0) {
            continue;
        }
        const i32 victim = pos->board[to];
        if (victim != 0 ? victim / 8 != side : to == pos->ep_square) {
            add_slow_pawn(pos, moves, from, to);
        }
    }
}

static void slow_piece_moves(const Position* pos, i32 side, i32 from, const Delta* deltas,
    i32 count, i32 reach, std::vector<MoveEntry>* moves)
{
    for (i32 i = 0; i < count; ++i) {
        i32 to = from;
        for (i32 walked = 0; walked < reach; ++walked) {
            to = step(to, deltas[i]);
            if (to < 0 || (pos->board[to] != 0 && pos->board[to] / 8 == side)) {
                break;
            }
            add_slow(pos, moves, from, to, 0);
            if (pos->board[to] != 0) {
                break;
            }
        }
    }
}

static void slow_castling(const Position* pos, i32 side, std::vector<MoveEntry>* moves)
{
    const i32 home = side == White ? 4 : 60;
    const u8* board = pos->board;
    if (board[home] != King + 8 * side) {
        return;
    }
    if ((pos->castle & (side == White ? 1 : 4)) && board[home + 1] == 0 && board[home + 2] == 0) {
        add_slow(pos, moves, home, home + 2, 0);
    }
    if ((pos->castle & (side == White ? 2 : 8)) && board[home - 1] == 0 && board[home - 2] == 0
        && board[home - 3] == 0) {
        add_slow(pos, moves, home, home - 2, 0);
    }
}

std::vector<MoveEntry> slow_moves(const Position* pos, i32 side)
{
    std::vector<MoveEntry> moves;
    for (i32 from = 0; from < 64; ++from) {
        const i32 code = pos->board[from];
        if (code == 0 || code / 8 != side) {
            continue;
        }
        switch (code % 8) {
        case Pawn:
            slow_pawn_moves(pos, side, from, &moves);
            break;
        case Knight:
            slow_piece_moves(pos, side, from, jumps, 8, 1, &moves);
            break;
        case Bishop:
            slow_piece_moves(pos, side, from, lines + 4, 4, 7, &moves);
            break;
        case Rook:
            slow_piece_moves(pos, side, from, lines, 4, 7, &moves);
            break;
        case Queen:
            slow_piece_moves(pos, side, from, lines, 8, 7, &moves);
            break;
        default:
            slow_piece_moves(pos, side, from, lines, 8, 1, &moves);
            break;
        }
    }
    slow_castling(pos, side, &moves);
    return moves;
}

bool is_promotion(const MoveEntry& entry)
{
    return (entry.move & PromotionMask) != 0;
}

bool is_plain_capture(const Position* pos, const MoveEntry& entry)
{
    if (is_promotion(entry)) {
        return false;
    }
    const bool en_passant = (entry.moved & 7) == Pawn && to_square(entry.move) == pos->ep_square
        && (to_square(entry.move) - from_square(entry.move)) % 8 != 0;
    return entry.captured != 0 || en_passant;
}

bool is_castling(const MoveEntry& entry)
{
    const i32 way = to_square(entry.move) - from_square(entry.move);
    return (entry.moved & 7) == King && (way == 2 || way == -2);
}

std::string sorted_texts(const std::vector<MoveEntry>& entries)
{
    std::vector<std::string> texts;
    for (const MoveEntry& entry : entries) {
        texts.push_back(text_of(entry.move));
    }
    std::sort(texts.begin(), texts.end());
    std::string joined;
    for (const std::string& text : texts) {
        joined += text + " ";
    }
    return joined;
}
