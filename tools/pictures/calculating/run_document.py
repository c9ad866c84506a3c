"""What the JSON document of a run says, for the top of the page.

The document may be of any origin: whatever is not of the kind that it ought to be
counts as not known.
"""

import json
import math

from ..figures import FAIL, NOT_KNOWN, PASS, Limit, Row, Run
from .errors import BadInput
from .wrapping import INT64_MAX, INT64_MIN

LARGEST_BYTES = 64 << 20
FORMAT_VERSION = 1
LONGEST_TEXT = 2000  # of anything shown
MOST_LIMITS = 200
LONGEST_CAPTURE_S = 1e6
SIGNALS = {1: "SIGHUP", 2: "SIGINT", 15: "SIGTERM"}

MEANINGS = {
    0: (PASS, "both channels of the pair saw tags, and coincidences were found"),
    1: (FAIL, "not one byte arrived"),
    2: (FAIL, "the run failed: the unit was not tested to the end"),
    3: (FAIL, "a channel of the pair saw no tags, or there was no coincidence"),
    4: (FAIL, "a limit is not met"),
}


def text_of(value):
    """A text to show, or None. Half a character, which JSON can say, cannot be shown."""
    if not isinstance(value, str):
        return None
    return value[:LONGEST_TEXT].encode("utf-8", "replace").decode("utf-8")


def whole_of(value, low=INT64_MIN, high=INT64_MAX):
    if isinstance(value, bool) or not isinstance(value, int):
        return None
    return value if low <= value <= high else None


def number_of(value):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return None
    try:
        return float(value) if math.isfinite(value) else None
    except OverflowError:  # a whole number beyond all floating-point ones
        return None


class Document:
    """A JSON document, asked by the path of its keys. Without one every answer is None."""

    def __init__(self, path):
        self.path = path
        self._root = {}
        if path is not None:
            self._root = self._read()

    def _read(self):
        try:
            with open(self.path, "rb") as file:
                data = file.read(LARGEST_BYTES + 1)
        except OSError as error:
            raise BadInput(f"{self.path}: {error.strerror}") from None
        try:
            if len(data) > LARGEST_BYTES:
                raise ValueError
            root = json.loads(data)
        except (ValueError, RecursionError):
            raise BadInput(f"{self.path}: no JSON document") from None
        if not isinstance(root, dict) or root.get("program") != "zelk_smoke_test":
            raise BadInput(f"{self.path}: no document that zelk_smoke_test wrote")
        return root

    def get(self, *keys):
        value = self._root
        for key in keys:
            value = value.get(key) if isinstance(value, dict) else None
        return value

    def text(self, *keys):
        return text_of(self.get(*keys))

    def whole(self, *keys, low=INT64_MIN, high=INT64_MAX):
        return whole_of(self.get(*keys), low, high)

    def number(self, *keys):
        return number_of(self.get(*keys))

    def items(self, *keys):
        value = self.get(*keys)
        return value if isinstance(value, list) else []


def verdict_of(status):
    """(verdict, meaning)."""
    if status is None:
        return NOT_KNOWN, "no document says how the run ended"
    if status > 128:
        name = SIGNALS.get(status - 128, f"signal {status - 128}")
        return NOT_KNOWN, f"the run was ended early by {name}"
    return MEANINGS.get(status, (NOT_KNOWN, f"exit status {status} has no meaning"))


def plain(value):
    """A number as one reads it: no fraction where there is none."""
    return f"{value:.10g}" if isinstance(value, float) else str(value)


def quantum_of(document):
    """Of the times, in ps."""
    name = document.text("settings", "format")
    if name is None:
        return None
    if name != "packed_delta":
        return 1
    applied = document.whole("applied", "packed_quantum_ps", low=1, high=1024)
    return applied or document.whole("settings", "packed_quantum_ps", low=1, high=1024)


def with_unit(document, keys, unit):
    value = document.number(*keys)
    return None if value is None else f"{plain(value)} {unit}"


def channels_text(mask):
    if mask is None:
        return None
    return ", ".join(str(c) for c in range(4) if mask >> c & 1) or "none"


def masks_text(masks):
    known = [whole_of(mask, 0, 255) for mask in masks]
    return None if not known or None in known else ", ".join(f"0x{mask:x}" for mask in known)


def dead_time_text(document):
    applied = document.whole("applied", "dead_time_ps")
    return "as it was" if applied is None else f"{applied} ps"


