// Moves by their names. Nearly all are a piece with its target, or a pawn's step or capture: only
// few pieces can be meant by them, and these are looked for on the board. Castling, promotions and
// captures in passing are looked for in the list of all moves.
#include "data/games_moves.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include "base/text.h"
#include "board/moves.h"
#include "board/notation.h"
#include "board/tables.h"

static constexpr std::string_view piece_letters = " PNBRQK"; // by piece type
static constexpr i32 form_size = 16;                         // of make_san, bytes
static constexpr i32 nothing = -1;                           // a file or rank that is not told

static constexpr const char* not_a_move = "not a move";
static constexpr const char* null_move = "null move";
static constexpr const char* illegal_move = "move that cannot be played";
static constexpr const char* ambiguous_move = "move that fits two pieces";
static constexpr const char* no_promotion = "promotion without its piece";

// What a text tells of its move.
struct MoveName {
    i32 type = Pawn; // NoPiece where both squares stand without a letter
    i32 from_file = nothing;
    i32 from_rank = nothing;
    i32 to_file = nothing;
    i32 to_rank = nothing; // nothing in "exd"
    i32 promotion = NoPiece;
    bool captures = false;
    i32 castling = 0; // squares that the king goes to the right
};

// ---- Reading a name

static i32 take_coordinate(std::string_view* text, char first)
{
    if (text->empty() || text->front() < first || text->front() > first + 7) {
        return nothing;
    }
    const i32 number = text->front() - first;
    text->remove_prefix(1);
    return number;
}

// A piece letter, or its figurine (U+2654 to U+265F), white or black.
static i32 take_piece(std::string_view* text)
{
    constexpr std::string_view figurines = "\xe2\x99";
    constexpr i32 figurine_types[] = { King, Queen, Rook, Bishop, Knight, Pawn };
    if (text->starts_with(figurines) && text->size() > figurines.size()) {
        const i32 number = static_cast<u8>((*text)[figurines.size()]) - 0x94;
        if (number >= 0 && number < 12) {
            text->remove_prefix(figurines.size() + 1);
            return figurine_types[number % 6];
        }
        return NoPiece;
    }
    const size_t type =
        text->empty() ? piece_letters.npos : piece_letters.find(text->front(), Pawn);
    if (type == piece_letters.npos) {
        return NoPiece;
    }
    text->remove_prefix(1);
    return static_cast<i32>(type);
}

// "=Q", "Q", "q", "(Q)" or "/Q".
static i32 take_promotion_piece(std::string_view* text)
{
    std::string_view rest = *text;
    const bool is_enclosed = rest.starts_with('(');
    if (is_enclosed || rest.starts_with('=') || rest.starts_with('/')) {
        rest.remove_prefix(1);
    }
    if (rest.empty()) {
        return NoPiece;
    }
    const char letter = static_cast<char>(toupper(static_cast<u8>(rest.front())));
    const size_t type = std::string_view("NBRQ").find(letter);
    if (type == std::string_view::npos) {
        return NoPiece;
    }
    rest.remove_prefix(1);
    if (is_enclosed && rest.starts_with(')')) {
        rest.remove_prefix(1);
    }
    *text = rest;
    return Knight + static_cast<i32>(type);
}

static bool read_castling(std::string_view text, MoveName* name)
{
    static constexpr struct {
        std::string_view text;
        i32 castling;
    } rows[] = { { "O-O", 2 }, { "O-O-O", -2 }, { "0-0", 2 }, { "0-0-0", -2 }, { "o-o", 2 },
        { "o-o-o", -2 } };
    for (const auto& row : rows) {
        if (text == row.text) {
            name->type = King;
            name->castling = row.castling;
            return true;
        }
    }
    return false;
}

