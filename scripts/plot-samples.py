#!/usr/bin/python3
"""Draws the samples of a karven sample file, to look at what was computed before training on it.

    scripts/plot-samples.py out/samples.jsonl --ctf examples/stack.ctf -o out/pictures

writes, into the output folder:
  sample_<id>.png   per selected sample (--ids, default all): the cross-section to scale over the
                    technology's dielectric layers, wires coloured by metal layer, each labelled
                    with its total capacitance and its largest coupling;
  statistics.png    over all samples of the file: conductor counts, total capacitances,
                    coupling-to-total ratios and wire widths per layer.
It prints one line per conductor drawn, with the numbers of its label.

The stack comes from karven-stack (built next to karven), run on --ctf, or from a JSON file it
wrote (--stack). Needs Debian's python3-matplotlib.
"""

import argparse
import json
import math
import os
import shutil
import subprocess
import sys
import tempfile

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.patches import Rectangle  # noqa: E402
from matplotlib.ticker import MaxNLocator  # noqa: E402

# Heights of a wire and of its layer agree to this (both come from the same stack).
HEIGHT_TOLERANCE = 1e-6


def fail(message):
    sys.exit("plot-samples: " + message)


def read_samples(path):
    try:
        f = open(path)
    except OSError as e:
        fail("unable to open %s: %s" % (path, e.strerror))
    samples = []
    with f:
        for number, line in enumerate(f, 1):
            if not line.strip():
                continue
            where = "%s:%d" % (path, number)
            try:
                s = json.loads(line)
            except json.JSONDecodeError as e:
                fail("%s: not valid JSON (%s)" % (where, e))
            if not isinstance(s, dict):
                fail("%s: not a JSON object" % where)
            for key in ("capacitances", "conductors", "id", "size"):
                if key not in s:
                    fail('%s: no key "%s"' % (where, key))
            n = len(s["conductors"])
            if n < 1 or any(len(c) != 4 for c in s["conductors"]):
                fail("%s: conductors are not [cx, cy, w, h]" % where)
            if s["size"] != n or len(s["capacitances"]) != n * n:
                fail("%s: size and matrix do not match %d conductors" % (where, n))
            samples.append(s)
    if not samples:
        fail("%s: no samples" % path)
    return samples


def find_karven_stack(explicit):
    if explicit:
        return explicit
    here = os.path.dirname(os.path.abspath(__file__))
    built = os.path.join(here, "..", "build", "karven-stack")
    if os.access(built, os.X_OK):
        return built
    found = shutil.which("karven-stack")
    if not found:
        fail("karven-stack not found: build it (cmake --build build --target karven-stack) "
             "or pass --karven-stack or --stack")
    return found


def read_stack(args):
    if args.stack:
        try:
            with open(args.stack) as f:
                return json.load(f)
        except (OSError, json.JSONDecodeError) as e:
            fail("unable to read stack %s: %s" % (args.stack, e))
    tool = find_karven_stack(args.karven_stack)
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "stack.json")
        run = subprocess.run([tool, "-i", args.ctf, "-o", out], capture_output=True, text=True)
        if run.returncode != 0:
            fail("karven-stack failed on %s: %s" % (args.ctf, run.stderr.strip()))
        with open(out) as f:
            return json.load(f)


class Conductor:
    def __init__(self, index, cx, cy, w, h):
        self.index = index
        self.x0, self.x1 = cx - w / 2, cx + w / 2
        self.y0, self.y1 = cy - h / 2, cy + h / 2
        self.cx, self.width = cx, w


def conductors_of(sample):
    return [Conductor(i, *c) for i, c in enumerate(sample["conductors"])]


def layer_of(c, stack):
    """Name of the metal layer whose heights the wire has, or None."""
    for layer in stack["conductors"]:
        if (abs(layer["z_bottom"] - c.y0) < HEIGHT_TOLERANCE
                and abs(layer["z_top"] - c.y1) < HEIGHT_TOLERANCE):
            return layer["name"]
    return None


def matrix(sample):
    n = sample["size"]
    caps = sample["capacitances"]
    return [[caps[i * n + j] for j in range(n)] for i in range(n)]


def largest_coupling(c, i):
    """(magnitude, index) of the largest coupling of conductor i, or (0, None) alone."""
    others = [(abs(c[i][j]), j) for j in range(len(c)) if j != i]
    return max(others) if others else (0.0, None)


def layer_colours(stack):
    cmap = plt.get_cmap("tab10")
    return {layer["name"]: cmap(k % 10) for k, layer in enumerate(stack["conductors"])}


