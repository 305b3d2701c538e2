#!/usr/bin/env python3
"""Generates the scripts of the compile workload.

One program, written in vorkascript, Lua and Python: many small functions, each
with a while loop around an if/else, followed by one call of every function,
summed into a total that is printed once. Its run time is small next to its
compile time, so the time of one run is dominated by reading and compiling the
source.

Usage: gen_compile.py LINES OUTDIR
    writes OUTDIR/compile_LINES.vrs, .lua and .py; the vorkascript file has
    about LINES lines (the others have the same functions and calls).
Usage: gen_compile.py --flat LINES OUTDIR
    writes OUTDIR/compile_flat_LINES.vrs: the same while/if shape with no
    functions, all in the root block, to see how the compile time of one
    large block grows.
"""
import os
import sys

# Lines of one function in the vorkascript form below, plus its call line.
_VRS_FUNCTION_LINES = 13
_LINES_PER_FUNCTION = _VRS_FUNCTION_LINES + 1
# Header and footer lines of the vorkascript form.
_FIXED_LINES = 4


def _params(k):
    """Constants of function k: loop bound, threshold, factor."""
    return 3 + k % 5, k % 4, k % 7 + 1


def function_count(lines):
    return max(1, (lines - _FIXED_LINES) // _LINES_PER_FUNCTION)


def vorka_source(lines):
    count = function_count(lines)
    out = [f"// Generated compile workload: {count} functions with while and if."]
    for k in range(count):
        _, threshold, factor = _params(k)
        out += [
            f"f{k}(n) {{",
            "    var s = 0;",
            "    var i = 0;",
            "    while (i < n) {",
            f"        if (i > {threshold}) {{",
            f"            s = s + (i * {factor});",
            "        } else {",
            "            s = s + 1;",
            "        }",
            "        i++;",
            "    }",
            "    return s;",
            "}",
        ]
    out.append("total = 0;")
    for k in range(count):
        bound, _, _ = _params(k)
        out.append(f"total = total + f{k}({bound});")
    out.append("print(total);")
    out.append("// end")
    return "\n".join(out) + "\n"


def lua_source(lines):
    count = function_count(lines)
    # Global functions: a Lua chunk may hold at most 200 locals.
    out = [f"-- Generated compile workload: {count} functions with while and if."]
    for k in range(count):
        _, threshold, factor = _params(k)
        out += [
            f"function f{k}(n)",
            "  local s = 0",
            "  local i = 0",
            "  while i < n do",
            f"    if i > {threshold} then",
            f"      s = s + (i * {factor})",
            "    else",
            "      s = s + 1",
            "    end",
            "    i = i + 1",
            "  end",
            "  return s",
            "end",
        ]
    out.append("local total = 0")
    for k in range(count):
        bound, _, _ = _params(k)
        out.append(f"total = total + f{k}({bound})")
    out.append("print(total)")
    return "\n".join(out) + "\n"


def python_source(lines):
    count = function_count(lines)
    out = [f"# Generated compile workload: {count} functions with while and if."]
    for k in range(count):
        _, threshold, factor = _params(k)
        out += [
            f"def f{k}(n):",
            "    s = 0",
            "    i = 0",
            "    while i < n:",
            f"        if i > {threshold}:",
            f"            s = s + (i * {factor})",
            "        else:",
            "            s = s + 1",
            "        i = i + 1",
            "    return s",
            "",
        ]
    out.append("total = 0")
    for k in range(count):
        bound, _, _ = _params(k)
        out.append(f"total = total + f{k}({bound})")
    out.append("print(total)")
    return "\n".join(out) + "\n"


def flat_vorka_source(lines):
    """The loop bodies of the functions, written out in the root block."""
    out = ["// Generated flat compile workload: while and if, no functions.", "total = 0;"]
    k = 0
    while len(out) + 11 <= lines - 2:
        bound, threshold, factor = _params(k)
        out += [
            "s = 0;",
            "i = 0;",
            f"while (i < {bound}) {{",
            f"    if (i > {threshold}) {{",
            f"        s = s + (i * {factor});",
            "    } else {",
            "        s = s + 1;",
            "    }",
            "    i++;",
            "}",
            "total = total + s;",
        ]
        k += 1
    out.append("print(total);")
    out.append("// end")
    return "\n".join(out) + "\n", k


def _function_value(k):
    bound, threshold, factor = _params(k)
    return sum(i * factor if i > threshold else 1 for i in range(bound))


def expected_result(lines):
    return sum(_function_value(k) for k in range(function_count(lines)))


def write_all(lines, outdir):
    """Writes the three files; returns {language suffix: path}."""
    paths = {}
    for suffix, make in (("vrs", vorka_source), ("lua", lua_source), ("py", python_source)):
        path = os.path.join(outdir, f"compile_{lines}.{suffix}")
        with open(path, "w", encoding="utf-8") as f:
            f.write(make(lines))
        paths[suffix] = path
    return paths


def main(argv):
    if len(argv) == 4 and argv[1] == "--flat":
        lines = int(argv[2])
        text, count = flat_vorka_source(lines)
        path = os.path.join(argv[3], f"compile_flat_{lines}.vrs")
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
        print(path)
        print(f"expected result: {sum(_function_value(k) for k in range(count))}")
        return 0
    if len(argv) != 3:
        print(__doc__.strip().split("\n\n")[-1], file=sys.stderr)
        return 2
    lines = int(argv[1])
    for path in write_all(lines, argv[2]).values():
        print(path)
    print(f"expected result: {expected_result(lines)}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
