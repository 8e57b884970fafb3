// What the tests of the offline tools share: a run of a tool with what it prints, and files that
// cannot be written.
#pragma once

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/resource.h>

#include "shell_test_support.h"
#include "base/files.h"
#include "tools/tools.h"

// What a tool has printed.
struct ToolRun {
    std::string out;
    std::string errors;
};

struct ToolTest : ShellTest {
    // Runs a tool with an empty standard input.
    static ToolRun run_tool(const std::function<void()>& tool)
    {
        const FedInput input;
        ToolRun run;
        exit_status = 0;
        run.errors = capture_errors([&] { run.out = capture_output(tool); });
        return run;
    }

    // The same with a limit of the size of files, which stands in for a full disk.
    static ToolRun run_on_full_disk(const std::function<void()>& tool)
    {
        rlimit kept;
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &kept), 0);
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small = { 4096, kept.rlim_max };
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        const ToolRun run = run_tool(tool);
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &kept), 0);
        signal(SIGXFSZ, SIG_DFL);
        return run;
    }

    static bool exists(const char* name)
    {
        return std::filesystem::exists(name);
    }

    // A folder with something in it: neither removed nor replaced by a file.
    static void block(const std::string& name)
    {
        std::filesystem::create_directories(name + "/inside");
    }

    static bool contains(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    static i64 count_lines(const std::string& text)
    {
        return std::count(text.begin(), text.end(), '\n');
    }

    static std::string repeat(i32 count, const std::string& text)
    {
        std::string all;
        for (i32 i = 0; i < count; ++i) {
            all += text;
        }
        return all;
    }
};
