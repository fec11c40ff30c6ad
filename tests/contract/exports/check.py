#!/usr/bin/env python3
"""Holds what each of the engine's libraries exports against what its header declares, both ways.

What the core exports for its companions alone has a version that names the release, and is C++ of one namespace.

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
    return owed


def exported(nm, library):
    """What the library exports: the plain names, and those with a version, by that version."""
    listing = subprocess.run([nm, "-D", "--defined-only", "--format=posix", library], capture_output=True, text=True,
                             check=True).stdout
    plain, versioned = set(), {}
    for line in listing.splitlines():
        name, kind = line.split()[:2]
        if kind == "A":  # the version node's own name
            continue
        name, _, version = name.partition("@")
        if version:
            versioned.setdefault(version.lstrip("@"), set()).add(name)
        else:
            plain.add(name)
    return plain, versioned


def border_faults(library, versioned):
    """What is wrong with the names that have a version: only the core has some, of one release and one namespace."""
    if library.name != "libquorl.so":
        return [f"{name}@{version} is exported with a version" for version, names in versioned.items() for name in names]
    if len(versioned) != 1 or not next(iter(versioned)).startswith("QUORL_PRIVATE_"):
        return [f"its versions are {sorted(versioned)}, not one QUORL_PRIVATE_<release>"]
    return [f"{name} is not of the border" for names in versioned.values() for name in sorted(names)
            if not re.match(r"_ZNK?5quorl9companion", name)]


def main():
    nm, root, *libraries = sys.argv[1:]
    owed = declared(pathlib.Path(root))
    wrong = 0
    for library in map(pathlib.Path, libraries):
        names = owed[library.name]
        seen, versioned = exported(nm, library)
        faults = border_faults(library, versioned)
        for fault in faults:
            print(f"{library.name}: {fault}")
        if not names:
            print(f"{library.name}: its header declares nothing")
        for name in sorted(names - seen):
            print(f"{library.name}: {name} is declared and not exported")
        for name in sorted(seen - names):
            print(f"{library.name}: {name} is exported and not declared")
        wrong += len(names ^ seen) + (not names) + len(faults)
        print(f"{library.name}: {len(seen)} exported, {sum(map(len, versioned.values()))} for companions")
    return 1 if wrong or len(libraries) != len(owed) else 0


sys.exit(main())
