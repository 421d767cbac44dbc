#!/usr/bin/env python3
"""Drives interactive kalvos sessions through a pseudo-terminal: definitions, results and
ans, failing lines, Ctrl-C, the commands and their plain words, and the exit status; with
--line-editing also completion and the history kept between sessions.

Usage: interactive_session.py KALVOS [--line-editing]
"""
import os
import pty
import select
import sys
import tempfile
import time

PROMPT = b"kalvos> "
TIMEOUT = 20.0


class Session:
    def __init__(self, argv, **env):
        env = {k: v for k, v in dict(os.environ, TERM="dumb", LC_ALL="C", **env).items()
               if v is not None}
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(argv[0], argv, env)
        self.seen = b""
        self.expect(PROMPT)

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

    def keys(self, text):
        """Types keys and drops what the line editor redraws: it repeats the prompt."""
        os.write(self.fd, text.encode())
        time.sleep(0.3)
        while select.select([self.fd], [], [], 0.1)[0]:
            os.read(self.fd, 4096)
        self.seen = b""

    def type(self, line):
        """Types a line and returns the lines printed up to the next prompt, without the
        echo of what was typed (the terminal may echo typeahead once more, before the line
        editor takes over)."""
        os.write(self.fd, line.encode() + b"\r")
        printed = self.expect(PROMPT).splitlines()
        return [text for text in printed if text.strip() not in ("", line)]

    def status(self, keys=b""):
        """Types the last keys, waits for the end of output, then for the exit status."""
        os.write(self.fd, keys)
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


def first_session(kalvos, state):
    session = Session([kalvos, "-S", "unit=cm"], XDG_STATE_HOME=state)
    out = session.type("r = 3")
    check("an assignment prints nothing", out == [], out)
    out = session.type("pi() * r * r")
    check("an expression prints its value", out == ["28.274333882308138"], out)
    out = session.type("ans / r")
    check("ans is the last result", out == ["9.42477796076938"], out)
    out = session.type("r / 0")
    check("a failing line is reported", out == ["kalvos: Evaluating [r/0]: Division by zero."], out)
    out = session.type("$radius [r] [unit]")
    check("a string expression is expanded", out == ["radius 3 cm"], out)
    session.keys("1 + ")
    session.keys("\x03")
    out = session.type("r + 1")
    check("Ctrl-C abandons the line and keeps the session", out == ["4"], out)
    out = session.type(":vars")
    check(":vars lists the variables", out == ["unit = $cm", "r = 3", "ans = 4"], out)
    out = session.type(":functions")
    check(":functions lists the functions", any(t.startswith("sqrt(x)") for t in out), out)
    out = session.type("help")
    check("help lists the commands", any(":quit" in text for text in out), out)
    out = session.type("2 * 21")
    check("the last line before the end", out == ["42"], out)
    status = session.status(b"quit\r")
    check("a session ends with 0 even after a failed line", status == 0, status)


def second_session(kalvos, state):
    session = Session([kalvos], XDG_STATE_HOME=state)
    out = session.type(":vars")
    check(":vars says when there is no variable", out == ["no variables yet: NAME = EXPR makes one"], out)
    out = session.type("help = 7")
    out = session.type("help")
    check("a variable named help is evaluated", out == ["7"], out)
    out = session.type("ans = 5")
    check("taking ans over is announced", len(out) == 1 and "'ans'" in out[0], out)
    out = session.type("2")
    out = session.type("ans")
    check("then results no longer replace it", out == ["5"], out)
    status = session.status(b"exit\r")
    check("exit ends the session", status == 0, status)


def line_editing(kalvos, state, home):
    with open(os.path.join(state, "kalvos", "history")) as f:
        history = f.read()
    check("the history is kept in $XDG_STATE_HOME/kalvos", "2\\040*\\04021" in history, history)
    session = Session([kalvos], XDG_STATE_HOME=state)
    session.keys("\x1b[A\x1b[A")
    out = session.type("")
    check("the history of the last session comes back", out[-1:] == ["42"], out)
    session.keys("radius = 2\r")
    session.keys("sq\t")
    session.keys("rad\t")
    out = session.type(")")
    check("Tab completes functions and variables", out[-1:] == ["1.4142135623730951"], out)
    session.status(b"\x04")
    session = Session([kalvos], XDG_STATE_HOME=None, HOME=home)
    session.type("1")
    session.status(b"\x04")
    path = os.path.join(home, ".local", "state", "kalvos", "history")
    check("without XDG_STATE_HOME the history is in ~/.local/state", os.path.exists(path), path)


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    kalvos = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as state, tempfile.TemporaryDirectory() as home:
        first_session(kalvos, state)
        second_session(kalvos, home)
        if sys.argv[2:] == ["--line-editing"]:
            line_editing(kalvos, state, home)
        session = Session([kalvos], XDG_STATE_HOME=None, HOME=None)
        check("a session without a home works", session.type("1 + 1") == ["2"], "")
        session.status(b"\x04")
    print("interactive session passed")


if __name__ == "__main__":
    main()
