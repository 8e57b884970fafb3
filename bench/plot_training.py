#!/usr/bin/env python3
"""Draws the errors of a training over its passes, as SVG.

    plot_training.py [-o PICTURE] TABLE...

TABLE is tune_errors.csv, or tune_errors.part while a training goes on. One table gives training and
validation error, up to four give the validation error of each, under the name of its folder. The
picture is tune_errors.svg.
"""

import argparse
import csv
import os
import pathlib
import sys

import svg_plot

COLUMNS = ("pass", "rate", "training_error", "validation_error", "change", "best")
MOST_TABLES = len(svg_plot.COLOURS)


def refuse(path, text):
    raise SystemExit(f"{path}: {text}")


def read_table(path):
    """The rows as records of numbers; a validation error that is not there is None."""
    try:
        lines = path.read_text(encoding="ascii").splitlines()
    except (OSError, UnicodeDecodeError) as error:
        refuse(path, getattr(error, "strerror", None) or "is no table of errors")
    if not lines or tuple(lines[0].split(",")) != COLUMNS:
        refuse(path, "is no table of errors: the first line must be " + ",".join(COLUMNS))
    rows = []
    for number, row in enumerate(csv.DictReader(lines), 2):
        try:
            rows.append({name: float(row[name]) if row[name] else None for name in COLUMNS})
            if any(rows[-1][name] is None for name in COLUMNS if name != "validation_error"):
                raise ValueError
        except (TypeError, ValueError):
            refuse(f"{path}:{number}", "is no row of the table")
    if not rows:
        refuse(path, "has no pass yet")
    return rows


def points(rows, column):
    return [(row["pass"], row[column]) for row in rows if row[column] is not None]


def label(path):
    return path.resolve().parent.name


def error_panel(tables):
    panel = svg_plot.Panel("Error over passes", "pass", "mean squared error")
    if len(tables) == 1:
        (rows,) = tables.values()
        panel.lines.append(("training", points(rows, "training_error")))
        panel.lines.append(("validation", points(rows, "validation_error")))
    else:
        panel.title = "Validation error over passes"
        for path, rows in tables.items():
            column = "validation_error" if points(rows, "validation_error") else "training_error"
            panel.lines.append((label(path), points(rows, column)))
    panel.lines = [line for line in panel.lines if line[1]]
    return panel


def change_panel(tables):
    panel = svg_plot.Panel("Change of the weights", "pass", "centipawns, root mean square", low=0)
    for path, rows in tables.items():
        panel.lines.append((label(path), points(rows, "change")))
    return panel


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("-o", "--output", default="tune_errors.svg", type=pathlib.Path)
    parser.add_argument("tables", nargs="+", type=pathlib.Path, metavar="TABLE")
    options = parser.parse_args()
    if len(options.tables) > MOST_TABLES:
        parser.error(f"at most {MOST_TABLES} tables fit into a picture")
    tables = {path: read_table(path) for path in options.tables}
    unfinished = options.output.with_name(options.output.name + ".part")
    try:
        unfinished.write_text(svg_plot.picture([error_panel(tables), change_panel(tables)]),
                              encoding="ascii")
        os.replace(unfinished, options.output)
    except OSError as error:
        refuse(options.output, f"cannot be written: {error.strerror}")
    print(f"{options.output}: {len(tables)} training(s)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
