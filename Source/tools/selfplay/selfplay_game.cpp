// How a game of the engine against itself goes: its opening, its searches, its end. All chance
// comes from a generator that the game's number seeds, and nothing that an earlier game has left
// counts: the hash table is emptied, and the other caches hold what is true in any game. So a game
// can be played again, in any order, on any number of processors.
#include "tools/selfplay/selfplay_game.h"

#include <algorithm>
#include <cstdlib>

#include "base/clock.h"
#include "base/mixing.h"
#include "board/moves.h"
#include "fathom/tbprobe.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/prepare_search.h"
#include "tools/selfplay/selfplay_options.h"

static constexpr struct {
    i32 random_plies = 8;  // from the start position, and one more in every second game
    i32 tries = 1000;      // openings that are drawn before the game begins without
    i32 resign_plies = 4;  // searches in a row, of both sides, that see the game decided
    i32 draw_plies = 10;   // the same, that see it even
    i32 draw_after = 70;   // half-moves before it may be given a draw
    f64 seconds = 1e6;     // of a search; nodes or depth end it long before
    i32 table_depth = 127; // plies, deeper than any least depth of the options
} selfplay_rule;

// A generator of chance, SplitMix64.
struct Chance {
    u64 state;
};

static u64 draw(Chance* chance)
{
    chance->state += mixing_step;
    return mix_bits(chance->state);
}

// A number from 0 to count - 1. The low ones are favoured by less than count in 2^32.
static i32 draw_below(Chance* chance, i32 count)
{
    return static_cast<i32>((draw(chance) >> 32) * static_cast<u64>(count) >> 32);
}

// Games of one seed are as far apart as those of different seeds: each number is spread by itself.
static Chance chance_of_game(i64 seed, i64 number)
{
    Chance of_seed = { static_cast<u64>(seed) };
    return { draw(&of_seed) ^ static_cast<u64>(number) * 0xd1342543de82ef95ULL };
}

// Nodes or plies of the next search.
static i64 draw_effort(Chance* chance, i64 effort)
{
    const f64 share = static_cast<f64>(draw(chance) >> 11) * 0x1p-53; // from 0 up, below 1
    const f64 change = static_cast<f64>(selfplay_options.spread) / 100.0 * (2.0 * share - 1.0);
    return std::max<i64>(1, static_cast<i64>(static_cast<f64>(effort) * (1.0 + change) + 0.5));
}

// ---- Searches

static void set_limits(SearchLimits* limits, Chance* chance)
{
    store(limits->tc_moves, FixedTime);
    limits->tc_seconds = selfplay_rule.seconds;
    i64 depth = deepest_limit;
    limits->node_limit_total = 0;
    if (selfplay_options.depth != 0) {
        depth = std::min<i64>(draw_effort(chance, selfplay_options.depth), deepest_limit);
    } else {
        limits->node_limit_total = draw_effort(chance, selfplay_options.nodes);
    }
    store(limits->depth_limit, static_cast<i8>(depth));
}

// Searches the game's position, which has a legal move, and gives the best one.
static SelfplayMove search_position(Dialogue* dialogue, Chance* chance, SelfplayGame* game)
{
    set_limits(&dialogue->limits, chance);
    const f64 started = monotonic_seconds();
    prepare_search(dialogue);
    store(engine_state, EngineState::Thinking);
    search_sync(dialogue->game);
    store(engine_state, EngineState::Idle);
    game->search_seconds += monotonic_seconds() - started;
    const SearchThread* worker = load(workers[0]);
    game->nodes += load(worker->counters[CountNodes]);
    return { .move = search_result.result_pv[1],
        .score = static_cast<i16>(load(search_result.result_score)),
        .depth = static_cast<u8>(std::max<i32>(search_result.result_depth, 1)),
        .is_quiet = false };
}

// ---- The opening

static i32 list_legal_moves(Position* pos, Move* out)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    i32 count = 0;
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (is_legal_move(pos, pos->stm, entry->move)) {
            out[count++] = entry->move;
        }
    }
    return count;
}

// Plays moves by chance. Returns whether there always was one, and is one now.
static bool draw_moves(Position* pos, Chance* chance, i32 plies, SelfplayGame* game)
{
    Move moves[max_list_moves];
    for (i32 count = list_legal_moves(pos, moves); count > 0;
         count = list_legal_moves(pos, moves)) {
        if (game->count >= plies) {
            return true;
        }
        const Move move = moves[draw_below(chance, count)];
        game->moves[game->count++] = { move, 0, 0, false };
        make_game_move(pos, move);
    }
    return false;
}

static void begin_game(Dialogue* dialogue, SelfplayGame* game)
{
    read_position(&dialogue->game->pos, game->opening);
    clear_hash();
    hash.age = 0;
    game->count = 0;
}

// Half of the games get a move more, so that both sides come to be the first that thinks.
static i32 plies_to_draw(Chance* chance, bool has_openings)
{
    const i64 plies = selfplay_options.random;
    if (plies >= 0) {
        return static_cast<i32>(plies);
    }
    return has_openings ? 0 : selfplay_rule.random_plies + draw_below(chance, 2);
}

