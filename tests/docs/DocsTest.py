"""Checks that the documentation agrees with the sources."""

import html
import json
import re
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
PAGES = [*sorted(ROOT.glob("*.md")), *sorted(ROOT.glob("docs/*.md"))]
EXAMPLES = sorted(
    path
    for path in ROOT.glob("examples/**/*")
    if path.is_file() and path != ROOT / "examples/CMakeLists.txt" and path.parent.name != "__pycache__"
)
PICTURES = sorted(ROOT.glob("docs/pictures/*.dot"))
# Log.h is left out, because it defines the macros.
SOURCES = [path.read_text() for path in ROOT.glob("src/**/*.*") if path.suffix in (".cpp", ".h") and path.name != "Log.h"]
FORMATS = {"PRIu64": "lu", "KIV_MAC_FORMAT": ":".join(["%02x"] * 6)}


def page(name):
    return (ROOT / "docs" / name).read_text()


def name_of(path):
    return str(path.relative_to(ROOT))


def examples_in(path):
    """Returns (file, code) of each block that names its file."""
    return re.findall(r"<!-- (examples/\S+) -->\n```\w+\n(.*?)```\n", path.read_text(), re.DOTALL)


@pytest.mark.parametrize("path", [path for path in EXAMPLES if path.suffix == ".json"], ids=name_of)
def test_a_timetable_leaves_speakers_as_they_were(path):
    """A list of speakers replaces the list before, so a speaker that stays must be repeated with all its fields."""
    scenario = json.loads(path.read_text())
    speakers = scenario.get("home", {}).get("speakers", [])
    for appointment in scenario.get("timetable", []):
        for speaker in appointment.get("home", {}).get("speakers", []):
            assert speaker in speakers


def exported():
    lines = (ROOT / "tests/exports/exports.txt").read_text().splitlines()
    variables = {"g_GetSystemVal", "g_KivDisabled", "g_strDeviceName", "m_launchthreadId"}
    return {name for name in lines if re.fullmatch(r"\w+", name)} - variables


def rows(text):
    """Returns the cells of the tables' rows."""
    return [[cell.strip() for cell in line.strip("|").split(" | ")] for line in text.splitlines() if line[:2] == "| "]


def functions(text):
    """Returns the exported names in code style. SPK_* stands for all names with this prefix."""
    named = set(re.findall(r"`(\w+)`", text)) & exported()
    return named | ({name for name in exported() if name.startswith("SPK_")} if "`SPK_*`" in text else set())


def test_the_pages_are_found():
    assert len(PAGES) > 9 and len(EXAMPLES) > 5 and len(PICTURES) > 2 and len(exported()) > 90


@pytest.mark.parametrize("path", PAGES, ids=name_of)
def test_a_page_shows_examples_as_they_are(path):
    for file, code in examples_in(path):
        assert code in (ROOT / file).read_text(), f"{file} has no such lines"


@pytest.mark.parametrize("path", EXAMPLES, ids=name_of)
def test_an_example_is_shown(path):
    assert name_of(path) in {file for page in PAGES for file, _ in examples_in(page)}


@pytest.mark.parametrize("path", PAGES, ids=name_of)
def test_links_lead_somewhere(path):
    text = re.sub(r"^```.*?^```$", "", path.read_text(), flags=re.DOTALL | re.MULTILINE)
    for file, heading in re.findall(r"\]\((?!https?:)([^)#]*)#?([^)]*)\)", text):
        target = path.parent / file if file else path
        assert target.exists(), f"there is no {file}"
        if heading:
            headings = re.findall(r"^#+ (.*)$", target.read_text(), re.MULTILINE)
            slugs = [re.sub(r"[^\w -]", "", text).lower().replace(" ", "-") for text in headings]
            assert heading in slugs, f"{file} has no heading {heading}"


