"""Who may talk to the server: a page that it has served itself, to somebody who was told the key.

The server listens on the loopback address, but any page of the web that is open in the same browser
can try to reach it there. Such a page comes with its own origin, or by a name of its own that leads
here; both are refused. Other users of the machine can say what they like, but do not know the key.
"""

import hmac
import secrets

from aiohttp import web

HOST = "127.0.0.1"
LOCAL_NAMES = (HOST, "localhost")
KEY_BYTES = 18
# The one style that a package writes into an element: "pointer-events: none", of a piece in the hand.
HELD_PIECE = "sha256-0LPZoaUlRg6skhVDAsOXJDYd0QywFnns8TclTlStHUs="


def make_policy(port):
    """What the browser lets the page do: nothing from elsewhere, no script or style within the
    page's text, no frames, no forms."""
    sockets = " ".join(f"ws://{name}:{port}" for name in LOCAL_NAMES)
    return ("default-src 'none'; script-src 'self'; style-src 'self'; "
            f"style-src-attr 'unsafe-hashes' '{HELD_PIECE}'; img-src 'self' data: blob:; "
            f"connect-src 'self' {sockets}; manifest-src 'self'; base-uri 'none'; "
            "form-action 'none'; frame-ancestors 'none'")


def make_headers(port):
    """The headers of every answer."""
    return {"Content-Security-Policy": make_policy(port),
            "X-Content-Type-Options": "nosniff",
            "X-Frame-Options": "DENY",
            "Referrer-Policy": "no-referrer",
            "Cross-Origin-Opener-Policy": "same-origin",
            "Cross-Origin-Resource-Policy": "same-origin",
            "Permissions-Policy": "camera=(), geolocation=(), microphone=()"}


def is_own_host(request, port):
    """Whether the request names this server as browsers do that were given its address."""
    return request.headers.getall("Host", []) in [[f"{name}:{port}"] for name in LOCAL_NAMES]


def is_own_origin(request, port, needed):
    """Whether the request comes from the server's own page. Browsers leave the origin of a plain
    page load out, and never that of a socket."""
    origins = request.headers.getall("Origin", [])
    if not origins:
        return not needed
    return origins == [f"http://{request.headers['Host']}"]


def is_right_key(request, key):
    return hmac.compare_digest(request.query.get("key", "").encode(), key.encode())


def make_guard(port):
    """The middleware that all requests pass."""
    headers = make_headers(port)

    @web.middleware
    async def guard(request, handler):
        if not is_own_host(request, port):
            answer = web.Response(status=403, text="This server is for this machine alone.\n")
        elif not is_own_origin(request, port, needed=request.path == "/socket"):
            answer = web.Response(status=403, text="This server is for its own page alone.\n")
        else:
            try:
                answer = await handler(request)
            except web.HTTPException as error:
                answer = web.Response(status=error.status, text=f"{error.status}\n")
        if not answer.prepared:
            answer.headers.update(headers)
        return answer

    return guard


def read_key(path):
    """The key of earlier starts, so that an address stays good, or a new one, which nobody but the
    user can read. Raises OSError."""
    try:
        key = path.read_text().strip()
        if len(key) >= KEY_BYTES:
            return key
    except (FileNotFoundError, UnicodeDecodeError):
        pass
    key = secrets.token_urlsafe(KEY_BYTES)
    path.unlink(missing_ok=True)
    path.touch(mode=0o600)
    path.write_text(key + "\n")
    return key