// Drawn moves lose a piece as often as not, and such a game teaches nothing: the opening is drawn
// anew until a search finds it balanced. With every try a centipawn more is let through, so that
// the end comes for any position; one that leads to mates alone is played without drawn moves.
static void play_opening(Dialogue* dialogue, const std::vector<const char*>& openings,
    Chance* chance, SelfplayGame* game)
{
    game->opening = openings.empty()
        ? start_position
        : openings[static_cast<size_t>(draw_below(chance, static_cast<i32>(openings.size())))];
    const i32 plies = plies_to_draw(chance, !openings.empty());
    for (i32 tries = 0; plies > 0 && tries < selfplay_rule.tries; ++tries) {
        begin_game(dialogue, game);
        if (!draw_moves(&dialogue->game->pos, chance, plies, game)) {
            continue;
        }
        const i32 score = search_position(dialogue, chance, game).score;
        if (abs(score) <= selfplay_options.balance + tries) {
            // What this search has left in the table is no part of the game.
            clear_hash();
            hash.age = 0;
            return;
        }
    }
    begin_game(dialogue, game);
}

// ---- The end

// Neither side can mate by any play: bare kings, with one minor piece at most.
static bool lacks_material(const Position* pos)
{
    constexpr i32 a_minor_piece = 3; // as phase_mtl counts
    return count_of(pos, White, Pawn) + count_of(pos, Black, Pawn) == 0
        && pos->phase_mtl[White] + pos->phase_mtl[Black] <= a_minor_piece;
}

static bool is_over(SelfplayGame* game, GameEnd end, i32 winner)
{
    game->end = end;
    game->winner = winner;
    return true;
}

static bool ends_by_rule(Position* pos, SelfplayGame* game)
{
    Move moves[max_list_moves];
    if (list_legal_moves(pos, moves) == 0) {
        return is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1)
            ? is_over(game, EndsByMate, pos->stm ^ 1)
            : is_over(game, EndsByStalemate, no_winner);
    }
    if (lacks_material(pos)) {
        return is_over(game, EndsByMaterial, no_winner);
    }
    if (pos->cnt50 >= fifty_move_plies) {
        return is_over(game, EndsByFiftyMoves, no_winner);
    }
    return is_draw_by_rule(pos, 0) && is_over(game, EndsByRepetition, no_winner);
}

// The tables tell the result of the rest; where the fifty-move rule saves or spoils it, a draw.
static bool ends_by_tables(const Position* pos, SelfplayGame* game)
{
    const TbResult result =
        tb_probe_search(pos, selfplay_rule.table_depth, &search_settings.tb_depths);
    if (result == TbNone) {
        return false;
    }
    const i32 winner = result == TbWin ? pos->stm : result == TbLoss ? pos->stm ^ 1 : no_winner;
    return is_over(game, EndsByTables, winner);
}

// How many of the last searches in a row have found a score, seen from white, within bounds.
static i32 searches_within(const SelfplayGame* game, i32 side_of_last, i32 least, i32 most)
{
    i32 side = side_of_last;
    i32 searches = 0;
    for (i32 i = game->count - 1; i >= 0 && game->moves[i].depth != 0; --i, side ^= 1) {
        const i32 score = side == White ? game->moves[i].score : -game->moves[i].score;
        if (score < least || score > most) {
            break;
        }
        ++searches;
    }
    return searches;
}

// Both sides' searches must agree for some moves: one alone may have overlooked something.
static bool ends_by_score(const Position* pos, SelfplayGame* game)
{
    const i32 mover = pos->stm ^ 1;
    const i32 resign = static_cast<i32>(selfplay_options.resign);
    if (resign != 0) {
        if (searches_within(game, mover, resign, ScoreInfinite) >= selfplay_rule.resign_plies) {
            return is_over(game, EndsByScore, White);
        }
        if (searches_within(game, mover, -ScoreInfinite, -resign) >= selfplay_rule.resign_plies) {
            return is_over(game, EndsByScore, Black);
        }
    }
    const i32 even = static_cast<i32>(selfplay_options.draw);
    return game->count >= selfplay_rule.draw_after
        && searches_within(game, mover, -even, even) >= selfplay_rule.draw_plies
        && is_over(game, EndsByScore, no_winner);
}

static bool ends(Position* pos, SelfplayGame* game)
{
    if (ends_by_rule(pos, game) || ends_by_tables(pos, game) || ends_by_score(pos, game)) {
        return true;
    }
    return game->count >= longest_selfplay_game && is_over(game, EndsByLength, no_winner);
}

// ---- Quiet positions

static bool wins_by_capture(const Position* pos)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_captures(pos, pos->stm, moves, NoSquare);
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (swaps_at_least(pos, pos->stm, from_square(entry->move), to_square(entry->move), 1)) {
            return true;
        }
    }
    return false;
}

// An evaluation can judge a position where nothing is about to be taken: no check, no capture that
// wins, no promotion, and the search has found nothing better than a quiet move.
static bool is_quiet(const Position* pos, Move move)
{
    MoveEntry promotions[max_list_moves];
    const i32 mover = pos->stm;
    const i32 to = to_square(move);
    const bool captures = pos->board[to] != NoPiece
        || (to == pos->ep_square && type_of(pos->board[from_square(move)]) == Pawn);
    return !captures && (move & PromotionMask) == 0
        && !is_attacked(pos, pos->king_sq[mover], mover ^ 1) && !wins_by_capture(pos)
        && gen_promotions(pos, mover, 0, promotions) == promotions;
}

void play_selfplay_game(
    Dialogue* dialogue, const std::vector<const char*>& openings, i64 number, SelfplayGame* game)
{
    Position* pos = &dialogue->game->pos;
    Chance chance = chance_of_game(selfplay_options.seed, number);
    game->number = number;
    game->nodes = 0;
    game->search_seconds = 0.0;
    play_opening(dialogue, openings, &chance, game);
    while (!ends(pos, game)) {
        SelfplayMove move = search_position(dialogue, &chance, game);
        move.is_quiet = is_quiet(pos, move.move);
        game->moves[game->count++] = move;
        make_game_move(pos, move.move);
    }
}
