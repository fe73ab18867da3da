# SPDX-License-Identifier: MIT
"""The panel's address on the plant's network, as the controller sets it and the plant sees it."""
import subprocess

from qemu import wait_for
from surroundings import PANEL, PLANT

FIXED = "192.168.10.77"
SECONDS = 90


def answers(address):
    return subprocess.run(["ping", "-n", "-c", "1", "-W", "1", address], capture_output=True, check=False).returncode == 0


def moves(box):
    """static, DHCP, DHCP without a server, and back"""
    server = box.dhcp_server
    _, controller = box.booted("--set", "netcfg.varnel=on", "--set", "netcfg.dhcp=off", "--set", f"netcfg.ip={FIXED}",
                               "--set", "netcfg.mask=255.255.255.0", "--set", f"netcfg.gateway={PLANT}",
                               "--set", "netcfg.dns1=0.0.0.0", "--set", "netcfg.dns2=0.0.0.0", sections="devinfo,gpiostate,netcfg")
    wait_for("the static address answers", lambda: answers(FIXED), SECONDS)
    wait_for("the former address is gone", lambda: not answers(PANEL), SECONDS)
    box.show("static: the plant reaches the new address, the former one is gone")
    controller.set(netcfg__dhcp="on")
    wait_for("the address of DHCP answers", lambda: answers(PANEL), SECONDS)
    wait_for("the static address is gone", lambda: not answers(FIXED), SECONDS)
    box.show("DHCP: the plant reaches the address of its server, the static one is gone")
    controller.set(netcfg__dhcp="off")
    wait_for("the static address answers", lambda: answers(FIXED), SECONDS)
    box.dhcp.stop()
    controller.set(netcfg__dhcp="on")
    wait_for("the static address is gone", lambda: not answers(FIXED), SECONDS)
    box.check("DHCP without a server: no address", not answers(PANEL))
    server()
    wait_for("the address of DHCP answers", lambda: answers(PANEL), 180)
    box.show("the server comes: the address is there")


CASES = (moves,)
