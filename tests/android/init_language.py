# SPDX-License-Identifier: Apache-2.0
"""Android's init, as far as the daemon's files need it: reads an .rc file, finds words that init does
not know, and goes through a boot."""
import os
import shlex

WORDS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "init_keywords.txt")


def lines_of(path):
    """The words of each line that has some, with the line's number."""
    with open(path) as text:
        for number, line in enumerate(text, 1):
            words = shlex.split(line, comments=True)
            if words:
                yield number, words, line[0].isspace()


class Keywords:
    def __init__(self):
        self.arguments = {"option": {}, "command": {}}
        self.boot_events = []
        self.events = set()
        for _, (kind, word, *counts), _ in lines_of(WORDS):
            if kind in self.arguments:
                fewest, most = counts
                self.arguments[kind][word] = (int(fewest), float("inf") if most == "-" else int(most))
            else:
                self.events.add(word)
                if kind == "event":
                    self.boot_events.append(word)

    def fault_of(self, kind, words):
        if words[0] not in self.arguments[kind]:
            return f"no {kind} is called '{words[0]}'"
        fewest, most = self.arguments[kind][words[0]]
        if not fewest <= len(words) - 1 <= most:
            return f"'{words[0]}' has {len(words) - 1} arguments"
        return None


class Service:
    def __init__(self, name, path):
        self.name, self.path, self.options = name, path, {}

    def user(self):
        return self.options.get("user", ["root"])[0]


class Action:
    """Commands that follow an event, one or none, while each property has its value."""

    def __init__(self, triggers):
        self.event, self.properties, self.commands = None, {}, []
        for trigger in triggers:
            if trigger.startswith("property:"):
                name, _, value = trigger[len("property:"):].partition("=")
                self.properties[name] = value
            else:
                self.event = trigger

    def matches(self, event, properties):
        def holds(name, value):
            found = properties.get(name, "")
            return found != "" and value in ("*", found)
        return self.event == event and all(holds(*item) for item in self.properties.items())


class RcFile:
    def __init__(self, path):
        self.keywords, self.services, self.actions, self.faults = Keywords(), {}, [], []
        section = None
        for number, words, is_indented in lines_of(path):
            fault = None
            if not is_indented:
                section, fault = self._begin(words)
            elif isinstance(section, Service):
                fault = self.keywords.fault_of("option", words)
                if words[0] in section.options:
                    fault = f"'{words[0]}' is there twice"
                section.options[words[0]] = words[1:]
            elif isinstance(section, Action):
                fault = self.keywords.fault_of("command", words)
                section.commands.append(words)
            else:
                fault = "outside of a section"
            if fault:
                self.faults.append(f"{path}:{number}: {fault}")

    def _begin(self, words):
        if words[0] == "service" and len(words) >= 3:
            service = Service(words[1], words[2])
            fault = f"service '{words[1]}' is there twice" if words[1] in self.services else None
            self.services[words[1]] = service
            return service, fault
        if words[0] == "on" and len(words) >= 2:
            return self._begin_action(words[1:])
        return None, f"'{' '.join(words)}' begins no section"

    def _begin_action(self, words):
        triggers, separators = words[::2], words[1::2]
        action = Action(triggers)
        self.actions.append(action)
        events = [trigger for trigger in triggers if not trigger.startswith("property:")]
        if any(word != "&&" for word in separators) or len(words) % 2 == 0 or len(events) > 1:
            return action, f"'{' '.join(words)}' is no trigger"
        if not set(events) <= self.keywords.events:
            return action, f"'{events[0]}' is no event"
        if any("=" not in trigger for trigger in triggers if trigger not in events):
            return action, "a property is compared with nothing"
        return action, None


class Boot:
    """What init does with `rc` from the start of the device on; off and charging where `charger`."""

    CLASS_START = {"core": "boot", "hal": "boot", "main": "boot", "late_start": "boot"}

    def __init__(self, rc, properties, charger=False):
        self.rc, self.properties = rc, dict(properties)
        self.running, self.starts, self.executed = set(), [], []
        events = rc.keywords.boot_events
        for event in events[:events.index("late-init")] + ["charger"] if charger else events:
            self._trigger(event)
            for service in rc.services.values():
                class_event = self.CLASS_START.get(service.options.get("class", ["default"])[0])
                if class_event == event and "disabled" not in service.options:
                    self._start(service.name)
        self._trigger(None)  # the actions that wait for properties alone

    def _trigger(self, event):
        for action in self.rc.actions:
            if action.matches(event, self.properties):
                for words in action.commands:
                    self.executed.append(words)
                    if words[0] == "start":
                        self._start(words[1])

    def _start(self, name):
        if name not in self.running:
            self.running.add(name)
            self.starts.append(name)

    def die(self, name):
        """Whatever the exit status: init starts again what is not `oneshot`."""
        self.running.discard(name)
        if "oneshot" not in self.rc.services[name].options:
            self._start(name)
