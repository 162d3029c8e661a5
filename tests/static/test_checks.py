"""The static checks find what they are there for."""

import unittest

import bare_addresses
import device_headers
import head_comments
import imports
import include_heights
import interposer_marker
import named_tests
import swept
import words

def numbered(text):
    return list(enumerate(text.split("\n"), 1))

OVERRIDES = """
int seam_close(int fd) { return fd; }
// ==== overrides below; no logic from here on
using namespace vboard;
extern "C" {
int close(int fd) { return seam::seam_close(fd); }
%s
}  // extern "C"
"""

class Checks(unittest.TestCase):
    def test_include_from_above_is_found(self):
        self.assertIsNotNone(include_heights.problem("hw", '#include "video/capture.h"'))
        self.assertIsNotNone(include_heights.problem("state", '#include "hw/fpga.h"'))
        self.assertIsNotNone(include_heights.problem("hw", '#include "vboard/core/board.h"'))
        self.assertIsNotNone(include_heights.problem("hw", '#include "fpga.h"'))

    def test_include_from_below_is_fine(self):
        self.assertIsNone(include_heights.problem("app", '#include "state/relaxed.h"'))
        self.assertIsNone(include_heights.problem("hw", '#include "hw/fpga.h"'))
        self.assertIsNone(include_heights.problem("hw", "#include <cstdio>"))

    def test_tools_keep_their_heights(self):
        self.assertIsNotNone(include_heights.tool_problem("melk/session.cpp", '#include "vboard/core/real.h"'))
        self.assertIsNotNone(include_heights.tool_problem("melk/main.cpp", '#include "vboard/core/clock.h"'))
        self.assertIsNotNone(include_heights.tool_problem("vboard/core/clock.h", '#include "vboard/models/bus.h"'))
        self.assertIsNotNone(include_heights.tool_problem("vboard/interpose/preload.cpp", '#include "melk/transport.h"'))
        self.assertIsNotNone(include_heights.tool_problem("vboard/models/link.cpp", '#include "audio/ac3dsp.h"'))
        self.assertIsNotNone(include_heights.tool_problem("vboard/elsewhere/a.cpp", '#include "vboard/core/real.h"'))
        self.assertIsNone(include_heights.tool_problem("melk/main.cpp", '#include "vboard/host/board_transport.h"'))
        self.assertIsNone(include_heights.tool_problem("vboard/models/fpga.cpp", '#include "hw/fpga_registers.h"'))

    def test_device_header_is_found(self):
        for header in ("sys/ioctl.h", "sys/shm.h", "sys/sem.h", "sys/select.h", "linux/i2c.h"):
            self.assertEqual(device_headers.device_header(f"#include <{header}>"), header)
        self.assertIsNone(device_headers.device_header("#include <sys/time.h>"))

    def test_bare_address_is_found(self):
        self.assertEqual(bare_addresses.bare_address("  x = GetValue(0x204);"), "0x204")
        self.assertEqual(bare_addresses.bare_address("SetValue( 16, 1);"), "16")
        self.assertIsNone(bare_addresses.bare_address("SetValue(kRegReset, 1);  // SetValue(4, 1)"))

    def test_clean_interposer_passes(self):
        self.assertEqual(list(interposer_marker.problems(numbered(OVERRIDES % ""))), [])

    def test_interposer_logic_is_found(self):
        bad = [
            "int dup(int fd) {\n  while (fd > 0) --fd;\n  return fd;\n}",
            "int dup(int fd) {\n" + "  fd += 1;\n" * 7 + "}",
        ]
        for text in bad:
            self.assertEqual(len(list(interposer_marker.problems(numbered(OVERRIDES % text)))), 1)

    def test_interposer_override_above_is_found(self):
        text = 'extern "C" int dup(int);\n' + OVERRIDES % ""
        self.assertEqual(len(list(interposer_marker.problems(numbered(text)))), 1)
        self.assertEqual(len(list(interposer_marker.problems(numbered("int x;")))), 1)

    def test_the_sweep_leaves_nothing_out(self):
        listed = swept.read_list("# a comment\nswept open\nputs: on the console\n")
        self.assertEqual(listed, {"open": None, "puts": "on the console"})
        good = ({"open", "puts"}, listed, {"open"})
        self.assertEqual(list(swept.problems(*good)), [])
        self.assertEqual(len(list(swept.problems({"open", "puts", "dup"}, *good[1:]))), 1)
        self.assertEqual(len(list(swept.problems({"open"}, *good[1:]))), 1)
        self.assertEqual(len(list(swept.problems(*good[:2], set()))), 1)
        self.assertEqual(swept.asked('if (call_fails("open", path)) x(should_fail("malloc"));'), {"open", "malloc"})

    def test_imports_are_accounted_for(self):
        listed = {"open": "wrapped", "puts": "pass", "memcpy": "compiler"}
        good = ({"open", "puts"}, {"main"}, {"open"})
        self.assertEqual(list(imports.problems(listed, *good)), [])
        self.assertEqual(len(list(imports.problems(listed, {"open", "puts", "dup"}, set(), {"open"}))), 1)
        self.assertEqual(len(list(imports.problems(listed, {"open", "puts", "_ZSt4cout"}, set(), {"open"}))), 1)
        self.assertEqual(len(list(imports.problems(listed, {"open"}, set(), {"open"}))), 1)
        self.assertEqual(len(list(imports.problems(listed, {"open", "puts"}, set(), set()))), 1)
        self.assertEqual(len(list(imports.problems(listed, {"open", "puts"}, set(), {"open", "puts"}))), 1)
        self.assertEqual(len(list(imports.problems(listed, {"open", "puts"}, {"_ZN6vboard1xE"}, {"open"}))), 1)

    def test_unwanted_words_are_found(self):
        for text in ("the Sp" + "ec says", "see Part" + " 4", "// to" + "do", "FIX" + "ME later"):
            self.assertIsNotNone(words.unwanted(text), text)
        for text in ("special", "partition 4", "inspect", "a part of it"):
            self.assertIsNone(words.unwanted(text), text)

    def test_names_of_tests_are_looked_up(self):
        self.assertEqual(named_tests.named("`Ab.c_d` (e.f), `x`"), [("Ab", "c_d", "e.f")])
        defined, sources = {("A", "b")}, '{"case"}'
        self.assertIsNone(named_tests.problem("A", "b", "case", defined, sources))
        self.assertIsNotNone(named_tests.problem("A", "c", "", defined, sources))
        self.assertIsNotNone(named_tests.problem("A", "b", "other", defined, sources))
        self.assertIsNone(named_tests.problem("Fuzz", "hd_ini_corpus", "example.ini", defined, sources))
        self.assertIsNotNone(named_tests.problem("Fuzz", "no_corpus", "", defined, sources))

    def test_missing_head_is_found(self):
        self.assertTrue(head_comments.has_head("//", "// Owns the register file of the FPGA.\n"))
        self.assertFalse(head_comments.has_head("//", "#include <x>\n"))
        self.assertFalse(head_comments.has_head("//", "//\n// later\n"))
        self.assertFalse(head_comments.has_head("//", ""))

if __name__ == "__main__":
    unittest.main()
