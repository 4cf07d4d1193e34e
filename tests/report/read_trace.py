#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads traces as strictly as a viewer's importer may. Exit status 1 and what is wrong, if it is.

read_trace.py FILE [NAME...]: slices, instants or counters of these names must be there.
"""
import json
import sys

NEEDED = {"B": {"name"}, "E": set(), "X": {"name", "dur"}, "i": {"name", "s"},
          "C": {"name", "args"}, "M": {"name", "args"}}


def no_constants(text):
    raise ValueError(f"{text} is no JSON")


def fail(event, why):
    sys.exit(f"{why}: {json.dumps(event)}")


def check_event(event):
    """What an event must be by itself."""
    for field, kind in (("ph", str), ("pid", int), ("tid", int), ("ts", (int, float))):
        if not isinstance(event.get(field), kind) or isinstance(event[field], bool):
            fail(event, f"{field} missing or of another type")
    if event["ph"] not in NEEDED:
        fail(event, "a phase that this writer does not use")
    if missing := NEEDED[event["ph"]] - event.keys():
        fail(event, f"without {missing}")
    if event["pid"] <= 0 or event["tid"] <= 0 or event["ts"] < 0:
        fail(event, "a number that is not positive")
    if "name" in event and not (isinstance(event["name"], str) and event["name"]):
        fail(event, "an empty name")
    if event["ph"] == "X" and event["dur"] < 0:
        fail(event, "a negative duration")
    if event["ph"] == "i" and event["s"] not in ("t", "p", "g"):
        fail(event, "an unknown scope")
    if event["ph"] == "C" and not all(
            isinstance(value, (int, float)) for value in event["args"].values()):
        fail(event, "a counter that is no number")


def check_trace(events):
    """What they must be together."""
    last = 0
    open_slices = {}
    processes = {}
    named = set()
    for event in events:
        check_event(event)
        if event["ts"] < last:
            fail(event, "time goes backwards")
        last = event["ts"]
        thread = event["tid"]
        if processes.setdefault(thread, event["pid"]) != event["pid"]:
            fail(event, "a thread of two processes")
        if event["ph"] == "M":
            named.add((event["name"], thread))
        elif ("thread_name", thread) not in named:
            fail(event, "a thread without a name")
        if event["ph"] == "B":
            open_slices[thread] = open_slices.get(thread, 0) + 1
        if event["ph"] == "E":
            open_slices[thread] = open_slices.get(thread, 0) - 1
            if open_slices[thread] < 0:
                fail(event, "an end without a beginning")
    if left := [thread for thread, number in open_slices.items() if number]:
        sys.exit(f"not ended on {left}")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        trace = json.load(file, parse_constant=no_constants)
    events = trace["traceEvents"]
    check_trace(events)
    names = {event.get("name") for event in events}
    if missing := set(sys.argv[2:]) - names:
        sys.exit(f"nothing called {missing}")


main()
