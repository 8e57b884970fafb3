// Names and signals. What the handler looks at is written before a name is marked as used.
#include "data/places.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

// ---- Names

static std::string folder_of(const std::string& name)
{
    const size_t slash = name.rfind('/');
    return slash == name.npos ? "." : slash == 0 ? "/" : name.substr(0, slash);
}

static std::string_view last_part(const std::string& name)
{
    const size_t slash = name.rfind('/');
    return slash == name.npos ? std::string_view(name) : std::string_view(name).substr(slash + 1);
}

static bool is_same_node(const std::string& a, const std::string& b)
{
    struct stat first;
    struct stat second;
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0
        && first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool is_same_place(const std::string& a, const std::string& b)
{
    return is_same_node(a, b)
        || (last_part(a) == last_part(b) && is_same_node(folder_of(a), folder_of(b)));
}

const char* place_problem(const std::string& name)
{
    if (name.empty()) {
        return "is no name";
    }
    struct stat status;
    if (stat(name.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        return "is a folder";
    }
    if (!is_plain_place(name)) {
        return nullptr;
    }
    if (access(folder_of(name).c_str(), W_OK | X_OK) != 0) {
        return errno == ENOENT ? "lies in a folder that is not there"
                               : "lies in a folder that takes no files";
    }
    return nullptr;
}

// The open file that a name of the system stands for, or -1.
static int find_descriptor(std::string_view name)
{
    if (name == "/dev/stdout" || name == "/dev/stderr") {
        return name == "/dev/stdout" ? STDOUT_FILENO : STDERR_FILENO;
    }
    for (const std::string_view folder : { "/dev/fd/", "/proc/self/fd/" }) {
        if (name.starts_with(folder)) {
            int number = -1;
            const std::string_view digits = name.substr(folder.size());
            std::from_chars(digits.data(), digits.data() + digits.size(), number);
            return number;
        }
    }
    return -1;
}

bool is_plain_place(const std::string& name)
{
    struct stat status;
    return find_descriptor(name) < 0
        && (stat(name.c_str(), &status) != 0 || S_ISREG(status.st_mode));
}

FILE* open_place(const std::string& name)
{
    const int descriptor = find_descriptor(name);
    if (descriptor < 0) {
        return fopen(name.c_str(), "we");
    }
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    FILE* file = copy >= 0 ? fdopen(copy, "w") : nullptr;
    if (file == nullptr && copy >= 0) {
        close(copy);
    }
    return file;
}

// ---- Unfinished files

namespace
{

struct UnfinishedName {
    std::atomic<bool> used = false;
    char name[4096] = {};
};

// The words write a few files at most; more, or longer names, are left where they are.
std::array<UnfinishedName, 16> unfinished_names;

constexpr int ending_signals[] = { SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT, SIGXCPU };

}

void remove_unfinished_files()
{
    for (const UnfinishedName& unfinished : unfinished_names) {
        if (unfinished.used.load()) {
            unlink(unfinished.name);
        }
    }
}

// Removes the files and ends as the signal would have ended the process without this.
static void remove_unfinished(int number)
{
    remove_unfinished_files();
    raise(number);
}

// A signal that is passed over, as behind nohup, stays so, and one that a word has taken for itself
// is its own.
static void catch_ends()
{
    for (const int number : ending_signals) {
        struct sigaction old;
        if (sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_DFL) {
            struct sigaction action = {};
            action.sa_handler = remove_unfinished;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(number, &action, nullptr);
        }
    }
}

std::string unfinished_name(const std::string& name)
{
    return name + ".part";
}

static void remember_unfinished(const std::string& name)
{
    for (UnfinishedName& unfinished : unfinished_names) {
        if (!unfinished.used.load() && name.size() < sizeof unfinished.name) {
            memcpy(unfinished.name, name.c_str(), name.size() + 1);
            unfinished.used.store(true);
            catch_ends();
            return;
        }
    }
}

// A signal waits until the file's name is known: else it would leave the file.
int open_unfinished(OutputFile* out, const char* name, const char* unfinished)
{
    sigset_t ending;
    sigset_t before;
    sigemptyset(&ending);
    for (const int number : ending_signals) {
        sigaddset(&ending, number);
    }
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    const int error = open_output(out, name, unfinished);
    if (error == 0) {
        remember_unfinished(unfinished);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

void forget_unfinished(const std::string& name)
{
    for (UnfinishedName& unfinished : unfinished_names) {
        if (unfinished.used.load() && name == unfinished.name) {
            unfinished.used.store(false);
            return;
        }
    }
}
