"""Port strings of the simulated unit: signals, links and faults."""

import dataclasses
import urllib.parse

FULL_LINK_TAGS_PER_S = 5e6
# Events that the unit makes when nothing but the host holds it back.
FASTEST_TAGS_PER_S = 2e7

CALLS = (
    "identify", "load_calibration", "get_reference_clock_status", "set_reference_clock",
    "set_tdl_active_masks", "get_tdl_active_masks", "set_dac_codes", "set_input_dead_time",
    "set_packed_delta_config", "set_stream_interface", "set_stream_channel_mask",
    "set_calibration_freq", "enable_calibration_source", "disable_calibration_source",
    "start_stream_mode", "stop_stream_mode", "read_stream_bytes",
)  # fmt: skip
# Those that every run makes, whatever its settings are.
SURE_CALLS = ("identify", "set_tdl_active_masks", "get_tdl_active_masks", "set_stream_interface",
              "set_stream_channel_mask", "start_stream_mode", "stop_stream_mode",
              "read_stream_bytes")  # fmt: skip
STATUSES = (-1, -2, -3, -4, -7, -10, -41, -321, 1, 99, 2147483647, -2147483648)


@dataclasses.dataclass
class Port:
    base: str
    keys: list
    tags_per_s: float = 0  # of a channel, roughly and at the most
    faults: list = dataclasses.field(default_factory=list)
    damaged: bool = False
    may_hang: bool = False
    files: dict = dataclasses.field(default_factory=dict)

    @property
    def text(self):
        keys = self.keys + self.faults
        return self.base + ("?" + "&".join(keys) if keys else "")


def encoded(text):
    return urllib.parse.quote(text, safe="")


def per_channel(draw, make):
    return make() if draw.chance(0.6) else ",".join(make() for _ in range(4))


def tag_file(draw):
    """In time order most of the time, and well formed most of the time."""
    lines, time_ps = ["channel,timestamp_ps"], 0
    for _ in range(draw.randint(0, 400)):
        time_ps += int(draw.log_uniform(1, 1e8))
        lines.append(f"{draw.randint(0, 3)},{time_ps}")
    if draw.chance(0.1):
        lines.insert(draw.randint(0, len(lines)), draw.pick("4,5", "0,-1", "x", "", "0,0", "1;2"))
    return (draw.pick("\n", "\r\n").join(lines) + draw.pick("\n", "")).encode()


def draw_signal(draw):
    """A port with the keys of its own signal."""
    kind = draw.pick("ftdi", "ftdi", "pulses", "random", "pairs", "pairs", "burst", "tags", "silent")
    if kind == "ftdi":
        return Port(draw.pick("ftdi://", "ftdi://ZK4-0001"), [], 5e4)
    port = Port(f"sim://{kind}", [])
    if kind == "pulses":
        frequency = draw.log_uniform(1, 2e6)
        port.keys = [f"frequency_hz={frequency:.4g}",
                     "delay_ps=" + per_channel(draw, lambda: str(draw.randint(0, 10**6)))]
        port.tags_per_s = frequency
    elif kind == "random":
        port.keys = ["rate_hz=" + per_channel(draw, lambda: draw.number(1, 1e6))]
        port.tags_per_s = 1e6
    elif kind == "pairs":
        rate = draw.log_uniform(10, 1e6)
        port.keys = [f"pair_rate_hz={rate:.4g}", f"pair_delay_ps={draw.randint(-10**5, 10**5)}",
                     f"channel_a={draw.randint(0, 3)}", f"channel_b={draw.randint(0, 3)}",
                     f"jitter_ps={draw.randint(0, 1000)}"]
        port.tags_per_s = 2 * rate
    elif kind == "burst":
        port.keys = [f"burst_us={draw.randint(1, 5000)}", f"pause_us={draw.randint(0, 20000)}"]
        port.tags_per_s = FULL_LINK_TAGS_PER_S
    elif kind == "tags":
        port.files["tags.csv"] = tag_file(draw)
        port.keys = [f"loop={draw.randint(0, 1)}",
                     f"loop_gap_ps={int(draw.log_uniform(1e6, 1e12))}"]
        port.tags_per_s = 1e6
    if kind != "tags":
        port.keys = draw.some(port.keys, len(port.keys))
        return port
    port.keys = ["file=tags.csv"] + draw.some(port.keys, 2)
    return port


