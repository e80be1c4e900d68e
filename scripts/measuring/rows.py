"""The table: its rows with their limits, how they are collected, and how they are printed."""

import dataclasses
import statistics

from .measurements import Bench


@dataclasses.dataclass(frozen=True)
class Row:
    title: str
    measurement: str
    number: str
    limit: float | None
    higher_is_better: bool = False


ROWS = [
    Row("caller, tight loop, median, µs", "burst", "p50_us", 0.5),
    Row("caller, tight loop, 99th percentile, µs", "burst", "p99_us", 10),
    Row("the same, built with the preset small: median, µs", "burst_small", "p50_us", 0.5),
    Row("the same, built with the preset small: 99th percentile, µs", "burst_small", "p99_us", 10),
    Row("caller with a journal, tight loop, median, × without", "journal", "times_off", 1.5),
    Row("the same, 99th percentile, µs", "journal", "p99_us", 10),
    Row("(a SQLite insert in place of the call, median, µs)", "journal", "sqlite_us", None),
    Row("caller, one event a millisecond, median, µs", "paced", "p50_us", 6),
    Row("caller, one event a millisecond, 99th percentile, µs", "paced", "p99_us", 18),
    Row("processor time per event at one a millisecond, offline, µs", "paced", "processor_us", 45),
    Row("processor time per event at one a millisecond, sent, µs", "paced_sent", "processor_us", 45),
    Row("(the loop of these three without the module, µs)", "pace", "processor_us", None),
    Row("(processor time per event at 20 a second, offline, µs)", "alone", "processor_us", None),
    Row("events a second until stored, synced", "burst", "events_per_s", 100_000, True),
    Row("bytes written per event, batches of 30, offline burst", "burst", "written", 2500),
    Row("syncs (fsync) per event over a shopping day", "shopping_day", "syncs", 1.5),
    Row("10,000 events to a service on this machine, batches of 30, s", "deliver", "seconds", 0.1),
    Row("bytes sent per event in that run, headers included", "deliver", "wire", 267),
    Row("batches sent again in that run", "deliver", "repeated", 0),
    Row("refused flush of 1,000 batches, processor time, ms", "refuse", "processor_ms", 25),
    Row("first launch, to the first event, ms", "start", "first", 0.7),
    Row("new session, to the first event, ms", "start", "session", 0.3),
    Row("second launch, to the first event, ms", "start", "second", 0.3),
    Row("growth of memory per 10,000 offline, burst, KB", "burst", "memory_kb", 3000),
    Row("growth of memory per 10,000 offline, one a millisecond, KB", "paced_long", "memory_kb", 1500),
    Row("stripped minimal program, column text of size, KB", "size", "text", 350),
    Row("save over 1,000 waiting batches, × writing those bytes", "save", "times_limit", 1.12),
    Row("first save after a start over 10,000 batches, ms", "save_first", "first_ms", 15),
    Row("the same without writing those bytes, ms", "save_first", "first_net_ms", 15),
    Row("(the machine's write, sync and rename of those bytes, ms)", "save_first", "first_limit_ms", None),
    Row("(the machine's write and sync of 4 KB, ms)", "disk", "ms", None),
]

# How often each is run. What varies little or takes long is run less often.
ROUNDS = {"burst": 25, "burst_small": 25, "journal": 25, "paced": 5, "paced_sent": 5, "pace": 2, "paced_long": 2,
          "alone": 3, "deliver": 7, "refuse": 7, "start": 15, "save": 5, "save_first": 5, "shopping_day": 3, "size": 1,
          "disk": 7}

GROWTH = {
    "waiting": (1, 10, 100, 1000, 10_000),
    "threads": (1, 2, 4, 8),
    "attributes": (6, 12, 25, 50, 100),
    "batch_size": (1, 5, 30, 100, 500),
}
GROWTH_ROUNDS = 3


