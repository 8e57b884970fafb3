// Moves as text, and the text side of EPD lines. Texts are of ASCII and closed by NUL; what is too
// long for its buffer is cut, never an error.
#pragma once

#include <string_view>

#include "board/position.h"

// ---- notation.cpp

// Coordinate text of a move that is not 0. out holds at least 8 bytes.
// A promotion ends in q, n, b or r in UCI mode, in =Q, =N, =B or =R at the console.
void move_text(Move move, char* out);

// The same, but a move of 0 gives "null". Returns out.
char* move_text_or_null(Move move, char* out);

// Four forms of a pseudo-legal move of the side to move, before it is made; each buffer holds
// at least 16 bytes. san has no disambiguation unless file or rank is shared; the file and rank
// forms carry it.
void make_san(Position* pos, Move move, char* coord, char* san, char* san_file, char* san_rank);

// The move in standard algebraic notation, but for a mate, which has the mark of a check. out holds
// at least 16 bytes. The move is legal and not made yet.
void make_standard_san(Position* pos, Move move, char* out);

// Finds the legal move of pos that text stands for. Changes text, which must have room for one more
// character. Returns the number of moves that fit: at 1 the move is stored. Leaves the lists of
// pos->thread alone.
[[nodiscard]] i32 parse_move(Position* pos, char* text, Move* move);

// The same for a text that stays as it is.
[[nodiscard]] i32 find_move(Position* pos, std::string_view text, Move* move);

// ---- epd_text.cpp

// Sizes of the buffers of read_epd_ops, with their NUL.
inline constexpr i32 epd_pos_size = 512;
inline constexpr i32 epd_operand_size = 328;

// Splits an EPD line into position text and the operands of bm, am, id, ce and c0, blanks taken
// out. pos_text holds epd_pos_size bytes, the others epd_operand_size; longer texts are cut.
// Returns 1.
i32 read_epd_ops(
    const char* line, char* pos_text, char* bm, char* am, char* id, char* ce, char* c0);

// The operand of one operation of an EPD line as it stands, blanks and all, so that its words can
// be told apart; empty if the line has none. operand holds size bytes, longer ones are cut.
void read_epd_list(const char* line, const char* opcode, char* operand, size_t size);

// ---- Words

// The square of a file and a rank letter, 0 to 255; above 63 it is none.
inline i32 square_of_text(const char* text)
{
    return (static_cast<u8>(text[0]) + 8 * static_cast<u8>(text[1]) + 23) & 255;
}

// The first word of text, cut at 127 characters, in a static buffer. Main thread only.
char* next_word(const char* text);
