// One routine for each form. All numbers of an explanation are whole centipawns but phase, scale
// and how often a part of a weight counts; what they add up to is the evaluation's own sum.
#include "data/explain_forms.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "base/nearest_word.h"
#include "board/position.h"
#include "data/arguments.h"
#include "data/report.h"

static constexpr const char* side_names[2] = { "white", "black" };

[[gnu::format(printf, 2, 3)]] static void append_line(std::string* out, const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    out->append(text, std::min(static_cast<size_t>(std::max(length, 0)), sizeof text - 1));
}

// ---- Choosing

bool choose_term(FormSettings* settings, std::string_view name)
{
    std::vector<std::string_view> names;
    names.reserve(eval_trace_rows + weight_count);
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        names.push_back(eval_trace_name(row));
    }
    for (const EvalParam& entry : eval_params) {
        names.emplace_back(entry.name);
    }
    const auto found = std::ranges::find(names, name);
    if (found == names.end()) {
        const std::string near(nearest_word(name, names));
        const std::string meant = near.empty() ? near : "; '" + near + "' may be meant";
        static_cast<void>(refuse_data_words("explain", "there is no term or weight '%s'%s",
            std::string(name).c_str(), meant.c_str()));
        return false;
    }
    settings->all_terms = false;
    if (found - names.begin() < eval_trace_rows) {
        settings->rows[found - names.begin()] = true;
    } else if (std::ranges::find(settings->weights, *found) == settings->weights.end()) {
        settings->weights.push_back(*found);
    }
    return true;
}

static bool is_row_chosen(const FormSettings& settings, i32 row)
{
    return settings.all_terms || settings.rows[row];
}

static bool is_weight_chosen(const FormSettings& settings, const ActingWeight& weight)
{
    return is_row_chosen(settings, weight.row)
        || std::ranges::find(settings.weights, eval_params[weight.index].name)
        != settings.weights.end();
}

static std::vector<ActingWeight> chosen_weights(
    const FormSettings& settings, const Explanation& why)
{
    std::vector<ActingWeight> list = find_acting_weights(why);
    std::erase_if(
        list, [&](const ActingWeight& weight) { return !is_weight_chosen(settings, weight); });
    return list;
}

// ---- Words

static const char* judge_name(const Explanation& why)
{
    if (why.by_terms) {
        return "terms";
    }
    switch (why.lone_king) {
    case LoneKingRule::SinglePawn:
        return "king and pawn against king";
    case LoneKingRule::BishopAndKnight:
        return "bishop and knight against king";
    case LoneKingRule::HeavyMate:
        return "rook or queen against king";
    default:
        return "drawn material";
    }
}

// In words, in the order of their bits.
static constexpr const char* scale_reason_names[] = { "two bishops against a knight",
    "no pawns ahead", "rook's pawn with the wrong bishop", "opposite bishops", "no other pieces",
    "last pawn", "no free path" };

// Calls tell(text) for each reason of the scale.
template <typename Tell>
static void tell_scale_reasons(const Explanation& why, Tell tell)
{
    for (u64 left = why.scale_reasons; left != 0;) {
        tell(scale_reason_names[pop_lowest(&left)]);
    }
}

static bool is_table(i32 weight)
{
    return weight >= scalar_weight_count;
}

// The relative rank, 1 to 8, of an entry of an array by ranks; 0 for the others.
static i32 rank_of_weight(i32 weight)
{
    for (const i32 array : { ppawn, ppawn_mobile, ppawn_free }) {
        if (weight >= array && weight < array + 8) {
            return weight - array + 1;
        }
    }
    return 0;
}

static i32 table_entry(i32 weight)
{
    return (weight - scalar_weight_count) % 64;
}

static i32 word_difference(i32 a, i32 b)
{
    return static_cast<i32>(static_cast<u32>(a) - static_cast<u32>(b));
}

static i32 score_of_white(const ExplainedPosition& position)
{
    return position.pos.stm == White ? position.why.score : -position.why.score;
}

// ---- For people

static void append_halves(std::string* out, const char* times, i32 word)
{
    append_line(out, "  %7s %6d %6d", times, score_mg(word), score_eg(word));
}

static std::string text_of_times(f64 times)
{
    std::string text;
    append_line(&text, "%.4g", times);
    return text;
}

// The weight's name, with the square or the rank that tells the entries of one name apart. Squares
// are those of the tables, as White sees them with the king on the king's wing.
static std::string text_of_weight(i32 weight)
{
    std::string name = eval_params[weight].name;
    if (is_table(weight)) {
        name += std::string(" ") + square_name[table_entry(weight)];
    } else if (rank_of_weight(weight) != 0) {
        name += " " + std::to_string(rank_of_weight(weight));
    }
    return name;
}

