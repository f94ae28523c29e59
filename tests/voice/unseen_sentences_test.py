#!/usr/bin/python3
"""The held-out sentences that tools/voice/closeness.py measures on stay unseen: the teacher
text shares no four words in a row with them or with the test sentences."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))
import corpus  # noqa: E402
import intelligibility  # noqa: E402
import texts  # noqa: E402
from recognise import words  # noqa: E402


def shared_runs(sentence, grams):
    w = words(sentence)
    return {tuple(w[i:i + 4]) for i in range(len(w) - 3)} & grams


class UnseenSentences(unittest.TestCase):
    def test_held_out_sentences_share_no_four_words_with_the_teacher_text_or_the_tests(self):
        held_out = intelligibility.sentences(intelligibility.HELD_OUT_SENTENCES)
        tests = intelligibility.sentences(intelligibility.TEST_SENTENCES)
        self.assertGreaterEqual(len(held_out), 40)
        self.assertEqual(len(set(held_out)), len(held_out))
        grams = corpus.held_out(held_out)
        for sentence in tests:
            self.assertFalse(shared_runs(sentence, grams), sentence)
        unseen = corpus.held_out(intelligibility.unseen_sentences())
        teacher_text = corpus.sentences(intelligibility.unseen_sentences())
        self.assertGreater(len(teacher_text), 1000)
        for sentence in teacher_text:
            self.assertFalse(shared_runs(sentence, unseen), sentence)
        # The exclusion itself: a teacher sentence declared unseen leaves the teacher text.
        victim = teacher_text[10]
        self.assertNotIn(victim, corpus.sentences(intelligibility.unseen_sentences() + [victim]))

    def test_every_held_out_word_is_one_the_recogniser_knows(self):
        known = texts.dictionary_words()
        for sentence in intelligibility.sentences(intelligibility.HELD_OUT_SENTENCES):
            self.assertEqual([w for w in words(sentence) if w not in known], [], sentence)


if __name__ == "__main__":
    unittest.main()
