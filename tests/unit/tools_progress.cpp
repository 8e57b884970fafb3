// The line that shows how far a long run has come: on a terminal alone.
#include <functional>
#include <pty.h>
#include <regex>
#include <string>
#include <unistd.h>

#include "tools_support.h"
#include "base/clock.h"
#include "tools/tool_input.h"

struct ProgressTest : ToolTest {
    static bool is_item(const char* line)
    {
        return line[0] == 'a';
    }

    // Shows the progress of the second of three items, once before it is due and once when it is:
    // the times are set, since a busy machine may take any.
    static void show_second_item()
    {
        static ToolInput input;
        write_file("items.txt", "a\nb\na" + std::string(3000, 'a') + "\nb\na\n");
        ASSERT_TRUE(open_input(&input, "items.txt"));
        start_progress(&input, is_item);
        char line[8];
        EXPECT_EQ(read_line_piece(&input.lines, line, sizeof line), 2);
        input.progress.due = monotonic_seconds() + 1000.0;
        show_progress(&input, "item", 2);
        input.progress.due = monotonic_seconds();
        show_progress(&input, "item", 2);
        refuse(&input, 1, "refused");
        close_input(&input);
    }

    // What run writes to standard error if that is a terminal.
    static std::string shown_on_terminal(const std::function<void()>& run)
    {
        int outer;
        int inner;
        EXPECT_EQ(openpty(&outer, &inner, nullptr, nullptr, nullptr), 0);
        const int kept = dup(STDERR_FILENO);
        dup2(inner, STDERR_FILENO);
        run();
        dup2(kept, STDERR_FILENO);
        close(kept);
        close(inner);
        // The terminal hands on what it was given in pieces, and an error once nobody has it open.
        std::string shown;
        char text[4096];
        for (ssize_t length; (length = read(outer, text, sizeof text)) > 0;) {
            shown.append(text, static_cast<size_t>(length));
        }
        close(outer);
        return shown;
    }
};

TEST_F(ProgressTest, IsShownOnATerminalAndTakenAwayBeforeMessages)
{
    const std::string shown = shown_on_terminal(show_second_item);
    const std::regex line("\ritem 2 of 3, [0-9]+ s elapsed, end expected at [0-9:]{8}\x1b\\[K\r"
                          "\r\x1b\\[Kitems\\.txt:1: refused\r\n");
    EXPECT_TRUE(std::regex_match(shown, line)) << shown;
}

TEST_F(ProgressTest, IsNotShownInAFile)
{
    EXPECT_EQ(capture_errors(show_second_item), "items.txt:1: refused\n");
}
