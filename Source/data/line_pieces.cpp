// Reading by the block. What follows the last line feed of a block waits for the next one.
#include "data/line_pieces.h"

#include <algorithm>
#include <utility>

static constexpr size_t block_size = 128 * 1024;
static constexpr std::string_view byte_order_mark = "\xef\xbb\xbf"; // in UTF-8

PieceReader start_pieces(FILE* file, size_t longest)
{
    PieceReader reader;
    reader.file = file;
    reader.longest = longest;
    return reader;
}

// Adds a block to text. Of the rest of a line that is too long only the line feed is added.
// Returns false at the end of the file.
static bool append_block(PieceReader* reader, std::string* text)
{
    const size_t old = text->size();
    text->resize(old + block_size);
    const size_t count = fread(text->data() + old, 1, block_size, reader->file);
    text->resize(old + count);
    if (!reader->is_begun && text->starts_with(byte_order_mark)) {
        text->erase(0, byte_order_mark.size());
    }
    reader->is_begun = true;
    if (reader->skips) {
        const size_t feed = text->find('\n', old);
        reader->skips = feed == text->npos;
        text->erase(old, std::min(feed, text->size()) - old);
    }
    return count > 0;
}

// Cuts a line that has not ended yet.
static void cut_long_start(PieceReader* reader, std::string* start)
{
    if (start->size() > reader->longest) {
        start->resize(reader->longest + 1);
        reader->skips = true;
    }
}

bool read_piece(PieceReader* reader, LinePiece* piece)
{
    std::string* text = &piece->text;
    *text = std::exchange(reader->rest, std::string());
    piece->first_line = reader->next_line;
    while (append_block(reader, text)) {
        const size_t end = text->rfind('\n') + 1; // 0 where there is none
        if (end == 0) {
            cut_long_start(reader, text);
            continue;
        }
        reader->rest = text->substr(end);
        text->resize(end);
        cut_long_start(reader, &reader->rest);
        reader->next_line += std::ranges::count(*text, '\n');
        return true;
    }
    return ferror(reader->file) == 0 && !text->empty();
}

bool take_line(std::string_view* text, std::string_view* line, bool* is_whole)
{
    if (text->empty()) {
        return false;
    }
    const size_t feed = text->find('\n');
    *is_whole = feed != text->npos;
    *line = text->substr(0, feed);
    text->remove_prefix(*is_whole ? feed + 1 : text->size());
    if (line->ends_with('\r')) {
        line->remove_suffix(1);
    }
    return true;
}
