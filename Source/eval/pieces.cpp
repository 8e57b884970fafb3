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
static constexpr i16 attack_points[8] = { 0, 0, 4, 3, 4, 5, 0, 0 };

// Danger of a minor piece without a move on the seventh or eighth rank of its side, in centipawns:
// it took something deep in the enemy's camp and will not come back.
static constexpr i32 trapped_minor_danger = 250;
static constexpr u64 far_ranks[2] = { 0xffff000000000000ULL, 0xffffULL };

// Files c to f of ranks 3 to 6: what happens there reaches both wings.
static constexpr u64 centre_block = 0x3c3c3c3c0000ULL;

// The opponent's half of the board as each side sees it.
static constexpr u64 enemy_half[2] = { 0xffffffff00000000ULL, 0xffffffffULL };

// Enters a piece's attack set. reach is what it bears on for double attacks and the king's zone:
// the attack set itself for all but queens. Double attacks come first: a piece must not find its
// own attacks there.
template <i32 side>
static inline void note_attacks(EvalWork* work, i32 type, u64 attacks, u64 reach)
{
    work->double_attacks[side] |= work->attacks[side][0] & reach;
    work->attacks[side][0] |= attacks;
    work->attacks[side][type] |= attacks;
    // Each piece that joins in counts by itself: it is numbers that break a king's defence.
    if (reach & work->king_zone[side ^ 1]) {
        work->king_attack[side ^ 1] =
            static_cast<i16>(work->king_attack[side ^ 1] + attack_points[type]);
    }
}

// Material, squares and mobility, then what a knight is for: a stand that nobody can drive it from,
// or the way to one. Mobility counts squares that no enemy pawn guards and no own piece fills, and
// a knight without any is worth little until it gets one.
template <i32 side>
static void eval_knights(EvalWork* work)
{
    const Position* pos = work->pos;
    const i32 table = work->same_wing ? PST_N1 : PST_N2;
    const u64 open = ~(pieces_of(pos, side) | work->attacks[side ^ 1][Pawn]);
    const u64 outposts = work->outposts[side];
    u64 left = pos->bb[side][Knight];
    add_weight(work, side, mtl_knight, popcount(left));
    work->attacks[side][Knight] = 0;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const u64 attacks = knight_attacks[square];
        note_attacks<side>(work, Knight, attacks, attacks);
        add_weight(work, side, table + work->pst_map[side][square]);
        const i32 mobility = popcount(attacks & open);
        add_fraction(work, side, knight_mobility, mobility);
        // Shut in: it takes moves of others to free it, and deep in the enemy's camp nothing will.
        if (mobility == 0) {
            add_weight(work, side, knight_trapped);
            if (far_ranks[side] & bit(square)) {
                add_danger(work, side, trapped_minor_danger);
            }
        }
        if (outposts & bit(square)) {
            add_weight(work, side, knight_outpost);
        }
        // A good stand one move away; several of them count once.
        if (outposts & attacks) {
            add_weight(work, side, knight_outpost_atk);
        }
    }
}

// As knights; an outpost suits a bishop too, and the centre shows how much of the board its colour
// rules. An own queen does not end its diagonal: the two attack together.
template <i32 side>
static void eval_bishops(EvalWork* work)
{
    const Position* pos = work->pos;
    const i32 table = work->same_wing ? PST_B1 : PST_B2;
    const u64 open = ~(pieces_of(pos, side) | work->attacks[side ^ 1][Pawn]);
    const u64 outposts = work->outposts[side];
    // The own queen gives way or goes along.
    const u64 blockers = work->occupied ^ pos->bb[side][Queen];
    u64 left = pos->bb[side][Bishop];
    add_weight(work, side, mtl_bishop, popcount(left));
    work->attacks[side][Bishop] = 0;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const u64 attacks = bishop_attacks(square, blockers);
        note_attacks<side>(work, Bishop, attacks, attacks);
        add_weight(work, side, table + work->pst_map[side][square]);
        const i32 mobility = popcount(attacks & open);
        add_fraction(work, side, bishop_mobility, mobility);
        // A bishop that cannot move at all, walled in or caught behind enemy pawns.
        if (mobility == 0) {
            add_weight(work, side, bishop_trapped);
            if (far_ranks[side] & bit(square)) {
                add_danger(work, side, trapped_minor_danger);
            }
        }
        // Per square of the centre, whoever stands there and guards it.
        add_weight(work, side, bishop_mob2, popcount(attacks & centre_block));
        // As for knights; a bishop also works from afar, so the way to one matters less.
        if (outposts & bit(square)) {
            add_weight(work, side, bishop_outpost);
        }
        if (outposts & attacks) {
            add_weight(work, side, bishop_outpost_atk);
        }
    }
}

