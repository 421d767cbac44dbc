#!/usr/bin/env python3
"""Times the Python module on the three expressions of BindingsBench.cpp, by text and by
handle, and prints each figure with its overhead over the C++ call, which it takes from a
run of kalvos_bench_bindings.

Usage: bindings_bench.py BINDINGS_BENCH [--quick]   (the module must be on PYTHONPATH)
"""

import json
import subprocess
import sys
import timeit

import kalvos

# The texts of bench/Corpus.h and its store of 50 variables.
TEXTS = {
    "variables": "a*b+c-d/e",
    "fn_nested": "min(max(a,b),max(c,d))+abs(e-f)",
    "host_formula": "k[1]*w+k[2]*t-(r/2)+x[0]",
}
STORE = dict(a=1.5, b=2.25, c=3.5, d=0.75, e=1.25, f=0.5, g=4.0, h=-2.0, r=2.0, t=0.125,
             u=3.0, w=5.0)
STORE.update({f"x{i}": 1.0 + 0.5 * i for i in range(20)})
STORE.update({f"k{i}": 0.25 + i for i in range(18)})


def per_call_ns(call, quick):
    number = 1000 if quick else 200000
    best = min(timeit.repeat(call, number=number, repeat=1 if quick else 5))
    return best / number * 1e9


def main():
    quick = "--quick" in sys.argv
    args = [sys.argv[1], "--benchmark_format=json", "--benchmark_filter=^Cpp"]
    if quick:
        args.append("--benchmark_min_time=0.001")
    cpp = {}
    for run in json.loads(subprocess.run(args, capture_output=True, check=True).stdout)["benchmarks"]:
        cpp[(run["name"].split("/")[0], run["label"])] = run["cpu_time"]
    k = kalvos.Kalvos()
    for name, value in STORE.items():
        k.vars[name] = value
    print(f"{'python':<8}{'expression':<14}{'ns/call':>9}{'C++ ns':>9}{'overhead ns':>13}")
    for name, text in TEXTS.items():
        handle = k.compile(text)
        for path, call, base in (("text", lambda: k.compute(text), "CppText"),
                                 ("handle", handle, "CppHandle")):
            ns = per_call_ns(call, quick)
            ref = cpp[(base, name)]
            print(f"{path:<8}{name:<14}{ns:9.1f}{ref:9.1f}{ns - ref:13.1f}")


if __name__ == "__main__":
    main()
