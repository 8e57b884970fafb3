// Reading batches of lines on the calling thread and gathering their positions on all. A chunk is
// always made of the same lines, and a line belongs to a part by its number alone: sweeps over kept
// chunks and over the file give the same batches.
#include "tools/trainer/training_data.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/files.h"
#include "base/mixing.h"

// Lines that train or are held out together where the game is not told: a game's lines are spread
// over few groups this way.
static constexpr i32 group_lines = 32;
// The sample on which scores are rebuilt: checking all lines would only cost time, as an error of
// the notes shows early.
static constexpr i32 checked_lines = 32768; // the sample on which scores are rebuilt
static constexpr u32 first_capacity = 8192; // words

// Whether a group of lines only measures, by its number alone: an even mixture of its bits.
static bool is_held_out(const TrainingData* data, u64 group)
{
    const u64 mixed = mix_bits(group + static_cast<u64>(data->seed) * mixing_step);
    return static_cast<i64>(mixed % 100) < data->validation;
}

// The positions of one game are much alike and share its result: with some of them trained on, the
// others would measure what was learnt by heart. So a game is held out as a whole, or 32 lines
// where it is not told. The first of either trains, so that a short file is not all held out. game
// is the key of the line's, number its own.
static Part part_of_line(const TrainingData* data, u64 game, i32 number)
{
    const u64 group = static_cast<u64>((number - 1) / group_lines);
    const bool is_first = game != 0 ? game == data->first_game : group == 0;
    return !is_first && is_held_out(data, game != 0 ? game : group) ? ValidationPart : TrainingPart;
}

// ---- Lines

// Passes over what is left of a line. Returns whether there was anything.
static bool skip_rest(LineReader* lines)
{
    bool any = false;
    char piece[line_slot];
    while (lines->in_line && read_line_piece(lines, piece, sizeof piece) > 0) {
        any = true;
    }
    return any;
}

bool read_training_line(LineReader* lines, char* out, LineVerdict* verdict)
{
    i32 length = read_line_piece(lines, out, line_slot);
    if (length == 0) {
        return false;
    }
    const bool binary = memchr(out, '\0', static_cast<size_t>(length)) != nullptr;
    const bool has_more = skip_rest(lines);
    length -= out[length - 1] == '\n';
    length -= length > 0 && out[length - 1] == '\r';
    out[length] = '\0';
    *verdict = binary                               ? LineBinary
        : has_more || length > training_line_length ? LineTooLong
                                                    : LineUsed;
    return true;
}

// A short batch is the last one.
static bool read_lines(TrainingData* data)
{
    i32 count = 0;
    while (count < batch_lines
        && read_training_line(&data->input.lines, data->lines[count], &data->verdicts[count])) {
        ++count;
    }
    data->lines_read = count;
    // The games of later batches are held out by chance alone: there is something to train on then.
    if (data->is_first_reading && data->input.lines.line_number <= batch_lines) {
        for (i32 i = 0; i < count && data->first_game == 0; ++i) {
            data->first_game = game_key(data->lines[i]);
        }
    }
    return count > 0;
}

// The number of a line of the batch, from 1 on in the file.
static i32 line_number(const TrainingData* data, i32 index)
{
    return data->input.lines.line_number - data->lines_read + 1 + index;
}

// ---- Chunks

// Makes room for one more position. Returns false if there is no memory. Doubles, so that a chunk
// is moved a few times at most; memory too large is given back by cut_chunk.
static bool make_room(Chunk* chunk, Part part)
{
    if (chunk->size[part] + most_position_words <= chunk->capacity[part]) {
        return true;
    }
    const u32 capacity = 2 * chunk->capacity[part] + first_capacity;
    void* words = realloc(chunk->words[part], capacity * sizeof(u32));
    if (words == nullptr) {
        return false;
    }
    chunk->words[part] = static_cast<u32*>(words);
    chunk->capacity[part] = capacity;
    return true;
}

// The memory stays, for the next batch of the file.
static void empty_chunk(Chunk* chunk)
{
    for (i32 part = 0; part < PartCount; ++part) {
        chunk->size[part] = 0;
        chunk->positions[part] = 0;
    }
    chunk->game_lines = 0;
}

static void free_chunk(Chunk* chunk)
{
    for (u32* words : chunk->words) {
        free(words);
    }
    *chunk = {};
}

