"""What an engine's speed has to do with its searches.

An engine that measures less than 3,000 nodes a second at its start takes itself for a weak player,
and overlooks things on purpose. Sanitized builds are tens of times as fast as that; but the measurement
takes 0.3 seconds, and other programs may take the processor for as long. Searches are compared only
where nothing is overlooked.
"""
import re

SLOWEST_RATE = 3001     # nodes a second
STARTS = 5              # of an engine, until it has measured more


def start_fast(start):
    """The engine that start() gives, with the lines that it printed up to "uciok". One that has
    measured too low a speed is ended by its close(), and another one is started."""
    for _ in range(STARTS):
        engine, lines = start()
        rate = re.search(r"calibration nps= (\d+)", "\n".join(lines))
        if rate is None or int(rate[1]) >= SLOWEST_RATE:
            return engine, lines
        print(f"started again: it measured {rate[1]} nodes a second", flush=True)
        engine.close()
    raise RuntimeError("this machine is too slow for searches without oversights")
