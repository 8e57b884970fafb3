// Trains the weights on a file of positions with results: logistic regression by steps of Adam. A
// step takes the gradient of one batch; the batch's chunks are summed up in their order, so that
// the number of threads changes nothing. The error is the mean squared difference of the expected
// and the wanted result. Whatever happens to a training, its weights file is the old one or a whole
// new one, and never takes the place of a file that the training did not begin with.
#include "tools/trainer/trainer.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/interrupt.h"
#include "base/output.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/threads.h"
#include "shell/weights_file.h"
#include "tools/tools.h"
#include "tools/trainer/merge_lines.h"
#include "tools/trainer/trainer_fit.h"
#include "tools/trainer/trainer_options.h"
#include "tools/trainer/trainer_report.h"
#include "tools/trainer/trainer_steps.h"

static constexpr i64 bytes_per_megabyte = 1048576;
// Often enough to look alive, seldom enough for a slow terminal.
static constexpr f64 seconds_per_progress = 0.5;
// Where the weights go that may not replace a file.
static constexpr char second_name[] = "params_new.txt";

// ---- Progress, on a terminal's standard error alone

// Whether it is time for a progress line; if so, one will be there to be taken away.
// A file or a pipe gets no progress: lines that are taken away again are of use on a terminal only.
static bool progress_is_due(TrainingData* data)
{
    const f64 now = monotonic_seconds();
    Progress* progress = &data->input.progress;
    if (!isatty(STDERR_FILENO) || now < progress->due) {
        return false;
    }
    progress->due = now + seconds_per_progress;
    progress->visible = true;
    return true;
}

// Hours, minutes and seconds.
static void write_time(f64 seconds, char* out, size_t size)
{
    const i64 whole = static_cast<i64>(seconds + 0.5);
    snprintf(out, size, "%lld:%02lld:%02lld", static_cast<long long>(whole / 3600),
        static_cast<long long>(whole / 60 % 60), static_cast<long long>(whole % 60));
}

// The share of the file's bytes; one more byte keeps an empty file from dividing. Also the place
// where the first reading looks for an interruption.
static bool show_reading(TrainingData* data)
{
    if (progress_is_due(data)) {
        fprintf(stderr, "\rreading: %.0f%%\033[K",
            100.0 * static_cast<f64>(ftello(data->input.lines.file))
                / static_cast<f64>(data->file_bytes + 1));
    }
    return !is_interrupted();
}

// "At most", as patience may end the training before its last pass. A pass is taken to last as long
// as the one before.
static void show_training(Trainer* trainer, i64 done, f64 pass_start)
{
    if (!progress_is_due(&trainer->data)) {
        return;
    }
    const f64 share =
        static_cast<f64>(done) / static_cast<f64>(trainer->data.positions[TrainingPart]);
    const f64 seconds = monotonic_seconds() - pass_start;
    const f64 whole_pass = trainer->pass_seconds > 0.0 ? trainer->pass_seconds : seconds / share;
    char left[32];
    write_time(whole_pass * static_cast<f64>(tune_options.passes - trainer->pass)
            + whole_pass * (1.0 - share),
        left, sizeof left);
    fprintf(stderr, "\rpass %lld: %.0f%%, %.0f positions/s, at most %s left\033[K",
        static_cast<long long>(trainer->pass), 100.0 * share, static_cast<f64>(done) / seconds,
        left);
}

// ---- Writing

// A weights file that has come while the training went on is another's, and is not replaced: from
// then on the weights are written under a second name, and the status tells of it. Once written,
// the file is this training's own.
static void give_way(Trainer* trainer)
{
    if (!trainer->has_file && access(params_file, F_OK) == 0) {
        fprintf(stderr, "%s: has come meanwhile, the weights go to %s\n", params_file, second_name);
        exit_status = 1;
        trainer->weights_name = second_name;
    }
    trainer->has_file = true;
}

