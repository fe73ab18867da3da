# SPDX-License-Identifier: MIT
"""LEDs and buzzer as the kernel saw them."""
import statistics
import time

from qemu import Failure, wait_for

NAMES = ("green", "yellow", "red", "buzzer")
FIELDS = dict(zip(NAMES, ("good", "warning", "critical", "buzzer")))
COMMANDS = ("off", "on", "slow", "fast")
PERIODS = {"slow": 1.0, "fast": 0.25}


def command(controller, **states):
    controller.set(**{f"gpiostate__{FIELDS[name]}": state for name, state in states.items()})


def level(panel, name):
    return [on for _, line, on in panel.output_changes() if line == name][-1]


def steps(panel, name, seconds):
    """Seconds between the changes of a line within a time from now on."""
    since = panel.uptime()
    time.sleep(seconds)
    times = [when for when, line, _ in panel.output_changes(since) if line == name]
    return [later - earlier for earlier, later in zip(times, times[1:])]


def commands(box):
    """every command of every output, with the periods"""
    panel, controller = box.booted("--interval", "500")
    periods = {"slow": [], "fast": []}
    for turn in range(len(COMMANDS)):
        states = {name: COMMANDS[(turn + index) % len(COMMANDS)] for index, name in enumerate(NAMES)}
        command(controller, **states)
        time.sleep(2)
        since = panel.uptime()
        time.sleep(6)
        changes = panel.output_changes(since)
        for name, state in states.items():
            times = [when for when, line, _ in changes if line == name]
            if state in PERIODS:
                gaps = [later - earlier for earlier, later in zip(times, times[1:])]
                if not gaps or abs(statistics.median(gaps) - PERIODS[state]) > 0.1 * PERIODS[state]:
                    raise Failure(f"{name} {state}: changes after {gaps} s")
                periods[state] += gaps
            elif times or level(panel, name) != (state == "on"):
                raise Failure(f"{name} {state}: {times}")
    for state, gaps in periods.items():
        box.show(f"{state}: changes every {min(gaps):.3f} to {max(gaps):.3f} s, median {statistics.median(gaps):.3f}")
    box.show("off and on: the right level, and no change")


def loss(box):
    """a controller that falls silent"""
    panel, controller = box.booted()
    command(controller, green="on", yellow="off", red="off", buzzer="on")
    wait_for("the buzzer", lambda: level(panel, "buzzer"), 30)
    since = panel.uptime()
    controller.do("silence")
    panel.await_logged("No packet received", 60)
    time.sleep(4)
    changes = panel.output_changes(since)
    gaps = {name: [when for when, line, _ in changes if line == name] for name in NAMES}
    box.check("the three LEDs blink fast", all(len(gaps[name]) > 8 for name in NAMES[:3]))
    box.check("the buzzer stays as it was", not gaps["buzzer"])


def safe_state(box, how, result, wait):
    """The panel ends violently: red is lit, all else is off, nothing else was lit in between; then it comes back."""
    panel, controller = box.booted()
    command(controller, green="on", yellow="fast", red="off", buzzer="on")
    wait_for("the buzzer", lambda: level(panel, "buzzer") and level(panel, "green"), 30)
    controller.do("silence")
    process = panel.main_process()
    start = panel.uptime()
    panel.output(f"kill -{how} {process}")
    panel.await_logged(f"safestate.sh: the panel ended by {result}", wait)
    safe = panel.log_time(f"safestate.sh: the panel ended by {result}", start)
    controller.do("resume")
    wait_for("another process", lambda: panel.main_process() not in (0, process), 120, 1)
    again = panel.start_time()
    between = [change for change in panel.output_changes(start) if change[0] < again - 0.001]
    lit = {name for when, name, on in between if on and name in NAMES and when > safe - 5}
    final = {name: [on for _, line, on in between if line == name] for name in NAMES}
    if lit - {"red", "yellow"} or any(when > safe for when, _, _ in between):
        raise Failure(f"lit wrongly: {between}")
    box.check(f"safe after {safe - start:.1f} s: red lit, green, yellow and buzzer off, until the next start",
              final["red"][-1:] == [True] and not any(final[name][-1] for name in ("green", "buzzer")))
    panel.await_page(180)
    box.show("the page is back")


def crash(box):
    """a crash"""
    safe_state(box, "SEGV", "signal", 120)


def kill(box):
    """a kill"""
    safe_state(box, "KILL", "signal", 120)


def watchdog(box):
    """a panel that hangs"""
    safe_state(box, "STOP", "watchdog", 240)


CASES = (commands, loss, crash, kill, watchdog)
