#!/usr/bin/env python3
"""Holds what each of the engine's libraries exports against what its header declares, both ways.

What the core exports for its companions alone stands in the files support.h of the engine's folders.

Usage: check.py NM SOURCE_FOLDER LIBRARY..."""
import pathlib
import re
import subprocess
import sys

DECLARATION = re.compile(r"^QUORL_API\b[^;]*?\b(_?quorl\w+)\(", re.M)


def declared(root):
    """The names that each library owes, by the library's file name."""
    folder = root / "include/quorl"
    owed = {f"lib{header}.so": set(DECLARATION.findall((folder / f"{header}.h").read_text(encoding="utf-8")))
            for header in ("quorl", "quorlcm", "quorlcmq", "quorlft", "quorlsd")}
    # The private functions stand in one header; their names say whose they are.
    for name in DECLARATION.findall((folder / "private.h").read_text(encoding="utf-8")):
        owner = next((o for o in ("quorlcmq", "quorlcm", "quorlft") if name.startswith("_" + o)), "quorl")
        owed[f"lib{owner}.so"].add(name)
    for support in sorted((root / "engine").rglob("support.h")):
        owed["libquorl.so"].update(DECLARATION.findall(support.read_text(encoding="utf-8")))
    return owed


def exported(nm, library):
    listing = subprocess.run([nm, "-D", "--defined-only", "--format=posix", library], capture_output=True, text=True,
                             check=True).stdout
    # Types in capitals are global; A is the version node's own name.
    return {line.split()[0].split("@")[0] for line in listing.splitlines() if line.split()[1] not in "A"}


def main():
    nm, root, *libraries = sys.argv[1:]
    owed = declared(pathlib.Path(root))
    wrong = 0
    for library in map(pathlib.Path, libraries):
        names, seen = owed[library.name], exported(nm, library)
        if not names:
            print(f"{library.name}: its header declares nothing")
        for name in sorted(names - seen):
            print(f"{library.name}: {name} is declared and not exported")
        for name in sorted(seen - names):
            print(f"{library.name}: {name} is exported and not declared")
        wrong += len(names ^ seen) + (not names)
        print(f"{library.name}: {len(seen)} exported")
    return 1 if wrong or len(libraries) != len(owed) else 0


sys.exit(main())
