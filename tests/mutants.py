# SPDX-License-Identifier: MIT
"""The small changes of a C++ source that a test should notice. Each changes one token, takes out one call, or
empties one value."""
import dataclasses
import re

# What is never changed: comments, preprocessor lines, literals; includes, names of types and assertions at compile time.
SKIPPED = re.compile(
    r"""//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*(?:\\\n[^\n]*)*"""
    r"""|R"(\w*)\(.*?\)\1"|"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)+'|\bstatic_assert\b[^;]*;|\[\[\w+\]\]"""
    r"""|\btemplate\s*<[^>]*>|\boperator\S+|= (?:default|delete|0);""", re.DOTALL | re.MULTILINE)
# Blanks around an operator: the formatter puts none into the brackets of a template.
OPERATORS = {
    " == ": [" != "], " != ": [" == "], " < ": [" <= ", " >= "], " <= ": [" < ", " > "], " > ": [" >= ", " <= "],
    " >= ": [" > ", " < "], " && ": [" || "], " || ": [" && "], " + ": [" - "], " - ": [" + "], " * ": [" / "],
    " | ": [" & "], " += ": [" -= "], " -= ": [" += "],
}
TOKENS = re.compile(
    r"(?P<operator>" + "|".join(re.escape(text) for text in sorted(OPERATORS, key=len, reverse=True)) + r")"
    r"|(?P<number>(?<![\w.'])(?:0x[0-9A-Fa-f']+|\d[\d']*)(?=[^\w.'\"]))"
    r"|(?P<bool>\b(?:true|false)\b)|(?P<not>(?<=[(\s,])!(?=[\w(]))|(?P<step>\+\+|--)"
    r"|(?P<leave>\b(?:break|continue);)")
CALL = re.compile(r"^[ \t]+(?:[A-Za-z_][\w:]*(?:\(\))?(?:\.|->))*[A-Za-z_][\w:]*\((?:[^;{}])*\);$", re.MULTILINE)
# `return X;` and `x = X;` give the empty value of their type instead; `auto` has none.
VALUE = re.compile(
    r"(?:\breturn |^(?![^\n]*\bauto\b)[ \t]*(?!(?:return|using)\b)[A-Za-z_][\w:<>,&*.\[\] ]* = )"
    r"(?P<value>[^;{}]+);", re.MULTILINE)
# Empty already, or changed as a number or a bool.
NO_VALUES = re.compile(r"\s*(?:true|false|nullptr|std::nullopt|std::string\(\)|\"\"|(?:0x)?[\d.'a-fA-F]+)\s*")
NO_CALLS = re.compile(r"\s*(?:return|throw|delete|case|else|co_\w+)\b|[^(]*\bstatic_cast\b")


@dataclasses.dataclass(frozen=True)
class Mutant:
    """A source with one change: `old` at `offset` is replaced by `new`."""
    offset: int
    line: int  # from 1
    context: str  # the line as it was, without the blanks around it
    old: str
    new: str

    def apply(self, source):
        assert source.startswith(self.old, self.offset)
        return source[:self.offset] + self.new + source[self.offset + len(self.old):]

    def __str__(self):
        return f"{self.line}: {self.context}: `{self.old.strip()}` -> `{self.new.strip() or 'nothing'}`"


def blank(source):
    """The source with blanks for what is never changed, so that offsets stay."""
    return SKIPPED.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), source)


def value_of(number):
    digits = number.replace("'", "")
    return int(digits, 8 if re.fullmatch(r"0\d+", digits) else 0)


def replacements(match):
    text = match[0]
    match match.lastgroup:
        case "operator": return OPERATORS[text]
        case "number": return [str(value_of(text) + 1)]
        case "bool": return ["false" if text == "true" else "true"]
        case "not": return [""]
        case "step": return ["--" if text == "++" else "++"]
        case "leave": return [";"]


def mutants(source):
    """All mutants of a C++ source, from its top to its end."""
    code = blank(source)
    found = []

    def add(offset, length, new):
        begin = source.rfind("\n", 0, offset) + 1
        end = source.find("\n", offset)
        context = source[begin:end if end >= 0 else len(source)].strip()
        found.append(Mutant(offset, source.count("\n", 0, offset) + 1, context, source[offset:offset + length], new))

    for match in TOKENS.finditer(code):
        for new in replacements(match):
            add(match.start(), len(match[0]), new)
    for match in CALL.finditer(code):
        if not NO_CALLS.match(match[0]):
            indent = len(match[0]) - len(match[0].lstrip())
            add(match.start() + indent, len(match[0]) - indent, ";")
    for match in VALUE.finditer(code):
        begin, end = match.span("value")
        if not NO_VALUES.fullmatch(source, begin, end):
            add(begin, end - begin, "{}")
    return sorted(found, key=lambda mutant: (mutant.offset, mutant.new))
