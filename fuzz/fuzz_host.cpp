// What a chess program may say: positions, limits, settings, and the engine's own lines on their
// way back. Each line of the input is read by the reader that its first letter names.
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "host/game.h"
#include "host/info.h"
#include "host/limits.h"
#include "host/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void demand(bool condition)
{
    if (!condition) {
        abort();
    }
}

// A game that is accepted reaches the engine as the same position, in a line that it can read.
static void read_game(std::string_view words)
{
    auto game = std::make_unique<HostGame>();
    set_up_game(game.get(), words);
    if (!game->defect.empty()) {
        return;
    }
    const PositionLine line = position_line(game.get());
    demand(line.text.size() < 4999 && line.text.find('@') == std::string::npos);
    auto again = std::make_unique<HostGame>();
    set_up_game(again.get(), std::string_view(line.text).substr(sizeof "position"));
    demand(again->defect.empty() && again->pos.key == game->pos.key);
    if (!legal_moves(game.get()).empty()) {
        demand(find_legal_move(game.get(), text_of_move(choose_own_move(game.get()))) != NoMove);
    }
    demand(!whole_fen(game.get()).empty());
}

static void read_go(std::string_view words)
{
    std::string remark;
    const GoLimits limits = read_limits(words, &remark);
    LeftLimits left { true, true };
    demand(words_for_engine(&limits, 3, 3, &left).starts_with("go "));
    for (i32 side = White; side <= Black; ++side) {
        demand(!stop_after(&limits, side) || *stop_after(&limits, side) > 0);
        demand(!answer_within(&limits, side) || *answer_within(&limits, side) > 0);
    }
}

// Whatever is set, the engine gets lines that it can read.
static void set_option_text(HostSettings* settings, std::string_view words)
{
    const SettingResult result = change_setting(settings, words);
    demand((result.changed == nullptr) == !result.remark.empty());
    for (const std::string& line : lines_for_engine(settings, 0)) {
        demand(line.size() < 4999 && line.find('@') == std::string::npos);
    }
}

static void read_info_line(const std::string& text)
{
    (void)read_info(text);
    demand(with_chances(text).size() >= text.size());
    (void)with_line_number(text, 2);
}

static HostSettings start_settings()
{
    HostSettings settings;
    learn_option(&settings, "option name Hash type spin default 64 min 0 max 16384");
    learn_option(&settings, "option name Clear_Hash type button");
    learn_option(&settings, "option name OwnBook_File type string default ");
    learn_option(&settings, "option name UCI_LimitStrength type check default false");
    learn_option(&settings, "option name UCI_Elo type spin default 2900 min 1500 max 2900");
    learn_option(&settings, "option name MoveOverhead type spin default 50 min 0 max 5000");
    add_own_options(&settings);
    return settings;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    HostSettings settings = start_settings();
    std::string_view text(reinterpret_cast<const char*>(data), size);
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string line(text.substr(0, end));
        text = end == std::string_view::npos ? "" : text.substr(end + 1);
        const std::string rest = line.empty() ? "" : line.substr(1);
        switch (line.empty() ? ' ' : line[0]) {
        case 'p':
            read_game(rest);
            break;
        case 'g':
            read_go(rest);
            break;
        case 's':
            set_option_text(&settings, rest);
            break;
        case 'i':
            read_info_line(rest);
            break;
        case 'o':
            learn_option(&settings, rest);
            (void)option_lines(&settings);
            break;
        default:
            break;
        }
    }
    return 0;
}
