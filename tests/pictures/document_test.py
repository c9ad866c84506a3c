"""What a page says of the run, from documents of every kind."""

import json
import unittest

import plots
from plots import fresh, saved, tags_of
from pictures.calculating.errors import BadInput
from pictures.figures import Limit, Row
from pictures.calculating.page import Wishes, make_page

ROWS = [(2, 0), (3, 24), (2, 10**8), (3, 10**8 + 30)]


def document(**changes):
    """What the program writes of a run with these tags, in the parts that a page shows."""
    whole = {
        "format_version": 1,
        "program": "zelk_smoke_test",
        "version": "1.2.0",
        "run_id": "0f0e0d0c-0b0a-4908-8706-050403020100",
        "host": "bench",
        "start": "2026-11-22T09:10:11.012Z",
        "settings": {"port": "ftdi://", "format": "packed_delta", "mode": "internal",
                     "capture_s": 0.5, "cal_freq_hz": 10000.0, "threshold_v": None,
                     "channel_mask": 12, "channel_a": 2, "channel_b": 3,
                     "coincidence_window_ps": 500, "packed_quantum_ps": 5, "stop_tags": 0},
        "note": "rack 4",
        "identity": {"serial": "ZK4-0001", "device": "ZK4 four-channel TDC, simulated"},
        "reference_clock": {"active": "internal"},
        "applied": {"calibration_loaded": True, "tdl_masks": [7, 7, 7, 7], "dead_time_ps": None,
                    "packed_quantum_ps": 4},
        "figures": {"tags_total": 4, "ch0": 0, "ch1": 0, "ch2": 2, "ch3": 2,
                    "silent_tail_s": [None, None, 0.3, 0.2]},
        "limits": [{"text": "coincidences>=1", "met": True, "seen": "2"},
                   {"text": "tags_total>=9", "met": False, "seen": "4"},
                   {"text": "rate_hz>1", "met": None, "seen": None}],
        "error": None,
        "exit_status": 4,
    }
    return whole | changes


def page_with(data, rows=ROWS, **wishes):
    path = fresh("run.json")
    if isinstance(data, bytes):
        path.write_bytes(data)
    else:
        path.write_text(json.dumps(data))
    return make_page(str(saved(tags_of(rows))), str(path), Wishes(**wishes))


def pair_of(page):
    return page.pair.channel_a, page.pair.channel_b, page.pair.window_ps


class Shown(unittest.TestCase):
    def test_run_and_pair_are_those_of_the_document(self):
        page = page_with(document())
        run = page.run
        self.assertEqual((run.verdict, run.exit_status), ("FAIL", 4))
        self.assertEqual(run.meaning, "a limit is not met")
        self.assertEqual(run.limits, (Limit("coincidences>=1", True, "2"),
                                      Limit("tags_total>=9", False, "4"),
                                      Limit("rate_hz>1", None, None)))
        self.assertEqual((run.tags_file, run.json_file), ("run.npy", "run.json"))
        self.assertEqual((run.mode, run.format, run.quantum_ps), ("internal", "packed_delta", 4))
        self.assertEqual((run.start, run.note), ("2026-11-22T09:10:11.012Z", "rack 4"))
        self.assertEqual(run.channel_mask, 12)
        self.assertEqual([channel.streamed for channel in page.channels],
                         [False, False, True, True])
        self.assertEqual(pair_of(page), (2, 3, 500))
        self.assertEqual(page.notes, ())
        for row in (Row("Port", "ftdi://"), Row("Quantum", "4 ps"), Row("Channels", "2, 3"),
                    Row("Capture", "0.5 s"), Row("Calibration source", "10000 Hz"),
                    Row("Threshold", "as it was"), Row("Delay lines", "0x7, 0x7, 0x7, 0x7"),
                    Row("Dead time", "as it was"), Row("Calibration", "loaded")):
            self.assertIn(row, run.settings)
        self.assertIn(Row("Serial number", "ZK4-0001"), run.identity)

    def test_every_exit_status_has_its_verdict(self):
        for status, verdict, words in (
                (0, "PASS", "coincidences were found"), (1, "FAIL", "not one byte"),
                (2, "FAIL", "the run failed"), (3, "FAIL", "saw no tags"), (4, "FAIL", "limit"),
                (130, "not known", "ended early by SIGINT"), (143, "not known", "SIGTERM"),
                (134, "not known", "signal 6"), (77, "not known", "no meaning"),
                (None, "not known", "no document"), ("0", "not known", "no document"),
                (True, "not known", "no document"), (-1, "not known", "no document")):
            run = page_with(document(exit_status=status)).run
            self.assertEqual(run.verdict, verdict, status)
            self.assertIn(words, run.meaning)

    def test_a_failed_run_tells_its_error(self):
        page = page_with(document(exit_status=2, error="read_stream_bytes: the unit has vanished",
                                  figures={"tags_total": None}))
        self.assertEqual(page.run.error, "read_stream_bytes: the unit has vanished")
        self.assertIn("without a report", page.notes[0])

    def test_a_silent_tail_is_part_of_the_view(self):
        rates = page_with(document()).rates
        self.assertEqual(rates.silent_tail_s, 0.2)
        self.assertAlmostEqual(rates.end_s, 0.2 + 1e-4 + 30e-12)
        # A capture by the clock varies by as much as this.
        figures = document()["figures"] | {"silent_tail_s": [0.01, None, None, 0.3]}
        self.assertEqual(page_with(document(figures=figures)).rates.silent_tail_s, 0)


