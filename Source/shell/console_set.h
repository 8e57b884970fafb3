// The word "set" of the console.
#pragma once

#include "shell/dialogue.h"
#include "shell/words.h"

// Changes the setting that the second word names to what the words behind it say, and tells the
// user of some. A key that is none changes nothing, but the next search rebuilds its tables all the
// same.
void change_setting(Dialogue* dialogue, Words* words, const char* line);
