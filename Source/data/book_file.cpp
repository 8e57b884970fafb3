// Reading books in large blocks and by any thread, always by offset: nothing is mapped, so that a
// file that is cut meanwhile is an error and no crash.
#include "data/book_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include "base/files.h"
#include "board/tables.h"
#include "board/types.h"
#include "book/polyglot.h"
#include "data/streams.h"

static constexpr size_t record_size = sizeof(BookEntry);
static constexpr size_t block_size = 4096 * record_size;
static constexpr size_t least_block_size = 64 * record_size;
static constexpr u64 index_step = 256;           // records, 4 KB of the file
static constexpr u64 filter_bits_of_record = 16; // one in sixteen is set at most
static constexpr u64 most_filter_bits = 1ULL << 30;
static constexpr size_t move_codes = 65536;

// ---- Opening

// Whether what stands at the start of a file is packed. A book may begin with the first two bytes
// of a gzip file, so all that is fixed of its header is asked for: RFC 1952, RFC 8878.
static bool is_packed(FILE* file)
{
    u8 magic[4] = {};
    const size_t size = read_at(file, 0, magic, sizeof magic);
    return (size >= 3 && memcmp(magic, "\x1f\x8b\x08", 3) == 0)
        || (size >= 4 && memcmp(magic, "\x28\xb5\x2f\xfd", 4) == 0);
}

// What is packed or comes through a pipe is read to its end first.
static bool copy_stream(BookFile* book, const std::string& name, Report* report)
{
    InputStream in;
    if (!open_stream(&in, name, report)) {
        return false;
    }
    book->name = in.name;
    book->file = open_nameless_file(report);
    if (book->file == nullptr) {
        return false;
    }
    std::vector<u8> block(block_size);
    size_t count;
    while ((count = fread(block.data(), 1, block.size(), in.file)) > 0) {
        if (fwrite(block.data(), 1, count, book->file.get()) != count) {
            break;
        }
    }
    const bool is_whole = close_stream(&in, report);
    return flush_nameless(book->file.get(), report) && is_whole;
}

bool open_unsorted_book(BookFile* book, const std::string& name, Report* report)
{
    *book = BookFile();
    book->name = name;
    // A pipe is not even tried: whoever writes it would see a reader come and go.
    struct stat status;
    if (name != "-" && stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        book->file.reset(open_regular_file(name.c_str()));
    }
    if ((book->file == nullptr || is_packed(book->file.get()))
        && !copy_stream(book, name, report)) {
        return false;
    }
    if (fstat(fileno(book->file.get()), &status) != 0) {
        fail_file(report, book->name, "cannot be read", errno);
        return false;
    }
    book->size = static_cast<u64>(status.st_size);
    book->count = book->size / record_size;
    const u64 rest = book->size % record_size;
    if (rest != 0) {
        refuse_item(report, book->name,
            { .reason = "ends within an entry",
                .detail = std::to_string(rest) + " bytes of 16",
                .entry = static_cast<i64>(book->count) + 1 });
    }
    return true;
}

i64 entry_number(const BookFile& book, u64 index)
{
    u64 number = index + 1;
    if (book.numbers != nullptr) {
        const i64 offset = static_cast<i64>(index * sizeof number);
        if (read_at(book.numbers.get(), offset, &number, sizeof number) != sizeof number) {
            return 0;
        }
    }
    return static_cast<i64>(number);
}

// ---- Moves

static i32 from_of(u16 book_move)
{
    return book_move >> 6 & 63;
}

static i32 to_of(u16 book_move)
{
    return book_move & 63;
}

// Castling, the king's way onto its own rook, is a rook's way.
const char* book_move_defect(u16 book_move)
{
    const i32 from = from_of(book_move);
    const i32 to = to_of(book_move);
    const i32 promotion = book_move >> 12;
    if (from == to) {
        return "no move";
    }
    if (((rook_rays[from] | bishop_rays[from] | knight_attacks[from]) & bit(to)) == 0) {
        return "no piece moves so";
    }
    if (promotion > 4) {
        return "unknown promotion";
    }
    const bool is_step = ((pawn_attacks[White][from] | pawn_attacks[Black][from]
                              | bit((from + 8) & 63) | bit((from - 8) & 63))
                             & bit(to))
        != 0;
    const bool is_up = rank_of(from) == 6 && rank_of(to) == 7;
    const bool is_down = rank_of(from) == 1 && rank_of(to) == 0;
    if (promotion != 0 && !(is_step && (is_up || is_down))) {
        return "promotion off the last rank";
    }
    return nullptr;
}

std::string book_move_text(u16 book_move)
{
    std::string text = square_name[from_of(book_move)];
    text += square_name[to_of(book_move)];
    const i32 promotion = book_move >> 12 & 7;
    if (promotion >= 1 && promotion <= 4) {
        text += "nbrq"[promotion - 1];
    }
    return text;
}

// ---- From the first record to the last

