// Tables beside each other. A value in one follows from those of the positions that its moves lead
// to, in the same table after a quiet move and in a smaller one after a capture or a promotion; so
// a table that does not fit to the others gives itself away on a few positions.
//
// The engine's registry and its probes are used as they are, by this thread alone. Only tables that
// were found sound by themselves are compared, with sound ones below them.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/mixing.h"
#include "board/tables.h"
#include "data/tables.h"
#include "data/tables_map.h"
#include "fathom/tbcore.h"
#include "fathom/tbinit.h"
#include "fathom/tbmoves.h"
#include "fathom/tbprobe.h"
#include "fathom/tbread.h"
#include "fathom/tbresult.h"
#include "fathom/tbtable.h"

static constexpr std::string_view kind_letters = "KQRBNP"; // in the order of a name
static constexpr std::string_view promotion_letters = "QRBN";
// Distances cost a search of two plies; one of so many positions is asked for its own.
static constexpr i64 positions_per_distance = 10;
// Distances that are stored in moves may be off by a ply, the position's own and those it is
// compared with; a mate by a quiet move counts as one ply.
static constexpr i32 distance_tolerance = 2;

// ---- Materials

// The name in its usual form: letters in order, the stronger side first.
static std::string usual_name(std::string first, std::string second)
{
    const auto by_order = [](char a, char b) {
        return kind_letters.find(a) < kind_letters.find(b);
    };
    std::ranges::sort(first, by_order);
    std::ranges::sort(second, by_order);
    const bool second_comes_first = first.size() != second.size()
        ? first.size() < second.size()
        : std::ranges::lexicographical_compare(second, first, by_order);
    if (second_comes_first) {
        std::swap(first, second);
    }
    return first + 'v' + second;
}

