#!/usr/bin/env python3
"""Builds and runs what another project makes of the library, in one way of taking it."""

import argparse
import json
import os
import pathlib
import re
import shlex
import shutil
import struct
import subprocess

SOURCE = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ("count_tags", "correlate", "decode_file")
STRICT = ("-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror")


def run(*command, status=0, **more):
    command = [str(part) for part in command]
    print("+", shlex.join(command), flush=True)
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            check=False, **more)
    assert result.returncode == status, f"status {result.returncode}\n{result.stdout}{result.stderr}"
    return result


def output(*command, **more):
    result = run(*command, **more)
    assert result.stderr == "", result.stderr
    return result.stdout


def until(seen, look):
    """A program that ends by the clock may see nothing at all on a busy machine."""
    for _ in range(20):
        result = look()
        if seen(result):
            return result
    raise AssertionError(result)


def counted(text):
    lines = text.splitlines()
    counts = [int(re.fullmatch(rf"channel {channel}: (\d+) tags", line)[1])
              for channel, line in enumerate(lines)]
    assert len(counts) == 4, text
    return counts


def check_count_tags(program):
    counts = until(lambda counts: counts[0] > 0 and counts[1] > 0,
                   lambda: counted(output(program, "0.5", "sim://pairs")))
    # The pairs are on channels 0 and 1, and nothing else is there.
    assert counts[2:] == [0, 0], counts


def check_pairs(text, seconds, delay_ps):
    lines = text.splitlines()
    assert len(lines) == seconds, text
    for line in lines:
        if line != "no pairs":
            found = re.fullmatch(r"[1-9]\d* pairs, most of them (-?\d+) ps apart, rms [\d.]+ ps",
                                 line)
            # The jitter is 57 ps.
            assert abs(int(found[1]) - delay_ps) <= 200, line


def check_correlate(program):
    # Channel 1 is 1200 ps later, so channel 0 is earlier.
    text = until(lambda text: " pairs, " in text,
                 lambda: output(program, "2", "1", "0", "sim://pairs?pair_delay_ps=1200"))
    check_pairs(text, 2, -1200)
    assert output(program, "1", "0", "1", "sim://silent") == "no pairs\n"


def check_decode_file(program, directory):
    tags = [(0, 1000), (1, 1500), (3, 2_000_000), (2, (1 << 41) + 7)]
    stream = directory / "stream.bytes"
    # raw64 in picoseconds: the channel in bits 62 and 61, the time in the low 44.
    stream.write_bytes(b"".join(struct.pack(">Q", channel << 61 | time) for channel, time in tags))
    expected = "channel,timestamp_ps\n" + "".join(f"{tag[0]},{tag[1]}\n" for tag in tags)
    assert output(program, stream) == expected
    assert output(program, stream, "raw64") == expected
    assert run(program, directory / "none", status=1).stderr == f"cannot open {directory}/none\n"
    assert run(program, stream, "raw", status=1).stderr == "no such format: raw\n"


def check_examples(directory):
    check_count_tags(directory / "count_tags")
    check_correlate(directory / "correlate")
    check_decode_file(directory / "decode_file", directory)
    refused = run(directory / "count_tags", "1", "sim://nothing", status=1)
    assert refused.stderr.startswith("open: "), refused.stderr


def check_flags(build):
    """The other project's own files are compiled with what it asked for, and no more."""
    own = [entry for entry in json.loads((build / "compile_commands.json").read_text())
           if "/timing/" not in entry["file"] and "/simulator/" not in entry["file"]]
    assert len(own) == len(EXAMPLES) + 1, own
    for entry in own:
        words = shlex.split(entry["command"])
        flags = {word for word in words if word.startswith("-")}
        allowed = {flag for flag in flags if re.match("-I|-isystem|-std=gnu\\+\\+20|-Werror$", flag)}
        assert flags - allowed == {"-o", "-c"}, flags


def install(args, prefix, *components):
    for component in components:
        output(args.cmake, "--install", args.build, "--prefix", prefix, "--component", component)


