// Games are cut where tags follow something else. That needs no look at braces, so that one that is
// never closed cannot hold a whole file together, and it costs next to nothing.
#include "data/games_blocks.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "data/games_text.h"

static constexpr size_t block_size = 1 << 18;
// A tag's first line may have been read in part only: so much of it tells that it is one.
static constexpr size_t most_tag_start = 256;

static i64 count_lines(std::string_view text)
{
    return std::ranges::count(text, '\n');
}

// ---- Borders

// The start of the last line that begins before place, which is behind the start of the text.
static size_t line_start_before(std::string_view text, size_t place)
{
    const size_t feed = place < 2 ? text.npos : text.rfind('\n', place - 2);
    return feed == text.npos ? 0 : feed + 1;
}

static bool is_tag_at(std::string_view text, size_t place)
{
    return is_tag_line(text.data() + place, text.data() + text.size());
}

static bool is_empty_line(std::string_view text, size_t start, size_t end)
{
    return text.substr(start, end - start).find_first_not_of(" \t\r\n") == text.npos;
}

// Empty lines, remarks, escaped lines, and tags that are none by their form.
static bool may_stand_among_tags(std::string_view text, size_t start, size_t end)
{
    std::string_view line = text.substr(start, end - start);
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r\n"), line.size()));
    return line.empty() || line.front() == ';' || line.front() == '%'
        || (line.front() == '[' && !line.starts_with("[%"));
}

// The last tag before which something else than tags stands. Only whole lines count, so that the
// border does not hang on where the text ends.
static size_t find_last_tags(std::string_view text)
{
    size_t tag = 0; // the first of the tags that are gone through, backwards
    size_t end = text.rfind('\n') + 1;
    while (end > 0) {
        const size_t start = line_start_before(text, end);
        if (is_tag_at(text, start)) {
            tag = start;
        } else if (tag != 0 && !may_stand_among_tags(text, start, end)) {
            return tag;
        }
        end = start;
    }
    return 0;
}

// Games without moves or without tags have no such border: a second event begins one, and so does
// the text behind a line that ends with a result and is followed by an empty one.
static size_t find_last_event(std::string_view text)
{
    const size_t place = text.rfind("\n[Event \"");
    return place == text.npos ? 0 : place + 1;
}

static size_t find_last_end(std::string_view text)
{
    static constexpr std::string_view ends[] = { "1-0", "0-1", "1/2-1/2", "*" };
    for (size_t feed = text.rfind('\n'); feed != text.npos && feed > 0;) {
        const size_t start = line_start_before(text, feed + 1);
        std::string_view line = text.substr(start, feed - start);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        const size_t next = feed + 1;
        const size_t next_feed = text.find('\n', next);
        const bool is_result =
            std::ranges::any_of(ends, [&](std::string_view end) { return line.ends_with(end); });
        if (is_result && next_feed != text.npos && is_empty_line(text, next, next_feed)) {
            return next_feed + 1 < text.size() ? next_feed + 1 : 0;
        }
        feed = start == 0 ? text.npos : start - 1;
    }
    return 0;
}

size_t find_last_game(std::string_view text)
{
    if (const size_t place = find_last_tags(text); place != 0) {
        return place;
    }
    if (const size_t place = find_last_event(text); place != 0) {
        return place;
    }
    return find_last_end(text);
}

// ---- Views

ViewTable judge_views(const std::string& text)
{
    EvidenceTable evidence = {};
    GameText game;
    const char* end = text.data() + text.size();
    for (const char* p = text.data(); (p = read_game(p, end, &game)) != nullptr;) {
        add_evidence(game, &evidence);
    }
    ViewTable views;
    std::ranges::transform(evidence, views.begin(), view_of_games);
    return views;
}

// ---- Files

static bool open_next_file(GamesReader* reader)
{
    while (reader->next_file < reader->files->size()) {
        const std::string& name = (*reader->files)[reader->next_file++];
        if (open_stream(&reader->stream, name, reader->report)) {
            reader->is_open = true;
            reader->is_first = true;
            reader->skips = false;
            reader->line = 1;
            reader->held.clear();
            return true;
        }
    }
    return false;
}

