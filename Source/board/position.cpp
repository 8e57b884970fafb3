// The position from and to text, its keys and its checks.
// put_piece and remove_piece are the only routines here that change the board; each keeps every
// field that is derived from it, but for the keys, which are computed once a position is complete.
#include "board/position.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/text.h"
#include "board/tables.h"

// clang-format off
const char square_name[64][3] = {
    "a1", "b1", "c1", "d1", "e1", "f1", "g1", "h1",
    "a2", "b2", "c2", "d2", "e2", "f2", "g2", "h2",
    "a3", "b3", "c3", "d3", "e3", "f3", "g3", "h3",
    "a4", "b4", "c4", "d4", "e4", "f4", "g4", "h4",
    "a5", "b5", "c5", "d5", "e5", "f5", "g5", "h5",
    "a6", "b6", "c6", "d6", "e6", "f6", "g6", "h6",
    "a7", "b7", "c7", "d7", "e7", "f7", "g7", "h7",
    "a8", "b8", "c8", "d8", "e8", "f8", "g8", "h8",
};
// clang-format on

// Letters by piece code in a position text, and in the board view, whose black pawn is an o: beside
// each other p and P are hard to tell apart. Blanks stand for codes that are no piece; the nought
// for empty squares in a rank is what their number is added to.
static constexpr std::string_view fen_letters = " PNBRQK  pnbrqk";
static constexpr std::string_view rank_letters = "0PNBRQK  pnbrqk";
static constexpr std::string_view view_letters = "-PNBRQK -onbrqk";

// By the bit of the right.
static constexpr std::string_view castle_letters = "KQkq";

// What each castling right needs, in the order of castle_letters.
struct CastleHome {
    u8 right; // CastleRight
    u8 king;  // piece code
    u8 king_square;
    u8 rook; // piece code
    u8 rook_square;
};
static constexpr CastleHome castle_homes[] = {
    { WhiteShort, piece_code(White, King), 4, piece_code(White, Rook), 7 },
    { WhiteLong, piece_code(White, King), 4, piece_code(White, Rook), 0 },
    { BlackShort, piece_code(Black, King), 60, piece_code(Black, Rook), 63 },
    { BlackLong, piece_code(Black, King), 60, piece_code(Black, Rook), 56 },
};

static constexpr i32 last_piece_code = piece_code(Black, King);

// ---- Setting up

// The counts go up by a step of their nibble: sixteen pawns would run into the knights, but no side
// that may be searched has more than sixteen pieces, its king among them.
void put_piece(Position* pos, i32 square, i32 code)
{
    remove_piece(pos, square);
    const i32 side = side_of(code);
    const i32 type = type_of(code);
    pos->board[square] = static_cast<u8>(code);
    pos->bb[side][0] |= bit(square);
    pos->bb[side][type] |= bit(square);
    pos->piece_count[side] += count_step[type];
    pos->phase_mtl[side] = static_cast<i16>(pos->phase_mtl[side] + phase_weight[type]);
    if (type == King) {
        pos->king_sq[side] = static_cast<u8>(square);
    }
}

void remove_piece(Position* pos, i32 square)
{
    const i32 code = pos->board[square];
    if (code == 0) {
        return;
    }
    const i32 side = side_of(code);
    const i32 type = type_of(code);
    pos->board[square] = 0;
    pos->bb[side][0] &= ~bit(square);
    pos->bb[side][type] &= ~bit(square);
    pos->piece_count[side] -= count_step[type];
    pos->phase_mtl[side] = static_cast<i16>(pos->phase_mtl[side] - phase_weight[type]);
    // A side that has lost one of several kings goes by one that it still has.
    if (pos->bb[side][King] != 0 && pos->king_sq[side] == square) {
        pos->king_sq[side] = static_cast<u8>(lowest(pos->bb[side][King]));
    }
}

static void clear_stack(UndoStack* stack)
{
    stack->undo_count = 0;
    stack->ply = 1;
    stack->last_move = 0;
}

void clear_board(Position* pos)
{
    pos->castle = 15;
    pos->ep_square = NoSquare;
    pos->cnt50 = 0;
    pos->spare = 0;
    memset(pos->board, 0, sizeof pos->board);
    for (i32 side = White; side <= Black; ++side) {
        pos->piece_count[side] = 0;
        pos->phase_mtl[side] = 0;
        for (i32 type = 0; type <= King; ++type) {
            pos->bb[side][type] = 0;
        }
    }
    clear_stack(pos->stack);
}

