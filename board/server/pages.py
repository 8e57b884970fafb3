"""The files that the page is made of, read once and kept in memory, packed where that helps."""

import gzip
import hashlib

from aiohttp import web

TYPES = {".html": "text/html; charset=utf-8", ".js": "text/javascript; charset=utf-8",
         ".css": "text/css; charset=utf-8", ".svg": "image/svg+xml", ".json": "application/json",
         ".webmanifest": "application/manifest+json"}
# What the page uses of its packages, by the folder that they are seen in.
PACKAGES = {"chessboard": ("cm-chessboard", ("src", "assets")),
            "chess": ("chess.js", ("dist/esm",))}


class SetupFault(Exception):
    """Files that are not there."""


def find_files(page, packages):
    """The files by the path that they are asked for with. Links are not followed out of the
    folders, as only what lies there is listed."""
    found = {f"/{path.name}": path for path in page.iterdir() if path.suffix in TYPES}
    for seen, (name, folders) in PACKAGES.items():
        top = packages / "node_modules" / name
        if not top.is_dir():
            raise SetupFault(f"{top} is not there: scripts/board copies it")
        for folder in folders:
            found |= {f"/{seen}/{path.relative_to(top).as_posix()}": path
                      for path in (top / folder).rglob("*")
                      if path.suffix in TYPES and path.is_file()}
    found["/"] = found["/index.html"]
    found["/favicon.ico"] = found["/icon.svg"]      # asked for without being named
    return found


class Pages:
    """Serves the files of a list, and nothing else."""

    def __init__(self, page, packages):
        self.files = find_files(page, packages)
        self.kept = {}

    def read(self, path):
        """Content, the same packed, type and tag of a file."""
        if path not in self.kept:
            content = self.files[path].read_bytes()
            tag = '"' + hashlib.sha256(content).hexdigest()[:24] + '"'
            self.kept[path] = (content, gzip.compress(content, 9, mtime=0),
                               TYPES[self.files[path].suffix], tag)
        return self.kept[path]

    async def serve(self, request):
        """A file, or nothing new where the browser has it already."""
        if request.path not in self.files:
            raise web.HTTPNotFound()
        content, packed, kind, tag = self.read(request.path)
        headers = {"Content-Type": kind, "ETag": tag, "Cache-Control": "no-cache",
                   "Vary": "Accept-Encoding"}
        if request.headers.get("If-None-Match") == tag:
            return web.Response(status=304, headers=headers)
        if "gzip" in request.headers.get("Accept-Encoding", ""):
            return web.Response(body=packed, headers={**headers, "Content-Encoding": "gzip"})
        return web.Response(body=content, headers=headers)
