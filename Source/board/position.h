// The position, the stack of the moves that led to it, and the position's text form.
// A Position is changed only by parse_epd, by make and unmake, and by the board editor, so its
// derived fields (bb, piece_count, phase_mtl, king_sq, the keys) always agree with board.
#pragma once

#include "board/types.h"

// The record of the thread that searches the position: the search's own, only named here.
struct SearchThread;

inline constexpr i32 ply_count = 70; // plies of a search; nodes make moves below 66

// The undo stack holds the game and the search path. The search stops deepening when the game
// and the depth together pass 883 (see the iteration loop) and goes at most 66 plies down from
// its root, so a game is kept short of game_limit by dropping its oldest entries.
inline constexpr i32 undo_size = 960;
inline constexpr i32 game_limit = 880;
inline constexpr i32 game_keep = 600; // entries kept when the oldest are dropped

// One entry of the undo stack; the values are those before the move.
struct UndoRecord {
    u64 key;
    u64 pawn_key; // not written by a null move
    u16 move;     // 0 for a null move
    u8 captured;  // piece type taken on the to-square; 0 for en passant
    u8 ep_square;
    u8 cnt50;
    u8 castle;
};
static_assert(sizeof(UndoRecord) == 24);

// The game and the search path that led to a position, and how deep the search stands in it.
struct UndoStack {
    UndoRecord undo[undo_size]; // undo_count is the next free entry
    i16 undo_count;
    i16 ply;                   // 1 at the root of a search and in the game
    u16 last_move;             // 0 after a null move or at an empty stack
    Shared<u8> depth;          // iteration that runs, 0 outside of a search; read by other workers
    i16 node_depth[ply_count]; // remaining depth of each ply's node, after the check extension
};

// A board with what is derived from it. Plain data, copied whole; a copy must have its two owner
// pointers put right.
struct Position {
    UndoStack* stack;     // of the owner: make and unmake work on it
    SearchThread* thread; // the owner; null for a board that nobody searches
    u8 board[65];         // piece codes; the 65th byte is never a square
    u64 bb[2][8];         // per side: [0] all, [1] pawns ... [6] king, [7] unused
    u64 spare;            // unused
    u64 key;              // Zobrist key; bit 0 is the side to move
    u64 pawn_key;
    u32 piece_count[2]; // nibbles from bit 0: pawns, knights, bishops, rooks, queens
    i16 phase_mtl[2];   // knights 3, bishops 3, rooks 5, queens 10
    u8 stm;
    u8 cnt50;     // half-move clock; stops at 255
    u8 castle;    // CastleRight bits
    u8 ep_square; // square passed by a double step just made, else NoSquare
    u8 king_sq[2];
};

// Steps of piece_count and weights of phase_mtl, by piece type. Kings are not counted: there is
// one.
inline constexpr u32 count_step[8] = { 0, 1, 16, 256, 4096, 65536, 0, 0 };
inline constexpr i16 phase_weight[8] = { 0, 0, 3, 3, 5, 10, 0, 0 };

// ---- Words of the board

// All pieces of both sides, and those of one.
inline u64 occupied(const Position* pos)
{
    return pos->bb[White][0] | pos->bb[Black][0];
}

inline u64 pieces_of(const Position* pos, i32 side)
{
    return pos->bb[side][0];
}

// How many pieces of a type, pawns to queens, side has: a nibble of piece_count, 0 to 15.
inline i32 count_of(const Position* pos, i32 side, i32 type)
{
    return static_cast<i32>(pos->piece_count[side] >> (4 * (type - Pawn)) & 15);
}

// The start position of chess.
inline constexpr char start_position[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";

// Names of the squares, "a1" to "h8".
extern const char square_name[64][3];

// Sets pos from a FEN or EPD text (only its first four fields are read) and empties the undo
// stack. Returns 0, or -1 if a castling right had to be dropped; *rest, where asked for, becomes
// what stands behind the fields. The position is usable in both cases; nothing else is checked:
// pieces beyond the board are left out, a second piece on a square replaces the first, and an
// en-passant field that names no square counts as none.
i32 parse_epd(Position* pos, const char* text, const char** rest = nullptr);

// Sets pos to another position and empties its undo stack, as reading that one's text would.
void copy_position(Position* pos, const Position* other);

// Empties the board and the undo stack: all castling rights, no en-passant square,
// half-move clock 0. The side to move, the king squares and the keys stay as they are.
void clear_board(Position* pos);

// Puts a piece code (1 to 6 or 9 to 14) on a square, in place of what stands there, and takes the
// piece off a square, empty or not. All derived fields but the keys follow; king_sq is the king
// put last as long as it stands, and keeps its value when a side's last king goes.
void put_piece(Position* pos, i32 square, i32 code);
void remove_piece(Position* pos, i32 square);

// Writes the four fields of the position text into out, which holds at least fen_size bytes.
inline constexpr i32 fen_size = 128;
void make_fen(const Position* pos, char* out);

// The ranks of the position text written last, at first those of an empty board.
struct RankTexts {
    u64 squares[8] = {}; // the piece codes of each, a byte for a square
    char text[8][8] = { "8", "8", "8", "8", "8", "8", "8", "8" };
    u8 size[8] = { 1, 1, 1, 1, 1, 1, 1, 1 };
};

// The same as make_fen for one position of a game after the other: writes anew only the ranks that
// have changed since the last call. Returns where the NUL is.
char* make_next_fen(const Position* pos, RankTexts* ranks, char* out);

// Writes the board for a person to look at into out, which holds at least board_view_size bytes:
// eight lines, rank 8 first.
inline constexpr i32 board_view_size = 8 * 18 + 1;
void make_board_view(const Position* pos, char* out);

// The Zobrist key of pos computed from its fields, and the key of its pawns alone.
[[nodiscard]] u64 compute_key(const Position* pos);
[[nodiscard]] u64 compute_pawn_key(const Position* pos);

// The castling rights of pos whose king or rook is not at home.
u8 false_castling(const Position* pos);

// Drops these rights. Returns how many were dropped.
// The key is left as it is.
i32 drop_false_castling(Position* pos);

// Whether bb, piece_count, phase_mtl and both keys are what board, stm, castle and ep_square
// make them, and king_sq too for a side of one king.
[[nodiscard]] bool fields_agree(const Position* pos);
