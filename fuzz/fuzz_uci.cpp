// A whole session: the bytes are what standard input gives, and the main loop itself reads them,
// searches with one worker and ends at the quit behind them.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "fuzz_support.h"
#include "board/position.h"
#include "search/threads.h"
#include "shell/input.h"
#include "shell/think_loop.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// A line mark of its own in front of the quit: the input may end in the middle of a line.
static const char session_end[] = "\nstop\nquit\n";

// Writes the session into the pipe that is standard input while the main loop reads it. A quit
// within the session ends the reading early: then the rest finds no reader.
static void feed_session(int pipe_end, const std::string& session)
{
    size_t written = 0;
    while (written < session.size()) {
        const ssize_t count = write(pipe_end, session.data() + written, session.size() - written);
        if (count <= 0) {
            return;
        }
        written += static_cast<size_t>(count);
    }
}

static void set_standard_input(int descriptor)
{
    if (descriptor < 0 || dup2(descriptor, STDIN_FILENO) != STDIN_FILENO) {
        abort();
    }
    close(descriptor);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    signal(SIGPIPE, SIG_IGN);
    int ends[2];
    if (pipe(ends) != 0) {
        abort();
    }
    set_standard_input(ends[0]);
    reset_input();
    const std::string session = tamed_text(data, size) + session_end;
    std::thread feeder(feed_session, ends[1], session);
    think_loop(&dialogue);
    wait_for_workers();
    set_standard_input(open("/dev/null", O_RDONLY));
    feeder.join();
    close(ends[1]);
    return 0;
}
