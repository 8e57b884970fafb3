"""Lets the folder be started as a program, from whatever folder the user stands in."""

import sys

from server.__main__ import main

sys.exit(main())
