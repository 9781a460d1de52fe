#!/usr/bin/env python3
"""Turns the benchmarks' JSON output into the tables we quote, as Markdown: ratios of the
law to hand-written C++, to muparser and to GiNaC, node counts of derivatives, parse cost
per character.  Give it any of the four outputs, in any order:

    build/release/bench/law_bench --benchmark_format=json > eval.json
    build/release/bench/derivative_bench --benchmark_format=json > deriv.json
    build/release/bench/vector_bench --benchmark_format=json > vector.json
    build/release/bench/parse_bench --benchmark_format=json > parse.json
    python3 bench/ratios.py eval.json deriv.json vector.json parse.json

(bench/run_all.sh does all of this.)  With --benchmark_repetitions the medians are used;
otherwise the single runs.
"""

import json
import sys

# The text of each law_bench expression, as the benchmark builds it.
EVAL_TEXTS = {
    "x2p1": "X*X+1",
    "quotient": "(X+1)/(X-1)",
    "tree30": "30-node tree",
}
SIZES = ("sizeof(law)", "sizeof(plus_law)", "sizeof(constant_law)", "sizeof(identity_law)",
         "sizeof(sin_law)")
TIME_UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def base_name(b):
    name = b.get("run_name", b["name"])
    return name[: -len("/manual_time")] if name.endswith("/manual_time") else name


def pick_runs(benchmarks):
    """One entry per benchmark name: the median aggregate when there is one."""
    chosen = {}
    for b in benchmarks:
        name = base_name(b)
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                chosen[name] = b
        elif chosen.get(name, {}).get("run_type") != "aggregate":
            chosen[name] = b
    return chosen


def ns_per_item(runs, name):
    b = runs.get(name)
    ips = b.get("items_per_second") if b else None
    return 1e9 / ips if ips else None


def real_ns(runs, name):
    b = runs.get(name)
    if not b:
        return None
    return b["real_time"] * TIME_UNIT_NS[b.get("time_unit", "ns")]


def counter(runs, name, key):
    b = runs.get(name)
    return b.get(key) if b else None


def num(v, digits=2):
    if v is None:
        return "-"
    if isinstance(v, str):
        return v
    if abs(v) >= 1000:
        return f"{v:,.0f}"
    if abs(v) >= 100:
        return f"{v:.0f}"
    return f"{v:.{digits}f}"


def count(v):
    return "-" if v is None else f"{v:,.0f}"


def ratio(a, b):
    return a / b if a is not None and b else None


def table(header, rows):
    print("| " + " | ".join(header) + " |")
    print("|" + "|".join("---" if i == 0 else "---:" for i in range(len(header))) + "|")
    for r in rows:
        print("| " + " | ".join(r) + " |")
    print()


def keys_of(runs, prefix, depth):
    """The distinct name parts at position `depth` under `prefix`, in order of appearance."""
    seen = []
    for n in runs:
        parts = n.split("/")
        if parts[0] == prefix and len(parts) > depth and parts[depth] not in seen:
            seen.append(parts[depth])
    return seen


def eval_section(runs, context):
    exprs = keys_of(runs, "eval", 1)
    if exprs:
        print("Evaluation, ns per point (1024 points, medians)\n")
        rows = []
        for e in exprs:
            t = {m: ns_per_item(runs, f"eval/{e}/{m}") for m in ("law", "hand", "muparser")}
            rows.append([EVAL_TEXTS.get(e, e), num(t["law"]), num(t["hand"]), num(t["muparser"]),
                         num(ratio(t["law"], t["hand"])), num(ratio(t["law"], t["muparser"]))])
        table(["expression", "law", "hand", "muparser", "law/hand", "law/muparser"], rows)
    others = [n for n in runs if n.split("/")[0] in ("derivative_cached", "build_and_release")]
    if others:
        rows = [[n, num(ns_per_item(runs, n)), count(counter(runs, n, "nodes"))] for n in others]
        table(["operation", "ns/op", "nodes"], rows)
    sizes = [[k, context[k]] for k in SIZES if k in context]
    if sizes:
        table(["node class", "bytes"], sizes)


