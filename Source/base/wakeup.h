// The bell by which a worker wakes the main loop out of its wait for input, so that a search that
// has ended is reported at once.
#pragma once

// Makes the bell. Without one (no descriptor was free) the main loop sees an end at its next look.
void init_wakeup();

// Rings it, from any thread. Rings that nobody has heard yet count as one.
void wake_main_loop();

// What to poll for input, -1 without a bell; and the end of a ring that was heard.
int wakeup_descriptor();
void clear_wakeup();
