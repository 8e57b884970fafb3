// One pass per piece type, knights to queens: material, squares, mobility and special terms, and
// the attack sets that the king, passed pawn and threat terms read later.
// The passes run in this order because each type's mobility reads the union of the attacks of
// the enemy's lesser pieces. Queens go by rising square: their double attacks depend on it.
// Scores are in centipawns and go to the owner of the piece. The piece-square tables come in pairs:
// with the kings on opposite wings both sides storm, and other squares are the good ones.
#include "board/tables.h"
#include "eval/terms.h"

// Attack points on the enemy king by piece type, once per piece that reaches the king's zone. The
// bishop's colour spares half of the zone; the queen reaches all of it.
static constexpr i32 attack_points[8] = { 0, 0, 4, 3, 4, 5, 0, 0 };

// Danger of a minor piece without a move on the seventh or eighth rank of its side, in centipawns:
// it took something deep in the enemy's camp and will not come back.
static constexpr i32 trapped_minor_danger = 250;
static constexpr u64 far_ranks[2] = { 0xffff000000000000ULL, 0xffffULL };

// Files c to f of ranks 3 to 6: what happens there reaches both wings.
static constexpr u64 centre_block = 0x3c3c3c3c0000ULL;

// The opponent's half of the board as each side sees it.
static constexpr u64 enemy_half[2] = { 0xffffffff00000000ULL, 0xffffffffULL };

// What the pieces of one side have added up so far. Kept apart from the working record, so that it
// lives in registers while they are gone through one by one: a store into the record makes the
// compiler read again whatever it might have changed.
struct PieceSums {
    u64 all;    // squares attacked by anything
    u64 twice;  // double attacks
    u32 score;  // the score pair of the side
    i32 points; // attack points on the enemy king
};

// What those of one type add, besides. Weights that count once per case are added behind the loop,
// by the number of cases: in it their words would take registers that the sets need.
struct TypeSums {
    u64 attacks;   // squares attacked by the type
    i32 attackers; // pieces that reach the enemy king's zone
};

template <i32 side>
static inline PieceSums begin_pieces(const EvalWork* work)
{
    return { work->attacks[side][0], work->double_attacks[side],
        static_cast<u32>(work->score[side]), work->king_attack[side ^ 1] };
}

// A piece's own value, that of its square and its mobility. table is the first of a pair.
template <i32 side>
static inline u32 place_word(EvalWork* work, i32 table, i32 square, i32 curve, i32 mobility)
{
    const u64 index = static_cast<u64>(square) ^ work->pst_flip[side];
    note_term(work, side, table + work->pst_shift + static_cast<i32>(index), 1.0f, false);
    return static_cast<u32>(work->pst_words[static_cast<u64>(table) + index])
        + fraction_word(work, side, curve, mobility);
}

// Enters a piece's attack set. reach is what it bears on for double attacks and the king's zone:
// the attack set itself for all but queens. Double attacks come first: a piece must not find its
// own attacks there.
static inline void note_attacks(PieceSums* sums, TypeSums* type, u64 zone, u64 attacks, u64 reach)
{
    sums->twice |= sums->all & reach;
    sums->all |= attacks;
    type->attacks |= attacks;
    // Each piece that joins in counts by itself: it is numbers that break a king's defence.
    type->attackers += (reach & zone) != 0;
}

// Leaves what the later terms and the printed table read of a type that has been gone through.
template <i32 side>
static inline void end_type(
    EvalWork* work, i32 type, TallyRow row, PieceSums* sums, const TypeSums* added)
{
    sums->points += attack_points[type] * added->attackers;
    work->attacks[side][type] = added->attacks;
    work->tally[row][side] = static_cast<i32>(sums->score);
}

template <i32 side>
static inline void end_pieces(EvalWork* work, const PieceSums* sums)
{
    work->attacks[side][0] = sums->all;
    work->double_attacks[side] = sums->twice;
    work->score[side] = static_cast<i32>(sums->score);
    work->king_attack[side ^ 1] = static_cast<i16>(sums->points);
}

// A minor piece that cannot move, walled in or caught behind enemy pawns: it takes moves of others
// to free it, and deep in the enemy's camp nothing will.
template <i32 side>
static inline u32 trapped_minor(EvalWork* work, i32 weight, i32 square)
{
    if (far_ranks[side] & bit(square)) {
        add_danger(work, side, trapped_minor_danger);
    }
    return weight_word(work, side, weight);
}

