// The staged selection: hands a node one move at a time and generates and scores as late as it can,
// for most nodes that fail high do so by the hash move or a capture, and what they never ask for
// should cost nothing.
// The list of a ply always ends in a closing entry, and the list of the next ply starts behind it.
// A slot that gets only a move keeps the score and pieces of its last use; the history reads them
// behind a null move, so they must not be cleared.
#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "board/tables.h"
#include "search/move_lists.h"

// Stages in the low four bits of PlyRecord.stage. A full search goes Start, Captures, GoodCaptures,
// Rest, PlainOrder; a quiescence search Start, QuietSearch, and PlainOrder for its checks.
enum Stage : u16 {
    StageStart = 0,        // the hash move, if there is one and the node wants it
    StageCaptures = 1,     // captures are still to be generated
    StageQuietSearch = 2,  // captures of the quiescence search, best first
    StageGoodCaptures = 4, // captures that do not lose, best first
    StageRest = 6,         // losing captures and quiet moves, best first
    StagePlainOrder = 7,   // whatever is left, as it lies
};
static constexpr u16 stage_mask = 15;

// Ordering scores, a scale of its own: up to 9 a losing capture, 0 to 64 the history of a quiet
// move, to 124 with its bonus, from 203 on a capture. Exchanges in centipawns.
static constexpr struct {
    i16 hash_move = 255;
    i32 losing_exchange = -49; // below it a capture is tried among the quiet moves
    i32 winning_exchange = 50; // below it a little later than captures that win
    i32 even_exchange_malus = 6;
    i16 under_promotion = 15;     // hardly ever right: behind the quiet moves of some merit
    i16 good_capture_limit = 150; // from here down captures wait with the quiet moves
    i16 sorting_limit = 2;        // at or below it one move is as unlikely as the next
    i16 check = 100; // of quiescence, where they are tried as they lie: nobody compares it
} order_rule;

// What the quiet moves that did well before are worth on top of their history. The narrower the
// memory, the more: a killer worked next door, a counter move against the same move elsewhere, a
// follow-up behind the same plan.
static constexpr struct {
    i32 killer[2] = { 60, 55 };
    i32 counter[2] = { 50, 45 };
    i32 follow = 40;
    i32 evasion_killer = 60;
    i32 evasion_counter[2] = { 55, 50 };
} bonus_rule;

// History cells of 0 to 16384 count in such steps: a full one is worth about as much as a killer.
static constexpr i32 history_step = 256;

// The rank from which a push reaches the seventh, by side.
static constexpr u64 sixth_rank[2] = { 0x0000ff0000000000ULL, 0x0000000000ff0000ULL };

// Leaves the flags as they are.
static inline void set_stage(PlyRecord* rec, u16 stage)
{
    rec->stage = static_cast<u16>((rec->stage & ~stage_mask) | stage);
}

void publish_list(SearchThread* thread, MoveEntry* end)
{
    debug_check(thread->ply >= 0 && thread->ply < ply_count - 2);
    debug_check(end + 2 < thread->move_store + move_store_size);
    PlyRecord* rec = &thread->ply_rec[thread->ply];
    end->move = EndOfList;
    rec[1].list_start = end + 1;
    rec[2].list_start = end + 2;
}

void set_null_list(Position* pos)
{
    // The first slot becomes the move that the plies below see as the last one; the node's own list
    // is not made yet.
    PlyRecord* rec = &pos->thread->ply_rec[pos->stack->ply];
    rec->list_cursor = rec->list_start;
    // Only the move is written: the history reads the piece that the slot held before, whatever it
    // was. To clear it would give another tree.
    rec->list_start->move = NoMove;
    publish_list(pos->thread, rec->list_start + 1);
}

// Not staged: for the root, which searches all of them, and for whoever counts or shows moves.
void gen_all_moves(Position* pos)
{
    SearchThread* thread = pos->thread;
    debug_check(thread->ply >= 0 && thread->ply < ply_count - 2);
    PlyRecord* rec = &thread->ply_rec[thread->ply];
    rec->list_cursor = rec->list_start;
    publish_list(thread, gen_moves_into(pos, rec->list_start));
}

