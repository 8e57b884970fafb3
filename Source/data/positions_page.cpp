// The picture of the statistics. Colours stand out on white and on black alike; what is text or
// grid takes those of the reader's choice. Programs that know no such choice show it on white.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

#include "data/positions_statistics.h"
#include "tools/training_line.h"

// Where a panel stands, and the plot within it; the picture has two by two panels.
static constexpr f64 panel_width = 460.0;
static constexpr f64 panel_height = 300.0;
static constexpr f64 plot_left = 62.0;
static constexpr f64 plot_top = 44.0;
static constexpr f64 plot_width = 374.0;
static constexpr f64 plot_height = 202.0;

static constexpr i64 least_shown_lines = 10; // behind a mean that is shown

static constexpr char style[] =
    "<style>"
    ".paper{fill:#fff}.ink{fill:#24292f}.soft{fill:#6a737d}.grid{stroke:#d8dee4}"
    ".axis{stroke:#8c959f}.bar{fill:#5b8db8}.far{fill:#a9c3d9}.dot{fill:#5b8db8}"
    ".fit{stroke:#c2543d}.usual{stroke:#8c959f}.white{fill:#e3b04b}.drawn{fill:#97a3ae}"
    ".black{fill:#4a6a8c}.none{fill:#c9a3c2}"
    "text{font:12px system-ui,sans-serif}.title{font-size:15px;font-weight:600}"
    "@media (prefers-color-scheme:dark){.paper{fill:#14171a}.ink{fill:#e3e7eb}"
    ".soft{fill:#9aa4ae}.grid{stroke:#2c333a}.axis{stroke:#5f6973}.far{fill:#3d5f7d}"
    ".black{fill:#6688ab}}"
    "</style>\n";

[[gnu::format(printf, 2, 3)]] static void add(std::string* out, const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    *out += text;
}

// A number with commas between its thousands.
static std::string grouped(i64 number)
{
    std::string text = std::to_string(number);
    for (size_t i = text.size(); i > 3; i -= 3) {
        text.insert(i - 3, ",");
    }
    return text;
}

// A count as a label of an axis: 1500 as 1.5k.
static std::string short_count(f64 count)
{
    static constexpr struct {
        f64 unit;
        const char* letter;
    } units[] = { { 1e9, "G" }, { 1e6, "M" }, { 1e3, "k" }, { 1.0, "" } };
    for (const auto& unit : units) {
        if (count >= unit.unit) {
            char text[32];
            snprintf(text, sizeof text, "%.3g%s", count / unit.unit, unit.letter);
            return text;
        }
    }
    return "0";
}

// ---- Panels

struct Panel {
    std::string* out;
    f64 left; // of the plot, in the picture
    f64 top;
};

static Panel start_panel(
    std::string* out, i32 column, i32 row, const char* title, const std::string& remark)
{
    const f64 x = column * panel_width;
    const f64 y = row * panel_height;
    add(out, "<text class=\"ink title\" x=\"%g\" y=\"%g\">%s</text>\n", x + plot_left, y + 24.0,
        title);
    add(out, "<text class=\"soft\" x=\"%g\" y=\"%g\" text-anchor=\"end\">%s</text>\n",
        x + plot_left + plot_width, y + 24.0, remark.c_str());
    return { out, x + plot_left, y + plot_top };
}

static void add_line(const Panel& panel, const char* kind, f64 x1, f64 y1, f64 x2, f64 y2)
{
    add(panel.out, "<line class=\"%s\" x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n", kind,
        panel.left + x1, panel.top + y1, panel.left + x2, panel.top + y2);
}

static void add_label(
    const Panel& panel, const char* kind, f64 x, f64 y, const char* anchor, const std::string& text)
{
    add(panel.out, "<text class=\"%s\" x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>\n", kind,
        panel.left + x, panel.top + y, anchor, text.c_str());
}

static void add_box(const Panel& panel, const char* kind, f64 x, f64 y, f64 width, f64 height,
    const std::string& tip)
{
    add(panel.out,
        "<rect class=\"%s\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\">"
        "<title>%s</title></rect>\n",
        kind, panel.left + x, panel.top + y, width, height, tip.c_str());
}

// A tick of the lower axis at a share of its width.
static void add_tick(const Panel& panel, f64 share, const std::string& text)
{
    const f64 x = share * plot_width;
    add_line(panel, "axis", x, plot_height, x, plot_height + 5.0);
    add_label(panel, "soft", x, plot_height + 19.0, "middle", text);
}

