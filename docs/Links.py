"""Tells which links of a site lead to no file of it, as Doxygen does not: usage: Links.py DIRECTORY"""

import html
import re
import sys
from pathlib import Path

site = Path(sys.argv[1])
missing = {
    f"{page.name}: there is no {target}"
    for page in site.glob("*.html")
    for target in map(html.unescape, re.findall(r'(?:href|src)="([^"#:]+)[#"]', page.read_text()))
    if not (site / target).exists()
}
sys.exit("\n".join(sorted(missing)) or 0)
