// King and pawn against king, solved by iteration over all positions at start-up.
// Solved for a white pawn on files a to d; readers mirror and turn other cases into this one.
// What is known at first is what the rules say at a glance; every pass then decides the positions
// whose moves all lead to known ones, or one of whose moves leads to what the mover wants. What no
// pass can decide is a draw: white can make no headway.
// Afterwards every entry of a pawn on ranks 2 to 7 is 2 (won) or 1 (not won).
#include "board/tables.h"

u8 kpk_table[2][32][64][64];

// Bits, so that the values of all moves of a position can be joined by OR.
enum : u8 {
    KpkImpossible = 0,
    KpkNotWon = 1,
    KpkWon = kpk_win,
    KpkUnknown = 4,
};

static constexpr i32 first_pawn = 8; // a2; a pawn of the first rank is never asked about
static constexpr i32 last_pawn = 55; // h7; beyond it the pawn has become a queen
static constexpr i32 files = 4;      // a to d

static i32 pawn_index(i32 pawn)
{
    return file_of(pawn) + files * rank_of(pawn);
}

static bool is_next_to(i32 a, i32 b)
{
    return (king_attacks[a] & bit(b)) != 0;
}

// More than one step away, so neither on the square nor beside it: from there a king can neither
// take what stands on it nor guard it.
static bool is_far_from(i32 a, i32 b)
{
    return a != b && !is_next_to(a, b);
}

// The values that are known without looking at any move. A pawn on the last rank is a queen: she
// has won unless black, to move, takes her at once. White cannot be to move while the pawn gives
// check.
static void set_first_values(i32 pawn, i32 white, i32 black)
{
    u8* white_moves = &kpk_table[0][pawn_index(pawn)][white][black];
    u8* black_moves = &kpk_table[1][pawn_index(pawn)][white][black];
    *white_moves = KpkUnknown;
    *black_moves = KpkUnknown;
    if (pawn == white || pawn == black || white == black || is_next_to(white, black)) {
        *white_moves = KpkImpossible;
        *black_moves = KpkImpossible;
    } else if (black == pawn + 9 || (black == pawn + 7 && file_of(pawn) != 0)) {
        *white_moves = KpkImpossible;
    } else if (pawn > last_pawn) {
        *white_moves = KpkWon;
        if (is_far_from(black, pawn) || is_next_to(white, pawn)) {
            *black_moves = KpkWon;
        }
    }
}

// White needs one move that wins. What is still unknown leaves the hope open.
static u8 judge_white_to_move(i32 pawn, i32 white, i32 black)
{
    const i32 index = pawn_index(pawn);
    const u8 step = kpk_table[1][index + files][white][black];
    u8 reached = step;
    // A single step of value 0 is blocked by a king, and then so is the double step.
    if (rank_of(pawn) == 1 && step != KpkImpossible) {
        reached |= kpk_table[1][index + 2 * files][white][black];
    }
    for (u64 targets = king_attacks[white]; targets != 0;) {
        reached |= kpk_table[1][index][pop_lowest(&targets)][black];
    }

    if (reached & KpkWon) {
        return KpkWon;
    }
    return reached & KpkUnknown ? KpkUnknown : KpkNotWon;
}

// Black needs one move that does not lose: capturing a pawn that the king has left is one. Squares
// next to the white king read as impossible, which counts as no move.
static u8 judge_black_to_move(i32 pawn, i32 white, i32 black)
{
    const i32 index = pawn_index(pawn);
    const bool pawn_is_loose = is_far_from(white, pawn);
    u8 reached = 0;
    for (u64 targets = king_attacks[black]; targets != 0;) {
        const i32 to = pop_lowest(&targets);
        reached |= kpk_table[0][index][white][to];
        if (pawn_is_loose && to == pawn) {
            reached |= KpkNotWon;
        }
    }

    if (reached & KpkNotWon) {
        return KpkNotWon;
    }
    if (reached & KpkUnknown) {
        return KpkUnknown;
    }
    // With no legal move at all it is stalemate.
    return reached & KpkWon ? KpkWon : KpkNotWon;
}

// One pass over all undecided positions of one side to move; whether it decided any.
static bool run_pass(i32 black_moves)
{
    bool changed = false;
    for (i32 pawn = first_pawn; pawn <= last_pawn; ++pawn) {
        if (file_of(pawn) >= files) {
            continue;
        }
        for (i32 white = 0; white < 64; ++white) {
            for (i32 black = 0; black < 64; ++black) {
                u8* value = &kpk_table[black_moves][pawn_index(pawn)][white][black];
                if (*value != KpkUnknown) {
                    continue;
                }
                *value = black_moves ? judge_black_to_move(pawn, white, black)
                                     : judge_white_to_move(pawn, white, black);
                changed |= *value != KpkUnknown;
            }
        }
    }
    return changed;
}

// What was never decided, and what cannot occur, reads as not won, so that a reader has to know two
// values only.
static void settle_rest(i32 black_moves)
{
    for (i32 index = pawn_index(first_pawn); index < files * 7; ++index) {
        u8* values = &kpk_table[black_moves][index][0][0];
        for (i32 i = 0; i < 64 * 64; ++i) {
            if (values[i] != KpkWon) {
                values[i] = KpkNotWon;
            }
        }
    }
}

void init_kpk()
{
    for (i32 pawn = 0; pawn < 64; ++pawn) {
        if (file_of(pawn) >= files) {
            continue;
        }
        for (i32 kings = 0; kings < 64 * 64; ++kings) {
            set_first_values(pawn, kings >> 6, kings & 63);
        }
    }

    // Each pass reaches one move further back from the promotion.
    bool changed = true;
    while (changed) {
        changed = run_pass(0);
        changed |= run_pass(1);
    }
    settle_rest(0);
    settle_rest(1);
}
