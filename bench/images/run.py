#!/usr/bin/python3
"""Times the bitmap benchmarks: 10,000 circles and one 2048x2048 resize.

Each workload runs next to a base script that does the same set-up (and, for
the circles, the same loop calling a member that writes one pixel); the figure is
the difference of the median processor times (user and system), so start-up
and set-up are not counted.

Usage: bench/images/run.py [vorka executable, default build/vorka] [runs, default 7]
"""
import os
import resource
import statistics
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def median_seconds(vorka, script, runs):
    times = []
    for _ in range(runs):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run([vorka, "--runscript=" + script], cwd=HERE, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        # Processor time (user and system) of the run: on a loaded machine it
        # varies far less than the time on the clock.
        times.append(after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime)
    return statistics.median(times)


def main():
    vorka = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/vorka")
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 7
    # Points a radius-50 midpoint circle plots: 8 per step while x >= y.
    steps, x, y, err = 0, 50, 0, 1 - 50
    while x >= y:
        steps += 1
        y += 1
        if err < 0:
            err += 2 * y + 1
        else:
            x -= 1
            err += 2 * (y - x) + 1
    rows = [
        ("10,000 circles, radius 50", "circles.vrs", "circles_base.vrs", 10000 * 8 * steps),
        ("resize 1024x1024 to 2048x2048", "resize.vrs", "resize_base.vrs", 2048 * 2048),
    ]
    print("| Workload | Time (ms) | Pixels | Pixels per second |")
    print("|---|---:|---:|---:|")
    for name, script, base, pixels in rows:
        t = median_seconds(vorka, script, runs) - median_seconds(vorka, base, runs)
        t = max(t, 1e-6)
        print("| %s | %.1f | %d | %.3g |" % (name, t * 1000, pixels, pixels / t))


if __name__ == "__main__":
    main()
