#!/usr/bin/env python3
"""Sleep precision and the idle cost of sleeping script threads.

Measures, from outside the process (each printed line is stamped as it
arrives on a pipe):

- 1,000 times sleep(10) in a loop (bench/sleep.vrs);
- 100 script threads sleeping at once, ten sleep(10) each
  (bench/sleep_threads.vrs), lateness per thread from its own lines;
- the CPU time of a host whose 100 script threads all sleep for a day
  (bench/idle_threads.vrs), over a few seconds;

each in the one-shot mode (--runscript, whose frame loop polls) and in the
normal mode (--script, whose frame loop waits on the 1 ms frame clock), and
the same loop in Python for the machine's own figure. The lateness of one
sleep is the time between two lines of one sleeper minus 10 ms, so it holds
the print and the loop step too.

Writes a section into docs/PERFORMANCE.md between the marker comments
`bench/sleep_precision: begin` and `bench/sleep_precision: end` (appended
when they are missing); --no-write prints it instead.

Usage: bench/sleep_precision.py [--vorka build/vorka] [--idle-seconds 5] [--no-write]
"""
import argparse
import os
import re
import select
import signal
import statistics
import subprocess
import sys
import time

BENCH_DIR = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(BENCH_DIR)
DOC = os.path.join(ROOT, "docs", "PERFORMANCE.md")
BEGIN = "<!-- bench/sleep_precision: begin -->"
END = "<!-- bench/sleep_precision: end -->"

PYTHON_LOOP = ("import time\n"
               "for i in range(1000):\n"
               "    time.sleep(0.01)\n"
               "    print('tick', i, flush=True)\n")


def stop(proc):
    for sig, wait in ((signal.SIGINT, 3), (signal.SIGTERM, 2), (signal.SIGKILL, 5)):
        if proc.poll() is not None:
            return
        try:
            proc.send_signal(sig)
            proc.wait(timeout=wait)
        except subprocess.TimeoutExpired:
            continue
        except OSError:
            return


