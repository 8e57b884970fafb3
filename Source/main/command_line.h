// The options of the command line.
#pragma once

#include "shell/dialogue.h"

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

// What the command line asks for.
struct CommandLine {
    Dialogue* dialogue; // gets the options and the limits
    RunMode mode;
    i32 argument_count;
    char epd_file[140];  // of -anepd and -mktune
    char tool_file[144]; // of -scan_pgn, -match and -mkbook
};

// Applies the arguments from argv[1] on to the dialogue and fills line. An argument that is no
// option is ignored; an option whose value is missing is named on standard error and gives ModeEnd.
void read_command_line(Dialogue* dialogue, i32 argc, char* const* argv, CommandLine* line);