// Rooks want lines: a file without pawns, squares of the enemy's half down their file, and the
// seventh rank while it shuts the enemy king in on the last one or shares the seventh with him.
// Squares that a minor piece guards are none for a rook. Own rooks and queens do not end its line:
// doubled on a file they bear on all of it.
template <i32 side>
static void eval_rooks(EvalWork* work)
{
    const Position* pos = work->pos;
    const i32 table = work->same_wing ? PST_R1 : PST_R2;
    // Lesser pieces chase a rook off, so their squares are closed to it; of equals it is not
    // afraid.
    const u64 open = ~(pieces_of(pos, side) | work->attacks_pnb[side ^ 1]);
    // Rooks behind each other or behind the queen push together.
    const u64 blockers = work->occupied ^ (pos->bb[side][Rook] | pos->bb[side][Queen]);
    const bool enemy_king_far = (far_ranks[side] & pos->bb[side ^ 1][King]) != 0;
    u64 left = pos->bb[side][Rook];
    add_weight(work, side, mtl_rook, popcount(left));
    work->attacks[side][Rook] = 0;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const u64 attacks = rook_attacks(square, blockers);
        const u64 file = file_a << file_of(square);
        note_attacks<side>(work, Rook, attacks, attacks);
        add_weight(work, side, table + work->pst_map[side][square]);
        const i32 mobility = popcount(attacks & open);
        add_fraction(work, side, rook_mobility, mobility);
        // Mostly a rook between its own king and the corner: it is out of the game.
        if (mobility == 0) {
            add_weight(work, side, rook_trapped);
        }
        // Per square of the enemy's half that it looks at down its file: there are its targets.
        add_weight(work, side, rook_mob2, popcount(attacks & file & enemy_half[side]));
        // Nothing closes the file for good, so the rook will come in on it.
        if ((file & work->all_pawns) == 0) {
            add_weight(work, side, rook_openfile);
        }
        // It eats pawns from the side and keeps the king on the edge; without him there is no
        // hurry.
        if (enemy_king_far && (seventh_rank[side] & bit(square))) {
            add_weight(work, side, rook_7th);
        }
    }
}

// A queen bears on what lies behind own bishops on its diagonals and own rooks on its lines, but
// only for double attacks and the king's zone: where they strike first she backs them up, yet she
// herself cannot go there. No square that a pawn, minor piece or rook guards is one for a queen,
// and a queen without any is about to be lost.
template <i32 side>
static void eval_queens(EvalWork* work)
{
    const Position* pos = work->pos;
    const i32 table = work->same_wing ? PST_Q1 : PST_Q2;
    const u64 open = ~(pieces_of(pos, side) | work->attacks_pnbr[side ^ 1]);
    const u64 bishops = pos->bb[side][Bishop];
    const u64 rooks = pos->bb[side][Rook];
    u64 left = pos->bb[side][Queen];
    add_weight(work, side, mtl_queen, popcount(left));
    work->attacks[side][Queen] = 0;
    while (left != 0) {
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
        note_attacks<side>(work, Queen, attacks, reach);
        add_weight(work, side, table + work->pst_map[side][square]);
        const i32 mobility = popcount(attacks & open);
        add_fraction(work, side, queen_mobility, mobility);
        // The next attack on her wins her.
        if (mobility == 0) {
            add_weight(work, side, queen_trapped);
        }
    }
}

// Both sides of a type before the next: the unions of lesser attacks must be whole when they are
// read.
void eval_pieces(EvalWork* work)
{
    eval_knights<White>(work);
    eval_knights<Black>(work);
    take_tally(work, TallyKnights);
    eval_bishops<White>(work);
    eval_bishops<Black>(work);
    take_tally(work, TallyBishops);
    for (i32 side = White; side <= Black; ++side) {
        work->attacks_pnb[side] =
            work->attacks[side][Pawn] | work->attacks[side][Knight] | work->attacks[side][Bishop];
    }
    eval_rooks<White>(work);
    eval_rooks<Black>(work);
    take_tally(work, TallyRooks);
    for (i32 side = White; side <= Black; ++side) {
        work->attacks_pnbr[side] = work->attacks_pnb[side] | work->attacks[side][Rook];
    }
    eval_queens<White>(work);
    eval_queens<Black>(work);
    take_tally(work, TallyQueens);
    for (i32 side = White; side <= Black; ++side) {
        work->attacks_pnbrq[side] = work->attacks_pnbr[side] | work->attacks[side][Queen];
    }
}
