# SPDX-License-Identifier: MIT
"""SNMP through the panel: a manager of the plant reads a real agent's values, a trap of the controller arrives there."""
import os
import subprocess
import time

from qemu import wait_for
from surroundings import CONTROLLER, PANEL, PLANT, Daemon

LINK = "192.168.7.1"
OID = ".1.3.6.1.4.1.53864"
ENGINE = "0x8000d2680301020304"
VALUE = '"value of the controller"'
SECONDS = 120
# A manager's requests, by model: the fields that the controller sends, the manager's options, and the same for traps.
HASHES = {"MD5": 1, "SHA": 2}
CIPHERS = {"DES": 1, "AES": 2}


def model(version, hash_name="SHA", cipher="AES"):
    """The controller's fields and the manager's options for a version of 1 to 5, for reading and for traps."""
    fields = {"version": version, "cli_mode": version, "oid": OID, "ro_oid": OID, "nopriv_oid": OID, "priv_oid": OID,
              "r7m_context": "ctx", "r7m_community": "comm", "cli_community": "traps", "cli_engineid": ENGINE,
              "ro_user": "reader", "nopriv_user": "operator", "nopriv_pwd": "operator-pass", "nopriv_hash": HASHES[hash_name],
              "priv_user": "admin", "priv_pwd": "admin-pass", "priv_key": "admin-key", "priv_hash": HASHES[hash_name],
              "priv_algo": CIPHERS[cipher], "cli_user": f"trapper{version}{cipher}", "cli_pwd": "trapper-pass", "cli_key": "trapper-key",
              "cli_hash": HASHES[hash_name], "cli_algo": CIPHERS[cipher], "port": 161, "port_trap": 162, "trap_addr1": PLANT}
    user = f"trapper{version}{cipher}"
    trap = ["-v", "3", "-e", ENGINE, "-u", user]
    password = ["-a", hash_name, "-A", "trapper-pass"]
    read = ["-v", "3", "-n", "ctx"]
    return fields, {
        1: ["-v", "1", "-c", "comm"], 2: ["-v", "2c", "-c", "comm"],
        3: [*read, "-u", "reader", "-l", "noAuthNoPriv"],
        4: [*read, "-u", "operator", "-l", "authNoPriv", "-a", hash_name, "-A", "operator-pass"],
        5: [*read, "-u", "admin", "-l", "authPriv", "-a", hash_name, "-A", "admin-pass", "-x", cipher, "-X", "admin-key"],
    }[version], {
        1: ["-v", "1", "-c", "traps"], 2: ["-v", "2c", "-c", "traps"],
        3: [*trap, "-l", "noAuthNoPriv"], 4: [*trap, "-l", "authNoPriv", *password],
        5: [*trap, "-l", "authPriv", *password, "-x", cipher, "-X", "trapper-key"],
    }[version]


class Plant:
    """The real net-snmp on both sides: the controller's agent, and the manager with a receiver of traps."""

    def __init__(self, box):
        self.box = box
        agent = self.write("agent.conf", f"agentAddress udp:{CONTROLLER}:161\nrocommunity comm\n"
                           f"override {OID}.1.0 octet_str {VALUE}\n")
        self.daemon("agent", ["snmpd", "-f", "-r", "-C", "-c", agent, "-Lo", "-I", "-smux,mteTrigger,mteTriggerConf"])
        self.receiver = None

    def write(self, name, text):
        path = os.path.join(self.box.options.run, name)
        with open(path, "w", encoding="ascii") as file:
            file.write(text)
        return path

    def daemon(self, name, command):
        environment = dict(os.environ, SNMP_PERSISTENT_DIR=os.path.join(self.box.options.run, name + time.strftime("-%H%M%S")))
        process = Daemon(self.box.options, name, command, env=environment)
        self.box.living.append(process)
        return process

    def receive(self, version, hash_name, cipher):
        """A manager of its own for each model: it knows nobody's boot counts."""
        if self.receiver is not None:
            self.receiver.stop()
        user = f"trapper{version}{cipher}"
        level = {3: "noauth", 4: "auth", 5: "priv"}.get(version, "auth")
        receiver = self.write("receiver.conf", f"snmpTrapdAddr udp:{PLANT}:162\nformat1 %P %v\\n\nformat2 %P %v\\n\n"
                              f"authCommunity log traps\ncreateUser -e {ENGINE} {user} {hash_name} trapper-pass {cipher} trapper-key\n"
                              f"authUser log {user} {level}\n")
        self.receiver = self.daemon(f"receiver-{version}-{hash_name}-{cipher}", ["snmptrapd", "-f", "-C", "-c", receiver, "-Lo"])

    def read(self, options):
        answer = subprocess.run(["snmpget", "-r", "0", "-t", "2", "-O", "qv", *options, PANEL, f"{OID}.1.0"],
                                capture_output=True, text=True, check=False)
        return answer.stdout.strip() == VALUE

    def trap_arrives(self, options):
        token = f"trap-{time.monotonic_ns()}"
        if options[1] == "1":
            body = [OID, CONTROLLER, "6", "1", "5"]
        else:
            body = ["5", f"{OID}.0.1"]
        subprocess.run(["snmptrap", *options, f"{LINK}:162", *body, f"{OID}.2.0", "s", token], check=False, capture_output=True)
        end = time.monotonic() + 3
        while time.monotonic() < end:
            if token in self.receiver.log():
                return True
            time.sleep(0.1)
        return False


def effective(plant, reading, trap):
    start = time.monotonic()
    wait_for("a manager of the plant reads the controller's value", lambda: plant.read(reading), SECONDS, 0.5)
    seconds = time.monotonic() - start
    wait_for("the controller's trap arrives at the plant's manager", lambda: plant.trap_arrives(trap), SECONDS, 0.5)
    return seconds


def models(box):
    """every version and model"""
    plant = Plant(box)
    panel, controller = box.booted(sections="devinfo,gpiostate")
    first = True
    for version, hash_name, cipher in ((1, "SHA", "AES"), (2, "SHA", "AES"), (3, "SHA", "AES"), (4, "MD5", "AES"),
                                       (4, "SHA", "AES"), (5, "SHA", "AES"), (5, "MD5", "DES")):
        fields, reading, trap = model(version, hash_name, cipher)
        plant.receive(version, hash_name, cipher)
        controller.set(**{f"snmpcfg__{name}": value for name, value in fields.items()})
        if first:
            controller.do("sections list=devinfo,gpiostate,snmpcfg")
            first = False
        name = ("V1", "V2", "V3NOAUTH", f"V3NOPRIV {hash_name}", f"V3PRIV {hash_name} {cipher}")[version - 1]
        seconds = effective(plant, reading, trap)
        box.show(f"{name}: value read {seconds:.0f} s after the frame, trap received")
    panel.reboot()
    panel.await_page()
    box.show(f"after a reboot: value read after {effective(plant, reading, trap):.0f} s, trap received")


def refused(box):
    """a refused configuration"""
    plant = Plant(box)
    _, controller = box.booted()
    fields, reading, trap = model(5)
    plant.receive(5, "SHA", "AES")
    controller.set(**{f"snmpcfg__{name}": value for name, value in fields.items()})
    controller.do("sections list=devinfo,gpiostate,snmpcfg")
    effective(plant, reading, trap)
    controller.set(snmpcfg__priv_pwd="short")
    time.sleep(30)
    box.check("the former one answers", plant.read(reading) and plant.trap_arrives(trap))


CASES = (models, refused)
