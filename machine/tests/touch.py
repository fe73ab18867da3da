# SPDX-License-Identifier: MIT
"""Touches: the right button, the touch that wakes, and the dark display at frame buffer and backlight."""
import time

from qemu import wait_for
from usb import FILES_TAB

DARK_SECONDS = 15


def await_dark(panel):
    wait_for("the display is dark", lambda: panel.screen() is None, 60, 0.2)


def tab(left):
    return lambda picture: picture.colour(2, left) == "f2a33a"


def buttons(box):
    """the right button, by the multi-touch screen and by the tablet"""
    panel, _ = box.booted()
    panel.tap(*FILES_TAB)
    panel.await_screen("the tab Files", tab(351), 30)
    box.show("multi-touch: the tab that was touched opens")
    panel.tablet(56, 267)
    panel.tablet(56, 267, True)
    time.sleep(0.2)
    panel.tablet(56, 267, False)
    panel.await_screen("the tab Settings", tab(267), 30)
    box.show("tablet: the tab that was touched opens")


def wake(box):
    """dark after 15 s without a touch, lit by the next one"""
    panel, _ = box.booted()
    panel.tap(*FILES_TAB)
    panel.await_screen("the tab Files", tab(351), 30)
    touched = panel.uptime()
    await_dark(panel)
    off = [when for when, name, on in panel.output_changes(touched - 5) if name == "backlight" and not on]
    box.check(f"dark {off[-1] - touched:.0f} s after the touch, frame buffer and backlight", off[-1] - touched < DARK_SECONDS + 3)
    panel.touch("down 56 100")
    time.sleep(0.1)
    panel.touch("move 58 102")
    time.sleep(0.1)
    panel.touch("up")
    wait_for("the display is lit", panel.screen, 30, 0.1)
    lit = [on for _, name, on in panel.output_changes() if name == "backlight"]
    box.check("lit by the next touch, frame buffer and backlight", lit[-1])
    panel.await_screen("the tab Signals", tab(100), 30)
    box.show("the finger's move to its place has lit it, so that its press finds a lit display and opens the tab")


CASES = (buttons, wake)
