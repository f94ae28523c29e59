#!/usr/bin/python3
"""How close a voice is to its teacher (one of flite's voices) on the same sentences, next to a
different flite voice as a yardstick and to copy-synthesis (the teacher's own frames through
the vocoder: the ceiling of any model feeding it).

  closeness.py VOICE RENDER_TEXT [--teacher NAME] [--sentences FILE] [--yardstick NAME] [--swap]
               [--verbose]

VOICE is a voice directory, spoken through the engine as the program uses it
(tools/voice/render_text); its teacher is flite's NAME voice (rms unless told), the yardstick
another of flite's voices (slt, or rms when slt is the teacher). The sentences are tools/voice/heldout_sentences.txt unless
--sentences names another file. For each kind of audio it prints, against the teacher at
speed 1.0:

  MCD dB      mel-cepstral distortion (24 warped cepstral coefficients, 0 to 8 kHz, level
              left out), the mean over the frame pairs of a dynamic time warping
  pitch st    RMS pitch error in semitones on the pairs voiced in both (YIN)
  V/UV %      pairs where both are voiced or both are not
  dur ms      RMS error of phone durations against the teacher's -psdur segments, over the
              phones matched confidently (percent in brackets)

and the word error rate at speeds 1.0 and 2.0 with intelligibility.py's recogniser. The
teacher's own audio 10 ms later (silence put in front) shows how much the word error rate moves
for reasons that have nothing to do with the voice. --swap adds the word error rates of the
vocoder's magnitude with the teacher's phase and of the teacher's magnitude with the vocoder's
phase, to tell which of the two loses words.
"""

import argparse
import pathlib
import subprocess
import sys
import tempfile

import numpy as np

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import copy_synthesis  # noqa: E402
import intelligibility  # noqa: E402
import measures  # noqa: E402
import recognise  # noqa: E402
import synth  # noqa: E402
import teacher  # noqa: E402

SPEEDS = (1.0, 2.0)
DELAY = 240  # samples: 10 ms


class Row:
    """The figures of one kind of audio."""

    def __init__(self, name, compared=True, timing_known=True):
        self.name = name
        self.closeness = measures.Comparison() if compared else None
        self.durations = measures.Durations() if compared and timing_known else None
        self.timing_known = timing_known
        self.heard = {speed: [] for speed in SPEEDS}

    def word_error_rate(self, speed):
        pairs = self.heard[speed]
        return recognise.score(pairs)[0] if pairs else None


def read_engine_chunks(path):
    """[(ids, counts)] from render_text's .tokens file, one per chunk."""
    chunks = []
    for line in pathlib.Path(path).read_text().splitlines():
        ids, counts = line.split("|")
        chunks.append(([int(x) for x in ids.split()], [int(x) for x in counts.split()]))
    return chunks


def engine_phone_pairs(chunks, segments):
    """The voice's phone durations against the teacher's, chunk by chunk joined into one token
    sequence. A chunk the engine had to split has more counts than tokens and no timing we
    can place: then none of the sentence counts."""
    ids, token_counts = [], []
    for chunk_ids, counts in chunks:
        if len(counts) != len(chunk_ids) + 2:
            return [], len([s for s in segments if s[0] != "pau"])
        ids += chunk_ids
        token_counts += counts[1:-1]
    # One sequence framed by boundary tokens, as a single chunk would be.
    return measures.voice_phone_pairs(np.array(ids, np.int64), [0] + token_counts + [0],
                                      segments)


def flite_voices():
    """The voices flite has built in; it speaks with its default voice for any other name."""
    listed = subprocess.run(["flite", "-lv"], check=True, capture_output=True, text=True).stdout
    return listed.split(":", 1)[-1].split()


