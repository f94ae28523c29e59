"""The voice's symbols and ids: the same table as the test voice, so both voices read the same
token ids."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from make_test_voice import vocabulary as test_vocabulary  # noqa: E402

# espeak-ng writes "ᵻ" for many weak vowels ("define", "wanted"); without it they would vanish.
EXTRA = {"\u1d7b": 181}


def vocabulary():
    table = test_vocabulary()
    table.update(EXTRA)
    return table


SILENT = [";", ":", ",", ".", "!", "?", "\u2014", "\u2026", '"', "(", ")", "\u201c", "\u201d"]
STRESS = ["\u02c8", "\u02cc"]
SPACE = " "
