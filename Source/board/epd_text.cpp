// The operations of an EPD line. A line may come from anywhere: what is too long for its buffer is
// cut, and what no semicolon closes is left out.
#include <cstring>
#include <string_view>

#include "base/text.h"
#include "board/notation.h"

// The four fields of the position, up to the fourth blank. Returns that blank, or the end.
static const char* read_position_fields(const char* line, char* pos_text)
{
    i32 blanks = 0;
    i32 length = 0;
    for (; *line != '\0'; ++line) {
        if (*line == ' ' && ++blanks == 4) {
            break;
        }
        if (length < epd_pos_size - 1) {
            pos_text[length++] = *line;
        }
    }
    pos_text[length] = '\0';
    return line;
}

// An operation of an EPD line: its first word and what stands behind it up to the semicolon, blanks
// and all. Both are parts of the line.
struct EpdOperation {
    std::string_view opcode;
    std::string_view operand;
};

// Where the operations of a line begin: behind the position and, in a line that is really a FEN,
// the half-move clock and the move number.
static const char* find_operations(const char* line)
{
    while (*line == ' ' || (*line >= '0' && *line <= '9')) {
        ++line;
    }
    return line;
}

// Reads the operation at *line and moves on to the next one. Returns false at the end of the line
// and for an operation that no semicolon closes.
static bool read_operation(const char** line, EpdOperation* operation)
{
    const size_t length = strcspn(*line, " ");
    operation->opcode = { *line, length };
    const char* text = *line + length;
    const char* end = strchr(text, ';');
    if (end == nullptr) {
        return false;
    }
    operation->operand = { text, static_cast<size_t>(end - text) };
    *line = skip_blanks(end + 1);
    return true;
}

static void copy_without_blanks(std::string_view operand, char* out)
{
    i32 length = 0;
    for (const char c : operand) {
        if (c != ' ' && length < epd_operand_size - 1) {
            out[length++] = c;
        }
    }
    out[length] = '\0';
}

// A later operation of the same name replaces an earlier one.
i32 read_epd_ops(const char* line, char* pos_text, char* bm, char* am, char* id, char* ce, char* c0)
{
    struct Wanted {
        std::string_view opcode;
        char* operand;
    };
    const Wanted all_wanted[5] = { { "bm", bm }, { "am", am }, { "id", id }, { "ce", ce },
        { "c0", c0 } };
    for (const Wanted& wanted : all_wanted) {
        wanted.operand[0] = '\0';
    }

    line = find_operations(read_position_fields(line, pos_text));
    EpdOperation operation;
    while (read_operation(&line, &operation)) {
        for (const Wanted& wanted : all_wanted) {
            if (operation.opcode == wanted.opcode) {
                copy_without_blanks(operation.operand, wanted.operand);
            }
        }
    }
    return 1;
}

void read_epd_list(const char* line, const char* opcode, char* operand, size_t size)
{
    char pos_text[epd_pos_size];
    operand[0] = '\0';
    line = find_operations(read_position_fields(line, pos_text));
    EpdOperation operation;
    while (read_operation(&line, &operation)) {
        if (operation.opcode == opcode) {
            operand[operation.operand.copy(operand, size - 1)] = '\0';
        }
    }
}