def add_unit_keys(draw, port):
    """Keys of every unit: detectors, clock, delay lines and link."""
    keys = {
        "seed": lambda: str(draw.getrandbits(32)),
        "background_hz": lambda: per_channel(draw, lambda: draw.number(1, 1e5)),
        "amplitude_v": lambda: per_channel(draw, lambda: draw.pick("2.5", "0", "1", "10")),
        "efficiency": lambda: per_channel(draw, lambda: draw.pick("1", "0.5", "0.01", "0")),
        "detector_dead_time_ps": lambda: draw.number(1, 1e8),
        "afterpulse_percent": lambda: draw.pick("5", "50", "0.1"),
        "afterpulse_tau_ps": lambda: draw.number(1, 1e9),
        "drift_ppm": lambda: draw.pick("-1000", "1000", "0.5", "-3"),
        "start_epoch": lambda: draw.pick("1", "5", "10", "14315", "0.01"),
        "bin_nonuniformity_percent": lambda: draw.pick("1", "60", "100"),
        "fifo_bytes": lambda: draw.pick("512", "4096", "16777216"),
        "link_bytes_per_s": lambda: draw.pick("1000", "100000", "400000000"),
        "host_buffer_bytes": lambda: draw.pick("4096", "65536"),
        "short_reads": lambda: "1",
        "start_bits": lambda: draw.pick("1", "7", "33", "100000"),
    }
    for key in draw.some(keys, 4):
        port.keys.append(f"{key}={keys[key]()}")
        port.tags_per_s += {"background_hz": 1e5}.get(key, 0)
        if key == "link_bytes_per_s" and "burst" in port.base:
            port.tags_per_s *= 10
    if draw.chance(0.25):
        port.keys.append("pace=max")
        port.tags_per_s = FASTEST_TAGS_PER_S
    if draw.chance(0.1):
        port.keys.append("prepared_s=" + draw.number(1e-4, 0.05))
        port.tags_per_s = max(port.tags_per_s, FASTEST_TAGS_PER_S)


def failing_call(draw, capture_s):
    call = draw.pick(*CALLS, *SURE_CALLS, "read_stream_bytes", "open")
    item = call
    if call != "open":
        item += draw.pick("", "", "#1", f"#{draw.randint(1, 20)}",
                          f"@{draw.uniform(0, 1.2 * max(capture_s, 0)):.4g}")
    item += f":{draw.pick(*STATUSES)}"
    return item + (":" + encoded(draw.text()) if draw.chance(0.5) else "")


def add_faults(draw, port, capture_s, most):
    """At least one fault."""
    moment = lambda: f"{draw.pick(0, draw.uniform(0, 1.1)) * max(capture_s, 0):.4g}"
    probability = lambda: draw.pick(draw.number(1e-6, 1e-2), "0.5", "1")
    damage = ("flip_bits", "lose_bytes", "insert_bytes", "remove_bits", "insert_bits")
    events = ("remove_bit_at_s", "insert_bit_at_s", "zeros_at_s", "ones_at_s")
    kinds = draw.sample(("fail", "fail", "fail", "vanish", "silent", "empty", "damage", "event",
                         "reference"), draw.randint(1, most))  # fmt: skip
    for kind in dict.fromkeys(kinds):
        if kind == "fail":
            calls = (failing_call(draw, capture_s) for _ in range(draw.pick(1, 1, 2, 3)))
            port.faults.append("fail=" + ",".join(calls))
        elif kind == "vanish":
            port.faults.append("vanish_at_s=" + moment())
        elif kind in ("silent", "empty"):
            port.faults.append(f"{kind}_at_s=" + moment())
            if draw.chance(0.5):
                port.faults.append(f"{kind}_for_s=" + moment())
        elif kind == "damage":
            port.faults += [f"{key}={probability()}" for key in draw.sample(damage, draw.pick(1, 2))]
            port.damaged = True
        elif kind == "event":
            port.faults.append(f"{draw.pick(*events)}={moment()}")
            port.damaged = True
        else:
            port.faults.append(draw.pick("reference_unavailable=-7", "reference_unavailable=-3",
                                         "reference_lost_at_s=0", "external_reference=locked",
                                         "external_reference=unlocked"))  # fmt: skip


def add_hang(draw, port, capture_s):
    """It costs five seconds, after which the library is given up."""
    port.faults.append(f"hang_at_s={draw.uniform(0, 1.1) * max(capture_s, 0):.4g}")
    port.may_hang = True


def draw_port(draw):
    port = draw_signal(draw)
    add_unit_keys(draw, port)
    return port


# Ports that open nothing.
BAD_PORTS = (
    "nonsense", "sim://", "sim://unknown", "ftdi:/", "://", "?", "sim://pairs?&", "sim://pairs?=",
    "sim://pairs?bogus=1", "sim://pairs?seed=-1", "sim://pairs?seed=1&seed=2",
    "sim://pairs?jitter_ps=nan", "sim://pulses?rate_hz=5", "sim://tags", "sim://pairs?seed",
    "sim://tags?file=missing.csv", "sim://tags?file=.", "sim://tags?file=/dev/null",
    "replay://missing.rec", "replay://.", "replay:///dev/null", "replay://",
    "tap://x.rec?library=missing.so&port=ftdi://", "tap://x.rec?library=/dev/null&port=",
    "tap://x.rec", "sim://silent?fail=bogus:-1", "sim://silent?fail=open:0",
    "sim://silent?silent_for_s=1", "sim://silent?hang_at_s=-1", "sim://silent?flip_bits=2",
    "sim://silent?prepared_s=3601", "sim://silent?pace=slow", "sim://silent?seed=%",
)  # fmt: skip
