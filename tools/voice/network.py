"""The voice's network: from a token's context (contexts.py) to its five anchors and its
duration. A small two-layer perceptron, trained with PyTorch on the CPU, deterministically: fixed
seeds, one thread, a fixed split of the sentences for choosing when to stop."""

import numpy as np

import contexts
import layout
from layout import ANCHORS, PARAMS

EMBED = 16  # values per token id in the window
HIDDEN = 512
OUTPUTS = ANCHORS * PARAMS + 1  # the anchors, then ln(seconds)
SEED = 20261126
EPOCHS = 60
PATIENCE = 3  # epochs without a better held-back loss before the step size halves
STEPS = 4  # halvings before stopping
BATCH = 256
HELD_BACK = 20  # every 20th sentence only tells when to stop


def _output_weights():
    """Each output's share of the loss: the spectrum carries the words, but pitch, voicing and
    duration are few numbers and would drown without more weight."""
    weights = np.ones((ANCHORS, PARAMS), np.float32)
    weights[:, layout.F0_CHANNEL] = 8.0
    weights[:, layout.VOICING_CHANNEL] = 8.0
    return np.concatenate([weights.reshape(-1), [40.0]]).astype(np.float32)


def _targets(data):
    return np.concatenate([data["anchors"].reshape(len(data["seconds"]), -1),
                           np.log(data["seconds"])[:, None]], 1).astype(np.float32)


def fit(data, log=print):
    """Weights (numpy, float32) of the trained network, its outputs already in the targets'
    own units."""
    import torch
    torch.manual_seed(SEED)
    torch.set_num_threads(1)
    torch.use_deterministic_algorithms(True)

    y = _targets(data)
    known = np.isfinite(y)
    mean = np.array([y[known[:, c], c].mean() for c in range(OUTPUTS)], np.float32)
    spread = np.array([max(y[known[:, c], c].std(), 1e-3) for c in range(OUTPUTS)], np.float32)
    y = np.where(known, (y - mean) / spread, 0.0).astype(np.float32)

    back = data["sentence"] % HELD_BACK == 0
    tensors = [torch.from_numpy(a) for a in (data["window"], data["scalars"], y,
                                             known.astype(np.float32))]
    learn = [t[torch.from_numpy(~back)] for t in tensors]
    check = [t[torch.from_numpy(back)] for t in tensors]
    weights = torch.from_numpy(_output_weights())

    embed = torch.nn.Embedding(layout.TABLE_SIZE, EMBED)
    layers = torch.nn.Sequential(
        torch.nn.Linear(len(contexts.OFFSETS) * EMBED + contexts.SCALARS, HIDDEN),
        torch.nn.ReLU(), torch.nn.Linear(HIDDEN, HIDDEN), torch.nn.ReLU(),
        torch.nn.Linear(HIDDEN, OUTPUTS))
    parameters = list(embed.parameters()) + list(layers.parameters())
    optimiser = torch.optim.Adam(parameters, lr=1e-3)

    def forward(window, scalars):
        return layers(torch.cat([embed(window).flatten(1), scalars], 1))

    def loss(part):
        window, scalars, target, mask = part
        error = (forward(window, scalars) - target) ** 2 * mask * weights
        return error.sum() / (mask * weights).sum()

    def restore(state):
        with torch.no_grad():
            for p, kept in zip(parameters, state):
                p.copy_(kept)

    best, best_state, waited, halvings = float("inf"), None, 0, 0
    generator = torch.Generator().manual_seed(SEED)
    for epoch in range(EPOCHS):
        order = torch.randperm(len(learn[0]), generator=generator)
        for start in range(0, len(order), BATCH):
            batch = [t[order[start:start + BATCH]] for t in learn]
            optimiser.zero_grad()
            loss(batch).backward()
            optimiser.step()
        with torch.no_grad():
            held = float(loss(check))
        if log:
            log("network: epoch %d, held-back loss %.4f" % (epoch + 1, held))
        if held < best:
            best, waited = held, 0
            best_state = ([p.detach().clone() for p in parameters])
        else:
            waited += 1
            if waited >= PATIENCE:
                if halvings == STEPS:
                    break
                # Go on from the best weights with smaller steps.
                halvings, waited = halvings + 1, 0
                restore(best_state)
                for group in optimiser.param_groups:
                    group["lr"] *= 0.5
    restore(best_state)
    first, second, last = layers[0], layers[2], layers[4]
    as_numpy = lambda t: t.detach().numpy().astype(np.float32)  # noqa: E731
    return {
        "embed": as_numpy(embed.weight),
        "w1": as_numpy(first.weight).T.copy(), "b1": as_numpy(first.bias),
        "w2": as_numpy(second.weight).T.copy(), "b2": as_numpy(second.bias),
        # The normalisation folded into the last layer.
        "w3": (as_numpy(last.weight).T * spread[None, :]).astype(np.float32),
        "b3": (as_numpy(last.bias) * spread + mean).astype(np.float32),
    }


def predict(weights, window, scalars):
    """The network in numpy: [N, OUTPUTS] from contexts."""
    x = np.concatenate([weights["embed"][window].reshape(len(window), -1), scalars], 1)
    h = np.maximum(x @ weights["w1"] + weights["b1"], 0.0)
    h = np.maximum(h @ weights["w2"] + weights["b2"], 0.0)
    return (h @ weights["w3"] + weights["b3"]).astype(np.float32)