def test_every_function_has_its_seconds_once():
    """Functions that differ have rows of their own, and one row is for all others."""
    tables = rows(page("threads-and-blocking.md").partition("Members of `CNSGdbus`")[0])
    named = [name for row in tables for name in re.findall(r"`([\w*]+)`", row[0])]
    assert len(named) > 5 and len(named) == len(set(named))
    assert set(named) - {"SPK_*"} < exported()
    assert [row[0] for row in tables].count("every function that no other row names") == 1


def test_every_function_has_its_results():
    assert functions(page("results.md")) == exported()


def logged():
    """Yields (priority, line) of each call that logs in the sources."""
    strings = r'((?:\s*(?:"(?:[^"\\]|\\.)*"|PRIu64|KIV_MAC_FORMAT))+)'
    call = rf"KIV_LOG_(?:(\w+)\(|AT\(\s*[\w.]+, kLog(\w+),){strings}(?:,\s*(kApiTag))?"
    for text in SOURCES:
        for macro, priority, line, tag in re.findall(call, text):
            for name, value in FORMATS.items():
                line = line.replace(name, f'"{value}"')
            line = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', line)).removesuffix(r"\n").strip()
            yield (macro or priority).title(), line.replace("[%s]", "[NAM_API]", 1) if tag else line


def explained(text):
    """Returns the lines that a text explains. No explanation may refer to another."""
    found = [row for row in rows(text) if row[0] != "Line"]
    for row in found:
        assert all(row) and not {"the same", "as above", "as before"} & set(row), row
    return {re.fullmatch("`(.*)`", row[0])[1] for row in found}


def test_every_line_of_the_log_is_explained():
    lines = list(logged())
    assert len(lines) == sum(len(re.findall(r"KIV_LOG_\w+\(", text)) for text in SOURCES)
    headings = "^## (?:Marks|Information|Debug|Reasons of the bus and the server|Reasons of the library's own)$"
    failures, marks, information, debug, _, reasons = re.split(headings, page("log-lines.md"), flags=re.M)
    assert explained(failures) == {line for priority, line in lines if priority in ("Warning", "Error")}
    assert explained(marks) == {line for priority, line in lines if priority == "Mark"}
    assert explained(information) == {line for priority, line in lines if priority == "Info"}
    assert explained(debug) == {line for priority, line in lines if priority == "Debug"}
    check = (ROOT / "src/link/WireCheck.cpp").read_text()
    assert explained(reasons) == {text for text in re.findall(r'"([^"]*)"', check) if " " in text}


def test_every_build_option_is_in_the_table():
    lists = "".join(path.read_text() for path in [*ROOT.glob("CMakeLists.txt"), *ROOT.glob("*/CMakeLists.txt")])
    settings = re.findall(r'set\((\w+)\s+(?:"[^"]*"|\S+)\s+CACHE', lists)
    options = settings + re.findall(r"option\((\w+)", lists)
    table = [row for row in rows(page("building.md")) if row[0].startswith("`")]
    assert len(options) > 10
    assert sorted(row[0].strip("`") for row in table) == sorted(options)


def test_the_version_is_everywhere_the_same():
    header = (ROOT / "include/KivServiceInterface.h").read_text()
    version = ".".join(re.findall(r"#define KIV_VERSION_(?:MAJOR|MINOR|MICRO) (\d+)", header))
    assert re.search(r"^## (\d.*)$", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)[1] == version
    assert re.match(r"\S+ \((.*?)\)", (ROOT / "packaging/debian/changelog").read_text())[1] == version


def test_the_size_in_the_readme_is_the_measured_one():
    told = re.search(r"(\d+) KB on\s+a 32-bit ARM", (ROOT / "README.md").read_text())[1]
    measured = re.search(r"^\| Stripped, bytes \| \d+ \| (\d+) \|$", page("footprint.md"), re.MULTILINE)[1]
    assert int(told) == round(int(measured) / 1000)


def test_the_words_are_in_order():
    words = [row[0].strip("`").lower() for row in rows(page("glossary.md"))[1:]]
    assert len(words) > 30 and words == sorted(set(words))


