// The engine inside a fuzz target. It is set up once: what stays behind from one input to the
// next is only what a long session of the program would keep too.
#include "fuzz_support.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "base/output.h"
#include "board/tables.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/prepare_search.h"

static void check(bool condition, const char* text)
{
    if (!condition) {
        fprintf(stderr, "fuzz: %s\n", text);
        abort();
    }
}

static void make_engine()
{
    const int nowhere = open("/dev/null", O_WRONLY);
    check(nowhere >= 0 && dup2(nowhere, STDOUT_FILENO) == STDOUT_FILENO, "no /dev/null");
    close(nowhere);
    init_board_tables();
    dialogue.game = new_thread_record(-1);
    check(dialogue.game != nullptr, "no thread record");
    num_threads = 1;
    check(create_workers(1) == 0, "no worker");
    check(alloc_hash(1), "no hash table");
}

void ready_engine()
{
    static bool made = false;
    if (!made) {
        make_engine();
        made = true;
    }
    reset_run_state();
    dialogue.engine_options.hash = 1;
    if (num_threads != 1) {
        destroy_workers(num_threads);
        num_threads = 1;
        check(create_workers(1) == 0, "no worker");
    }
    if (hash.megabytes != 1) {
        check(alloc_hash(1), "no hash table");
    }
    publish_options(&dialogue);
    rebuild_search_tables(&dialogue);
    build_weights(NormalWeights);
    parse_epd(&dialogue.game->pos, start_position);
}

void search_shortly()
{
    dialogue.engine_options.limit_strength = 0;
    store(noise, silent_noise);
    store(dialogue.limits.tc_moves, FixedTime);
    dialogue.limits.tc_seconds = 1000.0;
    dialogue.limits.node_limit_total = 20000;
    store(dialogue.limits.depth_limit, 2);
    store(engine_state, EngineState::Thinking);
    prepare_search(&dialogue);
    search_sync(dialogue.game);
    store(engine_state, EngineState::Idle);
}

// Cuts every number behind word to a count of digits.
static void cut_numbers(std::string* text, const char* word, size_t digits)
{
    size_t at = text->find(word);
    while (at != std::string::npos) {
        size_t run = 0;
        for (size_t i = at; i < text->size() && (*text)[i] != '\n';) {
            run = isdigit(static_cast<unsigned char>((*text)[i])) ? run + 1 : 0;
            if (run > digits) {
                text->erase(i, 1);
            } else {
                ++i;
            }
        }
        at = text->find(word, at + 1);
    }
}

std::string tamed_text(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    cut_numbers(&text, "Hash", 2);
    cut_numbers(&text, "Threads", 1);
    return text;
}

void write_file(const char* name, const std::string& text)
{
    FILE* file = fopen(name, "wb");
    check(file != nullptr, "the current directory is not writable");
    check(fwrite(text.data(), 1, text.size(), file) == text.size(), "cannot write a file");
    fclose(file);
}
