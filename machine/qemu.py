# SPDX-License-Identifier: MIT
"""A virtual machine seen from outside: QEMU's monitor, the guest's agent, and the screen."""
import base64
import json
import os
import signal
import socket
import subprocess
import time
import zlib


class Failure(Exception):
    """A test, or the machine, has not done what it should."""


def patient(seconds):
    """A time limit for an idle host, as this host's load lengthens it: a limit only guards against what never ends."""
    return seconds * max(1, os.getloadavg()[0] / os.cpu_count())


def wait_for(what, condition, seconds, pause=0.2):
    """The first true value of the condition, a function; fails after so many seconds of an idle host."""
    seconds = patient(seconds)
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Failure(f"{what}: not within {seconds:.0f} s")
        time.sleep(pause)


class JsonSocket:
    """Lines of JSON on a UNIX socket."""

    def __init__(self, path, timeout):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(patient(timeout))
        self.socket.connect(path)
        self.lines = self.socket.makefile("rb")

    def send(self, message):
        self.socket.sendall(json.dumps(message).encode() + b"\n")

    def receive(self):
        line = self.lines.readline()
        if not line:
            raise Failure("the machine has gone")
        return json.loads(line.lstrip(b"\xff"))

    def close(self):
        self.lines.close()
        self.socket.close()


class Monitor:
    """QEMU's machine protocol."""

    def __init__(self, path):
        self.stream = JsonSocket(path, 60)
        self.events = []
        self.stream.receive()
        self("qmp_capabilities")

    def __call__(self, command, **arguments):
        arguments = {name.replace("_", "-"): value for name, value in arguments.items()}
        self.stream.send({"execute": command, "arguments": arguments})
        while True:
            answer = self.stream.receive()
            if "event" in answer:
                self.events.append(answer["event"])
            elif "error" in answer:
                raise Failure(f"{command}: {answer['error']['desc']}")
            else:
                return answer["return"]

    def human(self, line):
        return self("human-monitor-command", command_line=line)


class Agent:
    """Commands run as root in the guest, by its agent."""

    def __init__(self, path):
        self.path = path
        self.stream = None

    def ask(self, command, timeout=30, **arguments):
        if self.stream is None:
            self.stream = JsonSocket(self.path, timeout)
            token = time.monotonic_ns() & 0x7fffffff
            self.stream.socket.sendall(b"\xff")
            self.stream.send({"execute": "guest-sync", "arguments": {"id": token}})
            while self.stream.receive().get("return") != token:
                pass
        self.stream.socket.settimeout(patient(timeout))
        arguments = {name.replace("_", "-"): value for name, value in arguments.items()}
        self.stream.send({"execute": command, "arguments": arguments})
        answer = self.stream.receive()
        if "error" in answer:
            raise Failure(f"{command}: {answer['error']['desc']}")
        return answer["return"]

    def answers(self):
        try:
            self.ask("guest-ping", timeout=5)
            return True
        except (OSError, Failure, ValueError):
            self.drop()
            return False

    def drop(self):
        if self.stream is not None:
            self.stream.close()
            self.stream = None

    def run(self, command, timeout):
        """Status and output of a shell command."""
        try:
            process = self.ask("guest-exec", path="/bin/sh", arg=["-c", command + " 2>&1"], capture_output=True)["pid"]
            end = time.monotonic() + patient(timeout)
            pause = 0.02
            while True:
                answer = self.ask("guest-exec-status", pid=process)
                if answer["exited"]:
                    output = base64.b64decode(answer.get("out-data", "")).decode(errors="replace")
                    return answer.get("exitcode", 255), output
                if time.monotonic() > end:
                    raise Failure(f"still running after {timeout} s: {command}")
                time.sleep(pause)
                pause = min(0.5, pause * 2)
        except (OSError, ValueError) as error:
            self.drop()
            raise Failure(f"{command}: {error}") from error


