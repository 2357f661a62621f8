#!/usr/bin/python3
"""Inspect pictures of parts on a conveyor: find the broken one with NumPy, and draw what was found.

    inspect_scene.py [--output DIRECTORY] [PICTURE...]

takes .jpg and .bmp files that show a grid of equal places, 4 across and 3 down. Without any it draws a scene of its
own, with one broken part. A place is measured by how much of it is bright; the two kinds of parts cover about the
same, so the place whose part covers least by far is the broken one. The result is a picture and a group that C++
programs read.
"""

from __future__ import annotations

import argparse
import pathlib
from dataclasses import dataclass

import numpy as np

import tnrobotkernel as tn

COLUMNS, ROWS = 4, 3
PLACE = 320  # pixels of a place, across and down, in the scene that is drawn here
BELT, SEAM = (62, 66, 64), (40, 43, 41)
BRASS, STEEL = (92, 178, 212), (192, 184, 176)


@dataclass
class Place:
    """What was measured of one place."""

    row: int
    column: int
    covered: float  #: how much of it is bright, from 0 to 1

    @property
    def name(self) -> str:
        return f"row{self.row + 1}_column{self.column + 1}"


def draw_scene() -> tn.Surface:
    """Draw twelve parts, washers and nuts in turn, the one in row 2, column 3 with a piece missing."""
    surface = tn.SurfacePool().surface(COLUMNS * PLACE, ROWS * PLACE, tn.ImageFormat.BGR24)
    y, x = np.mgrid[0:PLACE, 0:PLACE] - PLACE / 2 + 0.5
    hole = np.hypot(x, y) <= 36
    for row in range(ROWS):
        for column in range(COLUMNS):
            angle = np.radians(17 * column + 29 * row)
            side = np.maximum(abs(x * np.cos(angle) + y * np.sin(angle)), abs(y * np.cos(angle) - x * np.sin(angle)))
            round_part = (row + column) % 2 == 0
            part = (np.hypot(x, y) <= 100 if round_part else side <= 88.5) & ~hole
            if (row, column) == (1, 2):
                part &= np.hypot(x - 75, y - 20) > 85
            pixels = np.where(abs(x)[..., None] > PLACE / 2 - 3, SEAM, BELT)
            pixels = np.where(part[..., None], BRASS if round_part else STEEL, pixels)
            # Writing to the array writes to the surface.
            surface.array[row * PLACE : (row + 1) * PLACE, column * PLACE : (column + 1) * PLACE] = pixels
    noise = np.random.default_rng(20).integers(-6, 7, surface.array.shape)
    surface.array[...] = np.clip(surface.array + noise, 0, 255)
    return surface


def measure(surface: tn.Surface, row: int, column: int) -> Place:
    """Cut a place out and measure it."""
    width, height = surface.width // COLUMNS, surface.height // ROWS
    left, top = column * width, row * height
    place = tn.clip(surface, left, top, left + width, top + height)
    bright = place.array.max(axis=2) > 110
    return Place(row, column, float(bright.mean()))


def inspect(surface: tn.Surface, pool: tn.TaskPool) -> tuple[list[Place], Place | None]:
    """Measure all places side by side; return them and the broken one, if there is one."""
    cells = [(row, column) for row in range(ROWS) for column in range(COLUMNS)]
    places = pool.map(lambda cell: measure(surface, *cell), cells)
    usual = float(np.median([place.covered for place in places]))
    least = min(places, key=lambda place: place.covered)
    return places, least if least.covered < 0.9 * usual else None


def draw_result(surface: tn.Surface, places: list[Place], broken: Place | None, path: pathlib.Path) -> None:
    """Draw the picture with what was measured, and the broken part in a frame."""
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot
    from matplotlib.patches import Rectangle

    width, height = surface.width / COLUMNS, surface.height / ROWS
    figure, axes = pyplot.subplots(figsize=(8, 6), layout="constrained")
    axes.imshow(surface.array[:, :, ::-1])  # Matplotlib wants R, G, B
    for place in places:
        left, top = place.column * width, place.row * height
        axes.text(left + width * 0.05, top + height * 0.12, f"{place.covered:.3f}", color="white")
    if broken is not None:
        corner = (broken.column * width, broken.row * height)
        axes.add_patch(Rectangle(corner, width, height, fill=False, edgecolor="red", linewidth=3))
    axes.set_title("no broken part" if broken is None else f"broken: {broken.name}")
    axes.set_axis_off()
    figure.savefig(path)
    pyplot.close(figure)


def main() -> int:
    """Inspect what the command line names."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("pictures", metavar="PICTURE", nargs="*", type=pathlib.Path)
    parser.add_argument("--output", type=pathlib.Path, default=pathlib.Path("scene"), help="directory of the results")
    arguments = parser.parse_args()
    arguments.output.mkdir(parents=True, exist_ok=True)
    pictures: list[pathlib.Path] = arguments.pictures
    if not pictures:
        pictures = [arguments.output / "scene.jpg"]
        tn.save_image(pictures[0], draw_scene())

    with tn.TaskPool() as pool:
        for path in pictures:
            try:
                surface = tn.load_image(path)
            except (tn.Error, OSError) as error:
                parser.exit(1, f"{error}\n")
            places, broken = inspect(surface, pool)
            print(f"{path.name}: {surface.width} x {surface.height} pixels, {len(places)} places")
            for place in sorted(places, key=lambda place: place.covered)[:3]:
                print(f"  {place.name}  covered {place.covered:.3f}")
            print("  no part is broken" if broken is None else f"  the broken part is in {broken.name}")

            found = tn.Group({place.name: place.covered for place in places}, picture=path.name, broken=broken is not None)
            tn.save(arguments.output / f"{path.stem}.tnr", found)
            draw_result(surface, places, broken, arguments.output / f"{path.stem}_result.png")
    print(f"results are in {arguments.output}")
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