def plot_sample(sample, stack, path):
    conductors = conductors_of(sample)
    wires, plate = conductors[:-1], conductors[-1]
    c = matrix(sample)
    colours = layer_colours(stack)

    # Horizontally: the wires with a margin (the plate spans the whole window and is clipped);
    # vertically: from the plate's bottom to the top of the stack.
    if wires:
        left = min(w.x0 for w in wires)
        right = max(w.x1 for w in wires)
    else:
        left, right = -1.0, 1.0
    top = max([d["z_top"] for d in stack["dielectrics"]] + [w.y1 for w in wires])
    bottom = plate.y0 - 0.05 * (top - plate.y0)
    # At least as wide as the stack is high, so that a lone wire still gets a readable picture.
    margin = max(0.5, 0.1 * (right - left), 0.5 * ((top - bottom) - (right - left)))
    left, right = max(plate.x0, left - margin), min(plate.x1, right + margin)
    height_in = min(12.0, max(3.0, 11.0 * (top - bottom) / (right - left)))
    fig, ax = plt.subplots(figsize=(11.0, height_in + 1.8))

    # Dielectric layers, shaded by permittivity, named at the right where there is room.
    ers = [d["er"] for d in stack["dielectrics"]] or [1.0]
    er_lo, er_hi = min(ers), max(ers)
    blues = plt.get_cmap("Blues")
    for d in stack["dielectrics"]:
        if d["z_top"] <= d["z_bottom"]:
            continue  # a conformal coat has no plate of its own
        shade = 0.15 + 0.5 * ((d["er"] - er_lo) / (er_hi - er_lo) if er_hi > er_lo else 0.5)
        ax.axhspan(d["z_bottom"], d["z_top"], color=blues(shade), alpha=0.6, lw=0)
        ax.axhline(d["z_bottom"], color="white", lw=0.3)
        if d["z_top"] - d["z_bottom"] > 0.025 * (top - bottom):
            ax.text(1.005, (d["z_bottom"] + d["z_top"]) / 2, "%s er=%g" % (d["name"], d["er"]),
                    transform=ax.get_yaxis_transform(), fontsize=6, va="center", clip_on=False)

    ax.add_patch(Rectangle((plate.x0, plate.y0), plate.x1 - plate.x0, plate.y1 - plate.y0,
                           facecolor="0.35", edgecolor="black", lw=0.5))
    n = len(conductors)
    ax.text((left + right) / 2, plate.y0 - 0.02 * (top - bottom),
            "#%d plate  C=%.4g  max %.4g (#%s)" % ((n - 1, c[n - 1][n - 1])
                                                   + largest_coupling(c, n - 1)),
            ha="center", va="top", fontsize=7)

    used = {}
    order = sorted(wires, key=lambda w: (w.cx, w.y0))
    for slot, w in enumerate(order):
        name = layer_of(w, stack) or "?"
        used[name] = colours.get(name, "black")
        ax.add_patch(Rectangle((w.x0, w.y0), w.x1 - w.x0, w.y1 - w.y0,
                               facecolor=used[name], edgecolor="black", lw=0.5))
        # Labels stand in a row above the stack, in the wires' left-to-right order, so that
        # they never overlap; a thin line leads to the wire.
        total = c[w.index][w.index]
        coupling, other = largest_coupling(c, w.index)
        ax.annotate("#%d %s\nC=%.4g\nmax %.4g (#%d)" % (w.index, name, total, coupling, other),
                    xy=(w.cx, w.y1), xycoords="data",
                    xytext=((slot + 0.5) / len(order), 1.02), textcoords="axes fraction",
                    ha="center", va="bottom", fontsize=7,
                    arrowprops=dict(arrowstyle="-", color="0.3", lw=0.4, shrinkA=0, shrinkB=0))

    for layer in stack["conductors"] + [{"name": "?"}]:
        if layer["name"] in used:
            ax.plot([], [], "s", color=used[layer["name"]], label=layer["name"])
    if used:
        ax.legend(loc="upper left", fontsize=7, frameon=True)
    ax.set_xlim(left, right)
    ax.set_ylim(bottom, top)
    ax.set_aspect("equal")
    ax.set_xlabel("x (um)")
    ax.set_ylabel("height (um)")
    ax.set_title("sample %s: %d wire%s and the plate; C in fF/um"
                 % (sample["id"], len(wires), "" if len(wires) == 1 else "s"),
                 pad=52, fontsize=10)
    fig.savefig(path, dpi=90, bbox_inches="tight")
    plt.close(fig)


