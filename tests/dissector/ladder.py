# SPDX-License-Identifier: Apache-2.0
"""A ladder as SVG: a vertical line for each participant, an arrow for each message, time down.

The picture needs nothing outside of itself, has colours for light and dark surroundings, and tells all
arrows to screen readers. The rows have one height, because waits of servers would make the picture long.
"""

from dataclasses import dataclass
from xml.sax.saxutils import escape

LEFT, LANE, HEAD, ROW = 190, 250, 62, 36  # pixels
CHARACTER = 6.7  # of 12 pixels in a monospaced font, at most
STYLE = """
    .page { fill: #ffffff; stroke: #d0d7de }
    text { fill: #1f2328; font: 12px ui-monospace, "DejaVu Sans Mono", Menlo, Consolas, monospace }
    .head { font-weight: bold; text-anchor: middle }
    .what { text-anchor: middle }
    .below, .time { fill: #59636e }
    .below { text-anchor: middle }
    .time { text-anchor: end }
    .lane { stroke: #8c959f }
    .arrow { stroke: #0550ae; stroke-width: 1.5 }
    .point { fill: #0550ae }
    .by-hand { stroke-dasharray: 5 4 }
    @media (prefers-color-scheme: dark) {
      .page { fill: #0d1117; stroke: #3d444d }
      text { fill: #f0f6fc }
      .below, .time { fill: #9198a1 }
      .lane { stroke: #656c76 }
      .arrow { stroke: #79c0ff }
      .point { fill: #79c0ff }
    }
"""


@dataclass
class Arrow:
    source: int  # lanes
    target: int
    text: str
    time: float | None  # seconds since the first; None: it is not in the capture

    def sentence(self, lanes):
        return f"{lanes[self.source][0]} to {lanes[self.target][0]}: {self.text.rstrip('. ')}."


def middle(lane):
    return LEFT + lane * LANE


def lines_of(arrow, number, y):
    start, end = middle(arrow.source), middle(arrow.target)
    step = 1 if end > start else -1
    centre = (start + end) // 2
    assert len(arrow.text) * CHARACTER < LANE, f"too long for the picture: {arrow.text}"
    by_hand = "" if arrow.time is not None else " by-hand"
    if arrow.time is not None:
        yield f'<text class="time" x="34" y="{y + 4}">{number}</text>'
        yield f'<text class="time measured" x="112" y="{y + 4}">{arrow.time * 1000:.1f} ms</text>'
    yield f'<text class="what" x="{centre}" y="{y - 6}">{escape(arrow.text)}</text>'
    yield f'<line class="arrow{by_hand}" x1="{start}" y1="{y}" x2="{end - 7 * step}" y2="{y}"/>'
    yield f'<path class="point" d="M{end} {y}l{-9 * step} -4v8z"/>'


def ladder(title, lanes, arrows):
    """lanes: pairs of texts, a name and what is below it."""
    width = middle(len(lanes) - 1) + LEFT - 70
    bottom = HEAD + ROW * len(arrows) + 22
    numbers = []
    for arrow in arrows:
        numbers.append((numbers[-1] if numbers else 0) + (arrow.time is not None))
    told = " ".join(arrow.sentence(lanes) for arrow in arrows)
    yield "<!-- SPDX-License-Identifier: Apache-2.0 -->"
    yield f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{bottom + 14}" viewBox="0 0 {width} {bottom + 14}" role="img" aria-labelledby="title desc">'
    yield f'<title id="title">{escape(title)}</title>'
    yield f'<desc id="desc">{escape(told)}</desc>'
    yield f"<style>{STYLE}</style>"
    yield f'<rect class="page" x="0.5" y="0.5" width="{width - 1}" height="{bottom + 13}" rx="6"/>'
    for lane, (name, below) in enumerate(lanes):
        x = middle(lane)
        yield f'<text class="head" x="{x}" y="24">{escape(name)}</text>'
        if below:
            yield f'<text class="below" x="{x}" y="41">{escape(below)}</text>'
        yield f'<line class="lane" x1="{x}" y1="50" x2="{x}" y2="{bottom}"/>'
    for row, (arrow, number) in enumerate(zip(arrows, numbers)):
        yield from lines_of(arrow, number, HEAD + ROW * row + 26)
    yield "</svg>"
