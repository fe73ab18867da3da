# SPDX-License-Identifier: MIT
"""USB sticks: plugged and pulled, written by a touch on the page, and read back from outside."""
import hashlib
import os
import random
import subprocess
import time

from qemu import Failure, wait_for

FILES_TAB = (56, 351)
REPORT = (235, 93)
LARGE = (456, 93)
OK = (476, 343)
FIRST_ROW = (300, 120)
CHOOSE = (366, 444)
SEND = (697, 444)
SIZES = {"report": 2048, "large": 5 << 20}
FAT = ("mkfs.vfat", "-F", "32")
PARTITION_START = 1 << 20


def body(size):
    """What the simulated controller serves under every name."""
    return bytes((index ^ index >> 8 ^ index >> 16) & 255 for index in range(size))


def md5(octets):
    return hashlib.md5(octets).hexdigest()


class Stick:
    """The file of a stick, and what is on it."""

    def __init__(self, box, name, make, size=64 << 20, partition=False):
        self.name = name
        self.path = os.path.join(box.options.run, f"stick-{name}")
        self.offset = PARTITION_START if partition else 0
        self.read_only = False
        with open(self.path, "wb") as file:
            file.truncate(size)
        if partition:
            subprocess.run(["sfdisk", "-q", self.path], input="2048,,c\n", text=True, check=True)
            make = [*make, "--offset", str(self.offset // 512)]
        subprocess.run([*make, self.path], check=True, capture_output=True)

    def plug(self, panel):
        panel.monitor("blockdev-add", driver="raw", node_name=self.name, read_only=self.read_only,
                      file={"driver": "file", "filename": self.path})
        panel.monitor("device_add", driver="usb-storage", id=f"usb-{self.name}", drive=self.name, bus="usb.0", removable=True)

    def pull(self, panel):
        panel.monitor("device_del", id=f"usb-{self.name}")

        def gone():
            try:
                panel.monitor("blockdev-del", node_name=self.name)
                return True
            except Failure:
                return False
        wait_for("the stick is out", gone, 30, 0.1)

    def fat(self, program, *arguments):
        """mtools look at a FAT without mounting it."""
        image = f"{self.path}@@{self.offset}"
        return subprocess.run([program, "-i", image, *arguments], capture_output=True, check=False).stdout

    def fat_file(self, name):
        return self.fat("mtype", f"::/{name}")


def mounted(panel):
    return panel.run("test -e /tmp/usbdrive && mountpoint -q /usbmnt")[0] == 0


def await_stick(panel):
    wait_for("the stick is mounted", lambda: mounted(panel), 60, 0.5)


def await_no_stick(panel):
    wait_for("the mount is gone", lambda: not mounted(panel), 60, 0.5)


def await_files(panel):
    panel.await_screen("the list of files", lambda picture: picture.colour(REPORT[0], REPORT[1] - 20) == "222c37", 30)


def open_files(panel):
    panel.tap(*FILES_TAB)
    panel.await_screen("the tab Files", lambda picture: picture.colour(2, 351) == "f2a33a", 30)
    await_files(panel)


def chooser_open(picture):
    return picture.colour(300, 280) in ("f9f9f9", "ffffff") or picture.colour(600, 300) == picture.colour(400, 300) != "11171e"


def count(panel, text):
    return panel.journal("-u varnel-browser").count(text)


def save(panel, place=REPORT, await_end=True):
    """Touches a download and OK; returns when it is on the stick, which may be pulled then."""
    done = count(panel, "Ro-remount the usb drive")
    asked = count(panel, "Download request for")
    await_files(panel)  # it wakes a dark display as well
    panel.tap(*place)
    wait_for("the panel asks", lambda: count(panel, "Download request for") > asked, 60, 0.5)
    panel.await_screen("the chooser", chooser_open, 30)
    panel.tap(*OK)
    if await_end:
        wait_for("the file is saved", lambda: count(panel, "Ro-remount the usb drive") > done, 180, 0.5)
        wait_for("the drive is read-only again", lambda: panel.run("findmnt --noheadings --options ro /usbmnt")[0] == 0, 180, 0.5)


def filesystems(box):
    """FAT, exFAT, ext4, with and without a partition table: a download, checked from outside"""
    panel, _ = box.booted()
    open_files(panel)
    wanted = body(SIZES["report"])
    ext4 = Stick(box, "ext4", ("mkfs.ext4", "-q"))
    subprocess.run(["debugfs", "-w", "-R", "set_inode_field / mode 040777", ext4.path], check=True, capture_output=True)
    for stick in (Stick(box, "fat", FAT, partition=True), Stick(box, "whole-fat", FAT), Stick(box, "exfat", ("mkfs.exfat",)), ext4):
        stick.plug(panel)
        await_stick(panel)
        save(panel)
        stick.pull(panel)
        await_no_stick(panel)
        if "fat" in stick.name and stick.name != "exfat":
            found = stick.fat_file("report.txt") == wanted
        elif stick.name == "ext4":
            found = subprocess.run(["debugfs", "-R", "cat /report.txt", stick.path], capture_output=True, check=True).stdout == wanted
        else:
            with open(stick.path, "rb") as file:
                found = wanted in file.read()
        box.check(f"{stick.name}: report.txt has the MD5 sum {md5(wanted)}", found)


def collision(box):
    """a name that is there already, and an upload back to the controller"""
    panel, controller = box.booted()
    open_files(panel)
    stick = Stick(box, "fat", FAT)
    stick.plug(panel)
    await_stick(panel)
    for _ in range(2):
        save(panel)
    panel.tap(*CHOOSE)
    panel.await_screen("the chooser", chooser_open, 30)
    panel.tap(*FIRST_ROW)
    time.sleep(1)
    panel.tap(*OK)
    time.sleep(2)
    panel.tap(*SEND)
    uploads = wait_for("the upload", lambda: [event for event in controller.events("request") if event["method"] == "POST"], 60)
    stick.pull(panel)
    await_no_stick(panel)
    wanted = body(SIZES["report"])
    box.check("report.txt and report-1.txt are the same", stick.fat_file("report.txt") == stick.fat_file("report-1.txt") == wanted)
    box.check(f"the controller has got the file back: {uploads[0]['uploads']}", md5(wanted) in str(uploads))


def odd_sticks(box):
    """a read-only stick, a dirty one, two at once"""
    panel, _ = box.booted()
    open_files(panel)
    stick = Stick(box, "read-only", FAT)
    stick.read_only = True
    stick.plug(panel)
    await_stick(panel)
    save(panel)
    box.check("read-only: refused in one line", panel.logged("Error opening file"))
    time.sleep(4)
    stick.pull(panel)
    await_no_stick(panel)
    dirty = Stick(box, "dirty", FAT)
    with open(dirty.path, "r+b") as file:  # "not unmounted" in the boot sector
        file.seek(65)
        file.write(b"\1")
    dirty.plug(panel)
    await_stick(panel)
    save(panel)
    second = Stick(box, "second", FAT)
    second.plug(panel)
    time.sleep(5)
    box.check("with two, the first is still the drive", mounted(panel))
    dirty.pull(panel)
    time.sleep(5)
    second.pull(panel)
    await_no_stick(panel)
    box.check("dirty: saved all the same", dirty.fat_file("report.txt") == body(SIZES["report"]))
    third = Stick(box, "third", FAT)
    third.plug(panel)
    await_stick(panel)
    save(panel)
    third.pull(panel)
    box.check("the next one works", third.fat_file("report.txt") == body(SIZES["report"]))


def pulled(box):
    """pulled at random moments of a download, the next one works"""
    panel, _ = box.booted()
    open_files(panel)
    times = box.options.cuts
    process = panel.main_process()
    for turn in range(times + 1):
        stick = Stick(box, f"pulled-{turn}", FAT)
        stick.plug(panel)
        await_stick(panel)
        save(panel)
        if turn < times:
            save(panel, LARGE, await_end=False)
            time.sleep(random.uniform(0, 4))
        stick.pull(panel)
        await_no_stick(panel)
        wait_for("the download is over", lambda: count(panel, "Rw-remount") == count(panel, "Ro-remount"), 90, 0.5)
        if stick.fat_file("report.txt") != body(SIZES["report"]):
            raise Failure(f"the stick after {turn} pulled ones has not taken a file")
        os.remove(stick.path)
    box.show(f"each of {times} sticks takes a file, then is pulled within 4 s of the next download's start; the one after them takes a file")
    box.check("the panel is the same process", panel.main_process() == process)


def slow(box):
    """a stick that takes 40 s to be mounted"""
    panel, _ = box.booted()
    panel.output("mkdir /run/systemd/system/varnel-usbdrive@.service.d && printf '[Service]\\nExecStartPre=sleep 40\\n' "
                 "> /run/systemd/system/varnel-usbdrive@.service.d/slow.conf && systemctl daemon-reload")
    open_files(panel)
    stick = Stick(box, "slow", FAT)
    stick.plug(panel)
    await_stick(panel)
    save(panel)
    stick.pull(panel)
    await_no_stick(panel)
    box.check("mounted after more than 40 s, and takes a file", stick.fat_file("report.txt") == body(SIZES["report"]))


CASES = (filesystems, collision, odd_sticks, slow, pulled)
