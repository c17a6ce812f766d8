# SPDX-License-Identifier: Apache-2.0
"""Finds what can be changed in a source: the mutants."""

import hashlib
import re
from collections import Counter, namedtuple

from tokens import tokenize

Mutant = namedtuple("Mutant", "id file line kind start end old new context")

_SWAPPED = {
    "comparison": {"==": ["!="], "!=": ["=="], "<": [">=", "<="], "<=": [">", "<"], ">": ["<=", ">="],
                   ">=": ["<", ">"]},
    "logic": {"&&": ["||"], "||": ["&&"]},
    "arithmetic": {"+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"], "|": ["&"], "&": ["|"]},
}
_UNSPACED = {
    "step": {"++": "--", "--": "++"},
    "assignment": {"+=": "-=", "-=": "+="},
    "negation": {"!": ""},
}
_WORDS = {
    "boolean": {"true": "false", "false": "true"},
    "log level": {"ZEL_LOG_ERROR": "ZEL_LOG_INFO", "ZEL_LOG_INFO": "ZEL_LOG_DEBUG", "ZEL_LOG_DEBUG": "ZEL_LOG_ERROR",
                  "DLOG_ERROR": "DLOG_INFO", "DLOG_INFO": "DLOG_DEBUG", "DLOG_DEBUG": "DLOG_ERROR"},
}
_NO_STATEMENT = {"if", "for", "while", "switch", "do", "try", "catch", "else", "case", "default", "class", "struct",
                 "using", "const", "constexpr", "static", "auto", "enum", "union"}
_LOCKS = {"lock_guard", "unique_lock", "scoped_lock", "shared_lock"}
_ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "|=", "&=", "^="}
_EMPTY = [["true"], ["false"], ["nullptr"], ["0"], ["std", "::", "nullopt"]]
_NUMBER = re.compile(r"(0[xX]|0(?=\d)|)([\da-fA-F']+)([uUlL]*)")


def mutants(file, text):
    """All mutants of a source, in the order of their places."""
    code, macros = tokenize(text)
    found = [*_of_tokens(text, macros), *_of_tokens(text, code), *_of_conditions(text, code),
             *_of_statements(text, code), *_of_ternaries(text, code), *_of_calls(text, code)]
    found.sort(key=lambda change: (change[2], change[3], change[0], change[4]))
    seen = Counter()
    return [_named(file, text, change, seen) for change in found]


def mutated(mutant, text):
    """The source with the mutant's change. The lines behind it keep their numbers, which the log shows."""
    lost = text.count("\n", mutant.start, mutant.end) - mutant.new.count("\n")
    return text[:mutant.start] + mutant.new + "\n" * lost + text[mutant.end:]


def _named(file, text, change, seen):
    """The mutant of a change. Its id depends on its function, its line and which of the equal ones there it is."""
    kind, scope, start, end, new = change
    begin = text.rfind("\n", 0, start) + 1
    stop = text.find("\n", end)
    context = " ".join(text[begin:stop if stop >= 0 else None].split())
    old = " ".join(text[start:end].split())
    key = (file, scope, kind, context, old, new)
    seen[key] += 1
    digest = hashlib.sha256(repr((*key, seen[key])).encode()).hexdigest()[:10]
    name = f"{file.removeprefix('src/')}:{scope or '-'}:{digest}"
    return Mutant(name, file, text.count("\n", 0, start) + 1, kind, start, end, old, new, context)


def _is_spaced(text, token):
    return text[token.start - 1].isspace() and text[token.end].isspace()


def _of_tokens(text, tokens):
    """What changes one token."""
    for token in tokens:
        def change(kind, new, token=token):
            return kind, token.scope, token.start, token.end, new
        if token.kind == "op":
            for kind, table in _SWAPPED.items():
                if token.text in table and _is_spaced(text, token):
                    yield from (change(kind, new) for new in table[token.text])
            yield from (change(kind, table[token.text]) for kind, table in _UNSPACED.items() if token.text in table)
        elif token.kind == "word":
            yield from (change(kind, table[token.text]) for kind, table in _WORDS.items() if token.text in table)
        elif token.kind == "number":
            number = _NUMBER.fullmatch(token.text)
            if number:
                yield change("number", _next(*number.groups()))
        elif token.kind == "char":
            yield change("character", f"({token.text} + 1)")
        elif token.kind == "string":
            yield change("string", token.text[:-1] + 'x"')


def _next(prefix, digits, suffix):
    """The number after one, as it is written."""
    base = {"": 10, "0": 8}.get(prefix, 16)
    value = int(digits.replace("'", ""), base) + 1
    return prefix + format(value, {10: "d", 8: "o", 16: "x"}[base]) + suffix


def _split(tokens, begin, end, separator):
    """The parts of tokens [begin, end) between separators outside of brackets, as pairs of indices."""
    parts, index, first = [], begin, begin
    while index < end:
        if tokens[index].kind == "op" and tokens[index].text in "([{" and tokens[index].match is not None:
            index = tokens[index].match
        elif tokens[index].text == separator:
            parts.append((first, index))
            first = index + 1
        index += 1
    return [*parts, (first, end)]


