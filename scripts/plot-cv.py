#!/usr/bin/python3
"""Plots the C-V table that karven-tsv prints, to a PNG.

    build/karven-tsv --r-tsv 2.5e-6 --liner 120e-9 --length 20e-6 > cv.csv
    scripts/plot-cv.py cv.csv -o cv.png

Lines that begin with "#" are the tool's parameters; the flat-band and threshold voltages among
them are drawn as dashed lines. Needs python3-matplotlib.
"""
import argparse
import csv
import re
import sys

import matplotlib

matplotlib.use("Agg")  # files only, no display
import matplotlib.pyplot as plt  # noqa: E402


def read(path):
    """Returns (voltages, capacitances in fF, {comment name: value})."""
    volts, caps, marks = [], [], {}
    with open(path) as f:
        data = []
        for line in f:
            if line.startswith("#"):
                m = re.match(r"#\s*(flat-band|threshold) voltage\s+(\S+)", line)
                if m:
                    marks[m.group(1)] = float(m.group(2))
            elif line.strip():
                data.append(line)
    rows = csv.DictReader(data)
    for row in rows:
        volts.append(float(row["voltage_V"]))
        caps.append(float(row["capacitance_fF"]))
    return volts, caps, marks


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("csv", help="output of karven-tsv")
    ap.add_argument("-o", "--output", default="cv.png", help="PNG to write (default cv.png)")
    args = ap.parse_args()
    try:
        volts, caps, marks = read(args.csv)
    except (OSError, KeyError, ValueError) as e:
        sys.exit(f"plot-cv: cannot read {args.csv}: {e}")
    if not volts:
        sys.exit(f"plot-cv: no C-V rows in {args.csv}")

    fig, ax = plt.subplots(figsize=(6.4, 4.2))
    ax.plot(volts, caps, marker=".", color="tab:blue", label="C(V)")
    colors = {"flat-band": "tab:green", "threshold": "tab:red"}
    for name, v in marks.items():
        ax.axvline(v, linestyle="--", color=colors[name], label=f"{name} {v:.3f} V")
    ax.set_xlabel("bias (V)")
    ax.set_ylabel("capacitance (fF)")
    ax.set_title("TSV MOS capacitance")
    ax.set_ylim(bottom=0)
    ax.grid(alpha=0.3)
    ax.legend()
    fig.tight_layout()
    fig.savefig(args.output, dpi=120)
    print(f"plot-cv: wrote {args.output}")


if __name__ == "__main__":
    main()
