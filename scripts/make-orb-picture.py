#!/usr/bin/env python3
"""Draws the placeholder picture of the bundled form orb.

The editor shows this picture in the page where the form goes, so it should
read at a glance as "a form": a small window with labelled text boxes and a
button. The page object stores the picture's bytes, and the component refuses
a picture longer than a signed 16-bit length, hence the size check below.

Standard library only (zlib for the compression, struct for the chunks), so
the picture can be redrawn on any machine without an imaging package. The
output is byte-for-byte reproducible.

Usage: scripts/make-orb-picture.py [OUTPUT]   (default: orbs/form/form.png)
"""

import pathlib
import struct
import sys
import zlib

WIDTH, HEIGHT = 96, 64
MAX_BYTES = 32767  # the page object's picture length is a signed 16-bit value

# Colours (RGB).
FRAME = (64, 64, 64)
FACE = (236, 233, 216)
TITLE_LEFT = (10, 36, 106)
TITLE_RIGHT = (96, 148, 224)
WHITE = (255, 255, 255)
INK = (32, 32, 32)
SHADOW = (128, 128, 128)
LIGHT = (255, 255, 255)
DARK = (96, 96, 96)

# A 5-pixel-high capital font, just the letters the picture needs.
GLYPHS = {
    "A": [".#.", "#.#", "###", "#.#", "#.#"],
    "D": ["##.", "#.#", "#.#", "#.#", "##."],
    "E": ["###", "#..", "##.", "#..", "###"],
    "F": ["###", "#..", "##.", "#..", "#.."],
    "H": ["#.#", "#.#", "###", "#.#", "#.#"],
    "I": ["###", ".#.", ".#.", ".#.", "###"],
    "L": ["#..", "#..", "#..", "#..", "###"],
    "M": ["#...#", "##.##", "#.#.#", "#...#", "#...#"],
    "N": ["#..#", "##.#", "#.##", "#..#", "#..#"],
    "O": [".#.", "#.#", "#.#", "#.#", ".#."],
    "P": ["##.", "#.#", "##.", "#..", "#.."],
    "R": ["##.", "#.#", "##.", "#.#", "#.#"],
    "S": [".##", "#..", ".#.", "..#", "##."],
}


class Canvas:
    def __init__(self, width, height, colour):
        self.width, self.height = width, height
        self.pixels = [[colour] * width for _ in range(height)]

    def fill(self, x0, y0, x1, y1, colour):
        """Fills the rectangle with corners (x0, y0) and (x1, y1), inclusive."""
        for y in range(y0, y1 + 1):
            for x in range(x0, x1 + 1):
                self.pixels[y][x] = colour

    def bevel(self, x0, y0, x1, y1, top_left, bottom_right):
        """A one-pixel edge: light above and left for a raised control,
        dark there for a sunken one."""
        self.fill(x0, y0, x1, y0, top_left)
        self.fill(x0, y0, x0, y1, top_left)
        self.fill(x0, y1, x1, y1, bottom_right)
        self.fill(x1, y0, x1, y1, bottom_right)

    def text(self, x, y, word, colour):
        for letter in word:
            glyph = GLYPHS[letter]
            for row, line in enumerate(glyph):
                for col, cell in enumerate(line):
                    if cell == "#":
                        self.pixels[y + row][x + col] = colour
            x += len(glyph[0]) + 1


def text_width(word):
    return sum(len(GLYPHS[letter][0]) + 1 for letter in word) - 1


def draw():
    c = Canvas(WIDTH, HEIGHT, FACE)
    # Window frame and a title bar shaded from left to right.
    c.bevel(0, 0, WIDTH - 1, HEIGHT - 1, FRAME, FRAME)
    for x in range(1, WIDTH - 1):
        t = (x - 1) / (WIDTH - 3)
        shade = tuple(round(a + (b - a) * t) for a, b in zip(TITLE_LEFT, TITLE_RIGHT))
        c.fill(x, 1, x, 10, shade)
    c.text(4, 3, "FORM", WHITE)
    c.fill(84, 3, 91, 8, FACE)  # close box
    c.bevel(84, 3, 91, 8, LIGHT, DARK)
    # The glyphs are 5 pixels high and the box holds 4: draw the cross by hand.
    for i in range(4):
        c.pixels[4 + i][86 + i] = INK
        c.pixels[4 + i][89 - i] = INK

    # Three labelled line fields, each a sunken white box.
    for row, label in enumerate(["NAME", "EMAIL", "PHONE"]):
        top = 15 + 11 * row
        c.text(5, top + 2, label, INK)
        c.fill(30, top, 89, top + 8, WHITE)
        c.bevel(30, top, 89, top + 8, SHADOW, LIGHT)
        c.bevel(31, top + 1, 88, top + 7, DARK, FACE)

    # The send button, raised, at the bottom right.
    left, top, right, bottom = 60, 50, 89, 60
    c.bevel(left, top, right, bottom, LIGHT, FRAME)
    c.bevel(left + 1, top + 1, right - 1, bottom - 1, FACE, SHADOW)
    label_x = left + (right - left + 1 - text_width("SEND")) // 2
    c.text(label_x, top + 3, "SEND", INK)
    return c


def png_bytes(canvas):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    # Each scanline starts with filter type 0 (none); zlib does the rest.
    raw = b"".join(
        b"\x00" + bytes(v for pixel in line for v in pixel) for line in canvas.pixels
    )
    header = struct.pack(">IIBBBBB", canvas.width, canvas.height, 8, 2, 0, 0, 0)
    return (
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", header)
        + chunk(b"IDAT", zlib.compress(raw, 9))
        + chunk(b"IEND", b"")
    )


def main(argv):
    root = pathlib.Path(__file__).resolve().parent.parent
    out = pathlib.Path(argv[1]) if len(argv) > 1 else root / "orbs" / "form" / "form.png"
    data = png_bytes(draw())
    if len(data) > MAX_BYTES:
        sys.exit(f"make-orb-picture: {len(data)} bytes, more than {MAX_BYTES}")
    out.write_bytes(data)
    print(f"{out}: {len(data)} bytes")


if __name__ == "__main__":
    main(sys.argv)
