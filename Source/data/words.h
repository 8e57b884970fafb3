// The words of vesk-data's command line. Each runs to its end and returns the status of the
// process: 0 if all that was given was used, 1 where something was refused or could not be read or
// written, 2 for a command line that cannot be understood, of which standard error is told and
// nothing is run.
#pragma once

#include "data/arguments.h"

// Runs the word that stands first among these, which are not empty.
[[nodiscard]] int run_data_word(Arguments words);

// Says how the program is called. Words may stand behind it: then it is theirs that is shown.
[[nodiscard]] int run_data_help(Arguments arguments);

// The words, each in a file of its own name.
[[nodiscard]] int run_games(Arguments arguments);
[[nodiscard]] int run_positions(Arguments arguments);
[[nodiscard]] int run_book(Arguments arguments);
[[nodiscard]] int run_tables(Arguments arguments);
[[nodiscard]] int run_explain(Arguments arguments);
