// The dialogue with a chess program: what stands between it and the engine's own.
#pragma once

// Speaks UCI on the process's standard streams until "quit", the end of input, the host's end or a
// signal to end, with an engine in a child process. Returns the status that the process is to end
// with: 0, or 1 if no engine could be started. No process is left behind.
[[nodiscard]] int run_relay();