// Material, squares and mobility, then what a knight is for: a stand that nobody can drive it from,
// or the way to one. Mobility counts squares that no enemy pawn guards and no own piece fills, and
// a knight without any is worth little until it gets one.
template <i32 side>
static inline void eval_knights(EvalWork* work, PieceSums* sums)
{
    const Position* pos = work->pos;
    const u64 zone = work->king_zone[side ^ 1];
    const u64 open = ~(pieces_of(pos, side) | work->attacks[side ^ 1][Pawn]);
    const u64 outposts = work->outposts[side];
    const u64 knights = pos->bb[side][Knight];
    TypeSums added = {};
    i32 ways = 0;
    for (u64 left = knights; left != 0;) {
        const i32 square = pop_lowest(&left);
        const u64 attacks = knight_attacks[square];
        note_attacks(sums, &added, zone, attacks, attacks);
        const i32 mobility = popcount(attacks & open);
        sums->score += place_word<side>(work, PST_N1, square, knight_mobility, mobility);
        if (mobility == 0) [[unlikely]] {
            sums->score += trapped_minor<side>(work, knight_trapped, square);
        }
        // A good stand one move away; several of them count once.
        ways += (outposts & attacks) != 0;
    }
    if (knights != 0) {
        sums->score += weight_word(work, side, mtl_knight, popcount(knights));
        sums->score += weight_word(work, side, knight_outpost, popcount(outposts & knights));
        sums->score += weight_word(work, side, knight_outpost_atk, ways);
    }
    end_type<side>(work, Knight, TallyKnights, sums, &added);
}

// As knights; an outpost suits a bishop too, and the centre shows how much of the board its colour
// rules. An own queen does not end its diagonal: the two attack together.
template <i32 side>
static inline void eval_bishops(EvalWork* work, PieceSums* sums)
{
    const Position* pos = work->pos;
    const u64 zone = work->king_zone[side ^ 1];
    const u64 open = ~(pieces_of(pos, side) | work->attacks[side ^ 1][Pawn]);
    const u64 outposts = work->outposts[side];
    // The own queen gives way or goes along.
    const u64 blockers = work->occupied ^ pos->bb[side][Queen];
    const u64 bishops = pos->bb[side][Bishop];
    TypeSums added = {};
    i32 ways = 0;
    i32 centre = 0;
    for (u64 left = bishops; left != 0;) {
        const i32 square = pop_lowest(&left);
        const u64 attacks = bishop_attacks(square, blockers);
        note_attacks(sums, &added, zone, attacks, attacks);
        const i32 mobility = popcount(attacks & open);
        sums->score += place_word<side>(work, PST_B1, square, bishop_mobility, mobility);
        if (mobility == 0) [[unlikely]] {
            sums->score += trapped_minor<side>(work, bishop_trapped, square);
        }
        // Per square of the centre, whoever stands there and guards it.
        centre += popcount(attacks & centre_block);
        // As for knights; a bishop also works from afar, so the way to one matters less.
        ways += (outposts & attacks) != 0;
    }
    if (bishops != 0) {
        sums->score += weight_word(work, side, mtl_bishop, popcount(bishops));
        sums->score += weight_word(work, side, bishop_mob2, centre);
        sums->score += weight_word(work, side, bishop_outpost, popcount(outposts & bishops));
        sums->score += weight_word(work, side, bishop_outpost_atk, ways);
    }
    end_type<side>(work, Bishop, TallyBishops, sums, &added);
    work->attacks_pnb[side] =
        work->attacks[side][Pawn] | work->attacks[side][Knight] | added.attacks;
}

