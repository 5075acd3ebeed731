#!/usr/bin/env python3
"""A walk through real terrain with the array classes, to a picture of it.

The elevation grid is the one that matplotlib's sample data carries: heights in
metres, 344 rows from north to south by 403 columns from west to east, three
arc-seconds apart. Run it with scripts/demo, or with PYTHONPATH leading to a
build.
"""

import argparse
import contextlib
import copy
import importlib.util
import math
import pickle
import signal
import sys
import time
from pathlib import Path

import numpy

import hillshade
import terrain_picture
import vellum

ROOT = Path(__file__).resolve().parent.parent
GRID_FILE = "jacksboro_fault_dem.npz"
METRES_PER_DEGREE = 111_320.0  # of latitude; of longitude at the equator
TONES = " .:-=+*#%@"

# Azimuth of a light, and its part in the whole. Most comes from the north-west;
# the others keep ridges readable that run along its rays.
LIGHTS = [(315, 0.6), (270, 0.2), (360, 0.2)]
LIGHT_ALTITUDE = 45
EXAGGERATION = 1.8  # of the heights, for the light only
PIXELS_PER_ROW = 3


# --- What is printed ----------------------------------------------------------


def heading(text):
    print(f"\n{text}\n{'-' * len(text)}")


@contextlib.contextmanager
def timed(what):
    """Names a step when it starts and tells its time when it ends."""
    print(f"  {what:<62}", end=" ", flush=True)
    start = time.perf_counter()
    yield
    print(f"{(time.perf_counter() - start) * 1000:9.1f} ms", flush=True)


def with_progress(indices):
    """Passes the indices on and shows how far it is, once a second has gone by."""
    start = shown = time.perf_counter()
    for done, index in enumerate(indices):
        yield index
        now = time.perf_counter()
        if now - start > 1 and now - shown > 0.5:
            print(f"[{100 * (done + 1) // len(indices)} %]", end=" ", flush=True)
            shown = now


# --- The data -----------------------------------------------------------------


def find_grid():
    """The path of the grid, wherever matplotlib's sample data lies."""
    folders = [
        Path("/usr/share/matplotlib/mpl-data/sample_data"),
        Path("/usr/share/matplotlib/sample_data"),
    ]
    package = importlib.util.find_spec("matplotlib")
    if package is not None and package.origin:
        folders.insert(0, Path(package.origin).parent / "mpl-data" / "sample_data")
    for folder in folders:
        if (folder / GRID_FILE).is_file():
            return folder / GRID_FILE
    looked = "".join(f"\n  {folder}" for folder in folders)
    sys.exit(f"{GRID_FILE} (Debian's package python-matplotlib-data) is not in{looked}")


class Place:
    """Where the rows and columns of the grid lie."""

    def __init__(self, grid):
        # Latitudes fall from `ymin`, the first row's, to `ymax`.
        self.north, self.west = float(grid["ymin"]), float(grid["xmin"])
        self.corner = float(grid["ymax"]), float(grid["xmax"])
        self.step = float(grid["dy"])
        shrink = math.cos(math.radians(self.north))
        self.row_metres = self.step * METRES_PER_DEGREE
        self.column_metres = self.row_metres * shrink

    def __call__(self, row, column):
        latitude = self.north - row * self.step
        longitude = self.west + column * self.step
        return f"{latitude:.4f} N, {-longitude:.4f} W"


def load_grid(path):
    with numpy.load(path) as grid:
        return grid["elevation"], Place(grid)


# --- Arrays from it -----------------------------------------------------------


def gradient(elevation, place):
    """Slopes as complex numbers: eastward real, northward imaginary, in metres
    per metre."""
    southward, eastward = numpy.gradient(
        elevation.astype(float), place.row_metres, place.column_metres
    )
    return eastward - 1j * southward


def load_heights(elevation):
    """The heights as a vellum.int16, brought there by four roads."""
    by_columns = numpy.asfortranarray(elevation)
    rows = elevation.tolist()
    # `vector` is read first dimension fastest, as the arrays are stored.
    vector = by_columns.ravel(order="F").tolist()
    with timed("vellum.int16(grid)                    a numpy buffer, C order"):
        height = vellum.int16(elevation)
    with timed("vellum.int16(asfortranarray(grid))    a buffer, Fortran order"):
        others = [vellum.int16(by_columns)]
    with timed("vellum.int16(rows)                    nested lists"):
        others.append(vellum.int16(rows))
    with timed("vellum.int16(vector=..., size=...)    a flat list"):
        others.append(vellum.int16(vector=vector, size=elevation.shape))
    with timed("three comparisons with the first by =="):
        equal = [other == height for other in others]
    print(f"  The others equal the first: {equal}\n")
    return height


