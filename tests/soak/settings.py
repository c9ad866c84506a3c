"""The program's own settings: what is typed, and what it must mean."""

import dataclasses
import math

FORMATS = {
    "raw64": ("raw64", "raw", "RAW64"),
    "delta32": ("delta32", "delta", "Delta32"),
    "packed_delta": ("packed", "packed_delta", "packed-delta", "PACKED"),
}
WIDEST_WINDOW_PS = (1 << 63) - 1
# More pairs than this take seconds to count one by one.
MOST_PAIRS = 1e7


@dataclasses.dataclass
class Settings:
    port: str = "ftdi://"
    format: str = "packed_delta"
    mode: str = "internal"
    capture_s: float = 0.5
    cal_freq_hz: float = 10000.0
    channel_mask: int = 0x0C
    channel_a: int = 0
    channel_b: int = 1
    window_ps: int = 1000
    bin_s: float = 0.1
    queue_limit: int = 131072
    dead_time_ps: int = -1
    load_calibration: bool = True
    tdl_mask: int = 0x07
    byte_probe: bool = False

    @property
    def least_bytes_per_tag(self):
        """A packed_delta record has four bits at the least."""
        return {"raw64": 8, "delta32": 4, "packed_delta": 0.5}[self.format]


class Typed:
    """Settings that grow together with the arguments that ask for them."""

    def __init__(self, draw):
        self.draw = draw
        self.settings = Settings()
        self.arguments = []

    def add(self, key, text, **meaning):
        spelled = "".join(self.draw.pick(c, c.upper()) for c in key) if self.draw.chance(0.1) else key
        dashes = "--" if self.draw.chance(0.1) else ""
        self.arguments.append(f"{dashes}{spelled}={text}")
        self.settings = dataclasses.replace(self.settings, **meaning)

    def finish(self):
        """Any order means the same, and what is no setting means nothing."""
        noise = ("unknown=1", "verbose", "-capture_s=9", "=5", "capture_s", "port", "--", "")
        self.arguments += self.draw.some(noise, 2) if self.draw.chance(0.1) else []
        self.draw.shuffle(self.arguments)
        return self.settings, self.arguments


def draw_stream(draw, typed, capture_s):
    form = draw.pick(*FORMATS)
    typed.add("format", draw.pick(*FORMATS[form]), format=form)
    mode = draw.pick("internal", "external", "external")
    typed.add("mode", draw.pick(mode, mode.upper(), mode[:3] if mode == "external" else "other"),
              mode=mode)
    mask = draw.pick(0x0F, 0x0F, 0x03, 0x0C, draw.randint(0, 15))
    typed.add("channel_mask", draw.pick(f"0x{mask:02x}", f"0X{mask + 0x10:X}", str(mask)),
              channel_mask=mask)
    enabled = [channel for channel in range(4) if mask >> channel & 1]
    pair = draw.sample(enabled if len(enabled) > 1 and draw.chance(0.9) else range(4), 2)
    typed.add("channel_a", pair[0], channel_a=pair[0])
    typed.add("channel_b", pair[1], channel_b=pair[1])
    typed.add("capture_s", f"{capture_s:.4g}" + draw.pick("", "", "s"), capture_s=capture_s)


def draw_analysis(draw, typed, tags_per_channel):
    window = draw.pick(-5, 0, 1, 7, 8, 500, 3333, 5000, 100_000, 10**6, 10**7,
                       draw.randint(1, 10**9), 10**9, 5 * 10**9, WIDEST_WINDOW_PS)
    # As if every tag met every other one; only wide windows come close to that.
    if window > 10**6 and tags_per_channel**2 > MOST_PAIRS:
        window = 10_000
    if window > 10_000 and tags_per_channel**2 * window * 1e-12 > MOST_PAIRS:
        window = 10_000
    typed.add("coincidence_window_ps", window, window_ps=window)
    bin_s = draw.pick(0.1, 0.01, 0.001, 0.0, -1.0, 1e-9, 1e6, 1e7, 1e300, math.nan, math.inf)
    typed.add("bin_s", repr(bin_s), bin_s=bin_s)


