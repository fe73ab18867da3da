# SPDX-License-Identifier: MIT
"""The part of test_arguments.sh that makes the arguments, runs the scripts and looks at what they left.

Usage: arguments.py SCRIPT-DIRECTORY some|all
"""

import os
import re
import subprocess
import sys
from pathlib import Path

WANTED = Path("/run/varnel/wanted")
CANARY = Path("/run/canary")
# Where a script may leave something.
OWN = ("/run/varnel/", "/run/test/here")
WRITABLE = ("/run", "/etc", "/tmp", "/var/tmp", "/usr/local/etc", "/var/lib/snmp", "/dev")

# Commands that are fine as they are, with the most processes that each may start as it is, and with other arguments; a
# refusal with a character to replace starts four. Each process costs the panel 10 ms and more, in which it does nothing
# else.
COMMANDS = (
    (1, 5, "snmpctl.sh init"),
    (5, 5, "snmpctl.sh apply"),
    (1, 5, "snmpcfg.sh 192.168.7.20 161 ctx comm .1.3.6.1 V2"),
    (1, 5, "snmpcfg.sh 192.168.7.20 161 ctx comm .1.3.6.1 V3PRIV user SHA pass-phrase AES key-phrase"),
    (1, 5, "snmptrap.sh init 192.168.7.50 162 V1 comm"),
    (1, 5, "snmptrap.sh add 192.168.7.50 162 V3PRIV 8000000001020304 user SHA pass-phrase AES key-phrase"),
    (2, 5, "netcfg.sh static 192.168.7.9 255.255.255.0 192.168.7.1 192.168.7.1 10.1.1.1"),
    (2, 5, "netcfg.sh dhcp"),
    (9, 9, "modbuscfg.sh 1 1502"),
    (3, 9, "r7m.sh add 192.168.7.20 7 161 162 1 502 4711"),
    (9, 9, "r7m.sh delete 192.168.7.20 7 161 162 4711"),
    (20, 20, "usbremount.sh ro"),
    (20, 20, "usbdrive.sh detach /dev/sdx1"),
    (20, 20, "usbdrive.sh attach /dev/sdx1"),
    (20, 20, "mbserverstop.sh"),
    (20, 20, "mbserverstart.sh /run/none"),
    (20, 20, "panelcheck.sh now"),
    (20, 20, "safestate.sh"),
    (60, 60, "varnel-config status modbus"),
)

WORD = r"[!$-,.-~](?:[!#-&(-\[\]-~]{0,63})"
PHRASE = r'"[ !#-\[\]-~]{8,64}"'
ADDRESS = r"\d{1,3}\.\d{1,3}\.\d{1,3}\.\d{1,3}"
PORT = r"[1-9]\d{0,4}"
OID = r"\.?\d+(?:\.\d+)*"
USER_WORDS = rf"{WORD}(?: (?:MD5|SHA) {PHRASE}(?: (?:DES|AES) {PHRASE})?)?"
V3_OPTIONS = rf'-v 3 -u "{WORD}" -l \w+(?: -a (?:MD5|SHA) -A {PHRASE}(?: -x (?:DES|AES) -X {PHRASE})?)?'

# The format of a line of each kind of configuration, as the daemons read it.
MEANT = {
    "snmpd": rf"""# Written by .*|agentAddress udp:{PORT}|view varnel included {OID}|createUser {USER_WORDS}
        |rouser -s usm {WORD} \w+ -V varnel \*|com2sec -Cn {WORD} varnel default {WORD}|group varnel v(?:1|2c) varnel
        |access varnel "" any noauth prefix varnel none none|proxy (?:-Cn {WORD} )?-v 2c -c {WORD} udp:{ADDRESS}:{PORT} {OID}
        |trapsess (?:-v (?:1|2c) -c {WORD}|(?:-e 0x[0-9A-Fa-f]+ )?{V3_OPTIONS}) udp:{ADDRESS}:{PORT}
        |includeDir /etc/snmp/snmpd\.conf\.d""",
    "snmptrapd": rf"""# Written by .*|snmpTrapdAddr udp:{PORT}|createUser (?:-e 0x[0-9A-Fa-f]+ )?{USER_WORDS}
        |authCommunity log,net {WORD}|authUser log,net {WORD} \w+|forward default udp:{ADDRESS}:{PORT}""",
    "networkd": rf"""# Written by .*||\[Match\]|Name=lo|\[Network\]|DHCP=ipv4|Address={ADDRESS}/\d\d?|Gateway={ADDRESS}
        |DNS={ADDRESS}""",
    "ifupdown": rf"""# Written by .*|iface lo inet (?:dhcp|static)|[ ]{{4}}(?:address|netmask|gateway) {ADDRESS}
        |[ ]{{4}}dns-nameservers {ADDRESS}(?: {ADDRESS})?""",
    "modbus": rf"open {PORT}|closed",
}
QUARTER = 4
SECRETS = (b"comm", b"pass-phrase", b"key-phrase")
ONCE = {"agentAddress", "proxy", "includeDir", "snmpTrapdAddr", "Address=", "Gateway=", "iface"}

