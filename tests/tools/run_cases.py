#!/usr/bin/env python3
"""Runs the kalvos golden cases: one file a case under cases/, each naming the arguments,
standard input, expected standard output, standard error and exit status.

A case file has a header and sections:

    # What the case shows (comment lines start with #).
    args: -b "a > 1"        arguments, split as a POSIX shell would
    status: 1               expected exit status; 0 when left out
    stdout-to: /dev/full    a file that standard output is written to instead of a pipe
    --- stdin
    lines given on standard input
    --- stdout
    lines expected on standard output
    --- stderr
    lines expected on standard error

A section left out is empty. The binary runs in the cases folder, so that -f can name files
there.

Usage: run_cases.py KALVOS CASES_DIR [NAME...]
"""
import os
import shlex
import subprocess
import sys

SECTIONS = ("stdin", "stdout", "stderr")


def parse_case(path):
    case = {"args": [], "status": 0, "stdout-to": None, **{name: "" for name in SECTIONS}}
    section = None
    with open(path, encoding="utf-8", newline="\n") as f:
        for line in f:
            if line.startswith("--- "):
                section = line[4:].strip()
                if section not in SECTIONS:
                    raise ValueError(f"{path}: unknown section '{section}'")
            elif section is not None:
                case[section] += line
            elif line.startswith("args:"):
                case["args"] = shlex.split(line[5:])
            elif line.startswith("stdout-to:"):
                case["stdout-to"] = line[10:].strip()
            elif line.startswith("status:"):
                case["status"] = int(line[7:])
            elif line.strip() and not line.startswith("#"):
                raise ValueError(f"{path}: cannot read '{line.rstrip()}'")
    return case


def run_case(binary, cases_dir, case):
    env = dict(os.environ, LC_ALL="C")
    if case["stdout-to"] is None:
        return subprocess.run([binary, *case["args"]], input=case["stdin"], capture_output=True,
                              text=True, cwd=cases_dir, env=env, timeout=30)
    with open(case["stdout-to"], "w") as out:
        result = subprocess.run([binary, *case["args"]], input=case["stdin"], stdout=out,
                                stderr=subprocess.PIPE, text=True, cwd=cases_dir, env=env,
                                timeout=30)
    result.stdout = ""
    return result


def compare(name, case, result):
    problems = []
    for stream in ("stdout", "stderr"):
        got = getattr(result, stream)
        if got != case[stream]:
            problems.append(f"  {stream} expected:\n{case[stream]!r}\n  got:\n{got!r}")
    if result.returncode != case["status"]:
        problems.append(f"  status expected {case['status']}, got {result.returncode}")
    if problems:
        print(f"FAIL {name}\n" + "\n".join(problems))
    return not problems


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    binary, cases_dir, wanted = os.path.abspath(sys.argv[1]), sys.argv[2], sys.argv[3:]
    names = sorted(n[:-5] for n in os.listdir(cases_dir) if n.endswith(".case"))
    if wanted:
        names = [n for n in names if n in wanted]
    passed = failed = 0
    for name in names:
        case = parse_case(os.path.join(cases_dir, name + ".case"))
        if compare(name, case, run_case(binary, cases_dir, case)):
            passed += 1
        else:
            failed += 1
    print(f"{passed} passed, {failed} failed")
    sys.exit(1 if failed or not names else 0)


if __name__ == "__main__":
    main()
