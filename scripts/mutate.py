#!/usr/bin/env python3
"""Mutation testing for the library: how many small faults do the unit tests catch?

Each mutant is one change to one line of evaluator/*.cpp or support/*.cpp: a relational,
arithmetic or logical operator swapped, an integer constant off by one, a statement deleted,
a negation removed. The script builds kalvos_tests with the change, runs it and restores the
file. A mutant is killed when the tests fail (or hang), survives when they pass, and is
stillborn when it does not build; stillborn ones do not count.

The mutants are drawn from every candidate with a fixed seed, so two runs on the same sources
draw the same mutants, whatever the tests are.

    scripts/mutate.py                      # 160 mutants, report on stdout
    scripts/mutate.py --count 40 --seed 7  # another sample
    scripts/mutate.py --list               # the candidates drawn, nothing built
    scripts/mutate.py --json out.json      # the outcome of each mutant as well
    scripts/mutate.py --recheck out.json   # only the survivors of an earlier run, once tests
                                           # were added; the others keep their outcome
"""

import argparse
import json
import os
import random
import re
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SOURCES = sorted(p for d in ("evaluator", "support") for p in (ROOT / d).glob("*.cpp"))

# Binary operators are written with a blank on each side (the format check sees to it), which
# tells `a < b` from a template's `<`.
SWAPS = [
    ("relational", " < ", " <= "),
    ("relational", " <= ", " < "),
    ("relational", " > ", " >= "),
    ("relational", " >= ", " > "),
    ("relational", " == ", " != "),
    ("relational", " != ", " == "),
    ("arithmetic", " + ", " - "),
    ("arithmetic", " - ", " + "),
    ("arithmetic", " * ", " / "),
    ("arithmetic", " / ", " * "),
    ("arithmetic", "++", "--"),
    ("arithmetic", "--", "++"),
    ("logical", " && ", " || "),
    ("logical", " || ", " && "),
]
INTEGER = re.compile(r"(?<![\w.'])(\d+)(?![\w.'])")
NEGATION = re.compile(r"!(?=[\w(])")
# A statement worth deleting: an assignment or a call on one line, not a declaration or a jump.
STATEMENT = re.compile(r"^\s*[\w.:\->\[\]*()]+\s*(=|\+=|-=|\*=|/=|\(|\+\+|--).*;\s*$")
NOT_STATEMENT = re.compile(
    r"^\s*(return|break|continue|case|default|throw|goto|using|typedef|static_assert)\b")
DECLARATION = re.compile(r"^\s*(const\s+)?[\w:<>,]+[\s&*]+\w+\s*(=|\(|\{)")


def code_mask(text):
    """Per character: True where it is code, False in comments and literals."""
    mask = [True] * len(text)
    i, n = 0, len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            end = text.find("\n", i)
            end = n if end < 0 else end
        elif text.startswith("/*", i):
            end = text.find("*/", i + 2)
            end = n if end < 0 else end + 2
        elif c in "\"'":
            end = i + 1
            while end < n and text[end] != c:
                end += 2 if text[end] == "\\" else 1
            end += 1
        else:
            i += 1
            continue
        for k in range(i, min(end, n)):
            mask[k] = False
        i = end
    return mask


def candidates(path):
    text = path.read_text()
    mask = code_mask(text)
    start = 0
    previous = ""
    for number, line in enumerate(text.split("\n"), 1):
        offset = start
        start += len(line) + 1
        # Only a line that begins a statement may be deleted, not the tail of a longer one.
        begins_statement = previous.rstrip().endswith((";", "{", "}", ":")) or not previous.strip()
        if line.strip() and not line.lstrip().startswith("//"):
            previous = line
        if line.lstrip().startswith("#"):
            continue

        def is_code(col, width):
            return all(mask[offset + k] for k in range(col, col + width))

        def mutant(kind, col, old, new):
            return {"file": str(path.relative_to(ROOT)), "line": number, "kind": kind,
                    "col": col, "old": old, "new": new}

        for kind, old, new in SWAPS:
            col = line.find(old)
            while col >= 0:
                if is_code(col, len(old)) and not (old in ("++", "--") and "operator" in line):
                    yield mutant(kind, col, old, new)
                col = line.find(old, col + 1)
        for m in INTEGER.finditer(line):
            if is_code(m.start(), len(m.group(1))):
                yield mutant("constant", m.start(), m.group(1), str(int(m.group(1)) + 1))
        for m in NEGATION.finditer(line):
            if is_code(m.start(), 1):
                yield mutant("negation", m.start(), "!", "")
        if (begins_statement and STATEMENT.match(line) and not NOT_STATEMENT.match(line)
                and not DECLARATION.match(line) and is_code(len(line) - len(line.lstrip()), 1)):
            yield mutant("deletion", 0, line, "")


