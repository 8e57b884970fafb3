// A line is read strictly: choices after another line than the one that was meant would mislead.
#include "data/book_line.h"

#include "base/text.h"
#include "board/moves.h"
#include "board/notation.h"

// A word without what stands around its move: "12.Nf3!?" is "Nf3", "3..." nothing.
static std::string_view strip_word(std::string_view word)
{
    size_t digits = 0;
    while (digits < word.size() && is_digit(word[digits])) {
        ++digits;
    }
    if (digits > 0 && digits < word.size() && word[digits] == '.') {
        word.remove_prefix(digits);
    } else if (digits == word.size()) {
        return {};
    }
    while (word.starts_with('.')) {
        word.remove_prefix(1);
    }
    while (!word.empty() && std::string_view("!?+#").find(word.back()) != word.npos) {
        word.remove_suffix(1);
    }
    return word;
}

static bool refuse_word(std::string_view word, const char* what, size_t place, std::string* problem)
{
    *problem = "'" + std::string(word.substr(0, 40)) + "' " + what + " after "
        + std::to_string(place) + " half-moves";
    return false;
}

bool play_line(Position* pos, std::string_view text, std::vector<Move>* line, std::string* problem)
{
    while (!text.empty()) {
        size_t size = 0;
        while (size < text.size() && !is_space(text[size])) {
            ++size;
        }
        const std::string_view word = text.substr(0, size);
        text.remove_prefix(size == text.size() ? size : size + 1);
        const std::string_view move_text = strip_word(word);
        if (move_text.empty()) {
            continue;
        }
        if (line->size() == most_line_moves) {
            return refuse_word(word, "is one move too many", line->size(), problem);
        }
        Move move = NoMove;
        const i32 matches = find_move(pos, move_text, &move);
        if (matches != 1) {
            return refuse_word(word, matches == 0 ? "is no legal move" : "could be two moves",
                line->size(), problem);
        }
        make_move(pos, move);
        line->push_back(move);
    }
    return true;
}