// Reads a name without marks behind it.
static bool read_name(std::string_view text, MoveName* name)
{
    if (text.starts_with('O') || text.starts_with('0') || text.starts_with('o')) {
        return read_castling(text, name);
    }
    const i32 type = take_piece(&text);
    name->type = type != NoPiece ? type : Pawn;
    i32 file = take_coordinate(&text, 'a');
    i32 rank = take_coordinate(&text, '1');
    if (text.starts_with('x') || text.starts_with(':') || text.starts_with('-')) {
        name->captures = !text.starts_with('-');
        text.remove_prefix(1);
    }
    name->to_file = take_coordinate(&text, 'a');
    name->to_rank = take_coordinate(&text, '1');
    if (name->to_file == nothing) {
        if (name->to_rank != nothing) {
            return false;
        }
        std::swap(name->to_file, file);
        std::swap(name->to_rank, rank);
    }
    name->from_file = file;
    name->from_rank = rank;
    if (type == NoPiece && file != nothing && rank != nothing && name->to_rank != nothing) {
        name->type = NoPiece;
    }
    if (type == NoPiece || type == Pawn) {
        name->promotion = take_promotion_piece(&text);
    }
    // "ed" and "exd" are a pawn's.
    const bool has_target = name->to_rank != nothing || (type == NoPiece && file != nothing);
    return text.empty() && name->to_file != nothing && has_target;
}

// Takes off what says of a move that it checks, mates, or comes with the offer of a draw.
static std::string_view cut_marks(std::string_view text)
{
    while (!text.empty() && (text.back() == '+' || text.back() == '#' || text.back() == '=')) {
        text.remove_suffix(1);
    }
    return text;
}

static bool is_null_move(std::string_view text)
{
    static constexpr std::string_view texts[] = { "--", "Z0", "null", "NULL", "pass", "0000",
        "@@@@" };
    return std::ranges::find(texts, text) != std::end(texts);
}

// ---- Finding the move

// The squares that a name allows the piece to come from.
static u64 origins_of(const MoveName& name)
{
    constexpr u64 first_rank = 0xff;
    u64 squares = ~0ULL;
    if (name.from_file != nothing) {
        squares &= file_a << name.from_file;
    }
    if (name.from_rank != nothing) {
        squares &= first_rank << 8 * name.from_rank;
    }
    return squares;
}

// Takes the one legal move out of those from a number of squares.
static const char* pick_move(Position* pos, u64 from_squares, i32 to, NamedMove* named)
{
    i32 matches = 0;
    while (from_squares != 0) {
        const Move move = make_move_code(pop_lowest(&from_squares), to);
        if (is_legal_move(pos, pos->stm, move)) {
            ++matches;
            named->move = move;
        }
    }
    return matches == 1 ? nullptr : matches == 0 ? illegal_move : ambiguous_move;
}

static const char* find_piece_move(Position* pos, const MoveName& name, NamedMove* named)
{
    const i32 side = pos->stm;
    const i32 to = square_at(name.to_file, name.to_rank);
    const bool takes = (pieces_of(pos, side ^ 1) & bit(to)) != 0;
    if ((pieces_of(pos, side) & bit(to)) != 0 || (name.captures && !takes)) {
        return illegal_move;
    }
    const u64 occ = occupied(pos);
    u64 reaching = 0;
    for (u64 set = pos->bb[side][name.type] & empty_attacks[name.type][to]; set != 0;) {
        const i32 from = pop_lowest(&set);
        reaching |= (between[from][to] & occ) == 0 ? bit(from) : 0;
    }
    const char* why = pick_move(pos, reaching & origins_of(name), to, named);
    if (why == nullptr) {
        named->rivals = reaching & ~bit(from_square(named->move));
    }
    return why;
}

