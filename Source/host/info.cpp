// Lines are changed as texts, word by word, so that what is not known here stays as it is.
#include "host/info.h"

#include "host/chances.h"
#include "host/text.h"

static constexpr std::string_view score_word = " score ";
static constexpr std::string_view number_word = " multipv ";

static std::optional<i64> take_number(std::string_view* text)
{
    i64 value = 0;
    return read_number(take_word(text), &value) ? std::optional(value) : std::nullopt;
}

static std::optional<InfoScore> take_score(std::string_view* text)
{
    const std::string_view kind = take_word(text);
    const std::optional<i64> value = take_number(text);
    if (!value || (kind != "cp" && kind != "mate")) {
        return std::nullopt;
    }
    return InfoScore { kind == "mate", *value };
}

InfoLine read_info(std::string_view text)
{
    InfoLine line;
    take_word(&text); // "info" itself
    for (std::string_view word = take_word(&text); !word.empty(); word = take_word(&text)) {
        if (word == "string") {
            return {};
        }
        if (word == "depth") {
            line.depth = take_number(&text);
        } else if (word == "multipv") {
            line.line_number = take_number(&text);
        } else if (word == "nodes") {
            line.nodes = take_number(&text);
        } else if (word == "nps") {
            line.rate = take_number(&text);
        } else if (word == "score") {
            line.score = take_score(&text);
        } else if (word == "pv") {
            line.moves = trimmed(text);
            return line;
        }
    }
    return line;
}

std::string with_line_number(std::string_view text, i64 number)
{
    const size_t found = text.find(number_word);
    if (found == std::string_view::npos) {
        return std::string(text);
    }
    std::string_view rest = text.substr(found + number_word.size());
    take_word(&rest);
    std::string line(text.substr(0, found));
    if (number > 0) {
        line += number_word;
        line += std::to_string(number);
    }
    line += rest;
    return line;
}

std::string with_chances(std::string_view text)
{
    const size_t found = text.find(score_word);
    const InfoLine line = read_info(text);
    if (found == std::string_view::npos || !line.score) {
        return std::string(text);
    }
    std::string_view rest = text.substr(found + score_word.size());
    take_word(&rest); // cp or mate
    take_word(&rest); // and its number
    const Chances chances = line.score->is_mate ? chances_of_mate(line.score->value)
                                                : chances_of_score(line.score->value);
    std::string out(text.substr(0, text.size() - rest.size()));
    out += " wdl " + std::to_string(chances.win) + ' ' + std::to_string(chances.draw) + ' '
        + std::to_string(chances.loss);
    out += rest;
    return out;
}
