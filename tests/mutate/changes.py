"""Small changes of the product's source: where they are possible, and a seeded choice of them."""

import dataclasses
import random
import re

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      |(?P<raw>R"\(.*?\)")
      |(?P<text>"(?:\\.|[^"\\\n])*")
      |(?P<char>'(?:\\.|[^'\\\n])+')
      |(?P<directive>^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*)
      |(?P<number>0[xX][0-9a-fA-F']+[uUlL]*|\d[\d']*(?:\.\d+)?[uUlLfF]*)
      |(?P<name>[A-Za-z_]\w*)
      |(?P<op><<=|>>=|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[-+*/%&|^~!<>=?:;,.(){}\[\]])
    """,
    re.VERBOSE | re.MULTILINE | re.DOTALL,
)

OTHER_OPERATORS = {
    "==": ["!="],
    "!=": ["=="],
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "&&": ["||"],
    "||": ["&&"],
    "+": ["-"],
    "-": ["+"],
    "*": ["+"],
    "/": ["*"],
    "%": ["/"],
    "&": ["|"],
    "|": ["&"],
    "^": ["|"],
    "<<": [">>"],
    ">>": ["<<"],
    "+=": ["-="],
    "-=": ["+="],
    "|=": ["&="],
    "&=": ["|="],
    "^=": ["|="],
}
OTHER_WIDTHS = {
    "int8_t": ["int16_t"],
    "uint8_t": ["uint16_t", "int8_t"],
    "int16_t": ["int8_t", "uint16_t"],
    "uint16_t": ["uint8_t", "int16_t"],
    "int32_t": ["int16_t", "uint32_t"],
    "uint32_t": ["uint16_t", "int32_t"],
    "int64_t": ["int32_t"],
}
BEFORE_A_BLOCK = {")", "else", "do", "try", "const", "noexcept"}
NO_EXPRESSION = set(
    "const constexpr static auto using return break continue goto typedef struct class enum union extern "
    "throw delete template case default int unsigned signed long short char bool float double void "
    "static_assert namespace public private protected if for while switch do else".split()
)


@dataclasses.dataclass(frozen=True)
class Change:
    """One change: what stands at [start, end) of the file becomes `new`."""

    path: str
    line: int
    kind: str
    start: int
    end: int
    old: str
    new: str

    def apply(self, source):
        return source[: self.start] + self.new + source[self.end :]

    def told(self):
        def short(text):
            text = " ".join(text.split())
            return text if len(text) <= 70 else text[:67] + "..."

        return f"{self.path}:{self.line}: {self.kind}: {short(self.old)}  ->  {short(self.new)}"


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int


class Source:
    """A file's tokens, and the changes that its text allows."""

    def __init__(self, path, source):
        self.path = path
        self.source = source
        self.tokens = [
            Token(match.lastgroup, match.group(), match.start(), match.end())
            for match in TOKEN.finditer(source)
            if match.lastgroup not in ("comment", "directive")
        ]
        self.partner = self._partners()
        self.found = []

    def _partners(self):
        """Where each bracket's other half stands."""
        partner, open_ones = {}, []
        for index, token in enumerate(self.tokens):
            if token.kind != "op":
                continue
            if token.text in "({[":
                open_ones.append(index)
            elif token.text in ")}]" and open_ones:
                first = open_ones.pop()
                partner[first], partner[index] = index, first
        return partner

    def text(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def span(self, first, last):
        """The source from the first token to the last one, both included."""
        return self.source[self.tokens[first].start : self.tokens[last].end]

    def add(self, kind, first, last, new):
        start, end = self.tokens[first].start, self.tokens[last].end
        old = self.source[start:end]
        line = self.source.count("\n", 0, start) + 1
        if new != old:
            self.found.append(Change(self.path, line, kind, start, end, old, new))

    # ---- single tokens -----------------------------------------------------------

    def _spaced(self, index):
        token = self.tokens[index]
        before, behind = self.source[token.start - 1 : token.start], self.source[token.end : token.end + 1]
        return before.isspace() and behind.isspace()

    def _operator(self, index):
        token = self.tokens[index]
        if self.text(index - 1) == "operator":
            return
        if token.text in ("++", "--"):
            self.add("operator", index, index, "--" if token.text == "++" else "++")
        elif token.text in ("!", "~") and not self._spaced(index):
            self.add("operator", index, index, "")
        elif token.text in OTHER_OPERATORS and self._spaced(index):
            for other in OTHER_OPERATORS[token.text]:
                self.add("operator", index, index, other)

    def _number(self, index):
        text = self.tokens[index].text.replace("'", "")
        digits = text.rstrip("uUlL") if text[:2].lower() == "0x" else text.rstrip("uUlLfF")
        suffix = text[len(digits) :]
        if "." in digits:
            self.add("constant", index, index, f"{float(digits) + 1.0}{suffix}")
        elif digits[:2].lower() == "0x":
            width = 4 * (len(digits) - 2)
            for bit in {0, width // 2, width - 1}:
                self.add("constant", index, index, f"0x{int(digits, 16) ^ (1 << bit):X}{suffix}")
        else:
            value = int(digits)
            for other in {value + 1, abs(value - 1)}:
                self.add("constant", index, index, f"{other}{suffix}")

    def _words(self, index):
        """Another letter, a letter less, a line end more or less."""
        inner = self.tokens[index].text[1:-1]
        if self.text(index - 1) == "extern":
            return
        letters = [at for at, char in enumerate(inner) if char.isalpha() and inner[at - 1 : at] not in ("\\", "%")]
        if letters:
            at = letters[len(letters) // 2]
            self.add("text", index, index, f'"{inner[:at]}{inner[at].swapcase()}{inner[at + 1:]}"')
            self.add("text", index, index, f'"{inner[:at]}{inner[at + 1:]}"')
        self.add("text", index, index, f'"{inner[:-2]}"' if inner.endswith("\\n") else f'"{inner}\\n"')

    def _name(self, index):
        text = self.tokens[index].text
        if text in ("true", "false"):
            self.add("constant", index, index, "false" if text == "true" else "true")
        for other in OTHER_WIDTHS.get(text, []):
            self.add("width", index, index, other)
        if text in ("if", "while") and self.text(index + 1) == "(":
            close = self.partner.get(index + 1)
            semicolons = [at for at in range(index + 2, close or 0) if self.text(at) == ";"]
            first = semicolons[-1] + 1 if semicolons else index + 2
            if close and first < close:
                self.add("condition", first, close - 1, f"!({self.span(first, close - 1)})")
        if text in ("break", "continue") and self.text(index + 1) == ";":
            self.add("dropped", index, index + 1, ";")

    # ---- lists -------------------------------------------------------------------

    def _parts(self, first):
        """The parts between the commas of a bracket, as (first, last) tokens."""
        parts, begin, at, close = [], first + 1, first + 1, self.partner[first]
        while at < close:
            if self.text(at) in ("(", "{", "["):
                at = self.partner.get(at, at)
            elif self.text(at) == ",":
                parts.append((begin, at - 1))
                begin = at + 1
            at += 1
        if begin < close:
            parts.append((begin, close - 1))
        return [part for part in parts if part[0] <= part[1]]

    def _exchange(self, kind, one, other):
        between = self.source[self.tokens[one[1]].end : self.tokens[other[0]].start]
        self.add(kind, one[0], other[1], self.span(*other) + between + self.span(*one))

    def _parameters(self, parts):
        """True for the parameters of a function, false for the arguments of a call."""
        return any(self.text(one[0]) == "const" or self._declares(*one) for one in parts)

    def _list(self, first):
        parts = self._parts(first)
        call = self.text(first) == "(" and self.tokens[first - 1].kind == "name"
        rows = self.text(first) == "{" and all(self.text(part[0]) == "{" for part in parts)
        if not (call or rows):
            return
        if call and (self.text(first - 1) in NO_EXPRESSION or self._parameters(parts)):
            return
        for one, other in zip(parts, parts[1:]):
            self._exchange("arguments" if call else "rows", one, other)

    # ---- statements --------------------------------------------------------------

    def _is_block(self, index):
        before = self.text(index - 1)
        if before in BEFORE_A_BLOCK or before in (";", "}", "{", ":"):
            return before in BEFORE_A_BLOCK or before != "{"
        return False

    def _declares(self, first, last):
        at = first
        if self.tokens[at].kind != "name":
            return False
        while self.tokens[at].kind == "name" and self.text(at + 1) == "::":
            at += 2
        at += 1
        if self.text(at) == "<":
            depth = 0
            while at < last:
                depth += {"<": 1, ">": -1, ">>": -2}.get(self.text(at), 0)
                at += 1
                if depth <= 0:
                    break
        while self.text(at) in ("*", "&", "const"):
            at += 1
        return at <= last and self.tokens[at].kind == "name"

    def _statement_end(self, index):
        while index < len(self.tokens) and self.text(index) != ";":
            if self.text(index) in ("(", "{", "["):
                index = self.partner.get(index, index)
            index += 1
        return index

    def _block(self, first, last):
        """The statements between two tokens; those that are expressions, in runs of neighbours."""
        run, at, governed = [], first, False  # governed: by an if, a loop or an else
        while at <= last:
            text = self.text(at)
            if text == "{":
                run, governed = [], False
                at = self.partner.get(at, last) + 1
            elif text in ("if", "for", "while", "switch"):
                run, governed = [], True
                at += 1
                while self.text(at) != "(" and at < last:
                    at += 1
                at = self.partner.get(at, last) + 1
            elif text in ("else", "do", ";"):
                run, governed = [], text != ";"
                at += 1
            elif text in ("case", "default"):
                run = []
                while self.text(at) != ":" and at < last:
                    at += 1
                at += 1
            else:
                end = self._statement_end(at)
                if end > last:
                    return
                expression = (
                    self.tokens[at].kind == "name" or text in ("++", "--", "*", "(")
                ) and text not in NO_EXPRESSION
                if expression and not self._declares(at, end - 1):
                    self.add("dropped", at, end, ";")
                    calls = "(" in self.span(at, end)
                    if run and (calls or run[-1][2]):
                        self._exchange("order", run[-1][:2], (at, end))
                    run = [] if governed else [(at, end, calls)]
                else:
                    run = []
                governed = False
                at = end + 1

    def changes(self):
        """All changes that the file allows, in order of their places."""
        inside_assert = set()
        for index, token in enumerate(self.tokens):
            if token.text == "static_assert":
                inside_assert.update(range(index, self.partner.get(index + 1, index) + 1))
        for index, token in enumerate(self.tokens):
            if index in inside_assert:
                continue
            if token.kind == "number":
                self._number(index)
            elif token.kind == "text":
                self._words(index)
            elif token.kind == "name":
                self._name(index)
            elif token.kind == "op":
                self._operator(index)
                if token.text in ("(", "{") and index in self.partner:
                    self._list(index)
                if token.text == "{" and index in self.partner and self._is_block(index):
                    self._block(index + 1, self.partner[index] - 1)
        return sorted(self.found, key=lambda one: (one.start, one.end, one.kind, one.new))


def changes_of(path, source):
    return Source(path, source).changes()


def shares(sizes, count):
    """How many of `count` fall to each folder: by size, and one at least to each."""
    whole = sum(sizes.values())
    exact = {folder: count * size / whole for folder, size in sizes.items()}
    share = {folder: max(1, int(part)) for folder, part in exact.items()}
    left = sorted(exact, key=lambda folder: (int(exact[folder]) - exact[folder], folder))
    while sum(share.values()) < count:
        share[left[0]] += 1
        left.append(left.pop(0))
    return share


def draws(sources, seed, kinds=None):
    """For each folder all of its changes in a random order, the kinds in turn.

    sources: {folder: {path: text}}; kinds: these alone. Gives {folder: iterator of
    Change}, the same for the same seed and sources.
    """

    def order(folder, files):
        chance = random.Random(f"{seed} {folder}")
        by_kind = {}
        for path in sorted(files):
            for change in changes_of(path, files[path]):
                if kinds is None or change.kind in kinds:
                    by_kind.setdefault(change.kind, []).append(change)
        for kind in sorted(by_kind):
            chance.shuffle(by_kind[kind])
        while by_kind:
            in_turn = sorted(by_kind)
            chance.shuffle(in_turn)
            for kind in in_turn:
                yield by_kind[kind].pop()
                if not by_kind[kind]:
                    del by_kind[kind]

    return {folder: order(folder, files) for folder, files in sorted(sources.items())}
