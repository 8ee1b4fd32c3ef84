"""Renders an animation on the nodes of a render farm: Quelta holds the nodes, Dask shares the work.

Read `render_on` and `farm_and_cluster` first; the rest shows, breaks and checks what these do.
"""

from __future__ import annotations

import logging
import signal
import sys
import time
from collections.abc import Iterator
from contextlib import contextmanager, nullcontext

from distributed import Client, as_completed

import frames
from local_farm import LocalFarm
from options import HERE, Options, parse_options
from progress import Progress
from quelta import read_nodes
from quelta.dask import QueltaCluster
from recorder import Recorder
from results import TOLERANCES, compare, render_here, save_results
from trouble import Trouble

LOCAL_NODES = 4
LIMIT = 120  # seconds for the nodes to become workers
QUIET = logging.CRITICAL


@contextmanager
def farm_and_cluster(
    options: Options, progress: Progress
) -> Iterator[tuple[LocalFarm | None, QueltaCluster]]:
    """Holds the nodes of the farm in --nodes, or of one that is started on this machine."""
    if options.nodes:
        nodes = read_nodes(options.nodes)
        progress.say(f"farm: 2. the farm has {len(nodes)} nodes")
        with QueltaCluster(
            nodes, address=options.address, n_workers=len(nodes), silence_logs=QUIET
        ) as cluster:
            yield None, cluster
    else:
        progress.say(f"farm: 2. {LOCAL_NODES} daemons start on this machine")
        worker = (HERE / "worker.toml").read_text()
        with LocalFarm(LOCAL_NODES, options.output / "nodes", options.programs, worker) as farm:
            nodes = [node.name for node in farm.nodes]
            progress.say("        " + "  ".join(f"{n.alias} {n.name}" for n in farm.nodes))
            with QueltaCluster(
                nodes, address="127.0.0.1", n_workers=len(nodes), silence_logs=QUIET
            ) as cluster:
                yield farm, cluster


def render_on(client: Client, job: frames.Job, recorder: Recorder, progress: Progress) -> None:
    """Has the frames rendered. A frame whose node is lost is rendered again elsewhere."""
    client.upload_file(frames.__file__)
    client.subscribe_topic(frames.STARTED, recorder.frame_started)
    # The list of futures is not kept: Dask would render finished frames again as well when the node
    # that holds them is lost.
    arriving = as_completed(
        client.map(frames.render, range(job.frames), job=job, pure=False), with_results=True
    )
    for _, frame in arriving:
        done = recorder.frame_done(frame)
        progress.show(done, recorder.nodes, recorder.present)


def run(options: Options, job: frames.Job, progress: Progress) -> list[str]:
    """Returns what did not happen as it should."""
    progress.say(f"farm: 1. {job.frames} frames are rendered without a network, to compare with")
    expected = render_here(job)
    with farm_and_cluster(options, progress) as (farm, cluster), Client(cluster) as client:
        progress.say("farm: 3. each node starts a Dask worker, and the frames are rendered")
        client.wait_for_workers(LOCAL_NODES if farm else 1, timeout=LIMIT)
        with Recorder(cluster) as recorder:
            trouble = Trouble(farm, options, recorder, progress) if farm else None
            with trouble or nullcontext():
                render_on(client, job, recorder, progress)
                if trouble:
                    trouble.finish()
    progress.finish()
    save_results(recorder, job, options.output, progress)
    return compare(recorder, expected, TOLERANCES[job.renderer])


def main() -> int:
    options = parse_options()
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # ends as with Ctrl-C
    options.output.mkdir(parents=True, exist_ok=True)
    logging.basicConfig(
        filename=options.output / "farm.log",
        filemode="w",
        level=logging.INFO,
        format="%(asctime)s %(name)s %(levelname)s %(message)s",
    )
    began = time.monotonic()
    progress = Progress(options.job.frames)
    try:
        faults = run(options, options.job, progress)
    except Exception as error:  # of the farm, of Dask, or of a renderer
        logging.exception("the render has failed")
        faults = [str(error) or type(error).__name__]
    except KeyboardInterrupt:
        faults = ["it was interrupted"]
    progress.finish()
    for fault in faults:
        print(f"farm: FAILED: {fault}", file=sys.stderr)
    if not faults:
        print(f"farm: all of it happened, in {time.monotonic() - began:.0f} s")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
