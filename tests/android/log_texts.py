# SPDX-License-Identifier: Apache-2.0
"""What the product can write into the log: of each log statement its room, tag, priority and text, with
what is constant in it filled in, and without the blanks and newlines around it."""
import re

CALL = re.compile(r"\b(MARLO_LOG_FOR|MARLO_LOG|__android_log_print|report|report_misc_data|\w+)\(")
# Behind which argument the format's own ones begin.
FORMAT_AT = {"MARLO_LOG": 1, "MARLO_LOG_FOR": 2, "__android_log_print": 2}
CLASSES = {"error": "E", "info": "I", "debug": "D", "verbose": "V"}
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
# Without a tag the process's name stands in.
UNTAGGED = "marlo_daemon"
HANDLERS = {"report": "handleDFUResponse", "report_misc_data": "handleSHMResponse"}


def arguments_of(text, begin):
    """The arguments of the call whose opening parenthesis is in front of `begin`."""
    depth, arguments = 0, [""]
    for token in re.finditer(r'"(?:[^"\\]|\\.)*"|.', text[begin:], re.S):
        if token[0] in ")}" and depth == 0:
            return [argument.strip() for argument in arguments]
        depth += (token[0] in "({") - (token[0] in ")}")
        if token[0] == "," and depth == 0:
            arguments.append("")
        else:
            arguments[-1] += token[0]
    return []


def literal(argument):
    found = LITERAL.findall(argument)
    outside = LITERAL.sub("", argument).strip()
    if not found or outside:
        return None
    return "".join(found).replace(r"\n", "\n").replace(r"\t", "\t").replace(r"\"", '"')


class LogTexts:
    """`texts`: (room, tag, priority, text); the last but one as logcat shows it: E, I, D, V or F."""

    def __init__(self, sources):
        self.texts, self.constants = set(), {}
        for item in sources.items:
            value = literal(item.body.split("=", 1)[-1].rstrip(";")) if item.is_constant else None
            if value is not None:
                self.constants[item.path, item.name] = value
        self.functions = [item for item in sources.items if not item.is_constant]
        [self.set_tag] = {tag for item in self.functions
                          for tag in re.findall(r'\bset_tag\("(\w+)"\)', item.body)}
        for item in self.functions:
            for found in CALL.finditer(item.body):
                self._look_at(item, found[1], arguments_of(item.body, found.end()))

    def _look_at(self, item, call, arguments):
        if call in HANDLERS and len(arguments) > 1 and arguments[0] != "Callback::STATUS_INFO" \
                and arguments[0].startswith("Callback::STATUS_"):
            pieces = [self._value(item, piece) or "%s" for piece in arguments[1:]]
            self._add(item, UNTAGGED, "D", f"{HANDLERS[call]}: {''.join(pieces)}")
        if call not in FORMAT_AT or len(arguments) <= FORMAT_AT[call]:
            return
        at = FORMAT_AT[call]
        text = self._fill(item, literal(arguments[at]), arguments[at + 1:])
        if call != "__android_log_print":
            self._add(item, self.set_tag, CLASSES[arguments[at - 1]], text)
            return
        tag = UNTAGGED if arguments[1] == "nullptr" else self._value(item, arguments[1]) or self.set_tag
        if arguments[0].startswith("ANDROID_LOG_"):
            self._add(item, tag, arguments[0].removeprefix("ANDROID_LOG_")[0],
                      re.sub(r"^\w+:%d, ", "", text))
        else:
            self._add_of_callers(item, tag, text)

    def _add_of_callers(self, function, tag, text):
        """The priority, and for "%s" the text as well, are what the function is called with."""
        for item in self.functions:
            for found in re.finditer(rf"(?<!\w){function.name}\(", item.body):
                call = ",".join(arguments_of(item.body, found.end()))
                value = LITERAL.search(call)
                if text != "%s" or value:
                    priority = re.search(r"ANDROID_LOG_(\w)", call)
                    self._add(item, tag, priority[1] if priority else "E",
                              literal(value[0]) if text == "%s" else text)

    def _value(self, item, argument):
        if argument == "__func__":
            return item.name
        name = re.sub(r"\.c_str\(\)$", "", argument)
        return literal(argument) if '"' in argument else self.constants.get((item.path, name))

    def _fill(self, item, text, arguments):
        values = iter(arguments)

        def filled(conversion):
            value = self._value(item, next(values, ""))
            return value if conversion[0] == "%s" and value else conversion[0]
        return re.sub(r"%[.\d]*(?:ll|l|z)?\w", filled, text)

    def _add(self, item, tag, priority, text):
        self.texts.add((item.room, tag, priority, text.strip()))
