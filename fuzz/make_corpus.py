#!/usr/bin/env python3
"""Writes the seeds of the fuzzers whose inputs are not plain text.

Each is a short input that leads to one of the interesting places. The bytes mean
what the head of the fuzzer's file says. Seeds that were found later are files
beside these.
"""
import pathlib
import struct

CORPUS = pathlib.Path(__file__).parent / "corpus"


def write(fuzzer, name, *parts):
    folder = CORPUS / fuzzer
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(b"".join(parts))


# ---- decoder -----------------------------------------------------------------

RAW64, DELTA32, PACKED, NO_FORMAT = range(4)
INTERNAL, EXTERNAL = range(2)


def stream(fmt, mode, chunks, body, mask=0, bits=16, quantum=8, scene=None):
    head = struct.pack("<BBBBHB", fmt, mode, mask, bits, quantum, 0 if scene is None else 1)
    return head + bytes([len(chunks), *chunks]) + (scene or b"") + body


def ps_record(channel, time_ps):
    return struct.pack(">Q", channel << 61 | time_ps % (1 << 44))


def cf_record(channel, coarse, fine):
    return struct.pack(">Q", channel << 61 | 0xA5C3 << 45 | coarse % (1 << 32) << 13 | fine)


def d32_control(subtype, payload):
    return struct.pack(">I", 1 << 31 | subtype << 29 | 5 << 25 | payload)


def d32_tag(channel, delta):
    return struct.pack(">I", channel << 29 | 10 << 25 | delta)


D32_SYNC = bytes([0xEB, 0x5A, 0x55, 0xAA])


def d32_base(base_ps):
    return D32_SYNC + d32_control(1, base_ps % (1 << 25)) + d32_control(2, base_ps >> 25)


def packed(records, bits):
    """Bytes of (channel, flag, payload) records."""
    text = "".join(f"{c:02b}{f}{p % (1 << bits):0{bits}b}" for c, f, p in records)
    text += "0" * (-len(text) % 8)
    return bytes(int(text[i:i + 8], 2) for i in range(0, len(text), 8))