def configure(args, build, *options, status=0):
    environment = {name: value for name, value in os.environ.items()
                   if name not in ("CXXFLAGS", "CFLAGS", "LDFLAGS", "ZELK_DEVICE_LIBRARY")}
    return run(args.cmake, "-S", SOURCE / "tests/other_project", "-B", build, "-G", args.generator,
               f"-DZELK_SOURCE_DIR={SOURCE}", *options, status=status, env=environment)


def build_and_run(args, build, *options):
    configure(args, build, *options)
    run(args.cmake, "--build", build, "--parallel", "2")
    check_flags(build)
    output(build / "other_program")
    check_examples(build / "examples")


def add_subdirectory(args, scratch):
    way = "-DZELK_WAY=add_subdirectory"
    refused = configure(args, scratch / "none", way, "-DZELK_SYSTEM_DEVICE_LIBRARY=/nowhere.so",
                        status=1)
    assert "-DZELK_DEVICE_LIBRARY=simulated" in " ".join(refused.stderr.split()), refused.stderr
    build_and_run(args, scratch / "path", way, f"-DZELK_DEVICE_LIBRARY={args.device_library}")


def fetch_content(args, scratch):
    build_and_run(args, scratch / "build", "-DZELK_WAY=fetch_content",
                  "-DZELK_DEVICE_LIBRARY=simulated")


def parts(args, scratch):
    """What is built besides the library; the other project looks at its targets itself."""
    ours = ("-DZELK_WAY=add_subdirectory", f"-DZELK_DEVICE_LIBRARY={args.device_library}")
    configure(args, scratch / "simulator", *ours, "-DZELK_BUILD_SIMULATOR=ON")
    configure(args, scratch / "tests", *ours, "-DZELK_BUILD_TESTS=ON")
    configure(args, scratch / "benchmarks", *ours, "-DZELK_BUILD_BENCHMARKS=ON")

    alone = ("-S", SOURCE, "-G", args.generator, "-DZELK_BUILD_SIMULATOR=OFF")
    run(args.cmake, *alone, "-B", scratch / "alone")
    targets = output(args.cmake, "--build", scratch / "alone", "--target", "help")
    assert "zelk_timing_host" in targets and "zelk_smoke_test" not in targets, targets
    refused = run(args.cmake, *alone, "-B", scratch / "refused", "-DZELK_BUILD_TESTS=ON", status=1)
    assert "ZELK_BUILD_TESTS=ON needs ZELK_BUILD_SIMULATOR=ON" in refused.stderr, refused.stderr


def find_package(args, scratch):
    prefix = scratch / "prefix"
    install(args, prefix, "development", "simulator")
    ours = ("-DZELK_WAY=find_package", f"-DCMAKE_PREFIX_PATH={prefix}")
    # As if nothing was found, also where the system has one.
    refused = configure(args, scratch / "none", *ours,
                        "-DZELK_SYSTEM_DEVICE_LIBRARY=/nowhere.so", status=1)
    said = " ".join(refused.stderr.split())
    assert "There is no device library (libzelk_timing.so.0) on this system." in said, said
    assert "-DZELK_DEVICE_LIBRARY=simulated" in said, said
    refused = configure(args, scratch / "path", *ours, "-DZELK_DEVICE_LIBRARY=/nowhere.so", status=1)
    assert "ZELK_DEVICE_LIBRARY is no file (/nowhere.so)" in " ".join(refused.stderr.split())

    build_and_run(args, scratch / "simulated", *ours, "-DZELK_DEVICE_LIBRARY=simulated")
    # Where the system keeps a device library of its own, it is taken unasked.
    (prefix / "lib").mkdir(exist_ok=True)
    shutil.copy(args.device_library, prefix / "lib/libzelk_timing.so.0")
    build_and_run(args, scratch / "system", *ours)


def pkg_config(args, scratch):
    prefix = scratch / "prefix"
    install(args, prefix, "development", "simulator")
    directory = next(prefix.rglob("zelk_timing.pc")).parent
    environment = {**os.environ, "PKG_CONFIG_PATH": str(directory)}
    for example in EXAMPLES:
        flags = output("pkg-config", "--cflags", "--libs", "zelk_timing_simulated", env=environment)
        run(args.compiler, *STRICT, SOURCE / "examples" / f"{example}.cpp", "-o", scratch / example,
            *shlex.split(flags))
    check_examples(scratch)
    version = output("pkg-config", "--modversion", "zelk_timing", env=environment)
    assert version.strip() == args.version, version


