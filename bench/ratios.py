#!/usr/bin/env python3
"""Turns law_bench's JSON output into the table we quote: ns per point for the law, the
hand-written C++ and muparser on each expression, and the ratios between them.

    build/release/bench/law_bench --benchmark_format=json > out.json
    python3 bench/ratios.py out.json

With --benchmark_repetitions the medians are used; otherwise the single runs.
"""

import json
import sys

METHODS = ("law", "hand", "muparser")
# The text of each expression, as the benchmark builds it.
TEXTS = {
    "x2p1": "X*X+1",
    "quotient": "(X+1)/(X-1)",
    "tree30": "30-node tree",
}


def pick_runs(benchmarks):
    """One entry per benchmark name: the median aggregate when there is one."""
    chosen = {}
    for b in benchmarks:
        name = b.get("run_name", b["name"])
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                chosen[name] = b
        elif chosen.get(name, {}).get("run_type") != "aggregate":
            chosen[name] = b
    return chosen


def ns_per_item(b):
    ips = b.get("items_per_second")
    if ips:
        return 1e9 / ips
    return None


def fmt(v, width, digits=2):
    return f"{v:>{width}.{digits}f}" if v is not None else f"{'-':>{width}}"


def ratio(a, b):
    return a / b if a is not None and b else None


def main(path):
    with open(path) as f:
        data = json.load(f)
    runs = pick_runs(data.get("benchmarks", []))
    context = data.get("context", {})

    for key in ("sizeof(law)", "sizeof(plus_law)", "sizeof(constant_law)", "sizeof(identity_law)"):
        if key in context:
            print(f"{key:<22} {context[key]} bytes")
    print()

    exprs = []
    for name in runs:
        parts = name.split("/")
        if len(parts) == 3 and parts[0] == "eval" and parts[1] not in exprs:
            exprs.append(parts[1])

    header = (f"{'expression':<14} {'law ns/pt':>10} {'hand ns/pt':>10} {'mup ns/pt':>10}"
              f" {'law/hand':>9} {'law/mup':>8}")
    print(header)
    print("-" * len(header))
    for e in exprs:
        t = {m: ns_per_item(runs[f"eval/{e}/{m}"]) if f"eval/{e}/{m}" in runs else None
             for m in METHODS}
        print(f"{TEXTS.get(e, e):<14} {fmt(t['law'], 10)} {fmt(t['hand'], 10)}"
              f" {fmt(t['muparser'], 10)} {fmt(ratio(t['law'], t['hand']), 9)}"
              f" {fmt(ratio(t['law'], t['muparser']), 8)}")

    others = [n for n in runs if not n.startswith("eval/")]
    if others:
        print()
        print(f"{'operation':<28} {'ns/op':>10} {'nodes':>6}")
        for n in others:
            b = runs[n]
            nodes = b.get("nodes")
            nodes_text = f"{nodes:>6.0f}" if nodes is not None else f"{'':>6}"
            print(f"{n:<28} {fmt(ns_per_item(b), 10)} {nodes_text}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: ratios.py out.json")
    main(sys.argv[1])
