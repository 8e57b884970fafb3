// Looking up a position in an opening book and choosing a move by chance. Whatever the file holds,
// the number of reads is bounded by the logarithm of its length, and only a regular file is read:
// a pipe or a terminal under the book's name would hold up the game.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/files.h"
#include "base/text.h"
#include "board/moves.h"
#include "book/polyglot.h"

static constexpr i64 record_size = sizeof(BookEntry);

// The choice. A variety of 25 leaves the book's own proportions; each step more adds a hundredth of
// the first entry's weight to every entry, so that rare moves gain, and each step less takes it
// away: at 0 what weighs less than a quarter of the first drops out.
static constexpr i32 neutral_variety = 25;
static constexpr f64 bonus_step = 0.01;
static constexpr i32 weight_scale = 10000; // adjusted weights are ten-thousandths of the sum

// A draw is the last three digits of rand, multiplied and moved on in 32 bits: a place in
// thousandths of the sum of adjusted weights.
static constexpr u32 draw_factor = 98765;
static constexpr u32 draw_offset = 123456789;
static constexpr f64 draw_step = 0.001;

// ---- Reading

// Returns 0, or 1 where the file has no whole record of that index.
static i32 read_record_at(FILE* file, i64 index, BookEntry* entry)
{
    if (fseeko(file, index * record_size, SEEK_SET) != 0) {
        return 1;
    }
    return read_book_entry(file, entry);
}

// Finds the first record of key by bisection and returns its index, or -1 if there is none.
// The last record is read from 16 bytes before the end; in a file with an odd rest these bytes
// are no record and match no key.
static i64 find_first_record(FILE* file, u64 key, BookEntry* found)
{
    if (fseeko(file, -record_size, SEEK_END) != 0) {
        return -1;
    }
    // Of the records above low and up to high the first one not below key is sought; high starts at
    // the last record, which is read now because the loop never looks at it.
    i64 high = ftello(file) / record_size;
    if (read_book_entry(file, found) != 0) {
        return -1;
    }
    for (i64 low = -1; high - low != 1;) {
        const i64 middle = (low + high) / 2;
        BookEntry entry;
        if (read_record_at(file, middle, &entry) != 0) {
            return -1;
        }
        if (key <= entry.key) {
            *found = entry;
            high = middle;
        } else {
            low = middle;
        }
    }
    // found is the record at high: the last that was not below key, or the last of the file.
    return found->key == key ? high : -1;
}

i32 find_book_entries(FILE* file, u64 key, BookEntry* entries)
{
    // The first record is there already; the others follow it without a gap.
    i32 count = 0;
    const i64 first = find_first_record(file, key, &entries[0]);
    if (first >= 0) {
        count = 1;
        if (fseeko(file, (first + 1) * record_size, SEEK_SET) == 0) {
            while (count < max_book_entries && read_book_entry(file, &entries[count]) == 0
                && entries[count].key == key) {
                ++count;
            }
        }
    }
    return count;
}

// ---- Choosing

// All in whole numbers but the bonus, which is cut off towards zero. An entry from which more is
// taken than it has gets 0 and is drawn no more.
u32 adjust_book_weights(const BookEntry* entries, i32 count, i32 variety, u16* adjusted)
{
    i64 total = 0;
    for (i32 i = 0; i < count; ++i) {
        total += entries[i].weight;
    }
    if (total == 0) {
        return 0;
    }

    const i64 bonus =
        static_cast<i64>(entries[0].weight * bonus_step * (variety - neutral_variety));
    u32 sum = 0;
    for (i32 i = 0; i < count; ++i) {
        const i64 share = (entries[i].weight + bonus) * weight_scale / total;
        adjusted[i] = static_cast<u16>(share > 0 ? share : 0);
        sum += adjusted[i];
    }
    return sum;
}

// The entries lie one behind the other on a line as long as their adjusted weights; the one in
// which the threshold falls is taken. One of weight 0 is passed over, since its author does not
// want it played; what variety has added to it falls to the last one that is playable.
i32 choose_book_entry(const BookEntry* entries, i32 count, const u16* adjusted, u32 sum, u32 draw)
{
    const u32 threshold = static_cast<u32>(draw * draw_step * sum);
    i32 chosen = -1;
    u32 seen = 0;
    for (i32 i = 0; i < count; ++i) {
        if (entries[i].weight == 0) {
            continue;
        }
        // The first playable entry takes the lowest draws, whatever its adjusted weight.
        if (chosen < 0 || threshold > seen) {
            chosen = i;
        }
        seen += adjusted[i];
    }
    return chosen;
}

// rand is seeded once at start-up. The main thread alone draws.
static u32 draw_number()
{
    return (static_cast<u32>(rand()) * draw_factor + draw_offset) % book_draw_limit;
}

// ---- The probe

void write_book_move(u16 book_move, char* out)
{
    copy_text(out, 3, square_name[book_move >> 6 & 63]);
    copy_text(out + 2, 3, square_name[book_move & 63]);
}

void book_probe(Position* pos, const char* file_name, i32 variety, BookChoice* choice)
{
    choice->move = NoMove;
    choice->count = 0;
    if (file_name[0] == '\0') {
        return;
    }
    FILE* file = open_regular_file(file_name);
    if (file == nullptr) {
        return;
    }
    const i32 count = find_book_entries(file, book_key(pos), choice->entries);
    fclose(file);
    if (count == 0) {
        return;
    }
    choice->sum = adjust_book_weights(choice->entries, count, variety, choice->adjusted);
    if (choice->sum == 0) {
        return;
    }
    choice->count = count;
    const i32 chosen =
        choose_book_entry(choice->entries, count, choice->adjusted, choice->sum, draw_number());
    // Two positions may share a key, and a file may hold anything.
    const Move move = book_move_to_move(choice->entries[chosen].move);
    if (is_playable(pos, move)) {
        choice->move = move;
    }
}