// Gathers the lines of one chunk of the batch being read. A chunk without memory is marked by a
// negative count, since a part of a job cannot end the job.
static void gather_chunk(void* context, i32 worker, i32 index)
{
    TrainingData* data = static_cast<TrainingData*>(context);
    Chunk* chunk = &data->chunks[data->chunk_count - batch_chunks + index];
    empty_chunk(chunk);
    for (i32 i = index * chunk_lines; i < (index + 1) * chunk_lines && i < data->lines_read; ++i) {
        const i32 line = line_number(data, i);
        LineVerdict* verdict = &data->verdicts[i];
        if (*verdict != LineUsed) {
            continue;
        }
        const u64 game = game_key(data->lines[i]);
        const Part part = part_of_line(data, game, line);
        if (data->wanted != PartCount && data->wanted != part) {
            *verdict = LineOfOtherPart;
            continue;
        }
        if (!make_room(chunk, part)) {
            chunk->positions[part] = -1;
            return;
        }
        u32 words = 0;
        *verdict = gather_line(&data->gatherers[worker], data->lines[i],
            data->is_first_reading && line <= checked_lines, chunk->words[part] + chunk->size[part],
            &words);
        chunk->size[part] += words;
        chunk->positions[part] += *verdict == LineUsed;
        chunk->game_lines += *verdict == LineUsed && game != 0;
    }
}

// Adds room for the chunks of one batch at the end. Returns false if there is no memory. New ones
// are zeroed, which makes them empty chunks.
static bool add_chunks(TrainingData* data)
{
    if (data->chunk_count + batch_chunks > data->chunk_capacity) {
        const i64 capacity = 2 * data->chunk_capacity + batch_chunks;
        void* chunks = realloc(data->chunks, static_cast<size_t>(capacity) * sizeof(Chunk));
        if (chunks == nullptr) {
            return false;
        }
        data->chunks = static_cast<Chunk*>(chunks);
        memset(static_cast<void*>(data->chunks + data->chunk_capacity), 0,
            static_cast<size_t>(capacity - data->chunk_capacity) * sizeof(Chunk));
        data->chunk_capacity = capacity;
    }
    data->chunk_count += batch_chunks;
    return true;
}

// Reads and gathers the next batch into the last chunks, over what they held. Returns false at the
// end of the file or without memory, which out_of_memory tells apart.
static bool gather_batch(TrainingData* data)
{
    if (!read_lines(data)) {
        return false;
    }
    run_team(data->team, batch_chunks, gather_chunk, data);
    const Chunk* chunks = &data->chunks[data->chunk_count - batch_chunks];
    for (i32 i = 0; i < batch_chunks; ++i) {
        data->out_of_memory = data->out_of_memory || chunks[i].positions[TrainingPart] < 0
            || chunks[i].positions[ValidationPart] < 0;
    }
    return !data->out_of_memory;
}

// ---- The first reading

// Counts the lines of the batch and tells of those that are refused. On the calling thread, in the
// order of the file, so that messages come the same in every run.
static void count_lines(TrainingData* data)
{
    for (i32 i = 0; i < data->lines_read; ++i) {
        const LineVerdict verdict = data->verdicts[i];
        ++data->counts[verdict];
        if (verdict >= LineRefused) {
            refuse(&data->input, line_number(data, i), "%s", refusal_text(verdict));
        }
    }
}

// Gives back the memory that the positions of a chunk do not need.
static void cut_chunk(Chunk* chunk, i32 part)
{
    if (chunk->size[part] == 0) {
        free(chunk->words[part]);
        chunk->words[part] = nullptr;
        chunk->capacity[part] = 0;
    } else if (void* words = realloc(chunk->words[part], chunk->size[part] * sizeof(u32))) {
        chunk->words[part] = static_cast<u32*>(words);
        chunk->capacity[part] = chunk->size[part];
    }
}

// Cuts the chunks of the batch to what they hold and counts their memory; beyond the limit all kept
// chunks are given up for one batch's, and every sweep reads the file again: slow, but it trains on
// any file.
static void settle_chunks(TrainingData* data)
{
    for (i64 i = data->chunk_count - batch_chunks; i < data->chunk_count; ++i) {
        Chunk* chunk = &data->chunks[i];
        data->game_lines += chunk->game_lines;
        for (i32 part = 0; part < PartCount; ++part) {
            data->positions[part] += chunk->positions[part];
            data->memory += static_cast<i64>(chunk->size[part] * sizeof(u32));
            if (data->is_kept) {
                cut_chunk(chunk, part);
            }
        }
    }
    data->memory += batch_chunks * static_cast<i64>(sizeof(Chunk));
    if (data->memory > data->memory_limit && data->is_kept) {
        data->is_kept = false;
        for (i64 i = batch_chunks; i < data->chunk_count; ++i) {
            free_chunk(&data->chunks[i]);
        }
        data->chunk_count = batch_chunks;
    }
}

