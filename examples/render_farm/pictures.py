"""The pictures that the render ends with: a contact sheet and an animated picture."""

from __future__ import annotations

import hashlib
import io
from collections.abc import Sequence
from pathlib import Path

from PIL import Image, ImageChops, ImageStat

GAP = 3
BACKGROUND = (17, 20, 31)
DURATION = 60  # milliseconds that a frame is shown


def checksum(png: bytes) -> str:
    """Returns the SHA-256 of a picture's pixels. PNG files also hold the time of the render."""
    with Image.open(io.BytesIO(png)) as picture:
        pixels = picture.convert("RGB")
        return hashlib.sha256(repr(pixels.size).encode() + pixels.tobytes()).hexdigest()


def mean_difference(png: bytes, other: bytes) -> float:
    """Returns by how much two pictures differ on average in the worst colour: 0 to 255."""
    one, two = opened([png, other])
    if one.size != two.size:
        return 255.0
    return max(ImageStat.Stat(ImageChops.difference(one, two)).mean)


def opened(pngs: Sequence[bytes]) -> list[Image.Image]:
    return [Image.open(io.BytesIO(png)).convert("RGB") for png in pngs]


def save_contact_sheet(
    path: Path, pngs: Sequence[bytes], columns: int = 8, width: int = 132
) -> None:
    """Saves all frames on one sheet, row by row."""
    frames = opened(pngs)
    height = round(width * frames[0].height / frames[0].width)
    rows = -(-len(frames) // columns)
    size = (columns * (width + GAP) + GAP, rows * (height + GAP) + GAP)
    sheet = Image.new("RGB", size, BACKGROUND)
    for number, frame in enumerate(frames):
        row, column = divmod(number, columns)
        place = (GAP + column * (width + GAP), GAP + row * (height + GAP))
        sheet.paste(frame.resize((width, height), Image.Resampling.LANCZOS), place)
    sheet.save(path, quality=80, optimize=True)


def save_animation(path: Path, pngs: Sequence[bytes]) -> None:
    """Saves the frames as a picture that plays them for ever; the suffix chooses the format."""
    first, *rest = opened(pngs)
    first.save(
        path,
        save_all=True,
        append_images=rest,
        duration=DURATION,
        loop=0,
        quality=65,
        method=4,
        minimize_size=True,
    )
