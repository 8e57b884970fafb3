// Steps of start-up that are more than a call.
#pragma once

// Measures for 0.3 seconds how fast this machine does the work of an interior node, sets
// calibration_nps and estimated_elo from it and prints the figure. No worker may be searching.
void calibrate();
