#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Does the soak's report see growth where there is some, and none where there is none?"""
import contextlib
import io
import random
import tempfile
import unittest
import xml.dom.minidom
from importlib.machinery import SourceFileLoader
from pathlib import Path
from types import ModuleType

report = ModuleType("report")
report.__file__ = str(Path(__file__).resolve().parent / "report")
SourceFileLoader("report", report.__file__).exec_module(report)
report.RESAMPLES = 150  # enough to tell growth from none

PERIOD = 5
COLUMNS = ["seconds", "step"] + [figure.column for figure in report.FIGURES] + [
    rate.column for rate in report.RATES] + list(report.EVENTS)


def wander(count, seed, strength=0.95):
    """Samples that depend on those before them, as memory does."""
    generator = random.Random(seed)
    value = 0.0
    for _ in range(count):
        value = strength * value + generator.gauss(0, 100)
        yield value


def record(hours=2.0, growth_kib=0.0, failures=0, seed=1):
    """A run whose anonymous memory grows by so much an hour below all that wandering."""
    count = int(hours * 3600 / PERIOD)
    columns = {name: [0.0] * count for name in COLUMNS}
    columns["seconds"] = [PERIOD * (i + 1.0) for i in range(count)]
    columns["step"] = ["rest"] * count
    columns["descriptors"] = [18.0 + i % 2 for i in range(count)]
    columns["frames"] = [50 * time for time in columns["seconds"]]
    columns["anonymous_kib"] = [20000 + growth_kib * time / 3600 + noise
                                for time, noise in zip(columns["seconds"], wander(count, seed))]
    columns["failures"] = [float(failures)] * count
    return columns


def write(columns, directory, cut=0):
    path = Path(directory) / "soak.csv"
    rows = [COLUMNS, *zip(*(columns[name] for name in COLUMNS))]
    text = "".join(",".join(map(str, row)) + "\n" for row in rows)
    path.write_text(text[:len(text) - cut], encoding="utf-8")
    return path


def run(*arguments):
    """What the command prints and the message it ends with, if any."""
    printed = io.StringIO()
    message = None
    with contextlib.redirect_stdout(printed):
        try:
            report.main([str(argument) for argument in arguments])
        except SystemExit as end:
            message = end.code
    return printed.getvalue(), message


class ReportTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.directory = folder.name

    def slope(self, columns):
        return report.slope_per_hour(*report.tail(columns, "anonymous_kib"))

    def test_exact_line(self):
        slope = report.slope_per_hour([5.0 * i for i in range(600)], [3.0 * i for i in range(600)])
        self.assertAlmostEqual(slope.value, 3 / 5 * 3600)
        self.assertAlmostEqual(slope.error, 0, places=6)

    def test_interval_holds_the_true_slope(self):
        # Of 40 intervals of 95 %, at most a fourth may miss when the wandering is not mistaken for noise; with
        # independent residuals two thirds would.
        slopes = [self.slope(record(growth_kib=500, seed=seed)) for seed in range(40)]
        self.assertGreaterEqual(sum(slope.low <= 500 <= slope.high for slope in slopes), 30)

    def test_wandering_widens_the_interval(self):
        columns = record()
        values = columns["anonymous_kib"]
        shuffled = dict(columns, anonymous_kib=random.Random(1).sample(values, len(values)))
        self.assertGreater(self.slope(columns).error, 2 * self.slope(shuffled).error)

    def test_verdicts(self):
        leaking = record()
        leaking["descriptors"] = [18.0 + int(time / 900) for time in leaking["seconds"]]
        for columns, verdict in (
                (record(), None),
                (record(growth_kib=8000), "soak: anonymous memory grows"),
                (record(hours=0.2, growth_kib=8000), None),  # too short for a verdict on growth
                (leaking, "soak: file descriptors grows"),
                (record(failures=2), "soak: 2 failures")):
            printed, message = run(write(columns, self.directory))
            self.assertEqual(message, verdict)
            self.assertIn("frames 50 a second", printed)

    def test_record_that_was_cut_short(self):
        printed, message = run("--markdown", write(record(), self.directory, cut=7))
        self.assertIsNone(message)
        self.assertIn("2.00 hours, the first 20 minutes warm-up", printed)
        self.assertIn("| file descriptors | 18.", printed)

    def test_record_without_samples(self):
        empty = dict.fromkeys(COLUMNS, ())
        self.assertIn("fewer than two samples", run(write(empty, self.directory))[1])

    def test_record_replaces_what_stands_between_its_marks(self):
        results = Path(self.directory)
        page = results / "RESULTS.md"
        page.write_text("before\n<!-- soak: begin -->\nold\n<!-- soak: end -->\nafter\n", encoding="utf-8")
        self.addCleanup(setattr, report, "RESULTS", report.RESULTS)
        report.RESULTS = results
        run("--record", write(record(), self.directory))
        lines = page.read_text(encoding="utf-8").splitlines()
        self.assertEqual([lines[0], lines[-1]], ["before", "after"])
        self.assertNotIn("old", lines)
        self.assertEqual(sum(line.startswith("| file descriptors |") for line in lines), 1)
        # Every curve but the two counters has its line.
        picture = xml.dom.minidom.parse(str(results / "soak.svg"))
        self.assertEqual(len(picture.getElementsByTagName("polyline")), 9 + 7)


if __name__ == "__main__":
    unittest.main()
