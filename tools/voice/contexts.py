"""What the voice's network knows about a token: the tokens around it (spaces and stress marks
included, so word edges and stress are in view) and where it sits in its word, its phrase and
its chunk. The encoder graph (export.py) computes exactly this from the ids it is given."""

import numpy as np

import layout

WINDOW = 4  # tokens on each side
OFFSETS = list(range(-WINDOW, WINDOW + 1))
# log(1 + tokens) since and until the word's edge, since and until the phrase's edge, since the
# chunk's start and until its end; then 1 in a chunk that asks.
SCALARS = 7
NEAR = 32.0  # tokens: distances to an edge count up to this
FAR = 128.0  # tokens: positions in the chunk count up to this


def edges(symbols):
    """Per token id: (1 where a word ends: a space or a silent token, 1 where a phrase ends: a
    silent token)."""
    kind = symbols["kind"]
    phrase = (kind == layout.KIND_SILENT).astype(np.int64)
    word = phrase | (kind == layout.KIND_SPACE)
    return word, phrase


def _distances(marks):
    """Per position: tokens back to the nearest marked position before it and on to the nearest
    one after it (the chunk is framed by marked boundary tokens, so both exist inside it)."""
    n = len(marks)
    index = np.arange(n)
    gap = index[None, :] - index[:, None]  # [i, j] = j - i
    marked = marks[None, :] > 0
    big = 4 * n
    back = np.where(marked & (gap < 0), -gap, big).min(1)
    ahead = np.where(marked & (gap > 0), gap, big).min(1)
    return back, ahead


def token_contexts(ids, length, symbols):
    """ids [B] (the framed chunk, boundary id 0 at both ends, then padding 0), length = tokens
    before the padding -> (window ids [B, len(OFFSETS)], scalars [B, SCALARS] float32)."""
    ids = np.asarray(ids, np.int64)
    n = len(ids)
    window = np.zeros((n, len(OFFSETS)), np.int64)
    for column, offset in enumerate(OFFSETS):
        source = np.arange(n) + offset
        inside = (source >= 0) & (source < n)
        window[inside, column] = ids[source[inside]]
    word, phrase = edges(symbols)
    word_back, word_ahead = _distances(word[ids])
    phrase_back, phrase_ahead = _distances(phrase[ids])
    index = np.arange(n)
    asks = float(np.max(symbols["question"][ids] * (index < length)))
    near = np.minimum(np.stack([word_back, word_ahead, phrase_back, phrase_ahead], 1), NEAR)
    far = np.minimum(np.stack([index, np.maximum(length - 1 - index, 0)], 1), FAR)
    scalars = np.log1p(np.concatenate([near, far], 1).astype(np.float32))
    scalars = np.concatenate([scalars, np.full((n, 1), asks, np.float32)], 1)
    return window, scalars.astype(np.float32)
