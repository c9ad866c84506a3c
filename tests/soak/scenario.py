"""What one run of the soak does: one or more runs of the program, and what is
known about them beforehand. Everything follows from the seed."""

import dataclasses
import math
import signal

import ports
from draw import Draw
from settings import BAD_ARGUMENTS, Settings, Typed, draw_settings

TAGS_NPY, TAGS_CSV, DOCUMENT = "kept.npy", "kept.csv", "kept.json"
SIMULATED, LOGGED, SCRIPTED = "simulated", "logged", "scripted"
FIFO = object()  # in the place of a file's bytes


@dataclasses.dataclass
class Step:
    """One run of the program."""

    arguments: list
    settings: Settings = None  # None: it prints no report of a device
    library: str = LOGGED
    environment: dict = dataclasses.field(default_factory=dict)
    files: dict = dataclasses.field(default_factory=dict)
    closed: tuple = ()
    output: str = "pipe"  # or "file", "closed_pipe", "full_device"
    hold_output_s: float = 0  # so long nobody reads
    hold_error_s: float = 0  # the same, and the pipe is full from the start
    terminal: bool = False  # standard error is one
    memory_bytes: int = None
    file_bytes: int = None  # the most that a file may have
    signals: list = dataclasses.field(default_factory=list)  # of (delay in s, number)
    error: str = None  # what it must say, when that is known; it then has status 2
    must_fail: bool = False
    may_hang: bool = False
    damaged: bool = False
    slow_s: float = 0  # time that slow calls take in all

    @property
    def saves_tags(self):
        return any(argument.startswith("save_tags=") for argument in self.arguments)

    @property
    def writes_document(self):
        return any(argument.startswith("json=") for argument in self.arguments)

    @property
    def can_report(self):
        return 1 not in self.closed and self.output in ("pipe", "file")

    @property
    def shortest_s(self):
        """How long it takes on a machine with nothing else to do, at most."""
        capture_s = self.settings.capture_s if self.settings else 0
        capture_s = max(capture_s, 0) if capture_s < 1000 else 0
        last_signal_s = self.signals[-1][0] if self.signals else 0
        return capture_s + last_signal_s + self.hold_output_s + self.hold_error_s + self.slow_s

    @property
    def longest_s(self):
        """How long it may take on a machine that is busy with other things, too."""
        return 30 + self.shortest_s + (10 if self.may_hang else 0)


@dataclasses.dataclass
class Scenario:
    steps: list
    compare: str = None  # how the steps' reports are related
    tags: list = None  # (channel, time in ps) of all that is sent, when that is known


def draw_capture_s(draw, faults):
    if faults:
        return draw.log_uniform(0.01, 0.04)
    return draw.pick(draw.log_uniform(0.005, 0.3), draw.log_uniform(0.02, 0.1), 0.02, 0.1,
                     draw.pick(0.0, -1.0, math.nan, draw.uniform(0.5, 2.3)))


def unit_step(draw, port, capture_s, library=LOGGED):
    typed = Typed(draw)
    typed.add(draw.pick("port", "port", "control_port"), port.text, port=port.text)
    draw_settings(draw, typed, capture_s, port.tags_per_s,
                  at_any_pace=port.tags_per_s >= ports.FASTEST_TAGS_PER_S)
    settings, arguments = typed.finish()
    return Step(arguments, settings, library, files=dict(port.files), damaged=port.damaged,
                may_hang=port.may_hang)


def simulated(draw, faults):
    capture_s = draw_capture_s(draw, faults)
    port = ports.draw_port(draw)
    if faults or draw.chance(0.4):
        ports.add_faults(draw, port, capture_s, 3)
    if draw.chance(0.002 if faults else 0.004):
        ports.add_hang(draw, port, capture_s)
    return Scenario([unit_step(draw, port, capture_s)])


def first_found(draw, faults):
    """An empty port opens the first unit that discovery lists."""
    step = unit_step(draw, ports.Port("", [], 5e4), draw_capture_s(draw, faults))
    found = draw.pick("fail:-7", "fail:0", "empty", "null", "nonsense", "port:nonsense",
                      "port:" + ports.draw_signal(draw).text, "port:sim://pairs?fail=identify:-1")
    if faults or draw.chance(0.7):
        step.environment["ZELK_SIM_DISCOVERY"] = found
    if draw.chance(0.5):
        tables = b"TLUT" + draw.pick(1, 1, 2).to_bytes(4, "little")
        tables += draw.randbytes(draw.pick(0, 3, 4, 500))
        step.files["fine_lut.bin"] = draw.pick(tables, tables, draw.randbytes(40), FIFO)
    return Scenario([step])


def bad_start(draw, faults):
    """Arguments or ports that are refused, and odd files."""
    step = simulated(draw, faults).steps[0]
    kind = draw.pick("argument", "argument", "port", "fifo")
    if kind == "argument":
        argument, step.error = draw.pick(*BAD_ARGUMENTS)
        step.arguments = [argument]
    elif kind == "port":
        step.arguments.append("port=" + draw.pick(*ports.BAD_PORTS))
    else:
        step.arguments.append("port=" + draw.pick("sim://tags?file=odd", "replay://odd"))
        step.files["odd"] = FIFO
    step.must_fail = True
    step.may_hang = False
    return Scenario([step])


