// The walk keeps a byte and a half-move number for each record in memory; the positions that are
// still to be looked at lie in files without a name, one for each of the next half-moves.
#include "data/book_walk.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "board/moves.h"
#include "book/polyglot.h"
#include "data/blocks.h"
#include "data/nameless.h"

static constexpr size_t nodes_of_piece = 16;

// A position of the book that is to be looked at.
struct WalkNode {
    u64 first; // index of its first record; of no meaning at the start
    PackedPosition position;
    u8 modes;    // by which it was met now
    u8 is_first; // never met before
};

// A position of the book that a move or two lead to.
struct WalkHit {
    WalkNode node;
    u8 steps; // half-moves
};

using WalkPiece = std::vector<WalkNode>;

struct WalkResult {
    WalkPiece nodes;
    std::vector<WalkHit> hits;
    std::vector<OddEntry> odd;
    bool failed = false; // a record could not be read
};

// Positions of one half-move number.
struct Frontier {
    OwnedFile file;
    u64 count = 0;
    u64 taken = 0;
};

// ---- Positions

PackedPosition pack_position(const Position* pos)
{
    PackedPosition packed;
    for (size_t i = 0; i < sizeof packed.squares; ++i) {
        packed.squares[i] = static_cast<u8>(pos->board[2 * i] | pos->board[2 * i + 1] << 4);
    }
    packed.stm = pos->stm;
    packed.castle = pos->castle;
    packed.ep_square = pos->ep_square;
    return packed;
}

void unpack_position(const PackedPosition& packed, BookBench* bench)
{
    Position* pos = &bench->pos;
    pos->stack = &bench->stack;
    pos->thread = nullptr;
    clear_board(pos);
    for (i32 square = 0; square < NoSquare; ++square) {
        const i32 code = packed.squares[square / 2] >> (4 * (square % 2)) & 15;
        if (code != 0) {
            put_piece(pos, square, code);
        }
    }
    pos->stm = packed.stm;
    pos->castle = packed.castle;
    pos->ep_square = packed.ep_square;
    pos->key = compute_key(pos);
    pos->pawn_key = compute_pawn_key(pos);
}

// ---- Moves

static std::string describe(const Position* pos, u16 book_move)
{
    char fen[fen_size];
    make_fen(pos, fen);
    return book_move_text(book_move) + " in " + fen;
}

// What stands for castling in a book is the king's way onto its rook; the engine takes a rook's
// way of the same squares for castling, too, and the king's own two squares.
OddEntry judge_entry(Position* pos, u16 book_move, Move* move)
{
    *move = book_move_to_move(book_move);
    const i32 from = from_square(*move);
    const i32 named_to = book_move & 63;
    const bool is_king = type_of(pos->board[from]) == King;
    const bool is_turned = to_square(*move) != named_to;
    OddEntry odd;
    odd.book_move = book_move;
    if (!is_playable(pos, *move)) {
        odd.is_illegal = true;
        odd.reason = "illegal move";
        *move = NoMove;
    } else if (is_turned && !is_king) {
        odd.is_illegal = true;
        odd.reason = "a rook's move that stands for castling";
        *move = NoMove;
    } else if (is_king && !is_turned && abs(to_square(*move) - from) == 2) {
        odd.reason = "castling as a king's move of two squares";
    }
    if (odd.reason != nullptr) {
        odd.detail = describe(pos, book_move);
    }
    return odd;
}

// Looks for the position on the board, and notes it where the book has it.
static void note_hit(
    const BookWalk& walk, const Position* pos, u64 key, u8 mode, u8 steps, WalkResult* result)
{
    const i64 first = find_key(*walk.index, *walk.book, key);
    if (first >= 0) {
        result->hits.push_back({ { static_cast<u64>(first), pack_position(pos), mode, 0 }, steps });
    }
}

// Looks for what any legal move of the side to move leads to. Whether a move is legal is asked only
// of the few that lead into the book.
static void note_replies(const BookWalk& walk, Position* pos, const BookBoard& board, u8 mode,
    u8 steps, WalkResult* result)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        make_move(pos, entry->move);
        BookBoard after = board;
        const u64 key = next_book_key(pos, &after);
        const bool may_hold = may_hold_key(*walk.index, key);
        unmake_move(pos);
        if (may_hold && is_legal_move(pos, pos->stm, entry->move)) {
            make_move(pos, entry->move);
            note_hit(walk, pos, key, mode, steps, result);
            unmake_move(pos);
        }
    }
}

static constexpr u8 keeping_mode(i32 side)
{
    return side == White ? WhiteKeeps : BlackKeeps;
}

// Goes over the moves of a position of the book.
static void expand_node(
    const BookWalk& walk, const WalkNode& node, BookBench* bench, WalkResult* result)
{
    BookEntry entries[max_book_entries];
    const i32 count = read_group(*walk.book, node.first, entries);
    result->failed |= count == 0;
    unpack_position(node.position, bench);
    Position* pos = &bench->pos;
    const u8 keeping = keeping_mode(pos->stm);
    BookBoard board = {};
    next_book_key(pos, &board);
    for (i32 i = 0; i < count; ++i) {
        Move move;
        OddEntry odd = judge_entry(pos, entries[i].move, &move);
        if (odd.reason != nullptr && node.is_first != 0) {
            odd.index = node.first + static_cast<u64>(i);
            result->odd.push_back(std::move(odd));
        }
        if (move == NoMove || entries[i].weight == 0) {
            continue;
        }
        make_move(pos, move);
        BookBoard after = board;
        const u64 key = next_book_key(pos, &after);
        if ((node.modes & BothKeep) != 0) {
            note_hit(walk, pos, key, BothKeep, 1, result);
        }
        if ((node.modes & keeping) != 0) {
            note_replies(walk, pos, after, keeping, 2, result);
        }
        unmake_move(pos);
    }
}

