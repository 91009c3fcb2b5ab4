# SPDX-License-Identifier: Apache-2.0
"""What can be changed in a file: one operator, constant or statement at a time."""
import re
from dataclasses import dataclass

from mutation.source import Source

OPERATORS = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
    "==": ("!=",), "!=": ("==",),
    "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",),
    "+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "/=": ("*=",), "%=": ("*=",),
    "&&": ("||",), "||": ("&&",), "&": ("|",), "|": ("&",), "^": ("&",),
    "<<": (">>",), ">>": ("<<",), "|=": ("&=",), "&=": ("|=",),
}
NAMES = {"true": "false", "false": "true", "min": "max", "max": "min"}
ASSIGNMENTS = ("=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>=")
EXITS = ("return", "break", "continue")
NOT_EXPRESSIONS = EXITS + (
    "goto", "throw", "delete", "using", "typedef", "static_assert", "case", "default", "co_return",
    "class", "struct", "union", "enum", "namespace", "template", "friend", "extern", "static",
    "const", "constexpr", "auto", "asm", "public", "private", "protected", "new")
SCOPES = ("class", "struct", "union", "enum", "namespace", "extern")
SHORT = 60


@dataclass(frozen=True)
class Change:
    """Puts `replacement` in the place of the text from `start` to `end`."""
    file: str
    line: int
    function: str  # in which it is, without its class; empty: in none
    code: str  # the line as it stands, without the blanks around it
    what: str
    start: int
    end: int
    replacement: str

    def applied_to(self, text):
        return text[:self.start] + self.replacement + text[self.end:]


def changes_of(file, text):
    """All changes of a file, in the order of its text."""
    finder = _Finder(file, Source(text))
    return finder.all()


def _shown(text):
    text = " ".join(text.split())
    return text if len(text) <= SHORT else text[:SHORT - 2] + " …"


