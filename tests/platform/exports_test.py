# SPDX-License-Identifier: Apache-2.0
"""Compares, in both directions, the functions that the headers of the platform
contract declare with the symbols that the built object exports.

usage: exports_test.py <libaaaplatform.so> <directory of the headers>
"""

import pathlib
import re
import subprocess
import sys

# Declares the functions that a provider of the system database exports.
NOT_THE_PLATFORMS = {"sysdb_provider.h"}

# Symbols that sanitizers and coverage put into every object.
INSTRUMENTATION = re.compile(r"^(__odr_asan|__asan|__tsan|__ubsan|__gcov|__llvm|mangle_path$)")


def declared(directory):
    names = set()
    for header in sorted(pathlib.Path(directory).glob("*.h")):
        if header.name in NOT_THE_PLATFORMS:
            continue
        text = re.sub(r"/\*.*?\*/", "", header.read_text(encoding="utf-8"), flags=re.S)
        text = re.sub(r"^\s*#.*$", "", text, flags=re.M)
        found = re.findall(r"PLATFORM_API\s[^;{]*?(\w+)\s*\(", text)
        if len(found) != len(re.findall(r"\bPLATFORM_API\b", text)):
            sys.exit(f"{header}: a declaration was not understood")
        names.update(found)
    return names


def exported(library):
    lines = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True)
    names = {line.split()[-1].split("@")[0] for line in lines.stdout.splitlines()}
    return {name for name in names if not INSTRUMENTATION.match(name)}


def main():
    library, directory = sys.argv[1:]
    in_headers, in_library = declared(directory), exported(library)
    if not in_headers:
        sys.exit("no declaration found")
    for name in sorted(in_headers - in_library):
        print(f"declared, not exported: {name}")
    for name in sorted(in_library - in_headers):
        print(f"exported, not declared: {name}")
    print(f"{len(in_headers)} functions declared")
    return 0 if in_headers == in_library else 1


sys.exit(main())
