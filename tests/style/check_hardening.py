#!/usr/bin/env python3
"""Reads from built programs whether they are hardened: position-independent, with tables of
addresses that cannot be written once the program runs, a stack that cannot be executed, and calls
of the checks for the stack and for lengths.

    check_hardening.py PROGRAM...

Needs readelf, which comes with the compilers. Prints what a program lacks; status 1 if it does.
"""

import re
import subprocess
import sys

# What must be found, in which table of readelf.
WANTED = (
    ("--file-header", r"Type:\s+DYN", "is not position-independent"),
    ("--dynamic", r"FLAGS_1.*\bPIE\b", "is a library, not a position-independent program"),
    ("--dynamic", r"\bBIND_NOW\b|FLAGS_1.*\bNOW\b", "resolves its calls while it runs"),
    ("--program-headers", r"GNU_RELRO", "keeps its relocated tables writable"),
    ("--program-headers", r"GNU_STACK.* RW ", "can run code on its stack"),
    ("--dyn-syms", r"\b__stack_chk_fail\b", "has no guards on its stack"),
    ("--dyn-syms", r"\b__(memcpy|memmove|snprintf|vsnprintf)_chk\b", "calls no checked copies"),
)


def lacks(program):
    for table, pattern, complaint in WANTED:
        text = subprocess.run(["readelf", "--wide", table, program], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        if not re.search(pattern, text):
            yield complaint


def main():
    programs = sys.argv[1:]
    wrong = [f"{program} {complaint}" for program in programs for complaint in lacks(program)]
    print("\n".join(wrong + [f"{len(programs)} programs, {len(wrong)} complaints"]))
    return 1 if wrong or not programs else 0


if __name__ == "__main__":
    sys.exit(main())
