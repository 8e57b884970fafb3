// The parts of the doctor's visit. Each prints its heading and findings, and counts in the report
// what is wrong.
#pragma once

#include <span>

#include "host/doctor_report.h"

// The machine. The last three return what to put into a chess program.
void examine_processor(Report* report);
[[nodiscard]] i32 examine_memory(Report* report);  // megabytes of Hash
[[nodiscard]] i32 examine_threads(Report* report); // Threads
[[nodiscard]] i32 examine_clock(Report* report);   // milliseconds of Move Overhead

// Files of the user's. The folders of path, where the tables are, and a book.
void examine_tables(Report* report, const char* path);
void examine_book(Report* report, const char* path);

// The weights that the engine would take from the current folder.
void examine_weights(Report* report);
