#!/usr/bin/env python3
"""Runs benchmark programs several times and prints one table.

Each row is a figure of ours beside a yardstick that was measured in the same
process: `ratio` says how the two compare, as the head of each program explains.

usage: table.py [--repetitions N] [--quick] PROGRAM...
"""

import argparse
import collections
import json
import os
import statistics
import subprocess
import sys


def run(program, repetitions, quick):
    command = [
        program,
        "--benchmark_format=json",
        f"--benchmark_repetitions={repetitions}",
        "--benchmark_enable_random_interleaving=true",
    ]
    if quick:
        command.append("--benchmark_min_time=0.001")
    done = subprocess.run(command, stdout=subprocess.PIPE, check=True)
    rows = collections.defaultdict(list)
    for row in json.loads(done.stdout)["benchmarks"]:
        if row.get("error_occurred"):
            sys.exit(f"{os.path.basename(program)}: {row['name']}: {row['error_message']}")
        if row["run_type"] == "iteration":
            rows[row["run_name"]].append(row)
    return rows


def spread(values, digits):
    middle = statistics.median(values)
    return f"{middle:.{digits}f} ({min(values):.{digits}f} to {max(values):.{digits}f})"


def print_table(program, rows):
    width = max(len(name) for name in rows)
    print(f"\n{os.path.basename(program)}")
    print(f"  {'':{width}}  {'ratio':>26}  time")
    for name, runs in rows.items():
        ratios = [row["ratio"] for row in runs if "ratio" in row]
        times = [row["real_time"] for row in runs]
        ratio = spread(ratios, 2) if ratios else ""
        print(f"  {name:{width}}  {ratio:>26}  {spread(times, 3)} {runs[0]['time_unit']}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="as short as can be: figures mean nothing")
    parser.add_argument("programs", nargs="+", metavar="PROGRAM")
    arguments = parser.parse_args()
    for program in arguments.programs:
        print_table(program, run(program, arguments.repetitions, arguments.quick))
        sys.stdout.flush()


if __name__ == "__main__":
    main()
