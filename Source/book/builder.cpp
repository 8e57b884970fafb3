// Making an opening book from games. Every position and move is counted by how the games went for
// the side that played it; what did not do well often enough is left out.
// The nodes are kept in lists by the top bits of their key, each list in the order of its keys, so
// that a walk over all of them meets the keys in the order that a book file must have.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/moves.h"
#include "board/notation.h"
#include "book/polyglot.h"

static constexpr char book_name[] = "tmp_book.bin";
static constexpr char unfinished_name[] = "tmp_book.part"; // renamed once it is complete

// Reading.
static constexpr i32 line_length = 1022;    // longer lines are read in pieces
static constexpr i32 last_started_ply = 35; // a line behind it is not read
static constexpr i32 games_per_dot = 1024;

// Keeping.
static constexpr i64 least_score = 10;
static constexpr u32 least_wins = 3;
static constexpr f64 highest_weight = 60000.0;
static constexpr i32 max_moves_of_key = 256; // no position has more legal moves

// The table grows so that a list keeps a few nodes.
static constexpr i32 first_list_bits = 14;
static constexpr i32 last_list_bits = 30;
static constexpr u64 nodes_per_list = 2;
static constexpr i32 nodes_per_block = 4096;
static constexpr u64 lists_ahead = 8; // nodes lie all over the memory: fetched early

// A position and a move played there, with the ends of those games for the side to move.
struct BookNode {
    u64 key;
    u32 wins;
    u32 losses;
    u32 draws;
    u16 move;
    BookNode* next; // higher or equal key; equal keys in the order of their first appearance
};
static_assert(sizeof(BookNode) == 32);

// Nodes are allocated by the block: one at a time they would need half as much again.
struct NodeBlock {
    NodeBlock* next;
    i32 used;
    BookNode nodes[nodes_per_block];
};

// All nodes: 2^list_bits lists, a node standing in the one that the top bits of its key name.
struct NodeTable {
    BookNode** lists;
    i32 list_bits;
    u64 node_count;
    NodeBlock* blocks;
};

enum GameResult : i32 { WhiteWon = White, BlackWon = Black, Drawn, Unknown };

// A move that was read and is not counted yet.
struct PlayedMove {
    u64 key;
    Move move;
    u8 side;
};

// What is known of the game being read.
struct BookReader {
    Position* pos; // the games are played here
    const char* file_name;
    NodeTable table;
    PlayedMove line_moves[line_length]; // of the line being read, in their order
    i32 line_move_count;
    i32 game_count; // 0 before the first result tag: nothing is entered then
    i32 result;
    i32 plies;           // moves entered
    i64 comment_depth;   // a closing mark without an opening one makes it negative,
    i64 variation_depth; // and anything but 0 is inside
    bool skips;          // a move could not be read: the rest of the game is lost
    bool out_of_memory;
};

// ---- The nodes

static bool make_table(NodeTable* table)
{
    *table = {};
    table->list_bits = first_list_bits;
    table->lists = static_cast<BookNode**>(calloc(1ULL << first_list_bits, sizeof(BookNode*)));
    return table->lists != nullptr;
}

static void free_table(NodeTable* table)
{
    free(table->lists);
    while (table->blocks != nullptr) {
        NodeBlock* block = table->blocks;
        table->blocks = block->next;
        free(block);
    }
    *table = {};
}

// A zeroed node, or null if there is no memory.
static BookNode* new_node(NodeTable* table)
{
    NodeBlock* block = table->blocks;
    if (block == nullptr || block->used == nodes_per_block) {
        block = static_cast<NodeBlock*>(calloc(1, sizeof(NodeBlock)));
        if (block == nullptr) {
            return nullptr;
        }
        block->next = table->blocks;
        table->blocks = block;
    }
    ++table->node_count;
    return &block->nodes[block->used++];
}

