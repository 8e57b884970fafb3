// Forking, with the care that no process outlives the other: each end sees the end of its pipe.
#include "host/process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

// Where the system call that closes them all is missing (before Linux 5.9), these are: the relay
// itself opens no more than a dozen.
static constexpr int highest_descriptor = 255;

static void close_others()
{
#ifdef SYS_close_range
    if (syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0) == 0) {
        return;
    }
#endif
    for (int descriptor = STDERR_FILENO + 1; descriptor <= highest_descriptor; ++descriptor) {
        close(descriptor);
    }
}

// What the forked process does. Signals are as at the start of any process. It is killed when its
// parent ends, in whatever way; if that has happened before the call could be made, the parent's
// number has changed.
[[noreturn]] static void run_forked(
    pid_t parent, int input, int output, int (*run)(void*), void* context)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(EXIT_FAILURE);
    }
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    close_others();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    exit(run(context));
}

static void close_pair(const int* pair)
{
    close(pair[0]);
    close(pair[1]);
}

// What this process has not written out yet would be written by both.
int start_process(Process* process, int (*run)(void* context), void* context)
{
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0) {
        return errno;
    }
    if (pipe2(output, O_CLOEXEC) != 0) {
        const int error = errno;
        close_pair(input);
        return error;
    }
    fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        const int error = errno;
        close_pair(input);
        close_pair(output);
        return error;
    }
    if (pid == 0) {
        run_forked(parent, input[0], output[1], run, context);
    }
    close(input[0]);
    close(output[1]);
    *process = Process {};
    process->pid = pid;
    process->from.descriptor = output[0];
    process->to.descriptor = input[1];
    return 0;
}

int end_process(Process* process)
{
    if (!is_running(process)) {
        return 0;
    }
    kill(process->pid, SIGKILL);
    int status = 0;
    while (waitpid(process->pid, &status, 0) < 0 && errno == EINTR) { }
    close(process->from.descriptor);
    close(process->to.descriptor);
    *process = Process {};
    return status;
}
