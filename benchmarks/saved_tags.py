#!/usr/bin/env python3
"""Measures what rate of tags save_tags= sustains, beside a plain copy into the same folder.

First the unit gives more than the program can save, so that it saves what it can and
drops the rest. Then the unit gives half of what was saved, and nothing may be dropped.

usage: saved_tags.py [--runs N] [--seconds S] [--quick] [--folder FOLDER] PROGRAM
"""

import argparse
import os
import statistics
import tempfile
import time

from whole_program import DEFAULT_QUEUE_TAGS, TAG_BYTES, PauseProbe, Run, burst, print_row

FORMAT = "packed_delta"  # the fewest bytes to prepare
TOO_MANY_TAGS_PER_S = 50e6
LARGEST_QUEUE_TAGS = 8388608


def plain_copy(folder, size):
    """The rate in MB/s at which the system takes pieces as large as the program's."""
    piece = bytes(131072)
    path = os.path.join(folder, "copy")
    start = time.monotonic()
    with open(path, "wb", buffering=0) as file:
        for _ in range(int(size / len(piece))):
            file.write(piece)
    rate = size / (time.monotonic() - start)
    os.unlink(path)
    return rate / 1e6


class SavingRun(Run):
    """A run, the size of its file, and the longest pause of a probe beside it."""

    def __init__(self, program, file, seconds, rate, queue):
        with PauseProbe() as probe:
            super().__init__(program, *burst(FORMAT, seconds, rate * TAG_BYTES[FORMAT]),
                             f"capture_s={seconds}", f"queue_limit={queue}", f"save_tags={file}")
        self.longest_pause_s = probe.longest_s
        self.size = os.path.getsize(file)
        os.unlink(file)


def at_most(program, file, seconds, count):
    """Prints the rate that is saved, and returns it in tags per second."""
    runs = [SavingRun(program, file, seconds, TOO_MANY_TAGS_PER_S, LARGEST_QUEUE_TAGS)
            for _ in range(count)]
    rates = [run["tags_total"] / seconds for run in runs]
    rate = statistics.median(rates)
    tag_bytes = runs[0].size / runs[0]["tags_total"]
    copied = plain_copy(os.path.dirname(file), rate * tag_bytes * seconds)
    print_row("at most", f"{rate / 1e6:.1f} Mtag/s ({min(rates) / 1e6:.1f} to "
              f"{max(rates) / 1e6:.1f}), {rate * tag_bytes / 1e6:.0f} MB/s; "
              f"a plain copy takes {copied:.0f} MB/s")
    return rate


def at(rate, program, file, seconds, count, queue):
    runs = [SavingRun(program, file, seconds, rate, queue) for _ in range(count)]
    dropped = [run for run in runs if run["reader_dropped"]]
    paused = [run for run in dropped if run.longest_pause_s > queue / rate]
    pause_s = max(run.longest_pause_s for run in runs)
    print_row(f"{rate / 1e6:.1f} Mtag/s for {seconds:g} s, queue {queue}",
              f"tags dropped in {len(dropped)} of {count} runs, in {len(paused)} of them beside a "
              f"probe that was paused for longer than the queue lasts (longest {1e3 * pause_s:.0f} ms)")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=8)
    parser.add_argument("--quick", action="store_true", help="as short as can be: figures mean nothing")
    parser.add_argument("--folder", default=".", help="where the files go and are removed again")
    parser.add_argument("program", metavar="PROGRAM")
    arguments = parser.parse_args()
    program = os.path.abspath(arguments.program)
    count, seconds = (1, 0.1) if arguments.quick else (arguments.runs, arguments.seconds)
    with tempfile.TemporaryDirectory(dir=arguments.folder) as folder:
        for layout in ("npy", "csv"):
            print(f"\ntags saved as .{layout}")
            where = (program, os.path.join(folder, f"tags.{layout}"), seconds, count)
            rate = at_most(*where)
            for queue in (DEFAULT_QUEUE_TAGS, LARGEST_QUEUE_TAGS):
                at(rate / 2, *where, queue)


if __name__ == "__main__":
    main()