// Doubles the number of lists, each being cut in two where the next bit of the key changes.
// Without the memory for it all stays as it is, only slower.
static void split_lists(NodeTable* table)
{
    const u64 count = 1ULL << table->list_bits;
    BookNode** lists = static_cast<BookNode**>(calloc(2 * count, sizeof(BookNode*)));
    if (lists == nullptr) {
        return;
    }
    const u64 next_bit = 1ULL << (63 - table->list_bits);
    for (u64 i = 0; i < count; ++i) {
        BookNode** link = &table->lists[i];
        while (*link != nullptr && ((*link)->key & next_bit) == 0) {
            link = &(*link)->next;
        }
        lists[2 * i + 1] = *link;
        *link = nullptr;
        lists[2 * i] = table->lists[i];
    }
    free(table->lists);
    table->lists = lists;
    ++table->list_bits;
}

static BookNode** list_of(const NodeTable* table, u64 key)
{
    return &table->lists[key >> (64 - table->list_bits)];
}

// The node of a key and a move, made if there is none yet. Null if there is no memory for it.
static BookNode* find_node(NodeTable* table, u64 key, Move move)
{
    if (table->node_count > nodes_per_list << table->list_bits
        && table->list_bits < last_list_bits) {
        split_lists(table);
    }

    BookNode** link = list_of(table, key);
    while (*link != nullptr && (*link)->key < key) {
        link = &(*link)->next;
    }
    for (; *link != nullptr && (*link)->key == key; link = &(*link)->next) {
        if ((*link)->move == move) {
            return *link;
        }
    }
    BookNode* node = new_node(table);
    if (node == nullptr) {
        return nullptr;
    }
    node->key = key;
    node->move = move;
    node->next = *link;
    *link = node;
    return node;
}

// ---- Reading games

static bool holds(const char* line, i32 length, const char* text)
{
    return memmem(line, static_cast<size_t>(length), text, strlen(text)) != nullptr;
}

static void start_game(BookReader* reader, const char* line, i32 length)
{
    parse_epd(reader->pos, start_position);
    if (holds(line, length, "1-0")) {
        reader->result = WhiteWon;
    } else if (holds(line, length, "0-1")) {
        reader->result = BlackWon;
    } else if (holds(line, length, "1/2")) {
        reader->result = Drawn;
    } else {
        reader->result = Unknown;
    }
    ++reader->game_count;
    if (reader->game_count % games_per_dot == 0) {
        print_plain(".");
    }
    reader->plies = 0;
    reader->comment_depth = 0;
    reader->variation_depth = 0;
    reader->skips = false;
}

static void count_result(BookNode* node, i32 result, i32 side)
{
    if (result == side) {
        ++node->wins;
    } else if (result == (side ^ 1)) {
        ++node->losses;
    } else {
        ++node->draws;
    }
}

// Counts the moves of the line. Their nodes lie all over the memory, so they are asked for
// together first: waiting for one after the other would take most of the time.
static void count_line_moves(BookReader* reader)
{
    const PlayedMove* end = reader->line_moves + reader->line_move_count;
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        __builtin_prefetch(list_of(&reader->table, played->key));
    }
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        __builtin_prefetch(*list_of(&reader->table, played->key));
    }
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        if (const BookNode* first = *list_of(&reader->table, played->key)) {
            __builtin_prefetch(first->next);
        }
    }
    for (const PlayedMove* played = reader->line_moves; played < end; ++played) {
        BookNode* node = find_node(&reader->table, played->key, played->move);
        if (node == nullptr) {
            reader->out_of_memory = true;
            return;
        }
        count_result(node, reader->result, played->side);
    }
    reader->line_move_count = 0;
}

// Plays a move of the game; its text has room for one character more.
static void play_move(BookReader* reader, char* text)
{
    Position* pos = reader->pos;
    PlayedMove* played = &reader->line_moves[reader->line_move_count];
    played->key = book_key(pos);
    played->side = pos->stm;
    const i32 matches = parse_move(pos, text, &played->move);
    if (matches == 2) {
        print_plain("ambiguous move\n");
    }
    if (matches != 1) {
        reader->skips = true;
        return;
    }
    make_move(pos, played->move);
    ++reader->plies;
    ++reader->line_move_count;
}