def apply(mutant, text):
    lines = text.split("\n")
    line = lines[mutant["line"] - 1]
    col = mutant["col"]
    assert line[col:col + len(mutant["old"])] == mutant["old"], mutant
    lines[mutant["line"] - 1] = line[:col] + mutant["new"] + line[col + len(mutant["old"]):]
    return "\n".join(lines)


def configure(build):
    if (build / "build.ninja").exists():
        return
    # -O1 keeps the run of the tests short; assertions stay on.
    subprocess.run(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja",
                    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O1",
                    "-DKALVOS_BUILD_PYTHON=OFF", "-DKALVOS_BUILD_FORTRAN=OFF",
                    "-DKALVOS_BUILD_EXAMPLES=OFF", "-DKALVOS_BUILD_TOOLS=OFF"],
                   check=True, stdout=subprocess.DEVNULL)


def build_and_test(build, timeout):
    """'killed', 'survived' or 'stillborn', after building and running the unit tests."""
    made = subprocess.run(["cmake", "--build", build, "--target", "kalvos_tests"],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if made.returncode != 0:
        return "stillborn"
    try:
        ran = subprocess.run([build / "tests" / "kalvos_tests", "--gtest_fail_fast",
                              "--gtest_brief=1"], stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, timeout=timeout)
    except subprocess.TimeoutExpired:
        return "killed"
    return "killed" if ran.returncode != 0 else "survived"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=160)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "mutate")
    parser.add_argument("--timeout", type=float, default=120, help="seconds before a hang")
    parser.add_argument("--list", action="store_true", help="show the mutants, build nothing")
    parser.add_argument("--json", type=Path, help="write each mutant's outcome here")
    parser.add_argument("--recheck", type=Path, help="run again the survivors of this --json")
    args = parser.parse_args()

    pool = [m for path in SOURCES for m in candidates(path)]
    random.Random(args.seed).shuffle(pool)
    drawn = pool[:args.count]
    if args.recheck:
        drawn = json.loads(args.recheck.read_text())
    if args.list:
        for m in drawn:
            print(f"{m['file']}:{m['line']} {m['kind']}: {m['old'].strip()!r} -> {m['new'].strip()!r}")
        print(f"{len(drawn)} of {len(pool)} candidates")
        return 0

    configure(args.build)
    if build_and_test(args.build, args.timeout) != "survived":
        sys.exit("the unit tests do not pass on the unchanged sources")
    counts = {"killed": 0, "survived": 0, "stillborn": 0}
    began = time.time()
    for index, m in enumerate(drawn, 1):
        if m.get("outcome") in ("killed", "stillborn"):
            counts[m["outcome"]] += 1
            continue
        path = ROOT / m["file"]
        original = path.read_text()
        stat = path.stat()
        try:
            path.write_text(apply(m, original))
            m["outcome"] = build_and_test(args.build, args.timeout)
        finally:
            path.write_text(original)
            # The next build must not take the restored file for unchanged.
            os.utime(path, (stat.st_atime, time.time()))
        counts[m["outcome"]] += 1
        print(f"[{index}/{len(drawn)}] {m['outcome']:9} {m['file']}:{m['line']} {m['kind']}: "
              f"{m['old'].strip()!r} -> {m['new'].strip()!r}", flush=True)
    build_and_test(args.build, args.timeout)

    scored = counts["killed"] + counts["survived"]
    print(f"\nkilled {counts['killed']}, survived {counts['survived']}, "
          f"stillborn {counts['stillborn']}: score {counts['killed'] / max(scored, 1):.1%} "
          f"of {scored} in {time.time() - began:.0f} s")
    for m in drawn:
        if m["outcome"] == "survived":
            print(f"  survived: {m['file']}:{m['line']} {m['kind']}: "
                  f"{m['old'].strip()!r} -> {m['new'].strip()!r}")
    if args.json:
        args.json.write_text(json.dumps(drawn, indent=1))
    return 0


if __name__ == "__main__":
    sys.exit(main())
