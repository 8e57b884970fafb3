// The engine from start to end, as one call: what the program vesk is, and what a host runs in a
// process of its own.
#pragma once

// Runs the engine with a command line as main gets it, on the process's standard streams, and
// returns the status that the process is to end with: 0, or 1 where start-up failed or a tool
// refused or lost something. Called once in the life of a process; it seeds the random generator,
// changes signals and leaves the global state of all folders behind. A setting that memory or
// threads cannot be had for ends the process with status 255.
int run_engine(int argc, char** argv);