// Where the move begins in a word such as "12.Nf3" or "4.0-0"; null if there is none, as in a
// number or most results.
static char* find_move_text(char* word)
{
    for (; *word != '\0'; ++word) {
        if (is_letter(*word) || (word[0] == '0' && word[1] == '-')) {
            return word;
        }
    }
    return nullptr;
}

static void read_mark(BookReader* reader, char mark)
{
    switch (mark) {
    case '{':
        ++reader->comment_depth;
        break;
    case '}':
        --reader->comment_depth;
        break;
    case '(':
        ++reader->variation_depth;
        break;
    default:
        --reader->variation_depth;
        break;
    }
}

static void read_word(BookReader* reader, char* word)
{
    if (word[0] == ';' || word[0] == '$') {
        return;
    }
    if (reader->comment_depth != 0 || reader->variation_depth != 0) {
        return;
    }
    if (char* text = find_move_text(word)) {
        play_move(reader, text);
    }
}

static bool is_mark(char c)
{
    return c == '{' || c == '}' || c == '(' || c == ')';
}

// Reads the moves of a line. Words end at blanks and at the marks of comments and variations;
// other characters that cannot be printed are dropped wherever they stand.
static void read_moves(BookReader* reader, const char* line, i32 length)
{
    char word[line_length + 2];
    i32 size = 0;
    for (i32 i = 0; i <= length && !reader->skips; ++i) {
        const char c = i < length ? line[i] : ' ';
        if (c > ' ' && c < 127 && !is_mark(c)) {
            word[size++] = c;
            continue;
        }
        if (c != ' ' && !is_mark(c)) {
            continue;
        }
        if (size > 0) {
            word[size] = '\0';
            size = 0;
            read_word(reader, word);
        }
        if (is_mark(c) && !reader->skips) {
            read_mark(reader, c);
        }
    }
}

static void read_game_line(BookReader* reader, const char* line, i32 length)
{
    if (holds(line, length, "[Result")) {
        start_game(reader, line, length);
        return;
    }
    if (length == 0 || reader->game_count == 0) {
        return;
    }
    if (reader->comment_depth == 0 && (line[0] == ';' || line[0] == '[')) {
        return;
    }
    if (reader->result == Unknown || reader->plies > last_started_ply) {
        return;
    }
    read_moves(reader, line, length);
    count_line_moves(reader);
}

// Returns 0, or the error that kept the file from being read to its end.
static int read_games(BookReader* reader, FILE* file)
{
    LineReader* lines = new (std::nothrow) LineReader;
    if (lines == nullptr) {
        reader->out_of_memory = true;
        return 0;
    }
    start_reading(lines, file);
    char line[line_length + 1];
    i32 length;
    // The last character of a line or a piece of one is taken off, whatever it is.
    while (!reader->out_of_memory && (length = read_line_piece(lines, line, sizeof line)) > 0) {
        read_game_line(reader, line, length - 1);
    }
    delete lines;
    return ferror(file) ? errno : 0;
}

// ---- Writing the book

static i64 node_score(const BookNode* node)
{
    return 4 * static_cast<i64>(node->wins) - 2 * static_cast<i64>(node->losses) + node->draws;
}

static bool is_kept(const BookNode* node)
{
    return node_score(node) >= least_score && node->wins >= least_wins;
}

// Puts the last of count entries in its place. Entries that compare equal keep their order.
static void sort_in(BookEntry* entries, i32 count)
{
    for (i32 i = count - 1; i > 0; --i) {
        if (book_entry_compare(&entries[i - 1], &entries[i]) <= 0) {
            return;
        }
        const BookEntry entry = entries[i];
        entries[i] = entries[i - 1];
        entries[i - 1] = entry;
    }
}