// Puts the values into the table and writes the weights file. Returns whether it could be written.
// Values are rounded on their way into the table alone, so that the training goes on with what it
// had.
static bool write_values(Trainer* trainer)
{
    for (i32 i = 0; i < weight_count; ++i) {
        set_weight(i, trainer->weights[i].value[0], trainer->weights[i].value[1]);
    }
    hide_progress(&trainer->data.input);
    trainer->unsaved = 0;
    give_way(trainer);
    return write_weights(trainer->weights_name);
}

// Names what is wrong behind the file or weight concerned, as all tools do. Returns false, for a
// caller to pass on.
static bool reject(const char* text, const char* name)
{
    fprintf(stderr, "%s: %s\n", name, text);
    exit_status = 1;
    return false;
}

// ---- Passes

// Ends the training if a sweep did not give the positions that the first reading has found: the
// error of the others would be no measure, and passes could not be compared. A file that is read
// again may have been changed, or be gone from its disk.
static bool is_whole_sweep(Trainer* trainer, Part part, i64 positions)
{
    const TrainingData* data = &trainer->data;
    if (positions == data->positions[part] && !data->out_of_memory) {
        return true;
    }
    hide_progress(&trainer->data.input);
    trainer->failed = true;
    return reject(
        data->out_of_memory ? "no memory for its positions" : "has changed since it was first read",
        data->input.name);
}

// Walks over a part once, batch by batch, and learns from each if told to. The error of a batch is
// taken before its step, so the training error lags behind the weights: it is a mean over the pass.
// Looks for an interruption between batches alone, where the weights are whole. Returns the mean
// error, or a negative number if it could not be done to the end.
static f64 sweep(Trainer* trainer, Part part, bool learns)
{
    const f64 start = monotonic_seconds();
    trainer->part = part;
    trainer->learns = learns;
    start_sweep(&trainer->data, part);
    f64 error = 0.0;
    f64 all_emphasis = 0.0;
    i64 done = 0;
    i32 count = 0;
    while ((trainer->batch = next_batch(&trainer->data, &count)) != nullptr && !is_interrupted()) {
        run_team(&trainer->team, count, sum_chunk, trainer);
        i64 positions = 0;
        f64 emphasis = 0.0;
        for (i32 i = 0; i < count; ++i) {
            positions += trainer->batch[i].positions[part];
            emphasis += trainer->sums[i].emphasis;
            error += trainer->sums[i].error;
        }
        done += positions;
        all_emphasis += emphasis;
        if (learns && positions > 0) {
            take_step(trainer, emphasis);
            trainer->unsaved += positions;
            show_training(trainer, done, start);
        }
        // Counted in positions across passes, as a pass may take minutes or days.
        if (tune_options.save_every > 0 && trainer->unsaved >= tune_options.save_every) {
            write_values(trainer);
        }
    }
    const bool whole = !is_interrupted() && is_whole_sweep(trainer, part, done);
    return whole ? error / (done > 0 ? all_emphasis : 1.0) : -1.0;
}

// The values become the best ones; they are what is written at the end.
static void keep_best(Trainer* trainer, f64 error)
{
    trainer->best_error = error;
    trainer->best_pass = trainer->pass;
    for (TrainedWeight& weight : trainer->weights) {
        weight.best[0] = weight.value[0];
        weight.best[1] = weight.value[1];
    }
}

// A star marks a pass that is the best so far. The rate is that of the training part alone.
static void print_pass(
    const Trainer* trainer, f64 training, f64 validation, bool is_best, f64 seconds)
{
    char left[32];
    write_time(seconds * static_cast<f64>(tune_options.passes - trainer->pass), left, sizeof left);
    char measured[40] = "";
    if (trainer->data.positions[ValidationPart] > 0) {
        snprintf(measured, sizeof measured, ", validation error %.6f", validation);
    }
    print_plain("pass %lld: training error %.6f%s%s, %.0f positions/s, at most %s left\n",
        static_cast<long long>(trainer->pass), training, measured, is_best ? " *" : "",
        static_cast<f64>(trainer->data.positions[TrainingPart]) / seconds, left);
}

