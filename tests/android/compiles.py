#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compiles the daemon's sources in Android.bp as an Android tree does, as far as that goes without its
C library: with clang, LLVM's C++ library, __ANDROID__, each module's flags, and Android's own headers
as Debian has them. Exit status 1 where a source does not compile, 77 where a tool is missing.
"""
import os
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import blueprint
import cmake_build

TREE = ['-D__ANDROID__', '-stdlib=libc++', '-fno-exceptions', '-fno-rtti',
        '-I/usr/include/android', '-Iplatform/linux/include']


def compiles(command):
    return subprocess.run([*command, '-fsyntax-only'], check=False).returncode == 0


def main():
    os.chdir(cmake_build.TOP)
    if shutil.which('clang++') is None or not compiles(
            ['clang++', '-stdlib=libc++', '-include', 'version', '-x', 'c++', os.devnull]):
        print('SKIPPED: clang++ or libc++-dev is not installed')
        return 77
    modules = blueprint.read('Android.bp')
    daemon = modules['marlo_daemon']
    commands = []
    for name in ['marlo_daemon', *daemon.static_libs, *daemon.whole_static_libs]:
        module = modules[name]
        flags = TREE + [f'-I{path}' for path in module.local_include_dirs] + [
            f'-std={module.properties["cpp_std"]}', *module.cflags, *module.cppflags]
        commands += [['clang++', *flags, source] for source in module.srcs]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        failed = list(pool.map(compiles, commands)).count(False)
    print(f'{len(commands)} sources, {failed} do not compile')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
