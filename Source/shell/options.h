// The user's options by name: setting, announcing, and the configuration file.
#pragma once

#include "shell/engine_options.h"

// Applies one setting and prints what was set. value may be altered. Unknown names do nothing.
void set_option(const char* name, char* value);

// Prints the option lines of "uci" with the values of saved_options.
void announce_options();

// Reads config_file_path line by line through set_option. Returns 1, or 0 if it cannot be opened.
i32 load_config_file();
