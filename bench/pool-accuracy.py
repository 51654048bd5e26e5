#!/usr/bin/env python3
"""Pools the per-entry errors of several bench_accuracy runs (different seeds) into one table.

    bench/pool-accuracy.py run1.txt run2.txt ... [--flag 3]

Each run's header gives its seed count K; an entry's pooled mean is the K-weighted mean of the
runs' means, and its standard error combines the runs' (se_i K_i)^2, which are the summed solver
variances, over the total seed count. Prints every entry that any run holds, flags |z| above
--flag, and per structure the largest standard error and the worst diagonal and coupling among
entries above 1% of their row's diagonal. Standard library only.
"""
import argparse
import math
import re
import sys

HEADER = re.compile(r"^precision \S+, (\d+) seeds from (\d+)")
STRUCTURE = re.compile(r"^(\S+) \((\d+) conductors")
ENTRY = re.compile(r"^\s+(\d+),(\d+)\s+(\S+)\s+([-+]\S+)\s+(\S+)\s+([-+]?\S+)")


def read_run(path):
    """Returns (seed count, first seed, {(structure, k, j): (reference, mean %, se %)})."""
    seeds = first = None
    entries = {}
    structure = None
    with open(path) as f:
        for line in f:
            m = HEADER.match(line)
            if m:
                seeds, first = int(m.group(1)), int(m.group(2))
                continue
            m = STRUCTURE.match(line)
            if m:
                structure = m.group(1)
                continue
            m = ENTRY.match(line)
            if m and structure and "plate row (" not in line:
                key = (structure, int(m.group(1)), int(m.group(2)))
                entries.setdefault(key, (float(m.group(3)), float(m.group(4)), float(m.group(5))))
    if seeds is None:
        sys.exit(f"{path}: no bench_accuracy header")
    return seeds, first, entries


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("runs", nargs="+")
    ap.add_argument("--flag", type=float, default=3.0)
    args = ap.parse_args()

    pooled = {}  # key -> [reference, sum K*mean, sum (se*K)^2, sum K, seed ranges]
    for path in args.runs:
        k, first, entries = read_run(path)
        for key, (ref, mean, se) in entries.items():
            p = pooled.setdefault(key, [ref, 0.0, 0.0, 0, []])
            p[1] += k * mean
            p[2] += (se * k) ** 2
            p[3] += k
            p[4].append((first, first + k - 1))

    structures = sorted({key[0] for key in pooled})
    for s in structures:
        keys = sorted(key for key in pooled if key[0] == s)
        ranges = sorted(pooled[keys[0]][4])
        print(f"\n{s}: seeds " + ", ".join(f"{a}-{b}" for a, b in ranges))
        print(f"  {'entry':>5} {'reference':>12} {'error %':>10} {'s.e. %':>9} {'z':>7}")
        diag = {key[1]: pooled[key][0] for key in keys if key[1] == key[2]}
        worst_se = worst_diag = worst_coupling = 0.0
        for key in keys:
            ref, km, var, n, _ = pooled[key]
            mean, se = km / n, math.sqrt(var) / n
            z = mean / se if se > 0 else 0.0
            significant = abs(ref) >= 0.01 * diag.get(key[1], abs(ref))
            flag = significant and abs(z) > args.flag
            if significant:
                worst_se = max(worst_se, se)
                if key[1] == key[2]:
                    worst_diag = max(worst_diag, abs(mean))
                else:
                    worst_coupling = max(worst_coupling, abs(mean))
            print(f"  {key[1]:2d},{key[2]:<2d} {ref:12.6g} {mean:+10.3f} {se:9.3f} {z:+7.1f}"
                  + (f"  <-- |z| > {args.flag:g}" if flag else ""))
        print(f"  largest s.e. {worst_se:.3f}%; worst diagonal {worst_diag:.3f}%, "
              f"worst coupling {worst_coupling:.3f}% of the row's diagonal")


if __name__ == "__main__":
    main()
