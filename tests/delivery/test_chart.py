"""The picture of the benchmarks shows what the tables beneath it say."""
import pathlib
import sys
import xml.etree.ElementTree as ET

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
import chart  # noqa: E402


def tables():
    """The rows (what, ours, libcurl, floor) of the plain table and of the one beside it over TLS."""
    text = (ROOT / "docs/performance.md").read_text()
    for part in text[text.index("\nPlain:\n"):text.index("\n## Encoders")].split("\n| what |")[1:]:
        rows = [[cell.strip() for cell in line.split("|")[1:-1]] for line in part.split("\n\n")[0].splitlines()[2:]]
        yield [(row[0], *row[2:5]) for row in rows if row[0] in chart.PANELS]


def test_the_picture_is_that_of_the_tables():
    page = ET.parse(ROOT / "docs/performance.svg").getroot()
    shown = [" ".join(words.strip() for words in node.itertext()) for node in page.findall(".//{*}text")]
    bars = [float(bar.get("width")) for bar in page.findall(".//{*}rect") if bar.get("fill")]
    wanted, panels = [], [row for table in tables() for row in table]
    for what, *values in panels:
        title, more, _ = chart.PANELS[what]
        wanted += [f"{title} {'more' if more else 'less'} is better"]
        wanted += [word for client, value in zip(chart.TITLES.values(), values) for word in (client, value)]
    assert len(panels) >= 10 and [words for words in shown[2:] if words not in chart.MODES.values()] == wanted
    for i, (_, *values) in enumerate(panels):
        figures = [float(value.replace(",", "")) for value in values]
        for length, figure in zip(bars[3 * i:], figures):
            assert abs(length - max(2, figure / max(figures) * max(bars))) < 1.5
