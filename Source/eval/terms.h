// The terms of the evaluation, and the few routines through which they add weights.
// Every use of a weight goes through add_weight or add_fraction, so that the tuning build has one
// place where it notes how often a weight counts in a position.
// A term speaks of its side: "own" is what belongs to that side, "enemy" what does not.
#pragma once

#include "board/position.h"
#include "eval/term_notes.h"
#include "eval/weights.h"

// The last file of the queen's wing, files a to d; the king's wing is e to h.
inline constexpr i32 queen_wing_last = 3;

// A set moved by whole ranks, as seen by side; what leaves the board is dropped.
template <i32 side>
inline u64 forward(u64 set, i32 ranks = 1)
{
    return side == White ? set << (8 * ranks) : set >> (8 * ranks);
}

template <i32 side>
inline u64 backward(u64 set, i32 ranks = 1)
{
    return forward<side ^ 1>(set, ranks);
}

// A set moved one file to both sides. The outer files are taken off first: what runs over the
// edge would come back on the other wing, a rank higher or lower.
inline u64 sideways(u64 set)
{
    return ((set & ~file_a) >> 1) | ((set & ~file_h) << 1);
}

// The larger of the file and rank distances: steps of a king from a to b on an empty board.
inline i32 king_steps(i32 a, i32 b)
{
    const i32 files = file_of(a) - file_of(b);
    const i32 ranks = rank_of(a) - rank_of(b);
    const i32 file_steps = files < 0 ? -files : files;
    const i32 rank_steps = ranks < 0 ? -ranks : ranks;
    return file_steps > rank_steps ? file_steps : rank_steps;
}

// Whether the king on this square stands on the queen's wing: then the piece-square tables, made
// for a king on the other wing, are read mirrored.
inline bool is_on_queen_wing(i32 king_square)
{
    return file_of(king_square) <= queen_wing_last;
}

// XORed into the pawn key for each side whose squares are mirrored: what is cached of them differs
// then. Any two different constants but 0 would do.
inline constexpr u64 wing_key[2] = { 0x5555555555555555ULL, 0xaaaaaaaaaaaaaaaaULL };

// The key of pos in the pawn cache.
inline u64 pawn_cache_key(const Position* pos)
{
    return pos->pawn_key ^ (is_on_queen_wing(pos->king_sq[White]) ? wing_key[White] : 0)
        ^ (is_on_queen_wing(pos->king_sq[Black]) ? wing_key[Black] : 0);
}

// The entry of a square in the piece-square tables, as side sees it.
inline i32 pst_index(const EvalWork* work, i32 side, i32 square)
{
    return static_cast<i32>(static_cast<u64>(square) ^ work->pst_flip[side]);
}

// Adds a score pair to the account of side. The sum is taken unsigned, since absurd weights may
// make it wrap.
inline void add_word(EvalWork* work, i32 side, u32 word)
{
    work->score[side] = static_cast<i32>(static_cast<u32>(work->score[side]) + word);
}

// What a weight adds when it counts so many times, noted for side; the caller adds it up. Both
// halves are multiplied in one go: the product of a packed word is the packed word of the products.
inline u32 weight_word(EvalWork* work, i32 side, i32 weight, i32 count = 1)
{
    note_term(work, side, weight, static_cast<f32>(count), false);
    return static_cast<u32>(eval_words[weight]) * static_cast<u32>(count);
}

// The same of the part of a weight that stands at a step of its list of fractions.
inline u32 fraction_word(EvalWork* work, i32 side, i32 weight, i32 step)
{
    if constexpr (tuning) {
        note_term(work, side, weight, fraction_of(weight, step), true);
    }
    return static_cast<u32>(fraction_words[fractions_of(weight).first + step]);
}

// Adds a weight count times to the account of side.
inline void add_weight(EvalWork* work, i32 side, i32 weight, i32 count = 1)
{
    add_word(work, side, weight_word(work, side, weight, count));
}

