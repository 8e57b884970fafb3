// Parting by key or by a drawn number is done over again with further bits where a bucket is still
// too large, so that no input is.
#include "data/positions_stages.h"

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <string_view>

#include "base/mixing.h"

static constexpr i32 key_bits = 6;    // of a key that choose a bucket
static constexpr i32 number_bits = 8; // the same of a drawn number
static constexpr i32 word_bits = 64;

// How often a word can be parted. Keys that are equal up to there are not known to exist.
static constexpr i32 deepest_level = word_bits / number_bits - 1;

// The bits of a word by which it is parted at a level.
static size_t bits_at(u64 word, i32 level, i32 bits)
{
    const i32 shift = word_bits - bits * (level + 1);
    return static_cast<size_t>(word >> shift & ((u64 { 1 } << bits) - 1));
}

u64 draw_number(i64 seed, Draw draw, u64 item)
{
    const u64 start =
        mix_bits((static_cast<u64>(seed) * 3 + static_cast<u64>(draw) + 1) * mixing_step);
    return mix_bits(start + item * mixing_step);
}

// ---- Each position once

UniqueStage::~UniqueStage()
{
    free_keys(&keys);
}

static ScratchPlace part_of(const ScratchPlace& place, i64 divisor)
{
    return { place.folder, place.memory / divisor };
}

// Half of the memory is the keys', a quarter that of the lines that wait, and one of those that
// are left of them.
void start_unique(UniqueStage* stage, const ScratchPlace& place)
{
    stage->place = place;
    stage->keys.most_bytes = place.memory / 2;
}

bool put_unique(UniqueStage* stage, const CarriedLine& line, const LineSink& next)
{
    const u64 key = line.facts.key;
    if (stage->late == nullptr) {
        const KeyVerdict verdict = add_key(&stage->keys, key);
        if (verdict == KeyAdded) {
            return next(line);
        }
        if (verdict == KeyKnown) {
            ++stage->dropped;
            return true;
        }
        if (stage->level == deepest_level) {
            stage->error = ENOMEM;
            return false;
        }
        stage->late = std::make_unique<Scratch>();
        start_scratch(stage->late.get(), part_of(stage->place, 4), size_t { 1 } << key_bits);
    } else if (has_key(&stage->keys, key)) {
        ++stage->dropped;
        return true;
    }
    const bool good = add_to_bucket(stage->late.get(), bits_at(key, stage->level, key_bits), line);
    stage->error = stage->late->error;
    ++stage->waiting;
    return good;
}

// Puts the lines of a bucket that are left into the same one of `left`.
static bool sift_bucket(UniqueStage* stage, size_t bucket, Scratch* left)
{
    UniqueStage inner;
    start_unique(&inner, part_of(stage->place, 2));
    inner.level = stage->level + 1;
    const LineSink keep = [&](const CarriedLine& line) {
        return add_to_bucket(left, bucket, line);
    };
    BucketReader reader = start_bucket(stage->late.get(), bucket);
    CarriedLine line;
    bool good = true;
    while (good && read_from_bucket(&reader, &line)) {
        good = put_unique(&inner, line, keep);
    }
    good = good && stage->late->error == 0 && finish_unique(&inner, keep);
    stage->dropped += inner.dropped;
    for (const int error : { stage->late->error, inner.error, left->error }) {
        stage->error = stage->error != 0 ? stage->error : error;
    }
    return good;
}

// A bucket whose next line has been read.
struct Waiting {
    BucketReader reader;
    CarriedLine line;
};

// Hands on the lines of all buckets, each of which is in order, in the order of all.
static bool merge_buckets(Scratch* scratch, const LineSink& next)
{
    std::vector<Waiting> waiting(scratch->buckets.size());
    std::vector<Waiting*> heap;
    const auto is_later = [](const Waiting* a, const Waiting* b) {
        return a->line.facts.order > b->line.facts.order;
    };
    for (size_t i = 0; i < waiting.size(); ++i) {
        waiting[i].reader = start_bucket(scratch, i);
        if (read_from_bucket(&waiting[i].reader, &waiting[i].line)) {
            heap.push_back(&waiting[i]);
        }
    }
    std::ranges::make_heap(heap, is_later);
    while (!heap.empty()) {
        std::ranges::pop_heap(heap, is_later);
        Waiting* first = heap.back();
        if (!next(first->line)) {
            return false;
        }
        if (read_from_bucket(&first->reader, &first->line)) {
            std::ranges::push_heap(heap, is_later);
        } else {
            heap.pop_back();
        }
    }
    return scratch->error == 0;
}

