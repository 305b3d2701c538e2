#!/usr/bin/python3
"""Drives `vorka --repl` through a pseudo-terminal, as a user at a console.

Usage: repl_session.py VORKA

The session checks: a typed line runs and prints; a variable and a function
stay for later lines; a statement whose braces are open continues over
several lines; Ctrl-C abandons the line being typed; a line that sleeps is
resumed between lines and a line typed meanwhile waits for it; the history file is written under
$XDG_STATE_HOME; Ctrl-D, also typed while a line runs, ends the session with
exit code 0. Exits 0 when all
of that held, 1 with a report otherwise.
"""
import os
import pty
import select
import sys
import tempfile
import time

TIMEOUT = 20.0


def main():
    vorka = os.path.abspath(sys.argv[1])
    state = tempfile.mkdtemp(prefix="vorka-repl-")
    env = dict(os.environ, XDG_STATE_HOME=state, HOME=state, TERM="dumb")
    pid, fd = pty.fork()
    if pid == 0:
        os.chdir(state)
        os.execve(vorka, [vorka, "-q", "--repl"], env)

    seen = b""

    def expect(text):
        nonlocal seen
        want = text.encode()
        deadline = time.monotonic() + TIMEOUT
        while want not in seen:
            left = deadline - time.monotonic()
            if left <= 0:
                fail(f"did not see {text!r}")
            ready, _, _ = select.select([fd], [], [], left)
            if ready:
                try:
                    chunk = os.read(fd, 4096)
                except OSError:
                    chunk = b""
                if not chunk:
                    fail(f"output ended before {text!r}")
                seen += chunk
        # Later expectations look only at what follows.
        seen = seen[seen.index(want) + len(want):]

    def send(text):
        os.write(fd, text.encode())

    def fail(reason):
        sys.stderr.write(f"FAIL: {reason}\n--- output so far ---\n{seen.decode(errors='replace')}\n")
        # Where each thread of the prompt waits, to tell a hang from a lost key.
        try:
            for task in sorted(os.listdir(f"/proc/{pid}/task")):
                with open(f"/proc/{pid}/task/{task}/wchan") as wchan:
                    sys.stderr.write(f"thread {task} waits in {wchan.read() or '-'}\n")
        except OSError:
            pass
        try:
            os.kill(pid, 9)
        except OSError:
            pass
        sys.exit(1)

    expect("> ")
    send("print(1 + 2);\r")
    expect("3\r\n")
    send("x = 40; twice(v) { return v * 2; }\r")
    send("print(twice(x) + 2);\r")
    expect("82\r\n")
    # Open braces: the statement goes on over three lines.
    send("if (x > 1) {\r")
    expect("... ")
    send('print("big");\r')
    send("}\r")
    expect("big\r\n")
    # Ctrl-C drops the half-typed line; nothing of it runs.
    send('print("dropped")')
    expect('print("dropped")')
    send("\x03")
    # The terminal drops what was typed ahead of Ctrl-C: wait for the prompt.
    expect("^C")
    expect("> ")
    send('print("kept");\r')
    expect("kept\r\n")
    if b"dropped\r\n" in seen:
        fail("the abandoned line ran")
    # A line that sleeps is resumed by the frames that run between lines, and
    # a line typed meanwhile waits for it.
    send('tick() { sleep(50); print("tock"); }\r')
    send("tick();\r")
    send('print("after tock");\r')
    expect("tock\r\n")
    expect("after tock\r\n")
    # Ctrl-D typed while a line still runs (no prompt is up, the terminal is
    # cooked and keeps it as an empty line) ends the session once that line
    # is done; typed once, it must not be lost.
    expect("> ")
    send('print("waiting"); sleep(200); print("slept");\r')
    expect("waiting\r\n")
    send("\x04")
    expect("slept\r\n")
    deadline = time.monotonic() + TIMEOUT
    while True:
        done, status = os.waitpid(pid, os.WNOHANG)
        if done:
            break
        if time.monotonic() > deadline:
            fail("Ctrl-D did not end the session")
        try:
            ready, _, _ = select.select([fd], [], [], 0.1)
            if ready:
                seen += os.read(fd, 4096)
        except OSError:
            pass
    if not os.WIFEXITED(status) or os.WEXITSTATUS(status) != 0:
        fail(f"exit status {status}")
    history = os.path.join(state, "vorka", "history")
    if not os.path.exists(history) or "twice(v)" not in open(history, errors="replace").read():
        fail("no history file with the typed lines")
    print("PASS repl_session")


if __name__ == "__main__":
    main()
