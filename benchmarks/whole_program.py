#!/usr/bin/env python3
"""Runs the smoke test on units whose bytes are prepared, and prints one table.

Reading from such a unit costs a copy, so what is seen is the program: whether it
keeps up with the link, what it can consume at most, and what it needs.

usage: whole_program.py [--runs N] [--quick] PROGRAM
"""

import argparse
import mmap
import os
import statistics
import subprocess
import sys
import threading
import time

# Bytes that the tags of a channel take when they come soon after each other.
TAG_BYTES = {"raw64": 8, "delta32": 4, "packed_delta": 19 / 8}
MOST_PREPARED_BYTES = 1_000_000_000
DEFAULT_QUEUE_TAGS = 131072
MIB = 1 << 20


class Run:
    """One run of the program: its report, its time and its memory."""

    def __init__(self, program, *settings):
        start = time.monotonic()
        process = subprocess.Popen([program, *settings], stdout=subprocess.PIPE)
        text = process.stdout.read().decode()
        _, self.status, usage = os.wait4(process.pid, 0)
        self.wall_s = time.monotonic() - start
        self.processor_s = usage.ru_utime + usage.ru_stime
        self.memory_bytes = usage.ru_maxrss * 1024
        pairs = (line.split("=", 1) for line in text.splitlines() if "=" in line)
        self.report = {key: value for key, value in pairs if value.isdigit()}
        if "tags_total" not in self.report:
            sys.exit(f"no report from: {' '.join(settings)}")

    def __getitem__(self, key):
        return int(self.report[key])


class PauseProbe:
    """Sleeps 1 ms again and again, and keeps the longest time that it was kept waiting.

    What stops the probe on an otherwise idle machine stops the program, too.
    """

    def __enter__(self):
        self.longest_s = 0
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._watch)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()

    def _watch(self):
        last = time.monotonic()
        while not self._ended.is_set():
            time.sleep(0.001)
            now = time.monotonic()
            self.longest_s = max(self.longest_s, now - last)
            last = now


def burst(form, prepared_s, rate, **more):
    keys = {"pause_us": 0, "prepared_s": prepared_s, **more}
    if rate:
        keys["link_bytes_per_s"] = round(rate)
    port = "sim://burst?" + "&".join(f"{key}={value}" for key, value in keys.items())
    return [f"port={port}", f"format={form}", "mode=external", "channel_mask=0x0f"]


def print_row(name, text):
    print(f"  {name:52}  {text}")
    sys.stdout.flush()


def dropped_nothing(runs):
    good = sum(run["reader_dropped"] == 0 for run in runs)
    worst = max(run["reader_dropped"] / max(run["tags_total"], 1) for run in runs)
    text = f"no tag dropped in {good} of {len(runs)} runs"
    return text if good == len(runs) else text + f", {100 * worst:.2f} % in the worst"


def print_default_queue_row(name, program, settings, count, tags_per_s):
    """A run that drops says something only where the machine stood still for less than the queue lasts."""
    runs, paused, longest_s = [], 0, 0
    for _ in range(count):
        with PauseProbe() as probe:
            run = Run(program, *settings)
        longest_s = max(longest_s, probe.longest_s)
        if probe.longest_s > DEFAULT_QUEUE_TAGS / tags_per_s and run["reader_dropped"]:
            paused += 1
        else:
            runs.append(run)
    text = dropped_nothing(runs) if runs else "no run counts"
    if paused:
        text += f", not counting {paused} beside a probe that was paused for longer than the queue lasts"
    print_row(name, f"{text} (longest pause {1e3 * longest_s:.0f} ms)")


def steady_rates(program, count, capture_s):
    for mtags in (10, 20):
        for form, size in TAG_BYTES.items():
            rate = mtags * 1e6 * size
            length_s = min(capture_s, MOST_PREPARED_BYTES / rate)
            settings = burst(form, length_s, rate) + [f"capture_s={length_s}"]
            name = f"{form}, {mtags} Mtag/s for {length_s:.1f} s"
            print_default_queue_row(name, program, settings, count, mtags * 1e6)


