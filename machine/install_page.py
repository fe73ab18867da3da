#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints the commands of docs/install.md as a shell script: every indented block of "Step by step", unchanged.

A block that begins with "# /path" is the text of that file, one that begins with "systemctl edit UNIT" is that command
with what is typed into its editor. Left out are the build of the packages, which comes before, an editor in which the
sample's values are kept, and a log that has no end.
"""
import re
import sys


def blocks(page):
    section = page.split("\n## Step by step\n")[1].split("\n## ")[0]
    for block in re.findall(r"(?:^ {7}.*\n|^\n(?= {7}))+", section, re.MULTILINE):
        yield [line[7:] for line in block.strip("\n").splitlines()]


def write_file(path, lines):
    return [f'mkdir -p "$(dirname {path})"', f"cat > {path} <<'END OF FILE'", *lines, "END OF FILE"]


def commands(block):
    file = re.fullmatch(r"# (/\S+)", block[0])
    edit = re.fullmatch(r"systemctl edit (\S+)", block[0])
    if file:
        return write_file(file[1], block[1:])
    if edit:
        return write_file(f"/etc/systemd/system/{edit[1]}.service.d/override.conf", block[1:])
    return [line for line in block if not line.startswith(("scripts/package", "editor ", "journalctl "))]


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        page = file.read()
    script = [line for block in blocks(page) for line in commands(block)]
    for wanted in ("apt install", "END OF FILE", "systemctl enable"):
        if not any(wanted in line for line in script):
            sys.exit(f"{sys.argv[1]}: no '{wanted}' in its steps")
    print("\n".join(["set -eux", *script]))


main()