class OfAnotherRun(unittest.TestCase):
    def test_other_counts_are_told(self):
        page = page_with(document(), ROWS[:3])
        self.assertEqual(len(page.notes), 1)
        self.assertIn("may be of another run: it counts 0, 0, 2, 2 tags", page.notes[0])
        self.assertIn("has 0, 0, 2, 1", page.notes[0])

    def test_dropped_tags_are_told(self):
        figures = document()["figures"] | {"reader_dropped": 17}
        notes = page_with(document(figures=figures)).notes
        self.assertEqual(len(notes), 1)
        self.assertIn("dropped 17 of them", notes[0])

    def test_another_version_is_told(self):
        self.assertIn("another version", page_with(document(format_version=2)).notes[0])


class Arguments(unittest.TestCase):
    def test_say_what_no_document_says(self):
        path = str(saved(tags_of(ROWS)))
        page = make_page(path, None, Wishes(3, 2, 70, "internal"))
        self.assertEqual(pair_of(page), (3, 2, 70))
        self.assertEqual((page.run.mode, page.run.verdict), ("internal", "not known"))
        self.assertEqual(page.notes, ())
        page = make_page(path)
        self.assertEqual(pair_of(page), (0, 1, 1000))
        self.assertIn("the pair is channels 0 and 1", page.notes[0])

    def test_come_before_the_document(self):
        page = page_with(document(), window_ps=2000, mode="external")
        self.assertEqual((page.pair.channel_a, page.pair.window_ps), (2, 2000))
        self.assertEqual(page.run.mode, "external")
        self.assertIn("not those of the run's report, which had channels 2 and 3 and 500 ps",
                      page.notes[0])

    def test_of_one_channel_twice_are_refused(self):
        with self.assertRaises(BadInput):
            page_with(document(), channel_a=3)


class Damaged(unittest.TestCase):
    def test_documents_are_refused(self):
        for data in (b"", b"{", b"\xff\xfe", b"[1]", b"17", b'"text"', b"{}", b"[" * 100_000,
                     b'{"program": "other"}', b'{"program": ' + b"9" * 5000 + b"}"):
            with self.assertRaises(BadInput, msg=data[:20]) as caught:
                page_with(data)
            self.assertNotIn("\n", str(caught.exception))
        with self.assertRaises(BadInput):
            make_page(str(saved(tags_of(ROWS))), str(fresh("none.json")))

    def test_values_of_any_kind_count_as_not_known(self):
        odd = [None, True, -1, 2**70, 1e400, float("nan"), "text", "\ud800\0\n", [], [1, "a", None],
               {}, {"a": {}}, 0, 3.5, -2**63]
        keys = [key for key in document() if key != "program"]
        for key in keys:
            for value in odd:
                page = page_with(document(**{key: value}))
                self.assertEqual(page.tags, 4, (key, value))
        for outer in ("settings", "identity", "applied", "figures", "reference_clock"):
            for key in document()[outer]:
                for value in odd:
                    whole = document()
                    whole[outer] = whole[outer] | {key: value}
                    try:
                        page = page_with(whole)
                    except BadInput as error:
                        self.assertIn("both channel", str(error))
                        continue
                    self.assertEqual(page.tags, 4, (outer, key, value))
                    for row in page.run.settings + page.run.identity:
                        row.value.encode()
        for value in odd:
            run = page_with(document(limits=[value, {"text": value, "met": value,
                                                     "seen": value}])).run
            self.assertEqual(len(run.limits), 2)
            self.assertIsNone(run.limits[0].met)
            self.assertIs(run.limits[1].met, True if value is True else None)

    def test_texts_are_bounded(self):
        run = page_with(document(note="x" * 10**6, limits=[{"text": "y" * 10**4}] * 1000)).run
        self.assertLessEqual(len(run.note), 2000)
        self.assertLessEqual(sum(len(limit.text) for limit in run.limits), 400_000)


class OfARealRun(plots.Agreement):
    def test_agrees_and_leaves_no_note(self):
        for arguments in (["mode=internal", "channel_a=2", "channel_b=3"],
                          ["mode=external", "channel_mask=0x03", "format=raw64",
                           "require=coincidences>=1,tags_total>=1000000"]):
            run = plots.Run(["port=ftdi://?pace=max", "capture_s=50", "stop_tags=5000",
                             "save_tags=run.npy", "note=lot 7", *arguments])
            page = make_page(str(run.path / "run.npy"), str(run.json))
            self.assertEqual(page.run.exit_status, run.status)
            self.assertEqual(page.notes, ())
            self.assertEqual(page.run.note, "lot 7")
            run.error = ""  # names the limit that is not met
            self.assertAgree(run, page)
            figures = json.loads(run.json.read_text())["figures"]
            for channel in page.channels:
                rate = figures["rate_hz"][channel.number]
                if rate is None:
                    self.assertIsNone(channel.rate_hz)
                else:
                    self.assertEqual(f"{channel.rate_hz:.3f}", f"{rate:.3f}")


if __name__ == "__main__":
    plots.main()
