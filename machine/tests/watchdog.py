# SPDX-License-Identifier: MIT
"""What hangs comes back, with the seconds it took."""
import time

from box import shows_board
from qemu import wait_for


def kernel(box):
    """a kernel that hangs: the hardware watchdog"""
    panel, _ = box.booted()
    panel.output("echo 0 > /proc/sys/kernel/panic")
    before = len(panel.monitor.events)
    start = time.monotonic()
    # Interrupts off on every processor: nothing resets the watchdog any more.
    panel.agent.ask("guest-exec", path="/bin/sh", arg=["-c", "echo c > /proc/sysrq-trigger"])
    panel.agent.drop()

    def reset():
        panel.monitor("query-status")
        return "RESET" in panel.monitor.events[before:]
    wait_for("the reset by the watchdog", reset, 180, 1)
    box.show(f"reset {time.monotonic() - start:.0f} s after the kernel has stopped")
    panel.await_page()
    box.show(f"back at the page after {time.monotonic() - start:.0f} s")


def memory(box):
    """memory used up"""
    panel, _ = box.booted()
    start = time.monotonic()
    panel.agent.ask("guest-exec", path="/bin/sh", arg=["-c", "exec tail /dev/zero"])
    panel.await_logged("Out of memory: Killed process", 240, "-k")
    killed = panel.output("journalctl -k -b --output=cat | grep -o 'Killed process [0-9]* ([^)]*)' | tail -n 1")
    panel.await_screen("the page", shows_board, 240)
    box.show(f"the kernel has {killed.replace('Killed', 'killed')}; the page is there after {time.monotonic() - start:.0f} s")


CASES = (kernel, memory)
