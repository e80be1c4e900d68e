"""Builds a preset's targets as the other scripts do, and writes into documents."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BENCHMARKS = ["-DZR_BUILD_BENCHMARKS=ON"]


def build(preset, *targets, options=()):
    """Returns the preset's folder. options: of cmake."""
    command = f'source "{ROOT}/scripts/common.sh"; build "$@"'
    subprocess.run(["bash", "-c", command, sys.argv[0], preset, *options, *targets], check=True)
    return ROOT / "build" / preset


def replace_part(path, name, text, writer="scripts/bench --record"):
    """Replaces what stands between the two comments of that name in a Markdown file."""
    begin, end = f"<!-- {name}: written by {writer} -->\n", f"<!-- end of {name} -->\n"
    head, rest = path.read_text().split(begin)
    tail = rest.split(end)[1]
    path.write_text(head + begin + "\n" + text.strip("\n") + "\n\n" + end + tail)
