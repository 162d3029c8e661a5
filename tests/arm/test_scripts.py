"""The scripts that judge the board's program, on small examples of what they must notice."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "packaging"))
import memory  # noqa: E402
import size  # noqa: E402
import syscalls  # noqa: E402

# A constant, one of two constants, a number out of a literal and one through the
# common entry.
READABLE = """
00010000 <plain>:
   10000:\te3a07003 \tmov\tr7, #3
   10004:\tef000000 \tsvc\t0x00000000
   10008:\te12fff1e \tbx\tlr

00010010 <either>:
   10010:\t13a07091 \tmovne\tr7, #145\t@ 0x91
   10014:\t03a07003 \tmoveq\tr7, #3
   10018:\tef000000 \tsvc\t0x00000000
   1001c:\te12fff1e \tbx\tlr

00010020 <literal>:
   10020:\te59f0004 \tldr\tr0, [pc, #4]\t@ 1002c <literal+0xc>
   10024:\tebfffff5 \tbl\t10100 <__syscall_cp>
   10028:\te12fff1e \tbx\tlr
   1002c:\t00000193 \t.word\t0x00000193
"""
UNREADABLE = """
00010000 <from_outside>:
   10000:\tef000000 \tsvc\t0x00000000
   10004:\te12fff1e \tbx\tlr

00010010 <loaded>:
   10010:\te5907000 \tldr\tr7, [r0]
   10014:\tef000000 \tsvc\t0x00000000
"""
TABLE = "3 read 2.6.12\n145 readv 2.6.12\n403 clock_gettime64 5.1 clock_gettime\n263 clock_gettime 2.6.12\n"
SMAPS = """00110000-00120000 r-xp 00000000 fe:01 1 /x/vantorig
Private_Clean:        60 kB
Private_Dirty:         0 kB
00130000-00140000 rw-p 00000000 00:00 0 
Private_Clean:         0 kB
Private_Dirty:        12 kB
7f0000000000-7f0000001000 rw-p 00000000 00:00 0 
Private_Clean:         0 kB
Private_Dirty:       900 kB
"""


class Syscalls(unittest.TestCase):
    def test_numbers_are_found(self):
        calls, unread = syscalls.issued(READABLE)
        self.assertEqual(calls, {3: {"plain", "either"}, 145: {"either"}, 403: {"literal"}})
        self.assertEqual(unread, [])

    def test_a_number_from_elsewhere_is_told(self):
        calls, unread = syscalls.issued(UNREADABLE)
        self.assertEqual(calls, {})
        self.assertEqual(unread, ["from_outside at 10000", "loaded at 10014"])

    def test_a_new_call_wants_a_fallback_that_is_there(self):
        table = syscalls.read_table(TABLE)
        self.assertEqual(list(syscalls.problems({403: {"f"}, 263: {"f"}}, [], table)), [])
        self.assertIn("cannot issue", "".join(syscalls.problems({403: {"f"}}, [], table)))
        without = syscalls.read_table("403 clock_gettime64 5.1\n")
        self.assertIn("nothing to fall back on", "".join(syscalls.problems({403: {"f"}}, [], without)))
        self.assertIn("not in", "".join(syscalls.problems({9: {"f"}}, [], table)))


class Size(unittest.TestCase):
    def test_limit_record_and_growth(self):
        recorded = size.read_record("# bytes\narm 100000\n")
        self.assertIsNone(size.problem("arm", 102048, recorded))
        self.assertIn("100000 in tests/bench", size.problem("arm", 102049, recorded))
        self.assertIn("more than", size.problem("arm", 131073, {"arm": 131073}))
        self.assertIn("not in", size.problem("other", 1, recorded))


class Memory(unittest.TestCase):
    def test_only_the_programs_own_space_counts(self):
        self.assertEqual(memory.private_kb(SMAPS), (12, 72))


if __name__ == "__main__":
    unittest.main()
