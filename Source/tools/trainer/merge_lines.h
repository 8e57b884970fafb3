// Many files of training lines made into one.
#pragma once

#include "search/thread.h"

// Writes the lines of tune_options.shards, in their order, to tune_options.file: each position
// once, with the score and the result of its first line. Which game comes first has nothing to do
// with how it ends, so that the first is as fair as any. Lines that cannot be read are named and
// left out, and so is the last line of a shard that ends within it; exit_status is 1 then. The file
// is a whole new one or the older one, and takes an older one's place only where that was asked
// for. thread is what the boards are set up on.
void merge_lines(SearchThread* thread);
