// Strength by speed: the node rate of this machine, the rate that a limit allows, and the Elo of
// both.
#pragma once

#include "base/types.h"

// Written by the main thread while no worker searches, but for target_nps, which the console may
// set at any time. Every node reads whether there is a limit, those under one the rate too.
struct StrengthLimit {
    f64 calibration_nps;    // nodes a second that this machine was measured at
    f64 estimated_elo;      // Elo of that rate
    Shared<f64> target_nps; // node rate of the limit; calibration_nps without one
    u32 strength_level; // how often nodes are searched shallower: 0 without a limit, at most 150
    Shared<u8> nps_limited; // the search is held to target_nps
};
extern StrengthLimit strength;

// A rate this near to the machine's own cannot be told from it: no limit then.
inline constexpr f64 unreachable_nps = 30.0; // nodes a second

// The Elo of a node rate: 144 ln(x) + 1014 - 3000 / (x + 1).
f64 elo_of_nps(f64 nps);

// The node rate whose Elo is elo, as near as the bounds allow; half an Elo is near enough.
f64 nps_of_elo(i32 elo);
