# SPDX-License-Identifier: MIT
"""What hangs comes back, with the seconds it took."""
import http.server
import re
import threading
import time

from qemu import wait_for
from surroundings import CONTROLLER


class Endless(http.server.BaseHTTPRequestHandler):
    """A page whose script never ends."""

    asked = threading.Event()

    def do_GET(self):  # the name that the library wants
        self.asked.set()
        body = b"<script>for (;;) {}</script>"
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def page(box):
    """a page whose script never ends, then a good one"""
    panel, controller = box.booted()
    controller.stop()
    panel.await_logged("No packet received", 60)
    Endless.asked.clear()
    with http.server.ThreadingHTTPServer((CONTROLLER, 80), Endless) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        frames = box.controller(port=8080)
        wait_for("the panel asks for the page", Endless.asked.is_set, 60)
        begin = panel.uptime()
        panel.await_logged("safestate.sh: the panel ended by watchdog", 240)
        frames.stop()
        server.shutdown()
    box.show(f"the panel ends {panel.log_time('safestate.sh: the panel ended by watchdog', begin) - begin:.0f} s after it has asked for the page")
    box.controller()
    panel.await_page()
    box.show(f"back at a page after {panel.uptime() - begin:.0f} s")


def kernel(box):
    """a kernel that hangs: the hardware watchdog"""
    panel, _ = box.booted()
    panel.output("echo 0 > /proc/sys/kernel/panic")
    start = time.monotonic()
    # Interrupts off on every processor: nothing resets the watchdog any more.
    panel.reboot("echo c > /proc/sysrq-trigger")
    box.show(f"reset {time.monotonic() - start:.0f} s after the kernel has stopped")
    panel.await_page()
    box.show(f"back at the page after {time.monotonic() - start:.0f} s")


kernel.cannot_run_on = ("armhf",)  # no driver of the watchdog


def memory(box):
    """memory used up"""
    panel, _ = box.booted()
    start = time.monotonic()
    panel.agent.ask("guest-exec", path="/bin/sh", arg=["-c", "exec tail /dev/zero"])

    def outcome():
        if panel.has_been_reset():
            panel.await_clear()
            return "the hardware watchdog has reset the machine"
        # On the console, because the agent gets no memory either.
        killed = re.findall(r"Out of memory: Killed (process \d+ \(.*?\))", panel.console())
        return killed and f"the kernel has killed {killed[-1]}"
    what = wait_for("the end of the one that takes the memory", outcome, 240, 1)
    panel.await_page()
    box.show(f"{what}; the page is there after {time.monotonic() - start:.0f} s")


CASES = (page, kernel, memory)