// Both parts are gathered at once. Without memory to keep chunks one batch's are used over and
// over.
static void read_first_time(TrainingData* data, bool (*on_progress)(TrainingData* data))
{
    data->is_kept = true;
    data->is_first_reading = true;
    data->wanted = PartCount;
    bool goes_on = true;
    while (goes_on) {
        if ((data->is_kept || data->chunk_count == 0) && !add_chunks(data)) {
            data->out_of_memory = true;
            return;
        }
        goes_on = gather_batch(data);
        if (goes_on) {
            count_lines(data);
            settle_chunks(data);
            goes_on = on_progress(data);
        } else if (data->is_kept) {
            data->chunk_count -= batch_chunks; // found empty
        }
    }
    data->is_first_reading = false;
}

static bool reject(const TrainingData* data, const char* text)
{
    fprintf(stderr, "%s: %s\n", data->input.name, text);
    exit_status = 1;
    return false;
}

// The lines of a batch lie in one block, each in a slot of the longest line's size.
static bool open_data(TrainingData* data, const char* path)
{
    if (!open_input(&data->input, path)) {
        data->input.lines.file = nullptr;
        exit_status = 1;
        return false;
    }
    FILE* file = data->input.lines.file;
    // For the share of the file in the progress line.
    fseeko(file, 0, SEEK_END);
    data->file_bytes = ftello(file);
    rewind_input(&data->input);
    data->lines = static_cast<char(*)[line_slot]>(calloc(batch_lines, line_slot));
    data->verdicts = static_cast<LineVerdict*>(calloc(batch_lines, sizeof(LineVerdict)));
    return (data->lines != nullptr && data->verdicts != nullptr)
        || reject(data, "no memory for its lines");
}

// Messages come from where the reason is known; what is left here is told at the end.
bool load_training_data(
    TrainingData* data, const char* path, bool (*on_progress)(TrainingData* data))
{
    if (!open_data(data, path)) {
        return false;
    }
    read_first_time(data, on_progress);
    if (data->out_of_memory) {
        return reject(data, "no memory for its positions");
    }
    return data->positions[TrainingPart] > 0 || reject(data, "no position to train on");
}

// ---- Targets

// A job of the team: settles the records of one chunk.
static void settle_chunk(void* context, i32, i32 index)
{
    TrainingData* data = static_cast<TrainingData*>(context);
    const Chunk* chunk = &data->chunks[index];
    for (i32 part = 0; part < PartCount; ++part) {
        u32* words = chunk->words[part];
        for (i32 i = 0; i < chunk->positions[part]; ++i) {
            TrainingPosition position;
            memcpy(&position, words, sizeof position);
            settle_target(&position, &data->gatherers[0].rule);
            memcpy(words, &position, sizeof position);
            words += position_words + position.terms;
        }
    }
}

void settle_targets(TrainingData* data, f32 factor)
{
    for (i32 worker = 0; worker < data->team->size; ++worker) {
        data->gatherers[worker].rule.factor = factor;
        data->gatherers[worker].rule.is_raw = false;
    }
    if (data->is_kept) {
        run_team(data->team, static_cast<i32>(data->chunk_count), settle_chunk, data);
    }
}

// ---- Sweeps

void start_sweep(TrainingData* data, Part part)
{
    data->wanted = part;
    data->next_chunk = 0;
    if (!data->is_kept) {
        rewind_input(&data->input);
    }
}

Chunk* next_batch(TrainingData* data, i32* count)
{
    *count = batch_chunks;
    if (!data->is_kept) {
        return gather_batch(data) ? data->chunks : nullptr;
    }
    if (data->next_chunk >= data->chunk_count) {
        return nullptr;
    }
    Chunk* chunks = &data->chunks[data->next_chunk];
    data->next_chunk += batch_chunks;
    return chunks;
}

void free_training_data(TrainingData* data)
{
    for (i64 i = 0; i < data->chunk_count; ++i) {
        free_chunk(&data->chunks[i]);
    }
    free(data->chunks);
    free(data->lines);
    free(data->verdicts);
    if (data->input.lines.file != nullptr) {
        close_input(&data->input);
    }
}
