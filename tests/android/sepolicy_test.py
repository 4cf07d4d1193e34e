#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The SELinux policy allows what the sources do, and nothing else; every label is of something that
they use."""
import os
import re
import shutil
import sys
import tempfile
import unittest

from init_language import RcFile
from product_sources import PROPERTY_NAME, ProductSources
from sepolicy import TOOLS, Policy

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.join(HERE, "..", "..")

# What the kernel asks of an operation: of the file, and of the directory that it is in.
OPERATIONS = {
    "O_RDONLY": ("open read", ""),
    "O_WRONLY": ("open write", ""),
    "O_RDWR": ("open read write", ""),
    "O_CREAT": ("create", "write add_name"),
    "fstat": ("getattr", ""),
    "ioctl": ("ioctl", ""),
    "rename_to_new": ("rename", "write add_name remove_name"),
    "unlink": ("unlink", "write remove_name"),
}
# These make a directory's listing, or its descriptor.
OF_DIRECTORY = {"O_DIRECTORY", "opendir"}
# What an open file allows, or what is no operation on a file.
FREE = {"O_CLOEXEC", "O_NONBLOCK", "O_NOFOLLOW", "O_TRUNC", "open", "read", "write", "pread", "pwrite",
        "close", "readdir", "closedir", "fsync", "fdatasync", "poll", "pipe", "sleep", "usleep",
        "start_thread", "join_thread", "use_large_pages"}
# Of Android's libraries.
CALLS = {
    "uevent_open_socket": "create setopt getopt bind",
    "uevent_kernel_multicast_recv": "read",
}
READ_PROPERTY = "getattr open read map"
RUN = "getattr open read execute map"
# A remoteproc that is not the co-processor's, and the link to each of them.
OTHER_REMOTEPROC = "/sys/devices/platform/soc/another/remoteproc/remoteproc1"
REMOTEPROC_LINK = "/sys/class/remoteproc/remoteproc0"
# What the policy's types are, by the ends of their names.
ATTRIBUTES = {
    "_daemon": "domain",
    "_exec": "exec_type vendor_file_type file_type",
    "_device": "dev_type",
    "_data_file": "file_type data_file_type",
    "_sysfs": "fs_type sysfs_type",
    "_prop": "property_type vendor_property_type vendor_internal_property_type",
}


class SourcesAndPolicy(unittest.TestCase):
    """`definitions` and `board` are of a device; here, of one that has no labels of its own."""
    definitions, board = (), None
    domain = "marlo_daemon"

    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.sources = ProductSources(TOP)
        cls.service = RcFile(os.path.join(TOP, "android/marlo_daemon.rc")).services["marlo_daemon"]
        cls.policy = Policy(os.path.join(TOP, "android/sepolicy"), cls.scratch.name,
                            cls.definitions, cls.board)
        with tempfile.TemporaryDirectory() as scratch:
            cls.platform = Policy(None, scratch, board=cls.board)
        cls.uses = cls.files()
        cls.needed = {*cls.file_rules(), *cls.property_rules(), *cls.process_rules()}

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    @classmethod
    def files(cls):
        """Each path, where it is behind links, with its operations. In a directory whose files the
        co-processor or the partition table names, one stands for all."""
        uses = dict(cls.sources.paths())
        for directory in [path for path in uses if path.endswith("/")]:
            if directory == "/sys/class/remoteproc/":
                cls.add_remoteproc(uses, directory)
            else:
                uses[directory + "1"] = uses[directory] - OF_DIRECTORY
        return uses

    @classmethod
    def add_remoteproc(cls, uses, directory):
        """An instance is below the device that it is named after."""
        device = cls.sources.constant("kMarloName")
        for item in cls.sources.functions:
            for name in re.findall(r'instance_path\(\w+, "(\w+)"\)', item.body):
                uses[f"/sys/devices/platform/soc/{device}/remoteproc/remoteproc0/{name}"] = \
                    uses[directory] - OF_DIRECTORY - {"readdir", "closedir"}

    @classmethod
    def file_rules(cls):
        yield from cls.search_rules(REMOTEPROC_LINK)
        yield cls.domain, cls.policy.type_of(REMOTEPROC_LINK, "link"), "lnk_file", "read"
        for path, operations in cls.uses.items():
            unknown = operations - OPERATIONS.keys() - OF_DIRECTORY - FREE
            if unknown:
                raise LookupError(f"{path}: what does {unknown} ask of SELinux?")
            if not operations & {"O_RDONLY", "O_WRONLY", "O_RDWR", "opendir"}:
                raise LookupError(f"{path}: how is it opened?")
            yield from cls.search_rules(path)
            yield from cls.directory_rules(path, operations) if path.endswith("/") \
                else cls.plain_file_rules(path, operations)

    @classmethod
    def search_rules(cls, path):
        parent = os.path.dirname(path.rstrip("/"))
        while parent != "/":
            yield cls.domain, cls.policy.type_of(parent, "dir"), "dir", "search"
            parent = os.path.dirname(parent)

    @classmethod
    def directory_rules(cls, path, operations):
        if operations & OF_DIRECTORY:
            for permission in ("open", "read"):
                yield cls.domain, cls.policy.type_of(path, "dir"), "dir", permission

    @classmethod
    def plain_file_rules(cls, path, operations):
        kind, object_class = ("char", "chr_file") if path.startswith("/dev/") else ("file", "file")
        label = cls.policy.type_of(path, kind)
        directory_label = cls.policy.type_of(os.path.dirname(path), "dir")
        for operation in operations & OPERATIONS.keys():
            of_file, of_directory = OPERATIONS[operation]
            for permission in of_file.split():
                yield cls.domain, label, object_class, permission
            for permission in of_directory.split():
                yield cls.domain, directory_label, "dir", permission

    @classmethod
    def property_rules(cls):
        names = cls.sources.properties()
        for name in names["get"] | names["set"]:
            if name not in cls.policy.properties:
                raise LookupError(f"the property {name} has no label")
            label = cls.policy.properties[name][0]
            setters = [cls.domain] if name in names["set"] else []
            if name.startswith("ro."):
                setters.append("vendor_init")  # in whose name the vendor's build.prop is read
            for domain in {cls.domain, *setters}:
                yield from ((domain, label, "file", each) for each in READ_PROPERTY.split())
            for domain in setters:
                yield domain, label, "property_service", "set"
                yield domain, "property_socket", "sock_file", "write"
                yield domain, "init", "unix_stream_socket", "connectto"

    @classmethod
    def process_rules(cls):
        program = cls.policy.type_of(cls.service.path, "file")
        yield from (("init", program, "file", each) for each in RUN.split())
        yield from ((cls.domain, program, "file", each) for each in [*RUN.split(), "entrypoint"])
        yield from (("init", cls.domain, "process", each) for each in ("transition", "siginh", "rlimitinh"))
        for capability in cls.service.options["capabilities"]:
            yield cls.domain, "self", "capability2", capability.lower()
        for call, permissions in CALLS.items():
            if cls.sources.uses(call):
                for permission in permissions.split():
                    yield cls.domain, "self", "netlink_kobject_uevent_socket", permission

    def test_what_the_sources_do_is_allowed(self):
        self.assertEqual([rule for rule in sorted(self.needed) if not self.policy.allows(*rule)], [])
        self.assertIn(("init", self.policy.type_of(self.service.path, "file"), "process", self.domain),
                      self.policy.transitions)

    def test_nothing_else_is_allowed(self):
        written = self.policy.written(self.policy.rules) - self.platform.written(self.platform.rules)
        self.assertEqual(sorted(written - self.needed), [])
        self.assertEqual(self.policy.others - self.platform.others, set())

    def test_denials_without_a_trace(self):
        label = self.policy.type_of(OTHER_REMOTEPROC, "dir")
        true = {("init", self.domain, "process", "noatsecure")}
        true |= {(self.domain, each, "file", permission)
                 for each in ("sysfs", label) for permission in ("open", "read")}
        if not self.policy.allows(self.domain, label, "dir", "search"):
            true.add((self.domain, label, "dir", "search"))
        self.assertEqual(self.policy.written(self.policy.unaudited), true)

    def test_attributes(self):
        told = self.policy.memberships() - self.platform.memberships()
        self.assertEqual(told, {(name, attribute) for name, _ in told for end in ATTRIBUTES
                                if name.endswith(end) for attribute in ATTRIBUTES[end].split()})

    def test_control_requests(self):
        device = self.policy.type_of(self.sources.constant("kDevice"), "char")
        self.assertEqual(self.policy.ioctls, {(self.domain, device, "chr_file"): self.sources.requests()})

    def test_every_label_is_used(self):
        self.policy.check_labels()
        paths = [self.service.path, *(path.rstrip("/") for path in self.uses)]
        for pattern, *_ in self.policy.own_labels:
            self.assertTrue(any(re.fullmatch(pattern, path) for path in paths), pattern)
        used = {self.policy.genfs_label(path) for path in paths if path.startswith("/sys")}
        self.assertEqual(set(self.policy.genfs) - set(self.platform.genfs) - used, set())

    def test_properties(self):
        names = self.sources.properties()
        used = names["get"] | names["set"]
        self.assertEqual(used, set(self.sources.literals(PROPERTY_NAME.pattern)))
        self.assertEqual(used, set(self.policy.properties))
        for label, *rest in self.policy.properties.values():
            self.assertIn(label, self.policy.types_of("property_type"))
            self.assertEqual(rest, ["exact", "int"])


class BoardWithLabels(SourcesAndPolicy):
    """A device whose own policy has types for what belongs to all of it."""
    board = os.path.join(HERE, "base/board")
    definitions = ("marlo_soc_type=board_soc", "marlo_dload_type=board_dload",
                   "marlo_twm_type=board_twm", "marlo_remoteproc_type=board_remoteproc",
                   "marlo_other_remoteproc_type=board_other_remoteproc",
                   "marlo_ramdumps_prop=board_ramdumps_prop", "marlo_firmware_type=board_firmware",
                   "marlo_bt_firmware_type=board_bt_firmware")


if __name__ == "__main__":
    os.environ["PATH"] += ":/usr/sbin"  # where some of them are for root alone
    missing = [tool for tool in TOOLS if not shutil.which(tool)]
    if missing:
        print(f"SKIPPED: not installed: {' '.join(missing)}")
        sys.exit(77)
    unittest.main()
