"""The table of mutants that are known to survive: rows of `| file | line | change | why |`."""
import fnmatch
import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Known:
    file: str  # a pattern
    code: str  # the line as it stands; empty: any
    what: str
    why: str

    def covers(self, change):
        return (fnmatch.fnmatch(change.file, self.file) and self.what == change.what
                and self.code in ("", change.code))


def read_known(text):
    """Each row of the table whose header begins with `| File | Line | Change | Why |`."""
    known, inside = [], False
    for line in text.splitlines():
        cells = [_plain(cell) for cell in re.split(r"(?<!\\)\|", line.strip())[1:-1]]
        if cells == ["File", "Line", "Change", "Why"]:
            inside = True
        elif not cells:
            inside = False
        elif inside and len(cells) == 4 and set(cells[0]) - set("-: "):
            known.append(Known(_code(cells[0]), _code(cells[1]), cells[2], cells[3]))
    return known


def row(change):
    """The row for a change, to be completed with a reason."""
    code = f"`` {change.code} ``" if "`" in change.code else f"`{change.code}`"
    cells = [f"`{change.file}`", code, change.what, ""]
    return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells).rstrip() + " |"


def _plain(cell):
    return cell.strip().replace("\\|", "|")


def _code(cell):
    return cell.strip("`").strip()
