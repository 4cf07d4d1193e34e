#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compiles the sources of Android.bp as an Android tree does, as far as that goes without its C
library: with clang, LLVM's C++ library and each module's flags. The daemon's with __ANDROID__, for this
processor and 32-bit ARM; those of the tests and the fuzz targets as for the building machine. Headers
of other projects are no system headers in a tree, so they are copied to where they are none here; but
GoogleTest's stay: those are parsed once for all. Exit status 1 where a source does not compile, or
a tool is missing.
"""
import os
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import blueprint
import cmake_build

TREE = ['clang++', '-stdlib=libc++', '-fno-exceptions', '-fno-rtti', '-Iplatform/linux/include']
ARM = '--target=arm-linux-gnueabihf'
COMPILED = {'cc_library_static', 'cc_binary', 'cc_test', 'cc_fuzz'}
GOOGLE_TEST = ['-include', 'gmock/gmock.h', '-include', 'gtest/gtest.h', '-x', 'c++-header', os.devnull]


def compiles(command, **options):
    return subprocess.run([*TREE, *command], check=False, **options).returncode == 0


def is_there(*flags):
    return compiles([*flags, '-fsyntax-only', '-include', 'cstdlib', '-x', 'c++', os.devnull],
                    stderr=subprocess.DEVNULL)


def copy_headers(directory):
    shutil.copytree('/usr/include/android', directory, dirs_exist_ok=True)
    shutil.copy('/usr/include/tinyxml2.h', directory)


def flags_of(module):
    return [*(f'-I{path}' for path in module.local_include_dirs),
            f'-std={module.properties["cpp_std"]}', *module.cflags, *module.cppflags]


class Compilation:
    def __init__(self, scratch):
        copy_headers(scratch)
        self.scratch, self.commands, self.parsed = scratch, [], {}

    def add(self, module, *more):
        flags = [*flags_of(module), f'-I{self.scratch}', *more]
        if module.kind == 'cc_test':
            flags += ['-include-pch', self.google_test(flags)]
        self.commands += [[*flags, '-fsyntax-only', source] for source in module.srcs]

    def google_test(self, flags):
        """Each set of flags has one of its own."""
        path = self.parsed.setdefault(tuple(flags), f'{self.scratch}/{len(self.parsed)}.pch')
        if not os.path.exists(path) and not compiles([*flags, *GOOGLE_TEST, '-o', path]):
            sys.exit('GoogleTest does not compile')
        return path

    def failures(self):
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            return list(pool.map(compiles, self.commands)).count(False)


def main():
    os.chdir(cmake_build.TOP)
    if shutil.which('clang++') is None or not is_there():
        sys.exit('clang++ or libc++-dev is not installed')
    if not is_there(ARM):
        sys.exit('g++-arm-linux-gnueabihf is not installed: nothing to compile for 32-bit ARM with')
    modules = blueprint.read('Android.bp')
    daemon = modules['marlo_daemon']
    shipped = {'marlo_daemon', *daemon.static_libs, *daemon.whole_static_libs}
    with tempfile.TemporaryDirectory() as scratch:
        compilation = Compilation(scratch)
        for name, module in modules.items():
            if name in shipped:
                compilation.add(module, '-D__ANDROID__')
                compilation.add(module, '-D__ANDROID__', ARM)
            elif module.kind in COMPILED:
                compilation.add(module)
        failed = compilation.failures()
    print(f'{len(compilation.commands)} compilations, {failed} failed')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
