// Moves as text and text as moves, and the first word of a line.
// A text form is built through a bounded writer; no input can make it longer than its buffer.
#include "board/notation.h"

#include <cctype>
#include <cstring>
#include <string_view>

#include "base/output.h"
#include "base/text.h"
#include "board/moves.h"
#include "board/tables.h"

// By piece type, and by what find_promotion returns.
static constexpr std::string_view piece_letters = " PNBRQK";
static constexpr char promotion_letters[] = "qnbr";
static constexpr Move promotion_flags[4] = { PromoteQueen, PromoteKnight, PromoteBishop,
    PromoteRook };
static constexpr i32 promotion_types[4] = { Queen, Knight, Bishop, Rook };

static constexpr u64 first_rank = 0xff;

static constexpr size_t form_size = 16; // bytes of a form of a move, its NUL included
static constexpr i32 word_length = 127; // characters; the rest of a longer word is lost

// ---- Moves as text

// Index into the promotion tables, or -1 if the move is none.
static i32 find_promotion(Move move)
{
    if ((move & PromotionMask) == 0) {
        return -1;
    }
    for (i32 i = 0; i < 4; ++i) {
        if (move & promotion_flags[i]) {
            return i;
        }
    }
    return -1;
}

// For forms only: cut at form_size.
static void append(char* text, const char* more)
{
    const size_t length = strlen(text);
    copy_text(text + length, form_size - length, more);
}

static void append_char(char* text, char c)
{
    const char more[2] = { c, '\0' };
    append(text, more);
}

static void append_promotion(char* text, i32 promotion)
{
    append_char(text, '=');
    append_char(text, static_cast<char>(toupper(promotion_letters[promotion])));
}

// Both squares of a move, five bytes with the NUL.
static void write_squares(Move move, char* out)
{
    const char* from = square_name[from_square(move)];
    const char* to = square_name[to_square(move)];
    out[0] = from[0];
    out[1] = from[1];
    out[2] = to[0];
    out[3] = to[1];
    out[4] = '\0';
}

// The two dialogues differ in the promotion alone: the one is read by a program, the other by a
// person, who may type it in again.
void move_text(Move move, char* out)
{
    write_squares(move, out);
    const i32 promotion = find_promotion(move);
    if (promotion < 0) {
        return;
    }
    const char letter = promotion_letters[promotion];
    if (load(uci_mode) != ConsoleMode) {
        out[4] = letter;
        out[5] = '\0';
    } else {
        out[4] = '=';
        out[5] = static_cast<char>(toupper(letter));
        out[6] = '\0';
    }
}

char* move_text_or_null(Move move, char* out)
{
    if (move == NoMove) {
        copy_text(out, sizeof "null", "null");
    } else {
        move_text(move, out);
    }
    return out;
}

// The other pieces of the moved piece's type that also reach the to-square, pinned or not: to be
// told apart from a move that is not legal does no harm.
static u64 find_twins(const Position* pos, i32 type, i32 from, i32 to)
{
    const u64 occ = occupied(pos) | bit(to);
    u64 reach = 0;
    if (type == Knight) {
        reach = knight_attacks[to];
    }
    if (type == Bishop || type == Queen) {
        reach |= bishop_attacks(to, occ);
    }
    if (type == Rook || type == Queen) {
        reach |= rook_attacks(to, occ);
    }
    return reach & pos->bb[pos->stm][type] & ~bit(from);
}

// Piece letter, an optional letter or digit of the from-square, the mark of a capture, to-square.
static void write_piece_form(char* out, char letter, char origin, bool captures, i32 to)
{
    *out++ = letter;
    if (origin != '\0') {
        *out++ = origin;
    }
    if (captures) {
        *out++ = 'x';
    }
    *out++ = square_name[to][0];
    *out++ = square_name[to][1];
    *out = '\0';
}

// san as people write it, san_file and san_rank always with the file or rank that the piece comes
// from: some programs write more than they need, and one of the forms is theirs. Castling comes in
// three ways to write it instead.
static void write_piece_move(
    const Position* pos, Move move, char* san, char* san_file, char* san_rank)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 type = type_of(pos->board[from]);
    if (type == King && (to == from + 2 || to == from - 2)) {
        const bool is_short = to > from;
        copy_text(san, form_size, is_short ? "o-o" : "o-o-o");
        copy_text(san_file, form_size, is_short ? "O-O" : "O-O-O");
        copy_text(san_rank, form_size, is_short ? "0-0" : "0-0-0");
        return;
    }

    // A twin on neither the file nor the rank leaves san as it is: the other forms tell the two
    // moves apart.
    const char file = square_name[from][0];
    const char rank = square_name[from][1];
    const u64 twins = find_twins(pos, type, from, to);
    char origin = '\0';
    if (twins & (ray_n[from] | ray_s[from])) {
        origin = rank;
    } else if (twins & (ray_e[from] | ray_w[from])) {
        origin = file;
    }
    const char letter = piece_letters[type];
    const bool captures = pos->board[to] != 0;
    write_piece_form(san, letter, origin, captures, to);
    write_piece_form(san_file, letter, file, captures, to);
    write_piece_form(san_rank, letter, rank, captures, to);
}

