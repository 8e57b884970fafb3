// The tests that stand between a position from outside and the search, which relies on all of them.
#include "board/defect.h"

#include <string_view>

#include "board/moves.h"
#include "board/tables.h"

// As many as a game begins with, the king among them. The counts of a side share a word, four bits
// each: sixteen pieces of one type would run into the next type's.
static constexpr i32 max_side_pieces = 16;

static constexpr i32 board_size = 8; // ranks, and files
static constexpr std::string_view piece_letters = "PNBRQKpnbrqk";

// The set of a square that may lie off the board, and is empty then.
static u64 bit_on_board(i32 square)
{
    return square >= 0 && square < NoSquare ? bit(square) : 0;
}

// Whether a pawn of the side to move could move onto ep_square although there is no enemy pawn
// behind it to be taken, or a piece on it; unmaking such a move would invent a pawn. On the last
// rank the pawn would be neither promoted nor fit to stay.
// A square that no pawn can enter does no harm, so that loose position texts are still played.
static bool is_false_ep_square(const Position* pos)
{
    if (pos->ep_square == NoSquare) {
        return false;
    }
    const i32 side = pos->stm;
    const i32 step = pawn_step[side];
    const u64 ep = bit(pos->ep_square);
    const u64 behind = bit_on_board(pos->ep_square - step);
    if ((pos->bb[side ^ 1][Pawn] & behind) && pos->board[pos->ep_square] == 0
        && (ep & outer_ranks) == 0) {
        return false;
    }

    const u64 origins =
        pawn_attacks[side ^ 1][pos->ep_square] | behind | bit_on_board(pos->ep_square - 2 * step);
    return (origins & pos->bb[side][Pawn]) != 0;
}

// The texts go to the user, the first that holds. Cheap tests of what the later ones rely on come
// first: the attack test needs a king, and sound fields.
const char* position_defect(Position* pos)
{
    for (i32 side = White; side <= Black; ++side) {
        if (popcount(pos->bb[side][King]) != 1) {
            return "each side needs exactly one king";
        }
        if (popcount(pieces_of(pos, side)) > max_side_pieces) {
            return "a side has more than sixteen pieces";
        }
    }
    if ((pos->bb[White][Pawn] | pos->bb[Black][Pawn]) & outer_ranks) {
        return "a pawn stands on the first or last rank";
    }
    if (false_castling(pos) != 0) {
        return "a castling right has no king or rook at home";
    }
    if (!fields_agree(pos)) {
        return "the position is inconsistent";
    }
    if (is_attacked(pos, pos->king_sq[pos->stm ^ 1], pos->stm)) {
        return "the side not to move is in check";
    }
    if (is_false_ep_square(pos)) {
        return "there is no pawn to take en passant";
    }
    return nullptr;
}

bool is_whole_board(std::string_view text)
{
    i32 ranks = 1;
    i32 files = 0;
    for (const char letter : text) {
        if (letter == '/') {
            if (files != board_size) {
                return false;
            }
            ++ranks;
            files = 0;
        } else if (letter >= '1' && letter <= '8') {
            files += letter - '0';
        } else if (piece_letters.find(letter) != std::string_view::npos) {
            ++files;
        } else {
            return false;
        }
    }
    return ranks == board_size && files == board_size;
}