// Reads the piece field and returns the character that ends it, a blank or the NUL. A row that is
// too long or too short shifts what follows, as a person would read it on; letters that are no
// piece's are passed over. The counters are wide: the field may be as long as a line.
static const char* read_pieces(Position* pos, const char* text)
{
    i64 file = 0;
    i64 rank = 7;
    for (; *text != '\0' && *text != ' '; ++text) {
        const char c = *text;
        if (c == '/') {
            --rank;
            file = 0;
        } else if (c >= '1' && c <= '8') {
            file += c - '0';
        } else if (const size_t code = fen_letters.find(c); code != fen_letters.npos) {
            const i64 square = rank * 8 + file;
            if (square >= 0 && square < NoSquare) {
                put_piece(pos, static_cast<i32>(square), static_cast<i32>(code));
            }
            ++file;
        }
    }
    return text;
}

// Reads the castling field; a dash and all other characters stand for nothing.
static const char* read_castling(Position* pos, const char* text)
{
    pos->castle = 0;
    for (; *text != '\0' && *text != ' '; ++text) {
        const size_t right = castle_letters.find(*text);
        if (right != castle_letters.npos) {
            pos->castle = static_cast<u8>(pos->castle | (1 << right));
        }
    }
    return text;
}

// Reads the en-passant field. A rank without a file gives none, nor does what leaves the board.
static const char* read_ep_square(Position* pos, const char* text)
{
    i32 square = NoSquare;
    for (; *text != '\0' && *text != ' '; ++text) {
        if (*text >= 'a' && *text <= 'h') {
            square = *text - 'a';
        } else if (*text >= '1' && *text <= '8') {
            square += (*text - '1') * 8;
        }
        if (square > 63) {
            square = NoSquare;
        }
    }
    pos->ep_square = static_cast<u8>(square);
    return text;
}

// The rights of pos whose king or rook is not at home.
u8 false_castling(const Position* pos)
{
    u8 rights = 0;
    for (const CastleHome& home : castle_homes) {
        if (pos->board[home.king_square] != home.king
            || pos->board[home.rook_square] != home.rook) {
            rights |= home.right;
        }
    }
    return static_cast<u8>(rights & pos->castle);
}

// A right without its king or rook at home would let make_move put pieces where there are none.
i32 drop_false_castling(Position* pos)
{
    const u8 dropped = false_castling(pos);
    pos->castle = static_cast<u8>(pos->castle & ~dropped);
    return popcount(dropped);
}

// Whoever looks at the move before the first, or for one to take back, finds none.
static void clear_first_records(UndoStack* stack)
{
    stack->undo[0] = {};
    stack->undo[1] = {};
}

// Sets all of pos and returns what stands behind the fields. dropped gets the number of castling
// rights that had to be dropped.
static const char* read_fields(Position* pos, const char* text, i32* dropped)
{
    clear_board(pos);
    // A text may end behind any field. Without a side to move the one before stays.
    text = read_pieces(pos, text);
    if (*text == ' ') {
        ++text;
    }
    if (*text == 'w') {
        pos->stm = White;
    } else if (*text == 'b') {
        pos->stm = Black;
    }
    if (*text != '\0') {
        ++text;
    }
    text = read_castling(pos, skip_blanks(text));
    text = read_ep_square(pos, skip_blanks(text));

    clear_first_records(pos->stack);
    *dropped = drop_false_castling(pos);
    pos->key = compute_key(pos);
    pos->pawn_key = compute_pawn_key(pos);
    return text;
}

i32 parse_epd(Position* pos, const char* text, const char** rest)
{
    i32 dropped = 0;
    text = read_fields(pos, text, &dropped);
    if (rest != nullptr) {
        *rest = text;
    }
    return dropped == 0 ? 0 : -1;
}

void copy_position(Position* pos, const Position* other)
{
    UndoStack* stack = pos->stack;
    SearchThread* thread = pos->thread;
    *pos = *other;
    pos->stack = stack;
    pos->thread = thread;
    clear_stack(stack);
    clear_first_records(stack);
}

// ---- Keys

// Bit 0 of the key is not a Zobrist bit: it is the side to move, where the hash table looks for it.
u64 compute_key(const Position* pos)
{
    u64 key = 0;
    for (i32 square = 0; square < 64; ++square) {
        if (pos->board[square] != NoPiece) {
            key ^= zobrist[pos->board[square]][square];
        }
    }
    if (pos->ep_square != NoSquare) {
        key ^= zobrist[NoPiece][pos->ep_square];
    }
    key ^= zobrist[NoPiece][pos->castle];
    return (key & ~1ULL) + pos->stm;
}

// Both sides' pawns, without the side to move: the pawn evaluation does not ask whose turn it is.
u64 compute_pawn_key(const Position* pos)
{
    u64 key = 0;
    for (i32 square = 0; square < 64; ++square) {
        if (type_of(pos->board[square]) == Pawn) {
            key ^= zobrist[pos->board[square]][square];
        }
    }
    return key;
}

// ---- Text

