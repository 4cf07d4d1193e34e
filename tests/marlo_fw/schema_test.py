#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Holds what marlo-fw --json writes to its schema: schema_test.py PROGRAM

Every sort of answer must be valid, and nothing may be: an answer with a member more, or with one
less, must not.
"""
import copy
import json
import os
import struct
import subprocess
import sys
import tempfile
import unittest

try:
    import jsonschema
except ImportError:
    print("SKIPPED: python3-jsonschema is not installed")
    sys.exit(77)

PROGRAM = sys.argv[1]
SCHEMA = os.path.join(os.path.dirname(os.path.abspath(__file__)),
                      "..", "..", "tools", "marlo_fw", "output.schema.json")
PARTITION = ("<Partition><img_id>3</img_id><Offset>4096</Offset><size>4096</size>"
             "<Partition_Name>{}</Partition_Name><Image_Path>apps.bin</Image_Path>"
             "<HostSpecificInfo><PartType>1</PartType></HostSpecificInfo></Partition>")
TABLE = ("<t><mbr><Partition_1_SBL_Offset>16</Partition_1_SBL_Offset></mbr>"
         "<Bank_1><Partition_table>{}</Partition_table></Bank_1></t>")
VERSIONS = '"apps_cochip": "A"\n"dsp_cochip": "D"\n"btfw_cochip": "B"\n'
PLATFORM = ["--platform", "WDP", "--subtype", "0", "--dload", "mini"]


def boot_loader():
    header = b"\x7fELF\x01\x01" + bytes(22) + struct.pack("<IQIHH", 52, 0, 32, 0, 0)
    header = header[:28] + struct.pack("<IIIHHHHHH", 52, 0, 0, 52, 32, 2, 0, 0, 0)
    entries = [struct.pack("<8I", 1, 116, address, 0, 20, 20, 0, 0) for address in (0, 0x20147FA4)]
    return header + b"".join(entries) + bytes(40)


def members(value, path=()):
    """Where there are objects in an answer."""
    if isinstance(value, dict):
        yield path
        for key, item in value.items():
            yield from members(item, path + (key,))
    elif isinstance(value, list):
        for index, item in enumerate(value):
            yield from members(item, path + (index,))


def at(value, path):
    for step in path:
        value = value[step]
    return value


class Schema(unittest.TestCase):
    def setUp(self):
        with open(SCHEMA) as file:
            schema = json.load(file)
        jsonschema.Draft202012Validator.check_schema(schema)
        self.validator = jsonschema.Draft202012Validator(schema)
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.top = scratch.name
        self.write("flash.bin", bytes(16) + boot_loader())
        self.write("partition_1.bin", b"x")
        self.write("apps.bin", b"y")
        self.write("partition_table.xml", TABLE.format(PARTITION.format("P")).encode())
        self.write("tbx7700_ver_info.txt", VERSIONS.encode())

    def write(self, name, content):
        with open(os.path.join(self.top, name), "wb") as file:
            file.write(content)

    def answer(self, status, *arguments):
        done = subprocess.run([PROGRAM, *arguments, "--json"], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (status, b""), arguments)
        value = json.loads(done.stdout)
        self.validator.validate(value)
        for path in members(value):
            self.check_strict(value, path)
        return value

    def check_strict(self, value, path):
        changed = copy.deepcopy(value)
        at(changed, path)["another"] = 0
        self.assertFalse(self.validator.is_valid(changed), f"a member more at {path}")
        for name in at(value, path):
            changed = copy.deepcopy(value)
            del at(changed, path)[name]
            self.assertFalse(self.validator.is_valid(changed), f"no {name} at {path}")

    def compare(self, status, apps):
        return self.answer(status, "compare", self.top, "--apps", apps, "--dsp", "", "--bt", "")

    def patch(self, status, output):
        return self.answer(status, "patch", self.top, *PLATFORM, "-o", os.path.join(self.top, output))

    def test_clean(self):
        self.assertEqual(self.answer(0, "inspect", self.top)["findings"], [])
        self.compare(0, "A")
        self.compare(1, "X")
        self.patch(0, "new")

    def test_findings(self):
        self.write("partition_table.xml", TABLE.format(
            PARTITION.format("\xff") * 2 + "<Partition/>").encode("latin-1"))
        self.write("apps.bin", bytes(5000))
        self.write("tbx7700_ver_info.txt", VERSIONS.encode() * 2 + b"apps_cochip \xff")
        self.assertGreater(len(self.answer(1, "inspect", self.top, *PLATFORM)["findings"]), 5)
        self.write("flash.bin", b"no boot loader in it")
        self.assertEqual(self.patch(1, "new")["boot_loader"]["bits"], None)
        for name in os.listdir(self.top):
            os.unlink(os.path.join(self.top, name))
        self.answer(1, "inspect", self.top)
        self.compare(1, "A")

    def test_no_answer(self):
        self.patch(2, "apps.bin/new")
        self.answer(2, "inspect", os.path.join(self.top, "nowhere"))
        self.answer(2, "inspect")
        self.answer(2)
        self.answer(0, "--help")
        self.answer(0, "compare", "--help")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