static void append_text_weights(
    std::string* out, const FormSettings& settings, const Explanation& why)
{
    const std::vector<ActingWeight> weights = chosen_weights(settings, why);
    append_line(out, "%-22s %13s  %21s  %21s\n", "", "value", "white", "black");
    append_line(out, "%-22s %6s %6s", "", "mg", "eg");
    append_line(out, "  %7s %6s %6s  %7s %6s %6s\n", "times", "mg", "eg", "times", "mg", "eg");
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        const bool has_weights =
            std::ranges::find(weights, row, &ActingWeight::row) != weights.end();
        if (!is_row_chosen(settings, row) && !has_weights) {
            continue;
        }
        append_line(out, "%-36s", std::string(eval_trace_name(row)).c_str());
        append_halves(out, "", why.rows[row].gained[White]);
        append_halves(out, "", why.rows[row].gained[Black]);
        out->push_back('\n');
        for (const ActingWeight& weight : weights) {
            if (weight.row != row) {
                continue;
            }
            const EvalParam& entry = eval_params[weight.index];
            append_line(out, "  %-20s %6.6g %6.6g", text_of_weight(weight.index).c_str(), entry.mg,
                entry.eg);
            append_halves(out, text_of_times(weight.times[White]).c_str(), weight.added[White]);
            append_halves(out, text_of_times(weight.times[Black]).c_str(), weight.added[Black]);
            out->push_back('\n');
        }
    }
    append_line(out, "%-36s", "sum");
    append_halves(out, "", why.sum[White]);
    append_halves(out, "", why.sum[Black]);
    *out += "\n\n";
}

static void append_text(std::string* out, const FormSettings& settings, const Answer& answer,
    const ExplainedPosition& position)
{
    const Explanation& why = position.why;
    char fen[fen_size];
    make_fen(&position.pos, fen);
    append_line(out, "FEN %s\n", fen);
    if (!answer.id.empty()) {
        *out += "id " + answer.id + '\n';
    }
    for (const std::string& option : settings.scaled) {
        *out += option + '\n';
    }
    if (why.in_check) {
        *out += "The side to move is in check: the search asks for no score here.\n";
    }
    if (!why.by_terms) {
        append_line(out, "eval= %d, by a rule of its own: %s\n\n", why.score, judge_name(why));
        return;
    }
    *out += why.table;
    if (why.scale_reasons != 0) {
        // The table ends with an empty line.
        out->pop_back();
        *out += "hard to win:";
        const char* mark = " ";
        tell_scale_reasons(why, [&](const char* reason) {
            *out += mark;
            *out += reason;
            mark = ", ";
        });
        *out += "\n\n";
    }
    append_text_weights(out, settings, why);
}

// ---- JSON

static void append_json_halves(std::string* out, const char* name, i32 word)
{
    append_line(out, "\"%s\":{\"mg\":%d,\"eg\":%d", name, score_mg(word), score_eg(word));
}

// A row: each side's terms and material apart, and what they make together for White.
static void append_json_row(std::string* out, const Explanation& why, i32 row)
{
    const EvalTraceRow& gained = why.rows[row];
    *out += "{\"name\":\"" + std::string(eval_trace_name(row)) + "\",";
    for (i32 side = White; side <= Black; ++side) {
        append_json_halves(
            out, side_names[side], word_difference(gained.gained[side], gained.material[side]));
        append_line(out, ",\"value\":%d},", shown_terms(gained, side, why.phase));
    }
    *out += "\"material\":{";
    for (i32 side = White; side <= Black; ++side) {
        append_json_halves(out, side_names[side], gained.material[side]);
        append_line(out, ",\"value\":%d}%s", shown_material(gained, side, why.phase),
            side == White ? "," : "},");
    }
    append_json_halves(out, "total", word_difference(gained.gained[White], gained.gained[Black]));
    *out += "}}";
}

static void append_json_weight(std::string* out, const Explanation& why, const ActingWeight& weight)
{
    const EvalParam& entry = eval_params[weight.index];
    append_line(out, "{\"name\":\"%s\",\"line\":%d,", entry.name, weight.index + 1);
    if (is_table(weight.index)) {
        append_line(out, "\"square\":\"%s\",", square_name[table_entry(weight.index)]);
    }
    if (const i32 rank = rank_of_weight(weight.index); rank != 0) {
        append_line(out, "\"rank\":%d,", rank);
    }
    append_line(out, "\"term\":\"%s\",\"value\":{\"mg\":%.10g,\"eg\":%.10g},",
        std::string(eval_trace_name(weight.row)).c_str(), entry.mg, entry.eg);
    for (i32 side = White; side <= Black; ++side) {
        append_json_halves(out, side_names[side], weight.added[side]);
        append_line(out, ",\"times\":%.6g", weight.times[side]);
        if (is_table(weight.index) && weight.times[side] != 0.0) {
            const u64 square = static_cast<u64>(table_entry(weight.index)) ^ why.pst_flip[side];
            append_line(out, ",\"square\":\"%s\"", square_name[square]);
        }
        *out += side == White ? "}," : "}}";
    }
}

