#!/usr/bin/env python3
"""Checks what a bundle shows to and wants from the process that loads it.

It exports exactly its entry point, and needs nothing but the C and C++ run-time libraries, so that
it can be put into any daemon. Prints each breach and fails if there is one.

Usage: check_module_exports.py <module> [--instrumented]
--instrumented: a sanitizer's run-time is among the needs, so only the exports are checked.
"""

import argparse
import re
import subprocess
import sys

ENTRY_POINT = "ORBundleOpen"
RUN_TIME_LIBRARIES = re.compile(r"^(libc|libm|libstdc\+\+|libgcc_s|ld-linux[-\w]*)\.so(\.\d+)*$")
RUN_TIME_VERSIONS = re.compile(r"@+(GLIBC|GLIBCXX|CXXABI|GCC)_[\w.]+$")
# Weak, and absent in most processes.
OPTIONAL_SYMBOLS = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(module):
    lines = output_of("nm", "-D", "--defined-only", module).splitlines()
    return [line.split()[-1] for line in lines]


def undefined(module):
    lines = output_of("nm", "-D", "--undefined-only", "--with-symbol-versions", module).splitlines()
    return [line.split()[-1] for line in lines]


def needed_libraries(module):
    return re.findall(r"\(NEEDED\).*\[(.+)\]", output_of("readelf", "-d", module))


def breaches(module, is_instrumented):
    symbols = exported(module)
    if symbols != [ENTRY_POINT]:
        yield f"exports {symbols}, not {ENTRY_POINT} alone"
    if is_instrumented:
        return
    for symbol in undefined(module):
        if symbol not in OPTIONAL_SYMBOLS and not RUN_TIME_VERSIONS.search(symbol):
            yield f"needs {symbol}"
    for library in needed_libraries(module):
        if not RUN_TIME_LIBRARIES.match(library):
            yield f"needs the library {library}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("module")
    parser.add_argument("--instrumented", action="store_true")
    arguments = parser.parse_args()
    found = list(breaches(arguments.module, arguments.instrumented))
    for breach in found:
        print(f"{arguments.module} {breach}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
