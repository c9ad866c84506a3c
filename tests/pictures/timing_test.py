"""Time interval error and jitter of periodic signals."""

import math
import unittest

import numpy as np

import plots
from plots import Run
from pictures.calculating.chunks import CHUNK
from pictures.calculating.page import make_page
from pictures.calculating.periodic_timing import MOST_BINS, MOST_STRETCHES, periodic_timing

SIGMAS = 4


def of(times_ps, origin_ps=0, quantum_ps=1):
    return periodic_timing(np.asarray(times_ps, np.int64), origin_ps, quantum_ps)


class ByHand(unittest.TestCase):
    def test_a_signal_without_jitter_has_no_error(self):
        found = of(5000 + np.arange(50) * 1000)
        self.assertIsNone(found.reason)
        self.assertEqual((found.period_ps, found.frequency_hz), (1000, 1e9))
        self.assertEqual((found.pulses, found.missing), (50, 0))
        self.assertEqual((found.tie_rms_ps, found.tie_peak_to_peak_ps), (0, 0))
        self.assertEqual((found.period_jitter_rms_ps, found.cycle_jitter_rms_ps), (0, 0))
        self.assertEqual(list(found.period_counts), [49])

    def test_a_period_need_not_be_whole(self):
        # Every third pulse comes a ps late: a period of 1000 and a third.
        times_ps = [1000 * i + i // 3 for i in range(301)]
        found = of(times_ps)
        self.assertAlmostEqual(found.period_ps, 1000 + 1 / 3, places=4)
        # Thirds of a ps before, on and after the line.
        self.assertAlmostEqual(found.tie_rms_ps, math.sqrt(2 / 27), places=2)
        self.assertAlmostEqual(found.tie_peak_to_peak_ps, 2 / 3, places=2)
        # Periods of 1000 twice and 1001 once.
        self.assertAlmostEqual(found.period_jitter_rms_ps, math.sqrt(2 / 9), places=9)
        self.assertEqual(found.period_jitter_peak_to_peak_ps, 1)
        self.assertEqual(list(found.period_counts), [200, 100])
        edges_ps = [-0.5 - 1 / 3, 0.5 - 1 / 3, 1.5 - 1 / 3]
        self.assertTrue(np.allclose(found.period_edges_ps, edges_ps))

    def test_jitter_of_every_other_pulse(self):
        # Odd pulses are 10 ps late: periods of 1010 and 990, errors of 5 either way.
        found = of([1000 * i + 10 * (i % 2) for i in range(1000)])
        self.assertAlmostEqual(found.period_ps, 1000, places=3)
        self.assertAlmostEqual(found.tie_rms_ps, 5, places=2)
        self.assertAlmostEqual(found.tie_peak_to_peak_ps, 10, places=1)
        self.assertAlmostEqual(found.period_jitter_rms_ps, 10, places=3)
        self.assertEqual(found.period_jitter_peak_to_peak_ps, 20)
        # From one period to the next it is 20 up or down.
        self.assertAlmostEqual(found.cycle_jitter_rms_ps, 20, places=3)
        self.assertEqual(found.cycle_jitter_peak_to_peak_ps, 40)

    def test_lost_pulses_are_counted_and_do_no_harm(self):
        times_ps = np.delete(np.arange(200) * 1000, [5, 50, 51, 52])
        found = of(times_ps)
        self.assertEqual((found.pulses, found.missing), (196, 4))
        self.assertEqual((found.period_ps, found.tie_peak_to_peak_ps), (1000, 0))
        self.assertEqual(found.period_counts.sum(), 193)

    def test_a_jump_of_a_clock_period_shows(self):
        times_ps = np.arange(1000) * 100_000
        times_ps[600:] += 3333
        found = of(times_ps)
        self.assertEqual(found.period_jitter_peak_to_peak_ps, 3333)
        step = found.tie_mean_ps[600] - found.tie_mean_ps[599]
        self.assertAlmostEqual(step, 3333 - (found.period_ps - 100_000), places=3)

    def test_a_long_run_far_from_0_is_exact(self):
        # Floating-point numbers here are 512 ps apart.
        start = 2**62 + 12_345
        found = of(start + np.arange(1000) * 10**12 + np.arange(1000) % 2, start)
        self.assertAlmostEqual(found.tie_peak_to_peak_ps, 1, places=2)
        self.assertAlmostEqual(found.time_s[-1], 999, places=6)

    def test_times_may_wrap_around(self):
        times_ps = np.arange(2000).astype(np.int64) * 10**6 + (2**63 - 10**9)
        found = of(times_ps)  # the second half lies at the other end of the range
        self.assertLess(times_ps[-1], times_ps[0])
        self.assertEqual((found.tie_peak_to_peak_ps, found.missing), (0, 0))


class NotPeriodic(unittest.TestCase):
    def test_signals_say_so(self):
        draw = np.random.default_rng(1)
        random = np.cumsum(draw.exponential(10**6, 5000)).astype(np.int64)
        for times_ps in (random, np.zeros(50), np.arange(50) * -1000, random[::-1],
                         [0, 2**63 - 1] * 20):
            found = of(times_ps)
            self.assertIn("not periodic", found.reason)
            self.assertEqual(len(found.tie_mean_ps), 0)

    def test_few_tags_say_so(self):
        self.assertEqual(of([]).reason, "the channel saw no tags")
        self.assertIn("9 tags are too few", of(np.arange(9) * 1000).reason)
        self.assertIsNone(of(np.arange(10) * 1000).reason)

    def test_damage_in_a_periodic_signal_is_borne(self):
        draw = np.random.default_rng(2)
        times_ps = np.arange(5000) * 10**6
        times_ps[draw.integers(0, 5000, 100)] = draw.integers(-2**63, 2**63 - 1, 100)
        found = of(times_ps)
        self.assertIsNone(found.reason)
        self.assertTrue(np.isfinite(found.tie_max_ps).all())
        self.assertGreater(found.missing, 0)


class Long(unittest.TestCase):
    def test_runs_are_drawn_as_an_envelope(self):
        draw = np.random.default_rng(3)
        count = 2 * CHUNK + 1234
        jitter_ps = np.rint(draw.normal(0, 20, count)).astype(np.int64)
        times_ps = 777 + np.arange(count) * 123_457 + jitter_ps
        found = of(times_ps)
        self.assertLessEqual(len(found.time_s), MOST_STRETCHES)
        self.assertLessEqual(len(found.period_counts), MOST_BINS)
        self.assertEqual(found.period_counts.sum(), count - 1)
        # The line through all of them, from the plain formulas.
        errors = times_ps - np.polyval(np.polyfit(np.arange(count), times_ps - 777, 1),
                                       np.arange(count)) - 777
        self.assertAlmostEqual(found.tie_rms_ps, errors.std(), places=3)
        self.assertAlmostEqual(found.tie_max_ps.max(), errors.max(), places=2)
        self.assertAlmostEqual(found.tie_min_ps.min(), errors.min(), places=2)
        self.assertTrue((found.tie_min_ps <= found.tie_mean_ps).all())
        self.assertTrue((found.tie_mean_ps <= found.tie_max_ps).all())
        size = -(-count // MOST_STRETCHES)
        self.assertAlmostEqual(found.tie_max_ps[700], errors[700 * size:701 * size].max(), places=2)
        periods = np.diff(times_ps)
        self.assertAlmostEqual(found.period_jitter_rms_ps, periods.std(), places=6)
        self.assertEqual(found.period_jitter_peak_to_peak_ps, np.ptp(periods))
        changes = np.diff(periods)
        self.assertAlmostEqual(found.cycle_jitter_rms_ps, changes.std(), places=6)
        self.assertEqual(found.cycle_jitter_peak_to_peak_ps, np.ptp(changes))
        # White jitter of s: periods differ by s sqrt 2, neighbouring ones by s sqrt 6.
        self.assertAlmostEqual(found.cycle_jitter_rms_ps, 20 * math.sqrt(6),
                               delta=20 * math.sqrt(6) * SIGMAS / math.sqrt(count))

    def test_histograms_have_bins_of_whole_quanta(self):
        draw = np.random.default_rng(4)
        times_ps = np.arange(20_000) * 10**6 + draw.normal(0, 900, 20_000)
        found = of(times_ps.astype(np.int64) // 8 * 8, 0, 8)
        widths = np.diff(found.period_edges_ps)
        self.assertTrue(np.allclose(widths, widths[0]))
        self.assertEqual(round(widths[0]) % 8, 0)
        self.assertGreater(widths[0], 8)
        self.assertLessEqual(len(widths), MOST_BINS)


class OfAUnit(unittest.TestCase):
    def test_the_calibration_source_has_its_frequency_and_jitter(self):
        run = Run(["port=ftdi://?pace=max", "mode=internal", "format=raw64", "capture_s=50",
                   "channel_mask=0x0f", "stop_tags=40000", "save_tags=run.npy"])
        page = make_page(str(run.path / "run.npy"), str(run.json))
        for found in page.timing_per_channel:
            self.assertIsNone(found.reason)
            self.assertEqual((found.pulses, found.missing), (10_000, 0))
            # The clock of 3333 ps divided by 30 003.
            self.assertAlmostEqual(found.period_ps, 99_999_999, delta=0.01)
            # 4 ps rms per pulse, and the rounding to codes of 18.5 ps in raw64's layout.
            self.assertLess(found.tie_rms_ps, math.hypot(4, 18.5 / math.sqrt(12)) * 1.5)
            self.assertLessEqual(found.tie_peak_to_peak_ps, 28 + 2 * 18.5)

    def test_pulses_from_outside_are_periodic_too(self):
        run = Run(["port=sim://pulses?pace=max&jitter_ps=50&drift_ppm=20", "mode=external",
                   "format=raw64", "capture_s=50", "channel_mask=0x01", "stop_tags=20000",
                   "save_tags=run.npy"])
        found = make_page(str(run.path / "run.npy")).timing_per_channel[0]
        # 100 kHz, seen by a clock that runs fast by 20 ppm. The line is good to
        # 50 ps sqrt(12 / n) / n per pulse.
        self.assertAlmostEqual(found.period_ps, 10_000_200,
                               delta=SIGMAS * 50 * math.sqrt(12 / 20_000) / 20_000)
        # A spread of n pulses is good to 1 / sqrt(2 n) of itself.
        for seen, expected in ((found.tie_rms_ps, 50),
                               (found.period_jitter_rms_ps, 50 * math.sqrt(2)),
                               (found.cycle_jitter_rms_ps, 50 * math.sqrt(6))):
            # Neighbouring periods share a pulse, so that fewer of them count.
            self.assertAlmostEqual(seen, expected,
                                   delta=SIGMAS * expected * math.sqrt(3 / (2 * 20_000)))


if __name__ == "__main__":
    plots.main()