static void append_json_terms(
    std::string* out, const FormSettings& settings, const Explanation& why)
{
    append_line(out, ",\"phase\":%.9g,\"scale\":%.9g,\"tapered\":%d,", static_cast<f64>(why.phase),
        static_cast<f64>(why.scale), why.tapered);
    append_json_halves(out, "sum", word_difference(why.sum[White], why.sum[Black]));
    *out += "},\"hard_to_win\":[";
    const char* comma = "";
    tell_scale_reasons(why, [&](const char* reason) {
        append_line(out, "%s\"%s\"", comma, reason);
        comma = ",";
    });
    *out += "],\"hung\":[";
    comma = "";
    for (u64 hung = why.hung; hung != 0;) {
        append_line(out, "%s\"%s\"", comma, square_name[pop_lowest(&hung)]);
        comma = ",";
    }
    *out += "],\"terms\":[";
    comma = "";
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        if (is_row_chosen(settings, row)) {
            *out += comma;
            append_json_row(out, why, row);
            comma = ",";
        }
    }
    *out += "],\"weights\":[";
    comma = "";
    for (const ActingWeight& weight : chosen_weights(settings, why)) {
        *out += comma;
        append_json_weight(out, why, weight);
        comma = ",";
    }
    *out += ']';
}

static void append_json_options(std::string* out, const FormSettings& settings)
{
    *out += ",\"options\":{";
    const char* comma = "";
    for (const std::string& option : settings.scaled) {
        const size_t sign = option.find('=');
        *out += comma + ('"' + option.substr(0, sign) + "\":[") + option.substr(sign + 1) + ']';
        comma = ",";
    }
    *out += '}';
}

static void append_json(std::string* out, const FormSettings& settings, const Answer& answer,
    const ExplainedPosition* position)
{
    append_line(out, "{\"line\":%lld", static_cast<long long>(answer.line));
    if (!answer.id.empty()) {
        *out += ",\"id\":";
        append_json_string(out, answer.id);
    }
    if (position == nullptr) {
        *out += ",\"error\":";
        append_json_string(out, answer.defect);
        *out += ",\"text\":";
        append_json_string(out, answer.text);
        *out += "}\n";
        return;
    }
    const Explanation& why = position->why;
    char fen[fen_size];
    make_fen(&position->pos, fen);
    append_line(out, ",\"fen\":\"%s\",\"side\":\"%s\",\"check\":%s,\"judged_by\":\"%s\"", fen,
        side_names[position->pos.stm], why.in_check ? "true" : "false", judge_name(why));
    append_line(
        out, ",\"score\":{\"white\":%d,\"mover\":%d}", score_of_white(*position), why.score);
    if (!settings.scaled.empty()) {
        append_json_options(out, settings);
    }
    if (why.by_terms) {
        append_json_terms(out, settings, why);
    }
    *out += "}\n";
}

// ---- CSV

// What a row has for each side, apart by commas; name gets the column's names instead.
static constexpr const char* csv_parts[] = { "white_mg", "white_eg", "black_mg", "black_eg" };

static void append_csv_names(std::string* out, std::string_view name)
{
    for (const char* part : csv_parts) {
        *out += ',' + std::string(name) + '_' + part;
    }
}

static void append_csv_words(std::string* out, i32 white, i32 black)
{
    append_line(
        out, ",%d,%d,%d,%d", score_mg(white), score_eg(white), score_mg(black), score_eg(black));
}

std::string head_of_form(const FormSettings& settings)
{
    if (settings.form != ExplainForm::Csv) {
        return {};
    }
    std::string head = "line,id,fen,side,check,judged_by,score_white,score_mover,phase,scale,"
                       "tapered,sum_mg,sum_eg";
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        if (is_row_chosen(settings, row)) {
            const std::string name(eval_trace_name(row));
            append_csv_names(&head, name);
            append_csv_names(&head, name + "_material");
        }
    }
    for (const std::string_view weight : settings.weights) {
        const std::string name(weight);
        for (const char* part : { "_white_times", "_black_times" }) {
            head += ',';
            head += name;
            head += part;
        }
        append_csv_names(&head, name);
    }
    return head + ",hard_to_win,hung,acting_weights\n";
}

