// The options of the command line: what they set in the dialogue, and what is to be run.
#pragma once

#include "shell/dialogue.h"

// What main runs after start-up. One mode a process: the last option that names one counts.
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
    ModeTune = 14,     // in the tuning build alone, as the next one
    ModeSelfplay = 15, // games against itself
};

// What the command line asks for, beside what it has set in the dialogue. Names longer than their
// fields are cut, and the user is told.
struct CommandLine {
    Dialogue* dialogue; // gets the options and the limits
    RunMode mode;
    // Of the process, its own name not among them.
    i32 argument_count;
    char epd_file[140];  // of -anepd and -mktune
    char tool_file[144]; // of -scan_pgn, -match and -mkbook
};

// Applies the arguments from argv[1] on to the dialogue and fills line; the dialogue must be at its
// start. An argument that is no option is ignored; an option whose value is missing is named on
// standard error and gives ModeEnd. Values out of range become the nearest. A file name that is cut
// is told to standard error and sets exit_status to 1, but the run goes on.
void read_command_line(Dialogue* dialogue, i32 argc, char* const* argv, CommandLine* line);