def stamp_lines(cmd, pattern, count, limit_s=120.0):
    """(stamp, match) of the first `count` lines matching `pattern`."""
    proc = subprocess.Popen(cmd, cwd=BENCH_DIR, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    fd = proc.stdout.fileno()
    seen = []
    pending = b""
    deadline = time.monotonic() + limit_s
    try:
        while len(seen) < count and time.monotonic() < deadline:
            ready, _, _ = select.select([fd], [], [], 0.5)
            if not ready:
                if proc.poll() is not None:
                    break
                continue
            chunk = os.read(fd, 65536)
            now = time.perf_counter()
            if not chunk:
                break
            pending += chunk
            *lines, pending = pending.split(b"\n")
            for line in lines:
                m = pattern.match(line.decode("utf-8", errors="replace"))
                if m:
                    seen.append((now, m))
    finally:
        stop(proc)
        proc.stdout.close()
    return seen


def summary(lateness, took=None):
    ordered = sorted(lateness)

    def pct(p):
        return ordered[min(len(ordered) - 1, int(p * (len(ordered) - 1) + 0.5))]

    return {"samples": len(lateness), "median": statistics.median(lateness),
            "p95": pct(0.95), "p99": pct(0.99), "worst": ordered[-1], "took": took}


def loop_lateness(cmd, pattern):
    seen = stamp_lines(cmd, pattern, 1000)
    if len(seen) < 1000:
        return {"error": f"{len(seen)} of 1000 wake-ups seen"}
    stamps = [s for s, _ in seen]
    return summary([(b - a) * 1000 - 10.0 for a, b in zip(stamps, stamps[1:])],
                   stamps[-1] - stamps[0])


def threads_lateness(cmd):
    seen = stamp_lines(cmd, re.compile(r"^\[LOG\]: w (\d+) (\d+)$"), 1000)
    if len(seen) < 1000:
        return {"error": f"{len(seen)} of 1000 wake-ups seen"}
    by_thread = {}
    for stamp, m in seen:
        by_thread.setdefault(m.group(1), []).append(stamp)
    lateness = []
    for stamps in by_thread.values():
        lateness += [(b - a) * 1000 - 10.0 for a, b in zip(stamps, stamps[1:])]
    return summary(lateness, seen[-1][0] - seen[0][0])


def cpu_ns(pid):
    total = 0
    for tid in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{tid}/schedstat", encoding="ascii") as f:
            total += int(f.read().split()[0])
    return total


def idle_cost(vorka, seconds):
    proc = subprocess.Popen([vorka, "--script=" + os.path.join(BENCH_DIR, "idle_threads.vrs")],
                            cwd=BENCH_DIR, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)
    try:
        time.sleep(1.0)
        if proc.poll() is not None:
            return {"error": f"the host ended (exit code {proc.returncode})"}
        a, t0 = cpu_ns(proc.pid), time.monotonic()
        time.sleep(seconds)
        b, t1 = cpu_ns(proc.pid), time.monotonic()
    finally:
        stop(proc)
    return {"cpu_pct": (b - a) / 1e9 / (t1 - t0) * 100, "seconds": t1 - t0}


def row(title, s):
    if "error" in s:
        return f"| {title} | not measured: {s['error']} | | | | |"
    return (f"| {title} | {s['median']:.3f} ms | {s['p95']:.3f} ms | {s['p99']:.3f} ms | "
            f"{s['worst']:.3f} ms | {s['samples']} |")


def render(results, idle, vorka):
    lines = [BEGIN, "## Sleep precision and sleeping threads, measured by bench/sleep_precision.py",
             "",
             f"`{os.path.relpath(vorka, ROOT)}`, {time.strftime('%Y-%m-%d')}. Lateness of "
             "`sleep(10)`: the time between two lines of one sleeper, stamped by the runner as "
             "they arrive on a pipe, minus 10 ms (so the print and the loop step are in it). "
             "One-shot runs (`--runscript`) poll between frames; normal runs (`--script`) wait "
             "for the 1 ms frame clock.",
             "",
             "| Program | Median | 95th percentile | 99th percentile | Worst | Intervals |",
             "|---|---|---|---|---|---|"]
    for title, s in results:
        lines.append(row(title, s))
    lines.append("")
    if "error" in idle:
        lines.append(f"Idle host with 100 sleeping threads: not measured: {idle['error']}.")
    else:
        lines.append(f"Idle host with 100 sleeping script threads (`bench/idle_threads.vrs`, "
                     f"normal run): {idle['cpu_pct']:.2f} % of one core over "
                     f"{idle['seconds']:.1f} s (`/proc/<pid>/task/*/schedstat`).")
    lines += ["", END]
    return "\n".join(lines) + "\n"


def write(section):
    text = open(DOC, encoding="utf-8").read() if os.path.exists(DOC) else ""
    if BEGIN in text and END in text:
        head, rest = text.split(BEGIN, 1)
        _, tail = rest.split(END, 1)
        text = head + section.rstrip("\n") + tail
    else:
        text = text.rstrip("\n") + "\n\n" + section
    with open(DOC, "w", encoding="utf-8") as f:
        f.write(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--vorka", default=os.environ.get("VORKA", os.path.join(ROOT, "build",
                                                                                "vorka")))
    parser.add_argument("--idle-seconds", type=float, default=5.0)
    parser.add_argument("--no-write", action="store_true")
    args = parser.parse_args()
    vorka = os.path.abspath(args.vorka)
    tick = re.compile(r"^\[LOG\]: tick \d+$")
    loop = os.path.join(BENCH_DIR, "sleep.vrs")
    threads = os.path.join(BENCH_DIR, "sleep_threads.vrs")
    python = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
    results = []
    for title, cmd, kind in (
            ("vorka, 1,000 × `sleep(10)`, one-shot", [vorka, "--runscript=" + loop], "loop"),
            ("vorka, 1,000 × `sleep(10)`, normal run", [vorka, "--script=" + loop], "loop"),
            ("vorka, 100 threads × 10 × `sleep(10)`, one-shot", [vorka, "--runscript=" + threads],
             "threads"),
            ("vorka, 100 threads × 10 × `sleep(10)`, normal run", [vorka, "--script=" + threads],
             "threads"),
            ("Python `time.sleep(0.01)` × 1,000", [python, "-c", PYTHON_LOOP], "python")):
        print(f"measuring: {title}", file=sys.stderr)
        if kind == "threads":
            results.append((title, threads_lateness(cmd)))
        else:
            pattern = re.compile(r"^tick \d+$") if kind == "python" else tick
            results.append((title, loop_lateness(cmd, pattern)))
    print("measuring: idle host with 100 sleeping threads", file=sys.stderr)
    idle = idle_cost(vorka, args.idle_seconds)
    section = render(results, idle, vorka)
    if args.no_write:
        print(section)
    else:
        write(section)
        print(section)


if __name__ == "__main__":
    main()
