# SPDX-License-Identifier: MIT
"""Figures at the panel's own speed: one processor of 500 million instructions a second, in virtual time.

The controller is a program in a network namespace of the machine: one outside would live in another time.
"""
import itertools
import random
import statistics
import subprocess

from box import BOARD
from qemu import Failure, wait_for
from surroundings import PANEL

OID = ".1.3.6.1.4.1.53864"
# Tabs of the control board, by the place of their mark, in the order in which they are touched.
TOUCHED = 20 * (351, 100)
# Keys of the green LED on the control board.
LED_ON = 507, 101
LED_OFF = 395, 101
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
    """What the panel's main thread asked of the kernel during a command, and in the 2 s before it, in which the event loop waits at
    least once: (time, call with its arguments or result)."""
    process = panel.main_process()
    enable = "".join(f"echo 1 > {TRACE}/events/syscalls/{event}/enable; " for event in EVENTS)
    panel.output(f"echo mono > {TRACE}/trace_clock; echo 8192 > {TRACE}/buffer_size_kb; echo {process} > {TRACE}/set_event_pid; {enable}"
                 f"echo > {TRACE}/trace; sleep 2; {command}; echo 0 > {TRACE}/events/enable", WAIT)
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


def used(panel):
    """The kernel's time, and the seconds for which the panel and its scripts have used the processor."""
    figures = panel.output("cut -d ' ' -f 1 /proc/uptime; cd /sys/fs/cgroup/system.slice; "
                           "grep -h usage_usec varnel-browser.service/cpu.stat varnel-scripts.service/cpu.stat", WAIT).splitlines()
    return float(figures[0]), sum(int(line.split()[1]) for line in figures[1:]) / 1e6


def processor_share(panel, command):
    """The panel's and its scripts' part of the processor while a command runs."""
    begin, before = used(panel)
    panel.output(command, WAIT)
    end, after = used(panel)
    return (after - before) / (end - begin)


def touch(left, top):
    return f"printf 'down {left} {top}\\nup\\n' > /run/touch-screen"


def touch_delays(panel):
    """Seconds from touches at random moments until the page shows the tab that was touched."""
    pauses = itertools.cycle(random.sample(range(10), 10))
    script = "".join(f"watch-screen 10 2,{tab}=f2a33a & sleep 0.1; {touch(56, tab)}; wait $!; sleep 0.{next(pauses)}; " for tab in TOUCHED)
    shown = panel.output(f"{touch(400, 30)}; sleep 1; {script}", WAIT).splitlines()
    touched = panel.output(f"journalctl --unit=touch-screen --output=cat | grep down | tail -n {len(TOUCHED)}").splitlines()
    if len(shown) != len(TOUCHED):
        raise Failure(f"only {len(shown)} of {len(TOUCHED)} touches changed the page")
    return [float(after) - float(before.split()[0]) for before, after in zip(touched, shown)]


def snmp_delay(box, panel):
    """Seconds from a new configuration to the plant's manager reading the controller's value by it."""
    panel.output(f"printf 'agentAddress udp:192.168.7.2:161\\nrocommunity comm\\noverride {OID}.1.0 octet_str value\\n' > /run/agent.conf; "
                 "systemd-run --quiet ip netns exec controller snmpd -f -r -C -c /run/agent.conf -Lo -I -smux,mteTrigger,mteTriggerConf", WAIT)
    box.dhcp_server()
    panel.cable("plant", True)
    wait_for("the plant's address", lambda: PANEL in panel.output("ip -4 address show eth0", WAIT), WAIT, 1)
    do(panel, f"set snmpcfg.version=2 snmpcfg.oid={OID} snmpcfg.r7m_community=comm snmpcfg.cli_mode=2 snmpcfg.trap_addr1=192.168.10.1")
    start = panel.uptime()
    do(panel, "sections list=devinfo,gpiostate,snmpcfg")
    # A repetition of the same request, because an answer may take longer in this time than in the machine's.
    manager = ["snmpget", "-r", "9", "-t", "1", "-O", "qv", "-v", "2c", "-c", "comm", PANEL, f"{OID}.1.0"]
    wait_for("the controller's value", lambda: b"value" in subprocess.run(manager, capture_output=True, check=False).stdout, WAIT)
    seconds = panel.uptime() - start
    panel.cable("plant", False)
    return seconds


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
    delays = touch_delays(panel)
    row(f"touch to the page's changed pixels, one Core frame a second (95th percentile of {len(delays)})", statistics.quantiles(delays, n=20)[-1], 0.1)
    keys = f"{touch(*LED_OFF)}; sleep 1; {touch(*LED_ON)}; sleep 1"
    row("processor share, one Core frame and one touch of an LED's key a second, which asks the controller beside the page's own poll every 2 s",
        100 * processor_share(panel, f"for turn in $(seq 30); do {keys}; done"), 10, "%")
    do(panel, "sections list=devinfo,gpiostate")
    panel.output("sleep 3", WAIT)
    row("loop held up by a registration", max(longest(panel, "echo silence seconds=13 > /run/controller; sleep 20")), 0.050)
    row("new SNMP configuration to a manager's reading by it", snmp_delay(box, panel), 10)
    row("loop held up by a new SNMP configuration",
        max(longest(panel, "echo set snmpcfg.trap_addr1=192.168.7.2 > /run/controller; sleep 60")), 0.3)
    do(panel, "set netcfg.varnel=on netcfg.dhcp=off netcfg.ip=192.168.10.77 netcfg.mask=255.255.255.0 netcfg.gateway=192.168.10.1")
    row("loop held up by a new network configuration",
        max(longest(panel, "echo sections list=devinfo,gpiostate,netcfg > /run/controller; sleep 60")), 0.4)
    return rows


def table(rows):
    lines = ["| Figure, in virtual time | Measured | Budget | |", "|---|---|---|---|"]
    return "\n".join(lines + [f"| {' | '.join(row)} |" for row in rows]) + "\n"
