# SPDX-License-Identifier: Apache-2.0
"""What the product's sources ask of the system: the paths that they name and how each is opened, the
properties, the control device's requests, the calls that need a right.

The sources are read as text: constants, functions, and which function names which other one of its
room. What a path is opened for is everything that the functions do which name it, or which those
reach; that may be more than they do with it, and is never less."""
import glob
import os
import re

ROOMS = ("daemon", "comhandler", "glink", "fwupdater", "rma", "wire")
# Of the platform, all but what stands in for libraries that Android has.
PLATFORM = ("platform/*.cpp", "platform/linux/*.cpp")
STAND_INS = ("clock.cpp", "properties.cpp", "uevent.cpp")
SKIPPED = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'|//[^\n]*|^#[^\n]*', re.M)
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
PROPERTY_NAME = re.compile(r"(?:ro|persist|vendor)(?:\.\w+)+")


class Item:
    """A function, a class of a .cpp file, or a constant: `name`, and its text without comments."""

    def __init__(self, path, head, text):
        self.path, self.room, self.text = path, path.split("/")[0], text
        found = re.search(r"(\w+)(?:\[\])? *=", head)
        self.is_constant = found is not None and "(" not in head[:found.start()]
        if not self.is_constant:
            found = re.match(r"\s*(?:class|struct) (\w+)", head) or re.search(r"(\w+)\(", head)
        self.name = found.group(1) if found else ""
        self.body = text if self.is_constant else text[len(head):]

    def mentions(self, name):
        return re.search(rf"(?<!os::)\b{name}\b", self.body) is not None


def items_of(path, text):
    """Splits a file at the ends of its outermost declarations; namespaces are looked into."""
    text = SKIPPED.sub(lambda found: found[0] if found[0][0] in "\"'" else "", text)
    begin, head, depth = 0, None, 0
    for found in re.finditer(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'|[{};]', text):
        if found[0] == "{":
            if depth == 0 and re.match(r"\s*(namespace\b[^;{]*|extern \"C\" *)$", text[begin:found.start()]):
                begin = found.end()
                continue
            head = head or text[begin:found.start()]
            depth += 1
        elif found[0] == "}":
            depth = max(depth - 1, 0)
        ends_function = found[0] == "}" and head and "=" not in head.split("(")[0]
        if depth == 0 and (found[0] == ";" or ends_function or (found[0] == "}" and not head)):
            yield Item(path, head or text[begin:found.end()], text[begin:found.end()])
            begin, head = found.end(), None


class ProductSources:
    def __init__(self, top):
        patterns = [f"{room}/*.{kind}" for room in ROOMS for kind in ("cpp", "h")] + [*PLATFORM]
        files = {file for each in patterns for file in glob.glob(os.path.join(top, each))}
        self.items = []
        for file in sorted(files):
            if os.path.basename(file) not in STAND_INS:
                with open(file) as text:
                    self.items += items_of(os.path.relpath(file, top), text.read())
        with open(os.path.join(top, "platform/os.h")) as text:
            self.calls = set(re.findall(r"^\w[\w *:]*?(\w+)\(.*[;,]$", text.read(), re.M))
        self.functions = [item for item in self.items
                          if not item.is_constant and item.name and item.path.endswith(".cpp")]

    def constant(self, name):
        """The text of the one constant that is called so."""
        [item] = [item for item in self.items if item.is_constant and item.name == name]
        return LITERAL.search(item.text)[1]

    def literals(self, pattern):
        """Each text that matches as a whole, with the items that hold it."""
        found = {}
        for item in self.items:
            for text in LITERAL.findall(item.text):
                if re.fullmatch(pattern, text):
                    found.setdefault(text, []).append(item)
        return found

    def paths(self):
        """Every path that the product can open, with the operations that may be done to it. One
        that ends with "/" is a directory, whose files the product names itself."""
        found = {}
        images = self.constant("fw_image_dir")
        for path, items in self.literals(r"\.?/\w\S*").items():
            operations = self._operations(items)
            if path == "/dev/":
                for channel in self.literals(r"glink_pkt_\w+"):
                    found[path + channel] = operations
            else:
                found[images + path[2:] if path.startswith("./") else path] = operations
        return found

    def _operations(self, items):
        users = [item for item in items if not item.is_constant]
        for constant in (item for item in items if item.is_constant):
            users += [item for item in self.functions if item.mentions(constant.name)]
        reached = []
        while users:
            user = users.pop()
            if user not in reached:
                reached.append(user)
                users += [item for item in self.functions
                          if item.room in (user.room, "platform") and user.mentions(item.name)
                          or item.path == "platform/file.cpp" and f"os::{item.name}(" in user.body]
        return set().union(*map(self._own_operations, reached))

    def _own_operations(self, item):
        prefix = "" if item.path == "platform/file.cpp" else "os::"
        calls = re.findall(rf"(?<![\w.>:]){prefix}(\w+)\(", item.body)
        return set(re.findall(r"\bO_[A-Z]+\b", item.body)) | (self.calls & set(calls))

    def properties(self):
        """{"get": names, "set": names}"""
        names = {"get": set(), "set": set()}
        for item in self.functions:
            # A function that passes a name on is known by that; its callers are looked at.
            for call, argument in re.findall(r"\b(property_get|property_set|integer_property)"
                                             r"\(\s*(\w+|\"[^\"]*\")", item.body):
                if item.name != "integer_property":
                    name = argument.strip('"') if argument[0] == '"' else self.constant(argument)
                    names["set" if call == "property_set" else "get"].add(name)
        return names

    def requests(self):
        """The numbers that the control device is given: type and number, without direction and size."""
        return {int(number, 16) & 0xFFFF for item in self.items
                if item.is_constant and item.path == "comhandler/MarloComHandler.cpp"
                for number in re.findall(r"uint32_t \w+ = (0x[4-9a-f][0-9a-f]{7});", item.text)}

    def uses(self, call):
        return any(item.mentions(call) for item in self.functions)
