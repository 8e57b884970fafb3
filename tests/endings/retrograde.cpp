// Solving by layers: pawns only move forward, so the positions with pawns further on come first.
// In a layer the moves that capture or move a pawn are looked up; from the positions which these
// and the mates decide, quiet moves are taken back ply by ply.
#include "retrograde.h"

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

static constexpr char letters[] = "KQRBNP";
static constexpr i32 longest = 120;      // plies that an EndingValue can hold
static constexpr u8 drawn_escape = 0x80; // in Work.quiet: a capture or pawn move draws

// ---- Geometry

struct Geometry {
    u64 reach[EndPawn][64]; // on an empty board
    u64 between[64][64];
    u64 pawn_hits[2][64];
};

static u64 square_bit(i32 square)
{
    return 1ULL << square;
}

// The square some steps away, or -1 beyond the edge.
static i32 shifted(i32 square, i32 files, i32 ranks)
{
    const i32 file = (square & 7) + files;
    const i32 rank = (square >> 3) + ranks;
    return file < 0 || file > 7 || rank < 0 || rank > 7 ? -1 : 8 * rank + file;
}

static void add_step(u64* set, i32 from, i32 files, i32 ranks)
{
    const i32 to = shifted(from, files, ranks);
    if (to >= 0) {
        *set |= square_bit(to);
    }
}

static void add_line(Geometry* geometry, i32 from, i32 files, i32 ranks)
{
    u64 passed = 0;
    for (i32 to = shifted(from, files, ranks); to >= 0; to = shifted(to, files, ranks)) {
        geometry->between[from][to] = passed;
        passed |= square_bit(to);
    }
    geometry->reach[files == 0 || ranks == 0 ? EndRook : EndBishop][from] |= passed;
    geometry->reach[EndQueen][from] |= passed;
}

static Geometry make_geometry()
{
    Geometry geometry = {};
    for (i32 from = 0; from < 64; ++from) {
        for (i32 direction = 0; direction < 9; ++direction) {
            const i32 files = direction % 3 - 1;
            const i32 ranks = direction / 3 - 1;
            if (files == 0 && ranks == 0) {
                continue;
            }
            add_step(&geometry.reach[EndKing][from], from, files, ranks);
            add_line(&geometry, from, files, ranks);
            if (files != 0 && ranks != 0) {
                add_step(&geometry.reach[EndKnight][from], from, 2 * files, ranks);
                add_step(&geometry.reach[EndKnight][from], from, files, 2 * ranks);
                add_step(&geometry.pawn_hits[ranks < 0][from], from, files, ranks);
            }
        }
    }
    return geometry;
}

static const Geometry geometry = make_geometry();

static u64 occupied_by(const EndingBoard& board)
{
    u64 set = 0;
    for (i32 i = 0; i < board.count; ++i) {
        set |= square_bit(board.square[i]);
    }
    return set;
}

// Whether a piece of side attacks the square, with the given squares occupied.
static bool is_hit(const EndingBoard& board, i32 side, i32 square, u64 occupied, i32 left_out)
{
    for (i32 i = 0; i < board.count; ++i) {
        if (board.side[i] != side || i == left_out) {
            continue;
        }
        const i32 from = board.square[i];
        const u64 reach = board.type[i] == EndPawn ? geometry.pawn_hits[side][from]
                                                   : geometry.reach[board.type[i]][from];
        if ((reach & square_bit(square)) != 0 && (geometry.between[from][square] & occupied) == 0) {
            return true;
        }
    }
    return false;
}

static i32 king_of(const EndingBoard& board, i32 side)
{
    for (i32 i = 0; i < board.count; ++i) {
        if (board.side[i] == side && board.type[i] == EndKing) {
            return board.square[i];
        }
    }
    abort();
}

static bool is_legal_board(const EndingBoard& board)
{
    const u64 occupied = occupied_by(board);
    if (std::popcount(occupied) != board.count) {
        return false;
    }
    for (i32 i = 0; i < board.count; ++i) {
        if (board.type[i] == EndPawn && (board.square[i] < 8 || board.square[i] >= 56)) {
            return false;
        }
    }
    return !is_hit(board, board.mover, king_of(board, board.mover ^ 1), occupied, -1);
}

// ---- Moves