static void add_axis(const Panel& panel, const char* what)
{
    add_line(panel, "axis", 0.0, plot_height, plot_width, plot_height);
    add_label(panel, "soft", plot_width / 2.0, plot_height + 37.0, "middle", what);
}

static void say_nothing_there(const Panel& panel, const char* text)
{
    add_axis(panel, "");
    add_label(panel, "soft", plot_width / 2.0, plot_height / 2.0, "middle", text);
}

// A step of the counts' axis: 1, 2 or 5 times a power of ten, at most five to the top.
static f64 nice_step(f64 top)
{
    f64 step = 1.0;
    for (i32 i = 0; step * 5.0 < top; ++i) {
        step *= i % 3 == 1 ? 2.5 : 2.0;
    }
    return step;
}

// Bars of one colour; the first and the last may be of a paler one, for all that lies beyond.
struct Bars {
    const i64* counts;
    i32 count;
    bool has_far_ends;
    std::string (*name)(i32 bar);
};

static void add_bars(const Panel& panel, const Bars& bars)
{
    const i64 most = std::max(*std::max_element(bars.counts, bars.counts + bars.count), i64 { 1 });
    const f64 step = nice_step(static_cast<f64>(most));
    const i32 steps = static_cast<i32>(std::ceil(static_cast<f64>(most) / step));
    const f64 top = step * steps;
    for (i32 i = 0; i <= steps; ++i) {
        const f64 count = step * i;
        const f64 y = plot_height * (1.0 - count / top);
        add_line(panel, "grid", 0.0, y, plot_width, y);
        add_label(panel, "soft", -7.0, y + 4.0, "end", short_count(count));
    }
    const f64 width = plot_width / bars.count;
    for (i32 i = 0; i < bars.count; ++i) {
        if (bars.counts[i] == 0) {
            continue;
        }
        const f64 height = plot_height * static_cast<f64>(bars.counts[i]) / top;
        const bool is_far = bars.has_far_ends && (i == 0 || i == bars.count - 1);
        add_box(panel, is_far ? "far" : "bar", i * width + 0.5, plot_height - height, width - 1.0,
            height, bars.name(i) + ": " + grouped(bars.counts[i]));
    }
}

// ---- The four

static constexpr i32 phase_step = 2;

static std::string phase_name(i32 bar)
{
    return std::to_string(bar * phase_step) + " to "
        + std::to_string(bar * phase_step + phase_step - 1);
}

static void draw_phases(std::string* out, const LineStatistics& statistics)
{
    const Panel panel = start_panel(out, 0, 0, "Phase", grouped(statistics.lines) + " positions");
    i64 counts[full_phase / phase_step + 1] = {};
    for (i32 i = 0; i <= full_phase; ++i) {
        counts[i / phase_step] += statistics.phases[i];
    }
    constexpr i32 bars = std::size(counts);
    add_bars(panel, { counts, bars, false, phase_name });
    for (i32 points = 0; points <= full_phase; points += full_phase / phase_bands) {
        const i32 bar = points / phase_step;
        add_tick(panel, (bar + 0.5) / bars, std::to_string(points));
    }
    add_axis(panel, "points of pieces on the board: bare kings 0, all pieces 64");
}

static std::string score_name(i32 bar)
{
    if (bar == 0) {
        return "below -1000";
    }
    if (bar == score_bins + 1) {
        return "1000 and above";
    }
    const i32 start = bin_start(bar - 1);
    return std::to_string(start) + " to " + std::to_string(start + score_step - 1);
}

static void draw_scores(std::string* out, const LineStatistics& statistics)
{
    const Panel panel =
        start_panel(out, 1, 0, "Score", grouped(statistics.scored) + " with a score");
    if (statistics.scored == 0) {
        say_nothing_there(panel, "no line has a score");
        return;
    }
    i64 counts[score_bins + 2] = { statistics.beyond[0] };
    std::copy_n(statistics.scores, score_bins, counts + 1);
    counts[score_bins + 1] = statistics.beyond[1];
    constexpr i32 bars = std::size(counts);
    add_bars(panel, { counts, bars, true, score_name });
    for (i32 score = -largest_shown_score; score <= largest_shown_score; score += 500) {
        const f64 bar = 1.0 + static_cast<f64>(score + largest_shown_score) / score_step;
        add_tick(panel, bar / bars, std::to_string(score));
    }
    add_axis(panel, "centipawns for the side to move; at the ends all beyond");
}

