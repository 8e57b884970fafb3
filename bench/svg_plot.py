"""Small pictures of numbers over games, as SVG."""

import html
import math

WIDTH, HEIGHT = 760, 300    # of a panel
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 40, 50
MOST_POINTS = 400           # of a line: more are thinned out
COLOURS = ("#1f5fa8", "#b3541e", "#2f7d4f", "#7a4ea3")


def nice_step(span, count):
    """A step of 1, 2 or 5 times a power of ten that makes about so many of the span."""
    raw = max(span, 1e-9) / count
    power = 10 ** math.floor(math.log10(raw))
    return next(factor * power for factor in (1, 2, 5, 10) if factor * power >= raw * 0.999)


def ticks(low, high, count):
    step = nice_step(high - low, count)
    first = math.ceil(low / step - 1e-9)
    return [index * step for index in range(first, math.floor(high / step + 1e-9) + 1)]


def thinned(points):
    step = max(1, math.ceil(len(points) / MOST_POINTS))
    kept = points[::step]
    return kept if not points or kept[-1] is points[-1] else [*kept, points[-1]]


def number_text(value):
    return f"{round(value, 10):g}"


class Panel:
    """Lines over one axis of games."""

    def __init__(self, title, x_label, y_label, low=None, high=None):
        self.title, self.x_label, self.y_label = title, x_label, y_label
        self.low, self.high = low, high     # of the y axis, where the points are not to decide
        self.lines = []     # (label, points)
        self.band = []      # (x, low, high)
        self.levels = []    # (y, label)

    def extent(self):
        xs = [point[0] for _, points in self.lines for point in points] + [0]
        ys = [point[1] for _, points in self.lines for point in points]
        ys += [level for level, _ in self.levels]
        low = min(ys, default=0) if self.low is None else self.low
        high = max(ys, default=1) if self.high is None else self.high
        if high - low < 1e-9:
            low, high = low - 1, high + 1
        return max(max(xs), 1), low, high

    def draw(self, name):
        last, low, high = self.extent()
        wide, tall = WIDTH - LEFT - RIGHT, HEIGHT - TOP - BOTTOM

        def across(value):
            return LEFT + wide * value / last

        def down(value):
            return TOP + tall * (high - max(low - high, min(2 * high - low, value))) / (high - low)

        def path(points):
            return " ".join(f"{across(x):.1f},{down(y):.1f}" for x, y in points)

        rows = [f'<text x="{LEFT}" y="22" font-size="15">{html.escape(self.title)}</text>',
                f'<clipPath id="{name}"><rect x="{LEFT}" y="{TOP}" width="{wide}" '
                f'height="{tall}"/></clipPath>']
        for value in ticks(low, high, 6):
            rows.append(f'<line x1="{LEFT}" x2="{LEFT + wide}" y1="{down(value):.1f}" '
                        f'y2="{down(value):.1f}" stroke="#dddddd"/>'
                        f'<text x="{LEFT - 8}" y="{down(value) + 4:.1f}" text-anchor="end">'
                        f'{number_text(value)}</text>')
        for value in ticks(0, last, 8):
            rows.append(f'<text x="{across(value):.1f}" y="{TOP + tall + 18}" '
                        f'text-anchor="middle">{number_text(value)}</text>')
        rows.append(f'<g clip-path="url(#{name})">')
        if self.band:
            edge = [(x, top) for x, _, top in thinned(self.band)]
            edge += [(x, bottom) for x, bottom, _ in reversed(thinned(self.band))]
            rows.append(f'<polygon points="{path(edge)}" fill="{COLOURS[0]}" opacity="0.18"/>')
        for value, _ in self.levels:
            rows.append(f'<line x1="{LEFT}" x2="{LEFT + wide}" y1="{down(value):.1f}" '
                        f'y2="{down(value):.1f}" stroke="#666666" stroke-dasharray="5 4"/>')
        for colour, (_, points) in zip(COLOURS, self.lines):
            rows.append(f'<polyline points="{path(thinned(points))}" fill="none" '
                        f'stroke="{colour}" stroke-width="2"/>')
        rows.append("</g>")
        for value, label in self.levels:
            if label and low <= value <= high:
                rows.append(f'<text x="{LEFT + wide - 4}" y="{down(value) - 4:.1f}" '
                            f'text-anchor="end" fill="#666666">{html.escape(label)}</text>')
        if len(self.lines) > 1:
            for place, (label, _) in enumerate(self.lines):
                rows.append(f'<text x="{LEFT + wide - 4}" y="{TOP + 16 + 16 * place}" '
                            f'text-anchor="end" fill="{COLOURS[place]}">'
                            f'{html.escape(label)}</text>')
        rows.append(f'<rect x="{LEFT}" y="{TOP}" width="{wide}" height="{tall}" fill="none" '
                    'stroke="#444444"/>'
                    f'<text x="{LEFT + wide / 2:.0f}" y="{HEIGHT - 12}" text-anchor="middle">'
                    f'{html.escape(self.x_label)}</text>'
                    f'<text transform="translate(16 {TOP + tall / 2:.0f}) rotate(-90)" '
                    f'text-anchor="middle">{html.escape(self.y_label)}</text>')
        return "\n".join(rows)


def picture(panels):
    """The panels below each other, as the text of a file."""
    rows = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" '
            f'height="{HEIGHT * len(panels)}" font-family="sans-serif" font-size="12">',
            '<rect width="100%" height="100%" fill="#ffffff"/>']
    for place, panel in enumerate(panels):
        rows += [f'<g transform="translate(0 {HEIGHT * place})">', panel.draw(f"plot{place}"),
                 "</g>"]
    return "\n".join([*rows, "</svg>"]) + "\n"
