// The set-up of search tests.
#include "search_support.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "base/output.h"
#include "board/trace.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/hash.h"
#include "search/thread.h"
#include "shell/prepare_search.h"

static constexpr i32 iteration_depth = 20;
static constexpr i32 no_score = -10001;
static constexpr Move any_move = 1; // of the plies before a node
static constexpr Move end_of_list = EndOfList;

static void reset_globals()
{
    reset_run_state();
    dialogue.saved_options.params_changed = 0;
    dialogue.engine_options = dialogue.saved_options;
    publish_options(&dialogue);
    store(noise, silent_noise);
    rebuild_search_tables(&dialogue);
    search_result.tb_root_result = -1;
    search_result.tb_root_move = NoMove;
}

void SearchTest::use_records(i32 count)
{
    for (i32 i = 0; i < num_threads; ++i) {
        delete_thread_record(load(workers[i]));
        store(workers[i], nullptr);
    }
    num_threads = count;
    for (i32 i = 0; i < count; ++i) {
        store(workers[i], new_thread_record(i));
        ASSERT_NE(load(workers[i]), nullptr);
    }
}

void SearchTest::SetUp()
{
    test_thread();
    reset_globals();
    ASSERT_EQ(num_threads, 0);
    use_records(1);
    hash.megabytes = 1;
    capture_output([] { ASSERT_TRUE(alloc_hash(hash.megabytes)); });
    set_position(start_position);
}

void SearchTest::TearDown()
{
    use_records(0);
    free_hash();
    hash.megabytes = 0;
    reset_globals();
    store(noise, 0.0);
    set_position(start_position);
}

SearchThread* record()
{
    return load(workers[0]);
}

static void reset_record(SearchThread* thread)
{
    std::fill_n(thread->move_store, move_store_size, MoveEntry {});
    std::fill_n(thread->eval_cache, eval_cache_size, EvalCacheEntry {});
    std::fill_n(thread->pawn_cache, pawn_cache_size, PawnCacheEntry {});
}

void begin_search(const char* fen)
{
    set_position(fen);
    // By shares: clear_hash would wait for the threads that several records do not have.
    for (i32 i = 0; i < num_threads; ++i) {
        clear_hash_share(i);
    }
    hash.age = 0;
    for (i32 i = 0; i < num_threads; ++i) {
        reset_record(load(workers[i]));
    }
    prepare_search(&dialogue);
}

void run_search_to(const char* fen, i32 depth)
{
    begin_search(fen);
    store(dialogue.limits.depth_limit, depth);
    search_sync(dialogue.game);
}

void repeat_search(i32 depth)
{
    prepare_search(&dialogue);
    store(dialogue.limits.depth_limit, depth);
    search_sync(dialogue.game);
}

Node make_node(const char* fen, i32 ply)
{
    begin_search(fen);
    sync_workers(dialogue.game);
    SearchThread* thread = record();
    reset_ordering(thread);
    thread->ply = static_cast<i16>(ply);
    store(thread->depth, iteration_depth);
    MoveEntry* list = thread->move_store;
    for (i32 i = 0; i < ply_count; i++, list += 2) {
        PlyRecord* rec = &thread->ply_rec[i];
        *rec = {};
        rec->tb_result = -1;
        rec->check_sq = NoSquare;
        rec->eval = no_score;
        rec->list_start = rec->list_cursor = list;
        list[0] = { i < ply ? any_move : end_of_list, 0, 0, 0 };
        list[1].move = end_of_list;
    }
    return { thread, &thread->pos, &thread->ply_rec[ply], ply, thread->pos.stm, {} };
}

MoveEntry entry_of(const Position* pos, const char* move)
{
    const Move code = move_of(move);
    return { code, 0, pos->board[from_square(code)], pos->board[to_square(code)] };
}

i32 run_node(Node* node, i32 depth, i32 alpha, i32 beta, NodeType type)
{
    return search(node->pos, node->side, node->ply, depth, alpha, beta, type, node->pv);
}

i32 eval_of(Node* node)
{
    return evaluate_at(node->thread, static_cast<i32>(node->side), node->ply, 0);
}