def measure(texts, voice_dir, renderer, teacher_voice, yardstick, swap, log):
    recogniser = recognise.Recogniser()
    constants = synth.VocoderConstants()
    rows = {"teacher": Row("flite %s (teacher)" % teacher_voice, compared=False),
            "delayed": Row("the teacher 10 ms later", compared=False),
            "voice": Row("this voice"),
            "yardstick": Row("flite %s" % yardstick),
            "copy": Row("copy-synthesis", timing_known=False)}
    if swap:
        for key, name in (("teacher phase", "vocoder mag, teacher phase"),
                          ("teacher magnitude", "teacher mag, vocoder phase")):
            rows[key] = Row(name, compared=False, timing_known=False)

    def hear(row, speed, text, samples):
        heard = recogniser.samples(samples, synth.RATE)
        rows[row].heard[speed].append((text, heard))
        log("  %-10s %.1f  %s" % (row, speed, heard))

    with tempfile.TemporaryDirectory() as outdir:
        intelligibility.render_engine(voice_dir, renderer, texts, SPEEDS, outdir)
        for i, text in enumerate(texts):
            log(text)
            for speed in SPEEDS:
                spoken, segments = teacher.speak(text, teacher_voice, speed)
                engine = np.fromfile(pathlib.Path(outdir) / (intelligibility.line_id(i, speed)
                                                             + ".f32"), "<f4")
                copied = copy_synthesis.resynthesise(spoken, constants)
                hear("teacher", speed, text, spoken)
                hear("delayed", speed, text, np.concatenate([np.zeros(DELAY), spoken]))
                hear("voice", speed, text, engine)
                hear("copy", speed, text, copied)
                if swap:
                    teacher_phase, teacher_magnitude = copy_synthesis.swapped(spoken, constants)
                    hear("teacher phase", speed, text, teacher_phase)
                    hear("teacher magnitude", speed, text, teacher_magnitude)
                if speed != 1.0:
                    continue
                reference = measures.Features(spoken)
                rows["voice"].closeness.add(reference, measures.Features(engine))
                rows["copy"].closeness.add(reference, measures.Features(copied))
                chunks = read_engine_chunks(pathlib.Path(outdir) / (
                    intelligibility.line_id(i, speed) + ".tokens"))
                rows["voice"].durations.add(*engine_phone_pairs(chunks, segments))
                other, other_segments = teacher.speak(text, yardstick, speed)
                hear("yardstick", speed, text, other)
                rows["yardstick"].closeness.add(reference, measures.Features(other))
                rows["yardstick"].durations.add(*measures.same_phone_pairs(segments,
                                                                           other_segments))
    return rows


def print_table(rows, sentence_count):
    print("%d sentences; distances to the teacher at speed 1.0" % sentence_count)
    print("%-28s %7s %9s %7s %14s %8s %8s" % ("audio", "MCD dB", "pitch st", "V/UV %",
                                               "dur ms", "WER 1.0", "WER 2.0"))
    for row in rows.values():
        c = row.closeness
        distances = "%7s %9s %7s" % ("-", "-", "-") if c is None else "%7.2f %9.2f %7.1f" % (
            c.mel_cepstral_distortion(), c.pitch_error(), c.voicing_agreement())
        if not row.timing_known:
            timing = "%14s" % "the teacher's"
        elif row.durations is None:
            timing = "%14s" % "-"
        else:
            timing = "%6.1f (%3.0f %%)" % (row.durations.error_ms(),
                                           row.durations.matched_percent())
        rates = " ".join("%8s" % ("-" if row.word_error_rate(s) is None
                                  else "%.1f" % row.word_error_rate(s)) for s in SPEEDS)
        print("%-28s %s %s %s" % (row.name, distances, timing, rates))
    for speed in SPEEDS:
        gap = rows["copy"].word_error_rate(speed) - rows["teacher"].word_error_rate(speed)
        print("copy-synthesis at speed %.1f: %+.1f points against the teacher, %s a point"
              % (speed, gap, "within" if gap <= 1.0 else "not within"))


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("voice", type=pathlib.Path)
    parser.add_argument("renderer", type=pathlib.Path)
    parser.add_argument("--sentences", type=pathlib.Path,
                        default=intelligibility.HELD_OUT_SENTENCES)
    parser.add_argument("--teacher", default="rms", help="the flite voice the voice learnt from")
    parser.add_argument("--yardstick", help="another of flite's voices")
    parser.add_argument("--swap", action="store_true",
                        help="also the teacher's and the vocoder's magnitude and phase swapped")
    parser.add_argument("--verbose", action="store_true")
    args = parser.parse_args(argv)

    log = (lambda message: print(message, flush=True)) if args.verbose else (lambda _: None)
    try:
        yardstick = args.yardstick or ("rms" if args.teacher == "slt" else "slt")
        for name in (args.teacher, yardstick):
            if name not in flite_voices():
                parser.error("flite has no voice %r (flite -lv lists them)" % name)
        texts = intelligibility.sentences(args.sentences)
        rows = measure(texts, args.voice, args.renderer, args.teacher, yardstick, args.swap, log)
    except subprocess.CalledProcessError as error:
        print("closeness: %s failed: %s" % (error.cmd[0], (error.stderr or "").strip()),
              file=sys.stderr)
        return 2
    except OSError as error:
        print("closeness: %s" % error, file=sys.stderr)
        return 2
    print_table(rows, len(texts))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
