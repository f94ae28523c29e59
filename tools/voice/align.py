"""Lines up the teacher's segments (ARPAbet, from flite) with Murmela's tokens for the same
sentence, by dynamic programming through a small table of which phones may stand for which
symbols. Only tokens with a confident match give statistics."""

import numpy as np

# symbol -> (phones that match it well, phones that match it loosely)
MATCHES = {
    "A": ("ey", ""), "I": ("ay", ""), "O": ("ow", ""), "W": ("aw", ""), "Y": ("oy", ""),
    "\u1d4a": ("ax ah", "ih"), "\u1d7b": ("ih ax", "iy ah eh"), "a": ("aa ae", "ah"), "i": ("iy", "ih"), "u": ("uw", "uh"),
    "\u0251": ("aa", "ao ah"), "\u0252": ("aa", "ao"), "\u0254": ("ao", "aa ow"),
    "\u0259": ("ax ah", "ih eh uh"), "\u025b": ("eh", "ae ih"), "\u025c": ("er", ""),
    "\u026a": ("ih", "iy ax ah eh"), "\u028a": ("uh", "uw"), "\u028c": ("ah", "ax aa"),
    "\u00e6": ("ae", "eh aa"), "b": ("b", ""), "d": ("d", "t"), "f": ("f", ""), "h": ("hh", ""),
    "j": ("y", ""), "k": ("k", "g"), "l": ("l", ""), "m": ("m", ""), "n": ("n", "ng"),
    "p": ("p", ""), "s": ("s", "z"), "t": ("t", "d"), "v": ("v", "f"), "w": ("w", ""),
    "z": ("z", "s"), "\u00f0": ("dh", "th"), "\u03b8": ("th", "dh"), "\u014b": ("ng", "n"),
    "\u0261": ("g", "k"), "\u0279": ("r", "er"), "\u0283": ("sh", "zh"), "\u0292": ("zh", "sh"),
    "\u027e": ("t d", "dx"), "\u02a4": ("jh", ""), "\u02a7": ("ch", ""),
}
VOWEL_SYMBOLS = set("AIOWY\u1d7b\u1d4aaiu\u0251\u0252\u0254\u0259\u025b\u025c\u026a\u028a\u028c\u00e6")
VOWEL_PHONES = set("aa ae ah ao aw ax ay eh er ey ih iy ow oy uh uw".split())
RHOTIC_BEFORE = set("\u0259\u025c\u026a\u025b\u028a\u0254\u0251")


def substitution(symbol, phone):
    good, loose = MATCHES.get(symbol, ("", ""))
    if phone in good.split():
        return 0.0
    if phone in loose.split():
        return 0.6
    if (symbol in VOWEL_SYMBOLS) == (phone in VOWEL_PHONES):
        return 2.0
    return 4.0


SKIP = 2.2
MERGE = 2.6


def align(symbols, segments):
    """symbols: the phone symbols of a sentence (no stress, space or punctuation).
    segments: [(phone, start, end)] without pauses.
    Returns per symbol (start, end, confident) or None where it got no time."""
    n, m = len(symbols), len(segments)
    phones = [s[0] for s in segments]
    cost = np.full((n + 1, m + 1), np.inf)
    back = np.zeros((n + 1, m + 1), dtype=np.int8)
    cost[0, 0] = 0.0
    for i in range(n + 1):
        for j in range(m + 1):
            here = cost[i, j]
            if not np.isfinite(here):
                continue
            if i < n and j < m:  # one symbol, one phone
                c = here + substitution(symbols[i], phones[j])
                if c < cost[i + 1, j + 1]:
                    cost[i + 1, j + 1], back[i + 1, j + 1] = c, 1
            if i + 1 < n and j < m:  # two symbols, one phone ("əɹ" as "er")
                pair = 0.3 if (symbols[i] in RHOTIC_BEFORE and symbols[i + 1] == "\u0279"
                               and phones[j] == "er") else MERGE
                if symbols[i] == "\u1d4a" and phones[j] in ("l", "n", "m"):
                    pair = 0.3
                c = here + pair
                if c < cost[i + 2, j + 1]:
                    cost[i + 2, j + 1], back[i + 2, j + 1] = c, 2
            if i < n and j + 1 < m:  # one symbol, two phones
                c = here + MERGE
                if c < cost[i + 1, j + 2]:
                    cost[i + 1, j + 2], back[i + 1, j + 2] = c, 3
            if i < n:  # symbol without a phone
                c = here + SKIP
                if c < cost[i + 1, j]:
                    cost[i + 1, j], back[i + 1, j] = c, 4
            if j < m:  # phone without a symbol
                c = here + SKIP
                if c < cost[i, j + 1]:
                    cost[i, j + 1], back[i, j + 1] = c, 5
    result = [None] * n
    i, j = n, m
    while i > 0 or j > 0:
        move = back[i, j]
        if move == 1:
            _, start, end = segments[j - 1]
            result[i - 1] = (start, end, substitution(symbols[i - 1], phones[j - 1]) <= 0.6)
            i, j = i - 1, j - 1
        elif move == 2:
            _, start, end = segments[j - 1]
            good = cost[i, j] - cost[i - 2, j - 1] <= 0.3
            middle = start + (end - start) * (0.5 if symbols[i - 2] != "\u1d4a" else 0.35)
            result[i - 2] = (start, middle, good)
            result[i - 1] = (middle, end, good)
            i, j = i - 2, j - 1
        elif move == 3:
            result[i - 1] = (segments[j - 2][1], segments[j - 1][2], False)
            i, j = i - 1, j - 2
        elif move == 4:
            i -= 1
        elif move == 5:
            j -= 1
        else:
            raise AssertionError("alignment lost its way")
    return result