def packed_sync(channel, value, bits):
    chunks = [(channel, 0, value >> bits * k) for k in range((bits + 40) // bits)]
    return [(channel, 1, (1 << bits) - 1), *chunks]


def packed_stream(bits, channels, tags):
    records = []
    for channel in channels:
        records += packed_sync(channel, 5000 + channel, bits) + [(channel, 0, 3)]
    for i in range(tags):
        channel = channels[i % len(channels)]
        records += [(channel, 1, 2)] if i % 7 == 6 else []
        records += [(channel, 0, 20 + i % 11)]
    return records


def make_decoder():
    epoch = 3333 << 32
    ps = [ps_record(i % 4, 10**6 * i) for i in range(12)]
    wrap = [ps_record(1, epoch - 5), ps_record(1, 7), ps_record(2, epoch + 3), ps_record(1, 6)]
    write("decoder", "raw64_ps", stream(RAW64, EXTERNAL, [], b"".join(ps + wrap)))
    write("decoder", "raw64_ps_damaged",
          stream(RAW64, EXTERNAL, [3, 0, 17], b"\xff\x91" + b"".join(ps)[:50] + b"".join(wrap)))
    cf = [cf_record(i % 4, 1000 * i, 37 * i % 8192) for i in range(12)]
    cf += [cf_record(0, 2**32 - 1, 181), cf_record(0, 1, 0)]
    write("decoder", "raw64_cf", stream(RAW64, INTERNAL, [5], b"".join(cf)))
    extreme = struct.pack("<BBqqqqqq", 2, 1, 2**63 - 1, -2**63, 2**63 - 1, -2**63, -1, 2**63 // 3333)
    write("decoder", "raw64_scene", stream(RAW64, INTERNAL, [], b"".join(cf), scene=extreme))

    d32 = b"\xeb\x5a" + b"".join(d32_base(10**9 + c) + d32_tag(c, 5) for c in range(4))
    d32 += d32_tag(0, 77) + d32_control(0, 40000) + d32_tag(1, 3) + d32_control(3, 99)
    write("decoder", "delta32", stream(DELTA32, EXTERNAL, [7, 1, 0], d32 + d32_tag(2, 1)))
    lost = d32_base(10**12) + d32_tag(0, 1) + d32_base(10**12 - 9) + d32_tag(0, 1) + d32
    write("decoder", "delta32_lost_lock", stream(DELTA32, INTERNAL, [], lost))
    scene = struct.pack("<BqqqqQQ", 0x3F, 2**63 - 1, -2**63, epoch - 10**10, 7 << 41,
                        2**41 - 1, 32128)
    write("decoder", "delta32_scene",
          stream(DELTA32, EXTERNAL, [4], d32_tag(2, 9) + d32, scene=scene))

    # Steps that end exactly with the epoch once the wrap's excess is taken away,
    # one ps before and one behind.
    excess, before = 7 * 2**41 - epoch, 20 * 10**9
    for shift in (-1, 0, 1):
        step = excess + before + shift
        scene = struct.pack("<BqqqqQQ", 0x1F, *[epoch - before] * 4, 0, step >> 25)
        body = d32_tag(0, step % (1 << 25)) + d32_tag(0, 1)
        write("decoder", f"delta32_epoch_{shift + 1}",
              stream(DELTA32, EXTERNAL, [], body, scene=scene))
        scene = struct.pack("<BBB", 0x0F, 0, 0x5A)
        scene += struct.pack("<qIB", epoch - before, 0, 0) * 4 + struct.pack("<BQ", 0, 0)
        records = [(1, 1, 0), (0, 1, step >> 31), (0, 0, step), (1, 0, 1)]
        # The byte before the stream is a part of its first record.
        body = packed([*records, *records], 31)
        scene = scene[:2] + body[:1] + scene[3:]
        write("decoder", f"packed_epoch_{shift + 1}",
              stream(PACKED, EXTERNAL, [], body[1:], 0, 31, 1, scene))

    for bits, quantum in ((16, 8), (1, 1), (24, 1024), (31, 3)):
        body = packed(packed_stream(bits, [0, 1], 40), bits)
        write("decoder", f"packed_{bits}",
              stream(PACKED, EXTERNAL, [], body, 0x03, bits, quantum))
    body = b"\x5a\x01" + packed(packed_stream(12, [0, 1, 2, 3], 60), 12)
    write("decoder", "packed_internal", stream(PACKED, INTERNAL, [97, 31], body, 0, 12))
    # A lock that is given: a step of the other sign, and one past an epoch.
    scene = struct.pack("<BBB", 0xFF, 3, 0x5A)
    scene += b"".join(struct.pack("<qIB", 10**13 * c, 0, 0) for c in range(4))
    scene += struct.pack("<BQ", 3, 10**13)
    records = [(2, 0, 5), (0, 1, 60000), (0, 0, 1), (1, 1, 65534), (1, 0, 9), *packed_sync(1, 77, 16)]
    body = packed([(0, 0, 1), *records, (1, 0, 4), (3, 1, 65535), (2, 0, 0)], 16)
    write("decoder", "packed_scene", stream(PACKED, EXTERNAL, [4], body, scene=scene))
    write("decoder", "no_format", stream(NO_FORMAT, EXTERNAL, [5], b"whatever this is"))


# ---- analysis ----------------------------------------------------------------

def number(value, shift=0):
    """A 64-bit number as the fuzzer takes it."""
    return struct.pack("<qB", value, shift)


def capture(a, b, window, tags, batch=0, bins=0, width=8, offset=0):
    return (bytes([a, b]) + number(window) + bytes([batch, bins]) + number(width) +
            number(offset) + tags)


def near(channel, step):
    return struct.pack("<BB", channel, step)


def far(channel, step):
    return struct.pack("<BI", 3 << 2 | channel, step)


def at(channel, time_ps):
    return struct.pack("<Bq", 4 << 2 | channel, time_ps)


def row(channel, forties, step):
    """Forty times as many tags, one step apart."""
    return struct.pack("<BBH", 0xE0 | 6 << 2 | channel, forties, step)


def make_analysis():
    pairs = b"".join(near(0, 200) + near(1, 120 + i % 5) for i in range(30))
    write("analysis", "pairs", capture(0, 1, 1000, pairs))
    write("analysis", "batches_and_bins",
          capture(2, 3, 400, pairs + far(2, 70000) + near(3, 4) + far(0, 2**31), 7, 1))
    write("analysis", "out_of_order",
          capture(0, 1, 500, pairs + struct.pack("<BH", 2 << 2, 5000) + pairs, 1))
    write("analysis", "ends_of_the_range",
          capture(0, 1, 2**62, b"\x94\x05\x15\x07\x95\x00\x14\x00" + at(0, 0) + at(1, -1), 0, 4))
    for name, window in (("wide_window", 10**9), ("very_wide_window", 2**61),
                         ("widest_window", 2**63 - 1)):
        write("analysis", name,
              capture(1, 0, window, pairs + far(0, 2**31) + pairs + b"\x94\x05\x15\x07"))
    write("analysis", "small_window", capture(0, 1, 3, row(0, 1, 9) + at(0, 0) + row(1, 1, 9)))
    write("analysis", "every_second_tag",
          capture(0, 1, 30, at(1, 1000) + at(0, 0) + row(0, 210, 7) + at(1, 500) + near(1, 9)))
    write("analysis", "side_windows",
          capture(1, 0, 4000, b"".join(at(1, 10**6 * i) + at(0, 10**6 * i + d)
                                       for i, d in enumerate((0, 0, 0, 3333, -3330, 3290)))))
    write("analysis", "no_partner", capture(3, 3, -5, near(2, 1) + b"\x1f\xff", 0, 2, 0))
    write("analysis", "wide_bins", capture(0, 1, 2**40, pairs, 0, 8, 2**30, -7))


# ---- ports -------------------------------------------------------------------

START_EXTERNAL = bytes([14, 1, 0])
START_INTERNAL = bytes([14, 0, 0])


def read(capacity, wait=0):
    return struct.pack("<BHB", 16, capacity, wait)


def interface(fmt):
    return bytes([9, 1, fmt])


SET_UP = (bytes([0, 1, 1, 2, 3, 1, 0, 4, 7, 7, 7, 7, 5, 6]) + struct.pack("<4H", *[0xC000] * 4) +
          bytes([7]) + number(10000) + bytes([8, 16, 8, 0]))


def port(name, text, *calls):
    write("ports", name, text.encode() + b"\n\0", *calls)


def make_ports():
    stop = bytes([15, 1])
    reads = read(4096, 1) * 2 + read(7) + read(0) + read(65535, 1)
    port("default_unit", "ftdi://", SET_UP, bytes([10, 15]), interface(2), START_EXTERNAL, reads,
         stop, read(9))
    port("calibration", "ftdi://ZK4-0001?pace=max&start_epoch=1", bytes([11, 0, 0xA0, 0x86, 1, 0, 12]),
         interface(0), START_INTERNAL, SET_UP, reads, stop, bytes([13]))
    port("pairs", "sim://pairs?pair_rate_hz=5000&background_hz=1e3,0,0,9&pace=max&seed=7",
         interface(1), START_EXTERNAL, reads, stop, START_EXTERNAL, reads)
    port("pulses", "sim://pulses?frequency_hz=5e7&delay_ps=0,9,1e9,4&jitter_ps=1e6&pace=max"
         "&bin_nonuniformity_percent=60&drift_ppm=-1000", interface(2), START_EXTERNAL, reads)
    port("detectors", "sim://random?rate_hz=2e7&efficiency=0.5,1,0,1&amplitude_v=0,1,2.5,10&pace=max"
         "&detector_dead_time_ps=20000&afterpulse_percent=50&afterpulse_tau_ps=9e8",
         START_EXTERNAL, reads)
    port("burst", "sim://burst?burst_us=10&pause_us=0&link_bytes_per_s=1000000000&short_reads=1",
         interface(2), START_EXTERNAL, reads)
    port("tags", "sim://tags?file=tags.csv&loop=1&loop_gap_ps=1&pace=max", START_EXTERNAL, reads)
    port("prepared", "sim://burst?pause_us=0&prepared_s=0.001&start_bits=9&pace=max", interface(2),
         START_EXTERNAL, reads)
    port("damage", "sim://burst?pause_us=0&flip_bits=1e-2&lose_bytes=0.1&insert_bytes=.1"
         "&remove_bits=1e-3&insert_bits=1e-3&pace=max", START_EXTERNAL, reads)
    port("faults", "sim://silent?silent_at_s=0&silent_for_s=1e-3&empty_at_s=0.002&remove_bit_at_s=0"
         "&insert_bit_at_s=0&zeros_at_s=0&ones_at_s=0&vanish_at_s=0.01", START_EXTERNAL, reads * 2)
    port("failing_calls", "sim://silent?fail=set_dac_codes%232:-321:DAC 2%2C no answer,"
         "read_stream_bytes@0:-10:%26", SET_UP, SET_UP, START_EXTERNAL, reads)
    port("reference", "ftdi://?external_reference=locked&reference_lost_at_s=0&reference_unavailable=-7",
         bytes([3, 2, 1, 2]), START_EXTERNAL, bytes([2]))
    port("tap", "tap://a.rec?library=none&port=ftdi://&fail=open:-7")
    port("replay", "replay://tags.csv?pace=max&cut_short=1&seed=4")
    port("wrong_value", "sim://pairs?pair_rate_hz=2e99")
    port("wrong_place", "sim://silent?pair_rate_hz=1")
    port("wrong_key", "sim://tags?file=tags.csv&pair_rate=1")
    port("wrong_name", "sim://pars&seed=1")
    port("cut_path", "replay:///lab/what?/R&D.rec")


# ---- recordings --------------------------------------------------------------

CUT_SHORT, AS_IT_IS, CUT_OFF, CHANGED, LONGER = 1, 2, 4, 8, 12


def text(value):
    return b"\xff" * 4 if value is None else struct.pack("<I", len(value)) + value.encode()


def answer(status=0, status_text=None, last_error=None):
    return struct.pack("<i", status) + text(status_text) + text(last_error)


def call(time, kind, arguments=(), results=(), answered=answer()):
    words = struct.pack(f"<{len(arguments) + len(results)}Q", *arguments, *results)
    return b"\x01" + struct.pack("<QI", time, kind) + answered + words


def chunk(time, data):
    return b"\x02" + struct.pack("<Q", time) + data


def quiet(first, last, count, answered):
    return b"\x03" + struct.pack("<QQQ", first, last, count) + answered


def failed(time, answered):
    return b"\x04" + struct.pack("<Q", time) + answered


def end(time):
    return b"\x05" + struct.pack("<Q", time)


OPENING = b"\x00" + text("/lib/real.so") + text("usb0") + struct.pack("<i", 0)


def recording(name, records, flags=0, place=0, byte=0, read_size=5):
    write("recordings", name, struct.pack("<BHBB", flags, place, byte, read_size),
          b"\xff\xfe".join(records))


def make_recordings():
    busy = answer(-6, "busy", "stop the stream first")
    late = answer(-3, "nothing came", "late")
    set_up = [
        OPENING,
        call(1, 0, results=[0x41] * 12),
        call(2, 1, [1], answered=answer(-6, "no such table", "slot 3")),
        call(3, 3, [1, 0], [0] * 9),
        call(4, 4, [7] * 4),
        call(5, 5, results=[7] * 4),
        call(6, 7, [10000], [13332]),
        call(7, 8, [16, 8], [16, 8]),
        call(8, 9, [1, 2]),
        call(9, 11, [0x40C3880000000000], [30003]),
        call(10, 12),
    ]
    played = [
        call(20, 14, [0, 0]),
        quiet(21, 25, 5, late),
        chunk(30, bytes(range(50))),
        failed(31, answer(-9, "broken")),
        chunk(32, b""),
        chunk(32, b"abc"),
        call(33, 10, [3], answered=busy),
        failed(34, answer(-9, "broken", "for good")),
        call(40, 15, [1]),
    ]
    again = [call(50, 13), call(51, 14, [1, 0]), chunk(52, b"x" * 40), quiet(53, 54, 2, answer())]
    recording("whole", [*set_up, *played, end(60)])
    recording("two_streams", [*set_up, *played, *again, call(58, 15, [0]), end(60)], read_size=0)
    recording("cut_short", [*set_up, *played, *again], CUT_SHORT)
    recording("refused_as_cut_short", [*set_up, *played])
    recording("cut_inside", [*set_up, *played, end(60)], CUT_OFF | CUT_SHORT, 700)
    recording("changed_byte", [*set_up, *played, end(60)], CHANGED, 300, 0x10)
    recording("longer", [*set_up, end(60)], LONGER)
    recording("start_alone", [OPENING, call(1, 14, [0, 0]), chunk(2, b"tags"), end(3)])
    recording("failed_start", [OPENING, call(1, 14, [0, 0], answered=busy), end(3)])
    recording("error_after_success", [OPENING, call(1, 12, answered=answer(0, None, "x")), end(2)])
    recording("time_falls", [OPENING, call(5, 12), call(4, 13), end(6)])
    recording("no_recording", [b"ZTDC but not quite"], AS_IT_IS)
    recording("other_version", [b"ZTDC\r\n\x1a\n\x02\0\0\0"], AS_IT_IS)


# ---- tag_files ---------------------------------------------------------------

ROW_TYPE = "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')]"


def array(name, rows, count=None, version=1, row_type=ROW_TYPE, order="False", shape=None,
          behind=b"", filling=None):
    count = len(rows) if count is None else count
    text = (f"{{'descr': {row_type}, 'fortran_order': {order}, "
            f"'shape': {shape or f'({count},)'}, }}")
    length = {1: "<H", 2: "<I", 3: "<I"}[version]
    head = 8 + struct.calcsize(length)
    blanks = -(head + len(text) + 1) % 64 if filling is None else filling
    text = text.encode() + b" " * blanks + b"\n"
    write("tag_files", "array_" + name, b"\x93NUMPY", bytes([version, 0]),
          struct.pack(length, len(text)), text,
          *(struct.pack("<B7sQ", channel, padding, time % (1 << 64))
            for channel, time, padding in rows), behind)


def tag_row(channel, time, padding=b""):
    return channel, time, padding


def make_tag_files():
    epoch = 3333 << 32
    good = [tag_row(0, 5), tag_row(3, 5), tag_row(1, 7, b"\xff" * 7), tag_row(2, epoch - 1),
            tag_row(2, epoch), tag_row(0, (1 << 61) - 1)]
    array("good", good)
    array("version_two", good, version=2)
    array("version_three", good, version=3)
    array("equal_times_on_a_channel", [tag_row(1, 9), tag_row(1, 9), tag_row(0, 9), tag_row(1, 9)])
    array("empty", [])
    array("not_filled_up", good[:1], filling=0)
    array("falling", [tag_row(0, 5), tag_row(1, 4)])
    array("negative", [tag_row(0, -1)])
    array("too_late", [tag_row(0, 1 << 61)])
    array("channel_four", [tag_row(3, 1), tag_row(4, 2)])
    array("all_wrong", [tag_row(0, 9), tag_row(200, -(1 << 63))])
    array("run_did_not_end", good, count=0, behind=b"\2\0\0")
    array("count_too_small", good, count=2)
    array("cut_short", good, count=9)
    array("bytes_behind", good, behind=b"\0")
    array("count_of_twenty_digits", good[:1], count=10**20 - 1)
    array("largest_count", good[:1], count=2**64 - 1)
    array("leading_zero", good[:1], shape="(01,)")
    array("two_lengths", good[:2], shape="(1, 2)")
    array("fortran_order", good, order="True")
    array("times_alone", good, row_type="'<i8'")
    array("big_endian", good, row_type=ROW_TYPE.replace("<i8", ">i8"))
    array("without_padding", good,
          row_type="[('channel', '|u1'), ('timestamp_ps', '<i8')]")
    write("tag_files", "array_magic_alone", b"\x93NUMPY")
    write("tag_files", "array_cut_inside_header", b"\x93NUMPY\1\0\x76\0{'descr': ")
    write("tag_files", "array_endless_header", b"\x93NUMPY\2\0\xff\xff\xff\xff{")
    write("tag_files", "array_magic_cut", b"\x93NUMP")


# ---- fine_table --------------------------------------------------------------

def tables(*lists, magic=b"TLUT", version=1, zeros=0):
    body = b"".join(struct.pack(f"<I{len(entries)}q", len(entries), *entries) for entries in lists)
    return struct.pack("<I", zeros) + magic + struct.pack("<I", version) + body


def make_fine_table():
    four = ([1], [-5, 2**63 - 1], list(range(0, 400, 19)), [-2**63, 0, 4])
    write("fine_table", "whole", tables(*four))
    write("fine_table", "more_behind", tables(*four, [9]))
    write("fine_table", "three_tables", tables(*four[:3]))
    write("fine_table", "cut_short", tables(*four)[:-3])
    write("fine_table", "empty_table", tables(*four[:2], [], [1]))
    write("fine_table", "other_magic", tables(*four, magic=b"TLUX"))
    write("fine_table", "other_version", tables(*four, version=2))
    # Counts in the place of the fourth table, with zeros for its entries.
    for name, count in (("largest_count", 1048576), ("too_large_count", 1048577)):
        write("fine_table", name,
              tables(*four[:3], zeros=8 * 1048577 + 1), struct.pack("<I", count))


make_decoder()
make_analysis()
make_ports()
make_recordings()
make_tag_files()
make_fine_table()
