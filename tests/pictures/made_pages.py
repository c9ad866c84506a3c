"""Pages with numbers that are made up, so that drawing is tested without calculating."""

import dataclasses

import numpy as np

import plots  # noqa: F401: it knows where the package is

from pictures import figures
from pictures.figures import (Backwards, Channel, CodeDensity, Correlation, Gap, Intervals, Limit,
                              Page, Pair, PeriodicTiming, RatePlot, Residues, Row, Run, Steps,
                              WideView)

NONE = np.array([])
# What somebody might write into a note, a serial number or a file name.
HOSTILE = ("</script><script>throw 'out'</script><!-- \" ' & <img src=http://x.invalid onerror=1> "
           "$x_{$ \\frac{1}{0} 100 % _a_ ${1}^$ \u202e\u0000\n\t\ud800 \u65e5\u672c \U0001f600 "
           + "long" * 200)


def run(**changes):
    made = Run(tags_file="unit_7.npy", json_file="unit_7.json", verdict=figures.PASS,
               meaning="both channels of the pair saw tags and coincidences", exit_status=0,
               error=None,
               limits=(Limit("coincidences>=4000", True, "4988"),
                       Limit("xcorr_rms_ps<5", False, "6.664"),
                       Limit("rate_hz[3]>0", None, None)),
               settings=(Row("Port", "sim://pairs?a=1&b=2"), Row("Threshold", "0.5 V")),
               identity=(Row("Serial", "ZK4-0001"),), mode="external", format="raw64",
               quantum_ps=1, start="2026-11-22T09:00:00.000Z", note="lot 7", channel_mask=15)
    return dataclasses.replace(made, **changes)


def channel(number, tags):
    return Channel(number=number, streamed=True, tags=tags, first_ps=1000 if tags else None,
                   last_ps=10**12 if tags else None, rate_hz=tags - 1.0 if tags > 1 else None,
                   monotonic_violations=number, steps=Steps(20017 + number, 400_000_000 + number,
                                                            (0, 11, 222, 3333 + number)),
                   residues=Residues(180 + number, 7 + number, ((36, 418), (37, 405))))


def rates(tags):
    bins = 200
    edges = np.linspace(0, 2.0, bins + 1)
    per_channel = tuple(np.where((edges[:-1] > 0.8) & (edges[:-1] < 0.9), 0.0, 0.5 * n)
                        for n in tags)
    gaps = tuple((Gap(0.8, 0.9),) if n else () for n in tags)
    backwards = tuple((Backwards(1.2, -3333, 77), Backwards(1.21, -5, 99)) if n else ()
                      for n in tags)
    return RatePlot(reason=None, origin_ps=1000, end_s=2.0, edges_s=edges,
                    rates_hz_per_channel=per_channel, gaps_per_channel=gaps,
                    gaps_total_per_channel=tuple(3 if n else 0 for n in tags),
                    gaps_length_s_per_channel=tuple(0.125 if n else 0.0 for n in tags),
                    backwards_per_channel=backwards,
                    backwards_total_per_channel=tuple(5 if n else 0 for n in tags),
                    outside_per_channel=(0, 0, 0, 2), silent_tail_s=0.25)


def correlation():
    centers = np.arange(-125, 126) * 8
    counts = np.rint(2312 * np.exp(-(centers / 30.0) ** 2)).astype(np.int64) + 3
    return Correlation(reason=None, tags_a=4989, tags_b=4988, coincidences=4987, offset_ps=118,
                       offset_valid=True, peak_count=2315, peak_center_ps=0, rms_ps=58.161,
                       fwhm_ps=136.969, minus_period_window=11, plus_period_window=13,
                       side_windows_ps=((-3373, -3293), (3293, 3373)),
                       window_covers_sides=False, top_bins=((0, 2315), (8, 2156), (-8, 2156)),
                       bins=251, pairs=int(counts.sum()), sampled=0.5, merged=1,
                       centers_ps=centers, counts=counts)


def wide():
    edges = np.linspace(-100_000, 100_000, 801)
    counts = np.full(800, 2)
    counts[400] = 4000
    return WideView(reason=None, range_ps=100_000, bin_width_ps=250, tags_used=4000,
                    tags_total=4989, pairs=int(counts.sum()), edges_ps=edges, counts=counts,
                    peak_ps=125.0)


def intervals():
    edges = 1000.0 * 2 ** (np.arange(201) / 8)
    counts = np.zeros(200, dtype=np.int64)
    counts[40:150] = np.arange(110) ** 2
    return Intervals(reason=None, edges_ps=edges, counts=counts, zero=4, negative=5,
                     shortest_ps=33_000, median_ps=1.25e8, longest_ps=442_000_000)


def codes():
    positions = np.arange(0, 3333, 18.5)
    dnl = 0.6 * np.sin(positions)
    counts = np.zeros(3333, dtype=np.int64)
    counts[positions.astype(int)] = np.rint(200 * (1 + dnl))
    return CodeDensity(density_reason=None, counts=counts, reason=None, coherence=0.01,
                       codes_ps=positions, dnl=dnl, inl=np.cumsum(dnl), tags_per_code=200.0,
                       code_width_ps=18.5, dnl_sigma=0.07,
                       inl_sigma=0.07 * np.sqrt(np.arange(len(dnl))), dnl_rms=0.42,
                       dnl_rms_beyond_chance=0.41, dnl_min=-0.6, dnl_max=0.6, inl_min=-1.5,
                       inl_max=1.25, even=False)


def timing():
    times = np.linspace(0, 2.0, 300)
    mean = 2 * np.sin(3 * times)
    edges = np.arange(-41, 42) * 1.0
    return PeriodicTiming(reason=None, period_ps=99_999_999.25, frequency_hz=10_000.0, pulses=4989,
                          missing=2, time_s=times, tie_min_ps=mean - 9, tie_max_ps=mean + 9,
                          tie_mean_ps=mean, tie_rms_ps=4.25, tie_peak_to_peak_ps=31.5,
                          period_jitter_rms_ps=5.75, period_jitter_peak_to_peak_ps=40.5,
                          cycle_jitter_rms_ps=9.75, cycle_jitter_peak_to_peak_ps=61.5,
                          period_edges_ps=edges,
                          period_counts=np.rint(900 * np.exp(-(edges[:-1] / 8) ** 2)))


def without(plot, words, **changes):
    """The plot that cannot be shown: what it holds is empty."""
    empty = {f.name: NONE for f in dataclasses.fields(plot)
             if isinstance(getattr(plot, f.name), np.ndarray)}
    return dataclasses.replace(plot, **(empty | {"reason": words} | changes))


def full():
    tags = (4989, 4988, 2000, 50)
    return Page(run=run(), pair=Pair(0, 1, 1000), tags=sum(tags),
                channels=tuple(channel(n, t) for n, t in enumerate(tags)), rates=rates(tags),
                correlation=correlation(), wide=wide(),
                intervals_per_channel=(intervals(),) * 4, codes_per_channel=(codes(),) * 4,
                timing_per_channel=(timing(),) * 4, notes=("A row was left out.",))


def bare(reason):
    """A page without a plot."""
    page = full()
    return dataclasses.replace(
        page, rates=without(page.rates, reason), correlation=without(page.correlation, reason),
        wide=without(page.wide, reason), intervals_per_channel=(without(intervals(), reason),) * 4,
        codes_per_channel=(without(codes(), reason, density_reason=reason),) * 4,
        timing_per_channel=(without(timing(), reason),) * 4)
