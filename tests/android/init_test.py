#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Init and ueventd understand the daemon's files, start it where there is a co-processor and nowhere
else, and give it what the sources open."""
import os
import re
import sys
import unittest

from init_language import Boot, RcFile, lines_of
from product_sources import ProductSources

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
NAMES = "/usr/include/android/private/android_filesystem_config.h"
CAPABILITIES = "/usr/include/linux/capability.h"


def defined(header, prefix):
    with open(header) as text:
        return set(re.findall(rf"^#define {prefix}(\w+)\s", text.read(), re.M))


class InitFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.rc = RcFile(os.path.join(TOP, "android/marlo_daemon.rc"))
        cls.service = cls.rc.services["marlo_daemon"]
        cls.sources = ProductSources(TOP)
        cls.users = {name.lower() for name in defined(NAMES, "AID_")}

    def test_init_knows_every_word(self):
        self.assertEqual(self.rc.faults, [])
        self.assertLessEqual({self.service.user(), *self.service.options["group"]}, self.users)

    def test_its_rights_are_those_of_its_calls(self):
        capabilities = set(self.service.options["capabilities"])
        self.assertLessEqual(capabilities, defined(CAPABILITIES, "CAP_"))
        takes_wakelocks = any(path.startswith("/sys/power/wake_") for path in self.sources.paths())
        self.assertEqual(capabilities, {"BLOCK_SUSPEND"} if takes_wakelocks else set())
        self.assertEqual("wakelock" in self.service.options["group"], takes_wakelocks)

    def starts(self, presence, **arguments):
        properties = {} if presence is None else {"ro.vendor.zt_aon_presence": presence}
        boot = Boot(self.rc, properties, **arguments)
        if "marlo_daemon" in boot.running:
            boot.die("marlo_daemon")
        return boot.starts.count("marlo_daemon")

    def test_runs_where_there_is_a_co_processor(self):
        for presence in (None, "", "0", "00", "-0", "no"):  # atoi gives 0
            self.assertEqual(self.starts(presence), 0, presence)
        for presence in range(1, 10):
            self.assertEqual(self.starts(str(presence)), 2, "once, and again after its death")
        self.assertEqual(self.starts("1", charger=True), 0)
        self.assertNotIn("critical", self.service.options)

    def test_what_it_needs_is_there_before_it_starts(self):
        boot = Boot(self.rc, {"ro.vendor.zt_aon_presence": "1"})
        start = boot.executed.index(["start", "marlo_daemon"])
        directory = self.sources.constant("backing_file_directory").rstrip("/")
        user = self.service.user()
        self.assertIn(["mkdir", directory, "0700", user, user], boot.executed[:start])

    def test_the_property_is_the_one_that_the_daemon_reads(self):
        read = self.sources.properties()["get"]
        for action in self.rc.actions:
            self.assertLessEqual(set(action.properties), read)

    def test_nodes_are_its_user_s(self):
        nodes = {}
        for _, words, _ in lines_of(os.path.join(TOP, "android/ueventd.marlo.rc")):
            path, mode, user, group = words
            self.assertRegex(mode, "^0[0-7]{3}$")
            self.assertLessEqual({user, group}, self.users)
            nodes[path] = (mode, user)
        wanted = {path for path in self.sources.paths() if path.startswith("/dev/")}
        self.assertEqual(nodes, {path: ("0600", self.service.user()) for path in wanted})


if __name__ == "__main__":
    if not os.path.exists(NAMES) or not os.path.exists(CAPABILITIES):
        print(f"SKIPPED: {NAMES} and {CAPABILITIES} tell which names there are")
        sys.exit(77)
    unittest.main()
