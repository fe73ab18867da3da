# SPDX-License-Identifier: MIT
"""The short form: what a build machine can find out in one start."""
import modbus
import snmp
import usb
from speed import processor_share

STARTS = 100
# A Core frame may cost so many starts of a bare program.
MOST_STARTS = 3


def panel(box):
    """boot to the page, SNMP, a stick, the cost of a Core frame"""
    plant = snmp.Plant(box)
    box.dhcp_server()
    controller = box.controller("--map", modbus.MAPPING)
    machine = box.panel().start()
    box.show(f"page after {machine.await_page():.0f} s")
    machine.await_agent()
    fields, reading, trap = snmp.model(5)
    plant.receive(5, "SHA", "AES")
    controller.set(**{f"snmpcfg__{name}": value for name, value in fields.items()})
    controller.do("sections list=devinfo,gpiostate,snmpcfg")
    box.show(f"V3PRIV: value read {snmp.effective(plant, reading, trap):.0f} s after the frame, trap received")
    usb.open_files(machine)
    stick = usb.Stick(box, "fat", usb.FAT)
    stick.plug(machine)
    usb.await_stick(machine)
    usb.save(machine)
    stick.pull(machine)
    usb.await_no_stick(machine)
    wanted = usb.body(usb.SIZES["report"])
    box.check("a file is saved on a stick", stick.fat_file("report.txt") == wanted)
    idle = processor_share(machine, "sleep 20")
    controller.do("sections list=devinfo,gpiostate,core")
    frame = processor_share(machine, "sleep 20") - idle
    begin = machine.uptime()
    machine.output(f"for turn in $(seq {STARTS}); do /bin/true; done")
    start = (machine.uptime() - begin) / STARTS
    box.check(f"a Core frame costs {1000 * frame:.1f} ms, a bare program's start {1000 * start:.1f} ms", frame < MOST_STARTS * start)


CASES = (panel,)
