"""The picture of the benchmarks shows what the tables beneath it say."""
import pathlib
import sys
import xml.etree.ElementTree as ET

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
import chart  # noqa: E402


def rows():
    """(title of the panel, ours, libcurl, floor) of the plain table and of the one over TLS, where they are drawn."""
    text = (ROOT / "docs/performance.md").read_text()
    for line in text[text.index("\nPlain:\n"):text.index("\n## Encoders")].splitlines():
        what, _, *values = [cell.strip() for cell in line.split("|")[1:-1]] or ("", "")
        if what in chart.PANELS:
            yield chart.PANELS[what][0], *values[:3]


def test_the_picture_is_that_of_the_tables():
    page = ET.parse(ROOT / "docs/performance.svg").getroot()
    words = [next(node.itertext()) for node in page.findall(".//{*}text")][2:]
    words = [word for word in words if word not in chart.MODES.values()]
    bars = [float(bar.get("width")) for bar in page.findall(".//{*}rect") if bar.get("fill")]
    panels = [tuple(words[at:at + 7]) for at in range(0, len(words), 7)]
    assert {panel[1::2] for panel in panels} == {tuple(chart.TITLES.values())}
    assert len(wanted := [*rows()]) >= 10 and {*wanted} <= {panel[::2] for panel in panels}
    for at, panel in enumerate(panels):
        figures = [float(value.replace(",", "")) for value in panel[2::2]]
        lengths = [max(2, figure / max(figures) * max(bars)) for figure in figures]
        assert all(abs(bar - length) < 4 for bar, length in zip(bars[3 * at:], lengths)), panel