class Picture:
    """The screen as QEMU dumps it."""

    def __init__(self, octets):
        kind, size, depth, self.pixels = octets.split(b"\n", 3)
        self.width, self.height = map(int, size.split())
        if kind != b"P6" or depth != b"255":
            raise Failure("the picture of the screen has an unknown format")

    def colour(self, left, top):
        start = 3 * (top * self.width + left)
        return self.pixels[start:start + 3].hex()

    def area(self, left, top, width, height):
        """The pixels of a part of the screen."""
        rows = range(top, top + height)
        return b"".join(self.pixels[3 * (row * self.width + left):3 * (row * self.width + left + width)] for row in rows)

    def write(self, path):
        lines = b"".join(b"\0" + self.area(0, row, self.width, 1) for row in range(self.height))
        header = self.width.to_bytes(4, "big") + self.height.to_bytes(4, "big") + b"\x08\x02\0\0\0"
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n")
            for kind, body in ((b"IHDR", header), (b"IDAT", zlib.compress(lines)), (b"IEND", b"")):
                file.write(len(body).to_bytes(4, "big") + kind + body + zlib.crc32(kind + body).to_bytes(4, "big"))


# Debian's kernel for armhf has no driver of it.
WATCHDOG = ["-device", "i6300esb", "-action", "watchdog=reset"]


