"""How the terrain looks on paper: tints, lakes, and the sheet around them."""

import numpy
from PIL import Image, ImageDraw, ImageFont

# A height in metres and the colour there; between two, their mixture.
TINTS = [
    (230, (0x54, 0x8C, 0x68)),
    (300, (0x77, 0xA8, 0x76)),
    (400, (0xAB, 0xC7, 0x8C)),
    (500, (0xDC, 0xDA, 0xA6)),
    (620, (0xD2, 0xB2, 0x7E)),
    (760, (0xAB, 0x83, 0x5C)),
    (880, (0x97, 0x78, 0x66)),
    (980, (0xD8, 0xD0, 0xC8)),
    (1080, (0xFF, 0xFF, 0xFF)),
]
WATER, PAPER, INK = (0x5E, 0x96, 0xBE), (0xF8, 0xF4, 0xEA), (0x3B, 0x35, 0x2C)


def find_lakes(elevation):
    """True where water lies: level patches of 3 by 3 cells, and what lies at their
    height and touches them."""
    padded = numpy.pad(elevation, 1, mode="edge")
    rows, columns = elevation.shape
    around = [(slice(i, rows + i), slice(k, columns + k)) for i in range(3) for k in range(3)]
    same = [padded[cells] == elevation for cells in around]
    lakes = numpy.all(same, axis=0)
    count = -1
    while count != lakes.sum():
        count = lakes.sum()
        wet = numpy.pad(lakes, 1)
        for cells, equal in zip(around, same):
            lakes |= wet[cells] & equal
    return lakes


def tint(heights):
    levels, colours = zip(*TINTS)
    return numpy.stack([numpy.interp(heights, levels, part) for part in zip(*colours)], axis=-1)


def enlarge(grid, size):
    """The grid as floats, smoothly enlarged; `size` is (width, height)."""
    image = Image.fromarray(grid.astype(numpy.float32))
    return numpy.asarray(image.resize(size, Image.Resampling.BICUBIC))


def blend(colours, light):
    """The colours in that light: towards a blueish dark, or towards white."""
    dark = numpy.clip(light, 0, 1)[..., None]
    bright = numpy.clip(1.1 * (light - 1), 0, 1)[..., None]
    shadow = numpy.array([0.24, 0.25, 0.30])
    shaded = colours * (shadow + (1 - shadow) * dark)
    return (shaded + (255 - shaded) * bright).astype(numpy.uint8)


def relief(heights, light, lakes):
    """An image, a pixel for each height: its tint in the light there. `lakes` may be
    a coarser grid."""
    rows, columns = heights.shape
    wet = numpy.clip(2 * enlarge(lakes, (columns, rows)) - 0.4, 0, 1)[..., None]
    return Image.fromarray(blend(tint(heights) * (1 - wet) + numpy.array(WATER) * wet, light))


