// What lines go through between the check and the output: positions that have been are dropped,
// kinds of positions balanced or a sample drawn, and all put into an order drawn by chance. Each
// stage takes its share of memory and then goes on in scratch files; what comes out depends on the
// lines, their order and the seed alone. Lines carry their order, by which all is drawn.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/types.h"
#include "data/scratch.h"
#include "tools/key_set.h"

// ---- Each position once

// Keys that have been. When no more have room, lines of other keys wait in buckets by key, and each
// bucket has room for its own.
struct UniqueStage {
    ScratchPlace place;
    KeySet keys {};
    std::unique_ptr<Scratch> late;
    i32 level = 0; // how often the keys have been parted
    i64 dropped = 0;
    i64 waiting = 0; // lines that have been kept for the end
    int error = 0;   // errno of a scratch file

    UniqueStage() = default;
    UniqueStage(const UniqueStage&) = delete;
    UniqueStage& operator=(const UniqueStage&) = delete;
    ~UniqueStage();
};

void start_unique(UniqueStage* stage, const ScratchPlace& place);

// Hands a line on unless its position has been, or keeps it for the end. Returns false to end the
// run, as next does or because of stage->error.
[[nodiscard]] bool put_unique(UniqueStage* stage, const CarriedLine& line, const LineSink& next);

// Hands on the lines that have waited: all come in their order.
[[nodiscard]] bool finish_unique(UniqueStage* stage, const LineSink& next);

// ---- Balance and sample

// By what positions are told apart, and how many of each kind are kept.
struct ThinRule {
    bool by_phase = false;  // the bands of positions_line.h
    bool by_result = false; // from white's view; lines without one are left out
    f64 ratio = 1.0;        // the largest kind to the smallest, at most
    i64 sample = -1;        // lines kept of all, at most; -1: no limit
    i64 seed = 1;
};

inline constexpr i32 most_line_classes = phase_bands * 3;

struct ThinStage {
    ThinRule rule;
    Scratch spool;
    i64 before[most_line_classes] = {};
    i64 kept[most_line_classes] = {};
    i64 without_result = 0;
};

void start_thin(ThinStage* stage, const ThinRule& rule, const ScratchPlace& place);

// Keeps a line for the end. Returns false where the scratch file takes no more.
[[nodiscard]] bool put_thin(ThinStage* stage, const CarriedLine& line);

// Hands on those that are kept, in their order. Returns false as put_unique does; the error is the
// spool's.
[[nodiscard]] bool finish_thin(ThinStage* stage, const LineSink& next);

// How many lines finish_thin will hand on.
[[nodiscard]] i64 count_kept(const ThinStage& stage);

// What a class is called, for a report.
[[nodiscard]] std::string class_name(const ThinRule& rule, i32 line_class);

// How many are kept of each class, by how many there are.
void set_quotas(const ThinRule& rule, const i64* counts, i64* quotas);

// ---- Order

struct ShuffleStage {
    ScratchPlace place;
    i64 seed = 0;
    i32 level = 0;
    i64 waiting = 0; // lines
    Scratch buckets; // by the first bits of the drawn numbers
    int error = 0;
};

void start_shuffle(ShuffleStage* stage, i64 seed, const ScratchPlace& place);
[[nodiscard]] bool put_shuffled(ShuffleStage* stage, const CarriedLine& line);

// Hands on all lines, in the order of the numbers drawn for them: each order is as likely as any
// other.
[[nodiscard]] bool finish_shuffle(ShuffleStage* stage, const LineSink& next);

// ---- Chance

// What numbers are drawn for, so that one seed gives each its own.
enum class Draw : u8 { Order, Sample, Part };

// A number drawn for an item, the same in every run of that seed.
[[nodiscard]] u64 draw_number(i64 seed, Draw draw, u64 item);
