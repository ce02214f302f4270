#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mutation_test.py: which changes mutation.py makes, and which it leaves."""
import unittest

from mutants import mutants


def changes(source):
    return [(mutant.line, mutant.old.strip(), mutant.new.strip()) for mutant in mutants(source)]


class Mutants(unittest.TestCase):
    def test_an_operator_becomes_its_neighbours(self):
        self.assertEqual(changes("bool x = a < b && c == d;"),
                         [(1, "<", "<="), (1, "<", ">="), (1, "&&", "||"), (1, "==", "!=")])

    def test_numbers_bools_negations_and_steps_change(self):
        self.assertEqual(changes("if (!ready) i = 0x1F;\nbool on = true;\n++count;"),
                         [(1, "!", ""), (1, "0x1F", "32"), (2, "true", "false"), (3, "++", "--")])

    def test_a_call_is_taken_out_whole(self):
        self.assertEqual(changes("void F() {\n  Close(a,\n        b);\n  lines_.clear();\n  return G();\n}"),
                         [(2, "Close(a,\n        b);", ";"), (4, "lines_.clear();", ";")])

    def test_comments_texts_and_preprocessor_lines_stay(self):
        self.assertEqual(changes('// a == b\n#if A == 1\n/* 1 + 1 */ auto t = "a == 1";\nchar c = \'1\';\n'
                                 'static_assert(a == 1);\nauto r = R"(1 + 1)";\n'), [])

    def test_the_brackets_of_a_template_stay(self):
        self.assertEqual(changes("std::map<int, std::vector<int>> x;"), [])

    def test_a_mutant_has_its_one_change(self):
        source = "int x = 1;\nint y = 1;\n"
        self.assertEqual([mutant.apply(source) for mutant in mutants(source)], ["int x = 2;\nint y = 1;\n", "int x = 1;\nint y = 2;\n"])

    def test_a_mutant_is_shown_with_its_line(self):
        self.assertEqual([str(mutant) for mutant in mutants("x;\n  Clear(a);\n")], ["2: Clear(a);: `Clear(a);` -> `;`"])


if __name__ == "__main__":
    unittest.main()
