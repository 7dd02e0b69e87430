"""Makes a page of each D-Bus introspection XML, out of its comments: usage: Interfaces.py DIRECTORY XML..."""

import re
import sys
import textwrap
from pathlib import Path
from xml.etree import ElementTree


def markdown(text):
    """A comment's text: what is indented is literal, and @name an argument."""
    lines = textwrap.dedent(text).strip("\n").splitlines()
    return "\n".join("  " + line if line.startswith("  ") else inline(line) for line in lines).strip()


def inline(text):
    return re.sub(r"@(\w+)", r"`\1`", text).replace("<", "&lt;")


def meanings(text):
    """The @argument: paragraphs at the beginning of a method's comment, and the rest of it."""
    text = re.sub(r"^\w+:\n", "", textwrap.dedent(text).strip())
    head, _, rest = text.partition("\n\n") if text.startswith("@") else ("", "", text)
    found = re.finditer(r"^@(\w+): (.*?)(?=\n@|\Z)", head, re.DOTALL | re.MULTILINE)
    return {one[1]: inline(" ".join(one[2].split())) for one in found}, rest


def method_page(interface, method, comment):
    about, text = meanings(comment)
    name = method.get("name")
    arguments = method.findall("arg")
    unknown = about.keys() - {argument.get("name") for argument in arguments}
    if unknown:
        sys.exit(f"{interface}: {name} has no argument {', '.join(sorted(unknown))}")
    lines = [f"## {name}", "", markdown(text), ""]
    if arguments:
        lines += ["| Argument | Type | Direction | Meaning |", "|---|---|---|---|"]
    for argument in arguments:
        row = (argument.get("name"), argument.get("type"), argument.get("direction"))
        lines.append("| `{}` | `{}` | {} | {} |".format(*row, about.get(argument.get("name"), "")))
    return lines + [""]


def page(source):
    parser = ElementTree.XMLParser(target=ElementTree.TreeBuilder(insert_comments=True))
    # A comment in front of the root is none of the tree's.
    text = Path(source).read_text()
    introduction = re.search(r"<!--(.*?)-->\s*<node>", text, re.DOTALL)[1]
    interface = ElementTree.fromstring(text, parser).find("interface")
    name = interface.get("name")
    lines = [f"# {name.replace('%s', '&lt;id&gt;')}", "", markdown(introduction), ""]
    comment = ""
    for child in interface:
        if child.tag is ElementTree.Comment:
            comment = child.text
        elif child.tag == "method":
            lines += method_page(name, child, comment)
            comment = ""
    return "\n".join(lines)


def main(directory, *sources):
    for source in sources:
        (Path(directory) / f"dbus-{Path(source).stem.rpartition('.')[2]}.md").write_text(page(source))


if __name__ == "__main__":
    main(*sys.argv[1:])
