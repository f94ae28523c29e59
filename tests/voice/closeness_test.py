#!/usr/bin/python3
"""The measuring behind tools/voice/closeness.py: the distances, the pitch tracker, the
duration mapping and copy-synthesis give the answers known for made-up signals and token
sequences."""

import pathlib
import sys
import unittest

import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))
import copy_synthesis  # noqa: E402
import measures  # noqa: E402
import recognise  # noqa: E402
import synth  # noqa: E402
import teacher  # noqa: E402
from vocabulary import vocabulary  # noqa: E402

RATE = measures.RATE


def harmonic_tone(f0, seconds=1.0, level=0.3, tilt=1.0):
    """Seven harmonics, the k-th at 1 / k ** tilt."""
    time = np.arange(int(seconds * RATE)) / RATE
    return level * sum(np.sin(2 * np.pi * f0 * k * time) / k ** tilt for k in range(1, 8))


def semitones(a, b):
    return 12.0 * np.log2(a / b)


class Pitch(unittest.TestCase):
    def test_tones_are_found_to_a_tenth_of_a_semitone_and_noise_and_silence_are_unvoiced(self):
        for f0 in (70.0, 123.4, 210.0, 330.0):
            found, voiced = measures.pitch(harmonic_tone(f0))
            middle = slice(10, -10)
            self.assertTrue(voiced[middle].all(), f0)
            self.assertLess(np.max(np.abs(semitones(found[middle], f0))), 0.1, f0)
        noise = np.random.default_rng(5).standard_normal(RATE) * 0.1
        self.assertLess(measures.pitch(noise)[1].mean(), 0.05)
        quiet_then_tone = np.concatenate([np.zeros(RATE // 2), harmonic_tone(150.0, 0.5)])
        _, voiced = measures.pitch(quiet_then_tone)
        self.assertFalse(voiced[:90].any())
        self.assertTrue(voiced[110:-10].all())


class Distances(unittest.TestCase):
    def test_the_warping_path_pairs_equal_frames_of_stretched_sequences(self):
        a = np.array([[0.0], [1.0], [2.0], [3.0]])
        b = np.array([[0.0], [0.0], [1.0], [2.0], [2.0], [2.0], [3.0]])
        path = measures.warping_path(a, b)
        self.assertEqual(tuple(path[0]), (0, 0))
        self.assertEqual(tuple(path[-1]), (3, 6))
        self.assertTrue(np.all(np.diff(path, axis=0) >= 0))
        self.assertTrue(np.all(np.abs(np.diff(path, axis=0)).sum(1) >= 1))
        self.assertTrue(np.all(a[path[:, 0]] == b[path[:, 1]]))

    def test_distortion_ignores_level_and_tempo_but_not_timbre_or_pitch(self):
        def utterance(seconds=0.3, tilt=1.0, octave=1.0):
            """Three vowel-like tones and a hiss."""
            hiss = np.random.default_rng(9).standard_normal(int(seconds * RATE * 0.7)) * 0.05
            return np.concatenate([harmonic_tone(octave * f0, seconds, tilt=tilt)
                                   for f0 in (110.0, 130.0, 100.0)] + [hiss])

        reference = measures.Features(utterance())

        def compare(other):
            comparison = measures.Comparison()
            comparison.add(reference, measures.Features(other))
            return comparison

        quieter = compare(0.1 * utterance())
        self.assertLess(quieter.mel_cepstral_distortion(), 0.01)
        self.assertLess(quieter.pitch_error(), 0.01)
        self.assertGreater(quieter.voicing_agreement(), 99.9)
        self.assertLess(compare(utterance(seconds=0.5)).mel_cepstral_distortion(), 1.0)
        self.assertGreater(compare(utterance(tilt=0.3)).mel_cepstral_distortion(), 1.5)
        self.assertAlmostEqual(compare(utterance(octave=2.0)).pitch_error(), 12.0, delta=0.2)


def ids_of(symbols):
    vocab = vocabulary()
    return np.array([vocab[s] for s in symbols], np.int64)


class WordErrorRate(unittest.TestCase):
    def test_the_recogniser_hears_the_same_audio_the_same_after_other_audio(self):
        # Fast speech is where the decoder's left-over state used to change the words.
        fast, _ = teacher.speak("The bakery on our street opens at seven in the morning.",
                                "rms", 2.0)
        other, _ = teacher.speak("Could you send me the report before lunch tomorrow?", "kal")
        recogniser = recognise.Recogniser()
        first = recogniser.samples(fast, RATE)
        recogniser.samples(other, RATE)
        self.assertEqual(recogniser.samples(fast, RATE), first)


class Durations(unittest.TestCase):
    def test_stress_marks_and_spaces_count_towards_the_sounds_around_them(self):
        ids = ids_of(["k", "\u02c8", "\u00e6", "t", " ", "s", "."])
        counts = [4, 6, 2, 8, 4, 2, 10, 24, 4]  # boundary tokens at both ends
        seconds = measures.token_seconds(ids, counts)
        expected = np.array([6, 0, 2 + 8, 4 + 1, 0, 1 + 10, 0]) * measures.FRAME_S
        np.testing.assert_allclose(seconds, expected)

    def test_the_voice_s_phones_are_matched_to_the_teacher_s_segments(self):
        # "cat mother": a stressed vowel, a space, and "ə ɹ" spoken by flite as one "er".
        ids = ids_of(["k", "\u02c8", "\u00e6", "t", " ", "m", "\u02c8", "\u028c", "\u00f0",
                      "\u0259", "\u0279"])
        counts = [4, 6, 2, 10, 4, 2, 6, 2, 8, 4, 6, 4, 4]
        segments = [("pau", 0.0, 0.1), ("k", 0.1, 0.2), ("ae", 0.2, 0.3), ("t", 0.3, 0.35),
                    ("m", 0.35, 0.4), ("ah", 0.4, 0.5), ("dh", 0.5, 0.55), ("er", 0.55, 0.7),
                    ("pau", 0.7, 0.9)]
        pairs, total = measures.voice_phone_pairs(ids, counts, segments)
        self.assertEqual(total, 7)
        voice = [0.075, 0.15, 0.0625, 0.0875, 0.125, 0.05, 0.125]
        teacher = [0.1, 0.1, 0.05, 0.05, 0.1, 0.05, 0.15]
        np.testing.assert_allclose(np.array(pairs), np.array(list(zip(teacher, voice))),
                                   atol=1e-9)
        errors = measures.Durations()
        errors.add(pairs, total)
        errors.add([], 3)
        self.assertAlmostEqual(errors.matched_percent(), 70.0)
        rms = np.sqrt(np.mean((np.array(voice) - np.array(teacher)) ** 2)) * 1000
        self.assertAlmostEqual(errors.error_ms(), rms)

    def test_two_flite_voices_are_compared_only_on_the_same_phones(self):
        rms = [("pau", 0.0, 0.1), ("k", 0.1, 0.2), ("ae", 0.2, 0.35), ("pau", 0.35, 0.5)]
        slt = [("pau", 0.0, 0.05), ("k", 0.05, 0.1), ("ae", 0.1, 0.3), ("pau", 0.3, 0.4)]
        pairs, total = measures.same_phone_pairs(rms, slt)
        np.testing.assert_allclose(pairs, [(0.1, 0.05), (0.15, 0.2)])
        self.assertEqual(total, 2)
        self.assertEqual(measures.same_phone_pairs(rms, slt[:2] + [("eh", 0.1, 0.3)]), ([], 2))


class CopySynthesis(unittest.TestCase):
    def test_a_tone_comes_back_at_its_pitch_and_level(self):
        quiet = np.zeros(RATE // 4)
        tone = np.concatenate([quiet, harmonic_tone(120.0, 1.0, 0.2), quiet])
        frames = copy_synthesis.vocoder_frames(tone)
        self.assertEqual(frames.shape[1], int(np.ceil(len(tone) / synth.HOP)))
        silent, sounding = slice(0, 15), slice(30, -30)
        self.assertLess(np.max(frames[49, silent].astype(float)), 0.1)
        self.assertGreater(np.min(frames[49, sounding].astype(float)), 0.9)
        again = copy_synthesis.resynthesise(tone, synth.VocoderConstants())
        self.assertEqual(len(again), frames.shape[1] * synth.HOP)
        f0, voiced = measures.pitch(again)
        middle = slice(100, 220)
        self.assertTrue(voiced[middle].all())
        self.assertLess(np.max(np.abs(semitones(f0[middle], 120.0))), 0.2)
        level = 10 * np.log10(np.mean(again[RATE // 2:RATE] ** 2) / np.mean(
            tone[RATE // 2:RATE] ** 2))
        self.assertLess(abs(level), 2.0)
        self.assertLess(np.max(np.abs(again[:RATE // 8])), 1e-3)

    def test_the_spectrum_is_framed_as_the_inverse_stft_frames(self):
        samples = np.random.default_rng(3).standard_normal(RATE // 2) * 0.1
        frames = len(samples) // synth.HOP
        spectrum = copy_synthesis.spectrum(samples, frames)
        again = synth.istft(np.abs(spectrum), np.angle(spectrum), frames)
        np.testing.assert_allclose(again, samples, atol=1e-5)


if __name__ == "__main__":
    unittest.main()