// The closing entry of the list that was published last for the ply of rec.
static inline MoveEntry* closing_entry(const PlyRecord* rec)
{
    return rec[1].list_start - 1;
}

// Score and place of an entry in one number, whose greatest is the earliest of the best. The score
// lies in the upper half of an entry's first 32 bits, where the move makes way for the place.
static constexpr i32 score_mask = static_cast<i32>(0xffff0000);
static constexpr i32 last_place = 0xffff;

// Halves of entries in one of the processor's own vectors: a compiler takes wider ones to pieces.
// The halves behind the scores never count, as their places lie behind every end.
#ifdef __AVX2__
static constexpr i32 vector_size = 32;
#else
static constexpr i32 vector_size = 16;
#endif
using Halves [[gnu::vector_size(vector_size)]] = i32;
static constexpr i32 vector_entries = vector_size / static_cast<i32>(sizeof(MoveEntry));
static constexpr i32 entries_at_once = 8;
static constexpr i32 nowhere = std::numeric_limits<i32>::max();

// The place of the best of count entries, 1 or more. Looks at eight at a time without a branch: as
// many as there are of them, and which of them is the best, hangs on chance, and a branch would be
// guessed wrong every other time. It may read the seven entries behind the last.
static i32 place_of_best(const MoveEntry* list, i32 count)
{
    const Halves none = Halves {} + std::numeric_limits<i32>::min();
    Halves place;
    Halves step;
    for (i32 entry = 0; entry < vector_entries; ++entry) {
        place[2 * entry] = entry;
        step[2 * entry] = vector_entries;
        place[2 * entry + 1] = nowhere;
        step[2 * entry + 1] = 0;
    }
    Halves best = none;
    do {
        for (i32 done = 0; done < entries_at_once; done += vector_entries) {
            Halves entries;
            memcpy(&entries, list, sizeof entries);
            const Halves key = place < count ? (entries & score_mask) | (last_place - place) : none;
            best = key > best ? key : best;
            place += step;
            list += vector_entries;
        }
    } while (place[0] < count);
    i32 greatest = best[0];
    for (i32 entry = 1; entry < vector_entries; ++entry) {
        greatest = std::max(greatest, best[2 * entry]);
    }
    return last_place - (greatest & last_place);
}

void pick_best(MoveEntry* cursor, const MoveEntry* end)
{
    // A swap and not a shift: what stood at the cursor loses its place in the order of the equals.
    MoveEntry* best = cursor + place_of_best(cursor, static_cast<i32>(end - cursor));
    const MoveEntry first = *cursor;
    *cursor = *best;
    *best = first;
}

void pick_best(MoveEntry* cursor)
{
    const MoveEntry* end = cursor + 1;
    while (end->move != EndOfList) {
        ++end;
    }
    pick_best(cursor, end);
}

i32 history_base(i32 replying, i32 plain)
{
    return (replying / history_step + plain / history_step) / 2;
}

// In quiescence the node itself tries the exchange of the few captures that pass its other tests.
static void score_captures(std::span<MoveEntry> captures)
{
    for (MoveEntry& entry : captures) {
        entry.score = static_cast<i16>(capture_score(&entry));
    }
}

// In a full search no capture is left out, so that the exchange decides which come late.
static void score_captures_by_exchange(const Position* pos, std::span<MoveEntry> captures)
{
    for (MoveEntry& entry : captures) {
        const Move move = entry.move;
        // What it wins at least, if the capturer is lost and nothing more.
        const i32 surely =
            exchange_value[type_of(entry.captured)] - exchange_value[type_of(entry.moved)];
        const auto wins = [&](i32 least) {
            return surely >= least
                || swaps_at_least(pos, pos->stm, from_square(move), to_square(move), least);
        };
        i32 score;
        if (!wins(order_rule.losing_exchange)) {
            score = losing_capture_score(&entry);
        } else if (move & (PromoteKnight | PromoteBishop | PromoteRook)) {
            // Winning or not: what it could win, a queen mostly wins too.
            score = order_rule.under_promotion;
        } else {
            score = capture_score(&entry);
            // The exchange only splits the good captures in two; within them the victim decides,
            // for a large victim leaves the opponent less to answer with.
            if (!wins(order_rule.winning_exchange)) {
                score -= order_rule.even_exchange_malus;
            }
        }
        entry.score = static_cast<i16>(score);
    }
}

