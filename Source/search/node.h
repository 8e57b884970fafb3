// Private helpers of the node routines: tests of a move before it is made, and line copies.
// All tests take a pseudo-legal move of a position whose side to move could capture no king, and
// none of them changes the position.
#pragma once

#include "board/tables.h"
#include "search/hash.h"
#include "search/move_lists.h"

// What an exchange may lose, centipawns, and still be no loss: two minor pieces for a rook and a
// pawn (-35) are about even, a pawn for nothing is not.
inline constexpr i32 bearable_loss = -70;

// Relative ranks of the pawns that get a class of their own.
enum : i32 { FifthRank = 4, SixthRank = 5, SeventhRank = 6 };

// The piece code that stands on the to-square after the move: the promoted piece, or the moved one.
inline i32 code_after(Move move, u8 moved)
{
    if ((move & PromotionMask) == 0) {
        return moved;
    }
    return piece_code(side_of(moved),
        move & PromoteQueen        ? Queen
            : move & PromoteKnight ? Knight
            : move & PromoteBishop ? Bishop
                                   : Rook);
}

// Whether the move is an en-passant capture, which no entry's captured piece shows.
inline bool is_en_passant(const Position* pos, const MoveEntry* entry)
{
    return to_square(entry->move) == pos->ep_square && type_of(entry->moved) == Pawn;
}

// Whether a piece of this code on square to attacks the enemy king past occ. Only this one line is
// looked at: no attack set is made. Between a stepper and what it attacks nothing can stand.
inline bool attacks_king(const Position* pos, i32 code, i32 to, u64 occ)
{
    const i32 king = pos->king_sq[side_of(code) ^ 1];
    return (empty_attacks[code][to] & bit(king)) != 0 && (between[to][king] & occ) == 0;
}

// Whether one of the sliders attacks square past occ. They must stand on its rays: that something
// stands between is all that can keep them from it.
inline bool slider_attacks(u64 sliders, i32 square, u64 occ)
{
    while (sliders != 0) {
        if (!(between[pop_lowest(&sliders)][square] & occ)) {
            return true;
        }
    }
    return false;
}

// Whether the move gives check, direct or discovered. vacated is the from-square, with an
// en-passant victim's square where the caller wants it gone. The enemy king is not in check
// before the move, so a check can only come from to or through a vacated square.
inline bool gives_check(const Position* pos, i32 side, const MoveEntry* entry, u64 vacated)
{
    const i32 to = to_square(entry->move);
    const i32 king = pos->king_sq[side ^ 1];
    const u64 occ = (occupied(pos) & ~vacated) | bit(to);
    if (attacks_king(pos, code_after(entry->move, entry->moved), to, occ)) {
        return true;
    }
    // Most pieces stand on no line of the king and uncover none.
    if ((empty_attacks[Queen][king] & vacated) == 0) {
        return false;
    }
    // Discovered: own is the mover's side, without what has left.
    const u64* own = pos->bb[side];
    if ((bishop_rays[king] & vacated)
        && slider_attacks((own[Bishop] | own[Queen]) & bishop_rays[king] & ~vacated, king, occ)) {
        return true;
    }
    return (rook_rays[king] & vacated)
        && slider_attacks((own[Rook] | own[Queen]) & rook_rays[king] & ~vacated, king, occ);
}

// Whether the move leaves no own king in check; in_check tells if he is now. Out of check a piece
// on no line of its king can go wherever it likes, and most stand so. En passant opens a second
// line.
inline bool is_safe_move(Position* pos, i32 side, const MoveEntry* entry, bool in_check)
{
    return (!in_check && type_of(entry->moved) != King
               && (empty_attacks[Queen][pos->king_sq[side]] & bit(from_square(entry->move))) == 0
               && !is_en_passant(pos, entry))
        || is_legal_move(pos, side, entry->move);
}