// A pawn's step, or its capture of a piece, neither onto the last rank.
static const char* find_pawn_move(Position* pos, const MoveName& name, NamedMove* named)
{
    const i32 side = pos->stm;
    const i32 to = square_at(name.to_file, name.to_rank);
    const u64 pawns = pos->bb[side][Pawn] & origins_of(name);
    const bool takes = (pieces_of(pos, side ^ 1) & bit(to)) != 0;
    if (takes) {
        const bool is_capture = name.captures || name.from_file != nothing;
        return pick_move(pos, is_capture ? pawns & pawn_attacks[side ^ 1][to] : 0, to, named);
    }
    if (name.captures || pos->board[to] != NoPiece) {
        return illegal_move;
    }
    const i32 behind = to - pawn_step[side];
    const bool doubles = pos->board[behind] == NoPiece && (bit(to) & double_step_rank[side]) != 0;
    return pick_move(pos, pawns & bit(doubles ? behind - pawn_step[side] : behind), to, named);
}

// The piece that a promotion makes, NoPiece for other moves.
static i32 promoted_type(Move move)
{
    switch (move & PromotionMask) {
    case PromoteQueen:
        return Queen;
    case PromoteRook:
        return Rook;
    case PromoteBishop:
        return Bishop;
    case PromoteKnight:
        return Knight;
    default:
        return NoPiece;
    }
}

// The king's target if the name means castling: it says so, or it is the king's move of two
// squares, or one onto its own rook. NoSquare for other moves.
static i32 castling_target(const Position* pos, const MoveName& name)
{
    const i32 home = king_home[pos->stm];
    if (pos->king_sq[pos->stm] != home) {
        return NoSquare;
    }
    if (name.castling != 0) {
        return home + name.castling;
    }
    if (name.to_rank != rank_of(home) || name.from_file != file_of(home)
        || name.from_rank != rank_of(home)) {
        return NoSquare;
    }
    const i32 to = square_at(name.to_file, name.to_rank);
    if (pos->board[to] == piece_code(pos->stm, Rook)) {
        return to > home ? home + 2 : home - 2;
    }
    return to == home + 2 || to == home - 2 ? to : static_cast<i32>(NoSquare);
}

// Whether a pseudo-legal move fits the name. The piece is the name's.
static bool fits_name(const Position* pos, const MoveName& name, Move move)
{
    const i32 to = to_square(move);
    const bool takes = file_of(from_square(move)) != file_of(to);
    return (origins_of(name) & bit(from_square(move))) != 0 && name.to_file == file_of(to)
        && (name.to_rank == nothing || name.to_rank == rank_of(to))
        && name.promotion == promoted_type(move)
        && (!takes || name.captures || name.from_file != nothing) && (takes || !name.captures)
        && type_of(pos->board[from_square(move)]) == Pawn;
}

// Any move of a pawn, by trying them all.
static const char* find_any_pawn_move(Position* pos, const MoveName& name, NamedMove* named)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    i32 matches = 0;
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (fits_name(pos, name, entry->move) && is_legal_move(pos, pos->stm, entry->move)) {
            ++matches;
            named->move = entry->move;
        }
    }
    return matches == 1 ? nullptr : matches == 0 ? illegal_move : ambiguous_move;
}

const char* find_named_move(Position* pos, std::string_view text, NamedMove* named)
{
    if (is_null_move(text)) {
        return null_move;
    }
    MoveName name;
    *named = NamedMove();
    if (!read_name(cut_marks(text), &name)) {
        return not_a_move;
    }
    if (name.castling != 0 || name.type == King || name.type == NoPiece) {
        const i32 to = castling_target(pos, name);
        if (to != NoSquare || name.castling != 0) {
            named->move = make_move_code(king_home[pos->stm], to);
            return to != NoSquare && is_playable(pos, named->move) ? nullptr : illegal_move;
        }
    }
    if (name.type == NoPiece) {
        const i32 code = pos->board[square_at(name.from_file, name.from_rank)];
        if (code == NoPiece || side_of(code) != pos->stm) {
            return illegal_move;
        }
        name.type = type_of(code);
    }
    if (name.type != Pawn) {
        return name.promotion == NoPiece ? find_piece_move(pos, name, named) : illegal_move;
    }
    if (name.to_rank == nothing) {
        return find_any_pawn_move(pos, name, named);
    }
    const i32 to = square_at(name.to_file, name.to_rank);
    if ((bit(to) & outer_ranks) != 0) {
        return name.promotion == NoPiece ? no_promotion : find_any_pawn_move(pos, name, named);
    }
    if (name.promotion != NoPiece) {
        return illegal_move;
    }
    return to == pos->ep_square && (name.captures || name.from_file != name.to_file)
            && name.from_file != nothing
        ? find_any_pawn_move(pos, name, named)
        : find_pawn_move(pos, name, named);
}

