#!/usr/bin/python3
"""The vocoder's pulse candidates: every pulse that can sound in a frame is among them, at every
pitch the vocoder allows, so that none is lost by looking at too few."""

import pathlib
import sys
import unittest

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))
import synth  # noqa: E402


class PulseCandidates(unittest.TestCase):
    def test_no_pulse_outside_the_candidates_sounds(self):
        rng = np.random.default_rng(7)
        tracks = {
            "the highest pitch": np.full(3000, synth.F0_MAX),
            "the lowest pitch": np.full(3000, synth.F0_MIN),
            "a wandering pitch": rng.uniform(synth.F0_MIN, synth.F0_MAX, 20000),
            "a gliding pitch": np.linspace(synth.F0_MIN, synth.F0_MAX, 20000),
        }
        first = -(synth.PULSES // 2)
        candidates = np.arange(synth.PULSES) + first
        wide = np.arange(-4 * synth.PULSES, 4 * synth.PULSES)
        outside = (wide < candidates[0]) | (wide > candidates[-1])
        most = 0
        for name, f0 in tracks.items():
            weights = synth.crossfade_window(synth.pulse_positions(f0, wide))
            self.assertFalse(np.any(weights[:, outside]), name)
            most = max(most, int(np.max(np.sum(weights > 0, axis=1))))
        # At the highest pitch every candidate is needed at times: the count is tight.
        self.assertEqual(most, synth.PULSES, "fewer candidates would do")


if __name__ == "__main__":
    unittest.main()
