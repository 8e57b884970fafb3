// Adding up what games hold.
#include "data/games_rules.h"

#include <cstddef>

void add_tally(GameTally* sum, const GameTally& tally)
{
    sum->moves += tally.moves;
    sum->comments += tally.comments;
    sum->variations += tally.variations;
    sum->marks += tally.marks;
    sum->clocks += tally.clocks;
    sum->unreadable_scores += tally.unreadable_scores;
    sum->scores_without_view += tally.scores_without_view;
    sum->scores_of_taken_view += tally.scores_of_taken_view;
    sum->odd_tags += tally.odd_tags;
    sum->changed_tags += tally.changed_tags;
    sum->without_mark += tally.without_mark;
    sum->broken_off += tally.broken_off;
    for (size_t i = 0; i < sum->scores.size(); ++i) {
        sum->scores[i] += tally.scores[i];
    }
}
