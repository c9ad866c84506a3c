"""Code density, nonlinearity, and whether a signal is locked to the clock."""

import math
import statistics
import unittest

import numpy as np

import delay_lines
import plots
from plots import Agreement, Run, merged, page_of
from pictures.calculating.clock_lock import changes, chi_squared_limit, harmonics, judge_lock, longest_empty
from pictures.calculating.code_density import code_density, with_missing
from pictures.calculating.page import make_page

PARTS = 8
SIGMAS = 4


def parts_of(places, counts):
    """Tags at places of the clock period, as many in each part of the run."""
    parts = np.zeros((PARTS, 3333), np.int64)
    parts[:, places] = counts
    return parts


def drawn_parts(draw, tags, phases):
    """`phases(draw, n)`: n positions in ps, any number of periods long."""
    return np.array([np.bincount(np.floor(phases(draw, tags // PARTS)).astype(np.int64) % 3333,
                                 minlength=3333) for _ in range(PARTS)])


def evenly(draw, count):
    return draw.uniform(0, 3333, count)


class Nonlinearity(unittest.TestCase):
    def test_by_hand(self):
        # A code each 30 ps, every third of them twice as wide as the others.
        places = np.arange(0, 3330, 30)
        counts = np.where(np.arange(111) % 3 == 2, 200, 100)
        codes = code_density(parts_of(places, counts), None, 1)
        self.assertIsNone(codes.reason)
        self.assertEqual(list(codes.codes_ps), list(places))
        # The mean is 400 / 3: a quarter less for two, half as much again for the third.
        self.assertTrue(np.allclose(codes.dnl.reshape(37, 3), [-0.25, -0.25, 0.5]))
        self.assertTrue(np.allclose(codes.inl.reshape(37, 3), [-0.25, -0.5, 0]))
        self.assertAlmostEqual(codes.tags_per_code, 8 * 400 / 3)
        self.assertAlmostEqual(codes.code_width_ps, 3333 / 111)
        self.assertAlmostEqual(codes.dnl_rms, math.sqrt((0.0625 * 2 + 0.25) / 3))
        self.assertAlmostEqual(codes.dnl_sigma, math.sqrt(110 / 111 / (8 * 400 / 3)))
        # Half of the tags, more or less sqrt(n / 4) of them.
        self.assertAlmostEqual(codes.inl_sigma[55], math.sqrt(8 * 14800 * (56 / 111) * (55 / 111))
                               / (8 * 400 / 3))
        self.assertAlmostEqual(codes.inl_sigma[-1], 0)
        self.assertEqual((codes.dnl_min, codes.dnl_max), (codes.dnl.min(), codes.dnl.max()))
        self.assertAlmostEqual(codes.dnl_max, 0.5)
        self.assertAlmostEqual(codes.inl_min, -0.5)
        self.assertFalse(codes.even)

    def test_of_exact_times_is_what_chance_gives(self):
        parts = drawn_parts(np.random.default_rng(1), 400_000, evenly)
        codes = code_density(parts, "external", 1)
        self.assertEqual((len(codes.codes_ps), codes.reason), (3333, None))
        # 3332 squares add up to their number, give or take 4 times sqrt(2 * 3332).
        self.assertAlmostEqual((codes.dnl_rms / codes.dnl_sigma) ** 2, 1,
                               delta=SIGMAS * math.sqrt(2 / 3332))
        self.assertTrue(codes.even)
        self.assertLess(codes.dnl_rms_beyond_chance, codes.dnl_sigma * 0.5)
        self.assertLess(np.abs(codes.inl[:-1] / codes.inl_sigma[:-1]).max(), 6)

    def test_knows_codes_that_got_no_tag(self):
        nominal = np.array(sorted(-((37 * n + 1) // 2) % 3333 for n in range(180)))
        for missing in ([5], [17, 18], [40, 90, 130]):
            seen = np.delete(nominal, missing)
            found = with_missing(seen)
            self.assertEqual(len(found), 180)
            self.assertLessEqual(np.abs(found - nominal).max(), 1)  # places are rounded
            self.assertTrue(set(seen) <= set(found))
        codes = code_density(parts_of(np.delete(nominal, 33), 50), None, 1)
        self.assertEqual((len(codes.codes_ps), codes.dnl_min), (180, -1))
        uneven = np.array([3, 40, 55, 110, 130])
        self.assertTrue(np.array_equal(with_missing(uneven), uneven))
        for few in ([], [7], [7, 9]):
            self.assertEqual(list(with_missing(np.array(few, np.int64))), few)


class NoNonlinearity(unittest.TestCase):
    def reason(self, parts, mode="external", quantum_ps=1):
        codes = code_density(parts, mode, quantum_ps)
        self.assertEqual(len(codes.dnl), 0)
        return codes.reason

    def test_without_tags(self):
        codes = code_density(np.zeros((PARTS, 3333), np.int64), None, 1)
        self.assertEqual(codes.reason, "the channel saw no tags")
        self.assertEqual(codes.density_reason, "the channel saw no tags")
        self.assertEqual(len(codes.counts), 0)

    def test_in_internal_mode(self):
        parts = drawn_parts(np.random.default_rng(1), 100_000, evenly)
        self.assertIn("unit's own clock", self.reason(parts, "internal"))

    def test_with_rounded_times(self):
        parts = drawn_parts(np.random.default_rng(1), 100_000, evenly)
        self.assertIn("rounded to 8 ps", self.reason(parts, None, 8))

    def test_with_few_tags(self):
        draw = np.random.default_rng(1)
        for tags in (8, 80, 800, 8000, 48_000):
            self.assertIn("too few", self.reason(drawn_parts(draw, tags, evenly)), tags)
        self.assertIsNone(code_density(drawn_parts(draw, 56_000, evenly), None, 1).reason)


class Locked(unittest.TestCase):
    """Signals with a fixed phase against the clock, of any frequency and jitter."""

    def test_to_one_place_or_several(self):
        draw = np.random.default_rng(2)
        for places in (1, 2, 3, 5, 7, 13, 16, 20):
            def phases(draw, count, places=places):
                return (100 + draw.integers(0, places, count) * 3333 / places
                        + draw.normal(0, 4, count))
            lock = judge_lock(drawn_parts(draw, 40_000, phases))
            self.assertIsNotNone(lock.reason, places)

    def test_with_a_jitter_of_up_to_a_quarter_of_the_period(self):
        draw = np.random.default_rng(3)
        for jitter_ps in (0.1, 40, 300, 800):
            lock = judge_lock(drawn_parts(draw, 40_000,
                                          lambda d, n: 1000 + d.normal(0, jitter_ps, n)))
            self.assertIn("locked to the clock", lock.reason)
            # The mean of exp(i x) over a bell of s rms is exp(-s^2 / 2).
            expected = math.exp(-(2 * math.pi * jitter_ps / 3333) ** 2 / 2)
            self.assertAlmostEqual(lock.coherence, expected, delta=0.03)

    def test_nearly_with_a_phase_that_walks(self):
        # Two rounds of the period in all: every position is met twice as often as in one.
        phases = np.arange(80_000) * (2 * 3333 / 80_000)
        parts = np.array([np.bincount(part.astype(np.int64) % 3333, minlength=3333)
                          for part in phases.reshape(PARTS, -1)])
        lock = judge_lock(parts)
        self.assertLess(lock.coherence, 0.01)
        self.assertIn("change in the course of the run", lock.reason)
        # A hundred rounds in each part are as good as a random signal.
        phases = np.arange(80_000) * (800 * 3333 / 80_000)
        parts = np.array([np.bincount(part.astype(np.int64) % 3333, minlength=3333)
                          for part in phases.reshape(PARTS, -1)])
        self.assertFalse(changes(parts))

    def test_to_the_clock_edge_alone(self):
        self.assertIn("fine time is missing", judge_lock(parts_of([0], 100)).reason)

    def test_are_not_random_signals(self):
        for seed in range(30):
            draw = np.random.default_rng(seed)
            for tags in (24, 200, 4000, 100_000):
                self.assertIsNone(judge_lock(drawn_parts(draw, tags, evenly)).reason, (seed, tags))

    def test_are_not_uneven_delay_lines(self):
        for seed in range(30):
            draw = np.random.default_rng(seed)
            widths = delay_lines.widths_ps(seed, seed % 4, 100)
            places, weights = np.array(list(widths)), np.array(list(widths.values()))
            parts = np.zeros((PARTS, 3333), np.int64)
            for part in parts:
                part[places] = draw.multinomial(20_000, weights / 3333)
            lock = judge_lock(parts)
            self.assertIsNone(lock.reason, seed)
            self.assertLess(lock.coherence, 0.15)

    def test_are_judged_by_their_lines(self):
        counts = np.zeros(3333)
        counts[[0, 1111, 2222]] = 5
        self.assertTrue(np.allclose(harmonics(counts)[:6], [0, 0, 1, 0, 0, 1], atol=1e-9))
        self.assertEqual(longest_empty(counts), (1110, 1))
        counts[[1111, 2222]] = 0
        self.assertEqual(longest_empty(counts), (3332, 1))
        # The table of chi squared: 1 in a million above 89.6 with 35 degrees of freedom.
        self.assertAlmostEqual(chi_squared_limit(35), 89.6, delta=1)


class OfATable(unittest.TestCase):
    def test_the_twister_is_the_standard_one(self):
        twister = delay_lines.Mersenne(5489)
        for _ in range(9999):
            twister.number()
        self.assertEqual(twister.number(), 9981545732273789042)

    def test_widths_fill_the_period(self):
        widths = delay_lines.widths_ps(1, 0, 60)
        self.assertEqual((len(widths), sum(widths.values())), (180, 3333))
        self.assertEqual(set(delay_lines.widths_ps(1, 0, 0).values()), {18, 19})


class OfAUnit(Agreement):
    """With the tags that the program saved, and its document."""

    def page(self, port, *arguments):
        run = Run([f"port={port}", "format=raw64", "mode=external", "channel_mask=0x0f",
                   "queue_limit=1000000000", "capture_s=50", "save_tags=run.npy", *arguments])
        page = make_page(str(run.path / "run.npy"), str(run.json))
        self.assertAgree(run, page)
        self.assertEqual(page.notes, ())
        return page

    def test_uneven_delay_lines_show_their_widths(self):
        tags = 400_000
        page = self.page("sim://random?pace=max&seed=31&rate_hz=200000"
                         "&bin_nonuniformity_percent=60", f"stop_tags={tags}")
        # As unlikely for any of 4 * 180 codes as 4 sigma are for one.
        one = statistics.NormalDist().cdf(-SIGMAS)
        sigmas = -statistics.NormalDist().inv_cdf(one / (4 * 180))
        for c, codes in enumerate(page.codes_per_channel):
            self.assertIsNone(codes.reason)
            widths = delay_lines.widths_ps(31, c, 60)
            self.assertEqual(list(codes.codes_ps), sorted(widths))
            true = np.array([widths[int(place)] for place in codes.codes_ps]) / (3333 / 180) - 1
            # A code of the share s of n tags gets n s, more or less sqrt(n s (1 - s)).
            share = (true + 1) / 180
            sigma = np.sqrt(share * (1 - share) / page.channels[c].tags) * 180
            off = (codes.dnl - true) / sigma
            self.assertLess(np.abs(off).max(), sigmas)
            # The squares add up to 179, more or less sqrt(2 * 179).
            self.assertAlmostEqual(float((off ** 2 * (1 - share)).sum()), 179,
                                   delta=SIGMAS * math.sqrt(2 * 179))
            self.assertTrue(np.allclose(codes.inl, np.cumsum(codes.dnl)))
            # The sums are good to 4 sigma of what chance gives, too.
            true_inl = np.cumsum(true)
            inside = np.abs(codes.inl - true_inl)[:-1] / codes.inl_sigma[:-1]
            self.assertLess(inside.max(), sigmas)
            true_rms = math.sqrt(float(np.mean(true ** 2)))
            self.assertAlmostEqual(codes.dnl_rms_beyond_chance, true_rms, delta=0.02)
            self.assertGreater(true_rms, 0.25)
            self.assertFalse(codes.even)

    def test_exact_times_show_even_lines(self):
        page = self.page("sim://random?pace=max&seed=32&rate_hz=200000", "stop_tags=400000")
        for codes in page.codes_per_channel:
            self.assertIsNone(codes.reason)
            self.assertTrue(codes.even)
            self.assertEqual(len(codes.codes_ps), 3333)

    def test_every_format_and_damage_agrees_with_the_report(self):
        for form in ("raw64", "delta32", "packed_delta"):
            for keys in ("", "&flip_bits=1e-4", "&bin_nonuniformity_percent=60"):
                page = self.page(f"ftdi://?pace=max{keys}", "stop_tags=20000", f"format={form}")
                self.assertEqual(page.tags, 20_000)
                if form == "packed_delta":
                    self.assertIn("rounded to 8 ps", page.codes_per_channel[0].reason)

    def test_the_calibration_source_is_locked_to_the_clock(self):
        for form in ("raw64", "packed_delta"):
            run = Run(["port=ftdi://?pace=max", "mode=internal", f"format={form}", "capture_s=50",
                       "channel_a=2", "channel_b=3", "stop_tags=20000", "save_tags=run.npy"])
            page = make_page(str(run.path / "run.npy"), str(run.json))
            self.assertAgree(run, page)
            self.assertIn("unit's own clock", page.codes_per_channel[2].reason)
            self.assertGreater(page.codes_per_channel[2].coherence, 0.99)
            # Without the document it shows all the same.
            page = make_page(str(run.path / "run.npy"))
            self.assertIsNotNone(page.codes_per_channel[2].reason)
            self.assertEqual(page.run.quantum_ps, 8 if form == "packed_delta" else 1)

    def test_periodic_signals_from_outside_are_not_locked(self):
        # A period of 9 999 901 ps moves on by 901 ps of the clock period each time.
        times_ps = np.arange(1, 100_001) * 9_999_901
        codes = page_of(merged(times_ps)).codes_per_channel[0]
        self.assertIsNone(codes.reason)
        self.assertTrue(codes.even)


if __name__ == "__main__":
    plots.main()
