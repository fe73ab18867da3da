# SPDX-License-Identifier: MIT
"""What the tests of the whole panel share: machines, controllers, and what the board's screen and lines say."""
import hashlib
import itertools
import os
import re
import shutil

from qemu import Failure, Machine, wait_for
from surroundings import Controller, DhcpServer

# Points of the control board, the simulated controller's page, once its script has run: the head, the tabs, and the mark of
# the tab that is open.
BOARD = ((400, 54, "1a222c"), (100, 300, "151c24"), (2, 100, "f2a33a"))
LINES = {"green": 224, "yellow": 225, "red": 228, "buzzer": 230}
LOW_IS_ON = {"green", "yellow", "red"}


def shows_board(picture):
    return all(picture.colour(left, top) == colour for left, top, colour in BOARD)


class Panel(Machine):
    """The machine with what only a panel has."""

    def await_page(self, seconds=240):
        """Waits for the controller's page on the screen; seconds since the start of the machine."""
        self.await_screen("the controller's page on the screen", shows_board, seconds)
        return self.age()

    def await_screen(self, what, condition, seconds=60):
        """Waits until the picture on the screen fulfils the condition; wakes a dark display as a passing hand would."""
        places = itertools.cycle((700, 750))

        def fulfilled():
            picture = self.screen()
            if picture is None:
                self.tablet(next(places), 20)
                return None
            return picture if condition(picture) else None
        return wait_for(what, fulfilled, seconds, 0.3)

    def uptime(self):
        return float(self.output("cut -d ' ' -f 1 /proc/uptime"))

    def output_changes(self, since=0.0):
        """Changes of lines and backlight as the kernel saw them: time, name, whether it is on."""
        names = {number: name for name, number in LINES.items()}
        found = []
        for line in self.output("cat /sys/kernel/debug/varnel_board").splitlines():
            time, output, level = line.split()
            name = output if output == "backlight" else names.get(int(output), output)
            if float(time) > since:
                found.append((float(time), name, (level == "0") == (name in LOW_IS_ON)))
        return found

    def touch(self, line):
        """Time at which the kernel was told of "down X Y", "move X Y" or "up"."""
        self.output(f"echo {line} > /run/touch-screen")

    def tap(self, left, top):
        self.output(f"(echo down {left} {top}; sleep 0.1; echo up) > /run/touch-screen")

    def main_process(self, unit="varnel-browser"):
        return int(self.output(f"systemctl show --property=MainPID --value {unit}"))

    def start_time(self, unit="varnel-browser"):
        """The kernel's time at which the unit's process was started."""
        return int(self.output(f"systemctl show --property=ExecMainStartTimestampMonotonic --value {unit}")) / 1e6

    def reboot(self, command="systemctl reboot", seconds=300):
        """Ends the system by a command, whose own end cannot be seen, and waits for the machine's reset."""
        self.agent.ask("guest-exec", path="/bin/sh", arg=["-c", command])
        self.agent.drop()
        wait_for(f"a reset after: {command}", self.has_been_reset, seconds, 0.5)
        self.await_clear(seconds)

    def await_clear(self, seconds=60):
        """Waits until the page that was on the screen before a reset is gone."""
        def cleared():
            picture = self.screen()
            return picture is None or not shows_board(picture)
        wait_for("the former picture is gone", cleared, seconds, 0.1)

    def logged(self, text, options="-u varnel-browser"):
        """Whether the journal has a line with this text."""
        return text in self.journal(options)

    def await_logged(self, text, seconds=60, options="-u varnel-browser"):
        wait_for(f"the log says: {text}", lambda: self.logged(text, options), seconds, 1)

    def log_time(self, pattern, since=0.0):
        """The kernel's time of the journal's first line since then that matches."""
        for line in self.journal().splitlines():
            match = re.match(r"\[ *(\d+\.\d+)\] (.*)", line)
            if match and float(match[1]) > since and re.search(pattern, match[2]):
                return float(match[1])
        raise Failure(f"the log does not say: {pattern}")


class Box:
    """One test's panels and controllers, all of which end with it, and what it has shown."""

    def __init__(self, options):
        self.options = options
        self.shown = []
        self.living = []
        self.dhcp = None

    def show(self, text):
        """A line for the table."""
        self.shown.append(text)
        print(f"    {text}", flush=True)

    def check(self, text, condition):
        if not condition:
            raise Failure(text)
        self.show(text)

    def panel(self, **changes):
        panel = Panel(self.options, **changes)
        self.living.append(panel)
        return panel

    def controller(self, *arguments, **settings):
        controller = Controller(self.options, *arguments, **settings)
        self.living.append(controller)
        return controller

    def dhcp_server(self):
        self.dhcp = DhcpServer(self.options)
        self.living.append(self.dhcp)

    def waiting_disk(self):
        """A disk with the snapshot of a panel that has started and waits for its controller, kept beside the image."""
        panel = self.panel()
        machine = hashlib.sha256(repr(panel.kind()).encode()).hexdigest()[:8]  # another one could not load the snapshot
        kept = os.path.join(self.options.image, f"waiting-{machine}.qcow2")
        if not os.path.exists(kept):
            panel.start()
            panel.await_agent()
            panel.await_logged("UDP bound", 240)
            wait_for("the end of the start", lambda: panel.run("systemctl is-system-running")[1].strip() != "starting", 240, 1)
            if panel.monitor.human("savevm ready"):
                raise Failure("the machine's state cannot be kept")
            panel.cut_power()
            shutil.move(panel.disk, kept + ".new")
            os.rename(kept + ".new", kept)
        disk = os.path.join(self.options.run, "waiting.qcow2")
        if not os.path.exists(disk):
            shutil.copyfile(kept, disk)
        return disk

    def booted(self, *arguments, **settings):
        """A panel that shows the page of a controller, and that controller."""
        self.dhcp_server()
        panel = self.panel(resume=self.waiting_disk()).start()
        panel.await_agent()
        controller = self.controller(*arguments, **settings)
        panel.await_page()
        return panel, controller

    def end(self):
        for thing in reversed(self.living):
            if isinstance(thing, Machine):
                thing.cut_power()
            elif thing.process.poll() is None:
                thing.stop()
        self.living = []
