#!/usr/bin/python3
"""How well an offline recogniser understands Murmela's voice, next to controls and other
synthesisers.

  intelligibility.py references          espeak-ng, the teacher (flite) and the controls
  intelligibility.py parity OUTDIR       a finished parity run (<id>.f32 files, parity.json)
  intelligibility.py onnx VOICE RUN_ONNX the exported models run outside the app, with the
                                         recipe's copy of the front end and inverse STFT
  intelligibility.py engine VOICE RENDER_TEXT
                                         the engine as the program uses it (phonemizer, model
                                         runner, splitting, inverse STFT) through
                                         tools/voice/render_text; exits 1 like check
  intelligibility.py check --murmela BIN --resources DIR [--voice DIR] [--teacher NAME]
                          [--margin POINTS] [--work DIR]
                                         runs the parity mode at speeds 0.75, 1.0 and 1.5
                                         (with --voice in place of the resources' Voice),
                                         prints the table and exits 1 when the word error
                                         rate at speed 1.0 is more than POINTS (1 unless
                                         told) above the teacher's (flite's voice NAME, rms
                                         unless told) or a control is understood at all

The sentences are tools/voice/test_sentences.txt: everyday English that the voice never saw
while it was built.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile

import numpy as np

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import recognise  # noqa: E402
import references  # noqa: E402

SPEEDS = (0.75, 1.0, 1.5)
MARGIN = 1.0  # points of word error rate at speed 1.0 a voice may lose against its teacher


TEST_SENTENCES = HERE / "test_sentences.txt"
# Sentences nothing is tuned on, for measuring how close the voice is to its teacher
# (closeness.py). The teacher text leaves out anything sharing four words with them, too.
HELD_OUT_SENTENCES = HERE / "heldout_sentences.txt"


def sentences(path=TEST_SENTENCES):
    lines = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
    return [line.strip() for line in lines if line.strip()]


def unseen_sentences():
    """Every sentence the teacher text must not overlap: the test and the held-out ones."""
    return sentences(TEST_SENTENCES) + sentences(HELD_OUT_SENTENCES)


def line_id(index, speed):
    return "s%02d_%03d" % (index, round(speed * 100))


def lines_document(texts, speeds=SPEEDS):
    return {"lines": [{"id": line_id(i, speed), "text": text, "speed": speed}
                      for speed in speeds for i, text in enumerate(texts)]}


def score_parity(outdir, texts, recogniser, speeds=SPEEDS, log=None):
    """WER per speed from the raw float samples a parity run wrote."""
    table = {}
    for speed in speeds:
        pairs = []
        for i, text in enumerate(texts):
            samples = np.fromfile(pathlib.Path(outdir) / (line_id(i, speed) + ".f32"), "<f4")
            heard = recogniser.samples(samples, references.RATE)
            pairs.append((text, heard))
            if log:
                log("%.2f  %s\n      %s" % (speed, text, heard))
        table["murmela %.2f" % speed] = recognise.score(pairs)
    return table


def score_onnx(voice_dir, runner, texts, recogniser, speeds=SPEEDS, log=None):
    import onnx_path
    import phonemes
    frontend = phonemes.Frontend()
    voice = onnx_path.OnnxVoice(runner, voice_dir)
    table = {}
    for speed in speeds:
        pairs = []
        for text in texts:
            _, samples = voice.synthesize_chunk(frontend.ids(text), speed)
            heard = recogniser.samples(samples, references.RATE)
            pairs.append((text, heard))
            if log:
                log("%.2f  %s\n      %s" % (speed, text, heard))
        table["onnx %.2f" % speed] = recognise.score(pairs)
    return table


def render_engine(voice_dir, renderer, texts, speeds, outdir):
    """Speaks every text at every speed through render_text into outdir (<line_id>.f32 and
    .tokens); returns its printed lines ("NAME FRAMES MILLISECONDS")."""
    lines = ["%s %r %s" % (line_id(i, speed), speed, text)
             for speed in speeds for i, text in enumerate(texts)]
    return subprocess.run([str(renderer), str(voice_dir), str(outdir)],
                          input="\n".join(lines) + "\n", check=True,
                          capture_output=True, text=True).stdout.splitlines()


def score_engine(voice_dir, renderer, texts, recogniser, speeds=SPEEDS, log=None):
    with tempfile.TemporaryDirectory() as outdir:
        printed = render_engine(voice_dir, renderer, texts, speeds, outdir)
        if log:
            frames = sum(int(line.split()[1]) for line in printed)
            ms = sum(float(line.split()[2]) for line in printed)
            log("engine: %.1f s of audio in %.0f ms" % (frames * 0.0125, ms))
        table = score_parity(outdir, texts, recogniser, speeds, log)
    return {name.replace("murmela", "engine"): value for name, value in table.items()}


def score_controls(texts, recogniser):
    table = {}
    for name, samples in references.controls().items():
        heard = recogniser.samples(samples, references.RATE)
        table["control " + name] = recognise.score([(text, heard) for text in texts])
    return table


def score_teacher(texts, recogniser, teacher):
    heard = [(text, references.flite(text, recogniser, teacher)) for text in texts]
    return {"flite " + teacher: recognise.score(heard)}


def score_references(texts, recogniser):
    table = {"espeak-ng": recognise.score([(text, references.espeak_ng(text, recogniser))
                                           for text in texts])}
    for teacher in ("rms", "slt"):
        table.update(score_teacher(texts, recogniser, teacher))
    return table


def print_table(table):
    print("%-16s %7s  %s" % ("audio", "WER %", "words right"))
    for name, (wer, correct, total) in table.items():
        print("%-16s %7.1f  %d/%d" % (name, wer, correct, total))


def failures(table, teacher, margin=MARGIN):
    problems = []
    for name, (wer, correct, _) in table.items():
        if name.startswith("control") and correct != 0:
            problems.append("%s: %d words understood, expected none" % (name, correct))
    limit = table["flite " + teacher][0] + margin
    for key in ("murmela 1.00", "onnx 1.00", "engine 1.00"):
        if key in table and table[key][0] > limit:
            problems.append("%s: word error rate %.1f %% is above %.1f %% (the teacher's + %g)"
                            % (key, table[key][0], limit, margin))
    return problems


def resources_with_voice(resources, voice, work):
    """A resource directory like `resources` whose Voice is `voice` (links, nothing copied)."""
    tree = pathlib.Path(work) / "resources"
    tree.mkdir(parents=True, exist_ok=True)
    for entry in pathlib.Path(resources).iterdir():
        if entry.name != "Voice":
            (tree / entry.name).symlink_to(entry.resolve())
    (tree / "Voice").symlink_to(pathlib.Path(voice).resolve())
    return tree


def run_parity(murmela, resources, work, texts):
    lines = pathlib.Path(work) / "lines.json"
    lines.write_text(json.dumps(lines_document(texts)), encoding="utf-8")
    outdir = pathlib.Path(work) / "out"
    env = dict(os.environ, MURMELA_RESOURCES=str(resources), MURMELA_AUDIO="none",
               QT_QPA_PLATFORM=os.environ.get("QT_QPA_PLATFORM", "offscreen"))
    subprocess.run([str(murmela), "-murmela.parity", str(outdir), "-murmela.lines", str(lines)],
                   check=True, env=env)
    return outdir


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    sub = parser.add_subparsers(dest="command", required=True)
    sub.add_parser("references")
    parity = sub.add_parser("parity")
    parity.add_argument("outdir", type=pathlib.Path)
    parity.add_argument("--verbose", action="store_true")
    onnx_run = sub.add_parser("onnx")
    onnx_run.add_argument("voice", type=pathlib.Path)
    onnx_run.add_argument("runner", type=pathlib.Path)
    onnx_run.add_argument("--verbose", action="store_true")
    engine = sub.add_parser("engine")
    engine.add_argument("voice", type=pathlib.Path)
    engine.add_argument("renderer", type=pathlib.Path)
    engine.add_argument("--verbose", action="store_true")
    check = sub.add_parser("check")
    check.add_argument("--murmela", type=pathlib.Path, required=True)
    check.add_argument("--resources", type=pathlib.Path, required=True)
    check.add_argument("--voice", type=pathlib.Path)
    check.add_argument("--work", type=pathlib.Path)
    check.add_argument("--verbose", action="store_true")
    for command in sub.choices.values():
        command.add_argument("--teacher", default="rms", help="the flite voice the voice learnt from")
        command.add_argument("--margin", type=float, default=MARGIN,
                             help="points of word error rate the voice may lose to its teacher")
    args = parser.parse_args(argv)

    texts = sentences()
    recogniser = recognise.Recogniser()
    log = (lambda message: print(message, flush=True)) if getattr(args, "verbose", False) else None
    if args.command == "references":
        table = score_references(texts, recogniser)
        table.update(score_controls(texts, recogniser))
    elif args.command == "onnx":
        table = score_onnx(args.voice, args.runner, texts, recogniser, log=log)
    elif args.command == "engine":
        table = score_engine(args.voice, args.renderer, texts, recogniser, log=log)
        table.update(score_controls(texts, recogniser))
    elif args.command == "parity":
        table = score_parity(args.outdir, texts, recogniser, log=log)
    else:
        with tempfile.TemporaryDirectory() as scratch:
            work = args.work or pathlib.Path(scratch)
            work.mkdir(parents=True, exist_ok=True)
            resources = args.resources
            if args.voice:
                resources = resources_with_voice(args.resources, args.voice, work)
            outdir = run_parity(args.murmela, resources, work, texts)
            table = score_parity(outdir, texts, recogniser, log=log)
        table.update(score_controls(texts, recogniser))
    if "flite " + args.teacher not in table:
        table.update(score_teacher(texts, recogniser, args.teacher))
    print_table(table)
    problems = failures(table, args.teacher, args.margin)
    for problem in problems:
        print("FAIL " + problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
