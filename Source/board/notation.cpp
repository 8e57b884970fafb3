// Moves as text and text as moves, the operations of an EPD line, and the first word of a line.
// A text form is built through a bounded writer; no input can make it longer than its buffer.
#include "board/notation.h"

#include <cctype>
#include <cstring>

#include "board/moves.h"
#include "board/tables.h"
#include "shell/output.h"
#include "shell/run_state.h"

static constexpr char piece_letters[] = " PNBRQK";
static constexpr char promotion_letters[] = "qnbr";
static constexpr Move promotion_flags[4]
    = { PromoteQueen, PromoteKnight, PromoteBishop, PromoteRook };
static constexpr i32 promotion_types[4] = { Queen, Knight, Bishop, Rook };

static constexpr size_t form_size = 16;
static constexpr i32 word_length = 127;
static constexpr size_t opcode_size = 64;

// ---- Moves as text

// Index into the promotion tables, or -1 if the move is none.
static i32 find_promotion(Move move)
{
    for (i32 i = 0; i < 4; i++) {
        if (move & promotion_flags[i])
            return i;
    }
    return -1;
}

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

void move_text(Move move, char* out)
{
    write_squares(move, out);
    const i32 promotion = find_promotion(move);
    if (promotion < 0)
        return;
    const char letter = promotion_letters[promotion];
    if (load(uci_mode) != 0) {
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
    if (move == NoMove)
        copy_text(out, sizeof "null", "null");
    else
        move_text(move, out);
    return out;
}

// The other pieces of the moved piece's type that also reach the to-square, pinned or not.
static u64 find_twins(const Position* pos, i32 type, i32 from, i32 to)
{
    const u64 occ = pos->bb[White][0] | pos->bb[Black][0] | bit(to);
    u64 reach = 0;
    if (type == Knight)
        reach = knight_attacks[to];
    if (type == Bishop || type == Queen)
        reach |= bishop_attacks(to, occ);
    if (type == Rook || type == Queen)
        reach |= rook_attacks(to, occ);
    return reach & pos->bb[pos->stm][type] & ~bit(from);
}

static void write_piece_move(const Position* pos, Move move, char* san, char* san_file,
    char* san_rank)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 type = pos->board[from] & 7;
    if (type == King && (to == from + 2 || to == from - 2)) {
        const bool is_short = to > from;
        copy_text(san, form_size, is_short ? "o-o" : "o-o-o");
        copy_text(san_file, form_size, is_short ? "O-O" : "O-O-O");
        copy_text(san_rank, form_size, is_short ? "0-0" : "0-0-0");
        return;
    }

    append_char(san, piece_letters[type]);
    append_char(san_file, piece_letters[type]);
    append_char(san_file, square_name[from][0]);
    append_char(san_rank, piece_letters[type]);
    append_char(san_rank, square_name[from][1]);
    // A twin on neither the file nor the rank leaves san as it is: the other forms tell the two
    // moves apart.
    const u64 twins = find_twins(pos, type, from, to);
    if (twins & (ray_n[from] | ray_s[from]))
        copy_text(san, form_size, san_rank);
    else if (twins & (ray_e[from] | ray_w[from]))
        copy_text(san, form_size, san_file);

    char* const forms[3] = { san, san_file, san_rank };
    for (char* form : forms) {
        if (pos->board[to] != 0)
            append_char(form, 'x');
        append(form, square_name[to]);
    }
}

static void write_pawn_move(const Position* pos, Move move, char* coord, char* san, char* san_file)
{
    const i32 to = to_square(move);
    write_squares(move, coord);
    if (pos->board[to] != 0 || to == pos->ep_square) {
        copy_text(san, form_size, coord);
        san[1] = 'x';
        append_char(san_file, coord[0]);
        append_char(san_file, coord[2]);
    } else {
        copy_text(san, form_size, square_name[to]);
    }

    const i32 promotion = find_promotion(move);
    if (promotion < 0)
        return;
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
    const i32 type = promotion < 0 ? pos->board[from] & 7 : promotion_types[promotion];
    const u64 occ = ((pos->bb[White][0] | pos->bb[Black][0]) ^ bit(from)) | bit(to);
    const u64 kept = pos->bb[side][type];
    pos->bb[side][type] |= bit(to);
    const i32 checker = find_attacker(pos, pos->king_sq[side ^ 1], side, occ);
    pos->bb[side][type] = kept;
    return checker != NoSquare;
}

