// Option values: the first line of the input is a name, the rest its value.
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "shell/options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    const std::string text = tamed_text(data, size);
    const size_t end = text.find('\n');
    const std::string name = text.substr(0, end);
    std::string value = end == std::string::npos ? "" : text.substr(end + 1);
    if (name == "Hash" || name == "Threads") {
        value = value.substr(0, 2);
    }
    std::vector<char> buffer(value.begin(), value.end());
    buffer.push_back('\0');
    set_option(&dialogue, name.c_str(), buffer.data());
    announce_options(&dialogue);
    return 0;
}
