# SPDX-License-Identifier: MIT
"""Power cuts at random moments."""
import random
import time

import snmp
from qemu import Failure, wait_for

SETTINGS = "md5sum /usr/local/etc/varnel-browser.ini /usr/local/etc/modbus.map /usr/local/etc/varnel-device.conf"


def power(box):
    """the machine killed at a random moment of start, page and new configurations, its disk without a write-back cache"""
    plant = snmp.Plant(box)
    box.dhcp_server()
    choices = [snmp.model(5), snmp.model(2)]
    fields, _, _ = choices[1]
    controller = box.controller(*[word for name, value in fields.items() for word in ("--set", f"snmpcfg.{name}={value}")],
                                sections="devinfo,gpiostate,snmpcfg")
    panel = box.panel().start()
    slowest = panel.await_page()
    panel.await_agent()
    settings = panel.output(SETTINGS)
    moments = []
    while len(moments) < box.options.cuts:
        fields, _, _ = choices[len(moments) // 2 % 2]
        controller.set(**{f"snmpcfg__{name}": value for name, value in fields.items()})
        # One cut while the configuration takes effect, one at a moment of the start.
        for seconds in (random.uniform(0, 20), random.uniform(0, slowest)):
            time.sleep(seconds)
            moments.append(f"{panel.age():.0f}")
            panel.cut_power()
            panel.start()
        slowest = max(slowest, panel.await_page())
        panel.await_agent()
        if panel.output(SETTINGS) != settings:
            raise Failure("a settings file has changed")
        wait_for("a manager reads by the former or the new configuration",
                 lambda: any(plant.read(reading) for _, reading, _ in choices), snmp.SECONDS, 0.5)
    box.show(f"{len(moments)} cuts {', '.join(moments)} s after the start: the page each time, after {slowest:.0f} s at most; settings "
             "unhurt; a manager reads by the former or the new configuration")


CASES = (power,)
