#!/usr/bin/env python3
"""Shows that each check under tools/ accepts a sound tree and finds each thing planted in one."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

TOOLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools")

# A small sound tree.
TREE = {
    "CMakeLists.txt": "add_library(cm_pure OBJECT\n  colour/Sum.cpp)\n",
    "docs/architecture.md": """
| layer | files | holds | may include |
|---|---|---|---|
| session | `session/` | | failure, engine, platform |
| engine | `engine/` | | pixel mapping, colour, platform |
| calibration | `calibration/` | | failure, platform |
| pixel mapping | `appearance/PixelMapping` `appearance/kernels/` | | platform |
| colour | `colour/` | | platform |
| failure | `session/Failure` | | platform |
| platform | `platform/` | | |
""",
    "include/ColourMatch/ColourMatch.h": '#pragma once\n#include "colour/Sum.h"\n#ifdef __cplusplus\n#include "colour/Value.h"\n#endif\n',
    "platform/Export.h": "#pragma once\n#ifdef __APPLE__\n#include <Carbon/Carbon.h>\n#endif\n",
    "platform/linux/Hidden.h": "#pragma once\n",
    "colour/Sum.h": '#pragma once\n#include <stdint.h>\n#include "platform/Export.h"\nint32_t Sum(int32_t a);\n',
    "colour/Sum.cpp": '#include "colour/Sum.h"\n#include <algorithm>\n',
    "colour/Value.h": "#pragma once\nclass Value {};\n",
    "engine/Table.h": '#pragma once\n#include "colour/Sum.h"\n',
    "appearance/PixelMapping.h": "#pragma once\n",
    "session/Failure.h": "#pragma once\n",
    "session/Session.cpp": '#include "engine/Table.h"\n#include "session/Failure.h"\n',
    "orlo/Orlo.cpp": '#include "ColourMatch/ColourMatch.h"\n',
}


def run(tool, *arguments, environment=None):
    return subprocess.run([os.path.join(TOOLS, tool), *arguments], capture_output=True, text=True, env=environment)


class PlantedTree(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        for path, text in TREE.items():
            self.plant(path, text, mode="w")

    def plant(self, path, text, mode="a"):
        full = os.path.join(self.folder.name, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, mode, encoding="utf-8") as file:
            file.write(text)

    def expect(self, tool, finding, *arguments):
        """`finding` None: the tree is sound; else the check fails and its output holds the text."""
        result = run(tool, "--root", self.folder.name, *arguments)
        self.assertEqual(result.returncode, 0 if finding is None else 1, result.stdout + result.stderr)
        if finding is not None:
            self.assertIn(finding, result.stdout)

    def each(self, tool, rows, *arguments):
        """Rows of (file, planted text, expected finding), each on a tree of its own."""
        self.expect(tool, None, *arguments)
        for path, text, finding in rows:
            with self.subTest(path=path, text=text):
                before = TREE.get(path)
                self.plant(path, text)
                self.expect(tool, finding, *arguments)
                if before is None:
                    os.remove(os.path.join(self.folder.name, path))
                else:
                    self.plant(path, before, mode="w")

    def test_includes_that_climb_the_layers_are_found(self):
        self.each(
            "check_includes",
            (
                ("colour/Sum.h", '#include "engine/Table.h"\n', 'colour may not include "engine/Table.h"'),
                ("engine/Table.h", '#include "session/Failure.h"\n', "engine may not include"),
                ("session/Failure.h", '#include "colour/Sum.h"\n', "failure may not include"),
                ("appearance/PixelMapping.h", '#include "colour/Sum.h"\n', "pixel mapping may not include"),
                ("platform/Export.h", '#include "colour/Sum.h"\n', "platform may not include"),
                ("calibration/Gamma.h", '#include "engine/Table.h"\n', "calibration may not include"),
                ("session/Session.cpp", '#include "calibration/Gamma.h"\n', "does not stand under the root"),
                ("session/Session.cpp", '#include "orlo/Orlo.cpp"\n', "session may not include"),
            ),
        )

    def test_includes_not_written_from_the_root_are_found(self):
        self.each(
            "check_includes",
            (
                ("colour/Sum.cpp", '#include "Value.h"\n', "does not stand under the root"),
                ("colour/Sum.cpp", '#include "../colour/Value.h"\n', "is not written from the root"),
                ("colour/Sum.cpp", "#include <colour/Value.h>\n", "included with quotes"),
            ),
        )

    def test_includes_past_the_public_headers_and_the_platform_are_found(self):
        self.each(
            "check_includes",
            (
                ("orlo/Orlo.cpp", '#include "colour/Sum.h"\n', "a host includes ColourMatch/ColourMatch.h"),
                ("tests/unit/T.cpp", '#include "platform/linux/Hidden.h"\n', "belongs to platform/ alone"),
                ("session/Session.cpp", "#  if defined(__APPLE__)\n#endif\n", "a condition on the system"),
                ("session/Session.cpp", "    CFRelease(object);\n", "a bare CFRelease"),
                ("colour/Sum.h", "CM_EXPORT extern const int kSum;\n", "an exported variable without CM_EXPORT_DATA"),
            ),
        )

    def test_hosts_of_pictures_stand_above_their_images_alone(self):
        self.plant("images/Reading.h", '#pragma once\n#include "ColourMatch/ColourMatch.h"\n')
        self.plant("orlo/Orlo.cpp", '#include "images/Reading.h"\n')
        self.expect("check_includes", None)
        self.plant("images/Reading.h", '#include "orlo/Orlo.cpp"\n')
        self.expect("check_includes", 'a host includes ColourMatch/ColourMatch.h, not "orlo/Orlo.cpp"')

    def test_a_table_of_layers_that_goes_up_is_found(self):
        sound = TREE["docs/architecture.md"]
        rows = (
            (sound.replace("| colour | `colour/` | | platform |", "| colour | `colour/` | | engine, platform |"), "colour may include engine, which stands above it"),
            (sound.replace("| failure, platform |", "| failures, platform |"), "calibration may include failures, which is no layer"),
            ("", "no table of layers"),
        )
        for text, finding in rows:
            with self.subTest(finding=finding):
                self.plant("docs/architecture.md", text, mode="w")
                self.expect("check_includes", finding)

    def test_system_headers_in_the_arithmetic_are_found(self):
        self.each(
            "check_includes",
            (
                ("colour/Sum.cpp", "#include <unistd.h>\n", "<unistd.h> in the arithmetic"),
                ("colour/Sum.h", "#include <glib.h>\n", "<glib.h> in the arithmetic"),
                ("colour/Sum.cpp", "#include <immintrin.h>\n", "<immintrin.h> in the arithmetic"),
            ),
        )

    def test_a_tree_whose_arithmetic_is_not_listed_is_found(self):
        self.plant("CMakeLists.txt", "\n", mode="w")
        self.expect("check_includes", "names no files")

    def test_american_spellings_are_found(self):
        self.each(
            "check_spelling",
            (
                ("colour/Sum.cpp", "int targetColor;\n", "targetColor: colour"),
                ("colour/Sum.cpp", "// the behavior of neighbors\n", "behaviour"),
                ("colour/Sum.cpp", "void InitializeTable();\n", "initialise"),
                ("colour/Sum.cpp", "int gray_level;\n", "grey"),
                ("colour/Sum.cpp", "int __wrap_MatchColors(void);\n", "colours"),
                ("docs/page.md", "Values are centered and normalized.\n", "normalised"),
                ("docs/page.md", "It analyzes colors.\n", "analyses"),
                ("docs/ColorGuide.md", "text\n", "docs/ColorGuide.md"),
            ),
        )

    def test_names_of_others_keep_their_spelling(self):
        self.plant("colour/Sum.cpp", "ColorSyncProfileRef p; kColorSyncProfile; CFNotificationCenterRef c; gtk_widget_set_center(w);\n")
        self.plant("colour/Sum.cpp", "bool __wrap_ColorSyncTransformConvert(void); bool __real_ColorSyncTransformConvert(void);\n")
        self.plant("colour/Sum.cpp", "std::initializer_list<int> sizes; // the size of a prize, colord, colorimetric\n")
        self.expect("check_spelling", None)

    def test_wording_that_does_not_belong_is_found(self):
        # Each word is put together here, so that this file holds none of them.
        self.each(
            "check_wording",
            (
                ("colour/Sum.cpp", "// TO" + "DO: more\n", "work left undone"),
                ("colour/Sum.cpp", "// a st" + "ub\n", "work left undone"),
                ("colour/Sum.cpp", "// not yet " + "implemented\n", "work left undone"),
                ("colour/Sum.cpp", "// as the spe" + "cification says\n", "a paper that is not in the tree"),
                ("docs/page.md", "see Par" + "t 4.2\n", "a paper that is not in the tree"),
                ("docs/page.md", "see iss" + "ue 12\n", "a paper that is not in the tree"),
                ("tools/run", "cd /ho" + "me/someone\n", "a folder of one machine"),
                ("tools/run", "cd /t" + "mp/build\n", "a folder of one machine"),
            ),
        )

    def test_headers_that_do_not_stand_alone_are_found(self):
        self.each(
            "check_headers_alone",
            (
                ("colour/Sum.h", "size_t Count(void);\n", "colour/Sum.h alone with gcc, c:"),
                ("colour/Sum.h", "class OnlyCxx {};\n", "colour/Sum.h alone with clang, c:"),
                ("colour/Value.h", "typedef Missing Other;\n", "colour/Value.h alone with clang++, c++:"),
                ("colour/Sum.h", "static inline int32_t Unused(int32_t unused) { return 0; }\n", "unused"),
            ),
        )

    def test_sources_that_do_not_compile_for_macos_are_found(self):
        headers = tempfile.TemporaryDirectory()  # as little of the system's as the small tree needs
        self.addCleanup(headers.cleanup)
        for path, text in (
            ("Frameworks/Carbon.framework/Headers/Carbon.h", "typedef int OSStatus;\n"),
            ("include/stdint.h", "#pragma once\ntypedef int int32_t;\n"),
            ("include/c++/v1/algorithm", ""),
        ):
            os.makedirs(os.path.dirname(os.path.join(headers.name, path)), exist_ok=True)
            with open(os.path.join(headers.name, path), "w", encoding="utf-8") as file:
                file.write(text)
        self.each(
            "check_macos",
            (
                ("colour/Sum.cpp", "Missing Sum(Missing a);\n", "colour/Sum.cpp for arm64-apple-macos11"),
                ("colour/Sum.cpp", "int Narrow(long a) { return a; }\n", "colour/Sum.cpp for x86_64-apple-macos11"),
                ("colour/Sum.h", "#include <unknown.h>\n", "'unknown.h' file not found"),
            ),
            "--sdk",
            headers.name,
        )

    def test_macos_check_without_headers_counts_as_skipped(self):
        environment = {name: value for name, value in os.environ.items() if name != "CM_MACOS_SDK"}
        self.assertEqual(run("check_macos", "--root", self.folder.name, environment=environment).returncode, 77)


class PlantedLibrary(unittest.TestCase):
    def compare(self, source, listed):
        with tempfile.TemporaryDirectory() as folder:
            library, names, built = (os.path.join(folder, name) for name in ("lib.so", "names.txt", "source.o"))
            script = os.path.join(folder, "names.map")
            with open(script, "w", encoding="utf-8") as file:
                file.write("{ local: LeftInside*; _Z10LeftInside*; };\n")
            subprocess.run(["g++", "-c", "-fPIC", "-fvisibility=hidden", "-xc++", "-", "-o", built], input=source, text=True, check=True)
            subprocess.run(["g++", "-shared", "-nostdlib", f"-Wl,--version-script={script}", built, "-o", library], check=True)
            with open(names, "w", encoding="utf-8") as file:
                file.write("# names\n" + "".join(name + "\n" for name in listed))
            return run("check_exports", library, names, built)

    def test_differences_are_found_both_ways(self):
        rows = (
            # source, listed names, expected finding or None
            ('extern "C" OUT void Match() {}\nOUT void Mix(float) {}\n', ["Match", "_Z3Mixf"], None),
            ('extern "C" OUT void Match() {}\nOUT void Mix(float) {}\n', ["Match"], "exported, not listed: _Z3Mixf (Mix(float))"),
            ('extern "C" OUT void Match() {}\n', ["Match", "Predict"], "listed, not exported: Predict"),
            ('extern "C" OUT void Match() {}\n', ["Match", "Match"], "listed twice: Match"),
            ('extern "C" { OUT int gValue = 1; }\n', [], "exported, not listed: gValue"),
            ('extern "C" { OUT void Match() {}\nOUT void LeftInside() {} }\n', ["Match"], "marked for export, not listed: LeftInside"),
            ('extern "C" OUT void Match() {}\nOUT void LeftInside() {}\n', ["Match"], "marked for export, not listed: _Z10LeftInsidev (LeftInside())"),
            ('extern "C" OUT void Match() {}\nvoid Hidden() {}\n', ["Match"], None),
            ("static int hidden;\n", [], "exports nothing"),
        )
        for source, listed, finding in rows:
            with self.subTest(listed=listed, finding=finding):
                result = self.compare('#define OUT __attribute__((visibility("default")))\n' + source, listed)
                self.assertEqual(result.returncode, 0 if finding is None else 1, result.stdout + result.stderr)
                if finding:
                    self.assertIn(finding, result.stdout)


class BuiltProgram(unittest.TestCase):
    HARDENED = ("-O2", "-U_FORTIFY_SOURCE", "-D_FORTIFY_SOURCE=2", "-fPIE", "-pie", "-fcf-protection", "-Wl,-z,relro,-z,now,-z,noexecstack")
    PROGRAM = "#include <string.h>\nint main(int count, char** words) { char copy[64]; strcpy(copy, words[count - 1]); return copy[0] + copy[1]; }\n"

    def check(self, *options):
        with tempfile.TemporaryDirectory() as folder:
            source, program = os.path.join(folder, "program.c"), os.path.join(folder, "program")
            with open(source, "w", encoding="utf-8") as file:
                file.write(self.PROGRAM)
            subprocess.run(["gcc", source, "-o", program, *self.HARDENED, *options], check=True, capture_output=True)
            return run("check_binaries", folder)

    def test_each_way_in_is_found(self):
        rows = (
            # options after those of a hardened program, expected finding or None
            (["-Wl,-rpath,$ORIGIN/../lib"], None),
            (["-Wl,-rpath,$ORIGIN/../lib:"], "its run path [$ORIGIN/../lib:] has the entry ''"),
            (["-Wl,-rpath,/somewhere"], "has the entry '/somewhere'"),
            (["-Wl,-z,execstack"], "its stack can be executed"),
            (["-Wl,-z,norelro"], "its tables of functions stay writable"),
            (["-Wl,-z,lazy"], "its tables of functions stay writable"),
            (["-fno-pie", "-no-pie"], "it lies at a fixed address"),
            (["-U_FORTIFY_SOURCE", "-fno-builtin"], "it calls strcpy and no checked form"),
        )
        if os.uname().machine == "x86_64":
            rows += ((["-fcf-protection=none", "-nostartfiles", "-Wl,-e,main"], "it is not compiled for control-flow protection"),)
        for options, finding in rows:
            with self.subTest(options=options):
                result = self.check(*options)
                self.assertEqual(result.returncode, 0 if finding is None else 1, result.stdout + result.stderr)
                if finding:
                    self.assertIn(finding, result.stdout)

    def test_each_build_command_asks_for_checked_functions(self):
        asked = "c++ -O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -c a.cpp"
        for commands, found in (
            ([asked], False),
            ([asked, "c++ -O2 -c a.cpp"], True),
            (["c++ -O0 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -c a.cpp"], True),
            (["c++ -O2 -D_FORTIFY_SOURCE=2 -U_FORTIFY_SOURCE -c a.cpp"], True),
        ):
            with self.subTest(commands=commands), tempfile.NamedTemporaryFile("w", suffix=".json", encoding="utf-8") as file:
                json.dump([{"file": "a.cpp", "command": command} for command in commands], file)
                file.flush()
                result = run("check_binaries", "/bin/true", "--commands", file.name)
                self.assertEqual("a.cpp: its build command does not ask" in result.stdout, found, result.stdout + result.stderr)

    def test_a_larger_program_checks_its_stack(self):
        padding = "static const char sPadding[300000] __attribute__((used)) = {1};\n"
        self.PROGRAM = padding + self.PROGRAM
        self.assertEqual(self.check("-fstack-protector-strong").returncode, 0)
        self.assertIn("no function of it checks its stack", self.check("-fno-stack-protector").stdout)


class PackageLists(unittest.TestCase):
    def check(self, files, **packages):
        with tempfile.TemporaryDirectory() as folder:
            for path in files:
                os.makedirs(os.path.dirname(os.path.join(folder, "tree", path)), exist_ok=True)
                open(os.path.join(folder, "tree", path), "w", encoding="utf-8").close()
            os.mkdir(os.path.join(folder, "lists"))
            for package, lines in packages.items():
                with open(os.path.join(folder, "lists", package + ".install"), "w", encoding="utf-8") as file:
                    file.write("\n".join(lines) + "\n")
            return run("check_package_lists", os.path.join(folder, "tree"), os.path.join(folder, "lists"))

    def test_each_file_is_in_one_package(self):
        files = ("bin/tool", "lib/libtool.so", "share/doc/Tool/LICENSE")
        rows = (
            # lists, expected finding or None
            ({"tool": ["usr/bin/tool"], "library": ["usr/lib/*/libtool.so"]}, None),
            ({"tool": ["usr/bin"], "library": ["usr/lib/*/*.so"]}, None),
            ({"tool": ["usr/bin/tool"]}, "lib/libtool.so: in no package"),
            ({"tool": ["usr/bin/tool", "usr/lib/*/libtool.so"], "library": ["usr/lib/*/*.so"]}, "lib/libtool.so: in library and tool"),
            ({"tool": ["usr/bin/tool", "usr/bin/gone"], "library": ["usr/lib/*/*.so"]}, "tool: bin/gone finds nothing"),
            ({"tool": []}, "nothing in"),
        )
        for packages, finding in rows:
            with self.subTest(packages=packages):
                result = self.check(files, **packages)
                self.assertEqual(result.returncode, 0 if finding is None else 1, result.stdout + result.stderr)
                if finding:
                    self.assertIn(finding, result.stdout + result.stderr)


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    unittest.main()
