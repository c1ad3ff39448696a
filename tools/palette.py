#!/usr/bin/env python3
"""Draws the palette pictures that pantiq/design/palette/palette.txt describes.

    tools/palette.py              writes them all
    tools/palette.py --check      says which are not as described; exit code 1 if there are any
    tools/palette.py --sheet PNG  shows them, in all sizes and at four times their size, on one sheet

For each class two forms, the large one of 24 by 24 pixels under its name in capitals, the small one of 16 by 16 with an underscore
before it: bitmaps of 16 colours in pantiq/design/palette, which become part of the library, and PNG in docs/images/palette; there
also an SVG, which serves for any size.
"""
import argparse
import math
import pathlib
import struct
import sys
import zlib

ROOT = pathlib.Path(__file__).resolve().parent.parent
BITMAPS = ROOT / "pantiq" / "design" / "palette"
IMAGES = ROOT / "docs" / "images" / "palette"
FORMS = {"": (24, 0.0), "_": (16, 2.0)}  # prefix: side in pixels, units left out at each side of the drawing
TILE, CORNER = 24, 4.5
BEHIND = (0xC0, 0xC0, 0xC0)  # what a bitmap has outside of the tile: the colour of its lower left pixel, used nowhere else
COUNTS = {"box": 4, "frame": 4, "disc": 3, "ring": 3, "arc": 5, "curve": 8, "arrow": 4}  # numbers that a shape takes
STROKED = {"frame", "ring", "arc", "line", "curve", "arrow"}


def mix(a, b, part):
    """part of b, the rest a."""
    return tuple(int(x + (y - x) * part + 0.5) for x, y in zip(a, b))


def hex_of(colour):
    return "#%02x%02x%02x" % colour


# ---------------------------------------------------------------------------------------------------------- description

class Picture:
    def __init__(self, name, tile):
        self.name, self.tile, self.shapes = name, tile, []  # shapes: (colour, kind, numbers, stroke)


def read():
    groups, colours, pictures = {}, {}, []

    def take(words):
        if words[0] in ("group", "colour"):
            kind, name, code = words
            (groups if kind == "group" else colours)[name] = tuple(bytes.fromhex(code))
        elif words[0] == "picture":
            pictures.append(Picture(words[1], groups[words[2]]))
        else:
            picture = pictures[-1]
            own = {"tile": picture.tile, "soft": mix(picture.tile, colours["ink"], 0.5), "deep": mix(picture.tile, (0, 0, 0), 0.4)}
            stroke = float(words.pop()[1:]) if words[-1].startswith("/") else 2.0
            numbers = [float(word) for word in words[2:]]
            kind = words[1]
            if COUNTS.get(kind, len(numbers)) != len(numbers) or kind not in {*COUNTS, "line", "poly"} or len(numbers) % 2 and kind in ("line", "poly"):
                raise ValueError(f"no such shape, or not its numbers: {' '.join(words[1:])}")
            picture.shapes.append(({**colours, **own}[words[0]], kind, numbers, stroke))

    for number, line in enumerate((BITMAPS / "palette.txt").read_text().splitlines(), 1):
        words = line.partition("#")[0].split()
        try:
            if words:
                take(words)
        except (KeyError, ValueError, IndexError) as fault:
            sys.exit(f"palette: palette.txt:{number}: {fault}")
    return pictures


def pairs(numbers):
    return list(zip(numbers[::2], numbers[1::2]))


def arrow_parts(numbers):
    """The end of an arrow's shaft and the three corners of its head."""
    x, y, tip_x, tip_y = numbers
    length = math.sqrt((tip_x - x) ** 2 + (tip_y - y) ** 2)
    u, v = (tip_x - x) / length, (tip_y - y) / length
    head_x, head_y = tip_x - 4 * u, tip_y - 4 * v
    return (head_x, head_y), [(tip_x, tip_y), (head_x - 3.5 * v, head_y + 3.5 * u), (head_x + 3.5 * v, head_y - 3.5 * u)]


# -------------------------------------------------------------------------------------------------------------- drawing
# Each shape is the set of points whose distance to it is not above 0; a pixel is covered as far as its middle lies inside.

