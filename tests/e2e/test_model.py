"""Compares thousands of random steps on a real daemon with a small model of the ownership rules.

A failure prints its seed and the shortest failing list of steps; QUELTA_MODEL_SEED replays a seed.
"""

import os
import random

import pytest

from support.model import MASTERS, random_steps
from support.model_run import Disagreement, ModelRun, shortened
from support.scenario import scenario

STEPS = 1000
PARTS = 4

# Longer than any single step, but short enough to replay a failure many times.
PATIENCE = 20
TRIES_TO_SHORTEN = 30

SEED = os.environ.get("QUELTA_MODEL_SEED") or str(random.SystemRandom().randrange(10**9))


@pytest.fixture
def play(make_node, make_master):
    """Plays steps on a new daemon; returns the disagreement, or None."""

    def run(steps):
        node = make_node(
            alias="model", plays=scenario("connect\ninfo\nwait 2500\nbeat 2000")
        ).serve()
        masters = [
            make_master(ip=f"127.77.0.{number + 1}", patience=PATIENCE).join(node)
            for number in range(MASTERS)
        ]
        try:
            ModelRun(node, masters).play(steps)
        except Disagreement as disagreement:
            return disagreement
        finally:
            node.close()
            for master in masters:
                master.close()
        return None

    return run


@pytest.mark.slow
@pytest.mark.parametrize("part", range(PARTS))
def test_daemon_agrees_with_the_model(play, part):
    print(f"QUELTA_MODEL_SEED={SEED}")
    steps = random_steps(random.Random(f"{SEED}/{part}"), STEPS)
    disagreement = play(steps)
    if disagreement:
        shortest = shortened(steps[: disagreement.number + 1], play, TRIES_TO_SHORTEN)
        listed = "\n".join(f"  {step}" for step in shortest)
        pytest.fail(
            f"QUELTA_MODEL_SEED={SEED}, part {part}: {disagreement}\n"
            f"the shortest failing steps found:\n{listed}"
        )
