// The options of the command line.
#pragma once

#include "board/types.h"

// What main runs after start-up.
enum RunMode : i32 {
    ModeEnd = -1, // no run: the process ends with status 1 at once
    ModeThink = 1,
    ModeEpdTest = 2,
    ModeScanPgn1 = 3, // and the next three, for the forms 2 to 4
    ModeScanPgn4 = 6,
    ModeMatch = 7,
    ModeBench = 8,
    ModeBench2 = 9,
    ModeBenchSingle = 10,
    ModeMakeBook = 11,
    ModeMakeConfig = 12,
    ModeMakeTune = 13,
    ModeTune = 14, // in the tuning build alone
};

// Applies the arguments from argv[1] on to engine_options and the run state. An argument that is
// no option is ignored; an option whose value is missing is named on standard error and gives
// ModeEnd. Returns the mode.
RunMode read_command_line(i32 argc, char* const* argv);
