"""What the trial of changed programs draws: the changes that a text allows, the same for one seed."""

import unittest

import changes

SAMPLE = """\
#include <cstdio>
static constexpr int kLimit = 0x10;  // not 0x11
static_assert(kLimit == 16);
struct Row { int at; int width; };
static constexpr Row kRows[] = {{1, 2}, {3, 4}};

int handler(const int* value, int context) {
  FILE* file = open_it("/a \\n", 'r');
  if (*value < kLimit && ready) puts("one");
  usleep(10);
  puts("two");
  for (int i = 0; i < 3; ++i) store(i, *value);
  return (*value << 2) & 0xFF;
}
"""


def kinds(kind):
    return [(one.old, one.new) for one in changes.changes_of("a.cpp", SAMPLE) if one.kind == kind]


class Changes(unittest.TestCase):
    def test_operators_with_blanks_around_them_change(self):
        found = kinds("operator")
        for old, new in [("<", "<="), ("&&", "||"), ("<<", ">>"), ("&", "|"), ("++", "--")]:
            self.assertIn((old, new), found)
        self.assertNotIn(("*", "+"), found)

    def test_constants_change_by_one_or_by_a_bit(self):
        found = kinds("constant")
        for old, new in [("10", "11"), ("10", "9"), ("0", "1"), ("0xFF", "0xFE"), ("0x10", "0x90")]:
            self.assertIn((old, new), found)

    def test_asserted_and_commented_ones_stay(self):
        self.assertNotIn("16", [old for old, _ in kinds("constant")])
        self.assertNotIn("0x11", [old for old, _ in kinds("constant")])

    def test_neighbours_change_places_where_one_of_them_calls(self):
        self.assertIn(('usleep(10);\n  puts("two");', 'puts("two");\n  usleep(10);'), kinds("order"))
        self.assertEqual(len(kinds("order")), 1)

    def test_calls_are_dropped_and_declarations_stay(self):
        dropped = [old for old, _ in kinds("dropped")]
        self.assertIn("usleep(10);", dropped)
        self.assertFalse([old for old in dropped if old.startswith("FILE")])

    def test_arguments_and_rows_change_places_and_parameters_stay(self):
        self.assertIn(("i, *value", "*value, i"), kinds("arguments"))
        self.assertFalse([old for old, _ in kinds("arguments") if "context" in old])
        self.assertEqual(kinds("rows"), [("{1, 2}, {3, 4}", "{3, 4}, {1, 2}")])

    def test_conditions_turn_round(self):
        self.assertEqual(kinds("condition"), [("*value < kLimit && ready", "!(*value < kLimit && ready)")])

    def test_texts_lose_or_gain_a_line_end(self):
        self.assertIn(('"/a \\n"', '"/a "'), kinds("text"))
        self.assertIn(('"one"', '"one\\n"'), kinds("text"))

    def test_a_change_replaces_its_place_alone(self):
        for one in changes.changes_of("a.cpp", SAMPLE):
            changed = one.apply(SAMPLE)
            self.assertNotEqual(changed, SAMPLE)
            self.assertEqual(changed[: one.start], SAMPLE[: one.start])
            self.assertTrue(changed.endswith(SAMPLE[one.end :]))


class Draws(unittest.TestCase):
    def test_same_seed_same_changes(self):
        def first(seed):
            draws = changes.draws({"a": {"a.cpp": SAMPLE}}, seed)
            return [next(draws["a"]) for _ in range(12)]

        self.assertEqual(first(7), first(7))
        self.assertNotEqual(first(7), first(8))

    def test_no_change_comes_twice(self):
        drawn = list(changes.draws({"a": {"a.cpp": SAMPLE}}, 1)["a"])
        self.assertEqual(len(drawn), len(set(drawn)))
        self.assertEqual(set(drawn), set(changes.changes_of("a.cpp", SAMPLE)))

    def test_every_folder_gets_its_share(self):
        share = changes.shares({"large": 9000, "middle": 990, "tiny": 10}, 60)
        self.assertEqual(sum(share.values()), 60)
        self.assertEqual(share["tiny"], 1)
        self.assertGreater(share["large"], 50)


if __name__ == "__main__":
    unittest.main()