class Machine:
    """The panel. One instance is one disk, which keeps what is written to it over reboots and power cuts."""

    count = 0

    def __init__(self, options, **changes):
        Machine.count += 1
        self.options = options
        self.serial_line = "/dev/ttyS1" if options.arch == "amd64" else "/dev/ttyS0"
        self.directory = os.path.join(options.run, f"panel-{Machine.count}")
        self.changes = changes
        self.process = None
        self.monitor = None
        self.agent = None
        self.started = 0.0
        os.mkdir(self.directory)
        self.disk = changes.get("resume") or self.path("disk")
        if not changes.get("resume"):
            subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", "-F", "raw", "-b", f"{options.image}/disk.img", self.disk],
                           check=True)

    def path(self, name):
        return os.path.join(self.directory, name)

    def kind(self):
        """What differs between the processors."""
        if self.options.arch == "amd64":
            accelerator = ["-accel", "kvm", "-cpu", "host,-arch-capabilities"] if self.options.kvm else \
                ["-accel", "tcg,thread=multi", "-cpu", "max"]
            return ["qemu-system-x86_64", "-M", "pc", *accelerator, "-vga", "none", "-device",
                    "VGA,edid=on,xres=800,yres=480", *WATCHDOG, "-chardev", "pty,id=line", "-device", "isa-serial,chardev=line,index=1"], "ttyS0"
        program, machine, processor, watchdog = {
            "armhf": ("qemu-system-arm", "virt,highmem=off", "cortex-a15", []),
            "arm64": ("qemu-system-aarch64", "virt", "cortex-a57", WATCHDOG)}[self.options.arch]
        return [program, "-M", machine, "-accel", "tcg,thread=multi", "-cpu", processor, "-vga", "none", "-device",
                "VGA,edid=on,xres=800,yres=480", *watchdog, "-chardev", "pty,id=line", "-device", "pci-serial,chardev=line"], "ttyAMA0"

    def command(self):
        changes = self.changes
        kind, console = self.kind()
        if changes.get("window"):
            display = ["-display", "gtk,show-menubar=off,window-close=on"]
        else:
            display = ["-display", "none"]
        if changes.get("icount"):
            kind[kind.index("tcg,thread=multi")] = "tcg"
            speed = ["-icount", "shift=1", "-smp", "1", "-m", "512"]
        else:
            speed = ["-smp", "2", "-m", "1024"]
        serial = ["-chardev", "stdio,id=console,signal=off"] if changes.get("shell") else \
            ["-chardev", f"file,id=console,path={self.path('console')},append=on"]
        line = [f"console={console}", "net.ifnames=0", changes.get("access", "rw"), "vt.global_cursor_default=0", "quiet",
                "systemd.default_timeout_start_sec=300",
                *([] if changes.get("shell") else [f"systemd.mask=serial-getty@{console}.service"]),
                *changes.get("kernel", [])]
        links = []
        for number, name in enumerate(("plant", "link")):
            links += ["-netdev", f"tap,id={name}-tap,ifname={name},script=no,downscript=no",
                      "-device", f"virtio-net-pci,id={name},netdev={name}-tap,mac=52:54:00:7a:00:0{number},romfile="]
        return [*kind, *speed, *display, *serial, "-nodefaults", "-no-user-config", "-name", "panel",
                "-kernel", f"{self.options.image}/vmlinuz", "-initrd", f"{self.options.image}/initrd.img",
                "-append", " ".join(line), "-serial", "chardev:console",
                "-drive", f"if=none,id=disk,file={self.disk},format=qcow2,discard=unmap,cache.writeback=off,cache.no-flush=on",
                "-device", "virtio-blk-pci,drive=disk", *links,
                "-device", "qemu-xhci,id=usb", "-device", "usb-tablet",
                "-device", "virtio-serial-pci", "-chardev", f"socket,id=agent,path={self.path('agent')},server=on,wait=off",
                "-device", "virtserialport,chardev=agent,name=org.qemu.guest_agent.0",
                "-device", "virtio-rng-pci",
                "-rtc", f"base={changes.get('clock', 'utc')},clock=vm",
                "-qmp", f"unix:{self.path('monitor')},server=on,wait=off"]

    def start(self, cables=("plant", "link")):
        """Switches the machine on, with these cables plugged in."""
        standard = None if self.changes.get("shell") else subprocess.DEVNULL
        resume = ["-loadvm", "ready"] if self.changes.get("resume") else []
        self.process = subprocess.Popen([*self.command(), "-S", *resume], stdin=standard, stdout=standard)
        wait_for("QEMU", self.monitor_listens, 30, 0.05)
        self.agent = Agent(self.path("agent"))
        for cable in ("plant", "link"):
            if cable not in cables:
                self.cable(cable, False)
        self.monitor("cont")
        self.started = time.monotonic()
        return self

    def monitor_listens(self):
        if self.process.poll() is not None:
            raise Failure(f"QEMU has ended with status {self.process.returncode}")
        try:
            self.monitor = Monitor(self.path("monitor"))
            return True
        except OSError:
            return False

    def age(self):
        return time.monotonic() - self.started

    def has_been_reset(self):
        self.monitor("query-status")  # its answer follows all events
        return "RESET" in self.monitor.events

    def console(self):
        """What the kernel has said on the serial console since the machine was switched on."""
        with open(self.path("console"), encoding="utf-8", errors="replace") as file:
            return file.read()

    def cable(self, name, plugged):
        self.monitor("set_link", name=name, up=plugged)

    def cut_power(self):
        if self.process is not None:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
            self.process = None
            self.monitor.stream.close()
            self.agent.drop()

    def screen(self):
        """The picture on the screen; None while the display is switched off, which QEMU refuses or shows as black."""
        path = self.path("screen.ppm")
        try:
            self.monitor("screendump", filename=path)
        except Failure:
            return None
        with open(path, "rb") as file:
            picture = Picture(file.read())
        return picture if (picture.width, picture.height) == (800, 480) and any(picture.pixels) else None

    def tablet(self, left, top, *buttons):
        """Moves the emulated tablet to a point, with the left button pressed or released there."""
        events = [{"type": "abs", "data": {"axis": axis, "value": value * 32767 // size}}
                  for axis, value, size in (("x", left, 800), ("y", top, 480))]
        events += [{"type": "btn", "data": {"button": "left", "down": down}} for down in buttons]
        self.monitor("input-send-event", events=events)

    def run(self, command, timeout=60):
        return self.agent.run(command, timeout)

    def output(self, command, timeout=60):
        """The output of a command that has to succeed."""
        status, output = self.run(command, timeout)
        if status != 0:
            raise Failure(f"status {status} of: {command}\n{output}")
        return output.strip()

    def await_agent(self, seconds=240):
        wait_for("the system", self.agent.answers, seconds, 0.5)

    def journal(self, options=""):
        return self.output(f"journalctl --quiet --boot --no-pager --output=short-monotonic {options}")