// One quiet move of the given piece code. Returns the next free entry.
static inline MoveEntry* add_quiet(MoveEntry* out, i32 from, i32 to, i32 moved)
{
    out->move = make_move_code(from, to);
    out->score = order_rule.check;
    out->moved = static_cast<u8>(moved);
    out->captured = NoPiece;
    return out + 1;
}

// step: from the pawn to its target, in squares.
static MoveEntry* add_pawn_pushes(MoveEntry* out, u64 targets, i32 step, i32 pawn)
{
    while (targets != 0) {
        const i32 to = pop_lowest(&targets);
        out = add_quiet(out, to - step, to, pawn);
    }
    return out;
}

// Moves of one type to targets, the squares from which such a piece checks.
static MoveEntry* add_piece_checks(const Position* pos, MoveEntry* out, i32 type, u64 targets)
{
    const i32 side = pos->stm;
    const u64 occ = occupied(pos);
    // The queen takes both kinds of lines, and so counts as either.
    for (u64 set = pos->bb[side][type]; set != 0;) {
        const i32 from = pop_lowest(&set);
        u64 attacks = 0;
        if (type == Knight) {
            attacks = knight_attacks[from];
        }
        if (type == Bishop || type == Queen) {
            attacks |= bishop_attacks(from, occ);
        }
        if (type == Rook || type == Queen) {
            attacks |= rook_attacks(from, occ);
        }
        for (attacks &= targets; attacks != 0;) {
            out = add_quiet(out, from, pop_lowest(&attacks), piece_code(side, type));
        }
    }
    return out;
}

// Quiet moves that give check directly, and pawn pushes to the seventh rank, which threaten to
// queen; a push that does both comes twice, at the price of a node. Neither discovered checks nor
// king moves: they are rare, and to look for them would cost every node.
static MoveEntry* gen_checks(const Position* pos, MoveEntry* out)
{
    const i32 side = pos->stm;
    const u64* own = pos->bb[side];
    const i32 enemy_king = pos->king_sq[side ^ 1];
    const u64 occ = occupied(pos);
    const u64 empty = ~occ;
    const i32 pawn = piece_code(side, Pawn);
    const i32 step = pawn_step[side];

    // From the king outwards: what a piece on his square would attack is where it gives check.
    const u64 pawn_checks = pawn_attacks[side ^ 1][enemy_king] & empty;
    // A pawn that steps off a line may check too, but that is a discovered check and left out; so
    // is a promotion, which came with the captures.
    const u64 single = side == White ? own[Pawn] << 8 : own[Pawn] >> 8;
    const u64 open = single & empty;
    const u64 twice = (side == White ? open << 8 : open >> 8) & double_step_rank[side];
    out = add_pawn_pushes(out, single & pawn_checks, step, pawn);
    out = add_pawn_pushes(out, twice & pawn_checks, 2 * step, pawn);

    out = add_piece_checks(pos, out, Knight, knight_attacks[enemy_king] & empty);
    // Without a slider of the kind the two look-ups are saved.
    u64 diagonals = 0;
    if (own[Bishop] | own[Queen]) {
        diagonals = bishop_attacks(enemy_king, occ) & empty;
    }
    u64 straights = 0;
    if (own[Rook] | own[Queen]) {
        straights = rook_attacks(enemy_king, occ) & empty;
    }
    out = add_piece_checks(pos, out, Bishop, diagonals);
    out = add_piece_checks(pos, out, Rook, straights);
    out = add_piece_checks(pos, out, Queen, diagonals | straights);

    const u64 sixth = own[Pawn] & sixth_rank[side];
    return add_pawn_pushes(out, (side == White ? sixth << 8 : sixth >> 8) & empty, step, pawn);
}