// The rate of a pass, from 1 on: it falls by the same share from each to the next, so that the
// weights settle where the first passes have only brought them near.
static f64 rate_of(i64 pass)
{
    return tune_options.rate
        * std::pow(1.0 - 0.01 * tune_options.decay, static_cast<f64>(pass - 1));
}

// One pass: trains, then measures. Pass 0 only measures, so that weights which training makes worse
// are not written. Without validation lines the training error decides which pass is the best one.
// Returns false if it could not be done to the end.
static bool run_pass(Trainer* trainer)
{
    const f64 start = monotonic_seconds();
    const bool learns = trainer->pass > 0;
    trainer->rate = learns ? rate_of(trainer->pass) : 0.0;
    const f64 training = sweep(trainer, TrainingPart, learns);
    const f64 swept = monotonic_seconds();
    const bool has_validation = trainer->data.positions[ValidationPart] > 0;
    const f64 validation =
        has_validation && training >= 0.0 ? sweep(trainer, ValidationPart, false) : training;
    hide_progress(&trainer->data.input);
    if (validation < 0.0) {
        return false;
    }
    trainer->pass_seconds = monotonic_seconds() - start;
    // Strictly less: of equal passes the earlier one has moved the weights less.
    const bool is_best = trainer->pass == 0 || validation < trainer->best_error;
    if (is_best) {
        keep_best(trainer, validation);
    }
    print_pass(trainer, training, validation, is_best && learns, swept - start);
    const PassErrors row = { trainer->pass, trainer->rate, training, validation, has_validation,
        is_best };
    add_errors(&trainer->errors, &row, trainer->weights, trainer->counts);
    return true;
}

// Runs passes until one of the ends is reached, and leaves the values that are to be written: the
// best ones, since passes beyond them have begun to learn the lines by heart. After an interruption
// it leaves the last ones, which a training that goes on from them needs.
static void run_passes(Trainer* trainer)
{
    bool goes_on = true;
    for (trainer->pass = 0; goes_on && trainer->pass <= tune_options.passes; ++trainer->pass) {
        goes_on = run_pass(trainer);
        const i64 waited = trainer->pass - trainer->best_pass;
        if (goes_on && tune_options.patience > 0 && waited >= tune_options.patience) {
            print_plain("no better error in %lld passes\n", static_cast<long long>(waited));
            break;
        }
    }
    // The loop has counted one pass on already.
    if (!goes_on && !trainer->failed) {
        print_plain("interrupted in pass %lld\n", static_cast<long long>(trainer->pass - 1));
        return;
    }
    print_plain("best pass: %lld\n", static_cast<long long>(trainer->best_pass));
    for (TrainedWeight& weight : trainer->weights) {
        weight.value[0] = weight.best[0];
        weight.value[1] = weight.best[1];
    }
}

// ---- The start

// A name that is wrong would train nothing, or all but what was meant. The pawn's material is the
// unit of all others: with it free, all weights could grow together.
static bool names_are_known()
{
    for (i32 i = 0; i < tune_names.count; ++i) {
        bool found = false;
        for (const EvalParam& entry : eval_params) {
            found = found || strcmp(entry.name, tune_names.name[i]) == 0;
        }
        if (!found) {
            return reject("no weight has this name", tune_names.name[i]);
        }
        if (strcmp(tune_names.name[i], eval_params[mtl_pawn].name) == 0) {
            return reject("anchors the scale and is not trained", tune_names.name[i]);
        }
    }
    return true;
}

// Whether there is a file of weights to go on from, once init_eval_params has read it. One without
// a single weight is somebody else's, and would be replaced at the end.
static bool can_resume()
{
    FILE* file = open_or_complain(params_file);
    if (file == nullptr) {
        exit_status = 1;
        return false;
    }
    fclose(file);
    param_cursor = 0;
    load_params_file(params_file);
    return param_cursor > 0 || reject("holds no weights to go on from", params_file);
}

