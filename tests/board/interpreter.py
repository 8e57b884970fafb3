"""Finds an interpreter that has the modules which a test needs."""

import importlib.util
import os
import sys

SKIPPED = 77
SYSTEM = "/usr/bin/python3"     # what Debian's packages of modules are for


def need(*modules):
    """Goes on where the modules are there, with the system's interpreter if only that has them, and
    ends the test as skipped, with a word, where nobody has."""
    missing = [name for name in modules if importlib.util.find_spec(name) is None]
    if not missing:
        return
    if os.path.realpath(sys.executable) != os.path.realpath(SYSTEM) and os.path.exists(SYSTEM):
        os.execv(SYSTEM, [SYSTEM, "-B", *sys.argv])
    print(f"Skipped: not installed: {', '.join(f'python3-{name}' for name in missing)}")
    sys.exit(SKIPPED)