bool finish_unique(UniqueStage* stage, const LineSink& next)
{
    if (stage->late == nullptr) {
        return true;
    }
    free_keys(&stage->keys);
    Scratch left;
    start_scratch(&left, part_of(stage->place, 4), stage->late->buckets.size());
    for (size_t i = 0; i < stage->late->buckets.size(); ++i) {
        if (!sift_bucket(stage, i, &left)) {
            return false;
        }
    }
    stage->late.reset();
    const bool good = merge_buckets(&left, next);
    stage->error = left.error;
    return good;
}

// ---- Balance and sample

static i32 class_count(const ThinRule& rule)
{
    return (rule.by_phase ? phase_bands : 1) * (rule.by_result ? 3 : 1);
}

static i32 class_of(const ThinRule& rule, const LineFacts& facts)
{
    const i32 band = rule.by_phase ? band_of(facts.phase) : 0;
    return rule.by_result ? 3 * band + facts.outcome : band;
}

std::string class_name(const ThinRule& rule, i32 line_class)
{
    static constexpr const char* bands[phase_bands] = { "bare ending", "ending", "middle game",
        "opening" };
    static constexpr const char* outcomes[3] = { "black won", "drawn", "white won" };
    const i32 band = rule.by_result ? line_class / 3 : line_class;
    std::string name = rule.by_phase ? bands[band] : "";
    if (rule.by_result) {
        name += name.empty() ? "" : ", ";
        name += outcomes[line_class % 3];
    }
    return name;
}

// Lowers all quotas to one that leaves no more than the wanted number of lines. What the last step
// leaves over goes to the first classes that have more.
static void cut_quotas(i32 classes, i64 wanted, i64* quotas)
{
    const auto sum_at = [&](i64 most) {
        i64 sum = 0;
        for (i32 i = 0; i < classes; ++i) {
            sum += std::min(quotas[i], most);
        }
        return sum;
    };
    i64 low = 0;
    i64 high = *std::max_element(quotas, quotas + classes);
    while (low < high) {
        const i64 middle = low + (high - low + 1) / 2;
        if (sum_at(middle) <= wanted) {
            low = middle;
        } else {
            high = middle - 1;
        }
    }
    i64 over = wanted - sum_at(low);
    for (i32 i = 0; i < classes; ++i) {
        const bool gets_one = quotas[i] > low && over > 0;
        quotas[i] = std::min(quotas[i], low) + gets_one;
        over -= gets_one;
    }
}

void set_quotas(const ThinRule& rule, const i64* counts, i64* quotas)
{
    const i32 classes = class_count(rule);
    std::copy_n(counts, classes, quotas);
    if (rule.by_phase || rule.by_result) {
        i64 least = 0;
        for (i32 i = 0; i < classes; ++i) {
            least = counts[i] > 0 && (least == 0 || counts[i] < least) ? counts[i] : least;
        }
        const f64 most = static_cast<f64>(least) * rule.ratio;
        for (i32 i = 0; i < classes; ++i) {
            quotas[i] = static_cast<i64>(std::min(static_cast<f64>(counts[i]), most));
        }
    }
    if (rule.sample >= 0) {
        cut_quotas(classes, rule.sample, quotas);
    }
}

void start_thin(ThinStage* stage, const ThinRule& rule, const ScratchPlace& place)
{
    stage->rule = rule;
    start_scratch(&stage->spool, place, 1);
}

bool put_thin(ThinStage* stage, const CarriedLine& line)
{
    if (stage->rule.by_result && line.facts.outcome == NoOutcome) {
        ++stage->without_result;
        return true;
    }
    ++stage->before[class_of(stage->rule, line.facts)];
    return add_to_bucket(&stage->spool, 0, line);
}