def test_the_table_of_records_is_the_simulators_layout():
    layout = json.loads((ROOT / "simulator/layout.json").read_text())["records"]

    def length(field):
        if "count" in field:
            return field["count"] * layout[field["record"]]["size"]
        return field.get("length") or {"mac": 6, "ipv4": 4, "i32": 4}[field["type"]]

    fields = [
        (record, field["offset"], length(field), field["name"], field["type"])
        for record in layout
        for field in layout[record]["fields"]
    ]
    section = page("layouts.md").split("## The simulated server's records")[1].split("\n## ")[0]
    told = [
        (record.strip("`"), int(offset), int(size), name.strip("`"), type_.strip("`"))
        for names, offset, size, name, type_, _ in rows(section)
        if names != "Record"
        for record in names.split(", ")
    ]
    assert sorted(told) == sorted(fields)


HEADER = "include/KivServiceInterface.h"
SERVER_XML = "simulator/org.lumra.tv.networkspeaker.server.xml"
BLOCKING = "docs/threads-and-blocking.md"

# Figures that several files have. Each file has patterns, and each pattern must match at least once.
FIGURES = {
    "seconds for an answer": [
        (HEADER, r"waits for the server, (\d+) s at most"),
        (HEADER, r"waits for its reply, (\d+) s at most"),
        (BLOCKING, r"The server has (\d+) s for each answer"),
        (BLOCKING, r"^- \*\*(\d+)\*\* seconds: the library gets the client id"),
        ("docs/security.md", r"gives up after (\d+) s"),
        ("docs/security.md", r"costs each caller up to (\d+) s"),
        ("docs/log-lines.md", r"it does not run, or did not answer in (\d+) s"),
    ],
    "seconds without any answer": [
        (HEADER, r"answers nothing at all holds it up for (\d+) s"),
        (BLOCKING, r"takes up to (\d+) s if the server hangs"),
        ("README.md", r"up to (\d+) s if the server hangs"),
        (BLOCKING, r"no other row names \| 0 \| (\d+) \|"),
        (BLOCKING, r"^- \*\*(\d+)\*\* seconds: the library asks the server for the client id three times"),
        ("docs/testing.md", r"survive calls of \[(\d+) s\]"),
        ("docs/security.md", r"answers nothing (\d+) s"),
    ],
    "seconds with a bus daemon that hangs": [
        (HEADER, r"bus daemon that hangs holds a call up for (\d+) s"),
        (BLOCKING, r"`StartNetworkSpeaker` \| \d+ \| \d+ \| \d+ \| (\d+) \|"),
        (BLOCKING, r"no other row names .* \| (\d+) \| \d+ \|$"),
        (BLOCKING, r"^- \*\*(\d+)\*\* seconds: the library asks the bus daemon"),
        ("docs/security.md", r"A bus daemon that hangs costs\s+(\d+) s"),
        ("docs/testing.md", r"a call fails after \[(\d+) s\]"),
    ],
    "seconds at the very worst": [
        (HEADER, r"the worst is (\d+) s"),
        (BLOCKING, r"no other row names .* \| (\d+) \|$"),
    ],
    "seconds at the very worst of a start": [
        (HEADER, r"the worst is \d+ s, and (\d+) s for\s"),
        (BLOCKING, r"`StartNetworkSpeaker` .* \| (\d+) \|$"),
    ],
    "bytes of an event": [
        (HEADER, r"NAMSERVICE_EVENT_DATA_MAX (\d+)"),
        ("README.md", r"copies at most (\d+) bytes"),
        ("docs/events.md", r"always (\d+) bytes"),
        ("docs/events.md", r"\*\*announced\*\*, (\d+) at most"),
        ("docs/glossary.md", r"up to (\d+) bytes"),
        ("docs/python.md", r"event id, (\d+) bytes"),
        ("docs/security.md", r"copies (\d+) bytes"),
    ],
    "bytes of a list": [
        (HEADER, r"sizeof\(STNetSpkListInfo\) == (\d+)"),
        (HEADER, r"(\d+), the size of spk_list_info_s"),
        (SERVER_XML, r"@lists: .* one record of (\d+) bytes each"),
        ("docs/results.md", r"always return (\d+) and"),
        ("simulator/layout.json", r'"list": \{\s+"size": (\d+)'),
    ],
    "bytes of a speaker": [
        (HEADER, r"sizeof\(spk_info_s\) == (\d+)"),
        (HEADER, r"(\d+), the size of spk_info_s"),
        (SERVER_XML, r"speaker record of (\d+) bytes"),
        ("docs/results.md", r"always return \d+ and (\d+)"),
        ("simulator/layout.json", r'"speaker": \{\s+"size": (\d+)'),
    ],
    "bytes of a node": [
        (HEADER, r"sizeof\(CNetSpkNodeInfo\) == (\d+)"),
        (SERVER_XML, r"@nodes: .* one record of (\d+) bytes each"),
        ("simulator/layout.json", r'"node": \{\s+"size": (\d+)'),
    ],
    "bytes of a configuration": [
        (HEADER, r"sizeof\(STNetSpkConfig\) == (\d+)"),
        (HEADER, r"speakers to start, (\d+) bytes each"),
        (SERVER_XML, r"configuration record of (\d+) bytes"),
    ],
    "MiB that a dbus-daemon carries": [
        (HEADER, r"dbus-daemon (\d+) MiB in a message"),
        ("docs/integration.md", r"dbus-daemon carries (\d+) MiB"),
        ("docs/testing.md", r"(\d+) MiB in a message"),
        ("docs/security.md", r"(\d+) MiB in a message with"),
    ],
    "lowest CMake": [
        ("CMakeLists.txt", r"^cmake_minimum_required\(VERSION ([\d.]+?)\.\.\."),
        ("docs/building.md", r"CMake (\S+) is enough"),
    ],
    "CMake of the tests": [
        ("CMakeLists.txt", r"cmake ([\d.]+) or newer"),
        ("docs/building.md", r"The tests need ([\d.]+),"),
    ],
    "CMake of the presets": [
        ("packaging/debian/control", r"cmake \(>= ([\d.]+)\)"),
        ("docs/building.md", r"that `./dev` uses, ([\d.]+)\.$"),
    ],
}