def vector_section(runs, context):
    exprs = keys_of(runs, "vector", 1)
    if not exprs:
        return
    print("Vector law, ns per point, three values each (1024 points, medians).  muparser has"
          " no vector type: 'mup x3' is three parsers, one per component; 'mup a,b,c' is one"
          " comma-separated expression whose Eval(n) gives the three values.\n")
    rows = []
    for e in exprs:
        t = {m: ns_per_item(runs, f"vector/{e}/{m}")
             for m in ("law", "hand", "muparser3", "muparser_multi")}
        rows.append([context.get(f"vector/{e}", e), num(t["law"]), num(t["hand"]),
                     num(t["muparser3"]), num(t["muparser_multi"]),
                     num(ratio(t["law"], t["hand"])), num(ratio(t["law"], t["muparser3"])),
                     num(ratio(t["law"], t["muparser_multi"]))])
    table(["law", "law ns", "hand", "mup x3", "mup a,b,c", "law/hand", "law/mup x3",
           "law/mup a,b,c"], rows)
    for e in exprs:
        k = f"heap/{e}"
        if f"{k}/live_blocks_before" in context:
            print(f"- {context.get(f'vector/{e}', e)}: vorn_live_blocks() "
                  f"{context[f'{k}/live_blocks_before']} before a sweep, "
                  f"{context[f'{k}/live_blocks_after']} after; operator new calls during the"
                  f" sweep: {context[f'{k}/operator_new_calls']}")
    print()


def derivative_section(runs, context):
    exprs = keys_of(runs, "deriv_build", 1)
    if not exprs:
        return
    ginac = context.get("ginac", "not built in")
    print(f"Derivatives of order n, each built from the last (GiNaC: {ginac}).  Nodes of the"
          " n-th derivative counted as a tree; build time of the whole chain up to n from a"
          " freshly parsed law (cold caches), microseconds; evaluation ns per point.\n")
    for e in exprs:
        print(f"`{context.get(f'text/{e}', e)}`\n")
        rows = []
        for n in keys_of({k: 0 for k in runs if k.startswith(f"deriv_build/{e}/")},
                         "deriv_build", 2):
            b = f"deriv_build/{e}/{n}"
            v = f"deriv_eval/{e}/{n}"
            nodes = {m: counter(runs, f"{b}/{m}", "nodes") for m in ("law", "naive", "ginac")}
            build = {m: real_ns(runs, f"{b}/{m}") for m in ("law", "naive", "ginac")}
            build_us = {m: (t / 1e3 if t is not None else None) for m, t in build.items()}
            ev = {m: ns_per_item(runs, f"{v}/{m}") for m in ("law", "naive")}
            rows.append([n, count(nodes["law"]), count(nodes["naive"]), count(nodes["ginac"]),
                         num(build_us["law"], 1), num(build_us["naive"], 1),
                         num(build_us["ginac"], 1),
                         num(ratio(build["law"], build["naive"]), 1),
                         num(ratio(build["law"], build["ginac"]), 1),
                         num(ev["law"], 0), num(ev["naive"], 0)])
        table(["n", "nodes law", "naive", "GiNaC", "build us law", "naive", "GiNaC",
               "law/naive", "law/GiNaC", "eval ns law", "naive"], rows)


def parse_section(runs, context):
    keys = keys_of(runs, "parse", 1)
    for k in context:
        parts = k.split("/")
        if parts[0] == "refused" and parts[1] not in keys:
            keys.append(parts[1])
    if not keys:
        return
    print("Parsing, ns per character (text to law and release; muparser: SetExpr and first"
          " Eval), medians\n")
    rows = []
    law_per_char = {}
    for k in keys:
        law = ns_per_item(runs, f"parse/{k}/law")
        mu = ns_per_item(runs, f"parse/{k}/muparser")
        refused = context.get(f"refused/{k}/muparser")
        chars = context.get(f"chars/{k}/law", "-")
        law_per_char[k] = law
        law_text = real_ns(runs, f"parse/{k}/law")
        rows.append([k, chars, num(law), num(mu) if refused is None else "refused",
                     num(ratio(law, mu)), num(law_text / 1e3 if law_text else None, 1)])
    table(["text", "chars", "law ns/char", "muparser ns/char", "law/muparser", "law us/text"],
          rows)
    sums = [k for k in ("sum100", "sum1000", "sum10000") if law_per_char.get(k)]
    if len(sums) > 1:
        steps = ", ".join(f"{k}: {law_per_char[k]:.0f}" for k in sums)
        growth = ", ".join(f"x{law_per_char[b] / law_per_char[a]:.1f}"
                           for a, b in zip(sums, sums[1:]))
        print(f"Law ns/char by length: {steps} (per tenfold length: {growth}; 1.0 is linear)\n")


def main(paths):
    benchmarks = []
    context = {}
    for path in paths:
        with open(path) as f:
            data = json.load(f)
        benchmarks += data.get("benchmarks", [])
        context.update(data.get("context", {}))
    runs = pick_runs(benchmarks)
    eval_section(runs, context)
    vector_section(runs, context)
    derivative_section(runs, context)
    parse_section(runs, context)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit("usage: ratios.py out.json [more.json ...]")
    main(sys.argv[1:])