BookCursor make_cursor(const BookFile& book, u64 first, u64 end)
{
    BookCursor cursor;
    cursor.book = &book;
    cursor.next = first;
    cursor.end = end;
    return cursor;
}

BookCursor make_cursor(const BookFile& book)
{
    return make_cursor(book, 0, book.count);
}

bool next_entry(BookCursor* cursor, BookEntry* entry)
{
    if (cursor->next == cursor->end || cursor->failed) {
        return false;
    }
    if (cursor->used == cursor->held) {
        // A few records first: many cursors are made for the records of one position.
        const size_t size = std::clamp(4 * cursor->held, least_block_size, block_size);
        cursor->block.resize(size);
        const u64 wanted = std::min<u64>(size, (cursor->end - cursor->next) * record_size);
        cursor->held = read_at(cursor->book->file.get(),
            static_cast<i64>(cursor->next * record_size), cursor->block.data(), wanted);
        cursor->held -= cursor->held % record_size;
        cursor->used = 0;
        if (cursor->held == 0) {
            cursor->failed = true;
            return false;
        }
    }
    *entry = decode_book_entry(cursor->block.data() + cursor->used);
    cursor->used += record_size;
    ++cursor->next;
    return true;
}

GroupReader make_group_reader(const BookFile& book)
{
    GroupReader reader;
    reader.cursor = make_cursor(book);
    reader.slots.assign(move_codes, -1);
    reader.has_entry = next_entry(&reader.cursor, &reader.entry);
    return reader;
}

bool next_group(GroupReader* reader, BookGroup* group)
{
    group->moves.clear();
    group->count = 0;
    group->total = 0;
    if (!reader->has_entry) {
        return false;
    }
    group->key = reader->entry.key;
    group->first = reader->cursor.next - 1;
    while (reader->has_entry && reader->entry.key == group->key) {
        const BookEntry& entry = reader->entry;
        i32* slot = &reader->slots[entry.move];
        if (*slot < 0) {
            *slot = static_cast<i32>(group->moves.size());
            group->moves.push_back(
                { entry.move, entry.learn, entry.weight, group->first + group->count, 0 });
        } else {
            BookMove* move = &group->moves[static_cast<size_t>(*slot)];
            move->weight += entry.weight;
            ++move->repeated;
        }
        group->total += entry.weight;
        ++group->count;
        reader->has_entry = next_entry(&reader->cursor, &reader->entry);
    }
    for (const BookMove& move : group->moves) {
        reader->slots[move.move] = -1;
    }
    return true;
}

bool check_cursor(const BookCursor& cursor, Report* report)
{
    if (cursor.failed) {
        fail_file(report, cursor.book->name, "cannot be read to its end", 0);
    }
    return !cursor.failed;
}

// ---- Looking for a key

bool make_index(BookIndex* index, const BookFile& book, Report* report)
{
    u64 bits = 64;
    while (bits < book.count * filter_bits_of_record && bits < most_filter_bits) {
        bits *= 2;
    }
    index->mask = bits - 1;
    index->filter.assign(bits / 64, 0);
    index->steps.clear();
    index->positions = 0;
    BookCursor cursor = make_cursor(book);
    BookEntry entry;
    u64 key = 0;
    while (next_entry(&cursor, &entry)) {
        index->positions += cursor.next == 1 || entry.key != key;
        key = entry.key;
        if ((cursor.next - 1) % index_step == 0) {
            index->steps.push_back(entry.key);
        }
        const u64 part = entry.key & index->mask;
        index->filter[part / 64] |= 1ULL << (part % 64);
    }
    return check_cursor(cursor, report);
}

// The first record of a key stands in the last step that begins below the key, or where the next
// one begins.
i64 find_key(const BookIndex& index, const BookFile& book, u64 key)
{
    if (!may_hold_key(index, key)) {
        return -1;
    }
    const auto above = std::lower_bound(index.steps.begin(), index.steps.end(), key);
    const u64 step = static_cast<u64>(above - index.steps.begin());
    const u64 first = step > 0 ? (step - 1) * index_step : 0;
    u8 bytes[(index_step + 1) * record_size];
    const size_t size =
        read_at(book.file.get(), static_cast<i64>(first * record_size), bytes, sizeof bytes);
    u64 low = 0;
    u64 high = size / record_size;
    while (low < high) {
        const u64 middle = (low + high) / 2;
        if (decode_book_entry(bytes + middle * record_size).key < key) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low >= size / record_size || decode_book_entry(bytes + low * record_size).key != key) {
        return -1;
    }
    return static_cast<i64>(first + low);
}

i32 read_group(const BookFile& book, u64 first, BookEntry* entries)
{
    u8 bytes[max_book_entries * record_size];
    const size_t size =
        read_at(book.file.get(), static_cast<i64>(first * record_size), bytes, sizeof bytes);
    i32 count = 0;
    for (size_t at = 0; at + record_size <= size; at += record_size) {
        entries[count] = decode_book_entry(bytes + at);
        if (entries[count].key != entries[0].key) {
            break;
        }
        ++count;
    }
    return count;
}