// san of a capture names the file and the square, san_file the two files alone. All three promote.
static void write_pawn_move(const Position* pos, Move move, char* coord, char* san, char* san_file)
{
    const i32 to = to_square(move);
    write_squares(move, coord);
    if (pos->board[to] != 0 || to == pos->ep_square) {
        write_piece_form(san, coord[0], '\0', true, to);
        san_file[0] = coord[0];
        san_file[1] = coord[2];
        san_file[2] = '\0';
    } else {
        san[0] = coord[2];
        san[1] = coord[3];
        san[2] = '\0';
    }

    const i32 promotion = find_promotion(move);
    if (promotion < 0) {
        return;
    }
    append_promotion(coord, promotion);
    append_promotion(san, promotion);
    append_promotion(san_file, promotion);
}

// Whether the move leaves the enemy king attacked, by the moved piece or along a line it opens.
// Only the two squares of the move change: neither an en-passant victim nor a castling rook moves.
static bool gives_check(Position* pos, Move move)
{
    const i32 side = pos->stm;
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 promotion = find_promotion(move);
    const i32 type = promotion < 0 ? type_of(pos->board[from]) : promotion_types[promotion];
    const u64 occ = (occupied(pos) ^ bit(from)) | bit(to);
    // Both squares of the piece are in its set then; occ leaves the old one out.
    const u64 kept = pos->bb[side][type];
    pos->bb[side][type] |= bit(to);
    const i32 checker = find_attacker(pos, pos->king_sq[side ^ 1], side, occ);
    pos->bb[side][type] = kept;
    return checker != NoSquare;
}

// The four forms without the mark of a check.
static void write_forms(
    const Position* pos, Move move, char* coord, char* san, char* san_file, char* san_rank)
{
    move_text_or_null(move, coord);
    san[0] = '\0';
    san_file[0] = '\0';
    san_rank[0] = '\0';
    if (move == NoMove) {
        return;
    }
    if (type_of(pos->board[from_square(move)]) == Pawn) {
        write_pawn_move(pos, move, coord, san, san_file);
    } else {
        write_piece_move(pos, move, san, san_file, san_rank);
    }
}

void make_san(Position* pos, Move move, char* coord, char* san, char* san_file, char* san_rank)
{
    write_forms(pos, move, coord, san, san_file, san_rank);
    if (move != NoMove && gives_check(pos, move)) {
        append_char(coord, '+');
        append_char(san, '+');
        append_char(san_file, '+');
        append_char(san_rank, '+');
    }
}

// The squares from which other pieces of the mover's kind can legally go to the same square.
static u64 find_legal_twins(Position* pos, Move move)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    const i32 moved = pos->board[from_square(move)];
    u64 twins = 0;
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (to_square(entry->move) == to_square(move) && entry->moved == moved
            && from_square(entry->move) != from_square(move)
            && is_legal_move(pos, pos->stm, entry->move)) {
            twins |= bit(from_square(entry->move));
        }
    }
    return twins;
}

// A piece that is not alone in reaching its square is named by its file, if two stand on that by
// its rank, and if need be by both.
void make_standard_san(Position* pos, Move move, char* out)
{
    char coord[form_size];
    char san[form_size];
    char by_file[form_size];
    char by_rank[form_size];
    make_san(pos, move, coord, san, by_file, by_rank);
    const i32 from = from_square(move);
    if (san[0] == 'o') {
        for (char* c = san; *c != '\0'; ++c) {
            *c = static_cast<char>(toupper(static_cast<u8>(*c)));
        }
    }
    const bool is_piece = type_of(pos->board[from]) != Pawn && san[0] != 'O';
    const u64 twins = is_piece ? find_legal_twins(pos, move) : 0;
    if (twins == 0) {
        copy_text(out, form_size, san);
    } else if ((twins & (file_a << file_of(from))) == 0) {
        copy_text(out, form_size, by_file);
    } else if ((twins & (first_rank << (8 * rank_of(from)))) == 0) {
        copy_text(out, form_size, by_rank);
    } else {
        // The letter, the square, and the rest of the form by file.
        out[0] = by_file[0];
        copy_text(out + 1, form_size - 1, square_name[from]);
        copy_text(out + 3, form_size - 3, by_file + 2);
    }
}

// ---- Text as moves

