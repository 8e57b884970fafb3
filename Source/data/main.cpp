// The program vesk-data: what is in games, positions, books and tables, and what was lost of them.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

#include "data/places.h"
#include "data/words.h"

// A process may begin without one of the three standard files. The next file that is opened would
// take its place then, and what is meant for the user would be written into it. What stands in for
// it is opened the wrong way round, so that using it is still an error.
static void hold_standard_files()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            (void)open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

// Nobody catches what the library throws where memory or threads run out. The user is told, and
// finds no unfinished file beside his own; a status says so to scripts, and not a signal.
[[noreturn]] static void end_without_means()
{
    remove_unfinished_files();
    fputs("vesk-data: the system has not enough memory or threads for this run; --jobs 1 takes the "
          "least\n",
        stderr);
    _exit(1);
}

// A page of help that did not leave is a failure, too.
static int flush_output(int status)
{
    if (fflush(stdout) != 0 && status == 0) {
        fprintf(stderr, "standard output: cannot be written: %s\n", strerror(errno));
        return 1;
    }
    return status;
}

int main(int argc, char** argv)
{
    hold_standard_files();
    std::set_terminate(end_without_means);
    // A file that may grow no further is an error like a full disk.
    signal(SIGXFSZ, SIG_IGN);
    if (argc < 2) {
        return flush_output(run_data_help({}));
    }
    return flush_output(run_data_word({ argv + 1, static_cast<size_t>(argc - 1) }));
}
