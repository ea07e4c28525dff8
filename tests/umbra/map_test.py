#!/usr/bin/env python3
"""The tool's map subcommand on small register maps."""
import json
import os
import subprocess

import harness
from harness import Folder, check, umbra

REGISTER = """<register><name>{name}</name><addressOffset>{offset}</addressOffset>{more}</register>"""


def svd(*registers):
    inside = "\n".join(REGISTER.format(name=name, offset=offset, more=more) for name, offset, more in registers)
    return ("<device><name>SWITCH</name><access>read-write</access><peripherals><peripheral><name>port</name>"
            f"<baseAddress>0x1000</baseAddress><registers>\n{inside}\n"
            "</registers></peripheral></peripherals></device>")


TABLE = "<dim>4</dim><dimIncrement>4</dimIncrement><fields><field><name>valid</name><bitRange>[0:0]</bitRange></field>" \
        "</fields>"


class Maps(Folder):
    def file(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def setUp(self):
        super().setUp()
        self.map = self.file("a.svd", svd(("mac[%s]", "0", TABLE), ("status", "0x10", ""), ("mode", "0x14", "")))
        self.overlay = self.file("a.overlay", "port.status detectOnly mask 0xff\n")

    def test_import_countsRegistersRegionsAndWhatIsUndecided(self):
        found = self.values("map", "import", self.map, self.map)["maps"]
        self.assertEqual(2, len(found))
        self.assertEqual(("SWITCH", "CMSIS-SVD", 6, 2, 5, 1),
                         tuple(found[0][key] for key in ("name", "format", "registers", "regions", "audited",
                                                         "undecided")))

    def test_show_saysWhyARegisterIsUndecided(self):
        found = self.values("map", "show", self.map, "--undecided")["registers"]
        self.assertEqual(["port.status"], [one["name"] for one in found])
        self.assertIn("changes by itself", found[0]["reason"])
        self.assertEqual(4, len(self.values("map", "show", self.map, "--match", "port.mac*")["registers"]))
        umbra("map", "show", self.map, "--match", "nothing", status=3)

    def test_overlay_decidesAndItsErrorNamesFileAndLine(self):
        found = self.values("map", "show", self.map, "--overlay", self.overlay, "--match", "*.status")["registers"][0]
        self.assertEqual("detectOnly mask 0xff kept", found["policy"])
        self.assertEqual(self.overlay + ":1", found["reason"])
        wrong = self.file("b.overlay", "\nport.nothing repaired\n")
        umbra("map", "check", self.map, "--overlay", wrong, status=1)
        self.assertIn(f"{wrong}:2: 'port.nothing' matches no register", umbra.errors)

    def test_propose_printsAnOverlayThatIsTakenAgain(self):
        text = umbra("map", "propose", self.map)
        self.assertIn("#? port.status noRead", text)
        decided = self.file("c.overlay", text.replace("#? ", ""))
        self.assertEqual([], self.values("map", "show", self.map, "--overlay", decided, "--undecided",
                                         status=3)["registers"])

    def test_diff_tellsWhatIsNewlyAuditedAndExits3WithoutADifference(self):
        other = self.file("b.svd", svd(("mac[%s]", "0", TABLE), ("mode", "0x14", ""), ("speed", "0x18", "")))
        found = self.values("map", "diff", self.map, other)["changes"]
        self.assertEqual([("newly audited", "port.speed"), ("removed", "port.status")],
                         [(one["change"], one["register"]) for one in found])
        umbra("map", "diff", self.map, self.map, status=3)
        umbra("map", "diff", self.map, status=2)

    def test_try_runsTheTrialsOnACopy(self):
        found = self.values("map", "try", self.map)
        self.assertEqual([0, 0, 0], [one["failed"] for one in found["trials"]])
        self.assertEqual([], found["failures"])

    def compiled(self, file, more):
        """Compiles the header of a map."""
        header = self.file("registers.h", umbra("map", "header", file, "--namespace", "chip::a"))
        root = os.path.join(harness.HERE, "../..")
        done = subprocess.run(
            ["g++", "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", f"-I{root}", f"-I{root}/runtime",
             f"-I{os.path.dirname(header)}", "-xc++", "-"], input=f'#include "registers.h"\nstatic_assert({more});\n',
            text=True, capture_output=True, check=False)
        self.assertEqual("", done.stderr)

    def test_header_compiles(self):
        self.compiled(self.map, "chip::a::port_mac.entries == 4")
        umbra("map", "header", self.map, "--namespace", "1", status=1)

    def test_headersOfMakersMaps_compile(self):
        folder = os.environ.get("UMBRA_MAPS")
        if not folder:
            self.skipTest("UMBRA_MAPS names no folder with register maps")
        for name in sorted(os.listdir(folder)):
            if name.endswith(".svd"):
                self.compiled(os.path.join(folder, name), "chip::a::regions[0].entrySize > 0")

    def test_brokenFile_exits1WithFileAndLine(self):
        broken = self.file("broken.svd", "<device>\n</devic>")
        umbra("map", "import", broken, status=1)
        self.assertIn(f"{broken}:2: no XML", umbra.errors)
        umbra("map", "import", os.path.join(self.folder, "none.svd"), status=1)
        self.assertIn("No such file", umbra.errors)

    def test_json_isLikeItsSchema(self):
        for action in "import", "show", "check", "try", "propose":
            value = json.loads(umbra("--json", "map", action, self.map))
            self.assertEqual(1 if action != "try" else 2, len(value))
            check(value, "map")
        other = self.file("b.svd", svd(("mac[%s]", "0", TABLE)))
        check(json.loads(umbra("--json", "map", "diff", self.map, other, "--old-overlay", self.overlay)), "map")


if __name__ == "__main__":
    harness.main()
