"""Fails unless each code block of the documents that names a file after its language is an excerpt of that file."""

import pathlib
import re
import sys

top = pathlib.Path(sys.argv[1])
blocks = [(page.name, name, code) for page in sorted(top.glob("docs/*.md"))
          for name, code in re.findall(r"```\w+ ([\w/.-]+)\n(.*?)```", page.read_text(encoding="utf-8"), re.S)]
stale = [f"{page}: the excerpt of {name} is not in it" for page, name, code in blocks
         if code not in (top / name).read_text(encoding="utf-8")]
sys.exit("\n".join(stale) or (None if blocks else "no excerpt found"))
