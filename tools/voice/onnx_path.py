"""The voice's exported models run by ONNX Runtime through tools/voice/run_onnx (a small C++
program), with Murmela's frame counts and inverse STFT from synth.py around them: the check
that the export computes what the numpy reference does, before the app can render."""

import pathlib
import subprocess
import tempfile

import numpy as np

import layout
import synth


class OnnxVoice:
    def __init__(self, runner, directory):
        self.runner = str(runner)
        self.directory = pathlib.Path(directory)
        self.milliseconds = {"encoder": 0.0, "decoder": 0.0, "vocoder": 0.0}

    def run(self, model, inputs, repeat=1):
        with tempfile.TemporaryDirectory() as scratch:
            arguments = [self.runner, str(self.directory / (model + ".onnx")), scratch,
                         "--repeat", str(repeat)]
            for name, (kind, array) in inputs.items():
                path = pathlib.Path(scratch) / (name + ".in")
                array.tofile(path)
                arguments.append("%s=%s:%s:%s" % (name, kind, "x".join(map(str, array.shape)), path))
            printed = subprocess.run(arguments, check=True, capture_output=True, text=True).stdout
            self.milliseconds[model] += float(printed.split()[-1])
            outputs = {}
            for shape_file in pathlib.Path(scratch).glob("*.shape"):
                kind, *dims = shape_file.read_text().split()
                dtype = {"f32": "<f4", "f16": "<f2", "i32": "<i4"}[kind]
                data = np.fromfile(shape_file.with_suffix(".bin"), dtype)
                outputs[shape_file.stem] = data.reshape([int(d) for d in dims])
            return outputs

    def stages(self, ids, speed, repeat=1):
        tokens = np.array([0] + list(ids) + [0], np.int32)
        length = len(tokens)
        b = synth.bucket(length, synth.ENCODER_BUCKETS)
        padded = np.zeros((1, b), np.int32)
        padded[0, :length] = tokens
        mask = (np.arange(b) < length).astype(np.float32)[None, :]
        enc = self.run("encoder", {"ids": ("i32", padded), "mask": ("f32", mask)}, repeat)
        counts = synth.frame_counts(enc["logd"][0, :length], speed)
        frames = int(counts.sum())
        d = synth.bucket(frames, synth.DECODER_BUCKETS)
        x = np.zeros((1, d, layout.ENC + 1), np.float32)
        x[0, :frames] = synth.expand(enc["e"][0, :length], counts)
        dmask = (np.arange(d) < frames).astype(np.float32)[None, :]
        last = (np.arange(d) == frames - 1).astype(np.float32)[None, :]
        dec = self.run("decoder", {"x": ("f32", x), "mask": ("f32", dmask), "last": ("f32", last)},
                       repeat)
        mel = dec["mel"].astype(np.float16)
        voc = self.run("vocoder", {"mel": ("f16", mel)}, repeat)
        return {"tokens": padded[0], "mask": mask[0], "e": enc["e"][0], "logd": enc["logd"][0],
                "counts": counts, "frames": frames, "x": x[0], "dmask": dmask[0], "last": last[0],
                "mel": dec["mel"][0], "mag": voc["mag"][0], "phase": voc["phase"][0]}

    def synthesize_chunk(self, ids, speed):
        s = self.stages(ids, speed)
        frames = s["frames"]
        samples = synth.istft(s["mag"][:, :frames].T.astype(np.float32),
                              s["phase"][:, :frames].T.astype(np.float32), frames)
        return s["counts"], samples
