# SPDX-License-Identifier: Apache-2.0
"""Reads Blueprint files (Android.bp): modules with their properties, variables and defaults resolved."""
import re

TOKEN = re.compile(r'''\s+ | //[^\n]* | /\*.*?\*/ |
    (?P<text>"(?:[^"\\\n]|\\.)*") | (?P<raw>`[^`]*`) | (?P<number>-?\d+) |
    (?P<word>[A-Za-z_]\w*) | (?P<sign>\+=|[{}\[\]:,=+])''', re.VERBOSE | re.DOTALL)
CONSTANTS = {'true': True, 'false': False}


class Parser:
    def __init__(self, text):
        self.tokens = list(self.split(text))
        self.variables = {}

    @staticmethod
    def split(text):
        position = 0
        while position < len(text):
            match = TOKEN.match(text, position)
            if match is None:
                raise SyntaxError(f'line {text.count(chr(10), 0, position) + 1}: not Blueprint')
            position = match.end()
            if match.lastgroup is not None:
                yield match.lastgroup, match.group()
        yield 'end', 'the end of the file'

    def take(self, *wanted):
        kind, value = self.tokens.pop(0)
        if wanted and kind not in wanted and value not in wanted:
            raise SyntaxError(f'{value} instead of {" or ".join(wanted)}')
        return kind, value

    def next_is(self, sign):
        return self.tokens[0] == ('sign', sign)

    def file(self):
        """The modules: pairs of a type and its properties."""
        modules = []
        while self.tokens[0][0] != 'end':
            name = self.take('word')[1]
            if self.next_is('{'):
                modules.append((name, self.expression()))
            elif self.take('=', '+=')[1] == '=':
                self.variables[name] = self.expression()
            else:
                self.variables[name] += self.expression()
        return modules

    def expression(self):
        value = self.value()
        while self.next_is('+'):
            self.take()
            other = self.value()
            value = merged(value, other) if isinstance(value, dict) else value + other
        return value

    def value(self):
        kind, token = self.take('text', 'raw', 'number', 'word', '[', '{')
        if kind == 'text':
            return re.sub(r'\\(.)', r'\1', token[1:-1])
        if kind == 'raw':
            return token[1:-1]
        if kind == 'number':
            return int(token)
        if kind == 'word':
            return CONSTANTS[token] if token in CONSTANTS else self.variables[token]
        return self.items() if token == '[' else self.properties()

    def items(self):
        values = []
        while not self.next_is(']'):
            values.append(self.expression())
            self.separator(']')
        self.take(']')
        return values

    def properties(self):
        values = {}
        while not self.next_is('}'):
            name = self.take('word')[1]
            self.take(':')
            if name in values:
                raise SyntaxError(f'property {name} is set twice')
            values[name] = self.expression()
            self.separator('}')
        self.take('}')
        return values

    def separator(self, end):
        if not self.next_is(end):
            self.take(',')


def merged(first, second):
    """What a property is that is set by defaults and then by the module that takes them."""
    if isinstance(first, dict):
        both = {name: merged(first[name], second[name]) for name in first.keys() & second.keys()}
        return {**first, **second, **both}
    return first + second if isinstance(first, list) else second


class Module:
    def __init__(self, kind, properties):
        self.kind = kind
        self.properties = properties

    def __getattr__(self, name):
        """A property that is a list."""
        return self.properties.get(name, [])


def read(path):
    """The modules with a name, by name; each with the properties that it takes from defaults."""
    with open(path, encoding='utf-8') as file:
        parsed = Parser(file.read()).file()
    plain = {}
    for kind, properties in parsed:
        name = properties.get('name')
        if name in plain:
            raise SyntaxError(f'two modules are named {name}')
        if name is not None:
            plain[name] = (kind, properties)

    def resolved(name):
        own = {key: value for key, value in plain[name][1].items() if key not in ('name', 'defaults')}
        taken = {}
        for defaults in plain[name][1].get('defaults', []):
            taken = merged(taken, resolved(defaults))
        return merged(taken, own)

    return {name: Module(kind, resolved(name)) for name, (kind, _) in plain.items()}