static bool keeps_king_safe(const EndingBoard& board, u64 occupied, const EndingMove& move)
{
    const i32 from = board.square[move.piece];
    const bool king = board.type[move.piece] == EndKing;
    const u64 after = (occupied & ~square_bit(from)) | square_bit(move.to);
    return !is_hit(
        board, board.mover ^ 1, king ? move.to : king_of(board, board.mover), after, move.captured);
}

// Calls visit for each legal move of one piece to one square, promotions one by one.
template <typename Visit>
static void visit_move(
    const EndingBoard& board, u64 occupied, i32 piece, i32 to, i32 captured, Visit visit)
{
    EndingMove move = { static_cast<u8>(piece), static_cast<u8>(to), static_cast<i8>(captured),
        EndKing };
    if (!keeps_king_safe(board, occupied, move)) {
        return;
    }
    if (board.type[piece] != EndPawn || (to >= 8 && to < 56)) {
        visit(move);
        return;
    }
    for (u8 type = EndQueen; type <= EndKnight; ++type) {
        move.promotion = type;
        visit(move);
    }
}

template <typename Visit>
static void visit_pawn_steps(const EndingBoard& board, u64 occupied, i32 piece, Visit visit)
{
    const i32 step = board.mover == 0 ? 8 : -8;
    const i32 to = board.square[piece] + step;
    if ((occupied & square_bit(to)) != 0) {
        return;
    }
    visit_move(board, occupied, piece, to, -1, visit);
    const bool at_home = (board.square[piece] >> 3) == (board.mover == 0 ? 1 : 6);
    if (at_home && (occupied & square_bit(to + step)) == 0) {
        visit_move(board, occupied, piece, to + step, -1, visit);
    }
}

template <typename Visit>
static void visit_captures(
    const EndingBoard& board, u64 occupied, i32 piece, u64 reach, Visit visit)
{
    for (i32 other = 0; other < board.count; ++other) {
        const i32 to = board.square[other];
        if (board.side[other] != board.mover && (reach & square_bit(to)) != 0
            && (geometry.between[board.square[piece]][to] & occupied) == 0) {
            visit_move(board, occupied, piece, to, other, visit);
        }
    }
}

template <typename Visit>
static void visit_quiets(const EndingBoard& board, u64 occupied, i32 piece, u64 reach, Visit visit)
{
    for (u64 set = reach & ~occupied; set != 0; set &= set - 1) {
        const i32 to = std::countr_zero(set);
        if ((geometry.between[board.square[piece]][to] & occupied) == 0) {
            visit_move(board, occupied, piece, to, -1, visit);
        }
    }
}

template <typename Visit>
static void visit_moves(const EndingBoard& board, Visit visit)
{
    const u64 occupied = occupied_by(board);
    for (i32 piece = 0; piece < board.count; ++piece) {
        if (board.side[piece] != board.mover) {
            continue;
        }
        const i32 from = board.square[piece];
        if (board.type[piece] == EndPawn) {
            visit_captures(board, occupied, piece, geometry.pawn_hits[board.mover][from], visit);
            visit_pawn_steps(board, occupied, piece, visit);
        } else {
            const u64 reach = geometry.reach[board.type[piece]][from];
            visit_captures(board, occupied, piece, reach, visit);
            visit_quiets(board, occupied, piece, reach, visit);
        }
    }
}

std::vector<EndingMove> moves_of(const EndingBoard& board)
{
    std::vector<EndingMove> moves;
    visit_moves(board, [&](const EndingMove& move) { moves.push_back(move); });
    return moves;
}

static void remove_piece(EndingBoard* board, i32 piece)
{
    --board->count;
    for (i32 i = piece; i < board->count; ++i) {
        board->side[i] = board->side[i + 1];
        board->type[i] = board->type[i + 1];
        board->square[i] = board->square[i + 1];
    }
}

EndingBoard board_after(const EndingBoard& board, const EndingMove& move)
{
    EndingBoard after = board;
    after.mover ^= 1;
    after.square[move.piece] = move.to;
    if (move.promotion != EndKing) {
        after.type[move.piece] = move.promotion;
    }
    if (move.captured >= 0) {
        remove_piece(&after, move.captured);
    }
    return after;
}

// ---- Numbers of positions

// Squares that the first piece needs once its mirror images are left out.
static i32 first_squares(const Ending* ending)
{
    return ending->pawns > 0 ? 24 : 16;
}

static i32 first_number(const Ending* ending, i32 square)
{
    const i32 rank = square >> 3;
    return 4 * (ending->pawns > 0 ? rank - 1 : rank) + (square & 7);
}

