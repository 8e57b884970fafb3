// The configuration file: the input is its content. It may name itself.
#include <cstdio>

#include "fuzz_support.h"
#include "shell/options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    write_file("fuzz.cfg", tamed_text(data, size));
    snprintf(dialogue.engine_options.config_file_path, file_option_size, "fuzz.cfg");
    load_config_file(&dialogue);
    announce_options(&dialogue);
    return 0;
}
