#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The page of each program given names the options that its --help names, and no others; so does the
page's synopsis or description with its commands."""
import os
import re
import subprocess
import sys
import unittest

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
PROGRAMS = sys.argv[1:]


def help_of(program, *command):
    text = subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True)
    return text.stdout


def commands_of(text):
    return set(re.findall(r"^ +([a-z]+)  ", text.partition("\nSubcommands:")[2], re.M))


def options_of(text):
    return set(re.findall(r"^ +(?:-\w,)?--([a-z-]+)", text, re.M))


class Documents(unittest.TestCase):
    def test_options_and_commands(self):
        for program in PROGRAMS:
            text = help_of(program)
            commands = commands_of(text)
            options = options_of(text).union(*(options_of(help_of(program, name))
                                               for name in commands))
            self.assertIn("help", options)
            name = os.path.basename(program)
            with open(os.path.join(TOP, "tools/man", name + ".1")) as page, self.subTest(name):
                items = re.findall(r"^\.It (.*)$", page.read(), re.M)
                told = set(re.findall(r"\bFl -([a-z-]+)", "\n".join(items)))
                self.assertEqual(told, options, "page and --help tell of different options")
                told = {item.split()[1] for item in items if item.startswith("Cm ")}
                self.assertEqual(told, commands, "page and --help tell of different commands")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
