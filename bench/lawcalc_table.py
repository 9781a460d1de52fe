#!/usr/bin/env python3
"""lawcalc --table over 100,000 points: CPU time (user + system) of the whole process,
median of 7 runs taken in turns, for the compiled form (the default) against
--no-compile (the tree) and, when --before names another lawcalc binary (an older
build), against that one too.

    bench/lawcalc_table.py [--before OLD_LAWCALC] [LAWCALC]   (default build/release/lawcalc)
"""

import os
import resource
import statistics
import subprocess
import sys

LAWS = ["VEC(COS(X),SIN(X),X/10)",
        "SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2)"]
RUNS = 7


def cpu_seconds(cmd):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(cmd, stdout=subprocess.DEVNULL, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def main(argv):
    before = None
    if len(argv) > 1 and argv[0] == "--before":
        before, argv = argv[1], argv[2:]
    lawcalc = argv[0] if argv else "build/release/lawcalc"
    print("load average:", " ".join(f"{v:.2f}" for v in os.getloadavg()))
    for law in LAWS:
        args = [law, "--table", "0", "10", "100000"]
        kinds = {"compiled": [lawcalc] + args, "--no-compile": [lawcalc] + args + ["--no-compile"]}
        if before:
            kinds["before"] = [before] + args
        times = {k: [] for k in kinds}
        for _ in range(RUNS):
            for k, cmd in kinds.items():
                times[k].append(cpu_seconds(cmd))
        med = {k: statistics.median(v) * 1e3 for k, v in times.items()}
        line = ", ".join(f"{k} {v:.1f} ms" for k, v in med.items())
        ratios = ", ".join(f"compiled/{k} {med['compiled'] / v:.2f}" for k, v in med.items()
                           if k != "compiled")
        print(f"{law}: {line}; {ratios}")


if __name__ == "__main__":
    main(sys.argv[1:])
