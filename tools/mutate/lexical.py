"""Macro calls, found in the text: the assertions, whose condition is both code and message, and the
trace statements, which are left as they are."""

import re

# Which argument is the condition.
ASSERTIONS = {"UMBRA_ASSERT": 1, "UMBRA_ASSERT_REGION": 1, "UMBRA_ASSERT_IN": 2, "ZINT_ASSERT": 1}
WITH_DETAIL = {"UMBRA_ASSERT_IN"}  # may have another argument behind it
TRACES = {"UMBRA_TRACE", "ZINT_TRACE", "ZINT_TRACE_CONTEXT"}

# What stands in for the assertions where the syntax tree is made: functions whose names are as
# long, so that each place in the tree is the place in the file.
PRELUDE = """
template <class C> constexpr void umbra_assert(int, const C&) {}
template <class R, class C> constexpr void umbra_assert_region(const R&, const C&) {}
template <class C> constexpr void umbra_assert_in(const char*, int, const C&, const char* = "") {}
template <class C> constexpr void zint_assert(const char*, const C&) {}
"""


def directive_spans(text):
    """The preprocessor's lines, with the lines that continue them."""
    return [m.span() for m in re.finditer(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", text, re.M)]


def comment_spans(text):
    pattern = r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|//[^\n]*|/\*.*?\*/'
    return [m.span() for m in re.finditer(pattern, text, re.S) if m.group()[0] == "/"]


def arguments(text, opening):
    """The spans of a call's arguments, and the offset behind its closing parenthesis."""
    spans, depth, begin, i = [], 0, opening + 1, opening
    while True:
        c = text[i]
        if c in "\"'":
            i += 1
            while text[i] != c:
                i += 2 if text[i] == "\\" else 1
        elif c in "([{":
            depth += 1
        elif c in ")]}":
            depth -= 1
            if depth == 0:
                spans.append((begin, i))
                return spans, i + 1
        elif c == "," and depth == 1:
            spans.append((begin, i))
            begin = i + 1
        i += 1


class MacroCall:
    def __init__(self, name, start, end, argument_spans):
        self.name, self.start, self.end, self.arguments = name, start, end, argument_spans


def macro_calls(text):
    names = "|".join(sorted(ASSERTIONS.keys() | TRACES, key=len, reverse=True))
    skipped = directive_spans(text) + comment_spans(text)
    calls = []
    for m in re.finditer(rf"\b({names})\(", text):
        if any(a <= m.start() < b for a, b in skipped):
            continue
        spans, end = arguments(text, m.end() - 1)
        at = ASSERTIONS.get(m.group(1))
        if at and m.group(1) not in WITH_DETAIL:  # further commas are the condition's own
            spans = spans[:at] + [(spans[at][0], spans[-1][1])]
        calls.append(MacroCall(m.group(1), m.start(), end, spans))
    return calls


def parsed_text(text, calls):
    """The text as the syntax tree is made of it: same length, same lines."""
    for call in calls:
        old = text[call.start : call.end]
        if call.name in TRACES:
            new = re.sub(r"[^\n]", " ", old)
        else:
            new = call.name.lower() + old[len(call.name) :]
        text = text[: call.start] + new + text[call.end :]
    return text


def with_text_macros(text):
    """Behind each assertion macro, the same one that is given the condition's text: the text a
    mutant's assertion reports is the one in the source."""

    def doubled(m):
        body = m.group().replace("#condition", "conditionText", 1)
        body = re.sub(r"\bcondition\b", "condition, conditionText", body, count=1)
        name = m.group(1)
        return m.group() + "\n" + body.replace(name + "(", name + "_MUTATED(", 1)

    names = "|".join(ASSERTIONS)
    return re.sub(rf"^#define ({names})\((?:[^\n]*\\\n)*[^\n]*", doubled, text, flags=re.M)


def stringized(condition):
    """A string literal of what the preprocessor makes of #condition."""
    text = re.sub(r"\s+", " ", condition.strip())
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def one_line(text):
    """The same code without its comments and line ends."""
    for begin, end in reversed(comment_spans(text)):
        text = text[:begin] + " " + text[end:]
    return re.sub(r"\s*\n\s*", " ", text)