// The place of a score on the axis, a share of its width.
static f64 share_of(f64 score)
{
    return (score + largest_shown_score) / (2.0 * largest_shown_score);
}

static void draw_curve(const Panel& panel, const char* kind, const char* dashes, f64 factor)
{
    add(panel.out, "<path class=\"%s\" fill=\"none\" stroke-width=\"2\" %s d=\"", kind, dashes);
    for (i32 score = -largest_shown_score; score <= largest_shown_score; score += 20) {
        const f64 expected = 1.0 / (1.0 + std::exp(-factor * score));
        add(panel.out, "%c%.1f %.1f", score == -largest_shown_score ? 'M' : 'L',
            panel.left + plot_width * share_of(score), panel.top + plot_height * (1.0 - expected));
    }
    *panel.out += "\"/>\n";
}

// The size of a dot tells how many lines are behind it.
static void draw_means(const Panel& panel, const LineStatistics& statistics)
{
    for (i32 bin = 0; bin < score_bins; ++bin) {
        const i64 count = statistics.judged[bin];
        if (count < least_shown_lines) {
            continue;
        }
        const f64 mean = statistics.results[bin] / static_cast<f64>(count);
        const f64 radius = 1.5 + 0.5 * std::log10(static_cast<f64>(count));
        add(panel.out,
            "<circle class=\"dot\" cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\"><title>%s: %.3f of %s"
            "</title></circle>\n",
            panel.left + plot_width * share_of(bin_start(bin) + 0.5 * score_step),
            panel.top + plot_height * (1.0 - mean), radius, score_name(bin + 1).c_str(), mean,
            grouped(count).c_str());
    }
}

static void draw_results(std::string* out, const LineStatistics& statistics)
{
    const f64 factor = static_cast<f64>(fit_factor(&statistics.counts));
    char remark[64] = "no logistic fits";
    if (factor > 0.0) {
        snprintf(remark, sizeof remark, "1 / (1 + exp(-%.5f score))", factor);
    }
    const Panel panel = start_panel(out, 0, 1, "Result by score", remark);
    for (i32 i = 0; i <= 4; ++i) {
        const f64 y = plot_height * i / 4.0;
        char text[16];
        snprintf(text, sizeof text, "%.2f", 1.0 - i / 4.0);
        add_line(panel, "grid", 0.0, y, plot_width, y);
        add_label(panel, "soft", -7.0, y + 4.0, "end", text);
    }
    for (i32 score = -largest_shown_score; score <= largest_shown_score; score += 500) {
        add_tick(panel, share_of(score), std::to_string(score));
    }
    draw_curve(panel, "usual", "stroke-dasharray=\"4 4\"", static_cast<f64>(usual_factor));
    if (factor > 0.0) {
        draw_curve(panel, "fit", "", factor);
    }
    draw_means(panel, statistics);
    add_axis(panel, "centipawns. Line: the fit; dashes: 0.007; dots: means of 50");
}

struct OutcomePart {
    Outcome outcome;
    const char* kind;
    const char* name;
    f64 width; // in the legend
};

static constexpr OutcomePart outcome_parts[] = { { WhiteWon, "white", "white won", 88.0 },
    { Drawn, "drawn", "drawn", 68.0 }, { WhiteLost, "black", "black won", 88.0 },
    { NoOutcome, "none", "no result", 88.0 } };

// One bar over the whole width, with the parts of a band.
static void draw_band(const Panel& panel, const i64* counts, f64 y, f64 height)
{
    i64 all = 0;
    for (i32 i = 0; i <= NoOutcome; ++i) {
        all += counts[i];
    }
    f64 start = 0.0;
    for (const OutcomePart& part : outcome_parts) {
        const i64 count = counts[part.outcome];
        if (count > 0) {
            const f64 width = plot_width * static_cast<f64>(count) / static_cast<f64>(all);
            add_box(panel, part.kind, start, y, width, height,
                std::string(part.name) + ": " + grouped(count));
            start += width;
        }
    }
}

