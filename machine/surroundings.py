# SPDX-License-Identifier: MIT
"""The panel's surroundings: the plant's network and the controller's, each a tap device, and their hosts."""
import json
import os
import subprocess
import time

from qemu import Failure, wait_for

CONTROLLER = "192.168.7.2"
PLANT = "192.168.10.1"
PANEL = "192.168.10.100"  # as the plant's DHCP server gives it


def run(*command):
    subprocess.run(command, check=True)


def make_networks():
    """Two networks in this process's own network namespace."""
    run("ip", "link", "set", "dev", "lo", "up")
    for name, address in (("plant", PLANT), ("link", CONTROLLER)):
        run("ip", "tuntap", "add", name, "mode", "tap")
        run("ip", "address", "add", f"{address}/24", "broadcast", "+", "dev", name)
        run("ip", "link", "set", "dev", name, "up")


class Daemon:
    """A program that runs beside the panel, and its log."""

    def __init__(self, options, name, command, **settings):
        self.log_path = os.path.join(options.run, f"{name}.log")
        with open(self.log_path, "ab") as log:
            self.process = subprocess.Popen(command, stdin=settings.pop("stdin", subprocess.DEVNULL), stdout=log, stderr=log, **settings)

    def log(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def stop(self):
        self.process.terminate()
        self.process.wait()


class DhcpServer(Daemon):
    """The plant's, which always gives the same address."""

    def __init__(self, options):
        configuration = os.path.join(options.run, "udhcpd.conf")
        with open(configuration, "w", encoding="ascii") as file:
            file.write(f"start {PANEL}\nend {PANEL}\ninterface plant\nlease_file {options.run}/leases\n"
                       f"option subnet 255.255.255.0\noption router {PLANT}\noption lease 3600\n")
        with open(f"{options.run}/leases", "wb"):
            pass
        super().__init__(options, "udhcpd", ["udhcpd", "-f", configuration])


class Controller(Daemon):
    """The simulated controller; actions are those of r7m-simulator."""

    def __init__(self, options, *arguments, sections="devinfo,gpiostate", port=80):
        super().__init__(options, f"controller-{time.monotonic_ns()}", [
            options.simulator, "--http", f"{CONTROLLER}:{port}", "--broadcast", "--log", "--stdin", "--sections", sections, *arguments],
            stdin=subprocess.PIPE)
        wait_for("the controller", self.listens, 30, 0.05)

    def listens(self):
        if self.process.poll() is not None:
            raise Failure(f"the simulated controller has ended: {self.log()}")
        return "listening " in self.log()

    def do(self, action):
        self.process.stdin.write(action.encode() + b"\n")
        self.process.stdin.flush()

    def set(self, **fields):
        """Fields as section__field=value."""
        self.do("set " + " ".join(f"{name.replace('__', '.')}={value}" for name, value in fields.items()))

    def events(self, kind):
        lines = [line for line in self.log().splitlines() if line.startswith("{")]
        return [event for event in map(json.loads, lines) if event["event"] == kind]
