"""What the example makes of a render: comparison, pictures, chart and progress bar."""

import io

import pytest
import timeline
from frames import Frame
from PIL import Image, PngImagePlugin
from pictures import checksum, mean_difference, save_contact_sheet
from progress import Progress, bar
from recorder import Recorder
from results import compare
from timeline import Bar, Mark, Span, Timeline


def png(colour=(10, 20, 30), size=(4, 2), **texts: str) -> bytes:
    about = PngImagePlugin.PngInfo()
    for name, text in texts.items():
        about.add_text(name, text)
    with io.BytesIO() as file:
        Image.new("RGB", size, colour).save(file, "PNG", pnginfo=about)
        return file.getvalue()


class Cluster:
    """Has the workers that a test names."""

    def __init__(self, *observed: str) -> None:
        self.observed = set(observed)


@pytest.fixture
def recorder():
    return Recorder(Cluster())  # type: ignore[arg-type]


def test_a_checksum_is_of_the_pixels_and_not_of_the_date():
    assert png(date="today") != png(date="tomorrow")
    assert checksum(png(date="today")) == checksum(png(date="tomorrow"))
    assert checksum(png((10, 20, 30))) != checksum(png((10, 20, 31)))
    assert checksum(png(size=(4, 2))) != checksum(png(size=(2, 4)))


def test_every_missing_and_every_different_frame_is_told(recorder):
    good, bad = png((1, 1, 1)), png((1, 5, 1))
    recorder.frame_done(Frame(0, "node1", 0, 1, good))
    recorder.frame_done(Frame(2, "node2", 0, 1, bad))
    assert compare(recorder, [good] * 3, tolerance=0) == [
        "frame 1 is missing",
        "frame 2, rendered by node2, differs by 4.0000",
    ]
    assert compare(recorder, [good] * 3, tolerance=4) == ["frame 1 is missing"]


def test_pictures_of_different_sizes_are_as_different_as_can_be():
    assert mean_difference(png(size=(4, 2)), png(size=(2, 4))) == 255
    assert mean_difference(png((1, 9, 1)), png((3, 2, 1))) == 7


def test_a_contact_sheet_has_a_row_for_every_eight_frames(tmp_path):
    save_contact_sheet(tmp_path / "sheet.png", [png(size=(40, 20))] * 9, width=20)
    with Image.open(tmp_path / "sheet.png") as sheet:
        assert sheet.size == (8 * 23 + 3, 2 * 13 + 3)


def test_a_frame_that_began_on_a_lost_node_is_a_lost_bar(recorder):
    recorder.frame_started((0, {"frame": 7, "node": "node1", "time": 10.0}))
    recorder._spans.append(Span("node1", 5.0, 11.5))
    recorder.frame_done(Frame(7, "node2", 12.0, 13.0, png()))
    assert recorder.bars() == [
        Bar("node2", 7, 12.0, 13.0),
        Bar("node1", 7, 10.0, 11.5, lost=True),
    ]


def test_a_frame_that_was_done_is_no_lost_bar(recorder):
    recorder.frame_started((0, {"frame": 7, "node": "node1", "time": 10.0}))
    recorder.frame_done(Frame(7, "node1", 10.0, 11.0, png()))
    recorder._spans.append(Span("node1", 5.0, 11.5))
    assert recorder.bars() == [Bar("node1", 7, 10.0, 11.0)]


def test_a_node_is_half_way_after_half_the_time_of_its_last_frame(recorder):
    recorder.frame_started((0, {"frame": 1, "node": "node1", "time": 10.0}))
    assert not recorder.is_half_way("node1", 99.0)
    recorder.frame_done(Frame(1, "node1", 10.0, 14.0, png()))
    assert not recorder.is_half_way("node1", 99.0)
    recorder.frame_started((0, {"frame": 2, "node": "node1", "time": 14.0}))
    assert not recorder.is_half_way("node1", 15.9)
    assert recorder.is_half_way("node1", 16.0)
    assert not recorder.is_half_way("node2", 99.0)


def test_a_chart_spans_the_time_of_its_frames():
    bars = [Bar("a", 0, 100.0, 104.0), Bar("b", 1, 104.0, 110.0)]
    chart = timeline.Chart(Timeline("", "", ["a", "b"], 2, bars, [Span("a", 90.0, 120.0)]))
    assert (chart.x(100.0), chart.x(110.0)) == (timeline.LEFT, timeline.WIDTH - timeline.RIGHT)
    assert (chart.x(90.0), chart.x(120.0)) == (chart.x(100.0), chart.x(110.0))
    assert chart.x(105.0) == (chart.x(100.0) + chart.x(110.0)) / 2


def test_a_chart_escapes_what_nodes_are_called():
    chart = timeline.Chart(
        Timeline("a & b", "", ["<n>"], 1, [Bar("<n>", 0, 0, 9)], marks=[Mark("<n>", "back", 1)])
    ).draw()
    assert "a &amp; b" in chart and "&lt;n&gt;" in chart and "<n>" not in chart


@pytest.mark.parametrize("seconds, step", [(0.5, 1), (16, 1), (17, 2), (90, 10), (99999, 7200)])
def test_a_chart_has_at_most_sixteen_ticks_up_to_a_day(seconds, step):
    assert timeline.tick_step(seconds) == step


def test_frames_are_coloured_from_first_to_last():
    first, *_, last = timeline.PALETTE
    assert timeline.colour_of(0, 48) == first
    assert timeline.colour_of(47, 48) == last
    assert timeline.colour_of(0, 1) == first


def test_the_bar_has_dashes_for_a_node_that_is_away():
    assert bar(12, 48, 3.2, ["node1", "node2"], {"node1"}) == (
        "        [######..................] 12/48 frames    3 s  node1 -----"
    )


def test_a_file_gets_a_line_for_every_sixth_of_the_frames():
    output = io.StringIO()
    progress = Progress(12, output)
    for done in range(1, 13):
        progress.show(done, ["node1"], {"node1"})
    assert [line[35:40] for line in output.getvalue().splitlines()] == [
        f"{done:2}/12" for done in (2, 4, 6, 8, 10, 12)
    ]
