"""The summary printed by a successful start-up."""

import pytest

from support import programs
from support.scenario import scenario
from support.transcript import INFORMATION_RUN, between_start_and_stop


def summary(
    node,
    alias="",
    gpus="all",
    version=4000000,
    provided=1,
    out_of_core=("Out-of-core rendering: disabled",),
):
    return [
        "",
        "",
        "Launching daemon with:",
        f"  slave path:    {programs.native_path(node.slave)}",
        f"  slave alias:   {alias}",
        f"  daemon port:   {node.port}",
        f"  GPU selection: {gpus}",
        "Slave information:",
        f"  version:       {version}",
        f"  provided GPUs: {provided}",
        *out_of_core,
        "",
    ]


def printed(node):
    """Returns the lines from the end of the information run to the start of the shutdown."""
    node.serve()
    lines = between_start_and_stop(node.quit())
    assert node.errors.rest() == []
    assert lines[: len(INFORMATION_RUN)] == INFORMATION_RUN
    assert lines[-1] == "closing down all existing master connections (0)..."
    return lines[len(INFORMATION_RUN) : -1]


def test_default_options(make_node):
    node = make_node(flags=None)
    assert printed(node) == summary(node)


@pytest.mark.parametrize("alias", ["node7", "node 7", "  ", 'a "quoted" name', "Übergröße", "50%s"])
def test_alias(make_node, alias):
    node = make_node(flags=None, options=["--alias", alias])
    assert printed(node) == summary(node, alias=alias)


@pytest.mark.parametrize(
    "given, kept",
    [("'in quotes'", "in quotes"), ("'half", "half"), ("\"x'", "x"), (" 'x'", " 'x'")],
)
def test_surrounding_quotes_are_removed(make_node, given, kept):
    node = make_node(flags=None, options=["--alias", given])
    assert printed(node) == summary(node, alias=kept)


@pytest.mark.parametrize(
    "options, shown",
    [
        (["--gpus", "2,1"], "2, 1"),
        (["--gpus", "1 3"], "1, 3"),
        (["--gpus", "1,3"], "1, 3"),
        (["--gpus", "1,1"], "1, 1"),
        (["--gpus", "3", "--gpus", "1x"], "3, 1"),
        (["--gpus", ""], "all"),
        (["--gpus"], "all"),
        (["--gpus", "2147483647,99999999999"], "2147483647, 2147483647"),
    ],
)
def test_gpu_selection(make_node, options, shown):
    node = make_node(flags=None, options=options)
    assert printed(node) == summary(node, gpus=shown)


@pytest.mark.parametrize(
    "given, maximum, headroom",
    [
        ("8G,1G", "8.0 GB", "1.0 GB"),
        ("8G 1g", "8.0 GB", "1.0 GB"),
        ("8G", "8.0 GB", "use default value"),
        ("8G,0", "8.0 GB", "use default value"),
        ("1.5G", "1.0 GB", "use default value"),
        ("512m,256K", "512.0 MB", "256.0 KB"),
        ("100x", "100 bytes", "use default value"),
        ("1", "1 byte", "use default value"),
        ("1000k,3M,7G", "1000.0 KB", "3.0 MB"),
        ("1G,,2G", "1.0 GB", "use default value"),
    ],
)
def test_out_of_core_memory(make_node, given, maximum, headroom):
    node = make_node(flags=None, options=["--out-of-core", given])
    memory = [
        "Out-of-core rendering: enabled",
        f"  Max RAM usage:   {maximum}",
        f"  GPU headroom:    {headroom}",
    ]
    assert printed(node) == summary(node, out_of_core=memory)


@pytest.mark.parametrize("given", ["0", "0G,1G", "", "G", ",8G"])
def test_out_of_core_without_a_maximum_is_disabled(make_node, given):
    node = make_node(flags=None, options=["--out-of-core", given])
    assert printed(node) == summary(node)


def test_slave_information_is_shown(make_node):
    node = make_node(
        flags=None, plays=scenario(information="connect\ninfo 1234567 12\nwait 300\nexit 0")
    )
    assert printed(node) == summary(node, version=1234567, provided=12)


def test_last_of_repeated_options_wins(make_node):
    node = make_node(
        flags=None,
        options=[
            "--alias",
            "first",
            "--out-of-core",
            "1G",
            "--alias",
            "last",
            "--out-of-core",
            "2G",
        ],
    )
    memory = [
        "Out-of-core rendering: enabled",
        "  Max RAM usage:   2.0 GB",
        "  GPU headroom:    use default value",
    ]
    assert printed(node) == summary(node, alias="last", out_of_core=memory)


def test_relative_slave_path_is_shown_in_full(make_node):
    node = make_node(flags=None)
    relative = programs.native_path(node.slave.relative_to(node.folder)).removeprefix("Z:")
    node.start(["--port", str(node.port), "--slave", relative], cwd=node.folder)
    node.wait_until_listening()
    assert between_start_and_stop(node.quit())[len(INFORMATION_RUN) : -1] == summary(node)


@pytest.mark.parametrize("name", ["slave with blanks", "Größe", "it's", "a (b) & c", "100%s"])
def test_slave_path_with_unusual_characters(make_node, name):
    node = make_node(flags=None)
    node.slave = programs.install(
        programs.STANDIN_SLAVE, node.folder / name, name + programs.SUFFIX
    )
    node.play(scenario())
    assert printed(node) == summary(node)
