// Endings of up to four pieces solved by going backwards from the mates, on a board of its own: no
// line of the engine takes part, so that its tables can be judged by the result.
#pragma once

#include <string>
#include <vector>

#include "board/types.h"

inline constexpr i32 ending_pieces = 4;

enum EndingType : u8 { EndKing, EndQueen, EndRook, EndBishop, EndKnight, EndPawn };

// Pieces in any order; side 0 is White. No castling and no en-passant right.
struct EndingBoard {
    i32 count;
    i32 mover;
    u8 side[ending_pieces];
    u8 type[ending_pieces];
    u8 square[ending_pieces];
};

// A legal move of the piece number. captured is the number of a piece or -1, promotion a type or
// EndKing for none.
struct EndingMove {
    u8 piece;
    u8 to;
    i8 captured;
    u8 promotion;
};

// The value for the mover: 0 draw; n > 0 a win that needs n plies to a mate, a capture or a pawn
// move; -1 - n a loss that can be drawn out for n plies in this sense, -1 being mate.
using EndingValue = i8;
inline constexpr EndingValue ending_illegal = 127;
inline constexpr EndingValue ending_stalemate = 126;

inline bool is_win(EndingValue value)
{
    return value > 0 && value < ending_stalemate;
}

inline bool is_loss(EndingValue value)
{
    return value < 0;
}

// Plies of a win or a loss.
inline i32 plies_of(EndingValue value)
{
    return value > 0 ? value : -1 - value;
}

// One material. Positions are numbered with the pieces in the order below, pawns first, and with
// mirror images told apart only for the pieces behind the first.
struct Ending {
    std::string name;
    EndingBoard pieces;
    i32 pawns;
    std::vector<EndingValue> value;
};

// Solves the material of a name such as "KRvKN", and every one it can lead to; each only once.
const Ending* solve_ending(const std::string& name);

// The position of a number below value.size(); squares may coincide.
EndingBoard board_of(const Ending* ending, u32 number);

// The value of a position of a solved material, with either colour as the side named first.
EndingValue value_of(const EndingBoard& board);

// The legal moves, and the board after one.
std::vector<EndingMove> moves_of(const EndingBoard& board);
EndingBoard board_after(const EndingBoard& board, const EndingMove& move);

inline bool is_zeroing(const EndingBoard& board, const EndingMove& move)
{
    return move.captured >= 0 || board.type[move.piece] == EndPawn;
}