static i32 first_square(const Ending* ending, i32 number)
{
    return 8 * (number / 4 + (ending->pawns > 0 ? 1 : 0)) + number % 4;
}

// The number of the position with the pieces of the ending on these squares.
static u32 number_of(const Ending* ending, const u8* square, i32 mover)
{
    i32 mirror = (square[0] & 7) > 3 ? 7 : 0;
    if (ending->pawns == 0 && square[0] >= 32) {
        mirror ^= 56;
    }
    u32 number = static_cast<u32>(first_number(ending, square[0] ^ mirror));
    for (i32 i = 1; i < ending->pieces.count; ++i) {
        number = 64 * number + static_cast<u32>(square[i] ^ mirror);
    }
    return 2 * number + static_cast<u32>(mover);
}

EndingBoard board_of(const Ending* ending, u32 number)
{
    EndingBoard board = ending->pieces;
    board.mover = static_cast<i32>(number & 1);
    number /= 2;
    for (i32 i = board.count - 1; i > 0; --i) {
        board.square[i] = static_cast<u8>(number % 64);
        number /= 64;
    }
    board.square[0] = static_cast<u8>(first_square(ending, static_cast<i32>(number)));
    return board;
}

// ---- Materials

// A number for what stands on the board: how many pieces of each kind, two bits each. flip
// exchanges the sides.
static u32 material_of(const EndingBoard& board, i32 flip)
{
    u32 material = 0;
    for (i32 i = 0; i < board.count; ++i) {
        material += 1U << (2 * (board.type[i] + 6 * (board.side[i] ^ flip)));
    }
    return material;
}

static std::map<u32, std::unique_ptr<Ending>> solved;

static const Ending* solved_ending(const EndingBoard& board, i32 flip)
{
    const auto found = solved.find(material_of(board, flip));
    return found == solved.end() ? nullptr : found->second.get();
}

// The squares of the board in the ending's order.
static void order_squares(const Ending* ending, const EndingBoard& board, i32 flip, u8* square)
{
    u32 used = 0;
    for (i32 i = 0; i < board.count; ++i) {
        for (i32 j = 0; j < board.count; ++j) {
            if ((used >> j & 1) == 0 && ending->pieces.type[i] == board.type[j]
                && ending->pieces.side[i] == (board.side[j] ^ flip)) {
                used |= 1U << j;
                square[i] = static_cast<u8>(board.square[j] ^ (flip != 0 ? 56 : 0));
                break;
            }
        }
    }
}

EndingValue value_of(const EndingBoard& board)
{
    if (board.count == 2) {
        return 0;
    }
    i32 flip = 0;
    const Ending* ending = solved_ending(board, 0);
    if (ending == nullptr) {
        flip = 1;
        ending = solved_ending(board, 1);
    }
    if (ending == nullptr) {
        fprintf(stderr, "a position of a material that is not solved\n");
        abort();
    }
    u8 square[ending_pieces];
    order_squares(ending, board, flip, square);
    return ending->value[number_of(ending, square, board.mover ^ flip)];
}

// ---- Solving

struct Work {
    Ending* ending;
    std::vector<u8> quiet;                 // legal quiet moves that are not known to lose
    std::vector<std::vector<u32>> decided; // by plies
};

static void decide(Work* work, u32 number, bool win, i32 plies)
{
    if (plies > longest) {
        fprintf(stderr, "%s: a distance beyond %d\n", work->ending->name.c_str(), longest);
        abort();
    }
    work->ending->value[number] = static_cast<EndingValue>(win ? plies : -1 - plies);
    work->decided[static_cast<size_t>(plies)].push_back(number);
}

// Outcomes in rising order, for the side that moved.
enum Outcome { NoOutcome, Lost, Drawn, Won };

static Outcome outcome_for_opponent(EndingValue value)
{
    return is_win(value) ? Lost : is_loss(value) ? Won : Drawn;
}

