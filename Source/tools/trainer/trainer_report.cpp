// What a training has done to each weight, as a text for people and as a table for programs. Both
// are written under a name of their own first, so that a report is whole or is the older one.
#include "tools/trainer/trainer_report.h"

#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <unistd.h>

#include "base/files.h"
#include "board/position.h"
#include "eval/weights.h"

static constexpr i32 label_size = 40;
static constexpr char text_name[] = "tune_report.txt";
static constexpr char table_name[] = "tune_report.csv";
static constexpr char unfinished_name[] = "tune_report.part";
static constexpr char errors_name[] = "tune_errors.csv";
static constexpr char unfinished_errors[] = "tune_errors.part";

// The name of a weight and, where several share it, the rank or the square of its table. Passed
// pawns' tables have eight ranks each, from 1 on.
static void write_label(i32 weight, char* label)
{
    const char* name = eval_params[weight].name;
    if (weight >= PST_P1) {
        snprintf(label, label_size, "%s %s", name, square_name[(weight - PST_P1) & 63]);
    } else if (weight >= ppawn && weight < ppawn_free + 8) {
        snprintf(label, label_size, "%s %d", name, (weight - ppawn) % 8 + 1);
    } else {
        snprintf(label, label_size, "%s", name);
    }
}

// The pawn's material anchors the scale.
static bool is_trained(i32 weight)
{
    return weight != mtl_pawn && eval_params[weight].frozen == 0;
}

// Rounded as the weights file would have held it.
static i32 old_value(const TrainedWeight* weight, i32 half)
{
    return static_cast<i32>(std::lround(weight->old[half]));
}

// Trained weights that counted; those never seen are listed below without numbers, as they have
// none. Gradients by size: near zero means that the weight has found its place.
static void write_text(FILE* file, const TrainedWeight* weights, const i64* counts)
{
    char label[label_size];
    fprintf(file, "%-22s %6s %6s %6s %6s %12s %10s %10s\n", "weight", "old mg", "new mg", "old eg",
        "new eg", "positions", "grad mg", "grad eg");
    for (i32 i = 0; i < weight_count; ++i) {
        if (!is_trained(i) || counts[i] == 0) {
            continue;
        }
        const TrainedWeight* weight = &weights[i];
        write_label(i, label);
        fprintf(file, "%-22s %6d %6d %6d %6d %12lld %10.2e %10.2e\n", label, old_value(weight, 0),
            score_mg(eval_params[i].packed), old_value(weight, 1), score_eg(eval_params[i].packed),
            static_cast<long long>(counts[i]), std::fabs(weight->gradient[0]),
            std::fabs(weight->gradient[1]));
    }
    fprintf(file, "\nnever seen:\n");
    for (i32 i = 0; i < weight_count; ++i) {
        if (counts[i] == 0) {
            write_label(i, label);
            fprintf(file, "%s\n", label);
        }
    }
}

// All weights, trained or not, with signed gradients and all digits.
static void write_table(FILE* file, const TrainedWeight* weights, const i64* counts)
{
    char label[label_size];
    fprintf(file,
        "entry,weight,trained,old_mg,new_mg,old_eg,new_eg,positions,gradient_mg,gradient_eg\n");
    for (i32 i = 0; i < weight_count; ++i) {
        const TrainedWeight* weight = &weights[i];
        write_label(i, label);
        fprintf(file, "%d,%s,%d,%d,%d,%d,%d,%lld,%.6e,%.6e\n", i, label, is_trained(i),
            old_value(weight, 0), score_mg(eval_params[i].packed), old_value(weight, 1),
            score_eg(eval_params[i].packed), static_cast<long long>(counts[i]), weight->gradient[0],
            weight->gradient[1]);
    }
}

// ---- The errors

void begin_errors(ErrorTable* table)
{
    const int error = open_output(&table->out, errors_name, unfinished_errors);
    table->is_open = error == 0;
    if (error != 0) {
        complain(errors_name, "cannot be opened for writing", error);
        exit_status = 1;
        return;
    }
    fprintf(table->out.file, "pass,rate,training_error,validation_error,change,best\n");
}

// Root mean square over the weights that count, centipawns.
static f64 mean_change(const TrainedWeight* weights, const i64* counts)
{
    f64 sum = 0.0;
    i64 halves = 0;
    for (i32 i = 0; i < weight_count; ++i) {
        if (!is_trained(i) || counts[i] == 0) {
            continue;
        }
        for (i32 half = 0; half < 2; ++half) {
            const f64 change = weights[i].value[half] - weights[i].old[half];
            sum += change * change;
        }
        halves += 2;
    }
    return halves > 0 ? std::sqrt(sum / static_cast<f64>(halves)) : 0.0;
}

// Written out at once: a plot may be made while the training goes on, from the unfinished file.
void add_errors(
    ErrorTable* table, const PassErrors* row, const TrainedWeight* weights, const i64* counts)
{
    if (!table->is_open) {
        return;
    }
    char validation[32] = "";
    if (row->has_validation) {
        snprintf(validation, sizeof validation, "%.9f", row->validation);
    }
    fprintf(table->out.file, "%lld,%.6g,%.9f,%s,%.4f,%d\n", static_cast<long long>(row->pass),
        row->rate, row->training, validation, mean_change(weights, counts), row->is_best);
    fflush(table->out.file);
}

void finish_errors(ErrorTable* table)
{
    if (!table->is_open) {
        return;
    }
    table->is_open = false;
    int error = close_output(&table->out);
    if (error == 0) {
        error = publish_output(&table->out);
    }
    if (error != 0) {
        complain(errors_name, "cannot be written", error);
        exit_status = 1;
    }
}

// ---- The reports

// A report that cannot be written leaves the weights file as the training's result, and the status
// tells of it.
static void write_report(const char* name,
    void (*write)(FILE* file, const TrainedWeight* weights, const i64* counts),
    const TrainedWeight* weights, const i64* counts)
{
    OutputFile out;
    int error = open_output(&out, name, unfinished_name);
    if (error == 0) {
        write(out.file, weights, counts);
        error = close_output(&out);
    }
    if (error == 0) {
        error = publish_output(&out);
    }
    if (error != 0) {
        complain(name, "cannot be written", error);
        exit_status = 1;
    }
}

void write_tune_reports(const TrainedWeight* weights, const i64* counts)
{
    write_report(text_name, write_text, weights, counts);
    write_report(table_name, write_table, weights, counts);
}

// Each is begun and dropped again, which leaves an older report as it was.
bool reports_can_be_written(const ToolInput* input)
{
    for (const char* name : { text_name, table_name }) {
        OutputFile out;
        if (!open_tool_output(input, &out, name, unfinished_name)) {
            return false;
        }
        drop_output(&out);
    }
    OutputFile out;
    if (!open_tool_output(input, &out, errors_name, unfinished_errors)) {
        return false;
    }
    drop_output(&out);
    return true;
}