// Rooks want lines: a file without pawns, squares of the enemy's half down their file, and the
// seventh rank while it shuts the enemy king in on the last one or shares the seventh with him.
// Squares that a minor piece guards are none for a rook. Own rooks and queens do not end its line:
// doubled on a file they bear on all of it.
template <i32 side>
static inline void eval_rooks(EvalWork* work, PieceSums* sums)
{
    const Position* pos = work->pos;
    const u64 zone = work->king_zone[side ^ 1];
    // Lesser pieces chase a rook off, so their squares are closed to it; of equals it is not
    // afraid.
    const u64 open = ~(pieces_of(pos, side) | work->attacks_pnb[side ^ 1]);
    // Rooks behind each other or behind the queen push together.
    const u64 rooks = pos->bb[side][Rook];
    const u64 blockers = work->occupied ^ (rooks | pos->bb[side][Queen]);
    TypeSums added = {};
    i32 targets = 0;
    i32 open_files = 0;
    for (u64 left = rooks; left != 0;) {
        const i32 square = pop_lowest(&left);
        const u64 attacks = rook_attacks(square, blockers);
        const u64 file = file_a << file_of(square);
        note_attacks(sums, &added, zone, attacks, attacks);
        const i32 mobility = popcount(attacks & open);
        sums->score += place_word<side>(work, PST_R1, square, rook_mobility, mobility);
        // Mostly a rook between its own king and the corner: it is out of the game.
        if (mobility == 0) [[unlikely]] {
            sums->score += weight_word(work, side, rook_trapped);
        }
        // Per square of the enemy's half that it looks at down its file: there are its targets.
        targets += popcount(attacks & file & enemy_half[side]);
        // Nothing closes the file for good, so the rook will come in on it.
        open_files += (file & work->all_pawns) == 0;
    }
    if (rooks != 0) {
        // It eats pawns from the side and keeps the king on the edge; without him there is no
        // hurry.
        const bool enemy_king_far = (far_ranks[side] & pos->bb[side ^ 1][King]) != 0;
        const u64 seventh = enemy_king_far ? rooks & seventh_rank[side] : 0;
        sums->score += weight_word(work, side, mtl_rook, popcount(rooks));
        sums->score += weight_word(work, side, rook_mob2, targets);
        sums->score += weight_word(work, side, rook_openfile, open_files);
        sums->score += weight_word(work, side, rook_7th, popcount(seventh));
    }
    end_type<side>(work, Rook, TallyRooks, sums, &added);
    work->attacks_pnbr[side] = work->attacks_pnb[side] | added.attacks;
}

// A queen bears on what lies behind own bishops on its diagonals and own rooks on its lines, but
// only for double attacks and the king's zone: where they strike first she backs them up, yet she
// herself cannot go there. No square that a pawn, minor piece or rook guards is one for a queen,
// and a queen without any is about to be lost.
template <i32 side>
static inline void eval_queens(EvalWork* work, PieceSums* sums)
{
    const Position* pos = work->pos;
    const u64 zone = work->king_zone[side ^ 1];
    const u64 open = ~(pieces_of(pos, side) | work->attacks_pnbr[side ^ 1]);
    const u64 bishops = pos->bb[side][Bishop];
    const u64 rooks = pos->bb[side][Rook];
    const u64 queens = pos->bb[side][Queen];
    TypeSums added = {};
    for (u64 left = queens; left != 0;) {
        const i32 square = pop_lowest(&left);
        const u64 diagonals = bishop_attacks(square, work->occupied);
        const u64 lines = rook_attacks(square, work->occupied);
        const u64 attacks = diagonals | lines;
        // Looked at again only where a bishop or rook of her own stands in her sight: it is rare.
        u64 reach = attacks;
        if (diagonals & bishops) {
            reach |= bishop_attacks(square, work->occupied ^ bishops);
        }
        if (lines & rooks) {
            reach |= rook_attacks(square, work->occupied ^ rooks);
        }
        note_attacks(sums, &added, zone, attacks, reach);
        const i32 mobility = popcount(attacks & open);
        sums->score += place_word<side>(work, PST_Q1, square, queen_mobility, mobility);
        // The next attack on her wins her.
        if (mobility == 0) [[unlikely]] {
            sums->score += weight_word(work, side, queen_trapped);
        }
    }
    sums->score += weight_word(work, side, mtl_queen, popcount(queens));
    end_type<side>(work, Queen, TallyQueens, sums, &added);
    work->attacks_pnbrq[side] = work->attacks_pnbr[side] | added.attacks;
}

// What a type reads of the enemy's lesser pieces must be whole by then: rooks ask for his minor
// pieces, queens for his rooks too. In this order no side is left and taken up again more than
// once, so that its sums can stay in registers. As a routine of its own: among the other terms the
// compiler runs out of registers and spills the sums within the loops.
[[gnu::noinline]] void eval_pieces(EvalWork* work)
{
    PieceSums white = begin_pieces<White>(work);
    eval_knights<White>(work, &white);
    eval_bishops<White>(work, &white);
    PieceSums black = begin_pieces<Black>(work);
    eval_knights<Black>(work, &black);
    eval_bishops<Black>(work, &black);
    eval_rooks<Black>(work, &black);
    eval_rooks<White>(work, &white);
    eval_queens<White>(work, &white);
    end_pieces<White>(work, &white);
    eval_queens<Black>(work, &black);
    end_pieces<Black>(work, &black);
}