class Sheet:
    """The paper around the relief. Drawn twice as large as it will be, then
    reduced: that makes edges smooth. Positions are in pixels of the result."""

    SCALE, MARGIN, HEAD, FOOT = 2, 44, 104, 96

    def __init__(self, relief, metres, fonts):
        """`metres` is a pixel's side, `fonts` the folder of the DejaVu fonts."""
        self.relief, self.metres, self.fonts = relief, metres, fonts
        self.width = relief.width + 2 * self.MARGIN
        self.height = relief.height + self.HEAD + self.FOOT
        self.left, self.top = self.MARGIN, self.HEAD
        self.right, self.bottom = self.left + relief.width, self.top + relief.height
        self.layer = Image.new("RGBA", (self.width * self.SCALE, self.height * self.SCALE), PAPER)
        self.pen = ImageDraw.Draw(self.layer)

    def polygon(self, points, **colours):
        self.pen.polygon([(x * self.SCALE, y * self.SCALE) for x, y in points], **colours)

    def box(self, left, top, right, bottom, fill=INK):
        self.polygon([(left, top), (right, top), (right, bottom), (left, bottom)], fill=fill)

    def text(self, x, y, text, size, anchor="ls", face="DejaVuSans.ttf", **options):
        try:
            font = ImageFont.truetype(str(self.fonts / face), size * self.SCALE)
        except OSError:  # the one font that Pillow carries has one size and no anchor
            font, anchor = ImageFont.load_default(), None
        self.pen.text((x * self.SCALE, y * self.SCALE), text, INK, font, anchor, **options)

    def frame(self, left, top, right, bottom):
        corners = (left, top, right, bottom)
        self.pen.rectangle([v * self.SCALE for v in corners], outline=INK)

    def finish(self, place, peak):
        """The whole picture. `place` knows the corners' latitudes and longitudes;
        `peak` is the part of the width and of the height where it lies, and its name."""
        self.title(place)
        self.frame(self.left - 5, self.top - 5, self.right + 4.5, self.bottom + 4.5)
        self.box(self.left, self.top, self.right - 0.5, self.bottom - 0.5, fill=(0, 0, 0, 0))
        self.north_arrow(self.right - 24, self.top - 16)
        x, y, name = peak
        self.summit(self.left + x * self.relief.width, self.top + y * self.relief.height, name)
        self.legend(self.left, self.bottom + 30)
        step = 5_000 / self.metres
        self.scale_bar(self.right - 2 * step, self.bottom + 30, step)
        sheet = Image.new("RGBA", (self.width, self.height))
        sheet.paste(self.relief, (self.left, self.top))
        return Image.alpha_composite(sheet, self.layer.reduce(self.SCALE)).convert("RGB")

    def title(self, place):
        self.text(self.left, 56, "The Jacksboro Fault", 34, face="DejaVuSerif.ttf")
        south, east = place.corner
        latitudes = f"{south:.2f} to {place.north:.2f} N"
        longitudes = f"{-east:.2f} to {-place.west:.2f} W"
        line = f"Tennessee and Kentucky, {latitudes}, {longitudes}. Light from the north-west."
        self.text(self.left, 82, line, 15)

    def north_arrow(self, x, y):
        self.polygon([(x, y - 56), (x, y - 12), (x - 13, y)], fill=INK)
        self.polygon([(x, y - 56), (x, y - 12), (x + 13, y)], fill=PAPER, outline=INK)
        self.text(x, y - 60, "N", 16, "ms", "DejaVuSerif.ttf")

    def summit(self, x, y, label):
        self.polygon([(x, y - 9), (x + 9, y + 6), (x - 9, y + 6)], fill=PAPER)
        self.polygon([(x, y - 5), (x + 5.5, y + 4), (x - 5.5, y + 4)], fill=(0xB0, 0x2E, 0x26))
        halo = {"stroke_width": 3 * self.SCALE, "stroke_fill": PAPER}
        self.text(x + 14, y, label, 18, "lm", "DejaVuSans-Bold.ttf", **halo)

    def legend(self, x, y):
        low, high = TINTS[0][0], TINTS[-1][0]
        for i, colour in enumerate(tint(numpy.linspace(low, high, 340))):
            self.box(x + i, y, x + i + 1, y + 14, fill=tuple(int(part) for part in colour))
        self.frame(x, y, x + 340, y + 14)
        for level in range(300, high, 100):
            tick = x + 340 * (level - low) / (high - low)
            self.box(tick - 0.5, y + 14, tick + 0.5, y + 19)
            if level % 200 == 100:
                self.text(tick, y + 36, f"{level} m", 14, "ms")
        self.box(x + 374, y, x + 404, y + 14, fill=WATER)
        self.text(x + 389, y + 36, "lake", 14, "ms")

    def scale_bar(self, x, y, step):
        """Two steps of 5 km."""
        self.box(x, y, x + 2 * step, y + 8)
        self.box(x + step, y + 1, x + 2 * step - 1, y + 7, fill=PAPER)
        for i, label in enumerate(["0", "5", "10 km"]):
            self.text(x + i * step, y + 36, label, 14, ["ls", "ms", "rs"][i])
