"""What a run left in the file of save_tags=."""

import ast
import dataclasses
import itertools
import re
import struct

HEADER_BYTES = 192
HEADER_START = b"\x93NUMPY\x01\x00\xb6\x00"
FIELDS = [("channel", "|u1"), ("", "|V7"), ("timestamp_ps", "<i8")]
ROW = struct.Struct("<B7xq")
CSV_HEADER = b"channel,timestamp_ps\n"
LINE = re.compile(rb"[0-9]+,-?[0-9]+\n")
# What is looked at tag by tag.
MOST_TAGS = 200_000
ROWS_AT_A_TIME = 1 << 16


class Unloadable(Exception):
    pass


@dataclasses.dataclass
class SavedTags:
    counts: list = dataclasses.field(default_factory=lambda: [0] * 4)  # per channel
    tags: list = dataclasses.field(default_factory=list)  # (channel, time in ps), the first ones

    def add(self, channel, count):
        if channel not in range(4):
            raise Unloadable(f"a tag on channel {channel}")
        self.counts[channel] += count

    def keep(self, rows):
        self.tags += itertools.islice(rows, MOST_TAGS - len(self.tags))

    @property
    def are_all_kept(self):
        return sum(self.counts) == len(self.tags)


def read_array(file):
    header = file.read(HEADER_BYTES)
    if len(header) != HEADER_BYTES or not header.startswith(HEADER_START):
        raise Unloadable("the array has no header")
    content = ast.literal_eval(header[len(HEADER_START):].decode())
    if content["descr"] != FIELDS or content["fortran_order"]:
        raise Unloadable("the array has other fields")
    saved = SavedTags()
    while piece := file.read(ROWS_AT_A_TIME * ROW.size):
        if len(piece) % ROW.size:
            raise Unloadable("the array ends within a row")
        for channel in set(piece[::ROW.size]):
            saved.add(channel, piece[::ROW.size].count(channel))
        if any(piece[at::ROW.size].strip(b"\0") for at in range(1, 8)):
            raise Unloadable("the array has bytes between channel and time")
        saved.keep(ROW.iter_unpack(piece))
    if content["shape"] != (sum(saved.counts),):
        raise Unloadable(f"{sum(saved.counts)} rows, and the header tells {content['shape']}")
    return saved


def read_text(file):
    if file.readline() != CSV_HEADER:
        raise Unloadable("the text has no header")
    saved = SavedTags()
    for line in file:
        if not LINE.fullmatch(line):
            raise Unloadable(f"the text has the line {line!r}")
        channel, time_ps = line.split(b",")
        saved.add(int(channel), 1)
        saved.keep([(int(channel), int(time_ps))])
    return saved


def read_saved_tags(path):
    """Throws Unloadable for a file that is not whole."""
    with open(path, "rb") as file:
        return read_array(file) if path.suffix == ".npy" else read_text(file)
