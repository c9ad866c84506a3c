"""What a report must look like, and which of its figures must agree."""

import re

from settings import Settings

PERIOD_PS = 3333
MOST_BINS = 4096
# A count that is larger was negative before it was printed.
LARGEST_COUNT = 1 << 62

REF_PATTERN = (
    r"(ref_requested=\w+ ref_active=\w+ ref_signal=\w+ ref_external_present=[01] "
    r"ref_external_locked=[01] ref_fallback=[01] ref_missing_warning=[01] ref_raw=0x[0-9a-f]+"
    r"|reference_clock_control=unavailable; fixed_internal_clock_assumed=1)")  # fmt: skip
REF_LINE = re.compile(REF_PATTERN.encode() + rb"\n")

COUNT, SIGNED, MILLI = r"(\d+)", r"(-?\d+)", r"(\d+\.\d{3})"


def four(value):
    return ",".join([value] * 4)


# The lines after the first ones, in their order.
FIGURES = (
    ("tags_total", COUNT), *((f"ch{n}", COUNT) for n in range(4)), ("coincidences", COUNT),
    ("xcorr_offset_ps", SIGNED), ("xcorr_peak_count", COUNT), ("xcorr_peak_center_ps", SIGNED),
    ("xcorr_rms_ps", MILLI), ("xcorr_fwhm_est_ps", MILLI),
    ("xcorr_minus3333_window_pm40ps", COUNT), ("xcorr_plus3333_window_pm40ps", COUNT),
    ("xcorr_top_bins", r"(-?\d+:\d+(?:,-?\d+:\d+)*)"), ("reader_dropped", COUNT),
    ("monotonic_violations", four(COUNT)), ("max_gap_ms", four(MILLI)), ("min_dt_ps", four(SIGNED)),
    *((f"dt_lt_{limit}ns", four(COUNT)) for limit in (10, 100, 500, 900)),
    *((f"ch{n}_mod3333_{key}", pattern) for n in range(4) for key, pattern in (
        ("unique", COUNT), ("exact_zero", COUNT), ("top", r"((?:\d+:\d+(?:,\d+:\d+)*)?)"))),
    ("bins_s", r"(\d+\.\d{3}|inf)"), ("bin_overflow_tags", COUNT),
)  # fmt: skip

PROBE_FIGURES = (
    ("byte_probe_payload_bytes", COUNT), ("byte_probe_nonzero_bytes", COUNT),
    ("byte_probe_first_nonzero_offset", SIGNED),
    ("byte_probe_first_bytes", r"((?:[0-9a-f]{2}(?: [0-9a-f]{2})*)?)"),
    ("byte_probe_decoded_total", COUNT), *((f"byte_probe_ch{n}", COUNT) for n in range(4)),
)  # fmt: skip

BIN_LINE = re.compile(r"bin (\d+) ch0=(\d+) ch1=(\d+) ch2=(\d+) ch3=(\d+)")


class Malformed(Exception):
    pass


def number(text):
    return float(text) if "." in text or text == "inf" else int(text)


def ranking(text):
    pairs = (entry.split(":") for entry in text.split(",") if entry)
    return [(int(first), int(count)) for first, count in pairs]


