# SPDX-License-Identifier: MIT
"""Update, downgrade and purge of the packages while the page is up."""
import glob
import os
import re
import shutil
import subprocess
import time

from box import shows_board
from qemu import Failure, patient, wait_for
from usb import FAT, Stick, await_stick

PACKAGES = ("varnel-browser", "varnel-device-scripts", "varnel-modbus-server")


def next_build(package, directory):
    """The same package with the next version."""
    tree = os.path.join(directory, "tree")
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = os.path.join(tree, "DEBIAN", "control")
    with open(control, encoding="utf-8") as file:
        text = file.read()
    with open(control, "w", encoding="utf-8") as file:
        file.write(re.sub(r"^(Version: .*)$", r"\1+next", text, flags=re.MULTILINE))
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, directory], check=True, capture_output=True)
    shutil.rmtree(tree)


def stick_with_packages(box):
    """A stick with the packages of the image in "now" and the next ones in "next"."""
    stick = Stick(box, "packages", FAT)
    for name in ("now", "next"):
        os.mkdir(os.path.join(box.options.run, name))
    for package in PACKAGES:
        file, = glob.glob(f"{box.options.packages}/{package}_*.deb")
        shutil.copy(file, os.path.join(box.options.run, "now"))
        next_build(file, os.path.join(box.options.run, "next"))
    for name in ("now", "next"):
        subprocess.run(["mcopy", "-s", "-i", stick.path, os.path.join(box.options.run, name), "::/"], check=True)
    return stick


def watched(panel, command):
    """Runs a command and returns the seconds for which the page was not on the screen, until it is back."""
    process = panel.agent.ask("guest-exec", path="/bin/sh", arg=["-c", f"({command}) > /run/command.log 2>&1"])["pid"]
    gone = back = status = None
    end = time.monotonic() + patient(600)
    while True:
        picture = panel.screen()
        there = picture is not None and shows_board(picture)
        now = time.monotonic()
        if picture is not None and not there and gone is None:
            gone = now
        if there and gone is not None and back is None:
            back = now
        if status is None:  # the agent tells it once
            status = panel.agent.ask("guest-exec-status", pid=process).get("exitcode")
        if status or status == 0 and there:
            break
        if now > end:
            raise Failure(f"the page is not back: {panel.output('tail -n 5 /run/command.log')}")
        time.sleep(0.2)
    if status != 0:
        raise Failure(f"{command}: {panel.output('tail -n 5 /run/command.log')}")
    return back - gone if back else 0


def packages(box):
    """to the next build, back to this one, and away"""
    stick = stick_with_packages(box)
    panel, _ = box.booted()
    stick.plug(panel)
    await_stick(panel)
    panel.output("cp -r /usbmnt/now /usbmnt/next /run/")
    panel.tap(400, 30)  # the display stays lit for a while
    for name, what in (("next", "update"), ("now", "downgrade")):
        process = panel.main_process()
        seconds = watched(panel, f"dpkg --install /run/{name}/*.deb")
        version = panel.output("dpkg-query --show --showformat='${Version}' varnel-browser")
        wait_for("another process", lambda: panel.main_process() not in (0, process), 60, 1)
        box.check(f"{what}: {seconds:.0f} s without a page, then version {version}", version.endswith("+next") == (name == "next"))
    panel.output(f"dpkg --purge varnel-tools {' '.join(PACKAGES)}", 300)
    # What docs/install.md has the administrator edit ("systemctl edit") is not the packages'.
    left = panel.output("find /usr/local/bin /usr/local/share /etc/systemd /lib/systemd /usr/libexec -name '*varnel*' -o -lname '*varnel*' | "
                        "grep -v '^/etc/systemd/system/varnel-[a-z-]*[.]service[.]d$'; getent passwd | grep varnel; pgrep -l varnel; true")
    if left:
        raise Failure(f"purge leaves: {left}")
    box.show("purge: no file, user or process is left")


CASES = (packages,)
