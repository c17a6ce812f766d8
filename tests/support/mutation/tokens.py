# SPDX-License-Identifier: Apache-2.0
"""Splits a C++ source into tokens that know the function and the statement they belong to.

This is no parser. It relies on .clang-format: a binary operator has a space on both sides, the brackets of a template
and the ampersands of a reference have none.
"""

import re

_TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<string>"(?:\\.|[^"\\\n])*")
  | (?P<char>'(?:\\.|[^'\\\n])+')
  | (?P<number>\d(?:[\w.]|'(?=\w))*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<op><<=|>>=|\.\.\.|->|\+\+|--|<<|>>|[-+*/%&|^=!<>]=|&&|\|\||::|\S)
""", re.VERBOSE | re.MULTILINE | re.DOTALL)
_DEFINE = re.compile(r"\s*#\s*define\s+(\w+)(?:\([^)]*\))?")
_CLOSING = {"(": ")", "[": "]", "{": "}"}
_SKIPPED_CALLS = ("static_assert", "__attribute__")
_CONTROLS = ("if", "for", "while", "switch", "catch")
_TYPES = ("class", "struct", "union", "enum")


class Token:
    """A piece of the source: its kind, its text, where it is, and
    scope  the function, class or macro around it, an empty text outside of all;
    body   whether it is inside a function's body;
    opens  whether a statement begins with it;
    match  for a bracket, the index of its counterpart."""

    def __init__(self, kind, text, start):
        self.kind, self.text, self.start, self.end = kind, text, start, start + len(text)
        self.scope, self.body, self.opens, self.match = "", False, False, None


def tokenize(text):
    """The tokens of a source and those of its macros' bodies, as two lists. Comments, other directives, static
    assertions and attributes are in neither."""
    code, macros = [], []
    for found in _TOKEN.finditer(text):
        kind = found.lastgroup
        if kind == "directive":
            macros += _macro(found[0], found.start())
        elif kind != "comment":
            code.append(Token(kind, found[0], found.start()))
    _match(code)
    code = _without_skipped(code)
    _match(code)
    _match(macros)
    _place(code)
    return code, macros


def _macro(directive, start):
    """The tokens of what a macro stands for."""
    define = _DEFINE.match(directive)
    if not define:
        return []
    tokens = [Token(found.lastgroup, found[0], start + found.start())
              for found in _TOKEN.finditer(directive, define.end()) if found[0] != "\\"]
    for token in tokens:
        token.scope = define[1]
    return tokens


def _match(tokens):
    """Notes for each bracket where its counterpart is."""
    opened = []
    for index, token in enumerate(tokens):
        if token.kind != "op":
            continue
        if token.text in _CLOSING:
            opened.append(index)
        elif opened and token.text == _CLOSING[tokens[opened[-1]].text]:
            token.match = opened.pop()
            tokens[token.match].match = index


def _without_skipped(tokens):
    kept, index = [], 0
    while index < len(tokens):
        if tokens[index].text in _SKIPPED_CALLS:
            index = tokens[index + 1].match + 1
        elif tokens[index].text == "extern" and tokens[index + 1].kind == "string":
            index += 2
        else:
            kept.append(tokens[index])
            index += 1
    return kept


def _place(tokens):
    """Sets scope, body and opens of each token."""
    scopes = [("", False)]
    begin = 0    # of the declaration that has not ended yet
    for index, token in enumerate(tokens):
        if token.text == "}" and token.kind == "op" and len(scopes) > 1:
            scopes.pop()
        token.scope, token.body = scopes[-1]
        token.opens = token.body and _follows_statement(tokens, index)
        if token.kind != "op":
            continue
        if token.text == "{":
            scopes.append(scopes[-1] if token.body else _scope(tokens[begin:index], scopes[-1]))
        if token.text in ("{", "}", ";") or (token.text == ":" and tokens[index - 1].text in ("public", "private",
                                                                                           "protected")):
            begin = index + 1


def _scope(header, outer):
    """The name of what a brace opens after a header, and whether it is a function's body."""
    texts = [token.text for token in header]
    if "namespace" in texts:
        return outer
    if "(" in texts and texts[-1] in (")", "const", "noexcept", "override"):
        last = texts.index("(")
        if last and texts[last - 1] == "operator":
            last += 2
        first = last
        while first and (texts[first - 1] in ("::", "~", "operator", "(", ")") or
                         (header[first - 1].kind == "word" and (first == last or texts[first] in ("::", "(", "~")))):
            first -= 1
        return "".join(texts[first:last]).replace("operatorbool", "operator bool"), True
    if any(word in texts for word in _TYPES):
        end = texts.index(":") if ":" in texts else len(texts)
        return texts[end - 1], False
    names = [token.text for token in header if token.kind == "word"]
    return (names[-1] if names else outer[0]), False


def _follows_statement(tokens, index):
    """Whether a statement may begin at a token of a body."""
    before = tokens[index - 1]
    if before.text in ("{", "}", ";", "else", "do"):
        return True
    if before.text == ")" and before.match is not None:
        control = tokens[before.match - 1].text
        return control in _CONTROLS
    return before.text == ":" and any(token.text in ("case", "default") for token in tokens[max(index - 5, 0):index])
