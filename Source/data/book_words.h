// The words of `vesk-data book`, and what several of them need.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "data/arguments.h"
#include "data/book_file.h"
#include "data/book_sort.h"
#include "data/book_walk.h"
#include "data/report.h"
#include "data/sinks.h"

[[nodiscard]] int run_book_check(Arguments arguments);
[[nodiscard]] int run_book_dump(Arguments arguments);
[[nodiscard]] int run_book_merge(Arguments arguments);
[[nodiscard]] int run_book_prune(Arguments arguments);
[[nodiscard]] int run_book_diff(Arguments arguments);
[[nodiscard]] int run_book_play(Arguments arguments);

// ---- Command lines

// Sets the bench to the position of a FEN or EPD text, that of chess for an empty one. Returns
// null, or why the text does not serve.
[[nodiscard]] const char* read_start(const std::string& text, BookBench* bench);

// A move as the user wants it: in standard algebraic notation, or by its squares.
[[nodiscard]] std::string name_move(Position* pos, Move move, bool by_squares);

// "12." before White's moves, "12..." before Black's; half-moves count from 0 at a start where
// first_side is to move.
[[nodiscard]] std::string name_ply(i64 ply, i32 first_side);

// Part of whole in percent with two digits behind the point; "-" of nothing.
[[nodiscard]] std::string percent_of(u64 part, u64 whole);

// ---- Books that are made

// Whether the output can take a book: a terminal cannot. Tells standard error.
[[nodiscard]] bool can_take_book(const char* word, const CommonOptions& common);

// Brings the moves of a position into the order of a book, highest weight first, and their weights
// into its range: scaled down together where one is beyond it, none of them to 0.
void settle_moves(std::vector<BookMove>* moves);

// Writes them as records. A file that does not take them shows it later. Returns their number.
u64 write_moves(u64 key, const std::vector<BookMove>& moves, FILE* out);

// A book for the time of the run: written record by record, then given its count.
[[nodiscard]] bool start_scratch_book(BookFile* book, const std::string& name, Report* report);
[[nodiscard]] bool finish_scratch_book(BookFile* book, u64 count, Report* report);

// Takes moves that no piece can make out of a group, each as a refusal of its record.
void refuse_impossible(const BookFile& book, BookGroup* group, Report* report);
