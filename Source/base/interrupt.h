// The user's wish that a long run end early and keep what it has.
#pragma once

// From now on Ctrl-C and the request to terminate are noted instead of ending the process, a second
// one ends it as usual. A reader of the output that has gone is noted too, but never ends the
// process: Ctrl-C ends the reader as well, and what the run has made is still to be written then. A
// terminal that has gone is noted unless the user has asked for that to be passed over (nohup).
// What came before is forgotten.
void catch_interrupts();

// Whether one of them has come.
[[nodiscard]] bool is_interrupted();