// Looks at the start whether all that the training ends with can be written, and would not take
// the place of its input: hours later it would be too late.
static bool outputs_can_be_written()
{
    ToolInput input;
    if (!open_input(&input, tune_options.file)) {
        exit_status = 1;
        return false;
    }
    OutputFile out;
    bool can = open_tool_output(&input, &out, params_file, unfinished_params);
    if (can) {
        drop_output(&out);
        can = reports_can_be_written(&input);
    }
    close_input(&input);
    return can;
}

// The weights to begin with. Training never replaces a weights file that it does not go on from:
// weeks of another training may stand in it. Steps and their running means begin anew either way.
static bool init_weights(Trainer* trainer)
{
    const bool has_file = access(params_file, F_OK) == 0;
    if (has_file && !tune_options.resume) {
        return reject("is there: go on from it with -tune-resume, or move it away", params_file);
    }
    if (!has_file && tune_options.resume) {
        return reject("is not there to go on from", params_file);
    }
    trainer->has_file = has_file;
    // No cache is asked where the training evaluates, so none is cleared.
    // The options that scale weights are a player's taste: trained into the weights, they would
    // count twice.
    init_eval_params(PlainWeights, nullptr);
    load_params_file(params_file);
    if (has_file && !can_resume()) {
        return false;
    }
    for (i32 i = 0; i < weight_count; ++i) {
        TrainedWeight* weight = &trainer->weights[i];
        weight->value[0] = eval_params[i].mg;
        weight->value[1] = eval_params[i].eg;
        weight->best[0] = eval_params[i].mg;
        weight->best[1] = eval_params[i].eg;
        weight->old[0] = eval_params[i].mg;
        weight->old[1] = eval_params[i].eg;
    }
    copy_values(trainer);
    return names_are_known();
}

// Says what became of all lines, so that a file in the wrong form shows before hours are spent.
static void print_data(const Trainer* trainer)
{
    const TrainingData* data = &trainer->data;
    const i64 positions = data->positions[TrainingPart] + data->positions[ValidationPart];
    print_plain("%lld positions: %lld to train on, %lld for validation\n",
        static_cast<long long>(positions), static_cast<long long>(data->positions[TrainingPart]),
        static_cast<long long>(data->positions[ValidationPart]));
    i64 refused = 0;
    for (i32 verdict = LineRefused; verdict < LineVerdictCount; ++verdict) {
        refused += data->counts[verdict];
    }
    print_plain("left out: %lld in check, %lld judged without weights, %lld with a ce beyond %d,"
                " %lld refused\n",
        static_cast<long long>(data->counts[LineInCheck]),
        static_cast<long long>(data->counts[LineWithoutWeights]),
        static_cast<long long>(data->counts[LineFarScore]), largest_training_score,
        static_cast<long long>(refused));
    if (data->is_kept) {
        print_plain("in memory: %.1f MB\n", static_cast<f64>(data->memory) / bytes_per_megabyte);
    } else {
        print_plain("read again for every pass: more than %lld MB\n",
            static_cast<long long>(tune_options.memory));
    }
    const i64 alone = positions - data->game_lines;
    if (tune_options.validation > 0 && alone == 0) {
        print_plain("validation by whole games\n");
    } else if (tune_options.validation > 0) {
        print_plain("validation by groups of 32 lines: %lld positions do not tell their game\n",
            static_cast<long long>(alone));
    }
}

// Adds up what the threads have found out, in whatever order they worked: counts and greatest
// values do not depend on it. Returns whether the coefficients are sound; if a score cannot be
// rebuilt from them within the rounding, their gradients are wrong as well, and nothing is trained.
static bool collect_gathered(Trainer* trainer)
{
    RebuiltCheck all = {};
    for (i32 worker = 0; worker < trainer->team.size; ++worker) {
        const Gatherer* gatherer = &trainer->data.gatherers[worker];
        for (i32 i = 0; i < weight_count; ++i) {
            trainer->counts[i] += gatherer->counts[i];
        }
        all.positions += gatherer->check.positions;
        all.failed = all.failed || gatherer->check.failed;
        if (gatherer->check.largest > all.largest) {
            all.largest = gatherer->check.largest;
            all.bound = gatherer->check.bound;
        }
    }
    print_plain("scores of %lld positions rebuilt: within %.2f of the evaluation, %.2f allowed"
                " there\n",
        static_cast<long long>(all.positions), all.largest, all.bound);
    return !all.failed || reject("scores cannot be rebuilt from these weights", "evaluation");
}

