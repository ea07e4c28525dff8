"""Writes the copy of the project in which every mutant is compiled at once and one is chosen when a
program starts."""

import shutil
from pathlib import Path

import lexical

HERE = Path(__file__).resolve().parent
USERS = ["platform", "demo", "tools/console", "tests"]  # of the library
COPIED = ["CMakeLists.txt", "cmake", "runtime", "Hardware", *USERS]

# Every test program tells which of its tests reached what.
CASE_REACH = """
target_sources(gmock_main PRIVATE ${PROJECT_SOURCE_DIR}/CaseReach.cpp)
target_link_options(gmock_main INTERFACE -Wl,-u,umbraCaseReach)
target_link_libraries(gmock_main PUBLIC Umbra::Umbra)
"""


class Writer:
    """One file's rewritten text, and where in it each mutant's code stands."""

    def __init__(self, sites, dropped):
        self.sites, self.dropped = sites, dropped
        self.parts, self.length = [], 0
        self.places = []  # (start, end, mutant) in the rewritten text
        self.edits = []
        for order, edit in enumerate(sites.edits):
            if edit.shape == "assertion" or any(m.id not in dropped for m, _ in edit.choices):
                self.edits.append((edit.start, -edit.end, order, edit))
        self.edits.sort(key=lambda e: e[:2] + (e[3].shape != "assertion", e[2]))
        self.next = 0
        self.copy(0, len(sites.text))
        self.text = "".join(self.parts)

    def put(self, text):
        self.parts.append(text)
        self.length += len(text)

    def copy(self, start, end):
        """text[start:end] with the edits inside, outermost first."""
        position = start
        while self.next < len(self.edits):
            begin, _, _, edit = self.edits[self.next]
            if begin >= end or edit.end > end:
                break
            self.next += 1
            if begin < position:  # crosses one that is written already
                continue
            self.put(self.sites.text[position:begin])
            self.write(edit)
            position = edit.end
        self.put(self.sites.text[position:end])

    def test(self, edit, mutant):
        name = "::umbraMutantIsOrConstant" if edit.constant else "::umbraMutantIs"
        return f"{name}({mutant.id})"

    def write(self, edit):
        begin = self.length
        alive = [(m, t) for m, t in edit.choices if m.id not in self.dropped]
        if edit.shape == "choice":
            self.put("(")
            for mutant, text in alive:
                at = self.length
                text = lexical.one_line(text)
                if edit.statement:
                    text = f"(void)({text})" if text else "(void)0"
                else:
                    text = f"({text})"
                self.put(f"{self.test(edit, mutant)} ? {text} : ")
                self.places.append((at, self.length, mutant))
            self.put("(void)(" if edit.statement else "(")
            self.copy(edit.start, edit.end)
            self.put("))")
        elif edit.shape == "assertion":
            call = edit.call
            at = lexical.ASSERTIONS[call.name]
            condition = call.arguments[at]
            self.put(f"{call.name}_MUTATED(")
            for before in call.arguments[:at]:
                self.copy(*before)
                self.put(", ")
            self.put(f"{self.test(edit, alive[0][0])} || (" if alive else "(")
            self.copy(*condition)
            text = self.sites.text[condition[0] : condition[1]]
            self.put(f"), {lexical.stringized(text)}")
            for after in call.arguments[at + 1 :]:
                self.put(", ")
                self.copy(*after)
            self.put(")")
        else:
            test = self.test(edit, alive[0][0])
            self.put(f"({test} != " if edit.shape == "negate" else f"(!{test} && ")
            self.put("static_cast<bool>(")
            self.copy(edit.start, edit.end)
            self.put("))")
        if edit.shape != "choice" and alive:
            self.places.append((begin, self.length, alive[0][0]))

    def mutants_at(self, line, column):
        """Those whose code has the compiler's complaint: in the narrowest place around it."""
        offset = sum(len(l) for l in self.text.splitlines(True)[: line - 1]) + column - 1
        around = [(e - s, m) for s, e, m in self.places if s <= offset < e]
        if around:
            return [min(around, key=lambda a: a[0])[1]]
        end = self.text.find("\n", offset)
        begin = self.text.rfind("\n", 0, offset)
        return [m for s, e, m in self.places if s < end and e > begin]


def put(path, text):
    """Leaves a file that would not change as it is, so that it is not built again."""
    path.parent.mkdir(parents=True, exist_ok=True)
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


def copy_project(root, tree):
    """All but the mutated files; what has gone from the project goes from the copy."""
    wanted = set()
    for name in COPIED:
        path = root / name
        for source in [path] if path.is_file() else path.rglob("*"):
            if source.is_file() and "__pycache__" not in source.parts:
                relative = source.relative_to(root)
                wanted.add(relative)
                if relative.parts[0] in ("runtime", "Hardware") and source.suffix in (".h", ".cpp"):
                    continue
                if str(relative) == "tests/CMakeLists.txt":
                    continue
                target = tree / relative
                if not target.exists() or target.read_bytes() != source.read_bytes():
                    target.parent.mkdir(parents=True, exist_ok=True)
                    shutil.copy(source, target)  # as a new file, so that it is built again
    wanted |= {Path("Hardware/MutationSwitch.cpp"), Path("MutationSwitch.h"),
               Path("CaseReach.cpp")}
    for old in tree.rglob("*"):
        if old.is_file() and old.relative_to(tree) not in wanted:
            old.unlink()
    put(tree / "MutationSwitch.h", (HERE / "MutationSwitch.h").read_text())
    put(tree / "Hardware/MutationSwitch.cpp", (HERE / "MutationSwitch.cpp").read_text())
    put(tree / "CaseReach.cpp", (HERE / "CaseReach.cpp").read_text())
    tests = (root / "tests/CMakeLists.txt").read_text()
    tests = tests.replace("set(SHARED_FOLDERS", CASE_REACH + "set(SHARED_FOLDERS", 1)
    put(tree / "tests/CMakeLists.txt", tests)


def write_mutated(all_sites, tree, dropped):
    """Writes the library's files; returns {file: Writer}."""
    writers = {}
    for file, file_sites in all_sites.items():
        writers[file] = Writer(file_sites, dropped)
        put(tree / file, lexical.with_text_macros(writers[file].text))
    return writers
