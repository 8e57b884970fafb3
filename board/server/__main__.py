"""Serves Vesk on a page to this machine alone: prints the address of the page, and ends by Ctrl-C
or TERM with all that it has started. Writes to its folder and nowhere else.
"""

import argparse
import asyncio
import contextlib
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys

from aiohttp import web
from aiohttp.http_exceptions import HttpProcessingError
from aiohttp.log import server_logger

from . import guard
from .pages import Pages, SetupFault
from .server import Programs, Server

TOP = pathlib.Path(__file__).resolve().parents[2]


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/board", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    add = parser.add_argument
    add("--programs", type=pathlib.Path, default=TOP, help="where vesk-uci lies")
    add("--folder", type=pathlib.Path, default=TOP / "board" / "files",
        help="all that is written goes here")
    add("--reports", type=pathlib.Path, default=pathlib.Path.cwd(),
        help="where vesk-tune has left its reports")
    add("--port", type=int, default=0, help="of the address; 0: the last one, or a free one")
    add("--games", type=int, default=20, help="of a match of two tastes")
    add("--open", action="store_true", help="open the page in the browser")
    return parser.parse_args()


def open_socket(wanted, last):
    """A listening socket: on the port that is wanted, or where none is on the last one, which keeps
    the browser's memory of this page, or on a free one. Raises OSError."""
    for port in ([wanted] if wanted else [last, 0]):
        listener = socket.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            listener.bind((guard.HOST, port))
            listener.listen(64)
            return listener
        except (OSError, OverflowError) as fault:
            listener.close()
            if wanted or not port:
                raise OSError(f"port {port}: {fault}") from None
    raise OSError("no port is free")


def read_port(path):
    """The port of the last start, 0 if none is known."""
    with contextlib.suppress(OSError, ValueError):
        port = int(path.read_text())
        return port if 1024 <= port < 65536 else 0
    return 0


def open_browser(address):
    """Where there is a desktop with a program that opens addresses."""
    if shutil.which("xdg-open") and (os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY")):
        subprocess.Popen(["xdg-open", address], start_new_session=True, stdin=subprocess.DEVNULL,
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


async def serve(options):
    """Serves until a signal comes."""
    folder = options.folder.resolve()
    (folder / "engine").mkdir(parents=True, exist_ok=True)
    key = guard.read_key(folder / "key")
    listener = open_socket(options.port, read_port(folder / "port"))
    port = listener.getsockname()[1]
    (folder / "port").write_text(f"{port}\n")
    pages = Pages(TOP / "board" / "page", folder / "packages")
    server = Server(Programs.find(options.programs.resolve(), TOP), folder,
                    options.reports.resolve(), key, max(1, options.games))
    application = web.Application(middlewares=[guard.make_guard(port)], client_max_size=1024)
    application.router.add_get("/socket", server.serve_socket)
    application.router.add_get("/{path:.*}", pages.serve)
    runner = web.AppRunner(application, access_log=None)
    await runner.setup()
    await web.SockSite(runner, listener).start()
    ended = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        asyncio.get_running_loop().add_signal_handler(number, ended.set)
    address = f"http://{guard.HOST}:{port}/#{key}"
    print(f"Vesk on a page: {address}\nAll that is written goes to {folder}\nCtrl-C ends it.",
          flush=True)
    if options.open:
        open_browser(address)
    await ended.wait()
    await server.close()
    await runner.cleanup()


def watch_children():
    """Has the end of a process told by the system in place of a thread for each, where Python does
    not do so by itself."""
    if sys.version_info < (3, 12) and hasattr(os, "pidfd_open"):
        with contextlib.suppress(OSError):
            os.close(os.pidfd_open(os.getpid()))
            asyncio.set_child_watcher(asyncio.PidfdChildWatcher())


def is_worth_telling(record):
    """Whether the user shall read a line of the log: what strangers send that is no HTTP is not."""
    return not (record.exc_info and isinstance(record.exc_info[1], HttpProcessingError))


def main():
    options = arguments()
    watch_children()
    server_logger.addFilter(is_worth_telling)
    try:
        asyncio.run(serve(options))
    except (OSError, SetupFault) as fault:
        print(f"The page cannot be served: {fault}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:   # before anything was started
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