def from_box(px, py, x, y, width, height, corner=0.0):
    dx = abs(px - x - width / 2) - width / 2 + corner
    dy = abs(py - y - height / 2) - height / 2 + corner
    return math.sqrt(max(dx, 0) ** 2 + max(dy, 0) ** 2) + min(max(dx, dy), 0) - corner


def from_segment(px, py, ax, ay, bx, by):
    length = (bx - ax) ** 2 + (by - ay) ** 2
    t = max(0.0, min(1.0, ((px - ax) * (bx - ax) + (py - ay) * (by - ay)) / length)) if length else 0.0
    return math.sqrt((px - ax - t * (bx - ax)) ** 2 + (py - ay - t * (by - ay)) ** 2)


def from_line(px, py, points):
    return min(from_segment(px, py, *a, *b) for a, b in zip(points, points[1:]))


def from_poly(px, py, points):
    inside = False
    for (ax, ay), (bx, by) in zip(points, points[1:] + points[:1]):
        if (ay > py) != (by > py) and px < (bx - ax) * (py - ay) / (by - ay) + ax:
            inside = not inside
    rim = from_line(px, py, points + points[:1])
    return -rim if inside else rim


def arc_points(x, y, radius, start, end):
    steps = 24
    angles = [math.radians(start + (end - start) * i / steps) for i in range(steps + 1)]
    return [(x + radius * math.cos(a), y + radius * math.sin(a)) for a in angles]


def curve_points(numbers):
    p = pairs(numbers)
    weights = [((1 - t) ** 3, 3 * t * (1 - t) ** 2, 3 * t * t * (1 - t), t ** 3) for t in (i / 16 for i in range(17))]
    return [tuple(sum(w * q[k] for w, q in zip(ws, p)) for k in (0, 1)) for ws in weights]


def fitted(kind, n, stroke, scale, margin):
    """The numbers and the stroke of a shape with upright edges, moved so that these lie between pixels; of others, as they are."""
    nearest = lambda v: int(v + 0.5)
    snap = lambda v, by=0.0: margin + (nearest((v - margin) * scale - by) + by) / scale
    if kind in ("box", "frame"):
        x, y, right, bottom = snap(n[0]), snap(n[1]), snap(n[0] + n[2]), snap(n[1] + n[3])
        n = [x, y, max(right - x, 1 / scale), max(bottom - y, 1 / scale)]
    elif kind != "line" or any(a[0] != b[0] and a[1] != b[1] for a, b in zip(pairs(n), pairs(n)[1:])):
        return n, stroke
    pixels = max(1, nearest(stroke * scale))
    return (n if kind != "line" else [snap(v, pixels % 2 / 2) for v in n]), pixels / scale


def distance(kind, n, stroke):
    """The function of a point that gives its distance to a shape."""
    if kind == "box":
        return lambda x, y: from_box(x, y, *n)
    if kind == "frame":
        return lambda x, y: max(from_box(x, y, *n), -from_box(x, y, n[0] + stroke, n[1] + stroke, n[2] - 2 * stroke, n[3] - 2 * stroke))
    if kind in ("disc", "ring"):
        around = lambda x, y: math.sqrt((x - n[0]) ** 2 + (y - n[1]) ** 2) - n[2]
        return around if kind == "disc" else lambda x, y: abs(around(x, y)) - stroke / 2
    if kind == "poly":
        return lambda x, y, points=pairs(n): from_poly(x, y, points)
    if kind == "arrow":
        end, head = arrow_parts(n)
        return lambda x, y: min(from_segment(x, y, n[0], n[1], *end) - stroke / 2, from_poly(x, y, head))
    points = {"line": pairs, "curve": curve_points, "arc": lambda n: arc_points(*n)}[kind](n)
    return lambda x, y: from_line(x, y, points) - stroke / 2


