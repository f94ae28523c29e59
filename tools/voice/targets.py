"""From the teacher's aligned audio to the encoder's tables: for every phone symbol in every
stress level and every class of neighbour, the mean acoustic targets at five anchor points
across the token and the mean duration."""

import numpy as np

import align
import analysis
import layout
from layout import ANCHORS, CLASSES, PARAMS, STRESS_LEVELS, UNIT_S

SHRINK = 2.0  # pseudo-count pulling a sparse context towards the symbol's own mean


def _neighbour(kinds, index, step):
    """Index of the nearest token before (step -1) or after (+1) that is not a stress mark or
    a space, looking past at most two; None past the ends."""
    j = index + step
    for _ in range(2):
        if 0 <= j < len(kinds) and kinds[j] in (layout.KIND_STRESS, layout.KIND_SPACE):
            j += step
    return j if 0 <= j < len(kinds) else None


def rows(ids, tables):
    """Per token: (centre row, left row, right row), the same index arithmetic the encoder
    does. Boundary tokens (id 0) are assumed around ids."""
    framed = [0] + list(ids) + [0]
    kinds = [tables["kind"][t] for t in framed]
    out = []
    for i in range(1, len(framed) - 1):
        token = framed[i]
        stress = tables["stress"][framed[i - 1]] * tables["vowel"][token]
        centre = tables["dense"][token] * STRESS_LEVELS + stress
        left = _neighbour(kinds, i, -1)
        right = _neighbour(kinds, i, +1)
        left_class = tables["end_class"][framed[left]] if left is not None else 0
        right_class = tables["start_class"][framed[right]] if right is not None else 0
        out.append((centre, centre * CLASSES + left_class, centre * CLASSES + right_class))
    return out


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
    [(centre row, left row, right row, features [ANCHORS, PARAMS], duration s)], and the
    number of phone tokens."""
    symbols = [symbols_of_id[t] for t in ids]
    phone_positions = [i for i, t in enumerate(ids) if tables["kind"][t] == layout.KIND_PHONE]
    spoken = [s for s in segments if s[0] != "pau"]
    timing = align.align([symbols[i] for i in phone_positions], spoken)
    bands = analysis.band_powers(samples)
    f0, voicing = analysis.pitch(samples)
    token_rows = rows(ids, tables)
    kinds = [tables["kind"][t] for t in ids]
    items = []
    for position, span in zip(phone_positions, timing):
        if span is None or not span[2] or span[1] - span[0] < 0.01:
            continue
        start, end, _ = span
        duration = end - start
        before = kinds[position - 1] if position > 0 else layout.KIND_SILENT
        after = kinds[position + 1] if position + 1 < len(kinds) else layout.KIND_SILENT
        if before == layout.KIND_STRESS:
            duration -= UNIT_S
        if before == layout.KIND_SPACE:
            duration -= UNIT_S / 2
        if after == layout.KIND_SPACE:
            duration -= UNIT_S / 2
        features = anchor_features(bands, f0, voicing, start, end)
        centre, left, right = token_rows[position]
        items.append((centre, left, right, features, max(duration, UNIT_S / 2)))
    return items, len(phone_positions)


class Collector:
    def __init__(self, tables):
        self.tables = tables
        self.items = []
        self.matched = 0
        self.total = 0

    def add(self, items, phone_count):
        self.items.extend(items)
        self.matched += len(items)
        self.total += phone_count


def _means(keys, values, size, prior, weights=None):
    """Shrunk means per key: (sum + SHRINK * prior[key]) / (count + SHRINK), NaN-aware."""
    width = values.shape[1]
    total = np.zeros((size, width))
    count = np.zeros((size, width))
    ok = np.isfinite(values)
    np.add.at(total, keys, np.where(ok, values, 0.0))
    np.add.at(count, keys, ok.astype(float))
    return (total + SHRINK * prior) / (count + SHRINK), count


def build_tables(collector):
    """The encoder's float tables, by row (see rows())."""
    phones = collector.tables["phones"]
    centre_rows = phones * STRESS_LEVELS
    context_rows = centre_rows * CLASSES
    items = collector.items
    centre = np.array([i[0] for i in items])
    left = np.array([i[1] for i in items])
    right = np.array([i[2] for i in items])
    feats = np.stack([i[3] for i in items])  # [n, ANCHORS, PARAMS]
    durations = np.array([i[4] for i in items])
    flat = feats.reshape(len(items), -1)

    # Per symbol (all stress levels), then per symbol and stress, then in context.
    dense = centre // STRESS_LEVELS
    overall = np.nanmean(flat, 0)
    overall = np.where(np.isfinite(overall), overall, 100.0)
    by_symbol, _ = _means(dense, flat, phones, overall[None, :])
    by_centre, _ = _means(centre, flat, centre_rows, np.repeat(by_symbol, STRESS_LEVELS, 0))
    by_left, _ = _means(left, flat, context_rows, np.repeat(by_centre, CLASSES, 0))
    by_right, _ = _means(right, flat, context_rows, np.repeat(by_centre, CLASSES, 0))

    d = durations[:, None]
    dur_symbol, _ = _means(dense, d, phones, np.full((1, 1), durations.mean()))
    dur_centre, _ = _means(centre, d, centre_rows, np.repeat(dur_symbol, STRESS_LEVELS, 0))
    dur_right, _ = _means(right, d, context_rows, np.repeat(dur_centre, CLASSES, 0))

    def anchors(table, first, last):
        return table.reshape(len(table), ANCHORS, PARAMS)[:, first:last].reshape(len(table), -1)

    return {
        "left": anchors(by_left, 0, 2).astype(np.float32),  # anchors 0, 1
        "centre": anchors(by_centre, 2, 3).astype(np.float32),  # anchor 2
        "right": anchors(by_right, 3, 5).astype(np.float32),  # anchors 3, 4
        "duration": dur_right[:, 0].astype(np.float32),  # seconds, by right row
    }
