// A file of positions for vesk-data: whatever it holds, its lines are found, and a line that is
// called sound is one that the trainer, or the runner of test suites, takes.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "board/defect.h"
#include "data/line_pieces.h"
#include "data/positions_line.h"
#include "tools/line_judge.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void check(bool condition, const char* text)
{
    if (!condition) {
        fprintf(stderr, "%s\n", text);
        abort();
    }
}

static void check_one(LineBoard* board, std::string_view line, bool is_whole, LineKind kind)
{
    const CheckedLine checked = check_line(board, line, is_whole, kind);
    if (checked.fate == LineFate::Refused) {
        check(checked.reason != nullptr && checked.reason[0] != '\0', "no reason is given");
        return;
    }
    if (checked.fate != LineFate::Sound) {
        return;
    }
    check(static_cast<i64>(line.size()) <= longest_line(kind), "a long line is sound");
    check(checked.facts.phase <= full_phase, "the phase is out of range");
    check(band_of(checked.facts.phase) < phase_bands, "the band is out of range");
    check(checked.facts.outcome <= NoOutcome && checked.facts.side <= Black, "facts are unsound");
    check(position_defect(&board->pos) == nullptr, "the position is unsound");
    LineJudgement said;
    check(kind == LineKind::Test
            || judge_line(&board->pos, std::string(line).c_str(), &said) == LineUsed,
        "the trainer does not use a sound line");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    if (size == 0) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    FILE* file = fmemopen(text.data(), text.size(), "r");
    PieceReader reader = start_pieces(file, 511);
    LinePiece piece;
    const std::unique_ptr<LineBoard> board = std::make_unique<LineBoard>();
    while (read_piece(&reader, &piece)) {
        std::string_view rest = piece.text;
        std::string_view line;
        bool is_whole = false;
        while (take_line(&rest, &line, &is_whole)) {
            check_one(board.get(), line, is_whole, LineKind::Training);
            check_one(board.get(), line, is_whole, LineKind::Test);
        }
    }
    fclose(file);
    return 0;
}
