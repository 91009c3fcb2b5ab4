# SPDX-License-Identifier: Apache-2.0
"""C++ text as tokens: enough of the language to tell code from comments, operators from types."""
import re
from dataclasses import dataclass

_TOKENS = re.compile(
    r"""(?P<blank>\s+|\\\n)
      | (?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>^[ \t]*\#(?:\\.|[^\n\\])*)
      | (?P<text>(?:u8|[uUL])?R"(?P<fence>[^\s()\\]*)\(.*?\)(?P=fence)"
              | (?:u8|[uUL])?"(?:\\.|[^"\\\n])*"
              | (?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
      | (?P<number>\.?\d(?:[eEpP][+-]|'?[\w.])*)
      | (?P<name>[A-Za-z_]\w*)
      | (?P<mark><=>|->\*|\.\.\.|<<=|>>=|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
_SILENT = ("blank", "comment", "directive")
_PAIRS = {"(": ")", "[": "]", "{": "}"}


@dataclass(frozen=True)
class Token:
    kind: str  # text, number, name or mark
    text: str
    start: int
    end: int


class Source:
    """One file: its text, the tokens of its code, and which bracket belongs to which."""

    def __init__(self, text):
        self.text = text
        self.tokens = [
            Token(match.lastgroup, match.group(), match.start(), match.end())
            for match in _TOKENS.finditer(text)
            if match.lastgroup not in _SILENT
        ]
        self.partner = self._partners()

    def _partners(self):
        partner, stack = {}, []
        for index, token in enumerate(self.tokens):
            if token.kind != "mark":
                continue
            if token.text in _PAIRS:
                stack.append(index)
            elif token.text in _PAIRS.values() and stack:
                opener = stack.pop()
                partner[opener], partner[index] = index, opener
        return partner

    def is_(self, index, *texts):
        """Whether the token at `index` is code of one of these texts; never in a string."""
        return (0 <= index < len(self.tokens) and self.tokens[index].kind != "text"
                and self.tokens[index].text in texts)

    def is_name(self, index):
        return 0 <= index < len(self.tokens) and self.tokens[index].kind == "name"

    def stands_between_blanks(self, index):
        """How clang-format sets an operator with two sides, and nothing of a type or template."""
        token = self.tokens[index]
        return (self.text[token.start - 1:token.start].isspace()
                and self.text[token.end:token.end + 1].isspace())

    def slice(self, first, last):
        """The text from the token `first` up to and with the token `last`."""
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def line_of(self, position):
        return self.text.count("\n", 0, position) + 1

    def line_text(self, position):
        start = self.text.rfind("\n", 0, position) + 1
        end = self.text.find("\n", position)
        return self.text[start:end if end >= 0 else None].strip()
