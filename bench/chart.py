"""The results of the SMTP benchmark that the last run kept, and a picture of them: SVG, by words alone."""
import html
import json

TITLES = {"own": "ours", "curl": "libcurl", "floor": "floor"}
# Told apart by eyes that see no red or no green, and each bar has its name beside it.
COLOURS = {"own": "#0072b2", "curl": "#e69f00", "floor": "#8c8c8c"}
MODES = {"none": "Plain", "implicit": "Implicit TLS", "starttls": "STARTTLS"}
# Title of a panel, whether more is better, how a value is written; what has no row here is not drawn.
PANELS = {
    "round trips per message, 10 recipients": ("Round trips, a message to 10 recipients", False, "{:g}"),
    "small messages/s": ("Small messages a second", True, "{:,.0f}"),
    "small messages, CPU ms each": ("CPU of a small message, ms", False, "{:.3f}"),
    "fresh connection that greets and quits, CPU ms": ("CPU of a new connection, ms", False, "{:.2f}"),
    "resumed connection that greets and quits, CPU ms": ("CPU of a resumed connection, ms", False, "{:.2f}"),
    "25 MB attachment, MB/s": ("25 MB attachment, MB a second", True, "{:,.0f}"),
    "client CPU per payload byte, ns": ("CPU per byte of it, ns", False, "{:.2f}"),
    "peak memory over the idle process, times the attachment": ("Memory for it, times its size", False, "{:.2f}"),
}
STYLE = """
    text { font: 13px system-ui, 'Segoe UI', 'DejaVu Sans', Arial, sans-serif; fill: #24292f }
    .head { font-size: 17px; font-weight: 600 } .title { font-weight: 600 } .remark { fill: #57606a; font-size: 12px }
    .card { fill: #ffffff; stroke: #d0d7de }
    @media (prefers-color-scheme: dark) {
      text { fill: #e6edf3 } .remark { fill: #9aa4ae } .card { fill: #0d1117; stroke: #30363d }
    }"""
COLUMN, PANEL, BAR, NAMES, LONGEST, EDGE = 420, 96, 18, 62, 270, 20


def keep(path, measured, tables):
    """tables: of each mode its name and {what: value by client}."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps({"measured": measured, "tables": tables}, indent=1) + "\n")


def text(x, y, words, kind=""):
    kind = f' class="{kind}"' if kind else ""
    return f'<text x="{x:g}" y="{y:g}"{kind}>{html.escape(words)}</text>'


def panel(x, y, what, values):
    title, more, form = PANELS[what]
    longest = max(values[client] for client in TITLES) or 1
    out = [f'<text x="{x}" y="{y}"><tspan class="title">{html.escape(title)}</tspan>'
           f'<tspan class="remark" dx="8">{"more" if more else "less"} is better</tspan></text>']
    for i, (client, name) in enumerate(TITLES.items()):
        top, length = y + 9 + i * (BAR + 5), max(2, values[client] / longest * LONGEST)
        out += [text(x, top + BAR - 5, name),
                f'<rect x="{x + NAMES}" y="{top}" width="{length:.1f}" height="{BAR}" rx="2" fill="{COLOURS[client]}"/>',
                text(x + NAMES + length + 6, top + BAR - 5, form.format(values[client]))]
    return out


def svg(results):
    columns = [(MODES[mode], [(what, values) for what, values in rows.items() if what in PANELS])
               for mode, rows in results["tables"].items()]
    width = 2 * EDGE + COLUMN * len(columns)
    height = 96 + PANEL * max(len(rows) for _, rows in columns) + 30
    out = ['<svg xmlns="http://www.w3.org/2000/svg" role="img" '
           f'viewBox="0 0 {width} {height}" width="{width}" height="{height}">',
           "<title>SMTP over loopback: ours, libcurl and the floor</title>", f"<style>{STYLE}\n</style>",
           f'<rect class="card" x="0.5" y="0.5" width="{width - 1}" height="{height - 1}" rx="6"/>',
           text(EDGE, 34, "Sending over loopback, beside libcurl and bare sockets (floor)", "head"),
           text(EDGE, 56, f"Measured {results['measured']}. Each panel has a scale of its own.", "remark")]
    for i, (mode, rows) in enumerate(columns):
        x = EDGE + i * COLUMN
        out += [text(x, 88, mode, "head")]
        for j, (what, values) in enumerate(rows):
            out += panel(x, 116 + j * PANEL, what, values)
    return "\n".join([*out, "</svg>"]) + "\n"
