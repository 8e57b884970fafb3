// Reading and writing the file of weights. The order of the lines is that of the table; a name that
// stands in another place is told to the user, and its values are taken for the place.
#include "shell/weights_file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/files.h"
#include "base/output.h"
#include "eval/weights.h"

// Reads a decimal integer at the start of text, behind blanks and with either sign; what follows it
// is ignored. Returns false if there is none. A number that no i32 holds keeps its low 32 bits.
static bool take_integer(const char* text, i32* value)
{
    char* end = nullptr;
    const long number = strtol(text, &end, 10);
    *value = static_cast<i32>(number);
    return end != text;
}

// Words end at the marks of fset("name",mg,eg); and at the line feed, so what stands between them
// may hold blanks. The first word is passed over, whatever it is.
void read_params(FILE* file, NameComplaint complain, void* context)
{
    static constexpr char delimiters[] = "(),\"\n";
    // A longer line is read in pieces of 254 characters, each taken as a line.
    char line[255];
    for (i32 number = 1; fgets(line, sizeof line, file) != nullptr; ++number) {
        char* rest = nullptr;
        const char* const word = strtok_r(line, delimiters, &rest);
        const char* const name = word ? strtok_r(nullptr, delimiters, &rest) : nullptr;
        const char* const mg_text = name ? strtok_r(nullptr, delimiters, &rest) : nullptr;
        const char* const eg_text = mg_text ? strtok_r(nullptr, delimiters, &rest) : nullptr;
        i32 mg = 0;
        i32 eg = 0;
        // A line that lacks fields sets nothing and leaves the cursor where it is.
        if (eg_text != nullptr && take_integer(mg_text, &mg) && take_integer(eg_text, &eg)) {
            if (const char* const expected = fset(name, mg, eg)) {
                complain(context, number, name, expected);
            }
        }
    }
}

static void print_complaint(void*, i32, const char* name, const char* expected)
{
    print_plain("error %s  %s\n", name, expected);
}

void load_params_file(const char* file_name)
{
    FILE* const file = open_regular_file(file_name);
    if (file == nullptr) {
        return;
    }
    read_params(file, print_complaint, nullptr);
    fclose(file);
}

int save_params_file(const char* name)
{
    OutputFile out;
    int error = open_output(&out, name, unfinished_params);
    if (error != 0) {
        return error;
    }
    // Rounded values: fractions of a centipawn are lost on this way.
    for (i32 index = 0; index < eval_param_count; ++index) {
        const EvalParam* entry = &eval_params[index];
        fprintf(out.file, "fset(\"%s\",%d,%d);\n", entry->name, score_mg(entry->packed),
            score_eg(entry->packed));
    }
    error = close_output(&out);
    return error != 0 ? error : publish_output(&out);
}