void make_san(Position* pos, Move move, char* coord, char* san, char* san_file, char* san_rank)
{
    move_text_or_null(move, coord);
    san[0] = '\0';
    san_file[0] = '\0';
    san_rank[0] = '\0';
    if (move == NoMove)
        return;
    if ((pos->board[from_square(move)] & 7) == Pawn)
        write_pawn_move(pos, move, coord, san, san_file);
    else
        write_piece_move(pos, move, san, san_file, san_rank);

    if (gives_check(pos, move)) {
        append_char(coord, '+');
        append_char(san, '+');
        append_char(san_file, '+');
        append_char(san_rank, '+');
    }
}

// ---- Text as moves

static void cut_at(char* text, char c)
{
    if (char* found = strchr(text, c))
        *found = '\0';
}

// Brings promotions into the form "=Q" and castling into the form "o-o".
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
    for (; *text != '\0'; text++) {
        if (*text == 'O' || *text == '0')
            *text = 'o';
    }
}

static bool move_has_text(Position* pos, Move move, const char* text)
{
    char forms[4][form_size];
    make_san(pos, move, forms[0], forms[1], forms[2], forms[3]);
    for (char* form : forms) {
        cut_at(form, '+');
        if (strcmp(form, text) == 0)
            return true;
    }
    return false;
}

i32 parse_move(char* text, Move* move)
{
    SearchThread* thread = console_thread;
    Position* pos = &thread->pos;
    *move = NoMove;
    normalise_move_text(text);

    // The game may stand at a ply that has no list; the first always has one.
    const i16 ply = thread->ply;
    thread->ply = 1;
    gen_all_moves(pos);
    thread->ply = ply;

    i32 matches = 0;
    for (const MoveEntry* entry = thread->ply_rec[1].list_start; entry->move != EndOfList;
        entry++) {
        if (move_has_text(pos, entry->move, text) && entry->move != NoMove
            && is_legal_move(pos, pos->stm, entry->move)) {
            matches++;
            *move = entry->move;
        }
    }
    if (matches == 2)
        print_plain("ambiguous move\n");
    return matches == 1;
}

// ---- EPD operations

static const char* skip_blanks(const char* text)
{
    while (*text == ' ')
        text++;
    return text;
}

// The four fields of the position, up to the fourth blank.
static const char* read_position_fields(const char* line, char* pos_text)
{
    i32 blanks = 0;
    i32 length = 0;
    for (; *line != '\0'; line++) {
        if (*line == ' ' && ++blanks == 4)
            break;
        if (length < epd_pos_size - 1)
            pos_text[length++] = *line;
    }
    pos_text[length] = '\0';
    return line;
}

// Copies the operand without its blanks and returns the semicolon that closes it, or null.
static const char* read_operand(const char* text, char* operand)
{
    i32 length = 0;
    for (; *text != ';'; text++) {
        if (*text == '\0')
            return nullptr;
        if (*text != ' ' && length < epd_operand_size - 1)
            operand[length++] = *text;
    }
    operand[length] = '\0';
    return text;
}

i32 read_epd_ops(const char* line, char* pos_text, char* bm, char* am, char* id, char* ce,
    char* c0)
{
    struct Operation {
        const char* opcode;
        char* operand;
    };
    const Operation operations[5]
        = { { "bm", bm }, { "am", am }, { "id", id }, { "ce", ce }, { "c0", c0 } };
    for (const Operation& operation : operations)
        operation.operand[0] = '\0';

    line = read_position_fields(line, pos_text);
    while (*line == ' ' || (*line >= '0' && *line <= '9'))
        line++;
    while (*line != '\0') {
        char opcode[opcode_size];
        char operand[epd_operand_size];
        size_t length = 0;
        for (; *line != '\0' && *line != ' '; line++) {
            if (length < opcode_size - 1)
                opcode[length++] = *line;
        }
        opcode[length] = '\0';
        const char* end = read_operand(line, operand);
        if (end == nullptr)
            break;
        for (const Operation& operation : operations) {
            if (strcmp(opcode, operation.opcode) == 0)
                copy_text(operation.operand, epd_operand_size, operand);
        }
        line = skip_blanks(end + 1);
    }
    return 1;
}

char* next_word(const char* text)
{
    static char word[word_length + 1];
    text = skip_blanks(text);
    i32 length = 0;
    while (length < word_length && *text != '\0' && *text != '\n' && *text != '\r' && *text != ' ')
        word[length++] = *text++;
    word[length] = '\0';
    return word;
}
