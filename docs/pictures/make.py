#!/usr/bin/python3
"""Makes the pictures of docs/reading-the-pictures.md anew, beside this script.

    docs/pictures/make.py [build/release]

Needs the built program, numpy, plotly and chromium, and the measured arrival times in
ZELK_MEASURED_TAGS; without them the pictures of these stay as they are. Every picture is
a part of the page that tools/zelk_plot makes.
"""

import io
import json
import os
import pathlib
import subprocess
import sys
import tempfile

import numpy as np
from PIL import Image

HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parents[1]
sys.dont_write_bytecode = True
sys.path.insert(0, str(TOP / "tests" / "pictures"))

from browser import Browser  # noqa: E402

COLOURS = 64  # of a picture: it has few, and so its file stays small
WIDTH = 1000  # of the page, in pixels
DOCUMENTED_HOST = {"host": "lab", "device_library": "/usr/lib/libzelk_timing.so.0"}

PAIRS = ["mode=external", "channel_mask=0x03", "format=raw64"]
# What is run, by name: arguments of the program.
RUNS = {
    "default": ["channel_a=2", "channel_b=3"],
    "pairs": ["port=sim://pairs?background_hz=200000", "capture_s=2", *PAIRS],
    "uneven": ["port=sim://pairs?background_hz=200000&bin_nonuniformity_percent=60"
               "&afterpulse_percent=5&detector_dead_time_ps=20000", "capture_s=2", *PAIRS],
    "silent": ["port=sim://pairs?silent_at_s=0.3", "capture_s=1", *PAIRS],
    "empty": ["port=sim://silent", "capture_s=0.5", *PAIRS],
    "delayed": ["port=sim://pairs?pair_delay_ps=12000&background_hz=20000", "capture_s=1", *PAIRS],
    "slipped": ["port=sim://tags?file=slipped.csv&pace=max", "stop_tags=19998",
                "coincidence_window_ps=4000", "capture_s=10", *PAIRS],
    "measured": ["port=sim://tags?file=measured.csv&pace=max", "stop_tags=384019",
                 "capture_s=10", *PAIRS],
}
# Which part of the page of which run: a section, the top, or all of it.
PICTURES = (
    ("default", "top"), ("empty", "all"), ("silent", "top"),
    ("pairs", "rates"), ("silent", "rates"),
    ("pairs", "correlation"), ("slipped", "correlation"), ("measured", "correlation"),
    ("pairs", "wide"), ("delayed", "wide"), ("measured", "wide"),
    ("pairs", "intervals"), ("uneven", "intervals"),
    ("pairs", "density"), ("uneven", "density"), ("default", "density"),
    ("pairs", "nonlinearity"), ("uneven", "nonlinearity"),
    ("default", "timing"), ("slipped", "timing"),
)


def write_slipped_pulses(path):
    """Pulses of 10 kHz on two channels; in the middle channel 1 loses a clock period."""
    draw = np.random.default_rng(1)
    times_ps = np.arange(1, 10_000) * 99_999_999
    pulses = [times_ps + 1000 + np.rint(draw.normal(0, 5, len(times_ps))).astype(np.int64)
              for _ in range(2)]
    pulses[1][len(times_ps) // 2:] -= 3333
    rows = sorted((int(time_ps), channel) for channel in range(2) for time_ps in pulses[channel])
    path.write_text("channel,timestamp_ps\n"
                    + "".join(f"{channel},{time_ps}\n" for time_ps, channel in rows))


def run(name, program, directory):
    """The page of the run."""
    arguments = [*RUNS[name], f"save_tags={name}.npy", f"json={name}.json"]
    subprocess.run([program, *arguments], cwd=directory, stdout=subprocess.DEVNULL, check=False)
    # This machine's own names are of no interest.
    document = json.loads((directory / f"{name}.json").read_text())
    (directory / f"{name}.json").write_text(json.dumps(document | DOCUMENTED_HOST))
    subprocess.run([TOP / "tools" / "zelk_plot", f"{name}.npy", f"{name}.json"], cwd=directory,
                   check=True)
    return directory / f"{name}.html"


def box_of(browser, part):
    """x, y, width and height of a part of the page."""
    height = browser.value("document.documentElement.scrollHeight")
    if part == "all":
        return 0, 0, WIDTH, height
    if part == "top":
        end = browser.value("document.getElementById('rates').getBoundingClientRect().top "
                            "+ window.scrollY")
        return 0, 0, WIDTH, end - 10
    x, y, width, height = browser.value(
        f"(b => [b.x, b.y + window.scrollY, b.width, b.height])"
        f"(document.getElementById('{part}').getBoundingClientRect())")
    return max(0, x - 10), y, width + 20, height + 10


def take(browser, name, part, scratch):
    browser.picture(scratch, box_of(browser, part))
    picture = Image.open(io.BytesIO(scratch.read_bytes())).convert("RGB")
    picture.quantize(COLOURS, dither=Image.Dither.NONE).save(HERE / f"{name}-{part}.png",
                                                             optimize=True)


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else TOP / "build" / "release").resolve()
    names = [name for name in RUNS if name != "measured" or os.environ.get("ZELK_MEASURED_TAGS")]
    with tempfile.TemporaryDirectory() as scratch, Browser(WIDTH, 900) as browser:
        directory = pathlib.Path(scratch)
        write_slipped_pulses(directory / "slipped.csv")
        if "measured" in names:
            (directory / "measured.csv").symlink_to(os.environ["ZELK_MEASURED_TAGS"])
        for name in names:
            browser.open(run(name, build / "bin" / "zelk_smoke_test", directory))
            browser.wait_for("document.documentElement.dataset.drawn !== undefined")
            for of_run, part in PICTURES:
                if of_run == name:
                    take(browser, name, part, directory / "picture.png")


if __name__ == "__main__":
    main()
