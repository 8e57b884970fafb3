// The trainer of the tuning build.
#pragma once

#include "shell/dialogue.h"

// Does what tune_options say: merges files of training lines, or trains the weights and writes the
// weights file and the reports. Sets exit_status to 1 if input was refused or something could not
// be written. Main thread; no worker may be searching, as their records are used for the
// evaluations.
void run_trainer(Dialogue* dialogue);
