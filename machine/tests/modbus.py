# SPDX-License-Identifier: MIT
"""Modbus over TCP from the plant, and over the serial line."""
import os
import subprocess

from qemu import Failure, wait_for
from surroundings import PANEL

SECONDS = 90
REGISTER = "100"
MAPPING = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "device", "modbus.map"))


def read_tcp(port):
    """The first registers of the sample mapping; None when nobody answers."""
    answer = subprocess.run(["mbpoll", "-0", "-1", "-q", "-m", "tcp", "-p", str(port), "-t", "4", "-r", REGISTER, "-c", "2", "-o", "1", PANEL],
                            capture_output=True, text=True, check=False)
    return answer.stdout if answer.returncode == 0 else None


def tcp(box):
    """TCP: opened, moved to another port, closed"""
    _, controller = box.booted("--map", MAPPING, "--set", "modbuscfg.tcp_status=on", "--set", "modbuscfg.tcp_port=502",
                               sections="devinfo,gpiostate,modbuscfg,core")
    wait_for("port 502 answers", lambda: read_tcp(502), SECONDS, 1)
    box.show("opened: a client of the plant reads registers at port 502")
    controller.set(modbuscfg__tcp_port=1502)
    wait_for("port 1502 answers", lambda: read_tcp(1502), SECONDS, 1)
    box.check("moved: port 1502 answers, port 502 does not", read_tcp(502) is None)
    controller.set(modbuscfg__tcp_status="off")
    wait_for("port 1502 is closed", lambda: read_tcp(1502) is None, SECONDS, 1)
    box.check("closed: no port answers", read_tcp(502) is None)


def rtu(box):
    """RTU: a master at the other end of the serial line"""
    panel, _ = box.booted("--map", MAPPING, sections="devinfo,gpiostate,core")
    panel.output("sed -i -e 's/^;ModbusMode=.*/ModbusMode=rtu/' -e 's,^;ModbusInterface=.*,"
                 f"ModbusInterface=1:{panel.serial_line}:19200:8N1,' /usr/local/etc/varnel-browser.ini && systemctl restart --no-block varnel-browser")
    line = next(part["filename"] for part in panel.monitor("query-chardev") if part["label"] == "line").removeprefix("pty:")

    def read():
        answer = subprocess.run(["mbpoll", "-0", "-1", "-q", "-m", "rtu", "-a", "1", "-b", "19200", "-P", "none", "-t", "4", "-r", REGISTER,
                                 "-c", "2", "-o", "3", line], capture_output=True, text=True, check=False)
        return answer.stdout if answer.returncode == 0 else None
    answer = wait_for("a register over the serial line", read, SECONDS, 1)
    if "[" not in answer:
        raise Failure(answer)
    box.show("a master reads registers at 19200 8N1")


CASES = (tcp, rtu)
