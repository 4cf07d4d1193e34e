#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The guide for Android says what the tree says: each log text, path, property, request and channel
of the sources, each module of Android.bp and each label, in both directions."""
import os
import re
import stat
import unittest

from init_language import RcFile, lines_of
from log_texts import LogTexts
from product_sources import LITERAL, PROPERTY_NAME, ProductSources

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
NUMBER = r"(?:0x[0-9a-f]+|\d+)"
NAMES = "/usr/include/android/private/android_filesystem_config.h"
CAPABILITIES = "/usr/include/linux/capability.h"
# Named in the guide, but the system's own.
OTHER_PROPERTIES = {"ro.vendor.build.version.sdk"}


def read(path):
    with open(os.path.join(TOP, path)) as text:
        return text.read()


def section(text, heading):
    return re.split(r"\n#{2,3} ", text.split(f"{heading}\n", 1)[1])[0]


def first_cells(text):
    """What stands in code in the first column of a section's tables."""
    return [code for row in re.findall(r"^\| (`[^|]*)\|", text, re.M)
            for code in re.findall(r"`([^`]+)`", row)]


class Guide(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sources = ProductSources(TOP)
        cls.init = RcFile(os.path.join(TOP, "android/marlo_daemon.rc"))
        cls.log = LogTexts(cls.sources).texts
        cls.guide, cls.lines = read("android/README.md"), read("android/log_lines.md")
        cls.both = cls.guide + cls.lines

    def assert_same(self, told, true):
        self.assertEqual(sorted(set(true) - set(told)), [], "not in the guide")
        self.assertEqual(sorted(set(told) - set(true)), [], "in the guide only")
        self.assertEqual(len(told), len(set(told)), "told twice")

    def test_log_texts(self):
        told = [(room, priority, text) for room, rows in re.findall(r"^## (\w+)/\n(.*?)(?=^## |\Z)",
                                                                    self.lines, re.M | re.S)
                for priority, text in re.findall(r"^\| (\w) \| `([^`]+)` \|.*\|.*\|$", rows, re.M)]
        self.assertEqual(len(told), len(re.findall(r"^\| \w \|", self.lines, re.M)), "malformed row")
        self.assert_same(told, {(room, priority, text) for room, _, priority, text in self.log})

    def test_log_texts_in_passing(self):
        def parts(text):
            return re.split(r"%[.\d]*(?:ll|l|z)?\w", text)
        patterns = [(priority, tag, re.compile(".*".join(map(re.escape, parts(text)))))
                    for _, tag, priority, text in self.log if text not in ("%s", "%s: %s")]
        examples = re.findall(r"^(\w)/(\w+): *(.*)$", self.guide, re.M)
        self.assertGreater(len(examples), 40)
        for priority, tag, text in examples:
            if tag == "marlo_fw_updater":
                self.assertRegex(text, r"^\w+:\d+, ")
                text = re.sub(r"^\w+:\d+, ", "", text)
            self.assertTrue(any([priority, tag] == known and pattern.fullmatch(text)
                                for *known, pattern in patterns), f"{priority}/{tag}: {text}")
        tags = {tag for _, tag, _, _ in self.log}
        self.assertEqual({tag for _, tag, _ in examples}, tags)
        self.assertEqual(set(re.findall(r"^\| tag `(\w+)`", self.guide, re.M)), tags)

    def test_paths(self):
        told = [path for heading in ("## 2. What the kernel has to have", "## 4. Files")
                for path in first_cells(section(self.guide, heading)) if path.startswith("/")]
        # One row is for what the partition table names, one for what the co-processor does.
        self.assert_same({path.rstrip("/") for path in told},
                         {path.rstrip("/") for path in self.sources.paths()})
        roots = ("/dev/", "/data/vendor/", "/vendor/firmware_mnt", "/vendor/bt_firmware")
        known = set(self.sources.paths()) | {"/dev/glink_pkt_marlo_", "/data/vendor/aon/10040100"}
        for path in re.findall(r"(?<![\w.])/[a-z][\w./-]*[\w/]", self.both):
            if path.startswith(roots):
                self.assertTrue(path in known or path + "/" in known, path)

    def test_properties(self):
        true = set().union(*self.sources.properties().values())
        self.assert_same(first_cells(section(self.guide, "## 3. Properties")), true)
        named = set(re.findall(r"(?:(?:ro|persist)\.)?\bvendor(?:\.\w+)+", self.both))
        self.assertLessEqual({name for name in named if re.fullmatch(PROPERTY_NAME, name)},
                             true | OTHER_PROPERTIES)

    def test_requests(self):
        handler = read("comhandler/MarloComHandler.cpp")
        values = {name: int(value, 0) for name, value in
                  re.findall(rf"constexpr \w[\w ]* (k\w+) = ({NUMBER});", handler)}
        true = {(values[request], values.get(cmd, 0)) for request, cmd in
                re.findall(r"\{(k\w+), (k\w+|0), \"", handler)}
        true |= {(values[request], values[cmd]) for cmd, request in
                 re.findall(r"block\.cmd = (k\w+);.*?\bioctl\((k\w+),", handler, re.S)}
        told = []
        for macro, number, size, request, cmd in re.findall(
                r"^\| `(_IO\w+)\('V', (\d+), (\d+)\)` \| `(0x\w+)` \| (\d+) \|", self.guide, re.M):
            direction = {"_IOR": 2, "_IOWR": 3}[macro]
            self.assertEqual(int(request, 16),
                             direction << 30 | int(size) << 16 | ord("V") << 8 | int(number), macro)
            told.append((int(request, 16), int(cmd)))
        self.assert_same(told, true)
        self.assertIn(f"0x{values['kResetData']:08x}", self.guide)

    def test_names_of_the_kernel(self):
        names = {"marlo_com_dev", "MARLO_EVENT="}
        names |= {self.sources.constant(name) for name in ("kMarloName", "kName")}
        names |= set(self.sources.literals(r"glink_pkt_\w+"))
        literals = {text for item in self.sources.items for text in LITERAL.findall(item.text)}
        self.assertLessEqual(names, literals)
        self.assertEqual([name for name in names if name not in self.guide], [])
        self.assertLessEqual(set(re.findall(r"glink_pkt_marlo_\w+", self.both)), names)
        events = re.findall(r"MARLO_POWER_\w+ = (\d+)", read("daemon/SSRHandler.h"))
        self.assert_same(re.findall(r"^\| `MARLO_EVENT=(\d+)`", self.guide, re.M), events)

    def test_trace_sections(self):
        sections = set()
        for item in self.sources.functions:
            for name in re.findall(r"TraceSection section\((\w+)\)", item.body):
                sections.add(item.name if name == "__func__" else self.sources.constant(name))
        row = re.search(r"^\| trace \|.*$", self.guide, re.M)[0]
        self.assertEqual(set(re.findall(r"`(\w+)`", row)), sections)

    def test_modules(self):
        kinds = r"^(?:cc_binary|cc_test|cc_fuzz|prebuilt_etc) \{\n    name: \"([\w.]+)\""
        true = set(re.findall(kinds, read("Android.bp"), re.M))
        table = self.guide.split("| module | what |", 1)[1].split("\n\n", 1)[0]
        self.assert_same(first_cells(table), true)
        built = re.findall(r"(?:PRODUCT_PACKAGES \+=|`m|atest(?: --host)?) ([\w.]+)", self.guide)
        self.assertLessEqual({"marlo_daemon"}, set(built))
        self.assertLessEqual(set(built), true)

    def test_files_and_labels(self):
        for link in re.findall(r"\]\(([\w./-]+)", self.both):
            self.assertTrue(os.path.exists(os.path.join(TOP, "android", link)), link)
        for path in re.findall(r"VENDOR/marlo/([\w./-]+\w)|`((?:android|tests)/[\w./-]+)`", self.both):
            self.assertTrue(os.path.exists(os.path.join(TOP, *filter(None, path))), path)
        policy = os.path.join(TOP, "android/sepolicy")
        labels = "".join(read(os.path.join("android/sepolicy", name)) for name in os.listdir(policy))
        for label in re.findall(r"\b(?:object_r:(\w+)|u:r:(\w+)|(vendor_marlo_\w+))", self.both):
            self.assertRegex(labels, rf"\b{''.join(label)}\b")

    def test_what_ls_shows(self):
        owners = {words[0]: (stat.S_IFCHR, *words[1:])
                  for _, words, _ in lines_of(os.path.join(TOP, "android/ueventd.marlo.rc"))}
        owners |= {words[1]: (stat.S_IFDIR, *words[2:]) for action in self.init.actions
                   for words in action.commands if words[0] == "mkdir"}
        labels = [(words[0], words[1].split(":")[2])
                  for _, words, _ in lines_of(os.path.join(TOP, "android/sepolicy/file_contexts"))]
        told, true = [], []
        for options, path, shown in re.findall(r"`adb shell ls -(\w+) (/\S+)` (.*)", self.guide):
            for label in re.findall(r"`(?:.* )?u:object_r:(\w+):s0`", shown):
                told.append((path, label))
                true.append((path, [each for pattern, each in labels if re.fullmatch(pattern, path)][-1]))
            for mode in re.findall(r"`([bcdlps-][rwxsStT-]{9})", shown):
                kind, number, user, group = owners[path]
                told.append((path, mode, *re.search(r"(\w+) (\w+)(?: u:|`)", shown).groups()))
                true.append((path, stat.filemode(kind | int(number, 8)), user, group))
        self.assertEqual(told, true)
        self.assertEqual(len(told), 5, "rows that were looked at")
        for path, number, user in re.findall(r"^\| `(/dev/\w+)` \|[^|]*; (0\d+) (\w+) \|",
                                             self.guide, re.M):
            self.assertEqual((number, user), owners[path][1:3], path)

    def test_what_proc_shows(self):
        service = self.init.services["marlo_daemon"]
        [row] = re.findall(r"^.*CapEff.*$", self.guide, re.M)
        with open(CAPABILITIES) as header:
            numbers = dict(re.findall(r"^#define CAP_(\w+)\s+(\d+)$", header.read(), re.M))
        names = service.options["capabilities"]
        mask = sum(1 << int(numbers[name]) for name in names)
        self.assertIn(f"`{mask:016x}` ({', '.join(names)}, no other)", row)
        with open(NAMES) as header:
            numbers = dict(re.findall(r"^#define AID_(\w+)\s+(\d+)", header.read(), re.M))
        self.assertEqual(re.findall(r"(\d+) \(`(\w+)`\)", row),
                         [(numbers[name.upper()], name) for name in service.options["group"][1:]])
        self.assertIn(f"shows `u:r:{service.name}:s0` and `{service.user()}`", self.guide)


if __name__ == "__main__":
    unittest.main()
