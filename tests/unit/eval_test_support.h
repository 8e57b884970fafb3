// What the tests of the evaluation share: running it on a position text, and switching all
// weights but one off, so that the score counts how often that weight is used.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "test_support.h"
#include "board/moves.h"
#include "board/position.h"
#include "eval/evaluate.h"
#include "eval/terms.h"
#include "eval/weights.h"

// Puts the weights right again, however a test ends.
struct WeightsRestored {
    ~WeightsRestored()
    {
        build_weights(NormalWeights);
    }
};

// Evaluates at ply 1, where no cache answers, for the side to move.
inline i32 evaluate_text(const char* text)
{
    Position* pos = set_position(text);
    const bool in_check = is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
    return evaluate_at(pos->thread, pos->stm, 1, in_check);
}

// The working record of the last evaluation on the console's record.
inline const EvalWork* last_work()
{
    return &dialogue.game->eval_work;
}

inline const EvalWork* work_of(const char* text)
{
    evaluate_text(text);
    return last_work();
}

inline void clear_weights()
{
    for (i32 index = 0; index < weight_count; ++index) {
        set_weight(index, 0, 0);
    }
}

// Score pair of side with weight at mg, eg and all others 0.
inline i32 isolated_pair(const char* text, i32 side, i32 weight, i32 mg, i32 eg)
{
    const WeightsRestored restored;
    set_position(text);
    clear_weights();
    set_weight(weight, mg, eg);
    return work_of(text)->score[side];
}

// How often weight is added to side.
inline i32 count_uses(const char* text, i32 side, i32 weight)
{
    const i32 word = isolated_pair(text, side, weight, 1, 100);
    EXPECT_EQ(score_eg(word), 100 * score_mg(word)) << text;
    return score_mg(word);
}

// The fraction by which weight is multiplied for side, in thousandths, truncated toward zero.
inline i32 thousandths(const char* text, i32 side, i32 weight)
{
    return score_mg(isolated_pair(text, side, weight, 1000, 0));
}

// The same position with the colours of pieces, side to move, rights and ranks exchanged.
inline std::string flip_colours(const std::string& text)
{
    std::string placement = text.substr(0, text.find(' '));
    std::string rest = text.substr(text.find(' '));
    std::string flipped;
    for (size_t end = placement.size(); end != std::string::npos;) {
        const size_t slash = end == 0 ? std::string::npos : placement.rfind('/', end - 1);
        const size_t start = slash == std::string::npos ? 0 : slash + 1;
        flipped += placement.substr(start, end - start);
        if (slash != std::string::npos) {
            flipped += '/';
        }
        end = slash;
    }
    const auto exchange = [](char c) {
        const int letter = static_cast<unsigned char>(c);
        return static_cast<char>(islower(letter) ? toupper(letter) : tolower(letter));
    };
    for (char& c : flipped) {
        c = exchange(c);
    }
    rest[1] = rest[1] == 'w' ? 'b' : 'w';
    for (size_t i = 3; i < rest.size() && rest[i] != ' '; ++i) {
        rest[i] = exchange(rest[i]);
    }
    const size_t ep = rest.find_last_of("36");
    if (ep != std::string::npos && ep > 3 && isalpha(static_cast<unsigned char>(rest[ep - 1]))) {
        rest[ep] = rest[ep] == '3' ? '6' : '3';
    }
    return flipped + rest;
}
