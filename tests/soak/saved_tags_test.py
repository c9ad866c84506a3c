"""That files of saved tags are read as they are, and that those that are not whole are refused."""

import pathlib
import tempfile
import unittest

from saved_tags import SavedTags, Unloadable, read_saved_tags

FIELDS = "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')]"
ROWS = (b"\x02" + bytes(7) + b"\x01\x01" + bytes(6)  # 257 ps on channel 2
        + b"\x00" + bytes(7) + b"\xff" * 8)  # 1 ps before 0 on channel 0
TAGS = SavedTags([1, 0, 1, 0], [(2, 257), (0, -1)])


def array(rows, told, fields=FIELDS):
    words = f"{{'descr': {fields}, 'fortran_order': False, 'shape': ({told},), }}"
    return b"\x93NUMPY\x01\x00\xb6\x00" + words.ljust(181).encode() + b"\n" + rows


class SavedTagsFiles(unittest.TestCase):
    def read(self, name, content):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory, name)
            path.write_bytes(content)
            return read_saved_tags(path)

    def expect_unloadable(self, name, *contents):
        for content in contents:
            with self.assertRaises(Unloadable, msg=content):
                self.read(name, content)

    def test_an_array(self):
        self.assertEqual(self.read("a.npy", array(ROWS, 2)), TAGS)
        self.assertEqual(self.read("a.npy", array(b"", 0)), SavedTags())

    def test_an_array_that_is_not_whole(self):
        self.expect_unloadable("a.npy", b"", array(ROWS, 2)[:191], array(ROWS[:-1], 2),
                               array(ROWS, 1), array(ROWS, 3), array(ROWS[:16], 2),
                               array(ROWS, 2, FIELDS.replace("i8", "u8")),
                               array(b"\x02\x01" + ROWS[2:], 2), array(b"\x04" + ROWS[1:], 2))

    def test_a_text(self):
        self.assertEqual(self.read("a.csv", b"channel,timestamp_ps\n2,257\n0,-1\n"), TAGS)
        self.assertEqual(self.read("a.csv", b"channel,timestamp_ps\n"), SavedTags())

    def test_a_text_that_is_not_whole(self):
        start = b"channel,timestamp_ps\n"
        self.expect_unloadable("a.csv", b"", b"0,1\n", start + b"0,1", start + b"0\n",
                               start + b"0,\n", start + b"4,1\n", start + b"0, 1\n")


if __name__ == "__main__":
    unittest.main()
