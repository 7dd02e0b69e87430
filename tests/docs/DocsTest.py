"""The documentation says what is."""

import html
import re
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
PAGES = [ROOT / "README.md", *sorted(ROOT.glob("docs/*.md"))]
EXAMPLES = sorted(path for path in ROOT.glob("examples/*") if path.name not in ("CMakeLists.txt", "__pycache__"))
PICTURES = sorted(ROOT.glob("docs/pictures/*.dot"))
# Without the macros themselves.
SOURCES = [path.read_text() for path in ROOT.glob("src/**/*.*") if path.suffix in (".cpp", ".h") and path.name != "Log.h"]
FORMATS = {"PRIu64": "lu", "KIV_MAC_FORMAT": ":".join(["%02x"] * 6)}


def page(name):
    return (ROOT / "docs" / name).read_text()


def name_of(path):
    return str(path.relative_to(ROOT))


def examples_in(path):
    """(file, code) of each block that says where it is from."""
    return re.findall(r"<!-- (examples/\S+) -->\n```\w+\n(.*?)```\n", path.read_text(), re.DOTALL)


def exported():
    lines = (ROOT / "tests/exports/exports.txt").read_text().splitlines()
    variables = {"g_GetSystemVal", "g_KivDisabled", "g_strDeviceName", "m_launchthreadId"}
    return {name for name in lines if re.fullmatch(r"\w+", name)} - variables


def rows(text):
    """Cells of the tables' rows."""
    return [[cell.strip() for cell in line.strip("|").split(" | ")] for line in text.splitlines() if line[:2] == "| "]


def functions(text):
    """Names in code style; SPK_* is all of them."""
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
    for file, heading in re.findall(r"\]\((?!https?:)([^)#]*)#?([^)]*)\)", path.read_text()):
        target = path.parent / file if file else path
        assert target.exists(), f"there is no {file}"
        if heading:
            headings = re.findall(r"^#+ (.*)$", target.read_text(), re.MULTILINE)
            slugs = [re.sub(r"[^\w -]", "", text).lower().replace(" ", "-") for text in headings]
            assert heading in slugs, f"{file} has no heading {heading}"


def test_every_function_has_its_seconds_once():
    tables = rows(page("threads-and-blocking.md").partition("Members of `CNSGdbus`")[0])
    listed = [name for row in tables for name in functions(row[0])]
    assert sorted(listed) == sorted(exported())


def test_every_function_has_its_results():
    assert functions(page("results.md")) == exported()


def logged():
    """(priority, line) of each call in the sources that logs."""
    strings = r'((?:\s*(?:"(?:[^"\\]|\\.)*"|PRIu64|KIV_MAC_FORMAT))+)'
    call = rf"KIV_LOG_(?:(\w+)\(|AT\(\s*[\w.]+, kLog(\w+),){strings}(?:,\s*(kApiTag))?"
    for text in SOURCES:
        for macro, priority, line, tag in re.findall(call, text):
            for name, value in FORMATS.items():
                line = line.replace(name, f'"{value}"')
            line = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', line)).removesuffix(r"\n").strip()
            yield (macro or priority).title(), line.replace("[%s]", "[NAM_API]", 1) if tag else line


def explained(text):
    """The lines that a text explains, each without the help of another."""
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


def test_every_build_option_is_in_the_table():
    lists = "".join(path.read_text() for path in [*ROOT.glob("CMakeLists.txt"), *ROOT.glob("*/CMakeLists.txt")])
    settings = re.findall(r'set\((\w+)\s+(?:"[^"]*"|\S+)\s+CACHE', lists)
    options = settings + re.findall(r"option\((\w+)", lists)
    table = [row for row in rows(page("building.md")) if row[0].startswith("`")]
    assert len(options) > 10
    assert sorted(row[0].strip("`") for row in table) == sorted(options)


@pytest.mark.parametrize("path", PICTURES, ids=name_of)
def test_a_picture_is_drawn_from_its_source(path):
    labels = re.findall(r'label="([^"]*)"', path.read_text())
    drawn = re.findall(r"<text[^>]*>([^<]*)</text>", path.with_suffix(".svg").read_text())
    words = [word for label in labels for word in label.replace(r"\n", " ").split()]
    assert sorted(words) == sorted(word for text in drawn for word in html.unescape(text).replace("\xa0", " ").split())