def draw(picture, side, margin):
    """Rows of (red, green, blue, alpha); the tile fills them, the drawing is taken without its margin."""
    scale = side / (TILE - 2 * margin)
    shapes = [(colour, distance(kind, *fitted(kind, numbers, stroke, scale, margin))) for colour, kind, numbers, stroke in picture.shapes]
    rows = []
    for row in range(side):
        rows.append([])
        for column in range(side):
            x, y = margin + (column + 0.5) / scale, margin + (row + 0.5) / scale
            at = [float(c) for c in picture.tile]
            for colour, to in shapes:
                part = min(1.0, 0.5 - to(x, y) * scale)
                if part > 0:
                    at = [a + (c - a) * part for a, c in zip(at, colour)]
            edge = side / TILE * from_box((column + 0.5) * TILE / side, (row + 0.5) * TILE / side, 0, 0, TILE, TILE, CORNER)
            alpha = max(0.0, min(1.0, 0.5 - edge))
            rows[-1].append((*(int(a + 0.5) for a in at), int(255 * alpha + 0.5)))
    return rows


# ---------------------------------------------------------------------------------------------------------------- files

def sixteen_colours(pixels):
    """The colour behind and up to 15 others that stand for the pixels: each time the one that helps most."""
    counts = {}
    for pixel in pixels:
        counts[pixel] = counts.get(pixel, 0) + 1
    far = {pixel: 1 << 20 for pixel in counts}
    table = [BEHIND]
    while len(table) < 16 and any(far.values()):
        best = max(sorted(far), key=lambda p: counts[p] * far[p])
        table.append(best)
        far = {p: min(d, sum((a - b) ** 2 for a, b in zip(p, best))) for p, d in far.items()}
    return table


def bmp(rows):
    """A file header of 14 bytes, then the device-independent bitmap: header, 16 colours, 4 bits a pixel from the bottom up."""
    side = len(rows)
    table = sixteen_colours([p[:3] for row in rows for p in row if p[3] >= 128])
    nearest = lambda p: 0 if p[3] < 128 else min(range(1, len(table)), key=lambda i: sum((a - b) ** 2 for a, b in zip(p, table[i])))
    bits = b""
    for row in reversed(rows):
        values = [nearest(p) for p in row]
        bits += bytes(a << 4 | b for a, b in zip(values[::2], values[1::2]))
    colours = b"".join(bytes((b, g, r, 0)) for r, g, b in table + [(0, 0, 0)] * (16 - len(table)))
    header = struct.pack("<IiiHHIIiiII", 40, side, side, 1, 4, 0, len(bits), 0, 0, 0, 0)
    start = 14 + len(header) + len(colours)
    return struct.pack("<2sIHHI", b"BM", start + len(bits), 0, 0, start) + header + colours + bits


def png(rows):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    raw = b"".join(b"\0" + b"".join(bytes(p) for p in row) for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", len(rows[0]), len(rows), 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def number(value):
    return f"{value:.2f}".rstrip("0").rstrip(".").replace("-0.", "-.").removeprefix("0") if value else "0"


def svg_points(points):
    return " ".join(f"{number(x)},{number(y)}" for x, y in points)


def svg_shape(colour, kind, n, stroke):
    fill, line = f'fill="{hex_of(colour)}"', f'fill="none" stroke="{hex_of(colour)}" stroke-width="{number(stroke)}"'
    round_line = line + ' stroke-linecap="round" stroke-linejoin="round"'
    s = [number(v) for v in n]
    if kind == "box":
        return f'<rect x="{s[0]}" y="{s[1]}" width="{s[2]}" height="{s[3]}" {fill}/>'
    if kind == "frame":
        x, y, width, height = (number(v) for v in (n[0] + stroke / 2, n[1] + stroke / 2, n[2] - stroke, n[3] - stroke))
        return f'<rect x="{x}" y="{y}" width="{width}" height="{height}" {line}/>'
    if kind in ("disc", "ring"):
        return f'<circle cx="{s[0]}" cy="{s[1]}" r="{s[2]}" {fill if kind == "disc" else line}/>'
    if kind == "poly":
        return f'<polygon points="{svg_points(pairs(n))}" {fill}/>'
    if kind == "line":
        return f'<polyline points="{svg_points(pairs(n))}" {round_line}/>'
    if kind == "curve":
        return f'<path d="M{s[0]},{s[1]}C{s[2]},{s[3]} {s[4]},{s[5]} {s[6]},{s[7]}" {round_line}/>'
    if kind == "arc":
        start, *_, end = arc_points(*n)
        return (f'<path d="M{svg_points([start])}A{s[2]},{s[2]} 0 {int(abs(n[4] - n[3]) > 180)} {int(n[4] > n[3])} {svg_points([end])}" '
                f'{round_line}/>')
    shaft, head = arrow_parts(n)
    return f'<polyline points="{svg_points([(n[0], n[1]), shaft])}" {round_line}/><polygon points="{svg_points(head)}" {fill}/>'


def svg(picture):
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{TILE}" height="{TILE}" viewBox="0 0 {TILE} {TILE}">',
           f'<title>{picture.name}</title>', f'<rect width="{TILE}" height="{TILE}" rx="{CORNER}" fill="{hex_of(picture.tile)}"/>']
    return "\n".join(out + [svg_shape(*shape) for shape in picture.shapes] + ["</svg>", ""]).encode()


