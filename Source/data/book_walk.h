// Walking over the positions that a book leads to, breadth first, so that each is met in as few
// half-moves as can be. A position is told from another by its key, so transpositions are one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/types.h"
#include "board/position.h"
#include "data/book_file.h"
#include "data/report.h"

// ---- Positions

// A position, small enough for millions of them.
struct PackedPosition {
    u8 squares[32]; // two piece codes a byte
    u8 stm;
    u8 castle;
    u8 ep_square;
};

// A position on a board of its own.
struct BookBench {
    Position pos {};
    UndoStack stack {};
};

[[nodiscard]] PackedPosition pack_position(const Position* pos);
void unpack_position(const PackedPosition& packed, BookBench* bench);

// ---- The walk

// Who keeps to the book's moves, those of weight 0 left out, which are never played.
enum WalkMode : u8 {
    BothKeep = 1,
    WhiteKeeps = 2, // Black makes any legal move, and White answers as long as the book has moves
    BlackKeeps = 4,
};
inline constexpr u8 all_walks = BothKeep | WhiteKeeps | BlackKeeps;
inline constexpr u8 illegal_entry = 128; // beside the modes, for the entry's own sake

inline constexpr u16 never_reached = 65535;

// What a walk has found, by the index of a record; of plies and modes that of the first record of
// the position.
struct BookReach {
    std::vector<u16> plies; // half-moves from the start, never_reached
    std::vector<u8> modes;  // WalkMode bits by which it is reached; illegal_entry
};

// A record that has a move which is not what it seems. The position is where it was met.
struct OddEntry {
    u64 index = 0;
    u16 book_move = 0;
    bool is_illegal = false; // can never be played; otherwise only worth knowing
    const char* reason = nullptr;
    std::string detail;
};

struct BookWalk {
    const BookFile* book = nullptr;
    const BookIndex* index = nullptr;
    Position start {}; // its stack is not used
    u8 modes = all_walks;
    i64 max_ply = never_reached - 1; // half-moves from the start; positions beyond are not reached
    i64 jobs = 1;
    // Called once for each position that is reached, in the order of plies; may be empty.
    std::function<void(Position* pos, u16 ply, u64 first)> visit;
    // Called once for each odd record of such a position; may be empty.
    std::function<void(const OddEntry& odd)> tell_odd;
};

// Returns false after a message if the book cannot be read or a scratch file not be written.
[[nodiscard]] bool walk_book(const BookWalk& walk, BookReach* reach, Report* report);

// Why an entry's move is odd in pos, or a null reason. Fills move with what the engine makes of it,
// NoMove if that is not legal.
[[nodiscard]] OddEntry judge_entry(Position* pos, u16 book_move, Move* move);