// Each thread evaluates on a record of its own.
static bool load_data(Dialogue* dialogue, Trainer* trainer)
{
    TrainingData* data = &trainer->data;
    data->seed = tune_options.seed;
    data->validation = tune_options.validation;
    data->memory_limit = tune_options.memory * bytes_per_megabyte;
    data->team = &trainer->team;
    data->gatherers =
        static_cast<Gatherer*>(calloc(static_cast<size_t>(trainer->team.size), sizeof(Gatherer)));
    if (data->gatherers == nullptr) {
        return reject("no memory for its positions", tune_options.file);
    }
    // A configuration file may have taken all workers away; the team has one member then.
    for (i32 worker = 0; worker < trainer->team.size; ++worker) {
        SearchThread* thread = load_acquire(workers[worker]);
        data->gatherers[worker].thread = thread != nullptr ? thread : dialogue->game;
        data->gatherers[worker].rule = { tune_options.score_share, tune_options.late,
            tune_options.near_draw, usual_factor, tune_options.fits_scale,
            tune_options.fits_scale };
    }
    print_plain("Training using %s ...\n", tune_options.file);
    const bool loaded = load_training_data(data, tune_options.file, show_reading);
    hide_progress(&data->input);
    if (!loaded) {
        return false;
    }
    print_data(trainer);
    return collect_gathered(trainer);
}

static bool goes_on()
{
    return !is_interrupted();
}

// The factor of the logistic, for targets and errors alike, and what goes by it. Returns false if
// it is to be fitted and cannot be, or if the user has ended the training.
static bool set_factor(Trainer* trainer)
{
    trainer->factor = usual_factor;
    if (tune_options.fits_scale) {
        trainer->factor = fit_to_results(trainer, goes_on);
        if (trainer->factor == 0.0f) {
            return false;
        }
        print_plain("factor of the logistic: %.6f\n", static_cast<f64>(trainer->factor));
        settle_targets(&trainer->data, trainer->factor);
    }
    init_prior(&trainer->prior, tune_options.pull, tune_options.smooth,
        static_cast<f64>(trainer->factor), trainer->data.positions[TrainingPart], trainer->counts);
    return true;
}

// Weights before outputs, outputs before the long reading: what can be refused is refused early. An
// interruption while reading leaves nothing changed, one in the passes still writes.
static void train(Dialogue* dialogue, Trainer* trainer)
{
    print_tune_settings();
    if (!init_weights(trainer) || !outputs_can_be_written() || !load_data(dialogue, trainer)) {
        return;
    }
    const bool has_factor = set_factor(trainer);
    if (is_interrupted()) {
        print_plain("interrupted before the first pass\n");
        return;
    }
    if (!has_factor) {
        return;
    }
    begin_errors(&trainer->errors);
    run_passes(trainer);
    finish_errors(&trainer->errors);
    if (write_values(trainer)) {
        print_plain("%s written\n", trainer->weights_name);
    }
    write_tune_reports(trainer->weights, trainer->counts);
}

// Without contempt: targets are judged from both sides alike. Memory is given back in any case, as
// tests run several trainings in a process.
void run_trainer(Dialogue* dialogue)
{
    if (tune_options.shards != nullptr) {
        merge_lines(dialogue->game);
        return;
    }
    Trainer* trainer = new (std::nothrow) Trainer {};
    if (trainer == nullptr) {
        reject("no memory", "trainer");
        return;
    }
    trainer->weights_name = params_file;
    contempt_rule.off = true;
    catch_interrupts();
    start_team(&trainer->team, num_threads > 0 ? num_threads : 1);
    train(dialogue, trainer);
    end_team(&trainer->team);
    free_training_data(&trainer->data);
    free(trainer->data.gatherers);
    delete trainer;
}
