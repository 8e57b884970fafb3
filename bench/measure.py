"""What the scripts that measure the offline tools share."""

import os
import shutil
import subprocess
import tempfile


def find_tool(name):
    """The path of a program that may be installed, also among the games, or None."""
    return shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/games")


def measure(words, statuses=(0,)):
    """Processor seconds, greatest memory in bytes, and the output of a command on one core."""
    core = min(os.sched_getaffinity(0))
    process = subprocess.Popen(
        [str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, preexec_fn=lambda: os.sched_setaffinity(0, {core}))
    text = process.stdout.read().decode("latin-1")
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in statuses or "tellusererror" in text:
        raise SystemExit(f"{' '.join(map(str, words))} failed:\n{text}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024, text


def in_scratch_folder(report, options):
    """Runs a measurement in an empty folder, which is gone afterwards."""
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        try:
            report(options)
        finally:
            os.chdir("/")
