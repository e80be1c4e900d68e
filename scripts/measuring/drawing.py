"""Draws the growth curves as one SVG of small panels, both axes logarithmic."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 300, 230  # of a panel
LEFT, RIGHT, TOP, BOTTOM = 52, 14, 44, 34
COLUMNS = 3
COLORS = ("#0b6bcb", "#c2410c", "#6b7280")

# (title, quantity, its axis, ((series, number), ...))
PANELS = (
    ("Save over waiting batches, ms", "waiting", "waiting batches",
     (("a save", "ms"), ("the first after a start", "first_ms"), ("the bare write", "limit_ms"))),
    ("The caller, µs", "threads", "threads", (("median", "p50_us"), ("99th percentile", "p99_us"))),
    ("Events a second until stored", "threads", "threads", (("all threads together", "events_per_s"),)),
    ("The caller, µs", "attributes", "attributes of an event", (("median", "p50_us"), ("99th percentile", "p99_us"))),
    ("Events a second until stored", "batch_size", "events in a batch", (("one thread", "events_per_s"),)),
    ("Bytes written per event", "batch_size", "events in a batch", (("1,000 events, offline", "written"),)),
)


def short(number):
    for unit, size in (("M", 1_000_000), ("k", 1000)):
        if number >= size:
            return f"{number / size:g}{unit}"
    return f"{number:g}"


class Scale:
    def __init__(self, low, high, begin, end):
        self.low, self.high = math.log10(low), math.log10(high)
        self.begin, self.end = begin, end

    def at(self, number):
        part = (math.log10(number) - self.low) / ((self.high - self.low) or 1)
        return self.begin + part * (self.end - self.begin)


def text(x, y, content, size=11, anchor="middle", color="#374151", weight="normal"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}" fill="{color}"'
            f' font-weight="{weight}">{escape(content)}</text>\n')


def line(x1, y1, x2, y2, color):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{color}"/>\n'


def panel(title, axis, series, numbers):
    points = {label: [(value, each[name]) for value, each in numbers.items() if each.get(name, 0) > 0]
              for label, name in series}
    every = [y for curve in points.values() for _, y in curve]
    xs = list(numbers)
    bottom, top = math.floor(math.log10(min(every))), math.ceil(math.log10(max(every)))
    top = max(top, bottom + 1)
    x_of = Scale(xs[0], xs[-1], LEFT, WIDTH - RIGHT)
    y_of = Scale(10**bottom, 10**top, HEIGHT - BOTTOM, TOP)
    out = text(LEFT - 40, 16, title, 13, "start", "#111827", "bold")
    for power in range(bottom, top + 1):
        y = y_of.at(10**power)
        out += line(LEFT, y, WIDTH - RIGHT, y, "#e5e7eb") + text(LEFT - 6, y + 4, short(10**power), anchor="end")
    for x in xs:
        out += text(x_of.at(x), HEIGHT - BOTTOM + 15, short(x))
    out += text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - BOTTOM + 29, axis)
    legend = ""
    for (label, curve), color in zip(points.items(), COLORS):
        path = " ".join(f"{x_of.at(x):.1f},{y_of.at(y):.1f}" for x, y in curve)
        out += f'<polyline points="{path}" fill="none" stroke="{color}" stroke-width="2"/>\n'
        for x, y in curve:
            out += f'<circle cx="{x_of.at(x):.1f}" cy="{y_of.at(y):.1f}" r="3" fill="{color}"/>\n'
        legend += f'<tspan fill="{color}" dx="{10 if legend else 0}">{escape(label)}</tspan>'
    return out + f'<text x="{LEFT - 40}" y="33" font-size="11">{legend}</text>\n'


def growth_svg(growth):
    for numbers in growth["waiting"].values():
        numbers["limit_ms"] = numbers["ms"] / numbers["times_limit"]
    rows = math.ceil(len(PANELS) / COLUMNS)
    width, height = COLUMNS * WIDTH, rows * HEIGHT
    out = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}"'
           ' font-family="Helvetica, Arial, sans-serif">\n'
           f'<title>How the costs grow</title>\n<rect width="{width}" height="{height}" fill="#ffffff"/>\n')
    for i, (title, quantity, axis, series) in enumerate(PANELS):
        out += f'<g transform="translate({i % COLUMNS * WIDTH},{i // COLUMNS * HEIGHT})">\n'
        out += panel(title, axis, series, growth[quantity]) + "</g>\n"
    return out + "</svg>\n"