i64 count_kept(const ThinStage& stage)
{
    i64 wanted[most_line_classes] = {};
    set_quotas(stage.rule, stage.before, wanted);
    return std::accumulate(wanted, wanted + class_count(stage.rule), i64 { 0 });
}

// Each line is taken with the chance by which its quota would still be filled by those that are
// left: so exactly that many are, and each set of them is as likely. Source: Knuth, "The Art of
// Computer Programming", 3.4.2, algorithm S.
bool finish_thin(ThinStage* stage, const LineSink& next)
{
    i64 wanted[most_line_classes];
    i64 left[most_line_classes];
    set_quotas(stage->rule, stage->before, wanted);
    std::copy_n(stage->before, most_line_classes, left);
    BucketReader reader = start_bucket(&stage->spool, 0);
    CarriedLine line;
    while (read_from_bucket(&reader, &line)) {
        const i32 c = class_of(stage->rule, line.facts);
        const u64 number = draw_number(stage->rule.seed, Draw::Sample, line.facts.order);
        const bool is_kept = number % static_cast<u64>(left[c]) < static_cast<u64>(wanted[c]);
        --left[c];
        if (!is_kept) {
            continue;
        }
        --wanted[c];
        ++stage->kept[c];
        if (!next(line)) {
            return false;
        }
    }
    return stage->spool.error == 0;
}

// ---- Order

// Half of the memory holds what waits, a quarter the bucket that is put into order.
void start_shuffle(ShuffleStage* stage, i64 seed, const ScratchPlace& place)
{
    stage->place = place;
    stage->seed = seed;
    start_scratch(&stage->buckets, part_of(place, 2), size_t { 1 } << number_bits);
}

bool put_shuffled(ShuffleStage* stage, const CarriedLine& line)
{
    const u64 number = draw_number(stage->seed, Draw::Order, line.facts.order);
    const bool good =
        add_to_bucket(&stage->buckets, bits_at(number, stage->level, number_bits), line);
    stage->error = stage->buckets.error;
    ++stage->waiting;
    return good;
}

// A line of a bucket in memory.
struct Shuffled {
    u64 number;
    size_t start; // of its text
    LineFacts facts;
};

static bool order_in_memory(ShuffleStage* stage, size_t bucket, const LineSink& next)
{
    std::string texts;
    std::vector<Shuffled> lines;
    texts.reserve(static_cast<size_t>(stage->buckets.buckets[bucket].bytes));
    BucketReader reader = start_bucket(&stage->buckets, bucket);
    CarriedLine line;
    while (read_from_bucket(&reader, &line)) {
        const u64 number = draw_number(stage->seed, Draw::Order, line.facts.order);
        lines.push_back({ number, texts.size(), line.facts });
        texts += line.text;
    }
    stage->error = stage->buckets.error;
    std::ranges::sort(lines, {}, &Shuffled::number);
    for (const Shuffled& shuffled : lines) {
        const std::string_view text(texts.data() + shuffled.start, shuffled.facts.length);
        if (!next({ shuffled.facts, text })) {
            return false;
        }
    }
    return stage->error == 0;
}

static bool order_by_parts(ShuffleStage* stage, size_t bucket, const LineSink& next)
{
    ShuffleStage inner;
    start_shuffle(&inner, stage->seed, part_of(stage->place, 2));
    inner.level = stage->level + 1;
    BucketReader reader = start_bucket(&stage->buckets, bucket);
    CarriedLine line;
    bool good = true;
    while (good && read_from_bucket(&reader, &line)) {
        good = put_shuffled(&inner, line);
    }
    good = good && stage->buckets.error == 0 && finish_shuffle(&inner, next);
    stage->error = inner.error != 0 ? inner.error : stage->buckets.error;
    return good;
}

bool finish_shuffle(ShuffleStage* stage, const LineSink& next)
{
    for (size_t i = 0; i < stage->buckets.buckets.size(); ++i) {
        const bool fits = stage->buckets.buckets[i].bytes <= stage->place.memory / 4
            || stage->level == deepest_level;
        if (!(fits ? order_in_memory(stage, i, next) : order_by_parts(stage, i, next))) {
            return false;
        }
    }
    return true;
}