// The value that an answer en passant gives the mover of a double step, which may be better for
// the opponent than all others or the only one he has.
static Outcome with_en_passant(const EndingBoard& after, i32 pawn_square, EndingValue value)
{
    Outcome outcome = outcome_for_opponent(value);
    const i32 passed = pawn_square + (after.mover == 0 ? 8 : -8);
    bool only_answer = value == ending_stalemate;
    for (i32 i = 0; i < after.count; ++i) {
        const u64 hits = geometry.pawn_hits[after.mover][after.square[i]];
        if (after.side[i] != after.mover || after.type[i] != EndPawn
            || (hits & square_bit(passed)) == 0) {
            continue;
        }
        EndingBoard taken = after;
        taken.square[i] = static_cast<u8>(passed);
        taken.mover ^= 1;
        for (i32 j = taken.count - 1; j >= 0; --j) {
            if (taken.square[j] == pawn_square) {
                remove_piece(&taken, j);
            }
        }
        if (!is_legal_board(taken)) {
            continue;
        }
        const EndingValue answer = value_of(taken);
        const Outcome mine = is_win(answer) ? Won : is_loss(answer) ? Lost : Drawn;
        outcome = only_answer || mine < outcome ? mine : outcome;
        only_answer = false;
    }
    return outcome;
}

static Outcome outcome_of_zeroing(const EndingBoard& board, const EndingMove& move)
{
    const EndingBoard after = board_after(board, move);
    const EndingValue value = value_of(after);
    const i32 distance = move.to - board.square[move.piece];
    if (board.type[move.piece] == EndPawn && (distance == 16 || distance == -16)) {
        return with_en_passant(after, move.to, value);
    }
    return outcome_for_opponent(value);
}

// Judges a position by what can be known without the others of its layer.
static void examine(Work* work, u32 number)
{
    const EndingBoard board = board_of(work->ending, number);
    if (!is_legal_board(board)) {
        work->ending->value[number] = ending_illegal;
        return;
    }
    Outcome best = NoOutcome;
    u8 quiet = 0;
    visit_moves(board, [&](const EndingMove& move) {
        if (is_zeroing(board, move)) {
            const Outcome outcome = outcome_of_zeroing(board, move);
            best = outcome > best ? outcome : best;
        } else {
            ++quiet;
        }
    });
    work->quiet[number] = best == Drawn ? quiet | drawn_escape : quiet;
    if (best == Won) {
        decide(work, number, true, 1);
    } else if (quiet == 0 && best == Lost) {
        decide(work, number, false, 1);
    } else if (quiet == 0 && best == NoOutcome) {
        const i32 king = king_of(board, board.mover);
        if (is_hit(board, board.mover ^ 1, king, occupied_by(board), -1)) {
            decide(work, number, false, 0);
        } else {
            work->ending->value[number] = ending_stalemate;
        }
    }
}

// What a decided position, so many plies from the end, tells of one before it.
static void tell_predecessor(Work* work, u32 number, bool lost, i32 plies)
{
    if (work->ending->value[number] != 0) {
        return;
    }
    if (lost) {
        decide(work, number, true, plies + 1);
    } else if (--work->quiet[number] == 0) {
        decide(work, number, false, plies + 1);
    }
}

// Takes back the quiet moves that lead to a position. Whether the position before is legal is
// known from its own examination.
static void take_back(Work* work, u32 number, i32 plies)
{
    EndingBoard board = board_of(work->ending, number);
    const bool lost = is_loss(work->ending->value[number]);
    const u64 occupied = occupied_by(board);
    for (i32 piece = 0; piece < board.count; ++piece) {
        if (board.side[piece] == board.mover || board.type[piece] == EndPawn) {
            continue;
        }
        const u8 to = board.square[piece];
        u64 set = geometry.reach[board.type[piece]][to] & ~occupied;
        for (; set != 0; set &= set - 1) {
            const i32 from = std::countr_zero(set);
            if ((geometry.between[to][from] & occupied) != 0) {
                continue;
            }
            board.square[piece] = static_cast<u8>(from);
            tell_predecessor(
                work, number_of(work->ending, board.square, board.mover ^ 1), lost, plies);
        }
        board.square[piece] = to;
    }
}

// Steps that the pawns of a block of positions have made together; a block is the positions with
// the same pawn squares, -1 if a pawn stands where none can.
static i32 layer_of(const Ending* ending, u32 block, u32 block_size)
{
    const EndingBoard board = board_of(ending, block * block_size);
    i32 steps = 0;
    for (i32 i = 0; i < ending->pawns; ++i) {
        const i32 rank = board.square[i] >> 3;
        if (rank == 0 || rank == 7) {
            return -1;
        }
        steps += board.side[i] == 0 ? rank : 7 - rank;
    }
    return steps;
}

