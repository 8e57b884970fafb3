"""What the comparers of stored results share: telling how a file differs from what the program
says now, and writing it anew."""
import difflib
import pathlib

SHOWN_LINES = 20


def describe(old, new):
    """The first differences as text; for what is no text, where they begin."""
    try:
        texts = [data.decode("ascii").splitlines() for data in (old, new)]
    except UnicodeDecodeError:
        same = next((i for i, (a, b) in enumerate(zip(old, new)) if a != b),
                    min(len(old), len(new)))
        return [f"{len(new)} bytes, stored are {len(old)}; they part at byte {same}"]
    lines = list(difflib.unified_diff(*texts, "stored", "now", n=0, lineterm=""))[2:]
    if len(lines) > SHOWN_LINES:
        lines[SHOWN_LINES:] = [f"... {len(lines) - SHOWN_LINES} lines more"]
    return lines


def settle(path, found, write):
    """Compares a file with the bytes found and shows what differs; writes them there if wanted.
    Returns whether the file was right."""
    path = pathlib.Path(path)
    stored = path.read_bytes()
    if stored == found:
        return True
    print(f"{path}: {'written anew' if write else 'differs'}")
    for line in describe(stored, found):
        print("  " + line)
    if write:
        path.write_bytes(found)
    return False


def summary(count, wrong, what, write):
    """Prints how many were compared; returns the status for the shell."""
    print(f"{count} {what}, {wrong} {'written anew' if write else 'differ'}")
    return 1 if not count or (wrong and not write) else 0