def same(file, data):
    if not file.exists():
        return False
    there = file.read_bytes()
    if file.suffix != ".png" or there == data:
        return there == data
    unpacked = lambda png: png[:33] + zlib.decompress(png[41:-16])  # packed by another zlib it is the same picture
    try:
        return unpacked(there) == unpacked(data)
    except zlib.error:
        return False


def sheet(pictures):
    """Twice as large as a bitmap shows it, in its own size and four times as large, eleven in a row."""
    width, height, around = 11 * 100, 4 * 190, (0xF0, 0xF0, 0xF0, 255)
    rows = [[around] * width for _ in range(height)]

    def put(picture, left, top, times):
        for y, row in enumerate(picture):
            for x, (*colour, alpha) in enumerate(row):
                colour = (*mix(around[:3], colour, alpha / 255), 255)
                for k in range(times * times):
                    rows[top + y * times + k // times][left + x * times + k % times] = colour

    def as_bitmap(drawn):
        table = sixteen_colours([p[:3] for row in drawn for p in row if p[3] >= 128])
        near = lambda p: min(table[1:], key=lambda c: sum((a - b) ** 2 for a, b in zip(p, c)))
        return [[(*near(p), 255) if p[3] >= 128 else (*BEHIND, 255) for p in row] for row in drawn]

    for index, picture in enumerate(pictures):
        left, top = index % 11 * 100, index // 11 * 190
        large, small = (draw(picture, *FORMS[form]) for form in FORMS)
        put(large, left, top + 2, 4)
        put(large, left, top + 104, 1)
        put(as_bitmap(large), left + 27, top + 104, 1)
        put(small, left + 56, top + 104, 1)
        put(as_bitmap(small), left + 76, top + 104, 1)
        put(as_bitmap(small), left, top + 134, 3)
        put(as_bitmap(large), left + 50, top + 134, 2)
    return png(rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--sheet", metavar="PNG")
    options = parser.parse_args()
    pictures = read()
    if options.sheet:
        pathlib.Path(options.sheet).write_bytes(sheet(pictures))
        return 0
    files = {}
    for picture in pictures:
        name = picture.name.upper()
        files[IMAGES / f"{name}.svg"] = svg(picture)
        for prefix, form in FORMS.items():
            drawn = draw(picture, *form)
            files[BITMAPS / f"{prefix}{name}.bmp"] = bmp(drawn)
            files[IMAGES / f"{prefix}{name}.png"] = png(drawn)
    wrong = [f"{file.relative_to(ROOT)} is not as described; run tools/palette.py" for file, data in files.items() if not same(file, data)]
    left_over = [file for folder in (BITMAPS, IMAGES) for file in folder.glob("*.*") if file not in files and file.suffix != ".txt"]
    wrong += [f"{file.relative_to(ROOT)} is of no component" for file in left_over]
    if options.check:
        for fault in wrong:
            print("palette:", fault, file=sys.stderr)
        return 1 if wrong else 0
    IMAGES.mkdir(parents=True, exist_ok=True)
    for file in left_over:
        file.unlink()
    for file, data in files.items():
        if not same(file, data):
            file.write_bytes(data)
    return 0


if __name__ == "__main__":
    sys.exit(main())