RENDER = """
set -eu
SCRIPT_DIR=$1
. "$1/varnel-common.sh"; . "$1/varnel-apply.sh"; . "$1/varnel-applysnmp.sh"; . "$1/varnel-applynetwork.sh"
case $2 in
    snmp*) snmp_read "$STATE_DIR/wanted/snmp"; "$2_conf" ;;
    networkd) network_read "$STATE_DIR/wanted/network"; networkd_text ;;
    ifupdown) network_read "$STATE_DIR/wanted/network"; ifupdown_stanza ;;
    modbus) cat "$STATE_DIR/wanted/modbus" ;;
esac
"""


def hostile_values():
    octets = [bytes([octet]) for octet in range(1, 256)]
    yield from octets
    yield from (b"user" + octet + b"name" for octet in octets)
    yield from (b"a" * length for length in range(65))
    yield from (b"1" * length for length in (1, 2, 5, 6, 10, 11, 19, 20, 64))
    yield from (b"a" * length for length in (255, 256, 1023, 1024, 4096, 100000))
    yield from (b"9" * 4096, b"1." * 2000 + b"1", b"0x" + b"00" * 400)
    run = b"touch /run/canary"
    yield from (b"$(" + run + b")", b"`" + run + b"`", b";" + run, b"| " + run, b"x\n" + run, b"' ; " + run + b" #",
                b'" ; ' + run + b" #", b"&& " + run, b"a[$(" + run + b")]", b"/../../run/test/here/x")
    yield from (b"-x", b"--", b"--help", b"-h", b"--version", b"-c /etc/shadow", b"-", b"*", b"?", b"~", b"~root", b"#x",
                b"%s%s%n", b"\\n", b"@CONTROLLER@", b"${IFS}x", b"$0", b"=", b"a=b", b"PATH=/tmp")
    yield from (b"/etc/shadow", b"../../../etc/shadow", b"/dev/../etc/shadow", b"/dev/sdx1/../..", b"/proc/self/mem", b".",
                b"..", b"/", b"//", b"/run/varnel/controller")
    yield from (b"x\nrwcommunity evil", b"x\nrwuser evil", b"user\ndlmod evil /tmp/evil.so", b"192.168.7.9\nup id",
                b"8.8.8.8\n[Match]", b"1502\nopen 22", b"\n", b"\r\n", b"\t", b" ", b"  x", b"x ")
    yield from (b"0", b"00", b"-1", b"+1", b"1e3", b"0x10", b"65536", b"4294967296", b"18446744073709551617", b"010", b"22")
    yield from (b"0.0.0.0", b"127.0.0.1", b"255.255.255.255", b"256.1.1.1", b"1.2.3", b"1.2.3.4.5", b"010.1.1.1", b"::1",
                b"224.0.0.1", b"192.168.7.9/24", b"192.168.7.0", b"r7m")
    yield from (b"V1", b"V2", b"V3NOAUTH", b"MD5", b"UNDEF", b"init", b"apply", b"add", b"static", b"1502")


