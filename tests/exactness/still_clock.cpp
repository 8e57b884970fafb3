// Loaded into an engine (LD_PRELOAD), lets it see one and the same second of the day for ever. A
// strength limit chooses the nodes that it overlooks by that second, so that without this no two
// searches under it could be compared. Time limits go by another clock, which still runs.
#include <ctime>

extern "C" time_t time(time_t* result) noexcept
{
    const time_t still = 1'000'000'000;
    if (result != nullptr) {
        *result = still;
    }
    return still;
}