class Report:
    """The lines of a whole report. Throws Malformed for anything else."""

    def __init__(self, output, settings: Settings):
        self.settings = settings
        text = output.decode(errors="replace")
        if not text.endswith("\n"):
            raise Malformed("the last line has no end")
        self.lines = text.split("\n")[:-1]
        self.next = 0
        self.take_head()
        self.figures = {}
        for key, pattern in PROBE_FIGURES if settings.byte_probe else FIGURES:
            groups = self.take(f"{key}={pattern}").groups()
            values = [number(group) if re.fullmatch(r"-?[\d.]+|inf", group) else group
                      for group in groups]
            self.figures[key] = values if len(values) > 1 else values[0]
            if any(type(v) is int and abs(v) > LARGEST_COUNT for v in values) and "_ps" not in key:
                raise Malformed(f"{key} was negative")
        self.bins = []
        while not settings.byte_probe and self.next < len(self.lines):
            row = [int(value) for value in self.take(BIN_LINE).groups()]
            if row[0] != len(self.bins):
                raise Malformed(f"bin {row[0]} is not in its place")
            self.bins.append(row[1:])
        if self.next != len(self.lines):
            raise Malformed("lines after the end: " + self.lines[self.next])

    def __getitem__(self, key):
        return self.figures[key]

    def take(self, pattern):
        line = self.lines[self.next] if self.next < len(self.lines) else ""
        match = re.fullmatch(pattern, line)
        if not match:
            raise Malformed(f"line {self.next}: {line!r}, not {getattr(pattern, 'pattern', pattern)}")
        self.next += 1
        return match

    def take_head(self):
        settings = self.settings
        self.take(REF_PATTERN)
        self.take(r"device=[^\n]*")
        self.take(re.escape(f"port={settings.port} transport=usb format={settings.format} "
                            f"mode={settings.mode}"))
        if settings.byte_probe:
            return
        active, self.divider = self.take(r"ref_active=(-?\d+) divider=(\d+)").groups()
        self.divider = int(self.divider)
        self.take(r"calibration_path=/home/lab/\.zelk\.timing/calibrations/"
                  r"zelk_cal_[A-Za-z0-9_-]+\.cal")
        self.calibration_loaded = self.take("calibration_loaded=([01])")[1] == "1"
        self.take("tdl_masks=" + ",".join(["0x[0-9a-f]{1,2}"] * 4))
        if settings.dead_time_ps >= 0:
            self.take(r"dead_time_ps=-?\d+")

    @property
    def tags(self):
        """Tags per channel."""
        prefix = "byte_probe_ch" if self.settings.byte_probe else "ch"
        return [self[f"{prefix}{channel}"] for channel in range(4)]

    @property
    def tags_total(self):
        return self["byte_probe_decoded_total" if self.settings.byte_probe else "tags_total"]

    def complaints(self):
        if self.settings.byte_probe:
            yield from check_byte_probe(self)
            return
        yield from check_counts(self)
        yield from check_pair(self)
        for channel in range(4):
            yield from check_steps(self, channel)
            yield from check_residues(self, channel)
        yield from check_bins(self)


def check_byte_probe(report):
    payload, nonzero = report["byte_probe_payload_bytes"], report["byte_probe_nonzero_bytes"]
    first = report["byte_probe_first_nonzero_offset"]
    shown = [int(byte, 16) for byte in str(report.lines[6].split("=")[1]).split()]
    if nonzero > payload or (first == -1) != (nonzero == 0) or not -1 <= first < max(payload, 1):
        yield "byte probe: bytes do not agree"
    if len(shown) != min(payload, 128):
        yield f"byte probe: {len(shown)} bytes are shown"
    leading_zeros = next((at for at, byte in enumerate(shown) if byte), len(shown))
    if leading_zeros != (min(first, len(shown)) if first >= 0 else len(shown)):
        yield "byte probe: the first bytes do not agree with the offset"
    if sum(report.tags) != report.tags_total:
        yield "byte probe: decoded_total is not the sum of the channels"
    if report.tags_total * report.settings.least_bytes_per_tag > payload:
        yield "byte probe: more tags than the bytes can hold"


def check_counts(report):
    settings = report.settings
    if report.tags_total != sum(report.tags):
        yield "tags_total is not the sum of the channels"
    if report["coincidences"] > report.tags[settings.channel_a]:
        yield "more coincidences than tags"
    if report["coincidences"] and (settings.window_ps < 0 or not report.tags[settings.channel_b]):
        yield "coincidences with nothing"


