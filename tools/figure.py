#!/usr/bin/env python3
"""Draws who talks to whom, the figure of README.

use: figure.py write FILE
     figure.py check FILE     whether the file is what would be drawn now

The figure brings its own background: it can be read on a light and on a dark page.
"""

import pathlib
import sys
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 940, 270
BOX_WIDTH, BOX_HEIGHT, BOX_TOP = 170, 84, 90
GAP = (WIDTH - 40 - 4 * BOX_WIDTH) // 3
MIDDLE, BOTTOM = BOX_TOP + BOX_HEIGHT // 2, BOX_TOP + BOX_HEIGHT

BOXES = [
    ("poster", ["any program:", "zelieml post, eml_post"]),
    ("work directory", ["messages: *.sme", "settings: zelismes.cf"]),
    ("service", ["zelieml engine,", "or an engine alone"]),
    ("mail server", ["of an office;", "zelieml-loopback"]),
]

STYLE = """
    .page { fill: #ffffff } .box { fill: #eef3fa; stroke: #35618e }
    text { fill: #1f2328; font-family: sans-serif; font-size: 13px; text-anchor: middle }
    .title { font-size: 16px; font-weight: bold }
    .line { stroke: #1f2328; fill: none; stroke-width: 1.5 } .head { fill: #1f2328 }
    .less { stroke-dasharray: 5 4 }
    @media (prefers-color-scheme: dark) {
      .page { fill: #0d1117 } .box { fill: #17263a; stroke: #79a8d8 }
      text, .head { fill: #e6edf3 } .line { stroke: #e6edf3 }
    }
"""


def left(box):
    return 20 + box * (BOX_WIDTH + GAP)


def center(box):
    return left(box) + BOX_WIDTH // 2


def text(x, y, words, kind=""):
    of_kind = f' class="{kind}"' if kind else ""
    return f'<text x="{x}" y="{y}"{of_kind}>{escape(words)}</text>'


def box(number, title, lines):
    x, y = left(number), BOX_TOP
    return [f'<rect class="box" x="{x}" y="{y}" width="{BOX_WIDTH}" height="{BOX_HEIGHT}" rx="8"/>',
            text(center(number), y + 28, title, "title"),
            *(text(center(number), y + 50 + 18 * i, line) for i, line in enumerate(lines))]


def arrow(points, words, x, y, kind=""):
    """From the first point to the last; what it says is centered at x and stands on y."""
    path = " L".join(f"{px} {py}" for px, py in points)
    return [f'<path class="line{kind}" marker-end="url(#head)" d="M{path}"/>', text(x, y, words)]


def straight(start, words):
    """From a box to the one on its right."""
    begin, end = left(start) + BOX_WIDTH, left(start + 1)
    return arrow([(begin, MIDDLE), (end - 2, MIDDLE)], words, (begin + end) // 2, MIDDLE - 8)


def around(start, end, y, words, kind=""):
    """From a box to another, above or under those between them."""
    edge, stop = (BOX_TOP, BOX_TOP - 2) if y < BOX_TOP else (BOTTOM, BOTTOM + 2)
    first, last = center(start), center(end)
    return arrow([(first, edge), (first, y), (last, y), (last, stop)], words,
                 (first + last) // 2, y - 8, kind)


def figure():
    title = ("A poster writes a message file into a work directory. The service takes it and sends it "
             "to the mail server. What fails twice is kept.")
    parts = [
        f'<rect class="page" width="{WIDTH}" height="{HEIGHT}" rx="10"/>',
        *(line for number, (name, lines) in enumerate(BOXES) for line in box(number, name, lines)),
        *straight(0, "writes"), *straight(1, "takes"), *straight(2, "SMTP"),
        *around(0, 2, 48, "a notification, for an engine alone", " less"),
        *around(2, 1, 212, "failed twice: undelivered/"),
        *around(0, 3, 250, "zelieml send, eml_post_sync: at once, and waits for the result"),
    ]
    body = "\n".join(f"  {part}" for part in parts)
    return f"""<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img">
  <!-- written by tools/figure.py -->
  <title>{escape(title)}</title>
  <style>{STYLE}  </style>
  <marker id="head" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="8" markerHeight="8" orient="auto">
    <path class="head" d="M0 0 L8 4 L0 8 z"/>
  </marker>
{body}
</svg>
"""


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("write", "check"):
        sys.exit(__doc__)
    file = pathlib.Path(sys.argv[2])
    if sys.argv[1] == "write":
        file.write_text(figure())
    elif not file.is_file() or file.read_text() != figure():
        sys.exit(f"{file} is not what tools/figure.py draws: run './run docs'")


main()