def full_link(program, count, length_s):
    for form, rate in (("raw64", 4e8), ("delta32", 4e8), ("packed_delta", 2.8e8), ("packed_delta", 4e8)):
        settings = burst(form, length_s, rate)
        settings += [f"capture_s={2 * length_s}", "queue_limit=8388608"]
        runs = [Run(program, *settings) for _ in range(count)]
        totals = sorted({run["tags_total"] for run in runs})
        rate_text = f"{totals[0] / length_s / 1e6:.0f} Mtag/s counted, the same in every run"
        if len(totals) > 1:
            rate_text = f"{totals[0] / length_s / 1e6:.0f} to {totals[-1] / length_s / 1e6:.0f} Mtag/s counted"
        print_row(f"{form}, {rate / 1e6:.0f} MB/s for {length_s} s", f"{dropped_nothing(runs)}; {rate_text}")


def as_fast_as_it_gives(program, count, prepared_bytes, capture_s):
    for form in TAG_BYTES:
        length_s = prepared_bytes / 4e8
        settings = burst(form, length_s, 4e8, pace="max")
        settings += [f"capture_s={capture_s}", "queue_limit=8388608"]
        rates = [Run(program, *settings)["tags_total"] / capture_s / 1e6 for _ in range(count)]
        print_row(
            f"{form}, as fast as the unit gives",
            f"{statistics.median(rates):.0f} Mtag/s consumed ({min(rates):.0f} to {max(rates):.0f})",
        )


def default_link(program, count):
    for form, size in TAG_BYTES.items():
        settings = ["port=sim://burst?pause_us=0", f"format={form}", "mode=external"]
        settings += ["channel_mask=0x0f", "capture_s=3"]
        name = f"{form}, a unit made on the way, 40 MB/s"
        print_default_queue_row(name, program, settings, count, 40e6 / size)


def end_of_capture(program, count, tags):
    """What a run takes beside its capture, less the same of a capture that is over at once."""
    length_s = tags / 5e7
    settings = burst("raw64", length_s, 4e8) + ["channel_mask=0x03", "queue_limit=8388608"]
    times_s = []
    for _ in range(count):
        capture_s = length_s + 0.2
        before_s = Run(program, *settings, "capture_s=0.001").wall_s
        full = Run(program, *settings, f"capture_s={capture_s}")
        times_s.append(full.wall_s - capture_s - before_s)
    text = f"{statistics.median(times_s):.2f} s ({min(times_s):.2f} to {max(times_s):.2f})"
    print_row(f"from the end of the capture to exit, {full['tags_total'] / 1e6:.0f} Mtag", text)


def fresh_memory(mib):
    """The rate at which the system gives memory, the bound of every list that grows."""
    piece = bytes(MIB)
    with mmap.mmap(-1, mib * MIB) as memory:
        start = time.monotonic()
        for _ in range(mib):
            memory.write(piece)
        rate = mib * MIB / (time.monotonic() - start)
    print_row("fresh memory, written once", f"{rate / 1e9:.1f} GB/s, {rate / 8e6:.0f} million times")


def idle(program, count, capture_s):
    shares = []
    for _ in range(count):
        run = Run(program, "port=sim://silent", "mode=external", f"capture_s={capture_s}")
        shares.append(100 * run.processor_s / run.wall_s)
    print_row("idle capture", f"{statistics.median(shares):.1f} % of a core")


def memory(program, length_s):
    settings = burst("raw64", length_s, 4e8) + ["queue_limit=8388608"]
    empty = Run(program, *settings, "capture_s=0.001")
    full = Run(program, *settings, f"capture_s={2 * length_s}")
    beside = full.memory_bytes - empty.memory_bytes - 8 * full["tags_total"]
    print_row("memory beside 8 bytes per tag", f"{beside / MIB:.0f} MiB for {full['tags_total']} tags")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="as short as can be: figures mean nothing")
    parser.add_argument("program", metavar="PROGRAM")
    arguments = parser.parse_args()
    program = os.path.abspath(arguments.program)
    quick = arguments.quick
    count = 1 if quick else arguments.runs
    fresh_mib = 16 if quick else 512
    print("\nthe whole program, on a unit whose bytes are prepared")
    steady_rates(program, count, 0.05 if quick else 10)
    fresh_memory(fresh_mib)
    full_link(program, count, 0.05 if quick else 2)
    fresh_memory(fresh_mib)
    as_fast_as_it_gives(program, count, MIB if quick else MOST_PREPARED_BYTES, 0.05 if quick else 0.8)
    end_of_capture(program, count, 1e6 if quick else 84e6)
    if not quick:
        default_link(program, count)
    idle(program, count, 0.05 if quick else 10)
    memory(program, 0.05 if quick else 2)


if __name__ == "__main__":
    main()
