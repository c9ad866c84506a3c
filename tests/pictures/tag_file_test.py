"""Files of tags, whole and damaged."""

import os
import unittest
from unittest import mock

import numpy as np

import plots
from plots import TAG, fresh, saved, tags_of
from pictures.calculating.errors import BadInput
from pictures.calculating.tag_file import PIECE, TagFile, Tags

ROWS = [(0, 10), (1, -20), (0, 30), (3, 2**62), (7, 5), (2, -2**63)]


def read(path):
    with TagFile(str(path)) as file:
        return file, Tags(file)


def header(text, version=(1, 0)):
    """The start of a NumPy array file, as long as the format asks for."""
    text = text.ljust(117) + "\n"
    size = len(text).to_bytes(2 if version == (1, 0) else 4, "little")
    return b"\x93NUMPY" + bytes(version) + size + text.encode()


def described(shape, descr="[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')]"):
    return header(f"{{'descr': {descr}, 'fortran_order': False, 'shape': {shape}, }}")


class Whole(unittest.TestCase):
    def test_files_are_lists_per_channel_in_order_of_arrival(self):
        file, tags = read(saved(tags_of(ROWS)))
        self.assertEqual([list(t) for t in tags.times_ps], [[10, 30], [-20], [-2**63], [2**62]])
        self.assertEqual((tags.total, tags.ignored, file.notes), (5, 1, []))

    def test_files_may_be_empty(self):
        file, tags = read(saved(tags_of([])))
        self.assertEqual([len(t) for t in tags.times_ps], [0, 0, 0, 0])
        self.assertEqual((tags.total, file.notes), (0, []))

    def test_files_may_be_longer_than_what_is_read_at_a_time(self):
        count = 2 * PIECE + 5
        array = np.zeros(count, TAG)
        array["timestamp_ps"] = np.arange(count)
        array["channel"] = np.arange(count) % 3
        with TagFile(str(saved(array))) as file:
            tags = Tags(file)
            for c in range(3):
                self.assertTrue(np.array_equal(tags.times_ps[c], np.arange(c, count, 3)))
                indices = [0, 1, PIECE // 3, PIECE // 3 + 1, len(tags.times_ps[c]) - 1]
                self.assertEqual(tags.rows_of(c, indices), [c + 3 * i for i in indices])

    def test_records_may_be_packed_and_headers_of_version_2(self):
        packed = np.zeros(2, [("timestamp_ps", "<i8"), ("channel", "u1")])
        packed["timestamp_ps"] = [5, -6]
        packed["channel"] = [2, 2]
        _, tags = read(saved(packed))
        self.assertEqual(list(tags.times_ps[2]), [5, -6])
        path = fresh("two.npy")
        with open(path, "wb") as file:
            np.lib.format.write_array(file, tags_of(ROWS), (2, 0))
        self.assertEqual(read(path)[1].total, 5)


    def test_files_may_come_in_bits(self):
        path = saved(tags_of(ROWS))
        whole = os.preadv
        with mock.patch("os.preadv", lambda file, rooms, at: whole(file, [rooms[0][:5]], at)):
            _, tags = read(path)
        self.assertEqual([list(t) for t in tags.times_ps], [[10, 30], [-20], [-2**63], [2**62]])


class Cut(unittest.TestCase):
    def made(self, count, rest=b""):
        """Six rows under a header that states another number."""
        path = fresh("cut.npy")
        path.write_bytes(described((count,)) + tags_of(ROWS).tobytes() + rest)
        return read(path)

    def test_a_header_that_a_killed_capture_left_is_mended_by_the_size(self):
        for count in (0, 5):
            file, tags = self.made(count)
            self.assertEqual(tags.total + tags.ignored, 6)
            self.assertEqual(len(file.notes), 1)
            self.assertIn(f"states {count} tags, but 6 are there", file.notes[0])
        file, tags = self.made(3, b"half a row")
        self.assertEqual(tags.total + tags.ignored, 6)

    def test_a_file_that_was_cut_off_has_what_is_left(self):
        for count in (7, 10**30):
            file, tags = self.made(count)
            self.assertEqual(tags.total + tags.ignored, 6)
            self.assertIn(f"has 6 of the {count} tags", file.notes[0])
        file, tags = self.made(7, b"half a row")
        self.assertIn("has 6 of the 7 tags", file.notes[0])

    def test_odd_bytes_at_the_end_are_told(self):
        file, tags = self.made(6, b"odd")
        self.assertEqual(tags.total + tags.ignored, 6)
        self.assertEqual(file.notes, ["The file of tags has 3 odd bytes at its end."])


class Refused(unittest.TestCase):
    def refuse(self, path, text):
        with self.assertRaises(BadInput) as caught:
            read(path)
        self.assertIn(text, str(caught.exception))
        self.assertTrue(str(caught.exception).startswith(f"{path}: "))
        self.assertNotIn("\n", str(caught.exception))

    def refuse_bytes(self, data, text):
        path = fresh("bad.npy")
        path.write_bytes(data)
        self.refuse(path, text)

    def test_are_files_that_are_none(self):
        self.refuse(fresh("none.npy"), "No such file")
        self.refuse(fresh("x").parent, "directory")
        self.refuse("/dev/null", "not a regular file")

    def test_are_files_of_another_kind(self):
        self.refuse_bytes(b"", "not a NumPy array file")
        self.refuse_bytes(b"channel,timestamp_ps\n0,5\n", "not a NumPy array file")
        self.refuse_bytes(b"\x93NUMPY", "not a NumPy array file")
        self.refuse_bytes(b"\x93NUMPY\x07\x00" + bytes(100), "unknown version")

    def test_are_damaged_headers(self):
        good = described((0,))
        for data in (good[:9], good[:60], header("{'descr': "), header("17"), header("{}"),
                     header("(" * 100), header("\0" * 50),
                     header("{'descr': '<i8', 'fortran_order': False, 'shape': (1e999,), }"),
                     header("{'descr': [('a',)], 'fortran_order': False, 'shape': (1,), }")):
            self.refuse_bytes(data, "header")
        path = fresh("long.npy")
        path.write_bytes(b"\x93NUMPY\x02\x00" + b"\xff\xff\xff\x7f" + bytes(50))
        self.refuse(path, "header")

    def test_are_arrays_of_something_else(self):
        for array in (np.arange(5), np.zeros(3, [("channel", "u1"), ("timestamp_ps", ">i8")]),
                      np.zeros(3, [("channel", "i4"), ("timestamp_ps", "<i8")]),
                      np.zeros(3, [("channel", "u1")])):
            self.refuse(saved(array), "no array of tags")
        self.refuse(saved(np.zeros((2, 3), TAG)), "another shape")
        path = fresh("objects.npy")
        np.save(path, np.array([{}], object), allow_pickle=True)
        self.refuse(path, "no array of tags")
        self.refuse_bytes(described((-1,)), "another shape")
        self.refuse_bytes(described(()), "another shape")

    def test_is_what_shrinks_while_it_is_read(self):
        path = saved(tags_of(ROWS))
        with TagFile(str(path)) as file:
            os.truncate(path, 150)
            with self.assertRaises(BadInput):
                Tags(file)


if __name__ == "__main__":
    plots.main()
