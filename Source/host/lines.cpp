// Reading and writing without ever waiting: the relay would not hear a "stop" meanwhile.
#include "host/lines.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <unistd.h>

static constexpr size_t read_size = 1 << 16;

void fill_source(LineSource* source)
{
    // What was taken is cut off first, so that the text moves once for many lines.
    source->data.erase(0, source->start);
    source->start = 0;
    const size_t before = source->data.size();
    source->data.resize(before + read_size);
    const ssize_t count = read(source->descriptor, source->data.data() + before, read_size);
    source->data.resize(before + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
        source->at_end = true;
    }
}

// A line that is too long goes as it comes, so that no more than the longest one is ever held.
static bool drop_long_line(LineSource* source, size_t end)
{
    const bool ended = end != std::string::npos;
    const size_t size = (ended ? end : source->data.size()) - source->start;
    if (!source->dropping && size <= longest_line) {
        return false;
    }
    source->start = ended ? end + 1 : source->data.size();
    source->dropping = !ended;
    source->dropped += ended;
    return true;
}

bool take_line(LineSource* source, std::string* line)
{
    for (;;) {
        const size_t end = source->data.find('\n', source->start);
        if (drop_long_line(source, end)) {
            if (end == std::string::npos) {
                return false;
            }
            continue;
        }
        if (end == std::string::npos && (!source->at_end || source->start == source->data.size())) {
            return false;
        }
        line->assign(source->data, source->start,
            end == std::string::npos ? std::string::npos : end - source->start);
        source->start = end == std::string::npos ? source->data.size() : end + 1;
        if (!line->empty() && line->back() == '\r') {
            line->pop_back();
        }
        std::replace(line->begin(), line->end(), '\0', ' ');
        return true;
    }
}

void put_line(LineSink* sink, std::string_view line)
{
    if (!sink->broken) {
        sink->pending.append(line);
        sink->pending.push_back('\n');
    }
}

// A pipe that is ready takes PIPE_BUF bytes at once without a wait. SIGPIPE is ignored by the
// process, so that a reader who has gone is an error here.
void flush_sink(LineSink* sink)
{
    size_t done = 0;
    while (!sink->broken && done < sink->pending.size()) {
        pollfd writable = { sink->descriptor, POLLOUT, 0 };
        if (poll(&writable, 1, 0) <= 0) {
            break;
        }
        const size_t size = std::min<size_t>(PIPE_BUF, sink->pending.size() - done);
        const ssize_t count = write(sink->descriptor, sink->pending.data() + done, size);
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (errno != EINTR && errno != EAGAIN) {
            sink->broken = true;
        }
    }
    sink->pending.erase(0, done);
    if (sink->broken) {
        sink->pending.clear();
    }
}
