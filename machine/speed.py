# SPDX-License-Identifier: MIT
"""Figures at the panel's own speed: one processor of 500 million instructions a second, in virtual time.

The controller is a program in a network namespace of the machine: one outside would live in another time.
"""
import statistics

from box import BOARD
from qemu import Failure

CONTROLLER = "http://192.168.7.2"
POINTS = " ".join(f"{left},{top}={colour}" for left, top, colour in BOARD)
TRACE = "/sys/kernel/tracing"
EVENTS = ("sys_enter_poll", "sys_exit_poll", "sys_enter_ppoll", "sys_exit_ppoll", "sys_enter_vfork", "sys_enter_clone", "sys_enter_clone3",
          "sys_enter_connect")
# With the script service, a script is a program that sends its name to a socket; the panel starts that program.
STARTS = ("sys_vfork", "sys_clone", "sys_clone3", "sys_connect")
WAIT = 3600


def start_controller(panel, *arguments):
    panel.output("rm -f /run/controller; mkfifo /run/controller; systemd-run --quiet --unit=controller sh -c 'exec ip netns exec controller "
                 f"r7m-simulator --http 192.168.7.2:80 --broadcast --stdin {' '.join(arguments)} <>/run/controller'", WAIT)


def do(panel, action):
    panel.output(f"echo '{action}' > /run/controller")


def painted(panel):
    return float(panel.output(f"watch-screen 120 {POINTS}", WAIT))


def trace(panel, command):
    """What the panel's main thread asked of the kernel during a command: (time, call, whether it begins, first line of arguments)."""
    process = panel.main_process()
    enable = "".join(f"echo 1 > {TRACE}/events/syscalls/{event}/enable; " for event in EVENTS)
    panel.output(f"echo mono > {TRACE}/trace_clock; echo 8192 > {TRACE}/buffer_size_kb; echo {process} > {TRACE}/set_event_pid; {enable}"
                 f"echo > {TRACE}/trace; {command}; echo 0 > {TRACE}/events/enable", WAIT)
    lines = panel.output(f"grep -v '^#' {TRACE}/trace", WAIT).splitlines()
    found = []
    for line in lines:
        head, _, rest = line.partition(": ")
        found.append((float(head.split()[-1]), rest))
    return found


def busy_spans(calls):
    """Times for which the event loop did not wait, and whether a program was started in each. The event loop waits for several
    descriptors, a script's end is one."""
    spans = []
    begin = None
    waiting = False
    started = False
    for time, call in calls:
        if call.startswith(("sys_poll(", "sys_ppoll(")):
            count = int(call.split("nfds: ")[1].split(",")[0], 16)
            if count > 1:
                if begin is not None:
                    spans.append((time - begin, started))
                waiting, begin, started = True, None, False
        elif call.startswith(("sys_poll ->", "sys_ppoll ->")):
            if waiting:
                begin, waiting = time, False
        elif call.startswith(STARTS):
            started = True
    return spans


def longest(panel, command):
    """Seconds of the spans in which a program was started while a command ran."""
    spans = [span for span, started in busy_spans(trace(panel, command)) if started]
    if not spans:
        raise Failure(f"no script ran during: {command}")
    return spans


def processor_share(panel, time):
    files = "/sys/fs/cgroup/system.slice/varnel-browser.service/cpu.stat /sys/fs/cgroup/system.slice/varnel-scripts.service/cpu.stat"
    lines = panel.output(f"grep -h usage_usec {files}; sleep {time}; grep -h usage_usec {files}", WAIT).splitlines()
    used = [int(line.split()[1]) for line in lines]
    return sum(used[2:]) / 1e6 / time - sum(used[:2]) / 1e6 / time


def measure(box):
    """Rows of the table: figure, value, budget, whether it is met."""
    panel = box.panel(icount=True, kernel=["panel.inner"], cables=()).start(cables=())
    panel.await_agent(3000)
    panel.output("until journalctl -b -u varnel-browser | grep -q 'UDP bound'; do sleep 1; done", WAIT)
    rows = []

    def row(figure, value, budget, unit="s"):
        met = "met" if value <= budget else "MISSED"
        shown, wanted = ((f"{value * 1000:.1f} ms", f"{budget * 1000:g} ms") if unit == "s" and budget < 1 else
                         (f"{value:.1f} {unit}", f"{budget:g} {unit}"))
        rows.append((figure, shown, wanted, met))
        print(f"    {figure}: {shown}, budget {wanted}, {met}", flush=True)

    row("controller's address on the interface to panel's process started, plant's cable out",
        panel.start_time() - panel.log_time("eth1: (Gained carrier|Configured)"), 1)
    start_controller(panel, "--sections", "devinfo,gpiostate", "--map", "/usr/local/etc/modbus.map")
    painted(panel)
    # What was on the screen would still be there.
    panel.output("systemctl stop varnel-browser; head -c 1536000 /dev/zero > /dev/fb0; systemctl start varnel-browser", WAIT)
    row("process started to page painted, warm", painted(panel) - panel.start_time(), 4)
    do(panel, "sections list=devinfo,gpiostate,core")
    spans = longest(panel, "sleep 20")
    row(f"loop held up by one Core frame (median of {len(spans)})", statistics.median(spans), 0.010)
    row("processor share, one Core frame a second, page polled", 100 * processor_share(panel, 60), 10, "%")
    do(panel, "sections list=devinfo,gpiostate")
    panel.output("sleep 3", WAIT)
    row("loop held up by a registration", max(longest(panel, "echo silence seconds=13 > /run/controller; sleep 20")), 0.050)
    do(panel, "set snmpcfg.version=2 snmpcfg.oid=.1.3.6.1.4.1.53864 snmpcfg.r7m_community=comm snmpcfg.cli_mode=2 snmpcfg.trap_addr1=192.168.7.2")
    row("loop held up by a new SNMP configuration",
        max(longest(panel, "echo sections list=devinfo,gpiostate,snmpcfg > /run/controller; sleep 60")), 0.3)
    do(panel, "set netcfg.varnel=on netcfg.dhcp=off netcfg.ip=192.168.10.77 netcfg.mask=255.255.255.0 netcfg.gateway=192.168.10.1")
    row("loop held up by a new network configuration",
        max(longest(panel, "echo sections list=devinfo,gpiostate,netcfg > /run/controller; sleep 60")), 0.4)
    return rows


def table(rows):
    lines = ["| Figure, in virtual time | Measured | Budget | |", "|---|---|---|---|"]
    return "\n".join(lines + [f"| {' | '.join(row)} |" for row in rows]) + "\n"
