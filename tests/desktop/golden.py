"""What is shown, compared with tests/golden/desktop, which tests/golden/rebaseline writes anew."""
import os
import pathlib

GOLDEN = pathlib.Path(__file__).parent.parent / "golden" / "desktop"


def check(test, case, entries):
    """Takes a picture into the folder screenshots of the build, and compares the entries of the
    open menu with those of the golden file."""
    name = f"{test.manager.name}-{case}"
    test.desktop.screenshot(name)
    path = GOLDEN / f"{name}.txt"
    text = text_of(entries)
    if os.environ.get("TERVANO_REBASELINE"):
        path.write_text(text)
    test.assertEqual(text, path.read_text() if path.exists() else "")


def text_of(entries, depth=0):
    """One line for each entry, submenus indented below theirs."""
    text = ""
    for entry in entries:
        text += "  " * depth + entry.title
        text += " >" if entry.entries is not None else ""
        text += "\n" if entry.is_enabled else " (disabled)\n"
        text += text_of(entry.entries or [], depth + 1)
    return text
