// The search trace. One file and one set of notes serve all threads, behind a lock of their
// own; the tree is readable for a search on one thread. Moves of one line stand in one row, and
// a new row is indented to the ply at which it leaves the line above, so the notes are the ply and
// the depth of the move written last.
#include "board/trace.h"

#include <cstdio>
#include <cstdlib>

#include "base/files.h"
#include "base/lock.h"
#include "board/notation.h"

constinit Shared<u8> trace_level {};

static SpinLock trace_lock;
static FILE* trace_file;
static i32 noted_ply;
static i32 noted_depth;

// Writes a move behind the last one, or below it where the tree has been gone back. The columns are
// nine characters wide: a remaining depth in brackets, a move, a blank.
static void write_move(const UndoStack* stack, Move move)
{
    const i32 depth = load(stack->depth);
    if (depth > noted_depth) {
        fprintf(trace_file, "\n\nSEARCH DEPTH= %d\n", depth);
    }
    if (stack->ply <= noted_ply) {
        fputc('\n', trace_file);
        for (i32 i = 1; i < stack->ply; ++i) {
            fputs("         ", trace_file);
        }
    }
    char text[8];
    fprintf(trace_file, "(%2d)%s ", stack->node_depth[stack->ply], move_text_or_null(move, text));
    noted_ply = stack->ply;
    noted_depth = depth;
}

static constexpr char trace_name[] = "trace.txt";

// Who has asked for a trace and gets none would wait in vain: the program ends.
void trace_move(const Position* pos, Move move)
{
    const SpinGuard guard(&trace_lock);
    if (trace_file == nullptr) {
        const int error = open_new_file(&trace_file, trace_name);
        if (error != 0) {
            complain(trace_name, "cannot be opened for writing", error);
            // An output that failed before this one is not forgotten.
            exit(exit_status);
        }
    }
    // Moves of a long game at the console may stand beyond the records of a search.
    const i32 ply = pos->stack->ply;
    if (ply >= 0 && ply < ply_count && ply <= load(trace_level)) {
        write_move(pos->stack, move);
    }
}

// Looked at once, at the end: what a full disk has dropped is missing whenever it was dropped.
void close_trace()
{
    if (trace_file == nullptr) {
        return;
    }
    const int error = close_written_file(trace_file);
    trace_file = nullptr;
    if (error != 0) {
        complain(trace_name, "lines are missing", error);
        exit_status = 1;
    }
}
