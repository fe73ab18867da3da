#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Holds the schema of the mapping, and the program that applies it, against an independent validator.

Usage: check_schema.py PROGRAM SCHEMA SAMPLE DATA-DIRECTORY

The sample has to be valid. Of every mapping in the data directory's table of defects, and of the sample with one value
after the other replaced or removed, whatever the validator refuses the program has to refuse as well.
"""
import copy
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema


def paths(value, path=()):
    """The path of every value below `value`."""
    members = value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ()
    for name, below in members:
        yield path + (name,)
        yield from paths(below, path + (name,))


def changed(document, path, *value):
    """A copy of `document` with `value` at `path`, or with nothing there."""
    result = copy.deepcopy(document)
    holder = result
    for step in path[:-1]:
        holder = holder[step]
    if value:
        holder[path[-1]] = value[0]
    else:
        del holder[path[-1]]
    return result


# What the program applies, and what it has no need to.
KEYWORDS = {"$ref", "type", "enum", "minimum", "maximum", "items", "required", "properties", "pattern",
            "additionalProperties", "propertyNames", "$schema", "title", "description", "definitions"}


def keywords(schema):
    """Every keyword of a schema, those of its members' schemas included."""
    for name, value in schema.items():
        yield name
        for below in value.values() if name in ("properties", "definitions") else [value]:
            yield from keywords(below) if isinstance(below, dict) else ()


def variants(sample):
    """The sample with one place broken, for the places up to the second register and the second table."""
    for path in list(paths(sample)):
        if len(path) > 1 and path[0] in ("registers", "tables") and path[1] > 1:
            continue
        yield changed(sample, path)
        for value in (None, True, "x", 7, 7.5, -1, 70000, [], {}):
            yield changed(sample, path, value)


def defects(data):
    """The mappings of the table of defects, which says how they are written."""
    base = pathlib.Path(data, "fault-free.map").read_text(encoding="utf-8")
    for block in pathlib.Path(data, "defects.txt").read_text(encoding="utf-8").split("\n== ")[1:]:
        lines = block.split("\n")[1:]
        mapping = base
        for old, new in re.findall(r"((?:^< .*\n)+)((?:^> .*\n)+)", block + "\n", re.MULTILINE):
            mapping = mapping.replace(*("\n".join(line[2:] for line in part.splitlines()) for part in (old, new)))
        whole = [line[2:] for line in lines if line.startswith("=")]
        yield "\n".join(whole) if whole else mapping


def main():
    program, schema_file, sample_file, data = sys.argv[1:]
    schema = json.loads(pathlib.Path(schema_file).read_text(encoding="utf-8"))
    sample = json.loads(pathlib.Path(sample_file).read_text(encoding="utf-8"))
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    validator.validate(sample)
    if unknown := set(keywords(schema)) - KEYWORDS:
        print("the program does not know", unknown, file=sys.stderr)
        return 1

    sample["registers"] = sample["registers"][:3]
    sample["tables"] = sample["tables"][:2]
    documents = list(variants(sample))
    for mapping in defects(data):
        try:
            documents.append(json.loads(mapping))
        except ValueError:
            pass
    refused = 0
    disagreements = []
    with tempfile.TemporaryDirectory() as directory:
        mapping = pathlib.Path(directory, "modbus.map")
        for document in documents:
            if validator.is_valid(document):
                continue
            refused += 1
            mapping.write_text(json.dumps(document), encoding="utf-8")
            if subprocess.run([program, "--quiet", mapping], check=False).returncode != 1:
                disagreements.append(document)
    for document in disagreements[:3]:
        print("refused by the validator alone:", json.dumps(document), file=sys.stderr)
    print(f"{len(documents)} documents, {refused} refused, {len(disagreements)} of them by the validator alone")
    return 1 if disagreements or refused < 300 else 0


if __name__ == "__main__":
    sys.exit(main())