// Fetches the hash bucket of the position after the move while its tests run: the miss costs more
// than they do, and a move that is dropped or illegal costs one fetch in vain. Castling, double
// steps and en passant are left out, so that the guess may be wrong, which does no harm.
inline void prefetch_child(const Position* pos, const MoveEntry* entry)
{
    const i32 to = to_square(entry->move);
    const u64 key = pos->key ^ zobrist[entry->moved][from_square(entry->move)]
        ^ zobrist[entry->moved][to]
        ^ (entry->captured != NoPiece ? zobrist[entry->captured][to] : 0);
    prefetch_bucket((key & ~1ULL) | (pos->stm ^ 1ULL));
}

// Class of a move, by bits. A move without any is quiet: the rules for late moves are made for it,
// while the others may force matters. The pawn moves share a bit; the rules do not tell them apart.
enum MoveFlag : u16 {
    FlagCapture = 1,
    FlagCheck = 2,
    FlagPawnOther = 0x20,      // under-promotion, or a passed pawn to its fifth or sixth rank
    FlagSeventhRank = 0x28,    // any pawn: it threatens to queen
    FlagQueenPromotion = 0x30, // with or without capture
    FlagClasses = 63,          // any of them
};

// Whether a move of these classes cannot give check, so that its node need not look for one. The
// class is made with an en-passant victim in its place and without castling's rook.
inline bool is_surely_no_check(const Position* pos, u16 flags, const MoveEntry* entry)
{
    const i32 step = to_square(entry->move) - from_square(entry->move);
    return (flags & FlagCheck) == 0 && (entry->move & PromotionMask) == 0
        && !is_en_passant(pos, entry)
        && !(type_of(entry->moved) == King && (step == 2 || step == -2));
}

// The class of a pawn's move by its way to promotion, or 0. A promotion to a queen is one, the
// others are moves that hardly ever matter, but never quiet.
inline u16 pawn_class(const Position* pos, i32 side, Move move)
{
    if (move & PromotionMask) {
        return move & PromoteQueen ? FlagQueenPromotion : FlagPawnOther;
    }
    const i32 to = to_square(move);
    // Further back a passed pawn has too long a way to force anything.
    const i32 rank = relative_rank(side, to);
    if (rank == SeventhRank) {
        return FlagSeventhRank;
    }
    const bool far = rank == FifthRank || rank == SixthRank;
    return far && !(passed_mask[side][to] & pos->bb[side ^ 1][Pawn]) ? FlagPawnOther : 0;
}

// The class of a pseudo-legal move of side. An en-passant victim still blocks in the check test:
// the rare check that it hides costs nothing but a less exact class.
inline u16 class_of_move(const Position* pos, i32 side, const MoveEntry* entry)
{
    u16 flags = 0;
    if (entry->captured != NoPiece || is_en_passant(pos, entry)) {
        flags |= FlagCapture;
    }
    if (type_of(entry->moved) == Pawn) {
        flags |= pawn_class(pos, side, entry->move);
    }
    if (gives_check(pos, side, entry, bit(from_square(entry->move)))) {
        flags |= FlagCheck;
    }
    return flags;
}

// Whether the move loses material by the exchange test. Only a piece that takes less than its own
// worth, or nothing, can; the others are not tried, nor is en passant, a pawn for a pawn.
inline bool loses(const Position* pos, const MoveEntry* entry)
{
    return exchange_value[type_of(entry->moved)] > exchange_value[type_of(entry->captured)]
        && !is_en_passant(pos, entry)
        && !swaps_at_least(
            pos, pos->stm, from_square(entry->move), to_square(entry->move), bearable_loss);
}

// Copies a child's line behind the move at ply, its closing 0 included. Both are indexed by ply.
inline void copy_line(u16* pv, const u16* child_pv, i32 ply)
{
    for (i32 i = ply + 1; i < ply_count; ++i) {
        pv[i] = child_pv[i];
        if (child_pv[i] == NoMove) {
            break;
        }
    }
}
