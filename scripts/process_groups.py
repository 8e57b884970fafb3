"""Ending a program with all that it has started: part of scripts/mutate and scripts/soak."""

import os
import signal
import time

MANNERS_SECONDS = 3     # between asking and killing


def send(process, number):
    """Sends a signal to the group that a process leads. False if nobody is left of it."""
    try:
        os.killpg(process.pid, number)
    except ProcessLookupError:
        return False
    return True


def end_group(process):
    """Ends a process that leads a group, and all of the group. A build tool gives each of its jobs
    a group of its own, and passes SIGTERM on to them; SIGKILL would hit the tool alone."""
    try:
        if process.returncode is None and send(process, signal.SIGTERM):
            end = time.monotonic() + MANNERS_SECONDS
            while process.poll() is None or send(process, 0):
                if time.monotonic() > end:
                    break
                time.sleep(0.02)
    finally:
        # Also where a second Ctrl-C came meanwhile.
        send(process, signal.SIGKILL)
    process.wait()
