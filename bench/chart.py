#!/usr/bin/env python3
"""Draws the charts of docs/ from the figures that bench/run_all.sh measured.

  chart.py multiply multiply.csv docs/multiply.png
  chart.py ramp ramp.csv docs/ramp.png
  chart.py pi pi.csv docs/pi.png
  chart.py constants constants-arb.csv docs/constants.png

By gnuplot (Debian: gnuplot-nox), which needs no module of whichever Python comes first on a machine."""
import collections
import csv
import pathlib
import subprocess
import sys
import tempfile

HEAD = """set terminal pngcairo size 1200,{height} font "sans,13" background "white"
set output "{output}"
set datafile separator ","
set grid xtics ytics lc rgb "#dddddd" lw 1
set border 3 lc rgb "#444444"
set tics nomirror
set key {key} samplen 2 spacing 1.2
"""
COLOURS = ["#333333", "#d62728", "#1f77b4", "#2ca02c", "#ff7f0e", "#9467bd", "#8c564b", "#17becf", "#bcbd22"]


def rows_of(path):
    with open(path, newline="") as file:
        return list(csv.DictReader(file))


def draw(script, series, output, height=760, key="outside right center"):
    """`series`: title -> points; the script's {plots} becomes one line each."""
    with tempfile.TemporaryDirectory() as folder:
        plots = []
        for number, (title, points) in enumerate(series.items()):
            path = pathlib.Path(folder) / f"{number}.csv"
            path.write_text("".join(",".join(str(value) for value in point) + "\n" for point in points))
            colour = COLOURS[number % len(COLOURS)]
            style = f'with linespoints lc rgb "{colour}" lw 2 pt 7 ps 0.7 title "{title}"'
            plots.append((path, style))
        text = HEAD.format(height=height, output=output, key=key) + script(plots)
        subprocess.run(["gnuplot"], input=text, text=True, check=True)


def multiply(path, output):
    rows = rows_of(path)
    both = {}
    for operation in ("mul", "sqr"):
        series = collections.OrderedDict()
        for row in rows:
            if row["operation"] == operation:
                series.setdefault(row["family"], []).append((int(row["words"]), float(row["ns_a_word"])))
        both[operation] = series
    names = {"mul": "products", "sqr": "squares"}
    flat, counts = {}, []
    for operation, series in both.items():
        counts.append(len(series))
        for family, points in series.items():
            flat[f"{family}" + (" " if operation == "sqr" else "")] = points

    def script(plots):
        text = "set multiplot layout 2,1\nset logscale xy\nset xtics format '10^{%L}'\n"
        text += "set xlabel '64-bit words of an operand'\n"
        first = 0
        for operation, count in zip(both, counts):
            text += f"set title 'Balanced {names[operation]}, one thread'\nset ylabel 'ns a word of one operand'\n"
            part = plots[first:first + count]
            styled = []
            for number, (data, style) in enumerate(part):
                colour = COLOURS[number % len(COLOURS)]
                family = style.split('title "')[1].rstrip('"').strip()
                width = 3 if family in ("table", "GMP") else 1.5
                styled.append(f"'{data}' using 1:2 with linespoints lc rgb '{colour}' lw {width} pt 7 ps 0.6 "
                              f"title '{family}'")
            text += "plot " + ", ".join(styled) + "\n"
            first += count
        return text + "unset multiplot\n"

    draw(script, flat, output, height=1200)


def ramp(path, output):
    points = [(int(row["words"]), float(row["ns_a_word"])) for row in rows_of(path)]

    def script(plots):
        data, style = plots[0]
        return ("set title 'Cost of neighbouring sizes'\nset xlabel '64-bit words of an operand'\n"
                "set ylabel 'ns a word of one operand'\nset yrange [0:*]\nset xtics format '%.0f'\n"
                f"plot '{data}' using 1:2 {style}\n")

    draw(script, {"table": points}, output, key="bottom right")


def pi(path, output):
    rows = rows_of(path)
    threads = sorted({int(row["threads"]) for row in rows})
    titles = {"gmp": "plain GMP program, 1 thread"}
    series = collections.OrderedDict()
    for row in rows:
        count = int(row["threads"])
        name = titles.get(row["stage"])
        if row["stage"] == "total":
            name = f"whole run, {count} thread" + ("s" if count > 1 else "")
        elif name is None:
            if count != threads[-1]:
                continue
            name = f"  {row['stage']}, {count} threads"
        if float(row["seconds"]) > 0:
            series.setdefault(name, []).append((int(row["digits"]), float(row["seconds"])))

    def script(plots):
        text = ("set logscale xy\nset title 'Pi, from start to written file'\nset xlabel 'decimal digits'\n"
                "set ylabel 'seconds'\nset xtics format '10^{%L}'\nset format y '%g'\n")
        styled = []
        for number, (data, style) in enumerate(plots):
            name = style.split('title "')[1].rstrip('"')
            dash = 2 if name.startswith("  ") else 1
            styled.append(f"'{data}' using 1:2 with linespoints lc rgb '{COLOURS[number % len(COLOURS)]}' "
                          f"lw {1.5 if dash == 2 else 3} dt {dash} pt 7 ps 0.7 title '{name.strip()}'")
        return text + "plot " + ", ".join(styled) + "\n"

    draw(script, series, output)


def constants(path, output):
    """Bars: the fastest algorithm of each constant, and Arb."""
    fastest = {}
    for row in rows_of(path):
        known = fastest.get(row["constant"])
        if known is None or float(row["seconds"]) < float(known["seconds"]):
            fastest[row["constant"]] = row
    table = "".join(f'"{row["constant"]}\\n{row["algorithm"]}",{row["seconds"]},{row["arb_seconds"] or "NaN"}\n'
                    for row in fastest.values())
    with tempfile.TemporaryDirectory() as folder:
        data = pathlib.Path(folder) / "constants.csv"
        data.write_text(table)
        text = HEAD.format(height=600, output=output, key="top left")
        text += ("set style data histograms\nset style histogram clustered gap 1\nset style fill solid 0.9\nset logscale y\n"
                 "set format y '%g'\nset ylabel 'seconds'\nset title 'Constants, from start to written file, one thread'\n"
                 f"plot '{data}' using 2:xtic(1) lc rgb '{COLOURS[2]}' title 'orvane, fastest algorithm', "
                 f"'' using 3 lc rgb '{COLOURS[1]}' title 'Arb'\n")
        subprocess.run(["gnuplot"], input=text, text=True, check=True)


def main():
    charts = {"multiply": multiply, "ramp": ramp, "pi": pi, "constants": constants}
    if len(sys.argv) != 4 or sys.argv[1] not in charts:
        raise SystemExit(__doc__)
    charts[sys.argv[1]](sys.argv[2], sys.argv[3])


if __name__ == "__main__":
    main()
