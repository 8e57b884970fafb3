// What a book knows of a position, as the user sees it: one line in UCI mode, a line for each move
// at the console. Entries of weight 0 are never chosen and not shown.
#include "shell/book_report.h"

#include <cstring>
#include <span>

#include "base/output.h"
#include "base/text.h"

static constexpr size_t report_size = 1024; // holds a word of five letters for every entry

static void report_uci(std::span<const BookEntry> entries)
{
    char text[report_size] = "info string ( book moves are: ";
    size_t length = strlen(text);
    for (const BookEntry& entry : entries) {
        if (entry.weight == 0) {
            continue;
        }
        write_book_move(entry.move, text + length);
        length += 4;
        text[length++] = ' ';
    }
    copy_text(text + length, report_size - length, " )");
    print_line(text);
}

// Shares of the book's own weights, and of those that the option of variety has made of them.
static void report_console(std::span<const BookEntry> entries, const u16* adjusted, u32 sum)
{
    i32 total = 0;
    for (const BookEntry& entry : entries) {
        total += entry.weight;
    }
    for (size_t i = 0; i < entries.size(); ++i) {
        const i32 weight = entries[i].weight;
        if (weight == 0) {
            continue;
        }
        char move[5];
        write_book_move(entries[i].move, move);
        print_line_format("  %s  cnt= %5d, weight= %5.2f%% -> %5.2f%%", move, weight,
            weight * 100.0 / total, adjusted[i] * 100.0 / sum);
    }
}

// A chess program gets its line whatever the noise is; at the console silence holds for books too.
void report_book_choice(const BookChoice* choice)
{
    if (choice->count == 0) {
        return;
    }
    const std::span entries(choice->entries, static_cast<size_t>(choice->count));
    if (load(uci_mode) == UciMode) {
        report_uci(entries);
    } else if (load(noise) < silent_noise) {
        report_console(entries, choice->adjusted, choice->sum);
        print_line_format("selecting %s%s", square_name[from_square(choice->move)],
            square_name[to_square(choice->move)]);
    }
}