def build_arrays(height, elevation, place):
    """The same terrain as arrays of several classes."""
    size = elevation.shape
    columns = elevation.ravel(order="F")
    arrays = {"height": height}
    with timed("vellum.double(vector=..., size=...)   the same heights"):
        arrays["exact"] = vellum.double(vector=columns.tolist(), size=size)
    with timed("vellum.single(grid)                   heights in feet"):
        arrays["feet"] = vellum.single((elevation / 0.3048).astype(numpy.float32))
    with timed("vellum.logical(rows)                  above 800 m?"):
        arrays["high"] = vellum.logical((elevation > 800).tolist())
    with timed("vellum.single(rows, is_complex=True)  slopes east + north i"):
        arrays["slope"] = vellum.single(gradient(elevation, place).tolist(), is_complex=True)
    return arrays


def show_arrays(arrays):
    print(f"\n  {'':<8} {'class':<16} {'size':<12} {'bytes each':>10} {'bytes':>10}")
    for name, array in arrays.items():
        kind = type(array).__name__.rpartition(".")[2] + (" complex" if array._is_complex else "")
        rows, columns = array.size
        total = rows * columns * array.itemsize
        print(f"  {name:<8} {kind:<16} {array.size!s:<12} {array.itemsize:>10} {total:>10,}")


# --- Reading ------------------------------------------------------------------


def find_summit(heights):
    """Row, column and height of the highest element, by plain subscriptions."""
    best = (0, 0, heights[0][0])
    for r in with_progress(range(len(heights))):
        row = heights[r]
        for c in range(len(row)):
            if row[c] > best[2]:
                best = (r, c, row[c])
    return best


def count_differences(first, second):
    """How many elements of two arrays of one size are not equal as numbers."""
    differences = 0
    for r in with_progress(range(len(first))):
        one, other = first[r], second[r]
        for c in range(len(one)):
            differences += one[c] != other[c]
    return differences


