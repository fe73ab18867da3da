#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The part of scripts/machine that runs in namespaces of its own: the networks, the controller, QEMU, and the tests."""
import argparse
import importlib
import os
import signal
import sys
import time

import speed
from box import Box
from qemu import Failure
from surroundings import make_networks

# In the order in which they run; each is a module of machine/tests with a function "run" and a line about it.
TESTS = ("boot", "leds", "snmp", "usb", "touch", "network", "modbus", "watchdog", "update", "cuts", "short")
CI_TESTS = ("short",)


def parse():
    parser = argparse.ArgumentParser()
    parser.add_argument("--arch")
    parser.add_argument("--image")
    parser.add_argument("--run")
    parser.add_argument("--simulator")
    parser.add_argument("--packages")
    parser.add_argument("--screenshot")
    parser.add_argument("--record")
    parser.add_argument("--cuts", type=int, default=5)
    parser.add_argument("--kvm", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("action", nargs="?")
    parser.add_argument("names", nargs="*")
    return parser.parse_args()


def cases(names, arch=None):
    """The functions to run: those of a module by its name, one of them by MODULE.FUNCTION; not those that the processor cannot run."""
    sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), "tests"))
    for name in TESTS:
        module = importlib.import_module(name)
        for case in module.CASES:
            full = f"{name}.{case.__name__}"
            if (not names or name in names or full in names) and arch not in getattr(case, "cannot_run_on", ()):
                yield full, case


def say(text):
    print(f"scripts/machine: {text}", file=sys.stderr, flush=True)


def screenshot(box):
    box.dhcp_server()
    box.controller(sections="devinfo,gpiostate,core")
    panel = box.panel().start()
    say("booting (about a minute)")
    seconds = panel.await_page()
    panel.screen().write(box.options.screenshot)
    say(f"the page was there after {seconds:.0f} s: {box.options.screenshot}")


def interactive(box, **changes):
    box.dhcp_server()
    box.controller(sections="devinfo,gpiostate,core")
    panel = box.panel(**changes).start()
    say("booting (about a minute); Ctrl-C ends it" if "window" in changes else "booting; \"poweroff\" ends it")
    panel.process.wait()


def run_tests(options, wanted):
    unknown = [name for name in wanted if not any(name in (full, full.split(".")[0]) for full, _ in cases((), options.arch))]
    if unknown:
        say(f"no such test: {' '.join(unknown)}; --test list names them")
        return 2
    rows = []
    failed = 0
    for name, case in cases(wanted, options.arch):
        print(f"{name}: {case.__doc__}", flush=True)
        box = Box(options)
        start = time.monotonic()
        try:
            case(box)
            result = "passed"
        except Exception as failure:  # whatever stops a test fails it, and the next one runs
            result = "FAILED"
            failed += 1
            box.show(f"FAILED: {failure}")
            leave_evidence(box, name)
        finally:
            box.end()
        print(f"  {result}, {time.monotonic() - start:.0f} s", flush=True)
        rows.append((name, box.shown, result))
    print(f"{len(rows) - failed} passed, {failed} failed")
    if options.record:
        record(os.path.join(options.record, "machine.md"), options.arch, lambda former: table(rows, former))
    return 1 if failed else 0


def run_speed(box):
    say("booting at the panel's own speed (5 to 20 minutes)")
    rows = speed.measure(box)
    print(speed.table(rows), end="")
    if box.options.record:
        record(os.path.join(box.options.record, "performance.md"), "machine", lambda _: speed.table(rows))


def row(name, shown, result):
    documented = {full: case.__doc__ for full, case in cases(())}
    return f"| {name} | {documented[name]} | {'; '.join(shown)} | {result}, {time.strftime('%Y-%m-%d')} |"


def table(rows, former):
    """The table of results, in the order of the tests; of those that were not run now, the former row stays."""
    known = {line.split("|")[1].strip(): line for line in former.splitlines()[2:]}
    known.update((name, row(name, shown, result)) for name, shown, result in rows)
    lines = ["| Test | What it does | What it showed | Result |", "|---|---|---|---|"]
    return "\n".join(lines + [known[full] for full, _ in cases(()) if full in known]) + "\n"


def record(path, mark, make):
    """Replaces the table between the marks of this name in a page by what "make" makes of it."""
    with open(path, encoding="utf-8") as file:
        page = file.read()
    begin, end = f"<!-- {mark}: begin -->\n", f"<!-- {mark}: end -->"
    head, rest = page.split(begin)
    former, tail = rest.split(end)
    with open(path, "w", encoding="utf-8") as file:
        file.write(head + begin + make(former) + end + tail)


def leave_evidence(box, name):
    """What was on the screen and in the journal of a test that has failed."""
    for panel in box.living:
        if getattr(panel, "monitor", None) is None or panel.process is None:
            continue
        base = os.path.join(os.path.dirname(box.options.run), f"failed-{name}")
        try:
            picture = panel.screen()
            if picture is not None:
                picture.write(base + ".png")
            with open(base + ".journal", "w", encoding="utf-8") as file:
                file.write(panel.journal())
        except (Failure, OSError, ValueError):
            pass
        say(f"its screen and journal are kept as {base}.*")


def main():
    options = parse()
    if options.list:
        for name, case in cases(()):
            print(f"{name:24} {case.__doc__}")
        return 0
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    make_networks()
    if options.action in ("test", "ci"):
        return run_tests(options, CI_TESTS if options.action == "ci" else options.names)
    box = Box(options)
    try:
        if options.action == "screenshot":
            screenshot(box)
        elif options.action == "speed":
            run_speed(box)
        else:
            interactive(box, **({"shell": True} if options.action == "shell" else {"window": True}))
    except Failure as failure:
        say(str(failure))
        return 1
    finally:
        box.end()
    return 0


try:
    sys.exit(main())
except KeyboardInterrupt:
    sys.exit(130)
