// The engine's reader is run on the engine's table and the table compared afterwards, so that what
// is told is what a game would be played with. Its complaints go to standard output, and its table
// is the process's: hence a child.
#include "host/weights_check.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "base/files.h"
#include "base/text.h"
#include "eval/weights.h"
#include "shell/weights_file.h"
#include "host/child.h"

static constexpr char complaint[] = "error ";

static int compare_weights(void*)
{
    static i32 own_words[weight_count];
    init_eval_params(PlainWeights, nullptr);
    std::copy_n(eval_words, weight_count, own_words);
    param_cursor = 0;
    load_params_file(params_file);
    i32 differing = 0;
    for (i32 i = 0; i < weight_count; ++i) {
        differing += eval_words[i] != own_words[i] ? 1 : 0;
    }
    printf("\nweights %d %d\n", differing, param_cursor);
    return 0;
}

static bool is_readable()
{
    FILE* file = open_regular_file(params_file);
    if (file != nullptr) {
        fclose(file);
    }
    return file != nullptr;
}

WeightsCheck check_weights()
{
    WeightsCheck check = {};
    check.name = params_file;
    check.total = weight_count;
    struct stat status;
    if (stat(params_file, &status) != 0 && errno == ENOENT) {
        check.state = WeightsFile::None;
        return check;
    }
    if (!is_readable()) {
        check.state = WeightsFile::Unread;
        return check;
    }
    Child child;
    check.state = WeightsFile::Unknown;
    if (start_child(&child, compare_weights, nullptr) != 0) {
        return check;
    }
    char line[1024];
    while (fgets(line, sizeof line, child.lines) != nullptr) {
        line[strcspn(line, "\n")] = '\0';
        if (strncmp(line, complaint, sizeof complaint - 1) == 0 && check.misplaced++ == 0) {
            copy_text(
                check.first_misplaced, sizeof check.first_misplaced, line + sizeof complaint - 1);
        }
        if (sscanf(line, "weights %d %d", &check.differing, &check.read) == 2) {
            check.state = WeightsFile::Used;
        }
    }
    if (end_child(&child) != 0) {
        check.state = WeightsFile::Unknown;
    }
    return check;
}