def check_pair(report):
    """Peak, spread and ranking of the histogram."""
    settings, top = report.settings, ranking(report["xcorr_top_bins"])
    window = settings.window_ps
    bins = (2 * window + 7) // 8 if window > 0 else 1
    bins += 1 - bins % 2
    edge_ps = bins // 2 * 8
    centers = [center for center, _ in top]
    empty = not (report.tags[settings.channel_a] and report.tags[settings.channel_b])
    if top != sorted(top, key=lambda entry: (-entry[1], entry[0])) or len(set(centers)) != len(top):
        yield "xcorr_top_bins is in disorder"
    if len(top) != min(10, bins) or any(c % 8 or abs(c) > edge_ps for c in centers):
        yield "xcorr_top_bins has bins that there are not"
    if (report["xcorr_peak_center_ps"], report["xcorr_peak_count"]) != top[0]:
        yield "the peak is not the first of xcorr_top_bins"
    sides = report["xcorr_minus3333_window_pm40ps"], report["xcorr_plus3333_window_pm40ps"]
    if any(sides) and edge_ps < PERIOD_PS - 40:
        yield "pairs a period away, beyond the window"
    if abs(report["xcorr_offset_ps"]) > max(window, 0):
        yield "the offset lies outside the window"
    rms = report["xcorr_rms_ps"]
    if rms > edge_ps or abs(report["xcorr_fwhm_est_ps"] - 2.355 * rms) > 0.003 + 1e-12 * rms:
        yield "xcorr_rms_ps and xcorr_fwhm_est_ps do not agree"
    if top[0][1] == 0 and rms != 0:
        yield "a spread of nothing"
    if (empty or window < 1) and (top[0][1] or any(sides)):
        yield "pairs of nothing"
    if empty and report["xcorr_offset_ps"]:
        yield "an offset of nothing"


def check_steps(report, channel):
    steps = max(report.tags[channel] - 1, 0)
    below = [report[f"dt_lt_{limit}ns"][channel] for limit in (10, 100, 500, 900)]
    violations = report["monotonic_violations"][channel]
    shortest_ps = report["min_dt_ps"][channel]
    if below != sorted(below) or below[-1] + violations > steps:
        yield f"ch{channel}: more short steps than steps"
    if steps == 0 and (shortest_ps or report["max_gap_ms"][channel]):
        yield f"ch{channel}: a step without tags"
    if (shortest_ps < 0) != (violations > 0):
        yield f"ch{channel}: min_dt_ps and monotonic_violations do not agree"
    limits = (10_000, 100_000, 500_000, 900_000)
    if steps and violations == 0 and any((shortest_ps < limit) != (count > 0)
                                         for limit, count in zip(limits, below)):
        yield f"ch{channel}: min_dt_ps and the short steps do not agree"


def check_residues(report, channel):
    tags = report.tags[channel]
    unique = report[f"ch{channel}_mod3333_unique"]
    exact = report[f"ch{channel}_mod3333_exact_zero"]
    top = ranking(report[f"ch{channel}_mod3333_top"])
    listed = sum(count for _, count in top)
    if not (unique > 0) == (tags > 0) or unique > min(tags, PERIOD_PS):
        yield f"ch{channel}: {unique} residues of {tags} tags"
    if len(top) != min(unique, 8) or any(not 0 <= residue < PERIOD_PS or count < 1
                                         for residue, count in top):
        yield f"ch{channel}: residues out of range"
        return
    if top != sorted(top, key=lambda entry: (-entry[1], entry[0])):
        yield f"ch{channel}: residues in disorder"
    least = top[-1][1] if top else 0
    others = unique - len(top)
    if not listed + others <= tags <= listed + others * least:
        yield f"ch{channel}: residues do not add up to the tags"
    if exact != dict(top).get(0, exact) or (0 not in dict(top) and exact > (others > 0) * least):
        yield f"ch{channel}: exact_zero does not agree with the ranking"


def check_bins(report):
    bin_s = report.settings.bin_s
    width_s = bin_s if bin_s > 0.001 else 0.001  # also for what is no number
    overflow = report["bin_overflow_tags"]
    sums = [sum(row[channel] for row in report.bins) for channel in range(4)]
    if f"{report['bins_s']:.3f}" != f"{width_s:.3f}":
        yield "bins_s is not what was asked for"
    if width_s > 9.2e6:
        if report.bins or overflow:
            yield "bins without a width"
        return
    if len(report.bins) > MOST_BINS or (report.bins and not any(report.bins[-1])):
        yield "too many bins"
    if sum(sums) + overflow != report.tags_total or any(
            binned > tags for binned, tags in zip(sums, report.tags)):
        yield "bins do not add up to the tags"
    if report.tags_total and not (report.bins and any(report.bins[0])):
        yield "the first tag is in no bin"
