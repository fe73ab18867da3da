# SPDX-License-Identifier: MIT
"""From power to the controller's page on the screen."""
import time

from qemu import wait_for

# Time limit from the controller's first frame to its page, on an emulated processor.
LINK_SECONDS = 60


def both(box):
    """both cables in"""
    box.dhcp_server()
    box.controller()
    panel = box.panel().start()
    box.show(f"page after {panel.await_page():.0f} s")


def no_plant(box):
    """the plant's cable out"""
    box.controller()
    panel = box.panel().start(cables=("link",))
    box.show(f"page after {panel.await_page():.0f} s")
    panel.await_agent()
    delay = panel.start_time() - panel.log_time("eth1: (Gained carrier|Link UP)")
    box.check(f"the panel's process starts {delay:.1f} s after its interface is up", delay < 15)


def no_controller(box):
    """the controller's cable out, plugged in later"""
    box.dhcp_server()
    box.controller()
    panel = box.panel().start(cables=("plant",))
    panel.await_agent()
    panel.await_logged("UDP bound", 300)
    box.show("the panel listens without the cable")
    panel.cable("link", True)
    start = time.monotonic()
    panel.await_page(LINK_SECONDS)
    box.show(f"page {time.monotonic() - start:.0f} s after the cable")


def late_controller(box):
    """a controller that comes two minutes later"""
    box.dhcp_server()
    panel = box.panel().start()
    panel.await_agent()
    panel.await_logged("UDP bound", 300)
    wait_for("two minutes", lambda: panel.age() > 120, 200)
    start = time.monotonic()
    box.controller()
    panel.await_page(LINK_SECONDS)
    box.show(f"page {time.monotonic() - start:.0f} s after the controller")


def dead_clock(box):
    """a dead clock battery (1970), a time step later"""
    box.dhcp_server()
    controller = box.controller()
    panel = box.panel(clock="1970-01-01T00:00:10").start()
    box.show(f"page after {panel.await_page():.0f} s")
    panel.await_agent()
    before = panel.main_process()
    panel.output("date --set 2031-05-06T07:08:09")
    controller.do("silence seconds=15")
    panel.await_logged("No packet received", 60)
    panel.await_page(LINK_SECONDS)
    box.check("after a step to 2031 the loss of the link is seen, the page comes back and the panel is the same process",
              panel.main_process() == before)


def read_only(box):
    """a root that is mounted read-only"""
    box.dhcp_server()
    box.controller()
    panel = box.panel(access="ro", kernel=["systemd.volatile=state"]).start()
    box.show(f"page after {panel.await_page():.0f} s")
    panel.await_agent()
    box.check("nothing can be written to the root", panel.run("touch /usr/mark")[0] != 0)


CASES = (both, no_plant, no_controller, late_controller, dead_clock, read_only)