// Ends a text at the first c, if it has one.
static void cut_at(char* text, char c)
{
    if (char* found = strchr(text, c)) {
        *found = '\0';
    }
}

// Brings promotions into the form "=Q" and castling into the form "o-o". People write e8q, e8Q and
// e8=Q, O-O and 0-0, with a check mark or without; the forms are compared in one of each.
static void normalise_move_text(char* text)
{
    cut_at(text, '+');
    const size_t length = strlen(text);
    if (length > 0) {
        char* last = text + length - 1;
        const char letter = static_cast<char>(toupper(static_cast<unsigned char>(*last)));
        if (letter == 'B' || letter == 'N' || letter == 'Q' || letter == 'R') {
            *last = letter;
            if (length == 1 || last[-1] != '=') {
                last[0] = '=';
                last[1] = letter;
                last[2] = '\0';
            }
        }
    }
    for (; *text != '\0'; ++text) {
        if (*text == 'O' || *text == '0') {
            *text = 'o';
        }
    }
}

// A text to be read has lost its check mark, so the forms are compared without theirs.
static bool move_has_text(const Position* pos, Move move, const char* text)
{
    char forms[4][form_size];
    write_forms(pos, move, forms[0], forms[1], forms[2], forms[3]);
    for (const char* form : forms) {
        if (form[0] == text[0] && strcmp(form, text) == 0) {
            return true;
        }
    }
    return false;
}

// Stores the last legal move of a closed list that has this text. Returns how many have it. The
// text is compared before legality, which costs more and holds for most.
static i32 pick_named_move(Position* pos, const MoveEntry* list, const char* text, Move* move)
{
    i32 matches = 0;
    for (; list->move != EndOfList; ++list) {
        if (move_has_text(pos, list->move, text) && list->move != NoMove
            && is_legal_move(pos, pos->stm, list->move)) {
            ++matches;
            *move = list->move;
        }
    }
    return matches;
}

// The square in whose name a text ends, or NoSquare.
static i32 named_target(std::string_view text)
{
    if (text.size() < 2) {
        return NoSquare;
    }
    const i32 file = text[text.size() - 2] - 'a';
    const i32 rank = text[text.size() - 1] - '1';
    if (file < 0 || file > 7 || rank < 0 || rank > 7) {
        return NoSquare;
    }
    return square_at(file, rank);
}

// Lists the pseudo-legal moves, but those that a normalised text cannot name for its target square:
// every form but a pawn's capture by files, a promotion and castling ends in it.
static void list_candidates(const Position* pos, std::string_view text, MoveEntry* out)
{
    const i32 to = named_target(text);
    const bool is_castling = text.starts_with('o');
    const MoveEntry* end = gen_moves_into(pos, out);
    for (const MoveEntry* entry = out; entry < end; ++entry) {
        if (to != NoSquare && to_square(entry->move) != to) {
            continue;
        }
        if (!is_castling || type_of(entry->moved) == King) {
            *out++ = *entry;
        }
    }
    out->move = EndOfList;
}

// ---- Plain texts

// A text as nearly all of a game are: a piece with its target and at most one letter or digit of
// its origin, or a pawn's step or capture. Only few pieces can be meant by it, and they are looked
// for on the board. A game has some eighty moves and a file of games millions: against comparing
// the forms of every move onto that square this saves 250 instructions a move.
struct PlainText {
    i32 type; // NoPiece if the text is not plain
    i32 to;
    char origin; // a file letter or a rank digit, or NUL
    bool captures;
};

static i32 type_of_letter(char letter)
{
    const size_t type = piece_letters.find(letter, Knight); // a pawn has none
    return type != piece_letters.npos ? static_cast<i32>(type) : NoPiece;
}

static bool is_file_letter(char c)
{
    return c >= 'a' && c <= 'h';
}

// Reads a text without its mark of a check. Pawns on their way to the last rank have forms of their
// own and are left out.
static PlainText split_plain_text(std::string_view text)
{
    constexpr PlainText other = { NoPiece, NoSquare, '\0', false };
    const i32 to = named_target(text);
    if (to == NoSquare || text.size() > 5) {
        return other;
    }
    const bool inner = (bit(to) & outer_ranks) == 0;
    if (text.size() == 2) {
        return inner ? PlainText { Pawn, to, '\0', false } : other;
    }
    const bool captures = text[text.size() - 3] == 'x';
    const size_t head = text.size() - 2 - captures;
    const i32 type = type_of_letter(text[0]);
    if (head == 1 && type != NoPiece) {
        return { type, to, '\0', captures };
    }
    if (head == 1 && captures && inner && is_file_letter(text[0])) {
        return { Pawn, to, text[0], true };
    }
    const bool has_origin =
        head == 2 && (is_file_letter(text[1]) || (text[1] >= '1' && text[1] <= '8'));
    return type != NoPiece && has_origin ? PlainText { type, to, text[1], captures } : other;
}

