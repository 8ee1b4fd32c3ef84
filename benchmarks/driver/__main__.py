"""Measures the daemon against its baselines. Called by ./bench, which builds the programs first."""

import argparse
import os
import pathlib
import sys
import time

from bench import Bench
from row_beacons import beacons
from row_exec import exec_slave
from row_idle import idle
from row_log import log
from processes import BenchmarkError
from figures import Row
from report import noisy, table, write_chart, write_json
from row_requests import broadcast, scan, throughput
from row_slave import launch, startup

BENCHMARKS = {
    each.__name__: each
    for each in (scan, throughput, beacons, broadcast, log, idle, launch, startup, exec_slave)
}
BUSY = 0.15  # share of all processors used by other processes


def busy_share() -> float:
    """Returns the share of all processors' time in use while the benchmark is idle."""

    def read() -> tuple[int, int]:
        fields = [
            int(n) for n in pathlib.Path("/proc/stat").read_text().splitlines()[0].split()[1:]
        ]
        return sum(fields[:8]), fields[3] + fields[4]

    total, idle_time = read()
    time.sleep(0.5)
    total_after, idle_after = read()
    return 1 - (idle_after - idle_time) / max(1, total_after - total)


def describe_machine() -> str:
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return f"{os.cpu_count()} cores, {memory:.0f} GiB of memory"


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./bench",
        description="Measures the daemon against its baselines.",
        formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="rows:\n"
        + "\n".join(f"  {name:11} {each.__doc__}" for name, each in BENCHMARKS.items()),
    )
    parser.add_argument("row", nargs="*", metavar="ROW", help="only these; all without any")
    parser.add_argument(
        "--short",
        action="store_true",
        help="a few seconds a row: proves that everything works, " "the figures mean nothing",
    )
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--results", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    for name in arguments.row:
        if name not in BENCHMARKS:
            parser.error(f"there is no row {name}; the rows are {', '.join(BENCHMARKS)}")
    return arguments


def measure(bench: Bench, names: list[str]) -> tuple[list[Row] | None, float]:
    """Returns all rows, or None after a failure, and the highest load by other processes."""
    rows: list[Row] = []
    busiest = 0.0
    for number, name in enumerate(names, 1):
        busiest = max(busiest, busy_share())
        print(
            f"[{number}/{len(names)}] {name}: {BENCHMARKS[name].__doc__} ",
            end="",
            file=sys.stderr,
            flush=True,
        )
        started = time.monotonic()
        try:
            rows += BENCHMARKS[name](bench)
        except BenchmarkError as error:
            print(f" failed: {error}", file=sys.stderr)
            return None, busiest
        print(f" {time.monotonic() - started:.0f} s", file=sys.stderr)
    return rows, busiest


def main() -> int:
    arguments = parse_arguments()
    bench = Bench(arguments.programs, arguments.short)
    rows, busiest = measure(bench, arguments.row or list(BENCHMARKS))
    if rows is None:
        return 1

    machine = f"{describe_machine()}; others used up to {100 * busiest:.0f} % of it"
    write_json(arguments.results / "results.json", rows)
    write_chart(arguments.results / "results.svg", rows, machine)
    print(table(rows))
    print(f"\n±: half the distance between the lowest and the highest round. Machine: {machine}.")
    if busiest > BUSY:
        print(
            "Other processes keep this machine busy: the figures are uncertain; "
            "run again when it is idle."
        )
    if uncertain := noisy(rows):
        print(
            f"{len(uncertain)} of {len(rows)} rows are uncertain: "
            "their rounds differ by more than ±20 %."
        )
    if arguments.short:
        print("This was a short run: it shows that everything works, and its figures mean nothing.")
    print(f"Written: {arguments.results / 'results.json'}, {arguments.results / 'results.svg'}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
