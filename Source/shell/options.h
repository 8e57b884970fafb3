// The user's options by name: setting, announcing, and the configuration file.
#pragma once

#include "shell/dialogue.h"

// Applies one setting and prints what was set. value may be altered. Unknown names do nothing.
void set_option(Dialogue* dialogue, const char* name, char* value);

// Prints the option lines of "uci" with the values of dialogue->saved_options.
void announce_options(Dialogue* dialogue);

// Reads config_file_path line by line through set_option. Returns 1, or 0 if it cannot be opened.
i32 load_config_file(Dialogue* dialogue);
