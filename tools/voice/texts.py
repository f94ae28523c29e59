"""Teacher text: plain English sentences taken from freely licensed documentation that Debian
installs, chosen so that the voice's sounds and sound pairs are all covered.

Sources (the licence of each is in the named package's copyright file):
  /usr/share/doc/flite/examples/alice  the first two chapters of Alice's Adventures in
                                       Wonderland, package flite, public domain
  /usr/share/vim/vim90/doc/usr_*.txt   Vim user manual, package vim-runtime,
                                       Open Publication License 1.0 or later, no options
  /usr/share/vim/vim90/doc/*.txt       the rest of Vim's help (the reference manual), same
                                       package and licence; every second usable sentence
  /usr/share/common-licenses/GPL-3     GNU GPL 3 text, package base-files, verbatim copies
                                       permitted (only statistics are kept, not the text)
  /usr/share/wordnet/data.*            the example sentences of WordNet 3.0's glosses,
                                       package wordnet-base, WordNet 3.0 licence (BSD-style)
Only statistics derived from the teacher's audio of these sentences end up in the voice.
"""

import collections
import glob
import re

PROSE = ["/usr/share/doc/flite/examples/alice"]
_USER_MANUAL = sorted(glob.glob("/usr/share/vim/vim90/doc/usr_*.txt"))
# The reference manual repeats much of the user manual's wording: half its sentences add nearly
# all it has to teach, at half the training time.
REFERENCE = sorted(set(glob.glob("/usr/share/vim/vim90/doc/*.txt")) - set(_USER_MANUAL))
# Everyday English, short sentences about people and things, which the manuals lack.
WORDNET = ["/usr/share/wordnet/data.%s" % part for part in ("noun", "verb", "adj", "adv")]
# Sources of which only every n-th usable sentence is taken.
THINNED = {"reference": (REFERENCE, 2)}
SOURCES = PROSE + _USER_MANUAL + ["/usr/share/common-licenses/GPL-3"] + REFERENCE + WORDNET

_SENTENCE_END = re.compile(r"(?<=[.?!])\s+")
_ALLOWED = re.compile(r"^[A-Za-z][A-Za-z ,'.?!]*[.?!]$")


def _prose_paragraphs(text):
    for block in re.split(r"\n\s*\n", text):
        yield " ".join(block.split())


def _paragraphs(text):
    block = []
    for line in text.splitlines():
        stripped = line.strip()
        # Vim help: tags, examples and headings are indented, starred or upper case.
        if (not stripped or line.startswith((" ", "\t")) or "*" in stripped or "|" in stripped
                or stripped.isupper() or stripped.startswith(("=", "-", "<", ">", ":"))):
            if block:
                yield " ".join(block)
                block = []
            continue
        block.append(stripped)
    if block:
        yield " ".join(block)


def _examples(text):
    """WordNet's data lines: the quoted examples after a gloss's bar, as sentences."""
    for line in text.splitlines():
        if line.startswith(" ") or "|" not in line:
            continue  # the licence header
        for example in re.findall(r'"([^"]+)"', line.split("|", 1)[1]):
            example = example.strip()
            if example:
                yield example[0].upper() + example[1:] + ("" if example[-1] in ".?!" else ".")


def _splitter(path):
    if path in PROSE:
        return _prose_paragraphs
    return _examples if path in WORDNET else _paragraphs


def _group(path):
    return next((name for name, (paths, _) in THINNED.items() if path in paths), None)


def candidate_sentences(known_words):
    """Sentences of 5 to 18 plain words, every word known to the dictionary given."""
    seen = set()
    taken = collections.Counter()
    for path in SOURCES:
        with open(path, encoding="utf-8", errors="replace") as source:
            text = source.read()
        group = _group(path)
        for paragraph in _splitter(path)(text):
            for sentence in _SENTENCE_END.split(paragraph.replace("`", "'")):
                sentence = " ".join(sentence.split()).strip("'\"")
                if not _ALLOWED.match(sentence) or ".." in sentence:
                    continue
                if re.search(r"\b[a-z]\.", sentence) or re.search(r"[A-Z]{2}", sentence):
                    continue
                words = re.findall(r"[a-z']+", sentence.lower())
                if not 5 <= len(words) <= 18:
                    continue
                if any(word not in known_words for word in words):
                    continue
                key = sentence.lower()
                if key in seen:
                    continue
                seen.add(key)
                if group:
                    taken[group] += 1
                    if taken[group] % THINNED[group][1]:
                        continue
                yield sentence


def dictionary_words(path="/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict"):
    words = set()
    with open(path, encoding="utf-8", errors="replace") as source:
        for line in source:
            if line.strip():
                words.add(line.split()[0].split("(")[0])
    return words
