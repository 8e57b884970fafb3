"""What a soak has done so far: part of scripts/soak.

One JSON file, replaced as a whole after every job, so that whoever is stopped goes on behind the
last job that ended. For each kind of job: the next seed, how many units (games, dialogues, runs,
files) were done, seconds, processor seconds, failures, and counters of its own.
"""

import dataclasses
import json
import os

TIME_LOSS = "lost on time"
# Counters that are tables, and how many deep; all others are numbers.
TABLES = {"controls": 1, "files": 1, "targets": 2}


@dataclasses.dataclass
class Outcome:
    """What one job gives. A failure is a record of "what", "seed", "command" and "kept"."""
    seeds: int = 1          # used up, from the next one on
    count: int = 1          # units done
    failures: list = dataclasses.field(default_factory=list)
    counters: dict = dataclasses.field(default_factory=dict)


def write_json(path, record):
    """Replaces the file at once: whoever reads it sees the old or the new one, whole."""
    path.parent.mkdir(parents=True, exist_ok=True)
    part = path.with_name(path.name + ".part")
    with open(part, "w", encoding="utf-8") as file:
        json.dump(record, file, indent=1)
        file.write("\n")
        file.flush()
        os.fsync(file.fileno())
    os.replace(part, path)


def new_state():
    return {"turn": 0, "seconds": 0.0, "runs": [], "kinds": {}}


def is_number(value):
    """Not negative, and small enough to be added to; NaN is none."""
    return type(value) in (int, float) and 0 <= value < 1e15


def is_whole(value, least):
    return type(value) is int and is_number(value) and value >= least


def are_counters(value, depth):
    """Tables of tables, so many deep, down to numbers."""
    if depth == 0:
        return is_number(value)
    return isinstance(value, dict) and all(are_counters(one, depth - 1) for one in value.values())


def is_record(record):
    """Whether that is what a state holds of one kind."""
    return (is_whole(record["next"], 1) and is_whole(record["count"], 0)
            and is_number(record["seconds"]) and is_number(record["cpu_seconds"])
            and all(isinstance(failure["what"], str) for failure in record["failures"])
            and all(are_counters(value, TABLES.get(name, 0))
                    for name, value in record["counters"].items()))


def is_state(state):
    try:
        return (is_whole(state["turn"], 0) and is_number(state["seconds"])
                and isinstance(state["runs"], list) and isinstance(state["kinds"], dict)
                and all("versions" in run and is_number(run["seconds"]) for run in state["runs"])
                and all(isinstance(record["failures"], list) and is_record(record)
                        for record in state["kinds"].values()))
    except (AttributeError, KeyError, TypeError):
        return False


def load_state(path):
    """A ValueError if the file is none that a soak has written; it may be worth mending by hand."""
    if not path.exists():
        return new_state()
    try:
        state = json.loads(path.read_text(encoding="utf-8"))
    except RecursionError:
        state = None
    if not is_state(state):
        raise ValueError("not what a soak has written")
    return state


def kind_of(state, kind):
    empty = {"next": 1, "count": 0, "seconds": 0.0, "cpu_seconds": 0.0, "failures": [],
             "counters": {}}
    return state["kinds"].setdefault(kind, empty)


def add_counters(total, more):
    for name, value in more.items():
        if isinstance(value, dict):
            add_counters(total.setdefault(name, {}), value)
        else:
            total[name] = round(total.get(name, 0) + value, 3)


def add_outcome(state, kind, outcome, seconds, cpu_seconds):
    record = kind_of(state, kind)
    record["next"] += outcome.seeds
    record["count"] += outcome.count
    record["seconds"] = round(record["seconds"] + seconds, 3)
    record["cpu_seconds"] = round(record["cpu_seconds"] + cpu_seconds, 3)
    record["failures"] += outcome.failures
    add_counters(record["counters"], outcome.counters)


def add_run(state, versions, seconds):
    """Adds the seconds to the run of these versions."""
    state["seconds"] = round(state["seconds"] + seconds, 3)
    if not state["runs"] or state["runs"][-1]["versions"] != versions:
        state["runs"].append({"versions": versions, "seconds": 0.0})
    state["runs"][-1]["seconds"] = round(state["runs"][-1]["seconds"] + seconds, 3)


def count_failures(record):
    """Failures of a kind. A game lost on time counts only beyond what a peer has lost in games of
    the same controls on the same processor: those are the machine's."""
    on_time = sum(failure["what"] == TIME_LOSS for failure in record["failures"])
    excused = min(on_time, record["counters"].get("peer_lost_on_time", 0))
    return len(record["failures"]) - excused


def has_failed(state, missing=()):
    """Missing is what should have been soaked and could not be built."""
    return bool(missing) or any(count_failures(record) for record in state["kinds"].values())


def make_report(state, versions, skipped):
    kinds = {}
    for kind, record in sorted(state["kinds"].items()):
        kinds[kind] = {"count": record["count"], "seeds": [1, record["next"] - 1],
                       "seconds": record["seconds"], "cpu_seconds": record["cpu_seconds"],
                       "failed": count_failures(record), **record["counters"],
                       "failures": record["failures"]}
    return {"versions": versions, "runs": state["runs"], "seconds": state["seconds"],
            "failed": sum(kind["failed"] for kind in kinds.values()), "skipped": skipped,
            "kinds": kinds}


def summary(state):
    """The counts in one line."""
    words = []
    for kind, record in sorted(state["kinds"].items()):
        text = f"{kind} {record['count']}"
        counters = record["counters"]
        if "peer_games" in counters:
            on_time = sum(failure["what"] == TIME_LOSS for failure in record["failures"])
            text += (f" ({on_time} lost on time, peer {counters.get('peer_lost_on_time', 0)} of"
                     f" {counters['peer_games']})")
        words.append(f"{text}, {count_failures(record)} failed")
    return f"{state['seconds'] / 3600:.2f} h: " + ("; ".join(words) or "nothing done")
