// King and pawn against king, solved at start-up by working backwards from the promotion.
// Solved for a white pawn on files a to d; readers mirror and turn other cases into this one.
// All squares of the black king are looked at together, as one set for each square of pawn and
// white king: that takes a sixtieth of the time of going through the positions one by one. Sets of
// wins only grow, so what is not found to be won after the last pass is not: white can make no
// headway. Afterwards every entry of a pawn on ranks 2 to 8 is 2 (won) or 1 (not won).
#include "board/tables.h"

u8 kpk_table[2][32][64][64];

static constexpr u8 kpk_not_won = 1;
static constexpr i32 files = 4; // a to d

// The black king's squares from which white wins, by the white king's square. A square on which the
// black king cannot stand is in no set.
struct KpkWins {
    u64 white_moves[64];
    u64 black_moves[64];
};

// From all squares of a set to those beside them.
static u64 king_neighbours(u64 kings)
{
    const u64 beside = (kings & ~file_h) << 1 | (kings & ~file_a) >> 1;
    const u64 three = kings | beside;
    return beside | three << 8 | three >> 8;
}

// Where the black king may stand when it is to move.
static u64 black_squares(i32 pawn, i32 white)
{
    return pawn == white ? 0 : ~(bit(pawn) | bit(white) | king_attacks[white]);
}

// A pawn on the last rank is a queen: she has won unless black, to move, takes her at once.
static void set_promoted(i32 pawn, KpkWins* wins)
{
    for (i32 white = 0; white < 64; ++white) {
        const u64 squares = black_squares(pawn, white);
        const bool guarded = (king_attacks[white] & bit(pawn)) != 0;
        wins->white_moves[white] = squares;
        wins->black_moves[white] = guarded ? squares : squares & ~king_attacks[pawn];
    }
}

// The wins of white, to move, by a step of the pawn; ahead is the pawn one rank on, and twice two
// ranks, null but for a pawn in its home. Neither king may stand in the way.
static u64 wins_by_step(i32 pawn, i32 white, const KpkWins* ahead, const KpkWins* twice)
{
    u64 wins = ahead->black_moves[white];
    if (twice != nullptr && white != pawn + 8) {
        wins |= twice->black_moves[white] & ~bit(pawn + 8);
    }
    return wins;
}

// White needs one move that wins. It cannot be to move while the pawn gives check.
static u64 white_to_move(i32 pawn, i32 white, const KpkWins* wins, u64 by_step)
{
    u64 won = by_step;
    for (u64 targets = king_attacks[white]; targets != 0;) {
        won |= wins->black_moves[pop_lowest(&targets)];
    }
    return won & black_squares(pawn, white) & ~pawn_attacks[White][pawn];
}

// Black needs one move that does not lose: capturing a pawn that the king has left is one. With no
// legal move at all it is stalemate.
static u64 black_to_move(i32 pawn, i32 white, const KpkWins* wins)
{
    const u64 squares = black_squares(pawn, white);
    const u64 lost = wins->white_moves[white];
    u64 saved = squares & ~pawn_attacks[White][pawn] & ~lost;
    if ((king_attacks[white] & bit(pawn)) == 0) {
        saved |= bit(pawn);
    }
    return squares & king_neighbours(lost) & ~king_neighbours(saved);
}

// Fills in all wins of a pawn's square. Each pass reaches one move further back.
static void solve_pawn(i32 pawn, KpkWins* wins, const KpkWins* ahead, const KpkWins* twice)
{
    for (bool changed = true; changed;) {
        changed = false;
        for (i32 white = 0; white < 64; ++white) {
            wins->white_moves[white] =
                white_to_move(pawn, white, wins, wins_by_step(pawn, white, ahead, twice));
        }
        for (i32 white = 0; white < 64; ++white) {
            const u64 lost = black_to_move(pawn, white, wins);
            changed |= lost != wins->black_moves[white];
            wins->black_moves[white] = lost;
        }
    }
}

static void fill_values(const u64 won[64], u8 values[64][64])
{
    for (i32 white = 0; white < 64; ++white) {
        for (i32 black = 0; black < 64; ++black) {
            values[white][black] = (won[white] >> black & 1) != 0 ? kpk_win : kpk_not_won;
        }
    }
}

// Backwards by ranks: what a pawn reaches by its step is known then.
void init_kpk()
{
    for (i32 file = 0; file < files; ++file) {
        KpkWins wins[8] = {};
        set_promoted(square_at(file, 7), &wins[7]);
        for (i32 rank = 6; rank >= 1; --rank) {
            solve_pawn(square_at(file, rank), &wins[rank], &wins[rank + 1],
                rank == 1 ? &wins[rank + 2] : nullptr);
        }
        for (i32 rank = 1; rank <= 7; ++rank) {
            const i32 index = file + files * rank;
            fill_values(wins[rank].white_moves, kpk_table[0][index]);
            fill_values(wins[rank].black_moves, kpk_table[1][index]);
        }
    }
}
