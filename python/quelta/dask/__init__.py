"""Dask on the nodes of a render farm.

    from dask.distributed import Client
    from quelta.dask import QueltaCluster

    with QueltaCluster(["node1:5130", "node2:5130"], n_workers=2) as cluster:
        with Client(cluster) as client:
            print(client.gather(client.map(abs, [-1, -2, -3])))

Needs Dask's package `distributed`, on this machine and on the nodes.
"""

from .cluster import QueltaCluster

__all__ = ["QueltaCluster"]
