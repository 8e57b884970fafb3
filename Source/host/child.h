// A part of the program that runs in a process of its own and whose output is read here in lines:
// the engine's main loop and its tables serve once in the life of a process, and speak to standard
// output.
#pragma once

#include <cstdio>
#include <sys/types.h>

struct Child {
    pid_t pid;
    FILE* lines; // what it writes to standard output
};

// Forks a process that ends with the status of run(context), with an empty standard input and with
// standard output at child->lines. It is killed if this process ends first. Returns 0 or the error.
[[nodiscard]] int start_child(Child* child, int (*run)(void* context), void* context);

// Waits for its end, and returns its status: 1 for one that a signal has ended. What nobody has
// read is lost.
int end_child(Child* child);