def starved(draw, faults):
    """More tags than there is memory for, or a thread or a stream that needs too much."""
    del faults
    port = ports.Port("sim://burst", ["pause_us=0"], ports.FASTEST_TAGS_PER_S)
    port.keys.append(draw.pick("pace=max", "pace=max", "prepared_s=0.5&pace=max"))
    step = unit_step(draw, port, draw.log_uniform(0.02, 1), SIMULATED)
    step.memory_bytes = int(draw.log_uniform(12e6, 200e6))
    return Scenario([step])


def information(draw, faults):
    del faults
    return Scenario([Step([draw.pick("--help", "-h", "--version"), "format=nonsense"])])


def scripted_text(draw):
    return draw.text().replace("\n", "\t")


def raw64_record(channel, time_ps):
    return (channel << 61 | time_ps).to_bytes(8, "big")


def scripted(draw, faults):
    """Any library at all: any status, any text, any bytes."""
    capture_s = draw_capture_s(draw, faults)
    calls = [f"qx_{call}" for call in ports.CALLS[:-1]] + ["qx_open_serial"]
    lines = [f"status {call} {draw.pick(0, *ports.STATUSES)} {draw.pick(0, *ports.STATUSES)}"
             for call in draw.some(calls, 2)]
    lines += [f"status_text {status} {scripted_text(draw)}"
              for status in draw.some(ports.STATUSES, 4)]
    lines += [f"last_error {scripted_text(draw)}"] if draw.chance(0.7) else []
    lines += ["reference_clock " + " ".join(str(draw.getrandbits(31)) for _ in range(9))]
    for _ in range(draw.randint(0, 12)):
        records = b"".join(raw64_record(draw.randint(0, 3), draw.getrandbits(44))
                           for _ in range(draw.randint(0, 60)))
        content = draw.pick(records, draw.randbytes(draw.randint(0, 2000)), b"")
        status = draw.pick(0, 0, 0, 0, -3, draw.pick(0, *ports.STATUSES))
        lines.append(f"read status={status} delay_ms={draw.randint(0, 8)} bytes={content.hex()}")
    lines.append(draw.pick("forever status=-3 delay_ms=-1 bytes=",
                           f"forever status={draw.pick(*ports.STATUSES)} delay_ms=2 bytes=",
                           f"forever status=0 delay_ms=1 bytes={draw.randbytes(800).hex()}",
                           "forever status=0 delay_ms=1 bytes="))
    step = unit_step(draw, ports.Port("any", [], 2e5), capture_s, SCRIPTED)
    step.files["device.script"] = ("\n".join(lines) + "\n").encode()
    step.damaged = True
    return Scenario([step])


def known_tags(draw, faults):
    """A library that sends known tags, which are counted here as well."""
    del faults
    tags, lines, time_ps = [], [], 0
    most = draw.pick(300, 3000)
    for _ in range(draw.randint(1, 20)):
        content = b""
        for _ in range(draw.randint(0, most)):
            time_ps = max(0, time_ps + int(draw.log_uniform(1, 1e7)) - draw.pick(0, 0, 0, 10**5))
            tags.append((draw.randint(0, 3), time_ps))
            content += raw64_record(*tags[-1])
        lines.append(f"read status=0 delay_ms={draw.randint(0, 3)} bytes={content.hex()}")
    typed = Typed(draw)
    typed.add("format", "raw64", format="raw64")
    typed.add("mode", "external", mode="external")
    typed.add("capture_s", "1.5", capture_s=1.5)
    typed.add("bin_s", "0.001", bin_s=0.001)
    window = draw.pick(0, 100, 5000, 10**6)
    typed.add("coincidence_window_ps", window, window_ps=window)
    typed.add("queue_limit", draw.pick(0, 131072))
    settings, arguments = typed.finish()
    step = Step(arguments, settings, SCRIPTED, damaged=True)
    step.files["device.script"] = ("\n".join(lines) + "\n").encode()
    return Scenario([step], tags=tags)


