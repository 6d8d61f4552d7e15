#!/usr/bin/env python3
"""Draws the placeholder pictures of the bundled form orbs.

The editor shows an orb's picture in the page where the form goes, so it
should read at a glance as "a form", and as which one: a small window titled
with the orb's name, with labelled text boxes and a button. The page object stores the picture's bytes, and the component refuses
a picture longer than a signed 16-bit length, hence the size check below.

Standard library only (zlib for the compression, struct for the chunks), so
the picture can be redrawn on any machine without an imaging package. The
output is byte-for-byte reproducible.

Usage: scripts/make-orb-picture.py [ORB ...]
Draws orbs/ORB/ORB.png for each ORB named, or for every orb in ORBS.
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
    "B": ["##.", "#.#", "##.", "#.#", "##."],
    "C": [".##", "#..", "#..", "#..", ".##"],
    "D": ["##.", "#.#", "#.#", "#.#", "##."],
    "E": ["###", "#..", "##.", "#..", "###"],
    "F": ["###", "#..", "##.", "#..", "#.."],
    "G": [".##", "#..", "#.#", "#.#", ".##"],
    "H": ["#.#", "#.#", "###", "#.#", "#.#"],
    "I": ["###", ".#.", ".#.", ".#.", "###"],
    "J": ["..#", "..#", "..#", "#.#", ".#."],
    "K": ["#.#", "#.#", "##.", "#.#", "#.#"],
    "L": ["#..", "#..", "#..", "#..", "###"],
    "M": ["#...#", "##.##", "#.#.#", "#...#", "#...#"],
    "N": ["#..#", "##.#", "#.##", "#..#", "#..#"],
    "O": [".#.", "#.#", "#.#", "#.#", ".#."],
    "P": ["##.", "#.#", "##.", "#..", "#.."],
    "Q": [".#.", "#.#", "#.#", "##.", ".##"],
    "R": ["##.", "#.#", "##.", "#.#", "#.#"],
    "S": [".##", "#..", ".#.", "..#", "##."],
    "T": ["###", ".#.", ".#.", ".#.", ".#."],
    "U": ["#.#", "#.#", "#.#", "#.#", "###"],
    "V": ["#.#", "#.#", "#.#", "#.#", ".#."],
    "W": ["#...#", "#...#", "#.#.#", "##.##", "#...#"],
    "Y": ["#.#", "#.#", ".#.", ".#.", ".#."],
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


# Each orb's picture: its title, the labels of three of its fields, the
# caption of its button. Labels fit in 24 pixels: five letters, fewer with M
# or W.
ORBS = {
    "form": ("FORM", ["NAME", "EMAIL", "PHONE"], "SEND"),
    "contact": ("CONTACT", ["NAME", "EMAIL", "TOPIC"], "SEND"),
    "request": ("REQUEST", ["NAME", "ITEM", "QTY"], "SEND"),
    "feedback": ("FEEDBACK", ["RATE", "LIKED", "NAME"], "SEND"),
    "newsletter": ("NEWSLETTER", ["NAME", "EMAIL", "OFTEN"], "JOIN"),
    "event": ("EVENT", ["NAME", "EMAIL", "DAY"], "BOOK"),
}


def draw(title, labels, button):
    c = Canvas(WIDTH, HEIGHT, FACE)
    # Window frame and a title bar shaded from left to right.
    c.bevel(0, 0, WIDTH - 1, HEIGHT - 1, FRAME, FRAME)
    for x in range(1, WIDTH - 1):
        t = (x - 1) / (WIDTH - 3)
        shade = tuple(round(a + (b - a) * t) for a, b in zip(TITLE_LEFT, TITLE_RIGHT))
        c.fill(x, 1, x, 10, shade)
    c.text(4, 3, title, WHITE)
    c.fill(84, 3, 91, 8, FACE)  # close box
    c.bevel(84, 3, 91, 8, LIGHT, DARK)
    # The glyphs are 5 pixels high and the box holds 4: draw the cross by hand.
    for i in range(4):
        c.pixels[4 + i][86 + i] = INK
        c.pixels[4 + i][89 - i] = INK

    # Three labelled line fields, each a sunken white box.
    for row, label in enumerate(labels):
        top = 15 + 11 * row
        c.text(5, top + 2, label, INK)
        c.fill(30, top, 89, top + 8, WHITE)
        c.bevel(30, top, 89, top + 8, SHADOW, LIGHT)
        c.bevel(31, top + 1, 88, top + 7, DARK, FACE)

    # The send button, raised, at the bottom right.
    left, top, right, bottom = 60, 50, 89, 60
    c.bevel(left, top, right, bottom, LIGHT, FRAME)
    c.bevel(left + 1, top + 1, right - 1, bottom - 1, FACE, SHADOW)
    label_x = left + (right - left + 1 - text_width(button)) // 2
    c.text(label_x, top + 3, button, INK)
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
    for name in argv[1:] or list(ORBS):
        if name not in ORBS:
            sys.exit(f"make-orb-picture: no picture for an orb named {name!r}")
        title, labels, button = ORBS[name]
        for word in [title, button, *labels]:
            if any(letter not in GLYPHS for letter in word):
                sys.exit(f"make-orb-picture: {word!r} needs a letter the font lacks")
        # The title ends before the close box, each label before its box.
        if 4 + text_width(title) > 82 or max(map(text_width, labels)) > 24:
            sys.exit(f"make-orb-picture: a word of {name!r} is too wide")
        data = png_bytes(draw(title, labels, button))
        if len(data) > MAX_BYTES:
            sys.exit(f"make-orb-picture: {len(data)} bytes, more than {MAX_BYTES}")
        out = root / "orbs" / name / f"{name}.png"
        out.write_bytes(data)
        print(f"{out}: {len(data)} bytes")


if __name__ == "__main__":
    main(sys.argv)
