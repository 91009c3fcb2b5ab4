# SPDX-License-Identifier: Apache-2.0
"""The table of mutants that are known to survive, each with the reason why."""
import fnmatch
import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Known:
    file: str  # a pattern
    function: str  # empty: any
    code: str  # the line as it stands; empty: any
    what: str
    why: str

    def covers(self, change):
        return (fnmatch.fnmatch(change.file, self.file) and self.what == change.what
                and self.function in ("", change.function) and self.code in ("", change.code))


def read_known(text):
    """Each row of the table whose header is `| File | Function | Line | Change | Why |`."""
    known, inside = [], False
    for line in text.splitlines():
        cells = [_plain(cell) for cell in re.split(r"(?<!\\)\|", line.strip())[1:-1]]
        if cells == ["File", "Function", "Line", "Change", "Why"]:
            inside = True
        elif not cells:
            inside = False
        elif inside and len(cells) == 5 and set(cells[0]) - set("-: "):
            known.append(Known(*map(_code, cells[:3]), *cells[3:]))
    return known


def row(change):
    """The row for a change, to be completed with a reason."""
    code = f"`` {change.code} ``" if "`" in change.code else f"`{change.code}`"
    function = f"`{change.function}`" if change.function else ""
    cells = [f"`{change.file}`", function, code, change.what, ""]
    return "|" + "".join(f" {cell} |" if cell else " |" for cell in
                         (cell.replace("|", "\\|") for cell in cells))


def _plain(cell):
    return cell.strip().replace("\\|", "|")


def _code(cell):
    return cell.strip("`").strip()
