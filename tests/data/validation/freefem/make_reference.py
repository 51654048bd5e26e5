#!/usr/bin/python3
"""Computes the reference capacitance matrix of one structure with FreeFEM.

    make_reference.py STRUCTURE.json [-o OUT.json] [--tol T] [--levels L] [--err0 E]
                      [--compare REFERENCE.json]

Reads `name`, `window`, `conductors`, `layers` and `dielectrics` from STRUCTURE.json (the layout of
the files in the folder above), cuts the geometry into a planar graph of straight pieces, runs
capacitance.edp on it with FreeFem++ and writes the structure back with `matrix` and `rel_error`
(to OUT.json, or to stdout). --compare checks the result against another reference matrix of the
same structure instead: every entry above 1% of its row's diagonal must agree within 0.05% of that
diagonal (exit status 1 otherwise). Only the standard library is used; FreeFem++ must be on the PATH.

`matrix` is the last mesh level's wire block, made symmetric by averaging it with its transpose
(the energy form is symmetric already; the average only removes rounding), with the ground plate's
row and column added from charge neutrality. `rel_error` is, per entry, the relative change from the
level before. The change shrank by a factor of 3 to 4 per level on every structure tried, so the
last level's own error is well below it: the figure is an upper bound.
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))

# Labels shared with capacitance.edp.
BOTTOM, WALL, INNER, CONDUCTOR = 1, 2, 3, 100

# Layers thinner than this get two extra mesh lines inside, so that a thin film has at least three
# elements across its thickness wherever the mesh is coarse.
THIN = 0.05

# Spacing of the first mesh's boundary points: fine next to conductors, coarser away from them.
H_MIN, H_MAX, GRADE = 0.01, 0.5, 0.3

TOUCH = 1e-12


def inside_open(rect, x, y):
    return rect[0] + TOUCH < x < rect[2] - TOUCH and rect[1] + TOUCH < y < rect[3] - TOUCH


def on_boundary(rect, x, y):
    inside_closed = (rect[0] - TOUCH <= x <= rect[2] + TOUCH and
                     rect[1] - TOUCH <= y <= rect[3] + TOUCH)
    return inside_closed and not inside_open(rect, x, y)


def rect_distance(rect, x, y):
    dx = max(rect[0] - x, 0.0, x - rect[2])
    dy = max(rect[1] - y, 0.0, y - rect[3])
    return (dx * dx + dy * dy) ** 0.5


def merge(intervals):
    """Union of closed intervals on one line, as a sorted list."""
    out = []
    for a, b in sorted(intervals):
        if out and a <= out[-1][1] + TOUCH:
            out[-1][1] = max(out[-1][1], b)
        else:
            out.append([a, b])
    return out


def check(s):
    x0, y0, x1, y1 = s["window"]
    conductors = s["conductors"]
    for k, c in enumerate(conductors):
        if not (x0 < c[0] < c[2] < x1 and y0 < c[1] < c[3] < y1):
            sys.exit(f"conductor {k} must lie strictly inside the window")
        for j in range(k):
            o = conductors[j]
            if c[0] <= o[2] and o[0] <= c[2] and c[1] <= o[3] and o[1] <= c[3]:
                sys.exit(f"conductors {j} and {k} touch")


def pieces(s):
    """The planar graph: (xa, ya, xb, yb, label) pieces that meet only at their ends."""
    x0, y0, x1, y1 = s["window"]
    conductors = s["conductors"]
    horizontal = {}  # y -> intervals in x
    vertical = {}  # x -> intervals in y

    def add_h(y, a, b):
        a, b = max(a, x0), min(b, x1)
        if y0 <= y <= y1 and b > a:
            horizontal.setdefault(y, []).append((a, b))

    def add_v(x, a, b):
        a, b = max(a, y0), min(b, y1)
        if x0 <= x <= x1 and b > a:
            vertical.setdefault(x, []).append((a, b))

    def add_rect(r):
        add_h(r[1], r[0], r[2])
        add_h(r[3], r[0], r[2])
        add_v(r[0], r[1], r[3])
        add_v(r[2], r[1], r[3])

    add_rect([x0, y0, x1, y1])
    for c in conductors:
        add_rect(c)
    for _, r in s["dielectrics"]:
        add_rect(r)
    layers = s["layers"]
    for i, (y, _) in enumerate(layers):
        if i > 0:
            add_h(y, x0, x1)
        top = layers[i + 1][0] if i + 1 < len(layers) else None
        if i > 0 and top is not None and top - y < THIN:
            add_h(y + (top - y) / 3, x0, x1)
            add_h(y + 2 * (top - y) / 3, x0, x1)

    horizontal = {y: merge(v) for y, v in horizontal.items()}
    vertical = {x: merge(v) for x, v in vertical.items()}

    def cuts_h(y, a, b):
        xs = {a, b}
        for x, ivs in vertical.items():
            if a < x < b and any(lo - TOUCH <= y <= hi + TOUCH for lo, hi in ivs):
                xs.add(x)
        return sorted(xs)

    def cuts_v(x, a, b):
        ys = {a, b}
        for y, ivs in horizontal.items():
            if a < y < b and any(lo - TOUCH <= x <= hi + TOUCH for lo, hi in ivs):
                ys.add(y)
        return sorted(ys)

    raw = []
    for y, ivs in horizontal.items():
        for a, b in ivs:
            xs = cuts_h(y, a, b)
            raw += [(xs[i], y, xs[i + 1], y) for i in range(len(xs) - 1)]
    for x, ivs in vertical.items():
        for a, b in ivs:
            ys = cuts_v(x, a, b)
            raw += [(x, ys[i], x, ys[i + 1]) for i in range(len(ys) - 1)]

    out = []
    for xa, ya, xb, yb in raw:
        mx, my = (xa + xb) / 2, (ya + yb) / 2
        if any(inside_open(c, mx, my) for c in conductors):
            continue
        owner = next((c for c in conductors if on_boundary(c, mx, my)), None)
        horiz = ya == yb
        if owner is not None:
            # Clockwise around the conductor: the domain lies to the left, the conductor is a hole.
            label = CONDUCTOR
            if horiz:
                east = my > (owner[1] + owner[3]) / 2  # top side runs east
            else:
                north = mx < (owner[0] + owner[2]) / 2  # left side runs north
        elif horiz and my == y0:
            label, east = BOTTOM, True
        elif not horiz and mx == x1:
            label, north = WALL, True
        elif horiz and my == y1:
            label, east = WALL, False
        elif not horiz and mx == x0:
            label, north = WALL, False
        else:
            # Inner lines run west or south: every region then lies left of its top edge.
            label, east, north = INNER, False, False
        if horiz:
            a, b = (xa, xb) if east else (xb, xa)
            out += split(a, ya, b, ya, label, conductors)
        else:
            a, b = (ya, yb) if north else (yb, ya)
            out += split(xa, a, xa, b, label, conductors)
    return out


def split(xa, ya, xb, yb, label, conductors):
    """Cuts one straight piece into steps that grow with the distance to the nearest conductor."""
    length = abs(xb - xa) + abs(yb - ya)
    ts = [0.0]
    while ts[-1] < 1.0:
        t = ts[-1]
        px, py = xa + t * (xb - xa), ya + t * (yb - ya)
        d = min(rect_distance(c, px, py) for c in conductors)
        h = min(H_MAX, max(H_MIN, GRADE * d))
        ts.append(min(1.0, t + h / length))
    if len(ts) > 2 and (ts[-1] - ts[-2]) * length < 0.3 * H_MIN:
        ts.pop(-2)  # no sliver step at the end
    pts = [(xa + t * (xb - xa), ya + t * (yb - ya)) for t in ts]
    return [(pts[i][0], pts[i][1], pts[i + 1][0], pts[i + 1][1], label)
            for i in range(len(pts) - 1)]


def write_input(s, path, args):
    with open(path, "w") as f:
        f.write(" ".join(repr(float(v)) for v in s["window"]) + "\n")
        f.write(f"{len(s['conductors'])}\n")
        for c in s["conductors"]:
            f.write(" ".join(repr(float(v)) for v in c) + "\n")
        f.write(f"{len(s['layers'])}\n")
        for y, e in s["layers"]:
            f.write(f"{float(y)!r} {float(e)!r}\n")
        f.write(f"{len(s['dielectrics'])}\n")
        for e, r in s["dielectrics"]:
            f.write(f"{float(e)!r} " + " ".join(repr(float(v)) for v in r) + "\n")
        ps = pieces(s)
        f.write(f"{len(ps)}\n")
        for xa, ya, xb, yb, label in ps:
            f.write(f"{xa!r} {ya!r} {xb!r} {yb!r} {label}\n")
        f.write(f"{args.err0} {args.err_factor} {args.levels} {args.tol} {args.nbvx} "
                f"{args.hmin}\n")


def read_levels(path, n):
    levels = []
    with open(path) as f:
        lines = f.read().split("\n")
    i = 0
    while i < len(lines):
        words = lines[i].split()
        if words and words[0] == "LEVEL":
            info = dict(zip(words[2::2], words[3::2]))
            rows = [[float(v) for v in lines[i + 1 + k].split()] for k in range(n)]
            levels.append((info, rows))
            i += n
        i += 1
    return levels


def with_plate(block):
    """Adds the ground plate as the last row and column: every row of the full matrix sums to 0."""
    n = len(block)
    sym = [[(block[k][j] + block[j][k]) / 2 for j in range(n)] for k in range(n)]
    full = [row + [-sum(row)] for row in sym]
    plate = [full[k][n] for k in range(n)]
    full.append(plate + [-sum(plate)])
    return full


def compare(full, reference, limit=0.05):
    """Prints the worst differences in percent of the row's diagonal; True when within limit."""
    n = len(reference)
    if len(full) != n:
        sys.exit(f"reference has {n} rows, the result {len(full)}")
    worst = {"diagonal": (0.0, None), "coupling": (0.0, None)}
    for k in range(n):
        d = reference[k][k]
        for j in range(n):
            if abs(reference[k][j]) <= 0.01 * d:
                continue
            diff = 100 * (full[k][j] - reference[k][j]) / d
            kind = "diagonal" if k == j else "coupling"
            if abs(diff) >= abs(worst[kind][0]):
                worst[kind] = (diff, (k, j))
    ok = True
    for kind, (diff, at) in worst.items():
        print(f"worst {kind}: {diff:+.5f}% of the row's diagonal at {at}")
        ok = ok and abs(diff) <= limit
    print("agree" if ok else f"DISAGREE (limit {limit}%)")
    return ok


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    p.add_argument("structure")
    p.add_argument("-o", "--output")
    p.add_argument("--tol", type=float, default=2e-5,
                   help="stop when every significant entry moved less than this (relative)")
    p.add_argument("--levels", type=int, default=8)
    p.add_argument("--err0", type=float, default=0.01, help="first adaptmesh err")
    p.add_argument("--err-factor", type=float, default=0.5)
    p.add_argument("--nbvx", type=int, default=2000000)
    p.add_argument("--hmin", type=float, default=1e-6)
    p.add_argument("--keep", help="keep the scratch folder here")
    p.add_argument("--compare", help="reference JSON to check the result against")
    args = p.parse_args()

    with open(args.structure) as f:
        s = json.load(f)
    check(s)
    n = len(s["conductors"])
    work = args.keep or tempfile.mkdtemp(prefix="karven-freefem-")
    os.makedirs(work, exist_ok=True)
    write_input(s, os.path.join(work, "structure.txt"), args)
    env = dict(os.environ, OMP_NUM_THREADS="1", OPENBLAS_NUM_THREADS="1")
    before = os.times()
    wall = time.time()
    run = subprocess.run(["FreeFem++", "-nw", "-v", "0", os.path.join(HERE, "capacitance.edp")],
                         cwd=work, env=env, stdout=sys.stderr)
    child = os.times()
    if run.returncode != 0:
        sys.exit(f"FreeFem++ failed ({run.returncode}); input kept in {work}")
    levels = read_levels(os.path.join(work, "levels.txt"), n)
    if not args.keep:
        shutil.rmtree(work)
    if len(levels) < 2:
        sys.exit("need at least two mesh levels to estimate the error")
    (_, coarse), (info, fine) = levels[-2], levels[-1]
    full, full_coarse = with_plate(fine), with_plate(coarse)
    rel = [[abs(full[k][j] - full_coarse[k][j]) / abs(full[k][j]) for j in range(n + 1)]
           for k in range(n + 1)]
    cpu = (child.children_user + child.children_system - before.children_user -
           before.children_system)
    sys.stderr.write(f"{s.get('name', '')}: {len(levels)} levels, last {info['vertices']} "
                     f"vertices, change {info['change']}, FreeFem++ cpu {cpu:.1f} s, wall "
                     f"{time.time() - wall:.1f} s\n")
    result = {k: s[k] for k in ("name", "window", "conductors", "layers", "dielectrics")
              if k in s}
    result["matrix"] = full
    result["rel_error"] = rel
    if args.compare:
        with open(args.compare) as f:
            sys.exit(0 if compare(full, json.load(f)["matrix"]) else 1)
    text = json.dumps(result, indent=1) + "\n"
    if args.output:
        with open(args.output, "w") as f:
            f.write(text)
    else:
        sys.stdout.write(text)


if __name__ == "__main__":
    main()
