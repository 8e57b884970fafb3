// The Polyglot format. Fields are put together and taken apart byte by byte, so that a book is
// the same on every machine.
#include "book/polyglot.h"

#include "board/tables.h"

// Where the parts of the key begin in the table of constants. In front of them each piece type has
// 128, for black on 64 squares and then for white.
static constexpr i32 square_count = 64;
static constexpr i32 castle_constants = 12 * square_count;
static constexpr i32 ep_constants = 772;
static constexpr i32 white_to_move_constant = 780;

// Squares of a castling king, and of the rook that a book names in place of its target.
struct CastlingSquares {
    i32 king_from;
    i32 king_to;
    i32 rook;
};
// e1 with g1 and h1, and so on: white short, white long, black short, black long.
static constexpr CastlingSquares castlings[4] = { { 4, 6, 7 }, { 4, 2, 0 }, { 60, 62, 63 },
    { 60, 58, 56 } };

// Fields of a book's move: squares of six bits, and three for the promotion.
static constexpr i32 from_shift = 6;
static constexpr i32 promotion_shift = 12;
static constexpr i32 square_mask = 63;
static constexpr i32 promotion_mask = 7;

// Promotion flags by the number that a book gives the piece. The numbers of no piece stand for
// none.
static constexpr Move promotion_flags[8] = { 0, PromoteKnight, PromoteBishop, PromoteRook,
    PromoteQueen, 0, 0, 0 };

static constexpr const u64* white(i32 type)
{
    return random64 + square_count * (2 * (type - Pawn) + 1);
}

static constexpr const u64* black(i32 type)
{
    return random64 + square_count * (2 * (type - Pawn));
}

// The constants of the squares by piece code: none for the codes that are no piece.
static constexpr u64 nothing[square_count] = {};
static constexpr const u64* piece_constants[16] = { nothing, white(Pawn), white(Knight),
    white(Bishop), white(Rook), white(Queen), white(King), nothing, nothing, black(Pawn),
    black(Knight), black(Bishop), black(Rook), black(Queen), black(King), nothing };

// The share of castling rights, en-passant square and side to move.
static u64 key_of_state(const Position* pos)
{
    u64 key = 0;
    // The bits of castle happen to have the order of the constants.
    for (i32 right = 0; right < 4; ++right) {
        if (pos->castle & (1 << right)) {
            key ^= random64[castle_constants + right];
        }
    }
    // An en-passant square that no pawn can use makes no other position: the book would not know
    // it.
    const i32 side = pos->stm;
    if (pos->ep_square != NoSquare
        && (pawn_attacks[side ^ 1][pos->ep_square] & pos->bb[side][Pawn])) {
        key ^= random64[ep_constants + file_of(pos->ep_square)];
    }
    if (side == White) {
        key ^= random64[white_to_move_constant];
    }
    return key;
}

// A square whose piece changes leaves the set of one side or enters that of the other.
u64 next_book_key(const Position* pos, BookBoard* board)
{
    u64 changed = 0;
    for (i32 side = White; side <= Black; ++side) {
        changed |= board->pieces[side] ^ pieces_of(pos, side);
        board->pieces[side] = pieces_of(pos, side);
    }
    while (changed != 0) {
        const i32 square = pop_lowest(&changed);
        const u8 code = pos->board[square];
        board->key ^= piece_constants[board->codes[square]][square] ^ piece_constants[code][square];
        board->codes[square] = code;
    }
    return board->key ^ key_of_state(pos);
}

// Another key than the position's own: books were made with these constants by many programs.
u64 book_key(const Position* pos)
{
    BookBoard board = {};
    return next_book_key(pos, &board);
}

// The number that stands in so many bytes, the highest first.
static u64 take_number(const u8* bytes, i32 count)
{
    u64 number = 0;
    for (i32 i = 0; i < count; ++i) {
        number = number << 8 | bytes[i];
    }
    return number;
}

BookEntry decode_book_entry(const u8* bytes)
{
    return { take_number(bytes, 8), static_cast<u16>(take_number(bytes + 8, 2)),
        static_cast<u16>(take_number(bytes + 10, 2)),
        static_cast<u32>(take_number(bytes + 12, 4)) };
}

i32 read_book_entry(FILE* file, BookEntry* entry)
{
    u8 bytes[sizeof(BookEntry)];
    if (fread(bytes, 1, sizeof bytes, file) != sizeof bytes) {
        return 1;
    }
    *entry = decode_book_entry(bytes);
    return 0;
}

// Writes a number of so many bytes, the highest first, and returns the place behind it.
static u8* put_number(u8* out, i32 bytes, u64 value)
{
    for (i32 shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        *out++ = static_cast<u8>(value >> shift);
    }
    return out;
}

i32 write_book_entry(FILE* file, const BookEntry* entry)
{
    u8 bytes[sizeof(BookEntry)];
    u8* out = put_number(bytes, 8, entry->key);
    out = put_number(out, 2, entry->move);
    out = put_number(out, 2, entry->weight);
    put_number(out, 4, entry->learn);
    return fwrite(bytes, 1, sizeof bytes, file) == sizeof bytes ? 0 : 1;
}

// A rook's move from e1 to h1 has the same squares as castling and comes out as one to g1: rare
// enough, and whoever plays the move asks first whether it is legal.
Move book_move_to_move(u16 book_move)
{
    const i32 from = book_move >> from_shift & square_mask;
    i32 to = book_move & square_mask;
    for (const CastlingSquares& castling : castlings) {
        if (from == castling.king_from && to == castling.rook) {
            to = castling.king_to;
            break;
        }
    }
    return make_move_code(from, to)
        | promotion_flags[book_move >> promotion_shift & promotion_mask];
}

u16 move_to_book_move(Move move)
{
    const i32 from = from_square(move);
    i32 to = to_square(move);
    for (const CastlingSquares& castling : castlings) {
        if (from == castling.king_from && to == castling.king_to) {
            to = castling.rook;
        }
    }
    // A move has one promotion flag or none.
    i32 promotion = 0;
    for (i32 i = 1; i <= 4; ++i) {
        if (move & promotion_flags[i]) {
            promotion = i;
        }
    }
    return static_cast<u16>(promotion << promotion_shift | from << from_shift | to);
}

// Keys are compared, not subtracted: their difference does not fit an int, that of weights does.
int book_entry_compare(const void* a, const void* b)
{
    const BookEntry* first = static_cast<const BookEntry*>(a);
    const BookEntry* second = static_cast<const BookEntry*>(b);
    if (first->key != second->key) {
        return first->key < second->key ? -1 : 1;
    }
    return second->weight - first->weight;
}
