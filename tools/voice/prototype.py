#!/usr/bin/python3
"""Trains the tables and scores the numpy reference of the voice on the held-out sentences:
the quick loop for trying changes to the method before anything is exported."""

import argparse
import pathlib
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import corpus  # noqa: E402
import intelligibility  # noqa: E402
import phonemes  # noqa: E402
import recognise  # noqa: E402
import synth  # noqa: E402
import train  # noqa: E402


def main(argv):
    parser = argparse.ArgumentParser()
    parser.add_argument("--cache", default="/tmp/murmela-voice-cache")
    parser.add_argument("--tables", default="/tmp/murmela-voice-tables.npz")
    parser.add_argument("--retrain", action="store_true")
    parser.add_argument("--speeds", default="1.0")
    parser.add_argument("--limit", type=int, default=0, help="use only this many sentences")
    parser.add_argument("--wavs", help="write the rendered sentences here")
    parser.add_argument("--verbose", action="store_true")
    args = parser.parse_args(argv)

    frontend = phonemes.Frontend()
    tests = intelligibility.sentences()
    if args.retrain or not pathlib.Path(args.tables).exists():
        teacher = corpus.sentences(intelligibility.unseen_sentences())
        if args.limit:
            teacher = teacher[:args.limit]
        voice = train.train(teacher, [frontend.ids(s) for s in teacher], args.cache)
        train.save(voice, args.tables)
    voice = train.load(args.tables)
    constants = synth.VocoderConstants()
    recogniser = recognise.Recogniser()
    for speed in [float(s) for s in args.speeds.split(",")]:
        pairs = []
        started = time.time()
        audio = 0.0
        for i, text in enumerate(tests):
            _, samples = synth.synthesize_chunk(frontend.ids(text), speed, voice, constants)
            audio += len(samples) / synth.RATE
            heard = recogniser.samples(samples, synth.RATE)
            pairs.append((text, heard))
            if args.wavs:
                pathlib.Path(args.wavs).mkdir(parents=True, exist_ok=True)
                recognise.write_wav(pathlib.Path(args.wavs) / ("%02d_%03d.wav" % (i, speed * 100)),
                                    samples, synth.RATE)
            if args.verbose:
                print("  %s\n  %s" % (text, heard))
        wer, correct, total = recognise.score(pairs)
        print("speed %.2f: WER %.1f %% (%d/%d words), %.1f s of audio, %.1f s" % (
            speed, wer, correct, total, audio, time.time() - started), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
