#!/usr/bin/python3
"""The teacher text takes WordNet's examples as sentences, never its licence header or its
glosses, and thins a source by counting only that source's usable sentences."""

import pathlib
import sys
import tempfile
import unittest
from unittest import mock

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))
import texts  # noqa: E402

HEADER = '  1 This software and database is provided "as is" | see "the licence" for terms\n'
ENTRY = ('02084071 05 n 01 dog 0 001 @ 02083346 n 0000 | a member of the genus Canis; '
         '"the dog barked all night"; "did the dog run away?"\n')
SHORT = '00001740 03 v 01 breathe 0 000 | draw air; "she breathes quietly"\n'


class TeacherText(unittest.TestCase):
    def test_examples_are_the_quoted_parts_after_the_bar_as_sentences(self):
        self.assertEqual(list(texts._examples(HEADER + ENTRY + SHORT)), [
            "The dog barked all night.", "Did the dog run away?", "She breathes quietly."])

    def test_a_thinned_source_keeps_every_nth_usable_sentence_of_its_own(self):
        lines = ['%08d 03 v 01 w 0 000 | gloss; "the cat sat on mat number %s"\n' % (n, word)
                 for n, word in enumerate(["one", "two", "three", "four", "five", "six", "seven"])]
        lines.insert(2, '00000099 03 v 01 w 0 000 | gloss; "too short"\n')  # not usable: two words
        with tempfile.TemporaryDirectory() as folder:
            prose = pathlib.Path(folder) / "prose"
            prose.write_text("The cat sat on the mat by the door.\n")
            data = pathlib.Path(folder) / "data.verb"
            data.write_text(HEADER + "".join(lines))
            known = set("the cat sat on mat number one two three four five six seven by door".split())
            with mock.patch.multiple(texts, PROSE=[str(prose)], WORDNET=[str(data)],
                                     SOURCES=[str(prose), str(data)],
                                     THINNED={"wordnet": ([str(data)], 3)}):
                chosen = list(texts.candidate_sentences(known))
        # The prose sentence does not count towards WordNet's thinning; the short one is no
        # sentence at all.
        self.assertEqual(chosen, ["The cat sat on the mat by the door.",
                                  "The cat sat on mat number three.",
                                  "The cat sat on mat number six."])


if __name__ == "__main__":
    unittest.main()