// Writes the kept nodes of the key that the list begins with and returns the first node of the
// next key. A file that takes no more shows it when it is closed.
static const BookNode* write_key(FILE* file, const BookNode* first)
{
    i64 highest = 0;
    const BookNode* end = first;
    for (; end != nullptr && end->key == first->key; end = end->next) {
        if (is_kept(end) && node_score(end) > highest) {
            highest = node_score(end);
        }
    }
    if (highest == 0) {
        return end;
    }

    f64 scale = highest_weight / static_cast<f64>(highest);
    if (scale > 1.0) {
        scale = 1.0;
    }
    BookEntry entries[max_moves_of_key];
    i32 count = 0;
    for (const BookNode* node = first; node != end && count < max_moves_of_key; node = node->next) {
        if (!is_kept(node)) {
            continue;
        }
        const f64 weight = static_cast<f64>(node_score(node)) * scale;
        entries[count++] = { node->key, move_to_book_move(node->move), static_cast<u16>(weight),
            0 };
        sort_in(entries, count);
    }
    for (i32 i = 0; i < count; ++i) {
        write_book_entry(file, &entries[i]);
    }
    return end;
}

static void write_nodes(FILE* file, const NodeTable* table)
{
    const u64 count = 1ULL << table->list_bits;
    for (u64 list = 0; list < count; ++list) {
        if (list + lists_ahead < count) {
            __builtin_prefetch(table->lists[list + lists_ahead]);
        }
        for (const BookNode* node = table->lists[list]; node != nullptr;) {
            node = write_key(file, node);
        }
    }
}

static bool is_lack_of_space(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

// Writes the book under another name first, so that the old one stays whole until the new one is.
// Returns 0 or the error; finding no way to open the file leaves exit_status alone unless the
// disk is full.
static int write_book(const NodeTable* table)
{
    OutputFile book;
    const int open_error = open_output(&book, book_name, unfinished_name);
    if (open_error != 0) {
        complain(book_name, "cannot be opened for writing", open_error);
        return is_lack_of_space(open_error) ? open_error : 0;
    }
    write_nodes(book.file, table);
    const int write_error = close_output(&book);
    if (write_error != 0) {
        complain(book_name, "cannot be written", write_error);
        return write_error;
    }
    const int rename_error = publish_output(&book);
    if (rename_error != 0) {
        complain(book_name, "cannot be replaced", rename_error);
    }
    return 0;
}

// ---- The mode

// Opens a file of games, or says why not and returns null. What stands under a name that the book
// takes would be lost.
static FILE* open_games(const char* file_name)
{
    FILE* file = open_or_complain(file_name);
    if (file == nullptr || (!is_named(file, book_name) && !is_named(file, unfinished_name))) {
        return file;
    }
    fprintf(stderr, "%s: would be replaced by the book\n", file_name);
    fclose(file);
    return nullptr;
}

static void make_book(BookReader* reader, FILE* games)
{
    print_line_format(" Creating file %s from games in %s", book_name, reader->file_name);
    const int read_error = read_games(reader, games);
    if (reader->out_of_memory) {
        fprintf(stderr, "no memory for the positions of %s\n", reader->file_name);
        return;
    }
    if (read_error != 0) {
        complain(reader->file_name, "cannot be read to its end", read_error);
        exit_status = 1;
        return;
    }
    print_plain("\nwriting book file ...");
    if (write_book(&reader->table) != 0) {
        exit_status = 1;
        return;
    }
    print_plain("\ngames= %d, nmoves= %d\n", reader->game_count,
        static_cast<i32>(reader->table.node_count));
    print_plain("done\n");
}

void build_book(Position* pos, const char* file_name)
{
    FILE* games = open_games(file_name);
    if (games == nullptr) {
        return;
    }
    BookReader reader = {};
    reader.pos = pos;
    reader.file_name = file_name;
    reader.result = Drawn;
    if (make_table(&reader.table)) {
        make_book(&reader, games);
    } else {
        fprintf(stderr, "no memory for a book\n");
    }
    fclose(games);
    free_table(&reader.table);
}
