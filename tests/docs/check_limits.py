#!/usr/bin/env python3
"""Checks every limit the documentation states against the named constant in the sources.

A constant is read from its declaration, `constexpr TYPE kName = VALUE;`, where VALUE is a
whole number or `std::size_t{N} << M`. The documentation states a limit in two ways: a
number directly before a reference to the constant, "1,000 levels (`Kalvos::kMaxNesting`)",
and the sentences listed in CLAIMS, where "kName+1th" is the ordinal of the number after
it. A number is written with thousands separated by commas, or in MiB when it is a whole
number of them.

Usage: check_limits.py SOURCE_DIR FILE.md...
"""
import os
import re
import sys

SOURCES = ["evaluator/Kalvos.h", "tools/Printing.h", "tools/Interactive.cpp"]

# The sentences that state a limit without naming its constant.
CLAIMS = [
    (r"more than (\S+) numbers and operators at one level", "kMaxElements"),
    (r"a call has more than (\S+) parameters", "kMaxParameters"),
    (r"A call has at most (\S+) parameters", "kMaxParameters"),
    (r"nested more than (\S+) levels deep", "kMaxNesting"),
    (r"the (\S+) is refused", "kMaxNesting+1th"),
    (r"needs more than (\S+) replacements", "kMaxReplacements"),
    (r"grows beyond (\S+ MiB); the text", "kMaxExpandedLength"),
    (r"a message longer than (\S+) bytes", "kMaxEchoLength"),
    (r"history` \((\S+) lines;", "kHistoryLines"),
    (r"more than once \((\S+) by default", "kDefaultCacheEntries"),
]

DECLARATION = re.compile(r"constexpr [\w:]+(?: [\w:]+)* (k\w+) = ([^;]+);")
REFERENCE = re.compile(r"(\d[\d,]*(?: MiB)?)[\w ]* \(`Kalvos::(k\w+)`\)")


def constants(source_dir):
    values = {}
    for name in SOURCES:
        with open(os.path.join(source_dir, name), encoding="utf-8") as source:
            for constant, value in DECLARATION.findall(source.read()):
                shifted = re.fullmatch(r"std::size_t\{(\d+)\} << (\d+)", value.strip())
                if shifted:
                    values[constant] = int(shifted.group(1)) << int(shifted.group(2))
                elif re.fullmatch(r"\d+", value.strip()):
                    values[constant] = int(value)
    return values


def written(number, ordinal=False):
    if ordinal:
        last = 0 if number % 100 in (11, 12, 13) else number % 10
        return f"{number:,}" + {1: "st", 2: "nd", 3: "rd"}.get(last, "th")
    if number >= 1 << 20 and number % (1 << 20) == 0:
        return f"{number >> 20} MiB"
    return f"{number:,}"


def check(path, values):
    with open(path, encoding="utf-8") as doc:
        text = doc.read()
    problems, count = [], 0
    stated = [(m.group(1), m.group(2)) for m in REFERENCE.finditer(text)]
    for pattern, constant in CLAIMS:
        stated += [(m.group(1), constant) for m in re.finditer(pattern, text)]
    for number, constant in stated:
        name, _, extra = constant.partition("+")
        if name not in values:
            problems.append(f"{path}: no constant {name} in {', '.join(SOURCES)}")
            continue
        count += 1
        offset = int(extra.rstrip("th") or 0)
        expected = written(values[name] + offset, extra.endswith("th"))
        if number != expected:
            problems.append(f"{path}: says {number} for {constant}, the sources {expected}")
    return problems, count


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    values = constants(sys.argv[1])
    problems, count = [], 0
    for path in sys.argv[2:]:
        found, checked = check(path, values)
        problems += found
        count += checked
    print("\n".join(problems + [f"{count} limits checked, {len(problems)} wrong"]))
    return 1 if problems or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
