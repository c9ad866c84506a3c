"""Runs the smoke test again and again under whatever may happen to it, and checks
every run. Each run follows from its seed alone.

usage: scripts/soak SECONDS [--seed N] [--runs N] [--faults]
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import os
import pathlib
import shlex
import sys
import tempfile
import time

from judge import judge
from run import Build, run_step
from scenario import draw_scenario


@dataclasses.dataclass
class Outcome:
    seed: int
    statuses: list
    complaints: list  # of lines


def described(step, result):
    """What to look at when a run has gone wrong."""
    lines = [shlex.join(["zelk_smoke_test", *step.arguments])]
    odd = {name: value for name, value in vars(step).items()
           if value and name in ("library", "environment", "closed", "output", "hold_output_s",
                                 "hold_error_s", "terminal", "memory_bytes", "signals")}
    if step.file_bytes is not None:
        odd["file_bytes"] = step.file_bytes
    lines.append(f"{odd}")
    lines.append(f"status {result.status} after {result.seconds:.2f} s")
    lines.append(f"standard error: {result.error[-2000:]!r}")
    return lines


def run_scenario(seed, faults, build):
    scenario = draw_scenario(seed, faults)
    with tempfile.TemporaryDirectory(prefix="zelk-soak-") as directory:
        results = [run_step(step, build, directory) for step in scenario.steps]
    complaints = []
    for step, result, verdict in zip(scenario.steps, results, judge(scenario, results)):
        if verdict.complaints:
            complaints += verdict.complaints + ["  " + line for line in described(step, result)]
    return Outcome(seed, [result.status for result in results], complaints)


class Soak:
    def __init__(self, options):
        self.options = options
        self.build = Build(pathlib.Path(options.build).resolve(), options.sanitized)
        self.statuses = collections.Counter()
        self.runs = 0
        self.failures = 0
        self.started = time.monotonic()

    @property
    def seconds(self):
        return time.monotonic() - self.started

    def seeds(self):
        """Until the runs or the seconds are over."""
        seed = self.options.seed
        last = seed + self.options.runs if self.options.runs else None
        while seed != last and not (self.options.seconds and self.seconds > self.options.seconds):
            yield seed
            seed += 1

    def count(self, outcome):
        self.runs += 1
        self.statuses.update(outcome.statuses)
        if outcome.complaints:
            self.failures += 1
            faults = " --faults" if self.options.faults else ""
            preset = self.build.directory.name
            script = f"SOAK_PRESET={preset} scripts/soak" if self.build.sanitized else "scripts/soak"
            print(f"FAILED  {script} --seed {outcome.seed} --runs 1{faults}")
            for line in outcome.complaints:
                print("  " + line)
            sys.stdout.flush()

    def run(self):
        """As many runs at a time as there are processors, and no more waiting."""
        jobs = self.options.jobs
        with concurrent.futures.ProcessPoolExecutor(jobs) as pool:
            waiting = set()
            for seed in self.seeds():
                waiting.add(pool.submit(run_scenario, seed, self.options.faults, self.build))
                while len(waiting) >= 2 * jobs:
                    done, waiting = concurrent.futures.wait(
                        waiting, return_when=concurrent.futures.FIRST_COMPLETED)
                    for future in done:
                        self.count(future.result())
            for future in concurrent.futures.as_completed(waiting):
                self.count(future.result())

    def summary(self):
        def name(status):
            return f"signal {-status}" if status < 0 else f"status {status}"

        statuses = ", ".join(f"{name(s)}: {n}" for s, n in sorted(self.statuses.items()))
        return (f"soak: {self.runs} runs from seed {self.options.seed} in {self.seconds:.0f} s"
                f"; {statuses}; {self.failures} failed")


def parse_options():
    parser = argparse.ArgumentParser(prog="scripts/soak", description=__doc__.split("\n\n")[0])
    parser.add_argument("seconds", type=float, nargs="?", help="begin no run after that time")
    parser.add_argument("--seed", type=int, default=time.time_ns() // 10**6 % 10**9,
                        help="of the first run; the next ones follow (default: by the clock)")
    parser.add_argument("--runs", type=int, help="number of runs")
    parser.add_argument("--faults", action="store_true",
                        help="short runs only, each with faults of the device library")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="runs at a time")
    parser.add_argument("--build", default="build/release", help="directory of the build")
    parser.add_argument("--sanitized", action="store_true", help="it has sanitizers")
    options = parser.parse_args()
    if not options.seconds and not options.runs:
        parser.error("SECONDS or --runs is needed")
    return options


def main():
    soak = Soak(parse_options())
    soak.run()
    print(soak.summary())
    return 1 if soak.failures else 0


if __name__ == "__main__":
    sys.exit(main())