def print_labels(sample, stack):
    conductors = conductors_of(sample)
    c = matrix(sample)
    for w in conductors:
        plate = w.index == len(conductors) - 1
        name = "plate" if plate else (layer_of(w, stack) or "?")
        coupling, other = largest_coupling(c, w.index)
        print("sample %s conductor %d %s z %.6g..%.6g C=%.6g max_coupling=%.6g to %s"
              % (sample["id"], w.index, name, w.y0, w.y1, c[w.index][w.index], coupling, other))


def plot_statistics(samples, stack, path, title):
    counts, totals, ratios, widths = [], [], [], {}
    for s in samples:
        conductors = conductors_of(s)
        c = matrix(s)
        counts.append(len(conductors))
        for w in conductors[:-1]:
            total = c[w.index][w.index]
            totals.append(total)
            ratios += [abs(c[w.index][j]) / total for j in range(len(c))
                       if j != w.index and total > 0]
            widths.setdefault(layer_of(w, stack) or "?", []).append(w.width)

    fig, axes = plt.subplots(2, 2, figsize=(11, 8))
    ax = axes[0][0]
    lo, hi = min(counts), max(counts)
    ax.hist(counts, bins=[k - 0.5 for k in range(lo, hi + 2)], color="tab:blue", edgecolor="k")
    ax.set_xlabel("conductors per sample (plate included)")
    ax.set_ylabel("samples")

    ax = axes[0][1]
    ax.hist(totals, bins=30, color="tab:orange", edgecolor="k")
    ax.set_xlabel("total capacitance of a wire (fF/um)")
    ax.set_ylabel("wires")

    ax = axes[1][0]
    ax.hist(ratios, bins=[k / 40 for k in range(41)], color="tab:green", edgecolor="k")
    ax.set_yscale("log")
    ax.set_xlabel("coupling / total, every pair of a wire and another conductor")
    ax.set_ylabel("pairs")

    ax = axes[1][1]
    colours = layer_colours(stack)
    order = [l["name"] for l in stack["conductors"] if l["name"] in widths]
    order += [name for name in widths if name not in order]
    all_widths = [x for name in order for x in widths[name]]
    if all_widths:
        lo, hi = min(all_widths), max(all_widths)
        bins = ([lo * (hi / lo) ** (k / 30) for k in range(31)] if hi > lo > 0
                else 10)
        ax.hist([widths[name] for name in order], bins=bins, stacked=True,
                color=[colours.get(name, "black") for name in order], label=order,
                edgecolor="k", lw=0.3)
        if hi > lo > 0:
            ax.set_xscale("log")
        ax.legend(fontsize=7)
    ax.set_xlabel("wire width (um), by layer")
    ax.set_ylabel("wires")

    for ax in (axes[0][0], axes[0][1], axes[1][1]):  # counts; the ratios' axis is logarithmic
        ax.yaxis.set_major_locator(MaxNLocator(integer=True))
    axes[0][0].xaxis.set_major_locator(MaxNLocator(integer=True))
    fig.suptitle("%s: %d samples, %d wires" % (title, len(samples), len(totals)))
    fig.tight_layout()
    fig.savefig(path, dpi=80)
    plt.close(fig)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("samples", help="sample file written by karven (JSON lines)")
    source = parser.add_mutually_exclusive_group(required=True)
    source.add_argument("--ctf", help="CTF file the samples were made with")
    source.add_argument("--stack", help="the stack as JSON, written by karven-stack")
    parser.add_argument("--karven-stack", help="path of the karven-stack tool")
    parser.add_argument("--ids", type=int, nargs="+", help="samples to draw (default: all)")
    parser.add_argument("-o", "--output", default="pictures", help="output folder")
    parser.add_argument("--no-statistics", action="store_true",
                        help="skip the statistics page")
    args = parser.parse_args()

    samples = read_samples(args.samples)
    stack = read_stack(args)
    by_id = {s["id"]: s for s in samples}
    selected = samples
    if args.ids is not None:
        unknown = [i for i in args.ids if i not in by_id]
        if unknown:
            fail("no sample with id %s in %s" % (", ".join(map(str, unknown)), args.samples))
        selected = [by_id[i] for i in args.ids]

    os.makedirs(args.output, exist_ok=True)
    for s in selected:
        print_labels(s, stack)
        plot_sample(s, stack, os.path.join(args.output, "sample_%s.png" % s["id"]))
    if not args.no_statistics:
        plot_statistics(samples, stack, os.path.join(args.output, "statistics.png"),
                        os.path.basename(args.samples))
    print("plot-samples: wrote %d sample pictures%s to %s"
          % (len(selected), "" if args.no_statistics else " and statistics.png", args.output))


if __name__ == "__main__":
    main()
