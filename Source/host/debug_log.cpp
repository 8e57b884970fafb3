// The log of the dialogue: every line is written at once, so that it is there after a crash.
#include "host/debug_log.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "base/types.h"

static constexpr mode_t file_mode = 0644;

static constexpr i32 most_names = 100; // tried for one process

// "vesk.log" becomes "vesk-1234.log", and "vesk-1234-2.log" where that is there already: an older
// process may have had the same number.
static std::string name_of_process(std::string_view name, i32 attempt)
{
    std::string number = '-' + std::to_string(getpid());
    if (attempt > 1) {
        number += '-' + std::to_string(attempt);
    }
    const size_t folder = name.rfind('/');
    const size_t dot = name.rfind('.');
    std::string own(name);
    const bool has_ending = dot != std::string_view::npos && dot > 0
        && (folder == std::string_view::npos || dot > folder + 1);
    return own.insert(has_ending ? dot : name.size(), number);
}

void end_log(DebugLog* log)
{
    if (log->descriptor >= 0) {
        close(log->descriptor);
    }
    *log = DebugLog {};
}

int begin_log(DebugLog* log, std::string_view name)
{
    if (log->descriptor >= 0 && log->asked == name) {
        return 0;
    }
    end_log(log);
    if (name.empty()) {
        return 0;
    }
    log->asked = name;
    i32 attempt = 0;
    do {
        log->name = name_of_process(name, ++attempt);
        log->descriptor = open(
            log->name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, file_mode);
    } while (log->descriptor < 0 && errno == EEXIST && attempt < most_names);
    return log->descriptor >= 0 ? 0 : errno;
}

static std::string time_stamp()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts;
    localtime_r(&now.tv_sec, &parts);
    char text[32];
    const size_t size = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    const std::string thousandths = std::to_string(1000 + now.tv_nsec / 1000000);
    return std::string(text, size) + '.' + thousandths.substr(1);
}

int log_text(DebugLog* log, char direction, std::string_view text)
{
    if (log->descriptor < 0) {
        return 0;
    }
    const std::string line = time_stamp() + ' ' + direction + ' ' + std::string(text) + '\n';
    errno = 0;
    const ssize_t count = write(log->descriptor, line.data(), line.size());
    if (count == static_cast<ssize_t>(line.size())) {
        return 0;
    }
    const int error = errno != 0 ? errno : ENOSPC;
    end_log(log);
    return error;
}