def draw_inputs(draw, typed):
    if draw.chance(0.3):
        typed.add("threshold_v", draw.pick("0", "0.5", "1", "2.4", "4", "9", "-1", "nan", "inf"))
    if draw.chance(0.3):
        refused = draw.pick(10**12, (1 << 63) - 1)
        dead_time = draw.pick(-5, 0, 1, 3333, 10**6, 10**9, draw.pick(10**9, refused))
        typed.add("dead_time_ps", dead_time, dead_time_ps=dead_time)
    elif draw.chance(0.1):
        dead_time_ns = draw.pick(-1, 0, 1.5, 1000)
        typed.add("dead_time_ns", dead_time_ns, dead_time_ps=round(dead_time_ns * 1000))
    if draw.chance(0.3):
        mask = draw.randint(0, 0x1F)
        typed.add("tdl_mask", draw.pick(str(mask), f"0x{mask + 0xE0:x}"), tdl_mask=mask)
    if draw.chance(0.3):
        refused = draw.pick(0.0, -5.0, 1e12, math.nan)
        frequency = draw.pick(1.0, 1000.0, 100_000.0, 1e6, draw.log_uniform(1, 1e6),
                              draw.pick(1e5, refused))
        typed.add("cal_freq_hz", repr(frequency), cal_freq_hz=frequency)
    if draw.chance(0.3):
        load = draw.chance(0.5)
        typed.add("load_calibration", draw.pick("1", "yes", "") if load else draw.pick("0", "OFF"),
                  load_calibration=load)
    if draw.chance(0.3):
        typed.add(draw.pick("ref", "reference", "reference_clock"),
                  draw.pick("internal", "external", "ext", "auto", "none", "off", "unchanged", "x"))
    if draw.chance(0.2):
        typed.add(draw.pick("ref_signal", "reference_signal"), draw.pick("1pps", "10mhz", "x"))
    if draw.chance(0.3):
        typed.add("packed_bits", draw.pick(*range(4, 25), 0, 1, 31, 32, 256, 300, -1))
    if draw.chance(0.3):
        typed.add("packed_quantum_ps", draw.pick(1, 2, 4, 8, 16, 1024, 0, 3, 100, 65535, 65536))


def draw_queue(draw, typed):
    if draw.chance(0.3):
        limit = draw.pick(0, 1, 1024, 4096, 10**6, (1 << 64) - 1)
        typed.add("queue_limit", limit, queue_limit=limit)


def draw_settings(draw, typed, capture_s, tags_per_s, at_any_pace=False):
    """`tags_per_s`: of a channel in external mode, roughly and at the most."""
    draw_stream(draw, typed, capture_s)
    draw_inputs(draw, typed)
    if typed.settings.mode == "internal" and not at_any_pace:
        tags_per_s = max(typed.settings.cal_freq_hz, 1)
    draw_analysis(draw, typed, tags_per_s * min(max(capture_s, 0), 1))
    draw_queue(draw, typed)
    if draw.chance(0.15):
        typed.add(draw.pick("byte_probe", "bytes"), draw.pick("1", "on", "Yes"), byte_probe=True)


# Arguments that end the run before the library is called, and what it says.
BAD_ARGUMENTS = (
    ("format=raw32", "format must be raw64, delta32, or packed_delta"),
    ("format=", "format must be raw64, delta32, or packed_delta"),
    ("transport=async", "usb_async streaming is no longer supported"),
    ("transport=uart", "this GUI-live smoke test is intended for USB FIFO modes"),
    ("channel_a=4", "channel_a/channel_b must be distinct and in 0..3"),
    ("channel_b=-1", "channel_a/channel_b must be distinct and in 0..3"),
    ("channel_b=0", "channel_a/channel_b must be distinct and in 0..3"),
    ("channel_a=", "stoi"),
    ("channel_a=99999999999", "stoi"),
    ("capture_s=soon", "stod"),
    ("bin_s=1e999", "stod"),
    ("coincidence_window_ps=9223372036854775808", "stoll"),
    ("queue_limit=many", "stoull"),
    ("packed_bits=-", "stoul"),
    ("channel_mask=x", "stoul"),
    ("dead_time_ns=", "stod"),
)
