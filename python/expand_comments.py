"""Copies the public headers, with the details that @copydetails names in place of that command, which SWIG ignores.

    expand_comments.py SOURCE TARGET

Each header in a folder of SOURCE goes to the same place in TARGET.
"""

import re
import sys
from pathlib import Path

COMMENT = re.compile(r"/\*\*((?:(?!\*/).)*)\*/\s*KESTRUM_API\s[^;(]*?(\w+)\(", re.DOTALL)
COMMAND = re.compile(r" \* @copydetails (\w+)")
# As for Doxygen, the brief part ends with the first full stop in front of white space.
BRIEF = re.compile(r".*?\.(?=\s)", re.DOTALL)


def main(source, target):
    headers = {path.relative_to(source): path.read_text() for path in source.glob("*/*.h")}
    details = {name: BRIEF.sub(" *", comment, count=1).removeprefix(" *\n")
               for text in headers.values() for comment, name in COMMENT.findall(text)}

    def expand(text):
        return COMMAND.sub(lambda command: expand(details[command[1]]).rstrip(), text)

    for path, text in headers.items():
        copy = target / path
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_text(expand(text))


if __name__ == "__main__":
    main(*map(Path, sys.argv[1:]))
