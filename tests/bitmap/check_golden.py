#!/usr/bin/python3
"""Golden files of the bitmap type.

Runs scene.vrs, which draws a small scene and saves it as BMP, PNG and JPEG
into a scratch folder, and checks that:
  - the BMP and PNG files equal the checked-in ones under golden/ byte for byte;
  - the PNG, decoded here with zlib alone, holds the same pixels as the BMP,
    and a few known pixels have their colours;
  - the script's own reload checks print what they should.
With --update the golden files are rewritten from this run.

Usage: check_golden.py <vorka executable> [--update]
"""
import os
import struct
import subprocess
import sys
import tempfile
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
GOLDEN = os.path.join(HERE, "golden")

EXPECTED_LOG = [
    "1", "1", "1", "1",
    "1 1", "1 1", "1 1", "1 32x24x3",
    "1 1", "1 4 1", "1 3 (10.000000, 20.000000, 30.000000)",
    "0",
]

# Pixels (x, y) -> (R, G, B) the scene must have.
KNOWN = {
    (31, 23): (20, 40, 80),   # untouched background
    (3, 10): (255, 200, 0),   # the circle's left-most point
    (18, 4): (255, 0, 0),     # the rectangle's corner
    (31, 0): (0, 255, 0),     # the line's end
}


def png_pixels(data):
    """(width, height, rows of RGB tuples) of an 8-bit RGB or RGBA PNG."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    pos, idat, width = 8, b"", None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        crc = struct.unpack(">I", data[pos + 8 + length:pos + 12 + length])[0]
        assert zlib.crc32(kind + body) == crc, "bad chunk checksum"
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert depth == 8 and colour in (2, 6), "unexpected PNG type"
            channels = 3 if colour == 2 else 4
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, previous = [], bytearray(stride)
    for y in range(height):
        line = raw[y * (stride + 1):(y + 1) * (stride + 1)]
        kind, cur = line[0], bytearray(line[1:])
        for i in range(stride):
            a = cur[i - channels] if i >= channels else 0
            b = previous[i]
            c = previous[i - channels] if i >= channels else 0
            if kind == 1:
                cur[i] = (cur[i] + a) & 255
            elif kind == 2:
                cur[i] = (cur[i] + b) & 255
            elif kind == 3:
                cur[i] = (cur[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                pred = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
                cur[i] = (cur[i] + pred) & 255
        rows.append([tuple(cur[x * channels:x * channels + 3]) for x in range(width)])
        previous = cur
    return width, height, rows


def bmp_pixels(data):
    """(width, height, rows of RGB tuples) of a 24-bit bottom-up BMP."""
    assert data[:2] == b"BM", "not a BMP"
    offset = struct.unpack("<I", data[10:14])[0]
    width, height, _, bits = struct.unpack("<iiHH", data[18:30])
    assert bits == 24 and height > 0
    stride = (width * 3 + 3) // 4 * 4
    assert len(data) == offset + stride * height, "BMP size"
    rows = []
    for y in range(height):
        line = data[offset + (height - 1 - y) * stride:]
        rows.append([(line[x * 3 + 2], line[x * 3 + 1], line[x * 3]) for x in range(width)])
    return width, height, rows


def main():
    vorka, update = os.path.abspath(sys.argv[1]), "--update" in sys.argv[2:]
    failures = []
    with tempfile.TemporaryDirectory() as out:
        run = subprocess.run([vorka, "--runscript=scene.vrs", "--scriptarg=" + out], cwd=HERE,
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
        logs = [line[len("[LOG]: "):] for line in run.stdout.splitlines()
                if line.startswith("[LOG]: ") and not line.startswith(
                    ("[LOG]: PATH", "[LOG]: WDIR", "[LOG]: exe path", "[LOG]: WORKING",
                     "[LOG]: loading", "[LOG]: done.", "[LOG]: parsing", "[LOG]: opened",
                     "[LOG]: compiling"))]
        if logs != EXPECTED_LOG:
            failures.append("script output %r, expected %r" % (logs, EXPECTED_LOG))
        if "Could not open file" not in run.stderr:
            failures.append("no report of the folder that does not exist")
        files = {}
        for name in ("scene.bmp", "scene.png"):
            with open(os.path.join(out, name), "rb") as f:
                files[name] = f.read()
            golden = os.path.join(GOLDEN, name)
            if update:
                with open(golden, "wb") as f:
                    f.write(files[name])
            with open(golden, "rb") as f:
                if f.read() != files[name]:
                    failures.append(name + " differs from the golden file")
        with open(os.path.join(out, "scene"), "rb") as f:
            if f.read() != files["scene.bmp"]:
                failures.append("a path without extension did not write the BMP")
    pw, ph, png_rows = png_pixels(files["scene.png"])
    bw, bh, bmp_rows = bmp_pixels(files["scene.bmp"])
    if (pw, ph) != (32, 24) or (bw, bh) != (32, 24):
        failures.append("sizes %r %r" % ((pw, ph), (bw, bh)))
    if png_rows != bmp_rows:
        failures.append("PNG and BMP pixels differ")
    for (x, y), colour in KNOWN.items():
        if png_rows[y][x] != colour:
            failures.append("pixel %r is %r, expected %r" % ((x, y), png_rows[y][x], colour))
    for failure in failures:
        print("FAIL:", failure)
    print("bitmap golden files:", "FAIL" if failures else "PASS")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
