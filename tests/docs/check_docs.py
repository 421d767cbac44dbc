#!/usr/bin/env python3
"""Runs the examples of the Kalvos documentation and compares what they print.

Every ```console block of a Markdown file is a session: a line "$ COMMAND" is run by bash,
with the kalvos tool under test first on PATH, and the lines up to the next "$ " line are
what it must print (standard output and standard error together, as a terminal shows
them). A command may end in a here-document (<<'EOF'); its lines, up to the end marker,
belong to the command. The commands of one file run in order in one scratch directory, so
an example may write a file that a later one reads.

The exit status is checked too: a command whose expected output has a line starting with
"kalvos: " (an error) must exit with 1, any other with 0; a command that shows its status
itself (it contains "$?") is judged by its output alone.

A code block (```cpp, ```c, ```fortran, ```python) preceded by the line
"<!-- checked: PATH -->" must be identical to the part of the file PATH (relative to the
source tree) between the lines "[embedding]" and "[embedding-end]", each behind the
language's comment mark (//, ! or #); the packaging tests and the docs tests compile and run
those files.

Usage: check_docs.py --kalvos TOOL --source-dir DIR FILE.md...
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile

HEREDOC = re.compile(r"<<-?\s*'?\"?(\w+)'?\"?\s*$")


class Example:
    def __init__(self, path, line, command):
        self.path = path
        self.line = line
        self.command = command
        self.expected = []


def fenced_blocks(path, lines):
    """Yields (info, first line number, lines, preceding line) for every fenced block."""
    i = 0
    while i < len(lines):
        match = re.match(r"^(```+)\s*(\S*)", lines[i])
        if not match:
            i += 1
            continue
        fence, info = match.group(1), match.group(2)
        before = lines[i - 1] if i > 0 else ""
        start = i + 1
        i = start
        while i < len(lines) and not lines[i].startswith(fence):
            i += 1
        if i == len(lines):
            raise SystemExit(f"{path}:{start}: unterminated code block")
        yield info, start + 1, lines[start:i], before
        i += 1


def parse_console(path, first, body):
    examples = []
    i = 0
    while i < len(body):
        text = body[i]
        if not text.startswith("$ "):
            if not examples:
                raise SystemExit(f"{path}:{first + i}: console block must begin with '$ '")
            examples[-1].expected.append(text)
            i += 1
            continue
        example = Example(path, first + i, text[2:])
        heredoc = HEREDOC.search(text)
        i += 1
        if heredoc:
            marker = heredoc.group(1)
            lines = [example.command]
            while i < len(body) and body[i] != marker:
                lines.append(body[i])
                i += 1
            if i == len(body):
                raise SystemExit(f"{path}:{example.line}: here-document without {marker}")
            lines.append(marker)
            example.command = "\n".join(lines)
            i += 1
        examples.append(example)
    return examples


def run_example(example, workdir, env):
    result = subprocess.run(["bash", "-c", example.command], cwd=workdir, env=env,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, timeout=60)
    output = result.stdout.decode("utf-8", "replace").splitlines()
    problems = []
    if output != example.expected:
        problems.append("expected:\n" + "".join(f"    {l}\n" for l in example.expected)
                        + "  got:\n" + "".join(f"    {l}\n" for l in output))
    if "$?" not in example.command:
        wanted = 1 if any(l.startswith("kalvos: ") for l in example.expected) else 0
        if result.returncode != wanted:
            problems.append(f"exit status {result.returncode}, expected {wanted}")
    return problems


def embedded_part(path):
    with open(path, encoding="utf-8") as source:
        lines = source.read().splitlines()
    for mark in ("//", "!", "#"):
        if f"{mark} [embedding]" in lines and f"{mark} [embedding-end]" in lines:
            begin = lines.index(f"{mark} [embedding]")
            end = lines.index(f"{mark} [embedding-end]")
            return lines[begin + 1:end]
    raise SystemExit(f"{path}: no [embedding] ... [embedding-end] part")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kalvos", required=True, help="the kalvos tool under test")
    parser.add_argument("--source-dir", required=True)
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()

    tool = os.path.abspath(args.kalvos)
    failures = 0
    count = 0
    with tempfile.TemporaryDirectory(prefix="kalvos-docs-") as scratch:
        bindir = os.path.join(scratch, "bin")
        os.mkdir(bindir)
        os.symlink(tool, os.path.join(bindir, "kalvos"))
        env = dict(os.environ, PATH=bindir + os.pathsep + os.environ.get("PATH", ""),
                   LC_ALL="C")
        for index, path in enumerate(args.files):
            with open(path, encoding="utf-8") as doc:
                lines = doc.read().splitlines()
            workdir = os.path.join(scratch, f"doc{index}")
            os.mkdir(workdir)
            for info, first, body, before in fenced_blocks(path, lines):
                checked = re.match(r"^<!-- checked: (\S+) -->$", before)
                if checked:
                    count += 1
                    source = os.path.join(args.source_dir, checked.group(1))
                    if body != embedded_part(source):
                        failures += 1
                        print(f"{path}:{first}: differs from the embedding part of {source}")
                if info != "console":
                    continue
                for example in parse_console(path, first, body):
                    count += 1
                    problems = run_example(example, workdir, env)
                    if problems:
                        failures += 1
                        print(f"{example.path}:{example.line}: $ {example.command}")
                        for problem in problems:
                            print("  " + problem.rstrip("\n").replace("\n", "\n  "))
    print(f"{count} examples, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