@pytest.mark.parametrize("figure", FIGURES)
def test_a_figure_is_everywhere_the_same(figure):
    found = {}
    for file, pattern in FIGURES[figure]:
        figures = re.findall(pattern, (ROOT / file).read_text(), re.MULTILINE)
        assert figures, f"{file} has nothing like {pattern}"
        found[f"{file}: {pattern}"] = set(figures)
    assert len(set().union(*found.values())) == 1, found


def test_nothing_is_in_another_byte_order():
    """All files that describe the contract give the same byte order."""
    contract = [*ROOT.glob("src/link/*.xml"), *ROOT.glob("simulator/*.xml"), ROOT / HEADER, ROOT / "docs/dbus.md"]
    orders = {name_of(path): set(re.findall(r"little-endian|big-endian|host\S* byte order", path.read_text())) for path in contract}
    assert {name: order for name, order in orders.items() if order - {"little-endian"}} == {}
    assert sum(map(len, orders.values())) == 4


@pytest.mark.parametrize("path", PICTURES, ids=name_of)
def test_a_picture_is_drawn_from_its_source(path):
    labels = re.findall(r'label="([^"]*)"', path.read_text())
    drawn = re.findall(r"<text[^>]*>([^<]*)</text>", path.with_suffix(".svg").read_text())
    words = [word for label in labels for word in label.replace(r"\n", " ").split()]
    assert sorted(words) == sorted(word for text in drawn for word in html.unescape(text).replace("\xa0", " ").split())
