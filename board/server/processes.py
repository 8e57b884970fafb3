"""Processes that must not outlive the server, whatever ends it."""

import asyncio
import contextlib
import ctypes
import os
import signal

LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1
PATIENCE = 1.5      # seconds until a process that was told to end is killed


def die_with_parent():
    """Runs in the new process before its program: the system kills it when the server ends, even
    where that was by SIGKILL."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


async def start_process(words, folder, **pipes):
    """Starts a program in that folder, in a session of its own, so that Ctrl-C reaches the server
    alone. Raises OSError."""
    return await asyncio.create_subprocess_exec(
        *map(str, words), cwd=folder, start_new_session=True, preexec_fn=die_with_parent, **pipes)


async def end_process(process):
    """Ends a process by TERM, and where that does not help by KILL."""
    if process is None or process.returncode is not None:
        return
    send_signal(process, signal.SIGTERM)
    try:
        await asyncio.wait_for(process.wait(), PATIENCE)
    except asyncio.TimeoutError:
        send_signal(process, signal.SIGKILL)
        await process.wait()


def send_signal(process, number):
    """Sends a signal to a process that has not been waited for. Not by the process's own methods:
    they would take the news of its end away from asyncio, which then complains at the terminal."""
    if process.returncode is None:
        with contextlib.suppress(ProcessLookupError):
            os.kill(process.pid, number)
