// Children whose output is read to its end by the process that started them.
#include "host/child.h"

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

#include "host/process.h"

int start_child(Child* child, int (*run)(void* context), void* context)
{
    Process process;
    if (const int error = start_process(&process, run, context); error != 0) {
        return error;
    }
    FILE* lines = fdopen(process.from.descriptor, "r");
    if (lines == nullptr) {
        end_process(&process);
        return ENOMEM;
    }
    close(process.to.descriptor);
    *child = { process.pid, lines };
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
