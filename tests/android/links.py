#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Links each program of Android.bp from what CMake has compiled: links.py BUILD_DIRECTORY COMPILER...

With what its module names and nothing else, as an Android tree does: a library that is missing in
its lists is a symbol that is missing here. Exit status 1 then. COMPILER is a command that links.
"""
import os
import subprocess
import sys
import tempfile

import blueprint
import cmake_build

# What Android's libraries have and Debian's do not is in the platform that CMake builds. The other
# programs have nothing but the scripted one.
STAND_INS = {'libcutils': {'platform/linux/properties.cpp', 'platform/linux/root.cpp',
                           'platform/linux/uevent.cpp'},
             'libutils': {'platform/linux/clock.cpp'}}
# What a program gets by being what it is.
MAIN = {'cc_test': ['-lgtest_main', '-lgtest']}


def main(build, linker):
    modules = blueprint.read(f'{cmake_build.TOP}/Android.bp')
    targets = cmake_build.targets(build)
    main_objects = {'cc_fuzz': [targets['marlo_dfu_fuzzer'].objects['fuzz/replay_main.cpp']]}
    with tempfile.TemporaryDirectory() as directory:

        def archive(name, target, sources):
            path = f'{directory}/{name}.a'
            subprocess.run(['ar', 'rc', path, *(targets[target].objects[source] for source in sources)],
                           check=True)
            return path

        archives = {name: archive(name, 'libmarlo_platform', sources)
                    for name, sources in STAND_INS.items()}
        archives |= {name: archive(name, name, module.srcs) for name, module in modules.items()
                     if module.kind == 'cc_library_static'}

        def link(name, module):
            whole = [archives[library] for library in module.whole_static_libs]
            libraries = [archives.get(library, f'-l{library.removeprefix("lib")}')
                         for library in module.static_libs + module.shared_libs
                         if module.kind == 'cc_binary' or library not in STAND_INS]
            objects = [targets[name].objects[source] for source in module.srcs]
            return subprocess.run(
                [*linker, '-o', f'{directory}/{name}', *objects, *main_objects.get(module.kind, []),
                 '-Wl,--whole-archive', *whole, '-Wl,--no-whole-archive', '-Wl,--start-group',
                 *libraries, *MAIN.get(module.kind, []), '-Wl,--end-group', *module.ldflags],
                check=False).returncode == 0

        programs = {name: module for name, module in modules.items()
                    if module.kind in ('cc_binary', 'cc_test', 'cc_fuzz')}
        failed = [name for name, module in programs.items() if not link(name, module)]
    print(f'{len(programs)} programs; not linked: {" ".join(failed) or "none"}')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main(os.path.abspath(sys.argv[1]), sys.argv[2:]))