def settings_rows(document):
    mode = document.text("settings", "mode")
    packed = document.text("settings", "format") == "packed_delta"
    loaded = document.get("applied", "calibration_loaded")
    stop_tags = document.whole("settings", "stop_tags")
    quantum_ps = quantum_of(document)
    rows = [
        ("Port", document.text("settings", "port")),
        ("Mode", mode),
        ("Format", document.text("settings", "format")),
        ("Quantum", f"{quantum_ps} ps" if packed and quantum_ps else None),
        ("Channels", channels_text(document.whole("settings", "channel_mask", low=0, high=255))),
        ("Capture", with_unit(document, ("settings", "capture_s"), "s")),
        ("Stop after", f"{stop_tags} tags" if stop_tags else None),
        ("Calibration source", with_unit(document, ("settings", "cal_freq_hz"), "Hz")
         if mode == "internal" else None),
        ("Threshold", with_unit(document, ("settings", "threshold_v"), "V")
         or ("as it was" if document.path else None)),
        ("Dead time", dead_time_text(document) if document.path else None),
        ("Delay lines", masks_text(document.items("applied", "tdl_masks"))),
        ("Reference clock", document.text("reference_clock", "active")
         or document.text("settings", "ref")),
        ("Calibration", {True: "loaded", False: "not loaded"}.get(
            loaded if isinstance(loaded, bool) else None)),
    ]
    return tuple(Row(label, value) for label, value in rows if value)


def identity_rows(document):
    version = document.text("version")
    rows = [
        ("Serial number", document.text("identity", "serial")),
        ("Device", document.text("identity", "device")),
        ("Host", document.text("host")),
        ("Program", f"zelk_smoke_test {version}" if version else None),
        ("Device library", document.text("device_library")),
        ("Run", document.text("run_id")),
    ]
    return tuple(Row(label, value) for label, value in rows if value)


def limits_of(document):
    limits = []
    for item in document.items("limits")[:MOST_LIMITS]:
        item = item if isinstance(item, dict) else {}
        met = item.get("met")
        limits.append(Limit(text_of(item.get("text")) or "?",
                            met if isinstance(met, bool) else None, text_of(item.get("seen"))))
    return tuple(limits)


def silent_tail_s(document):
    """From the last tag of all channels to the end of the capture."""
    tails = [number_of(tail) for tail in document.items("figures", "silent_tail_s")]
    known = [tail for tail in tails if tail is not None and tail >= 0]
    return min([LONGEST_CAPTURE_S, *known]) if known else 0.0


def run_of(document, tags_name, json_name, mode):
    """`mode`: as an argument gives it; None: as the document does."""
    given = document.text("settings", "mode")
    known = given if given in ("internal", "external") else None
    status = document.whole("exit_status", low=0, high=255)
    verdict, meaning = verdict_of(status)
    return Run(
        tags_file=tags_name, json_file=json_name, verdict=verdict, meaning=meaning,
        exit_status=status, error=document.text("error"), limits=limits_of(document),
        settings=settings_rows(document), identity=identity_rows(document), mode=mode or known,
        format=document.text("settings", "format"), quantum_ps=quantum_of(document),
        start=document.text("start"), note=document.text("note"),
        channel_mask=document.whole("settings", "channel_mask", low=0, high=255))


def document_notes(document, channels):
    """What speaks against the document being that of these tags."""
    if document.path is None:
        return []
    notes = []
    version = document.whole("format_version")
    if version != FORMAT_VERSION:
        notes.append("The JSON document is of another version: some of it may not be understood.")
    if document.get("figures", "tags_total") is None:
        notes.append("The JSON document is of a run without a report: its figures cannot be "
                     "compared with the tags.")
        return notes
    dropped = document.whole("figures", "reader_dropped")
    if dropped:
        notes.append(f"The machine that took the tags could not keep up and dropped {dropped} of "
                     "them: gaps may be its fault, not the unit's.")
    stated = [document.whole("figures", f"ch{c}") for c in range(len(channels))]
    seen = [channel.tags for channel in channels]
    if stated != seen:
        notes.append("The JSON document may be of another run: it counts "
                     f"{', '.join(str(n) for n in stated)} tags on channels 0 to 3, and the file "
                     f"has {', '.join(str(n) for n in seen)}.")
    return notes
