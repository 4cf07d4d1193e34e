# SPDX-License-Identifier: Apache-2.0
"""The targets of a build directory of CMake's, as its compile commands tell."""
import json
import os
import re
import shlex

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
# Where the targets lie that Android.bp has modules for.
ROOMS = re.compile(r'(tests/)?(wire|comhandler|glink|fwupdater|rma|daemon|platform)/|fuzz/'
                   r'|tests/CMakeFiles/')


class Target:
    def __init__(self):
        self.objects = {}  # by source
        self.flags = set()


def module_name(target):
    """What a target is called in Android.bp, whose names are those of the whole tree."""
    if target.endswith('_test'):
        return f'marlo_{target}'
    if target.startswith('fuzz_') and target != 'fuzz_harness':
        return f'marlo_{target.removeprefix("fuzz_")}_fuzzer'
    return target if target == 'marlo_daemon' else f'libmarlo_{target.removeprefix("marlo_")}'


def targets(build):
    """By the names of their modules."""
    found = {}
    with open(f'{build}/compile_commands.json', encoding='utf-8') as file:
        commands = json.load(file)
    for command in commands:
        words = shlex.split(command['command'])
        output = words[words.index('-o') + 1]
        if ROOMS.match(output):
            name = module_name(re.search(r'CMakeFiles/(.+?)\.dir/', output)[1])
            target = found.setdefault(name, Target())
            target.objects[os.path.relpath(command['file'], TOP)] = f'{build}/{output}'
            target.flags.update(words)
    return found