// The squares that the origin of a text allows.
static u64 origin_squares(char origin)
{
    return is_file_letter(origin) ? file_a << (origin - 'a')
        : origin != '\0'          ? first_rank << 8 * (origin - '1')
                                  : ~0ULL;
}

// The pawn that takes or steps onto the square of a text; en passant is for the caller.
static u64 find_plain_pawn(const Position* pos, const PlainText& text)
{
    const i32 side = pos->stm;
    const i32 step = pawn_step[side];
    const u64 pawns = pos->bb[side][Pawn];
    if (text.captures) {
        const u64 target = pieces_of(pos, side ^ 1) & bit(text.to);
        return target != 0 ? pawn_attacks[side ^ 1][text.to] & origin_squares(text.origin) & pawns
                           : 0;
    }
    if (pos->board[text.to] != NoPiece) {
        return 0;
    }
    const i32 behind = text.to - step;
    const bool doubles = pos->board[behind] == NoPiece && (bit(text.to) & double_step_rank[side]);
    return bit(doubles ? behind - step : behind) & pawns;
}

// The pieces that a text names, pinned or not. Where it names no origin, those that have to: pieces
// of the same type on their file or rank reach the square too.
static u64 find_plain_pieces(const Position* pos, const PlainText& text)
{
    const i32 side = pos->stm;
    const i32 to = text.to;
    if ((pieces_of(pos, side) & bit(to)) || (pos->board[to] != NoPiece) != text.captures) {
        return 0;
    }
    // Whatever reaches the piece from the target is reached by it. One table serves all types:
    // asking for the type would be guessed wrong by the processor every other time.
    const u64 occ = occupied(pos);
    u64 reaching = 0;
    for (u64 set = pos->bb[side][text.type] & empty_attacks[text.type][to]; set != 0;) {
        const i32 from = pop_lowest(&set);
        reaching |= (between[from][to] & occ) == 0 ? bit(from) : 0;
    }
    if (text.origin != '\0') {
        return reaching & origin_squares(text.origin);
    }
    // Kings are never told apart.
    if ((reaching & (reaching - 1)) == 0 || text.type == King) {
        return reaching;
    }
    u64 named = 0;
    for (u64 set = reaching; set != 0;) {
        const i32 from = pop_lowest(&set);
        named |= (reaching & rook_rays[from]) == 0 ? bit(from) : 0;
    }
    return named;
}

// Returns what parse_move does, or -1 for a text that is not plain. Any capture in passing counts
// as one.
static i32 find_plain_move(Position* pos, std::string_view text, Move* move)
{
    const PlainText plain = split_plain_text(text);
    if (plain.type == NoPiece || (plain.type == Pawn && plain.to == pos->ep_square)) {
        return -1;
    }
    i32 matches = 0;
    *move = NoMove;
    u64 set = plain.type == Pawn ? find_plain_pawn(pos, plain) : find_plain_pieces(pos, plain);
    while (set != 0) {
        const Move found = make_move_code(pop_lowest(&set), plain.to);
        if (is_legal_move(pos, pos->stm, found)) {
            ++matches;
            *move = found;
        }
    }
    return matches;
}

// ---- Any text

i32 parse_move(Position* pos, char* text, Move* move)
{
    normalise_move_text(text);
    const i32 matches = find_plain_move(pos, text, move);
    if (matches >= 0) {
        return matches;
    }
    MoveEntry candidates[max_list_moves + 1];
    *move = NoMove;
    list_candidates(pos, text, candidates);
    return pick_named_move(pos, candidates, text, move);
}

// A text that is longer than any form is no move, so the copy need not hold it.
i32 find_move(Position* pos, std::string_view text, Move* move)
{
    const bool has_mark = text.ends_with('+');
    const i32 matches = find_plain_move(pos, text.substr(0, text.size() - has_mark), move);
    if (matches >= 0) {
        return matches;
    }
    *move = NoMove;
    text = text.substr(0, text.find('+'));
    if (text.size() >= form_size) {
        return 0;
    }
    char copy[form_size + 1];
    copy[text.copy(copy, form_size)] = '\0';
    return parse_move(pos, copy, move);
}

// ---- Words

// A static buffer, since a caller that walks over a line needs one word at a time only.
char* next_word(const char* text)
{
    static char word[word_length + 1];
    text = skip_blanks(text);
    i32 length = 0;
    while (
        length < word_length && *text != '\0' && *text != '\n' && *text != '\r' && *text != ' ') {
        word[length++] = *text++;
    }
    word[length] = '\0';
    return word;
}
