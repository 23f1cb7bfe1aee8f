"""The picture beside docs/performance.md: for each operation, how many pixels a second each way of doing it reaches, on a logarithmic scale."""

import html
import math

# Groups of the table, with what their rows are called in the picture; the marked part of a name is left out.
PANELS = (
    ("Monitor operations, 256", "Monitor, every colour evaluated", ""),
    ("Pixel converters, 256 by 256 pixels, tables", "Grid tables", ", natural"),
    ("Printer transforms, 256", "Printer, soft proof (FOGRA39L)", ", FOGRA39L (17 nodes)"),
)
# Series: the conditions that belong to it, the name, the colour.
SERIES = (
    (("Little CMS", "Little CMS gamut check"), "Little CMS", "#c55a11"),
    (("plain",), "the formula, written straight", "#7f7f7f"),
    (("portable", "fused, portable", "fused round trip, portable"), "any processor", "#9dc3e6"),
    (("avx2", "fused, avx2", "fused round trip, avx2"), "AVX2", "#2e75b6"),
    (("avx512", "fused, avx512", "fused round trip, avx512"), "AVX-512", "#1f3864"),
    (("copy",), "a plain copy", "#000000"),
)
LEFT, RIGHT, TOP, ROW, HEAD = 250, 980, 74, 22, 30
LEAST, MOST = 1.0, 10000.0  # Mpixel/s


def place(rate):
    share = (math.log10(rate) - math.log10(LEAST)) / (math.log10(MOST) - math.log10(LEAST))
    return LEFT + max(0.0, min(1.0, share)) * (RIGHT - LEFT)


def panel_rows(entries, group, mark):
    """{name: {series index: rate}} of the rows of a group that bear the mark."""
    rows = {}
    for entry in entries:
        if "value" not in entry or entry["unit"] != "Mpixel/s" or not entry["group"].startswith(group) or not entry["name"].endswith(mark):
            continue
        for index, (conditions, _, _) in enumerate(SERIES):
            if entry["condition"] in conditions:
                rows.setdefault(entry["name"].removesuffix(mark), {})[index] = entry["value"]
    return {name: rates for name, rates in rows.items() if len(rates) > 2}


def text(x, y, words, style="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {style}>{html.escape(words)}</text>'


def legend(used):
    x = LEFT
    for index in used:
        _, name, colour = SERIES[index]
        yield f'<circle cx="{x:.1f}" cy="40" r="5" fill="{colour}"/>'
        yield text(x + 9, 44, name)
        x += 26 + 6.6 * len(name)


def plot(entries):
    """The picture as SVG, or None when the entries hold nothing to draw."""
    panels = [(title, panel_rows(entries, group, mark)) for group, title, mark in PANELS]
    panels = [(title, rows) for title, rows in panels if rows]
    if not panels:
        return None
    height = TOP + sum(HEAD + ROW * len(rows) for _, rows in panels) + 20
    used = [index for index in range(len(SERIES)) if any(index in rates for _, rows in panels for rates in rows.values())]
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 1010 {height}" font-family="DejaVu Sans, Helvetica, Arial, sans-serif" '
             'font-size="12" fill="#1f2a3a">',
             "<title>Pixels a second of each operation, by everything that can do it</title>",
             f'<rect width="1010" height="{height}" fill="#ffffff"/>',
             text(LEFT, 20, "Mpixel/s, one thread, a natural image of 256 by 256 pixels; each step of the scale is ten times the last",
                  'font-weight="bold"'), *legend(used)]
    rate = LEAST
    while rate <= MOST:
        x = place(rate)
        lines.append(f'<line x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{height - 20}" stroke="#d0d7e0"/>')
        lines.append(text(x, TOP - 6, f"{rate:g}", 'fill="#44546a"', "middle"))
        rate *= 10
    y = TOP
    for title, rows in panels:
        lines.append(text(12, y + 20, title, 'font-weight="bold"'))
        y += HEAD
        for name, rates in rows.items():
            middle = y + ROW / 2
            lines.append(text(LEFT - 12, middle + 4, name, "", "end"))
            ends = sorted(place(value) for value in rates.values())
            lines.append(f'<line x1="{ends[0]:.1f}" y1="{middle}" x2="{ends[-1]:.1f}" y2="{middle}" stroke="#e3ebf5" stroke-width="3"/>')
            for index, value in rates.items():
                lines.append(f'<circle cx="{place(value):.1f}" cy="{middle}" r="5" fill="{SERIES[index][2]}">'
                             f"<title>{html.escape(SERIES[index][1])}: {value:.0f} Mpixel/s</title></circle>")
            y += ROW
    lines.append("</svg>")
    return "\n".join(lines) + "\n"