def recorded(draw, faults):
    """A run that is recorded, two that replay it, and a byte probe of the same."""
    capture_s = draw_capture_s(draw, faults)
    capture_s = min(max(capture_s, 0.01), 0.1) if capture_s == capture_s else 0.05
    real = ports.draw_signal(draw)
    real.tags_per_s = min(real.tags_per_s, 1e5)
    if "burst" in real.base:
        real.keys = ["burst_us=100", "pause_us=5000"]
    tap = ports.Port("tap://run.rec", ["library=./device.so", "port=" + ports.encoded(real.text)],
                     real.tags_per_s, files=real.files)
    if faults or draw.chance(0.3):
        ports.add_faults(draw, tap, capture_s, 2)
    live = unit_step(draw, tap, capture_s)
    if not faults and draw.chance(0.3):
        close_descriptors(draw, live)

    def replay(*more, queue_limit=10**8):
        kept = [argument for argument in live.arguments
                if "port=" not in argument.lower() and "byte" not in argument.lower()
                and "queue_limit" not in argument.lower()]
        port = "replay://run.rec?pace=max"
        step = Step(kept + [f"port={port}", "capture_s=0.4", f"queue_limit={queue_limit}",
                            *more])
        step.settings = dataclasses.replace(live.settings, port=port, capture_s=0.4,
                                            queue_limit=queue_limit, byte_probe=bool(more))
        step.damaged = True
        return step

    return Scenario([live, replay(), replay(queue_limit=draw.pick(0, 10**8)),
                     replay("byte_probe=1")], compare="recording")


def close_descriptors(draw, step):
    step.closed = tuple(draw.sample((0, 1, 2), draw.randint(1, 3)))


def add_oddities(draw, step):
    """What surrounds the program: descriptors, limits, signals, slow readers."""
    if draw.chance(0.08):
        close_descriptors(draw, step)
    capture_s = step.settings.capture_s if step.settings else 0
    capture_s = min(max(capture_s, 0), 3) if capture_s == capture_s else 0
    kind = draw.random()
    if kind < 0.12:
        moments = (draw.uniform(0, 0.03), draw.uniform(0, capture_s + 0.05))
        step.signals = [(moment, draw.pick(signal.SIGINT, signal.SIGTERM))
                        for moment in sorted(draw.some(moments * 2, 2))]
    elif kind < 0.16:
        step.output = draw.pick("closed_pipe", "full_device")
    elif kind < 0.20:
        step.hold_output_s = draw.uniform(0, 1)
    elif kind < 0.22:
        step.hold_error_s = draw.uniform(0, 1)
    elif kind < 0.26:
        step.memory_bytes = int(draw.log_uniform(20e6, 500e6))
        step.library = SIMULATED if step.library == LOGGED else step.library
    elif kind < 0.30:
        step.output = "file"
        step.file_bytes = draw.pick(0, 1, 100, 4096, draw.randint(1, 3000))
        step.library = SIMULATED if step.library == LOGGED else step.library
    elif kind < 0.34 and step.library == LOGGED:
        slow_ms = {f"qx_{call}": draw.randint(1, 1200) for call in draw.sample(ports.CALLS[:-1], 2)}
        slow_ms["qx_read_stream_bytes"] = draw.pick(0, 0, 5, 300)
        slow_ms["qx_close"] = draw.pick(0, 500)
        step.environment["ZELK_SLOW_CALLS"] = ",".join(f"{k}={v}" for k, v in slow_ms.items())
        step.slow_s = sum(slow_ms.values()) / 1000
    elif kind < 0.35:
        step.terminal = True
    elif kind < 0.36:
        # A stopped process is no library that hangs.
        stop_s, length_s = draw.uniform(0, capture_s), draw.pick(*[0.2] * 9, 6.5)
        step.signals = [(stop_s, signal.SIGSTOP), (stop_s + length_s, signal.SIGCONT)]
    if draw.chance(0.1):
        step.environment["ZELK_PACKED_DEBUG"] = draw.pick("1", "")


def keep_files(draw, step):
    """The tags, and the run as a document."""
    if not step.settings.byte_probe and draw.chance(0.3):
        step.arguments.append("save_tags=" + draw.pick(TAGS_NPY, TAGS_CSV))
    if draw.chance(0.3):
        step.arguments.append(f"json={DOCUMENT}")


def add_endless_capture(draw, step):
    """Only a signal ends it."""
    endless = draw.pick("inf", "1e300")
    step.arguments.append(f"capture_s={endless}")
    step.settings = dataclasses.replace(step.settings, capture_s=math.inf, window_ps=100)
    step.arguments.append("coincidence_window_ps=100")
    step.signals = [(draw.uniform(0.05, 0.4), draw.pick(signal.SIGINT, signal.SIGTERM))]


KINDS = ((simulated, 0.64), (scripted, 0.12), (first_found, 0.06), (bad_start, 0.05),
         (known_tags, 0.04), (recorded, 0.05), (starved, 0.02), (information, 0.02))  # fmt: skip
FAULT_KINDS = ((simulated, 0.78), (scripted, 0.15), (first_found, 0.04), (recorded, 0.03))


def draw_scenario(seed, faults):
    draw = Draw(f"soak {seed}" if not faults else f"faults {seed}")
    kinds = FAULT_KINDS if faults else KINDS
    kind = draw.choices([make for make, _ in kinds], [weight for _, weight in kinds])[0]
    scenario = kind(draw, faults)
    if faults or kind in (known_tags, recorded, starved):
        return scenario
    step = scenario.steps[0]
    if step.settings and not step.error:
        keep_files(draw, step)
    add_oddities(draw, step)
    if kind is simulated and not step.may_hang and draw.chance(0.02):
        add_endless_capture(draw, step)
    return scenario
