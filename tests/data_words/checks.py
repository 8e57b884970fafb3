"""What the scripts for the words of vesk-data count and tell."""

MOST_TOLD = 40

_wrong = []
_count = 0


def expect(true, text):
    """Counts a check, and keeps the text that tells what is wrong if it does not hold."""
    global _count
    _count += 1
    if not true:
        _wrong.append(text)


def finish_checks():
    """Prints what was wrong. Returns the status of the script."""
    for text in _wrong[:MOST_TOLD]:
        print(text)
    print(f"{_count} checks, {len(_wrong)} wrong")
    return 1 if _wrong else 0