// Adds the part of a weight that stands at a step of its list of fractions.
inline void add_fraction(EvalWork* work, i32 side, i32 weight, i32 step)
{
    add_word(work, side, fraction_word(work, side, weight, step));
}

// Adds centipawns to the danger of side: what the enemy may win from it in the next moves. The
// search prunes a good position only where the surplus covers that. Kept in 16 bits, as in the
// cache.
inline void add_danger(EvalWork* work, i32 side, i32 amount)
{
    work->danger[side] = static_cast<u16>(work->danger[side] + amount);
}

// Notes the accounts as they stand, for a row of the printed table.
inline void take_tally(EvalWork* work, TallyRow row)
{
    work->tally[row][White] = work->score[White];
    work->tally[row][Black] = work->score[Black];
}

// ---- endings.cpp

// Whether the material is a draw whatever the squares: no pawns, and each side has at most a
// bishop, or one or two knights.
bool is_drawn_material(const Position* pos);

// The plain rules for a side against a lone king, by what it has.
enum class LoneKingRule : u8 {
    None,            // two sides with pieces, two lone kings, or material that the terms judge
    SinglePawn,      // won or drawn by a table of all positions
    BishopAndKnight, // mate in a corner of the bishop's colour
    HeavyMate,       // a rook or a queen at least, whatever else: mate on the edge
};

// The rule that judges pos; *strong becomes the side that has the pieces, where there is a rule.
[[nodiscard]] LoneKingRule find_lone_king_rule(const Position* pos, i32* strong);

// Judges a lone king against a side for which there is a plain rule. Returns true and stores the
// score from the view of side in centipawns, or returns false and leaves it alone.
[[nodiscard]] bool eval_lone_king(const Position* pos, i32 side, i32* score);

// Why an ending is hard to win; several reasons may come together.
enum ScaleReason : u32 {
    ScaleBishopsAgainstKnight = 1, // two bishops without pawns against a knight
    ScalePawnless = 2,             // the side ahead has no pawns
    ScaleWrongCorner = 4,          // rook's pawns, and no bishop of their corner's colour
    ScaleOppositeBishops = 8,      // and at most two pawns between the sides
    ScaleBareOppositeBishops = 16, // these without other pieces
    ScaleLastPawn = 32,            // of the side ahead, for which a piece can be given
    ScaleNoFreePawn = 64,          // none of its last pawns has a free path
};

// The reasons, ScaleReason bits, for the factor that scale_factor gives.
[[nodiscard]] u32 scale_reasons(const EvalWork* work, i32 value);

// The factor for endings that are hard to win, 0.05 to 1. value is the score from white's view:
// its sign alone says who is ahead. Reads free_passers, so the terms must have run.
f32 scale_factor(const EvalWork* work, i32 value);

// ---- pawns.cpp

// Fills the pawn sets, the first attack sets and the first king attack points. king_zone and
// attacks[side][King] must stand.
void init_pawn_sets(EvalWork* work);

// Material, squares and structure of the pawns, out of the pawn cache if ply allows it, and
// blocked pawns. Must be the first of the terms: a cached score takes the place of the accounts.
void eval_pawns(EvalWork* work);

// Candidates and passed pawns; these need the attack sets of all pieces. The second fills
// free_passers.
void eval_candidates(EvalWork* work);
void eval_passed_pawns(EvalWork* work);

// ---- pieces.cpp

// Material, squares, mobility and special terms of all knights, bishops, rooks and queens; fills
// their attack sets and adds to the king attack points.
void eval_pieces(EvalWork* work);

// ---- king.cpp

// The safety of the king of side; needs the attack sets of all pieces and the attack points.
void eval_king(EvalWork* work, i32 side, i32 king_square);

// ---- threats.cpp

// Hanging and attacked pieces, threats by pawn pushes, pins; needs all attack sets. Fills hung.
void eval_threats(EvalWork* work);
