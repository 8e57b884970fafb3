// Children whose output is read to its end by the process that started them.
#include "host/child.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// The child's life. Its parent may be gone before the order to die with it is given.
[[noreturn]] static void live(
    pid_t parent, int output, int (*run)(const void* context), const void* context)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(EXIT_FAILURE);
    }
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    const int status = run(context);
    fflush(stdout);
    _exit(status);
}

// What this process has not written out yet would be written by both.
int start_child(Child* child, int (*run)(const void* context), const void* context)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return errno;
    }
    fflush(nullptr);
    const pid_t parent = getpid();
    child->pid = fork();
    if (child->pid == 0) {
        close(ends[0]);
        live(parent, ends[1], run, context);
    }
    const int error = errno;
    close(ends[1]);
    if (child->pid < 0) {
        close(ends[0]);
        return error;
    }
    child->lines = fdopen(ends[0], "r");
    if (child->lines == nullptr) {
        close(ends[0]);
        kill(child->pid, SIGKILL);
        waitpid(child->pid, nullptr, 0);
        return ENOMEM;
    }
    return 0;
}

int end_child(Child* child)
{
    fclose(child->lines);
    int status = 0;
    while (waitpid(child->pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return EXIT_FAILURE;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}