def draw_map(heights, row_step, column_step, summit):
    """Every so many rows and columns, a tone for each height, A for the summit."""
    low, high = 230, 1080
    lines = []
    coarse = heights[::row_step]
    for i in range(len(coarse)):
        row = coarse[i][::column_step]
        lines.append(
            [TONES[(row[k] - low) * len(TONES) // (high - low)] for k in range(len(row))]
        )
    r, c, _ = summit
    lines[min(r // row_step, len(lines) - 1)][min(c // column_step, len(lines[0]) - 1)] = "A"
    return ["".join(line) for line in lines]


def draw_profile(heights, lines=7):
    """A row of heights as a chart; `heights` is a one-dimensional part."""
    values = [heights[i] for i in range(len(heights))]
    low, high = min(values), max(values)
    per_line = max(high - low, 1) / lines
    for line in range(lines, 0, -1):
        floor = low + (line - 1) * per_line
        body = "".join("#" if value > floor else " " for value in values)
        print(f"  {floor + per_line:6.0f} m |{body}")
    print(f"  {low:6.0f} m +{'-' * len(values)}")


def slope_degrees(gradients, row, column):
    return math.degrees(math.atan(abs(gradients[row][column])))


# --- Copies, pickles, shapes --------------------------------------------------


def show_buffer(heights):
    view = memoryview(heights)
    print(
        f"  memoryview(height): shape {view.shape}, strides {view.strides}, format {view.format!r}"
    )
    with timed("numpy.asarray(height), the elements where they are"):
        array = numpy.asarray(heights)
    print(f"  numpy finds {array.min()} to {array.max()} m, {array.mean():.1f} m on average")


def show_copies(heights, summit):
    with timed("height.clone()"):
        twin = heights.clone()
    with timed("copy.deepcopy(height)"):
        deep = copy.deepcopy(heights)
    with timed("pickle.dumps(height)"):
        pickled = pickle.dumps(heights)
    with timed(f"pickle.loads of {len(pickled):,} bytes"):
        restored = pickle.loads(pickled)
    print(f"  Each equals the original: {[other == heights for other in (twin, deep, restored)]}")
    r, c, top = summit
    twin[r][c] = top + 1
    print(f"  With {twin[r][c]} m on the clone: {twin == heights}; height keeps {heights[r][c]}")


def show_reshape(heights, summit):
    rows, columns = heights.size
    r, c, _ = summit
    line = heights.clone()
    before = memoryview(line)
    with timed(f"reshape({rows * columns}, 1) of a clone, in place"):
        line.reshape(rows * columns, 1)
    position = r + c * rows
    print(f"  Columns lie end to end: line[{r} + {c} * {rows}][0] is {line[position][0]}")
    print(f"  A memoryview from before still has {before.shape}, and there {before[r, c]}")
    line.reshape(rows, columns)
    print(f"  reshape{rows, columns} brings the original back: {line == heights}")


# --- The picture --------------------------------------------------------------


def enlarge(elevation, place):
    """The heights as floats, smoothly enlarged to square cells, and a cell's side
    in metres."""
    metres = place.row_metres / PIXELS_PER_ROW
    rows, columns = elevation.shape
    size = round(columns * place.column_metres / metres), rows * PIXELS_PER_ROW
    return terrain_picture.enlarge(elevation, size), metres


def shade(heights, cell_size):
    """How bright each cell is, 1 where it is level: native code, a light at a time."""
    light = numpy.zeros(heights.size)
    for azimuth, part in LIGHTS:
        relief = hillshade.shade(
            heights, azimuth, LIGHT_ALTITUDE, z_factor=EXAGGERATION, cell_size=cell_size
        )
        light += part * numpy.asarray(memoryview(relief))
    return light / (255 * math.sin(math.radians(LIGHT_ALTITUDE)))


def make_picture(elevation, place, summit, fonts):
    with timed("heights enlarged, vellum.single of them"):
        fine, metres = enlarge(elevation, place)
        heights = vellum.single(fine)
    with timed(f"hillshade.shade: {len(LIGHTS)} lights on {fine.size:,} cells of {metres:.0f} m"):
        light = shade(heights, metres)
    with timed("tint by height, lakes, light and shadow"):
        relief = terrain_picture.relief(fine, light, terrain_picture.find_lakes(elevation))
    row, column, top = summit
    peak = ((column + 0.5) / elevation.shape[1], (row + 0.5) / elevation.shape[0], f"{top} m")
    with timed("frame and legend"):
        return terrain_picture.Sheet(relief, metres, fonts).finish(place, peak)


# --- The walk -----------------------------------------------------------------


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument(
        "-o",
        "--output",
        type=Path,
        default=ROOT / "build" / "terrain.png",
        help="the picture (default: build/terrain.png in the repository)",
    )
    output = parser.parse_args().output.resolve()
    # A reader that has seen enough (`| head`) ends this quietly.
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    start = time.perf_counter()

    heading("The grid")
    path = find_grid()
    with timed(f"numpy reads {path.name}"):
        elevation, place = load_grid(path)
    rows, columns = elevation.shape
    print(f"  {rows} rows by {columns} columns of {elevation.dtype}, from {place(0, 0)}")
    print(f"  {' ' * 37}to   {place(rows - 1, columns - 1)}")
    print(
        f"  {place.column_metres * (columns - 1) / 1000:.1f} km from west to east, "
        f"{place.row_metres * (rows - 1) / 1000:.1f} km from north to south"
    )

    heading("Four roads into one array, and arrays of other kinds")
    height = load_heights(elevation)
    arrays = build_arrays(height, elevation, place)
    show_arrays(arrays)
    feet, slope = arrays["feet"], arrays["slope"]

    heading("Element by element")
    with timed(f"heights by rows against heights by columns, {rows * columns:,} pairs"):
        differences = count_differences(height, arrays["exact"])
    print(f"  {differences} differences")
    with timed("the summit, by height[r][c]"):
        summit = find_summit(height)
    r, c, top = summit
    print(f"  {top} m ({feet[r][c]:.0f} feet) at row {r}, column {c}: {place(r, c)}")
    print(f"  high[{r}][{c}] is {arrays['high'][r][c]}")

    heading("Slices")
    around = height[max(r - 1, 0) : r + 2]
    print(f"  Around the summit: height[{max(r - 1, 0)}:{r + 2}] has the size {around.size}")
    for i in range(len(around)):
        print(f"    {around[i][max(c - 3, 0) : c + 4]}")
    print(f"  Its middle as Python writes it: {height[r][max(c - 2, 0) : c + 3]!r}")
    print(f"  Every 100th of the last row, from the east: {height[-1][::-100]}")
    steepest = max(
        (slope_degrees(slope, i, k), i, k) for i in range(0, rows, 4) for k in range(0, columns, 4)
    )
    print(
        f"  Steepest of every fourth: {steepest[0]:.0f} degrees at {place(*steepest[1:])}, "
        f"slope {slope[steepest[1]][steepest[2]]:.2f}"
    )

    heading("The map: every 18th row, every 10th column, A the summit")
    with timed("height[::18], then [::10] of each row"):
        lines = draw_map(height, 18, 10, summit)
    for line in lines:
        print(f"  {line}")

    heading(f"West to east through the summit: height[{r}][::6]")
    draw_profile(height[r][::6])

    heading("Copies, pickles, shapes")
    show_buffer(height)
    show_copies(height, summit)
    show_reshape(height, summit)

    heading("The picture")
    picture = make_picture(elevation, place, summit, path.parents[1] / "fonts" / "ttf")
    output.parent.mkdir(parents=True, exist_ok=True)
    with timed(f"PNG of {picture.width} by {picture.height} pixels"):
        picture.save(output, format="PNG")
    shown = output.relative_to(ROOT) if ROOT in output.parents else output
    print(f"  {shown}, {output.stat().st_size:,} bytes")

    print(f"\nAll of it took {time.perf_counter() - start:.1f} s.")


if __name__ == "__main__":
    main()