static void draw_outcomes(std::string* out, const LineStatistics& statistics)
{
    static constexpr const char* bands[phase_bands] = { "0 to 15", "16 to 31", "32 to 47",
        "48 to 64" };
    const Panel panel = start_panel(out, 1, 1, "Results by phase", "by points of pieces");
    constexpr f64 height = plot_height / phase_bands;
    for (i32 band = 0; band < phase_bands; ++band) {
        const f64 y = height * (phase_bands - 1 - band) + 6.0;
        add_label(panel, "soft", -7.0, y + height / 2.0 - 2.0, "end", bands[band]);
        draw_band(panel, statistics.outcomes[band], y, height - 12.0);
    }
    for (i32 i = 0; i <= 4; ++i) {
        add_tick(panel, i / 4.0, std::to_string(25 * i) + " %");
    }
    add_line(panel, "axis", 0.0, plot_height, plot_width, plot_height);
    f64 x = 20.0;
    for (const OutcomePart& part : outcome_parts) {
        add_box(panel, part.kind, x, plot_height + 28.0, 11.0, 11.0, part.name);
        add_label(panel, "soft", x + 16.0, plot_height + 37.0, "start", part.name);
        x += part.width;
    }
}

// ---- The whole

std::string statistics_as_svg(const LineStatistics& statistics)
{
    std::string out;
    add(&out,
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %g %g\" role=\"img\">\n"
        "<title>Statistics of positions</title>\n",
        2.0 * panel_width, 2.0 * panel_height);
    out += style;
    out += "<rect class=\"paper\" width=\"100%\" height=\"100%\"/>\n";
    draw_phases(&out, statistics);
    draw_scores(&out, statistics);
    draw_results(&out, statistics);
    draw_outcomes(&out, statistics);
    return out + "</svg>\n";
}

// What a file is called may hold anything.
static std::string escaped(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        default:
            out += static_cast<u8>(c) < ' ' ? '?' : c;
            break;
        }
    }
    return out;
}

static void add_row(std::string* out, const char* name, const std::string& value)
{
    add(out, "<tr><th>%s</th><td>%s</td></tr>\n", name, value.c_str());
}

static void add_table(std::string* out, const LineStatistics& statistics)
{
    i64 outcomes[NoOutcome + 1] = {};
    for (const auto& band : statistics.outcomes) {
        for (i32 i = 0; i <= NoOutcome; ++i) {
            outcomes[i] += band[i];
        }
    }
    *out += "<table>\n";
    add_row(out, "positions", grouped(statistics.lines));
    add_row(out, "of them for validation", grouped(statistics.held_out));
    add_row(out, "that tell their game", grouped(statistics.marked));
    add_row(out, "white to move", grouped(statistics.sides[White]));
    add_row(out, "black to move", grouped(statistics.sides[Black]));
    add_row(out, "white won", grouped(outcomes[WhiteWon]));
    add_row(out, "drawn", grouped(outcomes[Drawn]));
    add_row(out, "black won", grouped(outcomes[WhiteLost]));
    add_row(out, "without a result", grouped(outcomes[NoOutcome]));
    add_row(out, "with a score", grouped(statistics.scored));
    const f32 factor = fit_factor(&statistics.counts);
    char text[80] = "none fits";
    if (factor > 0.0f) {
        snprintf(text, sizeof text, "%.5f: a pawn ahead scores %.1f %%", static_cast<f64>(factor),
            100.0 * static_cast<f64>(sigmoid(100.0f, factor)));
    }
    add_row(out, "factor of the logistic", text);
    *out += "</table>\n";
}

std::string statistics_as_page(const LineStatistics& statistics, const std::string& source)
{
    std::string out = "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                      "<title>Positions</title>\n<style>\n"
                      ":root{color-scheme:light dark}\n"
                      "body{font:15px/1.5 system-ui,sans-serif;max-width:60em;margin:2em auto;"
                      "padding:0 1em;background:#fff;color:#24292f}\n"
                      "table{border-collapse:collapse;margin-top:1.5em}\n"
                      "th{font-weight:400;text-align:left;padding-right:2em}\n"
                      "td{text-align:right}\nth,td{border-bottom:1px solid #8886}\n"
                      "@media (prefers-color-scheme:dark){"
                      "body{background:#14171a;color:#e3e7eb}}\n"
                      "</style>\n</head>\n<body>\n<h1>Positions</h1>\n<p>";
    out += escaped(source) + "</p>\n" + statistics_as_svg(statistics);
    add_table(&out, statistics);
    return out + "</body>\n</html>\n";
}