// ---- Writing

// Those of the rivals that could play there as well.
static u64 legal_rivals(Position* pos, const NamedMove& named)
{
    u64 legal = 0;
    for (u64 set = named.rivals; set != 0;) {
        const i32 from = pop_lowest(&set);
        if (is_legal_move(pos, pos->stm, make_move_code(from, to_square(named.move)))) {
            legal |= bit(from);
        }
    }
    return legal;
}

// Adds what tells a piece from its rivals. Returns false if neither its file nor its rank does.
static bool append_origin(Position* pos, const NamedMove& named, std::string* out)
{
    const i32 from = from_square(named.move);
    const u64 on_file = file_a << file_of(from);
    const u64 on_rank = 0xffULL << 8 * rank_of(from);
    const u64 legal = legal_rivals(pos, named);
    const char* name = square_name[from];
    // A pinned rival needs no letter by the rules of the notation. parse_move wants one where the
    // two stand on a line, and takes the one that make_san writes.
    if (legal == 0) {
        if ((named.rivals & on_file) != 0) {
            out->push_back(name[1]);
        } else if ((named.rivals & on_rank) != 0) {
            out->push_back(name[0]);
        }
    } else if ((legal & on_file) == 0) {
        out->push_back(name[0]);
    } else if ((legal & on_rank) == 0) {
        out->push_back(name[1]);
    } else {
        return false;
    }
    return true;
}

static void write_piece_move(Position* pos, const NamedMove& named, i32 type, std::string* out)
{
    const i32 to = to_square(named.move);
    const size_t start = out->size();
    out->push_back(piece_letters[static_cast<size_t>(type)]);
    if (named.rivals != 0 && type != King && !append_origin(pos, named, out)) {
        out->resize(start);
        out->append(square_name[from_square(named.move)]).append(square_name[to]);
        return;
    }
    if (pos->board[to] != NoPiece) {
        out->push_back('x');
    }
    out->append(square_name[to], 2);
}

static void write_pawn_move(const Position* pos, Move move, std::string* out)
{
    const i32 to = to_square(move);
    if (pos->board[to] != NoPiece) {
        out->push_back(square_name[from_square(move)][0]);
        out->push_back('x');
    }
    out->append(square_name[to], 2);
}

// Castling, promotions and captures in passing, as make_san has them; castling in capitals.
static void write_special_move(Position* pos, Move move, std::string* out)
{
    char coordinates[form_size];
    char san[form_size];
    char by_file[form_size];
    char by_rank[form_size];
    make_san(pos, move, coordinates, san, by_file, by_rank);
    if (san[0] == 'o') {
        std::ranges::replace(san, 'o', 'O');
    }
    out->append(san);
}

void play_and_write(Position* pos, const NamedMove& named, std::string* out)
{
    const i32 from = from_square(named.move);
    const i32 to = to_square(named.move);
    const i32 type = type_of(pos->board[from]);
    const bool is_special = (type == King && (to == from + 2 || to == from - 2))
        || (type == Pawn && (to == pos->ep_square || (bit(to) & outer_ranks) != 0));
    if (is_special) {
        write_special_move(pos, named.move, out);
        make_game_move(pos, named.move);
        return;
    }
    if (type == Pawn) {
        write_pawn_move(pos, named.move, out);
    } else {
        write_piece_move(pos, named, type, out);
    }
    make_game_move(pos, named.move);
    if (is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1)) {
        out->push_back('+');
    }
}