class _Finder:
    def __init__(self, file, source):
        self.file = file
        self.source = source
        self.found = []
        self.silent = self._silent_tokens()
        self.functions = self._functions()

    def all(self):
        for index, token in enumerate(self.source.tokens):
            if index in self.silent:
                continue
            if token.kind == "mark":
                self._operator(index, token)
            elif token.kind == "number":
                self._number(index, token)
            elif token.kind == "name":
                self._name(index, token)
            if self.source.is_(index, "{") and self._opens_a_block(index):
                self._statements(index)
        return sorted(set(self.found), key=lambda change: (change.start, change.end, change.what))

    def _add(self, start, end, replacement, what):
        self.found.append(Change(
            self.file, self.source.line_of(start), self._function_at(start),
            self.source.line_text(start), what, start, end, replacement))

    def _replace(self, token, replacement):
        self._add(token.start, token.end, replacement, f"`{token.text}` becomes `{replacement}`")

    # Where functions begin and end.
    def _functions(self):
        """First and last position and name of each block that is in no other one."""
        found, end = [], -1
        for index, token in enumerate(self.source.tokens):
            if index > end and self.source.is_(index, "{") and self._opens_a_block(index):
                end = self.source.partner.get(index, index)
                head = self._head_of(index)
                found.append((self.source.tokens[head].start, self.source.tokens[end].end,
                              self._name_in_head(head, index)))
        return found

    def _head_of(self, index):
        index = self._begin_of_initialisers(index - 1) or index
        while index > 0 and not self.source.is_(index - 1, ";", "{", "}"):
            index = self.source.partner.get(index - 1, index - 1)
            if self.source.is_(index, "{"):
                index += 1
                break
        return index

    def _name_in_head(self, first, last):
        for index in range(first, last):
            if self.source.is_(index, "(") and self.source.is_name(index - 1):
                return self.source.tokens[index - 1].text
        return ""

    def _function_at(self, position):
        return next((name for start, end, name in self.functions if start <= position < end), "")

    # What is not code that runs: attributes, template parameters, assertions of the compiler.
    def _silent_tokens(self):
        source, silent = self.source, set()
        for index, token in enumerate(source.tokens):
            end = None
            if source.is_(index, "static_assert") and source.is_(index + 1, "("):
                end = source.partner.get(index + 1)
            elif source.is_(index, "[") and source.is_(index + 1, "["):
                end = source.partner.get(index)
            elif source.is_(index, "template") and source.is_(index + 1, "<"):
                end = self._end_of_template(index + 1)
            elif source.is_(index, "operator"):
                end = index + 1
            elif token.text == "=" and self._is_pure(index):
                end = index + 1
            if end is not None:
                silent.update(range(index, end + 1))
        return silent

    def _end_of_template(self, index):
        depth = 0
        while index < len(self.source.tokens):
            text = self.source.tokens[index].text
            depth += {"<": 1, ">": -1, ">>": -2}.get(text, 0)
            if depth <= 0:
                return index
            index = self.source.partner.get(index, index) + 1 if text in "([{" else index + 1
        return None

    def _is_pure(self, index):
        source = self.source
        if not (source.is_(index + 1, "0") and source.is_(index + 2, ";")):
            return False
        before = index - 1
        while source.is_(before, "const", "noexcept", "override", "final"):
            before -= 1
        return source.is_(before, ")")

    # Operators and constants.
    def _operator(self, index, token):
        if token.text in ("++", "--"):
            self._replace(token, "--" if token.text == "++" else "++")
        elif token.text == "!":
            self._add(token.start, token.end, "", "`!` is left out")
        elif token.text == "?":
            self._choice(index)
        elif token.text in OPERATORS and self.source.stands_between_blanks(index):
            for other in OPERATORS[token.text]:
                self._replace(token, other)

    def _choice(self, index):
        """`condition ? a : b` takes the other of the two."""
        source, first = self.source, index
        while first > 0:
            before = first - 1
            if source.is_(before, ")", "]", "}"):
                first = source.partner.get(before, before)
            elif source.tokens[before].kind == "mark" and source.is_(
                    before, "(", "[", "{", ",", ";", "?", ":", *ASSIGNMENTS):
                break
            elif source.is_(before, "return"):
                break
            else:
                first = before
        if self._is_one_operator(first, index, list(self._at_depth_zero(first, index))):
            return
        condition = source.slice(first, index - 1)
        start, end = source.tokens[first].start, source.tokens[index - 1].end
        self._add(start, end, f"!({condition})", f"`{_shown(condition)} ?` is negated")

    def _number(self, index, token):
        plain = re.sub(r"(?i)(?<=[\d.])(u?l{0,2}u?|f|z|uz)$", "", token.text.replace("'", ""))
        suffix = token.text[len(token.text.rstrip("uUlLfFzZ")):] if plain != token.text else ""
        if plain in ("0", "1", "0.0"):
            other = {"0": "1", "1": "0", "0.0": "1.0"}[plain] + suffix
        elif re.fullmatch(r"\d", plain):
            other = str(int(plain) + 1) + suffix
        else:
            other = f"(2 * {token.text})"
        self._replace(token, other)

    def _name(self, index, token):
        source = self.source
        if token.text in ("true", "false"):
            self._replace(token, NAMES[token.text])
        elif token.text in ("min", "max") and source.is_(index - 1, "::"):
            self._replace(token, NAMES[token.text])
        elif token.text == "if":
            self._condition(index)

    def _condition(self, index):
        source = self.source
        opener = index + 2 if source.is_(index + 1, "constexpr") else index + 1
        if not source.is_(opener, "(") or source.is_(index + 1, "constexpr"):
            return
        closer = source.partner[opener]
        first = opener + 1
        depth_zero = list(self._at_depth_zero(opener + 1, closer))
        for at in depth_zero:
            if source.is_(at, ";"):
                first = at + 1
        declared = [at for at in depth_zero if at >= first and source.is_(at, "=")]
        start, end = source.tokens[first].start, source.tokens[closer - 1].end
        what = f"`if ({_shown(source.text[start:end])})` is negated"
        if declared:
            name = source.tokens[declared[0] - 1].text
            self._add(end, end, f"; !{name}", what)
        elif not self._is_one_operator(first, closer, depth_zero):
            self._add(start, end, f"!({source.text[start:end]})", what)

    def _is_one_operator(self, first, closer, depth_zero):
        """Whether a change of its only operator negates the condition already."""
        marks = [at for at in depth_zero if at >= first and self.source.tokens[at].kind == "mark"]
        if any(self.source.is_(at, "&&", "||", "?") for at in marks):
            return False
        return self.source.is_(first, "!") or any(self._is_relation(at) for at in marks)

    def _is_relation(self, index):
        return (self.source.is_(index, "==", "!=", "<", "<=", ">", ">=")
                and self.source.stands_between_blanks(index))

    def _at_depth_zero(self, first, last):
        index = first
        while index < last:
            yield index
            opens = self.source.is_(index, "(", "[", "{")
            index = self.source.partner.get(index, index) + 1 if opens else index + 1

    # Statements.
    def _opens_a_block(self, index):
        """Whether the brace opens statements rather than a class or a list of values."""
        source, before = self.source, index - 1
        while source.is_(before, "const", "noexcept", "override", "final", "mutable"):
            before -= 1
        if source.is_(before, "else", "do", "try", ";", "]", ":"):
            return True
        if source.is_(before, ")"):
            return not self._head_is_a_scope(index)
        if source.is_(before, "{", "}"):
            # After a block or at the begin of one: a block within; after an initialiser: a body.
            return bool(self._begin_of_initialisers(before)) or self._is_within_a_block(index)
        return self._follows_a_result_type(before)

    def _head_is_a_scope(self, index):
        source, before = self.source, index - 1
        while before >= 0 and not source.is_(before, ";", "{", "}"):
            if source.is_(before, ")", "]"):
                before = source.partner.get(before, before)
            elif source.is_(before, *SCOPES):
                return True
            before -= 1
        return False

    def _is_within_a_block(self, index):
        depth = 0
        for before in range(index - 1, -1, -1):
            if self.source.is_(before, "}"):
                depth += 1
            elif self.source.is_(before, "{"):
                if depth == 0:
                    return self._opens_a_block(before)
                depth -= 1
        return False

    def _begin_of_initialisers(self, closer):
        """Where the colon is in `: a_{1}, b_{2} {`, if the brace at `closer` ends such a list."""
        source = self.source
        if not source.is_(closer, "}"):
            return None
        at = source.partner.get(closer, 0)
        while source.is_(at, "{", "(") and source.is_name(at - 1):
            at -= 2
            if source.is_(at, ":"):
                return at if source.is_(at - 1, ")") else None
            if not source.is_(at, ","):
                return None
            at = source.partner.get(at - 1, 0)
        return None

    def _follows_a_result_type(self, before):
        source = self.source
        while source.is_name(before) or source.is_(before, "::", "<", ">", ">>", ",", "*", "&"):
            before -= 1
        return (source.is_(before, "->")
                and source.is_(before - 1, ")", "const", "mutable", "noexcept"))

    def _statements(self, opener):
        closer = self.source.partner.get(opener)
        if closer is None:
            return
        index, guarded = opener + 1, self._is_guarded(opener)
        while index < closer:
            index = self._statement(index, closer, guarded)

    def _is_guarded(self, opener):
        """Whether what stands in the block is run under a condition."""
        source = self.source
        if source.is_(opener - 1, "else"):
            return True
        if not source.is_(opener - 1, ")"):
            return False
        before = source.partner.get(opener - 1, 0) - 1
        if source.is_(before, "constexpr"):
            before -= 1
        return source.is_(before, "if", "for", "while")

    def _statement(self, index, closer, guarded):
        """Looks at the statement that begins at `index`; where the next one begins."""
        source = self.source
        if source.is_(index, "{"):
            return source.partner[index] + 1
        if source.is_(index, "if", "for", "while", "switch"):
            opener = index + 2 if source.is_(index + 1, "constexpr") else index + 1
            after = source.partner.get(opener, closer) + 1
            return after if source.is_(after, "{") else self._statement(after, closer, True)
        if source.is_(index, "else"):
            return index + 1 if source.is_(index + 1, "{", "if") else self._statement(
                index + 1, closer, True)
        if source.is_(index, "do", "try"):
            return index + 1
        if source.is_(index, "case", "default"):
            while index < closer and not source.is_(index, ":"):
                index += 1
            return index + 1
        end = next((at for at in self._at_depth_zero(index, closer) if source.is_(at, ";")), closer)
        if end < closer and end > index and index not in self.silent:
            self._removal(index, end, guarded)
        return end + 1

    def _removal(self, first, end, guarded):
        source = self.source
        is_exit = guarded and source.is_(first, *EXITS)
        if is_exit or self._is_call_or_assignment(first, end):
            text = source.slice(first, end)
            # An empty statement stays, for an `if` or `else` that has no other.
            self._add(source.tokens[first].start, source.tokens[end].end, ";",
                      f"`{_shown(text)}` is left out")

    def _is_call_or_assignment(self, first, end):
        source = self.source
        if source.is_(first, *NOT_EXPRESSIONS):
            return False
        at = first
        while source.is_(at, "*", "++", "--"):
            at += 1
        changes = at > first and source.is_(at - 1, "++", "--")
        while at < end:
            if source.is_(at, *ASSIGNMENTS):
                return True
            if source.is_(at, "(", "["):
                changes = source.is_(at, "(") or changes
                at = source.partner[at] + 1
            elif source.is_(at, "<"):
                at = (self._end_of_template(at) or end) + 1
            elif source.is_(at, "++", "--"):
                changes = True
                at += 1
            elif source.is_(at, ".", "->", "::"):
                at += 1
            elif source.is_name(at) and not source.is_name(at - 1 if at > first else -1):
                at += 1
            else:
                return False  # two names in a row, or a type: a declaration
        return changes
