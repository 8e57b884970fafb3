// Calibration.
#include <cstdio>
#include <string>

#include "shell_test_support.h"
#include "search/clock.h"
#include "search/strength.h"
#include "shell/startup.h"

struct StartupTest : ShellTest {
};

TEST_F(StartupTest, CalibrationMeasuresForThreeTenthsOfASecond)
{
    set_workers(1);
    const std::string line = capture_output([] { calibrate(&dialogue); });
    f64 seconds = 0;
    f64 rate = 0;
    ASSERT_EQ(
        sscanf(line.c_str(), "info string et= %lf, calibration nps= %lf\n", &seconds, &rate), 2)
        << line;
    EXPECT_GE(seconds, 0.3);
    EXPECT_GT(rate, 0.0);
    EXPECT_NEAR(rate, strength.calibration_nps, 0.5001);
    EXPECT_EQ(strength.estimated_elo, elo_of_nps(strength.calibration_nps));
    const f64 nodes = static_cast<f64>(load(load(workers[0])->counters[CountNodes]));
    EXPECT_EQ(strength.calibration_nps, nodes * 1.17 / (load(search_clock.elapsed) + 0.001));
    EXPECT_EQ(fen_of(&load(workers[0])->pos), start_position);
}

TEST_F(StartupTest, CalibrationNeedsNoWorker)
{
    capture_output([] { calibrate(&dialogue); });
    EXPECT_GT(strength.calibration_nps, 0.0);
    EXPECT_EQ(fen_of(&dialogue.game->pos), start_position);
}