def collect(bench: Bench, quick, progress):
    """The samples of each measurement: {measurement: [{number: value}]}. Rounds are interleaved, so that a disturbance
    of the machine does not hit one row alone."""
    rounds = dict.fromkeys(ROUNDS, 1) if quick else ROUNDS
    samples = {name: [] for name in rounds}
    left = sum(rounds.values())
    for turn in range(max(rounds.values())):
        for name, count in rounds.items():
            if turn >= count:
                continue
            progress(f"{left} runs left, then growth: {name}")
            samples[name].append(getattr(bench, name)())
            left -= 1
    return samples


def collect_growth(bench: Bench, quick, progress):
    """The median numbers for each value: {quantity: {value: {number: median}}}."""
    samples = {quantity: {value: [] for value in values} for quantity, values in GROWTH.items()}
    for turn in range(1 if quick else GROWTH_ROUNDS):
        for quantity, values in GROWTH.items():
            for value in values[:2] if quick else values:
                progress(f"growth, round {turn + 1}: {value} {quantity}")
                samples[quantity][value].append(getattr(bench, quantity)(value))
    return {quantity: {value: {name: statistics.median(each[name] for each in runs) for name in runs[0]}
                       for value, runs in by_value.items() if runs}
            for quantity, by_value in samples.items()}


def text_of(number):
    if abs(number) >= 100:
        return f"{number:,.0f}"
    return f"{number:.3g}" if abs(number) >= 1 or number == 0 else f"{number:.2f}"


def table(samples):
    """Lines of cells, the first the head. A row is judged by its median."""
    lines = [("", "median", "best", "to reach", "")]
    for row in ROWS:
        numbers = [sample[row.number] for sample in samples[row.measurement]]
        median = statistics.median(numbers)
        best = max(numbers) if row.higher_is_better else min(numbers)
        limit, met = "", ""
        if row.limit is not None:
            limit = ("above " if row.higher_is_better else "") + text_of(row.limit)
            # Compared as printed.
            shown = float(text_of(median).replace(",", ""))
            met = "met" if (shown >= row.limit if row.higher_is_better else shown <= row.limit) else "not met"
        lines.append((row.title, text_of(median), text_of(best), limit, met))
    return lines


GROWTH_COLUMNS = {
    "waiting": ("waiting batches", (("a save, ms", "ms"), ("× writing those bytes", "times_limit"),
                                    ("first save after a start, ms", "first_ms"), ("file, KB", "file_kb"))),
    "threads": ("threads that track", (("caller, median, µs", "p50_us"), ("99th percentile, µs", "p99_us"),
                                       ("events a second until stored", "events_per_s"))),
    "attributes": ("attributes of an event", (("caller, median, µs", "p50_us"), ("99th percentile, µs", "p99_us"),
                                              ("processor time per event, µs", "processor_us"))),
    "batch_size": ("events in a batch", (("events a second until stored", "events_per_s"),
                                         ("bytes written per event", "written"), ("syncs per event", "syncs"),
                                         ("processor time per event, µs", "processor_us"))),
}


def growth_tables(growth):
    for quantity, (title, columns) in GROWTH_COLUMNS.items():
        lines = [(title, *(head for head, _ in columns))]
        for value, numbers in growth[quantity].items():
            lines.append((f"{value:,}", *(text_of(numbers[name]) for _, name in columns)))
        yield lines


def plain(lines):
    widths = [max(len(cell) for cell in column) for column in zip(*lines)]
    out = ""
    for first, *others in lines:
        cells = [first.ljust(widths[0]), *(cell.rjust(width) for cell, width in zip(others, widths[1:]))]
        out += "  ".join(cells).rstrip() + "\n"
    return out


def markdown(lines):
    head = "| " + " | ".join(lines[0]) + " |\n|---|" + "---:|" * (len(lines[0]) - 1) + "\n"
    return head + "".join("| " + " | ".join(line) + " |\n" for line in lines[1:])
