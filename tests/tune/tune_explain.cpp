// What vesk-data finds out about the uses of weights by asking, against what the evaluation of this
// build notes of them as they happen.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_support.h"
#include "board/defect.h"
#include "data/explain_weights.h"
#include "eval/evaluate.h"
#include "eval/weights.h"

static_assert(tuning);

// How often each weight counts, white's uses less black's.
static std::vector<f64> noted_counts()
{
    std::vector<f64> counts(weight_count, 0.0);
    const TermNotes& notes = dialogue.game->eval_work.notes;
    for (i32 i = 0; i < notes.count; ++i) {
        counts[static_cast<size_t>(notes.list[i].weight)] += static_cast<f64>(notes.list[i].count);
    }
    return counts;
}

// Positions of games by chance, which get crowded, empty and strange.
TEST(TuneExplain, UsesFoundByAskingAreThoseNoted)
{
    u64 random = 7;
    i32 compared = 0;
    i32 uses = 0;
    Explainer explainer = make_explainer(1, false);
    for (i32 game = 0; game < 60; ++game) {
        Position* pos = set_position("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
        for (i32 step = 0; step < 12 && play_random_moves(pos, &random, 20) == 20; ++step) {
            if (position_defect(pos) != nullptr) {
                continue;
            }
            evaluate_at(dialogue.game, White, 1, 0);
            const std::vector<f64> noted = noted_counts();
            std::vector<ExplainedPosition> positions(1);
            positions[0].pos = *pos;
            explain_positions(&explainer, positions);
            ASSERT_TRUE(positions[0].why.is_whole);
            if (!positions[0].why.by_terms) {
                continue;
            }
            std::vector<f64> found(weight_count, 0.0);
            for (const ActingWeight& weight : find_acting_weights(positions[0].why)) {
                found[static_cast<size_t>(weight.index)] =
                    weight.times[White] - weight.times[Black];
                ++uses;
            }
            for (size_t i = 0; i < found.size(); ++i) {
                ASSERT_NEAR(found[i], noted[i], 1e-5)
                    << eval_params[i].name << " in " << fen_of(pos);
            }
            ++compared;
        }
    }
    EXPECT_GT(compared, 300);
    EXPECT_GT(uses, 10000);
}