static void close_file(GamesReader* reader)
{
    reader->finished += reader->stream.size;
    reader->is_open = false;
    close_stream(&reader->stream, reader->report);
}

// Two bytes a character are a text, but none that anybody here could read.
static bool refuse_wide_text(GamesReader* reader)
{
    const std::string& text = reader->held;
    const bool is_wide = text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff")
        || (text.size() > 3 && (text[0] == '\0') != (text[1] == '\0')
            && (text[2] == '\0') == (text[0] == '\0') && (text[3] == '\0') == (text[1] == '\0'));
    if (is_wide) {
        fail_file(reader->report, reader->stream.name,
            "is in UTF-16; a file of games has one byte for a letter, as UTF-8 has", 0);
        reader->held.clear();
        close_file(reader);
    }
    return is_wide;
}

// Reads a block behind what is held. Returns false at the end of the file.
static bool read_block(GamesReader* reader)
{
    const size_t used = reader->held.size();
    reader->held.resize(used + block_size);
    const size_t count = fread(reader->held.data() + used, 1, block_size, reader->stream.file);
    reader->held.resize(used + count);
    return count > 0;
}

// Drops the first bytes of what is held.
static void drop_held(GamesReader* reader, size_t size)
{
    reader->line += count_lines(std::string_view(reader->held).substr(0, size));
    reader->held.erase(0, size);
}

// Drops what is held up to the next game, or all of it but the start of a line that may be its
// first.
static void skip_game(GamesReader* reader)
{
    const std::string& held = reader->held;
    size_t place = 0;
    while (reader->skips && place < held.size()) {
        if (!reader->in_line && is_tag_at(held, place)) {
            reader->skips = false;
            break;
        }
        const size_t feed = held.find('\n', place);
        if (feed == held.npos) {
            reader->in_line |= held.size() - place > most_tag_start;
            place = reader->in_line ? held.size() : place;
            break;
        }
        reader->in_line = false;
        place = feed + 1;
    }
    drop_held(reader, place);
}

// What is held has no border, and its last line may be the first one of the next game.
static void start_skipping(GamesReader* reader)
{
    reader->skips = true;
    reader->in_line = false;
    drop_held(reader, reader->held.rfind('\n') + 1);
    skip_game(reader);
}

// Hands out the first bytes of what is held.
static void hand_out(GamesReader* reader, size_t size, GamesPiece* piece)
{
    piece->text.assign(reader->held, 0, size);
    reader->held.erase(0, size);
    piece->first_line = reader->line;
    reader->line += count_lines(piece->text);
    piece->is_first = reader->is_first;
    if (reader->is_first) {
        piece->told = judge_views(piece->text);
        for (size_t form = 0; form < reader->views.size(); ++form) {
            const ScoreView known = reader->views[form];
            reader->file_views[form] = known != ScoreView::Unknown ? known : piece->told[form];
        }
        reader->is_first = false;
    }
    piece->views = reader->file_views;
}

bool take_piece(GamesReader* reader, GamesPiece* piece)
{
    for (;;) {
        if (!reader->is_open && !open_next_file(reader)) {
            return false;
        }
        const bool is_start = reader->is_first && reader->held.empty();
        const bool more = read_block(reader);
        if (is_start && refuse_wide_text(reader)) {
            continue;
        }
        if (reader->skips) {
            skip_game(reader);
        }
        piece->file = reader->next_file - 1;
        piece->is_too_long = false;
        piece->position = reader->finished + stream_position(reader->stream);
        if (!more) {
            const bool has_text = !reader->skips && !reader->held.empty();
            if (has_text) {
                hand_out(reader, reader->held.size(), piece);
            }
            close_file(reader);
            if (has_text) {
                return true;
            }
        } else if (!reader->skips) {
            const size_t place = find_last_game(reader->held);
            if (place != 0) {
                hand_out(reader, place, piece);
                return true;
            }
            if (reader->held.size() > most_game_text) {
                piece->text.clear();
                piece->is_first = false;
                piece->is_too_long = true;
                piece->first_line = reader->line;
                start_skipping(reader);
                return true;
            }
        }
    }
}