// The moves that get a bonus over their history, in check and out of it, best first. A move that is
// there twice gets its first bonus only.
struct FavouredMoves {
    Move move[5];
    i32 bonus[5];
    i32 count;
};

// An empty place, NoMove, does no harm: no generated move equals it.
static inline void add_favoured(FavouredMoves* favoured, Move move, i32 bonus)
{
    favoured->move[favoured->count] = move;
    favoured->bonus[favoured->count] = bonus;
    ++favoured->count;
}

// Looked up once for the whole list.
static FavouredMoves find_favoured(const SearchThread* thread, const PlyRecord* rec)
{
    FavouredMoves favoured;
    favoured.count = 0;
    if (rec->in_check) {
        add_favoured(&favoured, rec->evasion_killer, bonus_rule.evasion_killer);
    } else {
        add_favoured(&favoured, rec->killer[0], bonus_rule.killer[0]);
        add_favoured(&favoured, rec->killer[1], bonus_rule.killer[1]);
    }

    // Behind a null move there is nothing to counter, and nothing to go on with.
    const MoveEntry* prev = rec[-1].list_cursor;
    if (prev->move == NoMove) {
        return favoured;
    }
    const i32 prev_to = to_square(prev->move);
    const i32* counter = rec->in_check ? bonus_rule.evasion_counter : bonus_rule.counter;
    add_favoured(&favoured, thread->counter_move[prev->moved][prev_to], counter[0]);
    add_favoured(&favoured, thread->counter_move2[prev->moved][prev_to], counter[1]);
    // In check there is no plan to follow up.
    const MoveEntry* followed = rec[-2].list_cursor;
    if (!rec->in_check && followed->move != NoMove) {
        add_favoured(&favoured, thread->follow_move[followed->moved][to_square(followed->move)],
            bonus_rule.follow);
    }
    return favoured;
}

// Quiet moves by what they have done elsewhere: nothing on the board tells one from the other.
static void score_quiets(
    const SearchThread* thread, const PlyRecord* rec, std::span<MoveEntry> quiets)
{
    const FavouredMoves favoured = find_favoured(thread, rec);
    const i32 prev_type = type_of(rec[-1].list_cursor->moved);
    for (MoveEntry& entry : quiets) {
        const Move move = entry.move;
        const i32 to = to_square(move);
        // What it did in answer to a piece of the same type, and at all.
        i32 score = history_base(
            thread->history[prev_type][entry.moved][to], thread->history[0][entry.moved][to]);
        for (i32 i = 0; i < favoured.count; ++i) {
            if (favoured.move[i] == move) {
                score += favoured.bonus[i];
                break;
            }
        }
        entry.score = static_cast<i16>(score);
    }
}

// Puts the quiet moves behind what is left of the list, over its closing entry.
static void append_quiets(Position* pos, PlyRecord* rec)
{
    SearchThread* thread = pos->thread;
    // Their scores and those of the losing captures share one scale, so the two mix.
    MoveEntry* quiets = closing_entry(rec);
    MoveEntry* end = gen_quiets(pos, pos->stm, quiets, rec->check_sq);
    publish_list(thread, end);
    // At ply 1 there is no previous move to look at; only perft comes here then.
    if (end > quiets && thread->ply > 1) {
        score_quiets(thread, rec, { quiets, end });
    }
}

// What is left most likely never comes up: to sort it would cost more than it brings.
static MoveEntry* next_in_plain_order(MoveEntry* cursor)
{
    return cursor->move != EndOfList ? cursor : nullptr;
}