std::vector<std::string> tables_below(std::string_view material)
{
    const size_t middle = material.find('v');
    const std::string sides[2] = { std::string(material.substr(0, middle)),
        std::string(material.substr(middle + 1)) };
    std::vector<std::string> names;
    const auto add = [&names](const std::string& first, const std::string& second) {
        if (first.size() + second.size() > 2) {
            names.push_back(usual_name(first, second));
        }
    };
    for (int side = 0; side < 2; ++side) {
        const std::string& mine = sides[side];
        const std::string& other = sides[1 - side];
        for (size_t taken = 1; taken < other.size(); ++taken) {
            std::string left = other;
            left.erase(taken, 1);
            add(mine, left);
        }
        const size_t pawn = mine.find('P');
        if (pawn == std::string::npos) {
            continue;
        }
        for (const char letter : promotion_letters) {
            std::string promoted = mine;
            promoted[pawn] = letter;
            add(promoted, other);
            for (size_t taken = 1; taken < other.size(); ++taken) {
                std::string left = other;
                left.erase(taken, 1);
                add(promoted, left);
            }
        }
    }
    std::ranges::sort(names);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

// ---- Positions

// The next of a row of numbers from 0 to below count.
static u32 draw(u64* state, u32 count)
{
    *state += mixing_step;
    return static_cast<u32>((mix_bits(*state) >> 32) * count >> 32);
}

// A placement of the material in which no two pieces share a square.
static TbPos draw_board(std::string_view material, u64* state)
{
    TbPos pos = {};
    u64* const sets[] = { &pos.kings, &pos.queens, &pos.rooks, &pos.bishops, &pos.knights,
        &pos.pawns };
    const bool turned = draw(state, 2) != 0;
    u64* side = turned ? &pos.black : &pos.white;
    for (const char letter : material) {
        if (letter == 'v') {
            side = turned ? &pos.white : &pos.black;
            continue;
        }
        u64 square = 0;
        do {
            square = bit(static_cast<i32>(letter == 'P' ? 8 + draw(state, 48) : draw(state, 64)));
        } while (((pos.white | pos.black) & square) != 0);
        *side |= square;
        *sets[kind_letters.find(letter)] |= square;
    }
    pos.turn = static_cast<u8>(draw(state, 2));
    return pos;
}

// One in which the side that has just moved is not in check. There is one for every material; few
// are drawn in vain.
static TbPos draw_position(std::string_view material, u64* state)
{
    TbPos pos;
    do {
        pos = draw_board(material, state);
    } while (tb_in_check(&pos, !pos.turn));
    return pos;
}

static std::string text_of_position(const TbPos& pos)
{
    static constexpr char letters[] = "?PNBRQK?"; // by type
    std::string text;
    for (i32 rank = 7; rank >= 0; --rank) {
        char empty = '0';
        const auto add = [&text, &empty](char c) {
            if (empty > '0') {
                text += empty;
            }
            empty = '0';
            text += c;
        };
        for (i32 square = 8 * rank; square < 8 * rank + 8; ++square) {
            char letter = 0;
            for (i32 type = Pawn; type <= King; ++type) {
                if ((tb_pieces_of(&pos, type, 1) & bit(square)) != 0) {
                    letter = letters[type];
                } else if ((tb_pieces_of(&pos, type, 0) & bit(square)) != 0) {
                    letter = static_cast<char>(letters[type] - 'A' + 'a');
                }
            }
            if (letter != 0) {
                add(letter);
            } else {
                ++empty;
            }
        }
        if (rank > 0) {
            add('/');
        } else if (empty > '0') {
            text += empty;
        }
    }
    return text + (pos.turn ? " w - -" : " b - -");
}

// ---- Values

// What the moves of a position say of its value.
struct MovesValue {
    bool answered;
    bool any;         // there is a legal move
    i32 best;         // value, a TbWdl, WdlLoss without moves
    i32 best_zeroing; // of captures and pawn moves; below all values without any
};

static MovesValue value_by_moves(const TbPos& pos)
{
    MovesValue value = { true, false, WdlLoss, WdlLoss - 1 };
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(&pos, list);
    for (const tb_move* move = list; move < end; ++move) {
        TbPos next;
        if (!tb_do_move(&next, &pos, *move)) {
            continue;
        }
        i32 answer = TbNoAnswer;
        const i32 reply = -tb_probe_wdl(&next, &answer);
        value.answered = value.answered && answer != TbNoAnswer;
        value.any = true;
        value.best = std::max(value.best, reply);
        if (next.rule50 == 0) {
            value.best_zeroing = std::max(value.best_zeroing, reply);
        }
    }
    return value;
}

static i32 sign_of(i32 value)
{
    return (value > 0) - (value < 0);
}

// Whether a value fits to those that the moves lead to. A quiet move uses up one of the fifty
// moves, so that a win may be spoilt and a loss saved by it, no more; a zeroing move gives its own
// value.
static bool fits(const TbPos& pos, i32 value, const MovesValue& moves)
{
    if (!moves.any) {
        return value == (tb_in_check(&pos, pos.turn) ? WdlLoss : WdlDraw);
    }
    return sign_of(value) == sign_of(moves.best) && abs(value) <= abs(moves.best)
        && value >= moves.best_zeroing;
}

static std::string result_text(i32 value)
{
    static constexpr const char* texts[] = { "loss", "saved loss", "draw", "spoilt win", "win" };
    return texts[tb_result_of(value)];
}

// What is wrong with the distance of a position of this value; empty if nothing.
static std::string check_distance(const TbPos& pos, i32 value, const MovesValue& moves)
{
    i32 answer = TbNoAnswer;
    const i32 distance = tb_probe_dtz(&pos, &answer);
    if (answer == TbNoAnswer) {
        return "no distance";
    }
    const std::string text = "distance " + std::to_string(distance);
    const bool is_within_rule = abs(distance) <= tb_rule50_plies + 1;
    if (sign_of(distance) != sign_of(value) || (abs(value) == 1 && abs(distance) <= tb_rule50_plies)
        || (abs(value) == 2 && !is_within_rule)) {
        return text + " of a " + result_text(value);
    }
    // Where a zeroing move wins, what the table holds means nothing.
    if (value == WdlDraw || !moves.any || (value > 0 && moves.best_zeroing >= value)) {
        return {};
    }
    const i32 stored = tb_read_dtz(&pos, value, &answer);
    if (answer != TbAnswered) {
        return {}; // the other side's, which follows from the moves anyhow
    }
    const i32 by_moves = tb_dtz_by_moves(&pos, value, &answer);
    if (answer == TbNoAnswer || abs(stored - by_moves) > distance_tolerance) {
        return text + ", by its moves "
            + (answer == TbNoAnswer ? "none" : std::to_string(by_moves));
    }
    return {};
}

// ---- Tables

// The files of a material that the engine takes.
struct Material {
    TableFile* file[tb_kinds] = {};
    bool visited = false;
    bool complete = false; // its results and those of all tables below are sound
};
using Materials = std::map<std::string, Material>;

// Below each table there are smaller ones or fewer pawns, so this ends.
static bool is_complete(Materials* materials, const std::string& name)
{
    Material* material = &(*materials)[name];
    if (!material->visited) {
        material->visited = true;
        material->complete =
            material->file[TbWdlFile] != nullptr && is_sound(*material->file[TbWdlFile]);
        for (const std::string& below : tables_below(name)) {
            const bool is_below_complete = is_complete(materials, below);
            material->complete = material->complete && is_below_complete;
        }
    }
    return material->complete;
}

// Compares a sample of a table's positions; what is wrong is told of the first one.
static void compare_material(const TablesSettings& settings, const std::string& name,
    const Material& material, const std::function<void()>& tell_one)
{
    u64 state = static_cast<u64>(settings.seed);
    for (const char c : name) {
        state = add_to_text_key(state, c);
    }
    TableFile* results = material.file[TbWdlFile];
    TableFile* distances = material.file[TbDtzFile];
    if (distances != nullptr && !is_sound(*distances)) {
        distances = nullptr;
    }
    const i64 failed = count_failed_reads();
    for (i64 i = 0; i < settings.sample && count_failed_reads() == failed; ++i) {
        tell_one();
        const TbPos pos = draw_position(name, &state);
        i32 answer = TbNoAnswer;
        const i32 value = tb_probe_wdl(&pos, &answer);
        const MovesValue moves = value_by_moves(pos);
        ++results->positions;
        if (answer == TbNoAnswer || !moves.answered || !fits(pos, value, moves)) {
            add_fault(results, fault_result,
                text_of_position(pos) + " is a " + result_text(value) + ", by its moves a "
                    + result_text(moves.any ? moves.best : value));
            break;
        }
        if (distances == nullptr || i % positions_per_distance != 0) {
            continue;
        }
        ++distances->positions;
        const std::string fault = check_distance(pos, value, moves);
        if (!fault.empty()) {
            add_fault(distances, fault_distance, text_of_position(pos) + ": " + fault);
            break;
        }
    }
    if (count_failed_reads() != failed) {
        add_fault(results, fault_changed, {});
    }
}

// ---- What is missing

static void find_missing(const Materials& materials, const std::string& name, TableFile* file)
{
    for (const std::string& below : tables_below(name)) {
        const auto found = materials.find(below);
        if (found == materials.end() || found->second.file[TbWdlFile] == nullptr) {
            file->missing.push_back(below);
        }
    }
    if (!file->missing.empty()) {
        std::string text = file->missing[0] + tb_suffixes[TbWdlFile];
        if (file->missing.size() > 1) {
            text += " and " + std::to_string(file->missing.size() - 1) + " more";
        }
        file->set_faults.push_back({ .reason = fault_missing, .detail = std::move(text) });
    }
}

// Compares samples of all tables that are complete.
static void compare_samples(const TablesSettings& settings, const std::vector<std::string>& names,
    Materials* materials, RunProgress* progress)
{
    std::vector<std::string> complete;
    std::ranges::copy_if(names, std::back_inserter(complete),
        [&](const std::string& name) { return is_complete(materials, name); });
    start_progress_stage(progress, static_cast<i64>(complete.size()) * settings.sample);
    u64 compared = 0;
    const auto tell_one = [&] { show_stage_progress(progress, "positions compared", ++compared); };
    for (const std::string& name : complete) {
        compare_material(settings, name, (*materials)[name], tell_one);
    }
}

void compare_tables(const TablesSettings& settings, const std::string& folders,
    std::span<TableFile* const> files, RunProgress* progress)
{
    Materials materials;
    for (TableFile* file : files) {
        if (!file->material.empty() && !file->shadowed && file->pieces <= tb_max_pieces) {
            materials[file->material].file[file->kind] = file;
        }
    }
    std::vector<std::string> names;
    for (const auto& [name, material] : materials) {
        names.push_back(name);
    }
    if (settings.sample > 0) {
        init_board_tables();
        tb_quiet = true;
        tb_init(folders.c_str());
        compare_samples(settings, names, &materials, progress);
    }
    for (const std::string& name : names) {
        const Material& material = materials[name];
        if (material.file[TbWdlFile] != nullptr) {
            find_missing(materials, name, material.file[TbWdlFile]);
        } else {
            material.file[TbDtzFile]->set_faults.push_back({ .reason = fault_alone, .detail = {} });
        }
    }
}