def documented(args, scratch):
    """What docs/library.md shows is what the examples and this test are made of."""
    page = (SOURCE / "docs/library.md").read_text()
    blocks = re.findall(r"^```([^\n]+)\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
    programs = "".join((SOURCE / f"examples/{name}.cpp").read_text() for name in EXAMPLES)
    project = (SOURCE / "tests/other_project/CMakeLists.txt").read_text()
    cpp = [text for kind, text in blocks if kind == "cpp"]
    ways = [text for kind, text in blocks if kind == "cmake"]
    assert len(cpp) > 4 and len(ways) == 2, blocks
    for text in cpp:
        assert f"\n{text}" in programs, text
    for text in ways:
        lines = [line.strip() for line in text.splitlines()]
        assert all(f"  {line}\n" in project for line in lines), text

    prefix = scratch / "prefix"
    install(args, prefix, "development", "simulator")
    shutil.copytree(SOURCE / "examples", scratch / "examples")
    environment = {**os.environ, "CMAKE_PREFIX_PATH": str(prefix), "CXX": args.compiler,
                   "CMAKE_GENERATOR": args.generator,
                   "PKG_CONFIG_PATH": str(next(prefix.rglob("zelk_timing.pc")).parent)}
    commands = [text for kind, text in blocks if kind == "sh"]
    outputs = [run("bash", "-euc", text, cwd=scratch, env=environment).stdout for text in commands]
    assert len(outputs) == 3, outputs
    in_all = [line for text in outputs for line in text.splitlines()]
    counted("\n".join(in_all[-4:]))
    assert sum(line.startswith("channel 3: ") for line in in_all) == 3, in_all
    pairs = [line for line in in_all if line.endswith("pairs") or " pairs, " in line]
    check_pairs("\n".join(pairs), 3, 500)
    assert (scratch / "tags.csv").read_text() == "channel,timestamp_ps\n1,1500\n"
    until(lambda counts: counts == [0, 1, 0, 0],
          lambda: counted(output(scratch / "build/count_tags", "0.5", "sim://tags?file=tags.csv",
                                 cwd=scratch)))

    own = scratch / "own"
    own.mkdir()
    (own / "CMakeLists.txt").write_text(dict(blocks)["cmake CMakeLists.txt"])
    shutil.copy(SOURCE / "examples/count_tags.cpp", own / "my_measurement.cpp")
    run(args.cmake, "-S", own, "-B", own / "build", "-DZELK_DEVICE_LIBRARY=simulated",
        env=environment)
    run(args.cmake, "--build", own / "build")
    check_count_tags(own / "build/my_measurement")


def headers(args, scratch):
    """Each installed header compiles by itself, and none is there that is not needed."""
    install(args, scratch / "prefix", "development")
    root = scratch / "prefix/include/zelk"
    found = sorted(str(path.relative_to(root)) for path in root.rglob("*.h*"))
    assert len(found) > 10, found
    for header in found:
        run(args.compiler, *STRICT, "-I", root, "-include", header, "-fsyntax-only", "-x", "c++",
            "/dev/null")
    included = {name for header in found
                for name in re.findall('#include "(.*)"', (root / header).read_text())}
    unused = {name for name in found if "/detail/" in name} - included
    assert not unused, unused


WAYS = (add_subdirectory, fetch_content, parts, find_package, pkg_config, documented, headers)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("way", choices=[way.__name__ for way in WAYS])
    for name in ("cmake", "compiler", "generator", "version", "device-library"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--build", required=True, help="what is installed")
    parser.add_argument("--scratch", required=True, type=pathlib.Path)
    args = parser.parse_args()
    scratch = args.scratch / args.way
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir(parents=True)
    next(way for way in WAYS if way.__name__ == args.way)(args, scratch)


main()
