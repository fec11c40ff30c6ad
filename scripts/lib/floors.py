"""The floors of the engine: what each folder may include, and the picture of it.

scripts/lint/layers holds the sources against the table; with --draw it writes docs/internals/floors.svg from it.
"""
from html import escape

# folder: what its files may include besides their own folder and the public headers. The longest matching folder counts.
core = ["base", "subject", "message", "event", "protocol", "secure", "transport"]
allowed = {
    "base": [],
    "subject": ["base"],
    "message": ["base", "subject"],
    "event": ["base", "message"],
    "protocol": ["base", "message", "event"],
    "secure": ["base"],
    "transport": ["base", "subject", "message", "event", "protocol", "secure"],
    "transport/embedded": ["base", "subject", "message", "event", "transport"],
    "transport/nats": ["base", "subject", "message", "event", "secure", "transport"],
    "transport/circuit": ["base", "subject", "message", "event", "protocol", "transport"],
    "companion": core,
    "capi": core + ["companion", "transport/embedded", "transport/nats", "transport/circuit"],
    # The companion libraries see the border only.
    "secure/parsing": ["companion"],
    "certified/protocol": ["companion"],
    "certified/ledger": ["companion", "certified/protocol"],
    "certified": ["companion", "certified/protocol", "certified/ledger"],
    "programs": ["companion", "certified/protocol", "certified/ledger"],
    "ftolerance/protocol": ["companion"],
    "ftolerance": ["companion", "ftolerance/protocol"],
}

# What each of them holds, in a few words.
words = {
    "base": "ids, threads, clocks, locks",
    "subject": "subjects, matching trie",
    "message": "wire image, fields",
    "event": "queues, dispatch, timers",
    "protocol": "host of the machines",
    "secure": "credentials",
    "transport": "listeners, requests, sending",
    "transport/embedded": "the bus of this process",
    "transport/nats": "connections to daemons",
    "transport/circuit": "circuits",
    "companion": "the border",
    "capi": "the exported functions",
    "secure/parsing": "libquorlsd.so",
    "certified/protocol": "machine, frames",
    "certified/ledger": "what is stored, in SQLite",
    "certified": "libquorlcm.so",
    "programs": "quorl-ledger, quorl-relay",
    "ftolerance/protocol": "machine, frames",
    "ftolerance": "libquorlft.so",
}


def level(folder):
    """0 for what stands on nothing; otherwise one above the highest that it may include."""
    return 1 + max((level(below) for below in allowed[folder]), default=-1)


def stands_on(folder):
    """What it may include that none of the others brings along."""
    brought = {further for below in allowed[folder] for further in everything_below(below)}
    return [below for below in allowed[folder] if below not in brought]


def everything_below(folder):
    found = set()
    for below in allowed[folder]:
        found |= {below} | everything_below(below)
    return found


def picture():
    """The floors as SVG: a box stands on those below it that a line leads to, and may include all that these stand on."""
    box, high, step, margin = 192, 46, 84, 20
    rows = {}
    for folder in allowed:
        rows.setdefault(level(folder), []).append(folder)
    top = max(rows)
    width = max(len(row) for row in rows.values()) * (box + margin) + margin
    height = 2 * margin + top * step + high
    place = {}
    for number, row in rows.items():
        gap = (width - len(row) * box) / (len(row) + 1)
        for i, folder in enumerate(row):
            place[folder] = (gap + i * (box + gap), margin + (top - number) * step)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}" '
           'font-family="sans-serif" text-anchor="middle">',
           "<title>The floors of the engine</title>",
           f'<rect width="{width}" height="{height}" fill="#ffffff"/>']
    for folder, (x, y) in place.items():
        for below in stands_on(folder):
            to_x, to_y = place[below]
            out.append(f'<path d="M{x + box / 2:.0f} {y + high:.0f}L{to_x + box / 2:.0f} {to_y:.0f}" stroke="#7a8699"/>')
    for folder, (x, y) in place.items():
        middle = x + box / 2
        fill = "#fff3d6" if folder in ("companion", "capi") else "#e3edf9" if not libraries(folder) else "#e4f4e4"
        out.append(f'<rect x="{x:.0f}" y="{y:.0f}" width="{box}" height="{high}" rx="4" fill="{fill}" stroke="#7a8699"/>')
        out.append(f'<text x="{middle:.0f}" y="{y + 19:.0f}" font-size="14" font-weight="bold">{escape(folder)}</text>')
        out.append(f'<text x="{middle:.0f}" y="{y + 36:.0f}" font-size="12">{escape(words[folder])}</text>')
    return "\n".join(out) + "\n</svg>\n"


def libraries(folder):
    """Whether the folder belongs to a companion library."""
    return "companion" in everything_below(folder) and folder != "capi"
