#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares Android.bp with what CMake has configured: same_as_cmake.py BUILD_DIRECTORY

The sources of the daemon, of its rooms' tests and of the fuzz targets are in both, in the same
libraries and programs, and compiled with the same definitions; the daemon's with the same warnings.
What is in CMake alone is stated here. Prints each difference; exit status 1 then.
"""
import glob
import os
import re
import sys

import blueprint
import cmake_build

ONLY_IN_CMAKE = {
    # Android has these calls in libcutils and libutils, and libFuzzer has its own main.
    'platform/linux/clock.cpp', 'platform/linux/properties.cpp', 'platform/linux/uevent.cpp',
    'fuzz/replay_main.cpp',
    # Reads files that a linker makes first.
    'tests/fwupdater/platform_patch_test.cpp', '-DELF_DIRECTORY',
    # Need a root prefix, which Android does not have, or what Android has itself.
    'marlo_backing_file_test', 'marlo_kernel_uevent_test', 'marlo_platform_test',
    # The transport with a tracer that stands in for Android's.
    'libmarlo_traced_glink', 'marlo_glink_trace_test',
}
# Debian's tinyxml2.h is a system header, a tree's is none.
ONLY_IN_ANDROID_BP = {('libmarlo_fwupdater_pieces', '-Wno-sign-conversion')}
COMPILED = {'cc_library_static', 'cc_binary', 'cc_test', 'cc_fuzz'}
# What depends on CMake's build type and compiler, comes with a library, or is for the linker.
NOT_COMPARED = re.compile(r'-D(NDEBUG|_FORTIFY_SOURCE|GTEST_\w+|TINYXML2_\w+)\b|-W(no-restrict$|l,)')

found = []
used = set()


def compare(where, ours, theirs):
    found.extend(f'{where}: {item} is only in Android.bp' for item in ours - theirs
                 if (where, item) not in ONLY_IN_ANDROID_BP)
    found.extend(f'{where}: {item} is only in CMake' for item in theirs - ours - ONLY_IN_CMAKE)
    used.update((theirs - ours) & ONLY_IN_CMAKE)
    used.update({(where, item) for item in ours - theirs} & ONLY_IN_ANDROID_BP)


def compared_flags(words, kinds):
    """Definitions, where 0 is as good as none and how many times a test repeats does not matter."""
    flags = {word for word in words if word.startswith(kinds) and not NOT_COMPARED.match(word)}
    return {re.sub(r'=1$|(?<=ELF_DIRECTORY)=.*|(?<=POWER_CUT_SEEDS)=.*', '', flag)
            for flag in flags if not flag.endswith('=0')}


def compare_files(modules):
    for name, module in modules.items():
        files = module.srcs + module.init_rc + module.license_text
        files += [module.properties[key] for key in ('src', 'dictionary') if key in module.properties]
        found.extend(f'{name}: there is no {file}' for file in files if not os.path.isfile(file))
    fuzzers = [module for module in modules.values() if module.kind == 'cc_fuzz']
    corpora = {file for module in fuzzers for pattern in module.corpus for file in glob.glob(pattern)}
    compare('seeds', corpora, set(glob.glob('fuzz/seeds/*/*')))
    compare('dictionaries', {module.properties.get('dictionary') for module in fuzzers} - {None},
            set(glob.glob('fuzz/*.dict')))


def compare_modules(modules, targets):
    daemon = modules['marlo_daemon']
    shipped = {'marlo_daemon', *daemon.static_libs, *daemon.whole_static_libs}
    for name in modules.keys() & targets.keys():
        module, target = modules[name], targets[name]
        compare(name, set(module.srcs), set(target.objects))
        kinds = ('-D', '-W', '-std=') if name in shipped else ('-D', '-std=')
        words = module.cflags + module.cppflags + [f'-std={module.properties["cpp_std"]}']
        compare(name, compared_flags(words, kinds), compared_flags(target.flags, kinds))


def main(build):
    os.chdir(cmake_build.TOP)
    modules = blueprint.read('Android.bp')
    compare_files(modules)
    targets = cmake_build.targets(build)
    modules = {name: module for name, module in modules.items() if module.kind in COMPILED}
    compare('modules', set(modules), set(targets))
    compare_modules(modules, targets)
    # The preset `fuzz` has libFuzzer.
    unused = (ONLY_IN_CMAKE | ONLY_IN_ANDROID_BP) - used - {'fuzz/replay_main.cpp'}
    found.extend(f'{item} is excepted for nothing' for item in unused)
    print('\n'.join(sorted(found)) or f'{len(modules)} modules')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main(os.path.abspath(sys.argv[1])))
