#!/usr/bin/python3
"""What the voice's network is told about each token: the edges of its word and phrase and its
place in the chunk, the same however long the padding after the chunk is."""

import pathlib
import sys
import unittest

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))
import contexts  # noqa: E402
import layout  # noqa: E402
from vocabulary import vocabulary  # noqa: E402


def framed(text_symbols):
    vocab = vocabulary()
    return [0] + [vocab[s] for s in text_symbols] + [0]


class TokenContexts(unittest.TestCase):
    def test_edges_and_places_count_tokens_and_ignore_the_padding(self):
        symbols = layout.symbol_tables()
        # "ˈhɛlO wɜld, ju?": a stress mark, two words, a comma, a third word, a question.
        ids = framed(list("\u02c8h\u025blO w\u025cld, ju?"))
        length = len(ids)
        window, scalars = contexts.token_contexts(ids + [0] * 20, length, symbols)
        counts = np.rint(np.expm1(scalars[:length, :6])).astype(int)
        o = ids.index(vocabulary()["O"])
        # O ends "hɛlO": one token on to the space, five back to the boundary before the stress.
        self.assertEqual(counts[o, :2].tolist(), [5, 1])
        # The phrase runs on to the comma, five tokens after the word ends.
        self.assertEqual(counts[o, 2:4].tolist(), [5, 6])
        self.assertEqual(counts[o, 4:].tolist(), [o, length - 1 - o])
        self.assertEqual(window[o, contexts.WINDOW].item(), ids[o])
        self.assertEqual(window[o, contexts.WINDOW + 1].item(), vocabulary()[" "])
        self.assertTrue(np.all(scalars[:length, 6] == 1.0), "the chunk asks")
        # The voice learns from unpadded chunks and speaks padded ones; only the framing
        # boundary tokens, which are silence whatever the network says, may see a difference.
        unpadded_window, unpadded = contexts.token_contexts(ids, length, symbols)
        np.testing.assert_array_equal(unpadded[1:-1], scalars[1:length - 1])
        np.testing.assert_array_equal(unpadded_window, window[:length])

    def test_long_chunks_stay_within_the_learnt_range(self):
        symbols = layout.symbol_tables()
        ids = framed(list("ta" * 300))
        _, scalars = contexts.token_contexts(ids, len(ids), symbols)
        self.assertLessEqual(scalars[:, :4].max(), np.log1p(contexts.NEAR) + 1e-6)
        self.assertLessEqual(scalars[:, 4:6].max(), np.log1p(contexts.FAR) + 1e-6)
        self.assertTrue(np.all(scalars[:, 6] == 0.0), "nothing asks")


if __name__ == "__main__":
    unittest.main()
