"""Finds the places where a mistake can be planted, with the help of the compiler's syntax tree."""

import hashlib
import re
from pathlib import Path

import clang.cindex as cindex

import lexical

ARGUMENTS = ["-x", "c++", "-std=c++20", "-m32", "-msse2", "-w", "-D_FILE_OFFSET_BITS=64", "-I.",
             "-Iruntime", "-include", "build/mutate/prelude.h"]

RELATIONAL = {"<": ["<=", ">"], "<=": ["<", ">="], ">": [">=", "<"], ">=": [">", "<="],
              "==": ["!="], "!=": ["=="]}

# Calls whose whole effect is on the object or the memory they are given.
CONTAINER_WRITES = {"push_back", "emplace_back", "pop_back", "resize", "reserve", "clear", "erase",
                    "append", "swap"}
MEMORY_WRITES = {"memset", "memcpy", "memmove"}


class Mutant:
    """One planted mistake: `mutated` in place of text[start:end] of the file."""

    def __init__(self, operator, file, function, start, end, mutated):
        self.operator, self.file, self.function = operator, file, function
        self.constant = False  # in code that may run while compiling
        self.start, self.end, self.mutated = start, end, mutated
        self.id = 0


class Edit:
    """One rewriting of text[start:end], switched by the mutants it carries.

    shape "choice": each mutant has a text of its own; "negate" and "never": a condition;
    "assertion": a condition that always holds, whose text is reported as it was."""

    def __init__(self, shape, start, end, constant):
        self.shape, self.start, self.end, self.constant = shape, start, end, constant
        self.choices = []  # (mutant, text)
        self.statement = False
        self.call = None


class FileSites:
    def __init__(self, file, text):
        self.file, self.text = file, text
        self.calls = lexical.macro_calls(text)
        self.edits = []
        self.edit_of = {}
        self.mutants = []

    def edit(self, shape, start, end, constant):
        key = (shape, start, end)
        if key not in self.edit_of:
            self.edit_of[key] = Edit(shape, start, end, constant)
            self.edits.append(self.edit_of[key])
        return self.edit_of[key]

    def keep_texts(self):
        """The assertions that are no statement of their own here report their text as well."""
        for call in self.calls:
            if call.name in lexical.ASSERTIONS:
                self.edit("assertion", call.start, call.end, False).call = call


def kind_of(cursor):
    try:
        return cursor.kind.name
    except ValueError:  # one that this version of the bindings has no name for
        return "UNKNOWN"


def is_expression(cursor):
    try:
        return cursor.kind.is_expression()
    except ValueError:
        return True


FUNCTIONS = {"FUNCTION_DECL", "CXX_METHOD", "CONSTRUCTOR", "DESTRUCTOR", "FUNCTION_TEMPLATE",
             "CONVERSION_FUNCTION"}
SCOPES = {"NAMESPACE", "CLASS_DECL", "STRUCT_DECL", "CLASS_TEMPLATE", "UNION_DECL",
          "CLASS_TEMPLATE_PARTIAL_SPECIALIZATION"}
# Fixed at compile time, or no code at all.
SKIPPED = {"STATIC_ASSERT", "ENUM_DECL", "TEMPLATE_TYPE_PARAMETER", "TEMPLATE_NON_TYPE_PARAMETER",
           "TEMPLATE_TEMPLATE_PARAMETER", "CONCEPT_DECL", "UNKNOWN", "ALIGNED_ATTR"}


