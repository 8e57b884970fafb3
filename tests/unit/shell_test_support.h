// What the tests of the shell share: a fixture that gives every test the start values of run state
// and options, a small hash table and no workers, in an empty directory, and puts back what it
// found; and standard input fed by the test.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "test_support.h"
#include "base/output.h"
#include "eval/weights.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/console.h"
#include "shell/input.h"
#include "shell/options.h"
#include "shell/prepare_search.h"

struct ShellTest : testing::Test {
    void SetUp() override
    {
        test_thread();
        found_threads = num_threads;
        found_hash = hash.megabytes;
        had_table = hash.table != nullptr;
        reset_globals();
        set_workers(0);
        hash.megabytes = 1;
        capture_output([] { EXPECT_TRUE(alloc_hash(hash.megabytes)); });
        set_position(start_position);
        ASSERT_NE(getcwd(found_folder, sizeof found_folder), nullptr);
        ASSERT_NE(mkdtemp(folder), nullptr);
        ASSERT_EQ(chdir(folder), 0);
    }

    void TearDown() override
    {
        close_log();
        ASSERT_EQ(chdir(found_folder), 0);
        EXPECT_EQ(system((std::string("rm -rf ") + folder).c_str()), 0);
        reset_globals();
        set_workers(found_threads);
        free_hash();
        hash.megabytes = found_hash;
        if (had_table) {
            capture_output([] { EXPECT_TRUE(alloc_hash(hash.megabytes)); });
        }
        rebuild_search_tables(&dialogue);
        build_weights(NormalWeights);
        set_position(start_position);
    }

    static void reset_globals()
    {
        reset_run_state();
        dialogue.saved_options.params_changed = 0;
        dialogue.engine_options = dialogue.saved_options;
        publish_options(&dialogue);
    }

    // Ends all workers and starts count new ones.
    static void set_workers(i32 count)
    {
        if (num_threads != 0) {
            destroy_workers(num_threads);
        }
        num_threads = count;
        dialogue.engine_options.threads = static_cast<i16>(count);
        ASSERT_EQ(create_workers(count), 0);
        store(stop_code, StopCode::None);
    }

    static void write_file(const char* name, const std::string& text)
    {
        std::ofstream(name, std::ios::binary) << text;
    }

    static std::string read_file(const char* name)
    {
        std::ifstream file(name, std::ios::binary);
        return { std::istreambuf_iterator<char>(file), {} };
    }

    i32 found_threads = 0;
    i32 found_hash = 0;
    bool had_table = false;
    char found_folder[1024] = "";
    char folder[64] = "/tmp/vesk_test_XXXXXX";
};

// The same at the console, with a line said to it and its output.
struct ConsoleTest : ShellTest {
    void SetUp() override
    {
        ShellTest::SetUp();
        store(uci_mode, 0);
    }

    static std::string say(const std::string& line)
    {
        std::string text = line;
        return capture_output([&] { console_command(&dialogue, text.data()); });
    }

    // Several lines, apart by semicolons; the output of the last one.
    static std::string say_all(const std::string& lines)
    {
        std::string output;
        std::istringstream stream(lines);
        for (std::string line; std::getline(stream, line, ';');) {
            output = say(line);
        }
        return output;
    }

    static std::string fen()
    {
        return fen_of(&dialogue.game->pos);
    }

    static bool begins(const std::string& text, const std::string& start)
    {
        return text.compare(0, start.size(), start) == 0;
    }

    // The board as "bd" shows it.
    static std::string board()
    {
        return capture_output([] { print_board(&dialogue.game->pos); });
    }

    // What was printed is head and the board as it stands now.
    static void expect_board(const std::string& output, const std::string& head = "")
    {
        EXPECT_EQ(output, head + board());
    }
};

// Standard input that the test writes to.
struct FedInput {
    FedInput()
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        kept = dup(STDIN_FILENO);
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        feed_end = ends[1];
        reset_input();
    }

    ~FedInput()
    {
        end();
        dup2(kept, STDIN_FILENO);
        close(kept);
        reset_input();
    }

    void feed(const std::string& bytes) const
    {
        EXPECT_EQ(write(feed_end, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    void end()
    {
        if (feed_end >= 0) {
            close(feed_end);
        }
        feed_end = -1;
    }

    int kept;
    int feed_end;
};
