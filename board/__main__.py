"""Lets the folder be started as a program, from whatever folder the user stands in."""

import sys

try:
    from server.__main__ import main
    status = main()
except KeyboardInterrupt:   # before anything was started
    status = 130
sys.exit(status)