// Losing captures and quiet moves, until the best of them has no merit left.
static MoveEntry* next_of_rest(PlyRecord* rec, MoveEntry* cursor)
{
    if (cursor->move == EndOfList) {
        return nullptr;
    }
    // One look through what is left for each move asked for: cheaper than sorting as long as few
    // are asked for, so it ends with the moves that have a chance.
    pick_best(cursor, closing_entry(rec));
    if (cursor->score <= order_rule.sorting_limit) {
        set_stage(rec, StagePlainOrder);
    }
    return cursor;
}

// Captures first: most moves of the parent leave something hanging, and to take it refutes them.
// The losing captures stay where they are and are sorted among the quiet moves.
static MoveEntry* next_good_capture(Position* pos, PlyRecord* rec, MoveEntry* cursor)
{
    if (cursor->move != EndOfList) {
        set_stage(rec, StageGoodCaptures);
        pick_best(cursor, closing_entry(rec));
        if (cursor->score > order_rule.good_capture_limit) {
            return cursor;
        }
    }
    append_quiets(pos, rec);
    set_stage(rec, StageRest);
    return next_of_rest(rec, cursor);
}

// Captures, and then checks if the node wants them; they are too alike to be sorted.
static MoveEntry* next_quiet_search_move(Position* pos, PlyRecord* rec, MoveEntry* cursor)
{
    if (cursor->move != EndOfList) {
        pick_best(cursor, closing_entry(rec));
        return cursor;
    }
    // The captures are through, and none was enough.
    if ((rec->stage & GenChecks) == 0) {
        return nullptr;
    }
    MoveEntry* end = gen_checks(pos, cursor);
    if (end == cursor) {
        return nullptr;
    }
    publish_list(pos->thread, end);
    set_stage(rec, StagePlainOrder);
    return cursor;
}

// In check there are only captures of the checking piece and by the king: nothing else helps.
// Promotions come all the same; the test of legality sorts them out. Quiescence promotes to queens.
static MoveEntry* start_captures(Position* pos, PlyRecord* rec, MoveEntry* cursor)
{
    const bool full = (rec->stage & FullSearch) != 0;
    MoveEntry* end = gen_captures(pos, pos->stm, cursor, rec->check_sq);
    end = gen_promotions(pos, pos->stm, full, end);
    publish_list(pos->thread, end);
    if (full) {
        score_captures_by_exchange(pos, { cursor, end });
        return next_good_capture(pos, rec, cursor);
    }
    // All captures come, the losing ones too: the node drops them when it sees what they promise.
    score_captures({ cursor, end });
    set_stage(rec, StageQuietSearch);
    return next_quiet_search_move(pos, rec, cursor);
}

// What was best or refuted this node before does so again more often than any other move.
static MoveEntry* give_hash_move(Position* pos, PlyRecord* rec, MoveEntry* cursor)
{
    const Move move = rec->hash_move;
    cursor->move = move;
    cursor->score = order_rule.hash_move;
    // One entry from the board, as the generators would make it, and closed like a list.
    cursor->moved = pos->board[from_square(move)];
    cursor->captured = pos->board[to_square(move)];
    publish_list(pos->thread, cursor + 1);
    set_stage(rec, StageCaptures);
    return cursor;
}

MoveEntry* next_move(Position* pos)
{
    PlyRecord* rec = &pos->thread->ply_rec[pos->thread->ply];
    const u16 stage = rec->stage & stage_mask;
    MoveEntry* cursor = stage == StageStart ? rec->list_start : rec->list_cursor + 1;
    rec->list_cursor = cursor;

    // A stage that has nothing falls through to the next, so that every call ends with a move or
    // with the end of the list.
    switch (stage) {
    case StageStart:
        if (rec->hash_move != NoMove && (rec->stage & TryHashMove)) {
            return give_hash_move(pos, rec, cursor);
        }
        [[fallthrough]];
    case StageCaptures:
        return start_captures(pos, rec, cursor);
    case StageQuietSearch:
        return next_quiet_search_move(pos, rec, cursor);
    case StageGoodCaptures:
        return next_good_capture(pos, rec, cursor);
    case StageRest:
        return next_of_rest(rec, cursor);
    default:
        return next_in_plain_order(cursor);
    }
}
