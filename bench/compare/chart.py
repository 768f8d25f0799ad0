#!/usr/bin/env python3
"""Draws bench/compare/run.sh's figures as an SVG bar chart.

Usage: bench/compare/chart.py [FIGURES] [OUT.svg]

FIGURES is the file run.sh writes (build-bench/bench-compare.dat by default):
one line per figure, "<kind> <program> <seconds> <peak RSS KiB>", where kind
is roundtrip, load, small, scale or scale-huge-pages (the same sizes with
huge pages asked for). The chart shows each panel's figures as
bars scaled to the panel's largest, with the value written beside each bar.
Only the standard library is used, so the script runs wherever Python does.
"""
import sys
from xml.sax.saxutils import escape

LABELS = {
    "corvane": "Corvane",
    "gkeyfile": "GKeyFile",
    "simpleini": "SimpleIni",
    "inih": "inih (parse only)",
    "copy": "read + write copy",
    "floor": "floor, strings copied",
    "floor-slices": "floor, strings sliced",
}


def read(path):
    rows = []
    with open(path) as f:
        for line in f:
            parts = line.split()
            if len(parts) == 4:
                rows.append((parts[0], parts[1], float(parts[2]), float(parts[3])))
    return rows


def panel(title, bars, unit, y, width=760):
    """SVG elements for one panel of (label, value) bars; returns (svg, height)."""
    if not bars:
        return "", 0
    top = max(value for _, value in bars) or 1.0
    out = [f'<text x="10" y="{y + 16}" font-weight="bold">{escape(title)}</text>']
    row = y + 28
    for label, value in bars:
        length = (width - 330) * value / top
        colour = "#c0392b" if label.startswith("Corvane") else "#7f8c8d"
        out.append(f'<text x="10" y="{row + 13}">{escape(label)}</text>')
        out.append(f'<rect x="190" y="{row}" width="{length:.1f}" height="18" fill="{colour}"/>')
        out.append(f'<text x="{196 + length:.1f}" y="{row + 13}">{value:.3g} {escape(unit)}</text>')
        row += 24
    return "\n".join(out), row - y + 10


def main():
    source = sys.argv[1] if len(sys.argv) > 1 else "build-bench/bench-compare.dat"
    target = sys.argv[2] if len(sys.argv) > 2 else "bench/compare/chart.svg"
    rows = read(source)
    name = lambda p: LABELS.get(p, p)
    panels = [
        ("Round trip of the 7.7 MB file: wall time", [(name(p), t) for k, p, t, _ in rows if k == "roundtrip"], "s"),
        ("Round trip: peak memory", [(name(p), r / 1024) for k, p, _, r in rows if k == "roundtrip"], "MiB"),
        ("Loading alone: wall time", [(name(p), t) for k, p, t, _ in rows if k == "load"], "s"),
        ("A 3 KB file in process: time per round trip", [(name(p), t * 1e6) for k, p, t, _ in rows if k == "small"],
         "µs"),
        ("Corvane scaling: wall time by file size",
         [(f"{p} MB" + (", huge pages" if k == "scale-huge-pages" else ""), t) for k, p, t, _ in rows
          if k in ("scale", "scale-huge-pages")], "s"),
    ]
    body, y = [], 10
    for title, bars, unit in panels:
        svg, height = panel(title, bars, unit, y)
        if svg:
            body.append(svg)
            y += height + 10
    with open(target, "w") as f:
        f.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="780" height="{y}" '
                f'font-family="sans-serif" font-size="13">\n')
        f.write('<rect width="100%" height="100%" fill="white"/>\n')
        f.write("\n".join(body))
        f.write("\n</svg>\n")
    print(target)


if __name__ == "__main__":
    main()
