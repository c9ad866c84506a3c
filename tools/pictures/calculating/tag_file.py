"""The file of tags: a NumPy array file with one record per tag.

The header says how many tags there are. A program that was killed could not put the
number in: then the file's size says it. The other way round, a file may have been cut
off. In both cases all whole records are read, and a note says so.

Records are read piece by piece, not through a memory map, whose pages would count as
this program's memory.
"""

import bisect
import os
import stat
import warnings

import numpy as np
from numpy.lib import format as npy

from ..figures import CHANNELS
from .chunks import in_parallel, pieces
from .errors import BadInput

# A header is a few hundred bytes; what claims to be larger is none of ours.
LONGEST_HEADER = 10_000
PIECE = 1 << 16  # rows, which are 1 MiB
TOGETHER = 128


class TagFile:
    """An open file. `rows`: records; `notes`: what was odd about it."""

    def __init__(self, path):
        self.path = path
        self.notes = []
        try:
            self._file = open(path, "rb", buffering=0)
        except OSError as error:
            raise BadInput(f"{path}: {error.strerror}") from None
        try:
            self._open()
        except BaseException:
            self._file.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._file.close()

    def _open(self):
        state = os.fstat(self._file.fileno())
        if not stat.S_ISREG(state.st_mode):
            raise BadInput(f"{self.path}: not a regular file")
        self.identity = (state.st_dev, state.st_ino)
        stated, self.dtype = self._header()
        self._start = self._file.tell()
        whole, rest = divmod(state.st_size - self._start, self.dtype.itemsize)
        self.rows = whole
        if whole < stated:
            self.notes.append(f"The file of tags was cut off: it has {whole} of the {stated} tags "
                              "that its header states.")
        elif whole > stated:
            self.notes.append(f"The header of the file of tags states {stated} tags, but {whole} "
                              "are there: the capture was killed. All of them are shown.")
        elif rest:
            self.notes.append(f"The file of tags has {rest} odd bytes at its end.")

    def _header(self):
        try:
            version = npy.read_magic(self._file)
        except (ValueError, OSError):
            raise BadInput(f"{self.path}: not a NumPy array file") from None
        readers = {(1, 0): npy.read_array_header_1_0, (2, 0): npy.read_array_header_2_0}
        if version not in readers:
            raise BadInput(f"{self.path}: a NumPy array file of an unknown version")
        try:
            with warnings.catch_warnings():
                warnings.simplefilter("ignore")  # what is odd and yet read is no trouble
                shape, in_columns, dtype = readers[version](self._file, LONGEST_HEADER)
        except OSError as error:
            raise BadInput(f"{self.path}: {error.strerror}") from None
        except Exception:  # the text is evaluated, so that anything may be wrong with it
            raise BadInput(f"{self.path}: the header of the NumPy array file is damaged") from None
        fields = dtype.fields or {}
        kinds = {name: fields[name][0].str for name in ("channel", "timestamp_ps")
                 if name in fields}
        if kinds != {"channel": "|u1", "timestamp_ps": "<i8"}:
            raise BadInput(f"{self.path}: no array of tags, with the fields channel (u1) and "
                           "timestamp_ps (<i8)")
        if len(shape) != 1 or in_columns or shape[0] < 0:
            raise BadInput(f"{self.path}: no list of tags, but an array of another shape")
        return shape[0], dtype

    def records(self, start, stop):
        """The rows from start to before stop; for any thread."""
        size = self.dtype.itemsize
        data = np.empty(stop - start, self.dtype)
        room = memoryview(data.view(np.uint8))
        done = 0
        try:
            while done < len(room):
                read = os.preadv(self._file.fileno(), [room[done:]],
                                 self._start + start * size + done)
                if read == 0:
                    raise BadInput(f"{self.path}: became shorter while it was read")
                done += read
        except OSError as error:
            raise BadInput(f"{self.path}: {error.strerror}") from None
        return data


class Tags:
    """The tags of a file, as one list of times per channel in order of arrival."""

    def __init__(self, file):
        self._file = file
        self._pieces = pieces(0, file.rows, PIECE)
        # Room for the largest list that each may become. What is not used is never touched,
        # and so no memory, and given back in the end.
        lists_ps = [np.empty(file.rows, np.int64) for _ in range(CHANNELS)]
        ends = [0] * CHANNELS
        self._before = [tuple(ends)]
        # A few pieces at a time, so that not all of them wait to be put into the lists.
        for i in range(0, len(self._pieces), TOGETHER):
            for parts in in_parallel(self._split, self._pieces[i:i + TOGETHER]):
                for c, part in enumerate(parts):
                    lists_ps[c][ends[c]:ends[c] + len(part)] = part
                    ends[c] += len(part)
                self._before.append(tuple(ends))
        for list_ps, end in zip(lists_ps, ends):
            list_ps.resize(end, refcheck=False)
        self.times_ps = lists_ps
        self.total = sum(ends)
        self.ignored = file.rows - self.total  # rows with a channel that does not exist

    def _split(self, piece):
        """The times of each channel."""
        records = self._file.records(*piece)
        channels = np.ascontiguousarray(records["channel"])
        times_ps = np.ascontiguousarray(records["timestamp_ps"])
        counts = np.bincount(channels, minlength=CHANNELS)
        return [times_ps[channels == c] if counts[c] else times_ps[:0] for c in range(CHANNELS)]

    def rows_of(self, channel, indices):
        """The rows in the file of some tags of a channel, which ascend."""
        before = [ends[channel] for ends in self._before]
        rows = []
        loaded, places = None, None
        for i in indices:
            piece = bisect.bisect_right(before, i) - 1
            if piece != loaded:
                records = self._file.records(*self._pieces[piece])
                loaded, places = piece, np.flatnonzero(records["channel"] == channel)
            rows.append(self._pieces[piece][0] + int(places[i - before[piece]]))
        return rows