def argument_lists(command, number, all_of_them):
    """The command with a hostile value in the place of one argument, without the last, with one more, with none. Unless
    all are asked for, each command gets another quarter of the values, each in one place."""
    arguments = [word.encode() for word in command.split()[1:]]
    places = len(arguments) + 1  # the last one is one argument more
    for turn, value in enumerate(hostile_values()):
        if all_of_them or turn % QUARTER == number % QUARTER:
            for place in range(places) if all_of_them else [turn // QUARTER % places]:
                yield arguments[:place] + [value] + arguments[place + 1:]
    yield arguments[:-1]
    yield []
    yield arguments * 30


def last_pid():
    return int(Path("/proc/loadavg").read_text().split()[4])


class Checker:
    def __init__(self, scripts):
        self.scripts = scripts
        self.runs = 0
        self.accepted = 0
        self.failures = []

    def fail(self, what, script, arguments):
        shown = " ".join(repr(argument[:60])[1:] for argument in arguments)
        self.failures.append(f"FAIL - {script} {shown}: {what}")

    def run(self, script, arguments, limit, secrets=()):
        before = last_pid()
        result = subprocess.run([os.path.join(self.scripts, script), *arguments], stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=60, check=False)
        started = last_pid() - before
        self.runs += 1
        if result.returncode not in (0, 1, 2, 3, 4, 5):
            self.fail(f"status {result.returncode}", script, arguments)
        if started > limit:
            self.fail(f"{started} processes", script, arguments)
        if CANARY.exists():
            CANARY.unlink()
            self.fail("an argument was run", script, arguments)
        self.check_message(result, script, arguments, secrets)
        return result.returncode

    def check_message(self, result, script, arguments, secrets):
        lines = result.stderr.split(b"\n")[:-1]
        if result.returncode == 0:
            return
        if len(lines) != 1 or not lines[0].startswith(script.encode() + b": ") or len(lines[0]) > 400:
            self.fail(f"refused with {result.stderr[:200]}", script, arguments)
        if re.search(rb"[^ -~\n]", result.stderr):
            self.fail("a control character in the message", script, arguments)
        if any(secret in result.stderr for secret in secrets):
            self.fail("a secret in the message", script, arguments)

    def check_lines(self, kind, script, arguments):
        rendered = subprocess.run(["sh", "-c", RENDER, "sh", self.scripts, kind], stdout=subprocess.PIPE, check=True)
        lines = rendered.stdout.decode("latin-1").split("\n")[:-1]
        for line in lines:
            if not re.fullmatch(MEANT[kind].replace("\n        ", ""), line):
                self.fail(f"{kind} has the line {line!r}", script, arguments)
        for word in ONCE:
            if sum(line.startswith(word) for line in lines) > 1:
                self.fail(f"{kind} has {word} twice", script, arguments)

    def check_wishes(self, script, arguments):
        for kind, renderings in (("snmp", ("snmpd", "snmptrapd")), ("network", ("networkd", "ifupdown")),
                                 ("modbus", ("modbus",))):
            if (WANTED / kind).exists():
                self.accepted += 1
                for rendering in renderings:
                    self.check_lines(rendering, script, arguments)
                (WANTED / kind).unlink()

    def check_command(self, command, limits, number, all_of_them):
        script, *words = command.split()
        plain = [word.encode() for word in words]
        for turn, arguments in enumerate([plain, plain, *argument_lists(command, number, all_of_them)]):
            limit = limits[0] if turn == 1 else limits[1]  # the first run makes directories
            secrets = [argument for word, argument in zip(words, arguments) if word.encode() in SECRETS and len(argument) > 3]
            if script == "panelcheck.sh" and not arguments:
                continue  # waits for the panel's display
            if script in ("snmpcfg.sh", "snmptrap.sh"):
                self.run("snmpctl.sh", [b"init"], 5)
                done = self.run(script, arguments, limit, secrets) == 0
                if done and (arguments[:1] == [b"--help"] or arguments[:1] == [b"-h"]):
                    continue
                self.complete_transaction(script, arguments, done)
            else:
                self.run(script, arguments, limit)
            self.check_wishes(script, arguments)

    def complete_transaction(self, script, arguments, done):
        """What is refused must not be applied; what is accepted must leave lines that were meant."""
        if done:
            if script != "snmpcfg.sh":
                self.run("snmpcfg.sh", b"192.168.7.20 161 ctx comm .1.3.6.1 V2".split(), 5)
            if arguments[:1] != [b"init"]:
                self.run("snmptrap.sh", b"init 192.168.7.50 162 V2 comm".split(), 5)
        limit = 2 if done and self.accepted else 5  # the first one makes directories
        applied = self.run("snmpctl.sh", [b"apply"], limit) == 0
        if applied != done:
            self.fail(f"the step ended {'well' if done else 'badly'}, apply {'well' if applied else 'badly'}", script, arguments)


def changed_files(stamp):
    """Files outside the scripts' own that changed since. What is not searched is read-only here."""
    for top in WRITABLE:
        for directory, _, files in os.walk(top):
            for name in files:
                path = os.path.join(directory, name)
                if os.lstat(path).st_ctime_ns > stamp and not path.startswith(OWN):
                    yield path


def main(scripts, extent):
    checker = Checker(scripts)
    marker = Path("/run/test/here/marker")
    marker.touch()
    for number, (*limits, command) in enumerate(COMMANDS):
        runs = checker.runs
        checker.check_command(command, limits, number, extent == "all")
        print(f"ok   - {command}: {checker.runs - runs} runs", flush=True)
    if [name for name in os.listdir(".") if name != "marker"]:
        checker.failures.append(f"FAIL - files in the working directory: {os.listdir('.')}")
    checker.failures += [f"FAIL - {path} was written" for path in changed_files(marker.stat().st_ctime_ns)]
    if checker.accepted < 50:
        checker.failures.append("FAIL - hardly any configuration was accepted: the test looks at nothing")
    print(*checker.failures[:40], sep="\n")
    print(f"{checker.runs} runs, {checker.accepted} configurations accepted, {len(checker.failures)} failures")
    return 1 if checker.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