// By RFC 4180.
static void append_csv_text(std::string* out, std::string_view text)
{
    out->push_back('"');
    for (const char c : text) {
        if (c == '"') {
            out->push_back('"');
        }
        out->push_back(c);
    }
    out->push_back('"');
}

// All entries of one name together.
static void append_csv_weight(
    std::string* out, std::string_view name, const std::vector<ActingWeight>& weights)
{
    ActingWeight all = {};
    for (const ActingWeight& weight : weights) {
        if (name != eval_params[weight.index].name) {
            continue;
        }
        for (i32 side = White; side <= Black; ++side) {
            all.times[side] += weight.times[side];
            all.added[side] = static_cast<i32>(
                static_cast<u32>(all.added[side]) + static_cast<u32>(weight.added[side]));
        }
    }
    append_line(out, ",%.6g,%.6g", all.times[White], all.times[Black]);
    append_csv_words(out, all.added[White], all.added[Black]);
}

// The weights that act, in one cell: "PST_P2 e6=20/22*1/0; ..." is one of 20 in the middle game and
// 22 in the end game that counts once for White. A column for each of all there are would be empty
// nearly everywhere.
static std::string csv_list_of_weights(const FormSettings& settings, const Explanation& why)
{
    std::string list;
    for (const ActingWeight& weight : chosen_weights(settings, why)) {
        const EvalParam& entry = eval_params[weight.index];
        append_line(&list, "%s%s=%.10g/%.10g*%.6g/%.6g", list.empty() ? "" : "; ",
            text_of_weight(weight.index).c_str(), entry.mg, entry.eg, weight.times[White],
            weight.times[Black]);
    }
    return list;
}

// Each reason of the scale and each hanging piece, in the same way.
static void append_csv_lists(std::string* out, const FormSettings& settings, const Explanation& why)
{
    std::string reasons;
    tell_scale_reasons(why, [&](const char* reason) {
        reasons += reasons.empty() ? "" : "; ";
        reasons += reason;
    });
    std::string hung;
    for (u64 left = why.hung; left != 0;) {
        hung += hung.empty() ? "" : "; ";
        hung += square_name[pop_lowest(&left)];
    }
    for (const std::string& list : { reasons, hung, csv_list_of_weights(settings, why) }) {
        out->push_back(',');
        append_csv_text(out, list);
    }
}

static void append_csv_terms(std::string* out, const FormSettings& settings, const Explanation& why)
{
    append_line(out, ",%.9g,%.9g,%d", static_cast<f64>(why.phase), static_cast<f64>(why.scale),
        why.tapered);
    const i32 sum = word_difference(why.sum[White], why.sum[Black]);
    append_line(out, ",%d,%d", score_mg(sum), score_eg(sum));
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        if (is_row_chosen(settings, row)) {
            const EvalTraceRow& gained = why.rows[row];
            append_csv_words(out, word_difference(gained.gained[White], gained.material[White]),
                word_difference(gained.gained[Black], gained.material[Black]));
            append_csv_words(out, gained.material[White], gained.material[Black]);
        }
    }
    const std::vector<ActingWeight> weights = find_acting_weights(why);
    for (const std::string_view name : settings.weights) {
        append_csv_weight(out, name, weights);
    }
    append_csv_lists(out, settings, why);
}

// A row without terms has as many columns, which are empty.
static void append_csv(std::string* out, const FormSettings& settings, const Answer& answer,
    const ExplainedPosition& position)
{
    const Explanation& why = position.why;
    char fen[fen_size];
    make_fen(&position.pos, fen);
    append_line(out, "%lld,", static_cast<long long>(answer.line));
    append_csv_text(out, answer.id);
    append_line(out, ",%s,%s,%d,%s,%d,%d", fen, side_names[position.pos.stm], why.in_check ? 1 : 0,
        judge_name(why), score_of_white(position), why.score);
    if (why.by_terms) {
        append_csv_terms(out, settings, why);
    } else {
        const std::string head = head_of_form(settings);
        const auto columns = std::ranges::count(head, ',');
        out->append(static_cast<size_t>(columns - 7), ',');
    }
    out->push_back('\n');
}

// ---- Any form

void append_answer(std::string* out, const FormSettings& settings, const Answer& answer,
    const ExplainedPosition* why)
{
    if (settings.form == ExplainForm::Json) {
        append_json(out, settings, answer, why);
    } else if (why != nullptr && settings.form == ExplainForm::Csv) {
        append_csv(out, settings, answer, *why);
    } else if (why != nullptr) {
        append_text(out, settings, answer, *why);
    }
}