class Finder:
    def __init__(self, sites):
        self.sites = sites
        self.text = sites.text
        self.function = ""
        self.constant = False  # in a function that may run while compiling
        self.seen = set()

    def span(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def source(self, cursor):
        start, end = self.span(cursor)
        return self.text[start:end]

    def add(self, operator, start, end, mutated):
        mutant = Mutant(operator, self.sites.file, self.function, start, end, mutated)
        mutant.constant = self.constant
        self.sites.mutants.append(mutant)
        return mutant

    def choice(self, operator, start, end, texts, statement=False):
        if (operator, start, end) in self.seen:
            return
        self.seen.add((operator, start, end))
        edit = self.sites.edit("choice", start, end, self.constant)
        edit.statement |= statement
        for text in texts:
            edit.choices.append((self.add(operator, start, end, text), text))

    def condition(self, shape, operator, cursor, mutated):
        start, end = self.span(cursor)
        if (shape, start, end) not in self.seen:
            self.seen.add((shape, start, end))
            edit = self.sites.edit(shape, start, end, self.constant)
            edit.choices.append((self.add(operator, start, end, mutated), mutated))

    # ---- walking ----

    def walk(self, cursor, scope=()):
        kind = kind_of(cursor)
        if kind in SKIPPED:
            return
        if kind in SCOPES:
            for child in cursor.get_children():
                self.walk(child, scope + ((cursor.spelling,) if kind != "NAMESPACE" else ()))
        elif kind in FUNCTIONS:
            self.walk_function(cursor, scope)
        elif kind == "VAR_DECL" and not self.function:
            return  # most are constants
        elif kind == "FIELD_DECL":
            self.function, self.constant = "::".join(scope + (cursor.spelling,)), True
            for child in cursor.get_children():
                self.inside(child)
            self.function, self.constant = "", False
        else:
            for child in cursor.get_children():
                self.walk(child, scope)

    def walk_function(self, cursor, scope):
        parent = cursor.semantic_parent
        if not scope and parent is not None and kind_of(parent) in SCOPES - {"NAMESPACE"}:
            scope = (parent.spelling,)
        head = self.source(cursor).split("{", 1)[0]
        if "consteval" in head or re.search(r"=\s*(default|delete)\s*$", head):
            return  # no code, or none of the file's own
        name = cursor.spelling
        name = name if "operator" in name else re.sub(r"<.*", "", name)
        self.function = "::".join(scope + (name,))
        self.constant = "constexpr" in head
        for child in cursor.get_children():
            self.inside(child)
        self.function, self.constant = "", False

    def inside(self, cursor):
        kind = kind_of(cursor)
        children = list(cursor.get_children())
        if kind in SKIPPED or kind in ("TYPE_REF", "TEMPLATE_REF"):
            return
        if kind == "VAR_DECL" and re.search(r"\b(constexpr|static\s+const|constinit)\b",
                                            self.source(cursor)):
            return
        if kind == "CASE_STMT":
            children = children[1:]
        if kind in ("CASE_STMT", "DEFAULT_STMT") and children:
            self.statements(children[-1:])
        if kind == "INTEGER_LITERAL":
            self.literal(cursor)
        elif kind == "IF_STMT":
            children = self.if_statement(cursor, children)
        elif kind in ("WHILE_STMT", "FOR_STMT", "CONDITIONAL_OPERATOR", "DO_STMT"):
            self.loop(cursor, kind, children)
        elif kind == "COMPOUND_STMT":
            self.statements(children)
        elif kind == "RETURN_STMT" and len(children) == 1:
            self.returned(children[0])
        if is_expression(cursor) and len(children) >= 2:
            self.relational(cursor, children)
        for child in children:
            self.inside(child)

    # ---- operators ----

    def literal(self, cursor):
        text = self.source(cursor)
        if not re.fullmatch(r"[0-9][0-9a-fA-FxXuUlL']*", text):
            return
        is_zero = re.fullmatch(r"0[uUlL]*", text)
        texts = [f"({text} + 1)"] + ([] if is_zero else [f"({text} - 1)"])
        self.choice("constant", *self.span(cursor), texts)

    def relational(self, cursor, children):
        left, right = self.span(children[0]), self.span(children[-1])
        between = self.text[left[1] : right[0]]
        operator = between.strip()
        # Without spaces around it, it opens a list of template arguments.
        if operator not in RELATIONAL or left[0] >= right[0] or not re.match(r"\s.*\s$", between):
            return
        first, second = self.text[left[0] : left[1]], self.text[right[0] : right[1]]
        self.choice("relational", left[0], right[1],
                    [f"{first} {other} {second}" for other in RELATIONAL[operator]])

    def returned(self, cursor):
        start, end = self.span(cursor)
        text, children = self.text[start:end], list(cursor.get_children())
        while kind_of(cursor) == "UNEXPOSED_EXPR" and len(children) == 1:
            cursor, children = children[0], list(children[0].get_children())
        if kind_of(cursor) != "BINARY_OPERATOR" or len(children) != 2:
            return
        between = self.text[self.span(children[0])[1] : self.span(children[1])[0]].strip()
        if between in ("+", "-"):
            self.choice("returned sum", start, end, [f"{text} + 1", f"{text} - 1"])

    def is_single_comparison(self, cursor):
        children = list(cursor.get_children())
        while len(children) == 1:
            cursor = children[0]
            children = list(cursor.get_children())
        if len(children) < 2:
            return False
        between = self.text[self.span(children[0])[1] : self.span(children[-1])[0]].strip()
        return between in RELATIONAL

    def negated(self, cursor):
        # A comparison's own mutants say the same.
        if not self.is_single_comparison(cursor):
            self.condition("negate", "negated condition", cursor, f"!({self.source(cursor)})")

    def if_statement(self, cursor, children):
        index = next((i for i, c in enumerate(children) if is_expression(c)), None)
        if index is None:
            return children
        condition = children[index]
        head = self.text[self.span(cursor)[0] : self.span(condition)[0]]
        if head.rstrip()[-1] not in "(;":
            return children
        if re.match(r"if\s+constexpr", head):
            return children[index + 1 :]
        self.negated(condition)
        branches = children[index + 1 :]
        if len(branches) == 1:
            then = self.source(branches[0])
            if re.match(r"\{?\s*(return|continue|break|throw)", then):
                self.condition("never", "dropped guard", condition, "false")
        for branch in branches:
            if kind_of(branch) != "COMPOUND_STMT":
                self.statements([branch])
        return children

    def loop(self, cursor, kind, children):
        if kind == "CONDITIONAL_OPERATOR":
            if len(children) == 3:
                self.negated(children[0])
            return
        if kind == "FOR_STMT":
            start, end = self.span(cursor)
            parts = re.match(r"for\s*\(([^;]*);([^;]*);", self.text[start:end])
            if parts:
                lower, upper = start + parts.start(2), start + parts.end(2)
                for child in children[:-1]:
                    begin, finish = self.span(child)
                    if lower <= begin and finish <= upper and is_expression(child):
                        self.negated(child)
        elif kind == "WHILE_STMT" and len(children) == 2 and is_expression(children[0]):
            self.negated(children[0])
        elif kind == "DO_STMT" and len(children) == 2:
            self.negated(children[1])
        body = children[0] if kind == "DO_STMT" else children[-1]
        if kind_of(body) != "COMPOUND_STMT":
            self.statements([body])

    def is_plain_statement(self, cursor):
        return (is_expression(cursor) and self.span(cursor)[1] > self.span(cursor)[0]
                and not re.match(r"\(void\)\s*\w+$|throw\b", self.source(cursor)))

    def statements(self, children):
        before = None
        for child in children:
            if not self.is_plain_statement(child):
                before = None
                continue
            start, end = self.span(child)
            call = next((c for c in self.sites.calls if c.start <= start < c.end), None)
            if call is not None:
                self.assertion(call)
                before = None
                continue
            self.choice("dropped statement", start, end, [""], statement=True)
            if before is not None and self.depend(before, child):
                self.swap(before, child)
            before = child

    def assertion(self, call):
        if ("assertion", call.start) in self.seen:
            return
        self.seen.add(("assertion", call.start))
        edit = self.sites.edit("assertion", call.start, call.end, self.constant)
        edit.call = call
        edit.choices.append((self.add("dropped assertion", call.start, call.end, ""), ""))

    def effects(self, cursor):
        """What a statement names, what of it it writes, and whether it calls what may do more."""
        names, written, calls = set(), set(), False
        for child in cursor.walk_preorder():
            kind, parts = kind_of(child), list(child.get_children())
            if kind in ("DECL_REF_EXPR", "MEMBER_REF_EXPR") and child.spelling[:8] != "operator":
                names.add(child.spelling)
            elif kind == "CALL_EXPR" and child.spelling in CONTAINER_WRITES:
                written |= {c.spelling for p in parts[:1] for c in p.get_children()}
            elif kind == "CALL_EXPR" and child.spelling in MEMORY_WRITES and len(parts) > 1:
                written |= {c.spelling for c in parts[1].walk_preorder() if c.spelling}
            elif kind == "CALL_EXPR" and not child.spelling.startswith("operator"):
                calls = True
        match = re.match(r"(?:\+\+|--)?\s*(.*?)\s*(?:[-+*/%&|^]|<<|>>)?=(?!=)|(?:\+\+|--)(.*)",
                         self.source(cursor), re.S)
        if match:
            target = match.group(1) or match.group(2) or ""
            written |= set(re.findall(r"\w+", target)[-1:]) | set(re.findall(r"\w+(?=\[)", target))
        return names, written, calls

    def depend(self, first, second):
        """Whether the order of two statements can matter at all."""
        names_a, written_a, calls_a = self.effects(first)
        names_b, written_b, calls_b = self.effects(second)
        if calls_a or calls_b:
            return (calls_a and calls_b) or bool(names_a & names_b)
        return bool(written_a & names_b or written_b & names_a)

    def swap(self, first, second):
        a, b = self.span(first), self.span(second)
        if ("swap", a[0]) in self.seen:
            return
        self.seen.add(("swap", a[0]))
        text_a, text_b = self.text[a[0] : a[1]], self.text[b[0] : b[1]]
        mutant = self.add("swapped statements", a[0], b[1],
                          text_b + self.text[a[1] : b[0]] + text_a)
        for span, text in ((a, text_b), (b, text_a)):
            edit = self.sites.edit("choice", span[0], span[1], self.constant)
            edit.statement = True
            edit.choices.append((mutant, text))


def sources(root):
    files = sorted(p for folder in ("runtime", "Hardware") for p in (root / folder).rglob("*")
                   if p.suffix in (".h", ".cpp"))
    return [str(p.relative_to(root)) for p in files]


def find(root):
    """All sites of the library's files: {file: FileSites}, mutants numbered from 1."""
    all_sites = {f: FileSites(f, (root / f).read_text()) for f in sources(root)}
    parsed = [(f, lexical.parsed_text(s.text, s.calls)) for f, s in all_sites.items()]
    headers = [f for f in all_sites if f.endswith(".h")]
    together = "mutation-headers.cpp"
    prelude = root / "build/mutate/prelude.h"
    prelude.parent.mkdir(parents=True, exist_ok=True)
    prelude.write_text(lexical.PRELUDE)
    unsaved = parsed + [(together, "".join(f'#include "{f}"\n' for f in headers))]
    index = cindex.Index.create()
    for unit in [together] + [f for f in all_sites if f.endswith(".cpp")]:
        tree = index.parse(unit, args=ARGUMENTS, unsaved_files=unsaved)
        error = next((d for d in tree.diagnostics if d.severity >= cindex.Diagnostic.Error), None)
        if error:
            raise SystemExit(f"mutate: {unit} is not understood: {error}")
        finders = {}
        for cursor in tree.cursor.get_children():
            place = cursor.location.file
            file = str(Path(place.name)) if place else ""
            if file == unit or (unit == together and file in headers):
                finder = finders.setdefault(file, Finder(all_sites[file]))
                finder.walk(cursor)
    number = 0
    # Headers first: a change in a source leaves their numbers, and what includes them, as they are.
    for file_sites in sorted(all_sites.values(), key=lambda s: (s.file.endswith(".cpp"), s.file)):
        file_sites.keep_texts()
        file_sites.mutants.sort(key=lambda m: (m.start, m.end, m.operator, m.mutated))
        for mutant in file_sites.mutants:
            number += 1
            mutant.id = number
    return all_sites


def digest(root, names):
    """Changes with any of these files, or any C++ file below these folders."""
    value = hashlib.sha256()
    for name in names:
        path = root / name
        for file in [path] if path.is_file() else sorted(path.rglob("*")):
            if path.is_file() or file.suffix in (".h", ".cpp") or file.name == "CMakeLists.txt":
                value.update(str(file.relative_to(root)).encode() + file.read_bytes())
    return value.hexdigest()[:12]
