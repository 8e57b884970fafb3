// Explanations in writing: for people, as JSON, as rows of CSV.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/explain_weights.h"

enum class ExplainForm : u8 { Text, Json, Csv };

// How explanations are written.
struct FormSettings {
    ExplainForm form = ExplainForm::Text;
    bool all_terms = true;                      // else only what is chosen below
    bool rows[eval_trace_rows] = {};            // rows of the score table, with all their weights
    std::vector<std::string_view> weights = {}; // names of weights
    std::vector<std::string> scaled = {};       // personality options that act, NAME=MG,EG
};

// Chooses a row of the score table or a weight, by its name. Returns false after a message if there
// is none of that name.
[[nodiscard]] bool choose_term(FormSettings* settings, std::string_view name);

// What stands in the input for one position, and what became of it.
struct Answer {
    i64 line = 0;            // in its file or among the arguments, the first is 1
    std::string id = {};     // of an EPD line; may be empty
    std::string text = {};   // what was refused, shortened
    std::string defect = {}; // why; empty if the position is explained
    size_t position = 0;     // its place among the explained ones
};

// What stands before all answers: the names of the columns of CSV, nothing else.
[[nodiscard]] std::string head_of_form(const FormSettings& settings);

// Adds an answer: a table, or one line of JSON or CSV. why is null where the position was refused:
// then JSON tells so, and the others are silent.
void append_answer(std::string* out, const FormSettings& settings, const Answer& answer,
    const ExplainedPosition* why);
