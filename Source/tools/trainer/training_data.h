// The training file as the trainer walks it: parts for training and for validation, each in
// batches of chunks. Lines of one game are of one part. Chunks are made of a fixed number of lines,
// so they are the same however many threads there are, and whether they are kept in memory or made
// again for every sweep.
#pragma once

#include "tools/tool_input.h"
#include "tools/trainer/team.h"
#include "tools/trainer/training_gather.h"

// Lines that train, and lines that only measure the error of weights trained without them.
// PartCount also stands for both.
enum Part : i32 { TrainingPart, ValidationPart, PartCount };

// The least piece of a thread's work, and a step's: a batch of chunks. Changing them changes every
// training, as steps are taken by batch.
inline constexpr i32 chunk_lines = 256;
inline constexpr i32 batch_chunks = 16;
inline constexpr i32 batch_lines = chunk_lines * batch_chunks;
inline constexpr i32 line_slot = training_line_length + 4; // with CR, line feed and NUL

// The positions of chunk_lines lines, by part: records one behind the other, in the order of the
// lines. Written by one thread at a time; a negative count says that memory was lacking.
struct Chunk {
    u32* words[PartCount];
    u32 size[PartCount]; // words in use
    u32 capacity[PartCount];
    i32 positions[PartCount];
    i32 game_lines; // of all its lines: those that tell their game
};

// The file and what has been made of it. The main thread writes all but the chunks and verdicts of
// the batch that the team gathers.
struct TrainingData {
    ToolInput input;
    i64 file_bytes;
    i64 seed;
    i64 validation;   // per cent of the games
    i64 memory_limit; // bytes for chunks
    i64 memory;       // bytes that they take
    bool is_kept;     // the chunks hold the whole file; else it is read again
    // Lines are counted and told of once, however often they are read again.
    bool is_first_reading;
    // Ends the training, with a message by whoever sees it first.
    bool out_of_memory;
    Team* team;
    Gatherer* gatherers; // one for each thread of the team

    Chunk* chunks; // kept ones, or those of one batch
    i64 chunk_count;
    i64 chunk_capacity;
    i64 next_chunk; // of a sweep over kept chunks

    char (*lines)[line_slot]; // the batch being read
    LineVerdict* verdicts;
    i32 lines_read;
    Part wanted;    // part gathered, PartCount for both
    u64 first_game; // key of the first game that the file tells; it trains. 0 for none

    // Of the first reading: lines by what became of them, and positions by part.
    i64 counts[LineVerdictCount];
    i64 positions[PartCount];
    i64 game_lines; // that tell their game
};

// Reads the next line of a training file, without its line feed and a carriage return before it,
// into line_slot bytes. verdict gets LineUsed, or why it cannot be read as a text; such a line is
// read to its end all the same. Returns false at the end of the file.
[[nodiscard]] bool read_training_line(LineReader* lines, char* out, LineVerdict* verdict);

// Opens the file path and reads it once: checks and counts its lines, tells standard error which
// are refused, and keeps the positions if they fit. on_progress is called now and then and may ask
// for the end by returning false. Returns false, with exit_status 1 and a message, if there is
// nothing to train on; the data must be freed in any case.
[[nodiscard]] bool load_training_data(
    TrainingData* data, const char* path, bool (*on_progress)(TrainingData* data));

// Makes the targets of raw records in all kept chunks, by the gatherers' rule, whose factor has
// become known; lines that are read again from then on have theirs at once.
void settle_targets(TrainingData* data, f32 factor);

// Begins a sweep over one part, at its first batch, whatever became of an earlier one.
void start_sweep(TrainingData* data, Part part);

// The chunks of the next batch, at most batch_chunks of them; count gets how many. They stand until
// the next call. Null at the end, and where the memory was lacking, which out_of_memory tells.
[[nodiscard]] Chunk* next_batch(TrainingData* data, i32* count);

// Gives back all but the gatherers, and closes the file. data may be one that was never loaded, all
// zero.
void free_training_data(TrainingData* data);