static void solve_layer(Work* work, i32 layer, u32 block_size)
{
    Ending* ending = work->ending;
    work->decided.assign(longest + 1, {});
    for (u32 block = 0; block * block_size < ending->value.size(); ++block) {
        if (layer_of(ending, block, block_size) != layer) {
            continue;
        }
        for (u32 i = 0; i < block_size; ++i) {
            examine(work, block * block_size + i);
        }
    }
    for (i32 plies = 0; plies <= longest; ++plies) {
        // The list of the next ply grows meanwhile, this one does not.
        for (const u32 number : work->decided[static_cast<size_t>(plies)]) {
            take_back(work, number, plies);
        }
    }
}

static u32 block_size_of(const Ending* ending)
{
    u32 size = 2;
    for (i32 i = ending->pawns == 0 ? 1 : ending->pawns; i < ending->pieces.count; ++i) {
        size *= 64;
    }
    return ending->pawns == 0 ? size * 16 : size;
}

static void solve_itself(Ending* ending)
{
    size_t size = static_cast<size_t>(2 * first_squares(ending));
    for (i32 i = 1; i < ending->pieces.count; ++i) {
        size *= 64;
    }
    ending->value.assign(size, 0);
    Work work = { ending, std::vector<u8>(size), {} };
    const u32 block_size = block_size_of(ending);
    for (i32 layer = 6 * ending->pawns; layer >= ending->pawns; --layer) {
        solve_layer(&work, layer, block_size);
    }
    if (ending->pawns > 0) {
        for (u32 number = 0; number < size; ++number) {
            if (layer_of(ending, number / block_size, block_size) < 0) {
                ending->value[number] = ending_illegal;
            }
        }
    }
}

static void solve_material(const EndingBoard& pieces);

// Solves what a capture of each piece, or a promotion of each pawn, leads to.
static void solve_successors(const EndingBoard& pieces)
{
    for (i32 i = 0; i < pieces.count; ++i) {
        EndingBoard next = pieces;
        if (pieces.type[i] == EndPawn) {
            for (u8 type = EndQueen; type <= EndKnight; ++type) {
                next.type[i] = type;
                solve_material(next);
            }
        }
        next = pieces;
        if (pieces.type[i] != EndKing) {
            remove_piece(&next, i);
            solve_material(next);
        }
    }
}

static std::string name_of(const EndingBoard& pieces)
{
    std::string name;
    for (i32 side = 0; side < 2; ++side) {
        for (u8 type = EndKing; type <= EndPawn; ++type) {
            for (i32 i = 0; i < pieces.count; ++i) {
                if (pieces.side[i] == side && pieces.type[i] == type) {
                    name += letters[type];
                }
            }
        }
        name += side == 0 ? "v" : "";
    }
    return name;
}

static void add_pieces(EndingBoard* to, const EndingBoard& from, bool pawns)
{
    for (i32 i = 0; i < from.count; ++i) {
        if ((from.type[i] == EndPawn) == pawns) {
            to->side[to->count] = from.side[i];
            to->type[to->count] = from.type[i];
            ++to->count;
        }
    }
}

static void solve_material(const EndingBoard& pieces)
{
    if (pieces.count == 2 || solved_ending(pieces, 0) != nullptr
        || solved_ending(pieces, 1) != nullptr) {
        return;
    }
    solve_successors(pieces);
    auto ending = std::make_unique<Ending>();
    ending->name = name_of(pieces);
    ending->pieces = {};
    add_pieces(&ending->pieces, pieces, true);
    ending->pawns = ending->pieces.count;
    add_pieces(&ending->pieces, pieces, false);
    Ending* entered = ending.get();
    // Pawn steps look their own material up, so it is entered before it is solved.
    solved[material_of(pieces, 0)] = std::move(ending);
    solve_itself(entered);
}

const Ending* solve_ending(const std::string& name)
{
    EndingBoard pieces = {};
    u8 side = 0;
    for (const char letter : name) {
        if (letter == 'v') {
            side = 1;
            continue;
        }
        const size_t type = std::string(letters).find(letter);
        if (type == std::string::npos || pieces.count == ending_pieces) {
            fprintf(stderr, "%s cannot be solved\n", name.c_str());
            abort();
        }
        pieces.side[pieces.count] = side;
        pieces.type[pieces.count++] = static_cast<u8>(type);
    }
    solve_material(pieces);
    return solved_ending(pieces, 0);
}
