#!/usr/bin/python3
"""The names of all tests fit into 100 columns, and hold no bytes of an object."""

import argparse
import json
import re
import subprocess
import sys

LONGEST = 100
BYTES = re.compile(r"-byte object|GetParam|<[0-9A-F]{2}-[0-9A-F]{2}|0x[0-9a-f]{6,}")


def what_is_wrong(name):
    if len(name) > LONGEST:
        return f"{len(name)} columns, more than {LONGEST}"
    if BYTES.search(name):
        return "holds the bytes of an object"
    if not name.isprintable():
        return "cannot be printed"
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--ctest", required=True)
    parser.add_argument("--build", required=True)
    options = parser.parse_args()
    assert what_is_wrong("a" * 100) is None
    assert what_is_wrong("a" * 101) and what_is_wrong("S.T/x  # GetParam() = 8-byte object <0A-70>")
    listing = subprocess.run([options.ctest, "--test-dir", options.build, "--show-only=json-v1"],
                             capture_output=True, text=True, check=True)
    names = [test["name"] for test in json.loads(listing.stdout)["tests"]]
    if not names:
        sys.exit("there are no tests")
    found = [f"{name}: {reason}" for name in names if (reason := what_is_wrong(name))]
    print("\n".join(found) or f"{len(names)} names")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
