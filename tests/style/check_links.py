#!/usr/bin/env python3
"""Checks that no folder calls up: what an object file needs is defined in its own folder or on a
floor below. A declaration in a low header would let a call through that check_includes.py does not
see.

    check_links.py OBJECT...

The objects of one program, or of several that share sources; the folder is what follows the last
"Source" of an object's path, or stands in the name of what was compiled of a whole folder. Prints
every symbol that is needed and defined only above or beside. Status 1 if there is one.
"""

import pathlib
import re
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import floors


def place_of(path):
    """Folder and name of the source that an object was made of, or None if it lies elsewhere."""
    parts = pathlib.PurePath(path).parts
    # Named by compile_together of CMakeLists.txt: folder, folder within it, first word of the files.
    together = re.fullmatch(r"unity_(\w+?)(-\w+)?_cxx\.cxx\.o", parts[-1])
    if together:
        return together[1].split("_")[0], together[1]
    if "Source" not in parts:
        return None
    name = "/".join(parts[len(parts) - parts[::-1].index("Source"):])
    return floors.folder_of(name), name.removesuffix(".o")


def read_symbols(path):
    """The names that an object needs and the names that it defines alone for the whole program.
    A weak definition is an inline function: everyone who includes its header has one."""
    lines = subprocess.run(["nm", "-C", "--extern-only", path], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    needed, defined = set(), set()
    for line in lines:
        kind, name = line[17:18], line[19:]
        if kind == "U":
            needed.add(name)
        elif kind in "TDBRSGC":
            defined.add(name)
    return needed, defined


def main():
    objects = {path: read_symbols(path) for path in sys.argv[1:] if place_of(path)}
    if not objects:
        print("check_links.py: no objects")
        return 1
    owners = {}
    for path, (_, defined) in objects.items():
        for name in defined:
            owners.setdefault(name, set()).add(place_of(path))
    upward = set()
    for path, (needed, _) in objects.items():
        folder, source = place_of(path)
        for name in needed & owners.keys():
            if not any(floors.may_use(folder, owner) for owner, _ in owners[name]):
                above = ", ".join(sorted(owner for _, owner in owners[name]))
                upward.add(f"Source/{source}: needs {name} of {above}")
    for line in sorted(upward):
        print(line)
    print(f"{len(objects)} objects, {len(owners)} symbols, {len(upward)} linked upward")
    return 1 if upward else 0


if __name__ == "__main__":
    sys.exit(main())
