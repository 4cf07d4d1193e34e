# SPDX-License-Identifier: Apache-2.0
"""The daemon's SELinux policy, compiled as an Android build does it, beside a small platform policy
(base/) instead of Android's: its rules, one permission at a time, and its labels."""
import glob
import os
import re
import subprocess

BASE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "base")
TOOLS = ("m4", "checkpolicy", "secilc", "sefcontext_compile", "selabel_lookup")
VERSION = "30"  # of the kernel's policy; ioctl numbers are as old
# Declarations, and what only forbids.
GRANTS_NOTHING = {"type", "roletype", "typeattribute", "neverallow"}


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)}:\n{done.stdout}{done.stderr}")
    return done.stdout


def parse_lists(text):
    """The nested lists of a policy in CIL."""
    outermost = current = []
    enclosing = []
    for token in re.findall(r'"[^"]*"|[()]|[^\s()"]+', re.sub(r"^;.*", "", text, flags=re.M)):
        if token == "(":
            enclosing.append(current)
            current.append([])
            current = current[-1]
        elif token == ")":
            current = enclosing.pop()
        else:
            current.append(token.strip('"'))
    return outermost


class Policy:
    def __init__(self, directory, scratch, definitions=(), board=None):
        """`directory` is left out where it is None. `definitions` are m4's, `board` is a directory
        with files of a device's own policy."""
        self.scratch, self.definitions = scratch, [f"-D{each}" for each in definitions]
        self.directories = [each for each in (BASE, board, directory) if each]
        self._compile()
        self.labels = self._expanded("file_contexts")
        self.own_labels = self._contexts(directory, "file_contexts")
        self.properties = {words[0]: words[1].split(":")[2:3] + words[2:]
                           for words in self._contexts(None, "property_contexts")}

    def _files(self, pattern):
        return [file for each in self.directories
                for file in sorted(glob.glob(os.path.join(each, pattern)))]

    def _m4(self, files):
        return run("m4", "--fatal-warnings", *self.definitions, *files) if files else ""

    def _write(self, name, text):
        path = os.path.join(self.scratch, name)
        with open(path, "w") as file:
            file.write(text)
        return path

    def _expanded(self, name):
        return self._write(name, self._m4(self._files(name)))

    def _contexts(self, directory, name):
        files = [os.path.join(directory, name)] if directory else self._files(name)
        lines = (line.split("#")[0].split() for line in self._m4(files).splitlines())
        return [words for words in lines if words]

    def _compile(self):
        """By checkpolicy to the kernel's form and to CIL, and the latter by secilc as well."""
        source = self._write("policy.conf", self._m4(
            [f"{BASE}/head.m4", *self._files("*.te"), f"{BASE}/tail.m4", *self._files("genfs_contexts")]))
        self.binary, cil = (os.path.join(self.scratch, name) for name in ("policy", "policy.cil"))
        run("checkpolicy", "-M", "-c", VERSION, "-o", self.binary, source)
        run("checkpolicy", "-M", "-C", "-c", VERSION, "-o", cil, source)
        run("secilc", "-M", "true", "-c", VERSION, "-o", os.path.join(self.scratch, "secilc"),
            "-f", os.devnull, cil)
        with open(cil) as text:
            self._read(parse_lists(text.read()))

    def _read(self, statements):
        self.attributes, self.ioctls, self.genfs = {}, {}, {}
        self.rules, self.unaudited, self.transitions, self.others = [], [], [], set()
        for kind, *rest in statements:
            if kind == "typeattributeset":
                self.attributes[rest[0]] = rest[1]
            elif kind in ("allow", "dontaudit"):
                source, target, (object_class, permissions) = rest
                rules = self.rules if kind == "allow" else self.unaudited
                rules.append((source, target, object_class, permissions))
            elif kind == "allowx":
                source, target, (_, object_class, numbers) = rest
                self.ioctls[source, target, object_class] = self._numbers(numbers)
            elif kind == "genfscon" and rest[0] == "sysfs":
                self.genfs["/sys" + rest[1].rstrip("/")] = rest[2][2]
            elif kind == "typetransition":
                self.transitions.append(tuple(rest))
            elif kind not in GRANTS_NOTHING:
                self.others.add(str([kind, *rest]))

    @staticmethod
    def _numbers(ranges):
        numbers = set()
        for each in ranges:
            first, last = (each[1], each[2]) if isinstance(each, list) else (each, each)
            numbers |= set(range(int(first, 16), int(last, 16) + 1))
        return numbers

    def types_of(self, name):
        """The types behind the name of a type or an attribute, or behind an expression."""
        if isinstance(name, str):
            return self.types_of(self.attributes[name]) if name in self.attributes else {name}
        if name and name[0] == "and":
            return self.types_of(name[1]) & self.types_of(name[2])
        if name and name[0] == "not":
            return self.types_of("domain") - self.types_of(name[1])
        return set().union(*map(self.types_of, name[1:] if name[:1] == ["or"] else name))

    def memberships(self):
        """(type, attribute)"""
        return {(member, name) for name in self.attributes if not name.startswith("base_typeattr_")
                for member in self.types_of(name)}

    def written(self, rules):
        """(source, target, class, permission) as they were written, attributes by their members' names."""
        def shown(name):
            generated = isinstance(name, str) and name.startswith("base_typeattr_")
            return str(self.attributes[name]) if generated else name
        return {(shown(source), shown(target), object_class, permission)
                for source, target, object_class, permissions in rules
                for permission in permissions}

    def allows(self, source, target, object_class, permission):
        return any(object_class == rule[2] and permission in rule[3] and source in self.types_of(rule[0])
                   and target in (self.types_of(rule[1]) if rule[1] != "self" else {"self", source})
                   for rule in self.rules)

    def genfs_label(self, path):
        """The path below which everything in /sys has the same label as `path`."""
        return max((each for each in self.genfs if path.startswith(each)), key=len)

    def type_of(self, path, kind):
        path = path.rstrip("/") or "/"
        if path.startswith("/sys"):
            return self.genfs[self.genfs_label(path)]
        context = run("selabel_lookup", "-b", "file", "-f", self.labels, "-k", path, "-t", kind)
        return context.split(":")[3]

    def check_labels(self):
        run("sefcontext_compile", "-p", self.binary, "-o", self.labels + ".bin", self.labels)