def _of_conditions(text, tokens):
    """Conditions that always or never hold, loops that do not run."""
    for index, token in enumerate(tokens):
        if token.text not in ("if", "while", "for") or not token.body:
            continue
        bracket = index + 1 + (tokens[index + 1].text == "constexpr")
        close = tokens[bracket].match
        parts = _split(tokens, bracket + 1, close, ";")
        if token.text == "for" and len(parts) == 1:
            brace = tokens[close + 1]
            yield "loop", token.scope, brace.start, brace.end, "{ break;"
            continue
        first, end = parts[1] if token.text == "for" else parts[-1]
        if first < end:
            place = tokens[first].start, tokens[end - 1].end
            yield "condition", token.scope, *place, "false"
            if token.text == "if":
                yield "condition", token.scope, *place, "true"


def _of_statements(text, tokens):
    """Statements that are left out, results that are replaced."""
    for index, token in enumerate(tokens):
        if not token.opens:
            continue
        end = _statement_end(tokens, index)
        if end is None or end == index:
            continue
        statement = tokens[index:end]
        texts = [part.text for part in statement]
        if _is_deletable(statement, texts):
            yield "deletion", token.scope, token.start, tokens[end].end, ";"
        if texts[0] == "return" and len(texts) > 1 and texts[1:] not in _EMPTY:
            yield "return", token.scope, statement[1].start, statement[-1].end, "{}"


def _statement_end(tokens, index):
    """The index of the semicolon that ends a statement; None where it is none."""
    while index < len(tokens):
        token = tokens[index]
        if token.kind == "op":
            if token.text == ";":
                return index
            if token.text in "([{" and token.match is not None:
                index = token.match
            elif token.text in ")]}":
                return None
        index += 1
    return None


def _is_deletable(statement, texts):
    """Whether the statement is a jump, a lock, or an expression; a declaration is needed by what follows it."""
    if not _LOCKS.isdisjoint(texts):
        return True
    if texts[0] in ("return", "break", "continue", "delete"):
        return True
    if texts[0] in _NO_STATEMENT or (statement[0].kind != "word" and texts[0] not in ("++", "--", "*", "(")):
        return False
    index, is_call = 0, False
    while index < len(statement):
        token = statement[index]
        if token.text in _ASSIGNMENTS:
            return True
        if index and token.kind == "word" and statement[index - 1].text not in ("::", ".", "->", "*", "++", "--"):
            return False    # a type and a name
        is_call = token.text == ")" or is_call
        if token.text in ("(", "[", "{"):
            depth = 1
            is_call = token.text == "("
            while depth and index + 1 < len(statement):
                index += 1
                depth += (statement[index].text in ("(", "[", "{")) - (statement[index].text in (")", "]", "}"))
        index += 1
    return is_call or texts[0] in ("++", "--") or texts[-1] in ("++", "--")


def _of_ternaries(text, tokens):
    """The values of a conditional expression, swapped."""
    for index, token in enumerate(tokens):
        if token.text != "?" or token.kind != "op":
            continue
        colon = _arm_end(tokens, index + 1, ":")
        end = _arm_end(tokens, colon + 1, None)
        first = text[tokens[index + 1].start:tokens[colon - 1].end]
        second = text[tokens[colon + 1].start:tokens[end - 1].end]
        middle = text[tokens[colon - 1].end:tokens[colon + 1].start]
        yield "ternary", token.scope, tokens[index + 1].start, tokens[end - 1].end, second + middle + first


def _arm_end(tokens, index, closing):
    """The index behind an arm of a conditional expression: of the colon, or of what ends the expression."""
    nested = 0
    while True:
        token = tokens[index]
        if token.kind == "op":
            if token.text == closing and not nested:
                return index
            nested += (token.text == "?") - (token.text == ":")
            if token.text in "([{":
                index = token.match
            elif token.text in ");],}":
                return index
        index += 1


def _of_calls(text, tokens):
    """Adjacent arguments of a call, swapped."""
    for index, token in enumerate(tokens):
        if (token.text != "(" or token.kind != "op" or not token.body or tokens[index - 1].kind != "word"
                or tokens[index - 1].text in _NO_STATEMENT):
            continue
        arguments = [(tokens[first].start, tokens[end - 1].end)
                     for first, end in _split(tokens, index + 1, token.match, ",") if first < end]
        for (begin, stop), (start, end) in zip(arguments, arguments[1:]):
            first, second = text[begin:stop], text[start:end]
            # A format and its first value, or a priority and what is beside it, do not compile the other way round.
            if first != second and first.endswith('"') == second.endswith('"') and "DLOG_" not in first + second:
                yield "arguments", token.scope, begin, end, second + text[stop:start] + first