// The start: where the side to move makes any move, the positions behind it belong to the other
// side's walk.
static void expand_start(const BookWalk& walk, BookBench* bench, WalkResult* result)
{
    unpack_position(pack_position(&walk.start), bench);
    Position* pos = &bench->pos;
    BookBoard board = {};
    const u64 key = next_book_key(pos, &board);
    const u8 own = static_cast<u8>(walk.modes & (BothKeep | keeping_mode(pos->stm)));
    if (own != 0) {
        note_hit(walk, pos, key, own, 0, result);
    }
    const u8 others = static_cast<u8>(walk.modes & keeping_mode(pos->stm ^ 1));
    if (others != 0) {
        note_replies(walk, pos, board, others, 1, result);
    }
}

// ---- The walk

struct WalkState {
    const BookWalk* walk;
    BookReach* reach;
    Report* report;
    Frontier frontiers[3] {}; // of this half-move, the next, and the one after that
    u64 reached = 0;
    bool good = true;
};

// Takes what was found by one piece of a frontier into the next ones, in the order of the pieces.
static void take_hits(WalkState* state, const WalkResult& result, i64 ply)
{
    for (const WalkHit& hit : result.hits) {
        WalkNode node = hit.node;
        u8* modes = &state->reach->modes[node.first];
        node.modes &= static_cast<u8>(~*modes);
        const i64 hit_ply = ply + hit.steps;
        if (node.modes == 0 || hit_ply > state->walk->max_ply) {
            continue;
        }
        u16* known = &state->reach->plies[node.first];
        node.is_first = *known == never_reached;
        *modes |= node.modes;
        *known = std::min(*known, static_cast<u16>(hit_ply));
        state->reached += node.is_first;
        Frontier* frontier = &state->frontiers[hit.steps];
        fwrite(&node, sizeof node, 1, frontier->file.get());
        ++frontier->count;
    }
}

static bool take_piece(Frontier* frontier, WalkPiece* piece)
{
    const u64 left = frontier->count - frontier->taken;
    piece->resize(std::min<u64>(left, nodes_of_piece));
    const size_t size = piece->size() * sizeof(WalkNode);
    const i64 offset = static_cast<i64>(frontier->taken * sizeof(WalkNode));
    piece->resize(read_at(frontier->file.get(), offset, piece->data(), size) / sizeof(WalkNode));
    frontier->taken += piece->size();
    return !piece->empty();
}

static bool hand_on_result(WalkState* state, const WalkResult& result, i64 ply)
{
    const BookWalk& walk = *state->walk;
    for (const WalkNode& node : result.nodes) {
        if (node.is_first != 0 && walk.visit) {
            BookBench bench;
            unpack_position(node.position, &bench);
            walk.visit(&bench.pos, static_cast<u16>(ply), node.first);
        }
    }
    for (const OddEntry& odd : result.odd) {
        if (odd.is_illegal) {
            state->reach->modes[odd.index] |= illegal_entry;
        }
        if (walk.tell_odd) {
            walk.tell_odd(odd);
        }
    }
    take_hits(state, result, ply);
    show_stage_progress(&state->report->progress, "positions reached", state->reached);
    if (result.failed) {
        fail_file(state->report, walk.book->name, "cannot be read to its end", 0);
        state->good = false;
    }
    return state->good;
}

static void walk_frontier(WalkState* state, i64 ply)
{
    const auto take = [&](WalkPiece* piece) { return take_piece(&state->frontiers[0], piece); };
    const auto work = [&](WalkPiece* piece, WalkResult* result) {
        BookBench bench;
        for (const WalkNode& node : *piece) {
            expand_node(*state->walk, node, &bench, result);
        }
        result->nodes = std::move(*piece);
    };
    const auto hand_on = [&](WalkResult* result) { return hand_on_result(state, *result, ply); };
    work_in_order<WalkPiece, WalkResult>(state->walk->jobs, take, work, hand_on);
}

bool walk_book(const BookWalk& walk, BookReach* reach, Report* report)
{
    reach->plies.assign(walk.book->count, never_reached);
    reach->modes.assign(walk.book->count, 0);
    WalkState state { .walk = &walk, .reach = reach, .report = report };
    // Most books are reached nearly whole; of others the walk ends earlier than is expected.
    start_progress_stage(&report->progress, static_cast<i64>(walk.index->positions));
    for (Frontier& frontier : state.frontiers) {
        frontier.file = open_nameless_file(report);
        if (frontier.file == nullptr) {
            return false;
        }
    }
    {
        BookBench bench;
        WalkResult start;
        expand_start(walk, &bench, &start);
        take_hits(&state, start, 0);
    }
    for (i64 ply = 0; state.good && (state.frontiers[0].count > 0 || state.frontiers[1].count > 0);
         ++ply) {
        for (Frontier& frontier : state.frontiers) {
            state.good &= flush_nameless(frontier.file.get(), report);
        }
        if (!state.good) {
            break;
        }
        walk_frontier(&state, ply);
        Frontier* done = &state.frontiers[0];
        clear_nameless(done->file.get());
        done->count = 0;
        done->taken = 0;
        std::rotate(state.frontiers, state.frontiers + 1, state.frontiers + 3);
    }
    return state.good;
}
