#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The pictures of Docs/adjustment.md: curves of real runs, and captures before and after.

    make_adjustment_pictures.py TOOL      TOOL: the built tovix; needs python3-matplotlib

They go into the folder "adjustment" beside this file.
"""
import json
import pathlib
import subprocess
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

TOOL = pathlib.Path(sys.argv[1]).resolve()
FOLDER = pathlib.Path(__file__).resolve().parent / "adjustment"
EVENING = "1,0.6,0.35"  # light of a lamp


def tovix(*arguments, model="mira13c"):
    return subprocess.run([TOOL, "--simulate=" + model, *arguments], check=True, capture_output=True, text=True).stdout


def steps(*arguments):
    return json.loads(tovix("auto", *arguments, "--json"))["steps"]


def curve(rows, key):
    return [row["step"] for row in rows], [row[key] for row in rows]


def figure():
    chart, axes = plt.subplots(1, 2, figsize=(10, 3.6), constrained_layout=True)
    for axis in axes:
        axis.set_xlabel("step")
        axis.xaxis.get_major_locator().set_params(integer=True)
        axis.grid(alpha=0.3)
    return chart, axes


def save(chart, name):
    chart.savefig(FOLDER / name, dpi=80)
    plt.close(chart)


def exposure():
    chart, (mean, value) = figure()
    for start, colour in (("0.2", "tab:blue"), ("1000", "tab:red")):
        rows = steps("exposure", "--set", "exposure=" + start)
        mean.plot(*curve(rows, "mean"), "o-", color=colour, label=f"from {start} ms")
        value.plot(*curve(rows, "exposure"), "o-", color=colour)
    mean.axhline(64, color="grey", linestyle="--", label="target")
    mean.set_ylabel("mean of the rectangle")
    mean.set_ylim(0, 265)
    mean.legend()
    value.set_ylabel("exposure, ms")
    value.set_yscale("log")
    save(chart, "exposure.png")


def gain():
    chart, (mean, value) = figure()
    for start, colour in (("2", "tab:blue"), ("0.8", "tab:red")):
        rows = steps("gain", "--set", "exposure=" + start)
        mean.plot(*curve(rows, "mean"), "o-", color=colour, label=f"exposure {start} ms")
        value.plot(*curve(rows, "gain"), "o-", color=colour)
    mean.axhline(64, color="grey", linestyle="--", label="target")
    mean.set_ylabel("mean of the rectangle")
    mean.set_ylim(0, 80)
    mean.legend()
    value.set_ylabel("gain")
    value.set_ylim(0, 8.2)
    save(chart, "gain.png")


def white_balance():
    chart, (ratio, gains) = figure()
    rows = steps("white-balance", "--light", EVENING)
    ratio.plot(*curve(rows, "red_to_green"), "o-", color="tab:red", label="red / green")
    ratio.plot(*curve(rows, "blue_to_green"), "o-", color="tab:blue", label="blue / green")
    ratio.axhspan(1 / 1.03, 1.03, color="grey", alpha=0.3, label="3 %")
    ratio.set_ylabel("ratio of means")
    ratio.legend()
    for key, colour in (("gain_red", "tab:red"), ("gain_green1", "tab:green"), ("gain_blue", "tab:blue")):
        gains.plot(*curve(rows, key), "o-", color=colour, label=key)
    gains.set_ylabel("gain")
    gains.legend()
    save(chart, "white-balance.png")


def captures():
    def capture(name, *arguments):
        # Noise would make large files; the lens is as sharp as the sensor, no sharper.
        view = ("--light", EVENING, "--noise", "0", "--blur", "0.6")
        tovix(*view, "capture", "--gamma", "2.2", "-o", FOLDER / name, *arguments, model="lyra03c")

    dark = ("--set", "exposure=0.2")
    capture("before.png", *dark)
    capture("after.png", *dark, "--auto", "exposure", "--auto", "white-balance")
    capture("tinted.png", "--set", "exposure=8")
    capture("digital.png", "--set", "exposure=8", "--auto", "digital-white-balance")


FOLDER.mkdir(exist_ok=True)
exposure()
gain()
white_balance()
captures()
