"""Whatever the tags and the document are, there is a page, or one line says why not."""

import json
import unittest
import warnings

import numpy as np

import document_test
import plots
from plots import TAG, fresh, saved, tags_of
from pictures.calculating.errors import BadInput
from pictures.calculating.page import Wishes, make_page

ENDS_PS = np.array([-2**63, -2**63 + 1, -2**62, -1, 0, 1, 3332, 3333, 2**62, 2**62 + 1, 2**63 - 2,
                    2**63 - 1], np.int64)
WINDOWS_PS = (1000, 0, -1, 1, 4, 8, 3333, 100_000, 10**7, 2**24, 2**30, 2**61, 2**62, 2**62 + 1,
              2**63 - 1, -2**63)
PAGES = 300
DAMAGED = 1000


def any_times(draw, count):
    kind = draw.integers(0, 6)
    if kind == 0:
        return ENDS_PS[draw.integers(0, len(ENDS_PS), count)]
    if kind == 1:
        return draw.integers(-2**63, 2**63 - 1, count)
    if kind == 2:
        return np.sort(draw.integers(0, 10**draw.integers(1, 15), count))
    if kind == 3:
        return np.arange(count) * int(draw.integers(0, 10**6))
    if kind == 4:
        return np.cumsum(draw.exponential(10.0**draw.integers(1, 10), count)).astype(np.int64)
    times_ps = np.arange(count) * 10**6
    times_ps[::20] = draw.integers(-2**63, 2**63 - 1, len(times_ps[::20]))
    return times_ps


def damaged(draw, data, reach):
    """With up to three places changed, among the first ones."""
    data = bytearray(data)
    for _ in range(draw.integers(1, 4)):
        i = int(draw.integers(0, max(1, min(reach, len(data)))))
        kind = draw.integers(0, 4)
        if kind == 0:
            data[i:i + 1] = bytes([draw.integers(0, 256)])
        elif kind == 1:
            del data[i:i + int(draw.integers(1, 9))]
        elif kind == 2:
            data[i:i] = draw.bytes(int(draw.integers(1, 5)))
        else:
            data[i:i] = data[i:i + 20]
    return bytes(data if draw.integers(0, 5) else data[:i])


class AnyInput(unittest.TestCase):
    def setUp(self):
        caught = warnings.catch_warnings()
        caught.__enter__()
        self.addCleanup(caught.__exit__, None, None, None)
        warnings.simplefilter("error")  # such as a number that is none

    def assertBounded(self, page):
        rates = page.rates
        for series in rates.rates_hz_per_channel:
            self.assertLessEqual(len(series), 500)
            self.assertTrue((np.isfinite(series) & (series >= 0)).all())
        for gaps in rates.gaps_per_channel:
            self.assertLessEqual(len(gaps), 102)
            for gap in gaps:
                self.assertTrue(0 <= gap.start_s < gap.end_s <= rates.end_s * (1 + 1e-9))
        for backwards in rates.backwards_per_channel:
            self.assertLessEqual(len(backwards), 100)
        self.assertLessEqual(len(page.correlation.counts), 4001)
        self.assertLessEqual(len(page.wide.counts), 2003)
        for intervals in page.intervals_per_channel:
            self.assertLessEqual(len(intervals.counts), 512)
        for codes in page.codes_per_channel:
            self.assertLessEqual(len(codes.dnl), 3333)
            self.assertTrue(np.isfinite(codes.inl).all())
        for timing in page.timing_per_channel:
            self.assertLessEqual(len(timing.time_s), 1000)
            self.assertLessEqual(len(timing.period_counts), 201)
            self.assertTrue(np.isfinite(timing.tie_max_ps).all())
        self.assertEqual(page.tags, sum(channel.tags for channel in page.channels))

    def test_of_times_makes_a_page_of_bounded_size(self):
        draw = np.random.default_rng(12)
        for _ in range(PAGES):
            count = int(draw.choice([0, 1, 2, 3, 10, 100, 1000, 5000]))
            tags = np.zeros(count, TAG)
            tags["channel"] = draw.integers(0, draw.integers(1, 6), count)
            tags["timestamp_ps"] = any_times(draw, count)
            a, b = (int(c) for c in draw.permutation(4)[:2])
            window_ps = WINDOWS_PS[draw.integers(0, len(WINDOWS_PS))]
            mode = (None, "internal", "external")[draw.integers(0, 3)]
            page = make_page(str(saved(tags)), None, Wishes(a, b, window_ps, mode))
            self.assertBounded(page)

    def test_of_bytes_makes_a_page_or_a_line(self):
        draw = np.random.default_rng(13)
        tags = saved(tags_of(document_test.ROWS)).read_bytes()
        document = json.dumps(document_test.document()).encode()
        made = 0
        file, run = fresh("run.npy"), fresh("run.json")
        for i in range(DAMAGED):
            file.write_bytes(damaged(draw, tags, 140) if i % 2 else tags)
            run.write_bytes(document if i % 2 else damaged(draw, document, len(document)))
            try:
                self.assertBounded(make_page(str(file), str(run)))
                made += 1
            except BadInput as error:
                self.assertNotIn("\n", str(error))
        self.assertTrue(0 < made < DAMAGED, made)


if __name__ == "__main__":
    plots.main()
