#!/usr/bin/python3
"""A sound whose start a stress mark takes, or whose edges spaces take, still follows its own
course: the frames of the mark and of what is left of the sound, read the way the decoder
reads them, trace the whole sound's anchors in order."""

import pathlib
import sys
import unittest

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))
import layout  # noqa: E402
import synth  # noqa: E402
from layout import ANCHORS, PARAMS, UNIT_S  # noqa: E402


def heard(anchors, frames):
    """What the decoder makes of one token's anchors [ANCHORS * PARAMS] over `frames` frames:
    the first parameter at each frame."""
    positions = (np.arange(frames) + 0.5) / frames
    return synth.anchor_weights(positions) @ anchors.reshape(ANCHORS, PARAMS)[:, 0]


class KeptParts(unittest.TestCase):
    def setUp(self):
        # A sound rising steadily from anchor to anchor: its course at u is the anchor index.
        self.sound = np.repeat(np.arange(ANCHORS, dtype=float), PARAMS)[None, :]

    def course(self, u):
        return synth.anchor_weights(np.asarray(u)) @ np.arange(ANCHORS, dtype=float)

    def test_the_whole_sound_is_its_own_anchors(self):
        whole = synth.part_of(self.sound, np.zeros(1), np.ones(1))
        np.testing.assert_allclose(whole, self.sound, atol=1e-12)

    def test_a_stress_mark_plays_the_start_and_the_sound_goes_on_from_there(self):
        seconds = 0.075
        start, end = synth.kept_part(np.array([layout.KIND_PHONE]), np.array([layout.KIND_STRESS]),
                                     np.array([layout.KIND_PHONE]), np.array([seconds]))
        self.assertAlmostEqual(start[0], UNIT_S / (seconds + UNIT_S))
        self.assertEqual(end[0], 1.0)
        mark = synth.part_of(self.sound, np.zeros(1), start)[0]
        rest = synth.part_of(self.sound, start, end)[0]
        frames_mark, frames_rest = 4, 12  # speed 0.5: 25 ms and 75 ms
        times = np.concatenate([(np.arange(frames_mark) + 0.5) / frames_mark * start[0],
                                start[0] + (np.arange(frames_rest) + 0.5) / frames_rest
                                * (1.0 - start[0])])
        got = np.concatenate([heard(mark, frames_mark), heard(rest, frames_rest)])
        self.assertTrue(np.all(np.diff(got) >= -1e-9), got)
        np.testing.assert_allclose(got, self.course(times), atol=0.45)

    def test_spaces_take_half_a_unit_from_each_side(self):
        start, end = synth.kept_part(np.array([layout.KIND_PHONE]), np.array([layout.KIND_SPACE]),
                                     np.array([layout.KIND_SPACE]), np.array([0.075]))
        self.assertAlmostEqual(start[0], 0.125)
        self.assertAlmostEqual(end[0], 0.875)
        start, end = synth.kept_part(np.array([layout.KIND_PHONE]), np.array([layout.KIND_PHONE]),
                                     np.array([layout.KIND_STRESS]), np.array([0.08]))
        self.assertEqual((start[0], end[0]), (0.0, 1.0))


if __name__ == "__main__":
    unittest.main()