void open_node(Node* node, i32 depth, i32 alpha, i32 beta, NodeType type)
{
    PlyRecord* rec = node->rec;
    const Position* pos = node->pos;
    const i32 side = static_cast<i32>(node->side);
    rec->node_type = static_cast<i16>(type);
    node->thread->node_depth[node->ply] = static_cast<i16>(depth);
    rec->alpha = static_cast<i16>(alpha);
    rec->beta = static_cast<i16>(beta);
    rec->check_sq = static_cast<u8>(
        find_checker(pos, pos->king_sq[side], side ^ 1, pos->bb[White][0] | pos->bb[Black][0]));
    rec->in_check = rec->check_sq != NoSquare;
    rec->eval = static_cast<i16>(evaluate_at(node->thread, side, node->ply, rec->in_check));
}

i32 run_moves(Node* node, i32 depth, i32 alpha, i32 beta, NodeType type)
{
    open_node(node, depth, alpha, beta, type);
    return search_moves(
        node->pos, node->side, node->ply, depth, alpha, beta, node->rec->in_check, type, node->pv);
}

i32 run_qsearch(Node* node, i32 depth, i32 alpha, i32 beta, i32 eval)
{
    open_node(node, depth, alpha, beta, CutNode);
    node->rec->eval = static_cast<i16>(eval);
    return qsearch(node->pos, node->side, node->ply, depth, alpha, beta, CutNode, node->pv);
}

u64 node_count()
{
    return load(record()->counters[CountNodes]);
}

static std::string trace_text()
{
    fflush(nullptr);
    std::ifstream file("trace.txt");
    return { std::istreambuf_iterator<char>(file), {} };
}

std::string traced(i32 level, const std::function<void()>& run)
{
    // The file belongs to this process, whatever an earlier one has left there.
    trace_move(&record()->pos, NoMove);
    const size_t before = trace_text().size();
    store(trace_level, level);
    run();
    store(trace_level, 0);
    return trace_text().substr(before);
}

std::vector<std::string> moves_made(const std::function<void()>& run)
{
    const std::string text = traced(ply_count, run);
    std::vector<std::string> moves;
    for (size_t at = text.find(')'); at != std::string::npos; at = text.find(')', at + 1)) {
        moves.push_back(text.substr(at + 1, text.find(' ', at) - at - 1));
    }
    return moves;
}

std::string sorted_moves_made(const std::function<void()>& run)
{
    std::vector<std::string> moves = moves_made(run);
    std::sort(moves.begin(), moves.end());
    std::string joined;
    for (const std::string& move : moves) {
        joined += (joined.empty() ? "" : " ") + move;
    }
    return joined;
}

HashEntry probe(Position* pos)
{
    HashEntry entry = {};
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    return entry;
}

HashEntry read_slot(const HashSlot* slot)
{
    const u64 words[2] = { load(slot->word[0]), load(slot->word[1]) };
    HashEntry entry;
    memcpy(&entry, words, sizeof entry);
    return entry;
}

void write_slot(HashSlot* slot, const HashEntry* entry)
{
    u64 words[2];
    memcpy(words, entry, sizeof words);
    store(slot->word[0], words[0]);
    store(slot->word[1], words[1]);
    store(hash.written, 1);
}

HashEntry make_entry(const Position* pos, Move move, i32 score, i32 depth, HashBound bound)
{
    HashEntry entry = {};
    entry.key32 = static_cast<u32>(pos->key);
    entry.check = static_cast<u32>(pos->key >> 32) ^ static_cast<u32>(score + 15000)
        ^ static_cast<u32>(move) << 16;
    entry.move = move;
    entry.score = static_cast<i16>(score);
    entry.depth = static_cast<i8>(depth);
    entry.bound = bound;
    entry.age = static_cast<u8>(hash.age);
    entry.cnt50 = pos->cnt50;
    return entry;
}

void put_entry(const Position* pos, Move move, i32 score, i32 depth, HashBound bound)
{
    const HashEntry entry = make_entry(pos, move, score, depth, bound);
    write_slot(hash_bucket(pos->key), &entry);
}