// Writes one rank, empty squares as their number, and returns the end. Every square writes its
// character, which is its piece or the number of empty squares up to it; that one takes the place
// of the number before it. There is nothing that the processor could guess wrong.
static char* write_rank(const Position* pos, i32 rank, char* out)
{
    const u8* squares = pos->board + square_at(0, rank);
    i32 empty = 0;
    for (i32 file = 0; file < 8; ++file) {
        empty = (empty + 1) & -static_cast<i32>(squares[file] == NoPiece);
        out += empty < 2;
        out[-1] = static_cast<char>(rank_letters[squares[file]] + empty);
    }
    return out;
}

// Writes what stands behind the pieces, from the blank before the side to move to the NUL, and
// returns where that is.
static char* write_state(const Position* pos, char* out)
{
    *out++ = ' ';
    *out++ = pos->stm == White ? 'w' : 'b';
    *out++ = ' ';
    for (i32 i = 0; i < 4; ++i) {
        if (pos->castle & (1 << i)) {
            *out++ = castle_letters[i];
        }
    }
    if ((pos->castle & AllCastling) == 0) {
        *out++ = '-';
    }
    *out++ = ' ';
    if (pos->ep_square < NoSquare) {
        *out++ = square_name[pos->ep_square][0];
        *out++ = square_name[pos->ep_square][1];
    } else {
        *out++ = '-';
    }
    *out = '\0';
    return out;
}

// Only the four fields that make a position: a clock and a move number are of the game.
void make_fen(const Position* pos, char* out)
{
    for (i32 rank = 7; rank >= 0; --rank) {
        out = write_rank(pos, rank, out);
        *out++ = '/';
    }
    write_state(pos, out - 1);
}

// A move changes two ranks of eight, and the others are copied in one step each, whatever their
// length.
char* make_next_fen(const Position* pos, RankTexts* ranks, char* out)
{
    u64 squares[8];
    memcpy(squares, pos->board, sizeof squares);
    u64 changed = 0;
    for (i32 rank = 0; rank < 8; ++rank) {
        changed |= u64 { ranks->squares[rank] != squares[rank] } << rank;
    }
    while (changed != 0) {
        const i32 rank = pop_lowest(&changed);
        const char* end = write_rank(pos, rank, ranks->text[rank]);
        ranks->size[rank] = static_cast<u8>(end - ranks->text[rank]);
        ranks->squares[rank] = squares[rank];
    }
    for (i32 rank = 7; rank >= 0; --rank) {
        memcpy(out, ranks->text[rank], sizeof ranks->text[rank]);
        out += ranks->size[rank];
        *out++ = '/';
    }
    return write_state(pos, out - 1);
}

// Dark squares and light ones differ where they are empty, so that diagonals can be followed.
void make_board_view(const Position* pos, char* out)
{
    for (i32 rank = 7; rank >= 0; --rank) {
        *out++ = ' ';
        for (i32 file = 0; file < 8; ++file) {
            const i32 code = pos->board[square_at(file, rank)];
            const bool dark = ((file ^ rank) & 1) == 0;
            *out++ = ' ';
            *out++ = code != NoPiece ? view_letters[code] : dark ? '+' : '-';
        }
        *out++ = '\n';
    }
    *out = '\0';
}

// ---- Checks

// Makes the derived fields anew from board alone and compares: it shares nothing with the routines
// that keep them up to date, so an error of theirs cannot hide here.
bool fields_agree(const Position* pos)
{
    u64 bb[2][8] = {};
    u32 counts[2] = {};
    i32 phase[2] = {};
    for (i32 square = 0; square < 64; ++square) {
        const i32 code = pos->board[square];
        if (code == NoPiece) {
            continue;
        }
        const i32 type = type_of(code);
        if (code > last_piece_code || type < Pawn || type > King) {
            return false;
        }
        bb[side_of(code)][0] |= bit(square);
        bb[side_of(code)][type] |= bit(square);
        counts[side_of(code)] += count_step[type];
        phase[side_of(code)] += phase_weight[type];
    }
    for (i32 side = White; side <= Black; ++side) {
        if (memcmp(bb[side], pos->bb[side], 7 * sizeof(u64)) != 0) {
            return false;
        }
        if (counts[side] != pos->piece_count[side] || phase[side] != pos->phase_mtl[side]) {
            return false;
        }
        // With several kings on a board set up to look at, king_sq may be any of them.
        if (popcount(bb[side][King]) == 1 && lowest(bb[side][King]) != pos->king_sq[side]) {
            return false;
        }
    }
    return pos->stm <= Black && pos->castle <= AllCastling && pos->ep_square <= NoSquare
        && pos->key == compute_key(pos) && pos->pawn_key == compute_pawn_key(pos);
}
