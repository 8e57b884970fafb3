#!/usr/bin/env python3
"""Measures the trainer: positions per second and pass, from memory and from the file.

    tune.py [--positions N] [--passes P] [--program PATH] [--generator PATH]

One core per thread, as far as there are so many. The best pass of each run counts.
"""

import argparse
import os
import pathlib
import re
import resource
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent


def arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--positions", type=int, default=1000000)
    parser.add_argument("--passes", type=int, default=5)
    parser.add_argument("--program", default=ROOT / "vesk-tune")
    parser.add_argument("--generator", default=ROOT / "build/tune/training_lines")
    return parser.parse_args()


def run(words, cores):
    """The output, the seconds and the processor seconds of a command on so many cores."""
    allowed = sorted(os.sched_getaffinity(0))[:cores]
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    output = subprocess.run([str(word) for word in words], check=True, capture_output=True,
                            text=True, stdin=subprocess.DEVNULL,
                            preexec_fn=lambda: os.sched_setaffinity(0, allowed)).stdout
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return output, time.monotonic() - start, used


def measure(options, name, threads, *words):
    output, seconds, used = run(
        [options.program, "-hash", 1, "-threads", threads, "-tune", "lines.epd", "-tune-passes",
         options.passes, "-tune-patience", 0, *words], threads)
    rates = [int(rate) for rate in re.findall(r"^pass [1-9]\d*:.*, (\d+) positions/s", output,
                                              re.M)]
    size = re.search(r"in memory: (\S+ MB)", output)
    print(f"{name:28} {max(rates):9} positions a second in the best pass, {seconds:.1f} s, "
          f"{used:.1f} processor seconds" + (f", {size[1]}" if size else ""))
    os.remove("params.txt")


def main():
    options = arguments()
    options.program = pathlib.Path(options.program).resolve()
    options.generator = pathlib.Path(options.generator).resolve()
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        run([options.generator, options.positions, "lines.epd"], 1)
        for threads in (1, 2):
            measure(options, f"memory, {threads} thread(s)", threads)
            measure(options, f"file, {threads} thread(s)", threads, "-tune-memory", 0)
        os.chdir("/")


if __name__ == "__main__":
    main()
