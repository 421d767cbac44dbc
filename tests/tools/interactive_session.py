#!/usr/bin/env python3
"""Drives an interactive kalvos session through a pseudo-terminal: a definition, an
expression, a failing line, a string expression, :vars and :quit.

Usage: interactive_session.py KALVOS
"""
import os
import pty
import select
import sys
import time

PROMPT = b"kalvos> "
TIMEOUT = 20.0


class Session:
    def __init__(self, argv):
        env = dict(os.environ, TERM="dumb", LC_ALL="C")
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(argv[0], argv, env)
        self.seen = b""

    def expect(self, wanted):
        """Reads until `wanted` appears; returns what came before it and drops it all."""
        deadline = time.monotonic() + TIMEOUT
        while wanted not in self.seen:
            left = deadline - time.monotonic()
            ready, _, _ = select.select([self.fd], [], [], max(left, 0))
            chunk = os.read(self.fd, 4096) if ready else b""
            if not chunk:
                raise AssertionError(f"waited for {wanted!r}, got {self.seen!r}")
            self.seen += chunk
        before, _, self.seen = self.seen.partition(wanted)
        return before.decode()

    def type(self, line):
        """Types a line and returns the lines printed up to the next prompt, without the
        echo of what was typed (the terminal may echo typeahead once more, before the line
        editor takes over)."""
        os.write(self.fd, line.encode() + b"\r")
        printed = self.expect(PROMPT).splitlines()
        return [text for text in printed if text.strip() not in ("", line)]

    def status(self):
        """Waits for the end of output, then for the exit status."""
        deadline = time.monotonic() + TIMEOUT
        while time.monotonic() < deadline:
            ready, _, _ = select.select([self.fd], [], [], 1.0)
            try:
                if ready and not os.read(self.fd, 4096):
                    break
            except OSError:  # Linux reports the closed terminal as EIO
                break
        os.close(self.fd)
        _, status = os.waitpid(self.pid, 0)
        return os.waitstatus_to_exitcode(status)


def check(what, condition, output):
    if not condition:
        raise AssertionError(f"{what}: unexpected output {output!r}")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    session = Session([os.path.abspath(sys.argv[1]), "-S", "unit=cm"])
    session.expect(PROMPT)
    out = session.type("r = 3")
    check("an assignment prints nothing", out == [], out)
    out = session.type("pi() * r * r")
    check("an expression prints its value", out == ["28.274333882308138"], out)
    out = session.type("r / 0")
    check("a failing line is reported", out == ["kalvos: Evaluating [r/0]: Division by zero."], out)
    out = session.type("$radius [r] [unit]")
    check("a string expression is expanded", out == ["radius 3 cm"], out)
    out = session.type(":vars")
    check(":vars lists the variables", out == ['unit = "cm"', "r = 3"], out)
    out = session.type(":help")
    check(":help lists the commands", any(":quit" in text for text in out), out)
    os.write(session.fd, b":quit\r")
    status = session.status()
    check("a session with a failed line exits with 1", status == 1, status)
    print("interactive session passed")


if __name__ == "__main__":
    main()
