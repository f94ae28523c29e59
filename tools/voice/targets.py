"""From the teacher's aligned audio to what the voice's network learns: for every confidently
matched phone token, the acoustic targets at five anchor points across it and its duration."""

import numpy as np

import align
import analysis
import layout
from layout import ANCHORS, PARAMS, UNIT_S


def anchor_features(bands, f0, voicing, start, end):
    """[ANCHORS, PARAMS] mean band powers, F0 (NaN where unvoiced) and voicing across the
    equal parts of [start, end) seconds."""
    per_second = analysis.RATE / analysis.HOP
    out = np.zeros((ANCHORS, PARAMS))
    span = end - start
    for k in range(ANCHORS):
        a = start + span * k / ANCHORS
        b = start + span * (k + 1) / ANCHORS
        first = int(np.ceil(a * per_second))
        last = int(np.floor(b * per_second))
        if last < first:
            first = last = int(round((a + b) / 2 * per_second))
        first = min(max(first, 0), len(bands) - 1)
        last = min(max(last, first), len(bands) - 1)
        part = slice(first, last + 1)
        out[k, :layout.BANDS] = bands[part].mean(0)
        v = voicing[part]
        out[k, layout.VOICING_CHANNEL] = v.mean()
        out[k, layout.F0_CHANNEL] = (np.sum(f0[part] * v) / v.sum()) if v.sum() > 0.3 else np.nan
    return out


def sentence_items(ids, samples, segments, tables, symbols_of_id):
    """The teacher's targets for every confidently matched phone token of one sentence:
    [(position in ids, features [ANCHORS, PARAMS], duration s)], and the number of phone
    tokens."""
    symbols = [symbols_of_id[t] for t in ids]
    phone_positions = [i for i, t in enumerate(ids) if tables["kind"][t] == layout.KIND_PHONE]
    spoken = [s for s in segments if s[0] != "pau"]
    timing = align.align([symbols[i] for i in phone_positions], spoken)
    bands = analysis.band_powers(samples)
    f0, voicing = analysis.pitch(samples)
    kinds = [tables["kind"][t] for t in ids]
    items = []
    for position, span in zip(phone_positions, timing):
        if span is None or not span[2] or span[1] - span[0] < 0.01:
            continue
        start, end, _ = span
        before = kinds[position - 1] if position > 0 else layout.KIND_SILENT
        after = kinds[position + 1] if position + 1 < len(kinds) else layout.KIND_SILENT
        # The network learns the time the sound keeps; the tokens beside it play the rest.
        taken_before, taken_after = layout.time_taken(before, after)
        duration = float(end - start - taken_before - taken_after)
        features = anchor_features(bands, f0, voicing, start, end)
        items.append((position, features, max(duration, UNIT_S / 2)))
    return items, len(phone_positions)
